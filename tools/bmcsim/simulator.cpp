#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <queue>
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

// One address the simulator serves: its socket and the BMC behind it.
struct Endpoint {
    int fd = -1;
    detail::Address local;
    std::string where;                        // "127.0.0.5:623", "[::1]:623"
    std::unique_ptr<detail::Engine> engine;   // made at the first datagram
    uint64_t generation = 0;                  // of the configuration its counters follow
    // What Stats shows of the engine, copied under Impl::mu after each datagram.
    size_t established = 0, closed = 0, rejected = 0;
    std::vector<SessionInfo> sessions;
};

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
    struct Later {
        bool operator()(const Pending &a, const Pending &b) const
        {
            return a.due != b.due ? a.due > b.due : a.order > b.order;
        }
    };

    // A server thread and the addresses it serves. Answers held back by a
    // delay wait in its own queue, so a slow answer on one address holds up
    // nobody else.
    struct Shard {
        std::vector<size_t> endpoints;  // indices into Impl::endpoints
        int epoll = -1;
        int wake = -1;
        std::priority_queue<Pending, std::vector<Pending>, Later> pending;
        uint64_t seq = 0;
        std::thread thread;
    };

    explicit Impl(Config c) : config(std::make_shared<const Config>(std::move(c)))
    {
        stats.chassis = config->chassis;
    }

    // Under mu. A changed chassis configuration replaces the running chassis.
    void replace(Config c)
    {
        c.address = config->address;
        c.extra_addresses = config->extra_addresses;
        c.port = config->port;
        c.server_threads = config->server_threads;
        if (!(c.chassis == config->chassis)) stats.chassis = c.chassis;
        config = std::make_shared<const Config>(std::move(c));
        ++generation;
    }

    void event(const std::string &line)
    {
        std::function<void(const std::string &)> s;
        {
            std::lock_guard<std::mutex> g(mu);
            if (config->keep_record) stats.events.push_back(line);
            s = sink;
        }
        if (s) s(line);
    }

    void serve(Shard &shard)
    {
        std::vector<uint8_t> buf(65536);
        std::vector<epoll_event> ready(256);
        while (!quit.load()) {
            int wait_ms = -1;
            if (!shard.pending.empty()) {
                auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(shard.pending.top().due - Clock::now())
                              .count();
                wait_ms = ms < 0 ? 0 : static_cast<int>(ms) + 1;
            }
            int n = ::epoll_wait(shard.epoll, ready.data(), static_cast<int>(ready.size()), wait_ms);
            if (n < 0 && errno != EINTR) break;
            for (int i = 0; i < n; ++i) {
                if (ready[static_cast<size_t>(i)].data.u64 == kWakeToken) {
                    uint64_t v;
                    if (::read(shard.wake, &v, sizeof v) < 0) { /* nothing to drain */ }
                    continue;
                }
                receive_burst(shard, endpoints[ready[static_cast<size_t>(i)].data.u64], buf);
            }
            flush_due(shard);
        }
    }

    // Takes what one socket has queued, a bounded number at a time so that a
    // flood on one address leaves the others their turn.
    void receive_burst(Shard &shard, Endpoint &ep, std::vector<uint8_t> &buf)
    {
        for (int i = 0; i < kBurst; ++i)
            if (!receive(shard, ep, buf)) return;
    }

    bool receive(Shard &shard, Endpoint &ep, std::vector<uint8_t> &buf)
    {
        sockaddr_storage from{};
        socklen_t len = sizeof from;
        ssize_t n = ::recvfrom(ep.fd, buf.data(), buf.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &len);
        if (n < 0) return false;
        uint16_t port = 0;
        detail::Address ip = address_of(from, &port);
        Bytes datagram(buf.begin(), buf.begin() + n);
        auto at = Clock::now();
        std::shared_ptr<const Config> c;
        uint64_t gen;
        {
            std::lock_guard<std::mutex> g(mu);
            c = config;
            gen = generation;
        }
        if (!ep.engine) {
            std::string prefix = endpoints.size() > 1 ? ep.local.text() + ": " : "";
            ep.engine = std::make_unique<detail::Engine>(
                [this, prefix](const std::string &l) { event(prefix.empty() ? l : prefix + l); });
            ep.generation = gen;
        } else if (ep.generation != gen) {
            ep.engine->reset_counters();
            ep.generation = gen;
        }
        detail::Outcome o = ep.engine->handle(datagram, *c, {ip, port, ep.local});
        const bool primary = &ep == &endpoints.front();
        {
            std::lock_guard<std::mutex> g(mu);
            stats.received[static_cast<size_t>(o.kind)]++;
            if (c->keep_record) {
                stats.datagrams.push_back({o.kind, at, datagram, o.message});
                ep.sessions = ep.engine->sessions();
            }
            ep.established = ep.engine->established();
            ep.closed = ep.engine->closed();
            ep.rejected = ep.engine->rejected();
            if (primary) stats.chassis = ep.engine->chassis(*c);
        }
        cv.notify_all();
        for (auto &out : o.out)
            shard.pending.push(
                {at + std::chrono::milliseconds(out.delay_ms), shard.seq++, o.kind, std::move(out.bytes), from, len, ep.fd});
        flush_due(shard);
        return true;
    }

    void flush_due(Shard &shard)
    {
        auto now = Clock::now();
        bool record = false;
        {
            std::lock_guard<std::mutex> g(mu);
            record = config->keep_record;
        }
        while (!shard.pending.empty() && shard.pending.top().due <= now) {
            const Pending &p = shard.pending.top();
            if (record) {
                // Recorded first, so a test that has the answer also sees it here.
                std::lock_guard<std::mutex> g(mu);
                stats.sent.push_back({p.kind, now, p.bytes, {}});
            }
            ::sendto(p.fd, p.bytes.data(), p.bytes.size(), 0, reinterpret_cast<const sockaddr *>(&p.to), p.to_length);
            shard.pending.pop();
        }
    }

    // Under mu: the record with what the engines hold added.
    Stats snapshot() const
    {
        Stats s = stats;
        for (const Endpoint &ep : endpoints) {
            s.sessions_established += ep.established;
            s.sessions_closed += ep.closed;
            s.rejected_packets += ep.rejected;
            s.sessions.insert(s.sessions.end(), ep.sessions.begin(), ep.sessions.end());
        }
        return s;
    }

    static constexpr uint64_t kWakeToken = ~uint64_t{0};
    static constexpr int kBurst = 32;

    mutable std::mutex mu;
    mutable std::condition_variable cv;
    std::shared_ptr<const Config> config;
    uint64_t generation = 0;  // bumped by each replaced configuration
    Stats stats;               // sessions and their counters live in the endpoints
    std::function<void(const std::string &)> sink;

    std::vector<Endpoint> endpoints;  // the first is Config::address
    std::vector<std::unique_ptr<Shard>> shards;
    std::atomic<bool> quit{false};
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

