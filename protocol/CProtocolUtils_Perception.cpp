// Loading a protocol and perceiving it: components and points, adjacency and the order
// constraints it implies, start nodes, chains and rings, assemblies and their relative
// positions, and distances from the start (through the distance walk).
#include "nvk/protocol/CProtocolUtils.h"

#include <algorithm>
#include <deque>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"
#include "nvk/protocol/DistanceWalk.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;

namespace {

void insertSorted(std::vector<int>& list, int value) {
    auto it = std::lower_bound(list.begin(), list.end(), value);
    if (it == list.end() || *it != value) list.insert(it, value);
}

}  // namespace

CProtocolUtils::CProtocolUtils() = default;
CProtocolUtils::~CProtocolUtils() = default;

// ---- loading --------------------------------------------------------------------------------

void CProtocolUtils::ClearProtocolState() {
    components_.clear();
    localID_.clear();
    displayName_.clear();
    ports_.clear();
    point_.clear();
    initialPoint_.clear();
    offset_.clear();
    storedPoint_.clear();
    componentNotes_.clear();
    mustBeAbove_.clear();
    mustBeBelow_.clear();
    for (auto& a : adjacency_) a.clear();
    connectionsOf_.clear();
    connFrom_.clear();
    connTo_.clear();
    connPort_.clear();
    localIDMap_.clear();
    startNodes_.clear();
    numStartNodes_ = 0;
    chainComponents_ = BitsetValue();
    ringComponents_ = BitsetValue();
    unconnected_ = BitsetValue();
    chainConnections_ = BitsetValue();
    ringConnections_ = BitsetValue();
    chainChainConnections_ = BitsetValue();
    chainRingConnections_ = BitsetValue();
    assemblies_.clear();
    distance_.clear();
    walkInitialX_.clear();
    walkOutgoing_.clear();
    levels_.clear();
    loopConnections_ = BitsetValue();
    hasLoops_ = false;
    notes_.clear();
    protocolNotes_.clear();
}

void CProtocolUtils::LoadProtocolComponents(iProtocolInfo* protocol) {
    static DebugTarget t("LoadProtocolComponents");
    if (!protocol) throw Exception(kClass, "LoadProtocolComponents", u"Cannot dereference a NULL pointer");
    ClearProtocolState();
    protocol_.reset(protocol);
    RemoveComponentOffsetsFromComponentPoints();
    PerceiveComponentsAndPoints();
    PerceiveAdjacency();
    PerceiveStartNodes();
    PerceiveRings();
    PerceiveAssemblies();
    PerceiveDistanceFromStartNode();
    PerceiveProtocolStickyNotes();
    debug(t, u"Loaded \"%ls\": %d components, %d connections, %d start nodes", protocol_->getName(),
          GetNumComponents(), GetNumConnections(), numStartNodes_);
}

void CProtocolUtils::LoadProtocolGraph(iProtocolInfo* protocol) {
    if (!protocol) throw Exception(kClass, "LoadProtocolGraph", u"Cannot dereference a NULL pointer");
    ClearProtocolState();
    protocol_.reset(protocol);
    RemoveComponentOffsetsFromComponentPoints();
    PerceiveComponentsAndPoints();
    PerceiveAdjacency();
}

void CProtocolUtils::RemoveComponentOffsetsFromComponentPoints() {
    // Perception works on the laid-out places; the offsets go back on when layout saves.
    static DebugTarget t("RemoveComponentOffsets");
    const int n = protocol_->getNumComponents();
    storedPoint_.assign(size_t(n), {});
    point_.assign(size_t(n), {});
    for (int i = 0; i < n; ++i) {
        iComponentInfo* c = protocol_->getComponent(i);
        if (!c) throw Exception(kClass, "RemoveComponentOffsetsFromComponentPoints", u"Cannot dereference a NULL pointer");
        Point p = GetComponentPoint(c), o = GetComponentOffset(c);
        storedPoint_[size_t(i)] = p;
        point_[size_t(i)] = {p.x - o.x, p.y - o.y};
        if (HasComponentOffset(c))
            debug(t, u"%ls orig XY %d %d offset %d %d new XY %d %d", GetComponentDisplayName(c), p.x, p.y, o.x, o.y,
                  p.x - o.x, p.y - o.y);
    }
}

