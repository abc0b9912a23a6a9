#pragma once
// Automatic layout: execution flows left to right in columns (stacks) and top to bottom
// within a column. Components the caller fixes stay where they are, drags become offsets
// or order changes, sticky notes are kept clear of, and the results are written back as
// component points, offsets and sticky-note texts.
//
// Geometry used throughout: a component claims the cell from its point to its point plus
// (column width, row height): its icon, its lines of text and the gap to its neighbours.
// Overlap tests and network extents use these cells, so networks stacked or tucked
// against each other keep the same spacing as rows and stacks inside one network.
//
// Order: the components one component feeds, and the start nodes, run in protocol order,
// so each should lie above the next. Each stack honours these constraints as it is aligned
// with the one before; a later move of a block of components can still carry one past a
// component of another stack it should stay above, and layout leaves it there, as the
// reference layout does. Networks are tucked up against the network directly above only,
// so one may come to overlap an earlier network that was tucked up beside that one.
//
// Fixed components never move, also where their stack holds free members that the first
// placement puts in rows (see InitialLayoutUsingDistanceFromStart).
#include <vector>

#include "nvk/protocol/CProtocolUtils.h"

namespace nvk {

class NVK_EXPORT CProtocolLayoutUtils : public CProtocolUtils {
public:
    /// A connected part of the protocol, laid out as a unit.
    struct Network {
        BitsetValue components;
        std::vector<int> members;     // increasing index
        std::vector<int> startNodes;  // increasing index
        std::vector<std::vector<int>> stacks;
    };

    static constexpr int FirstStackX = 90;
    static constexpr int FirstRowY = 95;

    CProtocolLayoutUtils();
    ~CProtocolLayoutUtils() override;

    // ---- settings -------------------------------------------------------------------------
    bool GetAlignCenter() const { return alignCenter_; }
    void SetAlignCenter(bool on) { alignCenter_ = on; }
    bool GetSingleComponentLinearLayout() const { return singleComponentLinearLayout_; }
    void SetSingleComponentLinearLayout(bool on) { singleComponentLinearLayout_ = on; }
    int GetFailOnlyOffset() const { return failOnlyOffset_; }
    void SetFailOnlyOffset(int units) { failOnlyOffset_ = units; }
    bool GetAcceptOffsetMoves() const { return acceptOffsetMoves_; }
    void SetAcceptOffsetMoves(bool on) { acceptOffsetMoves_ = on; }
    int GetWrapLongPipelines() const { return wrapLongPipelines_; }
    void SetWrapLongPipelines(int stacks) { wrapLongPipelines_ = stacks; }
    bool GetConsiderStickyNotes() const { return considerStickyNotes_; }
    void SetConsiderStickyNotes(bool on) { considerStickyNotes_ = on; }
    int GetLinesOfDisplayText() const { return linesOfDisplayText_; }
    /// Also recomputes the spacing (row height and what follows from it).
    void SetLinesOfDisplayText(int lines);
    bool FoundOffsetMove() const { return foundOffsetMove_; }

    int GetColumnWidth() const { return columnWidth_; }
    int GetRowHeight() const { return rowHeight_; }
    int GetMinimumVerticalSeparation() const { return minVerticalSeparation_; }
    int GetMargin() const { return margin_; }
    int GetWideMargin() const { return wideMargin_; }
    int GetMediumMargin() const { return mediumMargin_; }
    int GetQuarterRow() const { return quarterRow_; }

    // ---- entries --------------------------------------------------------------------------
    /// Lays out `protocol`. `fixedComponents` lists local IDs (separated by commas, spaces
    /// or both) of components that must not move; an unknown ID throws
    /// "Did not find:<ID>" before anything is written. `changed` receives the components
    /// whose point, offset or sticky notes were written; `stickyNotesChanged` whether the
    /// protocol's own notes were rewritten. A component with a moved-from mark (a drag)
    /// gets a moved-to mark at its present point, and the layout consumes the drag: the
    /// moved-from mark goes when the results are written.
    void LayoutProtocol(tovan::iProtocolInfo* protocol, const tovan::WString& fixedComponents, BitsetValue& changed,
                        bool& stickyNotesChanged);
    /// Moves the components with these local IDs by (right, down), offsets included. With
    /// the protocol's auto-layout flag on, each move marks where the component started.
    void MoveProtocolComponents(tovan::iProtocolInfo* protocol, const std::vector<int32_t>& localIDs, int right,
                                int down, BitsetValue& changed);
    /// Places a component that was just connected, from its neighbours' places: the point
    /// written is that place, and the offset its upstream components' average offset.
    void PositionNewComponent(tovan::iProtocolInfo* protocol, tovan::iComponentInfo* component);

