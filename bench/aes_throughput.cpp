// AES-128 throughput of the Rijndael core against OpenSSL's EVP AES-128.
//
// The program first runs rijndaelSpeed for 128-, 192- and 256-bit keys,
// then measures ECB encryption and decryption of 4 KiB buffers with the
// core and with OpenSSL. OpenSSL picks its AES code once, at start-up, from
// the CPU capability bits, which the OPENSSL_ia32cap environment variable
// can mask; so the OpenSSL figures without hardware AES come from child
// runs of this same program started with that variable set:
//   - portable: AES-NI and SSSE3 masked, OpenSSL's table-driven AES;
//   - vector-permute: only AES-NI masked, OpenSSL's SSSE3 AES;
//   - hardware: nothing masked (AES-NI when the CPU has it).
// The target is the core at 0.9x or more of OpenSSL's portable AES. The
// program prints figures only.
//
// Options: --no-speed skips rijndaelSpeed; Google Benchmark's own options
// (e.g. --benchmark_min_time=1) are passed on.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "rmcpp_aes.h"

namespace {

constexpr size_t kBufferBytes = 4096;

// CPUID.1:ECX bits 25 (AES-NI) and 9 (SSSE3), as OpenSSL numbers them in
// its first capability word (ECX in the upper half).
constexpr const char *kMaskPortable = "~0x200020000000000";
constexpr const char *kMaskVectorPermute = "~0x200000000000000";

const uint8_t kKey[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                          0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};

std::vector<uint8_t> input_buffer()
{
    std::vector<uint8_t> b(kBufferBytes);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i * 31 + 7);
    return b;
}

void core_ecb(benchmark::State &state, bool encrypt)
{
    uint32_t rk[RIJNDAEL_MAX_SCHEDULE_WORDS];
    const int nr = encrypt ? rijndaelKeySetupEnc(rk, kKey, 128) : rijndaelKeySetupDec(rk, kKey, 128);
    const std::vector<uint8_t> in = input_buffer();
    std::vector<uint8_t> out(kBufferBytes);
    for (auto _ : state) {
        for (size_t off = 0; off < kBufferBytes; off += 16) {
            if (encrypt)
                rijndaelEncrypt(rk, nr, in.data() + off, out.data() + off);
            else
                rijndaelDecrypt(rk, nr, in.data() + off, out.data() + off);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBufferBytes);
}

void openssl_ecb(benchmark::State &state, bool encrypt)
{
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    if (ctx == nullptr || EVP_CipherInit_ex(ctx, EVP_aes_128_ecb(), nullptr, kKey, nullptr, encrypt) != 1) {
        state.SkipWithError("EVP_CipherInit_ex failed");
        EVP_CIPHER_CTX_free(ctx);
        return;
    }
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    const std::vector<uint8_t> in = input_buffer();
    std::vector<uint8_t> out(kBufferBytes);
    for (auto _ : state) {
        int len = 0;
        EVP_CipherUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(kBufferBytes));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBufferBytes);
    EVP_CIPHER_CTX_free(ctx);
}

void BM_CoreEncrypt128(benchmark::State &state) { core_ecb(state, true); }
void BM_CoreDecrypt128(benchmark::State &state) { core_ecb(state, false); }
void BM_OpenSslEncrypt128(benchmark::State &state) { openssl_ecb(state, true); }
void BM_OpenSslDecrypt128(benchmark::State &state) { openssl_ecb(state, false); }

BENCHMARK(BM_CoreEncrypt128);
BENCHMARK(BM_CoreDecrypt128);
BENCHMARK(BM_OpenSslEncrypt128);
BENCHMARK(BM_OpenSslDecrypt128);

using Rates = std::map<std::string, double>;  // benchmark name -> bytes per second

// Keeps bytes_per_second of every run; prints through the console
// reporter unless quiet.
class Collector : public benchmark::ConsoleReporter {
public:
    explicit Collector(bool quiet) : ConsoleReporter(isatty(1) ? OO_ColorTabular : OO_Tabular), quiet_(quiet) {}
    bool ReportContext(const Context &context) override { return quiet_ || ConsoleReporter::ReportContext(context); }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const auto it = run.counters.find("bytes_per_second");
            if (it != run.counters.end() && !run.error_occurred) rates[run.benchmark_name()] = it->second.value;
        }
        if (!quiet_) ConsoleReporter::ReportRuns(runs);
    }
    Rates rates;

private:
    bool quiet_;
};

std::string self_path()
{
    std::array<char, 4096> buf{};
    const ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size() - 1);
    return n > 0 ? std::string(buf.data(), static_cast<size_t>(n)) : std::string();
}

