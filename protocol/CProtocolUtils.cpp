#include "nvk/protocol/CProtocolUtils.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/DistanceWalk.h"

using namespace tovan;

namespace nvk {
namespace {

const char* const kClass = "CProtocolUtils";

void insertSorted(std::vector<int>& list, int value) {
    auto it = std::lower_bound(list.begin(), list.end(), value);
    if (it == list.end() || *it != value) list.insert(it, value);
}

BitsetValue listToSet(const std::vector<int>& list, size_t size) {
    BitsetValue set(size);
    for (int i : list) set.set(size_t(i));
    return set;
}

/// Parses "a b w h": four integers separated by single spaces.
bool parseGeometry(const WString& text, int32_t out[4]) {
    std::u16string_view s = text.view();
    size_t pos = 0;
    for (int k = 0; k < 4; ++k) {
        if (k > 0) {
            if (pos >= s.size() || s[pos] != u' ') return false;
            ++pos;
        }
        bool negative = false;
        if (pos < s.size() && s[pos] == u'-') {
            negative = true;
            ++pos;
        }
        size_t start = pos;
        int64_t v = 0;
        while (pos < s.size() && s[pos] >= u'0' && s[pos] <= u'9') {
            v = v * 10 + (s[pos] - u'0');
            if (v > int64_t(INT32_MAX) + 1) return false;
            ++pos;
        }
        if (pos == start) return false;
        v = negative ? -v : v;
        if (v > INT32_MAX || v < INT32_MIN) return false;
        out[k] = int32_t(v);
    }
    return pos == s.size();
}

std::vector<WString> readNoteArray(const iAttributeHolder* owner, const wchar* key) {
    std::vector<WString> items;
    if (owner) owner->getTextArrayAttribute(key, items);
    return items;
}

const wchar* noteKey(const iAttributeHolder* owner) {
    return dynamic_cast<const iComponentInfo*>(owner) ? NVK_ComponentStickyNotes : NVK_ProtocolStickyNotes;
}

int noteCount(const std::vector<WString>& items) {
    if (items.empty() || (items.size() == 1 && items[0].isEmpty())) return 0;
    return int((items.size() - 1) / 3);
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
    protocol_ = protocol;
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
    std::erase_if(candidates, [&](int c) { return chainComponents_.test(size_t(c)); });
    ringComponents_ = BitsetValue(n);
    for (int c : candidates) ringComponents_.set(size_t(c));
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
    DistanceWalk(g, set, wantFurthest, distances, loopConnections_, hasLoops_);
}

void CProtocolUtils::PerceiveProtocolStickyNotes() { GetStickyNotes(protocol_.get(), -1); }

void CProtocolUtils::GetStickyNotes(const iAttributeHolder* owner, int ownerIndex) {
    std::vector<int>& list = ownerIndex < 0 ? protocolNotes_ : componentNotes_[size_t(ownerIndex)];
    list.clear();
    std::vector<WString> items = readNoteArray(owner, ownerIndex < 0 ? NVK_ProtocolStickyNotes : NVK_ComponentStickyNotes);
    if (noteCount(items) == 0 && (items.empty() || (items.size() == 1 && items[0].isEmpty()))) return;
    if (!(items[0] == u"%VERSION 3%"))
        throw Exception(kClass, "GetStickyNotes", u"Cannot handle older-version sticky notes yet :(");
    Point owner0 = ownerIndex < 0 ? Point{} : storedPoint_[size_t(ownerIndex)];
    for (int i = 0; i < noteCount(items); ++i) {
        StickyNote note;
        note.geometry = items[size_t(1 + 3 * i)];
        note.text2 = items[size_t(2 + 3 * i)];
        note.text3 = items[size_t(3 + 3 * i)];
        int32_t g[4];
        if (!parseGeometry(note.geometry, g))
            throw Exception(kClass, "GetStickyNotes", u"Sticky note %d has unreadable geometry \"%ls\"", i,
                            note.geometry);
        // The stored vertical term is negated and carries the owner's Y, the horizontal one
        // is relative to the owner's X: the stored format's asymmetry, kept exactly.
        note.extent.top = -(owner0.y + g[1]);
        note.extent.bottom = note.extent.top + g[3];
        note.extent.left = g[0] - owner0.x;
        note.extent.right = note.extent.left + g[2];
        note.owner = ownerIndex;
        note.isProtocolNote = ownerIndex < 0;
        note.changed = false;
        notes_.push_back(std::move(note));
        list.push_back(int(notes_.size()) - 1);
    }
}

WString CProtocolUtils::StickyNoteGeometry(const Extent& e, Point ownerPoint) {
    return format(u"%d %d %d %d", e.left + ownerPoint.x, -e.top - ownerPoint.y, e.right - e.left, e.bottom - e.top);
}

// ---- access ---------------------------------------------------------------------------------

void CProtocolUtils::CheckIndex(int index, const char* operation) const {
    if (index < 0 || index >= GetNumComponents())
        throw InvalidIndexException(kClass, operation, index, GetNumComponents() - 1);
}

iComponentInfo* CProtocolUtils::GetComponent(int index) const {
    CheckIndex(index, "GetComponent");
    return components_[size_t(index)];
}

iComponentInfo* CProtocolUtils::GetComponent(const WString& name) const { return GetComponentByDisplayName(name); }

WString CProtocolUtils::GetDisplayName(int index) const {
    CheckIndex(index, "GetDisplayName");
    return displayName_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetPoint(int index) const {
    CheckIndex(index, "GetPoint");
    return point_[size_t(index)];
}

void CProtocolUtils::SetPoint(int index, Point p) {
    CheckIndex(index, "SetPoint");
    point_[size_t(index)] = p;
}

CProtocolUtils::Point CProtocolUtils::GetStoredPoint(int index) const {
    CheckIndex(index, "GetStoredPoint");
    return storedPoint_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetInitialPoint(int index) const {
    CheckIndex(index, "GetInitialPoint");
    return initialPoint_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetOffset(int index) const {
    CheckIndex(index, "GetOffset");
    return offset_[size_t(index)];
}

int32_t CProtocolUtils::GetLocalID(int index) const {
    CheckIndex(index, "GetLocalID");
    return localID_[size_t(index)];
}

unsigned CProtocolUtils::GetPorts(int index) const {
    CheckIndex(index, "GetPorts");
    return ports_[size_t(index)];
}

int CProtocolUtils::GetComponentIndex(const WString& name) const { return GetComponentIndexByDisplayName(name); }

int CProtocolUtils::GetComponentIndex(const iComponentInfo* component) const {
    if (!component) throw Exception(kClass, "GetComponentIndex", u"Cannot dereference a NULL pointer");
    for (size_t i = 0; i < components_.size(); ++i)
        if (components_[i] == component) return int(i);
    return -1;
}

int CProtocolUtils::GetComponentIndexByLocalID(int32_t localID) const {
    auto it = localIDMap_.find(localID);
    return it == localIDMap_.end() ? -1 : it->second;
}

int CProtocolUtils::GetComponentIndexByDisplayName(const WString& name) const {
    for (size_t i = 0; i < displayName_.size(); ++i)
        if (displayName_[i] == name) return int(i);
    return -1;
}

iComponentInfo* CProtocolUtils::GetComponentByDisplayName(const WString& name) const {
    int i = GetComponentIndexByDisplayName(name);
    return i < 0 ? nullptr : components_[size_t(i)];
}

iComponentInfo* CProtocolUtils::GetComponentByLocalID(int32_t localID) const {
    int i = GetComponentIndexByLocalID(localID);
    return i < 0 ? nullptr : components_[size_t(i)];
}

int CProtocolUtils::GetIndexFromLocalID(int32_t localID) const {
    int i = GetComponentIndexByLocalID(localID);
    if (i < 0) throw Exception(kClass, "GetIndexFromLocalID", u"Did not find localID %d", localID);
    return i;
}

const std::vector<int>& CProtocolUtils::GetAdjacentList(int index, int kind) const {
    if (kind < 0 || kind >= NumAdjacencyKinds) throw Exception(kClass, "GetAdjacent", u"Unrecognized adjacent flag");
    CheckIndex(index, "GetAdjacent");
    return adjacency_[kind][size_t(index)];
}

BitsetValue CProtocolUtils::GetAdjacent(int index, int kind) const {
    return listToSet(GetAdjacentList(index, kind), components_.size());
}

const wchar* CProtocolUtils::GetAdjacencyName(int kind) {
    switch (kind) {
        case AdjAll: return u"All";
        case AdjInput: return u"Input";
        case AdjPassOrFail: return u"Pass or Fail";
        case AdjInputFromPass: return u"Input from Pass";
        case AdjInputFromFail: return u"Input from Fail";
        case AdjPass: return u"Pass";
        case AdjFail: return u"Fail";
        default: return u"???";
    }
}

bool CProtocolUtils::IsStartNode(int index) const {
    CheckIndex(index, "IsStartNode");
    return adjacency_[AdjInput][size_t(index)].empty();
}

int CProtocolUtils::GetConnectionFrom(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionFrom", c, GetNumConnections() - 1);
    return connFrom_[size_t(c)];
}

int CProtocolUtils::GetConnectionTo(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionTo", c, GetNumConnections() - 1);
    return connTo_[size_t(c)];
}

Port CProtocolUtils::GetConnectionPort(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionPort", c, GetNumConnections() - 1);
    return connPort_[size_t(c)];
}

int64_t CProtocolUtils::GetConnectionKey(int from, int to, Port port) {
    return (int64_t(uint32_t(from)) << 35) | (int64_t(uint32_t(to)) << 3) | int64_t(port & 7);
}

BitsetValue CProtocolUtils::GetConnectionsOf(int index) const {
    return listToSet(GetConnectionListOf(index), connFrom_.size());
}

const std::vector<int>& CProtocolUtils::GetConnectionListOf(int index) const {
    CheckIndex(index, "GetConnectionsOf");
    return connectionsOf_[size_t(index)];
}

int CProtocolUtils::GetDistance(int index) const {
    CheckIndex(index, "GetDistance");
    return distance_[size_t(index)];
}

BitsetValue CProtocolUtils::GetMustBeAbove(int index) const {
    return listToSet(GetMustBeAboveList(index), components_.size());
}
BitsetValue CProtocolUtils::GetMustBeBelow(int index) const {
    return listToSet(GetMustBeBelowList(index), components_.size());
}
const std::vector<int>& CProtocolUtils::GetMustBeAboveList(int index) const {
    CheckIndex(index, "GetMustBeAbove");
    return mustBeAbove_[size_t(index)];
}
const std::vector<int>& CProtocolUtils::GetMustBeBelowList(int index) const {
    CheckIndex(index, "GetMustBeBelow");
    return mustBeBelow_[size_t(index)];
}

const std::vector<int>& CProtocolUtils::GetComponentStickyNotes(int index) const {
    CheckIndex(index, "GetComponentStickyNotes");
    return componentNotes_[size_t(index)];
}

void CProtocolUtils::SetXPositionAlgorithm(int rule, bool wantFurthest) {
    xPositionRule_ = rule;
    wantFurthest_ = wantFurthest;
}

void CProtocolUtils::GetXPositionAlgorithm(int& rule, bool& wantFurthest) const {
    rule = xPositionRule_;
    wantFurthest = wantFurthest_;
}

const wchar* CProtocolUtils::GetXPositionRuleName(int rule) {
    return rule == DistanceFromStartNode ? u"DistanceFromStartNode" : u"RelativeDistanceBetweenNodes";
}

// ---- sets -----------------------------------------------------------------------------------

void CProtocolUtils::InitBitset(BitsetValue& set, size_t size, bool value) {
    set.resize(size);
    if (value) set.setAll();
    else set.clearAll();
}

bool CProtocolUtils::ConvertIDsToBitset(const std::vector<WString>& ids, BitsetValue& set, WString& error) const {
    InitBitset(set, components_.size(), false);
    for (const WString& text : ids) {
        std::string s = toNarrow(text);
        size_t start = s.find_first_not_of(' '), end = s.find_last_not_of(' ');
        s = start == std::string::npos ? std::string() : s.substr(start, end - start + 1);
        int index = -1;
        if (!s.empty()) {
            char* stop = nullptr;
            long long v = std::strtoll(s.c_str(), &stop, 10);
            if (*stop == '\0' && v >= INT32_MIN && v <= INT32_MAX) index = GetComponentIndexByLocalID(int32_t(v));
        }
        if (index < 0) {
            error = WString(u"Did not find:");
            error += text.view();
            return false;
        }
        set.set(size_t(index));
    }
    return true;
}

void CProtocolUtils::GetSubsetInputsAndOutputs(const BitsetValue& set, BitsetValue& inputs, BitsetValue& outputs) const {
    InitBitset(inputs, components_.size(), false);
    InitBitset(outputs, components_.size(), false);
    for (size_t k = 0; k < connFrom_.size(); ++k) {
        bool fromIn = set.test(size_t(connFrom_[k])), toIn = set.test(size_t(connTo_[k]));
        if (!fromIn && toIn) inputs.set(size_t(connFrom_[k]));
        if (fromIn && !toIn) outputs.set(size_t(connTo_[k]));
    }
}

bool CProtocolUtils::GetSubsetCenter(const BitsetValue& set, Point& center) const {
    int64_t sx = 0, sy = 0, count = 0;
    set.forEachSetBit([&](size_t c) {
        if (c >= point_.size()) return;
        sx += point_[c].x;
        sy += point_[c].y;
        ++count;
    });
    if (count == 0) return false;
    center = {int32_t(sx / count), int32_t(sy / count)};
    return true;
}

void CProtocolUtils::GetInternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                            std::vector<Port>& port) const {
    from.clear();
    to.clear();
    port.clear();
    for (size_t k = 0; k < connFrom_.size(); ++k)
        if (set.test(size_t(connFrom_[k])) && set.test(size_t(connTo_[k]))) {
            from.push_back(connFrom_[k]);
            to.push_back(connTo_[k]);
            port.push_back(connPort_[k]);
        }
}

void CProtocolUtils::GetExternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                            std::vector<Port>& port, std::vector<bool>& isInput) const {
    from.clear();
    to.clear();
    port.clear();
    isInput.clear();
    for (size_t k = 0; k < connFrom_.size(); ++k) {
        bool fromIn = set.test(size_t(connFrom_[k])), toIn = set.test(size_t(connTo_[k]));
        if (fromIn == toIn) continue;
        from.push_back(connFrom_[k]);
        to.push_back(connTo_[k]);
        port.push_back(connPort_[k]);
        isInput.push_back(toIn);
    }
}

bool CProtocolUtils::IsSeparableUpstream(const BitsetValue& set) const {
    // Walk downstream from the set's outputs outside the set; reaching one of its inputs
    // means some path leaves the set and comes back.
    BitsetValue inputs, outputs;
    GetSubsetInputsAndOutputs(set, inputs, outputs);
    std::vector<char> seen(components_.size(), 0);
    std::vector<int> work;
    outputs.forEachSetBit([&](size_t c) {
        seen[c] = 1;
        work.push_back(int(c));
    });
    while (!work.empty()) {
        int c = work.back();
        work.pop_back();
        if (inputs.test(size_t(c))) return false;
        for (int d : adjacency_[AdjPassOrFail][size_t(c)])
            if (!set.test(size_t(d)) && !seen[size_t(d)]) {
                seen[size_t(d)] = 1;
                work.push_back(d);
            }
    }
    return true;
}

bool CProtocolUtils::IsConnected(const BitsetValue& set) const {
    size_t first = set.firstSetBit();
    if (first == BitsetValue::npos || first >= components_.size()) return false;
    std::vector<char> seen(components_.size(), 0);
    std::vector<int> work{int(first)};
    seen[first] = 1;
    size_t reached = 1;
    while (!work.empty()) {
        int c = work.back();
        work.pop_back();
        for (int a : adjacency_[AdjAll][size_t(c)])
            if (set.test(size_t(a)) && !seen[size_t(a)]) {
                seen[size_t(a)] = 1;
                ++reached;
                work.push_back(a);
            }
    }
    return reached == set.count();
}

const std::vector<int>& CProtocolUtils::ShorterConnectionList(int from, int to) const {
    // Both ends list every connection between them, in connection order.
    const auto& a = connectionsOf_[size_t(from)];
    if (to < 0 || to >= GetNumComponents()) return a;
    const auto& b = connectionsOf_[size_t(to)];
    return b.size() < a.size() ? b : a;
}

bool CProtocolUtils::FindConnections(int from, int to, std::vector<int>& out) const {
    out.clear();
    if (from < 0 || from >= GetNumComponents()) return false;
    for (int k : ShorterConnectionList(from, to))
        if (connFrom_[size_t(k)] == from && connTo_[size_t(k)] == to) out.push_back(k);
    return !out.empty();
}

int CProtocolUtils::FindConnection(int from, int to, Port port) const {
    if (from < 0 || from >= GetNumComponents()) return -1;
    for (int k : ShorterConnectionList(from, to))
        if (connFrom_[size_t(k)] == from && connTo_[size_t(k)] == to && connPort_[size_t(k)] == port) return k;
    return -1;
}

void CProtocolUtils::GetComponentsWithPort(const BitsetValue& set, Port port, BitsetValue& out) const {
    InitBitset(out, components_.size(), false);
    set.forEachSetBit([&](size_t c) {
        if (c < ports_.size() && (ports_[c] & port) == unsigned(port)) out.set(c);
    });
}

void CProtocolUtils::GetInputComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortInput, out);
}
void CProtocolUtils::GetOutputPassComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortPass, out);
}
void CProtocolUtils::GetOutputFailComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortFail, out);
}

