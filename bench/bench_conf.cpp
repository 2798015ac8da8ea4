// Configuration store benchmarks: read a file, set one value, write it back.
//
// Files (made at start in a temporary directory, seeded):
//   10KB, 1MB, 20MB  many groups of ten items, whole-line comments, quoted
//                    values and comments behind the items
//   1M_items         one group holding a million items
//
// Per file:
//   Edit         in process: mCONF_FileRead, mCONF_SetValue, mCONF_FileWrite,
//                mCONF_Free (the file mode's work); MB/s and ns per item
//   Parse        mCONF_BufRead of the text in memory, and mCONF_Free
//   Render       mCONF_BufWrite of the store, in memory
//   Read, Write  the two halves of Edit
//   FloorAtomic  the same bytes read and written with no parsing, replaced as
//                mCONF_FileWrite does (new file, fsync, rename, fsync dir)
//   FloorInPlace the same bytes read and written over the file, no sync
//   ShellEdit    the built vxShell -f as a process; peak memory from wait4
//   GitConfig    git config -f setting the same value, as a process
// Each iteration starts from a fresh copy of the original file (untimed).
// Counters: bytes_per_second, ns_per_item (wall time per item of the file),
// cpu_ns_per_item (thread CPU time, Parse and Render), peak_MB and
// peak_x_file (peak resident memory of the process runs, and its ratio to
// the file size).
#include "mconf.h"
#include "mfile.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <ftw.h>
#include <malloc.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct BenchFile {
    std::string name;     // benchmark label
    std::string original; // never changed
    std::string work;     // edited by every iteration
    size_t bytes = 0;
    size_t items = 0;
    std::string group, key; // the value that is set
};

std::string g_dir;
std::vector<BenchFile> g_files;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// CPU time of this thread: the pure computing benchmarks also report it, as
// the machine may be shared and wall time then counts the neighbours too.
double threadCpuSeconds()
{
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

bool writeText(const std::string& path, const std::string& text)
{
    return mFILE_Write(path.c_str(), text.data(), static_cast<int>(text.size())) == 0;
}

std::string readText(const std::string& path)
{
    char* buf = nullptr;
    const int n = mFILE_ReadAlloc(path.c_str(), &buf);
    std::string s(buf != nullptr ? buf : "", n > 0 ? static_cast<size_t>(n) : 0);
    free(buf);
    return s;
}

void copyFile(const std::string& from, const std::string& to)
{
    if (!writeText(to, readText(from))) {
        fprintf(stderr, "cannot copy %s\n", from.c_str());
        exit(1);
    }
}

// Many groups of ten items, in a syntax that both this store and git read.
std::string manyGroups(size_t target, std::mt19937& rng)
{
    std::string text = "# Settings of the phone, made for the benchmark\n\n";
    char line[256];
    for (unsigned g = 0; text.size() < target; ++g) {
        snprintf(line, sizeof line, "[group%06u]\n; settings of group %u\n", g, g);
        text += line;
        for (unsigned i = 0; i < 10; ++i) {
            snprintf(line, sizeof line, "\tkey%02u = \"value %u of group %u\" ; comment %u\n", i,
                     static_cast<unsigned>(rng() % 1000000000u), g, i);
            text += line;
        }
        text += "\n";
    }
    return text;
}

std::string oneBigGroup(unsigned items)
{
    std::string text = "# One group of many items\n[big]\n";
    text.reserve(static_cast<size_t>(items) * 36);
    char line[128];
    for (unsigned i = 0; i < items; ++i) {
        snprintf(line, sizeof line, "\tkey%07u = \"value %07u\" ; c%u\n", i, i, i % 10);
        text += line;
    }
    return text;
}

size_t countItems(const std::string& path)
{
    tConfGroup* root = mCONF_FileRead(path.c_str());
    size_t n = 0;
    for (tConfGroup* g = root; g != nullptr; g = g->next)
        for (tConfItem* it = g->items; it != nullptr; it = it->next)
            ++n;
    mCONF_Free(root);
    return n;
}

void addFile(const std::string& name, const std::string& text, const std::string& group, const std::string& key)
{
    BenchFile f;
    f.name = name;
    f.original = g_dir + "/" + name + ".orig";
    f.work = name + ".conf"; // relative: the shell's file field holds 63 bytes
    f.bytes = text.size();
    f.group = group;
    f.key = key;
    if (!writeText(f.original, text)) {
        fprintf(stderr, "cannot write %s\n", f.original.c_str());
        exit(1);
    }
    f.items = countItems(f.original);
    g_files.push_back(f);
}

int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

// ---- Process runs ------------------------------------------------------------

struct ProcessRun {
    double seconds = 0;
    long maxRssKb = 0;
    int status = -1;
};

// Measures one run of a program. The benchmark process is large by now, and
// a child forked from it carries that size into its peak resident set, even
// across exec. So this process re-executes itself as a small launcher
// (--measure), which starts the program, waits for it, and reports its own
// child's wall time and peak memory on a pipe.
ProcessRun runProcess(const std::vector<std::string>& argv)
{
    ProcessRun run;
    int fds[2];
    if (pipe(fds) != 0)
        return run;
    std::vector<std::string> launcher = {"/proc/self/exe", "--measure", std::to_string(fds[1])};
    launcher.insert(launcher.end(), argv.begin(), argv.end());
    std::vector<char*> args;
    for (const std::string& a : launcher)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        execv(args[0], args.data());
        _exit(127);
    }
    close(fds[1]);
    char report[128] = {};
    size_t got = 0;
    ssize_t n;
    while (got < sizeof report - 1 && (n = read(fds[0], report + got, sizeof report - 1 - got)) > 0)
        got += static_cast<size_t>(n);
    close(fds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    if (sscanf(report, "%d %lf %ld", &run.status, &run.seconds, &run.maxRssKb) != 3)
        run.status = -1;
    return run;
}

// The launcher: argv = exe --measure FD program args...
int measureMain(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    const int out = atoi(argv[2]);
    const Clock::time_point t0 = Clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        close(out);
        const int nullFd = open("/dev/null", O_RDWR);
        dup2(nullFd, 0);
        dup2(nullFd, 1);
        dup2(nullFd, 2);
        execvp(argv[3], argv + 3);
        _exit(127);
    }
    int status = 0;
    struct rusage ru {};
    while (wait4(pid, &status, 0, &ru) < 0 && errno == EINTR) {}
    const double seconds = secondsSince(t0);
    char report[128];
    const int len = snprintf(report, sizeof report, "%d %.9f %ld\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                             seconds, static_cast<long>(ru.ru_maxrss));
    return write(out, report, static_cast<size_t>(len)) == len ? 0 : 1;
}

// ---- Benchmarks ----------------------------------------------------------------

void setRates(benchmark::State& state, const BenchFile& f, double seconds, double cpuSeconds = -1)
{
    const double perItem = 1e9 / (static_cast<double>(state.iterations()) * static_cast<double>(f.items));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.bytes));
    state.counters["items"] = static_cast<double>(f.items);
    state.counters["ns_per_item"] = seconds * perItem;
    if (cpuSeconds >= 0)
        state.counters["cpu_ns_per_item"] = cpuSeconds * perItem;
}