namespace {

// Thousands of addresses need as many descriptors; the soft limit is raised
// towards the hard one when the set would not fit.
void make_room_for(size_t sockets)
{
    rlimit r{};
    if (::getrlimit(RLIMIT_NOFILE, &r) != 0) return;
    const rlim_t wanted = static_cast<rlim_t>(sockets) + 64;
    if (r.rlim_cur != RLIM_INFINITY && r.rlim_cur < wanted) {
        r.rlim_cur = r.rlim_max == RLIM_INFINITY ? wanted : std::min(wanted, r.rlim_max);
        ::setrlimit(RLIMIT_NOFILE, &r);
    }
}

}  // namespace

void Simulator::start()
{
    if (running()) return;
    Config c = config();
    std::vector<std::string> addresses{c.address};
    addresses.insert(addresses.end(), c.extra_addresses.begin(), c.extra_addresses.end());
    make_room_for(addresses.size());
    std::vector<Bound> bound;
    auto close_all = [&bound] {
        for (const Bound &b : bound) ::close(b.fd);
    };
    try {
        bound.reserve(addresses.size());
        for (const auto &a : addresses) bound.push_back(bound_socket(a, c.port));
    } catch (...) {
        close_all();
        throw;
    }
    const size_t threads = std::clamp<size_t>(static_cast<size_t>(std::max(c.server_threads, 1)), 1, bound.size());
    std::vector<std::unique_ptr<Impl::Shard>> shards;
    auto close_shards = [&shards] {
        for (auto &s : shards) {
            if (s->epoll >= 0) ::close(s->epoll);
            if (s->wake >= 0) ::close(s->wake);
        }
    };
    for (size_t t = 0; t < threads; ++t) {
        auto shard = std::make_unique<Impl::Shard>();
        shard->epoll = ::epoll_create1(EPOLL_CLOEXEC);
        shard->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        epoll_event w{};
        w.events = EPOLLIN;
        w.data.u64 = Impl::kWakeToken;
        bool ok = shard->epoll >= 0 && shard->wake >= 0 && ::epoll_ctl(shard->epoll, EPOLL_CTL_ADD, shard->wake, &w) == 0;
        shards.push_back(std::move(shard));
        if (!ok) {
            close_shards();
            close_all();
            throw std::runtime_error("bmcsim: cannot set up a server thread: " + std::string(std::strerror(errno)));
        }
    }
    for (size_t i = 0; i < bound.size(); ++i) {
        Impl::Shard &shard = *shards[i % threads];
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.u64 = i;
        if (::epoll_ctl(shard.epoll, EPOLL_CTL_ADD, bound[i].fd, &e) != 0) {
            int err = errno;
            close_shards();
            close_all();
            throw std::runtime_error("bmcsim: cannot watch " + bound[i].where + ": " + std::strerror(err));
        }
        shard.endpoints.push_back(i);
    }
    {
        // The addresses never change, so a restarted simulator keeps each
        // address's BMC (sessions, chassis, SEL) as it was.
        std::lock_guard<std::mutex> g(impl_->mu);
        if (impl_->endpoints.size() != bound.size()) impl_->endpoints = std::vector<Endpoint>(bound.size());
        for (size_t i = 0; i < bound.size(); ++i) {
            impl_->endpoints[i].fd = bound[i].fd;
            impl_->endpoints[i].local = bound[i].local;
            impl_->endpoints[i].where = bound[i].where;
        }
    }
    impl_->shards = std::move(shards);
    impl_->quit = false;
    for (const Endpoint &e : impl_->endpoints) impl_->event("listening on " + e.where);
    for (auto &shard : impl_->shards) {
        Impl::Shard *s = shard.get();
        s->thread = std::thread([this, s] { impl_->serve(*s); });
    }
}

