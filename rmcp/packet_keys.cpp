#include "packet_keys.h"

#include <openssl/crypto.h>

#include <cstdio>
#include <cstring>

#include "session_options.h"

namespace rmcpp::keys {

namespace {

constexpr int kBlock = 16;

// makeKey takes its key as hexadecimal text.
void hex_text(const uint8_t *key, char (&text)[2 * kBlock + 1])
{
    BinToHex(text, key, 128);
    text[2 * kBlock] = '\0';
}

}  // namespace

PacketKeys::~PacketKeys()
{
    OPENSSL_cleanse(&encrypt_, sizeof encrypt_);
    OPENSSL_cleanse(&decrypt_, sizeof decrypt_);
    OPENSSL_cleanse(sik_, sizeof sik_);
    OPENSSL_cleanse(aes_key_, sizeof aes_key_);
}

bool PacketKeys::make(const RMCPp_Session &s, const uint8_t *sha256_k1)
{
    integrity_alg_ = s.integrity_alg;
    confidentiality_alg_ = s.confidentiality_alg;
    std::memcpy(sik_, s.sik, sizeof sik_);
    std::memcpy(aes_key_, s.cipher_key, sizeof aes_key_);

    if (s.integrity_alg == 1)
        integrity_.set(Digest::Sha1, s.sik, sizeof s.sik);
    else if (s.integrity_alg == ext::kHmacSha256_128 && sha256_k1 != nullptr)
        integrity_.set(Digest::Sha256, sha256_k1, 32);
    if (s.integrity_alg != 0 && !integrity_.keyed()) return false;

    if (s.confidentiality_alg == 1) {
        char text[2 * kBlock + 1];
        hex_text(aes_key_, text);
        const bool made = makeKey(&encrypt_, DIR_ENCRYPT_KEY, 128, text) == 1 &&
                          makeKey(&decrypt_, DIR_DECRYPT_KEY, 128, text) == 1;
        OPENSSL_cleanse(text, sizeof text);
        if (!made) return false;
    }
    return true;
}

bool PacketKeys::match(const RMCPp_Session &s) const
{
    return s.integrity_alg == integrity_alg_ && s.confidentiality_alg == confidentiality_alg_ &&
           std::memcmp(s.sik, sik_, sizeof sik_) == 0 && std::memcmp(s.cipher_key, aes_key_, sizeof aes_key_) == 0;
}

bool PacketKeys::integrity_code(const uint8_t *data, uint32_t length, uint8_t out[32])
{
    if (!integrity_.keyed()) return false;
    integrity_.code(data, length, out);
    return true;
}

int PacketKeys::confidentiality(uint8_t *field, uint32_t field_length, int direction)
{
    // The same cuts and refusals as ConfidentialityAlgorithm and
    // AES_CBC_128_Process: the data length is taken to 16 bits and must be
    // whole blocks.
    const auto length = static_cast<uint16_t>(field_length - kBlock);
    bool done = field_length >= kBlock && confidentiality_alg_ == 1;
    if (done && length % kBlock != 0) {
        std::printf("Error : Invalid data length in Confidential process.\n");
        done = false;
    }
    if (done) {
        CipherRecord cipher;
        cipher.mode = MODE_CBC_BLOCKS;
        std::memcpy(cipher.IV, field, kBlock);
        uint8_t *data = field + kBlock;
        const int32_t bits = static_cast<int32_t>(length) * 8;
        const int32_t processed = direction == DIR_ENCRYPT_KEY ? blockEncrypt(&cipher, &encrypt_, data, bits, data)
                                                               : blockDecrypt(&cipher, &decrypt_, data, bits, data);
        done = length == 0 || processed == bits;
    }
    if (!done) {
        lib_log(3, "Failed to do AES-CBC-128 Encrypted Payload Format.\n");
        return 1;
    }
    return 0;
}

}  // namespace rmcpp::keys
