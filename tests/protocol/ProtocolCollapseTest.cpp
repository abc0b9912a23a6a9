// Collapse and uncollapse on small hand-made graphs: every rule and sentence, what a
// collapse builds, and what an uncollapse gives back.
#include <gtest/gtest.h>

#include "nvk/platform/Value.h"
#include "nvk/protocol/CParameterUtils.h"
#include "nvk/protocol/CPropertyUtils.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace nvktest;
using tovan::ConnectionInfo;
using tovan::Ptr;
using tovan::WString;

namespace {

std::vector<WString> ids(std::initializer_list<const char*> list) {
    std::vector<WString> out;
    for (const char* s : list) out.push_back(tovan::toWide(s));
    return out;
}

std::string text(const tovan::iProtocolInfo* p) { return utf8(CProtocolFile::WriteText(p)); }

/// Allowed, or the refusal sentence; the check must leave the protocol as it was.
std::string check(CProtocolInfo* p, std::initializer_list<const char*> list) {
    const std::string before = text(p);
    CProtocolCollapseUtils collapse;
    WString message;
    bool ok = collapse.CanCollapseToSubprotocol(p, ids(list), message);
    EXPECT_EQ(text(p), before);
    return ok ? "allowed" : utf8(message);
}

std::string uncollapseCheck(tovan::iComponentInfo* c) {
    CProtocolCollapseUtils collapse;
    WString message;
    return collapse.CanUncollapseSubprotocol(c, message) ? "allowed" : utf8(message);
}

// 1 Src -> 2 A -> 3 B -> 4 Sink, B fails to 5 Err.
Ptr<CProtocolInfo> chain() {
    return makeProtocol({{1, "Src", 0, 0, "p"}, {2, "A", 300, 10, "ip"}, {3, "B", 600, 0, "ipf"},
                         {4, "Sink", 900, 0, "i"}, {5, "Err", 900, 300, "i"}},
                        {{1, 2}, {2, 3}, {3, 4}, {3, 5, "fail"}});
}

std::vector<ConnectionInfo> connections(const tovan::iProtocolInfo* p) {
    std::vector<ConnectionInfo> out;
    for (int k = 0; k < p->getNumConnections(); ++k) out.push_back(p->getConnection(k));
    return out;
}

}  // namespace

