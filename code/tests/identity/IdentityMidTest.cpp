#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentitySyncTestSupport.h"
#include "LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::CryptoWithUuid;
using VelmoraTest::FakeCryptoService;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;

namespace {

class IdentityMidTest : public ::testing::Test {
protected:
    void SetUp() override { harness.RegisterIdentity(); }

    std::string Generate() {
        std::string mid;
        harness.RunInIdentityQueue([&] { mid = harness.identity->GenerateMID(); });
        return mid;
    }

    std::string GenerateFrom(const uint8_t (&bytes)[16]) {
        harness.services->SetCryptoService(CryptoWithUuid(bytes));
        return Generate();
    }

    IdentityHarness harness;
};

bool AllDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

TEST_F(IdentityMidTest, WorkedExample) {
    const uint8_t bytes[16] = {0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(GenerateFrom(bytes), "00000000000000000010000000000000000001");
}

TEST_F(IdentityMidTest, HalvesAreBigEndianAbsoluteValues) {
    // 0x0102030405060708 = 72623859790382856; 0xFEFDFCFBFAF9F8F8 = -(0x0102030405060708).
    const uint8_t bytes[16] = {1, 2, 3, 4, 5, 6, 7, 8, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8, 0xF8};
    EXPECT_EQ(GenerateFrom(bytes), "00726238597903828560072623859790382856");
}

TEST_F(IdentityMidTest, LargestHalfNeedsNoPadding) {
    const uint8_t bytes[16] = {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(GenerateFrom(bytes), "92233720368547758070000000000000000000");
}

TEST_F(IdentityMidTest, LowestHalfKeepsItsSignAndGivesThirtyNineCharacters) {
    const uint8_t bytes[16] = {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2A};
    std::string mid = GenerateFrom(bytes);
    EXPECT_EQ(mid, "-92233720368547758080000000000000000042");
    EXPECT_EQ(mid.size(), 39u);

    const uint8_t low_second[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(GenerateFrom(low_second), "0000000000000000000-9223372036854775808");
}

TEST_F(IdentityMidTest, RealUuidSourceGivesThirtyEightDigits) {
    std::string first = Generate();
    std::string second = Generate();
    EXPECT_EQ(first.size(), 38u);
    EXPECT_TRUE(AllDigits(first)) << first;
    EXPECT_NE(first, second);
}

TEST_F(IdentityMidTest, MissingCryptoServiceGivesEmptyAndOneWarning) {
    LogCapture capture(LoggingMode::WARNING_LOG);
    harness.services->SetCryptoService(nullptr);
    EXPECT_EQ(Generate(), "");
    EXPECT_EQ(CountIdentityLines(capture, LoggingMode::WARNING_LOG, "Unable to generate mid. Crypto services is null."),
              1u);
    EXPECT_EQ(CountIdentityLines(capture), 1u);
}

TEST_F(IdentityMidTest, MissingUuidInterfaceGivesEmptyAndOneWarning) {
    LogCapture capture(LoggingMode::WARNING_LOG);
    harness.services->SetCryptoService(std::make_shared<FakeCryptoService>(nullptr));
    EXPECT_EQ(Generate(), "");
    EXPECT_EQ(CountIdentityLines(capture, LoggingMode::WARNING_LOG, "Unable to generate mid. UUID Interface is null."),
              1u);
    EXPECT_EQ(CountIdentityLines(capture), 1u);
}

TEST(IdentityMidWithoutPlatformTest, MissingPlatformServicesGivesEmptyAndOneWarning) {
    // A module that no hub has registered has no platform services.
    LogCapture capture(LoggingMode::WARNING_LOG);
    auto identity = std::make_shared<Identity>();
    EXPECT_EQ(identity->GenerateMID(), "");
    EXPECT_EQ(
        CountIdentityLines(capture, LoggingMode::WARNING_LOG, "Unable to generate mid. Platform services is null."),
        1u);
    EXPECT_EQ(CountIdentityLines(capture), 1u);
}
