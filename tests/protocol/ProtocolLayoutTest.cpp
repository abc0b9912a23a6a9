// Automatic layout: stack placement, settings, fixed components, networks side by side or
// stacked, wrapping, sticky notes, drags, moving and placing components.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace nvktest;
using tovan::BitsetValue;
using Point = CProtocolUtils::Point;

namespace {

Point pointOf(const tovan::Ptr<CProtocolInfo>& p, int index) {
    return CProtocolUtils::GetComponentPoint(p->getComponent(index));
}

void expectPoints(const tovan::Ptr<CProtocolInfo>& p, std::initializer_list<std::pair<int, Point>> expected) {
    for (const auto& [index, point] : expected) EXPECT_EQ(pointOf(p, index), point) << "component " << index;
}

void layout(CProtocolLayoutUtils& l, const tovan::Ptr<CProtocolInfo>& p, const char16_t* fixed = u"") {
    BitsetValue changed;
    bool notes = false;
    l.LayoutProtocol(p.get(), fixed, changed, notes);
}

// A feeds B, C and D; B feeds E. Points scrambled on purpose.
tovan::Ptr<CProtocolInfo> fan() {
    return makeProtocol({{1, "A", 500, 500}, {2, "B", 10, 20}, {3, "C", 999, 30}, {4, "D", 0, 900}, {5, "E", 3, 3}},
                        {{1, 2}, {1, 3}, {1, 4}, {2, 5}});
}

// c0 feeds c1, which feeds c2, and so on.
tovan::Ptr<CProtocolInfo> pipeline(int length) {
    static const char* names[] = {"c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7", "c8", "c9", "c10", "c11"};
    std::vector<Comp> comps;
    std::vector<Conn> conns;
    for (int i = 0; i < length; ++i) comps.push_back({i + 1, names[i], i * 10, 0});
    for (int i = 1; i < length; ++i) conns.push_back({i, i + 1});
    return makeProtocol(comps, conns);
}

}  // namespace

TEST(ProtocolLayout, StacksSitInColumnsAndRows) {
    auto p = fan();
    CProtocolLayoutUtils l;
    l.SetAlignCenter(false);
    layout(l, p);
    expectPoints(p, {{0, {90, 95}}, {1, {390, 95}}, {2, {390, 455}}, {3, {390, 815}}, {4, {690, 95}}});
    ASSERT_EQ(l.GetNumNetworks(), 1);
    EXPECT_EQ(l.GetNetwork(0).stacks, (std::vector<std::vector<int>>{{0}, {1, 2, 3}, {4}}));

    // Centred, the fan spreads about A, and the whole network starts at (90, 95) again.
    CProtocolLayoutUtils centred;
    layout(centred, p);
    expectPoints(p, {{0, {90, 455}}, {1, {390, 95}}, {3, {390, 815}}, {4, {690, 95}}});
}

TEST(ProtocolLayout, SpacingFollowsLinesOfText) {
    // Row height and column width show in the points; the rest only here.
    CProtocolLayoutUtils l;
    EXPECT_EQ(l.GetQuarterRow(), 90);
    l.SetLinesOfDisplayText(1);
    EXPECT_EQ(l.GetMinimumVerticalSeparation(), 20);
    EXPECT_EQ(l.GetMediumMargin(), 75);
    auto p = fan();
    l.SetAlignCenter(false);
    layout(l, p);
    EXPECT_EQ(pointOf(p, 3), (Point{390, 575}));
}

TEST(ProtocolLayout, FixedComponentsStayPut) {
    auto p = fan();
    CProtocolLayoutUtils l;
    layout(l, p, u"2, 3,4");
    expectPoints(p, {{1, {10, 20}}, {2, {999, 30}}, {3, {0, 900}}});
    EXPECT_TRUE(l.IsFixed(1));

    std::string before = tovan::toNarrow(CProtocolFile::WriteText(p.get()));
    BitsetValue changed;
    bool notes = false;
    EXPECT_THROW_MSG(l.LayoutProtocol(p.get(), u"2,99", changed, notes), tovan::Exception, "Did not find:99");
    EXPECT_EQ(tovan::toNarrow(CProtocolFile::WriteText(p.get())), before);
}

