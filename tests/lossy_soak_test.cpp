// Sessions over a bad network: 48 workers, each with its own session and its
// own lossy relay (127.0.0.200 + worker, port 623) in front of one BMC
// simulator (127.0.0.191). Each relay drops, duplicates, reorders and
// corrupts 10 % of the datagrams each, both ways, session set-up and Close
// Session included. Over 2,000 exchanges on sessions of cipher suites 0 to
// 3, every call must end either in success with exactly the expected
// response (or session) or in an error code: a wrong answer is never taken.
// The relay seed is printed; RMCPP_LOSSY_SEED=N repeats its choices.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"
#include "lossy_relay.h"
#include "packet_testkit.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "trace_capture.h"

namespace {

using namespace packettest;

constexpr uint8_t kSim = 191;
constexpr uint8_t kFirstRelay = 200;
constexpr int kWorkers = 48;
constexpr int kExchanges = 2000;
constexpr int kPerSession = 30;
constexpr int kSetupsPerWorker = 40;  // a worker that cannot get a session gives up
constexpr uint16_t kFirstLocalPort = 20000;
constexpr double kRate = 0.10;

// Each datagram gets through intact with probability 0.7 (dropped,
// corrupted or held past the one-second wait 0.1 each; a duplicate does no
// harm). One attempt needs its request and its response: 0.7^2 = 0.49. With
// three attempts an exchange succeeds with at least 1 - 0.51^3 = 0.867.
// Over 2,000 exchanges the sampling spread is under 0.01, so a correct
// library lands far above this floor; the stale datagrams that reordering
// and duplication leave behind cost a little more, never this much.
constexpr double kSuccessFloor = 0.70;

struct Tally {
    std::map<int, int> exchange_results, setup_results, close_results;
    int exchanges = 0;
    int exact = 0;
    std::map<int, std::pair<int, int>> by_suite;  // cipher suite: exchanges, exact responses
    std::vector<std::string> wrong;  // calls that returned 0 with the wrong answer or session

    void add(const Tally &o)
    {
        for (const auto &[code, n] : o.exchange_results) exchange_results[code] += n;
        for (const auto &[code, n] : o.setup_results) setup_results[code] += n;
        for (const auto &[code, n] : o.close_results) close_results[code] += n;
        exchanges += o.exchanges;
        exact += o.exact;
        for (const auto &[suite, n] : o.by_suite) {
            by_suite[suite].first += n.first;
            by_suite[suite].second += n.second;
        }
        wrong.insert(wrong.end(), o.wrong.begin(), o.wrong.end());
    }
};

std::string results_text(const std::map<int, int> &results)
{
    std::string s;
    for (const auto &[code, n] : results) s += " " + std::to_string(code) + ": " + std::to_string(n) + ";";
    return s;
}

class Soak {
public:
    explicit Soak(bmcsim::Simulator &sim) : sim_(sim) {}

    void run_worker(int worker, Tally &t)
    {
        for (int setups = 0; setups < kSetupsPerWorker && remaining_.load() > 0; ++setups) {
            const int suite = (worker + setups) % 4;
            IPMI_SessionParam param =
                testkit::simulator_login(static_cast<uint8_t>(kFirstRelay + worker), suite, 3, 1);
            param.local_port = static_cast<uint16_t>(kFirstLocalPort + worker);
            const int setup = IPMI_SetupSession(&param);
            ++t.setup_results[setup];
            if (setup != 0) continue;
            if (!session_matches_simulator(param, suite))
                t.wrong.push_back("worker " + std::to_string(worker) + ": session set up with wrong values, suite " +
                                  std::to_string(suite));
            run_exchanges(worker, suite, param, t);
            if (param.session != nullptr) ++t.close_results[IPMI_CloseSession(&param)];
        }
    }

private:
    void run_exchanges(int worker, int suite, IPMI_SessionParam &param, Tally &t)
    {
        for (int i = 0; i < kPerSession && remaining_.fetch_sub(1) > 0; ++i) {
            const Bytes request = request_of(0x06, 0x01, static_cast<uint8_t>(t.exchanges & 0x3F));
            Bytes response(128);
            uint32_t length = 0;
            uint32_t released = 0;
            const int r = IPMI_Message_IF(&param, request.data(), static_cast<uint32_t>(request.size()),
                                          response.data(), static_cast<uint32_t>(response.size()), &length, 0,
                                          &released, 3, 1);
            ++t.exchanges;
            ++t.exchange_results[r];
            ++t.by_suite[suite].first;
            if (r == 0) {
                response.resize(length);
                if (response == response_to(request, 0x00, kSimulatorDeviceId)) {
                    ++t.exact;
                    ++t.by_suite[suite].second;
                } else {
                    t.wrong.push_back("worker " + std::to_string(worker) + ": exchange " +
                                      std::to_string(t.exchanges) + " accepted a wrong response");
                }
            }
            if (released) return;
        }
    }

