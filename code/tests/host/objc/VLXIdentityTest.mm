// The Objective-C host layer against a running core and the test identity server. One process
// runs one case (named by the first argument) or, without one, every case; it prints
// "N passed, N failed" and exits 1 when a check failed or no case ran.

#import <Foundation/Foundation.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/VelmoraMobileCoreBridge.h"
#import "host/objc/VLXCoreBridge.h"
#import "host/objc/VLXIdentity.h"
#import "host/objc/VLXIdentityConversions.h"
#import "host/objc/VLXMobileCore.h"
#include "identity/module/IdentityConstants.h"
#include "tests/host/support/BusRecorder.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::Answers;
using VelmoraTest::BusRecorder;
using VelmoraTest::LogCapture;

namespace {

int g_failures = 0;

#define CHECK(condition)                                                                       \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: CHECK failed: %s\n", __FILE__, __LINE__, #condition); \
            ++g_failures;                                                                      \
        }                                                                                      \
    } while (0)

const char* const ORG = "0123456789ABCDEF@VelmoraOrg";

/// A data folder, an identity server, and a core started through VLXMobileCore.
struct RunningCore {
    VelmoraTest::TempDir dir;
    VelmoraTestServer::TestIdentityServer server;
    std::shared_ptr<BusRecorder> recorder = std::make_shared<BusRecorder>();

    RunningCore() {
        NSDictionary* configuration = @{
            @"ondaraCloud.org" : @(ORG),
            @"ondaraCloud.server" : ToNSString(server.Host()),
            @"global.ssl" : [NSNumber numberWithBool:NO],
        };
        CHECK([VLXMobileCore startWithDataDirectory:ToNSString(dir.Path())
                                  configurationFile:nil
                                      configuration:configuration]);
        VelmoraMobileCoreBridge::GetInstance().GetCore()->event_hub->RegisterModule(recorder);
    }
    ~RunningCore() { [VLXMobileCore stop]; }

    /// The MID, once the forced sync at start has made one; proves every earlier request was answered.
    std::string Mid() {
        auto mid = std::make_shared<Answers<std::string>>();
        [VLXIdentity getOndaraCloudId:^(NSString* value) {
          mid->Add(ToCppString(value));
        }];
        CHECK(mid->WaitForCount(1));
        return mid->Count() > 0 ? mid->Values()[0] : "";
    }

    std::vector<std::shared_ptr<Event>> IdentityRequests() const {
        return recorder->Events(EventType::IDENTITY, EventSource::REQUEST_IDENTITY);
    }

    std::vector<std::shared_ptr<VisitorId>> CppIdentifiers() {
        auto ids = std::make_shared<Answers<std::vector<std::shared_ptr<VisitorId>>>>();
        GetCore()->GetIdentifiers([ids](const std::vector<std::shared_ptr<VisitorId>>& list) { ids->Add(list); });
        CHECK(ids->WaitForCount(1));
        return ids->Count() > 0 ? ids->Values()[0] : std::vector<std::shared_ptr<VisitorId>>();
    }
};

void ExtensionVersionBeforeAndAfterRegistration() {
    CHECK([[VLXIdentity extensionVersion] isEqualToString:@"1.0.0"]);
    CHECK(VLXIdentity_iOSVersionNumber == 1.0);
    CHECK(std::string(reinterpret_cast<const char*>(VLXIdentity_iOSVersionString)).find("VLXIdentity") !=
          std::string::npos);
    RunningCore core;
    LogCapture log;
    [VLXIdentity registerExtension];
    [VLXIdentity registerExtension];
    CHECK([[VLXIdentity extensionVersion] isEqualToString:@"1.0.0"]);
    CHECK(!log.ContainsFragment("Cannot register module"));
    CHECK(core.Mid().size() == 38);
}

void AppendToUrlWithNilCallsBackTwice() {
    RunningCore core;
    auto urls = std::make_shared<Answers<std::string>>();
    __block int immediate_calls = 0;
    [VLXIdentity appendToUrl:nil
                withCallback:^(NSURL* url) {
                  immediate_calls += url == nil;
                  urls->Add(url == nil ? "nil" : ToCppString([url absoluteString]));
                }];
    CHECK(immediate_calls == 1);
    CHECK(urls->WaitForCount(2));
    [VLXIdentity appendToUrl:[NSURL URLWithString:@"https://shop.example/cart?item=7"]
                withCallback:^(NSURL* url) {
                  urls->Add(ToCppString([url absoluteString]));
                }];
    CHECK(urls->WaitForCount(3));
    std::string url = urls->Count() == 3 ? urls->Values()[2] : "";
    CHECK(url.rfind("https://shop.example/cart?item=7&velmora_mc=", 0) == 0);
    CHECK(url.find("OCMID%3D" + core.Mid()) != std::string::npos);
}

