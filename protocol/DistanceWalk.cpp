#include "protocol/DistanceWalk.h"

#include <algorithm>

#include "platform/Exception.h"

using namespace tovan;

namespace nvk {
namespace {

bool better(int candidate, int current, bool wantFurthest) {
    return current == -1 || (wantFurthest ? candidate > current : candidate < current);
}

void recordLoop(const DistanceWalkGraph& g, int c, int n, BitsetValue& loops, bool& hasLoops) {
    bool found = false;
    for (const auto& [to, index] : (*g.outgoing)[size_t(c)])
        if (to == n) {
            loops.set(size_t(index));
            found = true;
        }
    if (!found) throw Exception("CProtocolUtils", "PerceiveDistanceFromStartNodeForSet", u"Loop connection not found");
    hasLoops = true;
}

/// Members of the set with no upstream inside it; when there is none (the set is all
/// ring), the member with the smallest initial X, the lower index winning a tie.
std::vector<int> localStartNodes(const DistanceWalkGraph& g, const BitsetValue& set, int n) {
    std::vector<int> starts;
    int leftmost = -1;
    for (size_t i = set.firstSetBit(); i != BitsetValue::npos && int(i) < n; i = set.nextSetBit(i + 1)) {
        bool hasInside = false;
        for (int u : (*g.upstream)[i])
            if (set.test(size_t(u))) {
                hasInside = true;
                break;
            }
        if (!hasInside) starts.push_back(int(i));
        if (leftmost < 0 || (*g.initialX)[i] < (*g.initialX)[size_t(leftmost)]) leftmost = int(i);
    }
    if (starts.empty() && leftmost >= 0) starts.push_back(leftmost);
    return starts;
}

}  // namespace

void DistanceWalkAsWritten(const DistanceWalkGraph& g, const BitsetValue& set, bool wantFurthest,
                           std::vector<int>& distances, BitsetValue& loops, bool& hasLoops) {
    const int n = g.size();
    distances.resize(size_t(n), -1);
    set.forEachSetBit([&](size_t i) {
        if (int(i) < n) distances[i] = -1;
    });
    struct Entry {
        int c;
        int d;
        BitsetValue path;
    };
    std::vector<int> scratch;
    for (int s : localStartNodes(g, set, n)) {
        scratch.assign(size_t(n), -1);
        std::vector<Entry> stack;
        stack.push_back({s, 0, BitsetValue(size_t(n))});
        while (!stack.empty()) {
            Entry e = std::move(stack.back());
            stack.pop_back();
            e.path.set(size_t(e.c));
            bool improved = better(e.d, scratch[size_t(e.c)], wantFurthest);
            if (improved) scratch[size_t(e.c)] = e.d;
            for (int next : (*g.downstream)[size_t(e.c)]) {
                if (!set.test(size_t(next))) continue;
                if (e.path.test(size_t(next))) recordLoop(g, e.c, next, loops, hasLoops);
                else if (improved) stack.push_back({next, e.d + 1, e.path});
            }
        }
        for (int i = 0; i < n; ++i)
            if (scratch[size_t(i)] != -1 && better(scratch[size_t(i)], distances[size_t(i)], wantFurthest))
                distances[size_t(i)] = scratch[size_t(i)];
    }
}

void DistanceWalk(const DistanceWalkGraph& g, const BitsetValue& set, bool wantFurthest, std::vector<int>& distances,
                  BitsetValue& loops, bool& hasLoops) {
    const int n = g.size();
    distances.resize(size_t(n), -1);
    std::vector<int> members;
    std::vector<char> inSet(size_t(n), 0);
    set.forEachSetBit([&](size_t i) {
        if (int(i) < n) {
            members.push_back(int(i));
            inSet[i] = 1;
            distances[i] = -1;
        }
    });
    if (members.empty()) return;
    const auto& down = *g.downstream;
    const auto& up = *g.upstream;

    // Strongly connected parts of the set (iterative Tarjan). Parts come out sinks first,
    // so `part` numbers decrease along every connection between two parts.
    std::vector<int> index(size_t(n), -1), low(size_t(n), 0), part(size_t(n), -1);
    std::vector<char> onStack(size_t(n), 0);
    std::vector<int> tarjanStack, partSize;
    std::vector<char> partCycles;  // a part of two or more, or one that feeds itself
    struct Frame {
        int v;
        size_t next;
    };
    std::vector<Frame> frames;
    int counter = 0;
    for (int root : members) {
        if (index[size_t(root)] != -1) continue;
        frames.push_back({root, 0});
        index[size_t(root)] = low[size_t(root)] = counter++;
        tarjanStack.push_back(root);
        onStack[size_t(root)] = 1;
        while (!frames.empty()) {
            Frame& f = frames.back();
            const auto& outs = down[size_t(f.v)];
            if (f.next < outs.size()) {
                int w = outs[f.next++];
                if (!inSet[size_t(w)]) continue;
                if (index[size_t(w)] == -1) {
                    index[size_t(w)] = low[size_t(w)] = counter++;
                    tarjanStack.push_back(w);
                    onStack[size_t(w)] = 1;
                    frames.push_back({w, 0});
                } else if (onStack[size_t(w)]) {
                    low[size_t(f.v)] = std::min(low[size_t(f.v)], index[size_t(w)]);
                }
                continue;
            }
            int v = f.v;
            frames.pop_back();
            if (!frames.empty()) low[size_t(frames.back().v)] = std::min(low[size_t(frames.back().v)], low[size_t(v)]);
            if (low[size_t(v)] == index[size_t(v)]) {
                int id = int(partSize.size());
                int size = 0;
                bool selfLoop = false;
                int w;
                do {
                    w = tarjanStack.back();
                    tarjanStack.pop_back();
                    onStack[size_t(w)] = 0;
                    part[size_t(w)] = id;
                    ++size;
                    for (int x : down[size_t(w)])
                        if (x == w) selfLoop = true;
                } while (w != v);
                partSize.push_back(size);
                partCycles.push_back(size > 1 || selfLoop);
            }
        }
    }
    // Whether a loop can be reached from each part; sinks come first, so every part's
    // successors are settled before it.
    const int numParts = int(partSize.size());
    std::vector<std::vector<int>> partMembers(static_cast<size_t>(numParts));
    for (int v : members) partMembers[size_t(part[size_t(v)])].push_back(v);
    std::vector<char> reachesLoop(size_t(numParts), 0);
    for (int p = 0; p < numParts; ++p) {
        bool r = partCycles[size_t(p)];
        for (size_t k = 0; !r && k < partMembers[size_t(p)].size(); ++k)
            for (int x : down[size_t(partMembers[size_t(p)][k])])
                if (inSet[size_t(x)] && part[size_t(x)] != p && reachesLoop[size_t(part[size_t(x)])]) {
                    r = true;
                    break;
                }
        reachesLoop[size_t(p)] = r;
    }
    auto isTail = [&](int v) { return !reachesLoop[size_t(part[size_t(v)])]; };

    std::vector<int> scratch(size_t(n), -1), seed(size_t(n), -1);
    std::vector<int> touched, seeded;
    std::vector<char> onPath(size_t(n), 0), inTail(size_t(n), 0);
    auto addSeed = [&](int v, int d) {
        if (seed[size_t(v)] == -1) seeded.push_back(v);
        if (better(d, seed[size_t(v)], wantFurthest)) seed[size_t(v)] = d;
    };
    struct Visit {
        int c;
        int d;
        size_t begin;
        size_t pos;
    };
    std::vector<Visit> visits;
    std::vector<int> scheduled, tailOrder, work;

    for (int s : localStartNodes(g, set, n)) {
        if (isTail(s)) {
            addSeed(s, 0);
        } else {
            // The exact walk: a visit schedules the children it would push, and they are
            // visited last-scheduled first, as a stack would pop them.
            auto enter = [&](int c, int d) {
                onPath[size_t(c)] = 1;
                bool improved = better(d, scratch[size_t(c)], wantFurthest);
                if (improved) {
                    if (scratch[size_t(c)] == -1) touched.push_back(c);
                    scratch[size_t(c)] = d;
                }
                size_t begin = scheduled.size();
                for (int next : down[size_t(c)]) {
                    if (!inSet[size_t(next)]) continue;
                    if (onPath[size_t(next)]) recordLoop(g, c, next, loops, hasLoops);
                    else if (improved) scheduled.push_back(next);
                }
                visits.push_back({c, d, begin, scheduled.size()});
            };
            enter(s, 0);
            while (!visits.empty()) {
                Visit& v = visits.back();
                if (v.pos > v.begin) {
                    int next = scheduled[--v.pos];
                    int d = v.d + 1;
                    if (isTail(next)) addSeed(next, d);
                    else enter(next, d);
                    continue;
                }
                onPath[size_t(v.c)] = 0;
                scheduled.resize(v.begin);
                visits.pop_back();
            }
        }
        for (int v : touched) {
            if (scratch[size_t(v)] != -1 && better(scratch[size_t(v)], distances[size_t(v)], wantFurthest))
                distances[size_t(v)] = scratch[size_t(v)];
            scratch[size_t(v)] = -1;
        }
        touched.clear();
    }
    // The loop-free part, once for all start nodes. A start's values there are the best of
    // its seeds carried along the best paths, and the best of those over the starts is the
    // same as carrying the best seed of every start at once. Visited in topological order
    // (higher part numbers first), each takes the best of its seed and its upstream's values.
    tailOrder.clear();
    for (int v : seeded) {
        if (inTail[size_t(v)]) continue;
        inTail[size_t(v)] = 1;
        work.push_back(v);
        while (!work.empty()) {
            int x = work.back();
            work.pop_back();
            tailOrder.push_back(x);
            for (int y : down[size_t(x)])
                if (inSet[size_t(y)] && !inTail[size_t(y)]) {
                    inTail[size_t(y)] = 1;
                    work.push_back(y);
                }
        }
    }
    std::sort(tailOrder.begin(), tailOrder.end(), [&](int a, int b) { return part[size_t(a)] > part[size_t(b)]; });
    for (int u : tailOrder) {
        int value = seed[size_t(u)];
        for (int p : up[size_t(u)])
            if (inSet[size_t(p)] && inTail[size_t(p)] && scratch[size_t(p)] != -1 &&
                better(scratch[size_t(p)] + 1, value, wantFurthest))
                value = scratch[size_t(p)] + 1;
        scratch[size_t(u)] = value;
    }
    for (int u : tailOrder)
        if (better(scratch[size_t(u)], distances[size_t(u)], wantFurthest)) distances[size_t(u)] = scratch[size_t(u)];
}

}  // namespace nvk
