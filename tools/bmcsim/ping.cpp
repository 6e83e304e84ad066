// ASF presence ping: the Presence Pong says that an IPMI-capable management
// controller answers at this address.
#include "engine.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

constexpr uint32_t kAsfIana = 4542;
constexpr size_t kPongLength = 28;

Bytes presence_pong(uint8_t tag)
{
    Bytes out(kPongLength);
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x06);  // RMCP header, class ASF
    w.u32be(kAsfIana).u8(0x40).u8(tag).u8(0x00).u8(0x10);
    w.u32be(kAsfIana).u32be(0);            // IANA, OEM-defined
    w.u8(0x81).u8(0x00);                   // IPMI supported, ASF 1.0; no interactions
    w.fill(0x00, 6);
    return out;
}

uint8_t pick(int value, uint8_t fallback) { return value >= 0 ? static_cast<uint8_t>(value) : fallback; }

void put_be32(Bytes &b, size_t at, uint32_t v)
{
    rmcpp::wire::Writer w(b.data() + at, 4);
    w.u32be(v);
}

void break_pong(const PingBehaviour &p, Bytes &b)
{
    auto flip = [&](size_t at) { b[at] = pick(p.value, static_cast<uint8_t>(b[at] ^ 0x01)); };
    switch (p.fault) {
    case PongFault::None: break;
    case PongFault::TooShort: b.resize(kPongLength - 1); break;
    case PongFault::Length29: b.resize(29, 0x00); break;
    case PongFault::Length40: b.resize(40, 0x00); break;
    case PongFault::RmcpVersion: flip(0); break;
    case PongFault::RmcpReserved: flip(1); break;
    case PongFault::RmcpSequence: flip(2); break;
    case PongFault::RmcpClass: flip(3); break;
    case PongFault::Iana: put_be32(b, 4, p.value >= 0 ? static_cast<uint32_t>(p.value) : kAsfIana + 1); break;
    case PongFault::MessageType: flip(8); break;
    case PongFault::MessageTag: b[9] = pick(p.value, static_cast<uint8_t>(b[9] + 1)); break;
    case PongFault::AsfReserved: flip(10); break;
    case PongFault::DataLength: flip(11); break;
    case PongFault::SecondIana: put_be32(b, 12, p.value >= 0 ? static_cast<uint32_t>(p.value) : kAsfIana + 1); break;
    case PongFault::Oem: put_be32(b, 16, p.value >= 0 ? static_cast<uint32_t>(p.value) : 1); break;
    case PongFault::SupportedEntities: flip(20); break;
    case PongFault::SupportedInteractions: flip(21); break;
    case PongFault::TrailingReserved: flip(22 + static_cast<size_t>(p.index < 0 ? 0 : p.index % 6)); break;
    }
}

}  // namespace

void Engine::presence_ping(const Bytes &d, const Config &c, Outcome &o)
{
    uint8_t tag = d.size() > 9 ? d[9] : 0;
    if (!c.ping.pong) {
        log("presence ping, tag " + hex(&tag, 1) + ": not answered (no pong)");
        return;
    }
    log("presence ping, tag " + hex(&tag, 1));
    if (!admit(Kind::Ping, c.ping.reply)) return;
    PingBehaviour p = c.ping;
    answer(Kind::Ping, p.reply, presence_pong(tag), p.fault != PongFault::None,
           [&p](Bytes &b) { break_pong(p, b); }, o);
}

}  // namespace bmcsim::detail
