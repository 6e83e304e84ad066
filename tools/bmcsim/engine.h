// The simulator's protocol engine: turns one received datagram into the
// datagrams to send back, with no sockets or threads of its own.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "bmcsim.h"
#include "crypto.h"
#include "ipmi.h"
#include "sdr_store.h"
#include "sel.h"

namespace bmcsim::detail {

// Algorithm numbers proposed in Open Session.
enum : uint8_t {
    kRakpNone = 0,
    kRakpHmacSha1 = 1,
    kRakpHmacSha256 = 3,
    kIntegrityNone = 0,
    kHmacSha1_96 = 1,
    kHmacSha256_128 = 4,
    kConfidentialityNone = 0,
    kAesCbc128 = 1,
};

struct Outgoing {
    int delay_ms = 0;
    Bytes bytes;
};

// An IP address of either family. IPv4 addresses are held IPv4-mapped
// (::ffff:a.b.c.d), so one comparison serves both; the default is 0.0.0.0.
struct Address {
    std::array<uint8_t, 16> bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0};
    uint32_t scope = 0;  // interface of an IPv6 link-local address

    static Address v4(uint32_t ip);  // ip in host order
    bool is_v4() const;
    uint32_t v4() const;             // host order; meaningful when is_v4()
    // "127.0.0.5" or "::1" ("fe80::1%2" with a scope).
    std::string text() const;

    bool operator==(const Address &) const = default;
};

// Where a request came from, and the simulator's address it was sent to.
struct Peer {
    Address ip;
    uint16_t port = 0;
    Address local_ip;

    Peer() = default;
    Peer(Address ip_, uint16_t port_, Address local) : ip(ip_), port(port_), local_ip(local) {}
    // IPv4 addresses in host order.
    Peer(uint32_t ip_, uint16_t port_, uint32_t local) : Peer(Address::v4(ip_), port_, Address::v4(local)) {}

    bool operator==(const Peer &) const = default;
};

struct Outcome {
    Kind kind = Kind::Other;
    Bytes message;  // session packets: the clear IPMI message
    std::vector<Outgoing> out;
};

// One RMCP+ session, from Open Session to Close Session.
struct Session {
    uint32_t console_id = 0;
    uint32_t bmc_id = 0;
    uint8_t auth_alg = 0, integrity_alg = 0, confidentiality_alg = 0;
    uint8_t max_privilege = 0;  // granted in Open Session
    uint8_t role = 0;           // RAKP 1 role byte
    std::string user_name;
    Bytes password;             // zero-padded to 20
    std::array<uint8_t, 16> rm{}, rc{};
    // As long as the authentication algorithm's HMAC: 20 bytes (SHA-1) or
    // 32 (SHA-256). K2 is all zero without a confidentiality algorithm.
    Bytes sik, k2;
    Bytes k1;  // standard keys: K1; else a copy of the SIK
    bool standard_keys = false;
    uint8_t privilege = 0;      // operating privilege level
    uint8_t handle = 0;         // session handle
    uint8_t user_id = 0;        // position of the user in Config::users, from 1
    Peer peer;                  // the console, as seen at Open Session
    bool active = false;        // RAKP 4 sent with status 0
    Clock::time_point last_request{};  // of the establishment

    // The key of the integrity code in both directions.
    const Bytes &integrity_key() const { return k1; }

    // Inbound windows: highest accepted number and the 32 numbers below it.
    struct Window {
        uint32_t highest = 0;
        uint32_t seen = 0;  // bit i: highest - 1 - i accepted
    } in_auth, in_unauth;
    uint32_t out_auth = 1, out_unauth = 1;

    std::optional<Bytes> held;  // a reordered answer waiting for the next one
    std::optional<Bytes> last;  // the last answer sent, for replays
};

// Writes an RMCP header of class `cls`.
void rmcp_header(Bytes &out, uint8_t cls);
class Engine {
public:
    using Log = std::function<void(const std::string &)>;

    explicit Engine(Log log) : log_(std::move(log)) {}

    Outcome handle(const Bytes &datagram, const Config &config, Peer peer = {});
    // Restarts the per-kind request counters (after a configuration change).
    void reset_counters();

