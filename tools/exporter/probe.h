// Reading one BMC for one scrape: the cache of warm sessions per (target,
// module), the SDR repositories per target, and the collectors that turn
// what the BMC answers into metric families.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "config.h"
#include "metrics.h"

namespace exporter {

using Clock = std::chrono::steady_clock;

struct ProbeResult {
    bool up = false;
    std::string error;  // why up is 0, in words; never carries secrets
    Families families;  // includes ipmi_up and ipmi_scrape_duration_seconds
    // Why a collector gave ipmi_collector_up 0, by collector, in words.
    std::map<std::string, std::string> collector_errors;
};

struct ProberCounters {
    size_t sessions_open = 0;
    size_t session_setups = 0;   // sessions set up since start
    size_t sdr_reads = 0;        // whole SDR repository reads since start
    size_t sdr_cache_hits = 0;
};

class Prober {
public:
    // Sessions unused for `idle` are closed by close_idle().
    explicit Prober(std::chrono::milliseconds idle = std::chrono::minutes(5));
    ~Prober();  // closes every session
    Prober(const Prober &) = delete;
    Prober &operator=(const Prober &) = delete;

    // target: "host" or "host:port" ("[v6]:port"). Gives up at `deadline`.
    ProbeResult probe(const std::string &target, const Module &module, Clock::time_point deadline);

    void close_idle(Clock::time_point now);
    void close_all();
    ProberCounters counters() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace exporter