    // The simulator holds an active session with the same IDs and keys.
    bool session_matches_simulator(const IPMI_SessionParam &param, int suite)
    {
        if (param.granted_privilege != 4) return false;
        const RMCPp_Session &s = *param.session;
        std::vector<bmcsim::SessionInfo> sessions;
        {
            // One copy of the statistics at a time keeps the memory down.
            const std::lock_guard<std::mutex> hold(stats_lock_);
            sessions = sim_.stats().sessions;
        }
        const auto it = std::find_if(sessions.begin(), sessions.end(),
                                     [&](const bmcsim::SessionInfo &i) { return i.bmc_id == s.bmc_session_id; });
        if (it == sessions.end() || !it->active || it->console_id != s.console_session_id) return false;
        if (suite >= 1 && !std::equal(it->sik.begin(), it->sik.end(), s.sik)) return false;
        if (suite == 3 && !std::equal(it->k2.begin(), it->k2.end(), s.cipher_key)) return false;
        return true;
    }

    bmcsim::Simulator &sim_;
    std::mutex stats_lock_;
    std::atomic<int> remaining_{kExchanges};
};

TEST(LossySoak, TwoThousandExchangesNeverAcceptAWrongAnswer)
{
    const uint64_t seed = testkit::lossy_seed();
    std::printf("lossy relay seed %llu (RMCPP_LOSSY_SEED=%llu repeats the relays' choices)\n",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(seed));

    bmcsim::Config c;
    c.address = testkit::loopback_text(kSim);
    c.users = {{"admin", "secret", 4, true}};
    // Sessions whose Close Session was lost stay open in the simulator.
    c.max_sessions = 1000;
    bmcsim::Simulator sim(c);
    sim.start();
    // The library's complaints about every damaged datagram go to the
    // capturing trace sink, not to the test's output.
    testkit::clear_trace();

    std::vector<std::unique_ptr<testkit::LossyRelay>> relays;
    for (int w = 0; w < kWorkers; ++w)
        relays.push_back(std::make_unique<testkit::LossyRelay>(
            testkit::loopback(static_cast<uint8_t>(kFirstRelay + w)), 623, testkit::loopback(kSim), 623,
            seed + static_cast<uint64_t>(w), kRate));

    Soak soak(sim);
    std::vector<Tally> tallies(kWorkers);
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) workers.emplace_back([&, w] { soak.run_worker(w, tallies[w]); });
    for (auto &t : workers) t.join();

    Tally all;
    for (const auto &t : tallies) all.add(t);
    testkit::RelayCounts counts;
    for (const auto &r : relays) counts += r->counts();
    relays.clear();
    sim.stop();

    const double ratio = all.exchanges ? static_cast<double>(all.exact) / all.exchanges : 0.0;
    std::printf("exchanges %d, exact responses %d, success ratio %.3f (floor %.2f)\n", all.exchanges, all.exact,
                ratio, kSuccessFloor);
    std::printf("exchange results:%s\n", results_text(all.exchange_results).c_str());
    for (const auto &[suite, n] : all.by_suite)
        std::printf("  cipher suite %d: %d exchanges, %d exact responses\n", suite, n.first, n.second);
    std::printf("set-up results:%s\n", results_text(all.setup_results).c_str());
    std::printf("close results:%s\n", results_text(all.close_results).c_str());
    std::printf("relays: %llu datagrams; passed %llu, dropped %llu, duplicated %llu, reordered %llu, corrupted %llu\n",
                static_cast<unsigned long long>(counts.received), static_cast<unsigned long long>(counts.passed),
                static_cast<unsigned long long>(counts.dropped), static_cast<unsigned long long>(counts.duplicated),
                static_cast<unsigned long long>(counts.reordered), static_cast<unsigned long long>(counts.corrupted));

    for (const auto &w : all.wrong) ADD_FAILURE() << w;
    EXPECT_TRUE(all.wrong.empty());
    EXPECT_EQ(all.exchanges, kExchanges);
    EXPECT_GE(ratio, kSuccessFloor);

    // The relays did what they were set to: each mishap near 10 % of the
    // datagrams (thousands of them, so well inside 7 to 13 %).
    ASSERT_GT(counts.received, 5000u);
    for (uint64_t n : {counts.dropped, counts.duplicated, counts.reordered, counts.corrupted}) {
        EXPECT_GT(n, counts.received * 7 / 100);
        EXPECT_LT(n, counts.received * 13 / 100);
    }
}

}  // namespace
