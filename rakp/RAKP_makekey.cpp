// The numbers and keys of an RMCP+ establishment: the remote console session
// ID, the console random number Rm, the session integrity key (SIK) and the
// cipher key K2. Every keyed hash goes through CalculateAuthCode.
#include <sys/time.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "arguments.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "session_options.h"
#include "wire.h"

using rmcpp::wire::Writer;

namespace {

// Process-wide generator state, shared by every establishment. Sessions
// are set up on several threads at once, so all of it (and the C library
// generator's re-seed and draws) changes under generator_lock: each session
// ID and each random number is made whole by one thread, and every thread
// gets numbers no other thread got.
std::mutex generator_lock;
uint16_t seq;        // ORed into the low half of every session ID
uint8_t Key[20];     // HMAC key of the random-number generator
uint32_t Cp;         // microseconds of the clock at the first random number
uint32_t Cq;         // random numbers made so far

// The C library generator is re-seeded on every call, so IDs made within
// the same two seconds share their upper half; only `seq` sets them apart.
// The caller holds generator_lock.
uint32_t next_session_id()
{
    srand(static_cast<unsigned>(time(nullptr)) >> 1);
    for (;;) {
        const uint32_t r = static_cast<uint32_t>(rand());
        // A value below 0x10000 is moved into the upper half, not discarded.
        uint32_t candidate = (r & 0xFFFF0000u) != 0 ? (r & 0xFFFF0000u) : ((r & 0xFFFFu) << 16);
        candidate |= seq;
        ++seq;
        if (candidate != 0) return candidate;
    }
}

// Rm is the first 16 bytes of HMAC-SHA1 under Key over Cp | Cq. Key and Cp
// are made on the first call (or whenever the host sets flag_1st_random
// again); later numbers differ only by the counter Cq. The caller holds
// generator_lock and logs the message left in `failure`.
int next_random_number(uint8_t *out, const char *&failure)
{
    if (rmcpp::load_setting(flag_1st_random)) {
        struct timeval now;
        if (gettimeofday(&now, nullptr) != 0) {
            failure = "Could not get current time.\n";
            return 1;
        }
        Cp = static_cast<uint32_t>(now.tv_usec);
        Writer key(Key, sizeof Key);
        for (int i = 0; i < 5; ++i) key.u32le(next_session_id());
        rmcpp::store_setting(flag_1st_random, uint8_t{0});
    }

    uint8_t input[8];
    Writer w(input, sizeof input);
    w.u32le(Cp).u32le(Cq);

    uint8_t result[20];
    uint32_t result_length = 0;
    if (CalculateAuthCode(1, input, sizeof input, Key, sizeof Key, result, &result_length) != 0) {
        failure = "Could not generate random number.\n\n";
        return 1;
    }
    if (result_length != 20) {
        failure = "Invalid data length of generating Auth code.\n\n";
        return 1;
    }
    std::memcpy(out, result, 16);
    ++Cq;
    return 0;
}

// K2 is HMAC-SHA1 under the SIK over sixty-four 0x02 bytes. The constant is
// 64 bytes long on purpose; 20 bytes of 0x02 would give another key.
constexpr auto kK2Constant = [] {
    std::array<uint8_t, 64> c{};
    for (auto &b : c) b = 0x02;
    return c;
}();

}  // namespace

