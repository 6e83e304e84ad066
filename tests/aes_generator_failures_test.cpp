// The test-vector generator's ways of ending the process, and the speed
// measurement's report. This program replaces makeKey, cipherInit,
// blockEncrypt, blockDecrypt and clock for the library; each generator run
// happens in a child process, whose exit status, standard output and
// standard error are checked byte for byte.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "rmcpp_aes.h"

namespace fault {
int make_key = 1;       // a result other than 1 is returned instead
int cipher_init = 1;
int block_encrypt = 0;  // non-zero: returned instead
int block_decrypt = 0;
bool spoil_decrypt = false;
// The clock: off, or a list of readings to hand out in turn.
std::vector<clock_t> clock_readings;
size_t clock_next = 0;
}  // namespace fault

template <typename Fn>
Fn next_definition(const char *name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

extern "C" int32_t makeKey(KeyRecord *key, uint8_t direction, int32_t keyLen, const char *keyMaterial)
{
    using Fn = int32_t (*)(KeyRecord *, uint8_t, int32_t, const char *);
    static const Fn real = next_definition<Fn>("makeKey");
    if (fault::make_key != 1) return fault::make_key;
    return real(key, direction, keyLen, keyMaterial);
}

extern "C" int32_t cipherInit(CipherRecord *cipher, uint8_t mode, const char *IV)
{
    using Fn = int32_t (*)(CipherRecord *, uint8_t, const char *);
    static const Fn real = next_definition<Fn>("cipherInit");
    if (fault::cipher_init != 1) return fault::cipher_init;
    return real(cipher, mode, IV);
}

extern "C" int32_t blockEncrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                                uint8_t *outBuffer)
{
    using Fn = int32_t (*)(CipherRecord *, KeyRecord *, const uint8_t *, int32_t, uint8_t *);
    static const Fn real = next_definition<Fn>("blockEncrypt");
    const int32_t r = real(cipher, key, input, inputLen, outBuffer);
    return fault::block_encrypt != 0 ? fault::block_encrypt : r;
}

extern "C" int32_t blockDecrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                                uint8_t *outBuffer)
{
    using Fn = int32_t (*)(CipherRecord *, KeyRecord *, const uint8_t *, int32_t, uint8_t *);
    static const Fn real = next_definition<Fn>("blockDecrypt");
    const int32_t r = real(cipher, key, input, inputLen, outBuffer);
    if (fault::spoil_decrypt) outBuffer[15] ^= 0x01;
    return fault::block_decrypt != 0 ? fault::block_decrypt : r;
}

extern "C" clock_t clock(void) noexcept
{
    if (fault::clock_next < fault::clock_readings.size()) return fault::clock_readings[fault::clock_next++];
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<clock_t>(t.tv_sec * 1000000 + t.tv_nsec / 1000);
}

namespace {

struct ChildRun {
    int status = -1;  // exit status, or -1 when it did not exit
    std::string out, err;
};

std::string drain(int fd)
{
    std::string s;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) s.append(buffer, static_cast<size_t>(n));
    close(fd);
    return s;
}

// Runs `body` in a child with its standard output and error in files.
ChildRun in_child(const std::function<void()> &body)
{
    FILE *out = std::tmpfile();
    FILE *err = std::tmpfile();
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fileno(out), 1);
        dup2(fileno(err), 2);
        body();
        std::fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ChildRun r;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    const int out_fd = dup(fileno(out));
    const int err_fd = dup(fileno(err));
    lseek(out_fd, 0, SEEK_SET);
    lseek(err_fd, 0, SEEK_SET);
    r.out = drain(out_fd);
    r.err = drain(err_fd);
    std::fclose(out);
    std::fclose(err);
    return r;
}

// A known-answer or Monte Carlo routine writing into a scratch file.
ChildRun generator(const std::function<void(FILE *)> &routine)
{
    return in_child([&] {
        FILE *fp = std::tmpfile();
        routine(fp);
        std::fclose(fp);
    });
}

void variable_key(FILE *fp) { rijndaelVKKAT(fp, 128); }
void cbc_encrypt(FILE *fp) { rijndaelCBC_MCT(fp, 128, DIR_ENCRYPT_KEY); }

const std::string kVkProgress = "Executing Variable-Key KAT (key 128): ";
const std::string kCbcProgress = "Executing CBC MCT (ENCRYPT, key 128): ";

TEST(AesGeneratorFailure, UnfailedRoutineFinishes)
{
    const ChildRun r = generator(variable_key);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, kVkProgress + " done.\n");
    EXPECT_EQ(r.err, "");
}

