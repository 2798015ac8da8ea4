// File receive (reqNo 201..206), the constant SDP texts of MPEG-4 video, and
// the VQMon requests (reqNo 311..315).
//
// The file-receive and VQMon requests use the silent form: no log line of
// their own, no response record, 1 or -1. None of them waits: 202 has kind 1,
// the VQMon numbers have no kind row (the transport logs that at every send).
#include "request.h"

#include <cstdio>

namespace {

// ---- file receive ------------------------------------------------------------

// 396 bytes whatever the request: the head and 276 bytes of payload, of which
// openFileRx uses the first 254 for the name and setFileRxLocation the first
// eight words.
struct tFileRxReq {
    tMediaReq hdr;
    union {
        char fileName[254];  // 120
        int32_t location[8]; // 120..151
    } body;
    char spare[20];
};
static_assert(sizeof(tFileRxReq) == 396, "file-receive record is 396 bytes");
static_assert(offsetof(tFileRxReq, body.fileName) == 120, "fileName at 120");
static_assert(offsetof(tFileRxReq, body.location) == 120, "location1 at 120");
static_assert(sizeof(tFileRxReq::body) == 256, "name field of 254 bytes, padded to a word");

// Copies at most `limit` bytes of src and fills the rest of those `limit`
// bytes with zeros: a text of `limit` characters or more arrives cut and
// without a terminator inside the limit. Nothing at or behind `limit` is
// written. A null text counts as empty.
void copyZeroFilled(char* field, size_t limit, const char* src)
{
    const size_t len = src != nullptr ? strnlen(src, limit) : 0;
    if (len > 0)
        memcpy(field, src, len);
    memset(field + len, 0, limit - len);
}

int sendFileRx(int sock, tFileRxReq& req) { VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr)); }

int sendFileRxHead(int sock, int channel, int reqNo)
{
    tFileRxReq req{};
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    return sendFileRx(sock, req);
}

// ---- VQMon -------------------------------------------------------------------

constexpr size_t kVQMonTextSlot = 256;
constexpr size_t kVQMonTextLimit = 255; // the slot's last byte is never written

struct tVQMonReq {
    tMediaReq hdr;
    int32_t firstWord;            // 120
    int32_t secondWord;           // 124
    char text[6][kVQMonTextSlot]; // 128, 384, 640, 896, 1152, 1408
};
static_assert(sizeof(tVQMonReq) == 1664, "VQMon record is 1664 bytes");
static_assert(offsetof(tVQMonReq, firstWord) == 120, "first word at 120");
static_assert(offsetof(tVQMonReq, secondWord) == 124, "second word at 124");
static_assert(offsetof(tVQMonReq, text) == 128, "text 1 at 128");
static_assert(offsetof(tVQMonReq, text[5]) == 1408, "text 6 at 1408");

// The head's channel word is left alone by every VQMon request (it stays 0
// in the value-initialised record).
tVQMonReq vqmonRecord(int reqNo)
{
    tVQMonReq req{};
    req.hdr.reqNo = reqNo;
    return req;
}

void setVQMonText(tVQMonReq& req, int slot, const char* text) { copyZeroFilled(req.text[slot], kVQMonTextLimit, text); }

int sendVQMon(int sock, tVQMonReq& req) { VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr)); }

// ---- SDP -------------------------------------------------------------------------

// MPEG-4 Visual configurations (simple profile, 1000 ticks a second), in
// hexadecimal for the config parameter of an SDP format line.
constexpr const char kMpeg4Config176[] = "0000010000000120008440fa282c2090a31f"; // 176 x 144
constexpr const char kMpeg4Config352[] = "0000010000000120008440fa28582120a31f"; // 352 x 288
constexpr const char kMpeg4ProfileLevel[] = "2";

} // namespace

// ===== file receive ========================================================

// A null fileName is sent as an empty name rather than read through.
int openFileRx(int sock, int channel, const char* fileName)
{
    tFileRxReq req{};
    req.hdr.reqNo = 201;
    req.hdr.channel = channel;
    copyZeroFilled(req.body.fileName, sizeof req.body.fileName, fileName);
    return sendFileRx(sock, req);
}

int runFileRx(int sock, int channel) { return sendFileRxHead(sock, channel, 202); }
int pauseFileRx(int sock, int channel) { return sendFileRxHead(sock, channel, 203); }
int resumeFileRx(int sock, int channel) { return sendFileRxHead(sock, channel, 204); }
int stopFileRx(int sock, int channel) { return sendFileRxHead(sock, channel, 205); }

int setFileRxLocation(int sock, int channel, int location1, int location2, int location3, int location4, int location5,
                      int location6, int location7, int location8)
{
    tFileRxReq req{};
    req.hdr.reqNo = 206;
    req.hdr.channel = channel;
    const int32_t words[8] = {location1, location2, location3, location4, location5, location6, location7, location8};
    memcpy(req.body.location, words, sizeof words);
    return sendFileRx(sock, req);
}

// ===== SDP look-ups ========================================================

const char* mpeg4ConfigForSdp(int width)
{
    switch (width) {
    case 176:
        return kMpeg4Config176;
    case 352:
        return kMpeg4Config352;
    default:
        return nullptr;
    }
}

const char* mpeg4ProfileLevel() { return kMpeg4ProfileLevel; }

// ===== VQMon ===============================================================

int reqVQMonMonitor(int sock, int channel, int monitorCmd, int monitorParam)
{
    (void)channel; // not carried: the head's channel stays unset
    tVQMonReq req = vqmonRecord(311);
    req.firstWord = monitorCmd;
    req.secondWord = monitorParam;
    return sendVQMon(sock, req);
}

int reqVQMonUpload(int sock)
{
    tVQMonReq req = vqmonRecord(312);
    printf("[%s: %d] #################\n", __func__, __LINE__);
    const int sent = Send2VoxalisByApp(sock, &req, sizeof(req), nullptr);
    if (sent == 0)
        return -1;
    printf("[%s: %d] #################\n", __func__, __LINE__);
    return VERY_OK;
}

int reqVQMonUpdateConfig(int sock, int channel, const char* configText)
{
    (void)channel;
    tVQMonReq req = vqmonRecord(313);
    if (configText != nullptr)
        setVQMonText(req, 0, configText);
    return sendVQMon(sock, req);
}

// Neither text is copied unless both are given; the words always go out.
int reqVQMonSetIpInfo(int sock, int channel, const char* ipText1, int ipValue1, const char* ipText2, int ipValue2)
{
    (void)channel;
    tVQMonReq req = vqmonRecord(314);
    req.firstWord = ipValue1;
    req.secondWord = ipValue2;
    if (ipText1 != nullptr && ipText2 != nullptr) {
        setVQMonText(req, 0, ipText1);
        setVQMonText(req, 1, ipText2);
    }
    return sendVQMon(sock, req);
}

// No text is copied unless the first three are given. When they are, a null
// among callText4..6 is not read: its slot goes out empty (all zeros), so a
// caller that leaves the optional texts out cannot crash the library.
int reqVQMonSetCallInfo(int sock, int channel, const char* callText1, const char* callText2, const char* callText3,
                        const char* callText4, const char* callText5, const char* callText6, int callValue)
{
    (void)channel;
    tVQMonReq req = vqmonRecord(315);
    req.firstWord = callValue;
    if (callText1 != nullptr && callText2 != nullptr && callText3 != nullptr) {
        const char* const texts[6] = {callText1, callText2, callText3, callText4, callText5, callText6};
        for (int i = 0; i < 6; ++i)
            setVQMonText(req, i, texts[i]);
    }
    return sendVQMon(sock, req);
}
