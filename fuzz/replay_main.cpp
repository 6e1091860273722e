// replay_main.cpp - runs a fuzz target without a fuzzer: every file of a folder as it is, and every prefix and a few
// changes of each byte of the small ones.
//
//     fuzz_corpus_NAME folder [small]      small: bytes, inputs up to that size are also cut and changed; 160 if absent

#include "fuzz_support.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *, char ***)
{
    return 0;
}

namespace {

constexpr size_t nSmallDefault = 160;

// In a block of exactly its size, so that reading behind it shows.
void run(const qvfuzz::Bytes &input)
{
    const qvfuzz::Bytes exact(input);
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

size_t runVariants(qvfuzz::Bytes input)
{
    size_t nRuns = 0;
    for (size_t n = 0; n < input.size(); ++n, ++nRuns)
        run({input.begin(), input.begin() + static_cast<std::ptrdiff_t>(n)});
    for (uint8_t &uc : input) {
        const uint8_t ucOld = uc;
        for (int nNew : {0x00, 0x02, 0x03, 0x0A, 0x30, 0x3D, 0x7F, 0xFF, ucOld ^ 0x01, ucOld ^ 0x80}) {
            uc = static_cast<uint8_t>(nNew);
            run(input);
            ++nRuns;
        }
        uc = ucOld;
    }
    return nRuns;
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    LLVMFuzzerInitialize(&nArgs, &ppArgs);
    if (nArgs < 2 || nArgs > 3) {
        std::fprintf(stderr, "usage: %s folder [small]\n", ppArgs[0]);
        return 2;
    }
    const size_t nSmall = nArgs == 3 ? std::strtoul(ppArgs[2], nullptr, 10) : nSmallDefault;
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(ppArgs[1]))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    size_t nRuns = 0;
    for (const auto &file : files) {
        std::ifstream in(file, std::ios::binary);
        const qvfuzz::Bytes input{std::istreambuf_iterator<char>(in), {}};
        run(input);
        ++nRuns;
        if (input.size() <= nSmall)
            nRuns += runVariants(input);
    }
    std::printf("%zu files, %zu runs\n", files.size(), nRuns);
    return files.empty() ? 1 : 0;
}
