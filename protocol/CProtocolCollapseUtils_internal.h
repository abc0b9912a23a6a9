#pragma once
// Shared by the files that implement CProtocolCollapseUtils.
#include <cstdint>
#include <vector>

#include "nvk/platform/iParameter.h"
#include "nvk/platform/iProtocolInfo.h"
#include "nvk/protocol/CProtocolUtils.h"

namespace nvk::collapse_internal {

inline constexpr const char* kClass = "CProtocolCollapseUtils";

/// Throws "Cannot dereference a NULL pointer" for a null object.
void requireObject(const void* p, const char* operation);

/// Adds to `into` a copy of `from` under `localID`: every attribute, the parameters with
/// their type texts and metadata, its point-valued places moved by (dx, dy) and kept within
/// 32 bits. The subprotocol is not copied (moveSubprotocol).
tovan::iComponentInfo* copyComponent(const tovan::iComponentInfo& from, tovan::iProtocolInfo& into, int32_t localID,
                                     int64_t dx, int64_t dy);

/// Hands `from`'s subprotocol, if any, to `to`.
void moveSubprotocol(tovan::iComponentInfo& from, tovan::iComponentInfo& to);

/// The position in `points` of the one that runs first (smallest location metric, the
/// earlier on a tie); 0 for an empty list.
size_t firstInExecutionOrder(const std::vector<CProtocolUtils::Point>& points);

/// The first of `count` new local IDs above the protocol's largest; throws
/// "No local IDs left above %d" when they would pass 32 bits.
int32_t firstNewLocalId(const tovan::iProtocolInfo& protocol, int64_t count, const char* operation);

/// A parent or single-parent link whose value is text: the name it looks up; else false.
bool parentLinkName(const tovan::iParameter& parameter, tovan::WString& name);

}  // namespace nvk::collapse_internal
