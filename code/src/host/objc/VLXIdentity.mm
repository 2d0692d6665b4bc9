#import "host/objc/VLXIdentity.h"

#include <string>

#include "host/VelmoraMobileCoreBridge.h"
#import "host/objc/VLXCoreBridge.h"
#import "host/objc/VLXIdentityConversions.h"
#import "host/objc/VLXRetainedBlock.h"
#include "runtime/values/Log.h"

double VLXIdentity_iOSVersionNumber = 1.0;
const unsigned char VLXIdentity_iOSVersionString[] = "@(#)PROGRAM:VLXIdentity_iOS  PROJECT:VLXIdentity_iOS-1.0.0\n";

namespace VelmoraMobile {

namespace {

const char* const EXTENSION_VERSION = "1.0.0";

template <typename TState, typename TResult>
TResult ConvertState(TState state) {
    auto value = static_cast<uint64_t>(state);
    return value < 3 ? static_cast<TResult>(value) : static_cast<TResult>(0);
}

}  // namespace

NSMutableArray* ToVLXMobileVisitorIdArray(const std::vector<std::shared_ptr<VisitorId>>& visitor_ids) {
    NSMutableArray* array = [NSMutableArray arrayWithCapacity:visitor_ids.size()];
    for (const auto& visitor_id : visitor_ids) {
        if (!visitor_id) {
            continue;
        }
        VLXMobileVisitorId* host_id = [VLXMobileVisitorId alloc];
        [host_id setIdOrigin:ToNSString(visitor_id->id_origin)];
        [host_id setIdType:ToNSString(visitor_id->id_type)];
        [host_id setIdentifier:ToNSString(visitor_id->id)];
        [host_id setAuthenticationState:ToObjCVisitorAuthenticationState(visitor_id->authentication_state)];
        [array addObject:host_id];
        [host_id release];
    }
    return array;
}

VLXMobileVisitorAuthenticationState ToObjCVisitorAuthenticationState(VisitorIdAuthenticationState state) {
    return ConvertState<VisitorIdAuthenticationState, VLXMobileVisitorAuthenticationState>(state);
}

VisitorIdAuthenticationState ToCppVisitorAuthenticationState(VLXMobileVisitorAuthenticationState state) {
    return ConvertState<VLXMobileVisitorAuthenticationState, VisitorIdAuthenticationState>(state);
}

std::shared_ptr<IdentityPublicApi> GetCore() {
    std::shared_ptr<VelmoraMobileCore> core = VelmoraMobileCoreBridge::GetInstance().GetCore();
    return core ? IdentityPublicApi::Create(core->event_hub, core->platform_services)
                : IdentityPublicApi::Create(nullptr, nullptr);
}

}  // namespace VelmoraMobile

using namespace VelmoraMobile;

@implementation VLXIdentity

+ (NSString*)extensionVersion {
    return [NSString stringWithUTF8String:EXTENSION_VERSION];
}

+ (void)registerExtension {
    GetCore()->RegisterIdentity();
}

+ (void)appendToUrl:(NSURL*)baseUrl withCallback:(void (^)(NSURL* urlWithVisitorData))callback {
    ScopedAutoreleasePool pool;
    NSString* absolute = [baseUrl absoluteString];
    if (baseUrl == nil || [absolute length] == 0) {
        if (callback != nil) {
            callback(baseUrl);
        }
    }
    std::string url = ToCppString(absolute);
    auto block = RetainBlock(callback);
    GetCore()->AppendToUrl(url, [block](std::string updated_url) {
        ScopedAutoreleasePool answer_pool;
        NSURL* result = [NSURL URLWithString:ToNSString(updated_url)];
        if (block->Get() != nullptr) {
            block->Get()(result);
        }
    });
}

+ (void)collectPii:(NSDictionary*)data {
    ScopedAutoreleasePool pool;
    NSMutableDictionary* removed = [NSMutableDictionary dictionary];
    NSDictionary* clean = CleanDictionary(data, removed);
    if ([removed count] != 0) {
        Log::Warning("Collect PII", "found invalid entries in PII data, removing (requires <NSString*, NSString*>): %s",
                     ToCppString([removed description]));
    }
    // Nothing receives the data: only the warning above is observable.
    ToStringMap(clean);
}

+ (void)getIdentifiers:(void (^)(NSArray* visitorIds))callback {
    auto block = RetainBlock(callback);
    GetCore()->GetIdentifiers([block](const std::vector<std::shared_ptr<VisitorId>>& visitor_ids) {
        ScopedAutoreleasePool answer_pool;
        NSMutableArray* array = ToVLXMobileVisitorIdArray(visitor_ids);
        if (block->Get() != nullptr) {
            block->Get()(array);
        }
    });
}

+ (void)getOndaraCloudId:(void (^)(NSString* ondaraCloudId))callback {
    auto block = RetainBlock(callback);
    GetCore()->GetOndaraCloudId([block](std::string mid) {
        ScopedAutoreleasePool answer_pool;
        NSString* text = ToNSString(mid);
        if (block->Get() != nullptr) {
            block->Get()(text);
        }
    });
}

+ (void)syncIdentifier:(NSString*)identifierType
            identifier:(NSString*)identifier
        authentication:(VLXMobileVisitorAuthenticationState)authenticationState {
    GetCore()->SyncIdentifier(ToCppString(identifierType), ToCppString(identifier),
                              ToCppVisitorAuthenticationState(authenticationState));
}

+ (void)syncIdentifiers:(NSDictionary*)identifiers {
    GetCore()->SyncIdentifiers(ToStringMap(identifiers));
}

+ (void)syncIdentifiers:(NSDictionary*)identifiers
         authentication:(VLXMobileVisitorAuthenticationState)authenticationState {
    GetCore()->SyncIdentifiers(ToStringMap(identifiers), ToCppVisitorAuthenticationState(authenticationState));
}

@end
