// AES-CBC-128 payload confidentiality. The payload field is a 16-byte IV in
// clear followed by the encrypted data, the pad 1..p and the pad length p.
// The block cipher is driven through the library's own cipher API, one block
// per call, with the CBC chain kept here.
#include <cstdio>

#include "arguments.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr int kBlock = 16;

constexpr char kHexDigits[] = "0123456789abcdef";

}  // namespace

extern "C" {

RMCPP_API void BinToHex(char *text, const uint8_t *bytes, int bits)
{
    if (text == nullptr || bytes == nullptr) return;
    const int count = bits / 8;
    for (int i = 0; i < count; ++i) {
        text[2 * i] = kHexDigits[bytes[i] >> 4];
        text[2 * i + 1] = kHexDigits[bytes[i] & 0x0F];
    }
}

// The key schedule is rebuilt from its hexadecimal text on every call: no
// key outlives one packet.
RMCPP_API int AES_CBC_128_Process(const uint8_t *key, const uint8_t *iv, uint8_t *data, int32_t length, int direction)
{
    if (rmcpp::args::any_null(key, iv) || (data == nullptr && length != 0)) return rmcpp::args::null_input();
    if (length < 0 || length % kBlock != 0) {
        std::printf("Error : Invalid data length in Confidential process.\n");
        return 1;
    }
    // makeKey refuses a direction byte other than 0 or 1; wider values are
    // refused the same way rather than cut to a byte.
    if (direction != DIR_ENCRYPT_KEY && direction != DIR_DECRYPT_KEY) {
        std::printf("makeKey error %d\n", ERR_KEY_DIRECTION);
        return 1;
    }

    char key_text[2 * kBlock + 1] = {};
    BinToHex(key_text, key, 128);
    KeyRecord key_record;
    const int32_t made = makeKey(&key_record, static_cast<uint8_t>(direction), 128, key_text);
    if (made != 1) {
        std::printf("makeKey error %d\n", made);
        return 1;
    }

    // Set up by hand rather than through cipherInit: the IV is binary here.
    CipherRecord cipher;
    cipher.mode = MODE_CBC_BLOCKS;
    Reader(iv, kBlock).bytes(cipher.IV, kBlock);

    uint8_t chain[kBlock];
    Reader(iv, kBlock).bytes(chain, kBlock);

    const size_t total = length > 0 ? static_cast<size_t>(length) : 0;
    Reader in(data, total);
    Writer out(data, total);
    while (in.remaining() >= kBlock) {
        uint8_t block[kBlock];
        in.bytes(block, kBlock);
        Reader(chain, kBlock).bytes(cipher.IV, kBlock);
        if (direction == DIR_ENCRYPT_KEY) {
            const int32_t done = blockEncrypt(&cipher, &key_record, block, 128, chain);
            if (done != 128) {
                std::printf("blockEncrypt error %d\n", done);
                return 1;
            }
            out.bytes(chain, kBlock);
        } else {
            uint8_t plain[kBlock];
            const int32_t done = blockDecrypt(&cipher, &key_record, block, 128, plain);
            if (done != 128) {
                std::printf("blockDecrypt error %d\n", done);
                return 1;
            }
            Reader(block, kBlock).bytes(chain, kBlock);
            out.bytes(plain, kBlock);
        }
    }
    return 0;
}

RMCPP_API int ConfidentialityAlgorithm(uint8_t algorithm, uint8_t *field, uint32_t field_length, const uint8_t *key,
                                       int direction)
{
    if (rmcpp::args::any_null(field, key)) return rmcpp::args::null_input();
    switch (algorithm) {
    case 0:
        return 0;
    case 1: {
        uint8_t iv[kBlock];
        // A field too short to hold its IV is refused rather than read past.
        const bool have_iv = Reader(field, field_length).bytes(iv, kBlock);
        const auto remaining = static_cast<uint16_t>(field_length - kBlock);
        if (!have_iv || AES_CBC_128_Process(key, iv, field + kBlock, remaining, direction) != 0) {
            lib_log(3, "Failed to do AES-CBC-128 Encrypted Payload Format.\n");
            return 1;
        }
        return 0;
    }
    default:
        lib_log(3, "Type %02x is Not supported Confidentiality Algorithm.\n", algorithm);
        return 1;
    }
}

}  // extern "C"
