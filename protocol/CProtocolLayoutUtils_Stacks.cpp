// Laying out one network: its members in stacks (columns) by distance from the start, each
// stack aligned with the one before it, then offsets, shifting to the top left and wrapping
// long pipelines.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>

#include "nvk/platform/Exception.h"

using namespace tovan;

namespace nvk {

void CProtocolLayoutUtils::InitialLayoutUsingDistanceFromStart(int n) {
    static DebugTarget t("LayoutInitialStack");
    Network& net = networks_[size_t(n)];
    for (size_t k = 0; k < net.stacks.size(); ++k) {
        std::vector<int>& stack = net.stacks[k];
        debug(t, u"NET %d STACK %d has %d members", n, int(k), int(stack.size()));
        for (size_t j = 0; j < stack.size(); ++j)
            debug(t, u"NET %d STACK %d member %d: \"%ls\"", n, int(k), int(j), displayName_[size_t(stack[j])]);
        if (std::all_of(stack.begin(), stack.end(), [&](int c) { return fixed_[size_t(c)] != 0; })) continue;
        // The reference placement also puts the fixed members of a mixed stack in rows; that
        // would throw away the place the caller asked to keep, so fixed members stay and
        // the free ones take the rows of their sorted positions around them.
        std::vector<int> sorted(stack);
        std::stable_sort(sorted.begin(), sorted.end(),
                         [&](int a, int b) { return getLocationMetric(point_[size_t(a)]) < getLocationMetric(point_[size_t(b)]); });
        for (size_t j = 0; j < sorted.size(); ++j) {
            int c = sorted[j];
            if (fixed_[size_t(c)]) continue;
            point_[size_t(c)] = {columnWidth_ * int(k) + FirstStackX, rowHeight_ * int(j) + FirstRowY};
            debug(t, u"XY %d %d \"%ls\"", point_[size_t(c)].x, point_[size_t(c)].y, displayName_[size_t(c)]);
        }
    }
}

void CProtocolLayoutUtils::ProcessAllStacks(int n) {
    Network& net = networks_[size_t(n)];
    FixStartNodes(n, true);
    for (int k = 0; k + 1 < int(net.stacks.size()); ++k) ProcessStack(n, k);
    FixStartNodes(n, false);
    WidenStackSeparation(n);
    AddComponentOffsets(net.members);
    ShiftToStartingLeftTop(net.members);
    if (wrapLongPipelines_ > 0) WrapLongPipelinesAfterLayout(n, wrapLongPipelines_);
}

void CProtocolLayoutUtils::FixStartNodes(int n, bool allowMoveUp) {
    static DebugTarget t("LayoutFixStartNodes");
    Network& net = networks_[size_t(n)];
    if (net.stacks.empty()) return;
    // Stack 0 in its present top-to-bottom order, except that the start nodes take the
    // places held by start nodes in protocol order.
    std::vector<int> order(net.stacks[0]);
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return getLocationMetric(point_[size_t(a)]) < getLocationMetric(point_[size_t(b)]); });
    std::vector<int> starts;
    for (int c : order)
        if (adjacency_[AdjInput][size_t(c)].empty()) starts.push_back(c);
    std::sort(starts.begin(), starts.end());
    size_t next = 0;
    for (int& c : order)
        if (adjacency_[AdjInput][size_t(c)].empty()) c = starts[next++];
    for (size_t j = 1; j < order.size(); ++j) {
        int c = order[j], prev = order[j - 1];
        int minY = point_[size_t(prev)].y + rowHeight_;
        if (point_[size_t(c)].y >= minY || fixed_[size_t(c)]) continue;
        Point from = point_[size_t(c)];
        int dy = minY - from.y;
        std::vector<int> with = GetMoveWith(c);
        if (t) {
            BitsetValue withSet(components_.size());
            for (int w : with) withSet.set(size_t(w));
            WString withText;
            ComponentSetText(withSet, withText);
            debug(t, u"moving %ls (with %ls) from XY %d %d to %d %d to preserve order with %ls", displayName_[size_t(c)],
                  withText, from.x, from.y, from.x, minY, displayName_[size_t(prev)]);
        }
        MoveComponent(c, 0, dy);
        for (int w : with) MoveComponent(w, 0, dy);
    }
    if (allowMoveUp) MoveStartNodesUpIfNeeded(n, order);
}

