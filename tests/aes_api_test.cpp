// The cipher API: key and cipher records, ECB, CBC and CFB-1 over whole
// blocks (lengths in bits), padded ECB and CBC (lengths in bytes), the
// round-limited call, and every result code.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <string>

#include "aes_reference_model.h"
#include "rmcpp_aes.h"

using aesmodel::Block;
using aesmodel::Bytes;
using aesmodel::block_from_hex;
using aesmodel::from_hex;

namespace {

const char kKey128[] = "2b7e151628aed2a6abf7158809cf4f3c";
const char kKey192[] = "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b";
const char kKey256[] = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const char kIV[] = "000102030405060708090a0b0c0d0e0f";

// NIST SP 800-38A Appendix F plaintext (F.2, F.3).
const Bytes kPlaintext = from_hex(
    "6bc1bee22e409f96e93d7e117393172a"
    "ae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52ef"
    "f69f2445df4f9b17ad2b417be66c3710");

struct CbcExample {
    int bits;
    const char *key;
    const char *ciphertext;
};
const CbcExample kCbc[] = {
    {128, kKey128,
     "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
    {192, kKey192,
     "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"},
    {256, kKey256,
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
};

// SP 800-38A F.3.1, F.3.3, F.3.5: the first 16 bits of CFB-1.
struct Cfb1Example {
    int bits;
    const char *key;
    uint8_t ct0, ct1;
};
const Cfb1Example kCfb1[] = {
    {128, kKey128, 0x68, 0xb3},
    {192, kKey192, 0x93, 0x59},
    {256, kKey256, 0x90, 0x29},
};

KeyRecord key_of(uint8_t direction, int bits, const char *text)
{
    KeyRecord key;
    std::memset(&key, 0, sizeof key);
    EXPECT_EQ(makeKey(&key, direction, bits, text), 1);
    return key;
}

CipherRecord cipher_of(uint8_t mode, const char *iv = nullptr)
{
    CipherRecord cipher;
    std::memset(&cipher, 0xA5, sizeof cipher);
    EXPECT_EQ(cipherInit(&cipher, mode, iv), 1);
    return cipher;
}

std::string counting_key_text(int bits)
{
    Bytes key(bits / 8);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);
    return aesmodel::to_hex(key);
}

Bytes evp_cfb1(const Bytes &key, const Bytes &iv, const Bytes &in, bool encrypt)
{
    const EVP_CIPHER *c = key.size() == 16 ? EVP_aes_128_cfb1() : key.size() == 24 ? EVP_aes_192_cfb1()
                                                                                  : EVP_aes_256_cfb1();
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    Bytes out(in.size());
    int len = 0;
    EVP_CipherInit_ex(ctx, c, nullptr, key.data(), iv.data(), encrypt);
    EVP_CipherUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(in.size()));
    EVP_CIPHER_CTX_free(ctx);
    return out;
}

}  // namespace

TEST(AesApi, ResultCodeValues)
{
    EXPECT_EQ(DIR_ENCRYPT_KEY, 0);
    EXPECT_EQ(DIR_DECRYPT_KEY, 1);
    EXPECT_EQ(MODE_ECB_BLOCKS, 1);
    EXPECT_EQ(MODE_CBC_BLOCKS, 2);
    EXPECT_EQ(MODE_CFB1_BITS, 3);
    EXPECT_EQ(ERR_KEY_DIRECTION, -1);
    EXPECT_EQ(ERR_KEY_MATERIAL, -2);
    EXPECT_EQ(ERR_KEY_RECORD, -3);
    EXPECT_EQ(ERR_CIPHER_MODE, -4);
    EXPECT_EQ(ERR_CIPHER_STATE, -5);
    EXPECT_EQ(ERR_CIPHER_IV, -7);
    EXPECT_EQ(ERR_PADDING, -8);
}

