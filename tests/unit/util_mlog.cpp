// The shell's log line and clock routines.
#include "mlog.h"

#include <chrono>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>

TEST(LogPrt, TimestampedLineAndNothingForAnEmptyText)
{
    testing::internal::CaptureStdout();
    const char* empty = "";
    logPrt("%s", empty);
    logPrt(">>> %s, n:%d", "x", 5);
    logPrt("ends in a newline\n");
    fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(out, std::regex(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] >>> x, n:5\n)"
                                                 R"(\[\d\d:\d\d:\d\d\.\d\d\d\] ends in a newline\n\n)")))
        << out;
}

TEST(HexDump, EachByteTabbedAndOneNewline)
{
    const unsigned char bytes[] = {0x00, 0x0f, 0xab};
    testing::internal::CaptureStdout();
    hex_dump(3, bytes);
    hex_dump(0, bytes);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\t 0 \t f \t ab \n\n");
}

TEST(Clock, GetTimeMsCountsFromTheWholeSecondOfTheFirstCall)
{
    const int32_t first = getTimeMs();
    EXPECT_GE(first, 0);
    EXPECT_LT(first, 2000);
    const auto t0 = std::chrono::steady_clock::now();
    msleep(300);
    const auto slept = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(slept).count(), 299);
    const int32_t second = getTimeMs();
    EXPECT_GE(second - first, 290);
    EXPECT_LT(second - first, 2000);
    EXPECT_EQ(msleep(0), 0);
}
