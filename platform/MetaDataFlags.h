#pragma once
// The metadata flags word and its named bits.
#include <cstdint>

namespace tovan {

/// The 32-bit metadata flags word shared by nodes, properties and the byte
/// stream. Bits not named here are free for callers and are kept as given.
using MetaDataFlags = uint32_t;

/// The property may not be changed in place (getEditableValue refuses).
inline constexpr MetaDataFlags MetaDataReadOnly = 0x2;
/// The property holds its node's value ("text-content" by default).
inline constexpr MetaDataFlags MetaDataNodeValue = 0x8;
/// A local mark that is never written to a byte stream.
inline constexpr MetaDataFlags MetaDataNotSerialized = 0x40;
/// Used only inside the byte stream, to announce that metadata entries follow.
inline constexpr MetaDataFlags MetaDataHasEntries = 0x20000000;

}  // namespace tovan