void Simulator::stop()
{
    if (!impl_ || !running()) return;
    impl_->quit = true;
    for (auto &shard : impl_->shards) {
        uint64_t one = 1;
        if (::write(shard->wake, &one, sizeof one) < 0) { /* epoll_wait's timeout ends it */ }
    }
    for (auto &shard : impl_->shards) {
        shard->thread.join();
        ::close(shard->epoll);
        ::close(shard->wake);
    }
    impl_->shards.clear();
    {
        std::lock_guard<std::mutex> g(impl_->mu);
        for (Endpoint &e : impl_->endpoints) {
            ::close(e.fd);
            e.fd = -1;
        }
    }
    // Answers still held back are dropped, as before a restart.
    impl_->event("stopped");
}

bool Simulator::running() const { return !impl_->shards.empty(); }

void Simulator::update(Config config)
{
    std::lock_guard<std::mutex> g(impl_->mu);
    impl_->replace(std::move(config));
}

void Simulator::modify(const std::function<void(Config &)> &change)
{
    std::lock_guard<std::mutex> g(impl_->mu);
    Config c = *impl_->config;
    change(c);
    impl_->replace(std::move(c));
}

Config Simulator::config() const
{
    std::lock_guard<std::mutex> g(impl_->mu);
    return *impl_->config;
}

Stats Simulator::stats() const
{
    std::lock_guard<std::mutex> g(impl_->mu);
    return impl_->snapshot();
}

void Simulator::clear_stats()
{
    std::lock_guard<std::mutex> g(impl_->mu);
    ChassisState chassis = impl_->stats.chassis;
    impl_->stats = Stats{};
    impl_->stats.chassis = chassis;
    for (Endpoint &e : impl_->endpoints) {
        e.established = e.closed = e.rejected = 0;
        e.sessions.clear();
    }
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
