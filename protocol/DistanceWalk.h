#pragma once
// The walk that gives every component its distance from the start of a protocol and finds
// the connections that close loops. Two implementations with identical results:
//
// - DistanceWalkAsWritten: a depth-first walk on an explicit stack whose entries each carry
//   their own copy of the path. Every stack entry costs a copy of an N-bit set, and a
//   component is walked again each time a longer (or shorter) path to it is found, so on
//   graphs with many paths it does N bits of work for each of very many entries.
// - DistanceWalk: the same walk, visit for visit, wherever the order of the visits can
//   matter, i.e. on components from which a loop can be reached. There it keeps one shared
//   on-path mark instead of path copies. Components from which no loop can be reached are
//   not walked at all: what the walk would leave in them is the best distance over all
//   paths into that loop-free part, which one pass in topological order gives exactly.
//
// The walk is kept as a separate module so that tests and benchmarks can run both.
#include <vector>

#include "platform/BitsetValue.h"
#include "platform/Export.h"

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
NVK_EXPORT void DistanceWalk(const DistanceWalkGraph& g, const tovan::BitsetValue& set, bool wantFurthest,
                             std::vector<int>& distances, tovan::BitsetValue& loops, bool& hasLoops);
NVK_EXPORT void DistanceWalkAsWritten(const DistanceWalkGraph& g, const tovan::BitsetValue& set, bool wantFurthest,
                                      std::vector<int>& distances, tovan::BitsetValue& loops, bool& hasLoops);

}  // namespace nvk
