// Execution order by place, and turning a user's drags into offsets or order changes.
#include "nvk/protocol/CProtocolUtils.h"

#include <algorithm>
#include <cmath>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;

int CProtocolUtils::Distance(int x1, int y1, int x2, int y2) {
    double dx = double(x2) - x1, dy = double(y2) - y1;
    return int(std::sqrt(dx * dx + dy * dy));
}

void CProtocolUtils::SortInExecutionOrder(std::vector<unsigned>& indexes) const {
    if (indexes.size() < 2) return;
    for (unsigned i : indexes) CheckIndex(int(i), "SortInExecutionOrder");
    std::stable_sort(indexes.begin(), indexes.end(), [&](unsigned a, unsigned b) {
        return getLocationMetric(point_[a]) < getLocationMetric(point_[b]);
    });
}

bool CProtocolUtils::OffsetChangesExecutionOrder(int c, const std::vector<int>& R, const std::vector<int>& D) const {
    static DebugTarget t("OffsetChangesExecutionOrder");
    CheckIndex(c, "OffsetChangesExecutionOrder");
    if (R.size() <= size_t(c) || D.size() <= size_t(c))
        throw InvalidIndexException(kClass, "OffsetChangesExecutionOrder", c, static_cast<long long>(std::min(R.size(), D.size())) - 1);
    int r = R[size_t(c)], d = D[size_t(c)];
    if (IsStartNode(c)) {
        debug(t, u"found StartNode");
        bool changed = OffsetChangesExecutionOrder(c, startNodes_, r, d);
        if (changed) debug(t, u"start node order CHANGED");
        else debug(t, u"start node order unchanged");
        return changed;
    }
    debug(t, u"found non-StartNode");
    for (int u : adjacency_[AdjInput][size_t(c)])
        if (OffsetChangesExecutionOrder(c, adjacency_[AdjPassOrFail][size_t(u)], r, d)) {
            debug(t, u"execution order CHANGED downstream");
            return true;
        }
    for (int down : adjacency_[AdjPassOrFail][size_t(c)])
        if (OffsetChangesExecutionOrder(c, adjacency_[AdjInput][size_t(down)], r, d)) {
            debug(t, u"execution order CHANGED upstream");
            return true;
        }
    debug(t, u"execution order unchanged");
    return false;
}

bool CProtocolUtils::OffsetChangesExecutionOrder(int c, const std::vector<int>& siblings, int R, int D) const {
    static DebugTarget t("OffsetChangesExecutionOrder");
    CheckIndex(c, "OffsetChangesExecutionOrder");
    auto order = [&](Point at) {
        std::vector<int> list(siblings);
        auto metric = [&](int i) { return i == c ? getLocationMetric(at) : getLocationMetric(point_[size_t(i)]); };
        std::stable_sort(list.begin(), list.end(), [&](int a, int b) { return metric(a) < metric(b); });
        return list;
    };
    auto text = [&](const std::vector<int>& list) {
        WString s = WString::empty();
        for (size_t k = 0; k < list.size(); ++k) {
            if (k) s += u' ';
            s += displayName_[size_t(list[k])].view();
        }
        return s;
    };
    Point before = point_[size_t(c)], after{before.x + R, before.y + D};
    std::vector<int> a = order(before), b = order(after);
    if (t) {
        debug(t, u"OCEO: %ls: before XY %d %d metric %ls after XY %d %d metric %ls", displayName_[size_t(c)], before.x,
              before.y, format(u"%lld", (long long)getLocationMetric(before)), after.x, after.y,
              format(u"%lld", (long long)getLocationMetric(after)));
        debug(t, u"OCEO: for component %ls: before %ls after %ls\"", displayName_[size_t(c)], text(a), text(b));
    }
    return a != b;
}

bool CProtocolUtils::ProcessMovedFrom() {
    static DebugTarget t("LayoutMoveComponents");
    const size_t n = components_.size();
    std::vector<int> R(n, 0), D(n, 0), moved;
    std::vector<Point> base(n);
    for (size_t c = 0; c < n; ++c) {
        Point from;
        if (!GetComponentMovedFrom(components_[c], from)) continue;
        RemoveComponentMovedFrom(components_[c]);
        moved.push_back(int(c));
        base[c] = {from.x - offset_[c].x, from.y - offset_[c].y};
        R[c] = point_[c].x - base[c].x;
        D[c] = point_[c].y - base[c].y;
        point_[c] = base[c];
    }
    if (moved.empty()) return false;
    bool changed = false;
    for (int c : moved) {
        debug(t, u"PMF: MOVE request \"%ls\" R %d D %d", displayName_[size_t(c)], R[size_t(c)], D[size_t(c)]);
        debug(t, u"PMF: EXISTING offset \"%ls\" R %d D %d", displayName_[size_t(c)], offset_[size_t(c)].x,
              offset_[size_t(c)].y);
        if (OffsetChangesExecutionOrder(c, R, D)) {
            changed = true;
            break;
        }
    }
    if (!changed) {
        debug(t, u"PMF: MOVE request DID NOT CHANGE processing order, offset set");
        for (int c : moved) offset_[size_t(c)] = {R[size_t(c)], D[size_t(c)]};
    } else {
        debug(t, u"PMF: MOVE request CHANGED processing order");
        for (int c : moved) {
            point_[size_t(c)] = {base[size_t(c)].x + R[size_t(c)], base[size_t(c)].y + D[size_t(c)]};
            offset_[size_t(c)] = {0, 0};
            debug(t, u"PMF: processing order changed, setting location of %ls to XY %d %d", displayName_[size_t(c)],
                  point_[size_t(c)].x, point_[size_t(c)].y);
        }
    }
    for (int c : moved) SetComponentOffset(components_[size_t(c)], offset_[size_t(c)]);
    return changed;
}

}  // namespace nvk