TEST(AesApi, AppendixCVectorsThroughEcb)
{
    const Block pt = block_from_hex("00112233445566778899aabbccddeeff");
    const char *expected[] = {"69c4e0d86a7b0430d8cdb78070b4c55a", "dda97ca4864cdfe06eaf70a0ec0d7191",
                              "8ea2b7ca516745bfeafc49904b496089"};
    for (int i = 0; i < 3; ++i) {
        const int bits = 128 + 64 * i;
        const std::string text = counting_key_text(bits);
        KeyRecord ek = key_of(DIR_ENCRYPT_KEY, bits, text.c_str());
        KeyRecord dk = key_of(DIR_DECRYPT_KEY, bits, text.c_str());
        EXPECT_EQ(ek.Nr, bits / 32 + 6);
        EXPECT_EQ(ek.keyLen, bits);
        CipherRecord cipher = cipher_of(MODE_ECB_BLOCKS);
        Block ct, back;
        EXPECT_EQ(blockEncrypt(&cipher, &ek, pt.data(), 128, ct.data()), 128);
        EXPECT_EQ(ct, block_from_hex(expected[i])) << bits;
        EXPECT_EQ(blockDecrypt(&cipher, &dk, ct.data(), 128, back.data()), 128);
        EXPECT_EQ(back, pt) << bits;
    }
}

TEST(AesApi, CbcExamplesOfSp800_38a)
{
    for (const auto &ex : kCbc) {
        SCOPED_TRACE(ex.bits);
        const Bytes expected = from_hex(ex.ciphertext);
        KeyRecord ek = key_of(DIR_ENCRYPT_KEY, ex.bits, ex.key);
        KeyRecord dk = key_of(DIR_DECRYPT_KEY, ex.bits, ex.key);

        CipherRecord enc = cipher_of(MODE_CBC_BLOCKS, kIV);
        Bytes ct(64);
        EXPECT_EQ(blockEncrypt(&enc, &ek, kPlaintext.data(), 512, ct.data()), 512);
        EXPECT_EQ(ct, expected);
        // Encryption leaves the record's IV where it was.
        EXPECT_EQ(Bytes(enc.IV, enc.IV + 16), from_hex(kIV));

        CipherRecord dec = cipher_of(MODE_CBC_BLOCKS, kIV);
        Bytes pt(64);
        EXPECT_EQ(blockDecrypt(&dec, &dk, expected.data(), 512, pt.data()), 512);
        EXPECT_EQ(pt, kPlaintext);
        // Decryption advances it to the last ciphertext block.
        EXPECT_EQ(Bytes(dec.IV, dec.IV + 16), Bytes(expected.end() - 16, expected.end()));
    }
}

TEST(AesApi, CbcDecryptionInPlace)
{
    const Bytes expected = from_hex(kCbc[0].ciphertext);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord dec = cipher_of(MODE_CBC_BLOCKS, kIV);
    Bytes buf = expected;
    EXPECT_EQ(blockDecrypt(&dec, &dk, buf.data(), 512, buf.data()), 512);
    EXPECT_EQ(buf, kPlaintext);
}

TEST(AesApi, CbcBlockByBlockWithCallerChaining)
{
    // The confidentiality layer's usage: mode byte and IV set by hand, one
    // block per call, the chaining value written into the IV before each.
    const Bytes expected = from_hex(kCbc[0].ciphertext);
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord enc{}, dec{};
    enc.mode = dec.mode = MODE_CBC_BLOCKS;
    Bytes chain = from_hex(kIV), ct(64), pt(64);
    for (int i = 0; i < 4; ++i) {
        std::memcpy(enc.IV, chain.data(), 16);
        ASSERT_EQ(blockEncrypt(&enc, &ek, kPlaintext.data() + 16 * i, 128, ct.data() + 16 * i), 128);
        chain.assign(ct.begin() + 16 * i, ct.begin() + 16 * (i + 1));
    }
    EXPECT_EQ(ct, expected);
    chain = from_hex(kIV);
    for (int i = 0; i < 4; ++i) {
        std::memcpy(dec.IV, chain.data(), 16);
        ASSERT_EQ(blockDecrypt(&dec, &dk, ct.data() + 16 * i, 128, pt.data() + 16 * i), 128);
        chain.assign(ct.begin() + 16 * i, ct.begin() + 16 * (i + 1));
    }
    EXPECT_EQ(pt, kPlaintext);
}

