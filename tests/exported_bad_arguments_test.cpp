// Every exported function called with arguments no caller may give: null
// pointers (one at a time, the others valid), negative and huge lengths,
// out-of-range algorithm numbers, directions and round counts, and session
// records that never held a session. Each row names the exact result and,
// where the function has outputs, checks that the outputs it had no right
// to write still hold their fill pattern.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "rmcpp.h"
#include "trace_capture.h"

namespace {

constexpr uint8_t kFill = 0xA5;

// An output filled with a pattern the function cannot mean to write.
template <typename T>
struct Out {
    T v;
    Out() { std::memset(static_cast<void *>(&v), kFill, sizeof v); }
    T *p() { return &v; }
    bool intact() const
    {
        const auto *b = reinterpret_cast<const uint8_t *>(&v);
        for (size_t i = 0; i < sizeof v; ++i)
            if (b[i] != kFill) return false;
        return true;
    }
};

using Buffer = Out<uint8_t[512]>;

struct Outcome {
    int code;
    bool untouched;
};

struct Probe {
    const char *function;
    const char *probe;
    std::function<Outcome()> call;
    int expected;
    const char *message;  // the line logged with the result, or null
};

// ------------------------------------------------------------ valid arguments

const IPMI_MsgHeader kHeader = {6, 0x81, 0x01, 0, 1, 7, 0x20, 0};
const uint8_t kData[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
const uint8_t kKey[20] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19,
                          0x1a, 0x1b, 0x1c, 0x1d, 0x1e, 0x1f, 0x20, 0x21, 0x22, 0x23};
const char kKeyText[] = "000102030405060708090a0b0c0d0e0f";

// A 7-byte Get Device ID request and a matching 8-byte response.
struct Messages {
    uint8_t request[7];
    uint8_t response[8];
    Messages()
    {
        int n = 0;
        MakeIPMIRequest(&kHeader, nullptr, 0, request, sizeof request, &n);
        const uint8_t cc = 0;
        MakeIPMIResponse(&kHeader, &cc, 1, response, sizeof response, &n);
    }
};

IPMI_SessionParam setup_param()
{
    IPMI_SessionParam p{};
    p.bmc_address = 0x7F000001;
    p.privilege_level = 4;
    p.cipher_suite_id = 3;
    p.slave_address = 0x20;
    p.retry_count = 1;
    p.timeout_sec = 1;
    p.session = reinterpret_cast<RMCPp_Session *>(static_cast<uintptr_t>(0xA5A5A5A0u));
    return p;
}

// A session as the library leaves it after establishment, on no socket:
// every probe that uses it is refused before anything is sent.
RMCPp_Session opened_session()
{
    RMCPp_Session s{};
    s.integrity_alg = 1;
    s.confidentiality_alg = 1;
    s.console_session_id = 0x12345678;
    s.bmc_session_id = 0x9ABCDEF0;
    s.send_seq_auth = 1;
    s.send_seq_unauth = 1;
    s.recv_window_auth = 0xFFFF;
    s.recv_window_unauth = 0xFFFF;
    s.socket_fd = -1;
    return s;
}

RMCPp_SetupState setup_state()
{
    RMCPp_SetupState s{};
    std::memcpy(s.user_name, "user", 4);
    s.user_name_length = 4;
    std::memcpy(s.user_password, "password", 8);
    s.user_key_length = 20;
    s.req_auth_alg = 1;
    s.auth_alg = 1;
    s.console_session_id = 0x12345678;
    s.bmc_session_id = 0x9ABCDEF0;
    s.socket_fd = -1;
    s.retry_count = 1;
    s.timeout_sec = 1;
    return s;
}

KeyRecord made_key(uint8_t direction)
{
    KeyRecord k;
    std::memset(&k, 0, sizeof k);
    makeKey(&k, direction, 128, kKeyText);
    return k;
}

CipherRecord cipher(uint8_t mode)
{
    CipherRecord c;
    cipherInit(&c, mode, nullptr);
    return c;
}

bool all_zero(const RMCPp_Session &s)
{
    const RMCPp_Session zero{};
    return std::memcmp(&s, &zero, sizeof s) == 0;
}

// The library's own default, not the capturing sink this program defines.
template <typename F>
F library_default(const char *name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

bool empty_file(FILE *f)
{
    std::fflush(f);
    return std::ftell(f) == 0;
}

std::string temp_path(const char *name) { return std::string(::testing::TempDir()) + "rmcpp_bad_args_" + name; }

bool absent(const std::string &path) { return !std::filesystem::exists(path); }

constexpr int kInvalid = RMCPP_ERR_INVALID;
const char *const kNull = "Null input data.\n";
const char *const kBadLength = "Invalid input data length.\n";
const char *const kBadTimes = "Invalid input value for Timer Check.\n";

// ------------------------------------------------------------ rows by subsystem

// The framing builders share their probes.
template <int (*F)(const IPMI_MsgHeader *, const uint8_t *, int, uint8_t *, int, int *)>
void framing_rows(std::vector<Probe> &rows, const char *name)
{
    auto row = [&](const char *probe, const IPMI_MsgHeader *h, const uint8_t *data, int data_length, bool output,
                   int output_size, bool length_out, int expected, const char *message) {
        rows.push_back({name, probe,
                        [=] {
                            Buffer out;
                            Out<int> n;
                            const int r = F(h, data, data_length, output ? *out.p() : nullptr, output_size,
                                            length_out ? n.p() : nullptr);
                            return Outcome{r, out.intact() && n.intact()};
                        },
                        expected, message});
    };
    row("header null", nullptr, kData, 4, true, 64, true, kInvalid, kNull);
    row("data null with a length", &kHeader, nullptr, 4, true, 64, true, kInvalid, kNull);
    row("output null", &kHeader, kData, 4, false, 64, true, kInvalid, kNull);
    row("output length null", &kHeader, kData, 4, true, 64, false, kInvalid, kNull);
    row("data length -1", &kHeader, kData, -1, true, 64, true, kInvalid, kBadLength);
    row("data length INT_MIN", &kHeader, kData, INT_MIN, true, 64, true, kInvalid, kBadLength);
    row("data length INT_MAX", &kHeader, kData, INT_MAX, true, 64, true, RMCPP_ERR_BUFFER,
        "Insufficient buffer size.\n");
    row("output size -1", &kHeader, kData, 4, true, -1, true, RMCPP_ERR_BUFFER, "Insufficient buffer size.\n");
    row("output size INT_MIN", &kHeader, kData, 4, true, INT_MIN, true, RMCPP_ERR_BUFFER,
        "Insufficient buffer size.\n");
    // No data needs no data pointer.
    rows.push_back({name, "data null without data",
                    [] {
                        uint8_t out[7];
                        int n = 0;
                        const int r = F(&kHeader, nullptr, 0, out, sizeof out, &n);
                        return Outcome{r, n == 7};
                    },
                    0, nullptr});
}

void framing_checker_rows(std::vector<Probe> &rows)
{
    const Messages m;
    auto resp = [m](const char *probe, bool request, int request_length, bool response, int response_length,
                    bool offset, bool length, int expected, const char *message) {
        return Probe{"CheckIPMIRespHead", probe,
                     [=] {
                         Out<int> o, l;
                         const int r = CheckIPMIRespHead(request ? m.request : nullptr, request_length,
                                                         response ? m.response : nullptr, response_length,
                                                         offset ? o.p() : nullptr, length ? l.p() : nullptr);
                         return Outcome{r, o.intact() && l.intact()};
                     },
                     expected, message};
    };
    rows.push_back(resp("request null", false, 7, true, 8, true, true, kInvalid, kNull));
    rows.push_back(resp("response null", true, 7, false, 8, true, true, kInvalid, kNull));
    rows.push_back(resp("data offset null", true, 7, true, 8, false, true, kInvalid, kNull));
    rows.push_back(resp("data length null", true, 7, true, 8, true, false, kInvalid, kNull));
    rows.push_back(resp("request length -1", true, -1, true, 8, true, true, RMCPP_ERR_DATA_LENGTH,
                        "Invalid IPMI Request Data Length.\n"));
    rows.push_back(resp("request length INT_MIN", true, INT_MIN, true, 8, true, true, RMCPP_ERR_DATA_LENGTH,
                        "Invalid IPMI Request Data Length.\n"));
    rows.push_back(resp("response length INT_MIN", true, 7, true, INT_MIN, true, true, RMCPP_ERR_DATA_LENGTH,
                        "Invalid IPMI Response Data Length.\n"));

    auto req = [m](const char *probe, bool message, int length, bool offset, bool data_length, int expected,
                   const char *text) {
        return Probe{"CheckIPMIReqHead", probe,
                     [=] {
                         Out<int> o, l;
                         const int r = CheckIPMIReqHead(message ? m.request : nullptr, length,
                                                        offset ? o.p() : nullptr, data_length ? l.p() : nullptr);
                         return Outcome{r, o.intact() && l.intact()};
                     },
                     expected, text};
    };
    rows.push_back(req("message null", false, 7, true, true, kInvalid, kNull));
    rows.push_back(req("data offset null", true, 7, false, true, kInvalid, kNull));
    rows.push_back(req("data length null", true, 7, true, false, kInvalid, kNull));
    rows.push_back(req("length -1", true, -1, true, true, 1, "Received Unexpected Packet.(P_L length)\n"));
    rows.push_back(req("length INT_MIN", true, INT_MIN, true, true, 1, "Received Unexpected Packet.(P_L length)\n"));

    auto mess = [m](const char *probe, bool message, bool header, bool cc, bool length) {
        return Probe{"Check_IPMIMessHead", probe,
                     [=] {
                         Out<uint8_t> c;
                         Out<uint32_t> l;
                         const int r = Check_IPMIMessHead(message ? m.response : nullptr, 8,
                                                          header ? &kHeader : nullptr, cc ? c.p() : nullptr,
                                                          length ? l.p() : nullptr);
                         return Outcome{r, c.intact() && l.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(mess("message null", false, true, true, true));
    rows.push_back(mess("header null", true, false, true, true));
    rows.push_back(mess("completion code null", true, true, false, true));
    rows.push_back(mess("data length null", true, true, true, false));
}

// Get Channel Cipher Suites: every refusal comes before any socket is
// opened, and leaves the whole output record (its size aside) untouched.
void cipher_suites_rows(std::vector<Probe> &rows)
{
    using Suites = Out<RMCPP_ChannelCipherSuites>;
    auto intact_but_size = [](const Suites &s) {
        const auto *b = reinterpret_cast<const uint8_t *>(&s.v);
        for (size_t i = sizeof s.v.size; i < sizeof s.v; ++i)
            if (b[i] != kFill) return false;
        return true;
    };
    auto probe = [intact_but_size](const char *name, uint8_t channel, uint32_t size, bool param, bool out,
                                   void (*spoil)(IPMI_SessionParam &, RMCPP_SessionOptions &), int expected,
                                   const char *message) {
        return Probe{"rmcpp_get_channel_cipher_suites", name,
                     [=] {
                         IPMI_SessionParam p = setup_param();
                         RMCPP_SessionOptions o = {sizeof o, 0, nullptr, 0, 0, 0};
                         if (spoil != nullptr) spoil(p, o);
                         Suites s;
                         s.v.size = size;
                         const int r = rmcpp_get_channel_cipher_suites(param ? &p : nullptr, &o, channel,
                                                                       out ? &s.v : nullptr);
                         return Outcome{r, intact_but_size(s)};
                     },
                     expected, message};
    };
    constexpr uint32_t kSize = sizeof(RMCPP_ChannelCipherSuites);
    rows.push_back(probe("param null", 0x0E, kSize, false, true, nullptr, kInvalid, kNull));
    rows.push_back(probe("out null", 0x0E, kSize, true, false, nullptr, kInvalid, kNull));
    rows.push_back(probe("channel 16", 0x10, kSize, true, true, nullptr, kInvalid, "Invalid channel number.\n"));
    rows.push_back(probe("channel 255", 0xFF, kSize, true, true, nullptr, kInvalid, "Invalid channel number.\n"));
    rows.push_back(probe("out size 0", 0x0E, 0, true, true, nullptr, RMCPP_ERR_BUFFER, "Insufficient buffer size.\n"));
    rows.push_back(probe("out size 7", 0x0E, 7, true, true, nullptr, RMCPP_ERR_BUFFER, "Insufficient buffer size.\n"));
    rows.push_back(probe("port option 2", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.port_option = 2; }, kInvalid,
                         "Invalid port option.\n"));
    rows.push_back(probe("odd slave address", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.slave_address = 0x21; }, kInvalid,
                         "Invalid Slave Address connected to.\n"));
    rows.push_back(probe("LUN 4", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.lun = 4; }, kInvalid,
                         "Invalid LUN connected to.\n"));
    rows.push_back(probe("retry count 0", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.retry_count = 0; }, kInvalid,
                         "Invalid retry number = 0.\n"));
    rows.push_back(probe("timeout 0", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.timeout_sec = 0; }, kInvalid,
                         "Invalid timeout = 0.\n"));
    rows.push_back(probe("options size 2", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.size = 2; }, kInvalid,
                         "Invalid size of session options.\n"));
    rows.push_back(probe("unknown flag", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.flags = 0x80000000u; }, kInvalid,
                         "Unknown flag in session options.\n"));
    rows.push_back(probe("empty host", 0x0E, kSize, true, true,
                         [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.host = ""; }, kInvalid,
                         "Empty host name.\n"));
}