void CProtocolLayoutUtils::MoveStartNodesUpIfNeeded(int n, const std::vector<int>& order) {
    static DebugTarget t("LayoutFixStartNodes");
    (void)n;
    // Before the other stacks are aligned, stack 0 closes up any gap left by reordering.
    for (size_t j = 0; j < order.size(); ++j) {
        int c = order[j];
        int minY = j == 0 ? FirstRowY : point_[size_t(order[j - 1])].y + rowHeight_;
        int up = point_[size_t(c)].y - minY;
        if (up > 0 && !fixed_[size_t(c)]) {
            debug(t, u"MSN: moving up %d: %ls", up, displayName_[size_t(c)]);
            MoveComponent(c, 0, -up);
        } else {
            debug(t, u"MSN: no need to move: %ls", displayName_[size_t(c)]);
        }
    }
    // Only fixed start nodes can still be out of protocol order.
    const auto& starts = networks_[size_t(n)].startNodes;
    for (size_t k = 1; k < starts.size(); ++k) {
        int a = starts[k - 1], b = starts[k];
        int ya = point_[size_t(a)].y, yb = point_[size_t(b)].y;
        if (ya > yb)
            debug(t, u"MSN: ERROR found lower-numbered start node higher, requesting move: %ls (%d) vs %ls (%d): %d",
                  displayName_[size_t(a)], ya, displayName_[size_t(b)], yb, ya - yb + rowHeight_);
        else if (ya == yb)
            debug(t, u"MSN: ERROR found higher-numbered start node lower: %ls (%d) vs %ls (%d)", displayName_[size_t(b)],
                  yb, displayName_[size_t(a)], ya);
    }
}

void CProtocolLayoutUtils::ProcessStack(int n, int k) {
    static DebugTarget t("LayoutProcessStack");
    static DebugTarget tUp("LayoutMoveComponentsUpY");
    Network& net = networks_[size_t(n)];
    // Placed: members of this network in stacks up to k (stack numbers are per network).
    auto placed = [&](int c) { return networkOf_[size_t(c)] == n && stackOf_[size_t(c)] <= k; };
    const std::vector<int>& next = net.stacks[size_t(k + 1)];
    // Each member lines up with its highest placed upstream component; the members that
    // share that anchor are spread over rows below it (or about it, with AlignCenter).
    std::vector<int> anchor(next.size(), -1);
    std::vector<int> rowInGroup(next.size(), 0);
    std::unordered_map<int, int> byAnchor;  // members sharing each anchor
    for (size_t i = 0; i < next.size(); ++i) {
        int c = next[i];
        for (int u : adjacency_[AdjInput][size_t(c)])
            if (placed(u) && (anchor[i] < 0 || point_[size_t(u)].y < point_[size_t(anchor[i])].y)) anchor[i] = u;
        if (anchor[i] >= 0) rowInGroup[i] = byAnchor[anchor[i]]++;
    }
    std::vector<int64_t> desired(next.size());
    for (size_t i = 0; i < next.size(); ++i) {
        int c = next[i];
        if (anchor[i] < 0) {
            desired[i] = point_[size_t(c)].y;
            continue;
        }
        int j = rowInGroup[i], count = byAnchor[anchor[i]];
        int64_t y = int64_t(point_[size_t(anchor[i])].y) + int64_t(j) * rowHeight_;
        if (alignCenter_) y -= int64_t(count - 1) * rowHeight_ / 2;
        if (adjacency_[AdjInputFromPass][size_t(c)].empty() && !adjacency_[AdjInputFromFail][size_t(c)].empty())
            y += failOnlyOffset_;
        desired[i] = y;
    }
    // The members in order of their desired rows, except that a member that must lie above
    // another of this stack comes first (Kahn's order, taking the lowest desired row ready).
    std::unordered_map<int, size_t> slot;
    for (size_t i = 0; i < next.size(); ++i) slot[next[i]] = i;
    std::vector<int> pending(next.size(), 0);
    for (size_t i = 0; i < next.size(); ++i)
        for (int a : mustBeBelow_[size_t(next[i])])
            if (slot.count(a)) ++pending[i];
    std::vector<size_t> order;
    using Ready = std::pair<int64_t, size_t>;  // the lowest desired row first, then the first member
    std::vector<Ready> ready;
    for (size_t i = 0; i < next.size(); ++i)
        if (pending[i] == 0) ready.emplace_back(desired[i], i);
    std::make_heap(ready.begin(), ready.end(), std::greater<>());
    while (!ready.empty()) {
        std::pop_heap(ready.begin(), ready.end(), std::greater<>());
        size_t pick = ready.back().second;
        ready.pop_back();
        order.push_back(pick);
        for (int b : mustBeAbove_[size_t(next[pick])]) {
            auto it = slot.find(b);
            if (it != slot.end() && --pending[it->second] == 0) {
                ready.emplace_back(desired[it->second], it->second);
                std::push_heap(ready.begin(), ready.end(), std::greater<>());
            }
        }
    }
    bool havePrev = false;
    int64_t prevY = 0;
    for (size_t i : order) {
        int c = next[i];
        int64_t y = fixed_[size_t(c)] ? point_[size_t(c)].y : desired[i];
        if (!fixed_[size_t(c)]) {
            if (havePrev) y = std::max(y, prevY + rowHeight_);
            for (int a : mustBeBelow_[size_t(c)])
                if (placed(a))
                    y = std::max(y, int64_t(point_[size_t(a)].y) + minVerticalSeparation_);
            y = std::clamp<int64_t>(y, INT32_MIN / 4, INT32_MAX / 4);
            if (y < point_[size_t(c)].y)
                debug(tUp, u"UP: \"%ls\" from Y %d to %d", displayName_[size_t(c)], point_[size_t(c)].y, int(y));
            point_[size_t(c)].y = int32_t(y);
        }
        debug(t, u"STACK %d: \"%ls\" at XY %d %d", k + 1, displayName_[size_t(c)], point_[size_t(c)].x, point_[size_t(c)].y);
        havePrev = true;
        prevY = point_[size_t(c)].y;
    }
    // A member that must lie above a component of an earlier stack can end up below it;
    // the earlier stack is not moved again for it, as in the reference layout.
}