TEST(AesApi, ConsecutiveCbcEncryptCallsBothStartFromTheInitialIV)
{
    const Bytes expected = from_hex(kCbc[0].ciphertext);
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    CipherRecord enc = cipher_of(MODE_CBC_BLOCKS, kIV);
    Block first, second;
    EXPECT_EQ(blockEncrypt(&enc, &ek, kPlaintext.data(), 128, first.data()), 128);
    EXPECT_EQ(blockEncrypt(&enc, &ek, kPlaintext.data() + 16, 128, second.data()), 128);
    EXPECT_EQ(Bytes(first.begin(), first.end()), Bytes(expected.begin(), expected.begin() + 16));
    // Second block = E(P2 xor IV), not E(P2 xor C1).
    Block x;
    for (int i = 0; i < 16; ++i) x[i] = kPlaintext[16 + i] ^ static_cast<uint8_t>(i);
    EXPECT_EQ(second, aesmodel::evp_encrypt(from_hex(kKey128), x));
    EXPECT_NE(Bytes(second.begin(), second.end()), Bytes(expected.begin() + 16, expected.begin() + 32));
}

TEST(AesApi, ConsecutiveCbcDecryptCallsChain)
{
    const Bytes ct = from_hex(kCbc[0].ciphertext);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord dec = cipher_of(MODE_CBC_BLOCKS, kIV);
    Bytes pt(64);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(blockDecrypt(&dec, &dk, ct.data() + 16 * i, 128, pt.data() + 16 * i), 128);
    EXPECT_EQ(pt, kPlaintext);
}

TEST(AesApi, Cfb1ExamplesOfSp800_38a)
{
    for (const auto &ex : kCfb1) {
        SCOPED_TRACE(ex.bits);
        const Bytes key = from_hex(ex.key);
        KeyRecord ek = key_of(DIR_ENCRYPT_KEY, ex.bits, ex.key);
        KeyRecord dk = key_of(DIR_DECRYPT_KEY, ex.bits, ex.key);

        CipherRecord enc = cipher_of(MODE_CFB1_BITS, kIV);
        Bytes ct(64);
        EXPECT_EQ(blockEncrypt(&enc, &ek, kPlaintext.data(), 512, ct.data()), 512);
        EXPECT_EQ(ct[0], ex.ct0);
        EXPECT_EQ(ct[1], ex.ct1);
        EXPECT_EQ(ct, evp_cfb1(key, from_hex(kIV), kPlaintext, true));
        // The IV holds the last 128 ciphertext bits.
        EXPECT_EQ(Bytes(enc.IV, enc.IV + 16), Bytes(ct.end() - 16, ct.end()));

        // Decryption runs the encryption schedule: either key direction works.
        for (KeyRecord *k : {&dk, &ek}) {
            CipherRecord dec = cipher_of(MODE_CFB1_BITS, kIV);
            Bytes pt(64);
            EXPECT_EQ(blockDecrypt(&dec, k, ct.data(), 512, pt.data()), 512);
            EXPECT_EQ(pt, kPlaintext);
        }
        // In place.
        CipherRecord dec = cipher_of(MODE_CFB1_BITS, kIV);
        Bytes buf = ct;
        EXPECT_EQ(blockDecrypt(&dec, &dk, buf.data(), 512, buf.data()), 512);
        EXPECT_EQ(buf, kPlaintext);
    }
}

TEST(AesApi, Cfb1StateCarriesAcrossCalls)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    CipherRecord enc = cipher_of(MODE_CFB1_BITS, kIV);
    Bytes ct(64);
    for (int i = 0; i < 4; ++i) blockEncrypt(&enc, &ek, kPlaintext.data() + 16 * i, 128, ct.data() + 16 * i);
    EXPECT_EQ(ct, evp_cfb1(from_hex(kKey128), from_hex(kIV), kPlaintext, true));
}