// Runs the OpenSSL benchmarks in a child started with OPENSSL_ia32cap set.
Rates openssl_rates_with_mask(const char *mask, const std::vector<std::string> &passOn)
{
    std::string cmd = std::string("OPENSSL_ia32cap='") + mask + "' '" + self_path() + "' --child";
    for (const auto &arg : passOn) cmd += " '" + arg + "'";
    Rates rates;
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) return rates;
    char name[256];
    double value = 0;
    while (std::fscanf(p, "%255s %lf", name, &value) == 2) rates[name] = value;
    pclose(p);
    return rates;
}

double mb(const Rates &r, const std::string &name)
{
    const auto it = r.find(name);
    return it == r.end() ? 0.0 : it->second / 1e6;
}

void print_row(const char *label, double enc, double dec, const char *note = "")
{
    std::printf("%-36s %10.1f %10.1f  %s\n", label, enc, dec, note);
}

void print_ratio(const char *label, double coreEnc, double coreDec, double enc, double dec, const char *note = "")
{
    auto ratio = [](double a, double b) { return b > 0 ? a / b : 0.0; };
    std::printf("%-36s %9.2fx %9.2fx  %s\n", label, ratio(coreEnc, enc), ratio(coreDec, dec), note);
}

}  // namespace

int main(int argc, char **argv)
{
    bool child = false, speed = true;
    std::vector<char *> args{argv[0]};
    std::vector<std::string> passOn;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--child") == 0) {
            child = true;
        } else if (std::strcmp(argv[i], "--no-speed") == 0) {
            speed = false;
        } else {
            args.push_back(argv[i]);
            if (std::strncmp(argv[i], "--benchmark_filter", 18) != 0) passOn.push_back(argv[i]);
        }
    }
    std::string filter = "--benchmark_filter=OpenSsl";
    if (child) args.push_back(filter.data());
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());

    if (child) {
        Collector quiet(true);
        benchmark::RunSpecifiedBenchmarks(&quiet);
        for (const auto &[name, rate] : quiet.rates) std::printf("%s %.0f\n", name.c_str(), rate);
        return 0;
    }

    if (speed)
        for (int bits = 128; bits <= 256; bits += 64) rijndaelSpeed(bits);

    std::printf("================================\n");
    Collector collector(false);
    benchmark::RunSpecifiedBenchmarks(&collector);
    const Rates here = collector.rates;
    const Rates portable = openssl_rates_with_mask(kMaskPortable, passOn);
    const Rates vperm = openssl_rates_with_mask(kMaskVectorPermute, passOn);

    const double coreEnc = mb(here, "BM_CoreEncrypt128"), coreDec = mb(here, "BM_CoreDecrypt128");
    const double hwEnc = mb(here, "BM_OpenSslEncrypt128"), hwDec = mb(here, "BM_OpenSslDecrypt128");
    const double ptEnc = mb(portable, "BM_OpenSslEncrypt128"), ptDec = mb(portable, "BM_OpenSslDecrypt128");
    const double vpEnc = mb(vperm, "BM_OpenSslEncrypt128"), vpDec = mb(vperm, "BM_OpenSslDecrypt128");

    std::printf("\nAES-128 ECB, %zu-byte buffers, MB/s                encrypt    decrypt\n", kBufferBytes);
    print_row("rmcpp core (rijndaelEncrypt/Decrypt)", coreEnc, coreDec);
    print_row("OpenSSL portable", ptEnc, ptDec, (std::string("OPENSSL_ia32cap=") + kMaskPortable).c_str());
    print_row("OpenSSL vector-permute (SSSE3)", vpEnc, vpDec,
              (std::string("OPENSSL_ia32cap=") + kMaskVectorPermute).c_str());
    print_row("OpenSSL hardware AES", hwEnc, hwDec, "no mask");
    std::printf("\n");
    print_ratio("core / OpenSSL portable", coreEnc, coreDec, ptEnc, ptDec, "target >= 0.90x");
    print_ratio("core / OpenSSL vector-permute", coreEnc, coreDec, vpEnc, vpDec);
    print_ratio("core / OpenSSL hardware AES", coreEnc, coreDec, hwEnc, hwDec);
    const bool met = ptEnc > 0 && ptDec > 0 && coreEnc >= 0.9 * ptEnc && coreDec >= 0.9 * ptDec;
    std::printf("target (core >= 0.90x OpenSSL portable, both directions): %s\n", met ? "met" : "not met");
    return 0;
}
