// The Objective-C host layer against a running core and the test identity server.

#import <Foundation/Foundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#import "host/objc/VLXCoreBridge.h"
#import "host/objc/VLXIdentity.h"
#import "host/objc/VLXIdentityConversions.h"
#import "host/objc/VLXMobileCore.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::Answers;
using VelmoraTest::LogCapture;

namespace {

/// Each case drains its own autorelease pool.
class VLXIdentityTest : public ::testing::Test {
protected:
    ~VLXIdentityTest() override { [pool drain]; }
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
};

// Calls without a running core are logged and dropped; a second start is refused and a stop can be
// repeated; the version holds after a repeated registration, which is quiet; a nil URL is answered
// at once with nil and once more later, a real one comes back decorated with the MID; PII is logged
// at warning level when it has foreign entries and never sent; an out-of-range state syncs as
// unknown; the ids come back as VLXMobileVisitorIds in order.
TEST_F(VLXIdentityTest, CallsWithoutACoreAreDroppedUrlsAreDecoratedPiiSendsNothingAndIdsComeBackInOrder) {
    LogCapture log(LoggingMode::WARNING_LOG);
    [VLXIdentity getOndaraCloudId:^(NSString*){
    }];
    EXPECT_TRUE(
        log.Contains("GetOndaraCloudId ignored: no core is running. Start the core before calling the identity API"));
    VelmoraTest::TempDir dir;
    VelmoraTestServer::TestIdentityServer server;
    NSDictionary* configuration = @{
        @"ondaraCloud.org" : @"0123456789ABCDEF@VelmoraOrg",
        @"ondaraCloud.server" : ToNSString(server.Host()),
        @"global.ssl" : [NSNumber numberWithBool:NO],
    };
    ASSERT_TRUE([VLXMobileCore startWithDataDirectory:ToNSString(dir.Path())
                                    configurationFile:nil
                                        configuration:configuration]);
    EXPECT_FALSE([VLXMobileCore startWithDataDirectory:nil configurationFile:nil configuration:nil]);
    [VLXIdentity registerExtension];  // the core registered it at start
    EXPECT_TRUE([[VLXIdentity extensionVersion] isEqualToString:@"1.0.0"]);
    EXPECT_FALSE(log.ContainsFragment("Cannot register module"));

    auto urls = std::make_shared<Answers<std::string>>();
    __block int immediate_calls = 0;
    void (^record)(NSURL*) = ^(NSURL* url) {
      if (url == nil) ++immediate_calls;  // the synchronous answer, on this thread
      urls->Add(url == nil ? "nil" : ToCppString([url absoluteString]));
    };
    [VLXIdentity appendToUrl:nil withCallback:record];
    EXPECT_EQ(immediate_calls, 1);
    EXPECT_TRUE(urls->WaitForCount(2));
    [VLXIdentity appendToUrl:[NSURL URLWithString:@"https://shop.example/cart?item=7"] withCallback:record];
    ASSERT_TRUE(urls->WaitForCount(3));
    EXPECT_THAT(urls->Values()[2],
                ::testing::MatchesRegex("https://shop\\.example/cart\\?item=7&velmora_mc=.*%7COCMID%3D.*"));

    log.Clear();
    [VLXIdentity collectPii:@{@"name" : @"alice", @"city" : @"Lyon"}];
    [VLXIdentity collectPii:@{@"name" : @"alice", @"age" : @42}];
    [VLXIdentity collectPii:nil];
    const auto warnings = log.Lines();
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].tag + ": " + warnings[0].message,
              "Collect PII: found invalid entries in PII data, removing (requires <NSString*, NSString*>): " +
                  ToCppString(
                      [@{@"age" : @42} description]));
    [VLXIdentity syncIdentifier:@"crm"
                     identifier:@"alice"
                 authentication:static_cast<VLXMobileVisitorAuthenticationState>(7)];
    [VLXIdentity syncIdentifiers:@{@"loyalty" : @"L-9"}
                  authentication:VLXMobileVisitorAuthenticationStateAuthenticated];
    auto rows = std::make_shared<Answers<std::vector<std::string>>>();
    [VLXIdentity getIdentifiers:^(NSArray* visitors) {
      std::vector<std::string> row;
      for (VLXMobileVisitorId* visitor in visitors) {
          row.push_back(ToCppString([visitor idOrigin]) + "|" + ToCppString([visitor idType]) + "|" +
                        ToCppString([visitor identifier]) + "|" + std::to_string([visitor authenticationState]));
      }
      rows->Add(row);
    }];
    EXPECT_EQ(rows->First(), (std::vector<std::string>{"d_cid_ic|crm|alice|0", "d_cid_ic|loyalty|L-9|1"}));
    EXPECT_TRUE([VLXMobileCore stop]);
    EXPECT_TRUE([VLXMobileCore stop]);
}

TEST_F(VLXIdentityTest, ConversionsKeepInRangeStatesAndCleanForeignEntries) {
    // {value, the state it maps to either way}
    for (auto [value, state] :
         std::vector<std::pair<NSUInteger, int>>{{0, 0}, {1, 1}, {2, 2}, {3, 0}, {7, 0}, {NSUIntegerMax, 0}}) {
        EXPECT_EQ(int(ToCppVisitorAuthenticationState(VLXMobileVisitorAuthenticationState(value))), state) << value;
        EXPECT_EQ(int(ToObjCVisitorAuthenticationState(VisitorIdAuthenticationState(value))), state) << value;
    }
    EXPECT_TRUE(ToCppString(@"caf\u00e9") == "caf\xc3\xa9" && ToCppString(nil).empty() && ToStringMap(nil).empty());
    EXPECT_TRUE([ToNSString("caf\xc3\xa9") isEqualToString:@"caf\u00e9"]);
    NSDictionary* mixed = @{@"a" : @"1", @"b" : @2, @3 : @"c"};
    EXPECT_TRUE(ToStringMap(mixed) == (std::map<std::string, std::string>{{"a", "1"}}));
    NSMutableDictionary* removed = [NSMutableDictionary dictionary];
    EXPECT_TRUE([CleanDictionary(mixed, removed) isEqualToDictionary:@{@"a" : @"1"}]);
    EXPECT_TRUE([removed isEqualToDictionary:(@{@"b" : @2, @3 : @"c"})]);
}

}  // namespace
