#include "session_cache.h"

#include <vector>

namespace exporter {

SessionCache::SessionCache(std::chrono::milliseconds idle) : idle_(idle), closer_([this] { closer(); }) {}

SessionCache::~SessionCache()
{
    close_all();
    {
        std::lock_guard lock(retired_mutex_);
        stopping_ = true;
    }
    retired_ready_.notify_all();
    closer_.join();
}

SessionCache::Lease::Lease(SessionCache &cache, std::shared_ptr<Slot> slot) : cache_(cache), slot_(std::move(slot)) {}

SessionCache::Lease::~Lease()
{
    cache_.release(*slot_, std::move(session));
    cache_.forget_unused(slot_);
}

std::unique_ptr<SessionCache::Lease> SessionCache::acquire(const std::string &key, Clock::time_point deadline)
{
    std::shared_ptr<Slot> slot;
    {
        std::lock_guard lock(map_mutex_);
        auto &entry = slots_[key];
        if (!entry) entry = std::make_shared<Slot>();
        slot = entry;
        ++slot->holders;
    }
    std::unique_lock lock(slot->mutex);
    if (!slot->free.wait_until(lock, deadline, [&] { return !slot->busy; })) {
        lock.unlock();
        forget_unused(slot);
        return nullptr;
    }
    slot->busy = true;
    auto lease = std::make_unique<Lease>(*this, slot);
    lease->session = std::move(slot->session);
    return lease;
}

void SessionCache::release(Slot &slot, std::unique_ptr<WarmSession> session)
{
    // A session the library released (its sequence numbers ran out) is
    // no longer open: nothing to keep.
    std::unique_ptr<WarmSession> gone;
    if (session && !session->session.is_open()) gone = std::move(session);
    {
        std::lock_guard lock(slot.mutex);
        slot.session = std::move(session);
        slot.last_used = Clock::now();
        slot.busy = false;
    }
    slot.free.notify_all();
    if (gone) dispose(std::move(gone));
}

// A slot with no session and no probe holding it leaves the map, so
// targets probed once do not stay in it for ever.
void SessionCache::forget_unused(const std::shared_ptr<Slot> &slot)
{
    std::lock_guard map_lock(map_mutex_);
    --slot->holders;
    if (slot->holders != 0) return;
    std::lock_guard lock(slot->mutex);
    if (slot->busy || slot->session) return;
    for (auto it = slots_.begin(); it != slots_.end(); ++it)
        if (it->second == slot) {
            slots_.erase(it);
            break;
        }
}

void SessionCache::dispose(std::unique_ptr<WarmSession> session)
{
    if (!session) return;
    session->session.close();
    session.reset();
    --open_;
}

void SessionCache::retire(std::unique_ptr<WarmSession> session)
{
    if (!session) return;
    {
        std::lock_guard lock(retired_mutex_);
        retired_.push_back(std::move(session));
    }
    retired_ready_.notify_one();
}

void SessionCache::closer()
{
    std::unique_lock lock(retired_mutex_);
    for (;;) {
        retired_ready_.wait(lock, [&] { return stopping_ || !retired_.empty(); });
        if (retired_.empty()) return;
        std::unique_ptr<WarmSession> session = std::move(retired_.front());
        retired_.pop_front();
        lock.unlock();
        dispose(std::move(session));
        lock.lock();
    }
}

void SessionCache::close_idle(Clock::time_point now)
{
    std::vector<std::shared_ptr<Slot>> slots;
    {
        std::lock_guard lock(map_mutex_);
        for (auto &[key, slot] : slots_) slots.push_back(slot);
    }
    std::vector<std::unique_ptr<WarmSession>> idle;
    for (auto &slot : slots) {
        std::lock_guard lock(slot->mutex);
        if (!slot->busy && slot->session && now - slot->last_used >= idle_) idle.push_back(std::move(slot->session));
    }
    for (auto &session : idle) dispose(std::move(session));
    std::lock_guard lock(map_mutex_);
    for (auto it = slots_.begin(); it != slots_.end();) {
        const std::shared_ptr<Slot> slot = it->second;
        std::lock_guard slot_lock(slot->mutex);
        if (slot->holders == 0 && !slot->busy && !slot->session) it = slots_.erase(it);
        else ++it;
    }
}

void SessionCache::close_all()
{
    std::vector<std::shared_ptr<Slot>> slots;
    {
        std::lock_guard lock(map_mutex_);
        for (auto &[key, slot] : slots_) slots.push_back(slot);
    }
    for (auto &slot : slots) {
        std::unique_ptr<WarmSession> session;
        {
            // A probe in progress gives its slot back by its deadline.
            std::unique_lock lock(slot->mutex);
            slot->free.wait(lock, [&] { return !slot->busy; });
            session = std::move(slot->session);
        }
        dispose(std::move(session));
    }
    std::unique_lock lock(retired_mutex_);
    while (!retired_.empty()) {
        std::unique_ptr<WarmSession> session = std::move(retired_.front());
        retired_.pop_front();
        lock.unlock();
        dispose(std::move(session));
        lock.lock();
    }
}

}  // namespace exporter