TEST(ProtocolLayout, FixedComponentsWithOffsetsStayPutLayoutAfterLayout) {
    // B is fixed in a stack with an unfixed member, D is alone in a fixed stack, and both
    // carry offsets: each layout must save them where they were read, however often it runs.
    auto p = fan();
    CProtocolUtils::SetComponentOffset(p->getComponent(1), {15, -25});
    CProtocolUtils::SetComponentOffset(p->getComponent(4), {-7, 40});
    CProtocolLayoutUtils l;
    std::vector<Point> firstRun;
    for (int run = 0; run < 3; ++run) {
        SCOPED_TRACE(run);
        layout(l, p, u"2,5");
        expectPoints(p, {{1, {10, 20}}, {4, {3, 3}}});
        EXPECT_EQ(CProtocolUtils::GetComponentOffset(p->getComponent(1)), (Point{15, -25}));
        EXPECT_EQ(CProtocolUtils::GetComponentOffset(p->getComponent(4)), (Point{-7, 40}));
        std::vector<Point> points;
        for (int c = 0; c < 5; ++c) points.push_back(pointOf(p, c));
        if (run == 0) firstRun = points;
        EXPECT_EQ(points, firstRun);  // the free components settle too
    }
}

TEST(ProtocolLayout, UnconnectedPortlessComponentsShareARowOrStack) {
    auto p = makeProtocol({{1, "Note", 400, 400, ""}, {2, "Other", 0, 0, ""}}, {});
    CProtocolLayoutUtils l;
    layout(l, p);
    expectPoints(p, {{0, {90, 95}}, {1, {390, 125}}});  // one column on, a minimum separation lower
    l.SetSingleComponentLinearLayout(false);
    layout(l, p);
    expectPoints(p, {{0, {90, 95}}, {1, {90, 455}}});
}

TEST(ProtocolLayout, NetworksStackAndTuckIntoFreeSpace) {
    // Network 0 is a chain going down-right; network 1 (one component with ports) fits
    // beside its lower part, so it is tucked up but no higher than network 0's top.
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}, {3, "C", 600, 0}, {4, "D", 0, 0}, {5, "Lone", 0, 0}},
                          {{1, 2}, {2, 3}, {1, 4}});
    CProtocolLayoutUtils l;
    l.SetAlignCenter(false);
    DebugScope scope("LayoutNetwork");
    layout(l, p);
    ASSERT_EQ(l.GetNumNetworks(), 2);
    int i = 0, j = 0;
    EXPECT_FALSE(l.HasNetworkOverlap(i, j));
    // D sits under B in stack 1; the lone component goes under A, in column 0.
    expectPoints(p, {{3, {390, 455}}, {4, {90, 455}}});
    const std::vector<std::string> lines = scope.capture.debugLines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "LayoutNetwork: Network 1: move up -360 was OK"), lines.end());
}

TEST(ProtocolLayout, NetworksTuckAgainstTheNetworkAboveOnly) {
    // Network 0 leaves room under A (one row, A centred between B and C), and the lone D
    // tucks into it. Network 2's E sits a row below its first child F, so E meets D only
    // when F has risen a whole row beside D, into C: the search rises as far as the
    // limit (D's top) and tests D alone, so F ends inside network 0's C.
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 0, 0}, {3, "C", 0, 0}, {4, "D", 0, 0}, {5, "E", 0, 0},
                           {6, "F", 0, 0}, {7, "G", 0, 0}, {8, "H", 0, 0}},
                          {{1, 2}, {1, 3}, {5, 6}, {5, 7}, {5, 8}});
    CProtocolLayoutUtils l;
    layout(l, p);
    ASSERT_EQ(l.GetNumNetworks(), 3);
    expectPoints(p, {{0, {90, 275}}, {2, {390, 455}}, {3, {90, 635}}, {4, {90, 996}}, {5, {390, 636}}});
    int i = -1, j = -1;
    EXPECT_TRUE(l.HasNetworkOverlap(i, j));
    EXPECT_EQ(std::pair(i, j), std::pair(0, 2));
}

