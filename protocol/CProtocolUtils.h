#pragma once
// Perception of a protocol graph: reads every component's identity, place and ports once
// and derives what layout and collapse need (adjacency, start nodes, chains and rings,
// assemblies, distances from the start, execution order), and turns a user's drags into
// offsets or order changes.
//
// Component sets are BitsetValues over component indexes 0 .. N-1 (protocol order);
// connection sets are BitsetValues over connection indexes 0 .. M-1. Internally the
// adjacency is also kept as index lists, so walks over large protocols cost the number of
// connections rather than N bits per step.
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/iProtocolInfo.h"

namespace nvk {

using tovan::BitsetValue;

class NVK_EXPORT CProtocolUtils {
public:
    struct Point {
        int32_t x = 0;
        int32_t y = 0;
        bool operator==(const Point&) const = default;
    };
    struct Extent {
        int32_t top = 0;
        int32_t bottom = 0;
        int32_t left = 0;
        int32_t right = 0;
        bool operator==(const Extent&) const = default;
    };
    /// A sticky note. For a component's note the rectangle is relative to the component's
    /// point; for the protocol's own notes it is in protocol coordinates.
    struct StickyNote {
        Extent extent;
        tovan::WString geometry;  // "a b w h" as stored
        tovan::WString text2;     // the note's text, kept verbatim
        tovan::WString text3;     // the note's style, kept verbatim
        int32_t owner = -1;       // component index, -1 for the protocol
        bool isProtocolNote = true;
        bool changed = false;
    };
    enum Adjacent {
        AdjAll = 0,
        AdjInput = 1,
        AdjPassOrFail = 2,
        AdjInputFromPass = 3,
        AdjInputFromFail = 4,
        AdjPass = 5,
        AdjFail = 6,
    };
    static constexpr int NumAdjacencyKinds = 7;

    struct Assembly {
        int index = 0;
        BitsetValue components;
        BitsetValue connections;
        bool isChain = false;  // false: a ring assembly (or a single component)
        BitsetValue chainRingConnections;
        /// Per member (component index), its column and row inside the assembly.
        std::vector<std::pair<int, Point>> relativePositions;
    };

    /// Value of XPositionRule.
    enum XPositionRule { DistanceFromStartNode = 0, RelativeDistanceBetweenNodes = 1 };

    CProtocolUtils();
    virtual ~CProtocolUtils();
    CProtocolUtils(const CProtocolUtils&) = delete;
    CProtocolUtils& operator=(const CProtocolUtils&) = delete;

    /// The framework context of the host (kept, not interpreted).
    void SetContext(tovan::Object* context) { context_ = context; }
    tovan::Object* GetContext() const { return context_; }

    // ---- loading and access ---------------------------------------------------------------
    /// Clears all state, takes a reference on `protocol` and perceives it. A connection to
    /// an unknown local ID aborts the load with an Exception. The protocol is not changed:
    /// the points are taken back by their offsets in this object only, and a component's
    /// sticky notes are kept relative to its stored point (offset included).
    void LoadProtocolComponents(tovan::iProtocolInfo* protocol);
    /// The first steps of a load only: components, points, ports, sticky notes of components,
    /// adjacency and connections. Start nodes, chains and rings, assemblies, distances and the
    /// protocol's own notes stay empty. For callers that read the graph and nothing derived.
    void LoadProtocolGraph(tovan::iProtocolInfo* protocol);
    void ClearProtocolState();
    tovan::iProtocolInfo* GetProtocol() const { return protocol_.get(); }

    int GetNumComponents() const { return int(components_.size()); }
    int GetNumConnections() const { return int(connFrom_.size()); }
    int GetNumStartNodes() const { return numStartNodes_; }
    tovan::iComponentInfo* GetComponent(int index) const;
    /// By display name (the first match), or null.
    tovan::iComponentInfo* GetComponent(const tovan::WString& name) const;
    tovan::WString GetDisplayName(int index) const;
    Point GetPoint(int index) const;
    void SetPoint(int index, Point p);
    Point GetInitialPoint(int index) const;
    Point GetOffset(int index) const;
    /// The point attribute as it was read (the laid-out place plus the offset).
    Point GetStoredPoint(int index) const;
    int32_t GetLocalID(int index) const;
    unsigned GetPorts(int index) const;
    int GetComponentIndex(const tovan::WString& name) const;
    int GetComponentIndex(const tovan::iComponentInfo* component) const;
    int GetComponentIndexByLocalID(int32_t localID) const;
    int GetComponentIndexByDisplayName(const tovan::WString& name) const;
    tovan::iComponentInfo* GetComponentByDisplayName(const tovan::WString& name) const;
    tovan::iComponentInfo* GetComponentByLocalID(int32_t localID) const;
    /// Like GetComponentIndexByLocalID, but throws "Did not find localID %d".
    int GetIndexFromLocalID(int32_t localID) const;
    /// The adjacency set of one kind; "Unrecognized adjacent flag" for an unknown kind.
    BitsetValue GetAdjacent(int index, int kind) const;
    /// The same set as an index list in increasing order (no copy).
    const std::vector<int>& GetAdjacentList(int index, int kind) const;
    static const tovan::wchar* GetAdjacencyName(int kind);
    bool IsStartNode(int index) const;
    const std::vector<int>& GetStartNodes() const { return startNodes_; }

