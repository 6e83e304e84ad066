// bmcsim: the managed-system side of IPMI v2.0 over LAN, for tests.
//
// A Simulator listens on one UDP address (or several, IPv4 or IPv6) and answers as a baseboard
// management controller would: the ASF presence ping, Get Channel
// Authentication Capabilities over an unauthenticated IPMI v1.5 session,
// Open Session, RAKP 1 to 4, and RMCP+ session packets carrying IPMI
// commands. Every answer can be withheld, delayed, repeated, preceded by
// stray datagrams or made wrong in one chosen field, so tests can drive the
// console side through each of its rejection paths. It computes its keys
// and codes itself with OpenSSL, independently of the library it checks.
// Cipher suites 0 to 3 (HMAC-SHA1) and 15 to 17 (HMAC-SHA256) are served.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sensors.h"

namespace bmcsim {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

// ------------------------------------------------------------------ answers

// What is sent before the real answer when Reply::strays is non-zero.
enum class StrayKind {
    Garbage,        // a short datagram that is not RMCP at all
    BadRmcpHeader,  // the real answer with RMCP version 0x05
    OtherClass,     // the real answer with RMCP class 0x08
};

// How one kind of request is answered, whatever the answer says.
struct Reply {
    int ignore_first = 0;       // leave this many requests unanswered first
    bool silent = false;        // never answer
    int delay_ms = 0;           // send each answer this late
    int copies = 1;             // send each answer this many times
    int strays = 0;             // stray datagrams sent before each answer
    StrayKind stray_kind = StrayKind::Garbage;
    int faulty_answers = -1;    // answers that carry the fault (-1: every one)
    bool then_correct = false;  // follow each faulty answer with the correct one
};

// ------------------------------------------------------------------ ping

// One wrong field in the Presence Pong. `value` (when >= 0) is the byte or
// number written instead of the correct one; otherwise a default wrong value
// is used (the correct byte XOR 1, tag + 1, IANA 4543, OEM 1, ...).
enum class PongFault {
    None,
    TooShort,               // 27 bytes
    Length29,               // one extra byte
    Length40,               // twelve extra bytes
    RmcpVersion,
    RmcpReserved,
    RmcpSequence,
    RmcpClass,
    Iana,                   // offset 4
    MessageType,
    MessageTag,
    AsfReserved,
    DataLength,
    SecondIana,             // offset 12
    Oem,                    // offset 16
    SupportedEntities,      // offset 20
    SupportedInteractions,  // offset 21
    TrailingReserved,       // offset 22 + index (index 0..5)
};

struct PingBehaviour {
    // false: pings are taken and logged but never answered, as many BMCs
    // (OpenBMC, virtual ones) behave; everything else is served as usual.
    bool pong = true;
    Reply reply;
    PongFault fault = PongFault::None;
    int index = 0;
    int value = -1;
};

// ------------------------------------------------------------------ channel

// One wrong field in the Get Channel Authentication Capabilities response.
// Header field faults recompute the checksums so only that field is wrong;
// the checksum faults break only the checksum.
enum class CapsFault {
    None,
    RmcpVersion,
    RmcpReserved,
    RmcpSequence,
    RmcpClass,
    AuthType,         // v1.5 session authentication type not 0
    SessionSequence,  // v1.5 session sequence number not 0
    SessionId,        // v1.5 session ID not 0
    MessageLength,    // message length byte (value, default: one more)
    Checksum1,
    Checksum2,
    RqAddr,
    NetFn,
    RqLun,
    RsAddr,
    RqSeq,
    RsLun,
    Command,
};

struct CapabilitiesBehaviour {
    Reply reply;
    CapsFault fault = CapsFault::None;
    int value = -1;
    uint8_t completion_code = 0;
    int data_length = 8;                  // data bytes after the completion code
    std::optional<bool> kg_set;           // default: Config::kg has a non-zero byte
    bool per_message_auth_disabled = false;
    bool user_auth_disabled = false;
    bool ipmi20_extended = true;          // byte 2 bit 7
    bool ipmi20_connections = true;       // byte 4 bit 1
    uint8_t channel = 1;
};

// ------------------------------------------------------------------ establishment

// One wrong field in an Open Session Response, RAKP 2 or RAKP 4. Offsets of
// `index` count from the start of the RMCP+ payload unless said otherwise.
enum class EstFault {
    None,
    RmcpVersion,
    RmcpReserved,
    RmcpSequence,
    RmcpClass,
    AuthFormat,           // authentication type byte not 0x06
    PayloadType,          // whole payload type byte = value (default: the next type)
    AuthenticatedBit,     // payload type | 0x40
    EncryptedBit,         // payload type | 0x80
    SessionId,            // session ID in the header = value (default 1)
    SequenceNumber,       // sequence number in the header = value (default 1)
    LengthField,          // header payload length off by value (default +1)
    PayloadLength,        // payload cut or zero-extended to value bytes
    Tag,                  // message tag = value (default tag + 1)
    Status,               // RMCP+ status code = value (default 0x12)
    Reserved,             // reserved byte number index (0-based) = value (default 1)
    ConsoleSessionId,     // remote console session ID + 1
    PayloadByte,          // payload byte index = value
    GrantedPrivilege,     // Open Session: granted privilege = value
    AuthAlgorithm,        // Open Session: accepted algorithms = value
    IntegrityAlgorithm,
    ConfidentialityAlgorithm,
    KeyExchangeCode,      // RAKP 2: code byte index (default 19) XOR 1
    IntegrityCheckValue,  // RAKP 4: ICV byte index (default 11) XOR 1
};

struct EstablishmentBehaviour {
    Reply reply;
    EstFault fault = EstFault::None;
    int index = -1;
    int value = -1;
};

// ------------------------------------------------------------------ session

// One fault in RMCP+ session responses (drop, duplicate and delay are
// Reply's silent, copies and delay_ms).
enum class SessionFault {
    None,
    Reorder,                  // hold this answer and send it after the next one
    Replay,                   // send the previous answer again before this one
    WrongSessionId,           // console session ID + 1, valid integrity code
    BadIntegrity,             // authentication code byte index (default 11) XOR 1
    BadIntegrityPad,          // an integrity pad byte not 0xFF (needs a pad)
    BadIntegrityPadLength,
    BadNextHeader,
    BadConfidentialityPad,    // pad byte wrong (needs a pad)
    BadConfidentialityPadLength,  // pad length value (default 16)
    BadConfidentialityPayloadLength,  // payload length not a multiple of 16 (one byte more)
    ShortConfidentialityPayload,      // payload of 16 bytes: an IV only
    OtherProtection,          // payload type bits = value << 6 (default: flip both)
    CompletionCode,           // completion code = value (default 0xC1)
};

struct SessionBehaviour {
    Reply reply;
    SessionFault fault = SessionFault::None;
    int index = -1;
    int value = -1;
    uint32_t outbound_sequence_start = 1;  // first number of each outbound counter
    int bridge_delay_ms = 20;               // delay of a bridged response
    // Inbound numbers more than 16 above the highest seen are refused; when
    // false, any number above it is taken (repeats and old ones still not).
    bool strict_inbound_window = true;
    // Session packets must carry the negotiated protection; when false any
    // valid protection is taken (and mirrored in the answer).
    bool require_negotiated_protection = true;
};

// ------------------------------------------------------------------ config

struct User {
    std::string name;      // up to 16 bytes; empty for the anonymous user
    std::string password;  // up to 20 bytes
    uint8_t max_privilege = 4;
    bool enabled = true;
};

// What Get Device ID answers (netFn App, command 0x01).
struct DeviceIdentity {
    uint8_t device_id = 0x20;
    uint8_t device_revision = 0x01;     // bit 7: the device provides SDRs
    uint8_t firmware_major = 0x02;      // bits 6:0; bit 7: update in progress
    uint8_t firmware_minor = 0x15;      // two BCD digits: 0x15 is ".15"
    uint8_t ipmi_version = 0x02;        // BCD, minor in bits 7:4: 0x02 is 2.0
    uint8_t additional_support = 0xBF;  // device class bits
    uint32_t manufacturer = 0x005A5A;   // IANA enterprise number, 20 bits used
    uint16_t product = 0x0001;
    std::array<uint8_t, 4> aux{};       // auxiliary firmware revision, as sent