TEST(ProtocolLayout, LongPipelinesWrap) {
    auto p = pipeline(12);
    CProtocolLayoutUtils l;
    l.SetWrapLongPipelines(6);
    layout(l, p);
    expectPoints(p, {{6, {1890, 95}}, {7, {1290, 635}}, {9, {1890, 635}}, {10, {1290, 1175}}, {11, {1590, 1175}}});

    // With W = 5 the row would be 5 - 4 + 1 = 2 stacks long: too short, nothing moves.
    auto q = pipeline(8);
    CProtocolLayoutUtils five;
    five.SetWrapLongPipelines(5);
    layout(five, q);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(pointOf(q, i), (Point{90 + 300 * i, 95}));
}

TEST(ProtocolLayout, StickyNotesAreAvoidedAndSaved) {
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}}, {{1, 2}},
                          "\"stickyNotes\":[\"%VERSION 3%\",\"100 -100 200 100\",\"in the way\",\"\"]");
    CProtocolLayoutUtils l;
    BitsetValue changed;
    bool notes = true;
    l.LayoutProtocol(p.get(), u"", changed, notes);
    // Moving the network down 142 units is the smallest of the four ways out.
    EXPECT_EQ(pointOf(p, 0), (Point{90, 237}));
    EXPECT_FALSE(notes);

    auto q = makeProtocol({{1, "A", 0, 0}}, {}, "\"stickyNotes\":[\"%VERSION 3%\",\"2000 50 100 100\",\"up\",\"s\"]");
    DebugScope scope("LayoutProtocolStickyNotes");
    l.LayoutProtocol(q.get(), u"", changed, notes);
    EXPECT_TRUE(notes);
    std::vector<tovan::WString> stored;
    ASSERT_TRUE(q->getTextArrayAttribute(tovan::NVK_ProtocolStickyNotes, stored));
    EXPECT_EQ(stored, (std::vector<tovan::WString>{u"%VERSION 3%", u"2000 0 100 100", u"up", u"s"}));
    std::vector<std::string> lines = scope.capture.debugLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "LayoutProtocolStickyNotes: TOP violated: TBLR -50 50 2000 2100");
    EXPECT_EQ(lines[1], "LayoutProtocolStickyNotes: NEW position: TBLR 0 100 2000 2100");
}

TEST(ProtocolLayout, PhasesRunInOrder) {
    auto p = fan();
    CProtocolLayoutUtils l;
    DebugScope scope("LayoutProtocol");
    layout(l, p);
    std::vector<std::string> expected{
        "LayoutProtocol: rule DistanceFromStartNode wantFurthest 1",
        "LayoutProtocol: [LoadProtocolComponents]",
        "LayoutProtocol: [DefineFixedComponents]",
        "LayoutProtocol: [LoadNetworks]",
        "LayoutProtocol: [CalculateComponentsMoveWith]",
        "LayoutProtocol: [InitialLayoutUsingDistanceFromStart: net 0]",
        "LayoutProtocol: [ProcessAllStacks: net 0]",
        "LayoutProtocol: [LayoutNetworks]",
        "LayoutProtocol: [SaveComponentStickyNotes]",
        "LayoutProtocol: [SaveCoordinates]",
        "LayoutProtocol: END LAYOUT",
    };
    EXPECT_EQ(scope.capture.debugLines(), expected);
}