    size_t established() const { return established_; }
    size_t closed() const { return closed_; }
    size_t rejected() const { return rejected_; }
    ChassisState chassis(const Config &c);
    std::vector<SessionInfo> sessions() const;
    // Logs a system event in the SEL at the current time (sel.cpp); false
    // when the SEL is full.
    bool log_system_event(const SystemEvent &event, const Config &c);
    // A sensor's threshold crossing, logged as a threshold system event.
    void log_threshold_event(const ThresholdCrossing &x, const Config &c);

private:
    // ping.cpp
    void presence_ping(const Bytes &d, const Config &c, Outcome &o);
    // capabilities.cpp
    void channel_capabilities(const Bytes &d, const Config &c, Outcome &o);
    // open_session.cpp
    void open_session(const Bytes &d, const Config &c, Outcome &o);
    // rakp.cpp
    void rakp1(const Bytes &d, const Config &c, Outcome &o);
    void rakp3(const Bytes &d, const Config &c, Outcome &o);
    // cipher_suites.cpp: requests outside a session other than capabilities
    void sessionless(const Bytes &d, const Config &c, Outcome &o);
    // session.cpp
    void session_packet(const Bytes &d, const Config &c, Outcome &o);
    Bytes session_datagram(Session &s, const Bytes &message, uint8_t bits, const SessionBehaviour &b, bool faulty);
    // commands.cpp
    struct CommandResult {
        Bytes response;
        std::optional<Bytes> bridged;  // sent later as its own message
        bool close = false;            // close the session after answering
    };
    CommandResult command(Session &s, const IpmiRequest &rq, const Config &c);
    void set_session_privilege(Session &s, const IpmiRequest &rq, CommandResult &r);
    void session_info(const Session &s, const IpmiRequest &rq, const Config &c, CommandResult &r);
    void close(std::map<uint32_t, Session>::iterator it, const std::string &how);
    // sel.cpp, fru.cpp: Storage commands; false when `rq` is none of theirs.
    bool sel_command(const IpmiRequest &rq, const Config &c, CommandResult &r);
    bool fru_command(const IpmiRequest &rq, const Config &c, CommandResult &r);
    SelStore sel_;
    // boot_options.cpp: Get / Set System Boot Options; false when rq is neither.
    bool boot_options_command(const IpmiRequest &rq, const Config &c, CommandResult &r);
    BootOptions boot_{}, boot_configured_{};
    bool boot_known_ = false;
    // lan.cpp: Get LAN Configuration Parameters.
    bool lan_command(const IpmiRequest &rq, const Config &c, CommandResult &r);
    // users.cpp: Get User Access, Get User Name, Get Channel Info, Get Channel Access.
    bool user_command(const IpmiRequest &rq, const Config &c, CommandResult &r);
    // The running chassis; a changed Config::chassis replaces it.
    ChassisState chassis_{}, chassis_configured_{};
    SdrRepository sdr_;  // the SDR repository and the sensors
    Clock::time_point started_ = Clock::now();
    uint64_t sensor_time() const;  // ms since the engine started
    bool chassis_known_ = false;
    Peer peer_;  // of the datagram being handled
    uint8_t next_handle_ = 1;

    // Counts the request; false when it is to stay unanswered.
    bool admit(Kind kind, const Reply &reply);
    // True when this answer is to carry the configured fault.
    bool take_fault(Kind kind, const Reply &reply);
    // Queues strays, the answer (copies times) and, after a faulty answer,
    // the correct one when asked.
    void emit(const Reply &reply, const Bytes &answer, const Bytes *correct_after, Outcome &o);
    // take_fault + fault applied to a copy of `correct` + emit.
    void answer(Kind kind, const Reply &reply, const Bytes &correct, bool configured,
                const std::function<void(Bytes &)> &fault, Outcome &o);

    void log(const std::string &line) { if (log_) log_(line); }

    Log log_;
    std::array<int, kKinds> requests_{};
    std::array<int, kKinds> faulted_{};
    std::map<uint32_t, Session> sessions_;  // by managed system session ID
    uint32_t next_id_ = 0x0B0C0001;
    uint64_t random_counter_ = 0;
    size_t established_ = 0, closed_ = 0, rejected_ = 0;

    friend struct SessionOps;
    std::array<uint8_t, 16> random16();
    uint32_t new_session_id(const Config &c);
    // Frees the slot of the establishment idle longest, if idle too long.
    bool reclaim_abandoned(const Config &c);
};

std::string hex(const uint8_t *p, size_t n);
inline std::string hex(const Bytes &b) { return hex(b.data(), b.size()); }
std::string hex32(uint32_t v);
// "ADMINISTRATOR" etc. for privilege levels 1 to 5.
std::string privilege_name(uint8_t level);
// Words for an RMCP+ status code the managed system returns.
std::string status_text(uint8_t status);
// Cipher suite number of an algorithm triple (0..3, 15..17), or -1.
int suite_of(uint8_t auth, uint8_t integrity, uint8_t confidentiality);
// The HMAC of an authentication algorithm: 1 RAKP-HMAC-SHA1, 3 RAKP-HMAC-SHA256.
Hash auth_hash(uint8_t auth_alg);
// The Get Channel Cipher Suites answer: completion code and data.
std::pair<uint8_t, Bytes> channel_cipher_suites(const Config &c, const Bytes &request);

}  // namespace bmcsim::detail
