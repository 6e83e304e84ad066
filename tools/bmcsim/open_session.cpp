// Open Session: the console proposes its session ID, a privilege level and
// one algorithm of each kind; the managed system answers with its own
// session ID, the privilege it grants and the algorithms it accepts.
#include <algorithm>

#include "establishment.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

struct Proposal {
    uint8_t tag = 0, privilege = 0;
    uint32_t console_id = 0;
    uint8_t auth = 0, integrity = 0, confidentiality = 0;
    bool records_ok = true;  // the three algorithm records are well formed
};

// One algorithm record: type, 2 reserved, length 8, algorithm, 3 reserved.
uint8_t read_record(rmcpp::wire::Reader &r, uint8_t type, bool &ok)
{
    uint8_t t = r.u8();
    bool reserved = r.zeros(2);
    uint8_t length = r.u8();
    uint8_t algorithm = r.u8();
    bool reserved2 = r.zeros(3);
    if (t != type || !reserved || length != 8 || !reserved2) ok = false;
    return algorithm;
}

void write_record(rmcpp::wire::Writer &w, uint8_t type, uint8_t algorithm)
{
    w.u8(type).u16le(0).u8(8).u8(algorithm).fill(0, 3);
}

uint8_t judge(const Proposal &p, const Config &c)
{
    if (!p.records_ok) return kIllegalParameter;
    if (p.privilege > 5) return kInvalidRole;
    if (p.auth != kRakpNone && p.auth != kRakpHmacSha1 && p.auth != kRakpHmacSha256) return kInvalidAuthAlgorithm;
    if (p.integrity != kIntegrityNone && p.integrity != kHmacSha1_96 && p.integrity != kHmacSha256_128)
        return kInvalidIntegrityAlgorithm;
    if (p.confidentiality != kConfidentialityNone && p.confidentiality != kAesCbc128)
        return kInvalidConfidentialityAlgorithm;
    int suite = suite_of(p.auth, p.integrity, p.confidentiality);
    if (suite < 0 || std::find(c.cipher_suites.begin(), c.cipher_suites.end(), suite) == c.cipher_suites.end())
        return kNoCipherSuiteMatch;
    if (p.privilege > c.channel_max_privilege) return kUnauthorizedRole;
    return kNoError;
}

Bytes error_payload(uint8_t tag, uint8_t status, uint32_t console_id)
{
    Bytes p(8);
    rmcpp::wire::Writer w(p.data(), p.size());
    w.u8(tag).u8(status).u8(0).u8(0).u32le(console_id);
    return p;
}

}  // namespace

bool Engine::reclaim_abandoned(const Config &c)
{
    auto oldest = sessions_.end();
    for (auto it = sessions_.begin(); it != sessions_.end(); ++it)
        if (!it->second.active && (oldest == sessions_.end() || it->second.last_request < oldest->second.last_request))
            oldest = it;
    if (oldest == sessions_.end() ||
        Clock::now() - oldest->second.last_request < std::chrono::milliseconds(c.establishment_timeout_ms))
        return false;
    log("establishment of session " + hex32(oldest->second.bmc_id) + " abandoned: its slot is taken back");
    sessions_.erase(oldest);
    return true;
}

void Engine::open_session(const Bytes &d, const Config &c, Outcome &o)
{
    auto rq = read_presession(d);
    if (!rq || rq->payload.size() < 8) {
        log("ignored an open session request with a bad session header");
        return;
    }
    rmcpp::wire::Reader r(rq->payload.data(), rq->payload.size());
    Proposal p;
    p.tag = r.u8();
    p.privilege = r.u8();
    r.skip(2);
    p.console_id = r.u32le();
    p.auth = read_record(r, 0x00, p.records_ok);
    p.integrity = read_record(r, 0x01, p.records_ok);
    p.confidentiality = read_record(r, 0x02, p.records_ok);
    if (!r.ok() || r.remaining() != 0) p.records_ok = false;

    uint8_t status = judge(p, c);
    // A resent request gets the session it opened before. Consoles choose
    // their IDs and often the same one (ipmitool always does), so a resend
    // is the same ID from the same address and port to the same address.
    auto pending = std::find_if(sessions_.begin(), sessions_.end(), [&](const auto &s) {
        return !s.second.active && s.second.console_id == p.console_id && s.second.peer == peer_;
    });
    if (status == kNoError && pending == sessions_.end() &&
        static_cast<int>(sessions_.size()) >= c.max_sessions && !reclaim_abandoned(c))
        status = kNoResources;

    Bytes payload;
    if (status != kNoError) {
        log("open session refused with status " + hex(&status, 1) + " (" + status_text(status) + "): algorithms " +
            std::to_string(p.auth) + "/" + std::to_string(p.integrity) + "/" + std::to_string(p.confidentiality) +
            ", privilege " + std::to_string(p.privilege));
        payload = error_payload(p.tag, status, p.console_id);
    } else {
        Session *s;
        if (pending != sessions_.end()) {
            s = &pending->second;
        } else {
            uint32_t id = new_session_id(c);
            s = &sessions_[id];
            s->bmc_id = id;
        }
        s->console_id = p.console_id;
        s->auth_alg = p.auth;
        s->integrity_alg = p.integrity;
        s->confidentiality_alg = p.confidentiality;
        s->max_privilege = p.privilege ? p.privilege : c.channel_max_privilege;
        s->peer = peer_;
        s->last_request = Clock::now();
        log("open session: console session " + hex32(p.console_id) + ", managed system session " + hex32(s->bmc_id) + ", algorithms " +
            std::to_string(p.auth) + "/" + std::to_string(p.integrity) + "/" + std::to_string(p.confidentiality) +
            ", privilege " + std::to_string(s->max_privilege) + " granted");
        payload.resize(36);
        rmcpp::wire::Writer w(payload.data(), payload.size());
        w.u8(p.tag).u8(kNoError).u8(s->max_privilege).u8(0).u32le(p.console_id).u32le(s->bmc_id);
        write_record(w, 0x00, p.auth);
        write_record(w, 0x01, p.integrity);
        write_record(w, 0x02, p.confidentiality);
    }
    if (!admit(Kind::OpenSession, c.open_session.reply)) return;
    EstablishmentBehaviour e = c.open_session;
    answer(Kind::OpenSession, e.reply, presession_datagram(kOpenSessionResponse, payload), e.fault != EstFault::None,
           [&e](Bytes &b) { break_establishment(e, b, {3}); }, o);
}

}  // namespace bmcsim::detail
