// An open session keeps its AES-128 key schedules and keyed HMAC context
// from setup to release. Against the BMC simulator on loopback
// (127.0.17.2): the packets such a session builds and the responses it
// accepts are, byte for byte, those that its record's keys alone give (a copy
// of the record, which the library never opened, keys every packet afresh;
// an independent HMAC-SHA1 and AES-128-CBC from OpenSSL rebuilds them); a
// record given other keys is followed at once; many sessions open at once
// each use their own keys; records made again at the same address after a
// release do not inherit the keys of the session that was there before.
// Kernel random numbers are drawn in batches: a forked child never repeats
// its parent's.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "packet_testkit.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "trace_capture.h"

namespace {

using namespace packettest;

const char *const kSimAddress = "127.0.17.2";
constexpr uint32_t kSimAddressHost = 0x7F001102;

IPMI_SessionParam login(int suite)
{
    // simulator_login's address is 127.0.0.x; this simulator is elsewhere.
    IPMI_SessionParam p = testkit::simulator_login(1, suite, 3, 2);
    p.bmc_address = kSimAddressHost;
    return p;
}

Bytes record_sik(const RMCPp_Session &s) { return Bytes(s.sik, s.sik + 20); }
Bytes record_k2(const RMCPp_Session &s) { return Bytes(s.cipher_key, s.cipher_key + 20); }

// The packet MakeRMCP_pluse_Packet builds from `s` for `message`.
Bytes build(RMCPp_Session *s, const Bytes &message)
{
    Bytes packet(512);
    uint32_t length = 0;
    EXPECT_EQ(MakeRMCP_pluse_Packet(s, message.data(), static_cast<uint32_t>(message.size()), packet.data(),
                                    static_cast<uint32_t>(packet.size()), &length),
              0);
    packet.resize(length);
    return packet;
}

// The IV the packet carries (the first 16 bytes of its payload).
Bytes iv_of(const Bytes &packet) { return Bytes(packet.begin() + 16, packet.begin() + 32); }

struct Checked {
    int head = -1;
    int payload = -1;
    Bytes message;
    bool operator==(const Checked &) const = default;
};

// Runs a whole datagram through the session checks of `s`.
Checked check(RMCPp_Session *s, Bytes datagram)
{
    Checked c;
    uint32_t length = static_cast<uint32_t>(datagram.size() - 4);
    uint32_t header_length = 0;
    uint8_t type = 0;
    c.head = Check_IPMIHeadTail(s, datagram.data() + 4, &length, &header_length, &type);
    if (c.head != 0) return c;
    Bytes out(256);
    uint32_t out_length = 0, offset = 0;
    c.payload = Check_IPMIPayload(s, datagram.data() + 16, length, out.data(), &out_length,
                                  static_cast<uint32_t>(out.size()), &offset, type);
    if (c.payload == 0) c.message.assign(out.begin(), out.begin() + out_length);
    return c;
}

int exchange(IPMI_SessionParam &p, uint8_t seq, Bytes &response)
{
    const Bytes request = request_of(0x06, 0x01, static_cast<uint8_t>(seq & 0x3F));
    response.assign(128, 0);
    uint32_t length = 0, released = 0;
    const int r = IPMI_Message_IF(&p, request.data(), static_cast<uint32_t>(request.size()), response.data(),
                                  static_cast<uint32_t>(response.size()), &length, 0, &released, 3, 2);
    response.resize(r == 0 ? length : 0);
    if (r == 0 && response != response_to(request, 0x00, kSimulatorDeviceId)) return -100;
    return r;
}

class SessionKeys : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = kSimAddress;
        c.users = {{"admin", "secret", 4, true}};
        c.max_sessions = 64;
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        testkit::clear_trace();
    }
    void TearDown() override
    {
        sim_->stop();
        EXPECT_TRUE(testkit::log_lines().empty()) << testkit::log_text();
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
};

TEST_F(SessionKeys, PacketsOfAnOpenSessionAreThoseItsRecordAloneGives)
{
    for (int suite : {2, 3}) {
        SCOPED_TRACE("cipher suite " + std::to_string(suite));
        IPMI_SessionParam p = login(suite);
        ASSERT_EQ(IPMI_SetupSession(&p), 0);
        RMCPp_Session copy = *p.session;  // never opened by the library: no kept keys
        const Bytes sik = record_sik(copy), k2 = record_k2(copy);
        for (uint8_t seq = 0; seq < 20; ++seq) {
            const Bytes message = request_of(0x06, 0x01, seq, Bytes(seq, static_cast<uint8_t>(0xA0 + seq)));
            const Bytes kept = build(p.session, message);
            const Bytes afresh = build(&copy, message);
            const uint8_t type = protection_of(suite);
            if (suite == 2) {
                EXPECT_EQ(kept, afresh);
                EXPECT_EQ(kept, session_datagram(type, copy.bmc_session_id, copy.send_seq_auth, message, {}, sik));
            } else {
                // Each packet has an IV of its own; with that IV, both are the
                // bytes an independent AES-128-CBC and HMAC-SHA1 give.
                EXPECT_NE(iv_of(kept), iv_of(afresh));
                EXPECT_EQ(kept,
                          session_datagram(type, copy.bmc_session_id, copy.send_seq_auth, message, iv_of(kept), sik, k2));
                EXPECT_EQ(afresh, session_datagram(type, copy.bmc_session_id, copy.send_seq_auth, message,
                                                   iv_of(afresh), sik, k2));
            }
        }
        // The packets still make real exchanges.
        Bytes response;
        EXPECT_EQ(exchange(p, 1, response), 0);
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
    }
}