TEST(AesApi, MakeKeyResults)
{
    KeyRecord key;
    std::memset(&key, 0, sizeof key);
    EXPECT_EQ(makeKey(nullptr, DIR_ENCRYPT_KEY, 128, kKey128), ERR_KEY_RECORD);

    EXPECT_EQ(makeKey(&key, 2, 128, kKey128), ERR_KEY_DIRECTION);
    EXPECT_EQ(key.direction, 0) << "nothing written";

    EXPECT_EQ(makeKey(&key, DIR_DECRYPT_KEY, 160, kKey128), ERR_KEY_MATERIAL);
    EXPECT_EQ(key.direction, DIR_DECRYPT_KEY) << "direction stored before the length check";
    EXPECT_EQ(key.keyLen, 0);

    // 31 digits: the terminating NUL is not a hexadecimal digit.
    EXPECT_EQ(makeKey(&key, DIR_ENCRYPT_KEY, 128, "2b7e151628aed2a6abf7158809cf4f3"), ERR_KEY_MATERIAL);

    std::memset(&key, 0, sizeof key);
    key.Nr = 77;
    EXPECT_EQ(makeKey(&key, DIR_ENCRYPT_KEY, 128, "2b7e151628aed2a6abf7158809cf4fxc"), ERR_KEY_MATERIAL);
    EXPECT_EQ(key.Nr, 77) << "schedules untouched";
    EXPECT_EQ(key.rk[0], 0u);

    EXPECT_EQ(makeKey(&key, DIR_ENCRYPT_KEY, 128, "2B7E151628AED2A6ABF7158809CF4F3C"), 1);
    EXPECT_EQ(key.Nr, 10);
    EXPECT_EQ(key.rk[0], 0x2b7e1516u);
    EXPECT_EQ(std::string(key.keyMaterial, 32), "2B7E151628AED2A6ABF7158809CF4F3C");

    // Longer text: only keyLen/4 characters are taken.
    EXPECT_EQ(makeKey(&key, DIR_ENCRYPT_KEY, 128, kKey256), 1);
    EXPECT_EQ(key.rk[0], 0x603deb10u);
}

TEST(AesApi, MakeKeyWithNullTextReusesTheRecordText)
{
    KeyRecord key;
    std::memset(&key, 0, sizeof key);
    ASSERT_EQ(makeKey(&key, DIR_ENCRYPT_KEY, 128, kKey128), 1);
    ASSERT_EQ(makeKey(&key, DIR_DECRYPT_KEY, 128, nullptr), 1);
    EXPECT_EQ(key.direction, DIR_DECRYPT_KEY);
    uint32_t dk[RIJNDAEL_MAX_SCHEDULE_WORDS], ek[RIJNDAEL_MAX_SCHEDULE_WORDS];
    rijndaelKeySetupDec(dk, from_hex(kKey128).data(), 128);
    rijndaelKeySetupEnc(ek, from_hex(kKey128).data(), 128);
    EXPECT_EQ(0, std::memcmp(key.rk, dk, 44 * 4));
    EXPECT_EQ(0, std::memcmp(key.ek, ek, 44 * 4));
}

TEST(AesApi, CipherInitResults)
{
    CipherRecord cipher;
    std::memset(&cipher, 0xA5, sizeof cipher);
    EXPECT_EQ(cipherInit(&cipher, 4, nullptr), ERR_CIPHER_MODE);
    EXPECT_EQ(cipherInit(&cipher, 0, nullptr), ERR_CIPHER_MODE);
    EXPECT_EQ(cipherInit(nullptr, 4, nullptr), ERR_CIPHER_MODE) << "mode judged before the record is touched";
    EXPECT_EQ(cipher.mode, 0xA5);

    EXPECT_EQ(cipherInit(&cipher, MODE_CBC_BLOCKS, nullptr), 1);
    EXPECT_EQ(cipher.mode, MODE_CBC_BLOCKS);
    EXPECT_EQ(Bytes(cipher.IV, cipher.IV + 16), Bytes(16, 0));

    EXPECT_EQ(cipherInit(&cipher, MODE_CFB1_BITS, "00112233445566778899AaBbCcDdEeFf"), 1);
    EXPECT_EQ(Bytes(cipher.IV, cipher.IV + 16), from_hex("00112233445566778899aabbccddeeff"));

    // A bad character: the bytes before it are already stored.
    std::memset(cipher.IV, 0, 16);
    EXPECT_EQ(cipherInit(&cipher, MODE_ECB_BLOCKS, "0102030G05060708090a0b0c0d0e0f10"), ERR_CIPHER_IV);
    EXPECT_EQ(cipher.IV[0], 1);
    EXPECT_EQ(cipher.IV[1], 2);
    EXPECT_EQ(cipher.IV[2], 3);
    EXPECT_EQ(cipher.IV[3], 0);
    EXPECT_EQ(cipher.mode, MODE_ECB_BLOCKS);
}

