// The simulator as a product: standard-key mode, device identity and chassis
// state from the configuration, the commands common consoles send (Get
// Channel Cipher Suites, Set Session Privilege Level, Get Session Info),
// several listening addresses, the session log lines and the program's
// options (loopback 127.0.0.85 and 127.0.0.86).
#include <arpa/inet.h>

#include <cstdio>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::Kind;
using simtest::Bytes;
using simtest::cat;
using simtest::Console;
using simtest::Established;
using simtest::ipmi_request;
using simtest::ipmi_response;

constexpr const char *kAddress = "127.0.0.85";
constexpr const char *kSecondAddress = "127.0.0.86";

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.users = {{"admin", "secret", 4, true}, {"operator", "op-pass", 3, true}};
    return c;
}

std::string hex32(uint32_t v)
{
    char b[12];
    std::snprintf(b, sizeof b, "%08x", v);
    return b;
}

Bytes le32(uint32_t v)
{
    Bytes b;
    simtest::le32(b, v);
    return b;
}

// An established session and a way to ask it things.
struct Session {
    Session(Console &console, int suite, bool standard_keys, const std::string &user = "admin",
            const std::string &password = "secret", uint8_t privilege = 4, uint32_t console_id = 0xC0DE0001)
        : console(console), suite(suite)
    {
        auto established =
            simtest::establish(console, suite, user, password, privilege, false, {}, console_id, standard_keys);
        if (!established) throw std::runtime_error("establishment failed");
        e = *established;
    }

    simtest::Opened ask(const Bytes &message)
    {
        ++seq;
        Bytes answer = console.exchange(simtest::session_packet(e, simtest::suite_bits(suite), seq, message));
        return simtest::open_packet(e, answer);
    }

    Console &console;
    int suite;
    uint32_t seq = 0;
    Established e;
};

// ------------------------------------------------------------------ key modes

class BmcsimKeyModes : public ::testing::TestWithParam<int> {};

TEST_P(BmcsimKeyModes, StandardKeysUseK1ForIntegrityAndTheShortK2ForAes)
{
    int suite = GetParam();
    auto c = base();
    c.standard_keys = true;
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    Session s(console, suite, true);

    // RAKP 4 is still made with the SIK itself.
    Bytes icv = simtest::hmac_sha1(s.e.sik, cat(cat(s.e.rm, le32(s.e.bmc_id)), s.e.guid));
    if (suite > 0) {
        EXPECT_EQ(Bytes(s.e.rakp4.begin() + 24, s.e.rakp4.end()), Bytes(icv.begin(), icv.begin() + 12));
    }

    auto o = s.ask(ipmi_request(0x06, 0x01));
    EXPECT_EQ(o.bits, simtest::suite_bits(suite));
    if (suite >= 2) {
        EXPECT_TRUE(o.code_ok);
    }
    EXPECT_EQ(o.message.size(), 8u + 15u);

    auto info = sim.stats().sessions.at(0);
    EXPECT_TRUE(info.standard_keys);
    EXPECT_EQ(simtest::bytes(info.sik), s.e.sik);
    if (suite > 0) {
        EXPECT_EQ(simtest::bytes(info.k1), simtest::hmac_sha1(s.e.sik, Bytes(20, 0x01)));
        EXPECT_NE(simtest::bytes(info.k1), s.e.sik);
    }
    EXPECT_EQ(simtest::bytes(info.k2), s.e.k2);
    if (suite == 3) {
        EXPECT_EQ(simtest::bytes(info.k2), simtest::hmac_sha1(s.e.sik, Bytes(20, 0x02)));
    }
}

// Suites with an integrity code: the key mode shows on the wire.
class BmcsimKeyMismatch : public ::testing::TestWithParam<int> {};

TEST_P(BmcsimKeyMismatch, PacketsMadeWithTheOtherModesKeysAreRefused)
{
    int suite = GetParam();
    for (bool standard : {false, true}) {
        SCOPED_TRACE(standard ? "standard keys" : "library keys");
        auto c = base();
        c.standard_keys = standard;
        bmcsim::Simulator sim(c);
        sim.start();
        Console console(kAddress);
        Session s(console, suite, standard);
        Established wrong = s.e;
        wrong.k1 = standard ? s.e.sik : simtest::hmac_sha1(s.e.sik, Bytes(20, 0x01));
        Bytes packet = simtest::session_packet(wrong, simtest::suite_bits(suite), 1, ipmi_request(0x06, 0x01));
        EXPECT_TRUE(console.exchange(packet, 200).empty());
        EXPECT_TRUE(sim.stats().logged("wrong integrity code"));
        EXPECT_EQ(sim.stats().sessions.at(0).standard_keys, standard);
        s.seq = 1;
        EXPECT_EQ(s.ask(ipmi_request(0x06, 0x04)).message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}));
    }
}

