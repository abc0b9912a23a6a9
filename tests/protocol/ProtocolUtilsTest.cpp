// Perception: adjacency, start nodes, rings and chains, assemblies, distances, sticky notes,
// execution order and drags.
#include <gtest/gtest.h>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace nvktest;
using tovan::BitsetValue;

namespace {

std::vector<int> members(const BitsetValue& set) {
    std::vector<int> out;
    set.forEachSetBit([&](size_t i) { out.push_back(int(i)); });
    return out;
}

// Perception of a protocol as loaded.
struct Perceived : CProtocolUtils {
    explicit Perceived(const tovan::Ptr<CProtocolInfo>& p) { LoadProtocolComponents(p.get()); }
};

}  // namespace

TEST(ProtocolPerception, SingleUnconnectedComponent) {
    auto p = makeProtocol({{7, "Only", 10, 10, ""}}, {});
    Perceived u(p);
    EXPECT_EQ(u.GetNumStartNodes(), 1);
    ASSERT_EQ(u.GetAssemblies().size(), 1u);
    EXPECT_EQ(members(u.GetAssemblies()[0].components), std::vector<int>{0});
    EXPECT_EQ(u.GetDistance(0), 0);
    EXPECT_EQ(members(u.GetUnconnectedComponents()), std::vector<int>{0});
    EXPECT_FALSE(u.HasLoops());
}

TEST(ProtocolPerception, AdjacencySetsAndNames) {
    // A feeds B by pass and C by fail; B feeds C.
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}, {3, "C", 300, 300}},
                          {{1, 2, "pass"}, {1, 3, "fail"}, {2, 3, "pass"}});
    Perceived u(p);
    using U = CProtocolUtils;
    const std::tuple<int, int, std::vector<int>> adjacent[] = {
        {2, U::AdjAll, {0, 1}},       {2, U::AdjInput, {0, 1}}, {0, U::AdjPassOrFail, {1, 2}}, {2, U::AdjInputFromPass, {1}},
        {2, U::AdjInputFromFail, {0}}, {0, U::AdjPass, {1}},    {0, U::AdjFail, {2}}};
    for (const auto& [c, flag, expected] : adjacent) EXPECT_EQ(members(u.GetAdjacent(c, flag)), expected) << flag;
    for (auto [flag, name] : {std::pair{2, u"Pass or Fail"}, {4, u"Input from Fail"}, {7, u"???"}})
        EXPECT_EQ(std::u16string(U::GetAdjacencyName(flag)), name);
    EXPECT_THROW_MSG(u.GetAdjacent(0, 7), tovan::Exception, "Unrecognized adjacent flag");
    EXPECT_THROW_MSG(u.GetPoint(3), tovan::InvalidIndexException, "Index 3 is out of range (last valid index 2)");
    // Siblings fed by A run in protocol order: B above C.
    EXPECT_EQ(members(u.GetMustBeAbove(1)), std::vector<int>{2});
    EXPECT_EQ(members(u.GetMustBeBelow(2)), std::vector<int>{1});
    EXPECT_EQ(u.FindConnection(0, 2, tovan::PortFail), 1);
    EXPECT_EQ(u.FindConnection(0, 2, tovan::PortPass), -1);
    EXPECT_EQ(u.GetDistance(2), 2);  // the furthest path A-B-C
    u.SetXPositionAlgorithm(CProtocolUtils::DistanceFromStartNode, false);
    u.LoadProtocolComponents(p.get());
    EXPECT_EQ(u.GetDistance(2), 1);
}

TEST(ProtocolPerception, UnknownLocalIDsAbortTheLoad) {
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"flow"));
    p->addComponent(1, u"A");
    p->addComponent(2, u"B");
    p->addConnection({1, 2, tovan::PortPass});
    p->getComponent(1)->setIntAttribute(tovan::NVK_ComponentLocalID, 9);
    CProtocolUtils u;
    EXPECT_THROW_MSG(u.LoadProtocolComponents(p.get()), tovan::Exception,
                     "Did not find TO local ID in protocol flow: 2 (IDs: 1 9)\n");
    p->getComponent(1)->setIntAttribute(tovan::NVK_ComponentLocalID, 2);
    p->getComponent(0)->setIntAttribute(tovan::NVK_ComponentLocalID, 5);
    EXPECT_THROW_MSG(u.LoadProtocolComponents(p.get()), tovan::Exception,
                     "Did not find FROM local ID in protocol flow: 1\n");
    EXPECT_THROW_MSG(u.LoadProtocolComponents(nullptr), tovan::Exception, "Cannot dereference a NULL pointer");
}

