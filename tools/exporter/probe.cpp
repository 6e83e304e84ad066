#include "probe.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include "collectors.h"
#include "rmcpp.h"
#include "sdr_cache.h"
#include "session_cache.h"

namespace exporter {

namespace cmd = rmcpp::commands;

namespace {

const char *const kUpHelp = "1 when a session with the BMC was set up or a kept one answered, else 0.";
const char *const kDurationHelp = "Seconds this probe of the BMC took.";
const char *const kCollectorUpHelp = "1 when the collector read its part of the BMC, else 0.";

// The library waits for answers in whole seconds: one second per wait,
// as many attempts as the time left allows, at most three.
constexpr int kWaitSeconds = 1;
constexpr int kMaxAttempts = 3;
// Session setup has up to five exchanges (presence ping, Get Channel
// Authentication Capabilities, Open Session, RAKP 1, RAKP 3), each given
// the same attempts.
constexpr int kSetupSteps = 5;

long seconds_left(Clock::time_point deadline)
{
    const auto left = deadline - Clock::now();
    return left <= Clock::duration::zero() ? 0 : std::chrono::duration_cast<std::chrono::seconds>(left).count();
}

struct Target {
    std::string host;
    uint16_t port = 0;
};

// "host", "host:port", "[v6]" or "[v6]:port"; a bare IPv6 literal (more
// than one colon) has no port.
bool parse_target(const std::string &text, Target &out)
{
    std::string port;
    if (!text.empty() && text.front() == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos) return false;
        out.host = text.substr(1, close - 1);
        if (close + 1 < text.size()) {
            if (text[close + 1] != ':') return false;
            port = text.substr(close + 2);
            if (port.empty()) return false;
        }
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        const size_t colon = text.find(':');
        out.host = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (port.empty()) return false;
    } else {
        out.host = text;
    }
    if (out.host.empty() || !cli::valid_host(out.host)) return false;
    if (!port.empty()) {
        if (port.size() > 5 || !std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; }))
            return false;
        const unsigned long n = std::stoul(port);
        if (n == 0 || n > 65535) return false;
        out.port = static_cast<uint16_t>(n);
    }
    return true;
}

cli::Options session_options(const Target &target, const Module &m)
{
    cli::Options o;
    o.host = target.host;
    o.port = target.port;
    o.user = m.user;
    o.password = m.password;
    o.cipher_suite = m.cipher_suite;
    o.privilege = m.privilege;
    o.standard_keys = m.standard_keys;
    o.no_ping = !m.ping;
    o.timeout = kWaitSeconds;
    return o;
}

// The session's exchanges, each allowed only the time left before the
// deadline. The first failure of the session (no answer, the session
// released) is kept, and the exchanges after it fail at once: the probe
// decides what to do with the session.
class DeadlineTransport : public cmd::Transport {
public:
    DeadlineTransport(WarmSession &w, Clock::time_point deadline, bool &first_on_kept)
        : w_(w), deadline_(deadline), first_on_kept_(first_on_kept)
    {
    }

    cmd::Reply exchange(uint8_t netfn, uint8_t command, const cmd::Bytes &data) override
    {
        return send([&] { return w_.session.exchange(netfn, command, data); });
    }
    cmd::Reply exchange_lun(uint8_t lun, uint8_t netfn, uint8_t command, const cmd::Bytes &data) override
    {
        return send([&] { return w_.session.exchange_lun(lun, netfn, command, data); });
    }

    int failure() const { return failure_; }
    bool out_of_time() const { return out_of_time_; }

private:
    template <class Send>
    cmd::Reply send(Send send)
    {
        if (failure_ != 0) return {failure_, 0, {}};
        const long left = seconds_left(deadline_);
        if (left < kWaitSeconds) {
            out_of_time_ = true;
            failure_ = RMCPP_ERR_TIMEOUT;
            return {failure_, 0, {}};
        }
        // A kept session may have been dropped by the BMC (restarted, or
        // timed out): its first request gets one attempt, so finding that
        // out costs one wait.
        w_.options.timeout = kWaitSeconds;
        w_.options.attempts =
            first_on_kept_ ? 1 : static_cast<int>(std::min<long>(kMaxAttempts, left / kWaitSeconds));
        cmd::Reply reply = send();
        if (reply.result == 0) first_on_kept_ = false;
        if (reply.result != 0 || !w_.session.is_open()) failure_ = reply.result != 0 ? reply.result : RMCPP_ERR_SESSION;
        return reply;
    }

    WarmSession &w_;
    Clock::time_point deadline_;
    bool &first_on_kept_;
    int failure_ = 0;
    bool out_of_time_ = false;
};

}  // namespace

