// The simulator's Open Session, RAKP 2 and RAKP 4 answers, checked against
// codes and keys computed here with OpenSSL (loopback 127.0.0.42).
#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::Kind;
using simtest::Bytes;
using simtest::Console;
using simtest::cat;

constexpr const char *kAddress = "127.0.0.42";
constexpr uint32_t kBmcId = 0x11223344;
constexpr uint32_t kConsoleId = 0xC0DE0001;

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.bmc_session_id = kBmcId;
    c.users = {{"admin", "secret", 4, true},
               {"operator", "op-pass", 3, true},
               {"", "", 2, true},
               {"sixteen-chars-xx", "twenty-bytes-passwd!", 4, true},
               {"off", "x", 4, false}};
    return c;
}

struct Running {
    explicit Running(bmcsim::Config c) : sim(std::move(c)) { sim.start(); }
    bmcsim::Simulator sim;
};

Bytes le(uint32_t v)
{
    Bytes b;
    simtest::le32(b, v);
    return b;
}

Bytes open_response(uint8_t tag, uint8_t status, uint8_t granted, uint32_t console, uint32_t bmc, int suite)
{
    auto alg = simtest::kSuites.at(static_cast<size_t>(suite));
    Bytes p = cat(cat({tag, status, granted, 0}, le(console)), le(bmc));
    p = cat(p, {0x00, 0, 0, 8, alg[0], 0, 0, 0});
    p = cat(p, {0x01, 0, 0, 8, alg[1], 0, 0, 0});
    p = cat(p, {0x02, 0, 0, 8, alg[2], 0, 0, 0});
    return simtest::presession(0x11, p);
}

Bytes status_only(uint8_t type, uint8_t tag, uint8_t status, uint32_t console)
{
    return simtest::presession(type, cat({tag, status, 0, 0}, le(console)));
}

TEST(BmcsimOpenSession, AnswersWithItsSessionIdGrantedPrivilegeAndTheProposedAlgorithms)
{
    Running r(base());
    Console console(kAddress);
    for (int suite = 0; suite < 4; ++suite) {
        auto alg = simtest::kSuites[static_cast<size_t>(suite)];
        Bytes got = console.exchange(simtest::open_session_request(1, 4, kConsoleId + suite, alg[0], alg[1], alg[2]));
        uint32_t bmc = got.size() >= 28 ? simtest::get_le32(got, 24) : 0;
        if (suite == 0) {
            EXPECT_EQ(bmc, kBmcId);
        }
        EXPECT_EQ(got, open_response(1, 0, 4, kConsoleId + suite, bmc, suite)) << "suite " << suite;
        EXPECT_EQ(got.size(), 52u);
    }
    EXPECT_EQ(r.sim.stats().count(Kind::OpenSession), 4u);
}

TEST(BmcsimOpenSession, PrivilegeZeroGetsTheChannelLimit)
{
    auto c = base();
    c.channel_max_privilege = 3;
    Running r(c);
    Console console(kAddress);
    EXPECT_EQ(console.exchange(simtest::open_session_request(1, 0, kConsoleId, 1, 1, 1)),
              open_response(1, 0, 3, kConsoleId, kBmcId, 3));
}

TEST(BmcsimOpenSession, RefusesWithTheStatusCodeOfTheProblem)
{
    auto c = base();
    c.cipher_suites = {0, 3};
    Running r(c);
    Console console(kAddress);
    auto refused = [&](uint8_t priv, uint8_t a, uint8_t i, uint8_t k) {
        return console.exchange(simtest::open_session_request(7, priv, kConsoleId, a, i, k));
    };
    EXPECT_EQ(refused(4, 1, 0, 0), status_only(0x11, 7, 0x11, kConsoleId));  // suite 1 not accepted
    EXPECT_EQ(refused(4, 2, 0, 0), status_only(0x11, 7, 0x04, kConsoleId));
    EXPECT_EQ(refused(4, 1, 2, 0), status_only(0x11, 7, 0x05, kConsoleId));
    EXPECT_EQ(refused(4, 1, 1, 2), status_only(0x11, 7, 0x10, kConsoleId));
    EXPECT_EQ(refused(6, 1, 1, 1), status_only(0x11, 7, 0x09, kConsoleId));
    EXPECT_EQ(refused(5, 1, 1, 1), status_only(0x11, 7, 0x0A, kConsoleId));
    EXPECT_EQ(refused(0, 0, 1, 0), status_only(0x11, 7, 0x11, kConsoleId));  // integrity without authentication
}