void setup_rows(std::vector<Probe> &rows)
{
    rows.push_back({"IPMI_SetupSession", "param null", [] { return Outcome{IPMI_SetupSession(nullptr), true}; },
                    kInvalid, kNull});
    auto field = [](const char *probe, void (*spoil)(IPMI_SessionParam &), const char *message) {
        return Probe{"IPMI_SetupSession", probe,
                     [spoil] {
                         IPMI_SessionParam p = setup_param();
                         RMCPp_Session *const before = p.session;
                         spoil(p);
                         const int r = IPMI_SetupSession(&p);
                         return Outcome{r, p.session == before};
                     },
                     kInvalid, message};
    };
    rows.push_back(field("port option -1", [](IPMI_SessionParam &p) { p.port_option = -1; },
                         "Invalid port option.\n"));
    rows.push_back(field("port option INT_MAX", [](IPMI_SessionParam &p) { p.port_option = INT_MAX; },
                         "Invalid port option.\n"));
    rows.push_back(field("privilege INT_MIN", [](IPMI_SessionParam &p) { p.privilege_level = INT_MIN; },
                         "Invalid request privilege level.\n"));
    rows.push_back(field("privilege INT_MAX", [](IPMI_SessionParam &p) { p.privilege_level = INT_MAX; },
                         "Invalid request privilege level.\n"));
    rows.push_back(field("cipher suite -1", [](IPMI_SessionParam &p) { p.cipher_suite_id = -1; },
                         "Invalid Chiper Suite ID.\n"));
    rows.push_back(field("cipher suite INT_MAX", [](IPMI_SessionParam &p) { p.cipher_suite_id = INT_MAX; },
                         "Invalid Chiper Suite ID.\n"));
    rows.push_back(field("look-up option INT_MIN", [](IPMI_SessionParam &p) { p.user_lookup_option = INT_MIN; },
                         "Invalid user look-up option.\n"));
    rows.push_back(field("two-key option -1", [](IPMI_SessionParam &p) { p.two_key_login_option = -1; },
                         "Invalid two_key_login_option.\n"));
    rows.push_back(field("server key null with two-key login",
                         [](IPMI_SessionParam &p) {
                             p.two_key_login_option = 1;
                             p.server_key = nullptr;
                         },
                         "Input server key.\n"));

    rows.push_back({"rmcpp_setup_session", "param null",
                    [] { return Outcome{rmcpp_setup_session(nullptr, nullptr), true}; }, kInvalid, kNull});
    auto with_options = [](const char *probe, void (*spoil)(IPMI_SessionParam &, RMCPP_SessionOptions &),
                           const char *message) {
        return Probe{"rmcpp_setup_session", probe,
                     [spoil] {
                         IPMI_SessionParam p = setup_param();
                         RMCPp_Session *const before = p.session;
                         RMCPP_SessionOptions o = {sizeof o, 0, nullptr, 0, 0, 0};
                         spoil(p, o);
                         const int r = rmcpp_setup_session(&p, &o);
                         return Outcome{r, p.session == before};
                     },
                     kInvalid, message};
    };
    rows.push_back(with_options("cipher suite 4", [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.cipher_suite_id = 4; },
                                "Invalid Chiper Suite ID.\n"));
    rows.push_back(with_options("cipher suite 18", [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.cipher_suite_id = 18; },
                                "Invalid Chiper Suite ID.\n"));
    rows.push_back(with_options("port option -1", [](IPMI_SessionParam &p, RMCPP_SessionOptions &) { p.port_option = -1; },
                                "Invalid port option.\n"));
    rows.push_back(with_options("options size 2", [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.size = 2; },
                                "Invalid size of session options.\n"));
    rows.push_back(with_options("unknown flag", [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.flags = 0x80000000u; },
                                "Unknown flag in session options.\n"));
    rows.push_back(with_options("key mode 3", [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.key_mode = 3; },
                                "Invalid key mode in session options.\n"));
    rows.push_back(with_options("random source 255",
                                [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.random_source = 255; },
                                "Invalid random source in session options.\n"));
    rows.push_back(with_options("empty host", [](IPMI_SessionParam &, RMCPP_SessionOptions &o) { o.host = ""; },
                                "Empty host name.\n"));

    cipher_suites_rows(rows);

    // Only the low 8 bits of the value are kept.
    rows.push_back({"IPMI_SetupConnectSA", "value UINT_MAX",
                    [] {
                        const uint8_t before = RMCPConnectSA;
                        IPMI_SetupConnectSA(UINT_MAX);
                        const uint8_t stored = RMCPConnectSA;
                        RMCPConnectSA = before;
                        return Outcome{stored, true};
                    },
                    0xFF, nullptr});
    rows.push_back({"IPMI_SetupStandardKeys", "value UINT_MAX",
                    [] {
                        const uint8_t before = RMCPStandardKeys;
                        IPMI_SetupStandardKeys(UINT_MAX);
                        const uint8_t stored = RMCPStandardKeys;
                        RMCPStandardKeys = before;
                        return Outcome{stored, true};
                    },
                    0xFF, nullptr});
}

// What every session call is given besides the bad argument.
enum Session { kNoParam, kNoSession, kZeroedSession, kOpened };

struct Caller {
    IPMI_SessionParam param{};
    RMCPp_Session session{};
    explicit Caller(Session kind)
    {
        param.slave_address = 0x20;
        if (kind == kZeroedSession) param.session = &session;
        if (kind == kOpened) {
            session = opened_session();
            param.session = &session;
        }
    }
    // The record still holds the session it was given, unchanged.
    bool kept(Session kind) const
    {
        if (kind == kZeroedSession) return param.session == &session && all_zero(session);
        if (kind == kNoSession) return param.session == nullptr;
        return true;
    }
};

const char *session_probe(Session kind)
{
    switch (kind) {
    case kNoParam: return "param null";
    case kNoSession: return "no session";
    case kZeroedSession: return "session never opened";
    default: return "";
    }
}

