// Random trees and random expressions, evaluated by our XPath evaluator and by
// pugixml's (the reference); every result must agree.
#include <gtest/gtest.h>

#include "XPathRandom.h"
#include "nvk/platform/Exception.h"

using namespace tovan;
using namespace nvktest;

namespace {

constexpr int kTrees = 600;
constexpr int kExpressionsPerTree = 25;

TEST(XPathDifferentialTest, RandomTreesAndExpressionsAgreeWithReference) {
    Random rnd(20261122);
    TestNavigator copying;
    int compared = 0;
    for (int treeNo = 0; treeNo < kTrees; ++treeNo) {
        // Every other tree lends its strings (a fresh lender per tree: handles repeat across trees).
        LendingNavigator lending;
        const XPathNavigator& nav = treeNo % 2 ? static_cast<const XPathNavigator&>(lending) : copying;
        TestNode root;
        growTree(rnd, root, 4);
        const std::string xml = nvktest::treeToXml(root);
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xml.c_str(), pugi::parse_default | pugi::parse_fragment | pugi::parse_ws_pcdata))
            << xml;
        ItemMap map;
        map.build(root, doc);
        std::vector<const TestNode*> nodes;
        collectNodes(root, nodes);

        ExpressionGenerator gen(rnd);
        for (int exprNo = 0; exprNo < kExpressionsPerTree; ++exprNo) {
            const std::string expr = gen.any(3);
            const TestNode* context = rnd.chance(50) ? &root : nodes[rnd.below(nodes.size())];
            SCOPED_TRACE("tree " + xml + "\nexpression " + expr + "\ncontext " + nvktest::describeItem(XPathItem{context}));

            pugi::xpath_query reference(expr.c_str());
            ASSERT_TRUE(reference.result()) << reference.result().description();
            XPathExpression ours(utf8ToUtf16(expr));
            const XPathValue value = ours.evaluate(nav, context);
            const pugi::xpath_node theirContext(map.nodeOf.at(context));
            switch (reference.return_type()) {
            case pugi::xpath_type_node_set: {
                ASSERT_EQ(value.type, XPathType::NodeSet);
                pugi::xpath_node_set set = reference.evaluate_node_set(theirContext);
                set.sort();
                ASSERT_EQ(nvktest::describeItems(value.nodes), nvktest::describeItems(map.translate(set)));
                ASSERT_TRUE(value.nodes == map.translate(set));
                break;
            }
            case pugi::xpath_type_number:
                ASSERT_EQ(value.type, XPathType::Number);
                ASSERT_PRED2(sameNumber, value.number, reference.evaluate_number(theirContext));
                break;
            case pugi::xpath_type_string:
                ASSERT_EQ(value.type, XPathType::String);
                ASSERT_PRED2(sameString, value.text, utf8ToUtf16(reference.evaluate_string(theirContext)));
                break;
            case pugi::xpath_type_boolean:
                ASSERT_EQ(value.type, XPathType::Boolean);
                ASSERT_EQ(value.boolean, reference.evaluate_boolean(theirContext));
                break;
            default: FAIL() << "reference gave no type";
            }
            ++compared;
        }
    }
    EXPECT_EQ(compared, kTrees * kExpressionsPerTree);
}

}  // namespace
