// Writes the seed corpora of the fuzz targets: valid messages of every kind,
// captured from the simulator's protocol engine answering the library's own
// requests, or built with the library's builders and the fixed session keys,
// each with the option bytes its target reads first; plus a few edge cases.
//   fuzz_make_corpus DIR    (DIR/<parser>/<name> for every seed)
// The establishment answers and the session packets are checked here as the
// console checks them, so a seed that no longer passes is noticed when the
// corpus is remade.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz_establish.h"

namespace {

using fuzz::Bytes;
namespace fs = std::filesystem;

fs::path root;

void write(const std::string &parser, const std::string &name, const Bytes &bytes)
{
    const fs::path dir = root / parser;
    fs::create_directories(dir);
    std::ofstream out(dir / name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const auto &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

void require(bool ok, const char *what)
{
    if (ok) return;
    std::fprintf(stderr, "make_corpus: %s\n", what);
    std::exit(1);
}

Bytes ipmi_request(const IPMI_MsgHeader &h, const Bytes &data)
{
    uint8_t out[300];
    int length = 0;
    require(MakeIPMIRequest(&h, data.data(), static_cast<int>(data.size()), out, sizeof out, &length) == 0,
            "request");
    return Bytes(out, out + length);
}

Bytes ipmi_response(const IPMI_MsgHeader &h, const Bytes &data)
{
    uint8_t out[300];
    int length = 0;
    require(MakeIPMIResponse(&h, data.data(), static_cast<int>(data.size()), out, sizeof out, &length) == 0,
            "response");
    return Bytes(out, out + length);
}

const Bytes kDeviceIdData = {0x00, 0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00};

// ------------------------------------------------------------ pong, capabilities

void pong_and_capabilities()
{
    const bmcsim::Config config = fuzz::simulator_config(false);
    bmcsim::detail::Engine engine(nullptr);
    const Bytes ping = {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, 0x01, 0x00, 0x00};
    const Bytes pong = fuzz::answer_of(engine, ping, config);
    require(pong.size() == 28, "pong");
    write("pong", "pong", pong);
    Bytes wrong = pong;
    wrong[20] = 0x80;
    write("pong", "entities_80", wrong);
    write("pong", "long_29", cat({pong, {0x00}}));
    write("pong", "short_27", Bytes(pong.begin(), pong.end() - 1));
    write("pong", "empty", {});

    const IPMI_MsgHeader record = {0x06, RMCPConnectSA, 0x38, 0, 1, 0x07, 0x20, 0};
    uint8_t request[64];
    uint32_t length = 0;
    RMCPp_SetupState state;
    fuzz::init_state(state, 3);
    require(Make_GetAuthCapa_v15(&state, &record, 4, request, sizeof request, &length) == 0, "capabilities");
    const Bytes rq(request, request + length);
    const Bytes caps = fuzz::answer_of(engine, rq, config);
    write("auth_capa", "capabilities", caps);

    bmcsim::Config other = config;
    other.capabilities.ipmi20_extended = false;
    other.kg = Bytes(20, 0x42);
    bmcsim::detail::Engine engine2(nullptr);
    write("auth_capa", "no_ipmi20_kg", fuzz::answer_of(engine2, rq, other));
    other = config;
    other.capabilities.completion_code = 0xCC;
    other.capabilities.data_length = 0;
    bmcsim::detail::Engine engine3(nullptr);
    write("auth_capa", "completion_cc", fuzz::answer_of(engine3, rq, other));
    write("auth_capa", "truncated", Bytes(caps.begin(), caps.begin() + 18));
}

// ------------------------------------------------------------ establishment

void establishment()
{
    for (unsigned suite = 0; suite < 4; ++suite) {
        const std::string s = std::to_string(suite);
        const bmcsim::Config config = fuzz::simulator_config(false);
        bmcsim::detail::Engine engine(nullptr);
        RMCPp_Session session;
        fuzz::Establishment e;
        require(fuzz::establish(engine, config, suite, session, &e), "establishment");
        const uint8_t u = static_cast<uint8_t>(suite);
        write("open_session", "suite" + s, cat({{u, 1}, e.open_session_response}));
        write("rakp2", "suite" + s, cat({{u, 2}, e.rakp2}));
        write("rakp4", "suite" + s, cat({{u, 3}, e.rakp4}));

        // The simulator's own requests, in order, as one input of records.
        Bytes records = {0x00};
        auto add = [&records](uint8_t flags, const Bytes &b) {
            records.push_back(flags);
            records.push_back(static_cast<uint8_t>(b.size()));
            records.push_back(static_cast<uint8_t>(b.size() >> 8));
            records.insert(records.end(), b.begin(), b.end());
        };
        add(0x80, e.open_session_request);
        add(0x80, e.rakp1);
        add(0x80, e.rakp3);
        add(0x80, fuzz::session_packet(session, ipmi_request(fuzz::kGetDeviceId, {}), 0));
        write("bmcsim", "establish_suite" + s, records);
    }

    // Refusals: an unknown user in RAKP 2, a suite the managed system does
    // not offer in Open Session.
    bmcsim::Config config = fuzz::simulator_config(false);
    config.users = {{"someone", "else", 4, true}};
    bmcsim::detail::Engine engine(nullptr);
    RMCPp_Session session;
    fuzz::Establishment e;
    require(!fuzz::establish(engine, config, 1, session, &e), "refused user");
    write("rakp2", "unknown_user", cat({{1, 2}, e.rakp2}));
    config = fuzz::simulator_config(false);
    config.cipher_suites = {3};
    bmcsim::detail::Engine engine2(nullptr);
    require(!fuzz::establish(engine2, config, 1, session, &e), "refused suite");
    write("open_session", "no_suite_match", cat({{1, 1}, e.open_session_response}));
}

// ------------------------------------------------------------ session packets

void session_packets()
{
    const Bytes answer = ipmi_response(fuzz::kGetDeviceId, kDeviceIdData);
    for (uint8_t algs = 0; algs < 4; ++algs) {
        const uint8_t integrity = algs & 1, confidentiality = (algs >> 1) & 1;
        for (uint8_t auth_option : {uint8_t{0}, uint8_t{0x10}, uint8_t{0x20}, uint8_t{0x30}}) {
            if ((auth_option & 0x10) && !integrity) continue;
            if ((auth_option & 0x20) && !confidentiality) continue;
            if (auth_option == 0 && algs != 0) continue;
            RMCPp_Session session;
            fuzz::init_session(session, integrity, confidentiality);
            const Bytes packet = fuzz::session_packet(session, answer, auth_option);
            require(!packet.empty(), "session packet");
            RMCPp_Session receiver;
            fuzz::init_session(receiver, integrity, confidentiality);
            uint32_t length = static_cast<uint32_t>(packet.size()), header_length = 0, out_length = 0, offset = 0;
            uint8_t type = 0, out[300];
            Bytes copy = packet;
            require(Check_RMCPHead(copy.data(), &length, &header_length) == 0 &&
                        Check_IPMIHeadTail(&receiver, copy.data() + 4, &length, &header_length, &type) == 0 &&
                        Check_IPMIPayload(&receiver, copy.data() + 16, length, out, &out_length, sizeof out,
                                          &offset, type) == 0 &&
                        Bytes(out, out + out_length) == answer,
                    "session packet check");
            char name[32];
            std::snprintf(name, sizeof name, "raw_algs%u_option%02x", algs, auth_option);
            write("session_packet", name, cat({{algs, 0}, packet}));
        }
    }
    // Build mode: the payload in clear, with and without protection.
    Bytes clear = cat({Bytes(16, 0x5C), answer});
    const size_t pad = (16 - (clear.size() + 1) % 16) % 16;
    for (size_t i = 1; i <= pad; ++i) clear.push_back(static_cast<uint8_t>(i));
    clear.push_back(static_cast<uint8_t>(pad));
    write("session_packet", "build_plain", cat({{0x04, 1}, answer}));
    write("session_packet", "build_auth", cat({{0x05 | 0x08, 2}, answer}));
    write("session_packet", "build_auth_enc", cat({{0x07 | 0x08 | 0x10, 3}, clear}));
    write("session_packet", "build_enc_small_output", cat({{0x07 | 0x08 | 0x10 | 0x20, 4}, clear}));
    write("session_packet", "build_enc_only", cat({{0x06 | 0x10, 5}, clear}));
    write("session_packet", "build_trailer_xor", cat({{0x05 | 0x08 | 0x40, 6, 0x01, 0x01}, answer}));
    // Receive windows: highest 1000, the 16 numbers below it all taken
    // but 990; packets numbered 990 (behind), 1000 (a repeat), 1010 (ahead).
    for (uint32_t sequence : {990u, 1000u, 1010u}) {
        Bytes window = {0x05 | 0x08 | 0x80, 0xE8, 0x03, 0x00, 0x00, 0xBF, 0xFF};
        for (int i = 0; i < 4; ++i) window.push_back(static_cast<uint8_t>(sequence >> (8 * i)));
        write("session_packet", "window_" + std::to_string(sequence), cat({window, answer}));
    }
    write("session_packet", "short", {0x00, 0x00, 0x06, 0x00, 0xFF, 0x07});
}

// ------------------------------------------------------------ IPMI headers

void ipmi_headers()
{
    const Bytes request = ipmi_request(fuzz::kGetDeviceId, {});
    const Bytes response = ipmi_response(fuzz::kGetDeviceId, kDeviceIdData);
    const IPMI_MsgHeader &h = fuzz::kGetDeviceId;
    const Bytes record = {h.req_netfn, h.rq_addr, h.cmd, h.rq_lun, h.rq_seq, h.resp_netfn, h.rs_addr, h.rs_lun};
    const uint8_t n = static_cast<uint8_t>(request.size());
    write("ipmi_resp_head", "get_device_id", cat({{n}, request, record, response}));
    Bytes broken = response;
    broken.back() ^= 1;
    write("ipmi_resp_head", "checksum2", cat({{n}, request, record, broken}));
    write("ipmi_resp_head", "short_response", cat({{n}, request, record, Bytes(response.begin(), response.begin() + 7)}));
    const Bytes close = ipmi_request({0x06, 0x81, 0x3C, 0, 2, 0x07, 0x20, 0}, {0x0E, 0x0D, 0x0C, 0x0B});
    const Bytes closed = ipmi_response({0x06, 0x81, 0x3C, 0, 2, 0x07, 0x20, 0}, {0x00});
    write("ipmi_resp_head", "close_session",
          cat({{static_cast<uint8_t>(close.size())}, close, {0x06, 0x81, 0x3C, 0, 2, 0x07, 0x20, 0}, closed}));
}

// ------------------------------------------------------------ AES

void aes()
{
    static const char kKeyText[] = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    const Bytes iv = {0xF0, 0xE1, 0xD2, 0xC3, 0xB4, 0xA5, 0x96, 0x87, 0x78, 0x69, 0x5A, 0x4B, 0x3C, 0x2D, 0x1E, 0x0F};
    const Bytes message = {'r', 'm', 'c', 'p', 'p', ' ', 'p', 'a', 'd', 'd', 'e', 'd', ' ', 't', 'e', 'x', 't', '!'};
    for (uint8_t options = 0; options < 8; ++options) {
        const int bits = (options & 3) == 1 ? 192 : (options & 3) == 2 ? 256 : 128;
        const uint8_t mode = (options & 4) ? MODE_CBC_BLOCKS : MODE_ECB_BLOCKS;
        if ((options & 3) == 3) continue;
        KeyRecord key;
        require(makeKey(&key, DIR_ENCRYPT_KEY, bits, std::string(kKeyText, bits / 4).c_str()) == 1, "key");
        char iv_text[33];
        for (int i = 0; i < 16; ++i) std::snprintf(iv_text + 2 * i, 3, "%02x", iv[i]);
        CipherRecord cipher;
        require(cipherInit(&cipher, mode, iv_text) == 1, "cipher");
        uint8_t sealed[64];
        const int32_t n = padEncrypt(&cipher, &key, message.data(), static_cast<int32_t>(message.size()), sealed);
        require(n > 0, "padEncrypt");
        char name[32];
        std::snprintf(name, sizeof name, "padded_%d_%s", bits, mode == MODE_CBC_BLOCKS ? "cbc" : "ecb");
        write("aes_pad_decrypt", name, cat({{options}, iv, Bytes(sealed, sealed + n)}));
    }
    // Clear text with its padding, encrypted by the target.
    Bytes clear = message;
    const uint8_t pad = static_cast<uint8_t>(16 - clear.size() % 16);
    clear.insert(clear.end(), pad, pad);
    write("aes_pad_decrypt", "clear_cbc", cat({{0x04 | 0x08}, iv, clear}));
    write("aes_pad_decrypt", "clear_ecb", cat({{0x08}, iv, clear}));
    // The key and IV as text from the input.
    const std::string key_text(kKeyText, 32);
    write("aes_pad_decrypt", "text_key_cbc",
          cat({{0x04 | 0x08 | 0x10}, Bytes(key_text.begin(), key_text.end()),
               Bytes(32, '7'), clear}));
    write("aes_pad_decrypt", "bad_key_text", cat({{0x10}, Bytes(32, 'g'), Bytes(32, '0'), Bytes(16, 0)}));
}

// ------------------------------------------------------------ simulator

void simulator()
{
    auto records = [](uint8_t options, std::initializer_list<std::pair<uint8_t, Bytes>> list) {
        Bytes out = {options};
        for (const auto &[flags, b] : list) {
            out.push_back(flags);
            out.push_back(static_cast<uint8_t>(b.size()));
            out.push_back(static_cast<uint8_t>(b.size() >> 8));
            out.insert(out.end(), b.begin(), b.end());
        }
        return out;
    };
    auto rq = [](uint8_t netfn, uint8_t cmd, uint8_t seq, const Bytes &data) {
        return ipmi_request({netfn, 0x81, cmd, 0, seq, static_cast<uint8_t>(netfn + 1), 0x20, 0}, data);
    };
    const Bytes get_device_id = rq(0x06, 0x01, 1, {});
    const Bytes self_test = rq(0x06, 0x04, 2, {});
    const Bytes system_guid = rq(0x06, 0x37, 3, {});
    const Bytes privilege = rq(0x06, 0x3B, 4, {0x04});
    const Bytes session_info = rq(0x06, 0x3D, 5, {0x00});
    const Bytes cipher_suites = rq(0x06, 0x54, 6, {0x0E, 0x00, 0x80});
    const Bytes bridged = rq(0x06, 0x34, 7, cat({{0x40}, ipmi_request({0x06, 0x81, 0x01, 0, 9, 0x07, 0x72, 0}, {})}));
    const Bytes chassis_status = rq(0x00, 0x01, 8, {});
    const Bytes chassis_control = rq(0x00, 0x02, 9, {0x01});
    const Bytes close = rq(0x06, 0x3C, 10, {0x0E, 0x0D, 0x0C, 0x0B});
    for (uint8_t suite = 0; suite < 4; ++suite) {
        write("bmcsim", "commands_suite" + std::to_string(suite),
              records(static_cast<uint8_t>(0x01 | (suite << 1)),
                      {{0, get_device_id}, {0, self_test}, {0, system_guid}, {0, privilege}, {0, session_info},
                       {0, cipher_suites}, {0, bridged}, {0, chassis_status}, {0, chassis_control}, {0, close}}));
    }
    write("bmcsim", "mixed_protection",
          records(0x01 | (3 << 1) | 0x20, {{0x10, get_device_id}, {0x20, get_device_id}, {0x30, chassis_status}}));
    write("bmcsim", "standard_keys", records(0x01 | (3 << 1) | 0x08, {{0, get_device_id}, {0, close}}));

    // Requests outside a session.
    const IPMI_MsgHeader caps = {0x06, 0x81, 0x38, 0, 1, 0x07, 0x20, 0};
    RMCPp_SetupState state;
    fuzz::init_state(state, 3);
    uint8_t buffer[64];
    uint32_t length = 0;
    require(Make_GetAuthCapa_v15(&state, &caps, 4, buffer, sizeof buffer, &length) == 0, "capabilities");
    const Bytes ping = {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, 0x07, 0x00, 0x00};
    Bytes v15_suites = {0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0};
    v15_suites.push_back(static_cast<uint8_t>(cipher_suites.size()));
    v15_suites.insert(v15_suites.end(), cipher_suites.begin(), cipher_suites.end());
    write("bmcsim", "sessionless",
          records(0x00, {{0x80, ping}, {0x80, Bytes(buffer, buffer + length)}, {0x80, v15_suites},
                         {0x80, {0xDE, 0xAD, 0xBE, 0xEF}}}));
}

// ------------------------------------------------------------ configuration files

void config_files()
{
    auto text = [](const std::string &t) { return Bytes(t.begin(), t.end()); };
    write("bmcsim_config", "product",
          text("# a developer's BMC\n"
               "address 127.0.0.85,127.0.0.86\n"
               "port 6233\n"
               "user admin:secret:4\n"
               "user :anon:2:disabled\n"
               "standard-keys\n"
               "device-id 0x42\n"
               "device-revision 3\n"
               "firmware 7.31\n"
               "ipmi-version 1.5\n"
               "device-support 0x21\n"
               "manufacturer 0x12345\n"
               "product 0xBEEF\n"
               "aux 01020304\n"
               "power off\n"
               "chassis policy=always-on,overload,last-event=0x02,misc=0x08\n"));
    write("bmcsim_config", "behaviour",
          text("kg 0102030405060708090a0b0c0d0e0f1011121314\n"
               "guid 00112233445566778899aabbccddeeff\n"
               "suites 0,3\n"
               "max-privilege 3\n"
               "max-sessions 2\n"
               "session-id 0x0B0C0D0E\n"
               "seq-start 0xFFFFFFF0\n"
               "bridge-delay 5\n"
               "lenient-window\n"
               "any-protection\n"
               "caps kg-set=1,per-message-auth-disabled,completion-code=0xC1,data-length=4,channel=2\n"
               "reply session:delay=3,copies=2,strays=1,stray=bad-header,faulty=1,then-correct\n"
               "fault rakp2:key-exchange-code,index=3,value=7\n"
               "fault ping:trailing-reserved,index=5\n"
               "fault session:bad-confidentiality-pad-length,value=16\n"));
    write("bmcsim_config", "bad_number", text("port 0x1FFFFFFFFFFFFFFFFF\n"));
    write("bmcsim_config", "includes_null", text("config /dev/null\nuser a:b\n"));
    // A file that names itself.
    write("bmcsim_config", "includes_itself", text("config @self\n"));
}

// ------------------------------------------------------------ the tool's decoders

void decoders()
{
    // The data after the completion code.
    const Bytes device_id(kDeviceIdData.begin() + 1, kDeviceIdData.end());
    write("cli_decode", "device_id", cat({{0}, device_id, {0x01, 0x02, 0x03, 0x04}}));
    write("cli_decode", "device_id_short", cat({{0}, Bytes(device_id.begin(), device_id.begin() + 10)}));
    write("cli_decode", "self_test_passed", {1, 0x55, 0x00});
    write("cli_decode", "self_test_corrupted", {1, 0x57, 0xFF});
    write("cli_decode", "chassis_status", {2, 0x41, 0x12, 0x08, 0x00});
    write("cli_decode", "chassis_status_short", {2, 0x41, 0x12});
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    root = argv[1];
    pong_and_capabilities();
    establishment();
    session_packets();
    ipmi_headers();
    aes();
    simulator();
    config_files();
    decoders();
    return 0;
}