void CProtocolUtils::PerceiveComponentsAndPoints() {
    const int n = protocol_->getNumComponents();
    components_.reserve(size_t(n));
    localIDMap_.reserve(size_t(n) * 2);
    for (int i = 0; i < n; ++i) {
        iComponentInfo* c = protocol_->getComponent(i);
        if (!c) throw Exception(kClass, "PerceiveComponentsAndPoints", u"Cannot dereference a NULL pointer");
        components_.push_back(c);
        int32_t id = GetComponentLocalID(c);
        localID_.push_back(id);
        localIDMap_.emplace(id, i);
        displayName_.push_back(GetComponentDisplayName(c));
        ports_.push_back(GetComponentPorts(c));
        initialPoint_.push_back(point_[size_t(i)]);
        offset_.push_back(GetComponentOffset(c));
        componentNotes_.emplace_back();
    }
    mustBeAbove_.assign(size_t(n), {});
    mustBeBelow_.assign(size_t(n), {});
    for (auto& a : adjacency_) a.assign(size_t(n), {});
    connectionsOf_.assign(size_t(n), {});
    for (int i = 0; i < n; ++i) GetStickyNotes(components_[size_t(i)], i);
}

void CProtocolUtils::AddMustBeAbove(int earlier, int later) {
    insertSorted(mustBeAbove_[size_t(earlier)], later);
    insertSorted(mustBeBelow_[size_t(later)], earlier);
}

void CProtocolUtils::PerceiveAdjacency() {
    static DebugTarget t("PerceiveAdjacency");
    static DebugTarget tAbove("LayoutMustBeAbove");
    const int m = protocol_->getNumConnections();
    debug(t, u"Num connections %d", m);
    connFrom_.reserve(size_t(m));
    connTo_.reserve(size_t(m));
    connPort_.reserve(size_t(m));
    for (int k = 0; k < m; ++k) {
        ConnectionInfo info = protocol_->getConnection(k);
        auto from = localIDMap_.find(info.fromLocalID);
        if (from == localIDMap_.end())
            throw Exception(kClass, "PerceiveAdjacency", u"Did not find FROM local ID in protocol %ls: %d\n",
                            protocol_->getName(), info.fromLocalID);
        auto to = localIDMap_.find(info.toLocalID);
        if (to == localIDMap_.end()) {
            WString ids = WString::empty();
            for (size_t i = 0; i < localID_.size(); ++i) {
                if (i) ids += u' ';
                ids += format(u"%d", localID_[i]).view();
            }
            throw Exception(kClass, "PerceiveAdjacency", u"Did not find TO local ID in protocol %ls: %d (IDs: %ls)\n",
                            protocol_->getName(), info.toLocalID, ids);
        }
        int f = from->second, d = to->second;
        connFrom_.push_back(f);
        connTo_.push_back(d);
        connPort_.push_back(info.port == PortFail ? PortFail : PortPass);
        auto& adj = adjacency_;
        adj[AdjAll][size_t(f)].push_back(d);
        adj[AdjAll][size_t(d)].push_back(f);
        adj[AdjPassOrFail][size_t(f)].push_back(d);
        adj[AdjInput][size_t(d)].push_back(f);
        if (info.port == PortFail) {
            adj[AdjFail][size_t(f)].push_back(d);
            adj[AdjInputFromFail][size_t(d)].push_back(f);
        } else {
            adj[AdjPass][size_t(f)].push_back(d);
            adj[AdjInputFromPass][size_t(d)].push_back(f);
        }
        connectionsOf_[size_t(f)].push_back(k);
        if (d != f) connectionsOf_[size_t(d)].push_back(k);
    }
    // Sorted once at the end: kept sorted on every insertion, a component with thousands of
    // connections cost the square of that.
    for (auto& kind : adjacency_)
        for (auto& list : kind) {
            std::sort(list.begin(), list.end());
            list.erase(std::unique(list.begin(), list.end()), list.end());
        }
    // Siblings fed by one component run in protocol order, so each must lie above the next.
    for (int c = 0; c < GetNumComponents(); ++c) {
        const auto& down = adjacency_[AdjPassOrFail][size_t(c)];
        for (size_t k = 1; k < down.size(); ++k) {
            debug(tAbove, u"ADJ: \"%ls\" must be above \"%ls\"", displayName_[size_t(down[k - 1])],
                  displayName_[size_t(down[k])]);
            AddMustBeAbove(down[k - 1], down[k]);
        }
    }
}

