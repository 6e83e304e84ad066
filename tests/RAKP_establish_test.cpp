// IPMI_SetupSession end to end against a scripted managed system on
// 127.0.0.64 that answers the presence ping, Get Channel Authentication
// Capabilities, Open Session, RAKP 2 and RAKP 4, with every code and key
// computed here with OpenSSL's HMAC directly.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;
using testkit::logged;

namespace {

constexpr uint8_t kPeer = 64;
constexpr uint32_t kBmcSid = 0x0D0C0B0A;

// The managed system's side of one establishment: its configuration, and
// what it saw and derived.
struct MiniBmc {
    // configuration
    std::string password;          // empty: anonymous (empty key)
    bool has_password = true;
    uint8_t channel_status = 0x00; // Kg set, per-message, user-level bits
    std::string kg;                // used for the SIK when Kg is set
    uint8_t max_privilege = 4;     // granted when asked for 0
    int grant = -1;                // if set, granted whatever was asked
    int answer_integrity = -1;     // if set, accepted instead of the proposal
    bool spoil_rakp2 = false;

    // seen and derived
    uint8_t capabilities_privilege = 0xFF;
    int open_session_requests = 0;
    uint8_t open_session_role = 0xFF;
    uint32_t console_sid = 0;
    uint8_t auth_alg = 0;
    Bytes rm;
    uint8_t rakp_role = 0xFF;
    std::string name;
    Bytes rc = sequence16(0x31);
    Bytes guid = sequence16(0x81);
    Bytes rakp3;
    bool rakp3_code_ok = false;
    Bytes sik;

    Bytes user_key() const { return has_password ? padded(password, 20) : Bytes{}; }

    std::vector<Bytes> answer(const Bytes &d)
    {
        rmcpp::wire::Reader r(d.data(), d.size());
        r.skip(3);
        const uint8_t rmcp_class = r.u8();
        if (rmcp_class == 0x06) return {presence_pong()};
        const uint8_t format = r.u8();
        if (format == 0x00) {
            capabilities_privilege = d.at(21);
            return {auth_capa_response(auth_capa_data(channel_status))};
        }
        const uint8_t type = r.u8();
        r.skip(10);
        const uint8_t tag = r.u8();
        switch (type) {
        case 0x10: return open_session(r, tag);
        case 0x12: return rakp2(r, tag);
        case 0x14: return rakp4(d, r, tag);
        default: return {};
        }
    }

    std::vector<Bytes> open_session(rmcpp::wire::Reader &r, uint8_t tag)
    {
        ++open_session_requests;
        open_session_role = r.u8();
        r.skip(2);
        console_sid = r.u32le();
        uint8_t alg[3];
        for (auto &a : alg) {
            r.skip(4);
            a = r.u8();
            r.skip(3);
        }
        auth_alg = alg[0];
        OpenSessionResponse resp;
        resp.tag = tag;
        resp.privilege = grant >= 0 ? static_cast<uint8_t>(grant)
                                    : (open_session_role == 0 ? max_privilege : open_session_role);
        resp.console_sid = console_sid;
        resp.bmc_sid = kBmcSid;
        resp.auth.algorithm = alg[0];
        resp.integrity.algorithm = answer_integrity >= 0 ? static_cast<uint8_t>(answer_integrity) : alg[1];
        resp.confidentiality.algorithm = alg[2];
        return {resp.datagram()};
    }

    std::vector<Bytes> rakp2(rmcpp::wire::Reader &r, uint8_t tag)
    {
        r.skip(3 + 4);
        rm.resize(16);
        r.bytes(rm.data(), 16);
        rakp_role = r.u8();
        r.skip(2);
        Bytes n(r.u8());
        r.bytes(n.data(), n.size());
        name.assign(n.begin(), n.end());
        Rakp2 m;
        m.tag = tag;
        m.console_sid = console_sid;
        m.rc = rc;
        m.guid = guid;
        if (auth_alg == 1) m.code = rakp2_code(user_key(), console_sid, kBmcSid, rm, rc, guid, rakp_role, name);
        if (spoil_rakp2) m.code[0] ^= 0x01;
        return {m.datagram()};
    }

