#pragma once
// Shared by the files that implement CProtocolLayoutUtils, one per layout phase.
#include "nvk/protocol/CProtocolUtils.h"

namespace nvk::layout_utils_internal {

inline constexpr const char* kClass = "CProtocolLayoutUtils";

inline bool boxesOverlap(const CProtocolUtils::Extent& a, const CProtocolUtils::Extent& b) {
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

}  // namespace nvk::layout_utils_internal