TEST(AesApi, BlockLengthsAreInBits)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    Bytes out(32, 0xEE);
    EXPECT_EQ(blockEncrypt(&ecb, &ek, kPlaintext.data(), 200, out.data()), 128);
    const Block first = aesmodel::evp_encrypt(from_hex(kKey128), block_from_hex("6bc1bee22e409f96e93d7e117393172a"));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 16), Bytes(first.begin(), first.end()));
    EXPECT_EQ(Bytes(out.begin() + 16, out.end()), Bytes(16, 0xEE)) << "only one block";

    Bytes untouched(32, 0xEE);
    EXPECT_EQ(blockEncrypt(&ecb, &ek, kPlaintext.data(), 100, untouched.data()), 0);
    EXPECT_EQ(untouched, Bytes(32, 0xEE));

    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    EXPECT_EQ(blockDecrypt(&ecb, &dk, kPlaintext.data(), 100, untouched.data()), 0);
    EXPECT_EQ(untouched, Bytes(32, 0xEE));
    EXPECT_EQ(blockDecrypt(&ecb, &dk, kPlaintext.data(), 383, out.data()), 256);
}

TEST(AesApi, BlockCallResults)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    CipherRecord cfb = cipher_of(MODE_CFB1_BITS, kIV);
    uint8_t out[16];

    EXPECT_EQ(blockEncrypt(nullptr, &ek, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(&ecb, nullptr, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(&ecb, &dk, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(&cfb, &dk, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(&ecb, &ek, nullptr, 128, out), 0);
    EXPECT_EQ(blockEncrypt(&ecb, &ek, kPlaintext.data(), 0, out), 0);
    EXPECT_EQ(blockEncrypt(&ecb, &ek, kPlaintext.data(), -128, out), 0);

    EXPECT_EQ(blockDecrypt(nullptr, &dk, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&ecb, nullptr, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&ecb, &ek, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&cfb, &ek, kPlaintext.data(), 128, out), 128);
    EXPECT_EQ(blockDecrypt(&ecb, &dk, nullptr, 128, out), 0);
    EXPECT_EQ(blockDecrypt(&ecb, &dk, kPlaintext.data(), 0, out), 0);

    CipherRecord bad = cipher_of(MODE_ECB_BLOCKS);
    bad.mode = 7;
    EXPECT_EQ(blockEncrypt(&bad, &ek, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&bad, &dk, kPlaintext.data(), 128, out), ERR_CIPHER_STATE);
}

TEST(AesApi, PadEncryptLengthsAreInBytes)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    Bytes out(48);

    EXPECT_EQ(padEncrypt(&ecb, &ek, kPlaintext.data(), 16, out.data()), 32);
    EXPECT_EQ(padEncrypt(&ecb, &ek, kPlaintext.data(), 0, out.data()), 0);
    EXPECT_EQ(padEncrypt(&ecb, &ek, nullptr, 16, out.data()), 0);

    EXPECT_EQ(padEncrypt(&ecb, &ek, kPlaintext.data(), 15, out.data()), 16);
    Block last;
    EXPECT_EQ(blockDecrypt(&ecb, &dk, out.data(), 128, last.data()), 128);
    EXPECT_EQ(Bytes(last.begin(), last.begin() + 15), Bytes(kPlaintext.begin(), kPlaintext.begin() + 15));
    EXPECT_EQ(last[15], 0x01);

    // 16 bytes: a whole block of 16s follows.
    EXPECT_EQ(padEncrypt(&ecb, &ek, kPlaintext.data(), 16, out.data()), 32);
    EXPECT_EQ(blockDecrypt(&ecb, &dk, out.data() + 16, 128, last.data()), 128);
    EXPECT_EQ(Bytes(last.begin(), last.end()), Bytes(16, 16));

    // 20 bytes in CBC: one block and 12 bytes of 0x0C, chained from the IV.
    CipherRecord cbc = cipher_of(MODE_CBC_BLOCKS, kIV);
    EXPECT_EQ(padEncrypt(&cbc, &ek, kPlaintext.data(), 20, out.data()), 32);
    const Bytes cbcExample = from_hex(kCbc[0].ciphertext);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 16), Bytes(cbcExample.begin(), cbcExample.begin() + 16));
    EXPECT_EQ(Bytes(cbc.IV, cbc.IV + 16), from_hex(kIV)) << "padEncrypt leaves the IV";
    CipherRecord cbcd = cipher_of(MODE_CBC_BLOCKS, kIV);
    Bytes plain(32);
    EXPECT_EQ(blockDecrypt(&cbcd, &dk, out.data(), 256, plain.data()), 256);
    EXPECT_EQ(Bytes(plain.begin(), plain.begin() + 20), Bytes(kPlaintext.begin(), kPlaintext.begin() + 20));
    EXPECT_EQ(Bytes(plain.begin() + 20, plain.end()), Bytes(12, 12));
}

