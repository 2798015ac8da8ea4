// Key event scripts: the key-token table, the text builder shared with the
// relay listener, and the key-event test thread of menu key e.
#include "keyevent.h"

#include "mlog.h"
#include "params.h"
#include "shellcmd.h"
#include "stress.h"

#include <cstdio>
#include <cstring>

tPlayKeyEvent g_PlayKeyEvent;

namespace {

// How a row of the key-token table matches a token.
enum class KeyMatch {
    Hash,      // '#' first; the rest of the token is ignored
    FirstChar, // '0'..'9' or '*' first; the rest of the token is ignored
    SoftKey,   // 's' and '1'..'5'; the rest is ignored
    Dss,       // 'd' and anything (even nothing) behind it
    Whole,     // the token is exactly `token`
};

struct KeyRule {
    KeyMatch match;
    const char* token; // for Whole only
    const char* text;  // command text (a format for the first three)
};

// In the order in which tokens are tried; matching is case-sensitive.
//
// The text goes to /bin/sh, where a word that begins with '#' starts a
// comment: "key #; usleep 200000; key 2" would press no key at all and drop
// everything behind it. So '#' is quoted. '*' stays bare ("key *", as the
// scripts' lengths count it); the shell runs key scripts with pathname
// expansion off, so it reaches `key` as it stands.
// clang-format off
const KeyRule kKeyRules[] = {
    {KeyMatch::Hash, nullptr, "key '#'"},
    {KeyMatch::FirstChar, nullptr, "key %c"},
    {KeyMatch::SoftKey, nullptr, "key soft_%c"},
    {KeyMatch::Dss, nullptr, "key dss_%s"},
    {KeyMatch::Whole, "me", "key menu"},
    {KeyMatch::Whole, "b", "key back"},
    {KeyMatch::Whole, "s", "key spk"},
    {KeyMatch::Whole, "ho", "key hold"},
    {KeyMatch::Whole, "mu", "key mute"},
    {KeyMatch::Whole, "he", "key headset"},
    {KeyMatch::Whole, "r", "key redial"},
    {KeyMatch::Whole, "c", "key conf"},
    {KeyMatch::Whole, "t", "key transf"},
    {KeyMatch::Whole, "sm", "key smart"},
    {KeyMatch::Whole, "vu", "key vol_up"},
    {KeyMatch::Whole, "vd", "key vol_down"},
};
// clang-format on

bool matches(const KeyRule& rule, const char* token)
{
    const char c1 = token[0];
    switch (rule.match) {
    case KeyMatch::Hash:
        return c1 == '#';
    case KeyMatch::FirstChar:
        return (c1 >= '0' && c1 <= '9') || c1 == '*';
    case KeyMatch::SoftKey:
        return c1 == 's' && token[1] >= '1' && token[1] <= '5';
    case KeyMatch::Dss:
        return c1 == 'd';
    case KeyMatch::Whole:
        return strcmp(token, rule.token) == 0;
    }
    return false;
}

// The rule a token matches, or null.
const KeyRule* findRule(const char* token)
{
    for (const KeyRule& rule : kKeyRules)
        if (matches(rule, token))
            return &rule;
    return nullptr;
}

// Command text of one token into dst: 1 written, 0 no key (dst untouched),
// -1 the text would not fit (dst untouched).
int keyTokenText(char* dst, size_t dstSize, const char* token)
{
    const KeyRule* rule = findRule(token);
    if (rule == nullptr)
        return 0;
    int need = 0;
    switch (rule->match) {
    case KeyMatch::FirstChar:
        need = snprintf(nullptr, 0, rule->text, token[0]);
        break;
    case KeyMatch::SoftKey:
        need = snprintf(nullptr, 0, rule->text, token[1]);
        break;
    case KeyMatch::Dss:
        need = snprintf(nullptr, 0, rule->text, token + 1);
        break;
    case KeyMatch::Hash:
    case KeyMatch::Whole:
        need = static_cast<int>(strlen(rule->text));
        break;
    }
    if (need < 0 || static_cast<size_t>(need) >= dstSize)
        return -1;
    switch (rule->match) {
    case KeyMatch::FirstChar:
        snprintf(dst, dstSize, rule->text, token[0]);
        break;
    case KeyMatch::SoftKey:
        snprintf(dst, dstSize, rule->text, token[1]);
        break;
    case KeyMatch::Dss:
        snprintf(dst, dstSize, rule->text, token + 1);
        break;
    case KeyMatch::Hash:
    case KeyMatch::Whole:
        snprintf(dst, dstSize, "%s", rule->text);
        break;
    }
    return 1;
}

// The thread's working copy of the script, with room for each group's text.
struct tKeyEventEntry {
    char text[kKeyGroupTextSize];
    uint16_t keyDelayMs;
    uint16_t stepDelayMs;
};

struct tKeyEventList {
    int32_t repeat;
    int32_t count;
    tKeyEventEntry entries[20];
    int32_t interval;
};

constexpr int kMaxGroups = static_cast<int>(sizeof(tPlayKeyEvent::groups) / sizeof(tPlayKeyEvent::groups[0]));

} // namespace

