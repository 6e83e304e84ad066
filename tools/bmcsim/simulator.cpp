#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "engine.h"

namespace bmcsim {

namespace {

// The address and port of a socket address of either family.
detail::Address address_of(const sockaddr_storage &a, uint16_t *port = nullptr)
{
    detail::Address out;
    if (a.ss_family == AF_INET6) {
        const auto &v6 = reinterpret_cast<const sockaddr_in6 &>(a);
        std::copy(v6.sin6_addr.s6_addr, v6.sin6_addr.s6_addr + 16, out.bytes.begin());
        out.scope = v6.sin6_scope_id;
        if (port) *port = ntohs(v6.sin6_port);
    } else {
        const auto &v4 = reinterpret_cast<const sockaddr_in &>(a);
        out = detail::Address::v4(ntohl(v4.sin_addr.s_addr));
        if (port) *port = ntohs(v4.sin_port);
    }
    return out;
}

}  // namespace

std::vector<Clock::time_point> Stats::times(Kind kind) const
{
    std::vector<Clock::time_point> t;
    for (const auto &d : datagrams)
        if (d.kind == kind) t.push_back(d.at);
    return t;
}

std::vector<Bytes> Stats::of(Kind kind) const
{
    std::vector<Bytes> b;
    for (const auto &d : datagrams)
        if (d.kind == kind) b.push_back(d.bytes);
    return b;
}

std::vector<Bytes> Stats::messages() const
{
    std::vector<Bytes> b;
    for (const auto &d : datagrams)
        if (d.kind == Kind::SessionPacket && !d.message.empty()) b.push_back(d.message);
    return b;
}

bool Stats::logged(const std::string &text) const
{
    return std::any_of(events.begin(), events.end(),
                       [&](const std::string &e) { return e.find(text) != std::string::npos; });
}

struct Simulator::Impl {
    struct Pending {
        Clock::time_point due;
        uint64_t order;
        Kind kind;
        Bytes bytes;
        sockaddr_storage to;
        socklen_t to_length;
        int fd;  // the socket the request came in on
    };

    explicit Impl(Config c) : config(std::move(c)), engine([this](const std::string &l) { event(l); })
    {
        stats.chassis = config.chassis;
    }

    // Under mu. A changed chassis configuration replaces the running chassis.
    void replace(Config c)
    {
        c.address = config.address;
        c.extra_addresses = config.extra_addresses;
        c.port = config.port;
        if (!(c.chassis == config.chassis)) stats.chassis = c.chassis;
        config = std::move(c);
        reset = true;
    }

    void event(const std::string &line)
    {
        std::function<void(const std::string &)> s;
        {
            std::lock_guard<std::mutex> g(mu);
            stats.events.push_back(line);
            s = sink;
        }
        if (s) s(line);
    }

    void serve()
    {
        std::vector<uint8_t> buf(65536);
        while (!quit.load()) {
            int wait_ms = -1;
            auto now = Clock::now();
            if (!pending.empty()) {
                auto first = std::min_element(pending.begin(), pending.end(), earlier);
                auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(first->due - now).count();
                wait_ms = ms < 0 ? 0 : static_cast<int>(ms) + 1;
            }
            std::vector<pollfd> p{{wake, POLLIN, 0}};
            for (int f : fds) p.push_back({f, POLLIN, 0});
            int n = ::poll(p.data(), p.size(), wait_ms);
            if (n < 0 && errno != EINTR) break;
            if (n > 0 && (p[0].revents & POLLIN)) {
                uint64_t v;
                if (::read(wake, &v, sizeof v) < 0) { /* nothing to drain */ }
            }
            for (size_t i = 1; n > 0 && i < p.size(); ++i)
                if (p[i].revents & POLLIN) receive(p[i].fd, buf);
            flush_due();
        }
    }

    static bool earlier(const Pending &a, const Pending &b)
    {
        return a.due != b.due ? a.due < b.due : a.order < b.order;
    }

    void receive(int fd, std::vector<uint8_t> &buf)
    {
        sockaddr_storage from{};
        socklen_t len = sizeof from;
        ssize_t n = ::recvfrom(fd, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr *>(&from), &len);
        if (n < 0) return;
        uint16_t port = 0;
        detail::Address ip = address_of(from, &port);
        Bytes datagram(buf.begin(), buf.begin() + n);
        auto at = Clock::now();
        Config c;
        {
            std::lock_guard<std::mutex> g(mu);
            c = config;
            if (reset) {
                engine.reset_counters();
                reset = false;
            }
        }
        detail::Outcome o = engine.handle(datagram, c, {ip, port, local_ip(fd)});
        {
            std::lock_guard<std::mutex> g(mu);
            stats.received[static_cast<size_t>(o.kind)]++;
            stats.datagrams.push_back({o.kind, at, datagram, o.message});
            stats.sessions_established = engine.established();
            stats.sessions_closed = engine.closed();
            stats.sessions = engine.sessions();
            stats.rejected_packets = engine.rejected();
            stats.chassis = engine.chassis(c);
        }
        cv.notify_all();
        for (auto &out : o.out)
            pending.push_back({at + std::chrono::milliseconds(out.delay_ms), seq++, o.kind, std::move(out.bytes), from, len, fd});
    }

    // The address the socket is bound to.
    detail::Address local_ip(int fd) const
    {
        for (size_t i = 0; i < fds.size(); ++i)
            if (fds[i] == fd) return local_ips[i];
        return {};
    }

