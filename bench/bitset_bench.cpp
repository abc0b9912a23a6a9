// BitsetValue against std::vector<bool> on 10,000-position sets: walking the
// members and taking a union. Each BitsetValue case reports `ratio_vs_vector_bool`
// (the peer's time per iteration divided by ours; above 1 means faster).
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <vector>

#include "nvk/platform/BitsetValue.h"

using tovan::BitsetValue;

namespace {

constexpr size_t kBits = 10000;

struct Sets {
    BitsetValue a, b;
    std::vector<bool> va, vb;
};

/// Two random sets with `percent` of the positions set.
Sets makeSets(int percent) {
    std::mt19937 rng(42);
    Sets s{BitsetValue(kBits), BitsetValue(kBits), std::vector<bool>(kBits), std::vector<bool>(kBits)};
    for (size_t i = 0; i < kBits; ++i) {
        if (int(rng() % 100) < percent) s.a.set(i), s.va[i] = true;
        if (int(rng() % 100) < percent) s.b.set(i), s.vb[i] = true;
    }
    return s;
}

size_t iterateVector(const std::vector<bool>& v) {
    size_t sum = 0;
    for (size_t i = 0; i < v.size(); ++i)
        if (v[i]) sum += i;
    return sum;
}

size_t iterateBitset(const BitsetValue& b) {
    size_t sum = 0;
    for (size_t i : b.setBits()) sum += i;
    return sum;
}

void unionVector(std::vector<bool>& out, const std::vector<bool>& a, const std::vector<bool>& b) {
    for (size_t i = 0; i < a.size(); ++i) out[i] = a[i] || b[i];
}

/// Seconds per call of `f`, measured outside the benchmark loop so that the
/// peer's time can be reported next to ours.
template <class F>
double secondsPerCall(F&& f) {
    using Clock = std::chrono::steady_clock;
    int reps = 1;
    while (true) {
        auto t0 = Clock::now();
        for (int i = 0; i < reps; ++i) f();
        double s = std::chrono::duration<double>(Clock::now() - t0).count();
        if (s > 0.05) return s / reps;
        reps *= 2;
    }
}

void BM_Iterate_VectorBool(benchmark::State& state) {
    Sets s = makeSets(int(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(iterateVector(s.va));
}

void BM_Iterate_Bitset(benchmark::State& state) {
    Sets s = makeSets(int(state.range(0)));
    double peer = secondsPerCall([&] { benchmark::DoNotOptimize(iterateVector(s.va)); });
    double ours = secondsPerCall([&] { benchmark::DoNotOptimize(iterateBitset(s.a)); });
    for (auto _ : state) benchmark::DoNotOptimize(iterateBitset(s.a));
    state.counters["ratio_vs_vector_bool"] = peer / ours;
}

void BM_Union_VectorBool(benchmark::State& state) {
    Sets s = makeSets(int(state.range(0)));
    std::vector<bool> out(kBits);
    for (auto _ : state) {
        unionVector(out, s.va, s.vb);
        benchmark::ClobberMemory();
    }
}

void BM_Union_Bitset(benchmark::State& state) {
    Sets s = makeSets(int(state.range(0)));
    std::vector<bool> vout(kBits);
    BitsetValue out(kBits);
    auto ours = [&] {
        out.clearAll();
        out |= s.a;
        out |= s.b;
        benchmark::ClobberMemory();
    };
    double peer = secondsPerCall([&] {
        unionVector(vout, s.va, s.vb);
        benchmark::ClobberMemory();
    });
    double mine = secondsPerCall(ours);
    for (auto _ : state) ours();
    state.counters["ratio_vs_vector_bool"] = peer / mine;
}

}  // namespace

// Densities: 1% (sparse sets of components) and 50%.
BENCHMARK(BM_Iterate_VectorBool)->Arg(1)->Arg(50);
BENCHMARK(BM_Iterate_Bitset)->Arg(1)->Arg(50);
BENCHMARK(BM_Union_VectorBool)->Arg(1)->Arg(50);
BENCHMARK(BM_Union_Bitset)->Arg(1)->Arg(50);

BENCHMARK_MAIN();
