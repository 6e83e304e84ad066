// Open sessions kept between scrapes, one per (target, module). A probe
// leases its key's slot: it takes the session waiting there (if any), uses
// it, and leaves it (or a fresh one) behind when the lease ends. Sessions
// are closed when they have been idle too long, at shutdown, and, when
// one failed under a probe, on a closer thread so the probe does not wait
// for the Close Session of a BMC that has stopped answering.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "session.h"

namespace exporter {

using Clock = std::chrono::steady_clock;

// A session with the options it was set up from: cli::Session keeps a
// reference to them, so both live (and move) together.
struct WarmSession {
    explicit WarmSession(cli::Options o) : options(std::move(o)), session(options) {}
    cli::Options options;
    cli::Session session;
};

class SessionCache {
    struct Slot;

public:
    explicit SessionCache(std::chrono::milliseconds idle);
    ~SessionCache();  // closes every session
    SessionCache(const SessionCache &) = delete;
    SessionCache &operator=(const SessionCache &) = delete;

    // One probe's hold on a key. `session` is the cached session, or null
    // when none is open; whatever open session it holds when the lease
    // ends stays in the cache for the next probe of the key.
    class Lease {
    public:
        Lease(SessionCache &cache, std::shared_ptr<Slot> slot);
        ~Lease();
        Lease(const Lease &) = delete;
        Lease &operator=(const Lease &) = delete;

        std::unique_ptr<WarmSession> session;

    private:
        SessionCache &cache_;
        std::shared_ptr<Slot> slot_;
    };

    // Waits until no other probe holds `key`, at most until `deadline`;
    // null when the other probe still held it then.
    std::unique_ptr<Lease> acquire(const std::string &key, Clock::time_point deadline);

    // Counts a session just set up as open.
    void opened() { ++open_; }
    // Closes a session that failed, off the caller's thread.
    void retire(std::unique_ptr<WarmSession> session);

    // Closes the sessions no probe has used since `now - idle`.
    void close_idle(Clock::time_point now);
    // Closes every session, waiting for probes in progress to leave theirs.
    void close_all();

    size_t open() const { return open_.load(); }

private:
    struct Slot {
        std::mutex mutex;
        std::condition_variable free;
        bool busy = false;
        std::unique_ptr<WarmSession> session;
        Clock::time_point last_used{};
        size_t holders = 0;  // probes holding or waiting for the slot; guarded by the map's mutex
    };

    void release(Slot &slot, std::unique_ptr<WarmSession> session);
    void dispose(std::unique_ptr<WarmSession> session);
    void forget_unused(const std::shared_ptr<Slot> &slot);
    void closer();

    const std::chrono::milliseconds idle_;
    std::atomic<size_t> open_{0};

    std::mutex map_mutex_;
    std::unordered_map<std::string, std::shared_ptr<Slot>> slots_;

    std::mutex retired_mutex_;
    std::condition_variable retired_ready_;
    std::deque<std::unique_ptr<WarmSession>> retired_;
    bool stopping_ = false;
    std::thread closer_;
};

}  // namespace exporter