TEST(AesGeneratorFailure, MakeKeyErrorEndsTheProcess)
{
    const ChildRun r = generator([](FILE *fp) {
        fault::make_key = ERR_KEY_MATERIAL;
        variable_key(fp);
    });
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, kVkProgress);
    EXPECT_EQ(r.err, "makeKey error -2\n");

    const ChildRun cbc = generator([](FILE *fp) {
        fault::make_key = ERR_KEY_DIRECTION;
        cbc_encrypt(fp);
    });
    EXPECT_EQ(cbc.status, 255);
    EXPECT_EQ(cbc.out.rfind(kCbcProgress, 0), 0u) << cbc.out;
    EXPECT_EQ(cbc.err, "makeKey error -1\n");
}

TEST(AesGeneratorFailure, CipherInitErrorEndsTheProcess)
{
    const ChildRun r = generator([](FILE *fp) {
        fault::cipher_init = ERR_CIPHER_MODE;
        variable_key(fp);
    });
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, kVkProgress);
    EXPECT_EQ(r.err, "cipherInit error -4\n");

    const ChildRun cbc = generator([](FILE *fp) {
        fault::cipher_init = ERR_CIPHER_STATE;
        cbc_encrypt(fp);
    });
    EXPECT_EQ(cbc.status, 255);
    EXPECT_EQ(cbc.err, "cipherInit error -5\n");
}

TEST(AesGeneratorFailure, BlockEncryptErrorEndsTheProcess)
{
    const ChildRun r = generator([](FILE *fp) {
        fault::block_encrypt = ERR_KEY_RECORD;
        variable_key(fp);
    });
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, kVkProgress);
    EXPECT_EQ(r.err, "blockEncrypt error -3\n");

    const ChildRun cbc = generator([](FILE *fp) {
        fault::block_encrypt = 64;
        cbc_encrypt(fp);
    });
    EXPECT_EQ(cbc.status, 255);
    EXPECT_EQ(cbc.err, "blockEncrypt error 64\n");
}

TEST(AesGeneratorFailure, BlockDecryptErrorEndsTheProcess)
{
    const ChildRun r = generator([](FILE *fp) {
        fault::block_decrypt = ERR_CIPHER_STATE;
        variable_key(fp);
    });
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.err, "blockDecrypt error -5\n");
}

// A table file with one record: the FIPS-197 Appendix C.1 key and plaintext.
FILE *table_128(const char *record)
{
    FILE *in = std::tmpfile();
    std::fputs(record, in);
    std::rewind(in);
    return in;
}

constexpr const char *kAppendixC1 = "000102030405060708090A0B0C0D0E0F 00112233445566778899AABBCCDDEEFF\n";

TEST(AesGeneratorFailure, TableRecordThatDoesNotDecryptEndsTheProcess)
{
    const ChildRun good = generator([](FILE *fp) { rijndaelTKAT(fp, 128, table_128(kAppendixC1)); });
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "Executing Tables KAT (key 128):  done.\n");

    const ChildRun r = generator([](FILE *fp) {
        fault::spoil_decrypt = true;
        rijndaelTKAT(fp, 128, table_128(kAppendixC1));
    });
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "Executing Tables KAT (key 128): ");
    EXPECT_EQ(r.err, "table.128: record 1 does not decrypt to its plaintext\n");
}

TEST(AesGeneratorFailure, MalformedTableRecordEndsTheProcess)
{
    const ChildRun r = generator([](FILE *fp) {
        rijndaelTKAT(fp, 128, table_128("000102 00112233445566778899AABBCCDDEEFF\n"));
    });
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "table.128: record 1 is not 32 key digits and 32 plaintext digits\n");
}

// The clock readings are scripted: each routine's time is the difference
// of two readings, 1,000,000 ticks to the second.
TEST(RijndaelSpeed, ReportsSecondsAndRatePerRoutine)
{
    const ChildRun r = in_child([] {
        fault::clock_readings = {10000000, 11000000, 20000000, 22000000,
                                 30000000, 34000000, 40000000, 40500000};
        rijndaelSpeed(128);
        if (fault::clock_next != fault::clock_readings.size()) _exit(3);
    });
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "================================\n"
              "Speed measurement for 128-bit keys:\n"
              "Encryption key schedule: 1.0 s, 1280 Mbit/s\n"
              "Encryption: 2.0 s, 640 Mbit/s\n"
              "Decryption key schedule: 4.0 s, 320 Mbit/s\n"
              "Decryption: 0.5 s, 2560 Mbit/s\n");
    EXPECT_EQ(r.err, "");
}

}  // namespace
