// Tone, DTMF and wave requests: the bytes that leave, the refusals with their
// log texts, and the values the operations change on the way.
#include "clientfixture.h"

#include <cstdint>
#include <functional>
#include <regex>
#include <string>

namespace {

class ToneTest : public ClientTest {};

// The 13 arguments of the three-phase forms, in argument order, with values
// that are all different so that a word in the wrong place shows.
struct Cadence {
    int amp = TONE_NORMAL;
    int hz1 = 440;
    int hz2 = 480;
    int on1 = 101;
    int off1 = 102;
    int on2 = 103;
    int off2 = 104;
    int repeat = 5;
    int on3 = 105;
    int off3 = 106;
    int intermit = 107;
};

enum class Form { Triple, Dual13, Dual10 };

const char* formName(Form f) { return f == Form::Triple ? "startTripleTone" : "startDualTone"; }

int startTone(Form f, int sock, int ch, const Cadence& c)
{
    switch (f) {
    case Form::Triple:
        return startTripleTone(sock, ch, c.amp, c.hz1, c.hz2, c.on1, c.off1, c.on2, c.off2, c.repeat, c.on3, c.off3,
                               c.intermit);
    case Form::Dual13:
        return startDualTone(sock, ch, c.amp, c.hz1, c.hz2, c.on1, c.off1, c.on2, c.off2, c.repeat, c.on3, c.off3,
                             c.intermit);
    case Form::Dual10:
        return startDualTone(sock, ch, c.amp, c.hz1, c.hz2, c.on1, c.off1, c.on2, c.off2, c.repeat);
    }
    return 0;
}

const Form kAllForms[] = {Form::Triple, Form::Dual13, Form::Dual10};

bool isImproperLine(const std::string& text, const std::string& fn, int value)
{
    const std::regex re(fn + ":[0-9]+ improper intermitMs:" + std::to_string(value) + "\n\\(" + fn + ":[0-9]+\\)\n");
    return std::regex_match(text, re);
}

std::string forms(Form f) { return f == Form::Dual10 ? "startDualTone/10" : formName(f); }

} // namespace

TEST_F(ToneTest, CadenceRecordPutsEveryArgumentInItsSlot)
{
    const Cadence c;
    for (Form f : kAllForms) {
        clear();
        ASSERT_EQ(startTone(f, sock, ch, c), VERY_OK) << forms(f);
        const Datagram d = only();
        ASSERT_EQ(d.size(), 168u) << forms(f);
        EXPECT_EQ(d.reqNo(), 1);
        EXPECT_EQ(d.channel(), ch);
        const bool three = f != Form::Dual10;
        const struct {
            size_t off;
            int want;
        } words[] = {{120, c.amp},  {124, c.hz1},  {128, c.hz2},           {132, c.on1},
                     {136, c.off1}, {140, c.on2},  {144, c.off2},          {148, three ? c.on3 : 0},
                     {152, three ? c.off3 : 0},    {156, c.repeat},        {160, three ? c.intermit : 0},
                     {164, 1}};
        for (const auto& w : words)
            EXPECT_EQ(d.word(w.off), w.want) << forms(f) << " offset " << w.off;
    }
}