int CProtocolUtils::FindNearestComponent(const Extent& e) const {
    int cx = int((int64_t(e.left) + e.right) / 2), cy = int((int64_t(e.top) + e.bottom) / 2);
    int best = -1;
    int64_t bestDistance = 0;
    for (size_t c = 0; c < point_.size(); ++c) {
        int64_t dx = int64_t(point_[c].x) - cx, dy = int64_t(point_[c].y) - cy;
        int64_t d = dx * dx + dy * dy;
        if (best < 0 || d < bestDistance) {
            best = int(c);
            bestDistance = d;
        }
    }
    return best;
}

std::vector<unsigned> CProtocolUtils::ComponentBitsetToArray(const BitsetValue& set) {
    std::vector<unsigned> out;
    set.forEachSetBit([&](size_t c) { out.push_back(unsigned(c)); });
    return out;
}

// ---- geometry and order ---------------------------------------------------------------------

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

// ---- component attributes -------------------------------------------------------------------

namespace {
void requireComponent(const void* c, const char* operation) {
    if (!c) throw Exception(kClass, operation, u"Cannot dereference a NULL pointer");
}
CProtocolUtils::Point readPoint(const iAttributeHolder* c, const wchar* key, const char* operation) {
    requireComponent(c, operation);
    AttributePoint p;
    c->getPointAttribute(key, p);
    return {p.x, p.y};
}
bool readBool(const iAttributeHolder* c, const wchar* key, const char* operation) {
    requireComponent(c, operation);
    bool on = false;
    c->getBoolAttribute(key, on);
    return on;
}
}  // namespace

