// The block-cipher interface over the Rijndael core: key records made from
// hexadecimal text, ECB, CBC and CFB-1 over whole blocks (lengths in bits),
// padded ECB and CBC (lengths in bytes), and single-block round-limited
// calls for intermediate values.
#include <cstring>

#include "rmcpp_aes.h"

namespace {

constexpr int kBlockBytes = 16;
constexpr int kBlockBits = 128;

int hex_digit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Two characters a byte, high digit first. Returns the number of bytes
// decoded before the first character that is not a hexadecimal digit.
int decode_hex(const char *text, uint8_t *out, int bytes)
{
    for (int i = 0; i < bytes; ++i) {
        const int high = hex_digit(text[2 * i]);
        const int low = high < 0 ? -1 : hex_digit(text[2 * i + 1]);
        if (low < 0) return i;
        out[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return bytes;
}

void xor_block(uint8_t *out, const uint8_t *a, const uint8_t *b)
{
    for (int i = 0; i < kBlockBytes; ++i) out[i] = a[i] ^ b[i];
}

// IV <<= 1 with the new bit in bit 0 of byte 15.
void shift_in_bit(uint8_t *iv, uint8_t bit)
{
    for (int t = 0; t < kBlockBytes - 1; ++t) iv[t] = static_cast<uint8_t>(iv[t] << 1 | iv[t + 1] >> 7);
    iv[kBlockBytes - 1] = static_cast<uint8_t>(iv[kBlockBytes - 1] << 1 | bit);
}

// A record that makeKey filled: a direction it knows and the round count of
// a 128-, 192- or 256-bit schedule. Anything else would index the schedule
// out of its bounds.
bool made_key(const KeyRecord *key)
{
    return (key->direction == DIR_ENCRYPT_KEY || key->direction == DIR_DECRYPT_KEY) &&
           (key->Nr == 10 || key->Nr == 12 || key->Nr == 14);
}

uint8_t bit_at(const uint8_t *block, int k)
{
    return (block[k / 8] >> (7 - k % 8)) & 1;
}

void cfb1_encrypt_block(CipherRecord *cipher, const KeyRecord *key, const uint8_t *input, uint8_t *out)
{
    uint8_t keystream[kBlockBytes];
    std::memmove(out, input, kBlockBytes);
    for (int k = 0; k < kBlockBits; ++k) {
        rijndaelEncrypt(key->ek, key->Nr, cipher->IV, keystream);
        out[k / 8] ^= static_cast<uint8_t>((keystream[0] & 0x80) >> (k % 8));
        shift_in_bit(cipher->IV, bit_at(out, k));
    }
}

void cfb1_decrypt_block(CipherRecord *cipher, const KeyRecord *key, const uint8_t *input, uint8_t *out)
{
    uint8_t keystream[kBlockBytes];
    std::memmove(out, input, kBlockBytes);
    for (int k = 0; k < kBlockBits; ++k) {
        rijndaelEncrypt(key->ek, key->Nr, cipher->IV, keystream);
        shift_in_bit(cipher->IV, bit_at(input, k));
        out[k / 8] ^= static_cast<uint8_t>((keystream[0] & 0x80) >> (k % 8));
    }
}

// CBC decryption of one block; the input is saved in the IV before the
// output is written, so in-place decryption works.
void cbc_decrypt_block(CipherRecord *cipher, const KeyRecord *key, const uint8_t *input, uint8_t *out)
{
    uint8_t plain[kBlockBytes];
    rijndaelDecrypt(key->rk, key->Nr, input, plain);
    xor_block(plain, plain, cipher->IV);
    std::memmove(cipher->IV, input, kBlockBytes);
    std::memcpy(out, plain, kBlockBytes);
}

}  // namespace

extern "C" {

int32_t makeKey(KeyRecord *key, uint8_t direction, int32_t keyLen, const char *keyMaterial)
{
    if (key == nullptr) return ERR_KEY_RECORD;
    if (direction != DIR_ENCRYPT_KEY && direction != DIR_DECRYPT_KEY) return ERR_KEY_DIRECTION;
    key->direction = direction;
    if (keyLen != 128 && keyLen != 192 && keyLen != 256) return ERR_KEY_MATERIAL;
    key->keyLen = keyLen;
    if (keyMaterial != nullptr) {
        // Bounded copy: stops at a NUL, pads with NULs, adds no terminator
        // of its own when the text is keyLen/4 characters long.
        const size_t digits = static_cast<size_t>(keyLen / 4);
        size_t n = 0;
        for (; n < digits && keyMaterial[n] != '\0'; ++n) key->keyMaterial[n] = keyMaterial[n];
        for (; n < digits; ++n) key->keyMaterial[n] = '\0';
    }
    uint8_t cipherKey[32];
    if (decode_hex(key->keyMaterial, cipherKey, keyLen / 8) != keyLen / 8) return ERR_KEY_MATERIAL;
    if (direction == DIR_ENCRYPT_KEY)
        key->Nr = rijndaelKeySetupEnc(key->rk, cipherKey, keyLen);
    else
        key->Nr = rijndaelKeySetupDec(key->rk, cipherKey, keyLen);
    rijndaelKeySetupEnc(key->ek, cipherKey, keyLen);
    return 1;
}

// The mode is judged first, so a bad mode is ERR_CIPHER_MODE even without a
// record; a null record with a valid mode is ERR_CIPHER_STATE.
int32_t cipherInit(CipherRecord *cipher, uint8_t mode, const char *IV)
{
    if (mode != MODE_ECB_BLOCKS && mode != MODE_CBC_BLOCKS && mode != MODE_CFB1_BITS) return ERR_CIPHER_MODE;
    if (cipher == nullptr) return ERR_CIPHER_STATE;
    cipher->mode = mode;
    if (IV == nullptr) {
        std::memset(cipher->IV, 0, sizeof cipher->IV);
        return 1;
    }
    if (decode_hex(IV, cipher->IV, kBlockBytes) != kBlockBytes) return ERR_CIPHER_IV;
    return 1;
}

int32_t blockEncrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                     uint8_t *outBuffer)
{
    if (cipher == nullptr || key == nullptr || key->direction == DIR_DECRYPT_KEY || !made_key(key))
        return ERR_CIPHER_STATE;
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0) return 0;
    const int numBlocks = inputLen / kBlockBits;

    switch (cipher->mode) {
    case MODE_ECB_BLOCKS:
        for (int i = 0; i < numBlocks; ++i)
            rijndaelEncrypt(key->rk, key->Nr, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        break;
    case MODE_CBC_BLOCKS: {
        // The record's IV stays as it was: every call starts from it.
        const uint8_t *iv = cipher->IV;
        for (int i = 0; i < numBlocks; ++i) {
            alignas(4) uint8_t block[kBlockBytes];
            uint8_t *out = outBuffer + kBlockBytes * i;
            xor_block(block, input + kBlockBytes * i, iv);
            rijndaelEncrypt(key->rk, key->Nr, block, out);
            iv = out;
        }
        break;
    }
    case MODE_CFB1_BITS:
        for (int i = 0; i < numBlocks; ++i)
            cfb1_encrypt_block(cipher, key, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        break;
    default:
        return ERR_CIPHER_STATE;
    }
    return kBlockBits * numBlocks;
}

int32_t blockDecrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                     uint8_t *outBuffer)
{
    if (cipher == nullptr || key == nullptr) return ERR_CIPHER_STATE;
    // CFB-1 runs the encryption schedule ek, so it accepts either direction.
    if (cipher->mode != MODE_CFB1_BITS && key->direction == DIR_ENCRYPT_KEY) return ERR_CIPHER_STATE;
    if (!made_key(key)) return ERR_CIPHER_STATE;
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0) return 0;
    const int numBlocks = inputLen / kBlockBits;

    switch (cipher->mode) {
    case MODE_ECB_BLOCKS:
        for (int i = 0; i < numBlocks; ++i)
            rijndaelDecrypt(key->rk, key->Nr, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        break;
    case MODE_CBC_BLOCKS:
        // Unlike encryption, the record's IV advances to the last ciphertext block.
        for (int i = 0; i < numBlocks; ++i)
            cbc_decrypt_block(cipher, key, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        break;
    case MODE_CFB1_BITS:
        for (int i = 0; i < numBlocks; ++i)
            cfb1_decrypt_block(cipher, key, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        break;
    default:
        return ERR_CIPHER_STATE;
    }
    return kBlockBits * numBlocks;
}

int32_t padEncrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputOctets,
                   uint8_t *outBuffer)
{
    if (cipher == nullptr || key == nullptr || key->direction == DIR_DECRYPT_KEY || !made_key(key))
        return ERR_CIPHER_STATE;
    if (input == nullptr || outBuffer == nullptr || inputOctets <= 0) return 0;
    const int numBlocks = inputOctets / kBlockBytes;
    // A whole block of padding when the length is a multiple of 16.
    const int padLen = kBlockBytes - (inputOctets - kBlockBytes * numBlocks);
    const int tail = kBlockBytes - padLen;
    alignas(4) uint8_t block[kBlockBytes];

    switch (cipher->mode) {
    case MODE_ECB_BLOCKS:
        for (int i = 0; i < numBlocks; ++i)
            rijndaelEncrypt(key->rk, key->Nr, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        std::memcpy(block, input + kBlockBytes * numBlocks, static_cast<size_t>(tail));
        std::memset(block + tail, padLen, static_cast<size_t>(padLen));
        rijndaelEncrypt(key->rk, key->Nr, block, outBuffer + kBlockBytes * numBlocks);
        break;
    case MODE_CBC_BLOCKS: {
        const uint8_t *iv = cipher->IV;
        for (int i = 0; i < numBlocks; ++i) {
            uint8_t *out = outBuffer + kBlockBytes * i;
            xor_block(block, input + kBlockBytes * i, iv);
            rijndaelEncrypt(key->rk, key->Nr, block, out);
            iv = out;
        }
        const uint8_t *rest = input + kBlockBytes * numBlocks;
        for (int i = 0; i < kBlockBytes; ++i)
            block[i] = static_cast<uint8_t>((i < tail ? rest[i] : padLen) ^ iv[i]);
        rijndaelEncrypt(key->rk, key->Nr, block, outBuffer + kBlockBytes * numBlocks);
        break;
    }
    default:
        return ERR_CIPHER_STATE;
    }
    return kBlockBytes * (numBlocks + 1);
}

int32_t padDecrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputOctets,
                   uint8_t *outBuffer)
{
    if (cipher == nullptr || key == nullptr || key->direction == DIR_ENCRYPT_KEY || !made_key(key))
        return ERR_CIPHER_STATE;
    if (input == nullptr || outBuffer == nullptr || inputOctets < 1) return 0;
    if (inputOctets % kBlockBytes != 0) return ERR_PADDING;
    const int numBlocks = inputOctets / kBlockBytes;
    const uint8_t *last = input + kBlockBytes * (numBlocks - 1);
    uint8_t block[kBlockBytes];
    int padLen = 0;

    switch (cipher->mode) {
    case MODE_ECB_BLOCKS:
        for (int i = 0; i < numBlocks - 1; ++i)
            rijndaelDecrypt(key->rk, key->Nr, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        rijndaelDecrypt(key->rk, key->Nr, last, block);
        padLen = block[kBlockBytes - 1];
        // ECB takes 0..15: a whole block of padding (which padEncrypt
        // writes for a multiple of 16) is refused, padding 0 keeps 16 bytes.
        if (padLen >= kBlockBytes) return ERR_PADDING;
        break;
    case MODE_CBC_BLOCKS:
        for (int i = 0; i < numBlocks - 1; ++i)
            cbc_decrypt_block(cipher, key, input + kBlockBytes * i, outBuffer + kBlockBytes * i);
        // The IV is not advanced past the last block.
        rijndaelDecrypt(key->rk, key->Nr, last, block);
        xor_block(block, block, cipher->IV);
        padLen = block[kBlockBytes - 1];
        if (padLen == 0 || padLen > kBlockBytes) return ERR_PADDING;
        break;
    default:
        return ERR_CIPHER_STATE;
    }
    for (int i = kBlockBytes - padLen; i < kBlockBytes; ++i)
        if (block[i] != padLen) return ERR_PADDING;
    std::memcpy(outBuffer + kBlockBytes * (numBlocks - 1), block, static_cast<size_t>(kBlockBytes - padLen));
    return kBlockBytes * numBlocks - padLen;
}

int32_t cipherUpdateRounds(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t /*inputLen*/,
                           uint8_t *outBuffer, int32_t rounds)
{
    if (cipher == nullptr || key == nullptr) return ERR_CIPHER_STATE;
    if (key->direction != DIR_ENCRYPT_KEY && key->direction != DIR_DECRYPT_KEY) return ERR_KEY_DIRECTION;
    if (!made_key(key)) return ERR_CIPHER_STATE;
    if (input == nullptr || outBuffer == nullptr) return 0;
    uint8_t block[kBlockBytes];
    std::memcpy(block, input, kBlockBytes);
    switch (key->direction) {
    case DIR_ENCRYPT_KEY: rijndaelEncryptRound(key->rk, key->Nr, block, rounds); break;
    case DIR_DECRYPT_KEY: rijndaelDecryptRound(key->rk, key->Nr, block, rounds); break;
    default: return ERR_KEY_DIRECTION;
    }
    std::memcpy(outBuffer, block, kBlockBytes);
    return 1;
}

}  // extern "C"
