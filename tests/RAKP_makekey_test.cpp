// Session IDs, random numbers, the SIK and K2. The C library generator and
// the clock are replaced in this program (the library's calls bind to the
// definitions below), so the tests can script rand() values and clock
// failures; unscripted, they behave like an ordinary generator and clock.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <deque>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;

namespace fake {

std::deque<int> rand_script;  // values rand() returns first, in order
int srand_calls = 0;
unsigned last_seed = 0;
unsigned generator = 1;

bool clock_fails = false;
bool clock_fixed = false;
struct timeval fixed_time = {0, 0};

}  // namespace fake

extern "C" void srand(unsigned seed) noexcept
{
    ++fake::srand_calls;
    fake::last_seed = seed;
    fake::generator = seed;
}

extern "C" int rand(void) noexcept
{
    if (!fake::rand_script.empty()) {
        const int v = fake::rand_script.front();
        fake::rand_script.pop_front();
        return v;
    }
    fake::generator = fake::generator * 1103515245u + 12345u;
    return static_cast<int>((fake::generator >> 1) & 0x7FFFFFFF);
}

extern "C" int gettimeofday(struct timeval *__restrict tv, void *__restrict) noexcept
{
    if (fake::clock_fails) return -1;
    if (fake::clock_fixed) {
        *tv = fake::fixed_time;
        return 0;
    }
    return static_cast<int>(syscall(SYS_gettimeofday, tv, nullptr));
}

namespace {

const Bytes kRm = sequence16(0xA0);
const Bytes kRc = sequence16(0xC0);

struct FakeReset : ::testing::Test {
    void TearDown() override
    {
        fake::rand_script.clear();
        fake::clock_fails = false;
        fake::clock_fixed = false;
    }
};

using SessionId = FakeReset;
using RandomNumber = FakeReset;

RMCPp_SetupState key_state(const std::string &name, const char *password, uint8_t auth = 1)
{
    RMCPp_SetupState s{};
    set_user(s, name, password);
    s.req_auth_alg = auth;
    std::memset(s.sik, 0xEE, sizeof s.sik);
    std::memset(s.cipher_key, 0xEE, sizeof s.cipher_key);
    return s;
}

Bytes make_sik(RMCPp_SetupState &s, uint8_t role)
{
    EXPECT_EQ(MakeSIK(&s, role, kRm.data(), kRc.data()), 0);
    return bytes_of(s.sik, 20);
}

}  // namespace

// ------------------------------------------------------------ session IDs

TEST_F(SessionId, LowHalfIsACounterAndTheIdIsNeverZero)
{
    const uint32_t a = MakeSessionID();
    const uint32_t b = MakeSessionID();
    EXPECT_NE(a, 0u);
    EXPECT_NE(b, 0u);
    EXPECT_EQ(static_cast<uint16_t>(b), static_cast<uint16_t>((a & 0xFFFF) + 1));
}

TEST_F(SessionId, ReseedsWithHalfTheTimeOnEveryCall)
{
    const int calls = fake::srand_calls;
    const unsigned before = static_cast<unsigned>(time(nullptr)) >> 1;
    const uint32_t a = MakeSessionID();
    const unsigned seed_a = fake::last_seed;
    const uint32_t b = MakeSessionID();
    const unsigned seed_b = fake::last_seed;
    const unsigned after = static_cast<unsigned>(time(nullptr)) >> 1;
    EXPECT_EQ(fake::srand_calls, calls + 2);
    EXPECT_GE(seed_a, before);
    EXPECT_LE(seed_b, after);
    // Within the same two seconds the upper half repeats.
    if (seed_a == seed_b) {
        EXPECT_EQ(a >> 16, b >> 16);
    }
}

TEST_F(SessionId, TakesTheUpperHalfOfTheRandomValue)
{
    const uint16_t next = static_cast<uint16_t>(MakeSessionID() + 1);
    fake::rand_script = {0x12345678};
    EXPECT_EQ(MakeSessionID(), 0x12340000u | next);
}