    std::vector<Bytes> rakp4(const Bytes &d, rmcpp::wire::Reader &r, uint8_t tag)
    {
        rakp3 = d;
        const uint8_t status = r.u8();
        if (status != 0) return {};
        if (auth_alg == 1) {
            rakp3_code_ok = Bytes(d.begin() + 24, d.end()) == rakp3_code(user_key(), rc, console_sid, rakp_role, name);
            const bool kg_set = (channel_status & 0x20) != 0;
            const Bytes key = kg_set ? (kg.empty() ? Bytes{} : padded(kg, 20)) : padded(password, 20);
            sik = sik_of(key, rm, rc, rakp_role, name);
        } else {
            sik = Bytes(20, 0);
        }
        Rakp4 m;
        m.tag = tag;
        m.console_sid = console_sid;
        if (auth_alg == 1) m.icv = rakp4_icv(sik, rm, kBmcSid, guid);
        return {m.datagram()};
    }
};

IPMI_SessionParam params(int suite, const char *name = "admin", const char *password = "secret",
                         int privilege = 4)
{
    IPMI_SessionParam p{};
    p.bmc_address = testkit::loopback(kPeer);
    p.port_option = 0;
    p.user_name = name;
    p.user_password = password;
    p.privilege_level = privilege;
    p.cipher_suite_id = suite;
    p.slave_address = 0x20;
    p.lun = 0;
    p.local_port = local_port_for(kPeer);
    p.retry_count = 2;
    p.timeout_sec = 1;
    return p;
}

// Runs one establishment against `bmc`; the managed system is stopped
// before the result is looked at.
int establish(MiniBmc &bmc, IPMI_SessionParam &p)
{
    ScriptedPeer peer(kPeer, [&bmc](const Bytes &d, int) { return bmc.answer(d); });
    clear_trace();
    const int r = IPMI_SetupSession(&p);
    peer.stop();
    return r;
}

void release(IPMI_SessionParam &p)
{
    if (!p.session) return;
    close(p.session->socket_fd);
    std::free(p.session);
    p.session = nullptr;
}

bool socket_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

}  // namespace

class EstablishSuite : public ::testing::TestWithParam<int> {};

TEST_P(EstablishSuite, ReturnsTheSessionWithKeysComputedByTheManagedSystem)
{
    const int suite = GetParam();
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.channel_status = 0x10;
    IPMI_SessionParam p = params(suite);
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    ASSERT_NE(p.session, nullptr);
    const RMCPp_Session &s = *p.session;

    EXPECT_EQ(bmc.capabilities_privilege, 4);
    EXPECT_EQ(bmc.open_session_role, 4);
    EXPECT_EQ(bmc.rakp_role, 4);
    EXPECT_EQ(bmc.name, "admin");
    EXPECT_EQ(s.console_session_id, bmc.console_sid);
    EXPECT_NE(s.console_session_id, 0u);
    EXPECT_EQ(s.bmc_session_id, kBmcSid);
    EXPECT_EQ(s.integrity_alg, suite >= 2 ? 1 : 0);
    EXPECT_EQ(s.confidentiality_alg, suite >= 3 ? 1 : 0);
    EXPECT_EQ(bmc.auth_alg, suite >= 1 ? 1 : 0);
    if (suite >= 1) {
        EXPECT_TRUE(bmc.rakp3_code_ok);
        EXPECT_EQ(bmc.rakp3.size(), 44u);
    } else {
        EXPECT_EQ(bmc.rakp3.size(), 24u);
    }
    EXPECT_EQ(bytes_of(s.sik, 20), bmc.sik);
    EXPECT_EQ(bytes_of(s.cipher_key, 20), suite >= 3 ? k2_of(bmc.sik) : Bytes(20, 0));
    if (suite == 0) {
        EXPECT_EQ(bmc.sik, Bytes(20, 0));
    }
    EXPECT_EQ(s.send_seq_auth, 1u);
    EXPECT_EQ(s.send_seq_unauth, 1u);
    EXPECT_EQ(s.recv_seq_auth, 0u);
    EXPECT_EQ(s.recv_seq_unauth, 0u);
    EXPECT_EQ(s.recv_window_auth, 0xFFFF);
    EXPECT_EQ(s.recv_window_unauth, 0xFFFF);
    EXPECT_EQ(s.per_msg_auth_status, 0x10);
    EXPECT_EQ(p.per_msg_auth_status, 0x10u);
    EXPECT_EQ(s.closed, 0);
    EXPECT_EQ(p.granted_privilege, 4u);
    EXPECT_TRUE(socket_open(s.socket_fd));
    release(p);
}

INSTANTIATE_TEST_SUITE_P(CipherSuites, EstablishSuite, ::testing::Values(0, 1, 2, 3));

TEST(Establish, PrivilegeZeroAsksForAdministratorFirstAndThenTakesWhatIsGranted)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.max_privilege = 3;
    IPMI_SessionParam p = params(3, "admin", "secret", 0);
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_EQ(bmc.capabilities_privilege, 4);
    EXPECT_EQ(bmc.open_session_role, 0);
    EXPECT_EQ(bmc.rakp_role, 3);
    EXPECT_EQ(p.granted_privilege, 3u);
    EXPECT_EQ(bytes_of(p.session->sik, 20), bmc.sik);
    release(p);
}

