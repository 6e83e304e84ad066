#include "session_options.h"

#include <openssl/crypto.h>
#include <pthread.h>
#include <sys/random.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <cerrno>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "wire.h"

namespace rmcpp::ext {

namespace {

bool from_kernel(uint8_t *out, size_t count)
{
    size_t done = 0;
    while (done < count) {
        const ssize_t n = getrandom(out + done, count - done, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

// Kernel random bytes are drawn a few hundred at a time into a pool of the
// calling thread's and handed out from there, each byte once: one system
// call serves many session IDs, Rm values and IVs. A child made by fork
// starts with an empty pool, so it never repeats its parent's bytes.
struct RandomPool {
    uint8_t bytes[256] = {};
    size_t left = 0;
};
thread_local RandomPool pool;

void forget_pool()
{
    OPENSSL_cleanse(pool.bytes, sizeof pool.bytes);
    pool.left = 0;
}

}  // namespace

bool kernel_random(uint8_t *out, size_t count)
{
    static std::once_flag fork_hook;
    std::call_once(fork_hook, [] { pthread_atfork(nullptr, nullptr, forget_pool); });
    if (count > sizeof pool.bytes) return from_kernel(out, count);
    if (pool.left < count) {
        if (!from_kernel(pool.bytes, sizeof pool.bytes)) return false;
        pool.left = sizeof pool.bytes;
    }
    uint8_t *next = pool.bytes + sizeof pool.bytes - pool.left;
    std::memcpy(out, next, count);
    OPENSSL_cleanse(next, count);
    pool.left -= count;
    return true;
}

namespace {

thread_local Establishment *current = nullptr;

bool kernel_source(const RMCPp_SetupState *state)
{
    const Establishment *e = active(state);
    return e != nullptr && e->random_source == RMCPP_RANDOM_KERNEL;
}

}  // namespace

Establishment *active(const RMCPp_SetupState *state)
{
    return current != nullptr && current->state == state ? current : nullptr;
}

EstablishmentScope::EstablishmentScope(Establishment &e) : previous_(current) { current = &e; }
EstablishmentScope::~EstablishmentScope() { current = previous_; }

Establishment *exchange_current(Establishment *next)
{
    Establishment *previous = current;
    current = next;
    return previous;
}

uint32_t session_id(const RMCPp_SetupState *state)
{
    if (!kernel_source(state)) return MakeSessionID();
    // Zero means "no session" on the wire; draw again.
    for (;;) {
        uint8_t bytes[4];
        if (!kernel_random(bytes, sizeof bytes)) return MakeSessionID();
        const uint32_t id = wire::Reader(bytes, sizeof bytes).u32le();
        if (id != 0) return id;
    }
}

int random_number(const RMCPp_SetupState *state, uint8_t out[16])
{
    if (!kernel_source(state)) return MakeRandomNumber(out);
    if (kernel_random(out, 16)) return 0;
    lib_log(3, "Could not generate random number.\n\n");
    return 1;
}

// ---------------------------------------------------------------- open sessions

namespace {

// Each entry keeps the IDs of the session it was made for: a record freed
// without detach (which the library never does) and a new one made at the
// same address do not share extras.
struct Entry {
    uint32_t console_session_id = 0;
    uint32_t bmc_session_id = 0;
    SessionExtras extras;
    std::unique_ptr<keys::PacketKeys> keys;
};

// Sessions on many threads look their entries up with every packet; the
// table is split so that they seldom meet on one lock.
struct Shard {
    std::shared_mutex lock;
    std::unordered_map<const RMCPp_Session *, Entry> entries;
};
constexpr size_t kShards = 64;
Shard shards[kShards];

Shard &shard_of(const RMCPp_Session *session)
{
    const auto p = reinterpret_cast<uintptr_t>(session);
    return shards[((p >> 4) ^ (p >> 12)) % kShards];
}

// Lets the packet path of hosts that never open a session skip the locks.
std::atomic<size_t> registered{0};
// Open sessions beyond this many key their packets afresh, so a host that
// never closes its sessions cannot grow the table without end.
constexpr size_t kMaxKeyedSessions = 65536;

}  // namespace

void attach(const RMCPp_Session *session, const SessionExtras &extras)
{
    Entry entry{session->console_session_id, session->bmc_session_id, extras, nullptr};
    if (registered.load(std::memory_order_relaxed) < kMaxKeyedSessions) {
        entry.keys = std::make_unique<keys::PacketKeys>();
        const uint8_t *k1 = session->integrity_alg == kHmacSha256_128 ? extras.integrity_key : nullptr;
        if (!entry.keys->make(*session, k1)) entry.keys.reset();
    }
    Shard &shard = shard_of(session);
    const std::unique_lock hold(shard.lock);
    const bool added = shard.entries.insert_or_assign(session, std::move(entry)).second;
    if (added) registered.fetch_add(1, std::memory_order_release);
}

void detach(const RMCPp_Session *session)
{
    if (registered.load(std::memory_order_acquire) == 0) return;
    Shard &shard = shard_of(session);
    Entry gone;
    {
        const std::unique_lock hold(shard.lock);
        const auto it = shard.entries.find(session);
        if (it == shard.entries.end()) return;
        gone = std::move(it->second);
        shard.entries.erase(it);
        registered.fetch_sub(1, std::memory_order_release);
    }
    // The keys are freed outside the lock.
}

Attached attached(const RMCPp_Session *session)
{
    if (registered.load(std::memory_order_acquire) == 0) return {};
    Shard &shard = shard_of(session);
    const std::shared_lock hold(shard.lock);
    const auto it = shard.entries.find(session);
    if (it == shard.entries.end() || it->second.console_session_id != session->console_session_id ||
        it->second.bmc_session_id != session->bmc_session_id)
        return {};
    Entry &e = it->second;
    return {&e.extras, e.keys != nullptr && e.keys->match(*session) ? e.keys.get() : nullptr};
}

int packet_random(const SessionExtras *extras, uint8_t out[16])
{
    if (extras == nullptr || !extras->kernel_random) return MakeRandomNumber(out);
    return kernel_random(out, 16) ? 0 : 1;
}

}  // namespace rmcpp::ext