TEST_F(SessionId, MovesASmallRandomValueIntoTheUpperHalf)
{
    const uint16_t next = static_cast<uint16_t>(MakeSessionID() + 1);
    fake::rand_script = {0x00001234};
    EXPECT_EQ(MakeSessionID(), 0x12340000u | next);
}

TEST_F(SessionId, CounterWrapsAndAZeroCandidateIsDrawnAgainWithoutReseeding)
{
    uint32_t id = 0;
    for (int i = 0; i < 70000 && (id & 0xFFFF) != 0xFFFF; ++i) id = MakeSessionID();
    ASSERT_EQ(id & 0xFFFF, 0xFFFFu);
    EXPECT_NE(id, 0u);

    // The counter is now 0: a random value of 0 forms the candidate 0,
    // which is drawn again (the counter moving on to 1).
    fake::rand_script = {0, 0x00050000};
    const int calls = fake::srand_calls;
    EXPECT_EQ(MakeSessionID(), 0x00050001u);
    EXPECT_EQ(fake::srand_calls, calls + 1);
    EXPECT_TRUE(fake::rand_script.empty());

    // With a non-zero counter a random value of 0 leaves just the counter.
    fake::rand_script = {0};
    EXPECT_EQ(MakeSessionID(), 0x00000002u);
}

// --------------------------------------------------------- random numbers

TEST_F(RandomNumber, IsHmacSha1OfClockAndCounterUnderAKeyOfFiveSessionIds)
{
    const uint16_t seq = static_cast<uint16_t>(MakeSessionID() + 1);
    const uint32_t highs[5] = {0x11110000, 0x22220000, 0x33330000, 0x44440000, 0x55550000};
    for (uint32_t h : highs) fake::rand_script.push_back(static_cast<int>(h));
    fake::clock_fixed = true;
    fake::fixed_time = {1700000000, 0x0ABCDE};
    flag_1st_random = 1;

    uint8_t out[16];
    ASSERT_EQ(MakeRandomNumber(out), 0);
    EXPECT_EQ(flag_1st_random, 0);

    Bytes key;
    for (int i = 0; i < 5; ++i) key = cat({key, le32(highs[i] | static_cast<uint16_t>(seq + i))});
    // The call counter is process-wide; find the value this call used.
    uint32_t cq = 0;
    bool found = false;
    for (; cq < 1000 && !found; ++cq)
        found = first(hmac_sha1(key, cat({le32(0x0ABCDE), le32(cq)})), 16) == bytes_of(out, 16);
    ASSERT_TRUE(found);
    const uint32_t used = cq - 1;

    // The next number differs only by the counter, even in the same microsecond.
    uint8_t next[16];
    ASSERT_EQ(MakeRandomNumber(next), 0);
    EXPECT_EQ(bytes_of(next, 16), first(hmac_sha1(key, cat({le32(0x0ABCDE), le32(used + 1)})), 16));
    EXPECT_NE(bytes_of(next, 16), bytes_of(out, 16));

    // Setting the flag again makes a new key and clock value; the counter
    // goes on.
    const uint16_t seq2 = static_cast<uint16_t>(MakeSessionID() + 1);
    for (int i = 0; i < 5; ++i) fake::rand_script.push_back(0x7F000000 + i * 0x10000);
    fake::fixed_time = {1700000001, 42};
    flag_1st_random = 1;
    ASSERT_EQ(MakeRandomNumber(next), 0);
    Bytes key2;
    for (int i = 0; i < 5; ++i)
        key2 = cat({key2, le32((0x7F000000u + i * 0x10000u) | static_cast<uint16_t>(seq2 + i))});
    EXPECT_EQ(bytes_of(next, 16), first(hmac_sha1(key2, cat({le32(42), le32(used + 2)})), 16));
}

