// What the pre-session exchanges share: every request opens with the RMCP
// header in a buffer large enough for it; RAKP Message 2 and RAKP Message 4
// open with the same checks of the session header, the payload length and
// the fields tag, status, reserved and remote console session ID.
#pragma once

#include "rmcpp.h"
#include "wire.h"

namespace rmcpp::rakp {

// Checks that `buffer_size` holds `needed` bytes and writes the RMCP
// header; logs and returns 3 when either fails.
int start_request(uint8_t *buffer, uint32_t buffer_size, uint32_t needed, uint32_t &header_length);

// RMCP+ status codes that a refused reply leaves in rakp_status.
constexpr uint8_t kInactiveSessionId = 0x08;
constexpr uint8_t kIllegalParameter = 0x12;

struct ReplyHead {
    uint16_t payload_length = 0;
    wire::Reader payload{nullptr, 0};  // positioned after the console session ID
};

// Checks the reply head in its fixed order, logging each refusal. Returns 0
// and fills `head`, or the code the checker returns: 69 for a datagram that
// is not this reply, 66 or 65 for a faulty one.
int check_reply_head(const RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t payload_type,
                     uint8_t tag, uint32_t *used, uint8_t *rakp_status, ReplyHead &head);

// The payload length that the authentication algorithm asks for: `none`
// under RAKP-none, `hmac` under RAKP-HMAC-SHA1, `sha256` under
// RAKP-HMAC-SHA256 (only in an establishment with options). Logs and returns
// 3 for any other algorithm.
int expected_payload_length(const RMCPp_SetupState *state, uint16_t none, uint16_t hmac, uint16_t sha256,
                            uint16_t &wanted);

// Lengths of the RAKP codes under the state's authentication algorithm:
// the key exchange codes of RAKP 2 and 3, and the RAKP 4 check value.
uint32_t key_exchange_code_length(const RMCPp_SetupState *state, uint8_t auth_alg);
uint32_t integrity_check_value_length(const RMCPp_SetupState *state, uint8_t auth_alg);

// HMAC-SHA256 under RAKP-HMAC-SHA256 (32 bytes), else CalculateAuthCode
// under `auth_alg` (20 bytes). Returns 0 with the code's length, or 1.
int rakp_hmac(const RMCPp_SetupState *state, uint8_t auth_alg, const uint8_t *key, uint32_t key_length,
              const uint8_t *data, uint32_t data_length, uint8_t out[32], uint32_t &out_length);

}  // namespace rmcpp::rakp
