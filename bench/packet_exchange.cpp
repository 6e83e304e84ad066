// RMCP+ packet layer and message exchange figures, cipher suites 0 to 3:
//   - exchanges per second and client CPU microseconds per exchange on one
//     open session against the BMC simulator on loopback (the simulator runs
//     in this process on its own thread; the client's CPU time is that of
//     the calling thread alone, from CLOCK_THREAD_CPUTIME_ID);
//   - CPU cost of building one request packet (MakeRMCP_pluse_Packet) and of
//     checking one response packet (Check_IPMIHeadTail + Check_IPMIPayload).
// A table with the targets beside the figures closes the run. Figures only:
// nothing is asserted.
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "rmcpp.h"
#include "wire.h"

namespace {

constexpr const char *kSimAddress = "127.0.0.79";
constexpr uint32_t kSimAddressHost = 0x7F00004F;

double thread_cpu_seconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

double wall_seconds()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

struct Figures {
    double exchanges_per_second = 0;
    double client_us_per_exchange = 0;
    double build_ns = 0;
    double check_ns = 0;
};
std::map<int, Figures> g_figures;

// An IPMI request: Get Device ID from 0x81 to the BMC at 0x20.
std::vector<uint8_t> get_device_id(uint8_t seq)
{
    std::vector<uint8_t> m(7);
    rmcpp::wire::Writer w(m.data(), m.size());
    w.u8(0x20).u8(0x06 << 2).u8(rmcpp::wire::checksum(m.data(), 2));
    w.u8(0x81).u8(static_cast<uint8_t>(seq << 2)).u8(0x01);
    w.u8(rmcpp::wire::checksum(m.data() + 3, 3));
    return m;
}

// ------------------------------------------------------------ exchanges

// The simulator on kSimAddress with one administrator.
bmcsim::Config simulator_config()
{
    bmcsim::Config config;
    config.address = kSimAddress;
    config.users = {{"admin", "secret", 4, true}};
    return config;
}

// A session of `suite` to that simulator, as an application opens one.
bool open_session(int suite, IPMI_SessionParam &param)
{
    param = {};
    param.bmc_address = kSimAddressHost;
    param.user_name = "admin";
    param.user_password = "secret";
    param.privilege_level = 4;
    param.cipher_suite_id = suite;
    param.slave_address = 0x20;
    param.retry_count = 3;
    param.timeout_sec = 1;
    return IPMI_SetupSession(&param) == 0;
}

void BM_Exchange(benchmark::State &state)
{
    const int suite = static_cast<int>(state.range(0));
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    IPMI_SessionParam param{};
    if (!open_session(suite, param)) {
        state.SkipWithError("session setup failed");
        return;
    }

    std::vector<std::vector<uint8_t>> requests;
    for (uint8_t i = 0; i < 64; ++i) requests.push_back(get_device_id(i));
    uint8_t response[64];
    uint32_t length = 0, released = 0;
    size_t n = 0, failures = 0;
    const double cpu0 = thread_cpu_seconds(), wall0 = wall_seconds();
    for (auto _ : state) {
        const auto &request = requests[n & 63];
        if (IPMI_Message_IF(&param, request.data(), static_cast<uint32_t>(request.size()), response, sizeof response,
                            &length, 0, &released, 3, 1) != 0)
            ++failures;
        if (++n % 4096 == 0) {
            state.PauseTiming();
            sim.clear_stats();  // the simulator records every datagram
            state.ResumeTiming();
        }
    }
    const double cpu = thread_cpu_seconds() - cpu0, wall = wall_seconds() - wall0;
    IPMI_CloseSession(&param);
    sim.stop();

    Figures &f = g_figures[suite];
    f.exchanges_per_second = static_cast<double>(n) / wall;
    f.client_us_per_exchange = cpu * 1e6 / static_cast<double>(n);
    state.counters["exchanges/s"] = f.exchanges_per_second;
    state.counters["client_us/exchange"] = f.client_us_per_exchange;
    state.counters["failures"] = static_cast<double>(failures);
}

// ------------------------------------------------------------ one packet

RMCPp_Session *bench_session(int suite)
{
    auto *s = static_cast<RMCPp_Session *>(std::calloc(1, sizeof(RMCPp_Session)));
    s->integrity_alg = suite >= 2 ? 1 : 0;
    s->confidentiality_alg = suite == 3 ? 1 : 0;
    s->console_session_id = 0xA1B2C3D4;
    s->bmc_session_id = 0xA1B2C3D4;  // the built packet is checked by the same session
    s->send_seq_auth = 1;
    s->send_seq_unauth = 1;
    s->recv_window_auth = 0xFFFF;
    s->recv_window_unauth = 0xFFFF;
    for (int i = 0; i < 20; ++i) {
        s->sik[i] = static_cast<uint8_t>(0x30 + 7 * i);
        s->cipher_key[i] = static_cast<uint8_t>(0x91 + 3 * i);
    }
    s->socket_fd = -1;
    return s;
}

// A 23-byte Get Device ID response, the size a managed system answers with.
std::vector<uint8_t> device_id_response()
{
    std::vector<uint8_t> m(23);
    rmcpp::wire::Writer w(m.data(), m.size());
    w.u8(0x81).u8(0x07 << 2).u8(rmcpp::wire::checksum(m.data(), 2));
    w.u8(0x20).u8(0x04).u8(0x01).u8(0x00);
    for (int i = 0; i < 15; ++i) w.u8(static_cast<uint8_t>(i));
    w.u8(rmcpp::wire::checksum(m.data() + 3, 19));
    return m;
}

void BM_BuildPacket(benchmark::State &state)
{
    const int suite = static_cast<int>(state.range(0));
    std::unique_ptr<RMCPp_Session, decltype(&std::free)> s(bench_session(suite), &std::free);
    const auto request = get_device_id(1);
    uint8_t buffer[256];
    uint32_t length = 0;
    for (auto _ : state) {
        MakeRMCP_pluse_Packet(s.get(), request.data(), static_cast<uint32_t>(request.size()), buffer, sizeof buffer,
                              &length);
        benchmark::DoNotOptimize(buffer);
    }
}

void BM_CheckPacket(benchmark::State &state)
{
    const int suite = static_cast<int>(state.range(0));
    std::unique_ptr<RMCPp_Session, decltype(&std::free)> s(bench_session(suite), &std::free);
    const auto response = device_id_response();
    uint8_t datagram[256];
    uint32_t datagram_length = 0;
    MakeRMCP_pluse_Packet(s.get(), response.data(), static_cast<uint32_t>(response.size()), datagram, sizeof datagram,
                          &datagram_length);
    uint8_t work[256];
    uint8_t output[64];
    uint32_t output_length = 0, data_offset = 0, header_length = 0;
    uint8_t type = 0;
    size_t failures = 0;
    for (auto _ : state) {
        // The same number is taken again: the window is put back first.
        s->recv_seq_auth = s->recv_seq_unauth = 0;
        s->recv_window_auth = s->recv_window_unauth = 0xFFFF;
        std::memcpy(work, datagram, datagram_length);
        uint32_t length = datagram_length - 4;
        if (Check_IPMIHeadTail(s.get(), work + 4, &length, &header_length, &type) != 0 ||
            Check_IPMIPayload(s.get(), work + 16, length, output, &output_length, sizeof output, &data_offset,
                              type) != 0)
            ++failures;
        benchmark::DoNotOptimize(output);
    }
    state.counters["failures"] = static_cast<double>(failures);
}

// The same packet from a session the library opened: its AES key schedules
// and keyed HMAC are kept from setup on (BM_BuildPacket's hand-made record
// keys every packet afresh).
void BM_BuildPacketOpenSession(benchmark::State &state)
{
    const int suite = static_cast<int>(state.range(0));
    bmcsim::Simulator sim(simulator_config());
    sim.start();
    IPMI_SessionParam param{};
    if (!open_session(suite, param)) {
        state.SkipWithError("session setup failed");
        return;
    }
    const auto request = get_device_id(1);
    uint8_t buffer[256];
    uint32_t length = 0;
    for (auto _ : state) {
        MakeRMCP_pluse_Packet(param.session, request.data(), static_cast<uint32_t>(request.size()), buffer,
                              sizeof buffer, &length);
        benchmark::DoNotOptimize(buffer);
    }
    IPMI_CloseSession(&param);
    sim.stop();
}

// Collects the per-packet times as Google Benchmark reports them.
class TableReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const auto &run : runs) {
            const std::string name = run.benchmark_name();
            const bool build = name.rfind("BM_BuildPacket/", 0) == 0, check = name.rfind("BM_CheckPacket/", 0) == 0;
            if (!build && !check) continue;
            const int suite = name.back() - '0';
            const double ns = run.GetAdjustedCPUTime() * (1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit));
            (build ? g_figures[suite].build_ns : g_figures[suite].check_ns) = ns;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

