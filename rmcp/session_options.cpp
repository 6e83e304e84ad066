#include "session_options.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "wire.h"

namespace rmcpp::ext {

bool kernel_random(uint8_t *out, size_t count)
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

std::shared_mutex registry_lock;
// Each entry keeps the IDs of the session it was made for: a record freed
// without detach (which the library never does) and a new one made at the
// same address do not share extras.
struct Entry {
    uint32_t console_session_id;
    uint32_t bmc_session_id;
    SessionExtras extras;
};
std::unordered_map<const RMCPp_Session *, Entry> registry;
// Lets the packet path of hosts that never use the options skip the lock.
std::atomic<size_t> registered{0};

}  // namespace

void attach(const RMCPp_Session *session, const SessionExtras &extras)
{
    const std::unique_lock hold(registry_lock);
    registry[session] = Entry{session->console_session_id, session->bmc_session_id, extras};
    registered.store(registry.size(), std::memory_order_release);
}

void detach(const RMCPp_Session *session)
{
    if (registered.load(std::memory_order_acquire) == 0) return;
    const std::unique_lock hold(registry_lock);
    registry.erase(session);
    registered.store(registry.size(), std::memory_order_release);
}

const SessionExtras *extras_of(const RMCPp_Session *session)
{
    if (registered.load(std::memory_order_acquire) == 0) return nullptr;
    const std::shared_lock hold(registry_lock);
    const auto it = registry.find(session);
    if (it == registry.end() || it->second.console_session_id != session->console_session_id ||
        it->second.bmc_session_id != session->bmc_session_id)
        return nullptr;
    return &it->second.extras;
}

int packet_random(const RMCPp_Session *session, uint8_t out[16])
{
    const SessionExtras *e = extras_of(session);
    if (e == nullptr || !e->kernel_random) return MakeRandomNumber(out);
    return kernel_random(out, 16) ? 0 : 1;
}

}  // namespace rmcpp::ext
