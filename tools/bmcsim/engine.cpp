#include "engine.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>

#include "crypto.h"
#include "wire.h"

namespace bmcsim {

const char *kind_name(Kind kind)
{
    switch (kind) {
    case Kind::Ping: return "presence ping";
    case Kind::Capabilities: return "get channel authentication capabilities";
    case Kind::OpenSession: return "open session request";
    case Kind::Rakp1: return "RAKP 1";
    case Kind::Rakp3: return "RAKP 3";
    case Kind::SessionPacket: return "session packet";
    case Kind::Other: return "other";
    case Kind::Sessionless: return "request outside a session";
    }
    return "?";
}

namespace detail {

namespace {

constexpr uint8_t kAsf = 0x06;
constexpr uint8_t kIpmi = 0x07;

size_t at(Kind kind) { return static_cast<size_t>(kind); }

Kind classify(const Bytes &d)
{
    rmcpp::wire::Reader r(d.data(), d.size());
    uint8_t version = r.u8();
    r.skip(2);
    uint8_t cls = r.u8();
    if (!r.ok() || version != 0x06) return Kind::Other;
    if (cls == kAsf) {
        uint32_t iana = r.u32be();
        uint8_t type = r.u8();
        return r.ok() && iana == 4542 && type == 0x80 ? Kind::Ping : Kind::Other;
    }
    if (cls != kIpmi) return Kind::Other;
    uint8_t auth_type = r.u8();
    if (!r.ok()) return Kind::Other;
    if (auth_type == 0x00) {
        // IPMI v1.5 session: the command sits at offset 19 of the datagram.
        if (d.size() < 21) return Kind::Other;
        uint8_t netfn = d[15] >> 2;
        return netfn == 0x06 && d[19] == 0x38 ? Kind::Capabilities : Kind::Sessionless;
    }
    if (auth_type != 0x06) return Kind::Other;
    uint8_t payload_type = r.u8();
    uint32_t session_id = r.u32le();
    if (!r.ok()) return Kind::Other;
    switch (payload_type & 0x3F) {
    case 0x10: return Kind::OpenSession;
    case 0x12: return Kind::Rakp1;
    case 0x14: return Kind::Rakp3;
    case 0x00: return session_id != 0 ? Kind::SessionPacket : (payload_type == 0x00 ? Kind::Sessionless : Kind::Other);
    default: return Kind::Other;
    }
}

Bytes stray(StrayKind kind, const Bytes &answer)
{
    Bytes b = answer;
    switch (kind) {
    case StrayKind::Garbage: return Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0x00};
    case StrayKind::BadRmcpHeader:
        if (!b.empty()) b[0] = 0x05;
        return b;
    case StrayKind::OtherClass:
        if (b.size() > 3) b[3] = 0x08;
        return b;
    }
    return b;
}

}  // namespace

Address Address::v4(uint32_t ip)
{
    Address a;
    for (int i = 0; i < 4; ++i) a.bytes[12 + static_cast<size_t>(i)] = static_cast<uint8_t>(ip >> (24 - 8 * i));
    return a;
}

bool Address::is_v4() const
{
    static constexpr std::array<uint8_t, 12> kMapped{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    return std::equal(kMapped.begin(), kMapped.end(), bytes.begin());
}

uint32_t Address::v4() const
{
    return (static_cast<uint32_t>(bytes[12]) << 24) | (static_cast<uint32_t>(bytes[13]) << 16) |
           (static_cast<uint32_t>(bytes[14]) << 8) | bytes[15];
}

std::string Address::text() const
{
    char buf[INET6_ADDRSTRLEN] = "";
    if (is_v4()) {
        ::inet_ntop(AF_INET, bytes.data() + 12, buf, sizeof buf);
        return buf;
    }
    ::inet_ntop(AF_INET6, bytes.data(), buf, sizeof buf);
    std::string t = buf;
    if (scope != 0) {
        char name[IF_NAMESIZE] = "";
        t += "%" + std::string(::if_indextoname(scope, name) ? name : std::to_string(scope).c_str());
    }
    return t;
}

std::string hex(const uint8_t *p, size_t n)
{
    std::string s;
    char buf[4];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%02x", p[i]);
        s += buf;
    }
    return s;
}

std::string hex32(uint32_t v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%08x", v);
    return buf;
}

void rmcp_header(Bytes &out, uint8_t cls)
{
    out.push_back(0x06);
    out.push_back(0x00);
    out.push_back(0xFF);
    out.push_back(cls);
}

std::string privilege_name(uint8_t level)
{
    switch (level) {
    case 1: return "CALLBACK";
    case 2: return "USER";
    case 3: return "OPERATOR";
    case 4: return "ADMINISTRATOR";
    case 5: return "OEM";
    }
    return "level " + std::to_string(level);
}

std::string status_text(uint8_t status)
{
    switch (status) {
    case 0x00: return "no errors";
    case 0x01: return "no session slot available";
    case 0x02: return "invalid session ID";
    case 0x04: return "invalid authentication algorithm";
    case 0x05: return "invalid integrity algorithm";
    case 0x09: return "invalid role";
    case 0x0A: return "unauthorized role or privilege level";
    case 0x0C: return "invalid name length";
    case 0x0D: return "unauthorized name";
    case 0x0F: return "invalid integrity check value";
    case 0x10: return "invalid confidentiality algorithm";
    case 0x11: return "no cipher suite match";
    case 0x12: return "illegal or unrecognized parameter";
    }
    return "status " + hex(&status, 1);
}

ChassisState Engine::chassis(const Config &c)
{
    if (!chassis_known_ || !(c.chassis == chassis_configured_)) {
        chassis_ = chassis_configured_ = c.chassis;
        chassis_known_ = true;
    }
    return chassis_;
}

void Engine::close(std::map<uint32_t, Session>::iterator it, const std::string &how)
{
    log("session " + hex32(it->second.bmc_id) + " closed" + how + " (user '" + it->second.user_name + "')");
    sessions_.erase(it);
    ++closed_;
}

Outcome Engine::handle(const Bytes &datagram, const Config &config, Peer peer)
{
    peer_ = peer;
    Outcome o;
    o.kind = classify(datagram);
    switch (o.kind) {
    case Kind::Ping: presence_ping(datagram, config, o); break;
    case Kind::Capabilities: channel_capabilities(datagram, config, o); break;
    case Kind::OpenSession: open_session(datagram, config, o); break;
    case Kind::Rakp1: rakp1(datagram, config, o); break;
    case Kind::Rakp3: rakp3(datagram, config, o); break;
    case Kind::SessionPacket: session_packet(datagram, config, o); break;
    case Kind::Sessionless: sessionless(datagram, config, o); break;
    case Kind::Other:
        log("ignored an unrecognised datagram of " + std::to_string(datagram.size()) + " bytes: " +
            hex(datagram.data(), std::min<size_t>(datagram.size(), 64)));
        break;
    }
    return o;
}

void Engine::reset_counters()
{
    requests_.fill(0);
    faulted_.fill(0);
}

bool Engine::admit(Kind kind, const Reply &reply)
{
    int n = ++requests_[at(kind)];
    if (reply.silent) {
        log(std::string("silent: no answer to ") + kind_name(kind));
        return false;
    }
    if (n <= reply.ignore_first) {
        log(std::string("ignoring ") + kind_name(kind) + " number " + std::to_string(n));
        return false;
    }
    return true;
}

bool Engine::take_fault(Kind kind, const Reply &reply)
{
    int &used = faulted_[at(kind)];
    if (reply.faulty_answers >= 0 && used >= reply.faulty_answers) return false;
    ++used;
    return true;
}

void Engine::emit(const Reply &reply, const Bytes &answer, const Bytes *correct_after, Outcome &o)
{
    for (int i = 0; i < reply.strays; ++i) o.out.push_back({reply.delay_ms, stray(reply.stray_kind, answer)});
    for (int i = 0; i < std::max(reply.copies, 1); ++i) o.out.push_back({reply.delay_ms, answer});
    if (correct_after && reply.then_correct) o.out.push_back({reply.delay_ms, *correct_after});
}

void Engine::answer(Kind kind, const Reply &reply, const Bytes &correct, bool configured,
                    const std::function<void(Bytes &)> &fault, Outcome &o)
{
    if (configured && take_fault(kind, reply)) {
        Bytes faulty = correct;
        fault(faulty);
        emit(reply, faulty, &correct, o);
    } else {
        emit(reply, correct, nullptr, o);
    }
}

std::array<uint8_t, 16> Engine::random16()
{
    std::array<uint8_t, 16> r{};
    random_bytes(r.data(), r.size());
    return r;
}

uint32_t Engine::new_session_id(const Config &c)
{
    if (c.bmc_session_id != 0 && !sessions_.count(c.bmc_session_id)) return c.bmc_session_id;
    uint32_t id;
    do {
        id = next_id_++;
    } while (id == 0 || sessions_.count(id));
    return id;
}

}  // namespace detail
}  // namespace bmcsim
