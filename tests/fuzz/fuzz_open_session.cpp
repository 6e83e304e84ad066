// The Open Session response, as the console checks it after the RMCP
// header, and the granted privilege read from it. Option byte 0 chooses the
// proposed cipher suite (bits 0-1), byte 1 the message tag.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t suite = in.u8() & 3;
    const uint8_t tag = in.u8();
    fuzz::Bytes datagram = in.take(400);

    RMCPp_SetupState state;
    fuzz::init_state(state, suite);

    uint32_t length = static_cast<uint32_t>(datagram.size());
    uint32_t offset = 0;
    if (Check_RMCPHead(datagram.data(), &length, &offset) != 0) return 0;
    uint32_t used = 0;
    if (Check_OpenSessResponse(&state, datagram.data() + offset, length, tag, &used) != 0) return 0;
    offset += used;
    // Accepted: the granted privilege is the third payload byte.
    if (offset + 3 > datagram.size()) __builtin_trap();
    volatile uint8_t granted = datagram[offset + 2];
    (void)granted;
    return 0;
}
