#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <deque>
#include <functional>

#include "nvk/platform/Exception.h"

using namespace tovan;

namespace nvk {
namespace {

const char* const kClass = "CProtocolLayoutUtils";

bool boxesOverlap(const CProtocolUtils::Extent& a, const CProtocolUtils::Extent& b) {
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

std::vector<WString> splitIDs(const WString& text) {
    std::vector<WString> ids;
    WString current = WString::empty();
    for (wchar ch : text.view()) {
        if (ch == u',' || ch == u' ' || ch == u'\t' || ch == u'\n' || ch == u'\r' || ch == u';') {
            if (!current.isEmpty()) ids.push_back(current);
            current = WString::empty();
        } else {
            current += ch;
        }
    }
    if (!current.isEmpty()) ids.push_back(current);
    return ids;
}

}  // namespace

CProtocolLayoutUtils::CProtocolLayoutUtils() { SetLinesOfDisplayText(3); }
CProtocolLayoutUtils::~CProtocolLayoutUtils() = default;

void CProtocolLayoutUtils::SetLinesOfDisplayText(int lines) {
    linesOfDisplayText_ = lines;
    columnWidth_ = 300;
    rowHeight_ = (lines + 3) * 60;
    minVerticalSeparation_ = rowHeight_ / 12;
    margin_ = 37;
    wideMargin_ = 120;
    mediumMargin_ = 75;
    quarterRow_ = rowHeight_ / 4;
}

CProtocolUtils::Extent CProtocolLayoutUtils::ComponentExtent(int index) const {
    Point p = point_[size_t(index)];
    return {p.y, p.y + rowHeight_, p.x, p.x + columnWidth_};
}

void CProtocolLayoutUtils::MoveComponent(int c, int dx, int dy) {
    if (fixed_.empty() || !fixed_[size_t(c)]) {
        point_[size_t(c)].x += dx;
        point_[size_t(c)].y += dy;
    }
}

void CProtocolLayoutUtils::MoveNetwork(int n, int dx, int dy) {
    for (int c : networks_[size_t(n)].members) MoveComponent(c, dx, dy);
}

std::vector<int> CProtocolLayoutUtils::GetMoveWith(int index) const {
    CheckIndex(index, "GetMoveWith");
    std::vector<int> out;
    if (moveWithNext_.empty()) return out;
    for (int c = moveWithNext_[size_t(index)]; c >= 0 && c != index; c = moveWithNext_[size_t(c)]) {
        if (out.size() > components_.size()) break;  // a closed chain is a ring; stop after one turn
        out.push_back(c);
    }
    return out;
}

// ---- LayoutProtocol -------------------------------------------------------------------------

void CProtocolLayoutUtils::LayoutProtocol(iProtocolInfo* protocol, const WString& fixedComponents, BitsetValue& changed,
                                          bool& stickyNotesChanged) {
    static DebugTarget t("LayoutProtocol");
    if (!protocol) throw Exception(kClass, "LayoutProtocol", u"Cannot dereference a NULL pointer");
    foundOffsetMove_ = false;
    stickyNotesChanged = false;
    debug(t, u"rule %ls wantFurthest %d", GetXPositionRuleName(xPositionRule_), int(wantFurthest_));
    debug(t, u"[LoadProtocolComponents]");
    LoadProtocolComponents(protocol);
    fixed_.assign(components_.size(), 0);
    finalOffset_ = offset_;
    if (considerStickyNotes_) MoveProtocolStickyNotesOnscreen();
    SaveMovedTo();
    debug(t, u"[DefineFixedComponents]");
    DefineFixedComponents(fixedComponents);
    debug(t, u"[LoadNetworks]");
    LoadNetworks();
    debug(t, u"[CalculateComponentsMoveWith]");
    CalculateComponentsMoveWith();
    for (int n = 0; n < GetNumNetworks(); ++n) {
        debug(t, u"[InitialLayoutUsingDistanceFromStart: net %d]", n);
        InitialLayoutUsingDistanceFromStart(n);
        debug(t, u"[ProcessAllStacks: net %d]", n);
        ProcessAllStacks(n);
    }
    ProcessMovesToOffsets();
    debug(t, u"[LayoutNetworks]");
    LayoutNetworks();
    debug(t, u"[SaveComponentStickyNotes]");
    InitBitset(changed, components_.size(), false);
    if (considerStickyNotes_) {
        SaveComponentStickyNotes(changed);
        SaveProtocolStickyNotes();
    }
    debug(t, u"[SaveCoordinates]");
    BitsetValue written;
    SaveCoordinates(written);
    changed |= written;
    if (considerStickyNotes_) stickyNotesChanged = ProtocolStickyNotesChanged();
    debug(t, u"END LAYOUT");
}

void CProtocolLayoutUtils::SaveMovedTo() {
    static DebugTarget t("LayoutMoveComponents");
    dragged_.clear();
    movedFrom_.assign(components_.size(), {});
    movedTo_.assign(components_.size(), {});
    for (size_t c = 0; c < components_.size(); ++c) {
        Point from;
        if (!GetComponentMovedFrom(components_[c], from)) continue;
        dragged_.push_back(int(c));
        movedFrom_[c] = from;
        movedTo_[c] = storedPoint_[c];
        debug(t, u"SMT: component \"%ls\" movedFrom %d %d movedTo %d %d", displayName_[c], from.x, from.y,
              movedTo_[c].x, movedTo_[c].y);
    }
}

void CProtocolLayoutUtils::DefineFixedComponents(const WString& fixedComponents) {
    fixed_.assign(components_.size(), 0);
    std::vector<WString> ids = splitIDs(fixedComponents);
    if (ids.empty()) return;
    BitsetValue set;
    WString error;
    if (!ConvertIDsToBitset(ids, set, error)) throw Exception(kClass, "DefineFixedComponents", u"%ls", error);
    set.forEachSetBit([&](size_t c) { fixed_[c] = 1; });
}

void CProtocolLayoutUtils::LoadNetworks() {
    static DebugTarget t("LayoutLoadNetworks");
    const size_t n = components_.size();
    networks_.clear();
    networkOf_.assign(n, -1);
    stackOf_.assign(n, -1);
    debug(t, u"LoadNetworks: %ld initial start nodes", long(startNodes_.size()));
    std::vector<int> seeds(startNodes_);
    for (size_t c = 0; c < n; ++c) seeds.push_back(int(c));
    for (int seed : seeds) {
        if (networkOf_[size_t(seed)] != -1) continue;
        Network net;
        const int id = int(networks_.size());
        std::vector<int> work{seed};
        networkOf_[size_t(seed)] = id;
        while (!work.empty()) {
            int c = work.back();
            work.pop_back();
            net.members.push_back(c);
            for (int a : adjacency_[AdjAll][size_t(c)])
                if (networkOf_[size_t(a)] == -1) {
                    networkOf_[size_t(a)] = id;
                    work.push_back(a);
                }
        }
        std::sort(net.members.begin(), net.members.end());
        if (net.members.empty()) {
            debug(t, u"Should not get here: empty network");
            continue;
        }
        net.components = BitsetValue();  // grown by its members alone: there can be a network per component
        for (int c : net.members) net.components.set(size_t(c));
        for (int c : net.members)
            if (adjacency_[AdjInput][size_t(c)].empty()) net.startNodes.push_back(c);
        if (IsStartNode(seed)) debug(t, u"LoadNetworks: start node %d: \"%s\"", seed, displayName_[size_t(seed)]);
        for (int s : net.startNodes)
            if (!net.components.test(size_t(s))) debug(t, u"LoadNetworks: did not find start node in set");
        // Members no start node reaches (a ring feeding the rest, say) take distances from
        // their own local start, as a separate walk over what is still unplaced.
        // dist[i] is the distance of net.members[i].
        std::vector<int> dist(net.members.size());
        for (size_t i = 0; i < dist.size(); ++i) dist[i] = distance_[size_t(net.members[i])];
        while (std::find_if(dist.begin(), dist.end(), [](int d) { return d < 0; }) != dist.end()) {
            BitsetValue unplaced(n);
            for (size_t i = 0; i < dist.size(); ++i)
                if (dist[i] < 0) unplaced.set(size_t(net.members[i]));
            std::vector<int>& local = walkScratch_;
            PerceiveDistanceFromStartNodeForSet(unplaced, wantFurthest_, local);
            bool any = false;
            for (size_t i = 0; i < dist.size(); ++i)
                if (dist[i] < 0 && local[size_t(net.members[i])] >= 0) {
                    dist[i] = local[size_t(net.members[i])];
                    any = true;
                }
            if (!any) break;  // cannot happen: every non-empty set has a local start
        }
        int maxDistance = 0;
        for (int d : dist) maxDistance = std::max(maxDistance, std::max(d, 0));
        net.stacks.assign(size_t(maxDistance + 1), {});
        for (size_t i = 0; i < dist.size(); ++i) {
            int c = net.members[i], d = std::max(dist[i], 0);
            net.stacks[size_t(d)].push_back(c);
            stackOf_[size_t(c)] = d;
        }
        std::erase_if(net.stacks, [](const std::vector<int>& s) { return s.empty(); });
        for (size_t k = 0; k < net.stacks.size(); ++k)
            for (int c : net.stacks[k]) stackOf_[size_t(c)] = int(k);
        debug(t, u"LoadNetworks: first and last: \"%s\" \"%s\"", displayName_[size_t(net.members.front())],
              displayName_[size_t(net.members.back())]);
        networks_.push_back(std::move(net));
    }
}

const CProtocolLayoutUtils::Network& CProtocolLayoutUtils::GetNetwork(int i) const {
    if (i < 0 || i >= GetNumNetworks()) throw InvalidIndexException(kClass, "GetNetwork", i, GetNumNetworks() - 1);
    return networks_[size_t(i)];
}

bool CProtocolLayoutUtils::GetNetworkExtent(int i, Extent& e) const {
    const Network& net = GetNetwork(i);
    if (net.members.empty()) return false;
    e = {INT_MAX, INT_MIN, INT_MAX, INT_MIN};
    for (int c : net.members) {
        Point p = point_[size_t(c)];
        e.top = std::min(e.top, p.y);
        e.bottom = std::max(e.bottom, p.y + rowHeight_);
        e.left = std::min(e.left, p.x);
        e.right = std::max(e.right, p.x + columnWidth_);
    }
    return true;
}

bool CProtocolLayoutUtils::NetworksOverlap(int i, int j) const {
    Extent a, b;
    if (!GetNetworkExtent(i, a) || !GetNetworkExtent(j, b) || !boxesOverlap(a, b)) return false;
    for (int c : networks_[size_t(i)].members)
        for (int d : networks_[size_t(j)].members)
            if (boxesOverlap(ComponentExtent(c), ComponentExtent(d))) return true;
    return false;
}

bool CProtocolLayoutUtils::HasNetworkOverlap(int& i, int& j) const {
    for (int a = 0; a < GetNumNetworks(); ++a)
        for (int b = a + 1; b < GetNumNetworks(); ++b)
            if (NetworksOverlap(a, b)) {
                i = a;
                j = b;
                return true;
            }
    return false;
}

void CProtocolLayoutUtils::CalculateComponentsMoveWith() {
    moveWithNext_.assign(components_.size(), -1);
    for (size_t c = 0; c < components_.size(); ++c) {
        const auto& down = adjacency_[AdjPassOrFail][c];
        if (down.size() == 1 && down[0] != int(c) && adjacency_[AdjInput][size_t(down[0])].size() == 1)
            moveWithNext_[c] = down[0];
    }
}

// ---- per network ----------------------------------------------------------------------------

void CProtocolLayoutUtils::InitialLayoutUsingDistanceFromStart(int n) {
    static DebugTarget t("LayoutInitialStack");
    Network& net = networks_[size_t(n)];
    for (size_t k = 0; k < net.stacks.size(); ++k) {
        std::vector<int>& stack = net.stacks[k];
        debug(t, u"NET %d STACK %d has %d members", n, int(k), int(stack.size()));
        for (size_t j = 0; j < stack.size(); ++j)
            debug(t, u"NET %d STACK %d member %d: \"%ls\"", n, int(k), int(j), displayName_[size_t(stack[j])]);
        if (std::all_of(stack.begin(), stack.end(), [&](int c) { return fixed_[size_t(c)] != 0; })) continue;
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
    EnforceMustBeAbove(n);
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
    // A member that must lie above a component of an earlier stack that is not below it
    // yet is settled by EnforceMustBeAbove, which moves that component down.
}

void CProtocolLayoutUtils::EnforceMustBeAbove(int n) {
    // ProcessStack settles each constraint when its second component is placed, but a later
    // block move can carry a component past one it only indirectly had to stay above. A
    // sweep takes the network's members in one order that honours every constraint, in a
    // stack or across stacks, and otherwise goes from the highest member down; each member
    // moves down only as far as the member before it in its stack (by the row height) and
    // the members it must lie below (by the separation) need. Ordering each stack on its own
    // could put a member above one that it must, through members of other stacks, lie
    // below: the sweeps then pushed such a ring of members down without end. With one order
    // every requirement points forwards, so one sweep meets them all; a second one finds
    // the same order and nothing to move. The constraints always point from a lower index
    // to a higher one, so the order exists.
    static DebugTarget t("LayoutMustBeAbove");
    Network& net = networks_[size_t(n)];
    // Scratch kept between networks: a network's members are reset before it returns, so
    // the cost follows the network's size, not the protocol's.
    std::vector<int>& pending = pending_;
    std::vector<int>& rank = rank_;
    pending.resize(components_.size(), 0);
    rank.resize(components_.size(), 0);
    std::vector<int> members;
    for (const std::vector<int>& stack : net.stacks)
        for (size_t i = 0; i < stack.size(); ++i) {
            rank[size_t(stack[i])] = int(i);
            members.push_back(stack[i]);
        }
    auto inNetwork = [&](int c) { return networkOf_[size_t(c)] == n; };
    // Highest first; ties by stack, then by place in the stack, so the order is total.
    auto after = [&](int a, int b) {
        int64_t ma = getLocationMetric(point_[size_t(a)]), mb = getLocationMetric(point_[size_t(b)]);
        if (ma != mb) return ma > mb;
        if (stackOf_[size_t(a)] != stackOf_[size_t(b)]) return stackOf_[size_t(a)] > stackOf_[size_t(b)];
        return rank[size_t(a)] > rank[size_t(b)];
    };
    std::vector<int> ready, sequence;
    std::vector<char> stackStarted(net.stacks.size(), 0);
    std::vector<int64_t> stackLastY(net.stacks.size(), 0);
    for (int pass = 0; pass < 64; ++pass) {
        for (int c : members) {
            pending[size_t(c)] = 0;
            for (int a : mustBeBelow_[size_t(c)])
                if (inNetwork(a)) ++pending[size_t(c)];
        }
        ready.clear();
        for (int c : members)
            if (pending[size_t(c)] == 0) ready.push_back(c);
        std::make_heap(ready.begin(), ready.end(), after);
        sequence.clear();
        while (!ready.empty()) {
            std::pop_heap(ready.begin(), ready.end(), after);
            const int c = ready.back();
            ready.pop_back();
            sequence.push_back(c);
            for (int b : mustBeAbove_[size_t(c)])
                if (inNetwork(b) && --pending[size_t(b)] == 0) {
                    ready.push_back(b);
                    std::push_heap(ready.begin(), ready.end(), after);
                }
        }
        std::fill(stackStarted.begin(), stackStarted.end(), 0);
        bool moved = false;
        for (int c : sequence) {
            const size_t k = size_t(stackOf_[size_t(c)]);
            int64_t required = stackStarted[k] ? stackLastY[k] + rowHeight_ : INT64_MIN;
            for (int a : mustBeBelow_[size_t(c)])
                if (inNetwork(a) && size_t(stackOf_[size_t(a)]) != k)
                    required = std::max(required, int64_t(point_[size_t(a)].y) + minVerticalSeparation_);
            if (!fixed_[size_t(c)] && point_[size_t(c)].y < required) {
                const int dy = int(std::min<int64_t>(required - point_[size_t(c)].y, INT32_MAX / 4));
                if (t)
                    debug(t, u"CONSTRAINT: moving down %d components %ls", 1,
                          format(u"\"%ls\" by %d", displayName_[size_t(c)], dy));
                point_[size_t(c)].y += dy;
                moved = true;
            }
            stackStarted[k] = 1;
            stackLastY[k] = point_[size_t(c)].y;
        }
        if (!moved) break;
    }
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
    for (int c : members) MoveComponent(c, offset_[size_t(c)].x, offset_[size_t(c)].y);
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

// ---- drags ----------------------------------------------------------------------------------

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

// ---- networks relative to each other --------------------------------------------------------

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

// ---- sticky notes ---------------------------------------------------------------------------

void CProtocolLayoutUtils::MoveProtocolStickyNotesOnscreen() {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (int k : protocolNotes_) {
        StickyNote& note = notes_[size_t(k)];
        Extent& e = note.extent;
        bool moved = false;
        if (e.top < 0) {
            debug(t, u"TOP violated: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
            e.bottom -= e.top;
            e.top = 0;
            moved = true;
        }
        if (e.left < 0) {
            debug(t, u"LEFT violated: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
            e.right -= e.left;
            e.left = 0;
            moved = true;
        }
        if (moved) {
            note.changed = true;
            debug(t, u"NEW position: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
        }
    }
}

bool CProtocolLayoutUtils::NetworkAndRegionOverlap(int n, const Extent& region) const {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (int c : networks_[size_t(n)].members) {
        Extent ce = ComponentExtent(c);
        if (!boxesOverlap(ce, region)) continue;
        debug(t, u"OVERLAP network %d component \"%ls\" [TBLR %d %d %d %d] with region: TBLR %d %d %d %d", n,
              displayName_[size_t(c)], ce.top, ce.bottom, ce.left, ce.right, region.top, region.bottom, region.left,
              region.right);
        return true;
    }
    return false;
}

bool CProtocolLayoutUtils::NetworkAndStickyNoteOverlap(int n, const StickyNote& note) const {
    return NetworkAndRegionOverlap(n, note.extent);
}

void CProtocolLayoutUtils::AvoidProtocolStickyNotes(int n, Extent& extent) {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (size_t k = 0; k < protocolNotes_.size(); ++k) {
        if (NetworkAndStickyNoteOverlap(n, notes_[size_t(protocolNotes_[k])])) {
            debug(t, u"For network %d: OVERLAP with protocol sticky note %d", n, int(k));
            AvoidProtocolStickyNote(n, int(k), extent);
        } else {
            debug(t, u"For network %d: NO overlap with protocol sticky note %d", n, int(k));
        }
    }
}

void CProtocolLayoutUtils::AvoidProtocolStickyNote(int n, int noteIndex, Extent& extent) {
    // The smallest of the four moves that clears the note by a margin; on a tie the
    // network moves before the note, right before down.
    static DebugTarget t("LayoutProtocolStickyNotes");
    StickyNote& note = notes_[size_t(protocolNotes_[size_t(noteIndex)])];
    Extent& e = note.extent;
    const int netRight = e.right + margin_ - extent.left;
    const int netDown = e.bottom + margin_ - extent.top;
    const int noteRight = extent.right + margin_ - e.left;
    const int noteDown = extent.bottom + margin_ - e.top;
    int best = std::min({netRight, netDown, noteRight, noteDown});
    if (best == netRight) {
        debug(t, u"net %d moving right %d to avoid sticky note %d TBLR(%d %d %d %d)", n, netRight, noteIndex, e.top,
              e.bottom, e.left, e.right);
        MoveNetwork(n, netRight, 0);
        extent.left += netRight;
        extent.right += netRight;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER move RIGHT %d", n, noteIndex, netRight);
    } else if (best == netDown) {
        debug(t, u"net %d moving down %d to avoid sticky note %d TBLR(%d %d %d %d)", n, netDown, noteIndex, e.top,
              e.bottom, e.left, e.right);
        MoveNetwork(n, 0, netDown);
        extent.top += netDown;
        extent.bottom += netDown;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER move DOWN %d", n, noteIndex, netDown);
    } else if (best == noteRight) {
        debug(t, u"net %d moving STICKY NOTE right %d to avoid net: note %d TBLR(%d %d %d %d)", n, noteRight, noteIndex,
              e.top, e.bottom, e.left, e.right);
        e.left += noteRight;
        e.right += noteRight;
        note.changed = true;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER STICKY NOTE move RIGHT %d", n, noteIndex,
              noteRight);
    } else {
        debug(t, u"net %d moving STICKY NOTE down %d to avoid net: note %d TBLR(%d %d %d %d)", n, noteDown, noteIndex,
              e.top, e.bottom, e.left, e.right);
        e.top += noteDown;
        e.bottom += noteDown;
        note.changed = true;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER STICKY NOTE move DOWN %d", n, noteIndex,
              noteDown);
    }
}

void CProtocolLayoutUtils::SaveComponentStickyNotes(BitsetValue& changed) {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (size_t c = 0; c < components_.size(); ++c) {
        const auto& list = componentNotes_[c];
        if (list.empty()) continue;
        bool anyChanged = !(point_[c] == storedPoint_[c]);
        for (int k : list) anyChanged = anyChanged || notes_[size_t(k)].changed;
        if (!anyChanged) continue;
        std::vector<WString> items{WString(u"%VERSION 3%")};
        for (int k : list) {
            StickyNote& note = notes_[size_t(k)];
            note.geometry = StickyNoteGeometry(note.extent, point_[c]);
            debug(t, u"LTWH %d %d %d %d", note.extent.left + point_[c].x, -note.extent.top - point_[c].y,
                  note.extent.right - note.extent.left, note.extent.bottom - note.extent.top);
            items.push_back(note.geometry);
            items.push_back(note.text2);
            items.push_back(note.text3);
        }
        components_[c]->setTextArrayAttribute(NVK_ComponentStickyNotes, items);
        changed.set(c);
    }
}

void CProtocolLayoutUtils::SaveProtocolStickyNotes() {
    static DebugTarget t("LayoutProtocolStickyNotes");
    if (!ProtocolStickyNotesChanged()) {
        debug(t, u"Protocol Sticky Notes unchanged");
        return;
    }
    std::vector<WString> items{WString(u"%VERSION 3%")};
    for (int k : protocolNotes_) {
        StickyNote& note = notes_[size_t(k)];
        note.geometry = StickyNoteGeometry(note.extent, {0, 0});
        debug(t, u"LTWH %d %d %d %d", note.extent.left, -note.extent.top, note.extent.right - note.extent.left,
              note.extent.bottom - note.extent.top);
        items.push_back(note.geometry);
        items.push_back(note.text2);
        items.push_back(note.text3);
    }
    protocol_->setTextArrayAttribute(NVK_ProtocolStickyNotes, items);
}

void CProtocolLayoutUtils::SaveCoordinates(BitsetValue& written) {
    InitBitset(written, components_.size(), false);
    for (size_t c = 0; c < components_.size(); ++c) {
        if (!(point_[c] == storedPoint_[c])) {
            SetComponentPoint(components_[c], point_[c]);
            written.set(c);
        }
        if (!(finalOffset_[c] == offset_[c])) {
            SetComponentOffset(components_[c], finalOffset_[c]);
            written.set(c);
        }
    }
    // A drag is consumed by the layout that saw it; the mark of where it ended stays.
    for (int c : dragged_) {
        RemoveComponentMovedFrom(components_[size_t(c)]);
        SetComponentMovedTo(components_[size_t(c)], movedTo_[size_t(c)]);
        written.set(size_t(c));
    }
}

// ---- moving and placing ---------------------------------------------------------------------

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
        Point existing;
        if (autoLayout && !GetComponentMovedFrom(comp, existing)) {
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

void CProtocolLayoutUtils::PositionNewComponent(iProtocolInfo* protocol, iComponentInfo* component) {
    static DebugTarget t("PositionNewComponent");
    if (!protocol || !component) throw Exception(kClass, "PositionNewComponent", u"Cannot dereference a NULL pointer");
    LoadProtocolComponents(protocol);
    int c = GetComponentIndex(component);
    if (c < 0)
        throw Exception(kClass, "PositionNewComponent", u"Component \"%ls\" is not in protocol %ls",
                        GetComponentDisplayName(component), protocol->getName());
    std::vector<int> up, down;
    for (int u : adjacency_[AdjInput][size_t(c)])
        if (u != c) up.push_back(u);
    for (int d : adjacency_[AdjPassOrFail][size_t(c)])
        if (d != c) down.push_back(d);
    int64_t upX = 0, upY = 0, offX = 0, offY = 0;
    for (int u : up) {
        Point p = GetComponentPointWithoutOffset(components_[size_t(u)]), o = GetComponentOffset(components_[size_t(u)]);
        upX += p.x;
        upY += p.y;
        offX += o.x;
        offY += o.y;
    }
    const int upCount = int(up.size());
    Point avgOff{upCount ? int32_t(offX / upCount) : 0, upCount ? int32_t(offY / upCount) : 0};
    debug(t, u"PNC: upXSum, upYSum, upcount: %d %d %d avgUpOff %d %d", int(upX), int(upY), upCount, avgOff.x, avgOff.y);
    Point result;
    if (up.empty() && !down.empty()) {
        int64_t dx = 0, dy = 0;
        for (int d : down) {
            Point p = GetComponentPointWithoutOffset(components_[size_t(d)]);
            dx += p.x;
            dy += p.y;
        }
        result = {int32_t(dx / int64_t(down.size())) - columnWidth_, int32_t(dy / int64_t(down.size()))};
    } else if (!up.empty() && down.empty()) {
        // After its upstream, below the siblings that run before it.
        int first = up.front();
        const auto& siblings = adjacency_[AdjPassOrFail][size_t(first)];
        int before = int(std::find(siblings.begin(), siblings.end(), c) - siblings.begin());
        result = {int32_t(upX / upCount) + columnWidth_, int32_t(upY / upCount) + before * rowHeight_};
    } else if (!up.empty() && !down.empty()) {
        // Inserted into a pipe: after its upstream, at their height.
        result = {int32_t(upX / upCount) + columnWidth_, int32_t(upY / upCount)};
    } else {
        throw Exception(kClass, "PositionNewComponent", u"Unexpected pipe configuration - please contact Orvenda Support");
    }
    Point stored{result.x + avgOff.x, result.y + avgOff.y};
    debug(t, u"PNC: setting point %ls", format(u"%d %d", stored.x, stored.y));
    SetComponentPoint(component, stored);
    debug(t, u"PNC: setting offset %ls", format(u"%d %d", avgOff.x, avgOff.y));
    SetComponentOffset(component, avgOff);
}

}  // namespace nvk
