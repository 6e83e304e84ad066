// The library against the rmcpp-bmcsim program in both key modes: matching
// modes work for every cipher suite; mismatched modes fail cleanly where
// packets carry an integrity code or encryption.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "loopback.h"
#include "rmcpp.h"
#include "run_program.h"
#include "trace_capture.h"

namespace {

constexpr uint8_t kLibraryModeBmc = 20;
constexpr uint8_t kStandardModeBmc = 21;

class KeyModes : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        library_ = new bmcsim::ChildProcess({"--address", testkit::loopback_text(kLibraryModeBmc), "--user",
                                             "admin:password:4"});
        standard_ = new bmcsim::ChildProcess({"--address", testkit::loopback_text(kStandardModeBmc), "--user",
                                              "admin:password:4", "--standard-keys"});
    }
    static void TearDownTestSuite()
    {
        delete library_;
        delete standard_;
    }
    void SetUp() override { testkit::clear_trace(); }
    void TearDown() override { IPMI_SetupStandardKeys(0); }

    static IPMI_SessionParam param(uint8_t bmc, int suite)
    {
        IPMI_SessionParam p{};
        p.bmc_address = testkit::loopback(bmc);
        p.user_name = "admin";
        p.user_password = "password";
        p.privilege_level = 4;
        p.cipher_suite_id = suite;
        p.slave_address = 0x20;
        p.retry_count = 2;
        p.timeout_sec = 1;
        return p;
    }

    // Get Device ID through IPMI_Message_IF; its result code.
    static int get_device_id(IPMI_SessionParam &p, uint8_t *device_id)
    {
        const IPMI_MsgHeader h = {0x06, 0x81, 0x01, 0, 1, 0x07, 0x20, 0};
        uint8_t request[8], response[64];
        int length = 0;
        MakeIPMIRequest(&h, nullptr, 0, request, sizeof request, &length);
        uint32_t received = 0, released = 0;
        const int r = IPMI_Message_IF(&p, request, static_cast<uint32_t>(length), response, sizeof response,
                                      &received, 0, &released, 2, 1);
        if (r == 0 && received >= 9 && response[6] == 0) *device_id = response[7];
        return r;
    }

    void works(uint8_t bmc, int suite)
    {
        auto p = param(bmc, suite);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "suite " << suite << "\n" << testkit::log_text();
        uint8_t device_id = 0xFF;
        EXPECT_EQ(get_device_id(p, &device_id), 0) << "suite " << suite << "\n" << testkit::log_text();
        EXPECT_EQ(device_id, 0x20);
        EXPECT_EQ(IPMI_CloseSession(&p), 0) << "suite " << suite;
        EXPECT_EQ(p.session, nullptr);
    }

    // The session is established (RAKP 4 is checked with the SIK in both
    // modes), but the managed system drops every packet whose integrity
    // code or encryption uses the other mode's keys: the exchange ends
    // with 4 once its attempts are used, Close Session likewise after its
    // one attempt, and the session and its socket are released.
    void fails_cleanly(uint8_t bmc, int suite)
    {
        const int descriptors = testkit::open_descriptors();
        auto p = param(bmc, suite);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "suite " << suite << "\n" << testkit::log_text();
        const auto t0 = std::chrono::steady_clock::now();
        uint8_t device_id = 0;
        EXPECT_EQ(get_device_id(p, &device_id), 4) << "suite " << suite;
        EXPECT_EQ(IPMI_CloseSession(&p), 4) << "suite " << suite;
        // Two attempts of one second, then one for Close Session.
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(3800));
        EXPECT_EQ(p.session, nullptr);
        EXPECT_EQ(testkit::open_descriptors(), descriptors);
    }

    static bmcsim::ChildProcess *library_;
    static bmcsim::ChildProcess *standard_;
};

bmcsim::ChildProcess *KeyModes::library_ = nullptr;
bmcsim::ChildProcess *KeyModes::standard_ = nullptr;

TEST_F(KeyModes, LibraryModeAgainstLibraryModeBmc)
{
    for (int suite = 0; suite <= 3; ++suite) works(kLibraryModeBmc, suite);
}

TEST_F(KeyModes, StandardModeAgainstStandardModeBmc)
{
    IPMI_SetupStandardKeys(1);
    for (int suite = 0; suite <= 3; ++suite) works(kStandardModeBmc, suite);
}

TEST_F(KeyModes, SuitesWithoutIntegrityWorkAcrossModes)
{
    for (int suite : {0, 1}) works(kStandardModeBmc, suite);
    IPMI_SetupStandardKeys(1);
    for (int suite : {0, 1}) works(kLibraryModeBmc, suite);
}

TEST_F(KeyModes, DefaultModeAgainstStandardBmcFailsCleanly)
{
    for (int suite : {2, 3}) fails_cleanly(kStandardModeBmc, suite);
}

TEST_F(KeyModes, StandardModeAgainstLibraryModeBmcFailsCleanly)
{
    IPMI_SetupStandardKeys(1);
    for (int suite : {2, 3}) fails_cleanly(kLibraryModeBmc, suite);
}

}  // namespace
