#include "nvk/platform/Random.h"

#include <algorithm>
#include <chrono>
#include <random>

#include "nvk/platform/ByteOrder.h"

namespace tovan {

void vcRandom::Seed(uint64_t seed) {
    state_ = seed;
    seeded_ = true;
}

uint32_t vcRandom::Next() {
    if (!seeded_) Seed(uint64_t(std::chrono::steady_clock::now().time_since_epoch().count()));
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return uint32_t((z ^ (z >> 31)) >> 32);
}

uint32_t vcRandom::NextBelow(uint32_t bound) {
    if (bound == 0) return 0;
    // Reject the top sliver that would make small values more likely.
    uint32_t limit = uint32_t(-bound) % bound;
    for (;;) {
        uint32_t v = Next();
        if (v >= limit) return v % bound;
    }
}

void vcRandom::FillUnpredictable(uint8_t* out, size_t length) {
    thread_local std::mt19937_64 engine = [] {
        std::random_device device;
        std::seed_seq seq{device(), device(), device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seq);
    }();
    for (size_t i = 0; i < length; i += 8) {
        uint64_t v = engine();
        storeLE(out + i, v, std::min<size_t>(8, length - i));
    }
}

}  // namespace tovan