int32_t CProtocolUtils::GetComponentLocalID(const iComponentInfo* c) {
    requireComponent(c, "GetComponentLocalID");
    int32_t id = 0;
    if (!c->getIntAttribute(NVK_ComponentLocalID, id))
        throw Exception(kClass, "GetComponentLocalID", u"Component has no local ID");
    return id;
}
WString CProtocolUtils::GetComponentDisplayName(const iComponentInfo* c) {
    requireComponent(c, "GetComponentDisplayName");
    WString name = WString::empty();
    c->getTextAttribute(NVK_ComponentDisplayName, name);
    return name;
}
void CProtocolUtils::SetComponentDisplayName(iComponentInfo* c, const WString& name) {
    requireComponent(c, "SetComponentDisplayName");
    c->setTextAttribute(NVK_ComponentDisplayName, name);
}
CProtocolUtils::Point CProtocolUtils::GetComponentPoint(const iComponentInfo* c) {
    return readPoint(c, NVK_ComponentPoint, "GetComponentPoint");
}
void CProtocolUtils::SetComponentPoint(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentPoint");
    c->setPointAttribute(NVK_ComponentPoint, {p.x, p.y});
}
CProtocolUtils::Point CProtocolUtils::GetComponentOffset(const iComponentInfo* c) {
    return readPoint(c, NVK_ComponentOffset, "GetComponentOffset");
}
void CProtocolUtils::SetComponentOffset(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentOffset");
    c->setPointAttribute(NVK_ComponentOffset, {p.x, p.y});
}
void CProtocolUtils::RemoveComponentOffset(iComponentInfo* c) {
    requireComponent(c, "RemoveComponentOffset");
    c->removeAttribute(NVK_ComponentOffset);
}
bool CProtocolUtils::HasComponentOffset(const iComponentInfo* c) {
    requireComponent(c, "HasComponentOffset");
    return c->hasAttribute(NVK_ComponentOffset);
}
void CProtocolUtils::ClearComponentOffsets(iProtocolInfo* protocol) {
    requireComponent(protocol, "ClearComponentOffsets");
    for (int i = 0; i < protocol->getNumComponents(); ++i) protocol->getComponent(i)->removeAttribute(NVK_ComponentOffset);
}
bool CProtocolUtils::GetComponentMovedFrom(const iComponentInfo* c, Point& p) {
    requireComponent(c, "GetComponentMovedFrom");
    AttributePoint a;
    if (!c->getPointAttribute(NVK_ComponentMovedFrom, a)) return false;
    p = {a.x, a.y};
    return true;
}
void CProtocolUtils::SetComponentMovedFrom(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentMovedFrom");
    c->setPointAttribute(NVK_ComponentMovedFrom, {p.x, p.y});
}
void CProtocolUtils::RemoveComponentMovedFrom(iComponentInfo* c) {
    requireComponent(c, "RemoveComponentMovedFrom");
    c->removeAttribute(NVK_ComponentMovedFrom);
}
bool CProtocolUtils::GetComponentMovedTo(const iComponentInfo* c, Point& p) {
    requireComponent(c, "GetComponentMovedTo");
    AttributePoint a;
    if (!c->getPointAttribute(NVK_ComponentMovedTo, a)) return false;
    p = {a.x, a.y};
    return true;
}
void CProtocolUtils::SetComponentMovedTo(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentMovedTo");
    c->setPointAttribute(NVK_ComponentMovedTo, {p.x, p.y});
}
bool CProtocolUtils::HasInputPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentTakesInput, "HasInputPort"); }
bool CProtocolUtils::HasPassPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentReturnsPass, "HasPassPort"); }
bool CProtocolUtils::HasFailPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentReturnsFail, "HasFailPort"); }
void CProtocolUtils::SetInputPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetInputPort");
    c->setBoolAttribute(NVK_ComponentTakesInput, on);
}
void CProtocolUtils::SetPassPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetPassPort");
    c->setBoolAttribute(NVK_ComponentReturnsPass, on);
}
void CProtocolUtils::SetFailPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetFailPort");
    c->setBoolAttribute(NVK_ComponentReturnsFail, on);
}
unsigned CProtocolUtils::GetComponentPorts(const iComponentInfo* c) {
    return (HasInputPort(c) ? PortInput : 0u) | (HasPassPort(c) ? PortPass : 0u) | (HasFailPort(c) ? PortFail : 0u);
}
bool CProtocolUtils::GetProtocolAutoLayout(const iProtocolInfo* p) {
    return readBool(p, NVK_ProtocolAutoLayout, "GetProtocolAutoLayout");
}
void CProtocolUtils::SetProtocolAutoLayout(iProtocolInfo* p, bool on) {
    requireComponent(p, "SetProtocolAutoLayout");
    p->setBoolAttribute(NVK_ProtocolAutoLayout, on);
}
CProtocolUtils::Point CProtocolUtils::GetComponentPointWithoutOffset(const iComponentInfo* c) {
    Point p = GetComponentPoint(c), o = GetComponentOffset(c);
    return {p.x - o.x, p.y - o.y};
}

