// One probe of a simulated BMC: its sensors as the tool's sensor list
// reads them, chassis power, SEL and device identity; an unreachable BMC
// costing no more than its deadline; a collector that fails going down
// alone; many probes at once.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "collectors.h"
#include "probe_testkit.h"
#include "sel_list.h"
#include "sensor_list.h"
#include "session.h"

namespace {

using namespace std::chrono_literals;
using exporter::Label;
using probetest::value;

constexpr const char *kBmc = "127.0.21.1";
constexpr const char *kBlackHole = "127.0.21.2";
constexpr const char *kNobody = "127.0.21.3";
constexpr const char *kFaultyBmc = "127.0.21.4";

// The options the tool would take for `rmcpp -H host -U admin -P secret -C 3`.
cli::Options tool_options(const std::string &host)
{
    cli::Options o;
    o.host = host;
    o.user = "admin";
    o.password = "secret";
    o.cipher_suite = 3;
    return o;
}

std::vector<rmcpp::commands::SensorListEntry> tool_sensor_list(const std::string &host)
{
    const cli::Options o = tool_options(host);
    cli::Session s(o);
    EXPECT_EQ(s.open(), 0);
    return rmcpp::commands::sensor_list(s, rmcpp::commands::SdrFilter::sensors);
}

// The SEL as the tool reads it. The simulator logs the threshold crossings
// it finds when the sensors are read, so it holds more than the platform's
// three entries once they have been.
rmcpp::commands::SelInfo tool_sel_info(const std::string &host)
{
    const cli::Options o = tool_options(host);
    cli::Session s(o);
    EXPECT_EQ(s.open(), 0);
    return rmcpp::commands::read_sel_info(s);
}

TEST(Probe, ReadsSensorsChassisSelAndDevice)
{
    bmcsim::Simulator sim(probetest::platform_config(kBmc));
    sim.start();
    exporter::Prober prober;
    const exporter::ProbeResult r = prober.probe(kBmc, probetest::admin_module(), probetest::in(10s));
    ASSERT_TRUE(r.up) << r.error;
    EXPECT_EQ(r.error, "");
    EXPECT_TRUE(r.collector_errors.empty());
    const auto &f = r.families;
    EXPECT_EQ(value(f, "ipmi_up"), 1);
    ASSERT_TRUE(value(f, "ipmi_scrape_duration_seconds"));
    EXPECT_GT(*value(f, "ipmi_scrape_duration_seconds"), 0);
    for (const char *c : {"sensors", "chassis", "sel", "device"})
        EXPECT_EQ(value(f, "ipmi_collector_up", {{"collector", c}}), 1) << c;

    // Every threshold sensor with a reading, valued as the tool's sensor
    // list decodes its record and reading.
    const auto list = tool_sensor_list(kBmc);
    size_t with_reading = 0;
    for (const auto &e : list) {
        if (!e.threshold_based || !e.reading) continue;
        ++with_reading;
        const std::string type = exporter::sensor_type_label(e.sensor_type);
        const auto v = value(f, "ipmi_sensor_value",
                             {{"name", e.name}, {"type", type}, {"unit", exporter::sensor_unit_label(e)}});
        ASSERT_TRUE(v) << e.name;
        EXPECT_DOUBLE_EQ(*v, *e.reading) << e.name;
        EXPECT_EQ(value(f, "ipmi_sensor_state", {{"name", e.name}, {"type", type}}),
                  exporter::sensor_state_value(e.threshold.severity))
            << e.name;
    }
    EXPECT_EQ(with_reading, 5u);
    ASSERT_TRUE(probetest::family(f, "ipmi_sensor_value"));
    EXPECT_EQ(probetest::family(f, "ipmi_sensor_value")->samples.size(), with_reading);
    EXPECT_EQ(probetest::family(f, "ipmi_sensor_state")->samples.size(), with_reading);

    // And as the platform file gives them.
    EXPECT_EQ(value(f, "ipmi_sensor_value", {{"name", "CPU Temp"}, {"type", "temperature"}, {"unit", "celsius"}}), 45);
    EXPECT_EQ(value(f, "ipmi_sensor_value", {{"name", "FAN1"}, {"type", "fan"}, {"unit", "rpm"}}), 3000);
    EXPECT_NEAR(*value(f, "ipmi_sensor_value", {{"name", "12V"}, {"type", "voltage"}, {"unit", "volts"}}), 12.06,
                1e-9);
    EXPECT_EQ(value(f, "ipmi_sensor_value", {{"name", "PSU1 Power"}, {"type", "power_supply"}, {"unit", "watts"}}),
              200);
    EXPECT_EQ(value(f, "ipmi_sensor_state", {{"name", "CPU Temp"}}), 0);
    EXPECT_EQ(value(f, "ipmi_sensor_state", {{"name", "Inlet Temp"}}), 1);
    EXPECT_EQ(value(f, "ipmi_sensor_state", {{"name", "PSU1 Power"}}), 2);
    EXPECT_FALSE(value(f, "ipmi_sensor_value", {{"name", "PSU1 Status"}}));

    EXPECT_EQ(value(f, "ipmi_chassis_power_state"), 1);
    const rmcpp::commands::SelInfo sel = tool_sel_info(kBmc);
    EXPECT_GE(sel.entries, 3);
    EXPECT_EQ(value(f, "ipmi_sel_entries"), sel.entries);
    EXPECT_EQ(value(f, "ipmi_sel_free_space_bytes"), (64 - sel.entries) * 16);
    EXPECT_EQ(value(f, "ipmi_bmc_info",
                    {{"firmware_revision", "2.15"},
                     {"ipmi_version", "2.0"},
                     {"manufacturer_id", "23130"},
                     {"product_id", "1"},
                     {"device_id", "32"}}),
              1);

    sim.modify([](bmcsim::Config &c) { c.chassis.power_on = false; });
    const exporter::ProbeResult off = prober.probe(kBmc, probetest::admin_module(), probetest::in(10s));
    ASSERT_TRUE(off.up) << off.error;
    EXPECT_EQ(value(off.families, "ipmi_chassis_power_state"), 0);
}

TEST(Probe, FamiliesCarryTheirHelpAndType)
{
    bmcsim::Simulator sim(probetest::platform_config(kBmc));
    sim.start();
    exporter::Prober prober;
    const exporter::ProbeResult r = prober.probe(kBmc, probetest::admin_module(), probetest::in(10s));
    ASSERT_TRUE(r.up) << r.error;
    for (const exporter::Family &f : r.families.all()) {
        EXPECT_EQ(f.type, exporter::MetricType::gauge) << f.name;
        EXPECT_FALSE(f.help.empty()) << f.name;
    }
    EXPECT_NE(probetest::family(r.families, "ipmi_sensor_state")->help.find(
                  "0 nominal, 1 non-critical, 2 critical, 3 non-recoverable"),
              std::string::npos);
    EXPECT_EQ(r.families.all().at(0).name, "ipmi_up");
    EXPECT_EQ(r.families.all().at(1).name, "ipmi_scrape_duration_seconds");
}

// A BMC that takes datagrams and never answers.
class BlackHole {
public:
    explicit BlackHole(const char *address)
    {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(623);
        ::inet_pton(AF_INET, address, &a.sin_addr);
        if (::bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) ADD_FAILURE() << "bind " << address;
    }
    ~BlackHole() { ::close(fd_); }

private:
    int fd_ = -1;
};

void expect_down_within(const std::string &target, exporter::Module m, std::chrono::milliseconds deadline)
{
    exporter::Prober prober;
    const auto start = exporter::Clock::now();
    const exporter::ProbeResult r = prober.probe(target, m, start + deadline);
    const auto took = exporter::Clock::now() - start;
    EXPECT_FALSE(r.up);
    EXPECT_LE(took, deadline + 300ms) << std::chrono::duration<double>(took).count() << " s";
    EXPECT_FALSE(r.error.empty());
    EXPECT_EQ(r.error.find("secret"), std::string::npos);
    ASSERT_EQ(r.families.all().size(), 2u);
    EXPECT_EQ(value(r.families, "ipmi_up"), 0);
    EXPECT_TRUE(value(r.families, "ipmi_scrape_duration_seconds"));
    EXPECT_EQ(prober.counters().sessions_open, 0u);
    EXPECT_EQ(prober.counters().session_setups, 0u);
}

TEST(Probe, SilentBmcCostsNoMoreThanItsDeadline)
{
    BlackHole hole(kBlackHole);
    exporter::Module m = probetest::admin_module();
    expect_down_within(kBlackHole, m, 2s);
    m.ping = false;
    expect_down_within(kBlackHole, m, 2s);
    expect_down_within(kBlackHole, m, 5500ms);
}

TEST(Probe, NothingListeningIsDown)
{
    expect_down_within(kNobody, probetest::admin_module(), 2s);
}

TEST(Probe, WrongPasswordIsDown)
{
    bmcsim::Simulator sim(probetest::platform_config(kBmc));
    sim.start();
    exporter::Module m = probetest::admin_module();
    m.password = "wrong-secret";
    expect_down_within(kBmc, m, 3s);
}

TEST(Probe, BadTargetIsDown)
{
    exporter::Prober prober;
    for (const char *target : {"", "127.0.21.1:", "127.0.21.1:0", "127.0.21.1:65536", "[::1", "[::1]x", "a b"}) {
        const exporter::ProbeResult r = prober.probe(target, probetest::admin_module(), probetest::in(2s));
        EXPECT_FALSE(r.up) << target;
        EXPECT_FALSE(r.error.empty()) << target;
    }
}

TEST(Probe, FailingCollectorIsDownAlone)
{
    bmcsim::Config c = probetest::platform_config(kFaultyBmc);
    // The first answer of the session, Get Chassis Status's, is refused.
    c.session.fault = bmcsim::SessionFault::CompletionCode;
    c.session.value = 0xC1;
    c.session.reply.faulty_answers = 1;
    bmcsim::Simulator sim(c);
    sim.start();
    exporter::Module m = probetest::admin_module();
    m.collectors = {"chassis", "sensors", "sel", "device"};
    exporter::Prober prober;
    const exporter::ProbeResult r = prober.probe(kFaultyBmc, m, probetest::in(10s));
    ASSERT_TRUE(r.up) << r.error;
    EXPECT_EQ(value(r.families, "ipmi_collector_up", {{"collector", "chassis"}}), 0);
    EXPECT_FALSE(probetest::family(r.families, "ipmi_chassis_power_state"));
    ASSERT_EQ(r.collector_errors.size(), 1u);
    EXPECT_NE(r.collector_errors.at("chassis").find("Get Chassis Status"), std::string::npos)
        << r.collector_errors.at("chassis");
    for (const char *name : {"sensors", "sel", "device"})
        EXPECT_EQ(value(r.families, "ipmi_collector_up", {{"collector", name}}), 1) << name;
    EXPECT_EQ(value(r.families, "ipmi_sensor_value", {{"name", "CPU Temp"}}), 45);
    EXPECT_EQ(value(r.families, "ipmi_sel_entries"), tool_sel_info(kFaultyBmc).entries);
    EXPECT_TRUE(value(r.families, "ipmi_bmc_info"));
    // A refusal is the BMC's answer, not a failed session: it is kept.
    EXPECT_EQ(prober.counters().session_setups, 1u);
    EXPECT_EQ(prober.counters().sessions_open, 1u);
}

TEST(Probe, SensorsOfOneNameAreToldApartByNumber)
{
    bmcsim::Config c = probetest::platform_config(kBmc);
    bmcsim::SimSensor twin = c.sensors.front();  // "CPU Temp", 01h, 45 degrees C
    twin.number = 0x0A;
    twin.reading.value = 50;
    c.sensors.push_back(twin);
    bmcsim::Simulator sim(c);
    sim.start();
    exporter::Prober prober;
    const exporter::ProbeResult r = prober.probe(kBmc, probetest::admin_module(), probetest::in(10s));
    ASSERT_TRUE(r.up) << r.error;
    EXPECT_EQ(value(r.families, "ipmi_sensor_value", {{"name", "CPU Temp"}}), 45);
    EXPECT_EQ(value(r.families, "ipmi_sensor_value", {{"name", "CPU Temp (0Ah)"}}), 50);
    EXPECT_EQ(value(r.families, "ipmi_sensor_state", {{"name", "CPU Temp (0Ah)"}}), 0);
}

TEST(Probe, ManyProbesAtOnce)
{
    constexpr int kTargets = 8, kProbes = 32;
    bmcsim::Config c = probetest::platform_config("127.0.21.20");
    for (int i = 1; i < kTargets; ++i) c.extra_addresses.push_back("127.0.21." + std::to_string(20 + i));
    c.server_threads = 2;
    bmcsim::Simulator sim(c);
    sim.start();
    exporter::Prober prober;
    std::vector<exporter::ProbeResult> results(kProbes);
    std::vector<std::thread> threads;
    for (int i = 0; i < kProbes; ++i)
        threads.emplace_back([&, i] {
            results[i] = prober.probe("127.0.21." + std::to_string(20 + i % kTargets), probetest::admin_module(),
                                      probetest::in(60s));
        });
    for (auto &t : threads) t.join();
    for (int i = 0; i < kProbes; ++i) {
        ASSERT_TRUE(results[i].up) << i << ": " << results[i].error;
        EXPECT_EQ(value(results[i].families, "ipmi_sensor_value", {{"name", "FAN1"}}), 3000) << i;
        EXPECT_GE(value(results[i].families, "ipmi_sel_entries"), 3) << i;
    }
    // Probes of one target take its session in turn: one session each.
    EXPECT_EQ(prober.counters().session_setups, size_t(kTargets));
    EXPECT_EQ(prober.counters().sessions_open, size_t(kTargets));
    EXPECT_EQ(prober.counters().sdr_reads + prober.counters().sdr_cache_hits, size_t(kProbes));
    prober.close_all();
    EXPECT_EQ(prober.counters().sessions_open, 0u);
    EXPECT_EQ(sim.stats().sessions_closed, size_t(kTargets));
}

}  // namespace