TEST_F(SessionKeys, ResponsesAreJudgedAndOpenedAsTheRecordAloneWouldJudgeThem)
{
    for (int suite : {2, 3}) {
        SCOPED_TRACE("cipher suite " + std::to_string(suite));
        IPMI_SessionParam p = login(suite);
        ASSERT_EQ(IPMI_SetupSession(&p), 0);
        RMCPp_Session copy = *p.session;
        const RMCPp_Session copy_window = copy;
        const Bytes sik = record_sik(copy), k2 = record_k2(copy);
        const uint8_t type = protection_of(suite);
        const uint32_t first = p.session->recv_seq_auth + 1;
        for (uint32_t i = 0; i < 12; ++i) {
            const Bytes message = response_to(request_of(0x06, 0x01, static_cast<uint8_t>(i)), 0x00,
                                              Bytes(i, static_cast<uint8_t>(i)));
            const Bytes good = session_datagram(type, copy.console_session_id, first + i, message,
                                                fixed_iv(static_cast<uint8_t>(i)), sik, k2);
            const Checked kept = check(p.session, good);
            EXPECT_EQ(kept, check(&copy, good));
            EXPECT_EQ(kept.head, 0);
            EXPECT_EQ(kept.payload, 0);
            EXPECT_EQ(kept.message, message);

            // Under another integrity key, or with the code's last byte
            // changed, both refuse the datagram before its number counts.
            Bytes other_sik = sik;
            other_sik[i % 20] ^= 0x01;
            const Bytes forged = session_datagram(type, copy.console_session_id, first + i + 1, message,
                                                  fixed_iv(static_cast<uint8_t>(i)), other_sik, k2);
            EXPECT_EQ(check(p.session, forged).head, 1);
            EXPECT_EQ(check(&copy, forged).head, 1);
            Bytes damaged = good;
            damaged.back() ^= 0x80;
            EXPECT_EQ(check(p.session, damaged).head, 1);
            EXPECT_EQ(check(&copy, damaged).head, 1);
        }
        EXPECT_TRUE(testkit::logged("Invalid Integrity Code in received packet.\n"));
        if (suite == 3) {
            // Encrypted under another K2: both decrypt it to the same bytes
            // and judge its pad alike.
            Bytes other_k2 = k2;
            other_k2[3] ^= 0x10;
            const Bytes message = response_to(request_of(0x06, 0x01, 1), 0x00, kSimulatorDeviceId);
            const Bytes wrong = session_datagram(type, copy.console_session_id, first + 12, message, fixed_iv(9), sik,
                                                 other_k2);
            const Checked kept = check(p.session, wrong);
            EXPECT_EQ(kept.head, 0);
            EXPECT_EQ(kept, check(&copy, wrong));
        }
        testkit::clear_trace();  // the refusals above were logged, as they should be
        // The session's window goes back to where the managed system's own
        // numbers are, for Close Session.
        p.session->recv_seq_auth = copy_window.recv_seq_auth;
        p.session->recv_window_auth = copy_window.recv_window_auth;
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
    }
}

TEST_F(SessionKeys, ARecordGivenOtherKeysIsFollowedAtOnce)
{
    IPMI_SessionParam p = login(3);
    ASSERT_EQ(IPMI_SetupSession(&p), 0);
    const Bytes sik = record_sik(*p.session), k2 = record_k2(*p.session);
    Bytes new_sik = sik, new_k2 = k2;
    for (auto &b : new_sik) b ^= 0x5A;
    for (auto &b : new_k2) b ^= 0xA5;
    const Bytes message = request_of(0x06, 0x01, 7);

    std::memcpy(p.session->sik, new_sik.data(), 20);
    std::memcpy(p.session->cipher_key, new_k2.data(), 20);
    const Bytes under_new = build(p.session, message);
    const auto opened = open_datagram(under_new, new_sik, new_k2);
    ASSERT_TRUE(opened.has_value());
    EXPECT_EQ(opened->message, message);
    EXPECT_FALSE(open_datagram(under_new, sik, k2).has_value());

    // Back to the session's own keys, and the simulator answers again.
    std::memcpy(p.session->sik, sik.data(), 20);
    std::memcpy(p.session->cipher_key, k2.data(), 20);
    const Bytes under_own = build(p.session, message);
    ASSERT_TRUE(open_datagram(under_own, sik, k2).has_value());
    Bytes response;
    EXPECT_EQ(exchange(p, 2, response), 0);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
}

