#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "runtime/services/crypto/OpenSslCryptoService.h"

using namespace VelmoraMobile;

TEST(CryptoServiceTest, DigestIsSha256HexAndUuidsHaveVersionAndVariantBitsAndDifferAcrossThreads) {
    OpenSslCryptoService crypto;
    EXPECT_EQ(crypto.GetDigest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_NE(crypto.GetDigest(std::string("a\0b", 3)), crypto.GetDigest("a"));
    auto uuid = crypto.GetUuidInterface();
    std::vector<std::vector<std::string>> made(4);
    std::vector<std::thread> threads;
    for (auto& list : made) {
        threads.emplace_back([&uuid, &list] {
            for (uint8_t bytes[16]; list.size() < 200; list.emplace_back(reinterpret_cast<char*>(bytes), 16)) {
                uuid->GenerateUuid(bytes);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::set<std::string> distinct;
    for (const auto& list : made) {
        for (const auto& bytes : list) {
            EXPECT_EQ(uint8_t(bytes[6]) >> 4, 4);
            EXPECT_EQ(uint8_t(bytes[8]) & 0xC0, 0x80);
            distinct.insert(bytes);
        }
    }
    EXPECT_EQ(distinct.size(), 800u);
}
