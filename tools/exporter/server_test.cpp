// The exporter's HTTP side in-process: the server on 127.0.20.1 (a free TCP
// port), a simulated BMC on 127.0.20.2, nothing at all on 127.0.20.3.
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "bmcsim.h"
#include "config.h"
#include "platform_file.h"
#include "probe.h"
#include "server.h"

namespace {

using namespace std::chrono_literals;
using exporter::Clock;

constexpr const char *kServerHost = "127.0.20.1";
constexpr const char *kBmc = "127.0.20.2";
constexpr const char *kNobody = "127.0.20.3";
constexpr const char *kPassword = "Qz9-secret-pw";

// Readings that the sensors' conversion formulas give exactly.
constexpr const char *kPlatform = R"(
sensors:
  - name: Inlet Temp
    number: 0x02
    type: Temperature
    unit: degrees C
    thresholds: {lcr: -5, lnc: 0, unc: 40, ucr: 45}
    reading: 24
  - name: FAN1
    number: 0x10
    type: Fan
    unit: RPM
    m: 60
    thresholds: {lcr: 600, lnc: 900}
    reading: 3000
  - name: Board "A" Temp
    number: 0x03
    type: Temperature
    unit: degrees C
    thresholds: {unc: 40, ucr: 45}
    reading: 42
)";

exporter::Config test_config()
{
    std::string text = std::string("modules:\n"
                                   "  default:\n"
                                   "    user: admin\n"
                                   "    password: ") +
                       kPassword +
                       "\n"
                       "    timeout_ms: 30000\n"
                       "  chassis_only:\n"
                       "    user: admin\n"
                       "    password: " +
                       kPassword +
                       "\n"
                       "    cipher_suite: 17\n"
                       "    collectors: [chassis]\n";
    return exporter::parse_config(text, "");
}

// The exporter's server on its own thread for the length of a test.
class RunningServer {
public:
    explicit RunningServer(exporter::ServerOptions options = {})
        : server(test_config(), prober, options)
    {
        port = server.bind({kServerHost, 0});
        thread = std::thread([this] { server.run(); });
    }
    ~RunningServer()
    {
        server.stop();
        thread.join();
    }
    httplib::Client client() const
    {
        httplib::Client c(kServerHost, port);
        c.set_read_timeout(60, 0);
        return c;
    }

    exporter::Prober prober;
    exporter::Server server;
    int port = 0;
    std::thread thread;
};

bmcsim::Config simulator_config()
{
    bmcsim::Config c;
    c.address = kBmc;
    c.users = {{"admin", kPassword, 4, true}};
    bmcsim::load_platform_text(kPlatform, "server_test platform", c);
    return c;
}

// The value of the first sample line that starts with `prefix`.
std::optional<double> sample(const std::string &body, const std::string &prefix)
{
    std::istringstream in(body);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(prefix, 0) == 0) {
            auto space = line.rfind(' ');
            return std::stod(line.substr(space + 1));
        }
    }
    return std::nullopt;
}

// Everything written to stderr while it lives.
class StderrCapture {
public:
    StderrCapture()
    {
        std::fflush(stderr);
        saved_ = dup(2);
        file_ = std::tmpfile();
        dup2(fileno(file_), 2);
    }
    ~StderrCapture() { restore(); }
    std::string text()
    {
        restore();
        std::rewind(file_);
        std::string out;
        char buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, file_)) > 0)
            out.append(buffer, n);
        return out;
    }

private:
    void restore()
    {
        if (saved_ >= 0) {
            std::fflush(stderr);
            dup2(saved_, 2);
            close(saved_);
            saved_ = -1;
        }
    }
    int saved_ = -1;
    std::FILE *file_ = nullptr;
};