TEST(ProtocolCollapse, RulesAndTheirSentences) {
    const std::string both =
        "You cannot collapse with a component that has both upstream components in the selected set, and other "
        "upstream components that are not";
    // Two parallel start nodes that both take input.
    auto p = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 0, 200, "ip"}, {3, "C", 300, 0, "i"}}, {{1, 3}, {2, 3}});
    EXPECT_EQ(check(p.get(), {"1", "2"}), "Collapsing this set would result in a subprotocol with more than one input component");
    // C is fed from inside (A) and from outside (B), even with B its only outside feeder.
    EXPECT_EQ(check(p.get(), {"1", "3"}), both);
    EXPECT_EQ(check(p.get(), {"1", "2", "3"}), "Collapsing this set would result in a subprotocol with more than one input component");
    // A single ID is allowed unchecked, even one the protocol does not have.
    EXPECT_EQ(check(p.get(), {"99"}), "allowed");
    EXPECT_EQ(check(p.get(), {"1", "99"}), "Did not find:99");
    EXPECT_EQ(check(p.get(), {"1", "x"}), "Did not find:x");

    // Src -> A -> B -> Sink with B failing to Err: {A, Sink} leaves through B and comes back.
    auto c = chain();
    EXPECT_EQ(check(c.get(), {"2", "4"}), "Collapsing this set would result in a subprotocol with more than one input component");
    EXPECT_EQ(check(c.get(), {"2", "3"}), "allowed");
    EXPECT_EQ(check(c.get(), {"1", "2", "3", "4", "5"}), "allowed");
    auto loop = makeProtocol({{1, "A", 0, 0, "p"}, {2, "B", 300, 0, "ip"}, {3, "C", 600, 0, "ip"}}, {{1, 2}, {2, 3}});
    EXPECT_EQ(check(loop.get(), {"1", "3"}), "Collapsing this set would result in a loop");
    // Strict: A's outputs go into the set (B) and out of it (X) at once.
    auto strict = makeProtocol({{1, "A", 0, 0, "p"}, {2, "B", 300, 0, "i"}, {3, "X", 300, 200, "i"}}, {{1, 2}, {1, 3}});
    EXPECT_EQ(check(strict.get(), {"1", "2"}), "Collapsing this set would result in a loop");

    // Pass ports feeding different outside components, then the same one.
    auto same = makeProtocol({{1, "S", 0, 0, "p"}, {2, "A", 300, 0, "ipf"}, {3, "B", 300, 200, "ipf"},
                              {4, "X", 600, 0, "i"}},
                             {{1, 2}, {1, 3}, {2, 4}, {3, 4}});
    EXPECT_EQ(check(same.get(), {"2", "3"}), "Collapsing this set would result in a subprotocol with more than one input component");
    auto twoOut = makeProtocol({{1, "S", 0, 0, "p"}, {2, "A", 300, 0, "ipf"}, {3, "B", 600, 0, "ipf"},
                                {4, "X", 900, 0, "i"}, {5, "Y", 900, 200, "i"}, {6, "C", 600, 200, "ipf"}},
                               {{1, 2}, {2, 3}, {2, 6, "fail"}, {3, 4}, {6, 5}});
    EXPECT_EQ(check(twoOut.get(), {"2", "3", "6"}),
              "Components \"B\" and \"C\" have different Pass port connections outside the collapse set, not allowed");
    auto sameOut = makeProtocol({{1, "S", 0, 0, "p"}, {2, "A", 300, 0, "ipf"}, {3, "B", 600, 0, "ipf"},
                                 {4, "X", 900, 0, "i"}, {6, "C", 600, 200, "ipf"}},
                                {{1, 2}, {2, 3}, {2, 6, "fail"}, {3, 4}, {6, 4}, {3, 4, "fail"}, {6, 4, "fail"}});
    EXPECT_EQ(check(sameOut.get(), {"2", "3", "6"}), "allowed");
    // B's fail port is open while C's fail port leaves the set.
    auto open = makeProtocol({{1, "S", 0, 0, "p"}, {2, "A", 300, 0, "ipf"}, {3, "B", 600, 0, "ipf"},
                              {4, "X", 900, 0, "i"}, {6, "C", 600, 200, "ipf"}},
                             {{1, 2}, {2, 3}, {2, 6, "fail"}, {3, 4}, {6, 4}, {6, 4, "fail"}});
    EXPECT_EQ(check(open.get(), {"2", "3", "6"}),
              "At least one member has an open Fail port, but other members connect outside the set via their Fail "
              "port. Such a set cannot be collapsed.");

    WString message;
    CProtocolLayoutUtils layout;
    layout.LoadProtocolComponents(open.get());
    tovan::BitsetValue set;
    ASSERT_TRUE(layout.ConvertIDsToBitset(ids({"2", "3"}), set, message));
    EXPECT_THROW_MSG(CProtocolCollapseUtils::CheckAllConnectionsToPortAreTheSame(layout, set, CProtocolUtils::AdjAll, message),
                     tovan::Exception, "Unrecognized adjacent flag");
}

