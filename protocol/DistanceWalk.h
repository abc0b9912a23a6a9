#pragma once
// The walk that gives every component its distance from the start of a protocol and finds
// the connections that close loops.
//
// The straightforward walk is a depth-first walk on an explicit stack whose entries each
// carry their own copy of the path (ReferenceDistanceWalk, in DistanceWalk_internal.h, kept
// so that tests, the benchmark and the fuzz target can compare with it). FastDistanceWalk
// gives the same results with far fewer visits, in three steps.
//   1. It finds the strongly connected parts of the set. Only visits of components on loops
//      (parts of two or more, or a component feeding itself) can find loop connections, and
//      only there can the order of the visits change a distance.
//   2. Everywhere else the walk's final distance of a component is simply the best over its
//      upstream of (their distance + 1), 0 for a start node: its best visit comes from its
//      upstream's best one, and no path can block it. One pass in topological order gives
//      that for all start nodes at once.
//   3. For start nodes from which a loop can be reached, the walk is repeated in the
//      reference walk's order, with one on-path mark instead of path copies, but a visit of
//      an off-loop component is cut short when no path from it (through off-loop components)
//      could bring a better distance than the one already there into any loop component it
//      reaches: the longest (shortest) such paths are known per loop entry (per group of
//      entries when there are many), and loop distances only ever get better during a
//      walk, so what is cut would not have changed any loop component, nor which visits
//      happen there or in what order. Parts that reach no loop are not walked at all.
//   Tests run both walks on thousands of random graphs and compare every distance and loop
//   connection.
#include <vector>

#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/Export.h"

namespace nvk {

/// What the walk reads: per component its downstream ("Pass or Fail") and upstream
/// ("Input") lists in increasing index order, its initial X, and the connections leaving
/// it as (target, connection index) pairs in connection order.
struct DistanceWalkGraph {
    const std::vector<std::vector<int>>* downstream = nullptr;
    const std::vector<std::vector<int>>* upstream = nullptr;
    const std::vector<int>* initialX = nullptr;
    const std::vector<std::vector<std::pair<int, int>>>* outgoing = nullptr;
    int size() const { return int(downstream->size()); }
};

/// Sets `distances` (N entries) for the members of `set` and adds loop connections to
/// `loops` (setting `hasLoops` when one is found). Entries outside the set are untouched.
NVK_EXPORT void FastDistanceWalk(const DistanceWalkGraph& g, const tovan::BitsetValue& set, bool wantFurthest,
                                 std::vector<int>& distances, tovan::BitsetValue& loops, bool& hasLoops);

}  // namespace nvk
