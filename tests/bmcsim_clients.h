// Running other people's IPMI clients (ipmitool, FreeIPMI) as black boxes
// against the simulator: a child process with a hard time limit, its
// standard output and error collected, and helpers to read what it printed
// and what the simulator logged meanwhile.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"

namespace simtest {

struct RunResult {
    int status = -1;         // exit status, or -1 when killed or not run
    bool timed_out = false;  // killed at the time limit
    std::string output;      // standard output and standard error, interleaved
};

// The program's path on PATH, or empty when it is not installed.
inline std::string find_program(const std::string &name)
{
    const char *path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string p = (dir.empty() ? "." : dir) + "/" + name;
        if (::access(p.c_str(), X_OK) == 0) return p;
    }
    return {};
}

// Runs argv[0] (looked up on PATH) with extra "NAME=value" environment
// entries, in a process group of its own that is killed with SIGKILL once
// `limit` has passed or when this process dies.
inline RunResult run(const std::vector<std::string> &argv, std::chrono::milliseconds limit,
                     const std::vector<std::string> &extra_env = {})
{
    RunResult r;
    int out[2];
    if (argv.empty() || ::pipe2(out, O_CLOEXEC) != 0) return r;
    std::vector<std::string> env_text;
    for (char **e = environ; *e; ++e) {
        std::string entry = *e;
        std::string name = entry.substr(0, entry.find('='));
        bool replaced = std::any_of(extra_env.begin(), extra_env.end(),
                                    [&](const std::string &x) { return x.substr(0, x.find('=')) == name; });
        if (!replaced) env_text.push_back(entry);
    }
    env_text.insert(env_text.end(), extra_env.begin(), extra_env.end());
    std::vector<std::string> args = argv;
    std::vector<char *> cargs, cenv;
    for (auto &a : args) cargs.push_back(a.data());
    cargs.push_back(nullptr);
    for (auto &e : env_text) cenv.push_back(e.data());
    cenv.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid < 0) {
        ::close(out[0]);
        ::close(out[1]);
        return r;
    }
    if (pid == 0) {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(out[1], STDERR_FILENO);
        int null = ::open("/dev/null", O_RDONLY);
        if (null >= 0) ::dup2(null, STDIN_FILENO);
        ::execvpe(cargs[0], cargs.data(), cenv.data());
        const char msg[] = "cannot run the client program\n";
        if (::write(STDERR_FILENO, msg, sizeof msg - 1) < 0) { /* exiting anyway */ }
        ::_exit(127);
    }
    ::setpgid(pid, pid);
    ::close(out[1]);
    auto deadline = std::chrono::steady_clock::now() + limit;
    char buf[4096];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            r.timed_out = true;
            break;
        }
        pollfd p{out[0], POLLIN, 0};
        int n = ::poll(&p, 1, static_cast<int>(left.count()));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) continue;
        ssize_t got = ::read(out[0], buf, sizeof buf);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        r.output.append(buf, static_cast<size_t>(got));
    }
    ::close(out[0]);
    if (r.timed_out) ::kill(-pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (r.timed_out) ::kill(-pid, SIGKILL);  // anything the client left behind
    r.status = !r.timed_out && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

// The value of a "Label   : value" line, trimmed; empty when absent.
inline std::string field(const std::string &output, const std::string &label)
{
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line)) {
        size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        name.erase(name.find_last_not_of(" \t") + 1);
        if (name != label) continue;
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of(" \t\r") + 1);
        return value;
    }
    return {};
}

// Lines of the simulator program's output that contain `text`.
inline size_t count_lines(const bmcsim::ChildProcess &sim, const std::string &text)
{
    auto lines = sim.output();
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string &l) {
        return l.find(text) != std::string::npos;
    }));
}

// Waits until at least `n` lines of the simulator's output contain `text`.
inline bool wait_for_lines(const bmcsim::ChildProcess &sim, const std::string &text, size_t n,
                           std::chrono::milliseconds timeout = std::chrono::seconds(2))
{
    auto until = std::chrono::steady_clock::now() + timeout;
    while (count_lines(sim, text) < n) {
        if (std::chrono::steady_clock::now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// A fresh directory under TMPDIR (or /tmp), removed with its files when
// the object goes.
class TempDir {
public:
    TempDir()
    {
        const char *base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/rmcpp-interop-XXXXXX";
        std::vector<char> p(pattern.begin(), pattern.end());
        p.push_back('\0');
        if (::mkdtemp(p.data())) path_ = p.data();
    }
    ~TempDir()
    {
        if (!path_.empty()) {
            // Only this directory's own files: nothing recursive reaches outside it.
            run({"rm", "-rf", "--one-file-system", path_}, std::chrono::seconds(10));
        }
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

}  // namespace simtest
