// A command run on many BMCs at once: each host on a worker thread with its
// own options, session and output buffers; what a host printed comes out
// in one piece when it finishes, prefixed with the host, or as one JSON
// line, or grouped with the hosts that printed the same.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "options.h"
#include "tool_runner.h"

namespace cli {

// What one host's run printed and how it ended.
struct HostRun {
    std::string host;
    int status = 0;           // the one-host tool's exit status
    std::string out, err;     // its standard output and standard error
    std::optional<nlohmann::json> result, error;  // under --json
};

// A command as the tool runs it for one host.
using Command = std::function<void(const Options &, ToolRunner &)>;

// Runs `command` for `host` with the options `base` and buffers of its own;
// the library's log under -v goes to the host's standard error.
HostRun run_on_host(const Command &command, const Options &base, const std::string &host);

struct FleetSettings {
    int fanout = 64;          // hosts at once
    bool json = false;        // one JSON object per host and line
    bool consolidate = false; // hosts with the same output grouped, at the end
    bool progress = false;    // the progress bar on `err`
};

// Runs `run` for every host, at most settings.fanout at once, printing each
// host's output as it finishes; then the summary line on `err`. Returns 1
// when a host failed, else 0.
int run_fleet(const std::vector<std::string> &hosts, const std::function<HostRun(const std::string &)> &run,
              const FleetSettings &settings, std::FILE *out, std::FILE *err);

// Every line of `text` with "HOST: " in front.
std::string prefixed(const std::string &host, const std::string &text);

// {"host":"...","result":...} or {"host":"...","error":{...}}, compact.
std::string json_line(const HostRun &run);

// The hosts grouped by identical output (errors included), each group as a
// header naming its hosts in range form and then the output once; groups in
// the order of their first host in `runs`.
std::string consolidated(const std::vector<HostRun> &runs);

// "rmcpp: 20 hosts, 19 ok, 1 failed (0.42 s)" ("1 host" for one).
std::string summary_line(size_t hosts, size_t failed, double seconds);

}  // namespace cli