TEST(BmcsimOpenSession, ResentRequestKeepsItsSessionAndTheTableHasALimit)
{
    auto c = base();
    c.bmc_session_id = 0;
    c.max_sessions = 2;
    Running r(c);
    Console console(kAddress);
    Bytes first = console.exchange(simtest::open_session_request(1, 4, 100, 1, 1, 1));
    Bytes again = console.exchange(simtest::open_session_request(1, 4, 100, 1, 1, 1));
    ASSERT_EQ(first.size(), 52u);
    EXPECT_EQ(first, again);
    Bytes second = console.exchange(simtest::open_session_request(1, 4, 200, 1, 1, 1));
    ASSERT_EQ(second.size(), 52u);
    EXPECT_NE(simtest::get_le32(second, 24), simtest::get_le32(first, 24));
    EXPECT_NE(simtest::get_le32(second, 24), 0u);
    EXPECT_EQ(console.exchange(simtest::open_session_request(1, 4, 300, 1, 1, 1)), status_only(0x11, 1, 0x01, 300));
}

// RAKP 2 and RAKP 4 checked against the codes computed here.
void expect_known_answers(bmcsim::Config c, int suite, const std::string &name, const std::string &password,
                          uint8_t privilege, bool name_only, const Bytes &kg = {})
{
    std::array<uint8_t, 16> rc{};
    for (size_t i = 0; i < 16; ++i) rc[i] = static_cast<uint8_t>(0xE0 + i);
    c.rc = rc;
    c.kg = kg;
    Running r(c);
    Console console(kAddress);
    auto e = simtest::establish(console, suite, name, password, privilege, name_only, kg, kConsoleId);
    ASSERT_TRUE(e) << "suite " << suite << " user '" << name << "'";
    bool hmac = suite != 0;
    Bytes user = cat({e->role, static_cast<uint8_t>(name.size())}, simtest::text(name));

    // RAKP 2: tag, status, reserved, console ID, Rc, GUID, code.
    Bytes p2 = cat(cat({2, 0, 0, 0}, le(kConsoleId)), cat(simtest::bytes(rc), simtest::bytes(c.guid)));
    if (hmac) {
        Bytes in = cat(cat(cat(le(kConsoleId), le(kBmcId)), cat(e->rm, simtest::bytes(rc))), simtest::bytes(c.guid));
        p2 = cat(p2, simtest::hmac_sha1(simtest::pad20(simtest::text(password)), cat(in, user)));
    }
    EXPECT_EQ(e->rakp2, simtest::presession(0x13, p2));
    EXPECT_EQ(e->rakp2.size(), hmac ? 76u : 56u);

    // RAKP 4: tag, status, reserved, console ID, 12 bytes of HMAC(SIK, Rm | BMC ID | GUID).
    Bytes p4 = cat({3, 0, 0, 0}, le(kConsoleId));
    if (hmac) {
        Bytes icv = simtest::hmac_sha1(e->sik, cat(cat(e->rm, le(kBmcId)), simtest::bytes(c.guid)));
        p4 = cat(p4, Bytes(icv.begin(), icv.begin() + 12));
    }
    EXPECT_EQ(e->rakp4, simtest::presession(0x15, p4));
    EXPECT_EQ(e->rakp4.size(), hmac ? 36u : 24u);
    EXPECT_EQ(r.sim.stats().sessions_established, 1u);

    // The console's requests are on record as sent.
    auto s = r.sim.stats();
    ASSERT_EQ(s.of(Kind::Rakp1).size(), 1u);
    EXPECT_EQ(s.of(Kind::Rakp1)[0], simtest::rakp1_request(2, kBmcId, e->rm, e->role, name));
    ASSERT_EQ(s.of(Kind::Rakp3).size(), 1u);
    EXPECT_EQ(s.of(Kind::Rakp3)[0].size(), hmac ? 44u : 24u);
}

