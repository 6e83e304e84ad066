#include "RAKP_common.h"

#include "session_options.h"

namespace rmcpp::rakp {

int start_request(uint8_t *buffer, uint32_t buffer_size, uint32_t needed, uint32_t &header_length)
{
    if (buffer_size < needed) {
        lib_log(3, "Insufficient Data Size.\n");
        return 3;
    }
    if (MakeRMCPHeader(buffer, &buffer_size, &header_length) != 0) {
        lib_log(3, "Failed to make RMCP Header.\n");
        return 3;
    }
    return 0;
}

int check_reply_head(const RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t payload_type,
                     uint8_t tag, uint32_t *used, uint8_t *rakp_status, ReplyHead &head)
{
    *rakp_status = 0;
    uint32_t header_length = 0;
    if (Check_IPMISessHead_RAKP(data, length, &header_length, payload_type, &head.payload_length) != 0) {
        lib_log(3, "Check at IPMI Session Header & Tailer.\n");
        return 69;
    }
    if (head.payload_length <= 7) {
        lib_log(3, "Received Packet with number of Invalid Payload Length.\n");
        return 69;
    }
    if (head.payload_length + 12u > length) {
        lib_log(3, "Received Packet with Invalid Payload Length.\n");
        return 69;
    }
    *used = 12;

    wire::Reader &p = head.payload = wire::Reader(data, length);
    p.skip(12);
    if (p.u8() != tag) {
        lib_log(3, "Received Packet with Invalid Message Tag.\n");
        *rakp_status = kIllegalParameter;
        return 66;
    }
    const uint8_t status = p.u8();
    if (status != 0) {
        PrintRMCPStatusCode(status);
        lib_log(3, "Received Packet with Error Status Code.\n");
        return 65;
    }
    if (!p.zeros(2)) {
        lib_log(3, "Received Packet with Invalid value in Reserved field.\n");
        *rakp_status = kIllegalParameter;
        return 66;
    }
    if (p.u32le() != state->console_session_id) {
        lib_log(3, "Received Packet with Invalid RC Session ID.\n");
        *rakp_status = kInactiveSessionId;
        return 66;
    }
    return 0;
}

int expected_payload_length(const RMCPp_SetupState *state, uint16_t none, uint16_t hmac, uint16_t sha256,
                            uint16_t &wanted)
{
    if (ext::sha256_auth(state, state->auth_alg)) {
        wanted = sha256;
        return 0;
    }
    switch (state->auth_alg) {
    case 0: wanted = none; return 0;
    case 1: wanted = hmac; return 0;
    default: lib_log(3, "Unsupported Authentication algorithm.\n"); return 3;
    }
}

uint32_t key_exchange_code_length(const RMCPp_SetupState *state, uint8_t auth_alg)
{
    return ext::sha256_auth(state, auth_alg) ? 32 : 20;
}

uint32_t integrity_check_value_length(const RMCPp_SetupState *state, uint8_t auth_alg)
{
    return ext::sha256_auth(state, auth_alg) ? 16 : 12;
}

int rakp_hmac(const RMCPp_SetupState *state, uint8_t auth_alg, const uint8_t *key, uint32_t key_length,
              const uint8_t *data, uint32_t data_length, uint8_t out[32], uint32_t &out_length)
{
    if (ext::sha256_auth(state, auth_alg)) {
        out_length = 32;
        return hmac_sha256(key, key_length, data, data_length, out) ? 0 : 1;
    }
    out_length = 30;
    return CalculateAuthCode(auth_alg, data, data_length, key, key_length, out, &out_length) != 0 ? 1 : 0;
}

}  // namespace rmcpp::rakp