    int GetConnectionFrom(int c) const;
    int GetConnectionTo(int c) const;
    tovan::Port GetConnectionPort(int c) const;
    static int64_t GetConnectionKey(int from, int to, tovan::Port port);
    BitsetValue GetConnectionsOf(int index) const;
    const std::vector<int>& GetConnectionListOf(int index) const;

    // ---- perception results ---------------------------------------------------------------
    const BitsetValue& GetChainComponents() const { return chainComponents_; }
    const BitsetValue& GetRingComponents() const { return ringComponents_; }
    const BitsetValue& GetUnconnectedComponents() const { return unconnected_; }
    const BitsetValue& GetChainConnections() const { return chainConnections_; }
    const BitsetValue& GetRingConnections() const { return ringConnections_; }
    const BitsetValue& GetChainChainConnections() const { return chainChainConnections_; }
    const BitsetValue& GetChainRingConnections() const { return chainRingConnections_; }
    const std::vector<Assembly>& GetAssemblies() const { return assemblies_; }
    int GetDistance(int index) const;
    const std::vector<int>& GetDistances() const { return distance_; }
    const std::vector<std::vector<int>>& GetDistanceLevels() const { return levels_; }
    const BitsetValue& GetLoopConnections() const { return loopConnections_; }
    bool HasLoops() const { return hasLoops_; }
    /// The components `index` must lie above / below (sets built on request).
    BitsetValue GetMustBeAbove(int index) const;
    BitsetValue GetMustBeBelow(int index) const;
    const std::vector<int>& GetMustBeAboveList(int index) const;
    const std::vector<int>& GetMustBeBelowList(int index) const;

    void SetXPositionAlgorithm(int rule, bool wantFurthest);
    void GetXPositionAlgorithm(int& rule, bool& wantFurthest) const;
    static const tovan::wchar* GetXPositionRuleName(int rule);

