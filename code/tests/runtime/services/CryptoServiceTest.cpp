#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "runtime/services/crypto/OpenSslCryptoService.h"

using namespace VelmoraMobile;

TEST(CryptoServiceTest, DigestIsSha256InLowerCaseHex) {
    OpenSslCryptoService crypto;
    EXPECT_EQ(crypto.GetDigest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(crypto.GetDigest(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(crypto.GetDigest(std::string("a\0b", 3)), crypto.GetDigest(std::string("a\0b", 3)));
    EXPECT_NE(crypto.GetDigest(std::string("a\0b", 3)), crypto.GetDigest("a"));
}

TEST(CryptoServiceTest, UuidHasVersionFourAndVariantBitsAndDiffers) {
    OpenSslCryptoService crypto;
    auto uuid = crypto.GetUuidInterface();
    ASSERT_TRUE(uuid);
    uint8_t first[16];
    uint8_t second[16];
    std::memset(first, 0xFF, sizeof(first));
    std::memset(second, 0x00, sizeof(second));
    uuid->GenerateUuid(first);
    uuid->GenerateUuid(second);
    for (const uint8_t* bytes : {first, second}) {
        EXPECT_EQ(bytes[6] >> 4, 4);
        EXPECT_EQ(bytes[8] & 0xC0, 0x80);
    }
    EXPECT_NE(std::memcmp(first, second, sizeof(first)), 0);
}

TEST(CryptoServiceTest, UuidsFromSeveralThreadsAreDistinct) {
    OpenSslCryptoService crypto;
    auto uuid = crypto.GetUuidInterface();
    std::vector<std::vector<std::string>> made(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < made.size(); ++t) {
        threads.emplace_back([&uuid, &made, t]() {
            for (int i = 0; i < 200; ++i) {
                uint8_t bytes[16];
                uuid->GenerateUuid(bytes);
                made[t].emplace_back(reinterpret_cast<const char*>(bytes), sizeof(bytes));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::set<std::string> distinct;
    for (const auto& list : made) distinct.insert(list.begin(), list.end());
    EXPECT_EQ(distinct.size(), 800u);
}