TEST(ProtocolPerception, RingsAndChains) {
    // A pure ring: every member has an upstream. The start is the smallest initial X, and
    // the lower index wins a tie (B and C share X = 50).
    auto ring = makeProtocol({{1, "A", 200, 0}, {2, "B", 50, 0}, {3, "C", 50, 300}}, {{1, 2}, {2, 3}, {3, 1}});
    Perceived u(ring);
    EXPECT_EQ(u.GetNumStartNodes(), 0);
    for (auto [c, distance] : {std::pair{1, 0}, {2, 1}, {0, 2}}) EXPECT_EQ(u.GetDistance(c), distance) << c;
    EXPECT_EQ(members(u.GetLoopConnections()), std::vector<int>{0});  // A -> B closes the loop seen from B
    EXPECT_TRUE(u.HasLoops());
    EXPECT_EQ(members(u.GetRingComponents()), (std::vector<int>{0, 1, 2}));

    // Two components connected both ways stay ring components; the tail hanging off is a chain.
    auto pair = makeProtocol({{1, "S", 0, 0}, {2, "X", 300, 0}, {3, "Y", 600, 0}, {4, "T", 900, 0}},
                             {{1, 2}, {2, 3}, {3, 2, "fail"}, {3, 4}});
    u.LoadProtocolComponents(pair.get());
    EXPECT_EQ(members(u.GetRingComponents()), (std::vector<int>{1, 2}));
    EXPECT_EQ(members(u.GetChainComponents()), (std::vector<int>{0, 3}));
    // An unconnected component never joins the chain set, so it counts among the ring
    // components, though no ring connection or assembly reaches it.
    auto withLone = makeProtocol({{1, "S", 0, 0}, {2, "X", 300, 0}, {3, "Lone", 0, 400}, {4, "Y", 600, 0}},
                                 {{1, 2}, {2, 4}, {4, 2, "fail"}});
    Perceived lone(withLone);
    EXPECT_EQ(members(lone.GetUnconnectedComponents()), std::vector<int>{2});
    EXPECT_EQ(members(lone.GetRingComponents()), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(members(lone.GetChainComponents()), std::vector<int>{0});
    EXPECT_EQ(members(lone.GetRingConnections()), (std::vector<int>{1, 2}));
    EXPECT_EQ(members(u.GetChainRingConnections()), (std::vector<int>{0, 3}));
    EXPECT_TRUE(u.GetChainChainConnections().none());
    // Two single components hang off the ring, then the ring itself.
    ASSERT_EQ(u.GetAssemblies().size(), 3u);
    EXPECT_EQ(members(u.GetAssemblies()[0].components), std::vector<int>{0});
    EXPECT_EQ(members(u.GetAssemblies()[1].components), std::vector<int>{3});
    EXPECT_FALSE(u.GetAssemblies()[2].isChain);
    EXPECT_EQ(members(u.GetAssemblies()[2].components), (std::vector<int>{1, 2}));
    EXPECT_EQ(members(u.GetLoopConnections()), std::vector<int>{2});
}

TEST(ProtocolPerception, ChainAssembliesGroupByConnections) {
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}, {3, "C", 600, 0}, {4, "D", 0, 400}, {5, "E", 300, 400}},
                          {{1, 2}, {2, 3}, {4, 5}});
    Perceived u(p);
    ASSERT_EQ(u.GetAssemblies().size(), 2u);
    EXPECT_TRUE(u.GetAssemblies()[0].isChain);
    EXPECT_EQ(members(u.GetAssemblies()[0].components), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(members(u.GetAssemblies()[1].components), (std::vector<int>{3, 4}));
    // Relative positions follow the chain: columns 0, 1, 2 in row 0.
    const auto& rel = u.GetAssemblies()[0].relativePositions;
    ASSERT_EQ(rel.size(), 3u);
    EXPECT_EQ(rel[2].second, (CProtocolUtils::Point{2, 0}));
}

