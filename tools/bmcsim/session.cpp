// RMCP+ session packets after RAKP 4: the integrity trailer (HMAC-SHA1-96
// or HMAC-SHA256-128) keyed with the SIK (with K1 under standard keys), the
// AES-CBC-128 confidentiality payload keyed with K2, the inbound sequence
// windows, and the answers to the IPMI requests they carry.
#include <algorithm>

#include "crypto.h"
#include "engine.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

constexpr uint8_t kAuthenticated = 0x40;
constexpr uint8_t kEncrypted = 0x80;
constexpr size_t kHeader = 16;  // RMCP header + session header

// The integrity code of a session: HMAC-SHA1-96 or HMAC-SHA256-128. A
// session without an integrity algorithm that is sent authenticated packets
// anyway (any protection taken) uses its authentication algorithm's HMAC.
struct IntegrityCode {
    Hash hash;
    size_t length;
};

IntegrityCode integrity_code(const Session &s)
{
    bool sha256 = s.integrity_alg == kHmacSha256_128 ||
                  (s.integrity_alg == kIntegrityNone && s.auth_alg == kRakpHmacSha256);
    return sha256 ? IntegrityCode{Hash::Sha256, 16} : IntegrityCode{Hash::Sha1, 12};
}

// Takes a number at most once, up to 16 below the highest seen (and, when
// strict, up to 16 above it).
bool window_accepts(Session::Window &w, uint32_t s, bool strict)
{
    if (s == 0) return false;
    if (s > w.highest) {
        uint32_t ahead = s - w.highest;
        if (strict && ahead > 16) return false;
        w.seen = ahead >= 32 ? 0 : (w.seen << ahead) | (1u << (ahead - 1));
        w.highest = s;
        return true;
    }
    uint32_t behind = w.highest - s;
    if (behind == 0 || behind > 16) return false;
    uint32_t bit = 1u << (behind - 1);
    if (w.seen & bit) return false;
    w.seen |= bit;
    return true;
}

uint8_t pick(int value, uint8_t fallback) { return value >= 0 ? static_cast<uint8_t>(value) : fallback; }

}  // namespace

std::vector<SessionInfo> Engine::sessions() const
{
    std::vector<SessionInfo> v;
    for (const auto &[id, s] : sessions_) {
        SessionInfo i;
        i.console_id = s.console_id;
        i.bmc_id = s.bmc_id;
        i.auth_alg = s.auth_alg;
        i.integrity_alg = s.integrity_alg;
        i.confidentiality_alg = s.confidentiality_alg;
        i.role = s.role;
        i.user_name = s.user_name;
        i.rm = s.rm;
        i.rc = s.rc;
        i.sik = s.sik;
        i.k2 = s.k2;
        i.k1 = s.k1;
        i.standard_keys = s.standard_keys;
        i.privilege = s.privilege;
        i.handle = s.handle;
        i.active = s.active;
        i.next_out_auth = s.out_auth;
        i.next_out_unauth = s.out_unauth;
        i.in_auth_highest = s.in_auth.highest;
        i.in_unauth_highest = s.in_unauth.highest;
        v.push_back(i);
    }
    return v;
}

