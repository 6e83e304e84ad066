// 256 sessions on 64 threads against one BMC simulator on loopback
// (127.0.17.1): each thread sets up four sessions with a kernel-chosen local
// port and the kernel's random numbers, all 256 are open at once, every
// exchange is checked byte for byte, and every session is closed. The
// session IDs of both sides and the local ports are all distinct. Labelled
// `threads`, so tools/test.sh --tsan runs it under ThreadSanitizer.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <barrier>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"
#include "packet_testkit.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "trace_capture.h"

namespace {

using namespace packettest;

const char *const kSimAddress = "127.0.17.1";
constexpr uint32_t kSimAddressHost = 0x7F001101;
constexpr int kThreads = 64;
constexpr int kPerThread = 4;
constexpr int kSessions = kThreads * kPerThread;
constexpr int kRounds = 10;

// Suites 3 and 17 (AES-CBC-128 with HMAC-SHA1-96 or HMAC-SHA256-128), and
// 2 and 0 now and then.
int suite_of(int session)
{
    switch (session % 8) {
    case 0: return 0;
    case 4: return 2;
    case 1:
    case 5: return 17;
    default: return 3;
    }
}

struct SessionReport {
    int suite = 0;
    int setup = -1;
    uint32_t console_session_id = 0;
    uint32_t bmc_session_id = 0;
    uint16_t local_port = 0;
    int exchanged = 0;
    std::vector<std::string> failures;
    int close = -1;
    bool released = false;
};

void run_thread(int thread, std::barrier<> &all_open, std::array<SessionReport, kSessions> &reports)
{
    std::array<IPMI_SessionParam, kPerThread> params;
    RMCPP_SessionOptions o{};
    o.size = sizeof o;
    o.flags = RMCPP_OPT_KERNEL_PORT;
    o.random_source = RMCPP_RANDOM_KERNEL;
    for (int k = 0; k < kPerThread; ++k) {
        const int index = thread * kPerThread + k;
        SessionReport &r = reports[index];
        r.suite = suite_of(index);
        params[k] = testkit::simulator_login(1, r.suite, 3, 5);
        params[k].bmc_address = kSimAddressHost;
        r.setup = rmcpp_setup_session(&params[k], &o);
        if (r.setup == 0) {
            r.console_session_id = params[k].session->console_session_id;
            r.bmc_session_id = params[k].session->bmc_session_id;
            r.local_port = local_port_of(params[k].session->socket_fd);
        }
    }
    // All 256 sessions are open before any exchange starts.
    all_open.arrive_and_wait();

    for (int round = 0; round < kRounds; ++round)
        for (int k = 0; k < kPerThread; ++k) {
            const int index = thread * kPerThread + k;
            SessionReport &r = reports[index];
            if (r.setup != 0 || params[k].session == nullptr) continue;
            const Bytes request = request_of(0x06, 0x01, static_cast<uint8_t>((index + round) & 0x3F));
            Bytes response(128);
            uint32_t length = 0, released = 0;
            const int result =
                IPMI_Message_IF(&params[k], request.data(), static_cast<uint32_t>(request.size()), response.data(),
                                static_cast<uint32_t>(response.size()), &length, 0, &released, 3, 5);
            response.resize(result == 0 ? length : 0);
            if (result == 0 && response == response_to(request, 0x00, kSimulatorDeviceId))
                ++r.exchanged;
            else
                r.failures.push_back("round " + std::to_string(round) + ": result " + std::to_string(result));
        }

    for (int k = 0; k < kPerThread; ++k) {
        SessionReport &r = reports[thread * kPerThread + k];
        if (params[k].session != nullptr) r.close = IPMI_CloseSession(&params[k]);
        r.released = params[k].session == nullptr;
    }
}

TEST(ThreadsManySessions, TwoHundredFiftySixSessionsOnSixtyFourThreadsAllOpenAtOnce)
{
    bmcsim::Config c;
    c.address = kSimAddress;
    c.users = {{"admin", "secret", 4, true}};
    c.max_sessions = kSessions;
    bmcsim::Simulator sim(c);
    sim.start();
    testkit::clear_trace();

    std::barrier<> all_open(kThreads);
    auto reports = std::make_unique<std::array<SessionReport, kSessions>>();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(run_thread, t, std::ref(all_open), std::ref(*reports));
    for (auto &t : threads) t.join();

    std::set<uint32_t> console_ids, bmc_ids;
    std::set<uint16_t> ports;
    for (int i = 0; i < kSessions; ++i) {
        const SessionReport &r = (*reports)[i];
        SCOPED_TRACE("session " + std::to_string(i) + ", cipher suite " + std::to_string(r.suite));
        ASSERT_EQ(r.setup, 0);
        EXPECT_EQ(r.exchanged, kRounds);
        for (const auto &f : r.failures) ADD_FAILURE() << f;
        EXPECT_EQ(r.close, 0);
        EXPECT_TRUE(r.released);
        console_ids.insert(r.console_session_id);
        bmc_ids.insert(r.bmc_session_id);
        ports.insert(r.local_port);
    }
    EXPECT_EQ(console_ids.size(), static_cast<size_t>(kSessions));
    EXPECT_EQ(console_ids.count(0), 0u);
    EXPECT_EQ(bmc_ids.size(), static_cast<size_t>(kSessions));
    EXPECT_EQ(ports.size(), static_cast<size_t>(kSessions));
    EXPECT_EQ(ports.count(0), 0u);

    const auto stats = sim.stats();
    EXPECT_EQ(stats.sessions_established, static_cast<size_t>(kSessions));
    EXPECT_EQ(stats.sessions_closed, static_cast<size_t>(kSessions));
    EXPECT_EQ(stats.rejected_packets, 0u);
    sim.stop();
    EXPECT_TRUE(testkit::log_lines().empty()) << testkit::log_text();
}

}  // namespace