TEST(ProtocolPerception, ExecutionOrderPutsSmallerYFirst) {
    auto p = makeProtocol({{1, "A", 5, 1, ""}, {2, "B", 0, 2, ""}, {3, "C", -4, 1, ""}}, {});
    Perceived u(p);
    std::vector<unsigned> order{1, 0, 2};
    u.SortInExecutionOrder(order);
    EXPECT_EQ(order, (std::vector<unsigned>{2, 0, 1}));
    EXPECT_EQ(CProtocolUtils::Distance(0, 0, 3, 4), 5);
    EXPECT_EQ(CProtocolUtils::Distance(0, 0, 1, 1), 1);  // 1.414 truncated
}

TEST(ProtocolPerception, StickyNotes) {
    const std::string notes =
        "\"stickyNotes\":[\"%VERSION 3%\",\"40 -30 220 90\",\"first\",\"s1\",\"5 6 7 8\",\"second\",\"s2\",\"x\"]";
    auto p = makeProtocol({{1, "A", 100, 200}}, {}, notes);
    p->getComponent(0)->setTextArrayAttribute(tovan::NVK_ComponentStickyNotes,
                                              {u"%VERSION 3%", u"130 -260 220 90", u"mine", u""});
    Perceived u(p);
    ASSERT_EQ(u.GetProtocolStickyNotes().size(), 2u);  // seven elements after the version: two notes
    const auto& first = u.GetStickyNotes()[size_t(u.GetProtocolStickyNotes()[0])];
    EXPECT_EQ(first.extent, (CProtocolUtils::Extent{30, 120, 40, 260}));
    EXPECT_EQ(first.text2, tovan::WString(u"first"));
    EXPECT_TRUE(first.isProtocolNote);
    ASSERT_EQ(u.GetComponentStickyNotes(0).size(), 1u);
    const auto& mine = u.GetStickyNotes()[size_t(u.GetComponentStickyNotes(0)[0])];
    // Vertical: negated and carrying the owner's Y; horizontal: less the owner's X.
    EXPECT_EQ(mine.extent, (CProtocolUtils::Extent{60, 150, 30, 250}));
    EXPECT_EQ(mine.owner, 0);
    EXPECT_EQ(CProtocolUtils::StickyNoteGeometry(mine.extent, {100, 200}), tovan::WString(u"130 -260 220 90"));
    EXPECT_FALSE(u.ProtocolStickyNotesChanged());
    // With an offset, the owner's point is the one perception sees, the offset taken off.
    CProtocolUtils::SetComponentOffset(p->getComponent(0), {20, -50});
    u.LoadProtocolComponents(p.get());
    const auto& shifted = u.GetStickyNotes()[size_t(u.GetComponentStickyNotes(0)[0])];
    EXPECT_EQ(shifted.extent, (CProtocolUtils::Extent{10, 100, 50, 270}));  // point (80, 250)
    CProtocolUtils::RemoveComponentOffset(p->getComponent(0));
    u.LoadProtocolComponents(p.get());
    EXPECT_EQ(CProtocolUtils::GetNumStickyNotes(p.get()), 2);
    tovan::WString t1, t2, t3;
    CProtocolUtils::GetIthStickyNote(p.get(), 1, t1, t2, t3);
    EXPECT_EQ(t1, tovan::WString(u"5 6 7 8"));
    CProtocolUtils::DeleteIthStickyNote(p.get(), 0);
    EXPECT_EQ(CProtocolUtils::GetNumStickyNotes(p.get()), 1);
    EXPECT_THROW_MSG(CProtocolUtils::GetIthStickyNote(p.get(), 1, t1, t2, t3), tovan::InvalidIndexException,
                     "Index 1 is out of range (last valid index 0)");

    p->setTextArrayAttribute(tovan::NVK_ProtocolStickyNotes, {u""});
    u.LoadProtocolComponents(p.get());
    EXPECT_TRUE(u.GetProtocolStickyNotes().empty());
    p->setTextArrayAttribute(tovan::NVK_ProtocolStickyNotes, {u"%VERSION 2%", u"1 2 3 4", u"a", u"b"});
    EXPECT_THROW_MSG(u.LoadProtocolComponents(p.get()), tovan::Exception,
                     "Cannot handle older-version sticky notes yet :(");
}

