// Timers, the logging function and its level-name setter.
#include <gtest/gtest.h>

#include <string>

#include "rmcpp.h"
#include "trace_capture.h"

namespace {

timeval tv(long s, long us) { return timeval{s, us}; }

class Timers : public ::testing::Test {
protected:
    void SetUp() override { testkit::clear_trace(); }
};

TEST_F(Timers, ElapsedEqualToLimitIsTimeOver)
{
    const timeval start = tv(100, 200000), now = tv(102, 700000), limit = tv(2, 500000);
    timeval left = tv(9, 9);
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 1);
    EXPECT_EQ(left.tv_sec, 0);
    EXPECT_EQ(left.tv_usec, 0);
}

TEST_F(Timers, OneMicrosecondBeforeLimitLeavesOneMicrosecond)
{
    const timeval start = tv(100, 200000), now = tv(102, 699999), limit = tv(2, 500000);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 0);
    EXPECT_EQ(left.tv_sec, 0);
    EXPECT_EQ(left.tv_usec, 1);
}

TEST_F(Timers, ElapsedSecondsAboveLimitIsTimeOver)
{
    const timeval start = tv(10, 0), now = tv(13, 0), limit = tv(2, 999999);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 1);
}

TEST_F(Timers, SameSecondElapsedIsMicrosecondDifference)
{
    const timeval start = tv(50, 100), now = tv(50, 400), limit = tv(1, 0);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 0);
    EXPECT_EQ(left.tv_sec, 0);
    EXPECT_EQ(left.tv_usec, 1000000 - 300);
}

TEST_F(Timers, BorrowWhenStartMicrosecondsAreLarger)
{
    // elapsed = (2 s, 900000 us) after the borrow; left = 5 s - elapsed.
    const timeval start = tv(10, 300000), now = tv(13, 200000), limit = tv(5, 0);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 0);
    EXPECT_EQ(left.tv_sec, 2);
    EXPECT_EQ(left.tv_usec, 100000);
}

TEST_F(Timers, LeftWithoutBorrow)
{
    const timeval start = tv(10, 100000), now = tv(11, 200000), limit = tv(3, 500000);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 0);
    EXPECT_EQ(left.tv_sec, 2);
    EXPECT_EQ(left.tv_usec, 400000);
}

TEST_F(Timers, StartLaterThanNowIsInvalid)
{
    const timeval start = tv(20, 0), now = tv(19, 999999), limit = tv(5, 0);
    timeval left = tv(7, 7);
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), -1);
    EXPECT_EQ(left.tv_sec, 0);
    EXPECT_EQ(left.tv_usec, 0);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Invalid input value for Timer Check.\n"});
}

TEST_F(Timers, SameSecondStartMicrosecondsLaterIsInvalid)
{
    const timeval start = tv(20, 500), now = tv(20, 499), limit = tv(5, 0);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), -1);
    EXPECT_TRUE(testkit::logged("Invalid input value for Timer Check.\n"));
}

TEST_F(Timers, ZeroLimitIsOverAtOnce)
{
    const timeval start = tv(20, 500), now = tv(20, 500), limit = tv(0, 0);
    timeval left;
    EXPECT_EQ(CheckTimeOver(&start, &now, &limit, &left), 1);
}

TEST_F(Timers, ReadTimerMeasuresFromTheClock)
{
    timeval start;
    gettimeofday(&start, nullptr);
    const timeval limit = tv(30, 0);
    timeval left;
    EXPECT_EQ(ReadTimer(&start, &limit, &left), 0);
    EXPECT_LE(left.tv_sec, 30);
    EXPECT_GE(left.tv_sec, 28);

    timeval long_ago = start;
    long_ago.tv_sec -= 60;
    EXPECT_EQ(ReadTimer(&long_ago, &limit, &left), 1);

    timeval future = start;
    future.tv_sec += 3600;
    EXPECT_EQ(ReadTimer(&future, &limit, &left), -1);
}

