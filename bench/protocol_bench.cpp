// Perception and layout of generated protocols of 100 to 100,000 components:
// layered graphs with fan-in and fan-out, skip connections, fail branches, a few rings of two
// or three components and some unconnected components; perception of one component feeding
// all the others; layout of many small networks.
// The distance walk is also timed against its named peer, the reference walk (explicit
// stack, a path copy per entry), on the same graphs; counter `speedup_vs_reference_walk`
// is peer time / our time from the same run (up to 10,000 components; the peer takes over a
// second there). The walk also runs on deep graphs (layers 16 wide at every size), and reports
// `loop_work`, the part of the graph the start nodes' walks have to look at, and its time per
// unit of that work.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <random>

#include "nvk/protocol/CProtocolInfo.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "nvk/protocol/DistanceWalk_internal.h"

using namespace nvk;
using tovan::BitsetValue;

namespace {

/// `layerWidth` 0: layers as wide as half the square root of the size.
tovan::Ptr<CProtocolInfo> generate(int n, int layerWidth = 0) {
    std::mt19937 rng(1);
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"generated"));
    const int width = layerWidth > 0 ? layerWidth : std::max(4, int(std::sqrt(double(n)) / 2));
    const int unconnected = std::max(1, n / 100);
    const int connected = n - unconnected;
    for (int i = 0; i < n; ++i) {
        tovan::iComponentInfo* c = p->addComponent(i + 1, tovan::format(u"step %d", i + 1));
        bool lone = i >= connected;
        c->setBoolAttribute(tovan::NVK_ComponentTakesInput, !lone && i >= width);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsPass, !lone);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsFail, !lone);
        c->setPointAttribute(tovan::NVK_ComponentPoint, {int32_t(rng() % 20000), int32_t(rng() % 20000)});
    }
    auto layerOf = [&](int i) { return i / width; };
    const int layers = (connected + width - 1) / width;
    // Every component after the first layer is fed from the layer before, so the start
    // nodes are the first layer (and the unconnected components), as in real workflows.
    std::vector<int> feeder(size_t(connected), -1);
    for (int i = width; i < connected; ++i) {
        feeder[size_t(i)] = (layerOf(i) - 1) * width + int(rng() % unsigned(width));
        p->addConnection({feeder[size_t(i)] + 1, i + 1, tovan::PortPass});
    }
    for (int i = 0; i < connected; ++i) {
        int layer = layerOf(i);
        if (layer + 1 >= layers) continue;
        int fanOut = int(rng() % 3);
        for (int f = 0; f < fanOut; ++f) {
            int skip = (rng() % 6 == 0 && layer + 2 < layers) ? 2 : 1;
            int target = (layer + skip) * width + int(rng() % unsigned(width));
            if (target >= connected) continue;
            tovan::Port port = (f == fanOut - 1 && rng() % 5 == 0) ? tovan::PortFail : tovan::PortPass;
            p->addConnection({i + 1, target + 1, port});
        }
    }
    // A few rings: a connection back to the component that feeds this one, or to the one
    // feeding that, so every ring is a real loop of two or three components.
    for (int r = 0; r < std::min(8, std::max(1, n / 500)); ++r) {
        int from = 2 * width + int(rng() % unsigned(connected - 2 * width));
        int to = feeder[size_t(from)];
        if (r % 2 == 1) to = feeder[size_t(to)];
        p->addConnection({from + 1, to + 1, tovan::PortPass});
    }
    return p;
}

