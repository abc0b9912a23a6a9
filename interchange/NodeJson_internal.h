#pragma once
// What the two ways of writing node trees as JSON share: through the
// writer's calls (NodeJsonCalls.cpp, every shape of tree) and as whole texts
// (NodeJsonText.cpp, the usual shapes, much faster).
#include <cstdint>
#include <span>
#include <vector>

#include "nvk/data/CProperty.h"
#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/String.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"

namespace nvk::JsonUtilities::detail {

/// WriteValue without the batch.
void writeValue(CJsonWriter& w, const tovan::Value& value);
/// AppendElementToArray through the writer's calls, without the batch.
void appendNode(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren, bool childrenAsList);

/// Children in group order, each group in document order: `start[g]` ..
/// `start[g + 1]` index `ordered` for group g (a counting sort on `groupOf`).
struct GroupOrder {
    std::vector<uint32_t> start;
    std::vector<int> ordered;
    GroupOrder(const std::vector<uint32_t>& groupOf, size_t groups) : start(groups + 1, 0), ordered(groupOf.size()) {
        for (uint32_t g : groupOf) ++start[g + 1];
        for (size_t g = 1; g < start.size(); ++g) start[g] += start[g - 1];
        std::vector<uint32_t> next(start.begin(), start.end() - 1);
        for (size_t i = 0; i < groupOf.size(); ++i) ordered[next[groupOf[i]]++] = int(i);
    }
};

/// Calls `each(property)` for the properties in `slots` in order, skipping the
/// holes removals leave, and stops at the first call that returns false (the
/// result). Each property and each value is an object of its own wherever its
/// pool put it, so the walk mostly waits for memory: the property two ahead and
/// the value one ahead are asked for early.
template <class Each>
bool forEachProperty(std::span<CProperty* const> slots, Each&& each) {
    const size_t n = slots.size();
    for (size_t k = 0; k < n; ++k) {
        if (k + 2 < n && slots[k + 2]) __builtin_prefetch(slots[k + 2]);
        if (k + 1 < n && slots[k + 1]) __builtin_prefetch(slots[k + 1]->findValue());
        if (const CProperty* p = slots[k]; p && !each(*p)) return false;
    }
    return true;
}

inline bool sameName(const tovan::WString& a, const tovan::WString& b) {
    return a.isNull() ? b.isNull() : !b.isNull() && a == b;  // a null name is apart from the empty one
}

}  // namespace nvk::JsonUtilities::detail