    // ---- sets -----------------------------------------------------------------------------
    static void InitBitset(BitsetValue& set, size_t size, bool value);
    /// Local-ID texts (decimal) to a component set. On an unknown or unreadable ID, `error`
    /// becomes "Did not find:" and the ID, and the result is false.
    bool ConvertIDsToBitset(const std::vector<tovan::WString>& ids, BitsetValue& set, tovan::WString& error) const;
    /// Components outside `set` feeding it (inputs) and fed by it (outputs).
    void GetSubsetInputsAndOutputs(const BitsetValue& set, BitsetValue& inputs, BitsetValue& outputs) const;
    /// The centre of the members' points; false for an empty set.
    bool GetSubsetCenter(const BitsetValue& set, Point& center) const;
    void GetInternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                std::vector<tovan::Port>& port) const;
    void GetExternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                std::vector<tovan::Port>& port, std::vector<bool>& isInput) const;
    /// True when nothing upstream of the set (outside it) is also downstream of it, so the
    /// set can be cut out without making a loop through the rest of the protocol.
    bool IsSeparableUpstream(const BitsetValue& set) const;
    /// True when the members form one connected piece (any direction); an empty set is not.
    bool IsConnected(const BitsetValue& set) const;
    bool FindConnections(int from, int to, std::vector<int>& out) const;
    int FindConnection(int from, int to, tovan::Port port) const;
    /// Members of `set` that have every port in `port`.
    void GetComponentsWithPort(const BitsetValue& set, tovan::Port port, BitsetValue& out) const;
    void GetInputComponents(const BitsetValue& set, BitsetValue& out) const;
    void GetOutputPassComponents(const BitsetValue& set, BitsetValue& out) const;
    void GetOutputFailComponents(const BitsetValue& set, BitsetValue& out) const;
    /// The component whose point lies nearest the extent's centre, -1 for none.
    int FindNearestComponent(const Extent& extent) const;
    static std::vector<unsigned> ComponentBitsetToArray(const BitsetValue& set);

    // ---- geometry and order ---------------------------------------------------------------
    static int Distance(int x1, int y1, int x2, int y2);
    static int64_t getLocationMetric(int32_t x, int32_t y) { return int64_t(y) * 16777216 + x; }
    static int64_t getLocationMetric(Point p) { return getLocationMetric(p.x, p.y); }
    void SortInExecutionOrder(std::vector<unsigned>& indexes) const;
    /// Whether moving `c` by (R[c], D[c]) changes the order it runs in among its siblings.
    bool OffsetChangesExecutionOrder(int c, const std::vector<int>& R, const std::vector<int>& D) const;
    bool OffsetChangesExecutionOrder(int c, const std::vector<int>& siblings, int R, int D) const;
    /// Turns moved-from marks into offsets or point changes; true when the order changed.
    bool ProcessMovedFrom();

    // ---- component attributes -------------------------------------------------------------
    static int32_t GetComponentLocalID(const tovan::iComponentInfo* c);
    static tovan::WString GetComponentDisplayName(const tovan::iComponentInfo* c);
    static void SetComponentDisplayName(tovan::iComponentInfo* c, const tovan::WString& name);
    static Point GetComponentPoint(const tovan::iComponentInfo* c);
    static void SetComponentPoint(tovan::iComponentInfo* c, Point p);
    static Point GetComponentOffset(const tovan::iComponentInfo* c);
    static void SetComponentOffset(tovan::iComponentInfo* c, Point p);
    static void RemoveComponentOffset(tovan::iComponentInfo* c);
    static bool HasComponentOffset(const tovan::iComponentInfo* c);
    static void ClearComponentOffsets(tovan::iProtocolInfo* protocol);
    static bool GetComponentMovedFrom(const tovan::iComponentInfo* c, Point& p);
    static void SetComponentMovedFrom(tovan::iComponentInfo* c, Point p);
    static void RemoveComponentMovedFrom(tovan::iComponentInfo* c);
    static bool GetComponentMovedTo(const tovan::iComponentInfo* c, Point& p);
    static void SetComponentMovedTo(tovan::iComponentInfo* c, Point p);
    static bool HasInputPort(const tovan::iComponentInfo* c);
    static bool HasPassPort(const tovan::iComponentInfo* c);
    static bool HasFailPort(const tovan::iComponentInfo* c);
    static void SetInputPort(tovan::iComponentInfo* c, bool on);
    static void SetPassPort(tovan::iComponentInfo* c, bool on);
    static void SetFailPort(tovan::iComponentInfo* c, bool on);
    static unsigned GetComponentPorts(const tovan::iComponentInfo* c);
    static bool GetProtocolAutoLayout(const tovan::iProtocolInfo* p);
    static void SetProtocolAutoLayout(tovan::iProtocolInfo* p, bool on);
    /// The component's point less its offset.
    static Point GetComponentPointWithoutOffset(const tovan::iComponentInfo* c);

    // ---- editing the framework protocol ---------------------------------------------------
    /// Removes every connection fromLocalID -> toLocalID leaving `port`; the count removed.
    static int disconnectComponents(tovan::iProtocolInfo* protocol, int32_t fromLocalID, int32_t toLocalID,
                                    tovan::Port port);
    static void removeConnection(tovan::iProtocolInfo* protocol, int index);
    static void clearConnections(tovan::iProtocolInfo* protocol);
    /// Deletes the components with these local IDs and every connection touching them;
    /// `componentList` and `connectionList` receive the removed components' local IDs and
    /// the removed connections. An unknown ID throws "Did not find localID %d" before
    /// anything is removed.
    static void deleteComponents(tovan::iProtocolInfo* protocol, const std::vector<int32_t>& localIDs,
                                 std::vector<int32_t>& componentList, std::vector<tovan::ConnectionInfo>& connectionList);

    // ---- sticky notes ---------------------------------------------------------------------
    static int GetNumStickyNotes(const tovan::iComponentInfo* owner);
    static int GetNumStickyNotes(const tovan::iProtocolInfo* owner);
    static void GetIthStickyNote(const tovan::iComponentInfo* owner, int i, tovan::WString& text1, tovan::WString& text2,
                                 tovan::WString& text3);
    static void GetIthStickyNote(const tovan::iProtocolInfo* owner, int i, tovan::WString& text1, tovan::WString& text2,
                                 tovan::WString& text3);
    static void DeleteIthStickyNote(tovan::iComponentInfo* owner, int i);
    static void DeleteIthStickyNote(tovan::iProtocolInfo* owner, int i);
    const std::vector<StickyNote>& GetStickyNotes() const { return notes_; }
    const std::vector<int>& GetProtocolStickyNotes() const { return protocolNotes_; }
    const std::vector<int>& GetComponentStickyNotes(int index) const;
    bool ProtocolStickyNotesChanged() const;
    /// The stored geometry text for a note's rectangle with its owner at `ownerPoint`.
    static tovan::WString StickyNoteGeometry(const Extent& e, Point ownerPoint);

    // ---- groups ---------------------------------------------------------------------------
    /// Opens every group that contains `component`, from its own protocol's group up to the
    /// top, recording `why`; the number of groups newly opened.
    static int OpenGroupAndParents(tovan::iComponentInfo* component, const tovan::WString& why);
    /// Opens the groups that lead to every component inside `component`'s subprotocol (at
    /// any depth) that is marked with invalid parameters; the number of groups newly opened.
    static int OpenGroupsWithInvalidParameters(tovan::iComponentInfo* component);

    // ---- debug text -----------------------------------------------------------------------
    void ComponentSetText(const BitsetValue& set, tovan::WString& out) const;
    void ConnectionSetText(const BitsetValue& set, tovan::WString& out) const;
    void DebugComponentSet(const tovan::DebugTarget& target, const tovan::WString& label, const BitsetValue& set) const;
    void DebugConnectionSet(const tovan::DebugTarget& target, const tovan::WString& label,
                            const BitsetValue& set) const;

    // ---- distance walk --------------------------------------------------------------------
    /// Distances from the local start nodes of `set`; loop connections found on the way are
    /// added to the loop-connection set.
    void PerceiveDistanceFromStartNodeForSet(const BitsetValue& set, bool wantFurthest, std::vector<int>& distances);

