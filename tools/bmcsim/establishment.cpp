#include "establishment.h"

#include "wire.h"

namespace bmcsim::detail {

Bytes presession_datagram(uint8_t payload_type, const Bytes &payload)
{
    Bytes out(kPayloadOffset + payload.size());
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x07);
    w.u8(0x06).u8(payload_type).u32le(0).u32le(0).u16le(static_cast<uint16_t>(payload.size()));
    w.bytes(payload.data(), payload.size());
    return out;
}

std::optional<Presession> read_presession(const Bytes &d)
{
    rmcpp::wire::Reader r(d.data(), d.size());
    r.skip(5);
    Presession p;
    p.payload_type = r.u8();
    p.session_id = r.u32le();
    p.sequence = r.u32le();
    uint16_t length = r.u16le();
    if (!r.ok() || length != r.remaining()) return std::nullopt;
    p.payload.assign(r.here(), r.here() + length);
    return p;
}

void break_establishment(const EstablishmentBehaviour &e, Bytes &b, std::initializer_list<size_t> reserved)
{
    auto pick = [&](uint8_t fallback) { return e.value >= 0 ? static_cast<uint8_t>(e.value) : fallback; };
    auto put32 = [&](size_t at, uint32_t v) {
        if (at + 4 > b.size()) return;
        rmcpp::wire::Writer w(b.data() + at, 4);
        w.u32le(v);
    };
    auto get32 = [&](size_t at) {
        rmcpp::wire::Reader r(b.data() + at, b.size() - at);
        return r.u32le();
    };
    auto payload = [&](size_t i) -> uint8_t * { return kPayloadOffset + i < b.size() ? &b[kPayloadOffset + i] : nullptr; };
    auto set_payload = [&](size_t i, uint8_t v) {
        if (uint8_t *p = payload(i)) *p = v;
    };
    auto flip_payload = [&](size_t i) {
        if (uint8_t *p = payload(i)) *p ^= 0x01;
    };
    size_t p_length = b.size() - kPayloadOffset;

    switch (e.fault) {
    case EstFault::None: break;
    case EstFault::RmcpVersion: b[0] = pick(b[0] ^ 1); break;
    case EstFault::RmcpReserved: b[1] = pick(b[1] ^ 1); break;
    case EstFault::RmcpSequence: b[2] = pick(b[2] ^ 1); break;
    case EstFault::RmcpClass: b[3] = pick(b[3] ^ 1); break;
    case EstFault::AuthFormat: b[4] = pick(0x07); break;
    case EstFault::PayloadType: b[5] = pick(static_cast<uint8_t>(b[5] + 2)); break;
    case EstFault::AuthenticatedBit: b[5] |= 0x40; break;
    case EstFault::EncryptedBit: b[5] |= 0x80; break;
    case EstFault::SessionId: put32(6, e.value >= 0 ? static_cast<uint32_t>(e.value) : 1); break;
    case EstFault::SequenceNumber: put32(10, e.value >= 0 ? static_cast<uint32_t>(e.value) : 1); break;
    case EstFault::LengthField: {
        uint16_t v = e.value >= 0 ? static_cast<uint16_t>(e.value) : static_cast<uint16_t>(p_length + 1);
        b[14] = static_cast<uint8_t>(v);
        b[15] = static_cast<uint8_t>(v >> 8);
        break;
    }
    case EstFault::PayloadLength: {
        size_t n = e.value >= 0 ? static_cast<size_t>(e.value) : p_length + 1;
        b.resize(kPayloadOffset + n, 0x00);
        b[14] = static_cast<uint8_t>(n);
        b[15] = static_cast<uint8_t>(n >> 8);
        break;
    }
    case EstFault::Tag:
        if (uint8_t *p = payload(0)) *p = pick(static_cast<uint8_t>(*p + 1));
        break;
    case EstFault::Status: set_payload(1, pick(kIllegalParameter)); break;
    case EstFault::Reserved: {
        size_t k = e.index >= 0 ? static_cast<size_t>(e.index) : 0;
        if (k < reserved.size()) set_payload(*(reserved.begin() + k), pick(0x01));
        break;
    }
    case EstFault::ConsoleSessionId:
        if (kPayloadOffset + 8 <= b.size())
            put32(kPayloadOffset + 4, e.value >= 0 ? static_cast<uint32_t>(e.value) : get32(kPayloadOffset + 4) + 1);
        break;
    case EstFault::PayloadByte:
        if (e.index >= 0) set_payload(static_cast<size_t>(e.index), pick(0x01));
        break;
    case EstFault::GrantedPrivilege:
        if (uint8_t *p = payload(2)) *p = pick(static_cast<uint8_t>(*p == 4 ? 3 : 4));
        break;
    case EstFault::AuthAlgorithm:
        if (uint8_t *p = payload(16)) *p = pick(*p ^ 1);
        break;
    case EstFault::IntegrityAlgorithm:
        if (uint8_t *p = payload(24)) *p = pick(*p ^ 1);
        break;
    case EstFault::ConfidentialityAlgorithm:
        if (uint8_t *p = payload(32)) *p = pick(*p ^ 1);
        break;
    case EstFault::KeyExchangeCode: flip_payload(40 + static_cast<size_t>(e.index >= 0 ? e.index : 19)); break;
    case EstFault::IntegrityCheckValue: flip_payload(8 + static_cast<size_t>(e.index >= 0 ? e.index : 11)); break;
    }
}

}  // namespace bmcsim::detail
