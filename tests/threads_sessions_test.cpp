// Distinct sessions on distinct threads against the BMC simulator on
// loopback (127.0.0.190): every thread sets up its own session, runs its own
// exchanges and closes it, while another thread keeps using the setters of
// the process-wide settings. Also the shared generators from many threads at
// once: session IDs and random numbers stay distinct. Built with
// -DRMCPP_TSAN=ON these run under ThreadSanitizer (ctest -L threads).
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
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

constexpr uint8_t kSim = 190;
constexpr int kThreads = 16;
constexpr int kExchanges = 200;

// What one thread saw; checked on the main thread once all have ended.
struct ThreadReport {
    int suite = 0;
    int setup = -1;
    uint32_t granted = 0;
    uint32_t console_session_id = 0;
    uint32_t bmc_session_id = 0;
    uint16_t local_port = 0;
    int exchanged = 0;           // exchanges that returned 0 with the exact response
    std::vector<std::string> failures;
    int close = -1;
    bool released = false;       // the session record is gone after close
};

void run_session(int index, std::barrier<> &all_open, ThreadReport &report)
{
    report.suite = index % 2 == 0 ? 0 : 3;
    IPMI_SessionParam param = testkit::simulator_login(kSim, report.suite, 3, 2);
    report.setup = IPMI_SetupSession(&param);
    if (report.setup == 0) {
        report.granted = param.granted_privilege;
        report.console_session_id = param.session->console_session_id;
        report.bmc_session_id = param.session->bmc_session_id;
        report.local_port = local_port_of(param.session->socket_fd);
    }
    // Every session is open at the same time before any exchange starts.
    all_open.arrive_and_wait();
    if (report.setup != 0) return;

    for (int i = 0; i < kExchanges; ++i) {
        const Bytes request = request_of(0x06, 0x01, static_cast<uint8_t>((index + i) & 0x3F));
        Bytes response(128);
        uint32_t length = 0;
        uint32_t released = 0;
        const int r = IPMI_Message_IF(&param, request.data(), static_cast<uint32_t>(request.size()), response.data(),
                                      static_cast<uint32_t>(response.size()), &length, 0, &released, 3, 2);
        response.resize(r == 0 ? length : 0);
        if (r == 0 && response == response_to(request, 0x00, kSimulatorDeviceId))
            ++report.exchanged;
        else
            report.failures.push_back("exchange " + std::to_string(i) + ": result " + std::to_string(r));
        if (released) break;
    }
    if (param.session != nullptr) report.close = IPMI_CloseSession(&param);
    report.released = param.session == nullptr;
}

bmcsim::Config simulator_config()
{
    bmcsim::Config c;
    c.address = testkit::loopback_text(kSim);
    c.users = {{"admin", "secret", 4, true}};
    c.max_sessions = kThreads;
    return c;
}

TEST(ThreadsSessions, SixteenThreadsEachRunTheirOwnSessionWithExactResponses)
{
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    testkit::clear_trace();

    std::atomic<bool> done{false};
    // The setters and the random generator's re-seed, from another thread,
    // all the while. The values are the ones already in force, so the
    // sessions' bytes do not change; only the accesses overlap.
    std::thread settings([&] {
        while (!done.load()) {
            IPMI_SetupConnectSA(0x71);
            IPMI_SetupStandardKeys(0);
            change_printlevel("INFO");
            change_printlevel("WARN");
            __atomic_store_n(&flag_1st_random, 1, __ATOMIC_RELAXED);
            (void)__atomic_load_n(&do_self_check, __ATOMIC_RELAXED);
            (void)__atomic_load_n(&Print_Level, __ATOMIC_RELAXED);
            std::this_thread::yield();
        }
    });

    std::barrier<> all_open(kThreads);
    std::array<ThreadReport, kThreads> reports;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(run_session, t, std::ref(all_open), std::ref(reports[t]));
    for (auto &t : threads) t.join();
    done = true;
    settings.join();

    std::set<uint32_t> console_ids, bmc_ids;
    std::set<uint16_t> ports;
    for (int t = 0; t < kThreads; ++t) {
        const ThreadReport &r = reports[t];
        SCOPED_TRACE("thread " + std::to_string(t) + ", cipher suite " + std::to_string(r.suite));
        ASSERT_EQ(r.setup, 0);
        EXPECT_EQ(r.granted, 4u);
        EXPECT_EQ(r.exchanged, kExchanges);
        for (const auto &f : r.failures) ADD_FAILURE() << f;
        EXPECT_EQ(r.close, 0);
        EXPECT_TRUE(r.released);
        console_ids.insert(r.console_session_id);
        bmc_ids.insert(r.bmc_session_id);
        ports.insert(r.local_port);
    }
    // All sixteen were open at once: each has its own IDs and local port.
    EXPECT_EQ(console_ids.size(), static_cast<size_t>(kThreads));
    EXPECT_EQ(bmc_ids.size(), static_cast<size_t>(kThreads));
    EXPECT_EQ(ports.size(), static_cast<size_t>(kThreads));
    EXPECT_EQ(ports.count(0), 0u);

    const auto stats = sim.stats();
    EXPECT_EQ(stats.sessions_established, static_cast<size_t>(kThreads));
    EXPECT_EQ(stats.sessions_closed, static_cast<size_t>(kThreads));
    EXPECT_EQ(stats.rejected_packets, 0u);
    EXPECT_EQ(stats.count(bmcsim::Kind::SessionPacket), static_cast<size_t>(kThreads * (kExchanges + 1)));
    EXPECT_TRUE(testkit::log_lines().empty()) << testkit::log_text();
}

TEST(ThreadsSessions, SessionIdsMadeOnManyThreadsAtOnceAreDistinct)
{
    constexpr int kEach = 1000;  // 16000 in all: fewer than the 65536 values of the low half
    std::array<std::vector<uint32_t>, kThreads> made;
    std::barrier<> start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int i = 0; i < kEach; ++i) made[t].push_back(MakeSessionID());
        });
    for (auto &t : threads) t.join();

    std::set<uint32_t> all;
    for (const auto &ids : made) all.insert(ids.begin(), ids.end());
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
    EXPECT_EQ(all.count(0), 0u);
}

TEST(ThreadsSessions, RandomNumbersMadeOnManyThreadsAtOnceAreDistinct)
{
    constexpr int kEach = 500;
    std::array<std::vector<std::array<uint8_t, 16>>, kThreads> made;
    std::array<int, kThreads> failed{};
    std::barrier<> start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int i = 0; i < kEach; ++i) {
                std::array<uint8_t, 16> rm{};
                if (MakeRandomNumber(rm.data()) != 0) ++failed[t];
                made[t].push_back(rm);
            }
        });
    for (auto &t : threads) t.join();

    std::set<std::array<uint8_t, 16>> all;
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(failed[t], 0) << "thread " << t;
        all.insert(made[t].begin(), made[t].end());
    }
    // Each number came from its own counter value: none was handed out twice.
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
}

}  // namespace