protected:
    void RemoveComponentOffsetsFromComponentPoints();
    void PerceiveComponentsAndPoints();
    void PerceiveAdjacency();
    void PerceiveStartNodes();
    void PerceiveRings();
    void PerceiveAssemblies();
    void PerceiveDistanceFromStartNode();
    void PerceiveProtocolStickyNotes();
    void GetStickyNotes(const tovan::iAttributeHolder* owner, int ownerIndex);
    /// Records that `earlier` must lie above `later` (and `later` below `earlier`).
    void AddMustBeAbove(int earlier, int later);

    void AssignRelativePosition(Assembly& a);
    int FindLowestInAssemblyGroup(const Assembly& a) const;
    void SetComponentRelativePosition(Assembly& a, int component, Point rel);
    void RepositionAssemblyGroup(Assembly& a);
    void SetUndefinedRelativePositions(Assembly& a);

    void CheckIndex(int index, const char* operation) const;
    /// The connection list of `from` or of `to`, whichever is shorter.
    const std::vector<int>& ShorterConnectionList(int from, int to) const;

    tovan::Ptr<tovan::iProtocolInfo> protocol_;
    tovan::Object* context_ = nullptr;

    // per component
    std::vector<tovan::iComponentInfo*> components_;  // the protocol holds the references
    std::vector<int32_t> localID_;
    std::vector<tovan::WString> displayName_;
    std::vector<unsigned> ports_;
    std::vector<Point> point_;
    std::vector<Point> initialPoint_;
    std::vector<Point> offset_;
    std::vector<Point> storedPoint_;  // the point attribute as read, offset included
    std::vector<std::vector<int>> componentNotes_;
    // Kept as sorted index lists: as bitsets they would cost N bits per component.
    std::vector<std::vector<int>> mustBeAbove_;
    std::vector<std::vector<int>> mustBeBelow_;
    std::vector<std::vector<int>> adjacency_[NumAdjacencyKinds];
    std::vector<std::vector<int>> connectionsOf_;

    // per connection
    std::vector<int> connFrom_;
    std::vector<int> connTo_;
    std::vector<tovan::Port> connPort_;

    std::unordered_map<int32_t, int> localIDMap_;
    std::vector<int> startNodes_;
    int numStartNodes_ = 0;
    BitsetValue chainComponents_, ringComponents_, unconnected_;
    BitsetValue chainConnections_, ringConnections_, chainChainConnections_, chainRingConnections_;
    std::vector<Assembly> assemblies_;
    std::vector<int> distance_;
    std::vector<char> placedScratch_;
    std::vector<int> walkInitialX_;  // what the distance walk reads, built on its first use
    std::vector<std::vector<std::pair<int, int>>> walkOutgoing_;
    std::vector<std::vector<int>> levels_;
    BitsetValue loopConnections_;
    bool hasLoops_ = false;
    std::vector<StickyNote> notes_;
    std::vector<int> protocolNotes_;
    int xPositionRule_ = DistanceFromStartNode;
    bool wantFurthest_ = true;
};

}  // namespace nvk
