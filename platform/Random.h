#pragma once
// Pseudo-random numbers: a small seeded generator for salts, and an
// unpredictable source for cipher initialisation vectors.
#include <cstddef>
#include <cstdint>

#include "nvk/platform/Export.h"

namespace tovan {

/// A seeded pseudo-random generator (splitmix64 state, xorshift-multiply
/// output). Deterministic for a given seed, which keeps tests reproducible;
/// NOT suitable where an attacker must not guess the values. One object is
/// not locked: share it only under a lock (CCredentials keeps a process-wide
/// one behind a critical section).
class NVK_EXPORT vcRandom {
public:
    vcRandom() = default;
    explicit vcRandom(uint64_t seed) { Seed(seed); }

    void Seed(uint64_t seed);
    bool IsSeeded() const { return seeded_; }
    /// The next 32 random bits. An unseeded generator seeds itself from the
    /// clock first, so it never returns a fixed sequence by accident.
    uint32_t Next();
    /// A value in [0, bound), without modulo bias; `bound` 0 gives 0.
    uint32_t NextBelow(uint32_t bound);

    /// Fills `out` from the operating system's entropy source (through a
    /// per-thread generator seeded from it), for values that must not be
    /// predictable, such as initialisation vectors.
    static void FillUnpredictable(uint8_t* out, size_t length);

private:
    uint64_t state_ = 0;
    bool seeded_ = false;
};

}  // namespace tovan
