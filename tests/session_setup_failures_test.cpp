// Establishment failures that a well-behaved managed system never causes:
// Rm, the SIK or the cipher key cannot be made, a RAKP 3/4 phase that
// reports success while leaving a status behind, and no memory for the
// session record. This program replaces CalculateAuthCode, RAKPMessage3_4,
// SetupSession and malloc for the library and fails them on demand, on the
// test's own thread only (the BMC simulator on 127.0.0.155 runs beside it).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "loopback.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "run_program.h"
#include "trace_capture.h"

namespace fault {
enum class Hash { None, RandomNumber, Sik, CipherKey };
thread_local Hash hash = Hash::None;
thread_local bool rakp4_status = false;
thread_local bool session_alloc = false;
thread_local bool fail_next_alloc = false;
}  // namespace fault

template <typename Fn>
Fn next_definition(const char *name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// The random-number generator hashes 8 bytes, the SIK 34 bytes plus the
// user name ("admin": 39), the cipher key sixty-four 0x02 bytes.
extern "C" int CalculateAuthCode(uint8_t algorithm, const uint8_t *data, uint32_t data_length, const uint8_t *key,
                                 uint32_t key_length, uint8_t *output, uint32_t *output_length)
{
    using Fn = int (*)(uint8_t, const uint8_t *, uint32_t, const uint8_t *, uint32_t, uint8_t *, uint32_t *);
    static const Fn real = next_definition<Fn>("CalculateAuthCode");
    switch (fault::hash) {
    case fault::Hash::RandomNumber:
        if (data_length == 8) return 1;
        break;
    case fault::Hash::Sik:
        if (data_length == 39) return 1;
        break;
    case fault::Hash::CipherKey:
        // Success, but no length reported.
        if (data_length == 64) return 0;
        break;
    case fault::Hash::None: break;
    }
    return real(algorithm, data, data_length, key, key_length, output, output_length);
}

extern "C" int RAKPMessage3_4(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                              const uint8_t *rc, uint8_t *rakp_status, uint8_t abort_only)
{
    using Fn = int (*)(RMCPp_SetupState *, const uint8_t *, uint8_t, uint8_t, const uint8_t *, uint8_t *, uint8_t);
    static const Fn real = next_definition<Fn>("RAKPMessage3_4");
    const int r = real(state, rm, role, tag, rc, rakp_status, abort_only);
    if (fault::rakp4_status && r == 0) *rakp_status = 0x12;
    return r;
}

// The session record is the first allocation after the driver returns.
extern "C" int SetupSession(RMCPp_SetupState *state, uint32_t port, uint32_t privilege, uint32_t name_only_lookup,
                            uint32_t two_key_login, uint32_t *granted_out)
{
    using Fn = int (*)(RMCPp_SetupState *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t *);
    static const Fn real = next_definition<Fn>("SetupSession");
    const int r = real(state, port, privilege, name_only_lookup, two_key_login, granted_out);
    fault::fail_next_alloc = fault::session_alloc && r == 0;
    return r;
}

// AddressSanitizer brings its own allocator; replacing malloc beside it
// would mix the two.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMallocReplaced = false;
#else
constexpr bool kMallocReplaced = true;
extern "C" void *__libc_malloc(size_t size);
extern "C" void *malloc(size_t size) noexcept
{
    if (fault::fail_next_alloc) {
        fault::fail_next_alloc = false;
        if (size == sizeof(RMCPp_Session)) {
            errno = ENOMEM;
            return nullptr;
        }
    }
    return __libc_malloc(size);
}
#endif

namespace {

using Lines = std::vector<std::string>;

constexpr uint8_t kSim = 155;

class SetupFailure : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = testkit::loopback_text(kSim);
        c.users = {{"admin", "secret", 4, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        descriptors_ = testkit::open_descriptors();
        testkit::clear_trace();
    }
    void TearDown() override
    {
        fault::hash = fault::Hash::None;
        fault::rakp4_status = false;
        fault::session_alloc = false;
        fault::fail_next_alloc = false;
        if (param_.session) {
            close(param_.session->socket_fd);
            std::free(param_.session);
        }
        sim_->stop();
    }

    int establish(int suite)
    {
        param_ = testkit::simulator_login(kSim, suite, 1, 1);
        return IPMI_SetupSession(&param_);
    }

    // The last lines logged, oldest first.
    static Lines last_lines(size_t n)
    {
        const Lines all = testkit::log_lines();
        if (all.size() < n) return all;
        return Lines(all.end() - static_cast<long>(n), all.end());
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
    IPMI_SessionParam param_{};
    int descriptors_ = 0;
};

TEST_F(SetupFailure, RandomNumberFailureEndsWith3BeforeRakp1)
{
    fault::hash = fault::Hash::RandomNumber;
    EXPECT_EQ(establish(3), 3);
    EXPECT_EQ(param_.session, nullptr);
    // The generator's own message, then nothing from the driver.
    EXPECT_EQ(last_lines(2), (Lines{"Could not generate random number.\n\n", "Failed to set up session.\n"}));
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::OpenSession), 1u);
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Rakp1), 0u);
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

TEST_F(SetupFailure, SikFailureEndsWith3BeforeRakp3)
{
    fault::hash = fault::Hash::Sik;
    EXPECT_EQ(establish(3), 3);
    EXPECT_EQ(param_.session, nullptr);
    EXPECT_EQ(last_lines(3),
              (Lines{"Could not calculate Auth Code.\n", "Failed to make SIK.\n", "Failed to set up session.\n"}));
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Rakp1), 1u);
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Rakp3), 0u);
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

TEST_F(SetupFailure, StatusLeftAfterRakp4EndsWith66)
{
    fault::rakp4_status = true;
    EXPECT_EQ(establish(1), 66);
    EXPECT_EQ(param_.session, nullptr);
    EXPECT_EQ(last_lines(2), (Lines{"Invalid Data in RAKP Message 4.\n", "Failed to set up session.\n"}));
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Rakp3), 1u);
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

TEST_F(SetupFailure, CipherKeyFailureEndsWith3)
{
    fault::hash = fault::Hash::CipherKey;
    testing::internal::CaptureStdout();
    const int r = establish(3);
    std::fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r, 3);
    EXPECT_EQ(param_.session, nullptr);
    EXPECT_EQ(out, "Error : Invalid data length returned in making AES-CBC-128 key.\n");
    EXPECT_EQ(last_lines(2), (Lines{"Failed to make Confidentiality Key.\n", "Failed to set up session.\n"}));
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Rakp3), 1u);
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

TEST_F(SetupFailure, NoMemoryForTheSessionIsOutOfResource)
{
    if (!kMallocReplaced) GTEST_SKIP() << "malloc cannot be replaced beside AddressSanitizer's allocator";
    fault::session_alloc = true;
    EXPECT_EQ(establish(3), 2);
    EXPECT_EQ(param_.session, nullptr);
    EXPECT_EQ(last_lines(1), (Lines{"Out of resource.\n"}));
    EXPECT_EQ(sim_->stats().sessions_established, 1u);
    // The established socket is not left open.
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

TEST_F(SetupFailure, WithoutFaultsTheSameSetupSucceeds)
{
    EXPECT_EQ(establish(3), 0);
    ASSERT_NE(param_.session, nullptr);
    EXPECT_EQ(IPMI_CloseSession(&param_), 0);
    EXPECT_EQ(testkit::open_descriptors(), descriptors_);
}

}  // namespace