TEST_F(SessionKeys, ManySessionsOpenAtOnceEachUseTheirOwnKeys)
{
    constexpr int kSessions = 24;
    std::vector<IPMI_SessionParam> params;
    for (int i = 0; i < kSessions; ++i) {
        const int suite = i % 3 == 0 ? 2 : 3;
        params.push_back(login(suite));
    }
    for (int i = 0; i < kSessions; ++i) {
        if (i % 4 == 1) {
            // Through the options entry too, with the kernel's port and numbers.
            RMCPP_SessionOptions o{};
            o.size = sizeof o;
            o.flags = RMCPP_OPT_KERNEL_PORT;
            o.random_source = RMCPP_RANDOM_KERNEL;
            ASSERT_EQ(rmcpp_setup_session(&params[i], &o), 0) << i;
        } else {
            ASSERT_EQ(IPMI_SetupSession(&params[i]), 0) << i;
        }
    }

    // The library's keys of each session are the simulator's keys of it.
    const auto stats = sim_->stats();
    std::set<Bytes> siks;
    for (const auto &p : params) {
        const bmcsim::SessionInfo *info = nullptr;
        for (const auto &s : stats.sessions)
            if (s.console_id == p.session->console_session_id) info = &s;
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(record_sik(*p.session), info->sik);
        siks.insert(record_sik(*p.session));
    }
    EXPECT_EQ(siks.size(), static_cast<size_t>(kSessions));

    // Exchanges go round the sessions, one each in turn.
    for (int round = 0; round < 8; ++round)
        for (int i = 0; i < kSessions; ++i) {
            Bytes response;
            EXPECT_EQ(exchange(params[i], static_cast<uint8_t>(round + i), response), 0)
                << "session " << i << ", round " << round;
        }

    // Each session's packets open under its own keys and under no other's.
    const Bytes message = request_of(0x06, 0x01, 3);
    for (int i = 0; i < kSessions; ++i) {
        RMCPp_Session &s = *params[i].session;
        const Bytes packet = build(&s, message);
        EXPECT_TRUE(open_datagram(packet, record_sik(s), record_k2(s)).has_value()) << i;
        const RMCPp_Session &next = *params[(i + 1) % kSessions].session;
        EXPECT_FALSE(open_datagram(packet, record_sik(next), record_k2(next)).has_value()) << i;
    }

    for (auto &p : params) {
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
        EXPECT_EQ(p.session, nullptr);
    }
    EXPECT_EQ(sim_->stats().sessions_closed, static_cast<size_t>(kSessions));
}

TEST_F(SessionKeys, ARecordMadeAgainWhereAReleasedOneWasKeysItsOwnPackets)
{
    // Sessions opened one after another usually get the same record address
    // from the allocator; each must work under its own keys.
    for (int i = 0; i < 40; ++i) {
        IPMI_SessionParam p = login(i % 2 == 0 ? 3 : 2);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << i;
        const RMCPp_Session copy = *p.session;
        const Bytes packet = build(p.session, request_of(0x06, 0x01, 5));
        EXPECT_TRUE(open_datagram(packet, record_sik(copy), record_k2(copy)).has_value()) << i;
        Bytes response;
        EXPECT_EQ(exchange(p, static_cast<uint8_t>(i), response), 0) << i;
        EXPECT_EQ(IPMI_CloseSession(&p), 0) << i;
    }
}

TEST_F(SessionKeys, AForkedChildNeverRepeatsItsParentsKernelRandomIvs)
{
    IPMI_SessionParam p = login(3);
    RMCPP_SessionOptions o{};
    o.size = sizeof o;
    o.flags = RMCPP_OPT_KERNEL_PORT;
    o.random_source = RMCPP_RANDOM_KERNEL;
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
    const Bytes message = request_of(0x06, 0x01, 4);
    const Bytes first = build(p.session, message);  // the batch is drawn now

    int pipe_fds[2];
    ASSERT_EQ(::pipe(pipe_fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only the packet builder runs here: no allocation, no test macros.
        uint8_t packet[256];
        uint32_t length = 0;
        int status = 1;
        if (MakeRMCP_pluse_Packet(p.session, message.data(), static_cast<uint32_t>(message.size()), packet,
                                  sizeof packet, &length) == 0 &&
            ::write(pipe_fds[1], packet + 16, 16) == 16)
            status = 0;
        ::_exit(status);
    }
    ::close(pipe_fds[1]);
    uint8_t child_iv[16] = {};
    const ssize_t n = ::read(pipe_fds[0], child_iv, sizeof child_iv);
    ::close(pipe_fds[0]);
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
    ASSERT_EQ(n, 16);

    const Bytes parent_next = build(p.session, message);
    const Bytes child_one(child_iv, child_iv + 16);
    EXPECT_NE(child_one, iv_of(parent_next));  // the parent's next IV is not the child's
    EXPECT_NE(child_one, iv_of(first));
    EXPECT_NE(iv_of(first), iv_of(parent_next));
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
}

}  // namespace