TEST(ProtocolLayout, DraggedStartNodeKeepsItsMoveAsAnOffset) {
    auto dragged = [] {
        auto p = makeProtocol({{1, "A", 120, 95, "p"}, {2, "B", 390, 95}}, {{1, 2}});
        CProtocolUtils::SetComponentMovedFrom(p->getComponent(0), {90, 95});
        return p;
    };
    // Layout marks where each drag ended, and the drag is consumed: its start mark goes.
    auto expectMarks = [](const tovan::Ptr<CProtocolInfo>& p) {
        Point to;
        EXPECT_FALSE(p->getComponent(0)->hasAttribute(tovan::NVK_ComponentMovedFrom));
        EXPECT_TRUE(CProtocolUtils::GetComponentMovedTo(p->getComponent(0), to));
        EXPECT_EQ(to, (Point{120, 95}));
    };
    auto p = dragged();
    CProtocolLayoutUtils l;
    BitsetValue changed;
    bool notes = false;
    l.LayoutProtocol(p.get(), u"", changed, notes);
    EXPECT_TRUE(l.FoundOffsetMove());
    EXPECT_EQ(pointOf(p, 0), (Point{90, 95}));
    EXPECT_FALSE(p->getComponent(0)->hasAttribute(tovan::NVK_ComponentOffset));
    expectMarks(p);
    EXPECT_EQ(changed.count(), 1u);  // A's point; B did not move, and marks do not count

    auto q = dragged();
    l.SetAcceptOffsetMoves(true);
    layout(l, q);
    EXPECT_EQ(pointOf(q, 0), (Point{120, 95}));
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(q->getComponent(0)), (Point{30, 0}));
    expectMarks(q);
    // The drag was consumed: the next layouts keep the offset as it is. (Seen again, the
    // start node's drag would add itself to the offset once more on every layout.) The
    // network is shifted back to the left edge, A with it, as for any offset.
    for (int run = 0; run < 2; ++run) {
        layout(l, q);
        EXPECT_FALSE(l.FoundOffsetMove());
        EXPECT_EQ(pointOf(q, 0), (Point{90, 95}));
        EXPECT_EQ(CProtocolUtils::GetComponentOffset(q->getComponent(0)), (Point{30, 0}));
    }

    // A layout that fails leaves no moved-to mark behind, nor changes an earlier one.
    auto r = dragged();
    const std::string before = tovan::toNarrow(CProtocolFile::WriteText(r.get()));
    EXPECT_THROW_FROM(l.LayoutProtocol(r.get(), u"7", changed, notes), tovan::Exception,
                      "CProtocolLayoutUtils::DefineFixedComponents: Did not find:7");
    EXPECT_EQ(tovan::toNarrow(CProtocolFile::WriteText(r.get())), before);
    CProtocolUtils::SetComponentMovedTo(r->getComponent(0), {1, 2});
    const std::string marked = tovan::toNarrow(CProtocolFile::WriteText(r.get()));
    EXPECT_THROW_FROM(l.LayoutProtocol(r.get(), u"7", changed, notes), tovan::Exception,
                      "CProtocolLayoutUtils::DefineFixedComponents: Did not find:7");
    EXPECT_EQ(tovan::toNarrow(CProtocolFile::WriteText(r.get())), marked);
}

TEST(ProtocolLayout, MoveProtocolComponents) {
    auto p = fan();
    CProtocolLayoutUtils l;
    BitsetValue changed;
    EXPECT_THROW_MSG(l.MoveProtocolComponents(p.get(), {}, 10, 10, changed), tovan::Exception,
                     "Was not passed any local IDs");
    EXPECT_THROW_MSG(l.MoveProtocolComponents(p.get(), {2, 5, 42}, 10, 10, changed), tovan::Exception,
                     "Did not find localID 42");
    EXPECT_EQ(pointOf(p, 1), (Point{10, 20}));
    CProtocolUtils::SetComponentOffset(p->getComponent(1), {5, 5});
    l.MoveProtocolComponents(p.get(), {2}, 100, -20, changed);
    EXPECT_EQ(pointOf(p, 1), (Point{110, 0}));
    EXPECT_FALSE(p->getComponent(1)->hasAttribute(tovan::NVK_ComponentMovedFrom));
    EXPECT_EQ(changed.count(), 1u);

    CProtocolUtils::SetProtocolAutoLayout(p.get(), true);
    l.MoveProtocolComponents(p.get(), {2}, 1, 1, changed);
    Point from;
    ASSERT_TRUE(CProtocolUtils::GetComponentMovedFrom(p->getComponent(1), from));
    EXPECT_EQ(from, (Point{110, 0}));
    EXPECT_EQ(pointOf(p, 1), (Point{111, 1}));
    // A second move before any layout marks its own start.
    l.MoveProtocolComponents(p.get(), {2}, 4, 4, changed);
    ASSERT_TRUE(CProtocolUtils::GetComponentMovedFrom(p->getComponent(1), from));
    EXPECT_EQ(from, (Point{111, 1}));
    EXPECT_EQ(pointOf(p, 1), (Point{115, 5}));
}

