// The Get Channel Authentication Capabilities response, as the console's
// receive loop checks it: RMCP header, the unauthenticated IPMI v1.5 session
// and message header, then the response data.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    fuzz::Bytes datagram = in.take(400);  // the receive buffer's size

    RMCPp_SetupState state;
    fuzz::init_state(state, 3);
    const IPMI_MsgHeader expected = {0x06, RMCPConnectSA, 0x38, 0, 1, 0x07, state.rs_addr, state.rs_lun};

    uint32_t length = static_cast<uint32_t>(datagram.size());
    uint32_t offset = 0;
    if (Check_RMCPHead(datagram.data(), &length, &offset) != 0) return 0;
    uint32_t used = 0;
    if (Check_IPMIv15_NonAuth(&state, datagram.data() + offset, &length, &expected, &used) != 0) return 0;
    offset += used;
    // The checker must leave a length that lies inside the datagram.
    if (offset > datagram.size() || length > datagram.size() - offset) __builtin_trap();

    // Only the data from the completion code on, in a buffer of its own.
    const fuzz::Bytes response(datagram.begin() + offset, datagram.begin() + offset + length);
    uint8_t not_supported = 0;
    Check_GetAuthCapa_v15(response.data(), static_cast<uint32_t>(response.size()), &not_supported,
                          &state.kg_status, &state.per_msg_auth_status, &state.user_auth_status);
    return 0;
}
