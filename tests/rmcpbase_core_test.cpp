// The RMCP header writer and checker, and the one HMAC entry point.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <string>
#include <vector>

#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes hex(const std::string &h)
{
    Bytes out;
    for (size_t i = 0; i + 1 < h.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoi(h.substr(i, 2), nullptr, 16)));
    return out;
}

Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }

TEST(MakeRMCPHeader, WritesTheFourIpmiClassBytes)
{
    uint8_t buffer[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    const uint32_t available = 4;
    uint32_t written = 0;
    EXPECT_EQ(MakeRMCPHeader(buffer, &available, &written), 0);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(available, 4u);
    EXPECT_EQ(Bytes(buffer, buffer + 5), (Bytes{0x06, 0x00, 0xFF, 0x07, 0xEE}));
}

TEST(MakeRMCPHeader, ThreeBytesAreNotEnough)
{
    testkit::clear_trace();
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    const uint32_t available = 3;
    uint32_t written = 99;
    EXPECT_EQ(MakeRMCPHeader(buffer, &available, &written), 1);
    EXPECT_EQ(written, 99u);
    EXPECT_EQ(Bytes(buffer, buffer + 4), (Bytes{0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Insufficinet size of Data [Make RMCP Header]\n"});
}

struct HeaderCase {
    Bytes datagram;
    const char *message;
};

TEST(Check_RMCPHead, AcceptsAndStripsTheHeader)
{
    const Bytes d = {0x06, 0x00, 0xFF, 0x07, 0x06, 0x11};
    uint32_t length = static_cast<uint32_t>(d.size());
    uint32_t header_length = 0;
    EXPECT_EQ(Check_RMCPHead(d.data(), &length, &header_length), 0);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(header_length, 4u);
}

TEST(Check_RMCPHead, RefusesEachFieldWithItsMessage)
{
    const HeaderCase cases[] = {
        {{0x06, 0x00, 0xFF}, "Received Unexpected Packet.(R_H length)\n"},
        {{0x07, 0x00, 0xFF, 0x07}, "Received Unexpected Packet.(R_H Version)\n"},
        {{0x06, 0x01, 0xFF, 0x07}, "Received Unexpected Packet.(R_H Reserved)\n"},
        {{0x06, 0x00, 0xFE, 0x07}, "Received Unexpected Packet.(R_H Seq)\n"},
        {{0x06, 0x00, 0xFF, 0x06}, "Received Unexpected Packet.(R_H Class)\n"},
        {{0x06, 0x00, 0xFF, 0x87}, "Received Unexpected Packet.(R_H Class)\n"},
    };
    for (const auto &c : cases) {
        testkit::clear_trace();
        uint32_t length = static_cast<uint32_t>(c.datagram.size());
        const uint32_t before = length;
        uint32_t header_length = 77;
        EXPECT_EQ(Check_RMCPHead(c.datagram.data(), &length, &header_length), 1) << c.message;
        EXPECT_EQ(length, before);
        EXPECT_EQ(header_length, 77u);
        EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{c.message});
    }
}

Bytes auth_code(uint8_t algorithm, const Bytes &key, const Bytes &data, uint32_t *reported = nullptr)
{
    uint8_t out[20];
    uint32_t length = 0;
    EXPECT_EQ(CalculateAuthCode(algorithm, data.data(), static_cast<uint32_t>(data.size()), key.data(),
                                static_cast<uint32_t>(key.size()), out, &length),
              0);
    if (reported) *reported = length;
    return Bytes(out, out + 20);
}

// RFC 2202, section 3: the HMAC-SHA1 test cases.
TEST(CalculateAuthCode, HmacSha1MatchesRfc2202)
{
    Bytes key4;
    for (uint8_t b = 1; b <= 25; ++b) key4.push_back(b);
    struct Case {
        Bytes key, data;
        const char *digest;
    } cases[] = {
        {Bytes(20, 0x0b), text("Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00"},
        {text("Jefe"), text("what do ya want for nothing?"), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
        {Bytes(20, 0xaa), Bytes(50, 0xdd), "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
        {key4, Bytes(50, 0xcd), "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
        {Bytes(20, 0x0c), text("Test With Truncation"), "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
        {Bytes(80, 0xaa), text("Test Using Larger Than Block-Size Key - Hash Key First"),
         "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
        {Bytes(80, 0xaa), text("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data"),
         "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"},
    };
    for (const auto &c : cases) {
        uint32_t reported = 0;
        EXPECT_EQ(auth_code(1, c.key, c.data, &reported), hex(c.digest)) << c.digest;
        EXPECT_EQ(reported, 20u);
    }
}

Bytes openssl_hmac(const Bytes &key, const Bytes &data)
{
    uint8_t out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()), data.data(), data.size(), out, &n);
    return Bytes(out, out + n);
}

TEST(CalculateAuthCode, EmptyDataGivesHmacOfTheEmptyMessage)
{
    const Bytes key(20, 0x5A);
    EXPECT_EQ(auth_code(1, key, {}), openssl_hmac(key, {}));
}

TEST(CalculateAuthCode, EmptyKeyIsHmacWithTheZeroKey)
{
    const Bytes data = text("RAKP");
    uint8_t out[20];
    uint32_t length = 0;
    const uint8_t unused = 0;
    EXPECT_EQ(CalculateAuthCode(1, data.data(), 4, &unused, 0, out, &length), 0);
    EXPECT_EQ(Bytes(out, out + 20), openssl_hmac(Bytes(20, 0), data));
}

TEST(CalculateAuthCode, AlgorithmNoneGivesZerosAndLeavesLength)
{
    uint8_t out[20];
    std::fill(std::begin(out), std::end(out), 0xEE);
    uint32_t length = 1234;
    const Bytes key(20, 1), data = text("anything");
    EXPECT_EQ(CalculateAuthCode(0, data.data(), 8, key.data(), 20, out, &length), 0);
    EXPECT_EQ(Bytes(out, out + 20), Bytes(20, 0));
    EXPECT_EQ(length, 1234u);
}

TEST(CalculateAuthCode, OtherAlgorithmsFailAndWriteNothing)
{
    for (uint8_t algorithm : {2, 3, 0xFF}) {
        testkit::clear_trace();
        uint8_t out[20];
        std::fill(std::begin(out), std::end(out), 0xEE);
        uint32_t length = 5;
        const Bytes key(20, 1), data = text("anything");
        EXPECT_EQ(CalculateAuthCode(algorithm, data.data(), 8, key.data(), 20, out, &length), 1);
        EXPECT_EQ(Bytes(out, out + 20), Bytes(20, 0xEE));
        EXPECT_EQ(length, 5u);
        EXPECT_EQ(testkit::log_lines(),
                  std::vector<std::string>{"Could not calculate Auth Code because of Not-supported-Auth-type.\n"});
    }
}

}  // namespace
