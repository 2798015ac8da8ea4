// request.h - private to the client library: the check and send idioms that
// every request family shares, the generic record shapes, and the transport's
// private helpers.
//
// An operation reads top to bottom: trace line, checks, fill record, send in
// its form, return. A check logs its own condition text; a send form logs the
// text of the send call itself, so the log texts come from the source.
#ifndef VX_CLIENT_REQUEST_H
#define VX_CLIENT_REQUEST_H

#include "vxclient.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <pthread.h>

// ---- transport internals -------------------------------------------------

// Whether the transport waits for a response to reqNo (kinds 2, 3, 5).
// A number without a row in the kind table is logged at LOG_CRIT.
int needResponse(int reqNo);
// Whether this process is the service itself (pid file holds our pid). Reads
// only a regular file and never blocks: a FIFO or device planted at the pid
// file's path answers 0.
int isAmIvoxalis();
// 1 for an IPv4 or IPv6 literal, else 0; a null ip is logged.
int checkIp(const char* ip);
// 1 for a port above 100, else 0 with a log line.
int checkPort(int port);
// One syslog line under "MLIB", LOG_USER, LOG_INFO, cut at 255 characters.
void mlibLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The lock of a socket's traffic: a request holds it from the first use of
// the socket to the end of its wait, and unregistApplication holds it while
// it closes the socket, so that no thread ever reads another's answer or
// uses a descriptor that is being closed. Nothing done under it waits on a
// file: the pid file and the saved records are opened non-blocking and only
// as regular files.
pthread_mutex_t* vxSocketLock(int sock);

// The kind of reqNo from the table, or -1 when it has no row. Pure look-up.
int vxKindOf(int reqNo);
// Number of rows of the kind table and row access, for the tests.
int vxKindTableRows();
void vxKindTableRow(int i, int* reqNo, int* kind);

// ---- checks ----------------------------------------------------------------
//
// Every macro has an _FN variant that takes the function name to log, for
// shared helpers that act on behalf of a public operation: the log names the
// operation the caller called. Each macro stringifies its own argument (the
// _T forms take the text), so names such as NULL appear as written.

#define VX_CHECK_T(fn, text, cond, fail)               \
    do {                                               \
        if (!(cond)) {                                 \
            mlibLog(text "(%s:%d)\n", (fn), __LINE__); \
            return (fail);                             \
        }                                              \
    } while (0)
// Refuses the call with `fail` when `cond` does not hold, logging the
// condition's source text followed by "(function:line)".
#define VX_CHECK(cond, fail)        VX_CHECK_T(__func__, #cond, cond, fail)
#define VX_CHECK_FN(fn, cond, fail) VX_CHECK_T(fn, #cond, cond, fail)
// The same where the C++ condition must be written differently from the
// text the log shows (e.g. to avoid a signed/unsigned comparison).
#define VX_CHECK_AS(text, cond, fail) VX_CHECK_T(__func__, text, cond, fail)

// ---- the four forms of sending ----------------------------------------------

// Strict form: 1, or -7 after logging "<call>==VERY_OK(function:line)".
#define VX_RETURN_STRICT_T(fn, text, call)                      \
    do {                                                        \
        if ((call) != VERY_OK) {                                \
            mlibLog(text "==VERY_OK(%s:%d)\n", (fn), __LINE__); \
            return VX_ERR_RESOURCE;                             \
        }                                                       \
        return VERY_OK;                                         \
    } while (0)
#define VX_RETURN_STRICT(call)        VX_RETURN_STRICT_T(__func__, #call, call)
#define VX_RETURN_STRICT_FN(fn, call) VX_RETURN_STRICT_T(fn, #call, call)

// Non-zero form: -7 after logging "<call>!=0(function:line)" when the
// transport gives 0, else 1.
#define VX_RETURN_NONZERO_T(fn, text, call)               \
    do {                                                  \
        if ((call) == 0) {                                \
            mlibLog(text "!=0(%s:%d)\n", (fn), __LINE__); \
            return VX_ERR_RESOURCE;                       \
        }                                                 \
        return VERY_OK;                                   \
    } while (0)
#define VX_RETURN_NONZERO(call)        VX_RETURN_NONZERO_T(__func__, #call, call)
#define VX_RETURN_NONZERO_FN(fn, call) VX_RETURN_NONZERO_T(fn, #call, call)

// Silent form: 1 for a non-zero transport result, -1 for 0; no log.
#define VX_RETURN_SILENT(call) return ((call) != 0 ? VERY_OK : -1)

// Value form: as strict, but success returns the response's result word.
// The caller initialises resp with vxNoAnswer() (result -1) so that a
// request that the transport reports as sent without an answer (ignore
// file, no kind row) gives a defined value: -1, "no answer".
#define VX_RETURN_VALUE_T(fn, text, call, resp)                 \
    do {                                                        \
        if ((call) != VERY_OK) {                                \
            mlibLog(text "==VERY_OK(%s:%d)\n", (fn), __LINE__); \
            return VX_ERR_RESOURCE;                             \
        }                                                       \
        return (resp).result;                                   \
    } while (0)
#define VX_RETURN_VALUE(call, resp)        VX_RETURN_VALUE_T(__func__, #call, call, resp)
#define VX_RETURN_VALUE_FN(fn, call, resp) VX_RETURN_VALUE_T(fn, #call, call, resp)

// ---- record helpers -----------------------------------------------------------

// A response record with a defined value before anything is received.
inline tResp2App vxNoAnswer()
{
    tResp2App r{};
    r.result = -1;
    return r;
}

// 1 for any non-zero value, else 0.
inline int32_t vxNorm(int v) { return v != 0 ? 1 : 0; }

// Bounded copy into a fixed text field of n bytes: strncpy semantics (zero
// fill behind a shorter text) and the last byte forced to NUL, so at most
// n-1 characters arrive. A null source leaves only a NUL in the first byte.
inline void vxCopyText(char* field, size_t n, const char* src)
{
    if (src == nullptr) {
        field[0] = '\0';
        return;
    }
    const size_t len = strnlen(src, n - 1);
    memcpy(field, src, len);
    memset(field + len, 0, n - len);
}

// Generic shapes: the head alone, or the head and one or two words.
struct tReqHead {
    tMediaReq hdr;
};
struct tReqWord {
    tMediaReq hdr;
    int32_t w0;
};
struct tReqTwoWords {
    tMediaReq hdr;
    int32_t w0;
    int32_t w1;
};
static_assert(sizeof(tReqHead) == 120, "head record is 120 bytes");
static_assert(sizeof(tReqWord) == 124, "one-word record is 124 bytes");
static_assert(sizeof(tReqTwoWords) == 128, "two-word record is 128 bytes");
static_assert(offsetof(tReqWord, w0) == 120, "first payload word at 120");
static_assert(offsetof(tReqTwoWords, w1) == 124, "second payload word at 124");

// The commonest requests: one or two payload words behind the head, strict
// form with the text "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)".
// `fn` names the public operation in the log.
inline int vxSendWord(const char* fn, int sock, int channel, int reqNo, int32_t value)
{
    tReqWord req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.w0 = value;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

inline int vxSendTwoWords(const char* fn, int sock, int channel, int reqNo, int32_t first, int32_t second)
{
    tReqTwoWords req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.w0 = first;
    req.w1 = second;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

#endif // VX_CLIENT_REQUEST_H