// ---- editing --------------------------------------------------------------------------------

int CProtocolUtils::disconnectComponents(iProtocolInfo* protocol, int32_t fromLocalID, int32_t toLocalID, Port port) {
    requireComponent(protocol, "disconnectComponents");
    int removed = 0;
    for (int k = protocol->getNumConnections() - 1; k >= 0; --k) {
        ConnectionInfo c = protocol->getConnection(k);
        if (c.fromLocalID == fromLocalID && c.toLocalID == toLocalID && c.port == port) {
            protocol->removeConnection(k);
            ++removed;
        }
    }
    return removed;
}

void CProtocolUtils::removeConnection(iProtocolInfo* protocol, int index) {
    requireComponent(protocol, "removeConnection");
    protocol->removeConnection(index);
}

void CProtocolUtils::clearConnections(iProtocolInfo* protocol) {
    requireComponent(protocol, "clearConnections");
    protocol->clearConnections();
}

void CProtocolUtils::deleteComponents(iProtocolInfo* protocol, const std::vector<int32_t>& localIDs,
                                      std::vector<int32_t>& componentList, std::vector<ConnectionInfo>& connectionList) {
    requireComponent(protocol, "deleteComponents");
    componentList.clear();
    connectionList.clear();
    std::vector<int32_t> existing;
    for (int i = 0; i < protocol->getNumComponents(); ++i) existing.push_back(GetComponentLocalID(protocol->getComponent(i)));
    for (int32_t id : localIDs)
        if (std::find(existing.begin(), existing.end(), id) == existing.end())
            throw Exception(kClass, "deleteComponents", u"Did not find localID %d", id);
    auto doomed = [&](int32_t id) { return std::find(localIDs.begin(), localIDs.end(), id) != localIDs.end(); };
    for (int k = protocol->getNumConnections() - 1; k >= 0; --k) {
        ConnectionInfo c = protocol->getConnection(k);
        if (doomed(c.fromLocalID) || doomed(c.toLocalID)) {
            connectionList.insert(connectionList.begin(), c);
            protocol->removeConnection(k);
        }
    }
    for (int i = protocol->getNumComponents() - 1; i >= 0; --i) {
        int32_t id = GetComponentLocalID(protocol->getComponent(i));
        if (doomed(id)) {
            componentList.insert(componentList.begin(), id);
            protocol->removeComponent(i);
        }
    }
}

