// The AES cipher API decrypting with padding.
//
// Option byte 0:
//   bits 0-1  key length: 128, 192 or 256 bits (3 is 128 too)
//   bit 2     CBC (else ECB)
//   bit 3     the rest of the input is clear text, encrypted here block by
//             block without padding, so that decryption yields the fuzzer's
//             bytes and their padding; what padDecrypt keeps must then be a
//             prefix of the clear text
//   bit 4     the key is taken as hexadecimal text from the input (the key
//             length's worth of characters, validated by makeKey) and the
//             IV for CBC likewise (32 characters, validated by cipherInit)
// Without bit 4 the key is fixed and the IV is 16 option bytes.
#include <algorithm>
#include <cstdio>
#include <string>

#include "fuzz_support.h"

namespace {

constexpr char kKeyText[] = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

std::string hex_of(const fuzz::Bytes &b)
{
    std::string s;
    char two[3];
    for (uint8_t v : b) {
        std::snprintf(two, sizeof two, "%02x", v);
        s += two;
    }
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t options = in.u8();
    const int key_bits = (options & 3) == 1 ? 192 : (options & 3) == 2 ? 256 : 128;
    const uint8_t mode = (options & 4) ? MODE_CBC_BLOCKS : MODE_ECB_BLOCKS;

    std::string key_text, iv_text;
    if (options & 0x10) {
        const fuzz::Bytes k = in.take(static_cast<size_t>(key_bits / 4));
        key_text.assign(k.begin(), k.end());
        const fuzz::Bytes v = in.take(32);
        iv_text.assign(v.begin(), v.end());
    } else {
        key_text.assign(kKeyText, static_cast<size_t>(key_bits / 4));
        iv_text = hex_of(in.take(16));
        iv_text.resize(32, '0');
    }

    KeyRecord decrypt_key, encrypt_key;
    if (makeKey(&decrypt_key, DIR_DECRYPT_KEY, key_bits, key_text.c_str()) != 1) return 0;
    if (makeKey(&encrypt_key, DIR_ENCRYPT_KEY, key_bits, key_text.c_str()) != 1) __builtin_trap();
    CipherRecord cipher;
    if (cipherInit(&cipher, mode, iv_text.c_str()) != 1) return 0;
    const CipherRecord initial = cipher;

    fuzz::Bytes input = in.take(1 << 16);
    const fuzz::Bytes clear = input;
    if (options & 0x08) {
        input.resize(input.size() - input.size() % 16);
        if (input.empty()) return 0;
        CipherRecord enc = initial;
        fuzz::Bytes sealed(input.size());
        if (blockEncrypt(&enc, &encrypt_key, input.data(), static_cast<int32_t>(input.size() * 8),
                         sealed.data()) != static_cast<int32_t>(input.size() * 8))
            __builtin_trap();
        input = sealed;
    }

    fuzz::Bytes output(input.size());
    const int32_t kept = padDecrypt(&cipher, &decrypt_key, input.data(), static_cast<int32_t>(input.size()),
                                    output.data());
    if (kept < 0) return 0;
    if (static_cast<size_t>(kept) > input.size()) __builtin_trap();
    if ((options & 0x08) && !std::equal(output.begin(), output.begin() + kept, clear.begin())) __builtin_trap();
    return 0;
}
