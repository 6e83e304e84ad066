// RAKP Message 3 proves to the managed system that the console knows the
// user's password, or, after a RAKP 2 that failed its check, tells the
// managed system why the establishment is given up. RAKP Message 4 answers
// with an integrity check value under the new SIK, which proves that both
// sides derived the same session integrity key.
#include <algorithm>

#include "arguments.h"
#include "RAKP_common.h"
#include "session_options.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr uint32_t kShortLength = 24;  // RAKP 3 without a key exchange code

}  // namespace

extern "C" {

// HMAC(password, Rc | console session ID | role | N | user name).
RMCPP_API int MakeKeyExchange3(RMCPp_SetupState *state, const uint8_t *rc, uint8_t role, uint8_t *out)
{
    if (rmcpp::args::any_null(state, rc, out)) return rmcpp::args::null_input();
    if (state->user_key_length > sizeof state->user_password) return rmcpp::args::invalid_length();
    if (state->req_auth_alg == 0) return 0;
    if (state->req_auth_alg != 1 && !rmcpp::ext::sha256_auth(state, state->req_auth_alg)) {
        lib_log(3, "Not - supported Authentication algorithm.\n");
        return 1;
    }
    uint8_t input[38];
    Writer w(input, sizeof input);
    w.bytes(rc, 16).u32le(state->console_session_id);
    w.u8(role).u8(state->user_name_length).bytes(state->user_name, state->user_name_length);

    // The caller's buffer holds the code's own length: 20 bytes, or 32
    // under RAKP-HMAC-SHA256.
    uint8_t code[32];
    uint32_t result_length = 0;
    if (!w.ok() || rmcpp::rakp::rakp_hmac(state, state->req_auth_alg, state->user_password, state->user_key_length,
                                          input, static_cast<uint32_t>(w.size()), code, result_length) != 0) {
        lib_log(3, "Could not calculate Auth Code.\n");
        return 1;
    }
    Writer(out, result_length).bytes(code, result_length);
    return 0;
}

// A RAKP 3 carrying a non-zero status has no key exchange code; neither has
// one under RAKP-none.
RMCPP_API int Make_RAKPMessage3(RMCPp_SetupState *state, uint8_t tag, uint8_t status, const uint8_t *rc,
                                uint8_t role, uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out)
{
    if (rmcpp::args::any_null(state, rc, buffer, length_out)) return rmcpp::args::null_input();
    uint32_t header_length = 0;
    if (rmcpp::rakp::start_request(buffer, buffer_size, kShortLength, header_length) != 0) return 3;
    *length_out = kShortLength;

    Writer w(buffer + header_length, buffer_size - header_length);
    w.u8(0x06).u8(0x14).u32le(0).u32le(0);
    const size_t length_at = w.size();
    w.u16le(0);  // payload length, known at the end
    const size_t payload_at = w.size();
    w.u8(tag).u8(status).u16le(0).u32le(state->bmc_session_id);

    if (status == 0 && state->req_auth_alg != 0) {
        const uint32_t code_length = rmcpp::rakp::key_exchange_code_length(state, state->req_auth_alg);
        if (kShortLength + code_length > buffer_size) {
            lib_log(3, "Insufficient Data Size.\n");
            return 3;
        }
        uint8_t code[32];
        if (MakeKeyExchange3(state, rc, role, code) != 0) {
            lib_log(3, "Failed to calculate Hash Key for RAKP Message 3.\n\n");
            return 3;
        }
        w.bytes(code, code_length);
    }
    w.patch_u16le(length_at, static_cast<uint16_t>(w.size() - payload_at));
    *length_out = static_cast<uint32_t>(header_length + w.size());
    return 0;
}

// Unlike RAKP 2, a RAKP 4 of the wrong payload length is skipped (69) and
// the wait goes on.
RMCPP_API int Check_RAKPMessage4(RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t tag,
                                 uint32_t *used, uint8_t *rakp_status)
{
    if (rmcpp::args::any_null(state, data, used, rakp_status)) return rmcpp::args::null_input();
    rmcpp::rakp::ReplyHead head;
    const int r = rmcpp::rakp::check_reply_head(state, data, length, 0x15, tag, used, rakp_status, head);
    if (r != 0) return r;
    uint16_t wanted = 0;
    if (rmcpp::rakp::expected_payload_length(state, 8, 20, 24, wanted) != 0) return 3;
    if (head.payload_length != wanted) {
        lib_log(3, "Received Packet with number of Invalid Payload Length.\n");
        return 69;
    }
    return 0;
}

// HMAC-SHA1-96: the first 12 bytes of HMAC(SIK, Rm | managed system session
// ID | GUID); the last 8 bytes of the result play no part. Under
// RAKP-HMAC-SHA256, the first 16 bytes of HMAC-SHA256 under the whole SIK.
RMCPP_API int CheckKeyExchange4(RMCPp_SetupState *state, const uint8_t *rm, const uint8_t *received_value,
                                uint8_t *mismatch)
{
    if (rmcpp::args::any_null(state, rm, received_value, mismatch)) return rmcpp::args::null_input();
    *mismatch = 0;
    if (state->auth_alg == 0) return 0;
    const rmcpp::ext::Establishment *e = rmcpp::ext::active(state);
    const bool sha256 = rmcpp::ext::sha256_auth(state, state->auth_alg);
    if (state->auth_alg != 1 && !sha256) {
        lib_log(3, "Not-supported Authentication algorithm.\n");
        return 1;
    }
    uint8_t input[36];
    Writer w(input, sizeof input);
    w.bytes(rm, 16).u32le(state->bmc_session_id).bytes(state->bmc_guid, 16);

    const uint8_t *sik = sha256 ? e->sik : state->sik;
    const uint32_t sik_length = sha256 ? sizeof e->sik : sizeof state->sik;
    uint8_t expected[32];
    uint32_t result_length = 0;
    if (rmcpp::rakp::rakp_hmac(state, state->auth_alg, sik, sik_length, input, sizeof input, expected,
                               result_length) != 0) {
        lib_log(3, "Could not calculate Auth Code.\n");
        return 1;
    }

    const uint32_t n = rmcpp::rakp::integrity_check_value_length(state, state->auth_alg);
    uint8_t received[16];
    Reader r(received_value, n);
    r.bytes(received, n);
    if (!std::equal(received, received + n, expected)) *mismatch = 1;
    return 0;
}

// With abort_only set, RAKP 3 only reports the error found in RAKP 2: it is
// sent without waiting for RAKP 4, and the phase ends with 66 whatever the
// send did.
RMCPP_API int RAKPMessage3_4(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                             const uint8_t *rc, uint8_t *rakp_status, uint8_t abort_only)
{
    if (rmcpp::args::any_null(state, rm, rc, rakp_status)) return rmcpp::args::null_input();
    uint8_t request[400];
    uint32_t request_length = 0;
    if (Make_RAKPMessage3(state, tag, *rakp_status, rc, role, request, sizeof request, &request_length) != 0) {
        lib_log(3, "Failed to make RAKP Message 3.\n");
        return 3;
    }

    uint8_t response[400];
    uint32_t response_length = 0;
    uint32_t payload_offset = 0;
    const int r = RetryRoutine_RAKP(state, request, request_length, response, sizeof response, &response_length,
                                    0x14, &payload_offset, rakp_status, abort_only, nullptr, tag);
    if (abort_only) return 66;
    if (r != 0) {
        lib_log(3, "Failed to do RAKP Message 3 & 4.\n");
        return r;
    }
    if (state->req_auth_alg == 0) return 0;

    Reader p(response, sizeof response);
    p.skip(payload_offset + 8);
    uint8_t value[16];
    p.bytes(value, rmcpp::rakp::integrity_check_value_length(state, state->req_auth_alg));
    uint8_t mismatch = 0;
    if (CheckKeyExchange4(state, rm, value, &mismatch) != 0) {
        lib_log(3, "Failed to calculate Hash Key for RAKP Message 4.\n\n");
        return 3;
    }
    if (mismatch) {
        lib_log(3, "Received Key of RAKP Message 4 is invalid.\n\n");
        *rakp_status = 15;
        return 66;
    }
    return 0;
}

}  // extern "C"