Bytes Engine::session_datagram(Session &s, const Bytes &message, uint8_t bits, const SessionBehaviour &b, bool faulty)
{
    auto fault = [&](SessionFault f) { return faulty && b.fault == f; };
    uint32_t &counter = (bits & kAuthenticated) ? s.out_auth : s.out_unauth;
    uint32_t sequence = counter++;
    if (counter == 0)
        log("session " + hex32(s.bmc_id) + " exhausted: the outbound " +
            ((bits & kAuthenticated) ? "authenticated" : "unauthenticated") + " sequence number wrapped");

    Bytes payload;
    if (bits & kEncrypted) {
        // IV | encrypted (data | pad 1..p | p), p making whole 16-byte blocks.
        size_t n = message.size();
        size_t p = (16 - (n + 1) % 16) % 16;
        Bytes plain = message;
        for (size_t i = 1; i <= p; ++i) plain.push_back(static_cast<uint8_t>(i));
        plain.push_back(static_cast<uint8_t>(p));
        if (fault(SessionFault::BadConfidentialityPad)) {
            size_t i = static_cast<size_t>(b.index >= 0 ? b.index : 0);
            if (i < p) plain[n + i] = pick(b.value, static_cast<uint8_t>(plain[n + i] ^ 0x80));
            else log("no confidentiality pad byte " + std::to_string(i) + " to spoil in this answer");
        }
        if (fault(SessionFault::BadConfidentialityPadLength)) plain.back() = pick(b.value, 16);
        std::array<uint8_t, 16> iv = random16();
        aes128_cbc(s.k2.data(), iv.data(), plain.data(), plain.size(), true);
        payload.assign(iv.begin(), iv.end());
        payload.insert(payload.end(), plain.begin(), plain.end());
        if (fault(SessionFault::BadConfidentialityPayloadLength)) payload.push_back(0x00);
        if (fault(SessionFault::ShortConfidentialityPayload)) payload.resize(16);
    } else {
        payload = message;
    }

    Bytes out(kHeader + payload.size());
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x07);
    w.u8(0x06).u8(bits).u32le(fault(SessionFault::WrongSessionId) ? s.console_id + 1 : s.console_id);
    w.u32le(sequence).u16le(static_cast<uint16_t>(payload.size()));
    w.bytes(payload.data(), payload.size());

    if (bits & kAuthenticated) {
        // Pad the stretch from the authentication type byte through the next
        // header byte to a multiple of 4, then the first 12 bytes of
        // HMAC-SHA1 (16 of HMAC-SHA256) over that stretch.
        size_t q = (4 - (12 + payload.size() + 2) % 4) % 4;
        size_t pad_at = out.size();
        out.insert(out.end(), q, 0xFF);
        if (fault(SessionFault::BadIntegrityPad)) {
            if (q > 0) out[pad_at + static_cast<size_t>(b.index >= 0 ? b.index % q : 0)] = pick(b.value, 0xFE);
            else log("no integrity pad to spoil in this answer");
        }
        out.push_back(fault(SessionFault::BadIntegrityPadLength) ? pick(b.value, static_cast<uint8_t>(q + 1))
                                                                 : static_cast<uint8_t>(q));
        out.push_back(fault(SessionFault::BadNextHeader) ? pick(b.value, 0x08) : 0x07);
        const auto &key = s.integrity_key();
        IntegrityCode ic = integrity_code(s);
        Bytes code = hmac(ic.hash, key.data(), key.size(), out.data() + 4, out.size() - 4);
        size_t code_at = out.size();
        out.insert(out.end(), code.begin(), code.begin() + static_cast<long>(ic.length));
        if (fault(SessionFault::BadIntegrity))
            out[code_at + static_cast<size_t>(b.index >= 0 ? static_cast<size_t>(b.index) % ic.length : ic.length - 1)] ^= 0x01;
    }
    return out;
}