/// Many small networks (one to six components with ports, chained, some fail branches and
/// back connections): layout places each network below the ones before and tucks it up.
tovan::Ptr<CProtocolInfo> smallNetworks(int n, unsigned seed = 1) {
    std::mt19937 rng(seed);
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"small networks"));
    for (int i = 0; i < n; ++i) {
        tovan::iComponentInfo* c = p->addComponent(i + 1, tovan::format(u"step %d", i + 1));
        c->setBoolAttribute(tovan::NVK_ComponentTakesInput, true);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsPass, rng() % 4 != 0);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsFail, rng() % 2 == 0);
        c->setPointAttribute(tovan::NVK_ComponentPoint, {int32_t(rng() % 5000), int32_t(rng() % 50000)});
    }
    for (int first = 0; first < n;) {
        const int end = std::min(n, first + 1 + int(rng() % 6));
        for (int i = first; i < end; ++i) {
            if (i + 1 < end) p->addConnection({i + 1, i + 2, tovan::PortPass});
            if (i + 2 < end && rng() % 3 == 0) p->addConnection({i + 1, i + 3, tovan::PortFail});
            if (i > first && rng() % 9 == 0) p->addConnection({i + 1, first + 1, tovan::PortPass});
        }
        first = end;
    }
    return p;
}

/// One component feeding all the others, some of which feed back into it.
tovan::Ptr<CProtocolInfo> hub(int n) {
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"hub"));
    for (int i = 0; i < n; ++i) {
        tovan::iComponentInfo* c = p->addComponent(i + 1, tovan::format(u"step %d", i + 1));
        c->setPointAttribute(tovan::NVK_ComponentPoint, {i % 97 * 300, i / 97 * 360});
    }
    for (int i = 1; i < n; ++i) {
        p->addConnection({1, i + 1, tovan::PortPass});
        if (i % 50 == 0) p->addConnection({i + 1, 1, tovan::PortFail});
    }
    return p;
}

void perceive(benchmark::State& state) {
    auto p = generate(int(state.range(0)));
    for (auto _ : state) {
        CProtocolUtils u;
        u.LoadProtocolComponents(p.get());
        benchmark::DoNotOptimize(u.GetDistances().data());
    }
    state.SetComplexityN(state.range(0));
    state.counters["connections"] = p->getNumConnections();
}

void perceiveHub(benchmark::State& state) {
    auto p = hub(int(state.range(0)));
    for (auto _ : state) {
        CProtocolUtils u;
        u.LoadProtocolComponents(p.get());
        benchmark::DoNotOptimize(u.GetDistances().data());
    }
    state.SetComplexityN(state.range(0));
}

void layoutOf(benchmark::State& state, const tovan::Ptr<CProtocolInfo>& p) {
    CProtocolLayoutUtils l;
    BitsetValue changed;
    bool notes = false;
    for (auto _ : state) {
        l.LayoutProtocol(p.get(), u"", changed, notes);
        benchmark::DoNotOptimize(changed.count());
    }
    state.SetComplexityN(state.range(0));
}

void layout(benchmark::State& state) { layoutOf(state, generate(int(state.range(0)))); }

void layoutSmallNetworks(benchmark::State& state) { layoutOf(state, smallNetworks(int(state.range(0)))); }

/// The graph the walk reads, built the way perception builds it.
struct WalkInput {
    std::vector<std::vector<int>> down, up;
    std::vector<int> x;
    std::vector<std::vector<std::pair<int, int>>> out;
    BitsetValue all;
    DistanceWalkGraph graph() const { return {&down, &up, &x, &out}; }
};

WalkInput walkInput(int n, int layerWidth = 0) {
    auto p = generate(n, layerWidth);
    CProtocolUtils u;
    u.LoadProtocolComponents(p.get());
    WalkInput w;
    w.down.resize(size_t(n));
    w.up.resize(size_t(n));
    w.out.resize(size_t(n));
    for (int c = 0; c < n; ++c) {
        w.down[size_t(c)] = u.GetAdjacentList(c, CProtocolUtils::AdjPassOrFail);
        w.up[size_t(c)] = u.GetAdjacentList(c, CProtocolUtils::AdjInput);
        w.x.push_back(u.GetInitialPoint(c).x);
    }
    for (int k = 0; k < u.GetNumConnections(); ++k)
        w.out[size_t(u.GetConnectionFrom(k))].emplace_back(u.GetConnectionTo(k), k);
    w.all = BitsetValue(size_t(n));
    w.all.setAll();
    return w;
}

