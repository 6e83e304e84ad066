// Get Channel Cipher Suites, which consoles ask outside a session (in
// unauthenticated IPMI v1.5 or RMCP+ framing) to learn which suites they may
// propose, and which may also come inside one.
// The answer is a list of records, 16 bytes of it per request.
#include <algorithm>
#include <array>

#include "establishment.h"
#include "ipmi.h"

namespace bmcsim::detail {

namespace {

constexpr uint8_t kApp = 0x06;
constexpr uint8_t kGetChannelCipherSuites = 0x54;
constexpr uint8_t kGetSystemGuid = 0x37;
constexpr uint8_t kThisChannel = 0x0E;

// The suites served, with their authentication, integrity and
// confidentiality algorithms.
struct Suite {
    int id;
    std::array<uint8_t, 3> algorithms;
};
constexpr std::array<Suite, 7> kSuites{{
    {0, {kRakpNone, kIntegrityNone, kConfidentialityNone}},
    {1, {kRakpHmacSha1, kIntegrityNone, kConfidentialityNone}},
    {2, {kRakpHmacSha1, kHmacSha1_96, kConfidentialityNone}},
    {3, {kRakpHmacSha1, kHmacSha1_96, kAesCbc128}},
    {15, {kRakpHmacSha256, kIntegrityNone, kConfidentialityNone}},
    {16, {kRakpHmacSha256, kHmacSha256_128, kConfidentialityNone}},
    {17, {kRakpHmacSha256, kHmacSha256_128, kAesCbc128}},
}};

// Algorithm numbers in the records carry a tag in bits 7:6.
constexpr uint8_t kIntegrityTag = 0x40;
constexpr uint8_t kConfidentialityTag = 0x80;
constexpr uint8_t kStandardRecord = 0xC0;

// In the order of kSuites, whatever the order of the configuration.
std::vector<Suite> accepted_suites(const Config &c)
{
    std::vector<Suite> v;
    for (const Suite &s : kSuites)
        if (std::find(c.cipher_suites.begin(), c.cipher_suites.end(), s.id) != c.cipher_suites.end()) v.push_back(s);
    return v;
}

// Listed by suite: 0xC0, suite ID, then its three tagged algorithms.
Bytes records_by_suite(const Config &c)
{
    Bytes r;
    for (const Suite &s : accepted_suites(c)) {
        const auto &a = s.algorithms;
        r.insert(r.end(), {kStandardRecord, static_cast<uint8_t>(s.id), a[0],
                           static_cast<uint8_t>(kIntegrityTag | a[1]),
                           static_cast<uint8_t>(kConfidentialityTag | a[2])});
    }
    return r;
}

// Listed by algorithm: every tagged algorithm of the accepted suites, once.
Bytes records_by_algorithm(const Config &c)
{
    Bytes r;
    for (uint8_t tag : {uint8_t{0}, kIntegrityTag, kConfidentialityTag}) {
        size_t kind = tag == 0 ? 0 : tag == kIntegrityTag ? 1 : 2;
        for (const Suite &s : accepted_suites(c)) {
            uint8_t v = static_cast<uint8_t>(tag | s.algorithms[kind]);
            if (std::find(r.begin(), r.end(), v) == r.end()) r.push_back(v);
        }
    }
    return r;
}

}  // namespace

int suite_of(uint8_t auth, uint8_t integrity, uint8_t confidentiality)
{
    for (const Suite &s : kSuites)
        if (s.algorithms == std::array<uint8_t, 3>{auth, integrity, confidentiality}) return s.id;
    return -1;
}

Hash auth_hash(uint8_t auth_alg) { return auth_alg == kRakpHmacSha256 ? Hash::Sha256 : Hash::Sha1; }

std::pair<uint8_t, Bytes> channel_cipher_suites(const Config &c, const Bytes &request)
{
    if (request.size() != 3) return {0xC7, {}};
    uint8_t channel = request[0] & 0x0F;
    uint8_t payload_type = request[1] & 0x3F;
    if ((channel != kThisChannel && channel != c.capabilities.channel) || payload_type != 0x00) return {0xCC, {}};
    bool by_suite = request[2] & 0x80;
    size_t index = request[2] & 0x3F;
    Bytes all = by_suite ? records_by_suite(c) : records_by_algorithm(c);
    Bytes data{c.capabilities.channel};
    size_t from = std::min(all.size(), index * 16);
    size_t to = std::min(all.size(), from + 16);
    data.insert(data.end(), all.begin() + static_cast<long>(from), all.begin() + static_cast<long>(to));
    return {0x00, data};
}

void Engine::sessionless(const Bytes &d, const Config &c, Outcome &o)
{
    // Either IPMI v1.5 framing (authentication type none) or an RMCP+
    // header with session ID 0 and no protection; the answer comes back
    // in the framing of the request.
    bool rmcp_plus = d.size() > 4 && d[4] == 0x06;
    std::optional<Bytes> message;
    if (rmcp_plus) {
        if (auto p = read_presession(d); p && p->sequence == 0) message = p->payload;
    } else {
        message = read_v15_message(d);
    }
    auto rq = message ? parse_request(message->data(), message->size()) : std::nullopt;
    if (!rq) {
        log("ignored a request outside a session with a bad v1.5 session header or IPMI message");
        return;
    }
    log("outside a session: netFn " + hex(&rq->netfn, 1) + " command " + hex(&rq->cmd, 1));
    Bytes response;
    if (rq->netfn == kApp && rq->cmd == kGetChannelCipherSuites) {
        auto [cc, data] = channel_cipher_suites(c, rq->data);
        response = response_to(*rq, cc, data);
    } else if (rq->netfn == kApp && rq->cmd == kGetSystemGuid) {
        response = response_to(*rq, 0x00, Bytes(c.guid.begin(), c.guid.end()));
    } else {
        response = response_to(*rq, 0xC1, {});
    }
    emit(Reply{}, rmcp_plus ? presession_datagram(0x00, response) : v15_datagram(response), nullptr, o);
}

}  // namespace bmcsim::detail

namespace bmcsim {

const std::vector<int> &supported_cipher_suites()
{
    static const std::vector<int> ids = [] {
        std::vector<int> v;
        for (const auto &s : detail::kSuites) v.push_back(s.id);
        return v;
    }();
    return ids;
}

}  // namespace bmcsim