void CProtocolLayoutUtils::WidenStackSeparation(int n) {
    static DebugTarget t("LayoutProcessStack");
    Network& net = networks_[size_t(n)];
    const int limit = int(columnWidth_ * 1.1);
    for (size_t s = 1; s < net.stacks.size(); ++s) {
        bool widened = false;
        for (int m : net.stacks[s - 1]) {
            // A component with an output port and nothing connected to it draws its port
            // stub into the gap; a neighbour close by in the next stack would meet it.
            if (!adjacency_[AdjPassOrFail][size_t(m)].empty() || !(ports_[size_t(m)] & (PortPass | PortFail))) continue;
            for (int o : net.stacks[s]) {
                uint32_t dx = uint32_t(point_[size_t(o)].x) - uint32_t(point_[size_t(m)].x);
                uint32_t dy = uint32_t(point_[size_t(o)].y) - uint32_t(point_[size_t(m)].y);
                int32_t sum = int32_t(dx * dx + dy * dy);
                if (sum >= 0 && int(std::sqrt(double(sum))) < limit) {
                    widened = true;
                    break;
                }
            }
            if (widened) break;
        }
        if (!widened) continue;
        debug(t, u"WIDEN: stacks %d and after move right %d", int(s), mediumMargin_);
        for (size_t r = s; r < net.stacks.size(); ++r)
            for (int c : net.stacks[r]) MoveComponent(c, mediumMargin_, 0);
    }
}

void CProtocolLayoutUtils::AddComponentOffsets(const std::vector<int>& members) {
    // Loading took every offset off its point, fixed components' too; putting it back is
    // not a move, so a fixed component gets it as well and is saved where it was read.
    // Through MoveComponent it would be saved shifted by its offset, again on each layout.
    for (int c : members) {
        point_[size_t(c)].x += offset_[size_t(c)].x;
        point_[size_t(c)].y += offset_[size_t(c)].y;
    }
}

void CProtocolLayoutUtils::ShiftToStartingLeftTop(const std::vector<int>& members) {
    if (members.empty()) return;
    int minX = INT_MAX, minY = INT_MAX;
    for (int c : members) {
        minX = std::min(minX, point_[size_t(c)].x);
        minY = std::min(minY, point_[size_t(c)].y);
    }
    int dx = FirstStackX - minX, dy = FirstRowY - minY;
    for (int c : members) MoveComponent(c, dx, dy);
    if (!considerStickyNotes_) return;
    int right = 0, down = 0;
    for (int c : members)
        for (int k : componentNotes_[size_t(c)]) {
            const Extent& e = notes_[size_t(k)].extent;
            if (point_[size_t(c)].x + e.left < FirstStackX) right = std::max(right, FirstStackX - (point_[size_t(c)].x + e.left));
            if (point_[size_t(c)].y + e.top < FirstRowY) down = std::max(down, FirstRowY - (point_[size_t(c)].y + e.top));
        }
    if (right > 0 || down > 0)
        for (int c : members) MoveComponent(c, right, down);
}

void CProtocolLayoutUtils::WrapLongPipelinesAfterLayout(int n, int wrap) {
    static DebugTarget t("LayoutProtocol");
    Network& net = networks_[size_t(n)];
    const int count = int(net.stacks.size());
    if (count <= wrap || net.stacks[size_t(wrap)].size() >= 2) return;
    int i = wrap;
    while (i > 0 && net.stacks[size_t(i)].size() == 1) --i;
    // The first four stacks are never the anchor: a short head would make rows too short.
    int anchor = std::max(i + 1, 4);
    int rowLength = wrap - anchor + 1;
    if (rowLength <= 2 || anchor >= count) return;
    int counter = rowLength, wraps = 0, shift = 0;
    const int anchorX = point_[size_t(net.stacks[size_t(anchor)][0])].x;
    for (int s = wrap + 1; s < count; ++s) {
        int c = net.stacks[size_t(s)][0];
        if (counter >= rowLength) {
            counter = 0;
            ++wraps;
            shift = point_[size_t(c)].x - anchorX;
        }
        ++counter;
        int down = (rowHeight_ * 3) / 2 * wraps;
        debug(t, u"WRAP: \"%ls\" left %d down %d", displayName_[size_t(c)], shift, down);
        MoveComponent(c, -shift, down);
    }
}

}  // namespace nvk