extern "C" {

RMCPP_API uint8_t flag_1st_random = 1;

RMCPP_API uint32_t MakeSessionID(void)
{
    const std::lock_guard<std::mutex> hold(generator_lock);
    return next_session_id();
}

// The message of a failure goes out after the lock is released.
RMCPP_API int MakeRandomNumber(uint8_t *out)
{
    if (out == nullptr) return rmcpp::args::null_input();
    const char *failure = nullptr;
    int result;
    {
        const std::lock_guard<std::mutex> hold(generator_lock);
        result = next_random_number(out, failure);
    }
    if (failure != nullptr) lib_log(3, "%s", failure);
    return result;
}

// SIK = HMAC(key, Rm | Rc | role | N | user name). The key is Kg when the
// channel reports Kg set (even an empty one, when two-key login was not
// asked), otherwise the zero-padded 20-byte password.
RMCPP_API int MakeSIK(RMCPp_SetupState *state, uint8_t role, const uint8_t *rm, const uint8_t *rc)
{
    if (rmcpp::args::any_null(state, rm, rc)) return rmcpp::args::null_input();
    if (state->user_name_length > sizeof state->user_name || state->bmc_key_length > sizeof state->bmc_key)
        return rmcpp::args::invalid_length();
    if (state->req_auth_alg == 0) {
        std::memset(state->sik, 0, sizeof state->sik);
        return 0;
    }
    const bool sha256 = rmcpp::ext::sha256_auth(state, state->req_auth_alg);
    if (state->req_auth_alg != 1 && !sha256) {
        lib_log(3, "Error : Not - supported Authentication algorithm.\n");
        return 1;
    }

    uint8_t input[50];
    Writer w(input, sizeof input);
    w.bytes(rm, 16).bytes(rc, 16).u8(role).u8(state->user_name_length).bytes(state->user_name,
                                                                               state->user_name_length);

    const uint8_t *key = state->user_password;
    uint32_t key_length = 20;
    if (state->kg_status != 0) {
        key = state->bmc_key;
        key_length = state->bmc_key_length;
    }

    if (sha256) {
        // The 32-byte SIK lives with the establishment's options; the state
        // record's 20 bytes get its head.
        rmcpp::ext::Establishment *e = rmcpp::ext::active(state);
        if (!w.ok() || !rmcpp::hmac_sha256(key, key_length, input, static_cast<uint32_t>(w.size()), e->sik)) {
            lib_log(3, "Could not calculate Auth Code.\n");
            return 1;
        }
        std::memcpy(state->sik, e->sik, sizeof state->sik);
        return 0;
    }

    uint8_t result[20];
    uint32_t result_length = 30;
    if (!w.ok() || CalculateAuthCode(state->req_auth_alg, input, static_cast<uint32_t>(w.size()), key, key_length,
                                     result, &result_length) != 0) {
        lib_log(3, "Could not calculate Auth Code.\n");
        return 1;
    }
    std::memcpy(state->sik, result, sizeof state->sik);
    return 0;
}

// K2 = HMAC-SHA1(SIK, 0x02 x 64); its first 16 bytes are the AES-128 key.
RMCPP_API int MakeConfidentialityKey(RMCPp_SetupState *state)
{
    if (state == nullptr) return rmcpp::args::null_input();
    if (state->req_confidentiality_alg == 0) {
        std::memset(state->cipher_key, 0, sizeof state->cipher_key);
        return 0;
    }
    if (state->req_confidentiality_alg != 1) {
        lib_log(3, "Not-supported Confidentiality Algorithm in making key.\n");
        return 1;
    }
    if (rmcpp::ext::sha256_auth(state, state->req_auth_alg)) {
        // K2 = HMAC-SHA256(SIK, 0x02 x 20), as IPMI v2.0 defines it; AES-128
        // takes its first 16 bytes.
        const rmcpp::ext::Establishment *e = rmcpp::ext::active(state);
        uint8_t k2[32];
        if (!rmcpp::hmac_sha256(e->sik, sizeof e->sik, kK2Constant.data(), 20, k2)) {
            lib_log(3, "Could not calculate Auth Code.\n");
            return 1;
        }
        std::memcpy(state->cipher_key, k2, sizeof state->cipher_key);
        return 0;
    }
    uint32_t result_length = 0;
    // Only the reported length decides; the result code is not looked at.
    CalculateAuthCode(state->req_auth_alg, kK2Constant.data(), kK2Constant.size(), state->sik, sizeof state->sik,
                      state->cipher_key, &result_length);
    if (result_length != 20) {
        std::printf("Error : Invalid data length returned in making AES-CBC-128 key.\n");
        return 1;
    }
    return 0;
}

}  // extern "C"