// ---- sticky-note access ---------------------------------------------------------------------

namespace {
int countNotes(const iAttributeHolder* owner) {
    requireComponent(owner, "GetNumStickyNotes");
    return noteCount(readNoteArray(owner, noteKey(owner)));
}
void ithNote(const iAttributeHolder* owner, int i, WString& t1, WString& t2, WString& t3) {
    requireComponent(owner, "GetIthStickyNote");
    std::vector<WString> items = readNoteArray(owner, noteKey(owner));
    int count = noteCount(items);
    if (i < 0 || i >= count) throw InvalidIndexException(kClass, "GetIthStickyNote", i, count - 1);
    t1 = items[size_t(1 + 3 * i)];
    t2 = items[size_t(2 + 3 * i)];
    t3 = items[size_t(3 + 3 * i)];
}
void deleteNote(iAttributeHolder* owner, int i) {
    requireComponent(owner, "DeleteIthStickyNote");
    std::vector<WString> items = readNoteArray(owner, noteKey(owner));
    int count = noteCount(items);
    if (i < 0 || i >= count) throw InvalidIndexException(kClass, "DeleteIthStickyNote", i, count - 1);
    items.erase(items.begin() + 1 + 3 * i, items.begin() + 4 + 3 * i);
    items.resize(size_t(1 + 3 * (count - 1)));  // a trailing partial triple goes too
    owner->setTextArrayAttribute(noteKey(owner), items);
}
}  // namespace

