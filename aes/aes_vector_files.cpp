// Writers of the AES known-answer, Monte Carlo and FIPS-197 example files.
// Everything goes through the cipher API (and, for the speed measurement,
// the core); the text layout of every file is fixed byte for byte, so the
// files can serve as reference output for the cipher.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "rmcpp.h"

namespace {

constexpr int kMonteCarloOuter = 400;
constexpr int kMonteCarloInner = 10000;

using Block = uint8_t[16];

// Key bytes as "%02X" text, the form makeKey is given.
void key_text(char *text, const uint8_t *key, int keyLength)
{
    for (int i = 0; i < keyLength / 8; ++i) std::snprintf(text + 2 * i, 3, "%02X", key[i]);
}

void print_header(FILE *fp, const char *fileName, const char *modeLine, const char *testLine)
{
    std::fprintf(fp,
                 "\n=========================\n\nFILENAME:  \"%s\"\n\n%s\n%s\n\n"
                 "Algorithm Name: Rijndael\nPrincipal Submitter: %s\n",
                 fileName, modeLine, testLine, SUBMITTER_NAME);
    std::fflush(fp);
}

// Known-answer files end with ten '=', Monte Carlo files with eleven.
void print_kat_footer(FILE *fp) { std::fprintf(fp, "\n=========="); }
void print_mct_footer(FILE *fp) { std::fprintf(fp, "\n==========="); }

void progress(const char *text, int keyLength)
{
    std::printf(text, keyLength);
    std::fflush(stdout);
}

[[noreturn]] void api_failure(const char *call, int result)
{
    std::fprintf(stderr, "%s error %d\n", call, result);
    std::exit(-1);
}

void make_key_or_exit(KeyRecord *key, uint8_t direction, int keyLength, const char *text)
{
    const int r = makeKey(key, direction, keyLength, text);
    if (r != 1) api_failure("makeKey", r);
}

void cipher_init_or_exit(CipherRecord *cipher, uint8_t mode)
{
    const int r = cipherInit(cipher, mode, nullptr);
    if (r != 1) api_failure("cipherInit", r);
}

void encrypt_one(CipherRecord *cipher, KeyRecord *key, const uint8_t *in, uint8_t *out)
{
    const int r = blockEncrypt(cipher, key, in, 128, out);
    if (r != 128) api_failure("blockEncrypt", r);
}

void decrypt_one(CipherRecord *cipher, KeyRecord *key, const uint8_t *in, uint8_t *out)
{
    const int r = blockDecrypt(cipher, key, in, 128, out);
    if (r != 128) api_failure("blockDecrypt", r);
}

void print_round_keys(FILE *fp, const KeyRecord *key)
{
    for (int r = 0; r <= key->Nr; ++r) {
        std::fprintf(fp, "RK%d=", r);
        for (int w = 0; w < 4; ++w) {
            const uint32_t word = key->rk[4 * r + w];
            std::fprintf(fp, "%02X%02X%02X%02X", word >> 24, (word >> 16) & 0xff, (word >> 8) & 0xff, word & 0xff);
        }
        std::fprintf(fp, "\n");
    }
}

// The state after each round: "CT1".."CT<Nr-1>" and "CT" when encrypting,
// "PT1".."PT<Nr-1>" and "PT" when decrypting.
void print_intermediate_values(FILE *fp, CipherRecord *cipher, KeyRecord *key, const uint8_t *in,
                               const char *label)
{
    Block out;
    char tag[16];
    for (int r = 1; r < key->Nr; ++r) {
        cipherUpdateRounds(cipher, key, in, 128, out, r);
        std::snprintf(tag, sizeof tag, "%s%d", label, r);
        blockPrint(fp, out, tag);
    }
    cipherUpdateRounds(cipher, key, in, 128, out, key->Nr);
    blockPrint(fp, out, label);
}

// Monte Carlo progress: the outer count, each number erased with
// backspaces before the next one is printed.
class Counter {
public:
    void show(int i)
    {
        std::printf("%.*s%d", width_, "\b\b\b\b\b\b\b\b\b\b", i);
        width_ = std::snprintf(nullptr, 0, "%d", i);
        std::fflush(stdout);
    }
    void done(int count, clock_t start)
    {
        std::printf("%.*s%d done (%.1f s).\n", width_, "\b\b\b\b\b\b\b\b\b\b", count,
                    static_cast<double>(clock() - start) / CLOCKS_PER_SEC);
        std::fflush(stdout);
    }

private:
    int width_ = 0;
};

const char *direction_name(uint8_t direction) { return direction == DIR_ENCRYPT_KEY ? "ENCRYPT" : "DECRYPT"; }

void xor_into(uint8_t *dst, const uint8_t *src, int n)
{
    for (int i = 0; i < n; ++i) dst[i] ^= src[i];
}

// Key update between Monte Carlo steps: a 128-bit key takes the last
// output; longer keys also take the tail (192) or all (256) of `earlier`.
void next_mct_key(uint8_t *key, int keyLength, const uint8_t *earlier, const uint8_t *last)
{
    switch (keyLength) {
    case 128: xor_into(key, last, 16); break;
    case 192:
        xor_into(key, earlier + 8, 8);
        xor_into(key + 8, last, 16);
        break;
    case 256:
        xor_into(key, earlier, 16);
        xor_into(key + 16, last, 16);
        break;
    }
}

// The generators run for 128-, 192- and 256-bit keys only; any other
// length would overrun their key texts.
bool known_key_length(int keyLength) { return keyLength == 128 || keyLength == 192 || keyLength == 256; }

bool known_direction(uint8_t direction) { return direction == DIR_ENCRYPT_KEY || direction == DIR_DECRYPT_KEY; }

const char kTablesDescription[] =
    "/* Description of what tables are tested:\n"
    "   The provided implementations each use a different set of tables\n"
    "    - a bit-serial implementation uses no tables\n"
    "    - a byte-oriented implementation uses Logtable, Alogtable, S, Si, rcon\n"
    "    - the table-driven implementation of this library uses rcon and additionally\n"
    "        Te0, Te1, Te2, Te3, Te4, Td0, Td1, Td2, Td3, Td4.\n"
    "   All these tables are tested.\n\n";

}  // namespace

