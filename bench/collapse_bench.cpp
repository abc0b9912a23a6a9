// Check, collapse and uncollapse of selections of 10, 100 and 1,000 components in a generated
// protocol of 10,000 (and the same selections in protocols of 1,000 and 100,000, to show how
// the cost grows with the protocol rather than the selection).
//
// The protocol is a pipeline of segments, each a small layered graph with one entry and one
// exit: the entry feeds the first layer, every later component is fed from one or two of
// the layer before (some through fail ports), the last layer feeds the exit, and the exit
// feeds the next segment's entry. Segments of 10, 100 and 1,000 components sit at a quarter,
// half and three quarters of the way; the selection is one of them whole, which the rules
// allow. The named peer is perception (`LoadProtocolComponents`) of the same protocol in the
// same run, what a check that loads the protocol whole would pay before its rules: counter
// `perception_ms` is the peer's time and `x_perception` our time / the peer's (processor
// time of this process for both, as the machine is shared).
#include <benchmark/benchmark.h>

#include <ctime>
#include <random>

#include "nvk/platform/Format.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolInfo.h"

using namespace nvk;

namespace {

struct Generated {
    tovan::Ptr<CProtocolInfo> protocol;
    std::vector<tovan::WString> selection;
};

/// A protocol of about `n` components whose segment of `selected` components is the selection.
Generated generate(int n, int selected) {
    std::mt19937 rng(7);
    Generated g;
    g.protocol.reset(new CProtocolInfo(u"pipeline"));
    CProtocolInfo& p = *g.protocol;
    int32_t next = 1;
    int32_t previousExit = 0;
    auto add = [&](int x, int y) {
        tovan::iComponentInfo* c = p.addComponent(next, tovan::format(u"step %d", next));
        c->setBoolAttribute(tovan::NVK_ComponentTakesInput, next > 1);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsPass, true);
        c->setBoolAttribute(tovan::NVK_ComponentReturnsFail, true);
        c->setPointAttribute(tovan::NVK_ComponentPoint, {x, y});
        return next++;
    };
    int x = 0;
    bool placed = false;
    while (next <= n) {
        const int done = next - 1;
        int size = 50;
        if (!placed && done >= n / 2) size = selected, placed = true;
        const int width = std::max(1, std::min(8, (size - 2) / 3));
        const int32_t first = next;
        const int32_t entry = add(x, 0);
        if (previousExit) p.addConnection({previousExit, entry, tovan::PortPass});
        std::vector<int32_t> layer{entry};
        x += 300;
        int inside = 1;
        while (inside < size - 1) {
            std::vector<int32_t> now;
            std::vector<char> feeds(layer.size(), 0);
            for (int k = 0; k < width && inside < size - 1; ++k, ++inside) {
                const int32_t c = add(x, 200 * k);
                now.push_back(c);
                const size_t from = rng() % layer.size();
                const bool pass = rng() % 5 != 0;
                p.addConnection({layer[from], c, pass ? tovan::PortPass : tovan::PortFail});
                feeds[from] |= pass;
                if (layer.size() > 1 && rng() % 3 == 0) {
                    const size_t also = rng() % layer.size();
                    p.addConnection({layer[also], c, tovan::PortPass});
                    feeds[also] = 1;
                }
            }
            // No pass port is left open inside a segment: only the exit's leaves it.
            for (size_t k = 0; k < layer.size(); ++k)
                if (!feeds[k]) p.addConnection({layer[k], now[rng() % now.size()], tovan::PortPass});
            layer = now;
            x += 300;
        }
        const int32_t exit = add(x, 0);
        // Every last-layer component feeds the exit, so none has an open pass port.
        for (int32_t c : layer) p.addConnection({c, exit, tovan::PortPass});
        x += 300;
        previousExit = exit;
        if (size == selected && g.selection.empty())
            for (int32_t id = first; id <= exit; ++id) g.selection.push_back(tovan::toWide(std::to_string(id)));
    }
    return g;
}

/// Processor seconds of this process: the machine is shared, so wall time says little.
double cpuSeconds() { return double(std::clock()) / CLOCKS_PER_SEC; }