int CProtocolUtils::GetNumStickyNotes(const iComponentInfo* owner) { return countNotes(owner); }
int CProtocolUtils::GetNumStickyNotes(const iProtocolInfo* owner) { return countNotes(owner); }
void CProtocolUtils::GetIthStickyNote(const iComponentInfo* owner, int i, WString& t1, WString& t2, WString& t3) {
    ithNote(owner, i, t1, t2, t3);
}
void CProtocolUtils::GetIthStickyNote(const iProtocolInfo* owner, int i, WString& t1, WString& t2, WString& t3) {
    ithNote(owner, i, t1, t2, t3);
}
void CProtocolUtils::DeleteIthStickyNote(iComponentInfo* owner, int i) { deleteNote(owner, i); }
void CProtocolUtils::DeleteIthStickyNote(iProtocolInfo* owner, int i) { deleteNote(owner, i); }

bool CProtocolUtils::ProtocolStickyNotesChanged() const {
    for (int k : protocolNotes_)
        if (notes_[size_t(k)].changed) return true;
    return false;
}

// ---- groups ---------------------------------------------------------------------------------

int CProtocolUtils::OpenGroupAndParents(iComponentInfo* component, const WString& why) {
    requireComponent(component, "OpenGroupAndParents");
    int opened = 0;
    for (iProtocolInfo* p = component->getProtocol(); p; ) {
        iComponentInfo* group = p->getParentComponent();
        if (!group) break;
        bool open = false;
        group->getBoolAttribute(NVK_ComponentGroupOpen, open);
        if (!open) {
            group->setBoolAttribute(NVK_ComponentGroupOpen, true);
            group->setTextAttribute(NVK_ComponentGroupOpenReason, why);
            ++opened;
        }
        p = group->getProtocol();
    }
    return opened;
}