TEST(AesApi, PadEncryptResults)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    CipherRecord cfb = cipher_of(MODE_CFB1_BITS);
    uint8_t out[32];
    EXPECT_EQ(padEncrypt(nullptr, &ek, kPlaintext.data(), 16, out), ERR_CIPHER_STATE);
    EXPECT_EQ(padEncrypt(&ecb, nullptr, kPlaintext.data(), 16, out), ERR_CIPHER_STATE);
    EXPECT_EQ(padEncrypt(&ecb, &dk, kPlaintext.data(), 16, out), ERR_CIPHER_STATE);
    EXPECT_EQ(padEncrypt(&cfb, &ek, kPlaintext.data(), 16, out), ERR_CIPHER_STATE);
}

TEST(AesApi, PadRoundTrips)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 192, kKey192);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 192, kKey192);
    for (uint8_t mode : {MODE_ECB_BLOCKS, MODE_CBC_BLOCKS}) {
        for (int n = 1; n <= 63; ++n) {
            if (mode == MODE_ECB_BLOCKS && n % 16 == 0) continue;  // refused, see below
            CipherRecord enc = cipher_of(mode, kIV), dec = cipher_of(mode, kIV);
            Bytes ct(80), pt(80, 0);
            const int written = padEncrypt(&enc, &ek, kPlaintext.data(), n, ct.data());
            ASSERT_EQ(written, 16 * (n / 16 + 1));
            ASSERT_EQ(padDecrypt(&dec, &dk, ct.data(), written, pt.data()), n) << int(mode) << " " << n;
            EXPECT_EQ(Bytes(pt.begin(), pt.begin() + n), Bytes(kPlaintext.begin(), kPlaintext.begin() + n));
        }
    }
}

TEST(AesApi, PadDecryptEcbAndCbcDifferOnAWholeBlockOfPadding)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    Bytes ct(32), pt(32);

    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    ASSERT_EQ(padEncrypt(&ecb, &ek, kPlaintext.data(), 16, ct.data()), 32);
    EXPECT_EQ(padDecrypt(&ecb, &dk, ct.data(), 32, pt.data()), ERR_PADDING);

    CipherRecord cbc = cipher_of(MODE_CBC_BLOCKS, kIV);
    ASSERT_EQ(padEncrypt(&cbc, &ek, kPlaintext.data(), 16, ct.data()), 32);
    CipherRecord cbcd = cipher_of(MODE_CBC_BLOCKS, kIV);
    EXPECT_EQ(padDecrypt(&cbcd, &dk, ct.data(), 32, pt.data()), 16);
    EXPECT_EQ(Bytes(pt.begin(), pt.begin() + 16), Bytes(kPlaintext.begin(), kPlaintext.begin() + 16));
    // The IV advanced over the first block only.
    EXPECT_EQ(Bytes(cbcd.IV, cbcd.IV + 16), Bytes(ct.begin(), ct.begin() + 16));
}

