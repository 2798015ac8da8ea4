// runshell_conf.h - helpers of the configuration tests: a temporary
// directory that cleans up after itself, whole-file read/write, and a
// fork/exec runner for the built vxShell.
#ifndef VX_TESTS_RUNSHELL_CONF_H
#define VX_TESTS_RUNSHELL_CONF_H

#include "mconf.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace confsupport {

// A fresh directory under $TMPDIR (or /tmp), removed with its content.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // Names in the directory, "." and ".." left out, sorted.
    std::vector<std::string> list() const;

private:
    std::string path_;
};

// The whole file as bytes; "" and ok=false if it cannot be read.
std::string readFile(const std::string& path, bool* ok = nullptr);
// Writes the bytes, replacing the file; true on success.
bool writeFile(const std::string& path, const std::string& bytes);

struct RunResult {
    int exitStatus = -1; // exit status, or -1 if the process did not exit
    int signal = 0;      // the signal that ended it, if any
    bool timedOut = false;
    std::string out;     // stdout
    std::string err;     // stderr
};

// Runs argv[0] with the arguments in directory cwd (if not empty), stdin
// from /dev/null, and collects its output. A run longer than timeoutMs is
// killed (SIGKILL) and marked.
RunResult runProgram(const std::vector<std::string>& argv, const std::string& cwd = "", int timeoutMs = 20000);

// Starts argv[0] in directory cwd (if not empty) with stdin, stdout and
// stderr on /dev/null; the pid, or -1.
pid_t spawnQuiet(const std::vector<std::string>& argv, const std::string& cwd = "");

// The line without its "[hh:mm:ss.mmm] " prefix; the line unchanged if it
// has none.
std::string stripTimestamp(const std::string& line);

// mCONF_BufWrite of the store as a string ("" for a failure).
std::string canonicalText(tConfGroup* root);

// The bytes with CR, LF, tab and other control bytes shown as escapes, so
// that a failed comparison of texts can be read.
std::string visible(const std::string& bytes);

} // namespace confsupport

#endif // VX_TESTS_RUNSHELL_CONF_H
