// A fuzz target's seed corpus replayed as a regression test: every input of
// the directory goes through the target once, so what fuzzing once found
// stays checked in every build, libFuzzer or not.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (const auto& e : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream in(e.path(), std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++inputs;
    }
    fprintf(stderr, "%d inputs\n", inputs);
    return inputs == 0;
}