TEST(ProtocolLayout, PositionNewComponent) {
    auto p = makeProtocol({{1, "A", 90, 95}, {2, "B", 390, 95}, {3, "C", 390, 455}, {4, "New", 0, 0}, {5, "Lost", 0, 0}},
                          {{1, 2}, {1, 3}, {4, 2}, {4, 3}});
    CProtocolLayoutUtils l;
    l.PositionNewComponent(p.get(), p->getComponent(3));
    EXPECT_EQ(pointOf(p, 3), (Point{90, 275}));  // a column before the average of B and C
    CProtocolUtils::SetComponentOffset(p->getComponent(0), {10, 20});
    CProtocolUtils::SetComponentPoint(p->getComponent(0), {100, 115});
    p->addConnection({1, 5, tovan::PortFail});
    l.PositionNewComponent(p.get(), p->getComponent(4));
    // Third in A's downstream, one column on from A without its offset; the offset is
    // carried over but not added to the point written.
    EXPECT_EQ(pointOf(p, 4), (Point{390, 815}));
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(p->getComponent(4)), (Point{10, 20}));
    tovan::iComponentInfo* alone = p->addComponent(6, u"Alone");
    EXPECT_THROW_MSG(l.PositionNewComponent(p.get(), alone), tovan::Exception,
                     "Unexpected pipe configuration - please contact Orvenda Support");
}

TEST(ProtocolLayout, DanglingOutputWidensTheGapToTheNextStack) {
    // Y has a pass port with nothing connected; Z's three children are centred about Z, so
    // the first lands level with Y one column on, where Y's port stub would meet it.
    auto p = makeProtocol({{1, "S", 0, 0}, {3, "Y", 0, 0}, {4, "Z", 0, 0}, {5, "W1", 0, 0}, {6, "W2", 0, 0},
                           {7, "W3", 0, 0}},
                          {{1, 3}, {1, 4}, {4, 5}, {4, 6}, {4, 7}});
    CProtocolLayoutUtils l;
    layout(l, p);
    expectPoints(p, {{1, {390, 95}}, {3, {765, 95}}, {5, {765, 815}}});  // 300 + the medium margin of 75

    // Without the dangling port there is nothing to widen for.
    p->getComponent(1)->setBoolAttribute(tovan::NVK_ComponentReturnsPass, false);
    p->getComponent(1)->setBoolAttribute(tovan::NVK_ComponentReturnsFail, false);
    layout(l, p);
    EXPECT_EQ(pointOf(p, 3), (Point{690, 95}));
}

TEST(ProtocolLayout, OffsetsComeBackAfterLayout) {
    auto p = makeProtocol({{1, "A", 500, 500}, {2, "B", 0, 0}}, {{1, 2}});
    CProtocolUtils::SetComponentOffset(p->getComponent(1), {10, 40});
    CProtocolLayoutUtils l;
    layout(l, p);
    expectPoints(p, {{0, {90, 95}}, {1, {400, 135}}});
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(p->getComponent(1)), (Point{10, 40}));
    layout(l, p);  // a second layout leaves it where it is
    EXPECT_EQ(pointOf(p, 1), (Point{400, 135}));
}

TEST(ProtocolLayout, OrderAcrossStacksIsLeftWhereAlignmentPutsIt) {
    // A feeds B, C, D and E, so each must lie above the next; B feeds C and D too, which
    // puts them one stack further on. D lines up below C there, lower than E in the stack
    // before: layout leaves D below E rather than pushing E down after the stacks are
    // aligned.
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 0, 0}, {3, "C", 0, 0}, {4, "D", 0, 0}, {5, "E", 0, 0}},
                          {{1, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 3}, {2, 4}});
    CProtocolLayoutUtils l;
    DebugScope scope("LayoutMustBeAbove");
    layout(l, p);
    expectPoints(p, {{0, {90, 275}}, {1, {390, 95}}, {2, {765, 125}}, {3, {765, 485}}, {4, {390, 455}}});
    CProtocolUtils after;
    after.LoadProtocolComponents(p.get());
    EXPECT_EQ(after.GetMustBeAboveList(3), std::vector<int>{4});
    for (const std::string& line : scope.capture.debugLines()) EXPECT_EQ(line.find("CONSTRAINT"), std::string::npos) << line;
}
