// The Objective-C host layer against a running core and the test identity server. One process
// runs one case (named by the first argument) or, without one, every case; it prints
// "N passed, N failed" and exits 1 when a check failed.

#import <Foundation/Foundation.h>

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
                  if (url == nil) {
                      ++immediate_calls;
                      urls->Add("nil");
                  } else {
                      urls->Add(ToCppString([url absoluteString]));
                  }
                }];
    CHECK(immediate_calls == 1);
    CHECK(urls->WaitForCount(2));
    CHECK(urls->Count() == 2);

    auto decorated = std::make_shared<Answers<std::string>>();
    [VLXIdentity appendToUrl:[NSURL URLWithString:@"https://shop.example/cart?item=7"]
                withCallback:^(NSURL* url) {
                  decorated->Add(ToCppString([url absoluteString]));
                }];
    CHECK(decorated->WaitForCount(1));
    std::string url = decorated->Count() > 0 ? decorated->Values()[0] : "";
    CHECK(url.rfind("https://shop.example/cart?item=7&velmora_mc=", 0) == 0);
    CHECK(url.find("OCMID%3D" + core.Mid()) != std::string::npos);
}

void CollectPiiLogsForeignEntriesAndSendsNothing() {
    RunningCore core;
    core.Mid();
    size_t requests_before = core.IdentityRequests().size();
    LogCapture log;
    auto pii_lines = [&log] {
        std::vector<LogCapture::Line> lines;
        for (const auto& line : log.Lines()) {
            if (line.tag == "Collect PII") lines.push_back(line);
        }
        return lines;
    };

    [VLXIdentity collectPii:@{@"name" : @"alice", @"city" : @"Lyon"}];
    CHECK(pii_lines().empty());

    [VLXIdentity collectPii:@{@"name" : @"alice", @"age" : @42}];
    NSString* removed = [@{@"age" : @42} description];
    std::vector<LogCapture::Line> lines = pii_lines();
    CHECK(lines.size() == 1);
    if (lines.size() == 1) {
        CHECK(lines[0].mode == LoggingMode::WARNING_LOG);
        CHECK(lines[0].message ==
              "found invalid entries in PII data, removing (requires <NSString*, NSString*>): " + ToCppString(removed));
    }
    [VLXIdentity collectPii:nil];
    CHECK(pii_lines().size() == 1);
    // A later request, once answered, shows that nothing went on the bus before it.
    core.Mid();
    CHECK(core.IdentityRequests().size() == requests_before + 1);
}

void GetIdentifiersGivesTheModulesIdsInOrder() {
    RunningCore core;
    [VLXIdentity syncIdentifiers:@{@"loyalty" : @"L-9", @"crm" : @"alice"}
                  authentication:VLXMobileVisitorAuthenticationStateAuthenticated];
    std::vector<std::shared_ptr<VisitorId>> expected = core.CppIdentifiers();
    CHECK(expected.size() == 2);

    auto arrays = std::make_shared<Answers<std::vector<std::vector<std::string>>>>();
    [VLXIdentity getIdentifiers:^(NSArray* ids) {
      std::vector<std::vector<std::string>> rows;
      for (VLXMobileVisitorId* visitor in ids) {
          rows.push_back({ToCppString([visitor idOrigin]), ToCppString([visitor idType]),
                          ToCppString([visitor identifier]), std::to_string([visitor authenticationState])});
      }
      arrays->Add(rows);
    }];
    CHECK(arrays->WaitForCount(1));
    std::vector<std::vector<std::string>> rows = arrays->Count() > 0 ? arrays->Values()[0] : decltype(rows)();
    CHECK(rows.size() == 2);
    for (size_t i = 0; i < rows.size() && i < expected.size(); ++i) {
        CHECK(rows[i][0] == "d_cid_ic");
        CHECK(rows[i][1] == expected[i]->id_type);
        CHECK(rows[i][2] == expected[i]->id);
        CHECK(rows[i][3] == "1");
    }
}

void OutOfRangeStateSyncsAsUnknown() {
    RunningCore core;
    [VLXIdentity syncIdentifier:@"crm"
                     identifier:@"alice"
                 authentication:static_cast<VLXMobileVisitorAuthenticationState>(7)];
    std::vector<std::shared_ptr<VisitorId>> ids = core.CppIdentifiers();
    CHECK(ids.size() == 1);
    if (ids.size() == 1) {
        CHECK(ids[0]->id == "alice");
        CHECK(ids[0]->authentication_state == VisitorIdAuthenticationState::UNKNOWN);
    }
}

void NilStringsAndDictionariesStillSync() {
    RunningCore core;
    core.Mid();
    size_t before = core.IdentityRequests().size();
    [VLXIdentity syncIdentifiers:nil];
    [VLXIdentity syncIdentifiers:nil authentication:VLXMobileVisitorAuthenticationStateLoggedOut];
    [VLXIdentity syncIdentifier:nil identifier:nil authentication:VLXMobileVisitorAuthenticationStateUnknown];
    [VLXIdentity getOndaraCloudId:nil];
    core.Mid();
    std::vector<std::shared_ptr<Event>> requests = core.IdentityRequests();
    CHECK(requests.size() == before + 5);
    if (requests.size() == before + 5) {
        const std::string& key = IdentityConstants::EventDataKeys::Identity::IDENTIFIERS;
        std::map<std::string, std::string> map{{"x", "x"}};
        CHECK(requests[before]->GetData()->GetStringMap(key, map) && map.empty());
        CHECK(requests[before + 1]->GetData()->OptInteger("authenticationstate", -1) == 2);
        CHECK(requests[before + 2]->GetData()->GetStringMap(key, map) &&
              map == (std::map<std::string, std::string>{{"", ""}}));
    }
}

