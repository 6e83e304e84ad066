// Get Channel Authentication Capabilities, asked over an unauthenticated
// IPMI v1.5 session before any RMCP+ message: tells whether the channel
// speaks IPMI v2.0 and whether Kg is set.
#include <algorithm>

#include "engine.h"
#include "ipmi.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

bool kg_is_set(const Config &c)
{
    if (c.capabilities.kg_set) return *c.capabilities.kg_set;
    return std::any_of(c.kg.begin(), c.kg.end(), [](uint8_t b) { return b != 0; });
}

uint8_t status_bits(const Config &c)
{
    const CapabilitiesBehaviour &k = c.capabilities;
    uint8_t s = 0;
    if (kg_is_set(c)) s |= 0x20;
    if (k.per_message_auth_disabled) s |= 0x10;
    if (k.user_auth_disabled) s |= 0x08;
    for (const User &u : c.users) {
        if (!u.enabled) continue;
        if (!u.name.empty()) s |= 0x04;                          // non-null user names
        else if (!u.password.empty()) s |= 0x02;                 // null user name
        else s |= 0x01;                                          // anonymous login
    }
    return s;
}

Bytes capabilities_data(const Config &c)
{
    const CapabilitiesBehaviour &k = c.capabilities;
    Bytes d{k.channel,
            static_cast<uint8_t>((k.ipmi20_extended ? 0x80 : 0x00) | 0x01),  // + auth type "none"
            status_bits(c),
            static_cast<uint8_t>(0x01 | (k.ipmi20_connections ? 0x02 : 0x00)),
            0x00, 0x00, 0x00,   // OEM ID
            0x00};              // OEM auxiliary data
    d.resize(static_cast<size_t>(std::max(k.data_length, 0)), 0x00);
    return d;
}

void break_capabilities(const CapabilitiesBehaviour &k, Bytes &b)
{
    auto pick = [&](uint8_t fallback) { return k.value >= 0 ? static_cast<uint8_t>(k.value) : fallback; };
    auto put32 = [&](size_t at, uint32_t v) {
        rmcpp::wire::Writer w(b.data() + at, 4);
        w.u32le(v);
    };
    // The IPMI message starts at kV15Header; field faults keep the checksums right.
    Bytes m(b.begin() + kV15Header, b.end());
    bool message_changed = true;
    switch (k.fault) {
    case CapsFault::None: return;
    case CapsFault::RmcpVersion: b[0] = pick(b[0] ^ 1); return;
    case CapsFault::RmcpReserved: b[1] = pick(b[1] ^ 1); return;
    case CapsFault::RmcpSequence: b[2] = pick(b[2] ^ 1); return;
    case CapsFault::RmcpClass: b[3] = pick(b[3] ^ 1); return;
    case CapsFault::AuthType: b[4] = pick(0x02); return;
    case CapsFault::SessionSequence: put32(5, k.value >= 0 ? static_cast<uint32_t>(k.value) : 1); return;
    case CapsFault::SessionId: put32(9, k.value >= 0 ? static_cast<uint32_t>(k.value) : 1); return;
    case CapsFault::MessageLength: b[13] = pick(static_cast<uint8_t>(b[13] + 1)); return;
    case CapsFault::Checksum1: b[kV15Header + 2] ^= 0x01; return;
    case CapsFault::Checksum2: b.back() ^= 0x01; return;
    case CapsFault::RqAddr: m[0] = pick(m[0] ^ 0x02); break;
    case CapsFault::NetFn: m[1] = static_cast<uint8_t>(k.value >= 0 ? (k.value << 2) | (m[1] & 3) : m[1] + 4); break;
    case CapsFault::RqLun: m[1] = static_cast<uint8_t>((m[1] & 0xFC) | ((m[1] + 1) & 3)); break;
    case CapsFault::RsAddr: m[3] = pick(m[3] ^ 0x02); break;
    case CapsFault::RqSeq: m[4] = static_cast<uint8_t>(k.value >= 0 ? (k.value << 2) | (m[4] & 3) : m[4] + 4); break;
    case CapsFault::RsLun: m[4] = static_cast<uint8_t>((m[4] & 0xFC) | ((m[4] + 1) & 3)); break;
    case CapsFault::Command: m[5] = pick(m[5] ^ 0x01); break;
    default: message_changed = false;
    }
    if (message_changed) {
        fix_checksums(m);
        std::copy(m.begin(), m.end(), b.begin() + kV15Header);
    }
}

}  // namespace

void Engine::channel_capabilities(const Bytes &d, const Config &c, Outcome &o)
{
    std::optional<Bytes> message = read_v15_message(d);
    if (!message) {
        log("ignored a channel capabilities request with a bad v1.5 session header");
        return;
    }
    auto rq = parse_request(message->data(), message->size());
    if (!rq || rq->data.size() < 2) {
        log("ignored a channel capabilities request with a bad IPMI message");
        return;
    }
    log("get channel authentication capabilities: channel " + hex(&rq->data[0], 1) + ", privilege " +
        hex(&rq->data[1], 1));
    if (!admit(Kind::Capabilities, c.capabilities.reply)) return;
    Bytes response = response_to(*rq, c.capabilities.completion_code, capabilities_data(c));
    CapabilitiesBehaviour k = c.capabilities;
    answer(Kind::Capabilities, k.reply, v15_datagram(response), k.fault != CapsFault::None,
           [&k](Bytes &b) { break_capabilities(k, b); }, o);
}

}  // namespace bmcsim::detail