    bool operator==(const DeviceIdentity &) const = default;
};

// The chassis as Get Chassis Status reports it. Chassis Control changes the
// running state; a changed configuration replaces it.
struct ChassisState {
    bool power_on = true;
    bool power_overload = false;
    bool interlock = false;
    bool power_fault = false;
    bool control_fault = false;
    uint8_t restore_policy = 0;  // 0 stays off, 1 previous state, 2 powers up, 3 unknown
    uint8_t last_event = 0x00;   // last power event bits (0x10: powered up by command)
    uint8_t misc = 0x00;         // misc. chassis state bits (intrusion, lockout, faults, identify)

    bool operator==(const ChassisState &) const = default;
};

// A system event the BMC logs in its SEL (Add SEL Entry's record type
// 02h); the timestamp is the time it is logged.
struct SystemEvent {
    uint16_t generator_id = 0x0020;  // the BMC at 20h, LUN 0, channel 0
    uint8_t sensor_type = 0;
    uint8_t sensor_number = 0;
    uint8_t event_type = 0x01;  // event/reading type code
    bool deassertion = false;
    std::array<uint8_t, 3> event_data{0x00, 0xFF, 0xFF};

    bool operator==(const SystemEvent &) const = default;
};

// The System Event Log the BMC starts with (sel.cpp). A changed
// configuration replaces the running log.
struct SelConfig {
    // 16-byte records; their record IDs are given anew from 1 in order.
    std::vector<std::array<uint8_t, 16>> entries;
    uint16_t capacity = 512;  // records
    // Get SEL Entry of a whole record (bytes to read FFh) answers CAh when
    // false, so consoles must read records in parts.
    bool whole_records = true;
    uint8_t max_partial_read = 16;  // larger partial reads answer CAh
    // Clear SEL get-status polls answered "in progress" after each erase.
    int erase_polls = 1;

