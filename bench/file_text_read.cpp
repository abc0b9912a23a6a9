// Reading a text file as UTF-16 through vcFileInterface, against the obvious
// peer: slurp the bytes with std::ifstream and convert them with utf8ToUtf16.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "nvk/platform/FileInterface.h"

using namespace tovan;

namespace {

std::filesystem::path corpusFile(const char* name) {
    return std::filesystem::path(NVK_CORPUS_DIR) / "json" / "bench" / name;
}

size_t readThroughInterface(const std::filesystem::path& path) {
    vcFileInterface file(toWide(path.string()), FileMode::Read);
    size_t units = 0;
    for (auto block = file.readBlock(); !block.empty(); block = file.readBlock()) units += block.size();
    return units;
}

size_t readThroughPeer(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return utf8ToUtf16(bytes.str()).size();
}

template <class F>
double secondsPerRun(F f, const std::filesystem::path& path) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) benchmark::DoNotOptimize(f(path));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / 5;
}

void BM_ReadText(benchmark::State& state, const char* name) {
    auto path = corpusFile(name);
    if (!std::filesystem::exists(path)) {
        state.SkipWithError("shared corpus not found next to the checkout");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(readThroughInterface(path));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(path)));
    // Above 1 means vcFileInterface is faster than the ifstream + utf8ToUtf16 peer.
    state.counters["speedup_vs_ifstream_utf8ToUtf16"] =
        secondsPerRun(readThroughPeer, path) / secondsPerRun(readThroughInterface, path);
}

}  // namespace

BENCHMARK_CAPTURE(BM_ReadText, canada, "canada.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadText, citm_catalog, "citm_catalog.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadText, twitter, "twitter.json")->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
