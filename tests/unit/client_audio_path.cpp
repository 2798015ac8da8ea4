// Audio path and volume requests: records, checks and their texts.
#include "clientfixture.h"

#include <functional>

namespace {

struct SendCase {
    const char* what;
    std::function<int(int, int)> call; // (sock, channel)
    int reqNo;
    size_t length;
    std::vector<std::pair<size_t, int32_t>> words; // {offset, value}
};

struct RefuseCase {
    const char* what;
    std::function<int(int, int)> call;
    const char* cond; // text of the failed condition
    const char* fn;   // function named in the log
};

} // namespace

TEST_F(ClientTest, AudioPathRecords)
{
    const SendCase cases[] = {
        {"playback vol 15 mode 1", [](int s, int c) { return setPlaybackVolume(s, c, 15, 1); }, 8, 128, {{120, 1}, {124, 15}}},
        {"playback vol 100 mode 3", [](int s, int c) { return setPlaybackVolume(s, c, 100, 3); }, 8, 128, {{120, 3}, {124, 100}}},
        {"playback mode 11", [](int s, int c) { return setPlaybackVolume(s, c, 100, 11); }, 8, 128, {{120, 11}, {124, 100}}},
        {"record vol 100 mode 3", [](int s, int c) { return setRecordVolume(s, c, 100, 3); }, 9, 128, {{120, 3}, {124, 100}}},
        {"record mode form", [](int s, int c) { return setRecordVolumeMode(s, c, 7, 2); }, 9, 128, {{120, 2}, {124, 7}}},
        {"record no mode, vol 16", [](int s, int c) { return setRecordVolume(s, c, 16); }, 9, 128, {{120, 0}, {124, 16}}},
        {"mute with mode", [](int s, int c) { return muteMic(s, c, 7, 4); }, 12, 128, {{120, 4}, {124, 1}}},
        {"mute without mode", [](int s, int c) { return muteMic(s, c, 0); }, 12, 128, {{120, 0}, {124, 0}}},
        {"audio mode 0", [](int s, int c) { return setAudioMode(s, c, 0, nullptr, 5, 6); }, 15, 144, {{116, 3}, {120, 0}, {132, 0}, {136, 5}, {140, 6}}},
        {"audio mode -3", [](int s, int c) { return setAudioMode(s, c, -3, nullptr, 0, 0); }, 15, 144, {{132, -3}}},
        {"speaker additionally", [](int s, int c) { return openSpeakerAdditionally(s, c, 9); }, 16, 124, {{120, 1}}},
        {"speaker open", [](int s, int c) { return setSpeakerOpen(s, c, 0); }, 18, 124, {{120, 0}}},
        {"pstn conf", [](int s, int c) { return setPstnConfMode(s, c, -1); }, 14, 124, {{120, 1}}},
        {"aec", [](int s, int c) { return setAec(s, c, 1); }, 17, 124, {{120, 1}}},
        {"push to talk 5", [](int s, int c) { return setPushToTalk(s, c, 5); }, 10, 124, {{120, 1}}},
        {"ipv6", [](int s, int c) { return setIpv6(s, c, 0); }, 11, 124, {{120, 0}}},
        {"bluetooth", [](int s, int c) { return connectBluetoothSco(s, c, 2); }, 6, 124, {{120, 1}}},
    };
    for (const auto& c : cases) {
        clear();
        EXPECT_EQ(c.call(sock, ch), 1) << c.what;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), c.reqNo) << c.what;
        EXPECT_EQ(d.size(), c.length) << c.what;
        EXPECT_EQ(d.channel(), ch) << c.what;
        for (const auto& w : c.words)
            EXPECT_EQ(d.word(w.first), w.second) << c.what << " @" << w.first;
    }
}

TEST_F(ClientTest, AudioPathRefusals)
{
    REQUIRE_SYSLOG(*log);
    const RefuseCase cases[] = {
        {"playback vol -1 hides a bad mode", [](int s, int c) { return setPlaybackVolume(s, c, -1, 99); }, "vol>=0", "setPlaybackVolume"},
        {"playback mode 0", [](int s, int c) { return setPlaybackVolume(s, c, 1, 0); }, "mode>=HANDSET_MODE", "setPlaybackVolume"},
        {"playback mode 12", [](int s, int c) { return setPlaybackVolume(s, c, 1, 12); }, "mode<=BT_EHS", "setPlaybackVolume"},
        {"playback vol 16 mode 2", [](int s, int c) { return setPlaybackVolume(s, c, 16, 2); }, "vol<=15", "setPlaybackVolume"},
        {"record mode 5", [](int s, int c) { return setRecordVolume(s, c, 1, 5); }, "mode<=HEADSET_MODE", "setRecordVolume"},
        {"record vol 16 mode 1", [](int s, int c) { return setRecordVolume(s, c, 16, 1); }, "vol<=15", "setRecordVolume"},
        {"record mode form logs its own name", [](int s, int c) { return setRecordVolumeMode(s, c, 1, 11); }, "mode<=HEADSET_MODE", "setRecordVolumeMode"},
        {"record no mode vol 17", [](int s, int c) { return setRecordVolume(s, c, 17); }, "vol<=16", "setRecordVolume"},
        {"record no mode vol -1", [](int s, int c) { return setRecordVolume(s, c, -1); }, "vol>=0", "setRecordVolume"},
        {"mute mode 0", [](int s, int c) { return muteMic(s, c, 1, 0); }, "mode>=HANDSET_MODE", "muteMic"},
        {"mute mode 12", [](int s, int c) { return muteMic(s, c, 1, 12); }, "mode<=BT_EHS", "muteMic"},
        {"audio mode 12", [](int s, int c) { return setAudioMode(s, c, 12, nullptr, 0, 0); }, "mode<=BT_EHS", "setAudioMode"},
    };
    for (const auto& c : cases) {
        clear();
        EXPECT_EQ(c.call(sock, ch), VX_ERR_ARGUMENT) << c.what;
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 1u) << c.what;
        EXPECT_TRUE(isCheckLine(t[0], c.cond, c.fn)) << c.what << ": " << t[0];
        EXPECT_EQ(settle(0).size(), 0u) << c.what << ": nothing is sent";
    }
}

TEST_F(ClientTest, AudioModeByTargetNameCutsAtNineAndDropsTheChannel)
{
    EXPECT_EQ(setAudioMode(sock, ch, 4, "abcdefghijkl", 0, 0), 1);
    const Datagram d = only();
    EXPECT_EQ(d.text(120, 10), "abcdefghi");
    EXPECT_EQ(d.bytes[129], 0);
    EXPECT_EQ(d.channel(), -1);
    EXPECT_EQ(d.word(132), 4);
}

TEST_F(ClientTest, MuteSpeakerSendsNothing)
{
    EXPECT_EQ(muteSpeaker(-1, -1, 1), 1);
    EXPECT_EQ(muteSpeaker(sock, ch, 0), 1);
    EXPECT_EQ(settle(0).size(), 0u);
}

TEST_F(ClientTest, AudioPathStrictFormFailsWithMinusSevenAndNamesTheOperation)
{
    REQUIRE_SYSLOG(*log);
    svc.reset();
    log->clear();
    EXPECT_EQ(setPlaybackVolume(sock, ch, 1, 1), VX_ERR_RESOURCE);
    EXPECT_EQ(setAec(sock, ch, 1), VX_ERR_RESOURCE);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 4u);
    EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", "setPlaybackVolume")) << t[1];
    EXPECT_TRUE(isCheckLine(t[3], "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", "setAec")) << t[3];
    svc = std::make_unique<FakeService>();
}