void CProtocolUtils::PerceiveStartNodes() {
    static DebugTarget t("PerceiveStartNodes");
    for (int c = 0; c < GetNumComponents(); ++c)
        if (adjacency_[AdjInput][size_t(c)].empty()) startNodes_.push_back(c);
    for (size_t k = 1; k < startNodes_.size(); ++k) {
        debug(t, u"SN: \"%ls\" must be above \"%ls\"", displayName_[size_t(startNodes_[k - 1])],
              displayName_[size_t(startNodes_[k])]);
        AddMustBeAbove(startNodes_[k - 1], startNodes_[k]);
    }
    numStartNodes_ = int(startNodes_.size());
}

void CProtocolUtils::PerceiveRings() {
    static DebugTarget t("PerceiveRings");
    const size_t n = components_.size(), m = connFrom_.size();
    unconnected_ = BitsetValue(n);
    chainComponents_ = BitsetValue(n);
    chainConnections_ = BitsetValue(m);
    std::vector<int> candidates;
    for (size_t c = 0; c < n; ++c) {
        if (adjacency_[AdjAll][c].empty()) unconnected_.set(c);
        else candidates.push_back(int(c));
    }
    // A component with at most one neighbour left outside the chain set hangs off the
    // rest like a chain link; peeling those until nothing changes leaves the rings. Peeling
    // never makes another component unpeelable, so the result does not depend on the order,
    // and each connection with an end in the chain set is marked when its first end peels
    // (the other is then the only neighbour left). Only the neighbours of a peeled
    // component can become peelable, so only they are looked at again.
    std::vector<int> outside(n, 0);  // neighbours not yet in the chain set
    std::vector<char> queued(n, 0);
    std::deque<int> work;
    for (int c : candidates) {
        outside[size_t(c)] = int(adjacency_[AdjAll][size_t(c)].size());
        queued[size_t(c)] = 1;
        work.push_back(c);
    }
    std::vector<int> forward, backward;
    while (!work.empty()) {
        int c = work.front();
        work.pop_front();
        queued[size_t(c)] = 0;
        if (chainComponents_.test(size_t(c)) || outside[size_t(c)] > 1) continue;
        bool peel = outside[size_t(c)] == 0;
        if (!peel) {
            int neighbour = -1;
            for (int a : adjacency_[AdjAll][size_t(c)])
                if (!chainComponents_.test(size_t(a))) neighbour = a;
            // Both ways from c's own list: the neighbour may be a hub of thousands.
            forward.clear();
            backward.clear();
            for (int k : connectionsOf_[size_t(c)]) {
                if (connFrom_[size_t(k)] == c && connTo_[size_t(k)] == neighbour) forward.push_back(k);
                if (connFrom_[size_t(k)] == neighbour && connTo_[size_t(k)] == c) backward.push_back(k);
            }
            peel = forward.empty() || backward.empty();
            if (peel) {
                for (int k : forward) chainConnections_.set(size_t(k));
                for (int k : backward) chainConnections_.set(size_t(k));
            }
        }
        if (!peel) continue;
        chainComponents_.set(size_t(c));
        debug(t, u"Chain component \"%ls\"", displayName_[size_t(c)]);
        for (int a : adjacency_[AdjAll][size_t(c)]) {
            --outside[size_t(a)];
            if (!chainComponents_.test(size_t(a)) && !queued[size_t(a)] && outside[size_t(a)] <= 1) {
                queued[size_t(a)] = 1;
                work.push_back(a);
            }
        }
    }
    // Ring components are all that did not join the chain set, the unconnected ones too:
    // they were set aside before the peeling and never joined it. No ring connection or
    // assembly reaches them, so only the set itself shows them.
    ringComponents_ = BitsetValue(n);
    ringComponents_.setAll();
    ringComponents_ -= chainComponents_;
    ringConnections_ = BitsetValue(m);
    chainRingConnections_ = BitsetValue(m);
    for (size_t k = 0; k < m; ++k) {
        if (!chainConnections_.test(k)) ringConnections_.set(k);
        bool fromChain = chainComponents_.test(size_t(connFrom_[k])), toChain = chainComponents_.test(size_t(connTo_[k]));
        bool fromRing = ringComponents_.test(size_t(connFrom_[k])), toRing = ringComponents_.test(size_t(connTo_[k]));
        if ((fromChain && toRing) || (fromRing && toChain)) chainRingConnections_.set(k);
    }
    chainChainConnections_ = chainConnections_ - chainRingConnections_;
    if (t) {
        DebugComponentSet(t, u"Ring", ringComponents_);
        DebugConnectionSet(t, u"Ring", ringConnections_);
    }
}