void CollectPiiLogsForeignEntriesAndSendsNothing() {
    RunningCore core;
    core.Mid();
    size_t requests_before = core.IdentityRequests().size();
    LogCapture log;
    [VLXIdentity collectPii:@{@"name" : @"alice", @"city" : @"Lyon"}];
    [VLXIdentity collectPii:@{@"name" : @"alice", @"age" : @42}];
    [VLXIdentity collectPii:nil];
    std::vector<LogCapture::Line> lines;
    for (const auto& line : log.Lines()) {
        if (line.tag == "Collect PII") lines.push_back(line);
    }
    CHECK(lines.size() == 1);
    if (lines.size() == 1) {
        CHECK(lines[0].mode == LoggingMode::WARNING_LOG);
        CHECK(lines[0].message == "found invalid entries in PII data, removing (requires <NSString*, NSString*>): " +
                                      ToCppString(
                                          [@{@"age" : @42} description]));
    }
    // A later request, once answered, shows that nothing went on the bus before it.
    core.Mid();
    CHECK(core.IdentityRequests().size() == requests_before + 1);
}

// Nil arguments still send their request; an out-of-range state syncs as unknown; the ids come
// back as VLXMobileVisitorIds in the module's order.
void SyncCallsReachTheModuleAndIdsComeBackInOrder() {
    RunningCore core;
    core.Mid();
    size_t before = core.IdentityRequests().size();
    [VLXIdentity syncIdentifiers:nil];
    [VLXIdentity syncIdentifiers:nil authentication:VLXMobileVisitorAuthenticationStateLoggedOut];
    [VLXIdentity syncIdentifier:nil identifier:nil authentication:VLXMobileVisitorAuthenticationStateUnknown];
    [VLXIdentity getOndaraCloudId:nil];
    [VLXIdentity syncIdentifier:@"crm"
                     identifier:@"alice"
                 authentication:static_cast<VLXMobileVisitorAuthenticationState>(7)];
    [VLXIdentity syncIdentifiers:@{@"loyalty" : @"L-9"}
                  authentication:VLXMobileVisitorAuthenticationStateAuthenticated];
    std::vector<std::shared_ptr<VisitorId>> expected = core.CppIdentifiers();
    std::vector<std::shared_ptr<Event>> requests = core.IdentityRequests();
    CHECK(requests.size() == before + 7);
    if (requests.size() == before + 7) {
        const std::string& key = IdentityConstants::EventDataKeys::Identity::IDENTIFIERS;
        std::map<std::string, std::string> map{{"x", "x"}};
        CHECK(requests[before]->GetData()->GetStringMap(key, map) && map.empty());
        CHECK(requests[before + 1]->GetData()->OptInteger("authenticationstate", -1) == 2);
        CHECK(requests[before + 2]->GetData()->GetStringMap(key, map) &&
              map == (std::map<std::string, std::string>{{"", ""}}));
    }
    std::vector<std::string> wanted;
    for (const auto& id : expected) {
        wanted.push_back(id->id_origin + "|" + id->id_type + "|" + id->id + "|" +
                         std::to_string(static_cast<int>(id->authentication_state)));
    }
    CHECK(std::count(wanted.begin(), wanted.end(), "d_cid_ic|crm|alice|0") == 1);
    CHECK(std::count(wanted.begin(), wanted.end(), "d_cid_ic|loyalty|L-9|1") == 1);
    auto rows = std::make_shared<Answers<std::vector<std::string>>>();
    [VLXIdentity getIdentifiers:^(NSArray* ids) {
      std::vector<std::string> row;
      for (VLXMobileVisitorId* visitor in ids) {
          row.push_back(ToCppString([visitor idOrigin]) + "|" + ToCppString([visitor idType]) + "|" +
                        ToCppString([visitor identifier]) + "|" + std::to_string([visitor authenticationState]));
      }
      rows->Add(row);
    }];
    CHECK(rows->WaitForCount(1) && rows->Values()[0] == wanted);
}

