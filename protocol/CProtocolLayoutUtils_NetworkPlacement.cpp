// Placing the laid-out networks relative to each other: each below the one before, then
// tucked up as far as the networks already placed and the start-node order allow.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>
#include <climits>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::boxesOverlap;

bool CProtocolLayoutUtils::FixedNetworkAndNetworkOverlap(int fixedNetwork, int n, int moveUp) const {
    // Every network placed so far counts as fixed, not only the one directly above: an
    // earlier network tucked up beside it may lie in the way too.
    Extent ne;
    GetNetworkExtent(n, ne);
    ne.top += moveUp;
    ne.bottom += moveUp;
    auto membersOverlap = [&](int f, const Extent& fe) {
        for (int c : networks_[size_t(n)].members) {
            Extent ce = ComponentExtent(c);
            ce.top += moveUp;
            ce.bottom += moveUp;
            if (!boxesOverlap(ce, fe)) continue;
            for (int d : networks_[size_t(f)].members)
                if (boxesOverlap(ce, ComponentExtent(d))) return true;
        }
        return false;
    };
    if (fixedNetwork + 1 != placedCount_) {
        for (int f = 0; f <= fixedNetwork; ++f) {
            Extent fe;
            if (GetNetworkExtent(f, fe) && boxesOverlap(fe, ne) && membersOverlap(f, fe)) return true;
        }
        return false;
    }
    // Whether any overlaps does not depend on the order: the tree of placed extents gives
    // only the networks whose box meets this one, the nearest (latest placed) first.
    std::vector<size_t> pending{1};
    while (!pending.empty()) {
        size_t node = pending.back();
        pending.pop_back();
        if (!boxesOverlap(placedTree_[node], ne)) continue;
        if (node >= placedLeaves_) {
            int f = int(node - placedLeaves_);
            if (membersOverlap(f, placedTree_[node])) return true;
            continue;
        }
        pending.push_back(2 * node);
        pending.push_back(2 * node + 1);
    }
    return false;
}

void CProtocolLayoutUtils::TuckNetworkUpIntoFixedNetwork(int fixedNetwork, int n, Extent& fixedExtent, Extent& extent) {
    static DebugTarget t("LayoutNetwork");
    int limit = fixedExtent.top - extent.top;
    // Start nodes run in protocol order across networks too: no start node of this network
    // may rise to or above an earlier network's start node with a lower index.
    if (fixedNetwork + 1 == placedCount_) {
        // The lowest-lying (largest Y) start node of a lower index among the placed networks.
        for (int s : networks_[size_t(n)].startNodes) {
            int lowest = INT_MIN;
            for (int i = s; i > 0; i -= i & -i) lowest = std::max(lowest, placedStartY_[size_t(i - 1)]);
            if (lowest != INT_MIN) limit = std::max(limit, lowest - point_[size_t(s)].y + 1);
        }
    } else {
        for (int s : networks_[size_t(n)].startNodes)
            for (int f = 0; f <= fixedNetwork; ++f)
                for (int e : networks_[size_t(f)].startNodes)
                    if (e < s) limit = std::max(limit, point_[size_t(e)].y - point_[size_t(s)].y + 1);
    }
    int kept = 0, bound = limit;
    for (int move = -1;; move *= 2) {
        if (move <= limit) {
            bound = limit;
            break;
        }
        if (FixedNetworkAndNetworkOverlap(fixedNetwork, n, move)) {
            debug(t, u"Network %d: move up %d had OVERLAP", n, move);
            bound = move;
            break;
        }
        debug(t, u"Network %d: move up %d OK", n, move);
        kept = move;
        if (move < INT_MIN / 4) {
            bound = limit;
            break;
        }
    }
    if (kept == 0) return;
    while (kept - bound > 1) {
        int mid = (kept + bound) / 2;
        if (FixedNetworkAndNetworkOverlap(fixedNetwork, n, mid)) {
            debug(t, u"Network %d: move up %d had OVERLAP", n, mid);
            bound = mid;
        } else {
            debug(t, u"Network %d: move up %d was OK", n, mid);
            kept = mid;
        }
    }
    MoveNetwork(n, 0, kept);
    extent.top += kept;
    extent.bottom += kept;
}

