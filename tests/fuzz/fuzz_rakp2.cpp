// RAKP Message 2, as the console checks it after the RMCP header, and the
// key exchange code then compared. Option byte 0 chooses the cipher suite
// (bits 0-1) and the role byte's name-only look-up bit (bit 2), byte 1 the
// message tag.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t options = in.u8();
    const uint8_t tag = in.u8();
    const uint8_t role = static_cast<uint8_t>(fuzz::kRole | ((options & 4) ? 0x10 : 0));
    fuzz::Bytes datagram = in.take(400);

    RMCPp_SetupState state;
    fuzz::init_state(state, options & 3);
    fuzz::after_open_session(state);
    std::memset(state.bmc_guid, 0, sizeof state.bmc_guid);

    uint32_t length = static_cast<uint32_t>(datagram.size());
    uint32_t offset = 0;
    if (Check_RMCPHead(datagram.data(), &length, &offset) != 0) return 0;
    uint32_t used = 0;
    uint8_t rakp_status = 0;
    if (Check_RAKPMessage2(&state, datagram.data() + offset, length, tag, &used, &rakp_status) != 0) return 0;
    offset += used;

    // Accepted: Rc follows the eight bytes of tag, status, reserved and
    // console session ID; under RAKP-HMAC-SHA1 the GUID and the code follow.
    const size_t wanted = state.auth_alg == 0 ? 8 + 32 : 8 + 32 + 20;
    if (offset + wanted > datagram.size()) __builtin_trap();
    const uint8_t *rc = datagram.data() + offset + 8;
    if (state.auth_alg == 0) return 0;
    uint8_t mismatch = 0;
    CheckKeyExchange2(&state, role, fuzz::kRm, rc, rc + 32, &mismatch);
    return 0;
}