int CProtocolUtils::OpenGroupsWithInvalidParameters(iComponentInfo* component) {
    requireComponent(component, "OpenGroupsWithInvalidParameters");
    int opened = 0;
    std::vector<iProtocolInfo*> work;
    if (component->getSubprotocol()) work.push_back(component->getSubprotocol());
    while (!work.empty()) {
        iProtocolInfo* p = work.back();
        work.pop_back();
        for (int i = 0; i < p->getNumComponents(); ++i) {
            iComponentInfo* c = p->getComponent(i);
            bool invalid = false;
            if (c->getBoolAttribute(NVK_ComponentInvalidParameters, invalid) && invalid)
                opened += OpenGroupAndParents(c, format(u"Component \"%ls\" has invalid parameters", GetComponentDisplayName(c)));
            if (c->getSubprotocol()) work.push_back(c->getSubprotocol());
        }
    }
    return opened;
}

// ---- debug text -----------------------------------------------------------------------------

void CProtocolUtils::ComponentSetText(const BitsetValue& set, WString& out) const {
    out = WString::empty();
    bool any = false;
    set.forEachSetBit([&](size_t c) {
        if (c >= displayName_.size()) return;
        if (any) out += u", ";
        out += u'"';
        out += displayName_[c].view();
        out += u'"';
        any = true;
    });
    if (!any) out = WString(u"Empty");
}

