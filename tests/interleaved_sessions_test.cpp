// rmcpp_run_interleaved: many sessions from one thread against the BMC
// simulator on loopback (127.0.22.1; 127.0.22.2 is a BMC that never
// answers). Labelled `threads`, so it also runs under ThreadSanitizer.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
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
using Clock = std::chrono::steady_clock;

const char *const kSimAddress = "127.0.22.1";
constexpr uint32_t kSimAddressHost = 0x7F001601;
constexpr uint32_t kSilentAddressHost = 0x7F001602;

struct JobReport {
    int suite = 0;
    int setup = -1;
    std::thread::id thread;
    uint32_t console_session_id = 0;
    uint16_t local_port = 0;
    int exchanged = 0;
    int close = -1;
    bool released = false;
    Clock::time_point finished;
};

struct Fleet {
    std::vector<JobReport> reports;
    uint32_t address = kSimAddressHost;
    int rounds = 3;
    int in_setup = 0;
    int most_in_setup = 0;
    uint16_t retry_count = 3;
    uint16_t timeout_sec = 5;
};

// Suites 3 and 17 alternate: suite 17 needs the job's own establishment
// options all through its setup, so a job that saw another's would fail.
int suite_of(size_t index) { return index % 2 == 0 ? 3 : 17; }

void session_job(void *context, size_t index)
{
    auto &fleet = *static_cast<Fleet *>(context);
    JobReport &r = fleet.reports[index];
    r.thread = std::this_thread::get_id();
    r.suite = suite_of(index);
    IPMI_SessionParam p = testkit::simulator_login(1, r.suite, fleet.retry_count, fleet.timeout_sec);
    p.bmc_address = index == 0 ? fleet.address : kSimAddressHost;
    RMCPP_SessionOptions o{};
    o.size = sizeof o;
    o.flags = RMCPP_OPT_KERNEL_PORT;
    o.random_source = RMCPP_RANDOM_KERNEL;

    fleet.most_in_setup = std::max(fleet.most_in_setup, ++fleet.in_setup);
    r.setup = rmcpp_setup_session(&p, &o);
    --fleet.in_setup;
    if (r.setup == 0) {
        r.console_session_id = p.session->console_session_id;
        r.local_port = local_port_of(p.session->socket_fd);
        for (int round = 0; round < fleet.rounds; ++round) {
            const Bytes request = request_of(0x06, 0x01, static_cast<uint8_t>((index + round) & 0x3F));
            Bytes response(128);
            uint32_t length = 0, released = 0;
            const int result = IPMI_Message_IF(&p, request.data(), static_cast<uint32_t>(request.size()),
                                               response.data(), static_cast<uint32_t>(response.size()), &length, 0,
                                               &released, 3, 5);
            response.resize(result == 0 ? length : 0);
            if (result == 0 && response == response_to(request, 0x00, kSimulatorDeviceId)) ++r.exchanged;
        }
        r.close = IPMI_CloseSession(&p);
        r.released = p.session == nullptr;
    }
    r.finished = Clock::now();
}

bmcsim::Config simulator_config(int max_sessions)
{
    bmcsim::Config c;
    c.address = kSimAddress;
    c.users = {{"admin", "secret", 4, true}};
    c.max_sessions = max_sessions;
    return c;
}

TEST(InterleavedSessions, TwoHundredFiftySixSessionsFromOneThreadSixtyFourAtOnce)
{
    constexpr size_t kJobs = 256;
    constexpr unsigned kAtOnce = 64;
    bmcsim::Simulator sim(simulator_config(kAtOnce));
    sim.start();
    testkit::clear_trace();

    Fleet fleet;
    fleet.reports.resize(kJobs);
    ASSERT_EQ(rmcpp_run_interleaved(kJobs, session_job, &fleet, kAtOnce), RMCPP_OK);

    std::set<uint32_t> console_ids;
    std::set<uint16_t> ports;
    for (size_t i = 0; i < kJobs; ++i) {
        const JobReport &r = fleet.reports[i];
        SCOPED_TRACE("job " + std::to_string(i) + ", cipher suite " + std::to_string(r.suite));
        EXPECT_EQ(r.thread, std::this_thread::get_id());
        ASSERT_EQ(r.setup, 0);
        EXPECT_EQ(r.exchanged, fleet.rounds);
        EXPECT_EQ(r.close, 0);
        EXPECT_TRUE(r.released);
        console_ids.insert(r.console_session_id);
        ports.insert(r.local_port);
    }
    // Every slot had a setup under way at once: the jobs did interleave.
    EXPECT_EQ(fleet.most_in_setup, static_cast<int>(kAtOnce));
    EXPECT_EQ(console_ids.size(), kJobs);
    EXPECT_EQ(console_ids.count(0), 0u);

    const auto stats = sim.stats();
    EXPECT_EQ(stats.sessions_established, kJobs);
    EXPECT_EQ(stats.sessions_closed, kJobs);
    EXPECT_EQ(stats.rejected_packets, 0u);
    sim.stop();
    EXPECT_TRUE(testkit::log_lines().empty()) << testkit::log_text();
}