TEST(ExporterServer, ListenAddresses)
{
    auto a = exporter::parse_listen_address(":9623");
    EXPECT_EQ(a.host, "");
    EXPECT_EQ(a.port, 9623);
    a = exporter::parse_listen_address("127.0.20.1:80");
    EXPECT_EQ(a.host, "127.0.20.1");
    EXPECT_EQ(a.port, 80);
    a = exporter::parse_listen_address("[::1]:9623");
    EXPECT_EQ(a.host, "::1");
    EXPECT_EQ(a.port, 9623);
    a = exporter::parse_listen_address("localhost:0");
    EXPECT_EQ(a.host, "localhost");
    EXPECT_EQ(a.port, 0);
    for (const char *bad : {"", "9623", "host:", "host:65536", "host:-1", "host:9x", "::1:9623", "[::1]", "[::1]9623",
                            "[]:80"})
        EXPECT_THROW(exporter::parse_listen_address(bad), std::invalid_argument) << bad;
}

TEST(ExporterServer, Durations)
{
    EXPECT_EQ(exporter::parse_duration("5m"), 5min);
    EXPECT_EQ(exporter::parse_duration("30s"), 30s);
    EXPECT_EQ(exporter::parse_duration("1h30m"), 90min);
    EXPECT_EQ(exporter::parse_duration("250ms"), 250ms);
    EXPECT_EQ(exporter::parse_duration("2d"), 48h);
    for (const char *bad : {"", "5", "m", "5x", "1.5m", "-5m", "5m "})
        EXPECT_THROW(exporter::parse_duration(bad), std::invalid_argument) << bad;
}

TEST(ExporterServer, ProbeTimeoutFromTheScrapeTimeoutHeader)
{
    std::string h = "10";
    EXPECT_EQ(exporter::probe_timeout(&h, 0.5, 5000), 9500ms);
    h = "2.5";
    EXPECT_EQ(exporter::probe_timeout(&h, 0.5, 5000), 2000ms);
    h = "0.3";  // no larger than the offset: taken as it is
    EXPECT_EQ(exporter::probe_timeout(&h, 0.5, 5000), 300ms);
    EXPECT_EQ(exporter::probe_timeout(nullptr, 0.5, 5000), 5000ms);
    for (const char *bad : {"", "abc", "-1", "0", "nan", "inf", "10s"}) {
        h = bad;
        EXPECT_EQ(exporter::probe_timeout(&h, 0.5, 7000), 7000ms) << bad;
    }
}

TEST(ExporterServer, IndexPageListsModulesAndLinksButNoSecrets)
{
    RunningServer s;
    auto res = s.client().Get("/");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(res->body.find("href=\"metrics\""), std::string::npos);
    EXPECT_NE(res->body.find("href=\"probe?target="), std::string::npos);
    EXPECT_NE(res->body.find("<td>default</td><td>sensors, chassis, sel, device</td>"), std::string::npos);
    EXPECT_NE(res->body.find("<td>chassis_only</td><td>chassis</td>"), std::string::npos);
    EXPECT_EQ(res->body.find(kPassword), std::string::npos);
}

TEST(ExporterServer, OwnMetricsBeforeAnyProbe)
{
    RunningServer s;
    auto res = s.client().Get("/metrics");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->get_header_value("Content-Type"), exporter::kContentType);
    const std::string &b = res->body;
    for (const char *type_line : {"# TYPE rmcpp_exporter_probes_total counter",
                                  "# TYPE rmcpp_exporter_probe_errors_total counter",
                                  "# TYPE rmcpp_exporter_sessions_open gauge",
                                  "# TYPE rmcpp_exporter_session_setups_total counter",
                                  "# TYPE rmcpp_exporter_sdr_reads_total counter",
                                  "# TYPE rmcpp_exporter_probe_duration_seconds histogram"})
        EXPECT_NE(b.find(std::string(type_line) + "\n"), std::string::npos) << type_line;
    EXPECT_EQ(sample(b, "rmcpp_exporter_probes_total{module=\"default\"} "), 0);
    EXPECT_EQ(sample(b, "rmcpp_exporter_probes_total{module=\"chassis_only\"} "), 0);
    EXPECT_EQ(sample(b, "rmcpp_exporter_sessions_open "), 0);
    EXPECT_EQ(sample(b, "rmcpp_exporter_probe_duration_seconds_bucket{module=\"default\",le=\"+Inf\"} "), 0);
    EXPECT_EQ(b.find(kPassword), std::string::npos);
}

