// Video stream requests: records, traces, codec and resolution checks, the
// switches, and both forms of failure.
#include "client_video_common.h"

namespace {

class VideoStreamTest : public VideoTest {};

const char* const kReq = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)";
const char* const kSetCodec = "Send2VoxalisByApp(sock,&setCodec,sizeof(setCodec),&resp)";
const char* const kSetPayload = "Send2VoxalisByApp(sock,&setPayload,sizeof(setPayload),&resp)";

} // namespace

TEST_F(VideoStreamTest, EveryOperationSendsItsRecordAndFailsInItsForm)
{
    const int s = sock;
    const std::vector<SendRow> rows = {
        {"setIframe", [=] { return setIframe(s, 3); }, 110, 120, {}, "", kReq, "setIframe"},
        {"setVideoGopInterval", [=] { return setVideoGopInterval(s, 3, 25); }, 111, 124, {{120, 25}}, "", nullptr, ""},
        {"setVideoCodec/4", [=] { return setVideoCodec(s, 3, 97, 120); }, 112, 128, {{120, 97}, {124, 120}},
         "### setVideoCodec, channel:3, codec:97, payloadType:120.\n", kSetCodec, "setVideoCodec"},
        {"setVideoCodec/3", [=] { return setVideoCodec(s, 3, 95); }, 112, 128, {{120, 95}, {124, 95}}, "", kSetCodec,
         "setVideoCodec"},
        {"setVideoTxPayload", [=] { return setVideoTxPayload(s, 3, 101); }, 113, 124, {{120, 101}},
         "### setVideoTxPayload, channel:3,  payloadType:101.\n", kSetPayload, "setVideoTxPayload"},
        {"setVideoRxPayload", [=] { return setVideoRxPayload(s, 3, -1); }, 114, 124, {{120, -1}},
         "### setVideoRxPayload, channel:3,  payloadType:-1.\n", kSetPayload, "setVideoRxPayload"},
        {"setVideoStreamResolution", [=] { return setVideoStreamResolution(s, 3, 2); }, 115, 124, {{120, 2}}, "", kReq,
         "setVideoStreamResolution"},
        {"setVideoFps", [=] { return setVideoFps(s, 3, 30); }, 116, 124, {{120, 30}}, "", kReq, "setVideoFps"},
        {"setVideoTxRate", [=] { return setVideoTxRate(s, 3, 512000); }, 117, 124, {{120, 512000}}, "", kReq,
         "setVideoTxRate"},
        {"startVideoRx", [=] { return startVideoRx(s, 3, 5); }, 118, 124, {{120, 1}},
         "### startVideoRx, channel:3, onOff:5.\n", kReq, "startVideoRx"},
        {"startVideoTx", [=] { return startVideoTx(s, 3, -1); }, 119, 124, {{120, 1}},
         "### startVideoTx, channel:3, onOff:-1.\n", kReq, "startVideoTx"},
        {"setVideoBrightness", [=] { return setVideoBrightness(s, 3, -40); }, 133, 124, {{120, -40}}, "", nullptr, ""},
        {"setVideoWhitebalance", [=] { return setVideoWhitebalance(s, 3, 6500); }, 134, 124, {{120, 6500}}, "", nullptr,
         ""},
        {"startVideoForward2Saver", [=] { return startVideoForward2Saver(s, 3, 0); }, 141, 124, {{120, 0}},
         "### startVideoForward2Saver, channel:3, onOff:0.\n", kReq, "startVideoForward2Saver"},
        {"startVideoRelayWithPcClient", [=] { return startVideoRelayWithPcClient(s, 3, 2); }, 144, 124, {{120, 1}},
         "### startVideoRelayWithPcClient, channel:3, onOff:2.\n", kReq, "startVideoRelayWithPcClient"},
        {"setVideoExpand", [=] { return setVideoExpand(s, 3, 1); }, 316, 124, {{120, 1}}, "", nullptr, ""},
    };
    runSendTable(rows);
}