// A UDP socket on port 623 that takes every datagram and answers none.
class SilentBmc {
public:
    SilentBmc()
    {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(623);
        a.sin_addr.s_addr = htonl(kSilentAddressHost);
        bound_ = fd_ >= 0 && bind(fd_, reinterpret_cast<const sockaddr *>(&a), sizeof a) == 0;
    }
    ~SilentBmc()
    {
        if (fd_ >= 0) close(fd_);
    }
    bool bound() const { return bound_; }

private:
    int fd_ = -1;
    bool bound_ = false;
};

TEST(InterleavedSessions, ASilentBmcWaitsOutItsAttemptsWhileTheOthersFinish)
{
    constexpr size_t kJobs = 9;
    bmcsim::Simulator sim(simulator_config(16));
    sim.start();
    SilentBmc silent;
    ASSERT_TRUE(silent.bound());
    testkit::clear_trace();

    Fleet fleet;
    fleet.reports.resize(kJobs);
    fleet.address = kSilentAddressHost;
    fleet.retry_count = 2;
    fleet.timeout_sec = 1;
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(rmcpp_run_interleaved(kJobs, session_job, &fleet, 0), RMCPP_OK);

    // Job 0 pings a BMC that never answers: two attempts of a second each,
    // as on a thread of its own.
    const JobReport &lost = fleet.reports[0];
    EXPECT_EQ(lost.setup, RMCPP_ERR_PING);
    EXPECT_GE(lost.finished - start, std::chrono::seconds(2));
    for (size_t i = 1; i < kJobs; ++i) {
        const JobReport &r = fleet.reports[i];
        SCOPED_TRACE("job " + std::to_string(i));
        EXPECT_EQ(r.setup, 0);
        EXPECT_EQ(r.exchanged, fleet.rounds);
        EXPECT_EQ(r.close, 0);
        EXPECT_LT(r.finished, lost.finished);
    }
    sim.stop();
}

void record_index(void *context, size_t index) { static_cast<std::vector<size_t> *>(context)->push_back(index); }

TEST(InterleavedSessions, JobsThatNeverWaitRunInIndexOrder)
{
    std::vector<size_t> seen;
    ASSERT_EQ(rmcpp_run_interleaved(100, record_index, &seen, 4), RMCPP_OK);
    std::vector<size_t> expected(100);
    for (size_t i = 0; i < expected.size(); ++i) expected[i] = i;
    EXPECT_EQ(seen, expected);

    seen.clear();
    EXPECT_EQ(rmcpp_run_interleaved(0, record_index, &seen, 4), RMCPP_OK);
    EXPECT_TRUE(seen.empty());
}

void nested_call(void *context, size_t) { *static_cast<int *>(context) = rmcpp_run_interleaved(1, record_index, nullptr, 1); }

TEST(InterleavedSessions, ANullJobAndACallFromInsideAJobAreRefused)
{
    testkit::clear_trace();
    EXPECT_EQ(rmcpp_run_interleaved(3, nullptr, nullptr, 0), RMCPP_ERR_INVALID);
    int nested = -1;
    EXPECT_EQ(rmcpp_run_interleaved(1, nested_call, &nested, 0), RMCPP_OK);
    EXPECT_EQ(nested, RMCPP_ERR_INVALID);
    EXPECT_EQ(testkit::log_lines(),
              (std::vector<std::string>{"Null input data.\n", "Interleaved jobs cannot start more interleaved jobs.\n"}));

    // The thread is free again afterwards.
    std::vector<size_t> seen;
    EXPECT_EQ(rmcpp_run_interleaved(2, record_index, &seen, 0), RMCPP_OK);
    EXPECT_EQ(seen, (std::vector<size_t>{0, 1}));
}

}  // namespace
