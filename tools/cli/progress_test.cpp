// The progress bar's line, from the counts alone.
#include <gtest/gtest.h>

#include "progress.h"

namespace {

using cli::Progress;
using cli::progress_line;

TEST(ProgressLine, ShowsDoneOfTotalFailuresRateAndTimeLeft)
{
    const Progress p{412, 1000, 3, 0.5};
    const std::string line = progress_line(p, 80);
    EXPECT_EQ(line.size(), 79u) << "one column short of the terminal's width";
    EXPECT_EQ(line, "[===========>                ] 412/1000 hosts, 3 failed, 824 hosts/s, 0:01 left");
}

TEST(ProgressLine, RateAndTimeLeftAreUnknownUntilAHostFinishes)
{
    EXPECT_EQ(progress_line({0, 20, 0, 3.0}, 60), "[>                ] 0/20 hosts, 0 failed, ? hosts/s, ? left");
    EXPECT_EQ(progress_line({5, 20, 0, 0.0}, 60), "[====>            ] 5/20 hosts, 0 failed, ? hosts/s, ? left");
}

TEST(ProgressLine, SlowRatesKeepADecimalAndLongWaitsShowHours)
{
    EXPECT_EQ(progress_line({3, 10000, 1, 4.0}, 70),
              "[>               ] 3/10000 hosts, 1 failed, 0.8 hosts/s, 3:42:10 left");
    EXPECT_EQ(cli::clock_text(0), "0:00");
    EXPECT_EQ(cli::clock_text(0.2), "0:01");
    EXPECT_EQ(cli::clock_text(125), "2:05");
    EXPECT_EQ(cli::clock_text(3725), "1:02:05");
}

TEST(ProgressLine, AFinishedRunFillsTheBar)
{
    EXPECT_EQ(progress_line({20, 20, 2, 2.0}, 60).size(), 59u);
    EXPECT_EQ(progress_line({20, 20, 2, 2.0}, 60), "[============] 20/20 hosts, 2 failed, 10 hosts/s, 0:00 left");
}

TEST(ProgressLine, ANarrowTerminalGetsTheCountsWithoutTheBar)
{
    EXPECT_EQ(progress_line({412, 1000, 3, 0.5}, 50), "412/1000 hosts, 3 failed, 824 hosts/s, 0:01 left");
    EXPECT_EQ(progress_line({412, 1000, 3, 0.5}, 20), "412/1000 hosts, 3 f");
    EXPECT_EQ(progress_line({412, 1000, 3, 0.5}, 0), "");
}

}  // namespace
