// rmcpp_bench_scrape: one scrape of every target, at most N at a time, the
// way a Prometheus server with that many targets would issue them in one
// interval; prints how long each took (p50, p99) and the CPU it cost.
//
//   rmcpp_bench_scrape http  TARGETS N URL-TEMPLATE [--cpu-of PID] [--rounds R]
//   rmcpp_bench_scrape spawn TARGETS N [--rounds R] -- PROGRAM ARGS...
//
// TARGETS is a file of one target per line; "{}" in the URL template or the
// program's arguments stands for the target. http: GET the URL; a scrape
// counts as good when its body has "ipmi_up 1". The CPU is that of process
// PID (the exporter) over the round, from /proc. spawn: run the program once
// per target; good when it exits 0; the CPU is that of the children.
//
// One line per round:
//   round R: S scrapes, F failed, wall W s, cpu C s, C1000 cpu s per 1000, p50 A ms, p99 B ms
#include <httplib.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void usage(const char *why)
{
    std::fprintf(stderr, "rmcpp_bench_scrape: %s\n", why);
    std::fprintf(stderr,
                 "usage: rmcpp_bench_scrape http TARGETS N URL-TEMPLATE [--cpu-of PID] [--rounds R]\n"
                 "       rmcpp_bench_scrape spawn TARGETS N [--rounds R] -- PROGRAM ARGS...\n");
    std::exit(2);
}

std::string substitute(std::string text, const std::string &target)
{
    for (size_t at = text.find("{}"); at != std::string::npos; at = text.find("{}", at + target.size()))
        text.replace(at, 2, target);
    return text;
}

std::vector<std::string> read_targets(const std::string &path)
{
    std::ifstream in(path);
    if (!in) usage(("cannot read " + path).c_str());
    std::vector<std::string> targets;
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) targets.push_back(line);
    if (targets.empty()) usage("no targets");
    return targets;
}

// CPU seconds (user + system) of a process, from /proc/PID/stat.
double process_cpu(long pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = stat.rfind(')');
    if (close == std::string::npos) return 0;
    // Fields after the command's closing parenthesis start at field 3;
    // utime and stime are fields 14 and 15.
    std::vector<std::string> fields;
    size_t at = close + 2;
    while (at < stat.size() && fields.size() < 13) {
        const size_t end = stat.find(' ', at);
        fields.push_back(stat.substr(at, end - at));
        if (end == std::string::npos) break;
        at = end + 1;
    }
    if (fields.size() < 13) return 0;
    const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    return (std::stod(fields[11]) + std::stod(fields[12])) / ticks;
}

double children_cpu()
{
    rusage u{};
    getrusage(RUSAGE_CHILDREN, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// A URL split for httplib: http://HOST:PORT/PATH.
struct Url {
    std::string host;
    int port = 80;
    std::string path;
};

bool split_url(const std::string &url, Url &out)
{
    const std::string scheme = "http://";
    if (url.compare(0, scheme.size(), scheme) != 0) return false;
    const size_t slash = url.find('/', scheme.size());
    const std::string authority = url.substr(scheme.size(), slash - scheme.size());
    out.path = slash == std::string::npos ? "/" : url.substr(slash);
    const size_t colon = authority.rfind(':');
    out.host = authority.substr(0, colon);
    out.port = colon == std::string::npos ? 80 : std::atoi(authority.c_str() + colon + 1);
    return true;
}

// Each worker keeps its connection open from one scrape to the next, as a
// Prometheus server keeps its connections to an exporter.
bool http_scrape(std::unique_ptr<httplib::Client> &client, const std::string &url)
{
    Url u;
    if (!split_url(url, u)) return false;
    if (!client) {
        client = std::make_unique<httplib::Client>(u.host, u.port);
        client->set_keep_alive(true);
        client->set_connection_timeout(30);
        client->set_read_timeout(120);
    }
    const auto response = client->Get(u.path);
    return response && response->status == 200 && response->body.find("\nipmi_up 1\n") != std::string::npos;
}

bool spawn_scrape(const std::vector<std::string> &command, const std::string &target)
{
    std::vector<std::string> args;
    for (const auto &a : command) args.push_back(substitute(a, target));
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return false;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    // Nearest rank.
    size_t rank = static_cast<size_t>(p * static_cast<double>(values.size()) + 0.999999);
    rank = std::clamp<size_t>(rank, 1, values.size());
    return values[rank - 1];
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 4) usage("too few arguments");
    const std::string mode = argv[1];
    if (mode != "http" && mode != "spawn") usage("the mode is http or spawn");
    const auto targets = read_targets(argv[2]);
    const int concurrency = std::atoi(argv[3]);
    if (concurrency < 1 || concurrency > 4096) usage("N wants 1 to 4096");
    std::string url;
    std::vector<std::string> command;
    long cpu_of = 0;
    int rounds = 1;
    int i = 4;
    if (mode == "http") {
        if (argc < 5) usage("http wants a URL template");
        url = argv[i++];
    }
    for (; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--cpu-of" && i + 1 < argc) cpu_of = std::atol(argv[++i]);
        else if (a == "--rounds" && i + 1 < argc) rounds = std::atoi(argv[++i]);
        else if (a == "--" && mode == "spawn") {
            command.assign(argv + i + 1, argv + argc);
            break;
        } else usage(("unknown argument " + a).c_str());
    }
    if (mode == "spawn" && command.empty()) usage("spawn wants -- PROGRAM ARGS...");
    if (mode == "http" && cpu_of == 0) usage("http wants --cpu-of PID (the exporter)");
    if (rounds < 1) usage("--rounds wants a positive number");

    int worst = 0;
    for (int round = 1; round <= rounds; ++round) {
        std::vector<double> times(targets.size(), 0);
        std::atomic<size_t> next{0};
        std::atomic<size_t> failed{0};
        const double cpu0 = mode == "http" ? process_cpu(cpu_of) : children_cpu();
        const auto t0 = Clock::now();
        std::vector<std::thread> workers;
        for (int w = 0; w < concurrency; ++w)
            workers.emplace_back([&] {
                std::unique_ptr<httplib::Client> client;
                for (size_t k; (k = next.fetch_add(1)) < targets.size();) {
                    const auto start = Clock::now();
                    const bool good = mode == "http" ? http_scrape(client, substitute(url, targets[k]))
                                                     : spawn_scrape(command, targets[k]);
                    times[k] = std::chrono::duration<double>(Clock::now() - start).count();
                    if (!good) failed.fetch_add(1);
                }
            });
        for (auto &w : workers) w.join();
        const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
        const double cpu = (mode == "http" ? process_cpu(cpu_of) : children_cpu()) - cpu0;
        std::printf("round %d: %zu scrapes, %zu failed, wall %.3f s, cpu %.3f s, %.3f cpu s per 1000, "
                    "p50 %.2f ms, p99 %.2f ms\n",
                    round, targets.size(), failed.load(), wall, cpu,
                    cpu * 1000.0 / static_cast<double>(targets.size()), percentile(times, 0.50) * 1000,
                    percentile(times, 0.99) * 1000);
        std::fflush(stdout);
        if (failed.load() > 0) worst = 1;
    }
    return worst;
}