TEST(AesApi, PadDecryptPaddingZero)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    Block plain = block_from_hex("00112233445566778899aabbccddee00");
    Block ct;
    Bytes out(16);

    // ECB: padding length 0 passes and keeps all 16 bytes.
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    ASSERT_EQ(blockEncrypt(&ecb, &ek, plain.data(), 128, ct.data()), 128);
    EXPECT_EQ(padDecrypt(&ecb, &dk, ct.data(), 16, out.data()), 16);
    EXPECT_EQ(Bytes(out.begin(), out.end()), Bytes(plain.begin(), plain.end()));

    // CBC: refused.
    CipherRecord cbc = cipher_of(MODE_CBC_BLOCKS);
    ASSERT_EQ(blockEncrypt(&cbc, &ek, plain.data(), 128, ct.data()), 128);
    CipherRecord cbcd = cipher_of(MODE_CBC_BLOCKS);
    EXPECT_EQ(padDecrypt(&cbcd, &dk, ct.data(), 16, out.data()), ERR_PADDING);
}

TEST(AesApi, PadDecryptRejectsMalformedPadding)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    Bytes out(32);
    Block ct;
    for (uint8_t mode : {MODE_ECB_BLOCKS, MODE_CBC_BLOCKS}) {
        SCOPED_TRACE(int(mode));
        // Last byte 3 but the byte before it is not 3.
        Block bad = block_from_hex("00112233445566778899aabbcc030403");
        CipherRecord enc = cipher_of(mode), dec = cipher_of(mode);
        ASSERT_EQ(blockEncrypt(&enc, &ek, bad.data(), 128, ct.data()), 128);
        EXPECT_EQ(padDecrypt(&dec, &dk, ct.data(), 16, out.data()), ERR_PADDING);
        // A pad length of 17.
        Block big = block_from_hex("11111111111111111111111111111111");
        ASSERT_EQ(blockEncrypt(&enc, &ek, big.data(), 128, ct.data()), 128);
        EXPECT_EQ(padDecrypt(&dec, &dk, ct.data(), 16, out.data()), ERR_PADDING);
    }
}

TEST(AesApi, PadDecryptResults)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    KeyRecord dk = key_of(DIR_DECRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    CipherRecord cfb = cipher_of(MODE_CFB1_BITS);
    Bytes out(80);
    EXPECT_EQ(padDecrypt(&ecb, &dk, kPlaintext.data(), 17, out.data()), ERR_PADDING);
    EXPECT_EQ(padDecrypt(nullptr, &dk, kPlaintext.data(), 16, out.data()), ERR_CIPHER_STATE);
    EXPECT_EQ(padDecrypt(&ecb, nullptr, kPlaintext.data(), 16, out.data()), ERR_CIPHER_STATE);
    EXPECT_EQ(padDecrypt(&ecb, &ek, kPlaintext.data(), 16, out.data()), ERR_CIPHER_STATE);
    EXPECT_EQ(padDecrypt(&cfb, &ek, kPlaintext.data(), 16, out.data()), ERR_CIPHER_STATE) << "no CFB exception";
    EXPECT_EQ(padDecrypt(&cfb, &dk, kPlaintext.data(), 16, out.data()), ERR_CIPHER_STATE);
    EXPECT_EQ(padDecrypt(&ecb, &dk, nullptr, 16, out.data()), 0);
    EXPECT_EQ(padDecrypt(&ecb, &dk, kPlaintext.data(), 0, out.data()), 0);
}