TEST_F(ToneTest, EachFailedCheckRefusesWithItsOwnTextAndSendsNothing)
{
    REQUIRE_SYSLOG(*log);
    struct Row {
        const char* what;
        std::function<void(Cadence&)> change;
        const char* cond;
        bool threePhaseOnly;
    };
    const char* const ampText = "(amp==TONE_LOW||amp==TONE_NORMAL||amp==TONE_HIGH||amp==TONE_VIRTUAL_RING)";
    const Row rows[] = {
        {"amp 250", [](Cadence& c) { c.amp = 250; }, ampText, false},
        {"amp 0", [](Cadence& c) { c.amp = 0; }, ampText, false},
        {"amp -200", [](Cadence& c) { c.amp = -200; }, ampText, false},
        {"amp 500", [](Cadence& c) { c.amp = 500; }, ampText, false},
        {"hz1 -1", [](Cadence& c) { c.hz1 = -1; }, "hz1>=0", false},
        {"hz1 5000", [](Cadence& c) { c.hz1 = 5000; }, "hz1<5000", false},
        {"hz2 -1", [](Cadence& c) { c.hz2 = -1; }, "hz2>=0", false},
        {"hz2 5000", [](Cadence& c) { c.hz2 = 5000; }, "hz2<5000", false},
        {"both 0", [](Cadence& c) { c.hz1 = c.hz2 = 0; }, "!(hz1==0 && hz2==0)", false},
        {"firstOntime", [](Cadence& c) { c.on1 = -1; }, "firstOntime>=0", false},
        {"firstOfftime", [](Cadence& c) { c.off1 = -1; }, "firstOfftime>=0", false},
        {"secondOntime", [](Cadence& c) { c.on2 = -1; }, "secondOntime>=0", false},
        {"secondOfftime", [](Cadence& c) { c.off2 = -1; }, "secondOfftime>=0", false},
        {"thirdOnTime", [](Cadence& c) { c.on3 = -1; }, "thirdOnTime>=0", true},
        {"thirdOffTime", [](Cadence& c) { c.off3 = -1; }, "thirdOffTime>=0", true},
        // The first failing check is the one logged.
        {"amp before hz1", [](Cadence& c) { c.amp = 1; c.hz1 = -1; }, ampText, false},
        {"hz1 before both 0", [](Cadence& c) { c.hz1 = 5000; c.hz2 = 0; }, "hz1<5000", false},
        {"both 0 before phases", [](Cadence& c) { c.hz1 = c.hz2 = 0; c.on1 = -1; }, "!(hz1==0 && hz2==0)", false},
        {"second before third", [](Cadence& c) { c.off2 = -1; c.on3 = -1; }, "secondOfftime>=0", false},
    };
    for (const Row& r : rows) {
        for (Form f : kAllForms) {
            if (r.threePhaseOnly && f == Form::Dual10)
                continue;
            clear();
            Cadence c;
            r.change(c);
            EXPECT_EQ(startTone(f, sock, ch, c), VX_ERR_ARGUMENT) << r.what << " " << forms(f);
            EXPECT_TRUE(settle(0).empty()) << r.what << " " << forms(f);
            const auto t = infoLines();
            ASSERT_EQ(t.size(), 1u) << r.what << " " << forms(f);
            EXPECT_TRUE(isCheckLine(t[0], r.cond, formName(f))) << forms(f) << ": " << t[0];
        }
    }
}

TEST_F(ToneTest, LimitsThatPass)
{
    struct Row {
        const char* what;
        std::function<void(Cadence&)> change;
    };
    const Row rows[] = {
        {"hz1 4999", [](Cadence& c) { c.hz1 = 4999; }},
        {"hz2 4999", [](Cadence& c) { c.hz2 = 4999; }},
        {"hz1 0 alone", [](Cadence& c) { c.hz1 = 0; c.hz2 = 440; }},
        {"hz2 0 alone", [](Cadence& c) { c.hz1 = 440; c.hz2 = 0; }},
        {"TONE_LOW", [](Cadence& c) { c.amp = TONE_LOW; }},
        {"TONE_HIGH", [](Cadence& c) { c.amp = TONE_HIGH; }},
        {"TONE_VIRTUAL_RING", [](Cadence& c) { c.amp = TONE_VIRTUAL_RING; }},
        {"all phases 0", [](Cadence& c) { c.on1 = c.off1 = c.on2 = c.off2 = c.on3 = c.off3 = 0; }},
    };
    for (const Row& r : rows) {
        for (Form f : kAllForms) {
            clear();
            Cadence c;
            r.change(c);
            EXPECT_EQ(startTone(f, sock, ch, c), VERY_OK) << r.what << " " << forms(f);
            const Datagram d = only();
            EXPECT_EQ(d.word(120), c.amp) << r.what;
            EXPECT_EQ(d.word(124), c.hz1) << r.what;
            EXPECT_EQ(d.word(128), c.hz2) << r.what;
        }
    }
}

TEST_F(ToneTest, IntermissionBelowOneIsLoggedAndSentAsZero)
{
    REQUIRE_SYSLOG(*log);
    const struct {
        int given;
        int sent;
        bool improper;
    } rows[] = {{1, 1, false}, {2500, 2500, false}, {0, 0, true}, {-5, 0, true}, {INT32_MIN, 0, true}};
    for (const auto& r : rows) {
        for (Form f : {Form::Triple, Form::Dual13}) {
            clear();
            Cadence c;
            c.intermit = r.given;
            EXPECT_EQ(startTone(f, sock, ch, c), VERY_OK) << r.given;
            EXPECT_EQ(only().word(160), r.sent) << forms(f) << " " << r.given;
            const auto t = infoLines();
            ASSERT_EQ(t.size(), r.improper ? 1u : 0u) << forms(f) << " " << r.given;
            if (r.improper) {
                EXPECT_TRUE(isImproperLine(t[0], formName(f), r.given)) << t[0];
            }
        }
    }
    // The two-phase form has no intermission and never logs one.
    clear();
    EXPECT_EQ(startTone(Form::Dual10, sock, ch, Cadence{}), VERY_OK);
    EXPECT_EQ(only().word(160), 0);
    EXPECT_TRUE(infoLines().empty());
}