TEST(ProtocolPerception, DragsBecomeOffsetsOrOrderChanges) {
    // A feeds B (above) and C (below).
    auto p = makeProtocol({{1, "A", 90, 95}, {2, "B", 390, 95}, {3, "C", 390, 455}}, {{1, 2}, {1, 3}});
    tovan::iComponentInfo* b = p->getComponent(1);
    CProtocolUtils::SetComponentMovedFrom(b, {390, 95});
    CProtocolUtils::SetComponentPoint(b, {420, 125});
    Perceived u(p);
    EXPECT_FALSE(u.ProcessMovedFrom());
    EXPECT_EQ(u.GetPoint(1), (CProtocolUtils::Point{390, 95}));
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(b), (CProtocolUtils::Point{30, 30}));
    CProtocolUtils::Point mark;
    EXPECT_FALSE(CProtocolUtils::GetComponentMovedFrom(b, mark));

    // Dragging B below C reorders A's siblings: the point moves and the offset clears.
    CProtocolUtils::RemoveComponentOffset(b);
    CProtocolUtils::SetComponentMovedFrom(b, {390, 95});
    CProtocolUtils::SetComponentPoint(b, {390, 600});
    DebugScope scope("LayoutMoveComponents");
    u.LoadProtocolComponents(p.get());
    EXPECT_TRUE(u.ProcessMovedFrom());
    EXPECT_EQ(u.GetPoint(1), (CProtocolUtils::Point{390, 600}));
    EXPECT_EQ(CProtocolUtils::GetComponentOffset(b), (CProtocolUtils::Point{0, 0}));
    std::vector<std::string> lines = scope.capture.debugLines();
    std::vector<std::string> expected{
        "LayoutMoveComponents: PMF: MOVE request \"B\" R 0 D 505",
        "LayoutMoveComponents: PMF: EXISTING offset \"B\" R 0 D 0",
        "LayoutMoveComponents: PMF: MOVE request CHANGED processing order",
        "LayoutMoveComponents: PMF: processing order changed, setting location of B to XY 390 600",
    };
    EXPECT_EQ(lines, expected);
    EXPECT_FALSE(u.ProcessMovedFrom());  // the marks are gone
}

TEST(ProtocolPerception, StartNodeOrderAndDebugLines) {
    DebugScope scope("PerceiveStartNodes,OffsetChangesExecutionOrder");
    auto p = makeProtocol({{1, "S1", 90, 95, "p"}, {2, "S2", 90, 455, "p"}, {3, "T", 390, 95}}, {{1, 3}, {2, 3}});
    Perceived u(p);
    EXPECT_EQ(u.GetStartNodes(), (std::vector<int>{0, 1}));
    EXPECT_FALSE(u.OffsetChangesExecutionOrder(1, std::vector<int>{0, 0, 0}, std::vector<int>{0, 100, 0}));
    EXPECT_TRUE(u.OffsetChangesExecutionOrder(1, std::vector<int>{0, 0, 0}, std::vector<int>{0, -400, 0}));
    std::vector<std::string> lines = scope.capture.debugLines();
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0], "PerceiveStartNodes: SN: \"S1\" must be above \"S2\"");
    EXPECT_EQ(lines[1], "OffsetChangesExecutionOrder: found StartNode");
    EXPECT_EQ(lines[2], "OffsetChangesExecutionOrder: OCEO: S2: before XY 90 455 metric 7633633370 after XY 90 555 "
                        "metric 9311354970");
    EXPECT_EQ(lines.back(), "OffsetChangesExecutionOrder: start node order CHANGED");
}

