// The rmcpp tool's trace sink (tools/cli/trace_log.cpp, compiled in here):
// a peer that makes the library log without end must not make the tool
// grow, and what the tool's error messages read back must survive the flood.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "rmcpp.h"
#include "trace_log.h"

namespace {

constexpr const char *kRakp2KeyInvalid = "Received Key of RAKP Message 2 is invalid.\n\n";
constexpr size_t kFloodLines = 100000;
// Far below one flood: 100000 lines of 200 bytes are 20 MB.
constexpr size_t kBound = 16 * 1024;

const KivTraceRecord kRecord = {2, 1, 0, 0};

// What a BMC sending junk makes the library log: long lines, each unlike
// the one before.
void flood(size_t lines = kFloodLines)
{
    const std::string junk(200, 'j');
    for (size_t i = 0; i < lines; ++i) lib_log(1, "ignored datagram %zu: %s\n", i, junk.c_str());
}

class TraceSink : public ::testing::Test {
protected:
    void SetUp() override
    {
        cli::trace::reset();
        cli::trace::watch(kRakp2KeyInvalid);
    }
};

TEST_F(TraceSink, HeldMemoryStaysBoundedUnderAFloodOfLongLines)
{
    size_t most = 0;
    for (int round = 0; round < 10; ++round) {
        flood(kFloodLines / 10);
        most = std::max(most, cli::trace::held_bytes());
    }
    EXPECT_LT(most, kBound);
}

TEST_F(TraceSink, HeldMemoryStaysBoundedUnderLinesLongerThanTheLibraryMakes)
{
    const std::string line(64 * 1024, 'x');
    for (int i = 0; i < 2000; ++i) {
        putKivTrace(0, &kRecord, "[ Status Code ] ");
        putKivTrace(0, &kRecord, line.c_str());
    }
    EXPECT_LT(cli::trace::held_bytes(), kBound);
    EXPECT_FALSE(cli::trace::last_status_code());
}

TEST_F(TraceSink, AStatusCodeLoggedBeforeTheFloodIsStillFound)
{
    PrintRMCPStatusCode(0x0D);
    flood();
    const auto status = cli::trace::last_status_code();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->first, 0x0D);
    EXPECT_EQ(status->second, "Unauthorized name.\n");
    EXPECT_LT(cli::trace::held_bytes(), kBound);
}

TEST_F(TraceSink, TheLastStatusCodeWins)
{
    PrintRMCPStatusCode(0x02);
    flood(1000);
    PrintRMCPStatusCode(0x11);
    flood(1000);
    const auto status = cli::trace::last_status_code();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->first, 0x11);
    // Reading it back does not leave the lookup's own lines behind.
    const auto again = cli::trace::last_status_code();
    ASSERT_TRUE(again);
    EXPECT_EQ(again->first, 0x11);
}

TEST_F(TraceSink, AStatusLineWithoutAKnownTextGivesNoCode)
{
    PrintRMCPStatusCode(0x0D);
    putKivTrace(1, &kRecord, "[ Status Code ] ");
    putKivTrace(1, &kRecord, "Not a status text.\n");
    EXPECT_FALSE(cli::trace::last_status_code());
}

TEST_F(TraceSink, CodesOutsideTheTableAreFoundByTheirText)
{
    PrintRMCPStatusCode(0x80);
    flood(1000);
    const auto status = cli::trace::last_status_code();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->first, 0x80);
    EXPECT_EQ(status->second, "Unexpected Status Code = 80.\n");
}

TEST_F(TraceSink, NoStatusLineGivesNoCode)
{
    flood(1000);
    EXPECT_FALSE(cli::trace::last_status_code());
}

TEST_F(TraceSink, AWatchedLineLoggedBeforeTheFloodIsStillSeen)
{
    EXPECT_FALSE(cli::trace::seen(kRakp2KeyInvalid));
    putKivTrace(1, &kRecord, kRakp2KeyInvalid);
    flood();
    EXPECT_TRUE(cli::trace::seen(kRakp2KeyInvalid));
    EXPECT_LT(cli::trace::held_bytes(), kBound);
}

TEST_F(TraceSink, APartOfAWatchedLineIsNotSeen)
{
    putKivTrace(1, &kRecord, "Received Key of RAKP Message 2 is invalid.\n");
    EXPECT_FALSE(cli::trace::seen(kRakp2KeyInvalid));
}

TEST_F(TraceSink, VerboseShowsEveryLineOfTheFlood)
{
    std::FILE *file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(::fileno(file), STDERR_FILENO);
    cli::trace::set_verbose(true);
    flood(20000);
    putKivTrace(1, &kRecord, "no newline");
    cli::trace::set_verbose(false);
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);

    std::string shown;
    std::rewind(file);
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) shown.append(buffer, n);
    std::fclose(file);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 20001);
    EXPECT_NE(shown.find("ignored datagram 19999: jjj"), std::string::npos);
    EXPECT_EQ(shown.substr(shown.size() - 11), "no newline\n");
    EXPECT_LT(cli::trace::held_bytes(), kBound);
}

}  // namespace
