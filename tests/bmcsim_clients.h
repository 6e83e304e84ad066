// Running other people's IPMI clients (ipmitool, FreeIPMI) as black boxes
// against the simulator (testkit::run_program runs them): finding them,
// reading what they printed and what the simulator logged meanwhile, and a
// temporary home directory.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"
#include "run_program.h"

namespace simtest {

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

// What a client printed: standard output, then standard error.
inline std::string output(const testkit::ProgramResult &r) { return r.out + r.err; }

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

// The bytes after "rcvd:" in FreeIPMI ipmi-raw's output (command,
// completion code, data); empty when there is no such line.
inline std::vector<int> ipmi_raw_received(const std::string &output)
{
    std::vector<int> bytes;
    size_t at = output.find("rcvd:");
    if (at == std::string::npos) return bytes;
    std::istringstream in(output.substr(at + 5, output.find('\n', at) - at - 5));
    std::string word;
    while (in >> word) bytes.push_back(std::stoi(word, nullptr, 16));
    return bytes;
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
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

}  // namespace simtest
