// The simulator's cipher suites 15, 16 and 17, checked byte for byte against
// codes and keys computed here with OpenSSL's HMAC-SHA256: the RAKP 2 key
// exchange code, the SIK, the RAKP 4 integrity check value (16 bytes), K1
// and K2 over twenty 0x01 / 0x02 bytes in either key mode, and session
// packets with HMAC-SHA256-128 and AES-CBC-128. Address 127.0.1.27.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using namespace simtest;

constexpr const char *kAddress = "127.0.1.27";

Bytes hmac_sha256(const Bytes &key, const Bytes &data)
{
    Bytes out(32);
    unsigned int n = 0;
    static const uint8_t empty = 0;
    HMAC(EVP_sha256(), key.empty() ? &empty : key.data(), static_cast<int>(key.size()),
         data.empty() ? &empty : data.data(), data.size(), out.data(), &n);
    out.resize(n);
    return out;
}

struct Algorithms {
    int suite;
    uint8_t auth, integrity, confidentiality;
};

// Open Session and RAKP 1 to 4 by hand for a RAKP-HMAC-SHA256 suite, with
// every code and key computed here.
struct Sha256Session {
    Established e;
    Bytes rakp2_code;   // as received
    Bytes rakp4_value;  // as received
    Bytes expected_rakp2_code;
    Bytes expected_rakp4_value;
};

std::optional<Sha256Session> establish256(Console &c, const Algorithms &a, const std::string &name,
                                          const std::string &password, const Bytes &kg = {},
                                          const Bytes &rakp3_code_override = {})
{
    Sha256Session s;
    Established &e = s.e;
    e.console_id = 0xC0DE0256;
    e.open_response = c.exchange(open_session_request(1, 4, e.console_id, a.auth, a.integrity, a.confidentiality));
    if (e.open_response.size() != 52 || e.open_response[17] != 0) return std::nullopt;
    e.bmc_id = get_le32(e.open_response, 24);
    e.rm = Bytes(16);
    for (size_t i = 0; i < 16; ++i) e.rm[i] = static_cast<uint8_t>(0x60 + i);
    e.role = 0x14;  // ADMINISTRATOR, name-only look-up
    e.rakp2 = c.exchange(rakp1_request(2, e.bmc_id, e.rm, e.role, name));
    if (e.rakp2.size() < 56 || e.rakp2[17] != 0) return std::nullopt;
    e.rc = Bytes(e.rakp2.begin() + 24, e.rakp2.begin() + 40);
    e.guid = Bytes(e.rakp2.begin() + 40, e.rakp2.begin() + 56);
    s.rakp2_code = Bytes(e.rakp2.begin() + 56, e.rakp2.end());

    Bytes key = pad20(text(password));
    Bytes user = cat({e.role, static_cast<uint8_t>(name.size())}, text(name));
    Bytes in2;
    le32(in2, e.console_id);
    le32(in2, e.bmc_id);
    s.expected_rakp2_code = hmac_sha256(key, cat(cat(cat(cat(in2, e.rm), e.rc), e.guid), user));
    Bytes in3 = e.rc;
    le32(in3, e.console_id);
    Bytes code3 = rakp3_code_override.empty() ? hmac_sha256(key, cat(in3, user)) : rakp3_code_override;
    bool kg_set = std::any_of(kg.begin(), kg.end(), [](uint8_t b) { return b != 0; });
    e.sik = hmac_sha256(kg_set ? pad20(kg) : key, cat(cat(e.rm, e.rc), user));
    e.k1 = hmac_sha256(e.sik, Bytes(20, 0x01));
    e.k2 = a.confidentiality == 1 ? hmac_sha256(e.sik, Bytes(20, 0x02)) : Bytes(32, 0);
    Bytes in4 = e.rm;
    le32(in4, e.bmc_id);
    s.expected_rakp4_value = hmac_sha256(e.sik, cat(in4, e.guid));
    s.expected_rakp4_value.resize(16);

    e.rakp4 = c.exchange(rakp3_request(3, 0, e.bmc_id, code3));
    if (e.rakp4.size() < 24) return std::nullopt;
    s.rakp4_value = Bytes(e.rakp4.begin() + 24, e.rakp4.end());
    return s;
}