extern "C" {

void blockPrint(FILE *fp, const uint8_t *block, const char *tag)
{
    if (fp == nullptr || block == nullptr || tag == nullptr) return;
    std::fprintf(fp, "%s=", tag);
    for (int i = 0; i < 16; ++i) std::fprintf(fp, "%02X", block[i]);
    std::fprintf(fp, "\n");
    std::fflush(fp);
}

int rijndaelVKKAT(FILE *fp, int keyLength)
{
    if (fp == nullptr || !known_key_length(keyLength)) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    Block pt = {}, ct, back;
    char keyMaterial[65];

    progress("Executing Variable-Key KAT (key %d): ", keyLength);
    std::fprintf(fp, "\n==========\n\nKEYSIZE=%d\n\n", keyLength);
    blockPrint(fp, pt, "PT");
    const int digits = keyLength / 4;
    std::memset(keyMaterial, '0', static_cast<size_t>(digits));
    keyMaterial[digits] = '\0';
    for (int i = 0; i < keyLength; ++i) {
        keyMaterial[i / 4] = "8421"[i % 4];
        std::fprintf(fp, "\nI=%d\n", i + 1);
        std::fprintf(fp, "KEY=%s\n", keyMaterial);
        make_key_or_exit(&key, DIR_ENCRYPT_KEY, keyLength, keyMaterial);
        cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
        encrypt_one(&cipher, &key, pt, ct);
        blockPrint(fp, ct, "CT");
        // Decrypted as well, to run the decryption path; not compared.
        make_key_or_exit(&key, DIR_DECRYPT_KEY, keyLength, keyMaterial);
        decrypt_one(&cipher, &key, ct, back);
        keyMaterial[i / 4] = '0';
    }
    std::puts(" done.");
    return 0;
}

int rijndaelVTKAT(FILE *fp, int keyLength)
{
    if (fp == nullptr || !known_key_length(keyLength)) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    Block pt, ct;
    char keyMaterial[65];

    progress("Executing Variable-Text KAT (key %d): ", keyLength);
    std::fprintf(fp, "\n==========\n\nKEYSIZE=%d\n\n", keyLength);
    std::memset(keyMaterial, '0', static_cast<size_t>(keyLength / 4));
    keyMaterial[keyLength / 4] = '\0';
    std::fprintf(fp, "KEY=%s\n", keyMaterial);
    make_key_or_exit(&key, DIR_ENCRYPT_KEY, keyLength, keyMaterial);
    cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
    for (int i = 0; i < 128; ++i) {
        std::memset(pt, 0, sizeof pt);
        pt[i / 8] = static_cast<uint8_t>(0x80 >> (i % 8));
        encrypt_one(&cipher, &key, pt, ct);
        std::fprintf(fp, "\nI=%d\n", i + 1);
        blockPrint(fp, pt, "PT");
        blockPrint(fp, ct, "CT");
    }
    std::puts(" done.");
    return 0;
}

// Reads "<key hex> <plaintext hex>" records (see docs/aes-vectors.md) and
// writes each as I, KEY, PT and CT; the ciphertext is also decrypted and
// must give the plaintext back.
int rijndaelTKAT(FILE *fp, int keyLength, FILE *in)
{
    if (fp == nullptr || in == nullptr || !known_key_length(keyLength)) return RMCPP_ERR_INVALID;
    KeyRecord encryptKey, decryptKey;
    CipherRecord cipher;
    Block pt, ct, back;
    char keyMaterial[66], ptText[34];

    progress("Executing Tables KAT (key %d): ", keyLength);
    std::fprintf(fp, "\n==========\n\nKEYSIZE=%d\n\n", keyLength);
    cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
    for (int i = 1;; ++i) {
        const int fields = std::fscanf(in, " %65[0-9A-Fa-f] %33[0-9A-Fa-f]", keyMaterial, ptText);
        if (fields == EOF) break;
        if (fields != 2 || static_cast<int>(std::strlen(keyMaterial)) != keyLength / 4 || std::strlen(ptText) != 32) {
            std::fprintf(stderr, "table.%d: record %d is not %d key digits and 32 plaintext digits\n", keyLength, i,
                         keyLength / 4);
            std::exit(1);
        }
        for (int b = 0; b < 16; ++b) {
            unsigned value = 0;
            std::sscanf(ptText + 2 * b, "%2x", &value);
            pt[b] = static_cast<uint8_t>(value);
        }
        make_key_or_exit(&encryptKey, DIR_ENCRYPT_KEY, keyLength, keyMaterial);
        make_key_or_exit(&decryptKey, DIR_DECRYPT_KEY, keyLength, keyMaterial);
        encrypt_one(&cipher, &encryptKey, pt, ct);
        decrypt_one(&cipher, &decryptKey, ct, back);
        if (std::memcmp(back, pt, sizeof pt) != 0) {
            std::fprintf(stderr, "table.%d: record %d does not decrypt to its plaintext\n", keyLength, i);
            std::exit(-1);
        }
        std::fprintf(fp, "\nI=%d\n", i);
        std::fprintf(fp, "KEY=%s\n", keyMaterial);
        blockPrint(fp, pt, "PT");
        blockPrint(fp, ct, "CT");
    }
    std::puts(" done.");
    return 0;
}

int rijndaelIVKAT(FILE *fp, int keyLength)
{
    if (fp == nullptr || !known_key_length(keyLength)) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    uint8_t keyBytes[32];
    Block pt, ct;
    char keyMaterial[65];

    progress("Executing Intermediate value KAT (key %d): ", keyLength);
    std::fprintf(fp, "\n==========\n\nKEYSIZE=%d\n", keyLength);
    for (int i = 0; i < keyLength / 8; ++i) keyBytes[i] = static_cast<uint8_t>(i);
    for (int i = 0; i < 16; ++i) pt[i] = static_cast<uint8_t>(i);
    key_text(keyMaterial, keyBytes, keyLength);
    std::fprintf(fp, "KEY=%s\n", keyMaterial);

    make_key_or_exit(&key, DIR_ENCRYPT_KEY, keyLength, keyMaterial);
    cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
    std::fprintf(fp, "\nIntermediate Ciphertext Values (Encryption)\n\n");
    blockPrint(fp, pt, "PT");
    print_intermediate_values(fp, &cipher, &key, pt, "CT");
    encrypt_one(&cipher, &key, pt, ct);

    make_key_or_exit(&key, DIR_DECRYPT_KEY, keyLength, keyMaterial);
    cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
    std::fprintf(fp, "\nIntermediate Ciphertext Values (Decryption)\n\n");
    blockPrint(fp, ct, "CT");
    print_intermediate_values(fp, &cipher, &key, ct, "PT");
    std::puts(" done.");
    return 0;
}

int makeKATs(const char *vkFile, const char *vtFile, const char *tblFile, const char *ivFile)
{
    if (vkFile == nullptr || vtFile == nullptr || tblFile == nullptr || ivFile == nullptr) return RMCPP_ERR_INVALID;
    FILE *fp = std::fopen(vkFile, "w");
    print_header(fp, vkFile, "Electronic Codebook (ECB) Mode", "Variable Key Known Answer Tests");
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) rijndaelVKKAT(fp, keyLength);
    print_kat_footer(fp);
    std::fclose(fp);

    fp = std::fopen(vtFile, "w");
    print_header(fp, vtFile, "Electronic Codebook (ECB) Mode", "Variable Text Known Answer Tests");
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) rijndaelVTKAT(fp, keyLength);
    print_kat_footer(fp);
    std::fclose(fp);

    fp = std::fopen(tblFile, "w");
    std::fprintf(fp, "%s", kTablesDescription);
    print_header(fp, tblFile, "Electronic Codebook (ECB) Mode", "Tables Known Answer Tests");
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) {
        char tableName[16];
        std::snprintf(tableName, sizeof tableName, "table.%d", keyLength);
        FILE *table = std::fopen(tableName, "r");
        if (table == nullptr) {
            // The 256-bit case names table.192: the message is reused as is.
            std::puts(keyLength == 128 ? "Table Known Answer test expects file table.128"
                                       : "Table Known Answer test expects file table.192");
            std::fclose(fp);
            std::exit(1);
        }
        rijndaelTKAT(fp, keyLength, table);
        std::fclose(table);
    }
    print_kat_footer(fp);
    std::fclose(fp);

    fp = std::fopen(ivFile, "w");
    print_header(fp, ivFile, "Electronic Codebook (ECB) Mode", "Intermediate Value Known Answer Tests");
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) rijndaelIVKAT(fp, keyLength);
    print_kat_footer(fp);
    std::fclose(fp);
    return 0;
}

