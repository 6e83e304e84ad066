#include "lossy_relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace testkit {

RelayCounts &RelayCounts::operator+=(const RelayCounts &o)
{
    received += o.received;
    passed += o.passed;
    dropped += o.dropped;
    duplicated += o.duplicated;
    reordered += o.reordered;
    corrupted += o.corrupted;
    return *this;
}

uint64_t lossy_seed()
{
    if (const char *text = std::getenv("RMCPP_LOSSY_SEED")) return std::strtoull(text, nullptr, 0);
    std::random_device device;
    return (static_cast<uint64_t>(device()) << 32) | device();
}

namespace {

using Clock = std::chrono::steady_clock;
using Datagram = std::vector<uint8_t>;

sockaddr_in ipv4(uint32_t address, uint16_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(address);
    a.sin_port = htons(port);
    return a;
}

std::string where(uint32_t address, uint16_t port)
{
    return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 0xFF) + "." +
           std::to_string((address >> 8) & 0xFF) + "." + std::to_string(address & 0xFF) + ":" +
           std::to_string(port);
}

// A few words on what a datagram is, for the relay's log.
std::string what(const Datagram &b)
{
    if (b.size() < 4) return "runt";
    if (b[3] == 0x06) return "ASF";
    if (b[3] != 0x07 || b.size() < 6) return "class " + std::to_string(b[3]);
    if (b[4] == 0x00) return "IPMI v1.5";
    char text[32];
    std::snprintf(text, sizeof text, "RMCP+ payload 0x%02X", b[5]);
    return text;
}

}  // namespace

struct LossyRelay::Impl {
    struct Direction {
        bool upward;  // console to managed system
        std::optional<Datagram> held;
        Clock::time_point due;
    };

    Impl(uint64_t seed, double r) : rng(seed), rate(r) {}

    ~Impl()
    {
        if (front >= 0) ::close(front);
        if (back >= 0) ::close(back);
    }

    void send(const Direction &d, const Datagram &b)
    {
        if (d.upward) {
            if (::send(back, b.data(), b.size(), 0) < 0) { /* the managed system is gone: a loss like any other */ }
        } else if (have_client) {
            if (::sendto(front, b.data(), b.size(), 0, reinterpret_cast<const sockaddr *>(&client), sizeof client) < 0) {
                /* the console's port is closed: lost */
            }
        }
    }

    void release(Direction &d)
    {
        if (!d.held) return;
        send(d, *d.held);
        d.held.reset();
    }

    void forward(Direction &d, Datagram b)
    {
        const double x = std::uniform_real_distribution<double>(0.0, 1.0)(rng);
        const std::string kind = keeping_log.load() ? std::to_string(b.size()) + " bytes " + what(b) : std::string();
        RelayCounts step;
        step.received = 1;
        size_t corrupted_at = 0;
        if (x < rate) {
            step.dropped = 1;  // anything held stays held
        } else if (x < 2 * rate) {
            send(d, b);
            send(d, b);
            release(d);
            step.duplicated = 1;
        } else if (x < 3 * rate) {
            release(d);  // an earlier held datagram goes first
            d.held = std::move(b);
            d.due = Clock::now() + std::chrono::milliseconds(kHoldMs);
            step.reordered = 1;
        } else if (x < 4 * rate && !b.empty()) {
            const size_t at = std::uniform_int_distribution<size_t>(0, b.size() - 1)(rng);
            b[at] ^= static_cast<uint8_t>(std::uniform_int_distribution<int>(1, 255)(rng));
            corrupted_at = at;
            send(d, b);
            release(d);
            step.corrupted = 1;
        } else {
            send(d, b);
            release(d);
            step.passed = 1;
        }
        const std::lock_guard<std::mutex> hold(mu);
        counts += step;
        if (keeping_log.load()) {
            const std::string done = step.dropped      ? "dropped"
                                     : step.duplicated ? "duplicated"
                                     : step.reordered  ? "held back"
                                     : step.corrupted  ? "byte " + std::to_string(corrupted_at) + " corrupted"
                                                       : "passed";
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count();
            lines.push_back(std::to_string(ms) + " ms " + (d.upward ? "up   " : "down ") + kind + ": " + done);
        }
    }

    int poll_timeout_ms() const
    {
        int ms = 50;  // how often the stop flag is looked at
        const auto now = Clock::now();
        for (const Direction *d : {&up, &down}) {
            if (!d->held) continue;
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(d->due - now).count();
            ms = std::min<int>(ms, left < 0 ? 0 : static_cast<int>(left) + 1);
        }
        return ms;
    }

    void run()
    {
        Datagram buffer(65536);
        while (!quit.load()) {
            pollfd p[2] = {{front, POLLIN, 0}, {back, POLLIN, 0}};
            const int n = ::poll(p, 2, poll_timeout_ms());
            if (n > 0 && (p[0].revents & POLLIN)) {
                sockaddr_in from{};
                socklen_t length = sizeof from;
                const ssize_t got = ::recvfrom(front, buffer.data(), buffer.size(), 0,
                                               reinterpret_cast<sockaddr *>(&from), &length);
                if (got >= 0) {
                    client = from;
                    have_client = true;
                    forward(up, Datagram(buffer.begin(), buffer.begin() + got));
                }
            }
            if (n > 0 && (p[1].revents & POLLIN)) {
                const ssize_t got = ::recv(back, buffer.data(), buffer.size(), 0);
                if (got >= 0) forward(down, Datagram(buffer.begin(), buffer.begin() + got));
            }
            const auto now = Clock::now();
            for (Direction *d : {&up, &down})
                if (d->held && d->due <= now) release(*d);
        }
    }

    int front = -1;  // the console's side
    int back = -1;   // the managed system's side
    sockaddr_in client{};
    bool have_client = false;
    Direction up{true, std::nullopt, {}};
    Direction down{false, std::nullopt, {}};
    std::mt19937_64 rng;
    double rate;

    mutable std::mutex mu;
    RelayCounts counts;
    std::atomic<bool> keeping_log{false};
    std::vector<std::string> lines;
    const Clock::time_point started = Clock::now();
    std::atomic<bool> quit{false};
    std::thread thread;
};

LossyRelay::LossyRelay(uint32_t listen_address, uint16_t listen_port, uint32_t target_address, uint16_t target_port,
                       uint64_t seed, double rate)
    : impl_(std::make_unique<Impl>(seed, rate))
{
    Impl &r = *impl_;
    r.front = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    r.back = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (r.front < 0 || r.back < 0) throw std::runtime_error("lossy relay: cannot create UDP sockets");
    const sockaddr_in listen = ipv4(listen_address, listen_port);
    if (::bind(r.front, reinterpret_cast<const sockaddr *>(&listen), sizeof listen) != 0)
        throw std::runtime_error("lossy relay: cannot bind " + where(listen_address, listen_port));
    const sockaddr_in target = ipv4(target_address, target_port);
    if (::connect(r.back, reinterpret_cast<const sockaddr *>(&target), sizeof target) != 0)
        throw std::runtime_error("lossy relay: cannot connect to " + where(target_address, target_port));
    r.thread = std::thread([&r] { r.run(); });
}

LossyRelay::~LossyRelay()
{
    impl_->quit = true;
    impl_->thread.join();
}

RelayCounts LossyRelay::counts() const
{
    const std::lock_guard<std::mutex> hold(impl_->mu);
    return impl_->counts;
}

void LossyRelay::keep_log()
{
    impl_->keeping_log = true;
}

std::vector<std::string> LossyRelay::log() const
{
    const std::lock_guard<std::mutex> hold(impl_->mu);
    return impl_->lines;
}

}  // namespace testkit
