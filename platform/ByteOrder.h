#pragma once
// Little-endian bytes, the order of every stored and transmitted form in the
// library (value streams, node files, credentials), whatever the processor's.
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

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

namespace byte_order_detail {
template <std::unsigned_integral U>
constexpr U toLittle(U v) {
    if constexpr (std::endian::native == std::endian::little || sizeof(U) == 1)
        return v;
    else if constexpr (sizeof(U) == 2)
        return U(__builtin_bswap16(v));
    else if constexpr (sizeof(U) == 4)
        return U(__builtin_bswap32(v));
    else
        return U(__builtin_bswap64(v));
}
}  // namespace byte_order_detail

// The fixed widths are one load or store: the compiler does not merge the
// byte loop above into one at every optimisation level, and these are on
// every field of every record.
template <std::unsigned_integral U>
constexpr void storeLE(uint8_t* out, U v) {
    if (std::is_constant_evaluated()) {
        storeLE(out, uint64_t(v), sizeof(U));
        return;
    }
    v = byte_order_detail::toLittle(v);
    std::memcpy(out, &v, sizeof v);
}
template <std::unsigned_integral U>
constexpr U loadLE(const uint8_t* in) {
    if (std::is_constant_evaluated()) return U(loadLE(in, sizeof(U)));
    U v;
    std::memcpy(&v, in, sizeof v);
    return byte_order_detail::toLittle(v);
}

}  // namespace tovan
