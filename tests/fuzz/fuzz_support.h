// What the fuzz targets and their seed generator share: one fixed console
// and managed system (user, password, random numbers, GUID, session IDs and
// keys), so that the messages the generator captures from the simulator are
// the ones the targets' checks accept, and a cursor that takes option bytes
// off the front of a fuzz input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "rmcpp.h"

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// Takes option bytes off the front of the input; zeros once it runs out.
class Options {
public:
    Options(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    uint8_t u8()
    {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }
    uint32_t u32le()
    {
        uint32_t v = u8();
        v |= static_cast<uint32_t>(u8()) << 8;
        v |= static_cast<uint32_t>(u8()) << 16;
        v |= static_cast<uint32_t>(u8()) << 24;
        return v;
    }
    // The rest of the input, in a buffer of exactly its size, so that a read
    // one byte past the end is caught by AddressSanitizer.
    Bytes rest() const { return Bytes(data_, data_ + size_); }
    // At most n of the next bytes, likewise.
    Bytes take(size_t n)
    {
        if (n > size_) n = size_;
        Bytes b(data_, data_ + n);
        data_ += n;
        size_ -= n;
        return b;
    }
    size_t size() const { return size_; }

private:
    const uint8_t *data_;
    size_t size_;
};

// ------------------------------------------------------------ the fixed pair

constexpr char kUser[] = "fuzzadmin";
constexpr char kPassword[] = "fuzzpassword";
constexpr uint8_t kRole = 4;  // Administrator, name and privilege look-up
constexpr uint32_t kConsoleSessionId = 0x1A2B3C4D;
constexpr uint32_t kBmcSessionId = 0x0B0C0D0E;
constexpr uint8_t kRm[16] = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87,
                             0x98, 0xA9, 0xBA, 0xCB, 0xDC, 0xED, 0xFE, 0x0F};
constexpr uint8_t kRc[16] = {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7,
                             0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF};
constexpr uint8_t kGuid[16] = {0xA1, 0xB2, 0xC3, 0xD4, 0x10, 0x20, 0x30, 0x40,
                               0x50, 0x60, 0x70, 0x80, 0x90, 0xA0, 0xB0, 0xC0};

// Session keys of the session packet target: integrity key and cipher key.
constexpr uint8_t kSik[20] = {0x5A, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09,
                              0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0xA5};
constexpr uint8_t kCipherKey[20] = {0x3C, 0x4B, 0x5A, 0x69, 0x78, 0x87, 0x96, 0xA5, 0xB4, 0xC3,
                                    0xD2, 0xE1, 0xF0, 0x0F, 0x1E, 0x2D, 0x00, 0x00, 0x00, 0x00};

// The IPMI request every response target expects an answer to: Get Device
// ID from the console's software ID 0x81 to the BMC at 0x20, sequence 1.
constexpr IPMI_MsgHeader kGetDeviceId = {0x06, 0x81, 0x01, 0, 1, 0x07, 0x20, 0};

// The establishment state of the console after Get Channel Authentication
// Capabilities, proposing cipher suite `suite` (0..3).
inline void init_state(RMCPp_SetupState &state, unsigned suite)
{
    std::memset(&state, 0, sizeof state);
    const size_t name_length = std::strlen(kUser);
    std::memcpy(state.user_name, kUser, name_length);
    state.user_name_length = static_cast<uint8_t>(name_length);
    std::memcpy(state.user_password, kPassword, std::strlen(kPassword));
    state.user_key_length = 20;
    state.req_auth_alg = suite >= 1 ? 1 : 0;
    state.req_integrity_alg = suite >= 2 ? 1 : 0;
    state.req_confidentiality_alg = suite >= 3 ? 1 : 0;
    state.console_session_id = kConsoleSessionId;
    state.recv_window_auth = 0xFFFF;
    state.recv_window_unauth = 0xFFFF;
    state.socket_fd = -1;
    state.rs_addr = 0x20;
}

// The state as Open Session and RAKP 2 leave it.
inline void after_open_session(RMCPp_SetupState &state)
{
    state.auth_alg = state.req_auth_alg;
    state.integrity_alg = state.req_integrity_alg;
    state.confidentiality_alg = state.req_confidentiality_alg;
    state.bmc_session_id = kBmcSessionId;
    std::memcpy(state.bmc_guid, kGuid, sizeof kGuid);
}

// An open session with the fixed keys; the session ID the console checks
// is also the one it sends, so packets it builds pass its own checks.
inline void init_session(RMCPp_Session &s, uint8_t integrity, uint8_t confidentiality)
{
    std::memset(&s, 0, sizeof s);
    s.integrity_alg = integrity;
    s.confidentiality_alg = confidentiality;
    s.console_session_id = kConsoleSessionId;
    s.bmc_session_id = kConsoleSessionId;
    s.send_seq_auth = 1;
    s.send_seq_unauth = 1;
    s.recv_window_auth = 0xFFFF;
    s.recv_window_unauth = 0xFFFF;
    std::memcpy(s.sik, kSik, sizeof kSik);
    std::memcpy(s.cipher_key, kCipherKey, sizeof kCipherKey);
    s.socket_fd = -1;
}

}  // namespace fuzz