    void flush_due()
    {
        std::sort(pending.begin(), pending.end(), earlier);
        auto now = Clock::now();
        size_t done = 0;
        for (; done < pending.size() && pending[done].due <= now; ++done) {
            const Pending &p = pending[done];
            {
                // Recorded first, so a test that has the answer also sees it here.
                std::lock_guard<std::mutex> g(mu);
                stats.sent.push_back({p.kind, now, p.bytes, {}});
            }
            ::sendto(p.fd, p.bytes.data(), p.bytes.size(), 0, reinterpret_cast<const sockaddr *>(&p.to), p.to_length);
        }
        pending.erase(pending.begin(), pending.begin() + static_cast<long>(done));
    }

    mutable std::mutex mu;
    mutable std::condition_variable cv;
    Config config;
    bool reset = false;
    Stats stats;
    std::function<void(const std::string &)> sink;

    detail::Engine engine;  // server thread only
    std::vector<Pending> pending;
    uint64_t seq = 0;

    std::vector<int> fds;
    std::vector<detail::Address> local_ips;  // of fds
    int wake = -1;
    std::atomic<bool> quit{false};
    std::thread thread;
};

Simulator::Simulator(Config config) : impl_(std::make_unique<Impl>(std::move(config))) {}

Simulator::~Simulator() { stop(); }

namespace {

struct Bound {
    int fd;
    detail::Address local;
    std::string where;  // "127.0.0.5:623", "[::1]:623"
};

// An IPv4 or IPv6 address in numeric form; "[::1]" is taken for "::1" and
// a scope may follow a link-local address ("fe80::1%eth0").
sockaddr_storage parse_address(const std::string &address, uint16_t port, socklen_t &length)
{
    std::string host = address;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo *found = nullptr;
    std::string service = std::to_string(port);
    if (host.empty() || ::getaddrinfo(host.c_str(), service.c_str(), &hints, &found) != 0 || !found)
        throw std::runtime_error("bmcsim: not an IPv4 or IPv6 address: " + address);
    sockaddr_storage a{};
    length = found->ai_addrlen;
    std::copy_n(reinterpret_cast<const uint8_t *>(found->ai_addr), found->ai_addrlen, reinterpret_cast<uint8_t *>(&a));
    ::freeaddrinfo(found);
    return a;
}

Bound bound_socket(const std::string &address, uint16_t port)
{
    socklen_t length = 0;
    sockaddr_storage a = parse_address(address, port, length);
    detail::Address local = address_of(a);
    std::string where = (a.ss_family == AF_INET6 ? "[" + local.text() + "]" : local.text()) + ":" + std::to_string(port);
    int fd = ::socket(a.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw std::runtime_error("bmcsim: cannot create a UDP socket: " + std::string(std::strerror(errno)));
    // An IPv6 socket serves IPv6 alone, so :: and 0.0.0.0 can both be bound.
    int only = 1;
    if (a.ss_family == AF_INET6) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&a), length) != 0) {
        int e = errno;
        ::close(fd);
        throw std::runtime_error("bmcsim: cannot bind UDP " + where + ": " + std::strerror(e));
    }
    return {fd, local, where};
}

}  // namespace

void Simulator::start()
{
    if (impl_->thread.joinable()) return;
    Config c = config();
    std::vector<std::string> addresses{c.address};
    addresses.insert(addresses.end(), c.extra_addresses.begin(), c.extra_addresses.end());
    std::vector<Bound> bound;
    try {
        for (const auto &a : addresses) bound.push_back(bound_socket(a, c.port));
    } catch (...) {
        for (const Bound &b : bound) ::close(b.fd);
        throw;
    }
    int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
        for (const Bound &b : bound) ::close(b.fd);
        throw std::runtime_error("bmcsim: eventfd failed");
    }
    impl_->fds.clear();
    impl_->local_ips.clear();
    for (const Bound &b : bound) {
        impl_->fds.push_back(b.fd);
        impl_->local_ips.push_back(b.local);
    }
    impl_->wake = wake;
    impl_->quit = false;
    for (const Bound &b : bound) impl_->event("listening on " + b.where);
    impl_->thread = std::thread([this] { impl_->serve(); });
}

void Simulator::stop()
{
    if (!impl_ || !impl_->thread.joinable()) return;
    impl_->quit = true;
    uint64_t one = 1;
    if (::write(impl_->wake, &one, sizeof one) < 0) { /* the poll timeout ends it */ }
    impl_->thread.join();
    for (int f : impl_->fds) ::close(f);
    ::close(impl_->wake);
    impl_->fds.clear();
    impl_->local_ips.clear();
    impl_->wake = -1;
    impl_->pending.clear();
    impl_->event("stopped");
}

bool Simulator::running() const { return impl_->thread.joinable(); }

void Simulator::update(Config config)
{
    std::lock_guard<std::mutex> g(impl_->mu);
    impl_->replace(std::move(config));
}

void Simulator::modify(const std::function<void(Config &)> &change)
{
    std::lock_guard<std::mutex> g(impl_->mu);
    Config c = impl_->config;
    change(c);
    impl_->replace(std::move(c));
}

Config Simulator::config() const
{
    std::lock_guard<std::mutex> g(impl_->mu);
    return impl_->config;
}

Stats Simulator::stats() const
{
    std::lock_guard<std::mutex> g(impl_->mu);
    return impl_->stats;
}

void Simulator::clear_stats()
{
    std::lock_guard<std::mutex> g(impl_->mu);
    ChassisState chassis = impl_->stats.chassis;
    impl_->stats = Stats{};
    impl_->stats.chassis = chassis;
}

bool Simulator::wait_for(Kind kind, size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> g(impl_->mu);
    return impl_->cv.wait_for(g, timeout, [&] { return impl_->stats.count(kind) >= count; });
}

void Simulator::on_log(std::function<void(const std::string &)> sink)
{
    std::lock_guard<std::mutex> g(impl_->mu);
    impl_->sink = std::move(sink);
}

}  // namespace bmcsim