TEST(BmcsimRakp, KnownAnswersForEachSuite)
{
    for (int suite = 0; suite < 4; ++suite) expect_known_answers(base(), suite, "admin", "secret", 4, false);
}

TEST(BmcsimRakp, KnownAnswersWithNameOnlyLookUp)
{
    expect_known_answers(base(), 3, "operator", "op-pass", 3, true);
}

TEST(BmcsimRakp, KnownAnswersForTheAnonymousUser)
{
    expect_known_answers(base(), 1, "", "", 2, false);
}

TEST(BmcsimRakp, KnownAnswersForSixteenByteNameAndTwentyBytePassword)
{
    expect_known_answers(base(), 2, "sixteen-chars-xx", "twenty-bytes-passwd!", 4, false);
}

TEST(BmcsimRakp, KnownAnswersWithKgForTheSik)
{
    expect_known_answers(base(), 3, "admin", "secret", 4, false, simtest::text("the-bmc-key"));
}

TEST(BmcsimRakp, PrivilegeZeroInOpenSessionThenTheGrantedRole)
{
    Running r(base());
    Console console(kAddress);
    auto e = simtest::establish(console, 3, "admin", "secret", 0);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->granted, 4);
    EXPECT_EQ(e->role, 4);
}

class BmcsimRakpRefusal : public ::testing::Test {
protected:
    BmcsimRakpRefusal() : r(base()), console(kAddress)
    {
        Bytes open = console.exchange(simtest::open_session_request(1, 4, kConsoleId, 1, 1, 1));
        EXPECT_EQ(open.size(), 52u);
    }
    Bytes rakp1(uint8_t role, const std::string &name, uint32_t bmc = kBmcId)
    {
        return console.exchange(simtest::rakp1_request(2, bmc, Bytes(16, 0x33), role, name));
    }
    Running r;
    Console console;
};

TEST_F(BmcsimRakpRefusal, UnknownUserIsAnUnauthorizedName)
{
    EXPECT_EQ(rakp1(4, "nobody"), status_only(0x13, 2, 0x0D, kConsoleId));
}

TEST_F(BmcsimRakpRefusal, DisabledUserIsAnUnauthorizedName)
{
    EXPECT_EQ(rakp1(4, "off"), status_only(0x13, 2, 0x0D, kConsoleId));
}

TEST_F(BmcsimRakpRefusal, PrivilegeAboveTheUsersLimitIsAnUnauthorizedRole)
{
    EXPECT_EQ(rakp1(4, "operator"), status_only(0x13, 2, 0x0A, kConsoleId));
    EXPECT_EQ(rakp1(0x14, "operator"), status_only(0x13, 2, 0x0A, kConsoleId));
    EXPECT_EQ(rakp1(0x13, "operator").at(17), 0x00);
}

TEST_F(BmcsimRakpRefusal, InvalidRoleNameLengthAndSessionId)
{
    EXPECT_EQ(rakp1(0, "admin"), status_only(0x13, 2, 0x09, kConsoleId));
    EXPECT_EQ(rakp1(6, "admin"), status_only(0x13, 2, 0x09, kConsoleId));
    EXPECT_EQ(rakp1(4, "seventeen-chars-x"), status_only(0x13, 2, 0x0C, kConsoleId));
    EXPECT_EQ(rakp1(4, "admin", kBmcId + 1), status_only(0x13, 2, 0x02, 0));
}