TEST(ProtocolCollapse, CollapseBuildsTheSubprotocolAndRewiresByPort) {
    auto p = chain();
    p->getComponent(1)->setParameter(u"Level", tovan::ParameterValue::ofText(WString(u"Depth")))
        .setTypeText(WString(tovan::NVK_LinkParentParameterType));
    p->getComponent(2)->setParameter(u"Count", tovan::ParameterValue::ofText(WString(u"depth")))
        .setTypeText(WString(tovan::NVK_LinkSingleParentParameterType));
    p->getComponent(1)->setTextArrayAttribute(tovan::NVK_ComponentStickyNotes,
                                              {WString(u"%VERSION 3%"), WString(u"320 -40 120 40"), WString(u"n"), WString()});
    auto nested = makeProtocol({{1, "Deep", 90, 95, "ip"}}, {});
    p->getComponent(2)->setSubprotocol(nested.get());
    CProtocolCollapseUtils collapse;
    tovan::iProtocolInfo* sub = collapse.CollapseToSubprotocol(nullptr, p.get(), ids({"2", "3"}), WString(u"Inner"), false);

    ASSERT_EQ(p->getNumComponents(), 4);
    tovan::iComponentInfo* group = p->getComponent(3);
    EXPECT_EQ(sub->getParentComponent(), group);
    EXPECT_EQ(CProtocolUtils::GetComponentLocalID(group), 6);
    EXPECT_EQ(utf8(CProtocolUtils::GetComponentDisplayName(group)), "Inner");
    EXPECT_EQ(CProtocolUtils::GetComponentPorts(group), unsigned(tovan::PortInput | tovan::PortPass | tovan::PortFail));
    // Drawn where B, which runs first (smaller Y), was.
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(group), (CProtocolUtils::Point{600, 0}));
    EXPECT_EQ(connections(p.get()), (std::vector<ConnectionInfo>{
                                        {1, 6, tovan::PortPass}, {6, 4, tovan::PortPass}, {6, 5, tovan::PortFail}}));
    ASSERT_EQ(sub->getNumComponents(), 2);
    EXPECT_EQ(utf8(sub->getName()), "Inner");
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(sub->getComponent(0)), (CProtocolUtils::Point{90, 105}));
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(sub->getComponent(1)), (CProtocolUtils::Point{390, 95}));
    EXPECT_EQ(connections(sub), (std::vector<ConnectionInfo>{{2, 3, tovan::PortPass}}));
    // A's note keeps its place beside A: 20 right of it and 30 above.
    CProtocolUtils inside;
    inside.LoadProtocolComponents(sub);
    ASSERT_EQ(inside.GetStickyNotes().size(), 1u);
    EXPECT_EQ(inside.GetStickyNotes()[0].extent, (CProtocolUtils::Extent{30, 70, 20, 140}));
    EXPECT_EQ(utf8(inside.GetStickyNotes()[0].geometry), "110 -135 120 40");
    // B's own subprotocol moved with it.
    EXPECT_EQ(sub->getComponent(1)->getSubprotocol(), nested.get());
    EXPECT_EQ(nested->getParentComponent(), sub->getComponent(1));
    // Both links look up to "Depth" (folding case): one promoted parameter remembers the first.
    EXPECT_EQ(group->getParameterNames(), std::vector<WString>{WString(u"Depth")});
    const tovan::iParameter* promoted = group->findParameter(u"Depth");
    EXPECT_EQ(utf8(promoted->getTypeText()), "LinkParentParameter");
    EXPECT_EQ(utf8(promoted->getValue().text), "Depth");
    WString from;
    ASSERT_TRUE(CPropertyUtils::topPromotedFrom(*promoted, from));
    EXPECT_EQ(utf8(from), "Level");

    // The round trip: new IDs above the largest (6), the same places, ports and connections.
    std::vector<int32_t> newIDs;
    collapse.UncollapseSubprotocol(group, p.get(), newIDs);
    EXPECT_EQ(newIDs, (std::vector<int32_t>{7, 8}));
    ASSERT_EQ(p->getNumComponents(), 5);
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(p->getComponent(3)), (CProtocolUtils::Point{300, 10}));
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(p->getComponent(4)), (CProtocolUtils::Point{600, 0}));
    EXPECT_EQ(connections(p.get()),
              (std::vector<ConnectionInfo>{{7, 8, tovan::PortPass}, {1, 7, tovan::PortPass}, {8, 4, tovan::PortPass},
                                           {8, 5, tovan::PortFail}}));
    EXPECT_EQ(utf8(p->getComponent(3)->findParameter(u"Level")->getTypeText()), "LinkParentParameter");
    EXPECT_EQ(utf8(p->getComponent(4)->findParameter(u"Count")->getTypeText()), "LinkSingleParentParameter");
    EXPECT_EQ(utf8(p->getComponent(4)->findParameter(u"Count")->getValue().text), "Depth");
    EXPECT_EQ(nested->getParentComponent(), p->getComponent(4));
    std::vector<WString> notes;
    ASSERT_TRUE(p->getComponent(3)->getTextArrayAttribute(tovan::NVK_ComponentStickyNotes, notes));
    EXPECT_EQ(utf8(notes[1]), "320 -40 120 40");
}

