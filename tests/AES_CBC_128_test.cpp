// AES-CBC-128 payload confidentiality over the library's own cipher API,
// checked against published CBC vectors and against OpenSSL.
#include <gtest/gtest.h>

#include <string>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using packettest::aes_cbc;
using testkit::Bytes;

Bytes hex(const std::string &h)
{
    Bytes out;
    for (size_t i = 0; i + 1 < h.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoi(h.substr(i, 2), nullptr, 16)));
    return out;
}

// NIST SP 800-38A F.2.1 / F.2.2, CBC-AES128.
const Bytes kKey = hex("2b7e151628aed2a6abf7158809cf4f3c");
const Bytes kIv = hex("000102030405060708090a0b0c0d0e0f");
const Bytes kPlain = hex(
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const Bytes kCipher = hex(
    "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
    "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");

TEST(BinToHex, LowercaseHighNibbleFirstWithoutTerminator)
{
    const uint8_t bytes[] = {0x00, 0x9A, 0xFF};
    char text[8];
    std::memset(text, '#', sizeof text);
    BinToHex(text, bytes, 24);
    EXPECT_EQ(std::string(text, 7), "009aff#");
}

TEST(BinToHex, BitsAreDividedByEightTowardsZero)
{
    const uint8_t bytes[] = {0xAB, 0xCD, 0xEF};
    char text[8];
    std::memset(text, '#', sizeof text);
    BinToHex(text, bytes, 23);
    EXPECT_EQ(std::string(text, 6), "abcd##");
    std::memset(text, '#', sizeof text);
    BinToHex(text, bytes, -9);
    BinToHex(text, bytes, 7);
    EXPECT_EQ(std::string(text, 2), "##");
}

TEST(AES_CBC_128_Process, EncryptsThePublishedCbcVector)
{
    Bytes data = kPlain;
    EXPECT_EQ(AES_CBC_128_Process(kKey.data(), kIv.data(), data.data(), static_cast<int32_t>(data.size()), 0), 0);
    EXPECT_EQ(data, kCipher);
}

TEST(AES_CBC_128_Process, DecryptsThePublishedCbcVectorInPlace)
{
    Bytes data = kCipher;
    EXPECT_EQ(AES_CBC_128_Process(kKey.data(), kIv.data(), data.data(), static_cast<int32_t>(data.size()), 1), 0);
    EXPECT_EQ(data, kPlain);
}

TEST(AES_CBC_128_Process, AgreesWithOpenSslOverManyLengths)
{
    const Bytes key = packettest::test_k2();
    const Bytes iv = packettest::fixed_iv(0x90);
    for (size_t blocks = 1; blocks <= 20; ++blocks) {
        Bytes data(16 * blocks);
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 31 + blocks);
        const Bytes plain = data;
        ASSERT_EQ(AES_CBC_128_Process(key.data(), iv.data(), data.data(), static_cast<int32_t>(data.size()), 0), 0);
        EXPECT_EQ(data, aes_cbc(Bytes(key.begin(), key.begin() + 16), iv, plain, true)) << blocks;
        ASSERT_EQ(AES_CBC_128_Process(key.data(), iv.data(), data.data(), static_cast<int32_t>(data.size()), 1), 0);
        EXPECT_EQ(data, plain) << blocks;
    }
}