TEST_F(ToneTest, NegativeRepeatIsSentAsMinusOneOtherValuesUnchanged)
{
    const struct {
        int given;
        int sent;
    } rows[] = {{-7, -1}, {-1, -1}, {INT32_MIN, -1}, {0, 0}, {1, 1}, {65535, 65535}, {INT32_MAX, INT32_MAX}};
    for (const auto& r : rows) {
        for (Form f : kAllForms) {
            clear();
            Cadence c;
            c.repeat = r.given;
            EXPECT_EQ(startTone(f, sock, ch, c), VERY_OK);
            EXPECT_EQ(only().word(156), r.sent) << forms(f) << " " << r.given;
        }
    }
}

TEST_F(ToneTest, BothThirteenArgumentFormsSendIdenticalRecords)
{
    Cadence c;
    c.repeat = -3;
    c.intermit = 0;
    ASSERT_EQ(startTone(Form::Triple, sock, ch, c), VERY_OK);
    ASSERT_EQ(startTone(Form::Dual13, sock, ch, c), VERY_OK);
    const auto got = settle(2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].bytes, got[1].bytes);
}

TEST_F(ToneTest, StopAndTheSmallToneRequests)
{
    struct Row {
        const char* name;
        std::function<int(int, int)> call;
        int reqNo;
        size_t len;
        std::vector<std::pair<size_t, int>> words; // payload words at their offsets
    };
    const Row rows[] = {
        {"stopDualTone", [](int s, int c) { return stopDualTone(s, c); }, 1, 168,
         {{120, 0}, {124, 0}, {128, 0}, {156, 0}, {160, 0}, {164, 0}}},
        {"playTone", [](int s, int c) { return playTone(s, c, 9); }, 0, 128, {{120, 0}, {124, 1}}},
        {"stopTone", [](int s, int c) { return stopTone(s, c); }, 0, 128, {{120, 0}, {124, 0}}},
        {"setDtmfFeedback 5", [](int s, int c) { return setDtmfFeedback(s, c, 5); }, 310, 124, {{120, 1}}},
        {"setDtmfFeedback -1", [](int s, int c) { return setDtmfFeedback(s, c, -1); }, 310, 124, {{120, 1}}},
        {"setDtmfFeedback 0", [](int s, int c) { return setDtmfFeedback(s, c, 0); }, 310, 124, {{120, 0}}},
        {"sendDtmf", [](int s, int c) { return sendDtmf(s, c, 11, 12, 13, 14, 15); }, 2, 272,
         {{120, 11}, {124, 12}, {128, 13}, {132, 14}, {136, 15}, {140, 0}}},
        {"playDtmf", [](int s, int c) { return playDtmf(s, c, 21, 24, 25, "/sound/dtmf.txt"); }, 4, 272,
         {{120, 21}, {124, 0}, {128, 0}, {132, 24}, {136, 25}, {140, 0}}},
    };
    for (const Row& r : rows) {
        clear();
        EXPECT_EQ(r.call(sock, ch), VERY_OK) << r.name;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), r.reqNo) << r.name;
        EXPECT_EQ(d.size(), r.len) << r.name;
        EXPECT_EQ(d.channel(), ch) << r.name;
        for (const auto& w : r.words)
            EXPECT_EQ(d.word(w.first), w.second) << r.name << " offset " << w.first;
    }
    clear();
    ASSERT_EQ(sendDtmf(sock, ch, 1, 2, 3, 4, 5), VERY_OK);
    EXPECT_EQ(only().raw(144, 128), std::vector<uint8_t>(128, 0)) << "sendDtmf sends no file name";
}

TEST_F(ToneTest, PlayDtmfCopiesTheNameCutAt127AndRefusesANullOne)
{
    REQUIRE_SYSLOG(*log);
    ASSERT_EQ(playDtmf(sock, ch, 1, 4, 5, "digits"), VERY_OK);
    Datagram d = only();
    EXPECT_EQ(d.text(144, 128), "digits");
    EXPECT_EQ(d.raw(150, 122), std::vector<uint8_t>(122, 0));

    clear();
    const std::string longName(300, 'n');
    ASSERT_EQ(playDtmf(sock, ch, 1, 4, 5, longName.c_str()), VERY_OK);
    d = only();
    EXPECT_EQ(d.text(144, 128), std::string(127, 'n'));
    EXPECT_EQ(d.bytes[271], 0);

    clear();
    EXPECT_EQ(playDtmf(sock, ch, 1, 4, 5, nullptr), 0);
    EXPECT_TRUE(settle(0).empty());
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_TRUE(isCheckLine(t[0], "filename", "playDtmf")) << t[0];
}