TEST_P(BmcsimKeyModes, LibraryModeStaysTheDefault)
{
    int suite = GetParam();
    bmcsim::Simulator sim(base());
    sim.start();
    Console console(kAddress);
    Session s(console, suite, false);
    auto o = s.ask(ipmi_request(0x06, 0x01));
    if (suite >= 2) {
        EXPECT_TRUE(o.code_ok);
    }
    EXPECT_FALSE(o.message.empty());
    auto info = sim.stats().sessions.at(0);
    EXPECT_FALSE(info.standard_keys);
    EXPECT_EQ(simtest::bytes(info.k1), s.e.sik);
    if (suite == 3) {
        EXPECT_EQ(simtest::bytes(info.k2), simtest::hmac_sha1(s.e.sik, Bytes(64, 0x02)));
    }
}

INSTANTIATE_TEST_SUITE_P(Suites, BmcsimKeyModes, ::testing::Values(0, 1, 2, 3),
                         [](const auto &info) { return "Suite" + std::to_string(info.param); });
INSTANTIATE_TEST_SUITE_P(Suites, BmcsimKeyMismatch, ::testing::Values(2, 3),
                         [](const auto &info) { return "Suite" + std::to_string(info.param); });

// ------------------------------------------------------------------ identity and chassis

TEST(BmcsimProduct, GetDeviceIdAnswersTheConfiguredIdentity)
{
    auto c = base();
    c.device.device_id = 0x42;
    c.device.device_revision = 0x83;
    c.device.firmware_major = 0x07;
    c.device.firmware_minor = 0x31;
    c.device.ipmi_version = 0x51;
    c.device.additional_support = 0x21;
    c.device.manufacturer = 0x012345;
    c.device.product = 0xBEEF;
    c.device.aux = {0x01, 0x02, 0x03, 0x04};
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    Session s(console, 3, false);
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x01)).message,
              ipmi_response(0x06, 0x01, 0x00,
                            {0x42, 0x83, 0x07, 0x31, 0x51, 0x21, 0x45, 0x23, 0x01, 0xEF, 0xBE, 0x01, 0x02, 0x03, 0x04}));
}

TEST(BmcsimProduct, ChassisStatusFollowsTheConfigurationAndChassisControl)
{
    auto c = base();
    c.chassis.power_on = false;
    c.chassis.restore_policy = 1;
    c.chassis.power_fault = true;
    c.chassis.interlock = true;
    c.chassis.last_event = 0x01;
    c.chassis.misc = 0x01;
    c.standard_keys = true;
    bmcsim::Simulator sim(c);
    sim.start();
    EXPECT_FALSE(sim.stats().chassis.power_on);
    Console console(kAddress);
    Session s(console, 2, true);
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x2C, 0x01, 0x01, 0x00}));
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x02, {0x01})).message, ipmi_response(0x00, 0x02, 0x00));
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x2D, 0x11, 0x01, 0x00}));
    EXPECT_TRUE(sim.stats().chassis.power_on);
    EXPECT_TRUE(sim.stats().logged("chassis control 01 (power up): power on"));
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x02, {0x05})).message, ipmi_response(0x00, 0x02, 0x00));
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x2C, 0x11, 0x01, 0x00}));
    EXPECT_FALSE(sim.stats().chassis.power_on);

    // A new chassis configuration replaces the running state.
    sim.modify([](bmcsim::Config &k) { k.chassis = bmcsim::ChassisState{}; });
    EXPECT_TRUE(sim.stats().chassis.power_on);
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x01, 0x00, 0x00, 0x00}));
    // Any other change leaves it alone.
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x02, {0x00})).message, ipmi_response(0x00, 0x02, 0x00));
    sim.modify([](bmcsim::Config &k) { k.device.product = 7; });
    EXPECT_EQ(s.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x00, 0x00, 0x00, 0x00}));
}

// ------------------------------------------------------------------ cipher suites

Bytes v15_request(const Bytes &message)
{
    Bytes d = simtest::rmcp_ipmi();
    d.insert(d.end(), 9, 0x00);
    d.push_back(static_cast<uint8_t>(message.size()));
    return cat(d, message);
}

Bytes v15_answer(const Bytes &message)
{
    Bytes d = simtest::rmcp_ipmi();
    d.insert(d.end(), 9, 0x00);
    d.push_back(static_cast<uint8_t>(message.size()));
    return cat(d, message);
}