    bool operator==(const SelConfig &) const = default;
};

// One FRU device (fru.cpp): Read FRU Data serves `image`.
struct FruDeviceConfig {
    Bytes image;
    bool access_by_words = false;
    uint8_t max_read = 32;  // counts above this answer CAh

    bool operator==(const FruDeviceConfig &) const = default;
};

// System boot options: the boot flags (parameter 5) as Get System Boot
// Options returns them. Set System Boot Options changes the running copy; a
// changed configuration replaces it.
struct BootOptions {
    std::array<uint8_t, 5> boot_flags{};  // data 1 to 5 of parameter 5
    bool flags_locked = false;            // parameter 5 marked invalid / locked
    uint8_t info_acknowledge = 0;         // parameter 4: boot info acknowledge bits
    uint8_t set_in_progress = 0;          // parameter 0: 0 complete, 1 in progress

    bool operator==(const BootOptions &) const = default;
};

// LAN configuration parameters of the simulator's LAN channel.
struct LanParameters {
    uint8_t ip_source = 1;                          // 1 static, 2 DHCP, 3 BIOS, 4 other
    std::optional<std::array<uint8_t, 4>> ip_address;  // default: the address a request came to
    std::array<uint8_t, 4> subnet_mask{255, 255, 255, 0};
    std::array<uint8_t, 4> default_gateway{};
    std::array<uint8_t, 6> mac_address{0x02, 0x00, 0x5A, 0x5A, 0x00, 0x01};
    uint16_t vlan_id = 0;  // 0: VLAN disabled; else 1 to 4095
    uint8_t auth_type_support = 0x15;                   // NONE, MD5, PASSWORD
    std::array<uint8_t, 5> auth_type_enables{0x15, 0x15, 0x15, 0x15, 0x00};  // callback, user, operator, admin, OEM
    // Maximum privilege of each cipher suite (by suite ID); suites not
    // listed get Config::channel_max_privilege.
    std::vector<std::pair<int, uint8_t>> cipher_suite_privileges;