TEST(AesApi, CipherUpdateRounds)
{
    for (int bits = 128; bits <= 256; bits += 64) {
        SCOPED_TRACE(bits);
        const std::string text = counting_key_text(bits);
        KeyRecord ek = key_of(DIR_ENCRYPT_KEY, bits, text.c_str());
        KeyRecord dk = key_of(DIR_DECRYPT_KEY, bits, text.c_str());
        CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
        Block pt = block_from_hex("00112233445566778899aabbccddeeff"), ct, viaRounds, back;
        ASSERT_EQ(blockEncrypt(&ecb, &ek, pt.data(), 128, ct.data()), 128);
        EXPECT_EQ(cipherUpdateRounds(&ecb, &ek, pt.data(), 128, viaRounds.data(), ek.Nr), 1);
        EXPECT_EQ(viaRounds, ct);
        EXPECT_EQ(cipherUpdateRounds(&ecb, &dk, ct.data(), 128, back.data(), dk.Nr), 1);
        EXPECT_EQ(back, pt);
        for (int r = 1; r < ek.Nr; ++r) {
            Block a, b;
            cipherUpdateRounds(&ecb, &ek, pt.data(), 0, a.data(), r);
            EXPECT_EQ(a, aesmodel::encrypt_rounds(aesmodel::from_hex(text), pt, r));
            cipherUpdateRounds(&ecb, &dk, ct.data(), 0, b.data(), r);
            EXPECT_EQ(b, aesmodel::decrypt_rounds(aesmodel::from_hex(text), ct, r));
        }
    }
}

TEST(AesApi, CipherUpdateRoundsResults)
{
    KeyRecord ek = key_of(DIR_ENCRYPT_KEY, 128, kKey128);
    CipherRecord ecb = cipher_of(MODE_ECB_BLOCKS);
    Bytes out(16, 0xEE);
    EXPECT_EQ(cipherUpdateRounds(nullptr, &ek, kPlaintext.data(), 128, out.data(), 10), ERR_CIPHER_STATE);
    EXPECT_EQ(cipherUpdateRounds(&ecb, nullptr, kPlaintext.data(), 128, out.data(), 10), ERR_CIPHER_STATE);
    ek.direction = 7;
    EXPECT_EQ(cipherUpdateRounds(&ecb, &ek, kPlaintext.data(), 128, out.data(), 10), ERR_KEY_DIRECTION);
    EXPECT_EQ(out, Bytes(16, 0xEE)) << "nothing written";
}

TEST(AesApi, AgreesWithOpenSslOnRandomData)
{
    std::mt19937 rng(5);
    for (int bits = 128; bits <= 256; bits += 64) {
        Bytes key(bits / 8);
        for (auto &b : key) b = static_cast<uint8_t>(rng());
        const std::string text = aesmodel::to_hex(key);
        KeyRecord ek = key_of(DIR_ENCRYPT_KEY, bits, text.c_str());
        KeyRecord dk = key_of(DIR_DECRYPT_KEY, bits, text.c_str());
        Bytes pt(16 * 8);
        for (auto &b : pt) b = static_cast<uint8_t>(rng());
        Bytes iv(16);
        for (auto &b : iv) b = static_cast<uint8_t>(rng());
        const std::string ivText = aesmodel::to_hex(iv);

        CipherRecord cbc = cipher_of(MODE_CBC_BLOCKS, ivText.c_str());
        Bytes ct(pt.size());
        ASSERT_EQ(blockEncrypt(&cbc, &ek, pt.data(), 128 * 8, ct.data()), 128 * 8);
        EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
        const EVP_CIPHER *c = bits == 128 ? EVP_aes_128_cbc() : bits == 192 ? EVP_aes_192_cbc() : EVP_aes_256_cbc();
        EVP_EncryptInit_ex(ctx, c, nullptr, key.data(), iv.data());
        EVP_CIPHER_CTX_set_padding(ctx, 0);
        Bytes ref(pt.size());
        int len = 0;
        EVP_EncryptUpdate(ctx, ref.data(), &len, pt.data(), static_cast<int>(pt.size()));
        EVP_CIPHER_CTX_free(ctx);
        EXPECT_EQ(ct, ref) << bits;

        CipherRecord cbcd = cipher_of(MODE_CBC_BLOCKS, ivText.c_str());
        Bytes back(pt.size());
        ASSERT_EQ(blockDecrypt(&cbcd, &dk, ct.data(), 128 * 8, back.data()), 128 * 8);
        EXPECT_EQ(back, pt);
    }
}
