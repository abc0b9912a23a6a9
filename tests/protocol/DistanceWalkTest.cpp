// The fast distance walk must give exactly what the reference walk (path copies) gives, on every
// kind of graph: loops, self-loops, parallel pass and fail connections, partial sets.
#include <gtest/gtest.h>

#include <random>

#include "nvk/protocol/DistanceWalk_internal.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::BitsetValue;

namespace {

void insertSorted(std::vector<int>& v, int value) {
    auto it = std::lower_bound(v.begin(), v.end(), value);
    if (it == v.end() || *it != value) v.insert(it, value);
}

struct RandomGraph {
    std::vector<std::vector<int>> down, up;
    std::vector<int> x;
    std::vector<std::vector<std::pair<int, int>>> out;
    int connections = 0;

    explicit RandomGraph(int n) : down(size_t(n)), up(size_t(n)), out(size_t(n)) {}
    void connect(int a, int b) {
        insertSorted(down[size_t(a)], b);
        insertSorted(up[size_t(b)], a);
        out[size_t(a)].emplace_back(b, connections++);
    }
    DistanceWalkGraph view() const { return {&down, &up, &x, &out}; }
};

/// Runs both walks in both directions and requires the same distances (entries outside
/// `set` start at 7 and must stay so) and the same loop connections. Adds to `withLoops`
/// the runs that found a loop.
void expectSameWalks(const RandomGraph& g, const BitsetValue& set, int round, int& withLoops) {
    for (bool furthest : {true, false}) {
        std::vector<int> slow(g.down.size(), 7), fast(g.down.size(), 7);
        BitsetValue slowLoops, fastLoops;
        bool slowHas = false, fastHas = false;
        ReferenceDistanceWalk(g.view(), set, furthest, slow, slowLoops, slowHas);
        FastDistanceWalk(g.view(), set, furthest, fast, fastLoops, fastHas);
        ASSERT_EQ(slow, fast) << "round " << round << " furthest " << furthest;
        ASSERT_EQ(slowLoops, fastLoops) << "round " << round << " furthest " << furthest;
        ASSERT_EQ(slowHas, fastHas) << "round " << round << " furthest " << furthest;
        withLoops += slowHas;
    }
}

RandomGraph makeGraph(std::mt19937& rng, int n, int edges, bool forwardOnly) {
    RandomGraph g(n);
    for (int i = 0; i < n; ++i) g.x.push_back(int(rng() % 5));  // ties on purpose
    for (int e = 0; e < edges; ++e) {
        int a = int(rng() % unsigned(n)), b = int(rng() % unsigned(n));
        if (forwardOnly && a >= b) continue;
        g.connect(a, b);
    }
    return g;
}

}  // namespace

TEST(DistanceWalk, MatchesTheReferenceWalkOnRandomGraphs) {
    std::mt19937 rng(20261122);
    int withLoops = 0, compared = 0;
    for (int round = 0; round < 6000; ++round) {
        int n = 1 + int(rng() % 14);
        int edges = int(rng() % unsigned(3 * n + 1));
        RandomGraph g = makeGraph(rng, n, edges, round % 4 == 0);
        BitsetValue set{size_t(n)};
        for (int i = 0; i < n; ++i)
            if (round % 3 != 0 || rng() % 4 != 0) set.set(size_t(i));
        expectSameWalks(g, set, round, withLoops);
        if (HasFatalFailure()) return;
        compared += 2;
    }
    // The comparison means something only if both kinds of graph came up often.
    EXPECT_GT(withLoops, compared / 5);
    EXPECT_LT(withLoops, compared * 4 / 5);
}

TEST(DistanceWalk, RingsReachedFromManyStartsMatchToo) {
    // Layered graphs with many paths: many start nodes reaching the same rings, rings
    // inside rings, rings of one (a component feeding itself), parallel pass and fail
    // connections, and at times more rings than the fast walk keeps apart, on the whole
    // set and on parts of it.
    std::mt19937 rng(31);
    int withLoops = 0;
    for (int round = 0; round < 1000; ++round) {
        const int width = 2 + int(rng() % 6), layers = 4 + int(rng() % 9), n = layers * width;
        RandomGraph g(n);
        for (int i = 0; i < n; ++i) g.x.push_back(int(rng() % 3));
        std::vector<int> feeder(size_t(n), -1);
        for (int i = width; i < n; ++i) {
            feeder[size_t(i)] = i - width - i % width + int(rng() % unsigned(width));
            g.connect(feeder[size_t(i)], i);
        }
        for (int i = 0; i + width < n; ++i)
            for (int f = int(rng() % 3); f > 0; --f) {
                int target = std::min(n - 1, i + width * (1 + int(rng() % 3 == 0)) + int(rng() % unsigned(width)));
                g.connect(i, target);
                if (rng() % 6 == 0) g.connect(i, target);  // a fail branch beside the pass one
            }
        const int rings = int(rng() % (round % 5 == 0 ? 24 : 6));
        for (int r = 0; r < rings; ++r) {
            int from = int(rng() % unsigned(n)), to = from;
            for (int up = int(rng() % 4); up > 0 && feeder[size_t(to)] >= 0; --up) to = feeder[size_t(to)];
            g.connect(from, to);
        }
        BitsetValue set{size_t(n)};
        for (int i = 0; i < n; ++i)
            if (round % 4 != 0 || rng() % 5 != 0) set.set(size_t(i));
        expectSameWalks(g, set, round, withLoops);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(withLoops, 1000);
}