void CProtocolUtils::PerceiveAssemblies() {
    static DebugTarget t("PerceiveAssemblies");
    const size_t n = components_.size(), m = connFrom_.size();
    // There can be one assembly per component, so its sets start empty and grow as members
    // are set: they keep the words around their members only, not the protocol's size.
    assemblies_.clear();
    auto newAssembly = [&](bool isChain) -> Assembly& {
        Assembly& a = assemblies_.emplace_back();
        a.index = int(assemblies_.size()) - 1;
        a.isChain = isChain;
        return a;
    };
    unconnected_.forEachSetBit([&](size_t c) {
        debug(t, u"Creating assembly from unconnected component: \"%ls\"", displayName_[c]);
        newAssembly(false).components.set(c);
    });
    BitsetValue handled(m);
    chainRingConnections_.forEachSetBit([&](size_t k) {
        if (handled.test(k)) return;
        int end = chainComponents_.test(size_t(connFrom_[k])) ? connFrom_[k] : connTo_[k];
        if (adjacency_[AdjAll][size_t(end)].size() == 1) {
            debug(t, u"Creating assembly from single component connected to ring: \"%ls\"", displayName_[size_t(end)]);
            Assembly& a = newAssembly(true);
            a.components.set(size_t(end));
            a.connections.set(k);
        }
        // The connection and its partner between the same two components count as one.
        handled.set(k);
        for (Port p : {PortPass, PortFail}) {
            int other = FindConnection(connTo_[k], connFrom_[k], p);
            if (other >= 0) handled.set(size_t(other));
            other = FindConnection(connFrom_[k], connTo_[k], p);
            if (other >= 0) handled.set(size_t(other));
        }
    });
    // A component's connections of the kind being grouped are all taken into its assembly
    // the first time it is reached, so its list need not be read again in that grouping.
    std::vector<int> scanned(n, 0);
    int grouping = 0;
    auto group = [&](BitsetValue remaining, bool isChain) {
        ++grouping;
        // Bits are only ever cleared, so the next lowest one is never before the last.
        for (size_t first = remaining.firstSetBit(); first != BitsetValue::npos; first = remaining.nextSetBit(first)) {
            if (isChain) debug(t, u"Creating CHAIN assembly");
            else debug(t, u"Creating RING assembly");
            Assembly& a = newAssembly(isChain);
            std::deque<size_t> queue{first};
            remaining.clear(first);
            while (!queue.empty()) {
                size_t k = queue.front();
                queue.pop_front();
                a.connections.set(k);
                a.components.set(size_t(connFrom_[k]));
                a.components.set(size_t(connTo_[k]));
                for (int end : {connFrom_[k], connTo_[k]}) {
                    if (scanned[size_t(end)] == grouping) continue;
                    scanned[size_t(end)] = grouping;
                    for (int other : connectionsOf_[size_t(end)])
                        if (remaining.test(size_t(other))) {
                            remaining.clear(size_t(other));
                            queue.push_back(size_t(other));
                        }
                }
            }
        }
    };
    group(chainChainConnections_, true);
    group(ringConnections_, false);
    for (Assembly& a : assemblies_) {
        a.components.forEachSetBit([&](size_t c) {
            for (int k : connectionsOf_[c])
                if (chainRingConnections_.test(size_t(k))) a.chainRingConnections.set(size_t(k));
        });
        AssignRelativePosition(a);
    }
}

int CProtocolUtils::FindLowestInAssemblyGroup(const Assembly& a) const {
    // The first member in execution order among those fed from outside the assembly; for a
    // closed ring, the first member in execution order.
    int best = -1, bestFed = -1;
    a.components.forEachSetBit([&](size_t c) {
        bool fedInside = false;
        for (int u : adjacency_[AdjInput][c])
            if (a.components.test(size_t(u))) fedInside = true;
        if (!fedInside && (bestFed < 0 || getLocationMetric(point_[c]) < getLocationMetric(point_[size_t(bestFed)])))
            bestFed = int(c);
        if (best < 0 || getLocationMetric(point_[c]) < getLocationMetric(point_[size_t(best)])) best = int(c);
    });
    return bestFed >= 0 ? bestFed : best;
}

void CProtocolUtils::SetComponentRelativePosition(Assembly& a, int component, Point rel) {
    for (auto& [c, p] : a.relativePositions)
        if (c == component) {
            p = rel;
            return;
        }
    a.relativePositions.emplace_back(component, rel);
}

