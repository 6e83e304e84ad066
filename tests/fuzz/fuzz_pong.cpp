// The ASF presence pong check. It is internal to the ping routine, so its
// source is compiled into this target and the check called directly with
// what the routine's receive hands it: at most 30 bytes of one datagram.
#include "RMCP_PingPong.cpp"

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const fuzz::Bytes pong = in.take(30);
    check_presence_pong(pong.data(), static_cast<uint32_t>(pong.size()));
    return 0;
}