void Engine::session_packet(const Bytes &d, const Config &c, Outcome &o)
{
    auto reject = [&](const std::string &why) {
        ++rejected_;
        log("session packet refused: " + why);
    };
    const SessionBehaviour &b = c.session;
    rmcpp::wire::Reader r(d.data(), d.size());
    r.skip(5);
    uint8_t type = r.u8();
    uint32_t id = r.u32le();
    uint32_t sequence = r.u32le();
    uint16_t length = r.u16le();
    if (!r.ok()) return reject("header too short");
    auto it = sessions_.find(id);
    if (it == sessions_.end() || !it->second.active) return reject("no open session " + hex32(id));
    Session &s = it->second;
    bool authenticated = type & kAuthenticated;
    bool encrypted = type & kEncrypted;
    size_t payload_end = kHeader + length;
    if (payload_end > d.size()) return reject("payload length " + std::to_string(length) + " beyond the datagram");

    if (authenticated) {
        if (s.integrity_alg == kIntegrityNone && b.require_negotiated_protection)
            return reject("authenticated, but no integrity algorithm");
        IntegrityCode ic = integrity_code(s);
        if (d.size() < payload_end + 2 + ic.length) return reject("no room for the session trailer");
        size_t code_at = d.size() - ic.length;
        uint8_t q = d[code_at - 2];
        if (d[code_at - 1] != 0x07) return reject("next header not 07");
        if (payload_end + q + 2 != code_at) return reject("integrity pad length " + std::to_string(q));
        if (!std::all_of(d.begin() + static_cast<long>(payload_end), d.begin() + static_cast<long>(payload_end + q),
                         [](uint8_t v) { return v == 0xFF; }))
            return reject("integrity pad not FF");
        const auto &key = s.integrity_key();
        Bytes code = hmac(ic.hash, key.data(), key.size(), d.data() + 4, code_at - 4);
        if (!std::equal(code.begin(), code.begin() + static_cast<long>(ic.length), d.begin() + static_cast<long>(code_at)))
            return reject("wrong integrity code");
    } else {
        if (d.size() != payload_end) return reject("datagram longer than its payload");
        if (s.integrity_alg != kIntegrityNone && b.require_negotiated_protection) return reject("not authenticated");
    }
    if (encrypted && s.confidentiality_alg != kAesCbc128) return reject("encrypted, but no confidentiality algorithm");
    if (!encrypted && s.confidentiality_alg == kAesCbc128 && b.require_negotiated_protection) return reject("not encrypted");

    Session::Window &window = authenticated ? s.in_auth : s.in_unauth;
    if (!window_accepts(window, sequence, b.strict_inbound_window))
        return reject("sequence number " + hex32(sequence) + " outside the window or seen before");
    if (sequence == 0xFFFFFFFF)
        log("session " + hex32(s.bmc_id) + " exhausted: inbound sequence number ffffffff taken");

    Bytes message;
    if (encrypted) {
        if (length < 32 || length % 16 != 0) return reject("confidentiality payload length " + std::to_string(length));
        Bytes plain(d.begin() + kHeader + 16, d.begin() + static_cast<long>(payload_end));
        if (!aes128_cbc(s.k2.data(), d.data() + kHeader, plain.data(), plain.size(), false))
            return reject("cannot decrypt");
        uint8_t p = plain.back();
        if (p > 15) return reject("confidentiality pad length " + std::to_string(p));
        size_t n = plain.size() - p - 1;
        for (size_t i = 0; i < p; ++i)
            if (plain[n + i] != i + 1) return reject("confidentiality pad");
        message.assign(plain.begin(), plain.begin() + static_cast<long>(n));
    } else {
        message.assign(d.begin() + kHeader, d.begin() + static_cast<long>(payload_end));
    }
    o.message = message;
    auto rq = parse_request(message.data(), message.size());
    if (!rq) return reject("bad IPMI message");
    log("session " + hex32(s.bmc_id) + " request " + hex32(sequence) + ": netFn " + hex(&rq->netfn, 1) +
        " command " + hex(&rq->cmd, 1));

    if (!admit(Kind::SessionPacket, b.reply)) return;
    CommandResult result = command(s, *rq, c);
    bool faulty = b.fault != SessionFault::None && take_fault(Kind::SessionPacket, b.reply);
    uint8_t bits = type & (kAuthenticated | kEncrypted);
    uint8_t answer_bits = bits;
    if (faulty && b.fault == SessionFault::OtherProtection)
        answer_bits = b.value >= 0 ? static_cast<uint8_t>((b.value << 6) & 0xC0) : static_cast<uint8_t>(bits ^ 0xC0);
    Bytes response = result.response;
    if (faulty && b.fault == SessionFault::CompletionCode) {
        response[6] = pick(b.value, 0xC1);
        fix_checksums(response);
    }
    Bytes packet = session_datagram(s, response, answer_bits, b, faulty);

    if (faulty && b.fault == SessionFault::Replay && s.last) o.out.push_back({b.reply.delay_ms, *s.last});
    if (faulty && b.fault == SessionFault::Reorder && !s.held) {
        s.held = packet;
        log("holding the answer back until the next one");
    } else {
        emit(b.reply, packet, nullptr, o);
        if (s.held) {
            o.out.push_back({b.reply.delay_ms, *s.held});
            s.held.reset();
        }
    }
    s.last = packet;
    if (faulty && b.reply.then_correct)
        o.out.push_back({b.reply.delay_ms, session_datagram(s, result.response, bits, b, false)});
    if (result.bridged)
        o.out.push_back({b.reply.delay_ms + b.bridge_delay_ms, session_datagram(s, *result.bridged, bits, b, false)});
    if (result.close) close(it, "");
}

}  // namespace bmcsim::detail
