// The keyed state of one open session's packets, made once when the
// session's keys are made and kept until it is released: the AES-128 key
// schedules of K2 and an HMAC keyed with the integrity key. With it
// an exchange expands no key and makes no context.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hmac.h"
#include "rmcpp.h"

namespace rmcpp::keys {

class PacketKeys {
public:
    PacketKeys() = default;
    ~PacketKeys();
    PacketKeys(const PacketKeys &) = delete;
    PacketKeys &operator=(const PacketKeys &) = delete;

    // Keys for the algorithms and keys `s` holds now; `sha256_k1` is the
    // 32-byte K1 of an HMAC-SHA256-128 session, null otherwise. False when
    // a key cannot be made; the session then keys every packet afresh.
    bool make(const RMCPp_Session &s, const uint8_t *sha256_k1);

    // True while `s` still holds the algorithms and keys these were made
    // from. A host may write its record; the record always wins.
    bool match(const RMCPp_Session &s) const;

    // The integrity code over `data`: the whole HMAC, 20 bytes (SHA-1) or
    // 32 (SHA-256), into `out`. False when the session has no integrity key.
    bool integrity_code(const uint8_t *data, uint32_t length, uint8_t out[32]);

    // AES-CBC-128 over a confidentiality payload field (16-byte IV, then
    // whole blocks), in place; direction 0 encrypts, 1 decrypts. Returns 0
    // or 1 as ConfidentialityAlgorithm does, with its message on failure.
    int confidentiality(uint8_t *field, uint32_t field_length, int direction);

private:
    uint8_t integrity_alg_ = 0;
    uint8_t confidentiality_alg_ = 0;
    uint8_t sik_[20] = {};
    uint8_t aes_key_[16] = {};
    HmacKey integrity_;
    KeyRecord encrypt_{};
    KeyRecord decrypt_{};
};

}  // namespace rmcpp::keys