void print_table()
{
    std::printf("\nRMCP+ exchange on one open session, simulator on loopback (client thread CPU only)\n");
    std::printf("%-6s %14s %20s %16s %16s\n", "suite", "exchanges/s", "client us/exchange", "build ns/packet",
                "check ns/packet");
    for (const auto &[suite, f] : g_figures)
        std::printf("%-6d %14.0f %20.2f %16.0f %16.0f\n", suite, f.exchanges_per_second, f.client_us_per_exchange,
                    f.build_ns, f.check_ns);
    const Figures &s3 = g_figures[3];
    std::printf("\nTargets, suite 3: >= 20000 exchanges/s (measured %.0f, %s); <= 5 us client CPU per exchange "
                "(measured %.2f, %s)\n",
                s3.exchanges_per_second, s3.exchanges_per_second >= 20000 ? "met" : "missed",
                s3.client_us_per_exchange, s3.client_us_per_exchange <= 5 ? "met" : "missed");
}

}  // namespace

BENCHMARK(BM_Exchange)->DenseRange(0, 3)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BuildPacket)->DenseRange(0, 3);
BENCHMARK(BM_CheckPacket)->DenseRange(0, 3);
BENCHMARK(BM_BuildPacketOpenSession)->DenseRange(2, 3);

int main(int argc, char **argv)
{
    // Failures inside the loops are counted, not logged line by line.
    IPMI_SetupConnectSA(0x24);
    benchmark::Initialize(&argc, argv);
    TableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    IPMI_SetupConnectSA(0x71);
    print_table();
    return 0;
}