TEST(AES_CBC_128_Process, ZeroLengthPassesAndTouchesNothing)
{
    uint8_t data[16] = {0x55};
    testing::internal::CaptureStdout();
    EXPECT_EQ(AES_CBC_128_Process(kKey.data(), kIv.data(), data, 0, 0), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(data[0], 0x55);
}

TEST(AES_CBC_128_Process, LengthNotAMultipleOf16FailsOnStandardOutput)
{
    Bytes data(17, 0x42);
    testkit::clear_trace();
    testing::internal::CaptureStdout();
    EXPECT_EQ(AES_CBC_128_Process(kKey.data(), kIv.data(), data.data(), 17, 0), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error : Invalid data length in Confidential process.\n");
    EXPECT_EQ(data, Bytes(17, 0x42));
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST(AES_CBC_128_Process, KeyRefusedByTheCipherApiIsReported)
{
    Bytes data = kPlain;
    testing::internal::CaptureStdout();
    EXPECT_EQ(AES_CBC_128_Process(kKey.data(), kIv.data(), data.data(), 16, 2), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "makeKey error -1\n");
    EXPECT_EQ(data, kPlain);
}

TEST(ConfidentialityAlgorithm, NoneLeavesTheFieldAlone)
{
    Bytes field(48, 0x33);
    testkit::clear_trace();
    EXPECT_EQ(ConfidentialityAlgorithm(0, field.data(), 48, kKey.data(), 0), 0);
    EXPECT_EQ(field, Bytes(48, 0x33));
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST(ConfidentialityAlgorithm, AesCbcKeepsTheIvAndEncryptsTheRest)
{
    const Bytes k2 = packettest::test_k2();
    Bytes field = packettest::cat({kIv, kPlain});
    ASSERT_EQ(ConfidentialityAlgorithm(1, field.data(), static_cast<uint32_t>(field.size()), k2.data(), 0), 0);
    EXPECT_EQ(field, packettest::cat({kIv, aes_cbc(Bytes(k2.begin(), k2.begin() + 16), kIv, kPlain, true)}));
    ASSERT_EQ(ConfidentialityAlgorithm(1, field.data(), static_cast<uint32_t>(field.size()), k2.data(), 1), 0);
    EXPECT_EQ(field, packettest::cat({kIv, kPlain}));
}

TEST(ConfidentialityAlgorithm, OnlyTheFirst16BytesOfK2AreTheKey)
{
    Bytes k2a = packettest::test_k2(), k2b = k2a;
    k2b[16] ^= 0xFF;
    k2b[19] ^= 0xFF;
    Bytes a = packettest::cat({kIv, kPlain}), b = a;
    ConfidentialityAlgorithm(1, a.data(), static_cast<uint32_t>(a.size()), k2a.data(), 0);
    ConfidentialityAlgorithm(1, b.data(), static_cast<uint32_t>(b.size()), k2b.data(), 0);
    EXPECT_EQ(a, b);
}

TEST(ConfidentialityAlgorithm, FailureBelowAddsItsOwnMessage)
{
    Bytes field(16 + 17, 0x01);
    testkit::clear_trace();
    testing::internal::CaptureStdout();
    EXPECT_EQ(ConfidentialityAlgorithm(1, field.data(), static_cast<uint32_t>(field.size()), kKey.data(), 0), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error : Invalid data length in Confidential process.\n");
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to do AES-CBC-128 Encrypted Payload Format.\n"});
}

TEST(ConfidentialityAlgorithm, FieldShorterThanItsIvIsRefused)
{
    Bytes field(8, 0x01);
    testkit::clear_trace();
    EXPECT_EQ(ConfidentialityAlgorithm(1, field.data(), 8, kKey.data(), 1), 1);
    EXPECT_EQ(field, Bytes(8, 0x01));
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to do AES-CBC-128 Encrypted Payload Format.\n"});
}

TEST(ConfidentialityAlgorithm, UnknownAlgorithmIsNamedInHex)
{
    Bytes field(32, 0x01);
    testkit::clear_trace();
    EXPECT_EQ(ConfidentialityAlgorithm(2, field.data(), 32, kKey.data(), 0), 1);
    EXPECT_EQ(ConfidentialityAlgorithm(0x1F, field.data(), 32, kKey.data(), 0), 1);
    EXPECT_EQ(testkit::log_lines(), (std::vector<std::string>{"Type 02 is Not supported Confidentiality Algorithm.\n",
                                                              "Type 1f is Not supported Confidentiality Algorithm.\n"}));
    EXPECT_EQ(field, Bytes(32, 0x01));
}

}  // namespace
