#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "identity/module/Identity.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::CryptoWithUuid;
using VelmoraTest::FakeCryptoService;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;

namespace {

std::string Generate(IdentityHarness& harness) {
    std::string mid;
    harness.RunInIdentityQueue([&] { mid = harness.identity->GenerateMID(); });
    return mid;
}

// The only identity line logged is this warning.
void ExpectOnlyWarning(const LogCapture& capture, const std::string& message) {
    EXPECT_EQ(CountIdentityLines(capture, LoggingMode::WARNING_LOG, message), 1u) << message;
    EXPECT_EQ(CountIdentityLines(capture), 1u) << message;
}

}  // namespace

TEST(IdentityMidTest, BothHalvesAreBigEndianSignedNumbersPaddedToNineteen) {
    struct Case {
        uint8_t bytes[16];
        std::string mid;
    };
    const std::vector<Case> cases = {
        {{0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         "00000000000000000010000000000000000001"},
        // 0xFEFDFCFBFAF9F8F8 = -(0x0102030405060708): absolute values.
        {{1, 2, 3, 4, 5, 6, 7, 8, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8, 0xF8},
         "00726238597903828560072623859790382856"},
        {{0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0},
         "92233720368547758070000000000000000000"},
        // The lowest value has no absolute value and keeps its sign: 39 characters.
        {{0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2A}, "-92233720368547758080000000000000000042"},
        {{0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0}, "0000000000000000000-9223372036854775808"},
    };
    IdentityHarness harness;
    harness.RegisterIdentity();
    for (const auto& c : cases) {
        harness.services->SetCryptoService(CryptoWithUuid(c.bytes));
        EXPECT_EQ(Generate(harness), c.mid);
    }
    EXPECT_EQ(cases[3].mid.size(), 39u);
}

TEST(IdentityMidTest, RealSourceGivesThirtyEightDigitsAndMissingServicesGiveEmptyWithOneWarning) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    std::string first = Generate(harness);
    EXPECT_EQ(first.size(), 38u);
    EXPECT_EQ(first.find_first_not_of("0123456789"), std::string::npos) << first;
    EXPECT_NE(first, Generate(harness));

    const std::vector<std::pair<std::shared_ptr<CryptoServiceInterface>, std::string>> cases = {
        {nullptr, "Unable to generate mid. Crypto services is null."},
        {std::make_shared<FakeCryptoService>(nullptr), "Unable to generate mid. UUID Interface is null."}};
    for (const auto& c : cases) {
        LogCapture capture(LoggingMode::WARNING_LOG);
        harness.services->SetCryptoService(c.first);
        EXPECT_EQ(Generate(harness), "");
        ExpectOnlyWarning(capture, c.second);
    }
    // A module that no hub has registered has no platform services.
    LogCapture capture(LoggingMode::WARNING_LOG);
    EXPECT_EQ(std::make_shared<Identity>()->GenerateMID(), "");
    ExpectOnlyWarning(capture, "Unable to generate mid. Platform services is null.");
}