TEST(BmcsimProduct, ListsTheAcceptedCipherSuitesOutsideASession)
{
    auto c = base();
    c.cipher_suites = {3, 1};
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    Bytes rq = ipmi_request(0x06, 0x54, {0x0E, 0x00, 0x80});
    EXPECT_EQ(console.exchange(v15_request(rq)),
              v15_answer(ipmi_response(0x06, 0x54, 0x00,
                                       {0x01, 0xC0, 0x01, 0x01, 0x40, 0x80, 0xC0, 0x03, 0x01, 0x41, 0x81})));
    // The same in RMCP+ framing with session ID 0.
    EXPECT_EQ(console.exchange(simtest::presession(0x00, rq)),
              simtest::presession(0x00, ipmi_response(0x06, 0x54, 0x00,
                                                      {0x01, 0xC0, 0x01, 0x01, 0x40, 0x80, 0xC0, 0x03, 0x01, 0x41, 0x81})));
    // Listed by algorithm: each tagged algorithm once.
    EXPECT_EQ(console.exchange(v15_request(ipmi_request(0x06, 0x54, {0x0E, 0x00, 0x00}))),
              v15_answer(ipmi_response(0x06, 0x54, 0x00, {0x01, 0x01, 0x40, 0x41, 0x80, 0x81})));
    EXPECT_EQ(console.exchange(v15_request(ipmi_request(0x06, 0x54, {0x05, 0x00, 0x80}))),
              v15_answer(ipmi_response(0x06, 0x54, 0xCC)));
    EXPECT_EQ(console.exchange(v15_request(ipmi_request(0x06, 0x54, {0x0E, 0x00}))),
              v15_answer(ipmi_response(0x06, 0x54, 0xC7)));
    EXPECT_EQ(console.exchange(v15_request(ipmi_request(0x06, 0x01))), v15_answer(ipmi_response(0x06, 0x01, 0xC1)));
    EXPECT_EQ(sim.stats().count(Kind::Sessionless), 6u);
}

TEST(BmcsimProduct, CipherSuiteRecordsCome16BytesAtATime)
{
    bmcsim::Simulator sim(base());
    sim.start();
    Console console(kAddress);
    Session s(console, 3, false);
    // Suites 0 to 3 and 15 to 17, five bytes each.
    Bytes all{0xC0, 0x00, 0x00, 0x40, 0x80, 0xC0, 0x01, 0x01, 0x40, 0x80, 0xC0, 0x02, 0x01, 0x41, 0x80, 0xC0, 0x03, 0x01,
              0x41, 0x81, 0xC0, 0x0F, 0x03, 0x40, 0x80, 0xC0, 0x10, 0x03, 0x44, 0x80, 0xC0, 0x11, 0x03, 0x44, 0x81};
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x54, {0x0E, 0x00, 0x80})).message,
              ipmi_response(0x06, 0x54, 0x00, cat({0x01}, Bytes(all.begin(), all.begin() + 16))));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x54, {0x01, 0x00, 0x81})).message,
              ipmi_response(0x06, 0x54, 0x00, cat({0x01}, Bytes(all.begin() + 16, all.begin() + 32))));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x54, {0x0E, 0x00, 0x82})).message,
              ipmi_response(0x06, 0x54, 0x00, cat({0x01}, Bytes(all.begin() + 32, all.end()))));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x54, {0x0E, 0x00, 0x83})).message, ipmi_response(0x06, 0x54, 0x00, {0x01}));
}

// ------------------------------------------------------------------ privilege and session info

TEST(BmcsimProduct, SetSessionPrivilegeLevelStaysWithinTheRole)
{
    bmcsim::Simulator sim(base());
    sim.start();
    Console console(kAddress);
    Session s(console, 2, false, "operator", "op-pass", 3);
    EXPECT_EQ(sim.stats().sessions.at(0).privilege, 2);  // sessions start at USER
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x00})).message, ipmi_response(0x06, 0x3B, 0x00, {0x02}));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x03})).message, ipmi_response(0x06, 0x3B, 0x00, {0x03}));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x04})).message, ipmi_response(0x06, 0x3B, 0x81));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x06})).message, ipmi_response(0x06, 0x3B, 0xCC));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B)).message, ipmi_response(0x06, 0x3B, 0xC7));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x01})).message, ipmi_response(0x06, 0x3B, 0x00, {0x01}));
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3B, {0x00})).message, ipmi_response(0x06, 0x3B, 0x00, {0x01}));
    EXPECT_EQ(sim.stats().sessions.at(0).privilege, 1);
    EXPECT_TRUE(sim.stats().logged("privilege ADMINISTRATOR refused, above OPERATOR"));
}