TEST_F(BmcsimRakpRefusal, WrongRakp3CodeGetsInvalidIntegrityCheckValue)
{
    Bytes rakp2 = rakp1(4, "admin");
    ASSERT_EQ(rakp2.size(), 76u);
    EXPECT_EQ(console.exchange(simtest::rakp3_request(3, 0, kBmcId, Bytes(20, 0x55))),
              status_only(0x15, 3, 0x0F, kConsoleId));
    EXPECT_EQ(console.exchange(simtest::rakp3_request(3, 0, kBmcId, {})), status_only(0x15, 3, 0x0F, kConsoleId));
    EXPECT_EQ(console.exchange(simtest::rakp3_request(3, 0, kBmcId + 1, {})), status_only(0x15, 3, 0x02, 0));
    EXPECT_EQ(r.sim.stats().sessions_established, 0u);
}

TEST_F(BmcsimRakpRefusal, Rakp3CarryingAnErrorStatusIsNotAnswered)
{
    ASSERT_EQ(rakp1(4, "admin").size(), 76u);
    Bytes abort = simtest::rakp3_request(3, 15, kBmcId, {});
    EXPECT_TRUE(console.exchange(abort, 200).empty());
    auto s = r.sim.stats();
    ASSERT_EQ(s.of(Kind::Rakp3).size(), 1u);
    EXPECT_EQ(s.of(Kind::Rakp3)[0], abort);
    EXPECT_EQ(s.of(Kind::Rakp3)[0].size(), 24u);
    EXPECT_EQ(s.of(Kind::Rakp3)[0][17], 15);
    // The session is gone.
    EXPECT_EQ(rakp1(4, "admin"), status_only(0x13, 2, 0x02, 0));
}

TEST_F(BmcsimRakpRefusal, ResentRakp1KeepsTheRandomNumber)
{
    Bytes first = rakp1(4, "admin");
    Bytes second = rakp1(4, "admin");
    ASSERT_EQ(first.size(), 76u);
    EXPECT_EQ(first, second);
}

TEST(BmcsimRakp, RakpNoneRefusesARakp3WithACode)
{
    Running r(base());
    Console console(kAddress);
    ASSERT_EQ(console.exchange(simtest::open_session_request(1, 4, kConsoleId, 0, 0, 0)).size(), 52u);
    ASSERT_EQ(console.exchange(simtest::rakp1_request(2, kBmcId, Bytes(16, 1), 4, "admin")).size(), 56u);
    EXPECT_EQ(console.exchange(simtest::rakp3_request(3, 0, kBmcId, Bytes(20, 0))),
              status_only(0x15, 3, 0x12, kConsoleId));
}

}  // namespace

namespace {

TEST(BmcsimProgram, TakesUsersKgGuidAndSuitesFromAConfigFile)
{
    std::string path = ::testing::TempDir() + "bmcsim_establishment.conf";
    {
        std::FILE *f = std::fopen(path.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("# users of the simulated BMC\n"
                   "user admin:secret:4\n"
                   "user viewer:look:2\n"
                   "kg 6b6579\n"
                   "guid 000102030405060708090a0b0c0d0e0f\n"
                   "suites 1,3\n"
                   "session-id 0x55667788\n",
                   f);
        std::fclose(f);
    }
    bmcsim::ChildProcess child({"--address", kAddress, "--port", "6232", "--config", path});
    Console console(kAddress, 6232);
    EXPECT_EQ(console.exchange(simtest::open_session_request(1, 4, kConsoleId, 1, 1, 0)),
              status_only(0x11, 1, 0x11, kConsoleId));
    auto e = simtest::establish(console, 3, "admin", "secret", 4, false, simtest::text("key"), kConsoleId + 1);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->bmc_id, 0x55667788u);
    Bytes guid(16);
    for (size_t i = 0; i < 16; ++i) guid[i] = static_cast<uint8_t>(i);
    EXPECT_EQ(e->guid, guid);
    Bytes icv = simtest::hmac_sha1(e->sik, cat(cat(e->rm, le(0x55667788)), guid));
    EXPECT_EQ(Bytes(e->rakp4.begin() + 24, e->rakp4.end()), Bytes(icv.begin(), icv.begin() + 12));
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)).at(23), 0x24);  // Kg set, non-null names
    EXPECT_TRUE(child.wait_for_output("established for user 'admin'", std::chrono::seconds(2)));
    std::remove(path.c_str());
}

}  // namespace
