// rmcpp_bench_session: client figures against a BMC (or simulator) that
// runs in another process.
//
//   rmcpp_bench_session exchanges --host H --user U --password P --suite S --count N
//     one session, N Get Device ID exchanges, close; prints
//     "exchanges N client_cpu_us_per_exchange X wall_us_per_exchange Y"
//   rmcpp_bench_session setups --host H --user U --password P --suite S --count N
//     N session setups, each closed at once, one after the other; prints
//     "setups N per_second X client_cpu_us_per_setup Y"
//     With --concurrency C (above 1), the same N setups run as jobs of
//     rmcpp_run_interleaved, C at a time, still from one thread.
//
// Client CPU is this process's CPU time (CLOCK_PROCESS_CPUTIME_ID), user and
// system, over the timed part only. Sessions use a kernel-chosen local port
// and the kernel's random numbers. Further options: --port N,
// --privilege N, --standard-keys, --no-ping, --timeout S.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "rmcpp.h"

namespace {

struct Args {
    std::string mode;
    std::string host;
    std::string user;
    std::string password;
    int suite = 3;
    long count = 0;
    int port = 0;
    int privilege = 4;
    int timeout = 2;
    unsigned concurrency = 1;
    bool standard_keys = false;
    bool no_ping = false;
};

int usage(const char *why)
{
    std::fprintf(stderr,
                 "rmcpp_bench_session: %s\n"
                 "usage: rmcpp_bench_session exchanges|setups --host H --user U --password P --suite S --count N\n"
                 "       [--port N] [--privilege N] [--standard-keys] [--no-ping] [--timeout S] [--concurrency C]\n",
                 why);
    return 2;
}

bool to_long(const char *text, long low, long high, long &out)
{
    char *end = nullptr;
    const long v = std::strtol(text, &end, 0);
    if (end == text || *end != '\0' || v < low || v > high) return false;
    out = v;
    return true;
}

int parse(int argc, char **argv, Args &a)
{
    if (argc < 2) return usage("no mode given");
    a.mode = argv[1];
    if (a.mode != "exchanges" && a.mode != "setups") return usage("the mode is exchanges or setups");
    for (int i = 2; i < argc; ++i) {
        const std::string opt = argv[i];
        if (opt == "--standard-keys") {
            a.standard_keys = true;
            continue;
        }
        if (opt == "--no-ping") {
            a.no_ping = true;
            continue;
        }
        if (i + 1 >= argc) return usage(("no value after " + opt).c_str());
        const char *value = argv[++i];
        long n = 0;
        if (opt == "--host")
            a.host = value;
        else if (opt == "--user")
            a.user = value;
        else if (opt == "--password")
            a.password = value;
        else if (opt == "--suite" && to_long(value, 0, 17, n))
            a.suite = static_cast<int>(n);
        else if (opt == "--count" && to_long(value, 1, 100000000, n))
            a.count = n;
        else if (opt == "--port" && to_long(value, 1, 65535, n))
            a.port = static_cast<int>(n);
        else if (opt == "--privilege" && to_long(value, 0, 5, n))
            a.privilege = static_cast<int>(n);
        else if (opt == "--timeout" && to_long(value, 1, 60, n))
            a.timeout = static_cast<int>(n);
        else if (opt == "--concurrency" && to_long(value, 1, 4096, n))
            a.concurrency = static_cast<unsigned>(n);
        else
            return usage(("bad option or value: " + opt + " " + value).c_str());
    }
    if (a.host.empty()) return usage("--host is required");
    if (a.count == 0) return usage("--count is required");
    return 0;
}

double seconds(clockid_t clock)
{
    timespec t;
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

class Bench {
public:
    explicit Bench(const Args &a) : a_(a)
    {
        options_.size = sizeof options_;
        options_.flags = RMCPP_OPT_KERNEL_PORT | (a.no_ping ? RMCPP_OPT_NO_PING : 0u);
        options_.host = a_.host.c_str();
        options_.port = static_cast<uint16_t>(a.port);
        options_.key_mode = a.standard_keys ? RMCPP_KEYS_STANDARD : RMCPP_KEYS_LIBRARY;
        options_.random_source = RMCPP_RANDOM_KERNEL;
    }

    int setup(IPMI_SessionParam &p) const
    {
        std::memset(&p, 0, sizeof p);
        p.user_name = a_.user.c_str();
        p.user_password = a_.password.c_str();
        p.privilege_level = a_.privilege;
        p.cipher_suite_id = a_.suite;
        p.slave_address = 0x20;
        p.retry_count = 3;
        p.timeout_sec = static_cast<uint16_t>(a_.timeout);
        return rmcpp_setup_session(&p, &options_);
    }

    // Get Device ID; checks the response's completion code and length.
    int get_device_id(IPMI_SessionParam &p, uint8_t seq) const
    {
        const IPMI_MsgHeader h = {0x06, 0x81, 0x01, 0, static_cast<uint8_t>(seq & 0x3F), 0x07, 0x20, 0};
        uint8_t request[16];
        int length = 0;
        int r = MakeIPMIRequest(&h, nullptr, 0, request, sizeof request, &length);
        if (r != 0) return r;
        uint8_t response[128];
        uint32_t received = 0, released = 0;
        r = IPMI_Message_IF(&p, request, static_cast<uint32_t>(length), response, sizeof response, &received, 0,
                            &released, 3, a_.timeout);
        if (r != 0) return r;
        // rsAddr, netFn, checksum, rqAddr, rqSeq, command, completion code,
        // at least 11 bytes of data, checksum.
        if (received < 19 || response[6] != 0x00) return RMCPP_ERR_COMPLETION;
        return 0;
    }

private:
    const Args &a_;
    RMCPP_SessionOptions options_{};
};

int fail(const char *what, int code)
{
    std::fprintf(stderr, "rmcpp_bench_session: %s: %s (%d)\n", what, rmcpp_strerror(code), code);
    return 1;
}

int run_exchanges(const Args &a)
{
    const Bench bench(a);
    IPMI_SessionParam p;
    int r = bench.setup(p);
    if (r != 0) return fail("session setup", r);
    const double cpu0 = seconds(CLOCK_PROCESS_CPUTIME_ID), wall0 = seconds(CLOCK_MONOTONIC);
    for (long i = 0; i < a.count; ++i) {
        r = bench.get_device_id(p, static_cast<uint8_t>(i));
        if (r != 0) {
            if (p.session != nullptr) IPMI_CloseSession(&p);
            return fail("Get Device ID", r);
        }
    }
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu0, wall = seconds(CLOCK_MONOTONIC) - wall0;
    r = IPMI_CloseSession(&p);
    if (r != 0) return fail("Close Session", r);
    const double n = static_cast<double>(a.count);
    std::printf("exchanges %ld client_cpu_us_per_exchange %.2f wall_us_per_exchange %.2f\n", a.count, cpu * 1e6 / n,
                wall * 1e6 / n);
    return 0;
}

// One setup and its close; the first failure is kept.
struct SetupJobs {
    const Bench *bench;
    int failure = 0;
    const char *what = nullptr;
};

void setup_and_close(void *context, size_t)
{
    auto &jobs = *static_cast<SetupJobs *>(context);
    IPMI_SessionParam p;
    int r = jobs.bench->setup(p);
    const char *what = "session setup";
    if (r == 0) {
        r = IPMI_CloseSession(&p);
        what = "Close Session";
    }
    if (r != 0 && jobs.failure == 0) {
        jobs.failure = r;
        jobs.what = what;
    }
}

int run_setups(const Args &a)
{
    const Bench bench(a);
    SetupJobs jobs{&bench};
    const double cpu0 = seconds(CLOCK_PROCESS_CPUTIME_ID), wall0 = seconds(CLOCK_MONOTONIC);
    if (a.concurrency > 1) {
        const int r = rmcpp_run_interleaved(static_cast<size_t>(a.count), setup_and_close, &jobs, a.concurrency);
        if (r != 0) return fail("rmcpp_run_interleaved", r);
    } else {
        for (long i = 0; i < a.count && jobs.failure == 0; ++i) setup_and_close(&jobs, static_cast<size_t>(i));
    }
    if (jobs.failure != 0) return fail(jobs.what, jobs.failure);
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu0, wall = seconds(CLOCK_MONOTONIC) - wall0;
    const double n = static_cast<double>(a.count);
    std::printf("setups %ld per_second %.1f client_cpu_us_per_setup %.2f\n", a.count, n / wall, cpu * 1e6 / n);
    return 0;
}

}  // namespace

int main(int argc, char **argv)
{
    Args a;
    const int bad = parse(argc, argv, a);
    if (bad != 0) return bad;
    return a.mode == "exchanges" ? run_exchanges(a) : run_setups(a);
}