void CallsWithoutARunningCoreAreLoggedAndDropped() {
    LogCapture log;
    auto calls = std::make_shared<Answers<std::string>>();
    [VLXIdentity getOndaraCloudId:^(NSString*) {
      calls->Add("called");
    }];
    [VLXIdentity syncIdentifiers:@{@"crm" : @"alice"}];
    CHECK(log.Contains("GetOndaraCloudId ignored: no core is running. Start the core before calling the identity API"));
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
        CHECK(log.Contains(
            "GetOndaraCloudId ignored: no core is running. Start the core before calling the identity API"));
    }
    CHECK(calls->Count() == 0);
}

void ConversionsKeepInRangeStatesAndCleanForeignEntries() {
    for (NSUInteger value : {0u, 1u, 2u}) {
        CHECK(static_cast<NSUInteger>(
                  ToCppVisitorAuthenticationState(static_cast<VLXMobileVisitorAuthenticationState>(value))) == value);
        CHECK(static_cast<NSUInteger>(
                  ToObjCVisitorAuthenticationState(static_cast<VisitorIdAuthenticationState>(value))) == value);
    }
    for (NSUInteger value : {NSUInteger(3), NSUInteger(7), NSUIntegerMax}) {
        CHECK(ToCppVisitorAuthenticationState(static_cast<VLXMobileVisitorAuthenticationState>(value)) ==
              VisitorIdAuthenticationState::UNKNOWN);
    }
    for (int value : {3, 9, -1}) {
        CHECK(ToObjCVisitorAuthenticationState(static_cast<VisitorIdAuthenticationState>(value)) ==
              VLXMobileVisitorAuthenticationStateUnknown);
    }

    CHECK(ToCppString(nil).empty());
    CHECK(ToCppString(@"caf\u00e9") == "caf\xc3\xa9");
    CHECK([ToNSString("caf\xc3\xa9") isEqualToString:@"caf\u00e9"]);
    CHECK(ToStringMap(nil).empty());
    NSDictionary* mixed = @{@"a" : @"1", @"b" : @2, @3 : @"c"};
    CHECK(ToStringMap(mixed) == (std::map<std::string, std::string>{{"a", "1"}}));
    NSMutableDictionary* removed = [NSMutableDictionary dictionary];
    NSDictionary* clean = CleanDictionary(mixed, removed);
    CHECK([clean isEqualToDictionary:@{@"a" : @"1"}]);
    CHECK([removed isEqualToDictionary:(@{@"b" : @2, @3 : @"c"})]);

    CHECK([ToVLXMobileVisitorIdArray({}) count] == 0);
    NSMutableArray* array = ToVLXMobileVisitorIdArray(
        {std::make_shared<VisitorId>("d_cid_ic", "crm", "alice", VisitorIdAuthenticationState::LOGGED_OUT),
         std::make_shared<VisitorId>("other", "loyalty", "", static_cast<VisitorIdAuthenticationState>(9))});
    CHECK([array count] == 2);
    if ([array count] == 2) {
        VLXMobileVisitorId* first = [array objectAtIndex:0];
        VLXMobileVisitorId* second = [array objectAtIndex:1];
        CHECK([[first idOrigin] isEqualToString:@"d_cid_ic"] && [[first idType] isEqualToString:@"crm"] &&
              [[first identifier] isEqualToString:@"alice"] &&
              [first authenticationState] == VLXMobileVisitorAuthenticationStateLoggedOut);
        CHECK([[second idOrigin] isEqualToString:@"other"] && [[second identifier] isEqualToString:@""] &&
              [second authenticationState] == VLXMobileVisitorAuthenticationStateUnknown);
    }
}

const std::map<std::string, std::function<void()>>& Cases() {
    static const std::map<std::string, std::function<void()>> cases{
        {"ExtensionVersionBeforeAndAfterRegistration", ExtensionVersionBeforeAndAfterRegistration},
        {"AppendToUrlWithNilCallsBackTwice", AppendToUrlWithNilCallsBackTwice},
        {"CollectPiiLogsForeignEntriesAndSendsNothing", CollectPiiLogsForeignEntriesAndSendsNothing},
        {"GetIdentifiersGivesTheModulesIdsInOrder", GetIdentifiersGivesTheModulesIdsInOrder},
        {"OutOfRangeStateSyncsAsUnknown", OutOfRangeStateSyncsAsUnknown},
        {"NilStringsAndDictionariesStillSync", NilStringsAndDictionariesStillSync},
        {"CallsWithoutARunningCoreAreLoggedAndDropped", CallsWithoutARunningCoreAreLoggedAndDropped},
        {"ConversionsKeepInRangeStatesAndCleanForeignEntries", ConversionsKeepInRangeStatesAndCleanForeignEntries},
    };
    return cases;
}

}  // namespace

int main(int argc, char** argv) {
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    int passed = 0;
    int failed = 0;
    for (const auto& entry : Cases()) {
        if (argc > 1 && entry.first != argv[1]) {
            continue;
        }
        int failures_before = g_failures;
        NSAutoreleasePool* case_pool = [[NSAutoreleasePool alloc] init];
        entry.second();
        [case_pool drain];
        bool ok = g_failures == failures_before;
        std::printf("%s %s\n", ok ? "[  PASSED  ]" : "[  FAILED  ]", entry.first.c_str());
        ok ? ++passed : ++failed;
    }
    [pool drain];
    if (passed + failed == 0) {
        std::fprintf(stderr, "no case named %s\n", argc > 1 ? argv[1] : "");
        return 1;
    }
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
