// The rmcpp tool's trace sink on several threads at once, as a run over
// many hosts uses it: what each thread's session logged is read back by
// that thread alone, a new run forgets the last, and -v lines go where the
// run asked.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "rmcpp.h"
#include "trace_log.h"

namespace {

constexpr const char *kRakp2KeyInvalid = "Received Key of RAKP Message 2 is invalid.\n\n";
const KivTraceRecord kRecord = {2, 1, 0, 0};

class TraceThreads : public ::testing::Test {
protected:
    void SetUp() override
    {
        cli::trace::reset();
        cli::trace::watch(kRakp2KeyInvalid);
    }
    void TearDown() override { cli::trace::set_verbose(false); }
};

TEST_F(TraceThreads, AWatchedLineIsSeenOnlyByTheThreadThatLoggedIt)
{
    constexpr int kThreads = 16;
    std::vector<int> seen(kThreads, -1);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([i, &seen] {
            cli::trace::start_run(nullptr);
            for (int k = 0; k < 200; ++k) lib_log(1, "thread %d line %d\n", i, k);
            if (i % 2 == 0) putKivTrace(1, &kRecord, kRakp2KeyInvalid);
            for (int k = 0; k < 200; ++k) lib_log(1, "thread %d more %d\n", i, k);
            seen[i] = cli::trace::seen(kRakp2KeyInvalid) ? 1 : 0;
        });
    for (auto &t : threads) t.join();
    for (int i = 0; i < kThreads; ++i) EXPECT_EQ(seen[i], i % 2 == 0 ? 1 : 0) << "thread " << i;
    EXPECT_FALSE(cli::trace::seen(kRakp2KeyInvalid)) << "nor by the main thread";
}

TEST_F(TraceThreads, EachThreadReadsBackItsOwnStatusCode)
{
    std::vector<int> codes(2, -1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back([i, &codes] {
            cli::trace::start_run(nullptr);
            for (int k = 0; k < 100; ++k) {
                PrintRMCPStatusCode(i == 0 ? 0x01 : 0x0D);
                lib_log(1, "noise %d\n", k);
            }
            const auto status = cli::trace::last_status_code();
            codes[i] = status ? status->first : -2;
        });
    for (auto &t : threads) t.join();
    EXPECT_EQ(codes[0], 0x01);
    EXPECT_EQ(codes[1], 0x0D);
}

TEST_F(TraceThreads, ANewRunForgetsWhatTheLastOneLogged)
{
    putKivTrace(1, &kRecord, kRakp2KeyInvalid);
    PrintRMCPStatusCode(0x02);
    ASSERT_TRUE(cli::trace::seen(kRakp2KeyInvalid));
    ASSERT_TRUE(cli::trace::last_status_code());
    cli::trace::start_run(nullptr);
    EXPECT_FALSE(cli::trace::seen(kRakp2KeyInvalid));
    EXPECT_FALSE(cli::trace::last_status_code());
}

TEST_F(TraceThreads, VerboseLinesGoToTheRunsOwnLog)
{
    cli::trace::set_verbose(true);
    std::vector<std::FILE *> logs = {std::tmpfile(), std::tmpfile()};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back([i, &logs] {
            cli::trace::start_run(logs[i]);
            for (int k = 0; k < 50; ++k) lib_log(1, "run %d line %d\n", i, k);
            cli::trace::start_run(nullptr);
        });
    for (auto &t : threads) t.join();
    for (int i = 0; i < 2; ++i) {
        std::string text;
        std::rewind(logs[i]);
        char buffer[4096];
        size_t n = 0;
        while ((n = std::fread(buffer, 1, sizeof buffer, logs[i])) > 0) text.append(buffer, n);
        std::fclose(logs[i]);
        EXPECT_NE(text.find("run " + std::to_string(i) + " line 49\n"), std::string::npos) << text;
        EXPECT_EQ(text.find("run " + std::to_string(1 - i)), std::string::npos) << text;
    }
}

}  // namespace