void CProtocolLayoutUtils::LayoutNetworks() {
    static DebugTarget t("LayoutNetwork");
    const int count = GetNumNetworks();
    if (count == 0) return;
    auto dump = [&](bool end) {
        if (!t) return;
        for (int i = 0; i < count; ++i) {
            Extent e;
            GetNetworkExtent(i, e);
            if (end) debug(t, u"END N%d TBLR %d %d %d %d", i, e.top, e.bottom, e.left, e.right);
            else debug(t, u"N%d TBLR %d %d %d %d", i, e.top, e.bottom, e.left, e.right);
            for (int c : networks_[size_t(i)].members) {
                if (end) debug(t, u"END N%d C%d XY %d %d", i, c, point_[size_t(c)].x, point_[size_t(c)].y);
                else debug(t, u"N%d C%d XY %d %d", i, c, point_[size_t(c)].x, point_[size_t(c)].y);
            }
        }
    };
    dump(false);
    auto singlePortless = [&](int i) {
        const Network& net = networks_[size_t(i)];
        return net.members.size() == 1 && ports_[size_t(net.members[0])] == 0;
    };
    Extent e0;
    GetNetworkExtent(0, e0);
    if (considerStickyNotes_) AvoidProtocolStickyNotes(0, e0);
    // Networks before i no longer move while i is placed, so their extents and start
    // nodes are kept: the largest start-node Y below each index (a prefix-maximum
    // tree over component indices), for the tuck's limits.
    // An empty box meets nothing.
    const Extent none{INT_MAX, INT_MIN, INT_MAX, INT_MIN};
    placedLeaves_ = 1;
    while (placedLeaves_ < size_t(count)) placedLeaves_ *= 2;
    placedTree_.assign(2 * placedLeaves_, none);
    placedCount_ = 0;
    placedStartY_.assign(components_.size(), INT_MIN);
    for (int i = 1; i < count; ++i) {
        Extent P, C;
        GetNetworkExtent(i - 1, P);
        // Each node of the tree holds the box around the extents of its networks.
        for (size_t k = placedLeaves_ + size_t(i - 1); k >= 1; k /= 2) {
            Extent& box = placedTree_[k];
            box = {std::min(box.top, P.top), std::max(box.bottom, P.bottom), std::min(box.left, P.left),
                   std::max(box.right, P.right)};
        }
        ++placedCount_;
        for (int e : networks_[size_t(i - 1)].startNodes)
            for (size_t k = size_t(e) + 1; k <= placedStartY_.size(); k += k & (~k + 1))
                placedStartY_[k - 1] = std::max(placedStartY_[k - 1], point_[size_t(e)].y);
        GetNetworkExtent(i, C);
        if (singleComponentLinearLayout_ && singlePortless(i - 1) && singlePortless(i)) {
            int prev = networks_[size_t(i - 1)].members[0], c = networks_[size_t(i)].members[0];
            MoveComponent(c, P.right - C.left, P.top - C.top);
            int shortfall = point_[size_t(prev)].y + minVerticalSeparation_ - point_[size_t(c)].y;
            if (shortfall > 0) MoveComponent(c, 0, shortfall);
            GetNetworkExtent(i, C);
            if (C.bottom < P.bottom) MoveComponent(c, 0, P.bottom - C.bottom);
        } else {
            MoveNetwork(i, 0, P.bottom - C.top);
            GetNetworkExtent(i, C);
            if (!(singleComponentLinearLayout_ && singlePortless(i - 1))) TuckNetworkUpIntoFixedNetwork(i - 1, i, P, C);
        }
        GetNetworkExtent(i, C);
        if (considerStickyNotes_) AvoidProtocolStickyNotes(i, C);
    }
    placedTree_.clear();
    placedCount_ = 0;
    placedStartY_.clear();
    dump(true);
}

}  // namespace nvk