TEST_F(RandomNumber, FailsOnlyWhenTheClockCannotBeReadAndTriesAgainNextTime)
{
    flag_1st_random = 1;
    fake::clock_fails = true;
    uint8_t out[16];
    std::memset(out, 0xEE, sizeof out);
    clear_trace();
    EXPECT_EQ(MakeRandomNumber(out), 1);
    EXPECT_EQ(log_lines(), Lines{"Could not get current time.\n"});
    EXPECT_EQ(flag_1st_random, 1);
    EXPECT_EQ(bytes_of(out, 16), Bytes(16, 0xEE));

    fake::clock_fails = false;
    EXPECT_EQ(MakeRandomNumber(out), 0);
    EXPECT_EQ(flag_1st_random, 0);

    // Once the key is made the clock is not read again.
    fake::clock_fails = true;
    EXPECT_EQ(MakeRandomNumber(out), 0);
}

TEST_F(RandomNumber, SuccessiveNumbersDiffer)
{
    uint8_t a[16], b[16];
    ASSERT_EQ(MakeRandomNumber(a), 0);
    ASSERT_EQ(MakeRandomNumber(b), 0);
    EXPECT_NE(bytes_of(a, 16), bytes_of(b, 16));
}

// -------------------------------------------------------------------- SIK

TEST(Sik, IsHmacSha1UnderThePaddedPassword)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    EXPECT_EQ(make_sik(s, 0x04), sik_of(padded("secret", 20), kRm, kRc, 0x04, "admin"));
}

TEST(Sik, MatchesAFixedVector)
{
    // HMAC-SHA1 computed outside this library (Python's hmac module) over Rm
    // A0..AF, Rc C0..CF, role 4, user "admin", keyed with "secret"
    // zero-padded to 20 bytes.
    const Bytes sik = {0x98, 0x25, 0x8e, 0x1b, 0x64, 0x17, 0x37, 0x7b, 0xa4, 0x45,
                       0x8f, 0xa2, 0xb6, 0x4e, 0x46, 0xd6, 0xb4, 0xe5, 0x61, 0xf5};
    RMCPp_SetupState s = key_state("admin", "secret");
    EXPECT_EQ(make_sik(s, 0x04), sik);
}

TEST(Sik, CarriesTheNameOnlyRoleByte)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    const Bytes with_lookup = make_sik(s, 0x14);
    EXPECT_EQ(with_lookup, sik_of(padded("secret", 20), kRm, kRc, 0x14, "admin"));
    EXPECT_NE(with_lookup, sik_of(padded("secret", 20), kRm, kRc, 0x04, "admin"));
}

TEST(Sik, WithAnEmptyUserName)
{
    RMCPp_SetupState s = key_state("", "pw");
    EXPECT_EQ(make_sik(s, 0x04), sik_of(padded("pw", 20), kRm, kRc, 0x04, ""));
}

TEST(Sik, WithTheLongestNameAndPassword)
{
    RMCPp_SetupState s = key_state("ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOPQRST");
    EXPECT_EQ(make_sik(s, 0x03), sik_of(text("ABCDEFGHIJKLMNOPQRST"), kRm, kRc, 0x03, "ABCDEFGHIJKLMNOP"));
}

// Anonymous login has key length 0, but the SIK is always keyed with 20
// bytes of the (all-zero) password.
TEST(Sik, WithAnonymousLoginKeyedWithTwentyZeroBytes)
{
    RMCPp_SetupState s = key_state("", nullptr);
    ASSERT_EQ(s.user_key_length, 0);
    EXPECT_EQ(make_sik(s, 0x04), sik_of(Bytes(20, 0), kRm, kRc, 0x04, ""));
}

TEST(Sik, AShortPasswordIsPaddedToTwentyBytes)
{
    RMCPp_SetupState s = key_state("op", "abcde");
    EXPECT_EQ(make_sik(s, 0x02), sik_of(cat({text("abcde"), Bytes(15, 0)}), kRm, kRc, 0x02, "op"));
}

TEST(Sik, WithTwoKeyLoginIsKeyedWithKg)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    s.kg_status = 0x20;
    std::memcpy(s.bmc_key, "kgkey", 5);
    s.bmc_key_length = 20;
    const Bytes sik = make_sik(s, 0x14);
    EXPECT_EQ(sik, sik_of(padded("kgkey", 20), kRm, kRc, 0x14, "admin"));
    // Computed outside this library (Python's hmac module).
    const Bytes fixed = {0x9c, 0x6e, 0xf8, 0x91, 0xb6, 0xd0, 0x49, 0x33, 0xa3, 0x12,
                         0xec, 0xf2, 0x8a, 0x54, 0xfb, 0x7c, 0xe1, 0x7c, 0xe4, 0x57};
    EXPECT_EQ(sik, fixed);
}