void CProtocolUtils::ConnectionSetText(const BitsetValue& set, WString& out) const {
    out = WString::empty();
    bool any = false;
    set.forEachSetBit([&](size_t k) {
        if (k >= connFrom_.size()) return;
        if (any) out += u", ";
        out += format(u"\"%ls\"->\"%ls\" (%ls)", displayName_[size_t(connFrom_[k])], displayName_[size_t(connTo_[k])],
                      connPort_[k] == PortFail ? u"fail" : u"pass")
                   .view();
        any = true;
    });
    if (!any) out = WString(u"Empty");
}

void CProtocolUtils::DebugComponentSet(const DebugTarget& target, const WString& label, const BitsetValue& set) const {
    if (!target) return;
    set.forEachSetBit([&](size_t c) {
        if (c >= displayName_.size()) return;
        debug(target, u"%ls: XY %d %d (%d %d): \"%ls\"", label, point_[c].x, point_[c].y, initialPoint_[c].x,
              initialPoint_[c].y, displayName_[c]);
    });
}

void CProtocolUtils::DebugConnectionSet(const DebugTarget& target, const WString& label, const BitsetValue& set) const {
    if (!target) return;
    set.forEachSetBit([&](size_t k) {
        if (k >= connFrom_.size()) return;
        debug(target, u"%ls: Connection from \"%ls\" to \"%ls\" port %d", label, displayName_[size_t(connFrom_[k])],
              displayName_[size_t(connTo_[k])], int(connPort_[k]));
    });
}

}  // namespace nvk
