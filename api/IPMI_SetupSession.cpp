// The library's front door: checks the caller's record, runs the
// establishment and hands back the open session.
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "process_settings.h"
#include "rmcpp.h"
#include "session_options.h"
#include "setup_session.h"

extern "C" {

RMCPP_API uint8_t RMCPConnectSA = 0x71;
RMCPP_API struct timeval RMCPtimeout = {5, 0};

RMCPP_API uint8_t RMCPStandardKeys = 0;

RMCPP_API void IPMI_SetupConnectSA(unsigned value)
{
    rmcpp::store_setting(RMCPConnectSA, static_cast<uint8_t>(value));
}
RMCPP_API void IPMI_SetupStandardKeys(unsigned value)
{
    rmcpp::store_setting(RMCPStandardKeys, static_cast<uint8_t>(value));
}

}  // extern "C"

namespace {

int refuse(const char *message)
{
    lib_log(3, "%s", message);
    return 1;
}

// Proposed authentication, integrity and confidentiality algorithms of
// cipher suites 0 to 3, and with options of 15 to 17 (RAKP-HMAC-SHA256,
// HMAC-SHA256-128, AES-CBC-128).
bool propose_suite(int32_t suite, bool sha256_suites, RMCPp_SetupState &state)
{
    if (sha256_suites && suite >= 15 && suite <= 17) {
        state.req_auth_alg = rmcpp::ext::kRakpHmacSha256;
        state.req_integrity_alg = suite >= 16 ? rmcpp::ext::kHmacSha256_128 : 0;
        state.req_confidentiality_alg = suite >= 17 ? 1 : 0;
        return true;
    }
    if (suite < 0 || suite > 3) return false;
    state.req_auth_alg = suite >= 1 ? 1 : 0;
    state.req_integrity_alg = suite >= 2 ? 1 : 0;
    state.req_confidentiality_alg = suite >= 3 ? 1 : 0;
    return true;
}

// IPMI v2.0 keys: K1 = HMAC-SHA1(SIK, twenty 0x01 bytes) keys the integrity
// code, K2 = HMAC-SHA1(SIK, twenty 0x02 bytes) the payloads. Without
// confidentiality the cipher key stays all zero, as in the library's mode.
void derive_standard_keys(const RMCPp_SetupState &state, RMCPp_Session &s)
{
    uint8_t constant[20];
    uint32_t length = 0;
    std::memset(constant, 0x01, sizeof constant);
    CalculateAuthCode(1, constant, sizeof constant, state.sik, sizeof state.sik, s.sik, &length);
    if (state.confidentiality_alg != 0) {
        std::memset(constant, 0x02, sizeof constant);
        CalculateAuthCode(1, constant, sizeof constant, state.sik, sizeof state.sik, s.cipher_key, &length);
    }
}

}  // namespace

namespace rmcpp::setup {

void open_session(const RMCPp_SetupState &state, RMCPp_Session &s, bool standard_keys)
{
    std::memset(&s, 0, sizeof s);
    s.integrity_alg = state.integrity_alg;
    s.confidentiality_alg = state.confidentiality_alg;
    s.console_session_id = state.console_session_id;
    s.send_seq_auth = state.send_seq_auth;
    s.send_seq_unauth = state.send_seq_unauth;
    s.bmc_session_id = state.bmc_session_id;
    s.recv_seq_auth = state.recv_seq_auth;
    s.recv_seq_unauth = state.recv_seq_unauth;
    s.recv_window_auth = state.recv_window_auth;
    s.recv_window_unauth = state.recv_window_unauth;
    std::memcpy(s.sik, state.sik, sizeof s.sik);
    std::memcpy(s.cipher_key, state.cipher_key, sizeof s.cipher_key);
    s.socket_fd = state.socket_fd;
    s.per_msg_auth_status = state.per_msg_auth_status;
    s.user_auth_status = state.user_auth_status;
    s.closed = 0;
    if (standard_keys) derive_standard_keys(state, s);
}

int prepare(const IPMI_SessionParam *param, RMCPp_SetupState &state, uint32_t &port, bool sha256_suites)
{
    std::memset(&state, 0, sizeof state);
    state.bmc_address = param->bmc_address;

    switch (param->port_option) {
    case 0: port = 623; break;
    case 1: port = 664; break;
    default: return refuse("Invalid port option.\n");
    }

    if (param->user_name != nullptr) {
        const size_t n = std::strlen(param->user_name);
        if (n > 16) return refuse("Invalid user name length.\n");
        state.user_name_length = static_cast<uint8_t>(n);
        if (n) std::memcpy(state.user_name, param->user_name, n);
    }

    // The user key is the password zero-padded to 20 bytes, so its length
    // is 20 whatever the password's length.
    if (param->user_password != nullptr) {
        const size_t n = std::strlen(param->user_password);
        if (n > 20) return refuse("Invalid user password length.\n");
        state.user_key_length = 20;
        std::memcpy(state.user_password, param->user_password, n);
    }

    if (param->privilege_level < 0 || param->privilege_level > 5)
        return refuse("Invalid request privilege level.\n");

    if (!propose_suite(param->cipher_suite_id, sha256_suites, state)) return refuse("Invalid Chiper Suite ID.\n");

    if (param->user_lookup_option != 0 && param->user_lookup_option != 1)
        return refuse("Invalid user look-up option.\n");

    switch (param->two_key_login_option) {
    case 0: break;
    case 1: {
        if (param->server_key == nullptr) return refuse("Input server key.\n");
        const size_t n = std::strlen(param->server_key);
        if (n > 20) return refuse("Invalid server key length.\n");
        state.bmc_key_length = 20;
        std::memcpy(state.bmc_key, param->server_key, n);
        break;
    }
    default: return refuse("Invalid two_key_login_option.\n");
    }

    if (param->slave_address & 1) return refuse("Invalid Slave Address connected to.\n");
    state.rs_addr = param->slave_address;
    if (param->lun > 3) return refuse("Invalid LUN connected to.\n");
    state.rs_lun = param->lun;

    state.local_port = param->local_port;

    if (param->retry_count == 0) return refuse("Invalid retry number = 0.\n");
    if (param->timeout_sec == 0) return refuse("Invalid timeout = 0.\n");
    state.retry_count = param->retry_count;
    state.timeout_sec = param->timeout_sec;
    return 0;
}

}  // namespace rmcpp::setup

extern "C" {

RMCPP_API int IPMI_SetupSession(IPMI_SessionParam *param)
{
    if (param == nullptr) return refuse("Null input data.\n");

    RMCPp_SetupState state;
    uint32_t port = 0;
    const int refused = rmcpp::setup::prepare(param, state, port, false);
    if (refused != 0) return refused;

    const int r = SetupSession(&state, port, static_cast<uint32_t>(param->privilege_level),
                               static_cast<uint32_t>(param->user_lookup_option),
                               static_cast<uint32_t>(param->two_key_login_option), &param->granted_privilege);
    if (r != 0) {
        lib_log(3, "Failed to set up session.\n");
        return r;
    }

    param->session = static_cast<RMCPp_Session *>(std::malloc(sizeof(RMCPp_Session)));
    if (param->session == nullptr) {
        // Nothing will ever use the established socket: close it rather than
        // leak it.
        lib_log(3, "Out of resource.\n");
        close(state.socket_fd);
        return 2;
    }
    rmcpp::setup::open_session(state, *param->session, rmcpp::load_setting(RMCPStandardKeys) != 0);
    rmcpp::ext::attach(param->session, rmcpp::ext::SessionExtras{});
    param->per_msg_auth_status = param->session->per_msg_auth_status;
    return 0;
}

}  // extern "C"
