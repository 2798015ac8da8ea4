// Video display and camera requests: positions at the screen's edges, the
// surface switches, capture and path records, the camera and its detection.
#include "client_video_common.h"

#include <chrono>
#include <climits>

namespace {

class VideoDisplayTest : public VideoTest {};

const char* const kReq = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)";

const char* const kX = "(x>=0 && x<480)";
const char* const kY = "(y>=0 && y<272)";
const char* const kW = "(width>1 && x+width<=480)";
const char* const kH = "(height>1 && y+height<=272)";

} // namespace

TEST_F(VideoDisplayTest, EveryOperationSendsItsRecordAndFailsInItsForm)
{
    const int s = sock;
    const std::vector<SendRow> rows = {
        {"setVideoDisplayPosition", [=] { return setVideoDisplayPosition(s, 3, 10, 20, 300, 200); }, 122, 136,
         {{120, 10}, {124, 20}, {128, 300}, {132, 200}}, "", kReq, "setVideoDisplayPosition"},
        {"showDisp", [=] { return showDisp(s, 3, 7); }, 124, 124, {{120, 1}}, "", nullptr, ""},
        {"setVideoPipPosition", [=] { return setVideoPipPosition(s, 3, 1, 2, 3, 4); }, 127, 136,
         {{120, 1}, {124, 2}, {128, 3}, {132, 4}}, "", kReq, "setVideoPipPosition"},
        {"showPip", [=] { return showPip(s, 3, -3); }, 128, 128, {{120, 1}, {124, 0}}, "", nullptr, ""},
        {"setPipPriorityHigh", [=] { return setPipPriorityHigh(s, 3, 9); }, 129, 124, {{120, 9}}, "", nullptr, ""},
        {"startMainAppBlackColorKey", [=] { return startMainAppBlackColorKey(s, 3, -2); }, 130, 124, {{120, -2}}, "",
         nullptr, ""},
        {"captureDisp", [=] { return captureDisp(s, 3, 44, "/tmp/d.jpg"); }, 132, 384, {{120, 1}, {124, 44}}, "",
         nullptr, ""},
        {"capturePip", [=] { return capturePip(s, 3, 45, "/tmp/p.jpg"); }, 132, 384, {{120, 0}, {124, 45}}, "",
         nullptr, ""},
        {"sendImage", [=] { return sendImage(s, 3, "/img/a.png"); }, 135, 376, {}, "", nullptr, ""},
        {"setVideoSource", [=] { return setVideoSource(s, 3, "/dev/video0"); }, 136, 376, {}, "", nullptr, ""},
        {"setVideoDestination", [=] { return setVideoDestination(s, 3, "/dev/fb1"); }, 137, 376, {}, "", nullptr, ""},
        {"setCamera", [=] { return setCamera(s, 3, -5, 600); }, 138, 128, {{120, -5}, {124, 600}}, "", nullptr, ""},
    };
    runSendTable(rows);
}

TEST_F(VideoDisplayTest, SwitchesCarryZeroOrOne)
{
    struct {
        int (*op)(int, int, int);
        int onOff;
        int32_t want;
        size_t len;
    } rows[] = {{showDisp, 0, 0, 124},      {showDisp, 1, 1, 124},       {showDisp, INT_MIN, 1, 124},
                {showPip, 0, 0, 128},       {showPip, 255, 1, 128},      {showPip, -1, 1, 128}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.onOff);
        clear();
        EXPECT_EQ(r.op(sock, ch, r.onOff), VERY_OK);
        const Datagram d = only();
        EXPECT_EQ(d.size(), r.len);
        EXPECT_EQ(d.word(120), r.want);
    }
}

TEST_F(VideoDisplayTest, PositionsAtTheScreensEdges)
{
    REQUIRE_SYSLOG(*log);
    struct {
        int x, y, width, height;
        const char* fails; // null: sent
    } rows[] = {
        {0, 0, 480, 272, nullptr},     // the full screen
        {478, 270, 2, 2, nullptr},     // the smallest window in the far corner
        {100, 0, 380, 10, nullptr},    // right edge exactly
        {0, 10, 2, 262, nullptr},      // bottom edge exactly
        {480, 0, 2, 2, kX},            {-1, 0, 2, 2, kX},         {INT_MIN, 0, 2, 2, kX},
        {0, 272, 2, 2, kY},            {0, -1, 2, 2, kY},         {0, INT_MIN, 2, 2, kY},
        {0, 0, 1, 2, kW},              {100, 0, 381, 10, kW},     {0, 0, 0, 2, kW},
        {479, 0, INT_MAX, 2, kW},      {0, 0, -2, 2, kW},
        {0, 0, 2, 1, kH},              {0, 10, 2, 263, kH},       {0, 271, 2, INT_MAX, kH},
        {480, 272, 1, 1, kX},          // the first failing check decides
        {0, 272, 1, 1, kY},            {0, 0, 1, 1, kW},
    };
    struct {
        const char* fn;
        int reqNo;
        int (*op)(int, int, int, int, int, int);
    } ops[] = {{"setVideoDisplayPosition", 122, setVideoDisplayPosition},
               {"setVideoPipPosition", 127, setVideoPipPosition}};
    for (const auto& op : ops) {
        for (const auto& r : rows) {
            SCOPED_TRACE(std::string(op.fn) + " " + std::to_string(r.x) + "," + std::to_string(r.y) + "," +
                         std::to_string(r.width) + "," + std::to_string(r.height));
            clear();
            if (r.fails) {
                expectRefused({op.fn, [&] { return op.op(sock, ch, r.x, r.y, r.width, r.height); },
                               {{r.fails, op.fn}}, ""});
                continue;
            }
            EXPECT_EQ(op.op(sock, ch, r.x, r.y, r.width, r.height), VERY_OK);
            const Datagram d = only();
            EXPECT_EQ(d.reqNo(), op.reqNo);
            EXPECT_EQ(d.word(120), r.x);
            EXPECT_EQ(d.word(124), r.y);
            EXPECT_EQ(d.word(128), r.width);
            EXPECT_EQ(d.word(132), r.height);
        }
    }
}