double perceptionSeconds(CProtocolInfo* p) {
    CProtocolLayoutUtils utils;
    const double start = cpuSeconds();
    int rounds = 0;
    do {
        utils.LoadProtocolComponents(p);
        ++rounds;
    } while (cpuSeconds() - start < 0.3);
    return (cpuSeconds() - start) / rounds;
}

/// `ours`: processor seconds of the measured part, all iterations together.
void report(benchmark::State& state, const Generated& g, double ours) {
    const double peer = perceptionSeconds(g.protocol.get());
    state.counters["components"] = double(g.protocol->getNumComponents());
    state.counters["selected"] = double(g.selection.size());
    state.counters["perception_ms"] = peer * 1000;
    state.counters["x_perception"] = ours / double(state.iterations()) / peer;
}

void check(benchmark::State& state) {
    Generated g = generate(int(state.range(0)), int(state.range(1)));
    CProtocolCollapseUtils collapse;
    tovan::WString message;
    const double start = cpuSeconds();
    for (auto _ : state) {
        bool ok = collapse.CanCollapseToSubprotocol(g.protocol.get(), g.selection, message);
        if (!ok) state.SkipWithError(tovan::toNarrow(message).c_str());
        benchmark::DoNotOptimize(ok);
    }
    report(state, g, cpuSeconds() - start);
}

void collapseAndUncollapse(benchmark::State& state, bool uncollapse) {
    const Generated model = generate(int(state.range(0)), int(state.range(1)));
    CProtocolCollapseUtils collapse;
    double ours = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Generated g = generate(int(state.range(0)), int(state.range(1)));
        tovan::iProtocolInfo* sub = nullptr;
        if (uncollapse) sub = collapse.CollapseToSubprotocol(nullptr, g.protocol.get(), g.selection, {}, false);
        std::vector<int32_t> ids;
        const double start = cpuSeconds();
        state.ResumeTiming();
        if (uncollapse) collapse.UncollapseSubprotocol(sub->getParentComponent(), g.protocol.get(), ids);
        else benchmark::DoNotOptimize(collapse.CollapseToSubprotocol(nullptr, g.protocol.get(), g.selection, {}, false));
        state.PauseTiming();
        ours += cpuSeconds() - start;
        g.protocol.reset();  // freeing is not what is measured
        state.ResumeTiming();
    }
    report(state, model, ours);
}

/// The synthetic corpus protocol of 10,000 components (705 start nodes, 56 loop connections):
/// a check of its first `range(0)` components in protocol order, allowed or not (counter
/// `allowed`); the rules run to the end either way only when allowed.
void checkSynthetic(benchmark::State& state) {
    Generated g;
    g.protocol = CProtocolFile::Read(tovan::toWide(std::string(NVK_CORPUS_DIR) + "/workflows/synthetic/syn-n10000-s1.json"));
    for (int k = 0; k < int(state.range(0)); ++k)
        g.selection.push_back(tovan::toWide(std::to_string(CProtocolUtils::GetComponentLocalID(g.protocol->getComponent(k)))));
    CProtocolCollapseUtils collapse;
    tovan::WString message;
    bool ok = false;
    const double start = cpuSeconds();
    for (auto _ : state) benchmark::DoNotOptimize(ok = collapse.CanCollapseToSubprotocol(g.protocol.get(), g.selection, message));
    report(state, g, cpuSeconds() - start);
    state.counters["allowed"] = ok;
}

void collapseOnly(benchmark::State& state) { collapseAndUncollapse(state, false); }
void uncollapseOnly(benchmark::State& state) { collapseAndUncollapse(state, true); }

void sizes(benchmark::internal::Benchmark* b) {
    for (int selected : {10, 100, 1000}) b->Args({10000, selected});
    b->Args({1000, 100});
    b->Args({100000, 100});
    b->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(check)->Apply(sizes);
BENCHMARK(checkSynthetic)->Arg(2)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(collapseOnly)->Apply(sizes)->Iterations(20);
BENCHMARK(uncollapseOnly)->Apply(sizes)->Iterations(20);

BENCHMARK_MAIN();