int rijndaelECB_MCT(FILE *fp, int keyLength, uint8_t direction)
{
    if (fp == nullptr || !known_key_length(keyLength) || !known_direction(direction)) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    uint8_t keyBytes[32] = {};
    Block buffer[2] = {};
    char keyMaterial[65];
    const bool encrypting = direction == DIR_ENCRYPT_KEY;
    Counter counter;

    std::printf("Executing ECB MCT (%s, key %d): ", direction_name(direction), keyLength);
    std::fflush(stdout);
    std::fprintf(fp, "\n=========================\n\nKEYSIZE=%d\n", keyLength);
    const clock_t start = clock();
    for (int i = 0; i < kMonteCarloOuter; ++i) {
        counter.show(i);
        std::fprintf(fp, "\nI=%d\n", i);
        key_text(keyMaterial, keyBytes, keyLength);
        std::fprintf(fp, "KEY=%s\n", keyMaterial);
        makeKey(&key, direction, keyLength, keyMaterial);
        cipherInit(&cipher, MODE_ECB_BLOCKS, nullptr);
        blockPrint(fp, buffer[0], encrypting ? "PT" : "CT");
        // Each call takes the previous output: after an even number of
        // calls the last output is in buffer[0], the one before in buffer[1].
        for (int j = 0; j < kMonteCarloInner; ++j) {
            if (encrypting)
                blockEncrypt(&cipher, &key, buffer[j & 1], 128, buffer[(j + 1) & 1]);
            else
                blockDecrypt(&cipher, &key, buffer[j & 1], 128, buffer[(j + 1) & 1]);
        }
        blockPrint(fp, buffer[0], encrypting ? "CT" : "PT");
        next_mct_key(keyBytes, keyLength, buffer[1], buffer[0]);
    }
    counter.done(kMonteCarloOuter, start);
    return 0;
}

