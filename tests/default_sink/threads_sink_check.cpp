// Without a host sink of its own, a program whose threads log at the same
// time still gets whole lines on standard error: each thread's text with
// its own line end, never another thread's text in between. Standard error
// goes to a scratch file, which is read back line by line.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "rmcpp.h"

namespace {

constexpr int kThreads = 8;
constexpr int kLines = 2000;

// Completion-code lines come without a line end (the sink adds it); log
// lines carry their own.
void log_from(int thread)
{
    const KivTraceRecord record = {2, 1, 0, 0};
    const std::string text = "trace line from thread " + std::to_string(thread);
    for (int i = 0; i < kLines; ++i) {
        putKivTrace(0, &record, text.c_str());
        lib_log(1, "log line from thread %d\n", thread);
    }
}

}  // namespace

int main()
{
    char path[] = "/tmp/rmcpp-threads-sink-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0 || std::fflush(stderr) != 0 || dup2(fd, STDERR_FILENO) < 0) {
        std::perror("scratch file");
        return 2;
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(log_from, t);
    for (auto &t : threads) t.join();
    std::fflush(stderr);
    close(fd);

    std::map<std::string, int> expected;
    for (int t = 0; t < kThreads; ++t) {
        expected["trace line from thread " + std::to_string(t)] = kLines;
        expected["log line from thread " + std::to_string(t)] = kLines;
    }
    std::map<std::string, int> seen;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) ++seen[line];
    unlink(path);

    if (seen == expected) return 0;
    std::printf("standard error did not hold %d whole lines from each of %d threads:\n", 2 * kLines, kThreads);
    for (const auto &[line, n] : seen)
        if (expected[line] != n) std::printf("  %d x [%s]\n", n, line.c_str());
    return 1;
}
