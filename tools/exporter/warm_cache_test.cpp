// Sessions and SDR repositories kept warm between probes: the second probe
// of a BMC sets up no session and reads no SDR, only asks Get SDR
// Repository Info; a repository that changed is read again; a session the
// BMC dropped is set up again within one probe; idle sessions are closed,
// and all of them at the end.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "probe_testkit.h"
#include "sdr_repository.h"

namespace {

using namespace std::chrono_literals;
using bmcsim::Kind;
using probetest::received;
using probetest::requests;
using probetest::value;

constexpr uint8_t kStorage = rmcpp::commands::sdr_storage_netfn;
constexpr uint8_t kGetSdr = rmcpp::commands::get_sdr_cmd;
constexpr uint8_t kGetSdrRepositoryInfo = rmcpp::commands::get_sdr_repository_info_cmd;

size_t setup_datagrams(const bmcsim::Stats &s, size_t from)
{
    return received(s, from, Kind::Ping) + received(s, from, Kind::Capabilities) +
           received(s, from, Kind::OpenSession) + received(s, from, Kind::Rakp1) + received(s, from, Kind::Rakp3);
}

bool eventually(const std::function<bool()> &what, std::chrono::milliseconds within)
{
    const auto end = exporter::Clock::now() + within;
    while (!what()) {
        if (exporter::Clock::now() > end) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

TEST(WarmCache, SecondProbeSetsUpNoSessionAndReadsNoSdr)
{
    constexpr const char *kBmc = "127.0.21.10";
    bmcsim::Simulator sim(probetest::platform_config(kBmc));
    sim.start();
    exporter::Prober prober;
    const exporter::Module m = probetest::admin_module();

    const auto first = prober.probe(kBmc, m, probetest::in(10s));
    ASSERT_TRUE(first.up) << first.error;
    bmcsim::Stats s = sim.stats();
    EXPECT_EQ(received(s, 0, Kind::OpenSession), 1u);
    EXPECT_EQ(received(s, 0, Kind::Rakp1), 1u);
    EXPECT_GT(requests(s, 0, kStorage, kGetSdr), 0u);
    const size_t after_first = s.datagrams.size();

    const auto second = prober.probe(kBmc, m, probetest::in(10s));
    ASSERT_TRUE(second.up) << second.error;
    s = sim.stats();
    EXPECT_EQ(setup_datagrams(s, after_first), 0u);
    EXPECT_EQ(requests(s, after_first, kStorage, kGetSdr), 0u);
    EXPECT_EQ(requests(s, after_first, kStorage, kGetSdrRepositoryInfo), 1u);
    EXPECT_EQ(value(second.families, "ipmi_sensor_value", {{"name", "FAN1"}}), 3000);
    EXPECT_EQ(value(second.families, "ipmi_sensor_value", {{"name", "CPU Temp"}}), 45);
    auto c = prober.counters();
    EXPECT_EQ(c.session_setups, 1u);
    EXPECT_EQ(c.sessions_open, 1u);
    EXPECT_EQ(c.sdr_reads, 1u);
    EXPECT_EQ(c.sdr_cache_hits, 1u);

    // FAN1's record goes: the erase timestamp moves, the repository is read
    // again, still over the same session.
    sim.modify([](bmcsim::Config &config) {
        std::erase_if(config.sensors, [](const bmcsim::SimSensor &x) { return x.name == "FAN1"; });
    });
    const size_t after_second = sim.stats().datagrams.size();
    const auto third = prober.probe(kBmc, m, probetest::in(10s));
    ASSERT_TRUE(third.up) << third.error;
    s = sim.stats();
    EXPECT_EQ(setup_datagrams(s, after_second), 0u);
    // The check, then the read, which starts with one of its own.
    EXPECT_EQ(requests(s, after_second, kStorage, kGetSdrRepositoryInfo), 2u);
    EXPECT_GT(requests(s, after_second, kStorage, kGetSdr), 0u);
    EXPECT_FALSE(value(third.families, "ipmi_sensor_value", {{"name", "FAN1"}}));
    EXPECT_EQ(value(third.families, "ipmi_sensor_value", {{"name", "CPU Temp"}}), 45);
    c = prober.counters();
    EXPECT_EQ(c.session_setups, 1u);
    EXPECT_EQ(c.sdr_reads, 2u);

    // And then it is warm again.
    const size_t after_third = sim.stats().datagrams.size();
    ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
    s = sim.stats();
    EXPECT_EQ(requests(s, after_third, kStorage, kGetSdr), 0u);
    EXPECT_EQ(prober.counters().sdr_cache_hits, 2u);
}

TEST(WarmCache, SessionTheBmcDroppedIsSetUpAgainWithinOneProbe)
{
    constexpr const char *kBmc = "127.0.21.11";
    auto sim = std::make_unique<bmcsim::Simulator>(probetest::platform_config(kBmc));
    sim->start();
    exporter::Prober prober;
    const exporter::Module m = probetest::admin_module();
    ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
    EXPECT_EQ(prober.counters().session_setups, 1u);

    // The BMC restarts: it knows the kept session no more.
    sim.reset();
    sim = std::make_unique<bmcsim::Simulator>(probetest::platform_config(kBmc));
    sim->start();
    const auto r = prober.probe(kBmc, m, probetest::in(10s));
    ASSERT_TRUE(r.up) << r.error;
    for (const char *name : {"sensors", "chassis", "sel", "device"})
        EXPECT_EQ(value(r.families, "ipmi_collector_up", {{"collector", name}}), 1) << name;
    EXPECT_EQ(value(r.families, "ipmi_sensor_value", {{"name", "FAN1"}}), 3000);
    EXPECT_EQ(sim->stats().sessions_established, 1u);
    EXPECT_EQ(prober.counters().session_setups, 2u);
    // The dropped session is let go (its Close Session goes unanswered).
    EXPECT_TRUE(eventually([&] { return prober.counters().sessions_open == 1; }, 5s));

    // The new session is kept in turn.
    const size_t mark = sim->stats().datagrams.size();
    ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
    EXPECT_EQ(setup_datagrams(sim->stats(), mark), 0u);
}

TEST(WarmCache, IdleSessionsAreClosedAndAllAtTheEnd)
{
    constexpr const char *kBmc = "127.0.21.12";
    bmcsim::Simulator sim(probetest::platform_config(kBmc));
    sim.start();
    const exporter::Module m = probetest::admin_module();
    exporter::Module other = m;
    other.name = "other";
    other.collectors = {"device"};
    {
        exporter::Prober prober(500ms);
        ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
        ASSERT_TRUE(prober.probe(kBmc, other, probetest::in(10s)).up);
        EXPECT_EQ(prober.counters().sessions_open, 2u);
        EXPECT_EQ(sim.stats().sessions_established, 2u);

        prober.close_idle(exporter::Clock::now());
        EXPECT_EQ(sim.stats().sessions_closed, 0u);
        EXPECT_EQ(prober.counters().sessions_open, 2u);

        // "other" idles past the limit while "default" is used again.
        std::this_thread::sleep_for(600ms);
        ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
        prober.close_idle(exporter::Clock::now());
        EXPECT_EQ(sim.stats().sessions_closed, 1u);
        EXPECT_EQ(prober.counters().sessions_open, 1u);

        // The next probe of "other" sets a session up again.
        ASSERT_TRUE(prober.probe(kBmc, other, probetest::in(10s)).up);
        EXPECT_EQ(prober.counters().session_setups, 3u);
        EXPECT_EQ(prober.counters().sessions_open, 2u);

        prober.close_all();
        EXPECT_EQ(sim.stats().sessions_closed, 3u);
        EXPECT_EQ(prober.counters().sessions_open, 0u);

        ASSERT_TRUE(prober.probe(kBmc, m, probetest::in(10s)).up);
        EXPECT_EQ(prober.counters().sessions_open, 1u);
    }
    // The prober's end closes what it still held.
    EXPECT_EQ(sim.stats().sessions_closed, 4u);
}

TEST(WarmCache, ProbesOfOneTargetAndModuleTakeItsSessionInTurn)
{
    constexpr const char *kBmc = "127.0.21.13";
    bmcsim::Config config = probetest::platform_config(kBmc);
    config.session.reply.delay_ms = 100;  // every answer of the session
    bmcsim::Simulator sim(config);
    sim.start();
    exporter::Prober prober;
    const exporter::Module m = probetest::admin_module();

    auto slow = std::async(std::launch::async, [&] { return prober.probe(kBmc, m, probetest::in(20s)); });
    ASSERT_TRUE(sim.wait_for(Kind::SessionPacket, 1, 5s));
    // This one waits for the first to finish and takes its session.
    const auto second = prober.probe(kBmc, m, probetest::in(20s));
    ASSERT_TRUE(slow.get().up);
    ASSERT_TRUE(second.up) << second.error;
    EXPECT_EQ(prober.counters().session_setups, 1u);
    EXPECT_EQ(sim.stats().sessions_established, 1u);

    // One whose deadline comes first gives up waiting, by its deadline.
    auto again = std::async(std::launch::async, [&] { return prober.probe(kBmc, m, probetest::in(20s)); });
    const size_t packets = sim.stats().count(Kind::SessionPacket);
    ASSERT_TRUE(sim.wait_for(Kind::SessionPacket, packets + 1, 5s));
    const auto start = exporter::Clock::now();
    const auto impatient = prober.probe(kBmc, m, start + 200ms);
    EXPECT_LE(exporter::Clock::now() - start, 200ms + 100ms);
    EXPECT_FALSE(impatient.up);
    EXPECT_FALSE(impatient.error.empty());
    ASSERT_TRUE(again.get().up);
}

}  // namespace