class Logging : public ::testing::Test {
protected:
    void SetUp() override
    {
        testkit::clear_trace();
        saved_sa_ = RMCPConnectSA;
        saved_level_ = Print_Level;
    }
    void TearDown() override
    {
        RMCPConnectSA = saved_sa_;
        Print_Level = saved_level_;
    }
    uint8_t saved_sa_ = 0;
    int saved_level_ = 0;
};

TEST_F(Logging, LineGoesToChannelOneWithFixedRecord)
{
    lib_log(3, "value %d and %s\n", 42, "text");
    ASSERT_EQ(testkit::trace().size(), 1u);
    const auto &line = testkit::trace()[0];
    EXPECT_EQ(line.channel, 1);
    EXPECT_EQ(line.text, "value 42 and text\n");
    EXPECT_EQ(line.record.kind, 2);
    EXPECT_EQ(line.record.format, 1);
    EXPECT_EQ(line.record.code, 0);
    EXPECT_EQ(line.record.detail, 0);
}

TEST_F(Logging, EveryLevelIsLoggedWhateverPrintLevel)
{
    Print_Level = 4;
    for (uint8_t level = 0; level <= 5; ++level) lib_log(level, "level %u\n", level);
    EXPECT_EQ(testkit::log_lines().size(), 6u);
}

TEST_F(Logging, LongMessageIsCutAt255Characters)
{
    const std::string long_text(400, 'x');
    lib_log(3, "%s", long_text.c_str());
    ASSERT_EQ(testkit::log_lines().size(), 1u);
    EXPECT_EQ(testkit::log_lines()[0], std::string(255, 'x'));
}

TEST_F(Logging, MessageOf255CharactersIsWhole)
{
    const std::string text(254, 'y');
    lib_log(3, "%s\n", text.c_str());
    EXPECT_EQ(testkit::log_lines()[0], text + "\n");
}

TEST_F(Logging, ConnectSA0x24SilencesEverything)
{
    IPMI_SetupConnectSA(0x24);
    lib_log(3, "not seen\n");
    lib_log(1, "not seen either\n");
    EXPECT_TRUE(testkit::trace().empty());
    IPMI_SetupConnectSA(0x71);
    lib_log(3, "seen\n");
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"seen\n"});
}

TEST_F(Logging, SetupConnectSAKeepsLowEightBits)
{
    IPMI_SetupConnectSA(0x181);
    EXPECT_EQ(RMCPConnectSA, 0x81);
    IPMI_SetupConnectSA(0x124);  // low byte 0x24: the gate closes
    lib_log(3, "gated\n");
    EXPECT_TRUE(testkit::trace().empty());
}

TEST(Defaults, GlobalsStartAsDocumented)
{
    EXPECT_EQ(RMCPtimeout.tv_sec, 5);
    EXPECT_EQ(RMCPtimeout.tv_usec, 0);
    EXPECT_STREQ(mess_tag[0], "DEBUG");
    EXPECT_STREQ(mess_tag[1], "INFO");
    EXPECT_STREQ(mess_tag[2], "WARN");
    EXPECT_STREQ(mess_tag[3], "ERROR");
    EXPECT_STREQ(mess_tag[4], "NONE");
    EXPECT_EQ(mess_tag[5], nullptr);
}

TEST_F(Logging, ChangePrintLevelByName)
{
    Print_Level = 0;
    change_printlevel("WARN");
    EXPECT_EQ(Print_Level, 2);
    change_printlevel("warn");
    EXPECT_EQ(Print_Level, 2);
    change_printlevel("NONE");
    EXPECT_EQ(Print_Level, 4);
    change_printlevel("DEBUG");
    EXPECT_EQ(Print_Level, 0);
    change_printlevel("ERROR");
    EXPECT_EQ(Print_Level, 3);
    change_printlevel("INFO");
    EXPECT_EQ(Print_Level, 1);
    change_printlevel("VERBOSE");
    EXPECT_EQ(Print_Level, 1);
    EXPECT_TRUE(testkit::trace().empty());
}

}  // namespace