TEST(ProtocolCollapse, RefusedEditsThrowAndChangeNothing) {
    auto p = chain();
    const std::string before = text(p.get());
    CProtocolCollapseUtils collapse;
    EXPECT_THROW_MSG(collapse.CollapseToSubprotocol(nullptr, p.get(), ids({"2", "4"}), WString(), false), tovan::Exception,
                     "Collapsing this set would result in a subprotocol with more than one input component");
    EXPECT_THROW_MSG(collapse.CollapseToSubprotocol(nullptr, p.get(), ids({"99"}), WString(), false), tovan::Exception,
                     "Did not find:99");
    EXPECT_EQ(text(p.get()), before);
    std::vector<int32_t> newIDs{1};
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(p->getComponent(1), p.get(), newIDs), tovan::Exception, "No protocol");
    auto other = chain();
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(other->getComponent(1), p.get(), newIDs), tovan::Exception,
                     "Did not find requested subprotocol component within parent protocol");
    EXPECT_TRUE(newIDs.empty());
    EXPECT_EQ(text(p.get()), before);

    // Run to completion: collapsed with the flag, never uncollapsed.
    tovan::iProtocolInfo* sub = collapse.CollapseToSubprotocol(nullptr, p.get(), ids({"2"}), WString(u"G"), true);
    const std::string collapsed = text(p.get());
    EXPECT_EQ(uncollapseCheck(sub->getParentComponent()), "Subprotocol is marked Run to Completion");
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(sub->getParentComponent(), p.get(), newIDs), tovan::Exception,
                     "Subprotocol is marked Run to Completion");
    EXPECT_EQ(text(p.get()), collapsed);
    sub->getParentComponent()->setParameter(u"runtocompletion", tovan::ParameterValue::ofText(WString(u"False")));
    EXPECT_EQ(uncollapseCheck(sub->getParentComponent()), "allowed");
}

TEST(ProtocolCollapse, UncollapseChecksInputsAndParameters) {
    auto parent = makeProtocol({{1, "Src", 0, 0, "p"}, {2, "G", 300, 0, "ip"}}, {{1, 2}});
    tovan::iComponentInfo* g = parent->getComponent(1);
    EXPECT_EQ(uncollapseCheck(g), "No protocol");
    auto two = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 0, 200, "ip"}}, {});
    g->setSubprotocol(two.get());
    EXPECT_EQ(uncollapseCheck(g), "More than one start node with open input port");
    CProtocolCollapseUtils collapse;
    std::vector<int32_t> newIDs;
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(g, parent.get(), newIDs), tovan::Exception,
                     "Cannot uncollapse with more than one input component");
    auto none = makeProtocol({{1, "A", 0, 0, "p"}}, {});
    g->setSubprotocol(none.get());
    EXPECT_EQ(uncollapseCheck(g), "Found no start nodes with input ports, but protocol has an input port");
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(g, parent.get(), newIDs), tovan::Exception,
                     "Found upstream components from subprotocol, but it did not contain any input nodes");
    auto lonely = makeProtocol({{1, "Src", 0, 0, "p"}, {2, "G", 300, 0, "p"}}, {});
    auto oneMore = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 300, 0, "ip"}}, {{1, 2}});
    lonely->getComponent(1)->setSubprotocol(oneMore.get());
    EXPECT_EQ(uncollapseCheck(lonely->getComponent(1)), "Found start node with input port, but protocol has no input port");

    auto one = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 300, 0, "ip"}}, {{1, 2}});
    g->setSubprotocol(one.get());
    tovan::iComponentInfo* inner = one->getComponent(1);
    inner->setParameter(u"Mode", tovan::ParameterValue::ofText(WString(u"Speed")))
        .setTypeText(WString(tovan::NVK_LinkParentParameterType));
    inner->setParameter(u"Other", tovan::ParameterValue::ofText(WString(u"Alias")))
        .setTypeText(WString(tovan::NVK_LinkParentParameterType));
    g->setParameter(u"Speed", tovan::ParameterValue::ofInteger(3));
    // A hidden parameter and an empty one may go; a visible value nobody takes may not.
    CParameterUtils::setNevershowParameter(*g, WString(u"Hidden"), tovan::ParameterValue::ofText(WString(u"x")));
    g->setParameter(u"Blank", tovan::ParameterValue::ofText(WString::empty()));
    EXPECT_FALSE(CProtocolCollapseUtils::IsVisible(*g->findParameter(u"Hidden")));
    EXPECT_TRUE(CProtocolCollapseUtils::IsVisible(*g->findParameter(u"Speed")));
    EXPECT_EQ(uncollapseCheck(g), "allowed");
    g->setParameter(u"Lost", tovan::ParameterValue::ofArray({tovan::ParameterValue::ofBoolean(false)}));
    EXPECT_EQ(uncollapseCheck(g), "Parameter Lost is defined with non-empty value");
    g->removeParameter(u"Lost");
    g->setParameter(u"Alias", tovan::ParameterValue::ofText(WString(u"Speed")))
        .setTypeText(WString(tovan::NVK_LinkAliasParameterType));
    EXPECT_FALSE(CProtocolCollapseUtils::CanParamDefinitionBeReplaced(g, WString(u"Alias")));
    EXPECT_FALSE(CProtocolCollapseUtils::CanParamDefinitionBeReplaced(g, WString(u"Missing")));
    EXPECT_TRUE(CProtocolCollapseUtils::CanParamDefinitionBeReplaced(g, WString(u"Speed")));
    EXPECT_EQ(uncollapseCheck(g), "Parameter definition for Alias could not be replaced");
    const std::string before = text(parent.get());
    EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(g, parent.get(), newIDs), tovan::Exception,
                     "Parameter definition for Alias could not be replaced");
    EXPECT_EQ(text(parent.get()), before);
    g->removeParameter(u"Alias");

    // A plain value replaces the link that took it.
    EXPECT_EQ(CProtocolCollapseUtils::ReplaceParamDefinition(g, *g->findParameter(u"Speed")), 1);
    EXPECT_EQ(utf8(inner->findParameter(u"Mode")->getTypeText()), "String");
    EXPECT_EQ(inner->findParameter(u"Mode")->getValue(), tovan::ParameterValue::ofInteger(3));
    g->removeParameter(u"Speed");
    collapse.UncollapseSubprotocol(g, parent.get(), newIDs);
    EXPECT_EQ(newIDs, (std::vector<int32_t>{3, 4}));
    EXPECT_EQ(connections(parent.get()), (std::vector<ConnectionInfo>{{3, 4, tovan::PortPass}, {1, 3, tovan::PortPass}}));
    // G was at (300, 0): A, which runs first, lands there.
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(parent->getComponent(1)), (CProtocolUtils::Point{300, 0}));
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(parent->getComponent(2)), (CProtocolUtils::Point{600, 0}));
}