TEST(ExporterServer, ProbeWithoutTargetIs400)
{
    RunningServer s;
    auto res = s.client().Get("/probe");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    EXPECT_NE(res->body.find("target parameter is missing"), std::string::npos) << res->body;
    res = s.client().Get("/probe?target=");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    res = s.client().Get("/probe?target=a%0Ab");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
}

TEST(ExporterServer, ProbeWithUnknownModuleIs400)
{
    RunningServer s;
    auto res = s.client().Get("/probe?target=127.0.20.2&module=nope");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    EXPECT_EQ(res->body, "unknown module \"nope\"\n");
    // Neither counted as a probe.
    res = s.client().Get("/metrics");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body.find("module=\"nope\""), std::string::npos);
}

TEST(ExporterServer, OtherPathsAre404)
{
    RunningServer s;
    for (const char *path : {"/probe/x", "/favicon.ico", "/metricsx", "/index.html"}) {
        auto res = s.client().Get(path);
        ASSERT_TRUE(res) << path;
        EXPECT_EQ(res->status, 404) << path;
    }
}

TEST(ExporterServer, ProbeReadsTheSimulatedBmc)
{
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    RunningServer s;
    auto res = s.client().Get(std::string("/probe?target=") + kBmc);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->get_header_value("Content-Type"), exporter::kContentType);
    const std::string &b = res->body;
    EXPECT_EQ(sample(b, "ipmi_up "), 1) << b;
    EXPECT_EQ(sample(b, "ipmi_sensor_value{name=\"Inlet Temp\","), 24) << b;
    EXPECT_EQ(sample(b, "ipmi_sensor_value{name=\"FAN1\","), 3000) << b;
    EXPECT_EQ(sample(b, "ipmi_sensor_value{name=\"Board \\\"A\\\" Temp\","), 42) << b;
    EXPECT_NE(b.find("# TYPE ipmi_sensor_value gauge\n"), std::string::npos);
    EXPECT_NE(b.find("unit=\"celsius\""), std::string::npos);
    EXPECT_NE(b.find("unit=\"rpm\""), std::string::npos);
    EXPECT_EQ(b.find(kPassword), std::string::npos);

    res = s.client().Get("/metrics");
    ASSERT_TRUE(res);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probes_total{module=\"default\"} "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probe_errors_total{module=\"default\"} "), 0);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_sessions_open "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_session_setups_total "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_sdr_reads_total "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probe_duration_seconds_count{module=\"default\"} "), 1);
}

TEST(ExporterServer, SecondScrapeKeepsTheSessionAndTheRepository)
{
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    RunningServer s;
    for (int i = 0; i < 2; ++i) {
        auto res = s.client().Get("/probe?target=127.0.20.2&module=default");
        ASSERT_TRUE(res);
        EXPECT_EQ(sample(res->body, "ipmi_up "), 1) << res->body;
    }
    EXPECT_EQ(sim.stats().count(bmcsim::Kind::OpenSession), 1u);
    EXPECT_EQ(sim.stats().count(bmcsim::Kind::Rakp1), 1u);
    auto res = s.client().Get("/metrics");
    ASSERT_TRUE(res);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probes_total{module=\"default\"} "), 2);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_session_setups_total "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_sdr_reads_total "), 1);
}

TEST(ExporterServer, ModulesChooseTheirCollectors)
{
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    RunningServer s;
    auto res = s.client().Get("/probe?target=127.0.20.2&module=chassis_only");
    ASSERT_TRUE(res);
    EXPECT_EQ(sample(res->body, "ipmi_up "), 1) << res->body;
    EXPECT_TRUE(sample(res->body, "ipmi_chassis_power_state "));
    EXPECT_FALSE(sample(res->body, "ipmi_sensor_value{")) << res->body;
}