void CProtocolUtils::AssignRelativePosition(Assembly& a) {
    // Columns follow the connections (one to the right per step downstream, one to the
    // left per step upstream) from the lowest member; rows count members per column in
    // the order they were reached.
    a.relativePositions.clear();
    int lowest = FindLowestInAssemblyGroup(a);
    if (lowest < 0) return;
    std::unordered_map<int, int> rowsInColumn;
    std::unordered_map<int, int> column;
    std::deque<int> queue{lowest};
    column[lowest] = 0;
    while (!queue.empty()) {
        int c = queue.front();
        queue.pop_front();
        int col = column[c];
        a.relativePositions.emplace_back(c, Point{col, rowsInColumn[col]++});
        for (int d : adjacency_[AdjPassOrFail][size_t(c)])
            if (a.components.test(size_t(d)) && !column.count(d)) {
                column[d] = col + 1;
                queue.push_back(d);
            }
        for (int u : adjacency_[AdjInput][size_t(c)])
            if (a.components.test(size_t(u)) && !column.count(u)) {
                column[u] = col - 1;
                queue.push_back(u);
            }
    }
    SetUndefinedRelativePositions(a);
    RepositionAssemblyGroup(a);
}

void CProtocolUtils::SetUndefinedRelativePositions(Assembly& a) {
    // Members the walk did not reach (an assembly is connected, so only when its set was
    // edited by hand) go below everything in column 0.
    int row = 0;
    std::vector<char>& placed = placedScratch_;  // all 0 between calls: assemblies can be many
    placed.resize(components_.size(), 0);
    for (const auto& [c, p] : a.relativePositions) {
        if (p.x == 0) row = std::max(row, p.y + 1);
        if (c >= 0 && size_t(c) < placed.size()) placed[size_t(c)] = 1;
    }
    a.components.forEachSetBit([&](size_t c) {
        if (c < placed.size() && !placed[c]) SetComponentRelativePosition(a, int(c), {0, row++});
    });
    for (const auto& rp : a.relativePositions)
        if (rp.first >= 0 && size_t(rp.first) < placed.size()) placed[size_t(rp.first)] = 0;
}

void CProtocolUtils::RepositionAssemblyGroup(Assembly& a) {
    int minColumn = 0;
    for (const auto& rp : a.relativePositions) minColumn = std::min(minColumn, rp.second.x);
    for (auto& rp : a.relativePositions) rp.second.x -= minColumn;
    std::sort(a.relativePositions.begin(), a.relativePositions.end(),
              [](const auto& x, const auto& y) { return x.first < y.first; });
}

void CProtocolUtils::PerceiveDistanceFromStartNode() {
    static DebugTarget t("PerceiveDistanceFromStartNode");
    const size_t n = components_.size();
    distance_.assign(n, -1);
    debug(t, u"Num start nodes %d num comps %d", numStartNodes_, int(n));
    BitsetValue all(n);
    all.setAll();
    PerceiveDistanceFromStartNodeForSet(all, wantFurthest_, distance_);
    int maxDistance = -1;
    for (int d : distance_) maxDistance = std::max(maxDistance, d);
    levels_.assign(size_t(maxDistance + 1), {});
    for (size_t c = 0; c < n; ++c) {
        if (distance_[c] < 0) continue;
        debug(t, u"Component \"%ls\" at distance %d", displayName_[c], distance_[c]);
        levels_[size_t(distance_[c])].push_back(int(c));
    }
}

void CProtocolUtils::PerceiveDistanceFromStartNodeForSet(const BitsetValue& set, bool wantFurthest,
                                                         std::vector<int>& distances) {
    // Built once per protocol: layout walks each network's unplaced members separately.
    if (walkInitialX_.size() != components_.size()) {
        walkInitialX_.resize(components_.size());
        walkOutgoing_.assign(components_.size(), {});
        for (size_t c = 0; c < components_.size(); ++c) walkInitialX_[c] = initialPoint_[c].x;
        for (size_t k = 0; k < connFrom_.size(); ++k) walkOutgoing_[size_t(connFrom_[k])].emplace_back(connTo_[k], int(k));
    }
    DistanceWalkGraph g;
    g.downstream = &adjacency_[AdjPassOrFail];
    g.upstream = &adjacency_[AdjInput];
    g.initialX = &walkInitialX_;
    g.outgoing = &walkOutgoing_;
    if (loopConnections_.size() < connFrom_.size()) loopConnections_.resize(connFrom_.size());
    FastDistanceWalk(g, set, wantFurthest, distances, loopConnections_, hasLoops_);
}

}  // namespace nvk
