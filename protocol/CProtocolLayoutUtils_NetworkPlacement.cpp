// Placing the laid-out networks relative to each other: each below the one before, then
// tucked up beside it as far as no overlap with it results.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>
#include <climits>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::boxesOverlap;

bool CProtocolLayoutUtils::FixedNetworkAndNetworkOverlap(int fixedNetwork, int n, int moveUp) const {
    Extent fe, ne;
    if (!GetNetworkExtent(fixedNetwork, fe) || !GetNetworkExtent(n, ne)) return false;
    ne.top += moveUp;
    ne.bottom += moveUp;
    if (!boxesOverlap(fe, ne)) return false;
    for (int c : networks_[size_t(n)].members) {
        Extent ce = ComponentExtent(c);
        ce.top += moveUp;
        ce.bottom += moveUp;
        if (!boxesOverlap(ce, fe)) continue;
        for (int d : networks_[size_t(fixedNetwork)].members)
            if (boxesOverlap(ce, ComponentExtent(d))) return true;
    }
    return false;
}

void CProtocolLayoutUtils::TuckNetworkUpIntoFixedNetwork(int fixedNetwork, int n, Extent& fixedExtent, Extent& extent) {
    // The search looks at the network directly above only, and rises no higher than its
    // top: a network placed earlier and tucked up beside that one can still be in the way,
    // and then the two overlap. That is the reference result, kept as it is; nor does the
    // search keep start nodes of different networks in protocol order.
    static DebugTarget t("LayoutNetwork");
    const int limit = fixedExtent.top - extent.top;
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
        kept = move;  // the moves reach INT_MIN at the latest, which no limit lies below
    }
    if (kept == 0) return;
    while (kept - bound > 1) {
        int mid = int((int64_t(kept) + bound) / 2);
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
    for (int i = 1; i < count; ++i) {
        Extent P, C;
        GetNetworkExtent(i - 1, P);
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
    dump(true);
}

}  // namespace nvk