// The chaining is done here over ECB calls, not by the API's CBC mode.
int rijndaelCBC_MCT(FILE *fp, int keyLength, uint8_t direction)
{
    if (fp == nullptr || !known_key_length(keyLength) || !known_direction(direction)) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    uint8_t keyBytes[32] = {};
    Block in = {}, out = {}, cv = {};
    char keyMaterial[65];
    const bool encrypting = direction == DIR_ENCRYPT_KEY;
    Counter counter;

    std::printf("Executing CBC MCT (%s, key %d): ", direction_name(direction), keyLength);
    std::fflush(stdout);
    std::fprintf(fp, "\n==========\n\nKEYSIZE=%d\n", keyLength);
    cipherInit(&cipher, MODE_ECB_BLOCKS, nullptr);
    const clock_t start = clock();
    for (int i = 0; i < kMonteCarloOuter; ++i) {
        counter.show(i);
        std::fprintf(fp, "\nI=%d\n", i);
        key_text(keyMaterial, keyBytes, keyLength);
        std::fprintf(fp, "KEY=%s\n", keyMaterial);
        make_key_or_exit(&key, direction, keyLength, keyMaterial);
        cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
        blockPrint(fp, cv, "IV");
        blockPrint(fp, in, encrypting ? "PT" : "CT");
        if (encrypting) {
            for (int j = 0; j < kMonteCarloInner; ++j) {
                xor_into(in, cv, 16);
                encrypt_one(&cipher, &key, in, out);
                std::memcpy(in, cv, 16);
                std::memcpy(cv, out, 16);
            }
        } else {
            for (int j = 0; j < kMonteCarloInner; ++j) {
                blockDecrypt(&cipher, &key, in, 128, out);
                xor_into(out, cv, 16);
                std::memcpy(cv, in, 16);
                std::memcpy(in, out, 16);
            }
        }
        blockPrint(fp, out, encrypting ? "CT" : "PT");
        next_mct_key(keyBytes, keyLength, encrypting ? in : cv, out);
    }
    counter.done(kMonteCarloOuter, start);
    return 0;
}