TEST(BmcsimProduct, GetSessionInfoDescribesTheSessions)
{
    bmcsim::Simulator sim(base());
    sim.start();
    Console first(kAddress), second(kAddress);
    Session a(first, 3, false);
    Session b(second, 1, false, "operator", "op-pass", 3, 0xC0DE0002);
    EXPECT_EQ(b.ask(ipmi_request(0x06, 0x3B, {0x03})).message, ipmi_response(0x06, 0x3B, 0x00, {0x03}));

    auto address = [](const Console &c) {
        sockaddr_in l = c.local();
        uint32_t ip = ntohl(l.sin_addr.s_addr);
        uint16_t port = ntohs(l.sin_port);
        Bytes d{static_cast<uint8_t>(ip >> 24), static_cast<uint8_t>(ip >> 16), static_cast<uint8_t>(ip >> 8),
                static_cast<uint8_t>(ip)};
        d.insert(d.end(), 6, 0x00);
        d.push_back(static_cast<uint8_t>(port));
        d.push_back(static_cast<uint8_t>(port >> 8));
        return d;
    };
    auto handles = sim.stats().sessions;
    uint8_t ha = 0, hb = 0;
    for (const auto &i : handles) (i.bmc_id == a.e.bmc_id ? ha : hb) = i.handle;
    ASSERT_NE(ha, 0);
    ASSERT_NE(hb, 0);
    ASSERT_NE(ha, hb);
    Bytes about_a = cat({ha, 16, 2, 1, 2, 0x11}, address(first));
    Bytes about_b = cat({hb, 16, 2, 2, 3, 0x11}, address(second));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, {0x00})).message, ipmi_response(0x06, 0x3D, 0x00, about_a));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, {0xFE, hb})).message, ipmi_response(0x06, 0x3D, 0x00, about_b));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, cat({0xFF}, le32(b.e.bmc_id)))).message,
              ipmi_response(0x06, 0x3D, 0x00, about_b));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, {0x01})).message,
              ipmi_response(0x06, 0x3D, 0x00, ha < hb ? about_a : about_b));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, {0x03})).message, ipmi_response(0x06, 0x3D, 0x00, {0x00, 16, 2}));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3D, {0xFE})).message, ipmi_response(0x06, 0x3D, 0xC7));
}

// ------------------------------------------------------------------ addresses and log lines

TEST(BmcsimProduct, OneSimulatorServesSeveralAddresses)
{
    auto c = base();
    c.extra_addresses = {kSecondAddress};
    bmcsim::Simulator sim(c);
    sim.start();
    EXPECT_TRUE(sim.stats().logged(std::string("listening on ") + kAddress + ":623"));
    EXPECT_TRUE(sim.stats().logged(std::string("listening on ") + kSecondAddress + ":623"));
    Console near(kAddress), far(kSecondAddress);
    Session a(near, 3, false);
    Session b(far, 3, false, "admin", "secret", 4, 0xC0DE0002);
    // Each address is a BMC of its own: powering one down leaves the other on.
    EXPECT_EQ(b.ask(ipmi_request(0x00, 0x02, {0x00})).message, ipmi_response(0x00, 0x02, 0x00));
    EXPECT_EQ(a.ask(ipmi_request(0x00, 0x01)).message, ipmi_response(0x00, 0x01, 0x00, {0x01, 0x00, 0x00, 0x00}));
    EXPECT_EQ(sim.stats().sessions.size(), 2u);
}

TEST(BmcsimProduct, LogsEverySessionEvent)
{
    auto c = base();
    c.cipher_suites = {1, 2, 3};
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    {
        Session s(console, 3, false, "operator", "op-pass", 3);
        Bytes id = le32(s.e.bmc_id);
        EXPECT_EQ(s.ask(ipmi_request(0x06, 0x3C, id)).message, ipmi_response(0x06, 0x3C, 0x00));
        auto stats = sim.stats();
        EXPECT_TRUE(stats.logged("session " + hex32(s.e.bmc_id) +
                                 " established for user 'operator': cipher suite 3, privilege up to OPERATOR, "
                                 "library keys"));
        EXPECT_TRUE(stats.logged("session " + hex32(s.e.bmc_id) +
                                 " closed (user 'operator')"));
    }
    EXPECT_FALSE(simtest::establish(console, 0, "admin", "secret"));
    EXPECT_TRUE(sim.stats().logged("open session refused with status 11 (no cipher suite match): algorithms 0/0/0"));
    EXPECT_FALSE(simtest::establish(console, 1, "nobody", "secret"));
    EXPECT_TRUE(sim.stats().logged("RAKP 1 for user 'nobody' refused with status 0d (unauthorized name)"));
}

