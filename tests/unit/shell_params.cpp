// The command line: option effects, clamps, order rules and the faults that
// end the process.
#include "params.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// Runs parse_cmdline on "vxShell" followed by args, from the defaults.
void parse(std::vector<std::string> args)
{
    vxResetParams();
    args.insert(args.begin(), "vxShell");
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    parse_cmdline(static_cast<int>(args.size()), argv.data());
    testing::internal::GetCapturedStdout();
}

struct Case {
    std::vector<std::string> args;
    int (*value)();
    int want;
};

#define V(expr) [] { return static_cast<int>(expr); }

} // namespace

TEST(CommandLine, NumbersClampsAndOrder)
{
    const Case cases[] = {
        {{"-p", "9100"}, V(g_localPort), 9100},
        {{"-p", "9100"}, V(g_remotePort), 9200},
        {{"-p", "9100", "-r", "9300"}, V(g_remotePort), 9300},
        {{"-r", "9300", "-p", "9100"}, V(g_remotePort), 9200},
        {{"-p", "abc"}, V(g_localPort), 0},
        {{"-p", "12x"}, V(g_localPort), 12},
        {{"-c", "2"}, V(g_audioCodec), 2},
        {{"-c", "2"}, V(g_nRepeatCnt), 2},
        {{"-a", "12"}, V(g_AudMode), 1},
        {{"-a", "11"}, V(g_AudMode), 11},
        {{"-a", "0"}, V(g_AudMode), 1},
        {{"-a", "-1"}, V(g_AudMode), 1},
        {{"-a", "1", "-V", "12"}, V(g_nVolumeIndex), 5},
        {{"-V", "12", "-a", "1"}, V(g_nVolumeIndex), 12},
        {{"-a", "2", "-V", "15"}, V(g_nVolumeIndex), 15},
        {{"-a", "2", "-V", "16"}, V(g_nVolumeIndex), 7},
        {{"-a", "1", "-V", "7"}, V(g_nVolumeIndex), 7},
        {{"-a", "1", "-V", "8"}, V(g_nVolumeIndex), 5},
        {{"-V", "-1"}, V(g_nVolumeIndex), 7},
        {{"-a", "4", "-V", "-1"}, V(g_nVolumeIndex), 5},
        {{"-t", "11"}, V(g_nToneIndex), 0},
        {{"-t", "-1"}, V(g_nToneIndex), 0},
        {{"-t", "10"}, V(g_nToneIndex), 10},
        {{"-t", ""}, V(g_bTonePlay), 1},
        {{"-t", ""}, V(g_nToneIndex), 0},
        {{"-W", "0"}, V(g_nWaveIndex), 1},
        {{"-W", "11"}, V(g_nWaveIndex), 1},
        {{"-W", "10"}, V(g_nWaveIndex), 10},
        {{"-W", "10"}, V(g_bPlayWavIndex), 1},
        {{"-l", "6"}, V(g_vx_logLevel), 0},
        {{"-l", "-1"}, V(g_vx_logLevel), 0},
        {{"-l", "5"}, V(g_vx_logLevel), 5},
        {{"-d", "-1"}, V(g_LangCode), -1},
        {{"-d", "22"}, V(g_LangCode), 22},
        // Beyond 32 bits a number saturates, as strtol does with the phone's
        // 32-bit long, on every target.
        {{"-d", "99999999999"}, V(g_LangCode), 2147483647},
        {{"-d", "-99999999999"}, V(g_LangCode), -2147483647 - 1},
        {{"-p", "4294967296"}, V(g_localPort), 2147483647},
        {{"-p", "4294967296"}, V(g_remotePort), -2147483647 - 1 + 99},
        {{"-k", "3"}, V(g_iKeyType), 0},
        {{"-k", "2"}, V(g_iKeyType), 2},
        {{"-P", "4"}, V(g_bIsPagingMode), 0},
        {{"-P", "3"}, V(g_bIsPagingMode), 3},
        {{"-R"}, V(g_vx_Relay_Mode), 1},
        {{"-v", "anything"}, V(g_bVQMRequestMOS), 1},
        {{"x"}, V(g_AudMode), 2},
        {{"x"}, V(g_localPort2), 9002},
        {{"x"}, V(g_remotePort2), 9000},
        {{"x"}, V(g_ShellPort), 55555},
    };
    for (const auto& c : cases) {
        parse(c.args);
        std::string line;
        for (const auto& a : c.args)
            line += a + " ";
        EXPECT_EQ(c.value(), c.want) << line;
    }
}

