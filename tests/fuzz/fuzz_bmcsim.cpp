// The simulator's request handling: datagrams handed to its protocol engine
// one after the other, as its receive loop hands them over.
//
// Option byte 0:
//   bit 0     first establish a session through the library (Open Session,
//             RAKP 1 to 4) with cipher suite bits 1-2; records without
//             bit 7 of their flags are then IPMI messages that the library
//             wraps into valid session packets
//   bit 3     the simulator uses the IPMI v2.0 key derivation
//   bit 4     inbound sequence numbers are not held to the window
//   bit 5     session packets may carry any valid protection
// The rest is a list of records: flags, a 16-bit little-endian length and
// that many bytes (fewer at the end of the input). Flags bit 7: the bytes
// are a datagram as is; bits 4-5: the protection asked of a wrapped message
// (0: the negotiated one).
#include "fuzz_establish.h"

namespace {

constexpr int kMaxRecords = 64;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t options = in.u8();

    bmcsim::Config config = fuzz::simulator_config(options & 0x08);
    config.session.strict_inbound_window = !(options & 0x10);
    config.session.require_negotiated_protection = !(options & 0x20);
    bmcsim::detail::Engine engine([](const std::string &) {});

    RMCPp_Session session;
    const bool in_session = options & 0x01;
    if (in_session && !fuzz::establish(engine, config, (options >> 1) & 3, session)) __builtin_trap();

    for (int i = 0; i < kMaxRecords && in.size() > 0; ++i) {
        const uint8_t flags = in.u8();
        uint32_t length = in.u8();
        length |= static_cast<uint32_t>(in.u8()) << 8;
        const fuzz::Bytes bytes = in.take(length);
        if (in_session && !(flags & 0x80)) {
            const fuzz::Bytes packet = fuzz::session_packet(session, bytes, flags & 0x30);
            if (!packet.empty()) engine.handle(packet, config);
        } else {
            engine.handle(bytes, config);
        }
        // What the engine reports must stay readable.
        (void)engine.sessions();
        (void)engine.chassis(config);
    }
    return 0;
}
