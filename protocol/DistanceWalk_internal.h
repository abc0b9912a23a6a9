#pragma once
// The reference implementation of the distance walk, kept for tests: the unit tests, the
// protocol benchmark and the protocol fuzz target compare FastDistanceWalk with it.
#include "nvk/protocol/DistanceWalk.h"

namespace nvk {

/// The straightforward walk: depth first on an explicit stack whose entries each carry their
/// own copy of the path. Every stack entry costs a copy of an N-bit set, and a component is
/// walked again each time a longer (or shorter) path to it is found, so on graphs with many
/// paths it does N bits of work for each of very many entries. Same contract and results as
/// FastDistanceWalk.
NVK_EXPORT void ReferenceDistanceWalk(const DistanceWalkGraph& g, const tovan::BitsetValue& set, bool wantFurthest,
                                      std::vector<int>& distances, tovan::BitsetValue& loops, bool& hasLoops);

}  // namespace nvk