TEST(CommandLine, TextsAreCutToTheirFields)
{
    parse({"-o", "12345678901234567890", "-s", "1234567890123456789", "-z", "10.0.0.2"});
    EXPECT_STREQ(g_szOppDevId, "123456789012345");
    EXPECT_STREQ(g_szServerIp, "123456789012345");
    EXPECT_STREQ(g_szServerIp2, "10.0.0.2");

    const std::string longPath(200, 'p');
    parse({"-w", longPath});
    EXPECT_EQ(std::string(g_WaveFile), longPath.substr(0, 127));
    EXPECT_EQ(g_bTestPlayWav, 1);

    parse({"-w", ""});
    EXPECT_STREQ(g_WaveFile, "");
    EXPECT_EQ(g_bTestPlayWav, 0);
    EXPECT_STREQ(g_sShellIp, "0.0.0.0");
}

TEST(CommandLine, ToneParameters)
{
    parse({"-T", ""});
    EXPECT_EQ(g_bTonePlayEx, 1);
    EXPECT_EQ(g_ToneFreq1, -1);
    EXPECT_EQ(g_Tone3OffTime, -1);
    EXPECT_EQ(g_ToneRepeat, 0);

    parse({"-T", "440,480,1,2,3,4,5,6,-1,999"});
    const int got[] = {g_ToneFreq1,   g_ToneFreq2,   g_Tone1OnTime,  g_Tone1OffTime, g_Tone2OnTime,
                       g_Tone2OffTime, g_Tone3OnTime, g_Tone3OffTime, g_ToneRepeat,   g_ToneInterMitMs};
    const int want[] = {440, 480, 1, 2, 3, 4, 5, 6, -1, 999};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(got[i], want[i]) << i;
    EXPECT_EQ(g_bTonePlayEx, 1);

    // Separators merge: ",,1" is one field.
    vxResetParams();
    char text[] = "1,,2,3,4,5,6,7,8,9,10";
    EXPECT_EQ(CheckToneParam(text), 10);
}

TEST(CommandLine, FileModeFields)
{
    parse({"-f", "a,b,c,d,e"});
    EXPECT_EQ(g_nFileMode, 1);
    EXPECT_STREQ(g_szFileName, "a");
    EXPECT_STREQ(g_szSection, "b");
    EXPECT_STREQ(g_szKey, "c");
    EXPECT_STREQ(g_szText, "d");

    parse({"-f", ""});
    EXPECT_EQ(g_nFileMode, 1);
    EXPECT_STREQ(g_szFileName, "");

    const std::string longField(100, 'k');
    parse({"-f", "f," + longField + ",k,v"});
    EXPECT_EQ(std::string(g_szSection), longField.substr(0, 63));
}

using CommandLineDeath = ::testing::Test;

TEST(CommandLineDeath, FaultsEndWithStatusOne)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct {
        std::vector<std::string> args;
        const char* output; // regex on stdout+stderr
    } cases[] = {
        {{"-q", "9000"}, "invalid option"},
        {{"-h"}, "Options:"},
        {{"-t"}, "requires an argument"},
        {{"-T", "1,2,3,4,5,6,7,8,9"}, "ERR, CheckToneParam, count:9, pszParam:1, paramters is invald"},
        {{"-T", "1,2,3,4,5,6,7,8,9,10,11"}, "count:11"},
        {{"-f", "a,b,c"}, ">>> ERR, vxShell, fileMode, but text is NULL\\[a\\]\\."},
        {{"-f", "a,,b,c"}, "text is NULL\\[a\\]"},
        {{"-f", "a,b"}, ">>> ERR, vxShell, fileMode:get, but Key is NULL\\[a\\]"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = c.args;
        args.insert(args.begin(), "vxShell");
        EXPECT_EXIT(
            {
                vxResetParams();
                std::vector<char*> argv;
                for (auto& a : args)
                    argv.push_back(&a[0]);
                argv.push_back(nullptr);
                // stdout goes to stderr so the death test sees it.
                dup2(2, 1);
                parse_cmdline(static_cast<int>(args.size()), argv.data());
                fflush(stdout);
                exit(0);
            },
            ::testing::ExitedWithCode(1), c.output)
            << c.args[0];
    }
}
