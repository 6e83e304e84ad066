// rmcpp-exporter: BMC sensors, chassis, SEL and firmware for Prometheus,
// over IPMI v2.0 / RMCP+ sessions kept open between scrapes.
#include <openssl/crypto.h>
#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "config.h"
#include "probe.h"
#include "server.h"
#include "trace_log.h"

namespace {

// Closes sessions left unused for their idle time, until told to stop.
class IdleCloser {
public:
    IdleCloser(exporter::Prober &prober, std::chrono::milliseconds idle)
        : prober_(prober),
          every_(std::clamp<std::chrono::milliseconds>(idle / 4, std::chrono::seconds(1), std::chrono::minutes(1))),
          thread_([this] { loop(); })
    {
    }
    ~IdleCloser()
    {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

private:
    void loop()
    {
        std::unique_lock lock(mutex_);
        while (!changed_.wait_for(lock, every_, [this] { return stop_; }))
            prober_.close_idle(exporter::Clock::now());
    }

    exporter::Prober &prober_;
    std::chrono::milliseconds every_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace

int main(int argc, char **argv)
{
    // Nothing here needs the OpenSSL configuration file.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    // The library's own log lines (every retry, every ignored datagram) go to
    // the tool's quiet sink; a failed probe is logged once, in one line.
    cli::trace::set_verbose(false);

    CLI::App app{"rmcpp-exporter: reads BMCs over IPMI v2.0 / RMCP+ for Prometheus's multi-target /probe."};
    app.set_version_flag("--version", std::string("rmcpp-exporter ") + RMCPP_TOOL_VERSION);
    std::string config_file, listen = ":9623", idle_text = "5m";
    size_t max_requests = 64;
    double timeout_offset = 0.5;
    app.add_option("--config.file", config_file, "The modules file (YAML)")->required();
    app.add_option("--web.listen-address", listen, "Where to listen: HOST:PORT, [ADDRESS]:PORT, or :PORT for all")
        ->capture_default_str();
    app.add_option("--web.max-requests", max_requests, "Requests served at once (worker threads)")
        ->check(CLI::Range(size_t{1}, size_t{100000}))
        ->capture_default_str();
    app.add_option("--probe.timeout-offset", timeout_offset,
                   "Seconds taken off Prometheus's scrape timeout to give each probe its deadline")
        ->check(CLI::Range(0.0, 60.0))
        ->capture_default_str();
    app.add_option("--session.idle-timeout", idle_text, "Close a BMC session unused this long (30s, 5m, 1h)")
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        app.exit(e);
        return 2;
    }

    exporter::ListenAddress address;
    std::chrono::milliseconds idle{};
    try {
        address = exporter::parse_listen_address(listen);
        idle = exporter::parse_duration(idle_text);
        if (idle.count() <= 0)
            throw std::invalid_argument("--session.idle-timeout must be longer than 0");
    } catch (const std::invalid_argument &e) {
        std::fprintf(stderr, "rmcpp-exporter: %s\n", e.what());
        return 2;
    }

    exporter::Config config;
    try {
        config = exporter::load_config(config_file);
    } catch (const exporter::ConfigError &e) {
        std::fprintf(stderr, "rmcpp-exporter: %s\n", e.what());
        return 1;
    }

    // SIGTERM and SIGINT are taken by one thread with sigwait(); every
    // thread started after this inherits the blocked mask.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    // A client that goes away mid-answer must not end the process.
    signal(SIGPIPE, SIG_IGN);

    exporter::Prober prober(idle);
    exporter::ServerOptions options;
    options.max_requests = max_requests;
    options.timeout_offset = timeout_offset;
    exporter::Server server(config, prober, options);
    int port = 0;
    try {
        port = server.bind(address);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "rmcpp-exporter: %s\n", e.what());
        return 1;
    }
    std::fprintf(stderr, "rmcpp-exporter: listening on %s:%d, %zu modules\n",
                 address.host.empty() ? "*"
                 : address.host.find(':') != std::string::npos ? ("[" + address.host + "]").c_str()
                                                                : address.host.c_str(),
                 port, config.modules.size());
    std::fflush(stderr);

    std::atomic<bool> signalled{false};
    std::thread signal_waiter([&] {
        int signal_number = 0;
        sigwait(&stop_signals, &signal_number);
        signalled = true;
        server.stop();
    });
    {
        IdleCloser idle_closer(prober, idle);
        server.run();
    }
    bool asked_to_stop = signalled;
    if (!asked_to_stop)
        pthread_kill(signal_waiter.native_handle(), SIGTERM);  // the listener failed; release the waiter
    signal_waiter.join();
    prober.close_all();
    if (!asked_to_stop) {
        std::fprintf(stderr, "rmcpp-exporter: the listener stopped accepting connections\n");
        return 1;
    }
    std::fprintf(stderr, "rmcpp-exporter: stopped\n");
    return 0;
}
