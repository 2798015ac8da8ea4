// vxsim: the stand-in media service. Command line and help; the work is in
// service.cpp, the record table in decode.cpp.
#include "service.h"

#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

const char kHelp[] = "Usage: vxsim [OPTION]...\n"
                     "Stand-in for the media service voxalis, so that its clients (vxShell, the\n"
                     "client library, the tests) run on any Linux machine.\n"
                     "\n"
                     "It creates /tmp/vx/ and /tmp/vx/tx/ if missing, removes a stale\n"
                     "/tmp/vx/vxRxSock, binds a local datagram socket there and writes its pid to\n"
                     "/tmp/vx/voxalis.pid. Every datagram received is printed as one line on\n"
                     "stdout: time, reqNo, request name, channel, length, sender and the record's\n"
                     "fields by name (texts quoted and escaped; 'short' when the datagram is\n"
                     "shorter than its record, 'unknown' with a hex dump for numbers it doesn't\n"
                     "know; datagrams above 64 KiB are cut there and marked 'truncated').\n"
                     "\n"
                     "It answers these requests with one 84-byte response {reqNo, result, 76 zero\n"
                     "bytes} sent to the sender's address, and nothing else:\n"
                     "   22 getAudioRxPort       the port last set for the channel by\n"
                     "                           setAudioRxPort (20), else the default port\n"
                     "   28 startAudioRx         0\n"
                     "   29 startAudioTx         0\n"
                     "  305 createChannel        a new channel number each time, counting up\n"
                     "  307 getMaxConcChannelNo  the channel limit\n"
                     "  308 getCamDetection      the camera state\n"
                     "A request shorter than its record, or from an unbound sender, isn't answered.\n"
                     "\n"
                     "Options:\n"
                     "  --silent            never answer\n"
                     "  --delay MS          send each answer MS milliseconds late (0 to 600000)\n"
                     "  --wrong-reqno       answer with reqNo + 1000 in place of the request's reqNo\n"
                     "  --no-read           bind, then never read: the socket's queue fills up and\n"
                     "                      clients' sends block; sleeps until signalled\n"
                     "  --record FILE       append every datagram, exactly as received, to FILE as\n"
                     "                      [uint32 little-endian length][bytes]\n"
                     "  --quiet             print no line per request\n"
                     "  --first-channel N   first channel number of createChannel (default 1)\n"
                     "  --max-channels N    result of getMaxConcChannelNo (default 4)\n"
                     "  --cam-detection N   result of getCamDetection (default 1)\n"
                     "  --rx-port N         result of getAudioRxPort for a channel with no\n"
                     "                      setAudioRxPort yet (default 9000)\n"
                     "  --force             take /tmp/vx/vxRxSock over even when a running service\n"
                     "                      is bound there (otherwise vxsim refuses, exit 1)\n"
                     "  --help              show this text\n"
                     "\n"
                     "SIGINT or SIGTERM removes the socket and the pid file, and vxsim exits 0.\n"
                     "Exit status 1: the socket, the pid file or the record file can't be set up;\n"
                     "2: a bad command line.\n";

enum OptId {
    kOptSilent = 1000,
    kOptDelay,
    kOptWrongReqNo,
    kOptNoRead,
    kOptRecord,
    kOptQuiet,
    kOptFirstChannel,
    kOptMaxChannels,
    kOptCamDetection,
    kOptRxPort,
    kOptForce,
    kOptHelp,
};

const struct option kLongOptions[] = {
    {"silent", no_argument, nullptr, kOptSilent},
    {"delay", required_argument, nullptr, kOptDelay},
    {"wrong-reqno", no_argument, nullptr, kOptWrongReqNo},
    {"no-read", no_argument, nullptr, kOptNoRead},
    {"record", required_argument, nullptr, kOptRecord},
    {"quiet", no_argument, nullptr, kOptQuiet},
    {"first-channel", required_argument, nullptr, kOptFirstChannel},
    {"max-channels", required_argument, nullptr, kOptMaxChannels},
    {"cam-detection", required_argument, nullptr, kOptCamDetection},
    {"rx-port", required_argument, nullptr, kOptRxPort},
    {"force", no_argument, nullptr, kOptForce},
    {"help", no_argument, nullptr, kOptHelp},
    {nullptr, 0, nullptr, 0},
};

// The options that take a number: where it goes, its range, and the name in
// the message of a bad one.
struct NumberOption {
    int id;
    long lo;
    long hi;
    const char* message;
};

const NumberOption kNumberOptions[] = {
    {kOptDelay, 0, 600000, "bad --delay '%s'"},
    {kOptFirstChannel, 0, INT32_MAX, "bad --first-channel '%s'"},
    {kOptMaxChannels, INT32_MIN, INT32_MAX, "bad --max-channels '%s'"},
    {kOptCamDetection, INT32_MIN, INT32_MAX, "bad --cam-detection '%s'"},
    {kOptRxPort, INT32_MIN, INT32_MAX, "bad --rx-port '%s'"},
};

// A whole decimal number within [lo, hi], or false.
bool parseNumber(const char* text, long lo, long hi, int32_t* out)
{
    errno = 0;
    char* end = nullptr;
    const long v = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || v < lo || v > hi)
        return false;
    *out = static_cast<int32_t>(v);
    return true;
}

int usageError(const char* fmt, const char* what)
{
    fprintf(stderr, "vxsim: ");
    fprintf(stderr, fmt, what);
    fprintf(stderr, "\nTry 'vxsim --help'.\n");
    return 2;
}

// The field of opt that a number option sets.
int32_t* numberField(SimOptions* opt, int id)
{
    switch (id) {
    case kOptDelay:
        return &opt->delayMs;
    case kOptFirstChannel:
        return &opt->firstChannel;
    case kOptMaxChannels:
        return &opt->maxChannels;
    case kOptCamDetection:
        return &opt->camDetection;
    case kOptRxPort:
        return &opt->defaultRxPort;
    }
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    SimOptions opt;
    opterr = 0; // the messages below replace getopt's own
    int c;
    while ((c = getopt_long(argc, argv, ":", kLongOptions, nullptr)) != -1) {
        const NumberOption* number = nullptr;
        for (const NumberOption& n : kNumberOptions)
            if (n.id == c)
                number = &n;
        if (number != nullptr) {
            if (!parseNumber(optarg, number->lo, number->hi, numberField(&opt, c)))
                return usageError(number->message, optarg);
            continue;
        }
        switch (c) {
        case kOptSilent:
            opt.silent = true;
            break;
        case kOptWrongReqNo:
            opt.wrongReqNo = true;
            break;
        case kOptNoRead:
            opt.noRead = true;
            break;
        case kOptQuiet:
            opt.quiet = true;
            break;
        case kOptForce:
            opt.force = true;
            break;
        case kOptRecord:
            if (optarg[0] == '\0')
                return usageError("%s needs a file name", "--record");
            opt.recordFile = optarg;
            break;
        case kOptHelp:
            fputs(kHelp, stdout);
            return 0;
        case ':':
            return usageError("option %s needs an argument", argv[optind - 1]);
        default:
            if (optopt > 0 && optopt < 256) { // a short option, perhaps inside a group
                const char shortOpt[3] = {'-', static_cast<char>(optopt), '\0'};
                return usageError("unknown option '%s'", shortOpt);
            }
            return usageError("unknown option '%s'", argv[optind - 1]);
        }
    }
    if (optind < argc)
        return usageError("unexpected argument '%s'", argv[optind]);
    return simRunService(&opt);
}