    // ---- networks -------------------------------------------------------------------------
    void LoadNetworks();
    int GetNumNetworks() const { return int(networks_.size()); }
    const Network& GetNetwork(int i) const;
    /// False for an empty network.
    bool GetNetworkExtent(int i, Extent& extent) const;
    bool NetworksOverlap(int i, int j) const;
    bool HasNetworkOverlap(int& i, int& j) const;
    bool IsFixed(int index) const { return fixed_[size_t(index)] != 0; }
    /// The components that move with `index`: the chain that hangs off it, each link the
    /// only successor of the one before and fed by nothing else.
    std::vector<int> GetMoveWith(int index) const;

    /// The cell a component claims (see the header comment).
    Extent ComponentExtent(int index) const;

protected:
    void SaveMovedTo();
    void RestoreMovedTo();
    void DefineFixedComponents(const tovan::WString& fixedComponents);
    void CalculateComponentsMoveWith();
    void InitialLayoutUsingDistanceFromStart(int n);
    void ProcessAllStacks(int n);
    void FixStartNodes(int n, bool allowMoveUp);
    void MoveStartNodesUpIfNeeded(int n, const std::vector<int>& order);
    void ProcessStack(int n, int k);
    void WidenStackSeparation(int n);
    void AddComponentOffsets(const std::vector<int>& members);
    void ShiftToStartingLeftTop(const std::vector<int>& members);
    void WrapLongPipelinesAfterLayout(int n, int wrap);
    void ProcessMovesToOffsets();
    void RemoveMovesFromStartNodesThatChangedOrder(const std::vector<int>& kept);
    void LayoutNetworks();
    void TuckNetworkUpIntoFixedNetwork(int fixedNetwork, int n, Extent& fixedExtent, Extent& extent);
    bool FixedNetworkAndNetworkOverlap(int fixedNetwork, int n, int moveUp) const;
    void MoveProtocolStickyNotesOnscreen();
    void AvoidProtocolStickyNotes(int n, Extent& extent);
    bool NetworkAndStickyNoteOverlap(int n, const StickyNote& note) const;
    bool NetworkAndRegionOverlap(int n, const Extent& region) const;
    void AvoidProtocolStickyNote(int n, int noteIndex, Extent& extent);
    void SaveComponentStickyNotes(BitsetValue& changed);
    void SaveProtocolStickyNotes();
    void SaveCoordinates(BitsetValue& written);

    /// Moves a component unless it is fixed.
    void MoveComponent(int c, int dx, int dy);
    void MoveNetwork(int n, int dx, int dy);

private:
    bool alignCenter_ = true;
    bool singleComponentLinearLayout_ = true;
    int failOnlyOffset_ = 0;
    bool acceptOffsetMoves_ = false;
    int wrapLongPipelines_ = 0;
    bool considerStickyNotes_ = true;
    int linesOfDisplayText_ = 3;
    bool foundOffsetMove_ = false;

    int columnWidth_ = 300;
    int rowHeight_ = 360;
    int minVerticalSeparation_ = 30;
    int margin_ = 37;
    int wideMargin_ = 120;
    int mediumMargin_ = 75;
    int quarterRow_ = 90;

    std::vector<Network> networks_;
    std::vector<int> networkOf_;
    std::vector<char> fixed_;
    std::vector<int> moveWithNext_;  // next link of the chain hanging off each component, or -1
    std::vector<int> stackOf_;       // stack of each component within its network
    std::vector<int> dragged_;  // components with a moved-from mark, increasing index
    std::vector<Point> movedFrom_, movedTo_;
    struct PreviousMark {
        int component;
        bool had;
        Point point;
    };
    std::vector<PreviousMark> previousMovedTo_;  // the marks SaveMovedTo replaced, for a failed layout
    std::vector<Point> finalOffset_;
    std::vector<int> walkScratch_;
};

}  // namespace nvk