TEST(BmcsimProduct, LogsAnExhaustedSession)
{
    auto c = base();
    c.session.outbound_sequence_start = 0xFFFFFFFF;
    c.session.strict_inbound_window = false;
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    Session s(console, 2, false);
    auto o = s.ask(ipmi_request(0x06, 0x01));
    EXPECT_EQ(o.seq, 0xFFFFFFFFu);
    EXPECT_TRUE(sim.stats().logged("exhausted: the outbound authenticated sequence number wrapped"));
    EXPECT_FALSE(sim.stats().logged("inbound sequence number ffffffff taken"));
    s.seq = 0xFFFFFFFE;
    EXPECT_EQ(s.ask(ipmi_request(0x06, 0x04)).message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}));
    EXPECT_TRUE(sim.stats().logged("session " + hex32(s.e.bmc_id) + " exhausted: inbound sequence number ffffffff taken"));
}

// ------------------------------------------------------------------ the program

TEST(BmcsimProgram, TakesTheProductSettingsFromAConfigFile)
{
    std::string path = ::testing::TempDir() + "bmcsim_product.conf";
    {
        std::FILE *f = std::fopen(path.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("# a developer's BMC\n"
                   "address 127.0.0.85,127.0.0.86\n"
                   "port 6233\n"
                   "user admin:secret:4\n"
                   "standard-keys\n"
                   "device-id 0x42\n"
                   "device-revision 3\n"
                   "firmware 7.31\n"
                   "ipmi-version 1.5\n"
                   "device-support 0x21\n"
                   "manufacturer 0x12345\n"
                   "product 0xBEEF\n"
                   "aux 01020304\n"
                   "power off\n"
                   "chassis policy=always-on,overload,last-event=0x02,misc=0x08\n",
                   f);
        std::fclose(f);
    }
    bmcsim::ChildProcess child({"--config", path});
    EXPECT_TRUE(child.wait_for_output("listening on 127.0.0.86:6233", std::chrono::seconds(2)));
    Console console(kSecondAddress, 6233);
    auto e = simtest::establish(console, 3, "admin", "secret", 4, false, {}, 0xC0DE0001, true);
    ASSERT_TRUE(e);
    auto ask = [&](uint32_t seq, const Bytes &m) {
        return simtest::open_packet(*e, console.exchange(simtest::session_packet(*e, 0xC0, seq, m))).message;
    };
    EXPECT_EQ(ask(1, ipmi_request(0x06, 0x01)),
              ipmi_response(0x06, 0x01, 0x00,
                            {0x42, 0x03, 0x07, 0x31, 0x51, 0x21, 0x45, 0x23, 0x01, 0xEF, 0xBE, 0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(ask(2, ipmi_request(0x00, 0x01)), ipmi_response(0x00, 0x01, 0x00, {0x42, 0x02, 0x08, 0x00}));
    EXPECT_EQ(ask(3, ipmi_request(0x00, 0x02, {0x02})), ipmi_response(0x00, 0x02, 0x00));
    EXPECT_EQ(ask(4, ipmi_request(0x00, 0x01)), ipmi_response(0x00, 0x01, 0x00, {0x43, 0x12, 0x08, 0x00}));
    EXPECT_TRUE(child.wait_for_output("cipher suite 3, privilege up to ADMINISTRATOR, standard keys",
                                      std::chrono::seconds(2)));
    EXPECT_TRUE(child.wait_for_output("chassis control 02 (power cycle): power on", std::chrono::seconds(2)));
    std::remove(path.c_str());
}

TEST(BmcsimProgram, RefusesBadProductSettings)
{
    for (std::vector<std::string> args : {std::vector<std::string>{"--firmware", "2.x"},
                                          {"--ipmi-version", "2.00"},
                                          {"--manufacturer", "0x100000"},
                                          {"--aux", "0102"},
                                          {"--power", "maybe"},
                                          {"--chassis", "policy=sometimes"}}) {
        SCOPED_TRACE(args[0] + " " + args[1]);
        args.insert(args.end(), {"--address", kAddress, "--port", "6234"});
        EXPECT_THROW(bmcsim::ChildProcess(args, std::chrono::milliseconds(1000)), std::runtime_error);
    }
}

}  // namespace
