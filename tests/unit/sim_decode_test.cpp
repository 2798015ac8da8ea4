// vxsim's request lines: one representative record per family, decoded by
// name at the offsets the service reads, plus the edges of the printer.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "simproc.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct DecodeCase {
  const char* what;
  std::function<Bytes(const SimClient&)> build;
  std::vector<std::string> present;  // "{from}" stands for the client's quoted path
  std::vector<std::string> absent;
};

Bytes words(const SimClient& c, int32_t reqNo, int32_t channel, size_t len,
            std::vector<std::pair<size_t, int32_t>> ws) {
  Bytes r = c.request(reqNo, channel, len);
  for (const auto& w : ws) simPutI32(r, w.first, w.second);
  return r;
}

Bytes address(const SimClient& c, int32_t reqNo, const std::string& ip, int32_t port) {
  Bytes r = c.request(reqNo, 2, 176);
  simPutText(r, 120, ip);
  simPutI32(r, 172, port);
  return r;
}

std::string expand(std::string s, const std::string& from) {
  const std::string key = "{from}";
  for (size_t p; (p = s.find(key)) != std::string::npos;) s.replace(p, key.size(), from);
  return s;
}

const std::vector<DecodeCase>& cases() {
  static const std::vector<DecodeCase> all = {
      {"registration",
       [](const SimClient& c) {
         Bytes r = c.request(303, 0, 196);
         simPutText(r, 120, "vxShell V");
         simPutText(r, 132, "127.0.0.1");
         simPutI32(r, 184, 7700);
         simPutI32(r, 188, 0);
         simPutI32(r, 192, 4321);
         return r;
       },
       {"reqNo=303 registApplication channel=0 len=196 from={from} appName=\"vxShell V\" "
        "eventRxIp=\"127.0.0.1\" eventRxPort=7700 priority=0 pid=4321"},
       {"sockPath=", "short", "extra", "=>"}},
      {"unregistration with an unterminated name",
       [](const SimClient& c) {
         Bytes r = c.request(304, 0, 132);
         simPutText(r, 120, "ABCDEFGHIJ");
         return r;
       },
       {"reqNo=304 unregistApplication", "appName=\"ABCDEFGHIJ\"(unterminated)"},
       {"ABCDEFGHIJ\\x"}},
      {"audio path",
       [](const SimClient& c) { return words(c, 15, 3, 144, {{132, 2}}); },
       {"reqNo=15 setAudioMode channel=3 len=144 from={from} targetName=\"\" mode=2 "
        "modeParam1=0 modeParam2=0"},
       {"short"}},
      {"audio session, answered",
       [](const SimClient& c) { return words(c, 28, 1, 128, {{120, 1}, {124, 1}}); },
       {"reqNo=28 startAudioRx channel=1 len=128", "enable=1 rxOnly=1 => answer reqNo=28 result=0"},
       {}},
      {"audio all-in-one start",
       [](const SimClient& c) {
         Bytes r = words(c, 30, 1, 248,
                         {{120, 1}, {124, 2}, {132, 0}, {136, -1}, {240, 9000}, {244, 9100}});
         simPutText(r, 190, "10.1.2.3");
         return r;
       },
       {"enable=1 rxMode=2 word128=0 codec=0 word136=-1 remote_ip=\"10.1.2.3\" local_port=9000 "
        "remote_port=9100"},
       {}},
      {"audio network",
       [](const SimClient& c) { return address(c, 23, "192.168.0.10", 9100); },
       {"reqNo=23 setAudioOppIp channel=2 len=176", "ip=\"192.168.0.10\" port=9100"},
       {}},
      {"dual tone",
       [](const SimClient& c) {
         return words(c, 1, 1, 168,
                      {{120, 200}, {124, 350}, {128, 440}, {132, 1000}, {136, 2000}, {140, 300},
                       {144, 400}, {148, 500}, {152, 600}, {156, -1}, {160, 0}, {164, 1}});
       },
       {"reqNo=1 dualTone channel=1 len=168", "amp=200 hz1=350 hz2=440 firstOntime=1000 "
        "firstOfftime=2000 secondOntime=300 secondOfftime=400 thirdOnTime=500 thirdOffTime=600 "
        "repeat=-1 intermitMs=0 start=1"},
       {}},
      {"wave file",
       [](const SimClient& c) {
         Bytes r = words(c, 3, 1, 280, {{248, 1}, {252, 1}, {264, 2}, {268, 3}, {272, 4}});
         simPutText(r, 120, "/sound/ring1.wav");
         return r;
       },
       {"reqNo=3 playWavFile", "filePath=\"/sound/ring1.wav\" wavParam1=1 playFile=1 wavParam2=0 "
        "wavParam3=0 repeat=2 wavParam4=3 wavParam5=4"},
       {}},
      {"DTMF from a file",
       [](const SimClient& c) {
         Bytes r = words(c, 4, 1, 272, {{120, 11}, {132, 44}, {136, 55}});
         simPutText(r, 144, "digits.txt");
         return r;
       },
       {"reqNo=4 playDtmf", "dtmfParam1=11 dtmfParam4=44 dtmfParam5=55 word140=0 "
        "filename=\"digits.txt\""},
       {"dtmfParam2"}},
      {"SRTP with a key",
       [](const SimClient& c) {
         Bytes r = words(c, 26, 1, 220, {{120, 1}, {124, 1}, {128, -1}, {132, 1}, {140, 3}});
         for (size_t i = 0; i < 4; ++i) r[156 + i] = static_cast<uint8_t>(0xa0 + i);
         return r;
       },
       {"reqNo=26 audioRxSRTP", "on=1 audio=1 audioParam=-1 cipher_type=1 auth_type=3 key=a0a1a2a3" +
                                    std::string(120, '0')},
       {}},
      {"tuning",
       [](const SimClient& c) { return words(c, 54, 1, 124, {{120, 22}}); },
       {"reqNo=54 setCountryCode channel=1 len=124", "code=22"},
       {}},
      {"video stream",
       [](const SimClient& c) { return words(c, 112, 4, 128, {{120, 97}, {124, 120}}); },
       {"reqNo=112 setVideoCodec channel=4 len=128", "codec=97 payloadType=120"},
       {}},
      {"video network, IPv6",
       [](const SimClient& c) { return address(c, 125, "::1", 5004); },
       {"reqNo=125 setVideoOppIp", "ip=\"::1\" port=5004"},
       {}},
      {"video display",
       [](const SimClient& c) {
         Bytes r = words(c, 132, 1, 384, {{120, 1}, {124, 3}});
         simPutText(r, 128, "/tmp/cap.jpg");
         return r;
       },
       {"reqNo=132 captureDisp/capturePip", "surface=1 captureArg=3 path=\"/tmp/cap.jpg\""},
       {}},
      {"file receive",
       [](const SimClient& c) {
         Bytes r = c.request(201, 1, 396);
         simPutText(r, 120, "rx.bin");
         return r;
       },
       {"reqNo=201 openFileRx channel=1 len=396", "fileName=\"rx.bin\""},
       {}},
      {"VQMon call info",
       [](const SimClient& c) {
         Bytes r = words(c, 315, 0, 1664, {{120, 7}});
         simPutText(r, 128, "one");
         simPutText(r, 1408, "six");
         return r;
       },
       {"reqNo=315 reqVQMonSetCallInfo", "callValue=7 callText1=\"one\" callText2=\"\"",
        "callText6=\"six\""},
       {}},
      {"spare number of the audio band",
       [](const SimClient& c) { return c.request(5, 0, 120); },
       {"reqNo=5 spare5 channel=0 len=120"},
       {"unknown"}},
      {"escaped text",
       [](const SimClient& c) { return address(c, 24, "a\"b\\c\x01\n\xff", 101); },
       {"ip=\"a\\\"b\\\\c\\x01\\n\\xff\" port=101"},
       {}},
      {"record cut inside its fields",
       [](const SimClient& c) { return words(c, 15, 0, 140, {{132, 2}}); },
       {"len=140", "mode=2 modeParam1=0 short(record=144)"},
       {"modeParam2"}},
      {"record cut inside the head",
       [](const SimClient& c) { return c.request(15, 0, 50); },
       {"reqNo=15 setAudioMode channel=? len=50", "short(record=144)"},
       {"mode="}},
      {"trailing bytes",
       [](const SimClient& c) {
         Bytes r = words(c, 7, 0, 130, {{120, 1}});
         r[124] = 0xab;
         return r;
       },
       {"reqNo=7 setVad", "enable=1 extra=6:ab0000000000"},
       {}},
      {"gap in the video band",
       [](const SimClient& c) { return words(c, 123, 0, 124, {{120, static_cast<int32_t>(0xdeadbeef)}}); },
       {"reqNo=123 unknown channel=0 len=124", "payload=4:efbeadde"},
       {}},
      {"number nobody knows",
       [](const SimClient& c) { return c.request(999, 0, 200); },
       {"reqNo=999 unknown", "payload=80:" + std::string(64, '0') + "...(+48)"},
       {}},
      {"sockPath that isn't the sender",
       [](const SimClient& c) {
         Bytes r = c.request(110, 0, 120);
         std::fill(r.begin() + 8, r.begin() + 116, 0);
         simPutText(r, 8, "/tmp/vx/other");
         return r;
       },
       {"reqNo=110 setIframe channel=0 len=120 from={from} sockPath=\"/tmp/vx/other\""},
       {}},
  };
  return all;
}

TEST(SimDecode, LinesNameEveryField) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  ASSERT_TRUE(c.ok());
  const std::string from = "\"" + c.path() + "\"";
  size_t lines = 0;
  for (const DecodeCase& k : cases()) {
    SCOPED_TRACE(k.what);
    ASSERT_TRUE(c.send(k.build(c)));
    ASSERT_TRUE(sim.waitForLines(++lines));
    const std::string out = sim.output();
    const size_t start = lines == 1 ? 0 : out.rfind('\n', out.size() - 2) + 1;
    const std::string line = out.substr(start);
    // Local time with milliseconds first: "[hh:mm:ss.mmm] ".
    ASSERT_GE(line.size(), 15u);
    EXPECT_EQ(line[0], '[');
    EXPECT_EQ(line[9], '.');
    EXPECT_EQ(line.substr(13, 2), "] ");
    for (const std::string& p : k.present)
      EXPECT_NE(line.find(expand(p, from)), std::string::npos) << "want: " << expand(p, from)
                                                              << "\nline: " << line;
    for (const std::string& a : k.absent)
      EXPECT_EQ(line.find(a), std::string::npos) << "unwanted: " << a << "\nline: " << line;
  }
}

}  // namespace