double secondsOf(void (*walk)(const DistanceWalkGraph&, const BitsetValue&, bool, std::vector<int>&, BitsetValue&, bool&),
                 const WalkInput& w, int repeats) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < repeats; ++i) {
        std::vector<int> d;
        BitsetValue loops;
        bool has = false;
        walk(w.graph(), w.all, true, d, loops, has);
        benchmark::DoNotOptimize(d.data());
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / repeats;
}

/// The share of the graph that each start's walk has to look at: every start node's walk is
/// separate, and inside it the order in which loop entries improve decides distances and loop
/// connections, so a start that reaches a loop has the components it reaches on a loop or
/// upstream of one to walk. Summed over those starts; off-loop parts that lead to no loop are
/// done once for all starts and are not counted.
double loopWork(const WalkInput& w) {
    std::vector<int> d;
    BitsetValue loops;
    bool has = false;
    FastDistanceWalk(w.graph(), w.all, true, d, loops, has);
    const size_t n = w.down.size();
    std::vector<char> upstreamOfLoop(n, 0);
    std::vector<int> todo;
    for (size_t c = 0; c < n; ++c)
        for (const auto& [to, index] : w.out[c])
            if (loops.test(size_t(index)) && !upstreamOfLoop[c]) {
                upstreamOfLoop[c] = 1;
                todo.push_back(int(c));
            }
    while (!todo.empty()) {
        int c = todo.back();
        todo.pop_back();
        for (int u : w.up[size_t(c)])
            if (!upstreamOfLoop[size_t(u)]) {
                upstreamOfLoop[size_t(u)] = 1;
                todo.push_back(u);
            }
    }
    double work = 0;
    std::vector<char> seen(n);
    for (size_t s = 0; s < n; ++s) {
        if (!w.up[s].empty() || !upstreamOfLoop[s]) continue;
        std::fill(seen.begin(), seen.end(), 0);
        seen[s] = 1;
        todo.assign(1, int(s));
        while (!todo.empty()) {
            int c = todo.back();
            todo.pop_back();
            work += upstreamOfLoop[size_t(c)];
            for (int x : w.down[size_t(c)])
                if (!seen[size_t(x)]) {
                    seen[size_t(x)] = 1;
                    todo.push_back(x);
                }
        }
    }
    return work;
}

void distanceWalkOf(benchmark::State& state, const WalkInput& w) {
    for (auto _ : state) {
        std::vector<int> d;
        BitsetValue loops;
        bool has = false;
        FastDistanceWalk(w.graph(), w.all, true, d, loops, has);
        benchmark::DoNotOptimize(d.data());
    }
    double ours = secondsOf(&FastDistanceWalk, w, 5);
    const double work = loopWork(w);
    state.counters["loop_work"] = work;
    state.counters["ns_per_loop_work"] = ours * 1e9 / work;
    // The reference walk takes over a second at 10,000 components; beyond that it is left out.
    if (state.range(0) <= 10000) {
        double peer = secondsOf(&ReferenceDistanceWalk, w, 1);
        state.counters["peer_ms"] = peer * 1e3;
        state.counters["speedup_vs_reference_walk"] = peer / ours;
    }
    state.SetComplexityN(state.range(0));
}

void distanceWalk(benchmark::State& state) { distanceWalkOf(state, walkInput(int(state.range(0)))); }

/// Layers 16 wide at every size: few start nodes, and depth that grows with the size.
void distanceWalkDeep(benchmark::State& state) { distanceWalkOf(state, walkInput(int(state.range(0)), 16)); }

void referenceDistanceWalk(benchmark::State& state) {
    WalkInput w = walkInput(int(state.range(0)));
    for (auto _ : state) {
        std::vector<int> d;
        BitsetValue loops;
        bool has = false;
        ReferenceDistanceWalk(w.graph(), w.all, true, d, loops, has);
        benchmark::DoNotOptimize(d.data());
    }
    state.SetComplexityN(state.range(0));
}

}  // namespace

BENCHMARK(perceive)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(perceiveHub)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(layout)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(layoutSmallNetworks)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(distanceWalk)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(distanceWalkDeep)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(referenceDistanceWalk)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->Complexity();

BENCHMARK_MAIN();
