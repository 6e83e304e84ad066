// RAKP Message 4, as the console checks it after the RMCP header, and the
// integrity check value then compared with the one made from the SIK.
// Option byte 0 chooses the cipher suite (bits 0-1), byte 1 the tag.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t suite = in.u8() & 3;
    const uint8_t tag = in.u8();
    fuzz::Bytes datagram = in.take(400);

    RMCPp_SetupState state;
    fuzz::init_state(state, suite);
    fuzz::after_open_session(state);
    if (state.auth_alg != 0 && MakeSIK(&state, fuzz::kRole, fuzz::kRm, fuzz::kRc) != 0) __builtin_trap();

    uint32_t length = static_cast<uint32_t>(datagram.size());
    uint32_t offset = 0;
    if (Check_RMCPHead(datagram.data(), &length, &offset) != 0) return 0;
    uint32_t used = 0;
    uint8_t rakp_status = 0;
    if (Check_RAKPMessage4(&state, datagram.data() + offset, length, tag, &used, &rakp_status) != 0) return 0;
    offset += used;

    if (state.auth_alg == 0) return 0;
    // Accepted: the check value follows the eight bytes of tag, status,
    // reserved and console session ID.
    if (offset + 8 + 12 > datagram.size()) __builtin_trap();
    uint8_t mismatch = 0;
    CheckKeyExchange4(&state, fuzz::kRm, datagram.data() + offset + 8, &mismatch);
    return 0;
}