// A session datagram with HMAC-SHA256-128 keyed with K1 and, when `bits`
// has 0x80, AES-CBC-128 keyed with the first 16 bytes of K2.
Bytes packet256(const Established &e, uint8_t bits, uint32_t seq, const Bytes &message)
{
    Bytes payload = message;
    if (bits & 0x80) {
        Bytes iv(16, 0x3C);
        size_t p = (16 - (message.size() + 1) % 16) % 16;
        Bytes plain = message;
        for (size_t i = 1; i <= p; ++i) plain.push_back(static_cast<uint8_t>(i));
        plain.push_back(static_cast<uint8_t>(p));
        payload = cat(iv, aes_cbc(first16(e.k2), iv, plain, true));
    }
    Bytes b = rmcp_ipmi();
    b.push_back(0x06);
    b.push_back(bits);
    le32(b, e.bmc_id);
    le32(b, seq);
    b.push_back(static_cast<uint8_t>(payload.size()));
    b.push_back(static_cast<uint8_t>(payload.size() >> 8));
    b = cat(b, payload);
    if (bits & 0x40) {
        size_t q = (4 - (12 + payload.size() + 2) % 4) % 4;
        b.insert(b.end(), q, 0xFF);
        b.push_back(static_cast<uint8_t>(q));
        b.push_back(0x07);
        Bytes code = hmac_sha256(e.k1, Bytes(b.begin() + 4, b.end()));
        b.insert(b.end(), code.begin(), code.begin() + 16);
    }
    return b;
}

// The IPMI message of a session datagram from the simulator, after its
// HMAC-SHA256-128 code is checked; empty when anything is off.
Bytes message_of(const Established &e, const Bytes &d)
{
    if (d.size() < 16 + 16 + 2) return {};
    uint8_t bits = d[5];
    size_t length = static_cast<size_t>(d[14] | (d[15] << 8));
    if (!(bits & 0x40) || 16 + length + 2 + 16 > d.size()) return {};
    Bytes code = hmac_sha256(e.k1, Bytes(d.begin() + 4, d.end() - 16));
    if (!std::equal(code.begin(), code.begin() + 16, d.end() - 16)) return {};
    Bytes payload(d.begin() + 16, d.begin() + 16 + static_cast<long>(length));
    if (!(bits & 0x80)) return payload;
    if (payload.size() < 32 || payload.size() % 16) return {};
    Bytes plain = aes_cbc(first16(e.k2), Bytes(payload.begin(), payload.begin() + 16),
                          Bytes(payload.begin() + 16, payload.end()), false);
    size_t pad = plain.back();
    if (pad > 15) return {};
    return Bytes(plain.begin(), plain.end() - 1 - static_cast<long>(pad));
}

bmcsim::Config config(bool standard_keys)
{
    bmcsim::Config c;
    c.address = kAddress;
    c.users = {{"admin", "Secr3t-pw", 4, true}};
    c.standard_keys = standard_keys;
    return c;
}

class BmcsimSha256 : public ::testing::TestWithParam<std::tuple<Algorithms, bool>> {
protected:
    Algorithms algorithms() const { return std::get<0>(GetParam()); }
    bool standard_keys() const { return std::get<1>(GetParam()); }
};

TEST_P(BmcsimSha256, EstablishmentCodesAndKeysAreHmacSha256)
{
    bmcsim::Simulator sim(config(standard_keys()));
    sim.start();
    Console console(kAddress);
    auto s = establish256(console, algorithms(), "admin", "Secr3t-pw");
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->rakp2_code.size(), 32u);
    EXPECT_EQ(s->rakp2_code, s->expected_rakp2_code);
    EXPECT_EQ(s->e.rakp4[17], 0x00);
    EXPECT_EQ(s->rakp4_value.size(), 16u);
    EXPECT_EQ(s->rakp4_value, s->expected_rakp4_value);

    auto sessions = sim.stats().sessions;
    ASSERT_EQ(sessions.size(), 1u);
    const auto &info = sessions[0];
    EXPECT_EQ(info.auth_alg, 3);
    EXPECT_EQ(info.integrity_alg, algorithms().integrity);
    EXPECT_EQ(info.confidentiality_alg, algorithms().confidentiality);
    EXPECT_EQ(info.sik, s->e.sik);
    EXPECT_EQ(info.k1, s->e.k1);  // K1 over twenty 0x01 bytes, whatever the key mode
    EXPECT_EQ(info.k2, s->e.k2);  // K2 over twenty 0x02 bytes
    EXPECT_TRUE(info.standard_keys);
    std::string established = "established for user 'admin': cipher suite " + std::to_string(algorithms().suite) +
                              ", privilege up to ADMINISTRATOR, standard keys";
    auto events = sim.stats().events;
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [&](const std::string &l) { return l.find(established) != std::string::npos; }),
              1);
}

