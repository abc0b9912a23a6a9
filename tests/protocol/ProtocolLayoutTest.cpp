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
    auto p = dragged();
    CProtocolLayoutUtils l;
    layout(l, p);
    EXPECT_TRUE(l.FoundOffsetMove());
    EXPECT_EQ(pointOf(p, 0), (Point{90, 95}));
    EXPECT_FALSE(p->getComponent(0)->hasAttribute(tovan::NVK_ComponentOffset));
    EXPECT_FALSE(p->getComponent(0)->hasAttribute(tovan::NVK_ComponentMovedFrom));

    auto q = dragged();
    l.SetAcceptOffsetMoves(true);
    layout(l, q);
    EXPECT_EQ(pointOf(q, 0), (Point{120, 95}));
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(q->getComponent(0)), (Point{30, 0}));
    Point to;
    EXPECT_TRUE(CProtocolUtils::GetComponentMovedTo(q->getComponent(0), to));
    EXPECT_EQ(to, (Point{120, 95}));
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
    // Third in A's downstream, one column on, with A's offset carried over.
    EXPECT_EQ(pointOf(p, 4), (Point{400, 835}));
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

TEST(ProtocolLayout, MustBeAboveSettlesInOneSweep) {
    // Layered protocols where each component feeds a few of the next layers, with fail
    // branches and two rings: siblings must keep protocol order top to bottom, in their own
    // stack and across stacks. Ordering each
    // stack by the present places alone could ask for a member above one that it must lie
    // below through members of other stacks, and every sweep then pushed such a ring of
    // components further down (64 times over). One order for the whole network moves each
    // component at most once.
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        const int n = 1000, width = 16;
        tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"layered"));
        for (int i = 0; i < n; ++i) {
            tovan::iComponentInfo* c = p->addComponent(i + 1, tovan::format(u"c%d", i + 1));
            c->setBoolAttribute(tovan::NVK_ComponentTakesInput, i >= width);
            c->setBoolAttribute(tovan::NVK_ComponentReturnsPass, true);
            c->setBoolAttribute(tovan::NVK_ComponentReturnsFail, true);
            c->setPointAttribute(tovan::NVK_ComponentPoint, {int32_t(rng() % 20000), int32_t(rng() % 20000)});
        }
        std::vector<int> feeder(size_t(n), -1);
        for (int i = width; i < n; ++i) {
            feeder[size_t(i)] = (i / width - 1) * width + int(rng() % width);
            p->addConnection({feeder[size_t(i)] + 1, i + 1, tovan::PortPass});
        }
        for (int i = 0; i < n; ++i)
            for (int f = int(rng() % 3); f > 0; --f) {
                const int target = (i / width + (rng() % 6 == 0 ? 2 : 1)) * width + int(rng() % width);
                if (target < n) p->addConnection({i + 1, target + 1, f == 1 && rng() % 5 == 0 ? tovan::PortFail : tovan::PortPass});
            }
        // Two rings: connections back to the feeder's feeder.
        for (int from : {n / 3, 2 * n / 3}) p->addConnection({from + 1, feeder[size_t(feeder[size_t(from)])] + 1, tovan::PortPass});

        DebugScope scope("LayoutMustBeAbove");
        CProtocolLayoutUtils l;
        layout(l, p);
        std::map<std::string, int> moves;
        for (const std::string& line : scope.capture.debugLines())
            if (line.rfind("LayoutMustBeAbove: CONSTRAINT:", 0) == 0) ++moves[line.substr(0, line.rfind(" by "))];
        for (const auto& [line, count] : moves) EXPECT_EQ(count, 1) << line;

        CProtocolUtils after;
        after.LoadProtocolComponents(p.get());
        std::vector<int> networkOf(static_cast<size_t>(n), 0);
        for (int k = 0; k < l.GetNumNetworks(); ++k)
            for (int c : l.GetNetwork(k).members) networkOf[size_t(c)] = k;
        for (int c = 0; c < n; ++c)
            for (int below : after.GetMustBeAboveList(c)) {
                if (networkOf[size_t(c)] != networkOf[size_t(below)]) continue;
                EXPECT_LT(CProtocolUtils::getLocationMetric(after.GetStoredPoint(c)),
                          CProtocolUtils::getLocationMetric(after.GetStoredPoint(below)));
            }
    }
}