TEST(ExporterServer, UnreachableTargetAnswersDownWithinTheScrapeTimeout)
{
    RunningServer s;
    StderrCapture captured;
    httplib::Headers headers{{"X-Prometheus-Scrape-Timeout-Seconds", "3"}};
    auto start = Clock::now();
    // The module allows 30 s; the header allows 3 s less the 0.5 s offset.
    auto res = s.client().Get(std::string("/probe?target=") + kNobody + "&module=default", headers);
    auto elapsed = Clock::now() - start;
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(sample(res->body, "ipmi_up "), 0) << res->body;
    EXPECT_LT(elapsed, 3s);
    std::string log = captured.text();
    EXPECT_NE(log.find("127.0.20.3"), std::string::npos) << log;
    EXPECT_NE(log.find("module default"), std::string::npos) << log;
    EXPECT_EQ(log.find(kPassword), std::string::npos) << log;

    res = s.client().Get("/metrics");
    ASSERT_TRUE(res);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probes_total{module=\"default\"} "), 1);
    EXPECT_EQ(sample(res->body, "rmcpp_exporter_probe_errors_total{module=\"default\"} "), 1);
}

TEST(ExporterServer, SilentBmcAnswersDownBeforePrometheusGivesUp)
{
    bmcsim::Config c = simulator_config();
    c.capabilities.reply.silent = true;
    bmcsim::Simulator sim(c);
    sim.start();
    RunningServer s;
    // The module would allow 30 s; Prometheus waits 1.6 s, so the probe
    // gets 1.1 s and its answer must come within the 1.6.
    httplib::Headers headers{{"X-Prometheus-Scrape-Timeout-Seconds", "1.6"}};
    auto start = Clock::now();
    auto res = s.client().Get("/probe?target=127.0.20.2", headers);
    auto elapsed = Clock::now() - start;
    ASSERT_TRUE(res);
    EXPECT_EQ(sample(res->body, "ipmi_up "), 0) << res->body;
    EXPECT_LT(elapsed, 1600ms);
    EXPECT_GE(sim.stats().count(bmcsim::Kind::Capabilities), 1u);
}

TEST(ExporterServer, AProbeWaitingForAWorkerStillAnswersBeforePrometheusGivesUp)
{
    bmcsim::Config c = simulator_config();
    c.capabilities.reply.silent = true;
    bmcsim::Simulator sim(c);
    sim.start();
    exporter::ServerOptions one_worker;
    one_worker.max_requests = 1;
    RunningServer s(one_worker);
    // Two scrapes at once with one worker: the second waits for the first
    // (about 1 s of its 1.1), then has no time left to ask the BMC anything.
    auto scrape = [&](std::chrono::steady_clock::duration &elapsed, std::string &body) {
        httplib::Headers headers{{"X-Prometheus-Scrape-Timeout-Seconds", "1.6"}};
        auto start = Clock::now();
        auto res = s.client().Get(std::string("/probe?target=") + kBmc, headers);
        elapsed = Clock::now() - start;
        body = res ? res->body : "(no answer)";
    };
    std::chrono::steady_clock::duration elapsed[2];
    std::string body[2];
    std::thread other([&] { scrape(elapsed[1], body[1]); });
    scrape(elapsed[0], body[0]);
    other.join();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(sample(body[i], "ipmi_up "), 0) << body[i];
        EXPECT_LT(elapsed[i], 1600ms) << i;
    }
    // One probe asked the BMC; the one that waited did not.
    EXPECT_EQ(sim.stats().count(bmcsim::Kind::Capabilities), 1u);
}

TEST(ExporterServer, StopBeforeRunAndStopWhileServing)
{
    exporter::Prober prober;
    {
        exporter::Server server(test_config(), prober);
        server.bind({kServerHost, 0});
        server.stop();
        server.run();  // returns at once
    }
    exporter::Server server(test_config(), prober);
    int port = server.bind({kServerHost, 0});
    std::thread t([&] { server.run(); });
    httplib::Client c(kServerHost, port);
    auto res = c.Get("/metrics");
    ASSERT_TRUE(res);
    server.stop();
    t.join();
    EXPECT_FALSE(httplib::Client(kServerHost, port).Get("/metrics"));
}

}  // namespace