TEST(ProtocolPerception, SetHelpers) {
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}, {3, "C", 600, 0}, {4, "D", 900, 0}},
                          {{1, 2}, {2, 3}, {3, 4}, {1, 4, "fail"}});
    Perceived u(p);
    BitsetValue set;
    tovan::WString error;
    ASSERT_TRUE(u.ConvertIDsToBitset({u"2", u" 3"}, set, error));
    EXPECT_EQ(members(set), (std::vector<int>{1, 2}));
    EXPECT_FALSE(u.ConvertIDsToBitset({u"2", u"77"}, set, error));
    EXPECT_EQ(error, tovan::WString(u"Did not find:77"));
    ASSERT_TRUE(u.ConvertIDsToBitset({u"2", u"3"}, set, error));
    BitsetValue in, out;
    u.GetSubsetInputsAndOutputs(set, in, out);
    EXPECT_EQ(members(in), std::vector<int>{0});
    EXPECT_EQ(members(out), std::vector<int>{3});
    EXPECT_TRUE(u.IsConnected(set));
    EXPECT_TRUE(u.IsSeparableUpstream(set));
    std::vector<int> from, to;
    std::vector<tovan::Port> port;
    std::vector<bool> isInput;
    u.GetExternalConnections(set, from, to, port, isInput);
    EXPECT_EQ(from, (std::vector<int>{0, 2}));
    EXPECT_EQ(isInput, (std::vector<bool>{true, false}));
    u.GetInternalConnections(set, from, to, port);
    EXPECT_EQ(to, std::vector<int>{2});
    // B and D are not joined inside the set; A-B-C with D's input fed from outside loops back.
    ASSERT_TRUE(u.ConvertIDsToBitset({u"2", u"4"}, set, error));
    EXPECT_FALSE(u.IsConnected(set));
    EXPECT_FALSE(u.IsSeparableUpstream(set));
    tovan::WString text;
    u.ComponentSetText(set, text);
    EXPECT_EQ(text, tovan::WString(u"\"B\", \"D\""));
    u.ComponentSetText(BitsetValue(), text);
    EXPECT_EQ(text, tovan::WString(u"Empty"));
    CProtocolUtils::Point center;
    EXPECT_TRUE(u.GetSubsetCenter(set, center));
    EXPECT_EQ(center, (CProtocolUtils::Point{600, 0}));
    EXPECT_EQ(u.FindNearestComponent({-10, 10, 500, 700}), 2);
    EXPECT_EQ(u.FindNearestComponent({-10, 10, 250, 300}), 1);
}

TEST(ProtocolEditing, DeleteDisconnectAndGroups) {
    auto p = makeProtocol({{1, "A", 0, 0}, {2, "B", 300, 0}, {3, "C", 600, 0}}, {{1, 2}, {2, 3}, {1, 3, "fail"}});
    std::vector<int32_t> removed;
    std::vector<tovan::ConnectionInfo> cut;
    EXPECT_THROW_MSG(CProtocolUtils::deleteComponents(p.get(), {2, 8}, removed, cut), tovan::Exception,
                     "Did not find localID 8");
    EXPECT_EQ(p->getNumComponents(), 3);
    CProtocolUtils::deleteComponents(p.get(), {2}, removed, cut);
    EXPECT_EQ(removed, std::vector<int32_t>{2});
    EXPECT_EQ(cut.size(), 2u);
    EXPECT_EQ(p->getNumConnections(), 1);
    EXPECT_EQ(CProtocolUtils::disconnectComponents(p.get(), 1, 3, tovan::PortPass), 0);
    EXPECT_EQ(CProtocolUtils::disconnectComponents(p.get(), 1, 3, tovan::PortFail), 1);

    // Groups: top > G1 > G2 > X, with X marked invalid.
    tovan::Ptr<CProtocolInfo> inner(new CProtocolInfo(u"inner")), middle(new CProtocolInfo(u"middle"));
    tovan::iComponentInfo* x = inner->addComponent(1, u"X");
    x->setBoolAttribute(tovan::NVK_ComponentInvalidParameters, true);
    tovan::iComponentInfo* g2 = middle->addComponent(1, u"G2");
    g2->setSubprotocol(inner.get());
    tovan::iComponentInfo* g1 = p->addComponent(9, u"G1");
    g1->setSubprotocol(middle.get());
    EXPECT_EQ(CProtocolUtils::OpenGroupsWithInvalidParameters(g1), 2);
    bool open = false;
    EXPECT_TRUE(g1->getBoolAttribute(tovan::NVK_ComponentGroupOpen, open) && open);
    EXPECT_TRUE(g2->getBoolAttribute(tovan::NVK_ComponentGroupOpen, open) && open);
    EXPECT_EQ(CProtocolUtils::OpenGroupAndParents(x, u"again"), 0);
    EXPECT_THROW_MSG(g2->setSubprotocol(p.get()), tovan::BadParameterException,
                     "A protocol cannot be a subprotocol of one of its own components");
}
