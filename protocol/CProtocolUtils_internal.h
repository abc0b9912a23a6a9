#pragma once
// Shared by the files that implement CProtocolUtils, one per topic.
#include "nvk/platform/Exception.h"

namespace nvk::protocol_utils_internal {

inline constexpr const char* kClass = "CProtocolUtils";

inline void requireComponent(const void* c, const char* operation) {
    if (!c) throw tovan::Exception(kClass, operation, u"Cannot dereference a NULL pointer");
}

}  // namespace nvk::protocol_utils_internal
