// RAKP 1 to 4. RAKP 2 carries the managed system's random number Rc, its
// GUID and a key exchange code proving it knows the user's password; RAKP 3
// proves the console knows it too; RAKP 4 carries an integrity check value
// made with the new session integrity key (SIK).
#include <algorithm>

#include "crypto.h"
#include "establishment.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

Bytes padded20(const std::string &text)
{
    Bytes k(20, 0x00);
    std::copy_n(text.begin(), std::min<size_t>(text.size(), 20), k.begin());
    return k;
}

Bytes padded20(const Bytes &key)
{
    Bytes k(20, 0x00);
    std::copy_n(key.begin(), std::min<size_t>(key.size(), 20), k.begin());
    return k;
}

void put_le32(Bytes &b, uint32_t v)
{
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void put_name(Bytes &b, uint8_t role, const std::string &name)
{
    b.push_back(role);
    b.push_back(static_cast<uint8_t>(name.size()));
    b.insert(b.end(), name.begin(), name.end());
}

// Rm | Rc | role | ulen | uname, keyed with Kg when one is set, else with the password.
Bytes session_integrity_key(const Session &s, const Config &c)
{
    Bytes in(s.rm.begin(), s.rm.end());
    in.insert(in.end(), s.rc.begin(), s.rc.end());
    put_name(in, s.role, s.user_name);
    bool kg_set = std::any_of(c.kg.begin(), c.kg.end(), [](uint8_t b) { return b != 0; });
    return hmac(auth_hash(s.auth_alg), kg_set ? padded20(c.kg) : s.password, in);
}

// console SID | BMC SID | Rm | Rc | GUID | role | ulen | uname, keyed with the password.
Bytes rakp2_code(const Session &s, const Config &c)
{
    Bytes in;
    put_le32(in, s.console_id);
    put_le32(in, s.bmc_id);
    in.insert(in.end(), s.rm.begin(), s.rm.end());
    in.insert(in.end(), s.rc.begin(), s.rc.end());
    in.insert(in.end(), c.guid.begin(), c.guid.end());
    put_name(in, s.role, s.user_name);
    return hmac(auth_hash(s.auth_alg), s.password, in);
}

// Rc | console SID | role | ulen | uname, keyed with the password.
Bytes rakp3_code(const Session &s)
{
    Bytes in(s.rc.begin(), s.rc.end());
    put_le32(in, s.console_id);
    put_name(in, s.role, s.user_name);
    return hmac(auth_hash(s.auth_alg), s.password, in);
}

// Rm | BMC SID | GUID, keyed with the SIK; 12 bytes of HMAC-SHA1 are sent,
// 16 of HMAC-SHA256.
Bytes rakp4_value(const Session &s, const Config &c)
{
    Bytes in(s.rm.begin(), s.rm.end());
    put_le32(in, s.bmc_id);
    in.insert(in.end(), c.guid.begin(), c.guid.end());
    Bytes icv = hmac(auth_hash(s.auth_alg), s.sik, in);
    icv.resize(s.auth_alg == kRakpHmacSha256 ? 16 : 12);
    return icv;
}

Bytes status_payload(uint8_t tag, uint8_t status, uint32_t console_id)
{
    Bytes p(8);
    rmcpp::wire::Writer w(p.data(), p.size());
    w.u8(tag).u8(status).u16le(0).u32le(console_id);
    return p;
}

const User *find_user(const Config &c, const std::string &name)
{
    for (const User &u : c.users)
        if (u.name == name) return &u;
    return nullptr;
}

// K1 and K2 over twenty 0x01 / 0x02 bytes under standard keys; else the
// integrity code keeps the SIK and K2 is made over sixty-four 0x02 bytes.
// RAKP-HMAC-SHA256 sessions always take the standard keys.
void session_keys(Session &s, bool standard)
{
    static const Bytes kConstant1(20, 0x01), kStandardConstant2(20, 0x02), kConstant2(64, 0x02);
    standard = standard || s.auth_alg == kRakpHmacSha256;
    Hash hash = auth_hash(s.auth_alg);
    s.standard_keys = standard;
    s.k1 = standard ? hmac(hash, s.sik, kConstant1) : s.sik;
    if (s.confidentiality_alg == kAesCbc128) s.k2 = hmac(hash, s.sik, standard ? kStandardConstant2 : kConstant2);
    else s.k2.assign(digest_length(hash), 0x00);
}

}  // namespace