TEST_F(VideoDisplayTest, CaptureSurfacesDifferOnlyInTheSurfaceWord)
{
    ASSERT_EQ(captureDisp(sock, ch, 7, "/tmp/cap.jpg"), VERY_OK);
    const Datagram disp = only();
    clear();
    ASSERT_EQ(capturePip(sock, ch, 7, "/tmp/cap.jpg"), VERY_OK);
    const Datagram pip = only();
    ASSERT_EQ(disp.size(), 384u);
    ASSERT_EQ(pip.size(), 384u);
    EXPECT_EQ(disp.word(120), 1);
    EXPECT_EQ(pip.word(120), 0);
    EXPECT_EQ(disp.text(128, 256), "/tmp/cap.jpg");
    for (size_t i = 0; i < disp.size(); ++i)
        if (i < 120 || i >= 124) {
            EXPECT_EQ(disp.bytes[i], pip.bytes[i]) << "byte " << i;
        }
}

TEST_F(VideoDisplayTest, PathsAreCutTo254CharactersAndNullIsEmpty)
{
    const std::string p254 = "/" + longText(253, 'p');
    const std::string p255 = p254 + "X";
    const std::string p300 = "/" + longText(299, 'q');
    struct {
        const char* name;
        const char* path;
        std::string want;
    } paths[] = {{"null", nullptr, ""},
                 {"empty", "", ""},
                 {"254", p254.c_str(), p254},
                 {"255", p255.c_str(), p254},
                 {"300", p300.c_str(), p300.substr(0, 254)}};
    struct {
        const char* name;
        std::function<int(const char*)> op;
        size_t offset;
        size_t len;
    } ops[] = {
        {"captureDisp", [&](const char* p) { return captureDisp(sock, ch, 1, p); }, 128, 384},
        {"capturePip", [&](const char* p) { return capturePip(sock, ch, 1, p); }, 128, 384},
        {"sendImage", [&](const char* p) { return sendImage(sock, ch, p); }, 120, 376},
        {"setVideoSource", [&](const char* p) { return setVideoSource(sock, ch, p); }, 120, 376},
        {"setVideoDestination", [&](const char* p) { return setVideoDestination(sock, ch, p); }, 120, 376},
    };
    for (const auto& op : ops) {
        for (const auto& p : paths) {
            SCOPED_TRACE(std::string(op.name) + " " + p.name);
            clear();
            EXPECT_EQ(op.op(p.path), VERY_OK);
            const Datagram d = only();
            ASSERT_EQ(d.size(), op.len);
            EXPECT_EQ(d.text(op.offset, 256), p.want);
            EXPECT_EQ(d.bytes[op.offset + 254], 0) << "byte 254 is forced to NUL";
            EXPECT_EQ(d.bytes[op.offset + 255], 0) << "the last byte is never written";
        }
    }
}

TEST_F(VideoDisplayTest, CamDetectionGivesTheServicesAnswerOrMinusSeven)
{
    for (int state : {0, 1, 5}) {
        clear();
        svc->setResult(308, state);
        EXPECT_EQ(getCamDetection(sock), state);
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), 308);
        EXPECT_EQ(d.size(), 120u);
        EXPECT_EQ(d.channel(), 0);
        if (log->ok()) {
            EXPECT_TRUE(log->lines().empty()) << "308 has a row: no LOG_CRIT line";
        }
    }
    // A silent service: the 3-second wait runs out (done once, it is slow).
    clear();
    svc->setPolicy(FakeService::Policy::Silent);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(getCamDetection(sock), VX_ERR_RESOURCE);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(2500));
    if (log->ok()) {
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NE(t[0].find(")reqNo:308 "), std::string::npos) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp)==VERY_OK", "getCamDetection"))
            << t[1];
    }
}
