#pragma once
// The length header of a string in the byte stream, and the refusal of a string too long for it.
#include <cstddef>
#include <cstdint>

#include "nvk/platform/Export.h"

namespace nvk {

/// The header of a string of `size` units (bytes when `narrow`): size + 1, a compact integer.
/// A string of 2^31 - 1 units or more raises Exception (StreamPrimitives::writeWideString or
/// writeNarrowString) "String of %d units is too long to write" ("bytes" when narrow) instead
/// of wrapping to a negative length that no reader could take back.
NVK_EXPORT int32_t stringLengthHeader(size_t size, bool narrow);

}  // namespace nvk