TEST(Sik, WithKgSetButNoTwoKeyLoginIsKeyedWithAnEmptyKey)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    s.kg_status = 0x20;
    s.bmc_key_length = 0;
    const Bytes sik = make_sik(s, 0x04);
    EXPECT_EQ(sik, sik_of(Bytes{}, kRm, kRc, 0x04, "admin"));
    EXPECT_NE(sik, sik_of(padded("secret", 20), kRm, kRc, 0x04, "admin"));
}

TEST(Sik, UnderRakpNoneIsTwentyZeroBytes)
{
    RMCPp_SetupState s = key_state("admin", "secret", 0);
    EXPECT_EQ(make_sik(s, 0x04), Bytes(20, 0));
}

TEST(Sik, RefusesAnUnknownAuthenticationAlgorithm)
{
    RMCPp_SetupState s = key_state("admin", "secret", 2);
    clear_trace();
    EXPECT_EQ(MakeSIK(&s, 0x04, kRm.data(), kRc.data()), 1);
    EXPECT_EQ(log_lines(), Lines{"Error : Not - supported Authentication algorithm.\n"});
    EXPECT_EQ(bytes_of(s.sik, 20), Bytes(20, 0xEE));
}

// --------------------------------------------------------------------- K2

TEST(CipherKey, IsHmacSha1OfSixtyFourTwosUnderTheSik)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    s.req_confidentiality_alg = 1;
    const Bytes sik = make_sik(s, 0x04);
    ASSERT_EQ(MakeConfidentialityKey(&s), 0);
    EXPECT_EQ(bytes_of(s.cipher_key, 20), k2_of(sik));
    EXPECT_NE(bytes_of(s.cipher_key, 20), hmac_sha1(sik, Bytes(20, 0x02)));
    // Computed outside this library (Python's hmac module) from the SIK of
    // the fixed vector above.
    const Bytes fixed = {0x96, 0x2c, 0xac, 0x33, 0x12, 0xed, 0x14, 0x71, 0x18, 0x00,
                         0xde, 0xc9, 0xcb, 0x44, 0x93, 0x4b, 0x7d, 0x28, 0x55, 0x15};
    EXPECT_EQ(bytes_of(s.cipher_key, 20), fixed);
}

TEST(CipherKey, WithoutConfidentialityIsTwentyZeroBytes)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    make_sik(s, 0x04);
    EXPECT_EQ(MakeConfidentialityKey(&s), 0);
    EXPECT_EQ(bytes_of(s.cipher_key, 20), Bytes(20, 0));
}

TEST(CipherKey, RefusesAnUnknownConfidentialityAlgorithm)
{
    RMCPp_SetupState s = key_state("admin", "secret");
    s.req_confidentiality_alg = 2;
    clear_trace();
    EXPECT_EQ(MakeConfidentialityKey(&s), 1);
    EXPECT_EQ(log_lines(), Lines{"Not-supported Confidentiality Algorithm in making key.\n"});
    EXPECT_EQ(bytes_of(s.cipher_key, 20), Bytes(20, 0xEE));
}

// Under RAKP-none the keyed hash reports no length: the failure goes to
// standard output, not to the log.
TEST(CipherKey, ReportsAMissingResultLengthOnStandardOutput)
{
    RMCPp_SetupState s = key_state("", nullptr, 0);
    s.req_confidentiality_alg = 1;
    clear_trace();
    testing::internal::CaptureStdout();
    const int r = MakeConfidentialityKey(&s);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r, 1);
    EXPECT_EQ(out, "Error : Invalid data length returned in making AES-CBC-128 key.\n");
    EXPECT_TRUE(log_lines().empty());
}
