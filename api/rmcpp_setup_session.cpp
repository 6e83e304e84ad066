// Session setup with options: host names and IPv6, no presence ping, a key
// mode and random source of the session's own, a kernel-chosen local port,
// strict peer checks, and cipher suites 15 to 17. The establishment itself
// is the one IPMI_SetupSession runs; the options reach it through the
// establishment context of this thread.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "options_input.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "session_options.h"
#include "setup_session.h"
#include "transport.h"

namespace {

using rmcpp::options::refuse;
using rmcpp::transport::Endpoint;

bool standard_keys(const RMCPP_SessionOptions &o)
{
    switch (o.key_mode) {
    case RMCPP_KEYS_LIBRARY: return false;
    case RMCPP_KEYS_STANDARD: return true;
    default: return rmcpp::load_setting(RMCPStandardKeys) != 0;
    }
}

// K1 = HMAC-SHA256(SIK, twenty 0x01 bytes) keys HMAC-SHA256-128. The
// session record's integrity key field gets its first 20 bytes.
bool derive_sha256_integrity_key(const rmcpp::ext::Establishment &e, RMCPp_Session &s,
                                 rmcpp::ext::SessionExtras &extras)
{
    uint8_t constant[20];
    std::memset(constant, 0x01, sizeof constant);
    if (!rmcpp::hmac_sha256(e.sik, sizeof e.sik, constant, sizeof constant, extras.integrity_key)) return false;
    std::memcpy(s.sik, extras.integrity_key, sizeof s.sik);
    return true;
}

}  // namespace

extern "C" {

RMCPP_API int rmcpp_setup_session(IPMI_SessionParam *param, const RMCPP_SessionOptions *options)
{
    if (param == nullptr) return refuse("Null input data.\n");
    RMCPP_SessionOptions o;
    int r = rmcpp::options::read(options, o);
    if (r != 0) return r;

    RMCPp_SetupState prepared;
    uint32_t port = 0;
    r = rmcpp::setup::prepare(param, prepared, port, true);
    if (r != 0) return r;

    std::vector<Endpoint> endpoints;
    r = rmcpp::options::endpoints(*param, o, port, endpoints);
    if (r != 0) return r;

    RMCPp_SetupState state;
    rmcpp::ext::Establishment e;
    for (size_t i = 0; i < endpoints.size(); ++i) {
        state = prepared;
        e = rmcpp::ext::Establishment{};
        e.state = &state;
        e.flags = o.flags;
        e.random_source = o.random_source;
        r = rmcpp::transport::open_socket(endpoints[i], param->local_port, (o.flags & RMCPP_OPT_KERNEL_PORT) != 0,
                                          e.socket_fd);
        if (r == 0) {
            const rmcpp::ext::EstablishmentScope scope(e);
            r = SetupSession(&state, port, static_cast<uint32_t>(param->privilege_level),
                             static_cast<uint32_t>(param->user_lookup_option),
                             static_cast<uint32_t>(param->two_key_login_option), &param->granted_privilege);
        }
        if (r == 0 || i + 1 == endpoints.size() || !rmcpp::options::worth_next_address(r)) break;
        lib_log(1, "No session with %s; trying the next address.\n",
                rmcpp::transport::to_text(endpoints[i]).c_str());
    }
    if (r != 0) {
        lib_log(3, "Failed to set up session.\n");
        return r;
    }

    auto *s = static_cast<RMCPp_Session *>(std::malloc(sizeof(RMCPp_Session)));
    if (s == nullptr) {
        lib_log(3, "Out of resource.\n");
        close(state.socket_fd);
        return RMCPP_ERR_RESOURCE;
    }
    const bool sha256 = state.auth_alg == rmcpp::ext::kRakpHmacSha256;
    rmcpp::setup::open_session(state, *s, !sha256 && standard_keys(o));

    rmcpp::ext::SessionExtras extras;
    extras.kernel_random = o.random_source == RMCPP_RANDOM_KERNEL;
    if (sha256 && state.integrity_alg == rmcpp::ext::kHmacSha256_128 && !derive_sha256_integrity_key(e, *s, extras)) {
        lib_log(3, "Failed to make Integrity Key.\n");
        close(state.socket_fd);
        std::free(s);
        return RMCPP_ERR_INTERNAL;
    }
    rmcpp::ext::attach(s, extras);
    param->session = s;
    param->per_msg_auth_status = s->per_msg_auth_status;
    return 0;
}

}  // extern "C"
