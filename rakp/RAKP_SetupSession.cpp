// The establishment driver: runs the RMCP+ session establishment phases in
// their fixed order over one socket, and the send, wait and retry routine
// that every request/response phase goes through.
#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "RAKP_common.h"
#include "arguments.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "session_options.h"
#include "wire.h"

extern "C" {

RMCPP_API int do_self_check = 1;

// The message builders pack multi-byte fields with these same shifts, least
// significant byte first; the check is by arithmetic, so it holds on hosts
// of either byte order.
RMCPP_API int CheckSelfTypes(void)
{
    const uint32_t word = 0x44332211u;
    if ((word & 0xFF) == 0x11 && ((word >> 8) & 0xFF) == 0x22 && ((word >> 16) & 0xFF) == 0x33 &&
        ((word >> 24) & 0xFF) == 0x44)
        return 0;
    lib_log(3, "RMCP+ Library doesn't work correctly.\n");
    return 3;
}

namespace {

bool known_response_type(uint8_t response_type)
{
    return response_type == 0x00 || response_type == 0x10 || response_type == 0x12 || response_type == 0x14;
}

// Hands one received datagram (after its RMCP header) to the checker of
// the awaited response type.
int check_response(RMCPp_SetupState *state, uint8_t response_type, const uint8_t *data, uint32_t *length,
                   const IPMI_MsgHeader *expected, uint8_t tag, uint32_t *used, uint8_t *rakp_status)
{
    switch (response_type) {
    case 0x00: return Check_IPMIv15_NonAuth(state, data, length, expected, used);
    case 0x10: return Check_OpenSessResponse(state, data, *length, tag, used);
    case 0x12: return Check_RAKPMessage2(state, data, *length, tag, used, rakp_status);
    default: return Check_RAKPMessage4(state, data, *length, tag, used, rakp_status);
    }
}

// Under the strict-peer option a datagram that fails a check does not end
// the wait. The last such refusal is kept: it becomes the result once the
// attempts run out, or at once when a later attempt draws the same refusal
// again, byte for byte (a BMC that really refuses says so every time; a
// forged or damaged datagram does not repeat).
struct Refusal {
    int code = 0;  // the checker's result, or kKeyMismatch
    int attempt = -1;
    uint8_t rakp_status = 0;
    uint32_t payload_offset = 0;
    uint32_t length = 0;
    std::vector<uint8_t> datagram;
};

// A RAKP 2 or RAKP 4 whose key did not check; the phase itself finds the
// mismatch again in the datagram handed back.
constexpr int kKeyMismatch = -15;
// An Open Session response naming other algorithms than those proposed;
// the setup finds the difference again in the state and reports it.
constexpr int kAlgorithmMismatch = -16;

bool algorithms_agree(const RMCPp_SetupState *state)
{
    return state->auth_alg == state->req_auth_alg && state->integrity_alg == state->req_integrity_alg &&
           state->confidentiality_alg == state->req_confidentiality_alg;
}

bool same_datagram(const Refusal &refusal, const uint8_t *response, uint32_t length)
{
    return refusal.length == length && refusal.datagram.size() >= length &&
           std::memcmp(refusal.datagram.data(), response, length) == 0;
}

// Checks the key exchange code of a RAKP 2 or the integrity check value of
// a RAKP 4 while still waiting, so that a damaged or forged one is dropped.
bool key_checks(RMCPp_SetupState *state, uint8_t response_type, const uint8_t *response, uint32_t size,
                uint32_t payload_offset)
{
    const rmcpp::ext::Establishment *e = rmcpp::ext::active(state);
    if (state->auth_alg == 0 || e == nullptr || e->rm == nullptr || !e->have_role) return true;
    rmcpp::wire::Reader p(response, size);
    p.skip(payload_offset + 8);
    uint8_t mismatch = 0;
    if (response_type == 0x12) {
        uint8_t rc[16];
        uint8_t code[32] = {};
        p.bytes(rc, sizeof rc);
        p.skip(16);
        p.bytes(code, rmcpp::rakp::key_exchange_code_length(state, state->auth_alg));
        if (!p.ok() || CheckKeyExchange2(state, e->role, e->rm, rc, code, &mismatch) != 0) return false;
    } else if (response_type == 0x14) {
        uint8_t value[16] = {};
        p.bytes(value, rmcpp::rakp::integrity_check_value_length(state, state->auth_alg));
        if (!p.ok() || CheckKeyExchange4(state, e->rm, value, &mismatch) != 0) return false;
    }
    return mismatch == 0;
}

int hand_back(const Refusal &refusal, uint8_t *response, uint32_t *response_length, uint32_t *payload_offset,
              uint8_t *rakp_status)
{
    std::memcpy(response, refusal.datagram.data(), refusal.datagram.size());
    *response_length = refusal.length;
    *payload_offset = refusal.payload_offset;
    if (rakp_status != nullptr) *rakp_status = refusal.rakp_status;
    return refusal.code < 0 ? 0 : refusal.code;
}

}  // namespace

RMCPP_API int RetryRoutine_RAKP(RMCPp_SetupState *state, uint8_t *request, uint32_t request_length, uint8_t *response,
                                uint32_t response_size, uint32_t *response_length, uint8_t response_type,
                                uint32_t *payload_offset, uint8_t *rakp_status, uint8_t send_only,
                                const IPMI_MsgHeader *expected, uint8_t tag)
{
    if (rmcpp::args::any_null(state, request, response, response_length, payload_offset))
        return rmcpp::args::null_input();
    // The IPMI v1.5 checker matches against `expected`; the RAKP checkers
    // write the RMCP+ status.
    if ((response_type == 0x00 && expected == nullptr) ||
        ((response_type == 0x12 || response_type == 0x14) && rakp_status == nullptr))
        return rmcpp::args::null_input();
    const bool strict = rmcpp::ext::strict_peer(state);
    Refusal refusal;
    // An 8-bit counter: a retry count above 255 makes it wrap, so the
    // attempts never run out. Kept as it is.
    for (uint8_t n = 0; n < state->retry_count; ++n) {
        if (Send_RMCP(state->socket_fd, request, request_length, 0) != 0) continue;
        if (send_only) return 0;

        struct timeval start;
        if (gettimeofday(&start, nullptr) != 0) {
            lib_log(2, "Failed to get starting time.\n");
            continue;
        }
        const struct timeval timeout = {state->timeout_sec, 0};
        struct timeval now = start;
        struct timeval remaining = timeout;

        while (CheckTimeOver(&start, &now, &timeout, &remaining) == 0) {
            *response_length = response_size;
            const int received = Receive_RMCP(state->socket_fd, response, response_length, 0, &remaining);
            if (gettimeofday(&now, nullptr) != 0) lib_log(1, "Failed to get current time.\n");
            if (received != 0) continue;

            uint32_t used = 0;
            *payload_offset = 0;
            if (Check_RMCPHead(response, response_length, &used) != 0) {
                lib_log(1, "Receive Packet with Invalid RMCP Header.\n");
                continue;
            }
            *payload_offset += used;
            // An unknown type ends the routine with 69 at once; only a
            // checker's 69 means "not this datagram, keep waiting".
            if (!known_response_type(response_type)) {
                lib_log(3, "Undefined Response Type.\n");
                return 69;
            }
            used = 0;
            const int checked = check_response(state, response_type, response + *payload_offset, response_length,
                                               expected, tag, &used, rakp_status);
            *payload_offset += used;
            if (checked == 69) continue;  // not the awaited response: keep waiting
            if (!strict) return checked;
            int code = checked;
            if (code == 0 && !key_checks(state, response_type, response, response_size, *payload_offset))
                code = kKeyMismatch;
            if (code == 0 && response_type == 0x10 && !algorithms_agree(state)) code = kAlgorithmMismatch;
            if (code == 0) return 0;
            if (code == refusal.code && refusal.attempt >= 0 && refusal.attempt != n &&
                same_datagram(refusal, response, *response_length)) {
                lib_log(1, "The same refusal came again; taking it.\n");
                return code < 0 ? 0 : code;
            }
            refusal.code = code;
            refusal.attempt = n;
            refusal.rakp_status = rakp_status != nullptr ? *rakp_status : 0;
            refusal.payload_offset = *payload_offset;
            refusal.length = *response_length;
            refusal.datagram.assign(response, response + response_size);
            lib_log(1, "Dropped a response that failed its check; still waiting.\n");
        }
        lib_log(1, "Timeout, now retrying ...\n");
    }
    if (refusal.attempt >= 0) return hand_back(refusal, response, response_length, payload_offset, rakp_status);
    lib_log(3, "Re-try over.\n");
    return 4;
}

namespace {

// Every failure after the socket is open ends here: close it, return code.
int give_up(RMCPp_SetupState *state, int code, const char *message = nullptr)
{
    if (message) lib_log(3, "%s", message);
    close(state->socket_fd);
    return code;
}

int failed(int code, const char *message)
{
    lib_log(3, "%s", message);
    return code;
}

int agree(uint8_t proposed, uint8_t accepted, const char *what, int code)
{
    if (proposed == accepted) return 0;
    lib_log(3, "%s", what);
    lib_log(3, "Client(%d) <--> Server(%d).\n", proposed, accepted);
    return code;
}

// Open Session, RAKP 1 to 4 and the session keys, over the open socket.
// A failure is logged and returned; the socket stays open.
int establish(RMCPp_SetupState *state, uint32_t privilege, uint32_t name_only_lookup, uint8_t &granted)
{
    uint8_t tag = 1;
    uint8_t role = static_cast<uint8_t>(privilege);
    uint8_t rakp_status = 0;
    int r = OpenSession_Req_Resp(state, role, &granted, tag, &rakp_status);
    if (r != 0) return failed(r, "Failed to do Open Session Request / Response.\n");

    if ((r = agree(state->req_auth_alg, state->auth_alg, "Mismatch Authentication Algorithm.\n", 36))) return r;
    if ((r = agree(state->req_integrity_alg, state->integrity_alg, "Mismatch Integrity Algorithm.\n", 37))) return r;
    if ((r = agree(state->req_confidentiality_alg, state->confidentiality_alg,
                   "Mismatch Confidentiality Algorithm.\n", 38)))
        return r;
    if (role != 0 && role != granted) return failed(39, "Server doesn't allow requested role.\n");

    // From here on `role` is the RAKP role byte.
    tag = 2;
    if (privilege == 0) role = granted;
    if (name_only_lookup) role |= 0x10;

    uint8_t rm[16];
    uint8_t rc[16];
    if (rmcpp::ext::random_number(state, rm) != 0) return 3;

    // A wrong key exchange code in RAKP 2 is no failure here: it comes back
    // as rakp_status 15 and is reported to the managed system in RAKP 3.
    r = RAKPMessage1_2(state, rm, role, tag, rc, &rakp_status);
    if (r != 0) return failed(r, "Failed to do RAKP Message 1 & 2.\n");

    if (MakeSIK(state, role, rm, rc) != 0) return failed(3, "Failed to make SIK.\n");

    tag = 3;
    const uint8_t abort_only = rakp_status != 0 ? 1 : 0;
    r = RAKPMessage3_4(state, rm, role, tag, rc, &rakp_status, abort_only);
    if (abort_only) return 65;
    if (r != 0) return failed(r, "Failed to do RAKP Message 3 & 4.\n");
    if (rakp_status != 0) return failed(66, "Invalid Data in RAKP Message 4.\n");

    return 0;
}

}  // namespace

RMCPP_API int SetupSession(RMCPp_SetupState *state, uint32_t port, uint32_t privilege, uint32_t name_only_lookup,
                           uint32_t two_key_login, uint32_t *granted_out)
{
    if (rmcpp::args::any_null(state, granted_out)) return rmcpp::args::null_input();
    // Two threads may both run the check before either clears the flag;
    // it has no side effects, so that is harmless.
    if (rmcpp::load_setting(do_self_check)) {
        const int r = CheckSelfTypes();
        if (r != 0) return r;
        rmcpp::store_setting(do_self_check, 0);
    }

    // An establishment with options comes with its socket already open.
    const rmcpp::ext::Establishment *options = rmcpp::ext::active(state);
    int r = 0;
    if (options != nullptr)
        state->socket_fd = options->socket_fd;
    else
        r = init_socket(&state->socket_fd, state->bmc_address, port, state->local_port);
    if (r != 0) {
        lib_log(3, "Failed to initialize socket.\n");
        return r;
    }

    const struct timeval ping_limit = {state->timeout_sec, 0};
    const bool ping = options == nullptr || (options->flags & RMCPP_OPT_NO_PING) == 0;
    if (ping && RMCP_PingPong(state->socket_fd, state->retry_count, &ping_limit) != 0)
        return give_up(state, 34, "Failed to ping-pong.\n");

    state->console_session_id = rmcpp::ext::session_id(state);
    state->recv_window_auth = 0xFFFF;
    state->recv_window_unauth = 0xFFFF;
    uint8_t not_supported = 0;

    // Privilege 0 asks the channel about Administrator, but asks Open
    // Session for whatever the managed system allows.
    uint8_t role = static_cast<uint8_t>(privilege != 0 ? privilege : 4);
    r = GetAuthCapa_v15(state, &not_supported, role);
    if (r != 0) return give_up(state, r, "Failed to Get Channel Authentication Capabilities.\n");
    if (not_supported) return give_up(state, 35, "Not Supported RMCP+.\n");
    if (two_key_login && state->kg_status == 0) return give_up(state, 1, "Not-permit 2 key login.\n");

    uint8_t granted = 0;
    r = establish(state, privilege, name_only_lookup, granted);
    // Under the strict-peer option one spoiled exchange (an Open Session
    // response damaged where no check can see it, a RAKP 3 the managed
    // system refused and forgot) gets a second, fresh establishment.
    if (r != 0 && r != 3 && rmcpp::ext::strict_peer(state)) {
        lib_log(1, "The establishment failed (%d); starting again from Open Session.\n", r);
        state->console_session_id = rmcpp::ext::session_id(state);
        r = establish(state, privilege, name_only_lookup, granted);
    }
    if (r != 0) return give_up(state, r);

    if (MakeConfidentialityKey(state) != 0) return give_up(state, 3, "Failed to make Confidentiality Key.\n");

    state->send_seq_auth = 1;
    state->send_seq_unauth = 1;
    *granted_out = granted;
    return 0;
}

}  // extern "C"
