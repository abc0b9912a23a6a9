#include "nvk/protocol/DistanceWalk.h"

#include <algorithm>
#include <limits>
#include <span>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/DistanceWalk_internal.h"

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

void ReferenceDistanceWalk(const DistanceWalkGraph& g, const BitsetValue& set, bool wantFurthest,
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

namespace {

constexpr int kUnbounded = std::numeric_limits<int>::max() / 4;
constexpr int kMaxGroups = 32;

/// Lists per component, stored end to end.
struct Lists {
    std::vector<size_t> begin{0};
    std::vector<int> items;
    std::span<const int> operator[](size_t v) const { return {items.data() + begin[v], items.data() + begin[v + 1]}; }
};

/// Each component's place among the members of the set, -1 outside it. Kept filled with
/// -1 between calls, so that a call costs what its set holds, not what the protocol holds:
/// layout walks each network's unplaced members on their own.
thread_local std::vector<int> placeInSet;

/// The fast walk's state for one call. See the header for what it does and why that is exact.
/// It works on the members of the set alone, numbered in index order, so orders by index
/// are kept; components are named by index only where loops are recorded and results given.
class FastWalk {
public:
    FastWalk(const DistanceWalkGraph& g, const BitsetValue& set, bool wantFurthest, BitsetValue& loops, bool& hasLoops)
        : g_(g), wantFurthest_(wantFurthest), loops_(loops), hasLoops_(hasLoops) {
        const int n = g.size();
        set.forEachSetBit([&](size_t i) {
            if (int(i) < n) members_.push_back(int(i));
        });
        n_ = int(members_.size());
        if (placeInSet.size() < size_t(n)) placeInSet.resize(size_t(n), -1);
        for (int k = 0; k < n_; ++k) placeInSet[size_t(members_[size_t(k)])] = k;
        for (int v : members_) {
            for (int w : (*g.downstream)[size_t(v)])
                if (placeInSet[size_t(w)] >= 0) down_.items.push_back(placeInSet[size_t(w)]);
            down_.begin.push_back(down_.items.size());
            for (int u : (*g.upstream)[size_t(v)])
                if (placeInSet[size_t(u)] >= 0) up_.items.push_back(placeInSet[size_t(u)]);
            up_.begin.push_back(up_.items.size());
        }
        for (int v : members_) placeInSet[size_t(v)] = -1;
        inSet_.assign(size_t(n_), 1);
    }

    void run(std::vector<int>& result) {
        for (int v : members_) result[size_t(v)] = -1;
        if (members_.empty()) return;
        std::vector<int> distances(size_t(n_), -1);
        findParts();
        std::vector<char> isStart(size_t(n_), 0);
        scratch_.assign(size_t(n_), -1);
        onPath_.assign(size_t(n_), 0);
        findEntries();
        unreached_.assign(size_t(numGroups_), 0);
        stale_.assign(size_t(numGroups_), 1);
        least_.assign(size_t(numGroups_), 0);
        for (int s : localStartNodes()) {
            isStart[size_t(s)] = 1;
            if (reachesLoop_[size_t(s)]) walkFrom(s, distances);
        }
        // Everything off the loops, once for all start nodes, sources first.
        for (auto it = finished_.rbegin(); it != finished_.rend(); ++it) {
            int v = *it;
            if (cyclic_[size_t(v)]) continue;
            int value = isStart[size_t(v)] ? 0 : -1;
            for (int u : up_[size_t(v)])
                if (inSet_[size_t(u)] && distances[size_t(u)] != -1 && better(distances[size_t(u)] + 1, value, wantFurthest_))
                    value = distances[size_t(u)] + 1;
            distances[size_t(v)] = value;
        }
        for (int k = 0; k < n_; ++k) result[size_t(members_[size_t(k)])] = distances[size_t(k)];
    }

private:
    /// Strongly connected parts of the set (iterative Tarjan). `finished_` lists the members
    /// as their parts complete, so every connection between two parts points backwards in it.
    void findParts() {
        std::vector<int> index(size_t(n_), -1), low(size_t(n_), 0);
        std::vector<size_t> partStart{0};
        partOf_.assign(size_t(n_), -1);
        std::vector<char> onStack(size_t(n_), 0);
        std::vector<int> stack;
        struct Frame {
            int v;
            size_t next;
        };
        std::vector<Frame> frames;
        cyclic_.assign(size_t(n_), 0);
        int counter = 0;
        for (int root = 0; root < n_; ++root) {
            if (index[size_t(root)] != -1) continue;
            frames.push_back({root, 0});
            index[size_t(root)] = low[size_t(root)] = counter++;
            stack.push_back(root);
            onStack[size_t(root)] = 1;
            while (!frames.empty()) {
                Frame& f = frames.back();
                const auto& outs = down_[size_t(f.v)];
                if (f.next < outs.size()) {
                    int w = outs[f.next++];
                    if (!inSet_[size_t(w)]) continue;
                    if (index[size_t(w)] == -1) {
                        index[size_t(w)] = low[size_t(w)] = counter++;
                        stack.push_back(w);
                        onStack[size_t(w)] = 1;
                        frames.push_back({w, 0});
                    } else if (onStack[size_t(w)]) {
                        low[size_t(f.v)] = std::min(low[size_t(f.v)], index[size_t(w)]);
                    }
                    continue;
                }
                int v = f.v;
                frames.pop_back();
                if (!frames.empty())
                    low[size_t(frames.back().v)] = std::min(low[size_t(frames.back().v)], low[size_t(v)]);
                if (low[size_t(v)] != index[size_t(v)]) continue;
                size_t first = finished_.size();
                int w;
                do {
                    w = stack.back();
                    stack.pop_back();
                    onStack[size_t(w)] = 0;
                    partOf_[size_t(w)] = int(partStart.size());
                    finished_.push_back(w);
                } while (w != v);
                bool cycle = finished_.size() - first > 1;
                for (int x : down_[size_t(v)])
                    if (x == v) cycle = true;
                for (size_t k = first; k < finished_.size(); ++k) cyclic_[size_t(finished_[k])] = cycle;
                partStart.push_back(finished_.size());
            }
        }
        // Whether a loop can be reached: every part's successors finished before it.
        reachesLoop_.assign(size_t(n_), 0);
        for (size_t p = 0; p + 1 < partStart.size(); ++p) {
            bool r = cyclic_[size_t(finished_[partStart[p]])];
            for (size_t k = partStart[p]; !r && k < partStart[p + 1]; ++k)
                for (int x : down_[size_t(finished_[k])])
                    if (inSet_[size_t(x)] && reachesLoop_[size_t(x)]) r = true;
            for (size_t k = partStart[p]; r && k < partStart[p + 1]; ++k) reachesLoop_[size_t(finished_[k])] = 1;
        }
    }

    int key(int d) const { return wantFurthest_ ? d : -d; }

    /// Components on loops entered from off-loop ones, in at most kMaxGroups groups, and for
    /// every off-loop component that reaches a loop its best offset per group: the least
    /// `key(entry) - key(d)` over off-loop paths from it to an entry of the group, i.e.
    /// minus the longest path (wantFurthest) or plus the shortest one.
    void findEntries() {
        groupOf_.assign(size_t(n_), -1);
        std::vector<int> entries;
        for (int v : finished_) {
            if (!cyclic_[size_t(v)]) continue;
            for (int u : up_[size_t(v)])
                if (inSet_[size_t(u)] && !cyclic_[size_t(u)]) {
                    entries.push_back(v);
                    break;
                }
        }
        // A group's bound is its least distance against the longest (shortest) way to any
        // of its entries, so the finer the groups the more visits it cuts: one entry per
        // group while they are few, else one part per group and the last group the rest.
        const bool onePerEntry = entries.size() <= size_t(kMaxGroups);
        int lastPart = -1, partsSeen = 0;
        for (int v : entries) {
            if (onePerEntry || partOf_[size_t(v)] != lastPart) {
                lastPart = partOf_[size_t(v)];
                ++partsSeen;
            }
            groupOf_[size_t(v)] = std::min(partsSeen, kMaxGroups) - 1;
            if (int(groups_.size()) <= groupOf_[size_t(v)]) groups_.emplace_back();
            groups_[size_t(groupOf_[size_t(v)])].push_back(v);
        }
        numGroups_ = int(groups_.size());
        const int step = wantFurthest_ ? -1 : 1;
        offset_.assign(size_t(n_) * size_t(numGroups_), kUnbounded);
        for (int v : finished_) {
            if (cyclic_[size_t(v)] || !reachesLoop_[size_t(v)]) continue;
            int* mine = &offset_[size_t(v) * size_t(numGroups_)];
            for (int x : down_[size_t(v)]) {
                if (!inSet_[size_t(x)] || !reachesLoop_[size_t(x)]) continue;
                if (cyclic_[size_t(x)]) {
                    int& o = mine[groupOf_[size_t(x)]];
                    o = std::min(o, step);
                    continue;
                }
                const int* theirs = &offset_[size_t(x) * size_t(numGroups_)];
                for (int G = 0; G < numGroups_; ++G)
                    if (theirs[G] != kUnbounded) mine[G] = std::min(mine[G], theirs[G] + step);
            }
        }
        // The walk asks only about the groups a component reaches; far down the graph those
        // are few, so each component keeps just those.
        reachBegin_.assign(size_t(n_) + 1, 0);
        reached_.clear();
        for (int v = 0; v < n_; ++v) {
            reachBegin_[size_t(v)] = reached_.size();
            if (!inSet_[size_t(v)] || cyclic_[size_t(v)] || !reachesLoop_[size_t(v)]) continue;
            const int* mine = &offset_[size_t(v) * size_t(numGroups_)];
            for (int G = 0; G < numGroups_; ++G)
                if (mine[G] != kUnbounded) reached_.push_back({G, mine[G]});
        }
        reachBegin_[size_t(n_)] = reached_.size();
        hint_.assign(reachBegin_.begin(), reachBegin_.end() - 1);
    }

    void setScratch(int v, int d) {
        int& old = scratch_[size_t(v)];
        const int G = groupOf_[size_t(v)];
        if (old == -1) touched_.push_back(v);
        if (G >= 0) {
            // Keys only grow, so a group's least key moves only when its holder does.
            if (old == -1) --unreached_[size_t(G)];
            if (old == -1 || key(old) == least_[size_t(G)]) stale_[size_t(G)] = 1;
        }
        old = d;
    }

    /// The least key among a group's entries, or -kUnbounded while one has no distance yet.
    int leastKey(int G) {
        if (unreached_[size_t(G)] > 0) return -kUnbounded;
        if (stale_[size_t(G)]) {
            int least = kUnbounded;
            for (int e : groups_[size_t(G)]) least = std::min(least, key(scratch_[size_t(e)]));
            least_[size_t(G)] = least;
            stale_[size_t(G)] = 0;
        }
        return least_[size_t(G)];
    }

    /// Whether a visit of off-loop `c` at `d` cannot improve any component on a loop, by
    /// no path at all: then nothing it would do is kept but its own distance.
    bool cannotMatter(int c, int d) {
        // Which group can still gain is an existence question, so the one that could last
        // time is asked first: it mostly still can.
        const size_t begin = reachBegin_[size_t(c)], end = reachBegin_[size_t(c) + 1];
        if (begin == end) return true;
        size_t& hint = hint_[size_t(c)];
        for (size_t i = 0, k = hint; i < end - begin; ++i, k = k + 1 == end ? begin : k + 1) {
            const auto [G, offset] = reached_[k];
            int least = leastKey(G);
            if (least == -kUnbounded || key(d) > least + offset) {
                hint = k;
                return false;
            }
        }
        return true;
    }

    /// One start's walk, visit for visit where it can matter: a visit schedules the
    /// children it would push, and they are visited last-scheduled first, as a stack pops.
    void walkFrom(int s, std::vector<int>& distances) {
        for (int G = 0; G < numGroups_; ++G) unreached_[size_t(G)] = int(groups_[size_t(G)].size());
        auto enter = [&](int c, int d) {
            onPath_[size_t(c)] = 1;
            bool improved = better(d, scratch_[size_t(c)], wantFurthest_);
            if (improved) setScratch(c, d);
            size_t begin = scheduled_.size();
            for (int next : down_[size_t(c)]) {
                if (!inSet_[size_t(next)]) continue;
                if (onPath_[size_t(next)]) recordLoop(g_, members_[size_t(c)], members_[size_t(next)], loops_, hasLoops_);
                else if (improved && reachesLoop_[size_t(next)]) scheduled_.push_back(next);
            }
            visits_.push_back({c, d, begin, scheduled_.size()});
        };
        enter(s, 0);
        while (!visits_.empty()) {
            Visit& v = visits_.back();
            if (v.pos > v.begin) {
                int next = scheduled_[--v.pos];
                int d = v.d + 1;
                if (!cyclic_[size_t(next)]) {
                    if (!better(d, scratch_[size_t(next)], wantFurthest_)) continue;
                    if (cannotMatter(next, d)) {
                        setScratch(next, d);
                        continue;
                    }
                }
                enter(next, d);
                continue;
            }
            onPath_[size_t(v.c)] = 0;
            scheduled_.resize(v.begin);
            visits_.pop_back();
        }
        for (int v : touched_) {
            if (cyclic_[size_t(v)] && better(scratch_[size_t(v)], distances[size_t(v)], wantFurthest_))
                distances[size_t(v)] = scratch_[size_t(v)];
            scratch_[size_t(v)] = -1;
        }
        touched_.clear();
    }

    struct Visit {
        int c;
        int d;
        size_t begin;
        size_t pos;
    };

    /// Members with no upstream inside the set; when there is none (the set is all ring),
    /// the member with the smallest initial X, the lower index winning a tie.
    std::vector<int> localStartNodes() const {
        std::vector<int> starts;
        int leftmost = -1;
        for (int k = 0; k < n_; ++k) {
            if (up_[size_t(k)].empty()) starts.push_back(k);
            const auto& x = *g_.initialX;
            if (leftmost < 0 || x[size_t(members_[size_t(k)])] < x[size_t(members_[size_t(leftmost)])]) leftmost = k;
        }
        if (starts.empty() && leftmost >= 0) starts.push_back(leftmost);
        return starts;
    }

    const DistanceWalkGraph& g_;
    Lists down_, up_;
    int n_ = 0;
    const bool wantFurthest_;
    BitsetValue& loops_;
    bool& hasLoops_;
    std::vector<int> members_, finished_;
    std::vector<char> inSet_, cyclic_, reachesLoop_, onPath_;
    std::vector<int> partOf_, groupOf_, offset_;
    std::vector<size_t> reachBegin_, hint_;
    std::vector<std::pair<int, int>> reached_;  // (group, offset) per component, as reachBegin_ says
    std::vector<std::vector<int>> groups_;
    int numGroups_ = 0;
    std::vector<int> unreached_, least_;
    std::vector<char> stale_;
    std::vector<int> scratch_, touched_, scheduled_;
    std::vector<Visit> visits_;
};

}  // namespace

void FastDistanceWalk(const DistanceWalkGraph& g, const BitsetValue& set, bool wantFurthest, std::vector<int>& distances,
                      BitsetValue& loops, bool& hasLoops) {
    distances.resize(size_t(g.size()), -1);
    FastWalk(g, set, wantFurthest, loops, hasLoops).run(distances);
}

}  // namespace nvk