int makeMCTs(const char *ecbEncryptionFile, const char *ecbDecryptionFile, const char *cbcEncryptionFile,
             const char *cbcDecryptionFile)
{
    if (ecbEncryptionFile == nullptr || ecbDecryptionFile == nullptr || cbcEncryptionFile == nullptr ||
        cbcDecryptionFile == nullptr)
        return RMCPP_ERR_INVALID;
    struct MonteCarloFile {
        const char *name;
        const char *modeLine;
        bool cbc;
        uint8_t direction;
    };
    const MonteCarloFile files[] = {
        {ecbEncryptionFile, "Electronic Codebook (ECB) Mode - ENCRYPTION", false, DIR_ENCRYPT_KEY},
        {ecbDecryptionFile, "Electronic Codebook (ECB) Mode - DECRYPTION", false, DIR_DECRYPT_KEY},
        {cbcEncryptionFile, "Cipher Block Chaining (CBC) Mode - ENCRYPTION", true, DIR_ENCRYPT_KEY},
        {cbcDecryptionFile, "Cipher Block Chaining (CBC) Mode - DECRYPTION", true, DIR_DECRYPT_KEY},
    };
    for (const MonteCarloFile &file : files) {
        FILE *fp = std::fopen(file.name, "w");
        print_header(fp, file.name, file.modeLine, "Monte Carlo Test");
        for (int keyLength = 128; keyLength <= 256; keyLength += 64) {
            if (file.cbc)
                rijndaelCBC_MCT(fp, keyLength, file.direction);
            else
                rijndaelECB_MCT(fp, keyLength, file.direction);
        }
        print_mct_footer(fp);
        std::fclose(fp);
    }
    return 0;
}