void Engine::rakp1(const Bytes &d, const Config &c, Outcome &o)
{
    auto rq = read_presession(d);
    if (!rq || rq->payload.size() < 28) {
        log("ignored a RAKP 1 with a bad session header or length");
        return;
    }
    rmcpp::wire::Reader r(rq->payload.data(), rq->payload.size());
    uint8_t tag = r.u8();
    r.skip(3);
    uint32_t bmc_id = r.u32le();
    std::array<uint8_t, 16> rm{};
    r.bytes(rm.data(), rm.size());
    uint8_t role = r.u8();
    r.skip(2);
    uint8_t name_length = r.u8();
    std::string name(r.remaining(), '\0');
    r.bytes(reinterpret_cast<uint8_t *>(name.data()), name.size());

    uint8_t privilege = role & 0x0F;
    bool name_only = role & 0x10;
    auto it = sessions_.find(bmc_id);
    if (it != sessions_.end() && !it->second.active) it->second.last_request = Clock::now();
    uint8_t status = kNoError;
    const User *user = nullptr;
    if (it == sessions_.end()) status = kInvalidSessionId;
    else if (privilege == 0 || privilege > 5 || (role & 0xE0)) status = kInvalidRole;
    else if (name_length > 16 || name_length != name.size()) status = kInvalidNameLength;
    else if (!(user = find_user(c, name)) || !user->enabled) status = kUnauthorizedName;
    else if (privilege > user->max_privilege || privilege > it->second.max_privilege) status = kUnauthorizedRole;

    Bytes payload;
    if (status != kNoError) {
        log("RAKP 1 for user '" + name + "' refused with status " + hex(&status, 1) + " (" + status_text(status) + ")");
        payload = status_payload(tag, status, it == sessions_.end() ? 0 : it->second.console_id);
    } else {
        Session &s = it->second;
        // A resent RAKP 1 keeps Rc, so any of the answers may be the one taken.
        bool same = s.rm == rm && s.role == role && s.user_name == name && s.rc != std::array<uint8_t, 16>{};
        if (!same) s.rc = c.rc ? *c.rc : random16();
        s.rm = rm;
        s.role = role;
        s.user_name = name;
        s.password = padded20(user->password);
        s.user_id = static_cast<uint8_t>(user - c.users.data() + 1);
        if (s.auth_alg != kRakpNone) s.sik = session_integrity_key(s, c);
        else s.sik.assign(20, 0x00);
        log("RAKP 1: user '" + name + "', role " + hex(&role, 1) + (name_only ? " (name-only look-up)" : "") +
            ", Rm " + hex(rm.data(), rm.size()));
        payload = status_payload(tag, kNoError, s.console_id);
        payload.insert(payload.end(), s.rc.begin(), s.rc.end());
        payload.insert(payload.end(), c.guid.begin(), c.guid.end());
        if (s.auth_alg != kRakpNone) {
            Bytes code = rakp2_code(s, c);
            payload.insert(payload.end(), code.begin(), code.end());
        }
    }
    if (!admit(Kind::Rakp1, c.rakp2.reply)) return;
    EstablishmentBehaviour e = c.rakp2;
    answer(Kind::Rakp1, e.reply, presession_datagram(kRakp2, payload), e.fault != EstFault::None,
           [&e](Bytes &b) { break_establishment(e, b, {2, 3}); }, o);
}

void Engine::rakp3(const Bytes &d, const Config &c, Outcome &o)
{
    auto rq = read_presession(d);
    if (!rq || rq->payload.size() < 8) {
        log("ignored a RAKP 3 with a bad session header or length");
        return;
    }
    rmcpp::wire::Reader r(rq->payload.data(), rq->payload.size());
    uint8_t tag = r.u8();
    uint8_t console_status = r.u8();
    r.skip(2);
    uint32_t bmc_id = r.u32le();
    auto it = sessions_.find(bmc_id);
    if (it != sessions_.end() && !it->second.active) it->second.last_request = Clock::now();

    if (console_status != kNoError) {
        log("RAKP 3 gives up the establishment with status " + hex(&console_status, 1));
        if (it != sessions_.end() && !it->second.active) sessions_.erase(it);
        return;
    }
    uint8_t status = kNoError;
    if (it == sessions_.end()) {
        status = kInvalidSessionId;
    } else if (it->second.password.empty()) {
        status = kIllegalParameter;  // no RAKP 1 before
    } else if (it->second.auth_alg != kRakpNone) {
        Bytes expected = rakp3_code(it->second);
        if (r.remaining() != expected.size() || !std::equal(expected.begin(), expected.end(), r.here()))
            status = kInvalidIntegrityCheckValue;
    } else if (r.remaining() != 0) {
        status = kIllegalParameter;
    }

    Bytes payload;
    if (status != kNoError) {
        log("RAKP 3 refused with status " + hex(&status, 1) + " (" + status_text(status) + ")" +
            (it == sessions_.end() ? "" : " for user '" + it->second.user_name + "'"));
        payload = status_payload(tag, status, it == sessions_.end() ? 0 : it->second.console_id);
    } else {
        Session &s = it->second;
        payload = status_payload(tag, kNoError, s.console_id);
        if (s.auth_alg != kRakpNone) {
            Bytes icv = rakp4_value(s, c);
            payload.insert(payload.end(), icv.begin(), icv.end());
        }
        if (!s.active) {
            session_keys(s, c.standard_keys);
            s.out_auth = s.out_unauth = c.session.outbound_sequence_start;
            // Sessions start at USER level (or their limit when lower);
            // Set Session Privilege Level raises them.
            s.privilege = std::min<uint8_t>(2, s.role & 0x0F);
            s.handle = next_handle_++;
            if (next_handle_ == 0) next_handle_ = 1;
            s.active = true;
            ++established_;
            log("session " + hex32(s.bmc_id) + " established for user '" + s.user_name + "': cipher suite " +
                std::to_string(suite_of(s.auth_alg, s.integrity_alg, s.confidentiality_alg)) + ", privilege up to " +
                privilege_name(s.role & 0x0F) + ", " + (s.standard_keys ? "standard" : "library") + " keys");
        }
    }
    if (!admit(Kind::Rakp3, c.rakp4.reply)) return;
    EstablishmentBehaviour e = c.rakp4;
    answer(Kind::Rakp3, e.reply, presession_datagram(kRakp4, payload), e.fault != EstFault::None,
           [&e](Bytes &b) { break_establishment(e, b, {2, 3}); }, o);
}

}  // namespace bmcsim::detail