void CallsWithoutARunningCoreAreLoggedAndDropped() {
    const std::string ignored =
        "GetOndaraCloudId ignored: no core is running. Start the core before calling the identity API";
    LogCapture log;
    auto calls = std::make_shared<Answers<std::string>>();
    [VLXIdentity getOndaraCloudId:^(NSString*) {
      calls->Add("called");
    }];
    [VLXIdentity syncIdentifiers:@{@"crm" : @"alice"}];
    CHECK(log.Contains(ignored));
    CHECK(log.Contains(
        "DispatchIdSyncEvent ignored: no core is running. Start the core before calling the identity API"));
    {
        RunningCore core;
        CHECK(![VLXMobileCore startWithDataDirectory:nil configurationFile:nil configuration:nil]);
        CHECK(log.Contains("A core is already running in this process: stop it before starting another"));
        core.Mid();
        CHECK([VLXMobileCore stop]);
        CHECK([VLXMobileCore stop]);
        log.Clear();
        [VLXIdentity getOndaraCloudId:^(NSString*) {
          calls->Add("called");
        }];
        CHECK(log.Contains(ignored));
    }
    CHECK(calls->Count() == 0);
}

void ConversionsKeepInRangeStatesAndCleanForeignEntries() {
    // {value, C++ state of the Objective-C value, Objective-C state of the C++ value}
    for (auto [value, cpp, objc] : std::vector<std::tuple<NSUInteger, int, int>>{
             {0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {3, 0, 0}, {7, 0, 0}, {NSUIntegerMax, 0, 0}}) {
        CHECK(static_cast<int>(
                  ToCppVisitorAuthenticationState(static_cast<VLXMobileVisitorAuthenticationState>(value))) == cpp);
        CHECK(static_cast<int>(ToObjCVisitorAuthenticationState(static_cast<VisitorIdAuthenticationState>(value))) ==
              objc);
    }
    CHECK(ToCppString(nil).empty());
    CHECK(ToCppString(@"caf\u00e9") == "caf\xc3\xa9");
    CHECK([ToNSString("caf\xc3\xa9") isEqualToString:@"caf\u00e9"]);
    CHECK(ToStringMap(nil).empty());
    NSDictionary* mixed = @{@"a" : @"1", @"b" : @2, @3 : @"c"};
    CHECK(ToStringMap(mixed) == (std::map<std::string, std::string>{{"a", "1"}}));
    NSMutableDictionary* removed = [NSMutableDictionary dictionary];
    CHECK([CleanDictionary(mixed, removed) isEqualToDictionary:@{@"a" : @"1"}]);
    CHECK([removed isEqualToDictionary:(@{@"b" : @2, @3 : @"c"})]);
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<void()>> cases{
        {"ExtensionVersionBeforeAndAfterRegistration", ExtensionVersionBeforeAndAfterRegistration},
        {"AppendToUrlWithNilCallsBackTwice", AppendToUrlWithNilCallsBackTwice},
        {"CollectPiiLogsForeignEntriesAndSendsNothing", CollectPiiLogsForeignEntriesAndSendsNothing},
        {"SyncCallsReachTheModuleAndIdsComeBackInOrder", SyncCallsReachTheModuleAndIdsComeBackInOrder},
        {"CallsWithoutARunningCoreAreLoggedAndDropped", CallsWithoutARunningCoreAreLoggedAndDropped},
        {"ConversionsKeepInRangeStatesAndCleanForeignEntries", ConversionsKeepInRangeStatesAndCleanForeignEntries},
    };
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    int passed = 0, failed = 0;
    for (const auto& [name, run] : cases) {
        if (argc > 1 && name != argv[1]) continue;
        int failures_before = g_failures;
        NSAutoreleasePool* case_pool = [[NSAutoreleasePool alloc] init];
        run();
        [case_pool drain];
        bool ok = g_failures == failures_before;
        std::printf("%s %s\n", ok ? "[  PASSED  ]" : "[  FAILED  ]", name.c_str());
        ok ? ++passed : ++failed;
    }
    [pool drain];
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 && passed > 0 ? 0 : 1;  // no case of that name fails too
}