TEST_F(VideoStreamTest, CodecPayloadResolutionAndSwitchValues)
{
    const int s = sock;
    const std::vector<SendRow> rows = {
        // The long form: -1 means the codec's own number, nothing else is replaced.
        {"codec 34, pt -1", [=] { return setVideoCodec(s, 3, 34, -1); }, 112, 128, {{120, 34}, {124, 34}},
         "### setVideoCodec, channel:3, codec:34, payloadType:-1.\n", kSetCodec, "setVideoCodec"},
        {"codec 96, pt -1", [=] { return setVideoCodec(s, 3, 96, -1); }, 112, 128, {{120, 96}, {124, 96}},
         "### setVideoCodec, channel:3, codec:96, payloadType:-1.\n", kSetCodec, "setVideoCodec"},
        {"codec 60, pt -2", [=] { return setVideoCodec(s, 3, 60, -2); }, 112, 128, {{120, 60}, {124, -2}},
         "### setVideoCodec, channel:3, codec:60, payloadType:-2.\n", kSetCodec, "setVideoCodec"},
        {"codec 40, pt 0", [=] { return setVideoCodec(s, 3, 40, 0); }, 112, 128, {{120, 40}, {124, 0}},
         "### setVideoCodec, channel:3, codec:40, payloadType:0.\n", kSetCodec, "setVideoCodec"},
        // The short form: the lower edge and the codecs between the names pass.
        {"short 34", [=] { return setVideoCodec(s, 3, 34); }, 112, 128, {{120, 34}, {124, 34}}, "", kSetCodec,
         "setVideoCodec"},
        {"resolution 0", [=] { return setVideoStreamResolution(s, 3, 0); }, 115, 124, {{120, 0}}, "", kReq,
         "setVideoStreamResolution"},
        {"resolution 1", [=] { return setVideoStreamResolution(s, 3, 1); }, 115, 124, {{120, 1}}, "", kReq,
         "setVideoStreamResolution"},
        {"startVideoRx 0", [=] { return startVideoRx(s, 3, 0); }, 118, 124, {{120, 0}},
         "### startVideoRx, channel:3, onOff:0.\n", kReq, "startVideoRx"},
        {"startVideoTx 1", [=] { return startVideoTx(s, 3, 1); }, 119, 124, {{120, 1}},
         "### startVideoTx, channel:3, onOff:1.\n", kReq, "startVideoTx"},
        {"startVideoForward2Saver min", [=] { return startVideoForward2Saver(s, 3, INT32_MIN); }, 141, 124, {{120, 1}},
         "### startVideoForward2Saver, channel:3, onOff:-2147483648.\n", kReq, "startVideoForward2Saver"},
        {"other channel", [=] { return setVideoFps(s, 12, 15); }, 116, 124, {{120, 15}}, "", kReq, "setVideoFps", 12},
    };
    for (const auto& r : rows)
        expectSent(r);
}

TEST_F(VideoStreamTest, RefusedCodecsAndResolutionsSendNothing)
{
    REQUIRE_SYSLOG(*log);
    const int s = sock;
    const std::vector<RefusalRow> rows = {
        // The long form prints its trace before the checks.
        {"long 33", [=] { return setVideoCodec(s, 3, 33, -1); }, {{"codec>=CODEC_H263", "setVideoCodec"}},
         "### setVideoCodec, channel:3, codec:33, payloadType:-1.\n"},
        {"long 98", [=] { return setVideoCodec(s, 3, 98, -1); }, {{"codec<=CODEC_H264", "setVideoCodec"}},
         "### setVideoCodec, channel:3, codec:98, payloadType:-1.\n"},
        {"long min", [=] { return setVideoCodec(s, 3, INT32_MIN, 5); }, {{"codec>=CODEC_H263", "setVideoCodec"}},
         "### setVideoCodec, channel:3, codec:-2147483648, payloadType:5.\n"},
        // The short form: no trace, the named codecs first, then the range.
        {"short 97", [=] { return setVideoCodec(s, 3, 97); }, {{"codec!=CODEC_H264", "setVideoCodec"}}, ""},
        {"short 96", [=] { return setVideoCodec(s, 3, 96); }, {{"codec!=CODEC_MPEG4", "setVideoCodec"}}, ""},
        {"short 33", [=] { return setVideoCodec(s, 3, 33); }, {{"codec>=CODEC_H263", "setVideoCodec"}}, ""},
        {"short 98", [=] { return setVideoCodec(s, 3, 98); }, {{"codec<=CODEC_H264", "setVideoCodec"}}, ""},
        {"resolution -1", [=] { return setVideoStreamResolution(s, 3, -1); },
         {{"resolution>=CIF_MODE", "setVideoStreamResolution"}}, ""},
        {"resolution 3", [=] { return setVideoStreamResolution(s, 3, 3); },
         {{"resolution<=QCIF_MODE", "setVideoStreamResolution"}}, ""},
    };
    for (const auto& r : rows)
        expectRefused(r);
}

TEST_F(VideoStreamTest, BadSocketFailsInTheTransport)
{
    std::string out;
    EXPECT_EQ(captured([] { return setVideoCodec(-1, 3, 97, -1); }, &out), VX_ERR_RESOURCE);
    EXPECT_EQ(out, "### setVideoCodec, channel:3, codec:97, payloadType:-1.\n");
    EXPECT_EQ(setVideoExpand(-1, 3, 1), -1);
    EXPECT_EQ(startVideoRx(-5, 3, 1), VX_ERR_RESOURCE);
    if (log->ok()) {
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 5u);
        EXPECT_NE(t[0].find(" improper socket:-1\n"), std::string::npos) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], std::string(kSetCodec) + "==VERY_OK", "setVideoCodec")) << t[1];
        EXPECT_NE(t[2].find(" improper socket:-1\n"), std::string::npos) << t[2];
        EXPECT_TRUE(isCheckLine(t[4], std::string(kReq) + "==VERY_OK", "startVideoRx")) << t[4];
    }
    expectNothingSent();
}
