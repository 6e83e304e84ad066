// RAKP Message 1 sends the console random number Rm, the role byte and the
// user name; RAKP Message 2 brings back the managed system's random number
// Rc, its GUID and, under RAKP-HMAC-SHA1, a key exchange authentication code
// that proves the managed system knows the user's password.
#include <algorithm>

#include "arguments.h"
#include "RAKP_common.h"
#include "session_options.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr uint32_t kRequestSize = 400;


}  // namespace

extern "C" {

RMCPP_API int Make_RAKPMessage1(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                                uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out)
{
    if (rmcpp::args::any_null(state, rm, buffer, length_out)) return rmcpp::args::null_input();
    if (state->user_name_length > sizeof state->user_name) return rmcpp::args::invalid_length();
    const uint8_t name_length = state->user_name_length;
    const uint16_t payload_length = static_cast<uint16_t>(28 + name_length);
    uint32_t header_length = 0;
    if (rmcpp::rakp::start_request(buffer, buffer_size, payload_length + 16u, header_length) != 0) return 3;

    Writer w(buffer + header_length, buffer_size - header_length);
    w.u8(0x06).u8(0x12).u32le(0).u32le(0).u16le(payload_length);
    w.u8(tag).fill(0, 3).u32le(state->bmc_session_id);
    w.bytes(rm, 16);
    w.u8(role).u16le(0).u8(name_length).bytes(state->user_name, name_length);
    *length_out = static_cast<uint32_t>(header_length + w.size());
    return 0;
}

// The RMCP+ status written to rakp_status is what RAKP 3 would carry back:
// 8 for a foreign console session ID, 18 for an illegal parameter.
RMCPP_API int Check_RAKPMessage2(RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t tag,
                                 uint32_t *used, uint8_t *rakp_status)
{
    if (rmcpp::args::any_null(state, data, used, rakp_status)) return rmcpp::args::null_input();
    rmcpp::rakp::ReplyHead head;
    const int r = rmcpp::rakp::check_reply_head(state, data, length, 0x13, tag, used, rakp_status, head);
    if (r != 0) return r;
    uint16_t wanted = 0;
    if (rmcpp::rakp::expected_payload_length(state, 40, 60, 72, wanted) != 0) return 3;
    if (head.payload_length != wanted) {
        lib_log(3, "Received Packet with number of Invalid Payload Length.\n");
        *rakp_status = rmcpp::rakp::kIllegalParameter;
        return 66;
    }
    Reader &p = head.payload;
    p.skip(16);  // Rc, copied out by RAKPMessage1_2
    p.bytes(state->bmc_guid, sizeof state->bmc_guid);
    return 0;
}

// The code is HMAC(password, console session ID | managed system session
// ID | Rm | Rc | GUID | role | N | user name); all its bytes are compared
// (20 under RAKP-HMAC-SHA1, 32 under RAKP-HMAC-SHA256).
RMCPP_API int CheckKeyExchange2(RMCPp_SetupState *state, uint8_t role, const uint8_t *rm, const uint8_t *rc,
                                const uint8_t *received_code, uint8_t *mismatch)
{
    if (rmcpp::args::any_null(state, rm, rc, received_code, mismatch)) return rmcpp::args::null_input();
    if (state->user_key_length > sizeof state->user_password) return rmcpp::args::invalid_length();
    *mismatch = 0;
    if (state->auth_alg == 0) return 0;
    if (state->auth_alg != 1 && !rmcpp::ext::sha256_auth(state, state->auth_alg)) {
        lib_log(3, "Not - supported Authentication algorithm.\n");
        return 1;
    }

    uint8_t input[74];
    Writer w(input, sizeof input);
    w.u32le(state->console_session_id).u32le(state->bmc_session_id);
    w.bytes(rm, 16).bytes(rc, 16).bytes(state->bmc_guid, 16);
    w.u8(role).u8(state->user_name_length).bytes(state->user_name, state->user_name_length);

    uint8_t expected[32];
    uint32_t result_length = 0;
    if (!w.ok() || rmcpp::rakp::rakp_hmac(state, state->auth_alg, state->user_password, state->user_key_length, input,
                                          static_cast<uint32_t>(w.size()), expected, result_length) != 0) {
        lib_log(3, "Could not calculate Auth Code.\n");
        return 1;
    }

    const uint32_t n = rmcpp::rakp::key_exchange_code_length(state, state->auth_alg);
    uint8_t received[32];
    Reader r(received_code, n);
    r.bytes(received, n);
    if (!std::equal(expected, expected + n, received)) *mismatch = 1;
    return 0;
}

// A wrong key exchange code is no failure here: it comes back as
// rakp_status 15, which RAKP 3 then reports to the managed system.
RMCPP_API int RAKPMessage1_2(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag, uint8_t *rc,
                             uint8_t *rakp_status)
{
    if (rmcpp::args::any_null(state, rm, rc, rakp_status)) return rmcpp::args::null_input();
    if (rmcpp::ext::Establishment *e = rmcpp::ext::active(state)) {
        e->rm = rm;
        e->role = role;
        e->have_role = true;
    }
    uint8_t request[kRequestSize];
    uint32_t request_length = 0;
    if (Make_RAKPMessage1(state, rm, role, tag, request, sizeof request, &request_length) != 0) {
        lib_log(3, "Failed to make RAKP Message 1.\n");
        return 3;
    }

    uint8_t response[400];
    uint32_t response_length = 0;
    uint32_t payload_offset = 0;
    const int r = RetryRoutine_RAKP(state, request, request_length, response, sizeof response, &response_length,
                                    0x12, &payload_offset, rakp_status, 0, nullptr, tag);
    // No checker of this phase returns 1, so this path is never taken; it
    // returns success without copying anything, and is kept as it is.
    if (r == 1) return 0;
    if (r != 0) {
        lib_log(3, "Failed to do RAKP Message 1 & 2.\n");
        return r;
    }

    Reader p(response, sizeof response);
    p.skip(payload_offset + 8);
    p.bytes(rc, 16);
    if (state->req_auth_alg == 0) return 0;

    p.skip(16);  // GUID, stored by the checker
    uint8_t code[32];
    p.bytes(code, rmcpp::rakp::key_exchange_code_length(state, state->req_auth_alg));
    uint8_t mismatch = 0;
    const int k = CheckKeyExchange2(state, role, rm, rc, code, &mismatch);
    if (k != 0) {
        lib_log(3, "Failed to calculate Hash Key for checking RAKP Message 2.\n\n");
        return k;
    }
    if (mismatch) {
        lib_log(3, "Received Key of RAKP Message 2 is invalid.\n\n");
        *rakp_status = 15;
    }
    return 0;
}

}  // extern "C"
