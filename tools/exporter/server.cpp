// The exporter's HTTP side, on cpp-httplib: a fixed pool of worker threads
// answers /probe, /metrics and /.
#include "server.h"

#include <httplib.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace exporter {

namespace {

// Upper bounds of the probe duration histogram, in seconds.
const std::vector<double> kDurationBuckets{0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30};

// When the connection this worker serves was accepted. Each connection
// carries one request, so a request that waited for a free worker has
// spent that wait out of its deadline already.
thread_local Clock::time_point t_accepted{};

// cpp-httplib's fixed pool, each task stamped with the time it was queued.
class StampedPool : public httplib::TaskQueue {
public:
    explicit StampedPool(size_t workers) : pool_(workers) {}
    void enqueue(std::function<void()> fn) override
    {
        pool_.enqueue([fn = std::move(fn), at = Clock::now()] {
            t_accepted = at;
            fn();
            t_accepted = {};
        });
    }
    void shutdown() override { pool_.shutdown(); }

private:
    httplib::ThreadPool pool_;
};

bool valid_port(const std::string &text, int &port)
{
    if (text.empty() || text.size() > 5)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    port = std::stoi(text);
    return port <= 65535;
}

// A target as it may be logged: control characters would forge lines.
std::string printable(const std::string &text)
{
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7f) {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

bool acceptable_target(const std::string &target)
{
    if (target.empty() || target.size() > 255)
        return false;
    for (unsigned char c : target)
        if (c <= 0x20 || c == 0x7f)
            return false;
    return true;
}

std::string html_escape(const std::string &text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&#39;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string url_escape(const std::string &text)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
            c == '.' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

void log_line(const std::string &line)
{
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::fprintf(stderr, "rmcpp-exporter: %s\n", line.c_str());
    std::fflush(stderr);
}

// Should a reason ever quote the module's password, it is not repeated.
std::string without(const std::string &text, const std::string &secret)
{
    if (secret.size() < 4)
        return text;
    std::string out = text;
    for (size_t at = out.find(secret); at != std::string::npos; at = out.find(secret, at + 3))
        out.replace(at, secret.size(), "***");
    return out;
}

void plain(httplib::Response &res, int status, const std::string &text)
{
    res.status = status;
    res.set_content(text + "\n", "text/plain; charset=utf-8");
}

}  // namespace

ListenAddress parse_listen_address(const std::string &text)
{
    ListenAddress address;
    std::string port;
    if (!text.empty() && text[0] == '[') {
        auto close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':' || close == 1)
            throw std::invalid_argument("listen address " + text + " is not [ADDRESS]:PORT");
        address.host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        auto colon = text.rfind(':');
        if (colon == std::string::npos)
            throw std::invalid_argument("listen address " + text + " has no :PORT");
        address.host = text.substr(0, colon);
        if (address.host.find(':') != std::string::npos)
            throw std::invalid_argument("listen address " + text + ": write IPv6 addresses as [ADDRESS]:PORT");
        port = text.substr(colon + 1);
    }
    if (!valid_port(port, address.port))
        throw std::invalid_argument("listen address " + text + ": the port must be a number from 0 to 65535");
    return address;
}

std::chrono::milliseconds parse_duration(const std::string &text)
{
    // Units largest first so "ms" is tried before "m".
    static const std::pair<const char *, long long> units[] = {
        {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000}, {"w", 604800000}};
    if (text.empty())
        throw std::invalid_argument("empty duration");
    long long total = 0;
    size_t i = 0;
    while (i < text.size()) {
        size_t digits = i;
        while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
            ++digits;
        if (digits == i || digits - i > 9)
            throw std::invalid_argument("duration " + text + " is not like 30s, 5m or 1h30m");
        long long number = std::stoll(text.substr(i, digits - i));
        bool matched = false;
        for (auto [unit, ms] : units) {
            std::string u = unit;
            if (text.compare(digits, u.size(), u) == 0) {
                total += number * ms;
                i = digits + u.size();
                matched = true;
                break;
            }
        }
        if (!matched)
            throw std::invalid_argument("duration " + text + " is not like 30s, 5m or 1h30m");
    }
    return std::chrono::milliseconds(total);
}

std::chrono::milliseconds probe_timeout(const std::string *scrape_timeout_header, double offset, int timeout_ms)
{
    if (scrape_timeout_header) {
        const char *begin = scrape_timeout_header->c_str();
        char *end = nullptr;
        errno = 0;
        double seconds = std::strtod(begin, &end);
        if (end != begin && *end == '\0' && errno == 0 && std::isfinite(seconds) && seconds > 0 &&
            seconds <= 86400) {
            double allowed = seconds - offset > 0 ? seconds - offset : seconds;
            return std::chrono::milliseconds(std::max<long long>(1, std::llround(allowed * 1000)));
        }
    }
    return std::chrono::milliseconds(timeout_ms);
}

Server::Server(Config config, Prober &prober, ServerOptions options)
    : config_(std::move(config)), prober_(prober), options_(options), http_(std::make_unique<httplib::Server>())
{
    if (options_.max_requests == 0)
        throw std::invalid_argument("max_requests must be at least 1");
    for (const auto &[name, module] : config_.modules)
        stats_.emplace(name, ModuleStats{0, 0, Histogram(kDurationBuckets)});
    size_t workers = options_.max_requests;
    http_->new_task_queue = [workers] { return new StampedPool(workers); };
    // One request per connection: a kept-alive connection would hold its
    // worker while idle, and a worker is a probe slot.
    http_->set_keep_alive_max_count(1);
    // SO_REUSEADDR alone: with cpp-httplib's SO_REUSEPORT a second exporter
    // on the same port would bind too and take half the connections. "::"
    // takes IPv4 as well, whatever the host's default.
    http_->set_socket_options([this](int sock) {
        last_socket_ = sock;
        int yes = 1, no = 0;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        setsockopt(sock, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);  // fails harmlessly on IPv4 sockets
    });
    http_->Get("/probe", [this](const httplib::Request &req, httplib::Response &res) { handle_probe(req, res); });
    http_->Get("/metrics", [this](const httplib::Request &req, httplib::Response &res) { handle_metrics(req, res); });
    http_->Get("/", [this](const httplib::Request &req, httplib::Response &res) { handle_index(req, res); });
    http_->set_error_handler([](const httplib::Request &, httplib::Response &res) {
        if (res.body.empty() && res.status == 404)
            res.set_content("not found\n", "text/plain; charset=utf-8");
    });
}

Server::~Server() { stop(); }

int Server::bind(const ListenAddress &address)
{
    std::string host = address.host;
    int port = address.port;
    auto try_bind = [&](const std::string &h) {
        if (port == 0)
            return http_->bind_to_any_port(h);
        return http_->bind_to_port(h, port) ? port : -1;
    };
    int bound = -1;
    if (host.empty()) {
        // Every address: IPv6 and IPv4-mapped where the host has IPv6,
        // IPv4 alone where it has not.
        bound = try_bind("::");
        if (bound < 0)
            bound = try_bind("0.0.0.0");
    } else {
        bound = try_bind(host);
    }
    if (bound < 0)
        throw std::runtime_error("cannot listen on " + (host.find(':') != std::string::npos ? "[" + host + "]" : host) +
                                 ":" + std::to_string(port));
    // cpp-httplib listens with a backlog of 5. A Prometheus server with many
    // targets opens that many connections at once; the kernel drops SYNs
    // beyond the backlog and the client retries a second later, so every
    // scrape past the fifth would start a second late. Listening again on
    // the bound socket raises the backlog.
    if (last_socket_ >= 0) ::listen(last_socket_, SOMAXCONN);
    return bound;
}

void Server::run()
{
    {
        std::lock_guard lock(run_mutex_);
        if (stopping_)
            return;
        running_ = true;
    }
    http_->listen_after_bind();
    std::lock_guard lock(run_mutex_);
    running_ = false;
    run_changed_.notify_all();
}

void Server::stop()
{
    std::unique_lock lock(run_mutex_);
    stopping_ = true;
    // The listener may not be accepting yet when run() has just begun;
    // asking again until run() returns covers that moment.
    while (running_) {
        http_->stop();
        run_changed_.wait_for(lock, std::chrono::milliseconds(50));
    }
}

void Server::record(const std::string &module, bool up, double seconds)
{
    std::lock_guard lock(stats_mutex_);
    ModuleStats &s = stats_.at(module);
    ++s.probes;
    if (!up)
        ++s.errors;
    s.durations.observe(seconds);
}

void Server::handle_probe(const httplib::Request &req, httplib::Response &res)
{
    if (!req.has_param("target"))
        return plain(res, 400, "the target parameter is missing: /probe?target=HOST&module=NAME");
    std::string target = req.get_param_value("target");
    if (!acceptable_target(target))
        return plain(res, 400, "the target parameter is not a host name or address");
    std::string module_name = req.has_param("module") ? req.get_param_value("module") : "default";
    auto found = config_.modules.find(module_name);
    if (found == config_.modules.end())
        return plain(res, 400, "unknown module \"" + printable(module_name) + "\"");
    const Module &module = found->second;

    std::optional<std::string> header;
    if (req.has_header("X-Prometheus-Scrape-Timeout-Seconds"))
        header = req.get_header_value("X-Prometheus-Scrape-Timeout-Seconds");
    auto start = Clock::now();
    auto accepted = t_accepted == Clock::time_point{} ? start : t_accepted;
    auto deadline = accepted + probe_timeout(header ? &*header : nullptr, options_.timeout_offset, module.timeout_ms);

    ProbeResult result;
    try {
        result = prober_.probe(target, module, deadline);
    } catch (const std::exception &e) {
        result = ProbeResult{};
        result.error = e.what();
    }
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (result.families.all().empty()) {
        // The Prober always reports up and its duration; should it have
        // failed before it could, say so here.
        result.families.add("ipmi_up", "1 if the BMC answered the probe, 0 if not.", MetricType::gauge, {},
                            result.up ? 1 : 0);
        result.families.add("ipmi_scrape_duration_seconds", "How long the probe took, in seconds.",
                            MetricType::gauge, {}, seconds);
    }
    record(module_name, result.up, seconds);
    if (!result.up) {
        std::string reason = result.error.empty() ? "no reason given" : without(result.error, module.password);
        log_line("probe of " + printable(target) + " with module " + printable(module_name) +
                 " failed: " + printable(reason));
    }
    res.status = 200;
    res.set_content(render_text(result.families), kContentType);
}

Families Server::own_families() const
{
    Families f;
    ProberCounters counters = prober_.counters();
    std::lock_guard lock(stats_mutex_);
    for (const auto &[name, s] : stats_)
        f.add("rmcpp_exporter_probes_total", "Probes answered, per module.", MetricType::counter,
              {{"module", name}}, static_cast<double>(s.probes));
    for (const auto &[name, s] : stats_)
        f.add("rmcpp_exporter_probe_errors_total", "Probes whose BMC did not answer (ipmi_up 0), per module.",
              MetricType::counter, {{"module", name}}, static_cast<double>(s.errors));
    f.add("rmcpp_exporter_sessions_open", "Sessions kept open to BMCs now.", MetricType::gauge, {},
          static_cast<double>(counters.sessions_open));
    f.add("rmcpp_exporter_session_setups_total", "Sessions set up since the exporter started.",
          MetricType::counter, {}, static_cast<double>(counters.session_setups));
    f.add("rmcpp_exporter_sdr_reads_total", "Whole SDR repository reads since the exporter started.",
          MetricType::counter, {}, static_cast<double>(counters.sdr_reads));
    f.add("rmcpp_exporter_sdr_cache_hits_total", "Probes served from a cached SDR repository.",
          MetricType::counter, {}, static_cast<double>(counters.sdr_cache_hits));
    for (const auto &[name, s] : stats_)
        s.durations.add_to(f, "rmcpp_exporter_probe_duration_seconds", "How long probes took, in seconds.",
                           {{"module", name}});
    return f;
}

void Server::handle_metrics(const httplib::Request &, httplib::Response &res)
{
    res.status = 200;
    res.set_content(render_text(own_families()), kContentType);
}

void Server::handle_index(const httplib::Request &, httplib::Response &res)
{
    std::string example_module =
        config_.modules.empty() || config_.modules.count("default") ? "default" : config_.modules.begin()->first;
    std::string html =
        "<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>rmcpp-exporter</title></head>\n<body>\n"
        "<h1>rmcpp-exporter</h1>\n"
        "<p>Reads BMCs over IPMI v2.0 / RMCP+ for Prometheus.</p>\n<ul>\n"
        "<li><a href=\"metrics\">/metrics</a>: the exporter's own metrics</li>\n"
        "<li><a href=\"probe?target=192.0.2.1&amp;module=" +
        html_escape(url_escape(example_module)) + "\">/probe?target=192.0.2.1&amp;module=" +
        html_escape(example_module) + "</a>: read one BMC</li>\n</ul>\n"
        "<h2>Modules</h2>\n<table>\n<tr><th>module</th><th>collectors</th></tr>\n";
    for (const auto &[name, module] : config_.modules) {
        std::string collectors;
        for (const std::string &c : module.collectors)
            collectors += (collectors.empty() ? "" : ", ") + c;
        html += "<tr><td>" + html_escape(name) + "</td><td>" + html_escape(collectors) + "</td></tr>\n";
    }
    html += "</table>\n</body>\n</html>\n";
    res.status = 200;
    res.set_content(html, "text/html; charset=utf-8");
}

}  // namespace exporter