TEST_P(BmcsimSha256, ABmcKeyKeysTheSik)
{
    auto c = config(standard_keys());
    Bytes kg = text("the-bmc-key");
    c.kg = kg;
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    auto s = establish256(console, algorithms(), "admin", "Secr3t-pw", kg);
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->rakp4_value, s->expected_rakp4_value);
    EXPECT_EQ(sim.stats().sessions.at(0).sik, s->e.sik);
}

TEST_P(BmcsimSha256, ARakp3CodeOfHmacSha1LengthIsRefused)
{
    bmcsim::Simulator sim(config(standard_keys()));
    sim.start();
    Console console(kAddress);
    auto s = establish256(console, algorithms(), "admin", "Secr3t-pw", {}, Bytes(20, 0xAB));
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->e.rakp4[17], 0x0F);  // invalid integrity check value
    EXPECT_TRUE(sim.stats().sessions.empty() || !sim.stats().sessions[0].active);
}

TEST_P(BmcsimSha256, GetDeviceIdInTheNegotiatedProtection)
{
    bmcsim::Simulator sim(config(standard_keys()));
    sim.start();
    Console console(kAddress);
    auto s = establish256(console, algorithms(), "admin", "Secr3t-pw");
    ASSERT_TRUE(s.has_value());
    uint8_t bits = static_cast<uint8_t>((algorithms().integrity ? 0x40 : 0) | (algorithms().confidentiality ? 0x80 : 0));
    Bytes want = ipmi_response(0x06, 0x01, 0x00, {0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00,
                                                  0x00, 0x00, 0x00, 0x00});
    Bytes answer = console.exchange(packet256(s->e, bits, 1, ipmi_request(0x06, 0x01)));
    ASSERT_GE(answer.size(), 16u);
    EXPECT_EQ(answer[5], bits);
    if (bits & 0x40) {
        EXPECT_EQ(message_of(s->e, answer), want);
    } else {
        EXPECT_EQ(Bytes(answer.begin() + 16, answer.end()), want);
    }
    EXPECT_EQ(sim.stats().rejected_packets, 0u);
}

// Suites 16 and 17, which have an integrity algorithm.
using BmcsimSha256Integrity = BmcsimSha256;

TEST_P(BmcsimSha256Integrity, AnHmacSha1CodeIsRefusedUnderHmacSha256_128)
{
    bmcsim::Simulator sim(config(standard_keys()));
    sim.start();
    Console console(kAddress);
    auto s = establish256(console, algorithms(), "admin", "Secr3t-pw");
    ASSERT_TRUE(s.has_value());
    // Same key, but a 12-byte HMAC-SHA1 code, as under HMAC-SHA1-96.
    Established sha1 = s->e;
    Bytes d = session_packet(sha1, static_cast<uint8_t>(0x40 | (algorithms().confidentiality ? 0x80 : 0)), 1,
                             ipmi_request(0x06, 0x01));
    EXPECT_TRUE(console.exchange(d, 300).empty());
    EXPECT_EQ(sim.stats().rejected_packets, 1u);
}

std::string name_of(const ::testing::TestParamInfo<std::tuple<Algorithms, bool>> &info)
{
    return "Suite" + std::to_string(std::get<0>(info.param).suite) +
           (std::get<1>(info.param) ? "StandardKeys" : "LibraryKeys");
}

INSTANTIATE_TEST_SUITE_P(Suites, BmcsimSha256,
                         ::testing::Combine(::testing::Values(Algorithms{15, 3, 0, 0}, Algorithms{16, 3, 4, 0},
                                                              Algorithms{17, 3, 4, 1}),
                                            ::testing::Bool()),
                         name_of);

INSTANTIATE_TEST_SUITE_P(Suites, BmcsimSha256Integrity,
                         ::testing::Combine(::testing::Values(Algorithms{16, 3, 4, 0}, Algorithms{17, 3, 4, 1}),
                                            ::testing::Bool()),
                         name_of);

TEST(BmcsimSha256Suites, OnlyTheConfiguredSuitesAreAccepted)
{
    auto c = config(true);
    c.cipher_suites = {3, 17};
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    EXPECT_TRUE(establish256(console, {17, 3, 4, 1}, "admin", "Secr3t-pw").has_value());
    Bytes refused = console.exchange(open_session_request(1, 4, 0xC0DE0257, 3, 4, 0));
    ASSERT_GE(refused.size(), 18u);
    EXPECT_EQ(refused[17], 0x11);  // no cipher suite match: 16 is not served
}

}  // namespace
