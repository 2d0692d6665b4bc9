#import "host/objc/VLXMobileCore.h"

#include <cstring>

#include "host/CoreOptions.h"
#include "host/VelmoraMobileCoreBridge.h"
#import "host/objc/VLXCoreBridge.h"
#import "host/objc/VLXRetainedBlock.h"
#include "runtime/values/Log.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

namespace {

const char* const LOG_TAG = "VLXMobileCore";

std::shared_ptr<Variant> ToVariant(id value) {
    if ([value isKindOfClass:[NSString class]]) {
        return Variant::FromString(ToCppString(value));
    }
    if (![value isKindOfClass:[NSNumber class]]) {
        return nullptr;
    }
    NSNumber* number = value;
    const char* type = [number objCType];
    if (std::strcmp(type, @encode(BOOL)) == 0 || std::strcmp(type, @encode(bool)) == 0) {
        return Variant::FromBoolean([number boolValue]);
    }
    if (std::strcmp(type, @encode(float)) == 0 || std::strcmp(type, @encode(double)) == 0) {
        return Variant::FromDouble([number doubleValue]);
    }
    return Variant::FromLong([number longLongValue]);
}

Variant::VariantMap ToConfiguration(NSDictionary* configuration) {
    Variant::VariantMap map;
    for (id key in configuration) {
        id value = [configuration objectForKey:key];
        std::shared_ptr<Variant> variant = [key isKindOfClass:[NSString class]] ? ToVariant(value) : nullptr;
        if (variant) {
            map[ToCppString(key)] = variant;
        } else {
            Log::Warning(LOG_TAG, "Configuration entry %s left out: keys must be strings and values strings or numbers",
                         ToCppString([key description]));
        }
    }
    return map;
}

}  // namespace

}  // namespace VelmoraMobile

using namespace VelmoraMobile;

@implementation VLXMobileCore

+ (BOOL)startWithDataDirectory:(NSString*)dataDirectory
             configurationFile:(NSString*)configurationFile
                 configuration:(NSDictionary*)configuration {
    ScopedAutoreleasePool pool;
    CoreOptions options;
    options.data_dir = ToCppString(dataDirectory);
    options.configuration_file = ToCppString(configurationFile);
    options.configuration = ToConfiguration(configuration);
    return VelmoraMobileCoreBridge::GetInstance().Start(options) ? YES : NO;
}

+ (BOOL)stop {
    return VelmoraMobileCoreBridge::GetInstance().Stop() ? YES : NO;
}

@end
