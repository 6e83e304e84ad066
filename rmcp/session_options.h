// What a session set up through rmcpp_setup_session carries beyond the
// records of IPMI_SetupSession: its options while it is being established,
// and the keys and choices its packets need once it is open.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

#include "packet_keys.h"
#include "rmcpp.h"

namespace rmcpp {

// HMAC-SHA256 over data into output; always true.
bool hmac_sha256(const uint8_t *key, uint32_t key_length, const uint8_t *data, uint32_t data_length,
                 uint8_t output[32]);

}  // namespace rmcpp

namespace rmcpp::ext {

constexpr uint8_t kRakpHmacSha256 = 3;
constexpr uint8_t kHmacSha256_128 = 4;

// `count` bytes from the kernel's generator; false when it fails.
bool kernel_random(uint8_t *out, size_t count);

// ---------------------------------------------------------------- establishment

// The options of one establishment run by rmcpp_setup_session. It is set for
// the calling thread while the establishment runs and applies only to the
// state record it names, so the exported establishment functions behave
// exactly as before for every other caller.
struct Establishment {
    const RMCPp_SetupState *state = nullptr;
    uint32_t flags = 0;            // RMCPP_OPT_*
    uint8_t random_source = RMCPP_RANDOM_LIBRARY;
    int socket_fd = -1;            // opened and connected by the caller
    uint8_t sik[32] = {};          // the whole SIK of RAKP-HMAC-SHA256
    // Rm and the role byte, so that a strict wait can check a RAKP 2 or RAKP 4
    // key before it takes the datagram as the answer.
    const uint8_t *rm = nullptr;
    uint8_t role = 0;
    bool have_role = false;
};

// The establishment options for `state`, or null when it runs without them.
Establishment *active(const RMCPp_SetupState *state);

// Sets `e` for the calling thread for the scope's lifetime.
class EstablishmentScope {
public:
    explicit EstablishmentScope(Establishment &e);
    ~EstablishmentScope();
    EstablishmentScope(const EstablishmentScope &) = delete;
    EstablishmentScope &operator=(const EstablishmentScope &) = delete;

private:
    Establishment *previous_;
};

// Sets the calling thread's establishment to `next` and returns the one it
// replaced. Jobs interleaved on one thread each keep their own across a wait.
Establishment *exchange_current(Establishment *next);

// True when `state` is established with options and `alg` is RAKP-HMAC-SHA256.
inline bool sha256_auth(const RMCPp_SetupState *state, uint8_t alg)
{
    return alg == kRakpHmacSha256 && active(state) != nullptr;
}

inline bool strict_peer(const RMCPp_SetupState *state)
{
    const Establishment *e = active(state);
    return e != nullptr && (e->flags & RMCPP_OPT_STRICT_PEER) != 0;
}

// A console session ID or Rm from the source the options chose.
uint32_t session_id(const RMCPp_SetupState *state);
int random_number(const RMCPp_SetupState *state, uint8_t out[16]);

// ---------------------------------------------------------------- open sessions

struct SessionExtras {
    bool kernel_random = false;
    uint8_t integrity_key[32] = {};  // K1 of an HMAC-SHA256-128 session
};

// Registers what `session` carries and makes its packet keys (replacing
// what an earlier attach left); detach drops both. Every session the library
// opens is attached as its last step of setup and detached when released.
void attach(const RMCPp_Session *session, const SessionExtras &extras);
void detach(const RMCPp_Session *session);

// What a packet of `session` can use. Both pointers stay valid until the
// session is detached; one session is used by one thread at a time.
struct Attached {
    const SessionExtras *extras = nullptr;  // null: never attached
    keys::PacketKeys *keys = nullptr;       // null: none, or the record no longer holds their keys
};
Attached attached(const RMCPp_Session *session);

// An IV or other random block for a packet of a session with these extras.
int packet_random(const SessionExtras *extras, uint8_t out[16]);

}  // namespace rmcpp::ext