void exchange_rows(std::vector<Probe> &rows)
{
    const Messages m;
    // Send_IPMI_Message: the released word is cleared before anything else.
    for (Session kind : {kNoParam, kNoSession, kZeroedSession}) {
        rows.push_back({"Send_IPMI_Message", session_probe(kind),
                        [m, kind] {
                            Caller c(kind);
                            Out<uint32_t> released;
                            const int r = Send_IPMI_Message(kind == kNoParam ? nullptr : &c.param, m.request, 7, 0,
                                                            released.p());
                            return Outcome{r, c.kept(kind) && released.v == 0};
                        },
                        kInvalid, kNull});
    }
    auto send = [m](const char *probe, bool request, uint32_t length, int auth, bool released, const char *text) {
        return Probe{"Send_IPMI_Message", probe,
                     [=] {
                         Caller c(kOpened);
                         const RMCPp_Session before = c.session;
                         Out<uint32_t> rel;
                         const int r = Send_IPMI_Message(&c.param, request ? m.request : nullptr, length, auth,
                                                         released ? rel.p() : nullptr);
                         return Outcome{r, std::memcmp(&before, &c.session, sizeof before) == 0};
                     },
                     kInvalid, text};
    };
    rows.push_back(send("request null", false, 7, 0, true, kNull));
    rows.push_back(send("released null", true, 7, 0, false, kNull));
    rows.push_back(send("request length 0", true, 0, 0, true, "Invalid Request Data Length.\n"));
    rows.push_back(send("auth option -1", true, 7, -1, true, "No specified auth_option.\n"));
    rows.push_back(send("auth option INT_MIN", true, 7, INT_MIN, true, "No specified auth_option.\n"));

    // Get_IPMI_Message(param, response, size, length, wait, flags, released)
    enum Arg { kResponse, kLength, kFlags, kReleased, kNone };
    auto get = [](const char *probe, Session kind, Arg missing) {
        return Probe{"Get_IPMI_Message", probe,
                     [=] {
                         Caller c(kind);
                         Buffer response;
                         Out<uint32_t> length, released;
                         Out<uint8_t> flags;
                         const int r = Get_IPMI_Message(kind == kNoParam ? nullptr : &c.param,
                                                        missing == kResponse ? nullptr : *response.p(), 64,
                                                        missing == kLength ? nullptr : length.p(), 0,
                                                        missing == kFlags ? nullptr : flags.p(),
                                                        missing == kReleased ? nullptr : released.p());
                         return Outcome{r, c.kept(kind) && response.intact() && length.intact() && flags.intact()};
                     },
                     kInvalid, kNull};
    };
    for (Session kind : {kNoParam, kNoSession, kZeroedSession}) rows.push_back(get(session_probe(kind), kind, kNone));
    rows.push_back(get("response null", kOpened, kResponse));
    rows.push_back(get("response length null", kOpened, kLength));
    rows.push_back(get("payload flags null", kOpened, kFlags));
    rows.push_back(get("released null", kOpened, kReleased));

    auto nowait = [](const char *probe, Session kind, Arg missing) {
        return Probe{"Get_IPMI_Message_Nowait", probe,
                     [=] {
                         Caller c(kind);
                         Buffer response;
                         Out<uint32_t> length, released;
                         const int r = Get_IPMI_Message_Nowait(kind == kNoParam ? nullptr : &c.param,
                                                               missing == kResponse ? nullptr : *response.p(), 64,
                                                               missing == kLength ? nullptr : length.p(),
                                                               missing == kReleased ? nullptr : released.p());
                         return Outcome{r, c.kept(kind) && response.intact() && length.intact()};
                     },
                     kInvalid, kNull};
    };
    for (Session kind : {kNoParam, kNoSession, kZeroedSession})
        rows.push_back(nowait(session_probe(kind), kind, kNone));
    rows.push_back(nowait("response null", kOpened, kResponse));
    rows.push_back(nowait("response length null", kOpened, kLength));
    rows.push_back(nowait("released null", kOpened, kReleased));

    // IPMI_Message_IF and IPMI_Message_IF_core take the same arguments.
    enum IfArg { kIfRequest, kIfResponse, kIfLength, kIfReleased, kIfNone };
    using IfFn = int (*)(IPMI_SessionParam *, const uint8_t *, uint32_t, uint8_t *, uint32_t, uint32_t *, int,
                         uint32_t *, int, int);
    auto exchange = [m](const char *name, IfFn f, const char *probe, Session kind, IfArg missing) {
        return Probe{name, probe,
                     [=] {
                         Caller c(kind);
                         Buffer response;
                         Out<uint32_t> length, released;
                         const int r = f(kind == kNoParam ? nullptr : &c.param,
                                         missing == kIfRequest ? nullptr : m.request, 7,
                                         missing == kIfResponse ? nullptr : *response.p(), 64,
                                         missing == kIfLength ? nullptr : length.p(), 0,
                                         missing == kIfReleased ? nullptr : released.p(), 1, 1);
                         return Outcome{r, c.kept(kind) && response.intact() && length.intact() &&
                                               released.intact()};
                     },
                     kInvalid, kNull};
    };
    const IfFn core = [](IPMI_SessionParam *p, const uint8_t *rq, uint32_t rql, uint8_t *rs, uint32_t rss,
                         uint32_t *rsl, int auth, uint32_t *rel, int attempts, int wait) {
        return IPMI_Message_IF_core(p, rq, rql, rs, rss, rsl, auth, rel, static_cast<uint8_t>(attempts),
                                    static_cast<uint8_t>(wait));
    };
    for (auto [name, f] : {std::pair<const char *, IfFn>{"IPMI_Message_IF", &IPMI_Message_IF},
                           std::pair<const char *, IfFn>{"IPMI_Message_IF_core", core}}) {
        for (Session kind : {kNoParam, kNoSession, kZeroedSession})
            rows.push_back(exchange(name, f, session_probe(kind), kind, kIfNone));
        rows.push_back(exchange(name, f, "request null", kOpened, kIfRequest));
        rows.push_back(exchange(name, f, "response null", kOpened, kIfResponse));
        rows.push_back(exchange(name, f, "response length null", kOpened, kIfLength));
        rows.push_back(exchange(name, f, "released null", kOpened, kIfReleased));
    }

    // ipmi_recv(session, request, start, wait, response, size, length, flags)
    enum RecvArg { kRecvSession, kRecvZeroed, kRecvRequest, kRecvStart, kRecvResponse, kRecvLength };
    auto recv = [m](const char *probe, RecvArg bad) {
        return Probe{"ipmi_recv", probe,
                     [=] {
                         RMCPp_Session s = bad == kRecvZeroed ? RMCPp_Session{} : opened_session();
                         timeval start;
                         gettimeofday(&start, nullptr);
                         Buffer response;
                         Out<uint32_t> length;
                         const int r = ipmi_recv(bad == kRecvSession ? nullptr : &s,
                                                 bad == kRecvRequest ? nullptr : m.request,
                                                 bad == kRecvStart ? nullptr : &start, 0,
                                                 bad == kRecvResponse ? nullptr : *response.p(), 64,
                                                 bad == kRecvLength ? nullptr : length.p(), 0);
                         return Outcome{r, response.intact() && length.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(recv("session null", kRecvSession));
    rows.push_back(recv("session never opened", kRecvZeroed));
    rows.push_back(recv("request null", kRecvRequest));
    rows.push_back(recv("start null", kRecvStart));
    rows.push_back(recv("response null", kRecvResponse));
    rows.push_back(recv("response length null", kRecvLength));

    auto ipmb = [m](const char *probe, Session kind, IfArg missing, uint32_t request_length, const char *text) {
        return Probe{"Get_IPMB_Response", probe,
                     [=] {
                         Caller c(kind);
                         Buffer response;
                         Out<uint32_t> length, released;
                         const int r = Get_IPMB_Response(kind == kNoParam ? nullptr : &c.param,
                                                         missing == kIfRequest ? nullptr : m.request, request_length,
                                                         missing == kIfResponse ? nullptr : *response.p(), 64,
                                                         missing == kIfLength ? nullptr : length.p(),
                                                         missing == kIfReleased ? nullptr : released.p(), 0, 1);
                         return Outcome{r, c.kept(kind) && response.intact() && length.intact()};
                     },
                     kInvalid, text};
    };
    for (Session kind : {kNoParam, kNoSession, kZeroedSession})
        rows.push_back(ipmb(session_probe(kind), kind, kIfNone, 7, kNull));
    rows.push_back(ipmb("request null", kOpened, kIfRequest, 7, kNull));
    rows.push_back(ipmb("response null", kOpened, kIfResponse, 7, kNull));
    rows.push_back(ipmb("response length null", kOpened, kIfLength, 7, kNull));
    rows.push_back(ipmb("released null", kOpened, kIfReleased, 7, kNull));
    rows.push_back(ipmb("request length 5", kOpened, kIfNone, 5, "Header size is small.\n"));

    // A record that never held a session is neither closed nor freed.
    for (Session kind : {kNoParam, kNoSession, kZeroedSession}) {
        rows.push_back({"IPMI_CloseSession", session_probe(kind),
                        [kind] {
                            Caller c(kind);
                            const int r = IPMI_CloseSession(kind == kNoParam ? nullptr : &c.param);
                            return Outcome{r, c.kept(kind)};
                        },
                        kInvalid, kNull});
    }
}

void establishment_rows(std::vector<Probe> &rows)
{
    const Messages m;
    auto null_row = [&rows](const char *name, const char *probe, std::function<Outcome()> call) {
        rows.push_back({name, probe, std::move(call), kInvalid, kNull});
    };

    null_row("SetupSession", "state null", [] {
        Out<uint32_t> granted;
        return Outcome{SetupSession(nullptr, 623, 4, 0, 0, granted.p()), granted.intact()};
    });
    null_row("SetupSession", "granted null", [] {
        RMCPp_SetupState s = setup_state();
        return Outcome{SetupSession(&s, 623, 4, 0, 0, nullptr), s.socket_fd == -1};
    });

    // RetryRoutine_RAKP(state, request, len, response, size, response_len,
    //                   type, payload_offset, rakp_status, send_only, expected, tag)
    enum RetryArg { kState, kRequest, kResponse, kLength, kOffset, kExpected, kStatus };
    auto retry = [](const char *probe, RetryArg bad, uint8_t type) {
        return Probe{"RetryRoutine_RAKP", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         uint8_t request[48] = {};
                         Buffer response;
                         Out<uint32_t> length, offset;
                         Out<uint8_t> status;
                         const int r = RetryRoutine_RAKP(
                             bad == kState ? nullptr : &s, bad == kRequest ? nullptr : request, sizeof request,
                             bad == kResponse ? nullptr : *response.p(), 400, bad == kLength ? nullptr : length.p(),
                             type, bad == kOffset ? nullptr : offset.p(), bad == kStatus ? nullptr : status.p(), 0,
                             bad == kExpected ? nullptr : &kHeader, 1);
                         return Outcome{r, response.intact() && length.intact() && offset.intact() &&
                                               status.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(retry("state null", kState, 0x10));
    rows.push_back(retry("request null", kRequest, 0x10));
    rows.push_back(retry("response null", kResponse, 0x10));
    rows.push_back(retry("response length null", kLength, 0x10));
    rows.push_back(retry("payload offset null", kOffset, 0x10));
    rows.push_back(retry("expected header null for IPMI v1.5", kExpected, 0x00));
    rows.push_back(retry("RAKP status null for RAKP 2", kStatus, 0x12));
    rows.push_back(retry("RAKP status null for RAKP 4", kStatus, 0x14));

    null_row("GetAuthCapa_v15", "state null", [] {
        Out<uint8_t> flag;
        return Outcome{GetAuthCapa_v15(nullptr, flag.p(), 4), flag.intact()};
    });
    null_row("GetAuthCapa_v15", "not-supported flag null", [] {
        RMCPp_SetupState s = setup_state();
        return Outcome{GetAuthCapa_v15(&s, nullptr, 4), s.kg_status == 0};
    });

    auto builder = [&rows](const char *name, const char *probe, int expected, const char *message,
                           std::function<int(uint8_t *, uint32_t, uint32_t *)> build, bool buffer, uint32_t size,
                           bool length_out) {
        rows.push_back({name, probe,
                        [=] {
                            Buffer b;
                            Out<uint32_t> n;
                            const int r = build(buffer ? *b.p() : nullptr, size, length_out ? n.p() : nullptr);
                            return Outcome{r, b.intact() && n.intact()};
                        },
                        expected, message});
    };
    auto capa = [](const IPMI_MsgHeader *h) {
        return [h](uint8_t *b, uint32_t size, uint32_t *n) {
            RMCPp_SetupState s = setup_state();
            return Make_GetAuthCapa_v15(&s, h, 4, b, size, n);
        };
    };
    builder("Make_GetAuthCapa_v15", "record null", kInvalid, kNull, capa(nullptr), true, 400, true);
    builder("Make_GetAuthCapa_v15", "buffer null", kInvalid, kNull, capa(&kHeader), false, 400, true);
    builder("Make_GetAuthCapa_v15", "length out null", kInvalid, kNull, capa(&kHeader), true, 400, false);
    builder("Make_GetAuthCapa_v15", "buffer size 22", 3, "Insufficient Data Size.\n", capa(&kHeader), true, 22,
            true);

    auto open_request = [](bool state) {
        return [state](uint8_t *b, uint32_t size, uint32_t *n) {
            RMCPp_SetupState s = setup_state();
            return Make_OpenSessRequest(state ? &s : nullptr, 4, 1, b, size, n);
        };
    };
    builder("Make_OpenSessRequest", "state null", kInvalid, kNull, open_request(false), true, 400, true);
    builder("Make_OpenSessRequest", "buffer null", kInvalid, kNull, open_request(true), false, 400, true);
    builder("Make_OpenSessRequest", "length out null", kInvalid, kNull, open_request(true), true, 400, false);
    builder("Make_OpenSessRequest", "buffer size 47", 3, "Insufficient Data Size.\n", open_request(true), true, 47,
            true);

    const uint8_t rm[16] = {1};
    auto rakp1 = [rm](bool state, bool have_rm, uint8_t name_length) {
        return [=](uint8_t *b, uint32_t size, uint32_t *n) {
            RMCPp_SetupState s = setup_state();
            s.user_name_length = name_length;
            return Make_RAKPMessage1(state ? &s : nullptr, have_rm ? rm : nullptr, 4, 2, b, size, n);
        };
    };
    builder("Make_RAKPMessage1", "state null", kInvalid, kNull, rakp1(false, true, 4), true, 400, true);
    builder("Make_RAKPMessage1", "Rm null", kInvalid, kNull, rakp1(true, false, 4), true, 400, true);
    builder("Make_RAKPMessage1", "buffer null", kInvalid, kNull, rakp1(true, true, 4), false, 400, true);
    builder("Make_RAKPMessage1", "length out null", kInvalid, kNull, rakp1(true, true, 4), true, 400, false);
    builder("Make_RAKPMessage1", "user name length 255", kInvalid, kBadLength, rakp1(true, true, 255), true, 400,
            true);

    auto rakp3 = [rm](bool state, bool have_rc) {
        return [=](uint8_t *b, uint32_t size, uint32_t *n) {
            RMCPp_SetupState s = setup_state();
            return Make_RAKPMessage3(state ? &s : nullptr, 3, 0, have_rc ? rm : nullptr, 4, b, size, n);
        };
    };
    builder("Make_RAKPMessage3", "state null", kInvalid, kNull, rakp3(false, true), true, 400, true);
    builder("Make_RAKPMessage3", "Rc null", kInvalid, kNull, rakp3(true, false), true, 400, true);
    builder("Make_RAKPMessage3", "buffer null", kInvalid, kNull, rakp3(true, true), false, 400, true);
    builder("Make_RAKPMessage3", "length out null", kInvalid, kNull, rakp3(true, true), true, 400, false);

    // Checkers of received establishment datagrams.
    const uint8_t datagram[64] = {};
    enum CheckArg { kCState, kCData, kCLength, kCExpected, kCUsed, kCStatus };
    auto v15 = [datagram](const char *probe, CheckArg bad) {
        return Probe{"Check_IPMIv15_NonAuth", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         Out<uint32_t> used;
                         uint32_t length = 30;
                         const int r = Check_IPMIv15_NonAuth(&s, bad == kCData ? nullptr : datagram,
                                                             bad == kCLength ? nullptr : &length,
                                                             bad == kCExpected ? nullptr : &kHeader,
                                                             bad == kCUsed ? nullptr : used.p());
                         return Outcome{r, used.intact() && length == 30};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(v15("data null", kCData));
    rows.push_back(v15("length null", kCLength));
    rows.push_back(v15("expected header null", kCExpected));
    rows.push_back(v15("used null", kCUsed));

    for (int missing = 0; missing < 5; ++missing) {
        static const char *const probes[] = {"data null", "not-supported flag null", "Kg status null",
                                             "per-message status null", "user-level status null"};
        rows.push_back({"Check_GetAuthCapa_v15", probes[missing],
                        [missing] {
                            const uint8_t data[9] = {0, 1, 0x80, 0x38, 0x02};
                            Out<uint8_t> o[4];
                            uint8_t *p[4];
                            for (int i = 0; i < 4; ++i) p[i] = missing == i + 1 ? nullptr : o[i].p();
                            const int r =
                                Check_GetAuthCapa_v15(missing == 0 ? nullptr : data, 9, p[0], p[1], p[2], p[3]);
                            return Outcome{r, o[0].intact() && o[1].intact() && o[2].intact() && o[3].intact()};
                        },
                        kInvalid, kNull});
    }

    null_row("OpenSession_Req_Resp", "state null", [] {
        Out<uint8_t> granted, status;
        return Outcome{OpenSession_Req_Resp(nullptr, 4, granted.p(), 1, status.p()), granted.intact()};
    });
    null_row("OpenSession_Req_Resp", "granted null", [] {
        RMCPp_SetupState s = setup_state();
        Out<uint8_t> status;
        return Outcome{OpenSession_Req_Resp(&s, 4, nullptr, 1, status.p()), status.intact()};
    });

    auto open_check = [datagram](const char *probe, CheckArg bad) {
        return Probe{"Check_OpenSessResponse", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         Out<uint32_t> used;
                         const int r = Check_OpenSessResponse(bad == kCState ? nullptr : &s,
                                                              bad == kCData ? nullptr : datagram, 48, 1,
                                                              bad == kCUsed ? nullptr : used.p());
                         return Outcome{r, used.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(open_check("state null", kCState));
    rows.push_back(open_check("data null", kCData));
    rows.push_back(open_check("used null", kCUsed));

    for (int missing = 0; missing < 3; ++missing) {
        static const char *const probes[] = {"data null", "header length null", "payload length null"};
        rows.push_back({"Check_IPMISessHead_RAKP", probes[missing],
                        [missing, datagram] {
                            Out<uint32_t> header;
                            Out<uint16_t> payload;
                            const int r = Check_IPMISessHead_RAKP(missing == 0 ? nullptr : datagram, 48,
                                                                  missing == 1 ? nullptr : header.p(), 0x11,
                                                                  missing == 2 ? nullptr : payload.p());
                            return Outcome{r, header.intact() && payload.intact()};
                        },
                        kInvalid, kNull});
    }

    using RakpCheck = int (*)(RMCPp_SetupState *, const uint8_t *, uint32_t, uint8_t, uint32_t *, uint8_t *);
    for (auto [name, f] : {std::pair<const char *, RakpCheck>{"Check_RAKPMessage2", &Check_RAKPMessage2},
                           std::pair<const char *, RakpCheck>{"Check_RAKPMessage4", &Check_RAKPMessage4}}) {
        auto check = [datagram, f](const char *fn, const char *probe, CheckArg bad) {
            return Probe{fn, probe,
                         [=] {
                             RMCPp_SetupState s = setup_state();
                             Out<uint32_t> used;
                             Out<uint8_t> status;
                             const int r = f(bad == kCState ? nullptr : &s, bad == kCData ? nullptr : datagram, 48,
                                             2, bad == kCUsed ? nullptr : used.p(),
                                             bad == kCStatus ? nullptr : status.p());
                             return Outcome{r, used.intact() && status.intact()};
                         },
                         kInvalid, kNull};
        };
        rows.push_back(check(name, "state null", kCState));
        rows.push_back(check(name, "data null", kCData));
        rows.push_back(check(name, "used null", kCUsed));
        rows.push_back(check(name, "RAKP status null", kCStatus));
    }

    // Phase drivers and key exchange codes.
    enum KArg { kKState, kKRm, kKRc, kKCode, kKOut, kKNone };
    auto rakp12 = [rm](const char *probe, KArg bad) {
        return Probe{"RAKPMessage1_2", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         Out<uint8_t[16]> rc;
                         Out<uint8_t> status;
                         const int r = RAKPMessage1_2(bad == kKState ? nullptr : &s, bad == kKRm ? nullptr : rm, 4,
                                                      2, bad == kKRc ? nullptr : *rc.p(),
                                                      bad == kKOut ? nullptr : status.p());
                         return Outcome{r, rc.intact() && status.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(rakp12("state null", kKState));
    rows.push_back(rakp12("Rm null", kKRm));
    rows.push_back(rakp12("Rc null", kKRc));
    rows.push_back(rakp12("RAKP status null", kKOut));

    auto rakp34 = [rm](const char *probe, KArg bad) {
        return Probe{"RAKPMessage3_4", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         uint8_t status = 0;
                         const int r = RAKPMessage3_4(bad == kKState ? nullptr : &s, bad == kKRm ? nullptr : rm, 4,
                                                      3, bad == kKRc ? nullptr : rm,
                                                      bad == kKOut ? nullptr : &status, 0);
                         return Outcome{r, status == 0};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(rakp34("state null", kKState));
    rows.push_back(rakp34("Rm null", kKRm));
    rows.push_back(rakp34("Rc null", kKRc));
    rows.push_back(rakp34("RAKP status null", kKOut));

    auto kx2 = [rm](const char *probe, KArg bad, uint8_t key_length, const char *message) {
        return Probe{"CheckKeyExchange2", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         s.user_key_length = key_length;
                         const uint8_t code[20] = {};
                         Out<uint8_t> mismatch;
                         const int r = CheckKeyExchange2(bad == kKState ? nullptr : &s, 4, bad == kKRm ? nullptr : rm,
                                                         bad == kKRc ? nullptr : rm, bad == kKCode ? nullptr : code,
                                                         bad == kKOut ? nullptr : mismatch.p());
                         return Outcome{r, mismatch.intact()};
                     },
                     kInvalid, message};
    };
    rows.push_back(kx2("state null", kKState, 20, kNull));
    rows.push_back(kx2("Rm null", kKRm, 20, kNull));
    rows.push_back(kx2("Rc null", kKRc, 20, kNull));
    rows.push_back(kx2("received code null", kKCode, 20, kNull));
    rows.push_back(kx2("mismatch null", kKOut, 20, kNull));
    rows.push_back(kx2("user key length 255", kKNone, 255, kBadLength));

    auto kx3 = [rm](const char *probe, KArg bad, uint8_t key_length, const char *message) {
        return Probe{"MakeKeyExchange3", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         s.user_key_length = key_length;
                         Out<uint8_t[20]> out;
                         const int r = MakeKeyExchange3(bad == kKState ? nullptr : &s, bad == kKRc ? nullptr : rm, 4,
                                                        bad == kKOut ? nullptr : *out.p());
                         return Outcome{r, out.intact()};
                     },
                     kInvalid, message};
    };
    rows.push_back(kx3("state null", kKState, 20, kNull));
    rows.push_back(kx3("Rc null", kKRc, 20, kNull));
    rows.push_back(kx3("out null", kKOut, 20, kNull));
    rows.push_back(kx3("user key length 255", kKNone, 255, kBadLength));

    auto kx4 = [rm](const char *probe, KArg bad) {
        return Probe{"CheckKeyExchange4", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         const uint8_t value[12] = {};
                         Out<uint8_t> mismatch;
                         const int r =
                             CheckKeyExchange4(bad == kKState ? nullptr : &s, bad == kKRm ? nullptr : rm,
                                               bad == kKCode ? nullptr : value, bad == kKOut ? nullptr : mismatch.p());
                         return Outcome{r, mismatch.intact()};
                     },
                     kInvalid, kNull};
    };
    rows.push_back(kx4("state null", kKState));
    rows.push_back(kx4("Rm null", kKRm));
    rows.push_back(kx4("received value null", kKCode));
    rows.push_back(kx4("mismatch null", kKOut));

    null_row("MakeRandomNumber", "out null", [] { return Outcome{MakeRandomNumber(nullptr), true}; });

    auto sik = [rm](const char *probe, KArg bad, uint8_t bmc_key_length, const char *message) {
        return Probe{"MakeSIK", probe,
                     [=] {
                         RMCPp_SetupState s = setup_state();
                         s.kg_status = 0x20;
                         s.bmc_key_length = bmc_key_length;
                         std::memset(s.sik, kFill, sizeof s.sik);
                         const int r = MakeSIK(bad == kKState ? nullptr : &s, 4, bad == kKRm ? nullptr : rm,
                                               bad == kKRc ? nullptr : rm);
                         bool intact = true;
                         for (uint8_t b : s.sik) intact = intact && b == kFill;
                         return Outcome{r, intact};
                     },
                     kInvalid, message};
    };
    rows.push_back(sik("state null", kKState, 20, kNull));
    rows.push_back(sik("Rm null", kKRm, 20, kNull));
    rows.push_back(sik("Rc null", kKRc, 20, kNull));
    rows.push_back(sik("server key length 255", kKNone, 255, kBadLength));

    null_row("MakeConfidentialityKey", "state null", [] { return Outcome{MakeConfidentialityKey(nullptr), true}; });
}

void packet_rows(std::vector<Probe> &rows)
{
    const uint8_t rmcp[4] = {0x06, 0x00, 0xFF, 0x07};
    for (int missing = 0; missing < 3; ++missing) {
        static const char *const probes[] = {"packet null", "length null", "header length null"};
        rows.push_back({"Check_RMCPHead", probes[missing],
                        [missing, rmcp] {
                            Out<uint32_t> header;
                            uint32_t length = 4;
                            const int r = Check_RMCPHead(missing == 0 ? nullptr : rmcp,
                                                         missing == 1 ? nullptr : &length,
                                                         missing == 2 ? nullptr : header.p());
                            return Outcome{r, header.intact() && length == 4};
                        },
                        kInvalid, kNull});
    }
    for (int missing = 0; missing < 3; ++missing) {
        static const char *const probes[] = {"buffer null", "available null", "written null"};
        rows.push_back({"MakeRMCPHeader", probes[missing],
                        [missing] {
                            Buffer b;
                            Out<uint32_t> written;
                            const uint32_t available = 64;
                            const int r = MakeRMCPHeader(missing == 0 ? nullptr : *b.p(),
                                                         missing == 1 ? nullptr : &available,
                                                         missing == 2 ? nullptr : written.p());
                            return Outcome{r, b.intact() && written.intact()};
                        },
                        kInvalid, kNull});
    }

    // CalculateAuthCode(algorithm, data, data_length, key, key_length, output, output_length)
    auto auth = [](const char *probe, uint8_t algorithm, bool data, bool key, bool output, bool length,
                   int expected, const char *message) {
        return Probe{"CalculateAuthCode", probe,
                     [=] {
                         Out<uint8_t[20]> out;
                         Out<uint32_t> n;
                         const int r = CalculateAuthCode(algorithm, data ? kData : nullptr, 8, key ? kKey : nullptr,
                                                         20, output ? *out.p() : nullptr, length ? n.p() : nullptr);
                         return Outcome{r, out.intact() && n.intact()};
                     },
                     expected, message};
    };
    rows.push_back(auth("output null", 1, true, true, false, true, kInvalid, kNull));
    rows.push_back(auth("data null with a length", 1, false, true, true, true, kInvalid, kNull));
    rows.push_back(auth("key null with a length", 1, true, false, true, true, kInvalid, kNull));
    rows.push_back(auth("output length null", 1, true, true, true, false, kInvalid, kNull));
    rows.push_back(auth("algorithm 2", 2, true, true, true, true, 1,
                        "Could not calculate Auth Code because of Not-supported-Auth-type.\n"));
    rows.push_back(auth("algorithm 255", 255, true, true, true, true, 1,
                        "Could not calculate Auth Code because of Not-supported-Auth-type.\n"));
    // Algorithm 0 reads neither data nor key and leaves the length alone.
    rows.push_back({"CalculateAuthCode", "algorithm 0 without data or key",
                    [] {
                        uint8_t out[20];
                        std::memset(out, kFill, sizeof out);
                        Out<uint32_t> n;
                        const int r = CalculateAuthCode(0, nullptr, 8, nullptr, 20, out, nullptr);
                        bool zero = true;
                        for (uint8_t b : out) zero = zero && b == 0;
                        return Outcome{r, zero && n.intact()};
                    },
                    0, nullptr});

    // MakeRMCP_pluse_Packet(session, data, data_length, buffer, buffer_size, packet_length)
    enum PArg { kPSession, kPData, kPBuffer, kPLength, kPNone };
    auto build = [](const char *probe, PArg bad, uint32_t size, const char *message) {
        return Probe{"MakeRMCP_pluse_Packet", probe,
                     [=] {
                         RMCPp_Session s = opened_session();
                         const RMCPp_Session before = s;
                         Buffer b;
                         Out<uint32_t> n;
                         const int r = MakeRMCP_pluse_Packet(bad == kPSession ? nullptr : &s,
                                                             bad == kPData ? nullptr : kData, 7,
                                                             bad == kPBuffer ? nullptr : *b.p(), size,
                                                             bad == kPLength ? nullptr : n.p());
                         return Outcome{r, b.intact() && n.intact() && std::memcmp(&s, &before, sizeof s) == 0};
                     },
                     kInvalid, message};
    };
    rows.push_back(build("session null", kPSession, 400, kNull));
    rows.push_back(build("data null with a length", kPData, 400, kNull));
    rows.push_back(build("buffer null", kPBuffer, 400, kNull));
    rows.push_back(build("packet length null", kPLength, 400, kNull));
    rows.push_back(build("buffer size 3", kPNone, 3, "Failed to Make RMCP Header.\n"));

    auto send = [](const char *probe, bool zeroed, bool session, bool data, uint32_t length, int expected,
                   const char *message) {
        return Probe{"RMCPp_Send_Message", probe,
                     [=] {
                         RMCPp_Session s = zeroed ? RMCPp_Session{} : opened_session();
                         const RMCPp_Session before = s;
                         const int r = RMCPp_Send_Message(session ? &s : nullptr, data ? kData : nullptr, length);
                         return Outcome{r, std::memcmp(&s, &before, sizeof s) == 0};
                     },
                     expected, message};
    };
    rows.push_back(send("session null", false, false, true, 7, kInvalid, kNull));
    rows.push_back(send("session never opened", true, true, true, 7, kInvalid, kNull));
    rows.push_back(send("data null with a length", false, true, false, 7, kInvalid, kNull));
    rows.push_back(send("data length UINT32_MAX", false, true, true, UINT32_MAX, RMCPP_ERR_RESOURCE,
                        "Request data size is over lmitation(65471).\n"));

    // RMCPp_Get_Message(session, output, length, size, start, timeout, flags)
    enum GArg { kGSession, kGZeroed, kGOutput, kGLength, kGStart, kGTimeout, kGFlags };
    auto get = [](const char *name, const char *probe, GArg bad) {
        return Probe{name, probe,
                     [=] {
                         RMCPp_Session s = bad == kGZeroed ? RMCPp_Session{} : opened_session();
                         Buffer out;
                         Out<uint32_t> length;
                         Out<uint8_t> flags;
                         timeval start;
                         gettimeofday(&start, nullptr);
                         const timeval timeout = {0, 0};
                         int r;
                         if (std::strcmp(name, "RMCPp_Get_Message") == 0)
                             r = RMCPp_Get_Message(bad == kGSession ? nullptr : &s,
                                                   bad == kGOutput ? nullptr : *out.p(),
                                                   bad == kGLength ? nullptr : length.p(), 64,
                                                   bad == kGStart ? nullptr : &start,
                                                   bad == kGTimeout ? nullptr : &timeout,
                                                   bad == kGFlags ? nullptr : flags.p());
                         else
                             r = RMCPp_Get_Message_Nowait(bad == kGSession ? nullptr : &s,
                                                          bad == kGOutput ? nullptr : *out.p(),
                                                          bad == kGLength ? nullptr : length.p(), 64,
                                                          bad == kGFlags ? nullptr : flags.p());
                         return Outcome{r, out.intact() && length.intact() && flags.intact()};
                     },
                     kInvalid, kNull};
    };
    for (const char *name : {"RMCPp_Get_Message", "RMCPp_Get_Message_Nowait"}) {
        rows.push_back(get(name, "session null", kGSession));
        rows.push_back(get(name, "session never opened", kGZeroed));
        rows.push_back(get(name, "output null", kGOutput));
        rows.push_back(get(name, "output length null", kGLength));
        rows.push_back(get(name, "security bits null", kGFlags));
    }
    rows.push_back(get("RMCPp_Get_Message", "start null", kGStart));
    rows.push_back(get("RMCPp_Get_Message", "timeout null", kGTimeout));

    for (int missing = 0; missing < 5; ++missing) {
        static const char *const probes[] = {"session null", "packet null", "length null", "header length null",
                                             "payload type null"};
        rows.push_back({"Check_IPMIHeadTail", probes[missing],
                        [missing] {
                            RMCPp_Session s = opened_session();
                            const RMCPp_Session before = s;
                            const uint8_t packet[32] = {0x06};
                            uint32_t length = sizeof packet;
                            Out<uint32_t> header;
                            Out<uint8_t> type;
                            const int r = Check_IPMIHeadTail(
                                missing == 0 ? nullptr : &s, missing == 1 ? nullptr : packet,
                                missing == 2 ? nullptr : &length, missing == 3 ? nullptr : header.p(),
                                missing == 4 ? nullptr : type.p());
                            return Outcome{r, header.intact() && type.intact() && length == sizeof packet &&
                                                  std::memcmp(&s, &before, sizeof s) == 0};
                        },
                        kInvalid, kNull});
    }
    for (int missing = 0; missing < 5; ++missing) {
        static const char *const probes[] = {"session null", "payload null", "output null", "output length null",
                                             "data offset null"};
        rows.push_back({"Check_IPMIPayload", probes[missing],
                        [missing] {
                            RMCPp_Session s = opened_session();
                            uint8_t payload[32] = {};
                            Buffer out;
                            Out<uint32_t> length, offset;
                            const int r = Check_IPMIPayload(
                                missing == 0 ? nullptr : &s, missing == 1 ? nullptr : payload, sizeof payload,
                                missing == 2 ? nullptr : *out.p(), missing == 3 ? nullptr : length.p(), 64,
                                missing == 4 ? nullptr : offset.p(), 0x00);
                            return Outcome{r, out.intact() && length.intact() && offset.intact()};
                        },
                        kInvalid, kNull});
    }
    rows.push_back({"CheckSessSeqNum", "session null", [] { return Outcome{CheckSessSeqNum(nullptr, 1, 0x40), true}; },
                    kInvalid, kNull});

    // ConfidentialityAlgorithm(algorithm, field, field_length, key, direction)
    auto conf = [](const char *probe, uint8_t algorithm, bool field, uint32_t length, bool key, int direction,
                   const char *message) {
        return Probe{"ConfidentialityAlgorithm", probe,
                     [=] {
                         Out<uint8_t[48]> f;
                         testing::internal::CaptureStdout();
                         const int r = ConfidentialityAlgorithm(algorithm, field ? *f.p() : nullptr, length,
                                                                key ? kKey : nullptr, direction);
                         testing::internal::GetCapturedStdout();
                         return Outcome{r, f.intact()};
                     },
                     kInvalid, message};
    };
    rows.push_back(conf("field null", 1, false, 48, true, 0, kNull));
    rows.push_back(conf("key null", 1, true, 48, false, 0, kNull));
    rows.push_back(conf("direction -1", 1, true, 48, true, -1, "Failed to do AES-CBC-128 Encrypted Payload Format.\n"));
    rows.push_back(
        conf("direction 256", 1, true, 48, true, 256, "Failed to do AES-CBC-128 Encrypted Payload Format.\n"));
    rows.push_back(
        conf("field length 15", 1, true, 15, true, 0, "Failed to do AES-CBC-128 Encrypted Payload Format.\n"));
    rows.push_back(
        conf("algorithm 7", 7, true, 48, true, 0, "Type 07 is Not supported Confidentiality Algorithm.\n"));

    // AES_CBC_128_Process(key, iv, data, length, direction)
    auto cbc = [](const char *probe, bool key, bool iv, bool data, int32_t length, int direction, int expected) {
        return Probe{"AES_CBC_128_Process", probe,
                     [=] {
                         Out<uint8_t[32]> d;
                         testing::internal::CaptureStdout();
                         const int r = AES_CBC_128_Process(key ? kKey : nullptr, iv ? kData : nullptr,
                                                           data ? *d.p() : nullptr, length, direction);
                         testing::internal::GetCapturedStdout();
                         return Outcome{r, d.intact()};
                     },
                     expected, expected == kInvalid && (!key || !iv || !data) ? kNull : nullptr};
    };
    rows.push_back(cbc("key null", false, true, true, 32, 0, kInvalid));
    rows.push_back(cbc("IV null", true, false, true, 32, 0, kInvalid));
    rows.push_back(cbc("data null with a length", true, true, false, 32, 0, kInvalid));
    rows.push_back(cbc("length -16", true, true, true, -16, 0, 1));
    rows.push_back(cbc("length INT_MIN", true, true, true, INT_MIN, 0, 1));
    rows.push_back(cbc("length INT_MAX", true, true, true, INT_MAX, 0, 1));
    rows.push_back(cbc("direction 2", true, true, true, 32, 2, 1));
    rows.push_back(cbc("direction -1", true, true, true, 32, -1, 1));
    rows.push_back(cbc("direction 256", true, true, true, 32, 256, 1));
    // Nothing to transform needs no data pointer.
    rows.push_back({"AES_CBC_128_Process", "data null without data",
                    [] { return Outcome{AES_CBC_128_Process(kKey, kData, nullptr, 0, 0), true}; }, 0, nullptr});

    auto hex = [](const char *probe, bool text, bool bytes, int bits) {
        return Probe{"BinToHex", probe,
                     [=] {
                         Out<char[64]> t;
                         BinToHex(text ? *t.p() : nullptr, bytes ? kData : nullptr, bits);
                         return Outcome{0, t.intact()};
                     },
                     0, nullptr};
    };
    rows.push_back(hex("text null", false, true, 128));
    rows.push_back(hex("bytes null", true, false, 128));
    rows.push_back(hex("bits -8", true, true, -8));
    rows.push_back(hex("bits INT_MIN", true, true, INT_MIN));
}

void transport_rows(std::vector<Probe> &rows)
{
    rows.push_back({"init_socket", "descriptor null",
                    [] { return Outcome{init_socket(nullptr, 0x7F000001, 623, 0), true}; }, kInvalid, kNull});
    rows.push_back({"init_socket", "port UINT32_MAX",
                    [] {
                        Out<int> fd;
                        return Outcome{init_socket(fd.p(), 0x7F000001, UINT32_MAX, 0), fd.intact()};
                    },
                    kInvalid, "Invalid port number = 4294967295.\n"});
    rows.push_back({"init_socket", "port 65536",
                    [] {
                        Out<int> fd;
                        return Outcome{init_socket(fd.p(), 0x7F000001, 65536, 0), fd.intact()};
                    },
                    kInvalid, "Invalid port number = 65536.\n"});

    rows.push_back({"Send_RMCP", "buffer null", [] { return Outcome{Send_RMCP(-1, nullptr, 12, 0), true}; }, kInvalid,
                    kNull});
    rows.push_back({"Send_RMCP", "descriptor -1", [] { return Outcome{Send_RMCP(-1, kData, 12, 0), true}; }, 1,
                    "Failed to send RMCP packet\n"});

    // A bad argument gets the code of a failed receive.
    auto receive = [](const char *probe, int fd, bool buffer, bool length, bool limit, const char *message) {
        return Probe{"Receive_RMCP", probe,
                     [=] {
                         Buffer b;
                         uint32_t n = 64;
                         const timeval wait = {0, 0};
                         const int r = Receive_RMCP(fd, buffer ? *b.p() : nullptr, length ? &n : nullptr, 0,
                                                    limit ? &wait : nullptr);
                         return Outcome{r, b.intact() && n == 64};
                     },
                     RMCPP_ERR_RESOURCE, message};
    };
    rows.push_back(receive("buffer null", 0, false, true, true, kNull));
    rows.push_back(receive("length null", 0, true, false, true, kNull));
    rows.push_back(receive("limit null", 0, true, true, false, kNull));
    rows.push_back(receive("descriptor -1", -1, true, true, true, "Invalid socket descriptor = -1.\n"));
    rows.push_back(
        receive("descriptor INT_MIN", INT_MIN, true, true, true, "Invalid socket descriptor = -2147483648.\n"));

    for (int missing = 0; missing < 3; ++missing) {
        static const char *const probes[] = {"start null", "limit null", "left null"};
        rows.push_back({"ReadTimer", probes[missing],
                        [missing] {
                            timeval start;
                            gettimeofday(&start, nullptr);
                            const timeval limit = {5, 0};
                            timeval left = {7, 7};
                            const int r = ReadTimer(missing == 0 ? nullptr : &start, missing == 1 ? nullptr : &limit,
                                                    missing == 2 ? nullptr : &left);
                            // The time left is cleared whenever there is one.
                            return Outcome{r, missing == 2 || (left.tv_sec == 0 && left.tv_usec == 0)};
                        },
                        RMCPP_ERR_TIMER, kBadTimes});
    }
    // CheckTimeOver(start, now, limit, left): left is cleared first.
    auto times = [](const char *probe, int missing, timeval start, timeval now, timeval limit) {
        return Probe{"CheckTimeOver", probe,
                     [=] {
                         timeval left = {7, 7};
                         const int r = CheckTimeOver(missing == 0 ? nullptr : &start, missing == 1 ? nullptr : &now,
                                                     missing == 2 ? nullptr : &limit, missing == 3 ? nullptr : &left);
                         return Outcome{r, missing == 3 || (left.tv_sec == 0 && left.tv_usec == 0)};
                     },
                     RMCPP_ERR_TIMER, kBadTimes};
    };
    const timeval t0 = {100, 0}, t1 = {101, 0}, limit = {5, 0};
    rows.push_back(times("start null", 0, t0, t1, limit));
    rows.push_back(times("now null", 1, t0, t1, limit));
    rows.push_back(times("limit null", 2, t0, t1, limit));
    rows.push_back(times("left null", 3, t0, t1, limit));
    rows.push_back(times("start microseconds -1", -1, {100, -1}, t1, limit));
    rows.push_back(times("now microseconds 1000000", -1, t0, {101, 1000000}, limit));
    rows.push_back(times("limit microseconds LONG_MAX", -1, t0, t1, {5, LONG_MAX}));
    rows.push_back(times("start seconds LONG_MIN", -1, {LONG_MIN, 0}, {LONG_MAX, 0}, limit));

    rows.push_back({"lib_log", "format null",
                    [] {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-security"
                        lib_log(3, nullptr);
#pragma GCC diagnostic pop
                        return Outcome{static_cast<int>(testkit::log_lines().size()), true};
                    },
                    0, nullptr});
    rows.push_back({"change_printlevel", "name null",
                    [] {
                        const int before = Print_Level;
                        change_printlevel(nullptr);
                        return Outcome{Print_Level - before, true};
                    },
                    0, nullptr});

    rows.push_back({"RMCP_PingPong", "limit null", [] { return Outcome{RMCP_PingPong(-1, 1, nullptr), true}; },
                    kInvalid, kNull});
    rows.push_back({"RMCP_PingPong", "descriptor -1",
                    [] {
                        const timeval limit = {1, 0};
                        return Outcome{RMCP_PingPong(-1, 1, &limit), true};
                    },
                    1, "Failed to send RMCP packet\n"});
    for (int attempts : {-1, INT_MIN}) {
        rows.push_back({"RMCP_PingPong", attempts == -1 ? "attempts -1" : "attempts INT_MIN",
                        [attempts] {
                            const timeval limit = {1, 0};
                            return Outcome{RMCP_PingPong(-1, attempts, &limit), true};
                        },
                        1, "Failed to do Ping/Pong over limit of retries.\n"});
    }

    // Only the low byte of the status code is used.
    rows.push_back({"PrintRMCPStatusCode", "code INT_MIN",
                    [] {
                        PrintRMCPStatusCode(INT_MIN);
                        return Outcome{0, true};
                    },
                    0, "No errors.\n"});
    rows.push_back({"PrintRMCPStatusCode", "code INT_MAX",
                    [] {
                        PrintRMCPStatusCode(INT_MAX);
                        return Outcome{0, true};
                    },
                    0, "Unexpected Status Code = ff.\n"});

    // The library's default host interfaces.
    using Sink = void (*)(int, const KivTraceRecord *, const char *);
    using Catalogue = char *(*)(int, char *, const char *);
    for (int missing = 0; missing < 2; ++missing) {
        rows.push_back({"putKivTrace", missing == 0 ? "record null" : "text null",
                        [missing] {
                            const Sink sink = library_default<Sink>("putKivTrace");
                            if (sink == nullptr) return Outcome{-100, false};
                            const KivTraceRecord record = {2, 1, 0, 0};
                            testing::internal::CaptureStderr();
                            sink(1, missing == 0 ? nullptr : &record, missing == 1 ? nullptr : "line\n");
                            return Outcome{0, testing::internal::GetCapturedStderr().empty()};
                        },
                        0, nullptr});
    }
    for (int missing = 0; missing < 2; ++missing) {
        rows.push_back({"lmsg_getmsg", missing == 0 ? "text null" : "argument null",
                        [missing] {
                            const Catalogue catalogue = library_default<Catalogue>("lmsg_getmsg");
                            if (catalogue == nullptr) return Outcome{-100, false};
                            Out<char[RMCPP_LMSG_TEXT_SIZE]> text;
                            const char *r = catalogue(20020, missing == 0 ? nullptr : *text.p(),
                                                      missing == 1 ? nullptr : "CC=0xC1:");
                            return Outcome{r == nullptr ? 0 : 1, text.intact()};
                        },
                        0, nullptr});
    }
}

void cipher_api_rows(std::vector<Probe> &rows)
{
    auto make = [](const char *probe, bool key, uint8_t direction, int32_t length, const char *material,
                   int expected) {
        return Probe{"makeKey", probe,
                     [=] {
                         KeyRecord k;
                         std::memset(&k, 0, sizeof k);
                         const int r = makeKey(key ? &k : nullptr, direction, length, material);
                         return Outcome{r, k.Nr == 0};
                     },
                     expected, nullptr};
    };
    rows.push_back(make("key record null", false, 0, 128, kKeyText, ERR_KEY_RECORD));
    rows.push_back(make("direction 7", true, 7, 128, kKeyText, ERR_KEY_DIRECTION));
    rows.push_back(make("key length -128", true, 0, -128, kKeyText, ERR_KEY_MATERIAL));
    rows.push_back(make("key length INT_MAX", true, 0, INT_MAX, kKeyText, ERR_KEY_MATERIAL));
    rows.push_back(make("key text too short", true, 0, 256, kKeyText, ERR_KEY_MATERIAL));

    auto init = [](const char *probe, bool record, uint8_t mode, const char *iv, int expected) {
        return Probe{"cipherInit", probe,
                     [=] {
                         Out<CipherRecord> c;
                         const int r = cipherInit(record ? c.p() : nullptr, mode, iv);
                         return Outcome{r, !record || c.v.mode == kFill || expected == ERR_CIPHER_IV};
                     },
                     expected, nullptr};
    };
    rows.push_back(init("cipher record null", false, MODE_CBC_BLOCKS, nullptr, ERR_CIPHER_STATE));
    rows.push_back(init("mode 0 and record null", false, 0, nullptr, ERR_CIPHER_MODE));
    rows.push_back(init("mode 255", true, 255, nullptr, ERR_CIPHER_MODE));
    rows.push_back(init("IV not hexadecimal", true, MODE_CBC_BLOCKS, "zz", ERR_CIPHER_IV));

    // The block and pad calls share their probes.
    using Call = int32_t (*)(CipherRecord *, KeyRecord *, const uint8_t *, int32_t, uint8_t *);
    struct Op {
        const char *name;
        Call call;
        uint8_t direction;
        int32_t length;  // one block, in the call's unit
    };
    const Op ops[] = {{"blockEncrypt", &blockEncrypt, DIR_ENCRYPT_KEY, 128},
                      {"blockDecrypt", &blockDecrypt, DIR_DECRYPT_KEY, 128},
                      {"padEncrypt", &padEncrypt, DIR_ENCRYPT_KEY, 16},
                      {"padDecrypt", &padDecrypt, DIR_DECRYPT_KEY, 16}};
    enum KeyKind { kMade, kZeroed, kGarbage };
    for (const Op &op : ops) {
        auto row = [op](const char *probe, bool cipher_record, bool key_record, KeyKind kind, bool input,
                        int32_t length, bool output, int expected) {
            return Probe{op.name, probe,
                         [=] {
                             CipherRecord c = cipher(MODE_CBC_BLOCKS);
                             KeyRecord k = made_key(op.direction);
                             if (kind == kZeroed) std::memset(&k, 0, sizeof k);
                             if (kind == kGarbage) std::memset(&k, kFill, sizeof k);
                             Out<uint8_t[64]> out;
                             const int r = op.call(cipher_record ? &c : nullptr, key_record ? &k : nullptr,
                                                   input ? kData : nullptr, length, output ? *out.p() : nullptr);
                             return Outcome{r, out.intact()};
                         },
                         expected, nullptr};
        };
        rows.push_back(row("cipher record null", false, true, kMade, true, op.length, true, ERR_CIPHER_STATE));
        rows.push_back(row("key record null", true, false, kMade, true, op.length, true, ERR_CIPHER_STATE));
        rows.push_back(row("key record never made", true, true, kZeroed, true, op.length, true, ERR_CIPHER_STATE));
        rows.push_back(row("key record of garbage", true, true, kGarbage, true, op.length, true, ERR_CIPHER_STATE));
        rows.push_back(row("input null", true, true, kMade, false, op.length, true, 0));
        rows.push_back(row("output null", true, true, kMade, true, op.length, false, 0));
        rows.push_back(row("length -1", true, true, kMade, true, -1, true, 0));
        rows.push_back(row("length INT_MIN", true, true, kMade, true, INT_MIN, true, 0));
    }
    rows.push_back({"padDecrypt", "length 17",
                    [] {
                        CipherRecord c = cipher(MODE_CBC_BLOCKS);
                        KeyRecord k = made_key(DIR_DECRYPT_KEY);
                        Out<uint8_t[64]> out;
                        uint8_t in[32] = {};
                        return Outcome{padDecrypt(&c, &k, in, 17, *out.p()), out.intact()};
                    },
                    ERR_PADDING, nullptr});

    // cipherUpdateRounds(cipher, key, input, inputLen, out, rounds)
    auto rounds_row = [](const char *probe, bool cipher_record, int key_kind, bool input, bool output, int expected) {
        return Probe{"cipherUpdateRounds", probe,
                     [=] {
                         CipherRecord c = cipher(MODE_ECB_BLOCKS);
                         KeyRecord k = made_key(DIR_ENCRYPT_KEY);
                         if (key_kind == 1) std::memset(&k, 0, sizeof k);
                         if (key_kind == 2) k.direction = 9;
                         Out<uint8_t[16]> out;
                         const int r = cipherUpdateRounds(cipher_record ? &c : nullptr, key_kind == 3 ? nullptr : &k,
                                                          input ? kData : nullptr, 128, output ? *out.p() : nullptr, 5);
                         return Outcome{r, out.intact()};
                     },
                     expected, nullptr};
    };
    rows.push_back(rounds_row("cipher record null", false, 0, true, true, ERR_CIPHER_STATE));
    rows.push_back(rounds_row("key record null", true, 3, true, true, ERR_CIPHER_STATE));
    rows.push_back(rounds_row("key record never made", true, 1, true, true, ERR_CIPHER_STATE));
    rows.push_back(rounds_row("key direction 9", true, 2, true, true, ERR_KEY_DIRECTION));
    rows.push_back(rounds_row("input null", true, 0, false, true, 0));
    rows.push_back(rounds_row("output null", true, 0, true, false, 0));
    // Any round count stays inside the schedule: more than Nr is Nr - 1 full
    // rounds, fewer than 1 only the first round key.
    for (int extreme : {INT_MIN, INT_MAX}) {
        rows.push_back({"cipherUpdateRounds", extreme == INT_MIN ? "rounds INT_MIN" : "rounds INT_MAX",
                        [extreme] {
                            CipherRecord c = cipher(MODE_ECB_BLOCKS);
                            KeyRecord k = made_key(DIR_ENCRYPT_KEY);
                            uint8_t got[16], want[16];
                            const int r = cipherUpdateRounds(&c, &k, kData, 128, got, extreme);
                            cipherUpdateRounds(&c, &k, kData, 128, want, extreme == INT_MIN ? 0 : k.Nr - 1);
                            return Outcome{r, std::memcmp(got, want, 16) == 0};
                        },
                        1, nullptr});
    }
}

void core_rows(std::vector<Probe> &rows)
{
    using Setup = int (*)(uint32_t *, const uint8_t *, int);
    for (auto [name, f] : {std::pair<const char *, Setup>{"rijndaelKeySetupEnc", &rijndaelKeySetupEnc},
                           std::pair<const char *, Setup>{"rijndaelKeySetupDec", &rijndaelKeySetupDec}}) {
        auto row = [f](const char *fn, const char *probe, bool rk, bool key, int bits) {
            return Probe{fn, probe,
                         [=] {
                             const uint8_t cipher_key[32] = {};
                             uint32_t schedule[RIJNDAEL_MAX_SCHEDULE_WORDS + 8];
                             std::memset(schedule, kFill, sizeof schedule);
                             const int r = f(rk ? schedule : nullptr, key ? cipher_key : nullptr, bits);
                             // Nothing beyond the largest schedule is written.
                             bool beyond = true;
                             for (int i = RIJNDAEL_MAX_SCHEDULE_WORDS; i < RIJNDAEL_MAX_SCHEDULE_WORDS + 8; ++i)
                                 beyond = beyond && schedule[i] == 0xA5A5A5A5u;
                             return Outcome{r, beyond};
                         },
                         0, nullptr};
        };
        rows.push_back(row(name, "schedule null", false, true, 128));
        rows.push_back(row(name, "key null", true, false, 128));
        rows.push_back(row(name, "key bits -1", true, true, -1));
        rows.push_back(row(name, "key bits INT_MAX", true, true, INT_MAX));
    }

    using Block = void (*)(const uint32_t *, int, const uint8_t *, uint8_t *);
    for (auto [name, f] : {std::pair<const char *, Block>{"rijndaelEncrypt", &rijndaelEncrypt},
                           std::pair<const char *, Block>{"rijndaelDecrypt", &rijndaelDecrypt}}) {
        auto row = [f](const char *fn, const char *probe, bool rk, int Nr, bool in, bool out) {
            return Probe{fn, probe,
                         [=] {
                             uint32_t schedule[RIJNDAEL_MAX_SCHEDULE_WORDS] = {};
                             Out<uint8_t[16]> o;
                             f(rk ? schedule : nullptr, Nr, in ? kData : nullptr, out ? *o.p() : nullptr);
                             return Outcome{0, o.intact()};
                         },
                         0, nullptr};
        };
        rows.push_back(row(name, "schedule null", false, 10, true, true));
        rows.push_back(row(name, "input null", true, 10, false, true));
        rows.push_back(row(name, "output null", true, 10, true, false));
        rows.push_back(row(name, "rounds 15", true, 15, true, true));
        rows.push_back(row(name, "rounds -1", true, -1, true, true));
        rows.push_back(row(name, "rounds INT_MAX", true, INT_MAX, true, true));
        rows.push_back(row(name, "rounds INT_MIN", true, INT_MIN, true, true));
    }

    using Round = void (*)(const uint32_t *, int, uint8_t *, int);
    for (auto [name, f, setup] :
         {std::tuple<const char *, Round, Setup>{"rijndaelEncryptRound", &rijndaelEncryptRound, &rijndaelKeySetupEnc},
          std::tuple<const char *, Round, Setup>{"rijndaelDecryptRound", &rijndaelDecryptRound,
                                                 &rijndaelKeySetupDec}}) {
        auto row = [f](const char *fn, const char *probe, bool rk, int Nr, bool block) {
            return Probe{fn, probe,
                         [=] {
                             uint32_t schedule[RIJNDAEL_MAX_SCHEDULE_WORDS] = {};
                             Out<uint8_t[16]> b;
                             f(rk ? schedule : nullptr, Nr, block ? *b.p() : nullptr, 5);
                             return Outcome{0, b.intact()};
                         },
                         0, nullptr};
        };
        rows.push_back(row(name, "schedule null", false, 10, true));
        rows.push_back(row(name, "block null", true, 10, false));
        rows.push_back(row(name, "rounds 15", true, 15, true));
        rows.push_back(row(name, "rounds INT_MIN", true, INT_MIN, true));
        // Extreme round-limits stay inside the schedule: INT_MIN acts as 0,
        // INT_MAX as Nr + 1.
        for (int extreme : {INT_MIN, INT_MAX}) {
            rows.push_back({name, extreme == INT_MIN ? "round limit INT_MIN" : "round limit INT_MAX",
                            [f, setup, extreme] {
                                uint32_t schedule[RIJNDAEL_MAX_SCHEDULE_WORDS];
                                const int Nr = setup(schedule, kKey, 128);
                                uint8_t got[16], want[16];
                                std::memcpy(got, kData, 16);
                                std::memcpy(want, kData, 16);
                                f(schedule, Nr, got, extreme);
                                f(schedule, Nr, want, extreme == INT_MIN ? 0 : Nr + 1);
                                return Outcome{0, std::memcmp(got, want, 16) == 0};
                            },
                            0, nullptr});
        }
    }
}

void vector_file_rows(std::vector<Probe> &rows)
{
    for (int missing = 0; missing < 3; ++missing) {
        static const char *const probes[] = {"stream null", "block null", "label null"};
        rows.push_back({"blockPrint", probes[missing],
                        [missing] {
                            FILE *f = std::tmpfile();
                            blockPrint(missing == 0 ? nullptr : f, missing == 1 ? nullptr : kData,
                                       missing == 2 ? nullptr : "PT");
                            const bool empty = empty_file(f);
                            std::fclose(f);
                            return Outcome{0, empty};
                        },
                        0, nullptr});
    }

    using Kat = int (*)(FILE *, int);
    for (auto [name, f] : {std::pair<const char *, Kat>{"rijndaelVKKAT", &rijndaelVKKAT},
                           std::pair<const char *, Kat>{"rijndaelVTKAT", &rijndaelVTKAT},
                           std::pair<const char *, Kat>{"rijndaelIVKAT", &rijndaelIVKAT}}) {
        auto row = [f](const char *fn, const char *probe, bool stream, int bits) {
            return Probe{fn, probe,
                         [=] {
                             FILE *file = std::tmpfile();
                             const int r = f(stream ? file : nullptr, bits);
                             const bool empty = empty_file(file);
                             std::fclose(file);
                             return Outcome{r, empty};
                         },
                         kInvalid, nullptr};
        };
        rows.push_back(row(name, "stream null", false, 128));
        rows.push_back(row(name, "key length 64", true, 64));
        rows.push_back(row(name, "key length -1", true, -1));
        rows.push_back(row(name, "key length INT_MAX", true, INT_MAX));
    }
    auto tkat = [](const char *probe, bool stream, int bits, bool table) {
        return Probe{"rijndaelTKAT", probe,
                     [=] {
                         FILE *out = std::tmpfile();
                         FILE *in = std::tmpfile();
                         const int r = rijndaelTKAT(stream ? out : nullptr, bits, table ? in : nullptr);
                         const bool empty = empty_file(out);
                         std::fclose(out);
                         std::fclose(in);
                         return Outcome{r, empty};
                     },
                     kInvalid, nullptr};
    };
    rows.push_back(tkat("stream null", false, 128, true));
    rows.push_back(tkat("table null", true, 128, false));
    rows.push_back(tkat("key length 100", true, 100, true));

    using Mct = int (*)(FILE *, int, uint8_t);
    for (auto [name, f] : {std::pair<const char *, Mct>{"rijndaelECB_MCT", &rijndaelECB_MCT},
                           std::pair<const char *, Mct>{"rijndaelCBC_MCT", &rijndaelCBC_MCT}}) {
        auto row = [f](const char *fn, const char *probe, bool stream, int bits, uint8_t direction) {
            return Probe{fn, probe,
                         [=] {
                             FILE *file = std::tmpfile();
                             const int r = f(stream ? file : nullptr, bits, direction);
                             const bool empty = empty_file(file);
                             std::fclose(file);
                             return Outcome{r, empty};
                         },
                         kInvalid, nullptr};
        };
        rows.push_back(row(name, "stream null", false, 128, DIR_ENCRYPT_KEY));
        rows.push_back(row(name, "key length 0", true, 0, DIR_ENCRYPT_KEY));
        rows.push_back(row(name, "key length INT_MIN", true, INT_MIN, DIR_DECRYPT_KEY));
        rows.push_back(row(name, "direction 2", true, 128, 2));
    }

    // The file makers: a null name is refused before any file is opened.
    for (int missing = 0; missing < 4; ++missing) {
        static const char *const probes[] = {"first name null", "second name null", "third name null",
                                             "fourth name null"};
        rows.push_back({"makeKATs", probes[missing],
                        [missing] {
                            std::string names[4];
                            const char *p[4];
                            for (int i = 0; i < 4; ++i) {
                                names[i] = temp_path(("kat" + std::to_string(i)).c_str());
                                std::filesystem::remove(names[i]);
                                p[i] = missing == i ? nullptr : names[i].c_str();
                            }
                            const int r = makeKATs(p[0], p[1], p[2], p[3]);
                            bool none = true;
                            for (const std::string &n : names) none = none && absent(n);
                            return Outcome{r, none};
                        },
                        kInvalid, nullptr});
        rows.push_back({"makeMCTs", probes[missing],
                        [missing] {
                            std::string names[4];
                            const char *p[4];
                            for (int i = 0; i < 4; ++i) {
                                names[i] = temp_path(("mct" + std::to_string(i)).c_str());
                                std::filesystem::remove(names[i]);
                                p[i] = missing == i ? nullptr : names[i].c_str();
                            }
                            const int r = makeMCTs(p[0], p[1], p[2], p[3]);
                            bool none = true;
                            for (const std::string &n : names) none = none && absent(n);
                            return Outcome{r, none};
                        },
                        kInvalid, nullptr});
    }
    rows.push_back({"makeFIPSTestVectors", "name null",
                    [] {
                        testing::internal::CaptureStdout();
                        const int r = makeFIPSTestVectors(nullptr);
                        return Outcome{r, testing::internal::GetCapturedStdout().empty()};
                    },
                    kInvalid, nullptr});
    for (int bits : {64, INT_MIN}) {
        rows.push_back({"rijndaelSpeed", bits == 64 ? "key bits 64" : "key bits INT_MIN",
                        [bits] {
                            testing::internal::CaptureStdout();
                            rijndaelSpeed(bits);
                            return Outcome{0, testing::internal::GetCapturedStdout().empty()};
                        },
                        0, nullptr});
    }
}

// Interleaved jobs: a null job is refused whatever the count, before any
// stack is made.
void interleave_rows(std::vector<Probe> &rows)
{
    const std::pair<const char *, size_t> counts[] = {
        {"job null, count 0", 0}, {"job null, count 1", 1}, {"job null, count SIZE_MAX", SIZE_MAX}};
    for (const auto &[name, count] : counts)
        rows.push_back(Probe{"rmcpp_run_interleaved", name,
                             [count] { return Outcome{rmcpp_run_interleaved(count, nullptr, nullptr, 0), true}; },
                             kInvalid, kNull});
}

std::vector<Probe> all_probes()
{
    std::vector<Probe> rows;
    setup_rows(rows);
    framing_rows<&MakeIPMIRequest>(rows, "MakeIPMIRequest");
    framing_rows<&MakeIPMIResponse>(rows, "MakeIPMIResponse");
    framing_checker_rows(rows);
    exchange_rows(rows);
    establishment_rows(rows);
    packet_rows(rows);
    transport_rows(rows);
    cipher_api_rows(rows);
    core_rows(rows);
    vector_file_rows(rows);
    interleave_rows(rows);
    return rows;
}

const std::vector<Probe> &probes()
{
    static const std::vector<Probe> rows = all_probes();
    return rows;
}

// ------------------------------------------------------------ the tests

class BadArguments : public ::testing::TestWithParam<size_t> {
protected:
    void SetUp() override { testkit::clear_trace(); }
};

TEST_P(BadArguments, RefusedWithItsOwnCode)
{
    const Probe &p = probes()[GetParam()];
    const Outcome o = p.call();
    EXPECT_EQ(o.code, p.expected) << p.function << ": " << p.probe;
    EXPECT_TRUE(o.untouched) << p.function << ": " << p.probe << " wrote where it had no right to";
    if (p.message != nullptr) {
        EXPECT_TRUE(testkit::logged(p.message)) << "expected log line: " << p.message;
    }
}

std::string row_name(const ::testing::TestParamInfo<size_t> &info)
{
    const Probe &p = probes()[info.param];
    std::string name = std::string(p.function) + "_";
    bool gap = false;
    for (const char *c = p.probe; *c; ++c) {
        if (*c == '-') {
            name += "Minus";
            gap = false;
        } else if (std::isalnum(static_cast<unsigned char>(*c))) {
            name += gap ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
            gap = false;
        } else {
            gap = true;
        }
    }
    return name;
}

std::vector<size_t> row_indices()
{
    std::vector<size_t> v(probes().size());
    for (size_t i = 0; i < v.size(); ++i) v[i] = i;
    return v;
}

INSTANTIATE_TEST_SUITE_P(EveryExport, BadArguments, ::testing::ValuesIn(row_indices()), row_name);

// Exported data, and the functions that take no argument at all.
const std::set<std::string> kNotProbed = {
    "Te0", "Te1", "Te2", "Te3", "Te4", "Td0", "Td1", "Td2", "Td3", "Td4", "rcon", "RMCPConnectSA", "RMCPtimeout",
    "mess_tag", "Print_Level", "do_self_check", "flag_1st_random", "RMCPStandardKeys",
    "CheckSelfTypes", "MakeSessionID", "rmcpp_strerror", "rmcpp_version",
};

TEST(BadArgumentsTable, NamesEveryExportedFunction)
{
    std::set<std::string> probed;
    for (const Probe &p : probes()) probed.insert(p.function);

    std::ifstream list(RMCPP_EXPORTED_SYMBOLS);
    ASSERT_TRUE(list) << RMCPP_EXPORTED_SYMBOLS;
    std::set<std::string> exported;
    for (std::string line; std::getline(list, line);)
        if (!line.empty() && (std::isalpha(static_cast<unsigned char>(line[0])) || line[0] == '_'))
            exported.insert(line);
    ASSERT_GT(exported.size(), 90u);

    for (const std::string &name : exported)
        EXPECT_TRUE(probed.count(name) || kNotProbed.count(name))
            << name << " is exported but has no bad-argument probe";
    for (const std::string &name : probed) EXPECT_TRUE(exported.count(name)) << name << " is not exported";
    for (const std::string &name : kNotProbed) EXPECT_TRUE(exported.count(name)) << name << " is not exported";
}

}  // namespace