int makeFIPSTestVectors(const char *fipsFile)
{
    if (fipsFile == nullptr) return RMCPP_ERR_INVALID;
    KeyRecord key;
    CipherRecord cipher;
    uint8_t keyBytes[32];
    Block pt, ct;
    char keyMaterial[65];

    std::printf("Generating FIPS test vectors...");
    std::fflush(stdout);
    FILE *fp = std::fopen(fipsFile, "w");
    std::fprintf(fp, "\n================================\n\nFILENAME:  \"%s\"\n\nFIPS Test Vectors\n", fipsFile);
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) {
        for (int i = 0; i < keyLength / 8; ++i) keyBytes[i] = static_cast<uint8_t>(i);
        for (int i = 0; i < 16; ++i) pt[i] = static_cast<uint8_t>(16 * i + i);
        key_text(keyMaterial, keyBytes, keyLength);
        std::fprintf(fp, "\n================================\n\n");
        std::fprintf(fp, "KEYSIZE=%d\n\n", keyLength);
        std::fprintf(fp, "KEY=%s\n\n", keyMaterial);

        make_key_or_exit(&key, DIR_ENCRYPT_KEY, keyLength, keyMaterial);
        cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
        std::fprintf(fp, keyLength == 128 ? "Round Subkey Values (Encryption)\n\n"
                                          : "\nRound Subkey Values (Encryption)\n\n");
        print_round_keys(fp, &key);
        std::fprintf(fp, "\nIntermediate Ciphertext Values (Encryption)\n\n");
        blockPrint(fp, pt, "PT");
        print_intermediate_values(fp, &cipher, &key, pt, "CT");
        encrypt_one(&cipher, &key, pt, ct);

        make_key_or_exit(&key, DIR_DECRYPT_KEY, keyLength, keyMaterial);
        cipher_init_or_exit(&cipher, MODE_ECB_BLOCKS);
        std::fprintf(fp, "\nRound Subkey Values (Decryption)\n\n");
        print_round_keys(fp, &key);
        std::fprintf(fp, "\nIntermediate Ciphertext Values (Decryption)\n\n");
        blockPrint(fp, ct, "CT");
        print_intermediate_values(fp, &cipher, &key, ct, "PT");
    }
    std::fclose(fp);
    std::puts(" done.");
    return 0;
}

void rijndaelSpeed(int keyBits)
{
    if (!known_key_length(keyBits)) return;
    constexpr long kCalls = 10000000;
    uint8_t cipherKey[32];
    uint32_t rk[RIJNDAEL_MAX_SCHEDULE_WORDS];
    Block block = {};
    for (int i = 0; i < 32; ++i) cipherKey[i] = static_cast<uint8_t>(i * 7 + 1);

    std::printf("================================\n");
    std::printf("Speed measurement for %d-bit keys:\n", keyBits);
    auto report = [](const char *what, clock_t start) {
        const double seconds = static_cast<double>(clock() - start) / 1000000.0;
        std::printf("%s: %.1f s, %.0f Mbit/s\n", what, seconds, 1.28e9 / seconds / 1000000.0);
        std::fflush(stdout);
    };

    clock_t start = clock();
    for (long i = 0; i < kCalls; ++i) rijndaelKeySetupEnc(rk, cipherKey, keyBits);
    report("Encryption key schedule", start);

    const int Nr = rijndaelKeySetupEnc(rk, cipherKey, keyBits);
    start = clock();
    for (long i = 0; i < kCalls; ++i) rijndaelEncrypt(rk, Nr, block, block);
    report("Encryption", start);

    start = clock();
    for (long i = 0; i < kCalls; ++i) rijndaelKeySetupDec(rk, cipherKey, keyBits);
    report("Decryption key schedule", start);

    start = clock();
    for (long i = 0; i < kCalls; ++i) rijndaelDecrypt(rk, Nr, block, block);
    report("Decryption", start);
}

}  // extern "C"
