// Networks: the connected parts of the protocol, laid out as units; their extents and
// overlaps, and the chains that move with a component.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>
#include <climits>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::boxesOverlap;
using layout_utils_internal::kClass;

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

}  // namespace nvk