    bool operator==(const LanParameters &) const = default;
};

struct Config {
    // IPv4 ("127.0.0.5") or IPv6 ("::1", "fe80::1%eth0"; brackets allowed).
    std::string address = "127.0.0.1";
    uint16_t port = 623;
    // Further addresses served by the same simulator on the same port, of
    // either family. Each address is a BMC of its own (its own sessions,
    // session IDs, chassis and logs, made from this one configuration), and
    // each answer leaves from the address its request came to.
    std::vector<std::string> extra_addresses;
    // Threads serving the addresses, each a share of them (at most one per
    // address); one address's traffic never waits for another's handling
    // beyond one datagram.
    int server_threads = 1;
    // Keep every datagram, log line and session in Stats. The program turns
    // this off: with thousands of addresses the record would only grow.
    bool keep_record = true;

    PingBehaviour ping;
    CapabilitiesBehaviour capabilities;

    std::vector<User> users;
    Bytes kg;                                   // BMC key; all zero or empty: not set
    std::array<uint8_t, 16> guid{0xA1, 0xB2, 0xC3, 0xD4, 0x10, 0x20, 0x30, 0x40,
                                 0x50, 0x60, 0x70, 0x80, 0x90, 0xA0, 0xB0, 0xC0};
    // Suites accepted in Open Session and listed by Get Channel Cipher Suites.
    std::vector<int> cipher_suites{0, 1, 2, 3, 15, 16, 17};
    uint8_t channel_max_privilege = 4;          // granted when 0 is asked
    int max_sessions = 16;
    // A session still being established that has had no request for this
    // long gives up its slot when the table is full and another console asks.
    int establishment_timeout_ms = 10000;
    uint32_t bmc_session_id = 0;                // 0: a fresh one per Open Session
    std::optional<std::array<uint8_t, 16>> rc;  // fixed BMC random number

    EstablishmentBehaviour open_session;
    EstablishmentBehaviour rakp2;
    EstablishmentBehaviour rakp4;

    SessionBehaviour session;

    // Key mode of suites 0 to 3. false: the integrity code is keyed with the
    // SIK itself and K2 = HMAC-SHA1(SIK, sixty-four 0x02 bytes), as this
    // library does. true: IPMI v2.0 to the letter: K1 = HMAC-SHA1(SIK,
    // twenty 0x01 bytes) keys the integrity code, K2 = HMAC-SHA1(SIK, twenty
    // 0x02 bytes). Suites 15 to 17 always take the IPMI v2.0 keys, made with
    // HMAC-SHA256. RAKP 4 is made with the SIK in both modes.
    bool standard_keys = false;

    DeviceIdentity device;
    ChassisState chassis;