// The value alternates between two texts of one length.
const char* nextValue(benchmark::State& state) { return state.iterations() % 2 == 0 ? "benchvalueA" : "benchvalueB"; }

void BM_Edit(benchmark::State& state, const BenchFile* f)
{
    double total = 0;
    for (auto _ : state) {
        copyFile(f->original, f->work);
        const Clock::time_point t0 = Clock::now();
        tConfGroup* root = mCONF_FileRead(f->work.c_str());
        mCONF_SetValue(root, f->group.c_str(), f->key.c_str(), nextValue(state), nullptr);
        const int r = mCONF_FileWrite(root, f->work.c_str());
        mCONF_Free(root);
        const double s = secondsSince(t0);
        state.SetIterationTime(s);
        total += s;
        if (r != 0)
            state.SkipWithError("mCONF_FileWrite failed");
    }
    setRates(state, *f, total);
}

// The CPU work alone, in memory: parse a text into a store (and free it),
// and render a store as text.
void BM_Parse(benchmark::State& state, const BenchFile* f)
{
    const std::string text = readText(f->original);
    double total = 0, cpu = 0;
    for (auto _ : state) {
        const double c0 = threadCpuSeconds();
        const Clock::time_point t0 = Clock::now();
        tConfGroup* root = mCONF_BufRead(text.c_str());
        mCONF_Free(root);
        const double s = secondsSince(t0);
        cpu += threadCpuSeconds() - c0;
        state.SetIterationTime(s);
        total += s;
    }
    setRates(state, *f, total, cpu);
}

void BM_Render(benchmark::State& state, const BenchFile* f)
{
    tConfGroup* root = mCONF_FileRead(f->original.c_str());
    double total = 0, cpu = 0;
    for (auto _ : state) {
        const double c0 = threadCpuSeconds();
        const Clock::time_point t0 = Clock::now();
        char* text = mCONF_BufWrite(root);
        free(text);
        const double s = secondsSince(t0);
        cpu += threadCpuSeconds() - c0;
        state.SetIterationTime(s);
        total += s;
    }
    mCONF_Free(root);
    setRates(state, *f, total, cpu);
}

void BM_Read(benchmark::State& state, const BenchFile* f)
{
    copyFile(f->original, f->work);
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point t0 = Clock::now();
        tConfGroup* root = mCONF_FileRead(f->work.c_str());
        mCONF_Free(root);
        const double s = secondsSince(t0);
        state.SetIterationTime(s);
        total += s;
    }
    setRates(state, *f, total);
}