TEST_F(ToneTest, WaveRecordAndItsPathRules)
{
    REQUIRE_SYSLOG(*log);
    const std::string p127 = "/sound/" + std::string(120, 'p');
    const std::string p128 = p127 + "x";
    const std::string p500(500, 'q');
    const char* const lenText = "strnlen(filePath,sizeof(req.filePath)+10)<sizeof(req.filePath)";
    struct Row {
        const char* what;
        const char* path;
        int playFile;
        int result;
        const char* cond; // logged refusal, or null
        std::string sentPath;
    };
    const Row rows[] = {
        {"ring", "/sound/ring_1.wav", 1, VERY_OK, nullptr, "/sound/ring_1.wav"},
        {"no such file", "/no/such/file.wav", 1, VERY_OK, nullptr, "/no/such/file.wav"},
        {"127 characters", p127.c_str(), 1, VERY_OK, nullptr, p127},
        {"playFile 7 tests the path too", p127.c_str(), 7, VERY_OK, nullptr, p127},
        {"128 characters", p128.c_str(), 1, VX_ERR_ARGUMENT, lenText, ""},
        {"500 characters", p500.c_str(), 1, VX_ERR_ARGUMENT, lenText, ""},
        {"null path", nullptr, 1, 0, "filePath", ""},
        {"playFile 0, null path", nullptr, 0, VERY_OK, nullptr, ""},
        {"playFile 0, path not copied", "/sound/x.wav", 0, VERY_OK, nullptr, ""},
        {"playFile 0, overlong path not looked at", p500.c_str(), 0, VERY_OK, nullptr, ""},
    };
    ASSERT_EQ(p127.size(), 127u);
    for (const Row& r : rows) {
        clear();
        EXPECT_EQ(playWavFile(sock, ch, r.path, 31, r.playFile, 32, 33, 34, 35, 36), r.result) << r.what;
        const auto t = infoLines();
        if (r.cond != nullptr) {
            EXPECT_TRUE(settle(0).empty()) << r.what;
            ASSERT_EQ(t.size(), 1u) << r.what;
            EXPECT_TRUE(isCheckLine(t[0], r.cond, "playWavFile")) << r.what << ": " << t[0];
            continue;
        }
        EXPECT_TRUE(t.empty()) << r.what;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), 3) << r.what;
        ASSERT_EQ(d.size(), 280u) << r.what;
        EXPECT_EQ(d.channel(), ch);
        EXPECT_EQ(d.text(120, 128), r.sentPath) << r.what;
        if (r.sentPath.empty()) {
            EXPECT_EQ(d.raw(120, 128), std::vector<uint8_t>(128, 0)) << r.what;
        }
        const struct {
            size_t off;
            int want;
        } words[] = {{248, 31}, {252, r.playFile}, {256, 32}, {260, 33}, {264, 34}, {268, 35}, {272, 36}, {276, 0}};
        for (const auto& w : words)
            EXPECT_EQ(d.word(w.off), w.want) << r.what << " offset " << w.off;
    }
}

TEST_F(ToneTest, ServiceDownGivesMinusSevenWithTheStrictLine)
{
    REQUIRE_SYSLOG(*log);
    svc.reset();
    struct Row {
        const char* name;
        std::function<int(int, int)> call;
    };
    const Row rows[] = {
        {"startTripleTone", [](int s, int c) { return startTone(Form::Triple, s, c, Cadence{}); }},
        {"startDualTone", [](int s, int c) { return startTone(Form::Dual13, s, c, Cadence{}); }},
        {"startDualTone", [](int s, int c) { return startTone(Form::Dual10, s, c, Cadence{}); }},
        {"stopDualTone", [](int s, int c) { return stopDualTone(s, c); }},
        {"playTone", [](int s, int c) { return playTone(s, c, 1); }},
        {"stopTone", [](int s, int c) { return stopTone(s, c); }},
        {"sendDtmf", [](int s, int c) { return sendDtmf(s, c, 1, 2, 3, 4, 5); }},
        {"playDtmf", [](int s, int c) { return playDtmf(s, c, 1, 4, 5, "f"); }},
        {"setDtmfFeedback", [](int s, int c) { return setDtmfFeedback(s, c, 1); }},
        {"playWavFile", [](int s, int c) { return playWavFile(s, c, "/sound/a.wav", 1, 1, 0, 0, 0, 0, 1); }},
    };
    for (const Row& r : rows) {
        log->clear();
        EXPECT_EQ(r.call(sock, ch), VX_ERR_RESOURCE) << r.name;
        const auto t = log->texts();
        ASSERT_EQ(t.size(), 2u) << r.name; // the transport's sendto line, then ours
        EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", r.name))
            << r.name << ": " << t[1];
    }
}