struct Prober::Impl {
    explicit Impl(std::chrono::milliseconds idle) : sessions(idle) {}

    // A new session for the probe, or null with `error` set.
    std::unique_ptr<WarmSession> set_up(const Target &target, const Module &m, Clock::time_point deadline,
                                        std::string &error)
    {
        const long left = seconds_left(deadline);
        if (left < kWaitSeconds) {
            error = "no time left before the deadline to set up a session";
            return nullptr;
        }
        cli::Options o = session_options(target, m);
        o.attempts = static_cast<int>(std::clamp<long>(left / (kSetupSteps * kWaitSeconds), 1, kMaxAttempts));
        // A failed establishment is started once more from Open Session;
        // with too little time left for that, it is not.
        o.lenient = left < 2 * o.attempts * kWaitSeconds;
        auto w = std::make_unique<WarmSession>(std::move(o));
        const int r = w->session.open();
        if (r != 0) {
            error = std::string("session setup failed: ") + rmcpp_strerror(r);
            return nullptr;
        }
        sessions.opened();
        ++setups;
        return w;
    }

    SessionCache sessions;
    SdrCache sdr;
    std::atomic<size_t> setups{0};
};

Prober::Prober(std::chrono::milliseconds idle) : impl_(std::make_unique<Impl>(idle)) {}

Prober::~Prober() = default;

ProbeResult Prober::probe(const std::string &target, const Module &module, Clock::time_point deadline)
{
    const Clock::time_point start = Clock::now();
    ProbeResult result;
    Families collected;
    auto finish = [&](bool up) {
        Families &f = result.families;
        f.add("ipmi_up", kUpHelp, MetricType::gauge, {}, up ? 1 : 0);
        f.add("ipmi_scrape_duration_seconds", kDurationHelp, MetricType::gauge, {},
              std::chrono::duration<double>(Clock::now() - start).count());
        if (up) f.append(collected);
        result.up = up;
        return result;
    };

    Target where;
    if (!parse_target(target, where)) {
        result.error = "target is not HOST, HOST:PORT or [IPv6]:PORT";
        return finish(false);
    }
    auto lease = impl_->sessions.acquire(target + '\n' + module.name, deadline);
    if (!lease) {
        result.error = "an earlier probe of this target and module still held its session at the deadline";
        return finish(false);
    }
    bool kept = lease->session != nullptr;
    if (!kept) {
        lease->session = impl_->set_up(where, module, deadline, result.error);
        if (!lease->session) return finish(false);
    }

    bool first_on_kept = kept;
    bool usable = true;
    for (const std::string &name : module.collectors) {
        bool ok = false;
        while (usable) {
            DeadlineTransport t(*lease->session, deadline, first_on_kept);
            Families part;
            std::string why;
            try {
                ok = collect(name, t, impl_->sdr, target, part);
                if (!ok) why = "no such collector";
            } catch (const std::exception &e) {
                ok = false;
                why = e.what();
            }
            if (t.failure() == 0) {
                if (ok) {
                    collected.append(part);
                    result.collector_errors.erase(name);
                } else {
                    result.collector_errors[name] = why;
                }
                break;
            }
            ok = false;
            result.collector_errors[name] =
                t.out_of_time() ? "the deadline came first"
                                : std::string("the session failed: ") + rmcpp_strerror(t.failure()) +
                                      lease->session->session.hint(t.failure());
            // Out of time: the session is sound, the probe is over.
            if (t.out_of_time()) {
                usable = false;
                break;
            }
            // The session failed under the collector. A kept one is set up
            // afresh, once, and the collector runs again.
            impl_->sessions.retire(std::move(lease->session));
            if (!kept) {
                usable = false;
                break;
            }
            kept = false;
            first_on_kept = false;
            lease->session = impl_->set_up(where, module, deadline, result.error);
            if (!lease->session) return finish(false);
        }
        if (!ok && !result.collector_errors.count(name))
            result.collector_errors[name] = "not read: the session failed or the deadline came first";
        collected.add("ipmi_collector_up", kCollectorUpHelp, MetricType::gauge, {{"collector", name}}, ok ? 1 : 0);
    }
    return finish(true);
}

void Prober::close_idle(Clock::time_point now) { impl_->sessions.close_idle(now); }

void Prober::close_all() { impl_->sessions.close_all(); }

ProberCounters Prober::counters() const
{
    ProberCounters c;
    c.sessions_open = impl_->sessions.open();
    c.session_setups = impl_->setups.load();
    c.sdr_reads = impl_->sdr.reads();
    c.sdr_cache_hits = impl_->sdr.hits();
    return c;
}

}  // namespace exporter
