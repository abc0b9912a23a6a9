// Drags: moving components as a drag would, and, during layout, keeping a drag as an
// offset when it does not change the execution order.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::kClass;

void CProtocolLayoutUtils::SaveMovedTo() {
    static DebugTarget t("LayoutMoveComponents");
    dragged_.clear();
    movedFrom_.assign(components_.size(), {});
    movedTo_.assign(components_.size(), {});
    previousMovedTo_.clear();
    for (size_t c = 0; c < components_.size(); ++c) {
        Point from;
        if (!GetComponentMovedFrom(components_[c], from)) continue;
        dragged_.push_back(int(c));
        movedFrom_[c] = from;
        movedTo_[c] = storedPoint_[c];
        debug(t, u"SMT: component \"%ls\" movedFrom %d %d movedTo %d %d", displayName_[c], from.x, from.y,
              movedTo_[c].x, movedTo_[c].y);
        PreviousMark previous{int(c), false, {}};
        previous.had = GetComponentMovedTo(components_[c], previous.point);
        previousMovedTo_.push_back(previous);
        SetComponentMovedTo(components_[c], movedTo_[c]);
    }
}

void CProtocolLayoutUtils::RestoreMovedTo() {
    for (const PreviousMark& previous : previousMovedTo_) {
        iComponentInfo* c = components_[size_t(previous.component)];
        if (previous.had) SetComponentMovedTo(c, previous.point);
        else c->removeAttribute(NVK_ComponentMovedTo);
    }
    previousMovedTo_.clear();
}

void CProtocolLayoutUtils::ProcessMovesToOffsets() {
    static DebugTarget t("LayoutMoveComponents");
    std::vector<int> kept;
    for (int c : dragged_) {
        Point B = movedFrom_[size_t(c)], T = movedTo_[size_t(c)], O = offset_[size_t(c)], P = point_[size_t(c)];
        debug(t, u"PMTO: MovedFrom: comp \"%ls\" XYBeforeMove %d %d XYMovedTo %d %d OrigOffset %d %d post-layout XY %d %d",
              displayName_[size_t(c)], B.x, B.y, T.x, T.y, O.x, O.y, P.x, P.y);
        bool start = IsStartNode(c);
        if (start) debug(t, u"PMTO: Component IS START NODE - keeping move");
        if (!(P == B) && !start) {
            debug(t, u"PMTO: FORGET move: comp \"%ls\"", displayName_[size_t(c)]);
            continue;
        }
        Point offset{O.x - P.x + T.x, O.y - P.y + T.y};
        debug(t, u"PMTO: KEEP as offset: comp \"%ls\" offset %d %d", displayName_[size_t(c)], offset.x, offset.y);
        foundOffsetMove_ = true;
        if (acceptOffsetMoves_) {
            point_[size_t(c)] = T;
            finalOffset_[size_t(c)] = offset;
            kept.push_back(c);
        }
    }
    RemoveMovesFromStartNodesThatChangedOrder(kept);
}

void CProtocolLayoutUtils::RemoveMovesFromStartNodesThatChangedOrder(const std::vector<int>& kept) {
    static DebugTarget t("LayoutMoveComponents");
    for (int c : kept) {
        if (!IsStartNode(c)) continue;
        const auto& starts = networks_[size_t(networkOf_[size_t(c)])].startNodes;
        std::vector<int> sorted(starts);
        std::stable_sort(sorted.begin(), sorted.end(),
                         [&](int a, int b) { return getLocationMetric(point_[size_t(a)]) < getLocationMetric(point_[size_t(b)]); });
        if (sorted == starts) continue;
        debug(t, u"RMFSNTCO: Moved caused start node order change for \"%ls\", clearing move and offset",
              displayName_[size_t(c)]);
        Point T = movedTo_[size_t(c)];
        Point newOffset = finalOffset_[size_t(c)];
        // Back to the laid-out place, with the offset it had before the drag.
        point_[size_t(c)] = {T.x - newOffset.x + offset_[size_t(c)].x, T.y - newOffset.y + offset_[size_t(c)].y};
        finalOffset_[size_t(c)] = offset_[size_t(c)];
    }
}

void CProtocolLayoutUtils::MoveProtocolComponents(iProtocolInfo* protocol, const std::vector<int32_t>& localIDs,
                                                  int right, int down, BitsetValue& changed) {
    static DebugTarget t("LayoutMoveComponents");
    if (!protocol) throw Exception(kClass, "MoveProtocolComponents", u"Cannot dereference a NULL pointer");
    LoadProtocolComponents(protocol);
    InitBitset(changed, components_.size(), false);
    if (localIDs.empty()) throw Exception(kClass, "MoveProtocolComponents", u"Was not passed any local IDs");
    std::vector<int> indexes;
    for (int32_t id : localIDs) {
        int c = GetComponentIndexByLocalID(id);
        if (c < 0) {
            changed.clearAll();
            throw Exception(kClass, "MoveProtocolComponents", u"Did not find localID %d", id);
        }
        if (std::find(indexes.begin(), indexes.end(), c) == indexes.end()) indexes.push_back(c);
        changed.set(size_t(c));
    }
    const bool autoLayout = GetProtocolAutoLayout(protocol);
    for (int c : indexes) {
        iComponentInfo* comp = components_[size_t(c)];
        Point stored = storedPoint_[size_t(c)];
        if (autoLayout) {
            // Each move records where it started, over the mark of an earlier move not yet
            // laid out: the next layout judges the last move only.
            debug(t, u"MPC set MovedFrom %d %d", stored.x, stored.y);
            SetComponentMovedFrom(comp, stored);
        }
        debug(t, u"MPC %ls move right %d move down %d (autolayout %d)", displayName_[size_t(c)], right, down, int(autoLayout));
        Point o = offset_[size_t(c)];
        Point p{point_[size_t(c)].x + o.x + right, point_[size_t(c)].y + o.y + down};
        debug(t, u"MPC existing offset %d %d new point %d %d", o.x, o.y, p.x, p.y);
        SetComponentPoint(comp, p);
        point_[size_t(c)] = {p.x - o.x, p.y - o.y};
        storedPoint_[size_t(c)] = p;
    }
}

}  // namespace nvk
