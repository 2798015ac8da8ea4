// Video display and camera requests: position, showing and capture of the
// main display and the PIP window, image and source/destination paths, the
// camera and its detection. reqNo 122..138, 308. Only 308 waits; every other
// number here has no row in the kind table and leaves the transport's
// LOG_CRIT line at each send. None of these operations prints a trace.
#include "request.h"

namespace {

struct tPositionReq {
    tMediaReq hdr;
    int32_t x;      // 120
    int32_t y;      // 124
    int32_t width;  // 128
    int32_t height; // 132
};
static_assert(sizeof(tPositionReq) == 136, "position record is 136 bytes");
static_assert(offsetof(tPositionReq, x) == 120, "x at 120");
static_assert(offsetof(tPositionReq, y) == 124, "y at 124");
static_assert(offsetof(tPositionReq, width) == 128, "width at 128");
static_assert(offsetof(tPositionReq, height) == 132, "height at 132");

struct tCaptureReq {
    tMediaReq hdr;
    int32_t surface;    // 120: 1 the display, 0 the PIP
    int32_t captureArg; // 124
    char path[256];     // 128
};
static_assert(sizeof(tCaptureReq) == 384, "capture record is 384 bytes");
static_assert(offsetof(tCaptureReq, surface) == 120, "surface at 120");
static_assert(offsetof(tCaptureReq, captureArg) == 124, "captureArg at 124");
static_assert(offsetof(tCaptureReq, path) == 128, "path at 128");

struct tPathReq {
    tMediaReq hdr;
    char path[256]; // 120
};
static_assert(sizeof(tPathReq) == 376, "path record is 376 bytes");
static_assert(offsetof(tPathReq, path) == 120, "path at 120");

enum { kSurfacePip = 0, kSurfaceDisp = 1 };

// Paths go out with at most 254 characters: the copy covers 255 bytes with
// byte 254 forced to NUL, and the field's last byte is never written. A null
// path leaves only a NUL in the first byte.
template <size_t N>
void copyPath(char (&field)[N], const char* path)
{
    static_assert(N == 256, "path fields are 256 bytes");
    vxCopyText(field, N - 1, path);
}

// A check whose logged text is the condition as the system words it, while
// the C++ condition is written so that it cannot overflow.
#define VX_POS_CHECK(fn, text, cond)                   \
    do {                                               \
        if (!(cond)) {                                 \
            mlibLog(text "(%s:%d)\n", (fn), __LINE__); \
            return VX_ERR_ARGUMENT;                    \
        }                                              \
    } while (0)

// The four checks of a surface position inside the 480x272 screen, in this
// order; the first that fails decides the message. x and y count as unsigned
// numbers, so negatives fail. Once x is in 0..479, "x+width<=480" is
// "width<=480-x", which needs no sum that could overflow for a huge width.
int sendPosition(const char* fn, int sock, int channel, int reqNo, int x, int y, int width, int height)
{
    VX_POS_CHECK(fn, "(x>=0 && x<480)", static_cast<unsigned>(x) < VX_SCREEN_WIDTH);
    VX_POS_CHECK(fn, "(y>=0 && y<272)", static_cast<unsigned>(y) < VX_SCREEN_HEIGHT);
    VX_POS_CHECK(fn, "(width>1 && x+width<=480)", width > 1 && width <= VX_SCREEN_WIDTH - x);
    VX_POS_CHECK(fn, "(height>1 && y+height<=272)", height > 1 && height <= VX_SCREEN_HEIGHT - y);
    tPositionReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.x = x;
    req.y = y;
    req.width = width;
    req.height = height;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

#undef VX_POS_CHECK

// The one-word switches and values of the silent form, with a response
// record passed (nothing is awaited, so it stays as it is).
int sendWordSilent(int sock, int channel, int reqNo, int32_t value)
{
    tReqWord req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.w0 = value;
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), &resp));
}

int sendCapture(int sock, int channel, int surface, int captureArg, const char* path)
{
    tCaptureReq req{};
    req.hdr.reqNo = 132;
    req.hdr.channel = channel;
    req.surface = surface;
    req.captureArg = captureArg;
    copyPath(req.path, path);
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr));
}

int sendPath(int sock, int channel, int reqNo, const char* path)
{
    tPathReq req{};
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    copyPath(req.path, path);
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr));
}

} // namespace

int setVideoDisplayPosition(int sock, int channel, int x, int y, int width, int height)
{
    return sendPosition(__func__, sock, channel, 122, x, y, width, height);
}

int showDisp(int sock, int channel, int onOff) { return sendWordSilent(sock, channel, 124, vxNorm(onOff)); }

int setVideoPipPosition(int sock, int channel, int x, int y, int width, int height)
{
    return sendPosition(__func__, sock, channel, 127, x, y, width, height);
}

// Unlike showDisp, the PIP switch carries a second word; the client leaves it
// at zero, as nothing defines it.
int showPip(int sock, int channel, int onOff)
{
    tReqTwoWords req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 128;
    req.hdr.channel = channel;
    req.w0 = vxNorm(onOff);
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), &resp));
}

int setPipPriorityHigh(int sock, int channel, int value) { return sendWordSilent(sock, channel, 129, value); }

int startMainAppBlackColorKey(int sock, int channel, int value) { return sendWordSilent(sock, channel, 130, value); }

int captureDisp(int sock, int channel, int captureArg, const char* path)
{
    return sendCapture(sock, channel, kSurfaceDisp, captureArg, path);
}

int capturePip(int sock, int channel, int captureArg, const char* path)
{
    return sendCapture(sock, channel, kSurfacePip, captureArg, path);
}

int sendImage(int sock, int channel, const char* path) { return sendPath(sock, channel, 135, path); }

int setVideoSource(int sock, int channel, const char* path) { return sendPath(sock, channel, 136, path); }

int setVideoDestination(int sock, int channel, const char* path) { return sendPath(sock, channel, 137, path); }

int setCamera(int sock, int channel, int param1, int param2)
{
    tReqTwoWords req{};
    req.hdr.reqNo = 138;
    req.hdr.channel = channel;
    req.w0 = param1;
    req.w1 = param2;
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr));
}

// reqNo 308 waits for the camera state; channel 0, since it concerns no
// channel. Without an answer the transport has set result -1 and logged; the
// operation logs its own line and gives -7.
int getCamDetection(int sock)
{
    tReqHead vxReq{};
    tResp2App resp = vxNoAnswer();
    vxReq.hdr.reqNo = 308;
    vxReq.hdr.channel = 0;
    VX_RETURN_VALUE(Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp), resp);
}