TEST(ProtocolCollapse, LargestLocalIdAndTheEdgeOfThirtyTwoBits) {
    CProtocolInfo empty(WString(u"e"));
    EXPECT_EQ(CProtocolCollapseUtils::GetLargestLocalId(&empty), 0);
    auto negative = makeProtocol({{-7, "A", 0, 0, "p"}, {-3, "B", 0, 0, "i"}}, {});
    EXPECT_EQ(CProtocolCollapseUtils::GetLargestLocalId(negative.get()), -3);
    auto full = makeProtocol({{1, "A", 0, 0, "p"}, {2147483647, "B", 300, 0, "i"}}, {{1, 2147483647}});
    const std::string before = text(full.get());
    CProtocolCollapseUtils collapse;
    EXPECT_THROW_MSG(collapse.CollapseToSubprotocol(nullptr, full.get(), ids({"1"}), WString(), false), tovan::Exception,
                     "No local IDs left above 2147483647");
    EXPECT_EQ(text(full.get()), before);
    // The checks read the graph alone: notes a full load refuses do not stop them.
    full->setTextArrayAttribute(tovan::NVK_ProtocolStickyNotes, {WString(u"%VERSION 2%")});
    CProtocolUtils utils;
    EXPECT_THROW_MSG(utils.LoadProtocolComponents(full.get()), tovan::Exception,
                     "Cannot handle older-version sticky notes yet :(");
    EXPECT_EQ(check(full.get(), {"1", "2147483647"}), "allowed");
    // So does the uncollapse check, on a subprotocol with such notes.
    auto inner = makeProtocol({{1, "A", 0, 0, "ip"}}, {});
    inner->setTextArrayAttribute(tovan::NVK_ProtocolStickyNotes, {WString(u"%VERSION 2%")});
    full->getComponent(1)->setSubprotocol(inner.get());
    EXPECT_EQ(uncollapseCheck(full->getComponent(1)), "allowed");
}