void getKeyEventStr(char* dst, const char* token, size_t dstSize)
{
    if (dst == nullptr || token == nullptr || dstSize == 0)
        return;
    keyTokenText(dst, dstSize, token);
}

int vxIsKeyToken(const char* token) { return token != nullptr && findRule(token) != nullptr ? 1 : 0; }

const char* vxPrintable(char* dst, size_t size, const char* text)
{
    size_t n = 0;
    for (; *text != '\0' && n + 5 <= size; ++text) {
        const unsigned char c = static_cast<unsigned char>(*text);
        if (c >= 0x20 && c < 0x7f && c != '\\')
            dst[n++] = static_cast<char>(c);
        else
            n += static_cast<size_t>(snprintf(dst + n, size - n, "\\x%02x", c));
    }
    dst[n] = '\0';
    return dst;
}

int getKeyEventString(char* dst, char* keys, uint16_t delayMs, int dstSize, int* leftOut)
{
    if (leftOut != nullptr)
        *leftOut = 0;
    if (keys == nullptr)
        return 0;
    if (dst == nullptr || dstSize < 0)
        dstSize = 0;
    // Zeroed once: a token that is no key leaves the previous token's text.
    char tokenText[kKeyTokenTextSize];
    memset(tokenText, 0, sizeof tokenText);
    const int usleepArg = delayMs * 1000;

    int count = 0;
    int used = 0;
    bool full = false;
    char* save = nullptr;
    for (char* tok = strtok_r(keys, ",", &save); tok != nullptr; tok = strtok_r(nullptr, ",", &save)) {
        ++count;
        if (!full && keyTokenText(tokenText, sizeof tokenText, tok) >= 0) {
            const char* format = count == 1 ? "%s; usleep %d" : "; %s; usleep %d";
            const int n = snprintf(nullptr, 0, format, tokenText, usleepArg);
            if (n >= 0 && used + n < dstSize) {
                snprintf(dst + used, static_cast<size_t>(dstSize - used), format, tokenText, usleepArg);
                used += n;
                continue;
            }
        }
        // No room (or a token text longer than any key's): this token and
        // all behind it are left out, and the text stays a valid string.
        if (!full) {
            full = true;
            if (count == 1 && dstSize > 0)
                dst[0] = '\0';
            char shown[4 * kKeyTokenTextSize];
            logPrt(">>> ERR, %s, no room for key[%s] in %d bytes, so it and the keys behind it are left out.",
                   "getKeyEventString", vxPrintable(shown, sizeof shown, tok), dstSize);
        }
        if (leftOut != nullptr)
            ++*leftOut;
    }
    return count;
}

void vxBuiltinKeyScript(tPlayKeyEvent* ev)
{
    struct Row {
        const char* keys; // null: g_szOppDevId
        uint16_t keyDelayMs;
        uint16_t stepDelayMs;
    };
    static const Row kScript[] = {
        {nullptr, 200, 2000},
        {"1,4", 200, 1500},
        {"1,2,3,4,5,6,7,8,9,0,*", 200, 3000},
        {"1,2,3,4,5,6,7,8,9,0,*", 200, 3000},
        {"1,2,3,4,5,6,7,8,9,0,*", 200, 3000},
        {"s", 200, 3000},
    };
    memset(ev, 0, sizeof *ev);
    int i = 0;
    for (const Row& row : kScript) {
        tKeyGroup& g = ev->groups[i++];
        // g_szOppDevId holds at most 15 characters and fits whole; the
        // fixed lists are copied with a limit of 99.
        snprintf(g.keys, sizeof g.keys, "%s", row.keys != nullptr ? row.keys : g_szOppDevId);
        g.keyDelayMs = row.keyDelayMs;
        g.stepDelayMs = row.stepDelayMs;
    }
    ev->count = i;
    ev->interval = 2000;
    ev->repeat = 0;
}

