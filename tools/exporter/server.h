// The exporter's HTTP side: /probe reads one BMC through the Prober, /metrics
// serves the exporter's own families, / a small page of links and modules.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "config.h"
#include "metrics.h"
#include "probe.h"

namespace httplib {
class Server;
class Request;
class Response;
}  // namespace httplib

namespace exporter {

// Where to listen: "HOST:PORT", "[v6]:PORT", or ":PORT" for every address
// (host left empty). Port 0 picks a free port. Throws std::invalid_argument.
struct ListenAddress {
    std::string host;
    int port = 0;
};
ListenAddress parse_listen_address(const std::string &text);

// A duration as Prometheus writes one: "5m", "30s", "1h30m", "250ms", "2d".
// Throws std::invalid_argument.
std::chrono::milliseconds parse_duration(const std::string &text);

// How long a probe may take: the scrape timeout Prometheus sends in
// X-Prometheus-Scrape-Timeout-Seconds less `offset` seconds, or the module's
// timeout_ms when the header is missing or not a positive number. A header
// no larger than the offset is taken as it is.
std::chrono::milliseconds probe_timeout(const std::string *scrape_timeout_header, double offset, int timeout_ms);

struct ServerOptions {
    size_t max_requests = 64;     // worker threads, so at most this many probes at once
    double timeout_offset = 0.5;  // seconds
};

class Server {
public:
    Server(Config config, Prober &prober, ServerOptions options = {});
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Binds the listening socket; returns the port. Throws std::runtime_error.
    int bind(const ListenAddress &address);
    // Serves until stop(); in-flight requests finish first.
    void run();
    // From any thread, also before run() started.
    void stop();

    // What /metrics serves.
    Families own_families() const;

private:
    void handle_probe(const httplib::Request &req, httplib::Response &res);
    void handle_metrics(const httplib::Request &req, httplib::Response &res);
    void handle_index(const httplib::Request &req, httplib::Response &res);
    void record(const std::string &module, bool up, double seconds);

    struct ModuleStats {
        uint64_t probes = 0;
        uint64_t errors = 0;
        Histogram durations;
    };

    Config config_;
    Prober &prober_;
    ServerOptions options_;
    std::unique_ptr<httplib::Server> http_;
    int last_socket_ = -1;  // the socket cpp-httplib made last (the bound one)
    mutable std::mutex stats_mutex_;
    std::map<std::string, ModuleStats> stats_;
    std::mutex run_mutex_;
    std::condition_variable run_changed_;
    bool running_ = false;
    bool stopping_ = false;
};

}  // namespace exporter