TEST(ProtocolCollapse, NullObjectsThrowFromTheirOperationAndRepeatedIDsCountOnce) {
    CProtocolCollapseUtils collapse;
    WString message;
    const char* const null = "Cannot dereference a NULL pointer";
    EXPECT_THROW_FROM(collapse.CanCollapseToSubprotocol(nullptr, ids({"1", "2"}), message), tovan::Exception,
                      std::string("CProtocolCollapseUtils::IsOKToCollapse: ") + null);
    EXPECT_THROW_FROM(collapse.CollapseToSubprotocol(nullptr, nullptr, ids({"1"}), WString(), false), tovan::Exception,
                      std::string("CProtocolCollapseUtils::Collapse: ") + null);
    EXPECT_THROW_FROM(collapse.CanUncollapseSubprotocol(nullptr, message), tovan::Exception,
                      std::string("CProtocolCollapseUtils::IsOKToUnCollapse: ") + null);
    EXPECT_THROW_FROM(CProtocolCollapseUtils::GetLargestLocalId(nullptr), tovan::Exception,
                      std::string("CProtocolCollapseUtils::GetLargestLocalId: ") + null);
    EXPECT_THROW_FROM(CProtocolCollapseUtils::CanParamDefinitionBeReplaced(nullptr, WString(u"x")), tovan::Exception,
                      std::string("CProtocolCollapseUtils::CanParamDefinitionBeReplaced: ") + null);
    auto p = chain();
    std::vector<int32_t> newIDs{5};
    EXPECT_THROW_FROM(collapse.UncollapseSubprotocol(p->getComponent(0), nullptr, newIDs), tovan::Exception,
                      std::string("CProtocolCollapseUtils::UnCollapse: ") + null);
    EXPECT_EQ(newIDs, std::vector<int32_t>{5});
    EXPECT_TRUE(message.isEmpty());

    // The same ID twice selects one component: allowed, and one component moves inside.
    EXPECT_EQ(check(p.get(), {"3", " 3"}), "allowed");
    tovan::iProtocolInfo* sub = collapse.CollapseToSubprotocol(nullptr, p.get(), ids({"3", "3"}), WString(), false);
    EXPECT_EQ(sub->getNumComponents(), 1);
    EXPECT_EQ(p->getNumComponents(), 5);

    // Nothing selected: an empty group without ports, and nothing comes back out of it.
    const std::string before = text(p.get());
    EXPECT_EQ(check(p.get(), {}), "allowed");
    sub = collapse.CollapseToSubprotocol(nullptr, p.get(), {}, WString(), false);
    EXPECT_EQ(sub->getNumComponents(), 0);
    tovan::iComponentInfo* empty = sub->getParentComponent();
    EXPECT_EQ(CProtocolUtils::GetComponentPorts(empty), 0u);
    EXPECT_EQ(CProtocolUtils::GetComponentPoint(empty), (CProtocolUtils::Point{90, 95}));
    collapse.UncollapseSubprotocol(empty, p.get(), newIDs);
    EXPECT_TRUE(newIDs.empty());
    EXPECT_EQ(text(p.get()), before);
}

TEST(ProtocolCollapse, UncollapseWithoutRoomOrAnOpenExitSaysSo) {
    // Inside, A's pass port feeds B, which has none: the group's pass connection has no exit.
    auto parent = makeProtocol({{1, "Src", 0, 0, "p"}, {2, "G", 300, 0, "ip"}, {3, "X", 600, 0, "i"}},
                               {{1, 2}, {2, 3}});
    auto inner = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 300, 0, "i"}}, {{1, 2}});
    tovan::iComponentInfo* g = parent->getComponent(1);
    g->setSubprotocol(inner.get());
    CProtocolCollapseUtils collapse;
    std::vector<int32_t> newIDs;
    {
        tovan::DiagnosticCapture capture;
        collapse.UncollapseSubprotocol(g, parent.get(), newIDs);
        EXPECT_EQ(capture.warnings(),
                  std::vector<std::string>{"Uncollapse dropped the connection from 2 to 3: no open pass port inside"});
    }
    EXPECT_EQ(newIDs, (std::vector<int32_t>{4, 5}));
    EXPECT_EQ(connections(parent.get()), (std::vector<ConnectionInfo>{{4, 5, tovan::PortPass}, {1, 4, tovan::PortPass}}));

    // Two inner components need two IDs above 2147483646: refused before anything moves.
    auto full = makeProtocol({{1, "Src", 0, 0, "p"}, {2147483646, "G", 300, 0, "ip"}}, {{1, 2147483646}});
    auto two = makeProtocol({{1, "A", 0, 0, "ip"}, {2, "B", 300, 0, "i"}}, {{1, 2}});
    full->getComponent(1)->setSubprotocol(two.get());
    const std::string before = text(full.get());
    newIDs = {9};
    EXPECT_THROW_FROM(collapse.UncollapseSubprotocol(full->getComponent(1), full.get(), newIDs), tovan::Exception,
                      "CProtocolCollapseUtils::UnCollapse: No local IDs left above 2147483646");
    EXPECT_TRUE(newIDs.empty());
    EXPECT_EQ(text(full.get()), before);
    EXPECT_EQ(full->getComponent(1)->getSubprotocol(), two.get());
}