    // The sensors, each with its record in the SDR repository (IDs from 1
    // in this order); a platform file's `sensors:` section.
    std::vector<SimSensor> sensors;
    // Called (on a server thread) with each threshold a sensor's reading
    // crosses or comes back from, found whenever the sensors are sampled
    // (at each Get Sensor Reading or Get Sensor Thresholds).
    ThresholdCrossingHook on_threshold_crossing;
    SelConfig sel;
    std::map<uint8_t, FruDeviceConfig> fru;  // by FRU device ID
    BootOptions boot;
    LanParameters lan;
    // Get User Access: the user IDs the BMC has (at least users.size()) and
    // how many of them have fixed names.
    uint8_t max_user_ids = 10;
    uint8_t fixed_name_user_ids = 0;
};

// The addresses a --address value names: a comma-separated list whose items
// are addresses ("127.0.0.5", "::1", "[::1]", "fe80::1%eth0"), IPv4 ranges
// given by their ends ("127.1.0.1-127.1.39.16") or hostranges with numeric
// brackets ("127.1.[0-3].[1-250]", "127.0.19.[1-3,7]"; several brackets
// expand as a cross product, left to right). A bracket holding a colon is an
// IPv6 address, not a range. Throws std::invalid_argument naming the fault;
// a list of more than kMaxAddresses is refused.
constexpr size_t kMaxAddresses = 65536;
std::vector<std::string> expand_addresses(const std::string &list);

// The cipher suites the simulator can serve: 0, 1, 2, 3, 15, 16, 17.
const std::vector<int> &supported_cipher_suites();

// ------------------------------------------------------------------ stats

enum class Kind {
    Ping,
    Capabilities,
    OpenSession,
    Rakp1,
    Rakp3,
    SessionPacket,  // an RMCP+ packet of an established session
    Other,          // anything not recognised
    Sessionless,    // other requests outside a session (Get Channel Cipher Suites)
};
constexpr size_t kKinds = 8;
const char *kind_name(Kind kind);

struct Datagram {
    Kind kind;
    Clock::time_point at;
    Bytes bytes;    // the datagram as received or sent
    Bytes message;  // session packets: the IPMI message in clear, if it could be read
};

// A session as the simulator holds it (keys for known-answer checks).
struct SessionInfo {
    uint32_t console_id = 0, bmc_id = 0;
    uint8_t auth_alg = 0, integrity_alg = 0, confidentiality_alg = 0;
    uint8_t role = 0;
    std::string user_name;
    std::array<uint8_t, 16> rm{}, rc{};
    // 20 bytes under RAKP-none and RAKP-HMAC-SHA1, 32 under RAKP-HMAC-SHA256;
    // K2 is all zero without a confidentiality algorithm.
    std::vector<uint8_t> sik, k2;
    // The integrity code's key: K1 under standard keys, else the SIK itself.
    std::vector<uint8_t> k1;
    bool standard_keys = false;   // the key mode the session was established in
    uint8_t privilege = 0;        // operating privilege (Set Session Privilege Level)
    uint8_t handle = 0;           // session handle (Get Session Info)
    bool active = false;
    uint32_t next_out_auth = 0, next_out_unauth = 0;  // next outbound numbers
    uint32_t in_auth_highest = 0, in_unauth_highest = 0;
};

struct Stats {
    std::array<size_t, kKinds> received{};
    std::vector<Datagram> datagrams;   // every datagram received, in order
    std::vector<Datagram> sent;        // every datagram sent, in order (kind: what it answers)
    std::vector<std::string> events;   // the log lines, in order
    size_t sessions_established = 0;
    size_t sessions_closed = 0;
    std::vector<SessionInfo> sessions;  // open or being opened, by managed system session ID
    size_t rejected_packets = 0;        // session packets refused by a check
    ChassisState chassis;               // the chassis as it is now

    size_t count(Kind kind) const { return received[static_cast<size_t>(kind)]; }
    std::vector<Clock::time_point> times(Kind kind) const;
    std::vector<Bytes> of(Kind kind) const;
    // Clear IPMI messages of the session packets received.
    std::vector<Bytes> messages() const;
    bool logged(const std::string &text) const;  // some event contains text
};

// ------------------------------------------------------------------ simulator

class Simulator {
public:
    explicit Simulator(Config config);
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    // Binds the UDP socket and serves on a background thread; throws
    // std::runtime_error naming the address if the socket cannot be bound.
    void start();
    void stop();
    bool running() const;

    // Replace the behaviour while running (address and port stay). Request
    // counters used by Reply::ignore_first and faulty_answers restart.
    void update(Config config);
    void modify(const std::function<void(Config &)> &change);
    Config config() const;

    Stats stats() const;
    void clear_stats();
    // Waits until `count` datagrams of `kind` have been received.
    bool wait_for(Kind kind, size_t count, std::chrono::milliseconds timeout) const;

    // Called with every log line (from the server thread).
    void on_log(std::function<void(const std::string &)> sink);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// ------------------------------------------------------------------ program

// Runs the rmcpp-bmcsim program as a child process. The constructor returns
// once the program has said it is listening (or throws); the destructor
// stops it with SIGTERM (SIGKILL if it does not end within two seconds).
// The program also gets SIGTERM when the thread that started it ends.
class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> arguments,
                          std::chrono::milliseconds ready_timeout = std::chrono::seconds(5),
                          std::string program = default_program());
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    pid_t pid() const { return pid_; }
    // Sends SIGTERM and waits; returns the exit status as waitpid gives it.
    int stop();
    // Lines the program has printed so far.
    std::vector<std::string> output() const;
    bool wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const;

    static std::string default_program();

private:
    struct Reader;
    pid_t pid_ = -1;
    int status_ = -1;
    std::unique_ptr<Reader> reader_;
};

}  // namespace bmcsim
