#pragma once
// Little-endian bytes, the order of every stored and transmitted form in the
// library (value streams, node files, credentials), whatever the processor's.
#include <concepts>
#include <cstddef>
#include <cstdint>

namespace tovan {

/// The low `bytes` bytes of `v` at `out`, the lowest first.
constexpr void storeLE(uint8_t* out, uint64_t v, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) out[i] = uint8_t(v >> (8 * i));
}
/// `bytes` bytes at `in`, the lowest first.
constexpr uint64_t loadLE(const uint8_t* in, size_t bytes) {
    uint64_t v = 0;
    for (size_t i = 0; i < bytes; ++i) v |= uint64_t(in[i]) << (8 * i);
    return v;
}

template <std::unsigned_integral U>
constexpr void storeLE(uint8_t* out, U v) {
    storeLE(out, uint64_t(v), sizeof(U));
}
template <std::unsigned_integral U>
constexpr U loadLE(const uint8_t* in) {
    return U(loadLE(in, sizeof(U)));
}

}  // namespace tovan
