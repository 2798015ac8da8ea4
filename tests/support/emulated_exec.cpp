// Cross builds only (VX_EMULATOR is set by tests/CMakeLists.txt when the
// build has an emulator): the test programs run under qemu-user, and the
// host cannot execute the target's binaries by itself (no binfmt handler is
// assumed). These definitions of execve and execv take the place of the C
// library's in every test program, so that whatever starts a program
// of VX_BIN_DIR - the test support's spawners, a test's own fork and exec,
// GoogleTest's "threadsafe" death tests re-executing the test binary - runs
// it under the same emulator, with its argv[0] kept. Any other program (the
// shell, the key and usleep stubs) is executed as it is.
//
// GoogleTest calls execv in a child with a stack of two pages, so nothing
// here allocates: the new argument vector is a bounded array on the stack,
// and a vector that does not fit is executed unchanged (and fails as it
// would without this file).
#ifdef VX_EMULATOR

#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

extern char** environ;

namespace {

const char* const kEmulator[] = {VX_EMULATOR};
constexpr size_t kEmulatorWords = sizeof kEmulator / sizeof kEmulator[0];
constexpr size_t kMaxArgs = 48; // plenty for every test; more are executed unchanged

bool inBinDir(const char* path)
{
    static const char kBinDir[] = VX_BIN_DIR "/";
    return path != nullptr && strncmp(path, kBinDir, sizeof kBinDir - 1) == 0;
}

// qemu-user sets the emulated program's argv[0] with -0.
bool isQemu()
{
    const char* slash = strrchr(kEmulator[0], '/');
    return strncmp(slash != nullptr ? slash + 1 : kEmulator[0], "qemu-", 5) == 0;
}

int rawExecve(const char* path, char* const argv[], char* const envp[])
{
    return static_cast<int>(syscall(SYS_execve, path, argv, envp));
}

int emulatedExecve(const char* path, char* const argv[], char* const envp[])
{
    if (!inBinDir(path) || access(kEmulator[0], X_OK) != 0)
        return rawExecve(path, argv, envp);
    size_t argc = 0;
    while (argv != nullptr && argv[argc] != nullptr)
        ++argc;
    const bool keepArgv0 = isQemu() && argc > 0;
    const size_t total = kEmulatorWords + (keepArgv0 ? 2 : 0) + 1 + (argc > 0 ? argc - 1 : 0) + 1;
    if (total > kMaxArgs)
        return rawExecve(path, argv, envp);
    const char* args[kMaxArgs];
    size_t n = 0;
    for (size_t i = 0; i < kEmulatorWords; ++i)
        args[n++] = kEmulator[i];
    if (keepArgv0) {
        args[n++] = "-0";
        args[n++] = argv[0];
    }
    args[n++] = path;
    for (size_t i = 1; i < argc; ++i)
        args[n++] = argv[i];
    args[n] = nullptr;
    return rawExecve(kEmulator[0], const_cast<char* const*>(args), envp);
}

} // namespace

extern "C" int execve(const char* path, char* const argv[], char* const envp[]) noexcept
{
    return emulatedExecve(path, argv, envp);
}

extern "C" int execv(const char* path, char* const argv[]) noexcept
{
    return emulatedExecve(path, argv, environ);
}

#endif // VX_EMULATOR