TEST(Establish, NameOnlyLookupSetsTheRoleBitInRakpAndTheSikOnly)
{
    MiniBmc bmc;
    bmc.password = "secret";
    IPMI_SessionParam p = params(3);
    p.user_lookup_option = 1;
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_EQ(bmc.open_session_role, 4);
    EXPECT_EQ(bmc.rakp_role, 0x14);
    EXPECT_EQ(bytes_of(p.session->sik, 20), sik_of(padded("secret", 20), bmc.rm, bmc.rc, 0x14, "admin"));
    EXPECT_EQ(bytes_of(p.session->cipher_key, 20), k2_of(bmc.sik));
    release(p);
}

TEST(Establish, AnonymousLogin)
{
    MiniBmc bmc;
    bmc.has_password = false;
    IPMI_SessionParam p = params(1, nullptr, nullptr);
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_EQ(bmc.name, "");
    EXPECT_TRUE(bmc.rakp3_code_ok);
    EXPECT_EQ(bytes_of(p.session->sik, 20), sik_of(Bytes(20, 0), bmc.rm, bmc.rc, 4, ""));
    release(p);
}

TEST(Establish, EmptyUserNameWithAShortPassword)
{
    MiniBmc bmc;
    bmc.password = "abcde";
    IPMI_SessionParam p = params(2, "", "abcde");
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_TRUE(bmc.rakp3_code_ok);
    EXPECT_EQ(bytes_of(p.session->sik, 20),
              sik_of(cat({text("abcde"), Bytes(15, 0)}), bmc.rm, bmc.rc, 4, ""));
    release(p);
}

TEST(Establish, TwoKeyLoginKeysTheSikWithKg)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.channel_status = 0x20;
    bmc.kg = "kgkey";
    IPMI_SessionParam p = params(3);
    p.two_key_login_option = 1;
    p.server_key = "kgkey";
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_EQ(bytes_of(p.session->sik, 20), sik_of(padded("kgkey", 20), bmc.rm, bmc.rc, 4, "admin"));
    EXPECT_EQ(bytes_of(p.session->cipher_key, 20), k2_of(bmc.sik));
    release(p);
}

TEST(Establish, KgSetWithoutTwoKeyLoginKeysTheSikWithAnEmptyKey)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.channel_status = 0x20;
    IPMI_SessionParam p = params(2);
    ASSERT_EQ(establish(bmc, p), 0) << testkit::log_text();
    EXPECT_EQ(bytes_of(p.session->sik, 20), sik_of(Bytes{}, bmc.rm, bmc.rc, 4, "admin"));
    EXPECT_NE(bytes_of(p.session->sik, 20), sik_of(padded("secret", 20), bmc.rm, bmc.rc, 4, "admin"));
    release(p);
}

TEST(Establish, AWrongRakp2CodeSendsRakp3WithStatus15AndEndsWith65)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.spoil_rakp2 = true;
    IPMI_SessionParam p = params(3);
    EXPECT_EQ(establish(bmc, p), 65);
    EXPECT_EQ(p.session, nullptr);
    ASSERT_EQ(bmc.rakp3.size(), 24u);
    EXPECT_EQ(bmc.rakp3[17], 15);
    EXPECT_EQ(bmc.rakp3[14], 8);
    EXPECT_TRUE(logged("Received Key of RAKP Message 2 is invalid.\n\n"));
    EXPECT_FALSE(logged("Timeout, now retrying ...\n"));
}

TEST(Establish, AWrongPasswordEndsWith65)
{
    MiniBmc bmc;
    bmc.password = "other";
    IPMI_SessionParam p = params(1);
    EXPECT_EQ(establish(bmc, p), 65);
    EXPECT_EQ(p.session, nullptr);
    EXPECT_EQ(bmc.rakp3.size(), 24u);
}

TEST(Establish, TwoKeyLoginWithoutKgStopsBeforeOpenSession)
{
    MiniBmc bmc;
    bmc.password = "secret";
    IPMI_SessionParam p = params(3);
    p.two_key_login_option = 1;
    p.server_key = "kgkey";
    EXPECT_EQ(establish(bmc, p), 1);
    EXPECT_EQ(bmc.open_session_requests, 0);
    EXPECT_TRUE(logged("Not-permit 2 key login.\n"));
}

TEST(Establish, ARoleOtherThanAskedEndsWith39)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.grant = 4;
    IPMI_SessionParam p = params(1, "admin", "secret", 3);
    EXPECT_EQ(establish(bmc, p), 39);
    EXPECT_EQ(p.session, nullptr);
    EXPECT_TRUE(logged("Server doesn't allow requested role.\n"));
}

TEST(Establish, AnotherIntegrityAlgorithmEndsWith37)
{
    MiniBmc bmc;
    bmc.password = "secret";
    bmc.answer_integrity = 0;
    IPMI_SessionParam p = params(2);
    EXPECT_EQ(establish(bmc, p), 37);
    EXPECT_TRUE(logged("Mismatch Integrity Algorithm.\n"));
    EXPECT_TRUE(logged("Client(1) <--> Server(0).\n"));
}