void BM_Write(benchmark::State& state, const BenchFile* f)
{
    tConfGroup* root = mCONF_FileRead(f->original.c_str());
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point t0 = Clock::now();
        const int r = mCONF_FileWrite(root, f->work.c_str());
        const double s = secondsSince(t0);
        state.SetIterationTime(s);
        total += s;
        if (r != 0)
            state.SkipWithError("mCONF_FileWrite failed");
    }
    mCONF_Free(root);
    setRates(state, *f, total);
}

// Reading and writing the bytes with no parsing at all.
void BM_Floor(benchmark::State& state, const BenchFile* f, bool atomic)
{
    double total = 0;
    const std::string temp = f->work + ".floor";
    for (auto _ : state) {
        copyFile(f->original, f->work);
        const Clock::time_point t0 = Clock::now();
        char* buf = nullptr;
        const int n = mFILE_ReadAlloc(f->work.c_str(), &buf);
        if (atomic) {
            const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            const bool ok = fd >= 0 && mFILE_WriteFd(fd, buf, n) == n && fsync(fd) == 0;
            if (fd >= 0)
                close(fd);
            if (!ok || rename(temp.c_str(), f->work.c_str()) != 0)
                state.SkipWithError("atomic floor write failed");
            const int dfd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (dfd >= 0) {
                (void)fsync(dfd);
                close(dfd);
            }
        } else if (mFILE_Write(f->work.c_str(), buf, n) != 0) {
            state.SkipWithError("in-place floor write failed");
        }
        free(buf);
        const double s = secondsSince(t0);
        state.SetIterationTime(s);
        total += s;
    }
    setRates(state, *f, total);
}

void processBench(benchmark::State& state, const BenchFile* f, bool git)
{
    double total = 0;
    long peakKb = 0;
    for (auto _ : state) {
        copyFile(f->original, f->work);
        const std::string value = nextValue(state);
        const ProcessRun run =
            git ? runProcess({"git", "config", "-f", f->work, f->group + "." + f->key, value})
                : runProcess({VX_BIN_DIR "/vxShell", "-f", f->work + "," + f->group + "," + f->key + "," + value});
        if (run.status != 0)
            state.SkipWithError(git ? "git config failed" : "vxShell failed");
        state.SetIterationTime(run.seconds);
        total += run.seconds;
        peakKb = std::max(peakKb, run.maxRssKb);
    }
    setRates(state, *f, total);
    state.counters["peak_MB"] = static_cast<double>(peakKb) / 1024.0;
    state.counters["peak_x_file"] = static_cast<double>(peakKb) * 1024.0 / static_cast<double>(f->bytes);
}

void BM_ShellEdit(benchmark::State& state, const BenchFile* f) { processBench(state, f, false); }
void BM_GitConfig(benchmark::State& state, const BenchFile* f) { processBench(state, f, true); }

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && strcmp(argv[1], "--measure") == 0)
        return measureMain(argc, argv);
    // Every iteration gets cold memory, as a fresh process does: blocks from
    // 256 KB on are mapped and unmapped each time, and freed heap memory goes
    // back at once. Otherwise the allocator's moving thresholds would let
    // some sizes reuse warm memory from the previous iteration and others
    // not, and the time per item would compare unlike things.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    mallopt(M_TRIM_THRESHOLD, 0);
    mallopt(M_TOP_PAD, 0);

    const char* tmp = getenv("TMPDIR");
    std::string tmpl = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/vxbenchXXXXXX";
    if (mkdtemp(&tmpl[0]) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    g_dir = tmpl;
    // The work files are relative names in this directory.
    if (chdir(g_dir.c_str()) != 0) {
        perror("chdir");
        return 1;
    }

    std::mt19937 rng(12345);
    addFile("10KB", manyGroups(10 * 1024, rng), "group000005", "key05");
    addFile("1MB", manyGroups(1024 * 1024, rng), "group002000", "key05");
    addFile("20MB", manyGroups(20 * 1024 * 1024, rng), "group030000", "key05");
    addFile("1M_items", oneBigGroup(1000000), "big", "key0500000");

    for (const BenchFile& f : g_files) {
        // Few iterations for the large files: each one is a whole edit.
        const int iters = f.bytes < 2 * 1024 * 1024 ? 0 : 6;
        auto reg = [&](const char* kind, auto fn) {
            auto* b = benchmark::RegisterBenchmark((std::string(kind) + "/" + f.name).c_str(), fn, &f);
            b->UseManualTime()->Unit(benchmark::kMillisecond);
            if (iters > 0)
                b->Iterations(iters);
        };
        reg("Parse", BM_Parse);
        reg("Render", BM_Render);
        reg("Edit", BM_Edit);
        reg("Read", BM_Read);
        reg("Write", BM_Write);
        reg("FloorAtomic", [](benchmark::State& s, const BenchFile* p) { BM_Floor(s, p, true); });
        reg("FloorInPlace", [](benchmark::State& s, const BenchFile* p) { BM_Floor(s, p, false); });
        reg("ShellEdit", BM_ShellEdit);
        reg("GitConfig", BM_GitConfig);
    }

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    if (chdir("/") == 0)
        nftw(g_dir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