void StartTestKeyEventThread()
{
    if (g_bTestKeyEvent) {
        logPrt(">>> g_bTestKeyEvent:1, already runnig TestWavThread, so return ...");
        return;
    }
    if (g_nKeyEventThreads > 0) {
        logPrt(">>> %s, TestKeyEventThread is still ending, so return ...", "StartTestKeyEventThread");
        return;
    }
    vxBuiltinKeyScript(&g_PlayKeyEvent);
    g_bTestKeyEvent = 1;
    vxStartTestThread(g_nKeyEventThreads, TestKeyEventThread);
}

void* TestKeyEventThread(void*)
{
    static const char kName[] = "TestKeyEventThread";
    tKeyEventList list;
    memset(&list, 0, sizeof list);
    char scratch[sizeof(tKeyGroup::keys)];
    memset(scratch, 0, sizeof scratch);
    const int32_t start = getTimeMs();
    logPrt(">>> %s, starts ...", kName);

    list.repeat = g_PlayKeyEvent.repeat;
    // A count outside 0..20 would walk past the groups.
    list.count = g_PlayKeyEvent.count < 0 ? 0 : (g_PlayKeyEvent.count > kMaxGroups ? kMaxGroups : g_PlayKeyEvent.count);
    list.interval = g_PlayKeyEvent.interval;
    logPrt(">>> %s, Key-GroupCount:%d, Converting Input Keys to KeyEvent List ...", kName, list.count);

    for (int i = 0; i < list.count; ++i) {
        const tKeyGroup& g = g_PlayKeyEvent.groups[i];
        // A scratch copy is cut up, so g_PlayKeyEvent stays whole.
        memcpy(scratch, g.keys, sizeof scratch);
        scratch[sizeof scratch - 1] = '\0';
        getKeyEventString(list.entries[i].text, scratch, g.keyDelayMs, sizeof list.entries[i].text);
        list.entries[i].keyDelayMs = g.keyDelayMs;
        list.entries[i].stepDelayMs = g.stepDelayMs;
    }

    int pass = 0;
    while (g_bTestKeyEvent) {
        for (int i = 0; i < list.count; ++i) {
            // The pause key holds the script before its next group.
            if (!vxHoldWhilePaused(g_bTestKeyEvent))
                break;
            logPrt(">>> TestKeyEventThread, STEP[%d]-%d-<%.100s> ", pass, i + 1, g_PlayKeyEvent.groups[i].keys);
            vxRunShellCommand(list.entries[i].text);
            msleep(list.entries[i].stepDelayMs);
            if (!g_bTestKeyEvent)
                break;
        }
        if (list.repeat == 0 || !g_bTestKeyEvent)
            break;
        // A negative interval would be an unsigned wait of weeks: no pause.
        msleep(list.interval < 0 ? 0u : static_cast<uint32_t>(list.interval));
        const uint32_t secs = (static_cast<uint32_t>(getTimeMs()) - static_cast<uint32_t>(start)) / 1000u;
        if (secs < 3600)
            logPrt(">>> TestKeyEventThread, STEP[%d], <Elasped Time - %02d:%02d>", pass, static_cast<int>(secs / 60),
                   static_cast<int>(secs % 60));
        else
            logPrt(">>> TestKeyEventThread, STEP[%d], <Elasped Time - %d:%02d:%02d>", pass,
                   static_cast<int>(secs / 3600), static_cast<int>(secs / 60 % 60), static_cast<int>(secs % 60));
        ++pass;
    }
    logPrt(">>> %s, ends ...", kName);
    vxTestThreadDone(g_nKeyEventThreads);
    return nullptr;
}
