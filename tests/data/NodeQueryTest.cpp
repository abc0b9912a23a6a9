// iNode::query on real data trees: the five result kinds, the flags, and how
// names, properties and values appear to XPath.
#include <gtest/gtest.h>

#include <climits>
#include <thread>

#include "nvk/data/CBaseNode.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/Value.h"
#include "tests/data/DataTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using namespace datatest;
using nvk::CBaseNode;
using nvktest::utf8;

namespace {

class NodeQueryTest : public ::testing::Test {
protected:
    // order (root, value "R")
    //   line  id=1 qty=3   value 2.5 (defined after id, before qty)
    //   line  id=2 qty=big
    //   p:note lang=en     value "  hello   world "
    //     line id=3 qty=-7
    void SetUp() override {
        root_ = node(u"order");
        root_->setValue(StringValue(u"R"));
        CBaseNode* l1 = child(*root_, u"line");
        l1->getProperties().define(u"id", u"1");
        l1->setValue(DoubleValue(2.5));
        l1->getProperties().define(u"qty", IntegerValue(3));
        CBaseNode* l2 = child(*root_, u"line");
        l2->getProperties().define(u"id", u"2");
        l2->getProperties().define(u"qty", u"big");
        CBaseNode* note = child(*root_, u"p:note");
        note->getProperties().define(u"lang", u"en");
        note->setValue(StringValue(u"  hello   world "));
        CBaseNode* l3 = child(*note, u"line");
        l3->getProperties().define(u"id", u"3");
        l3->getProperties().define(u"qty", IntegerValue(-7));
    }

    std::string nodes(const char16_t* expr, int flags = 0, iNode* from = nullptr) {
        NodeReferenceSet set;
        bool found = (from ? from : root_.get())->query(expr, flags, set);
        EXPECT_EQ(found, !set.isEmpty()) << utf8(expr);
        return describe(set);
    }
    static std::string describe(const NodeReferenceSet& set) {
        std::string out;
        for (iNode* n : set) {
            out += out.empty() ? "" : " ";
            const iPropertyCollection* props = static_cast<const iNode*>(n)->getProperties();
            iProperty* id = props ? props->find(u"id") : nullptr;
            out += utf8(n->getName()) + (id ? "(" + utf8(id->getValue().toString()) + ")" : "");
        }
        return out;
    }
    static std::string describe(const PropertyReferenceSet& set) {
        std::string out;
        for (iProperty* p : set) out += (out.empty() ? "" : " ") + utf8(p->getName()) + "=" + utf8(p->getValue().toString());
        return out;
    }
    template <class T>
    T result(const char16_t* expr, bool found, T out = T()) {
        EXPECT_EQ(root_->query(expr, 0, out), found) << utf8(expr);
        return out;
    }
    iNode& line(int i) { return *root_->getChildAt(i); }

    NodePtr root_;
};

TEST_F(NodeQueryTest, NamesPropertiesAndValuesAreElementsAttributesAndText) {
    EXPECT_EQ(nodes(u"line"), "line(1) line(2)");
    EXPECT_EQ(nodes(u"//line"), "line(1) line(2) line(3)");
    EXPECT_EQ(nodes(u"//line[@qty < 0]"), "line(3)");
    EXPECT_EQ(nodes(u"//p:*"), "p:note");
    EXPECT_EQ(nodes(u"*[local-name() = 'note']/line/.."), "p:note");
    EXPECT_EQ(nodes(u"line[. = 2.5]"), "line(1)");
    EXPECT_EQ(nodes(u"//line[text()]"), "line(1)");
    // The value property is the text, not an attribute, wherever it sits.
    EXPECT_EQ(nodes(u"line[count(@*) = 2]"), "line(1) line(2)");
    PropertyReferenceSet props;
    EXPECT_TRUE(root_->query(u"line[1]/@*", 0, props));
    EXPECT_EQ(describe(props), "id=1 qty=3");
    EXPECT_TRUE(root_->query(u"//@qty", 0, props));
    EXPECT_EQ(describe(props), "qty=3 qty=big qty=-7");
    EXPECT_FALSE(root_->query(u"//@missing", 0, props));
    EXPECT_TRUE(props.isEmpty());

    EXPECT_EQ(utf8(result<WString>(u"normalize-space(p:note)", true)), "hello world");
    EXPECT_EQ(utf8(result<WString>(u"string(/)", true)), "R2.5  hello   world ");
    EXPECT_EQ(utf8(result<WString>(u"name(/)", true)), "order");
    WString text;
    EXPECT_TRUE(line(1).query(u"string(../line[1]/@qty)", 0, text));
    EXPECT_EQ(utf8(text), "3");
}

TEST_F(NodeQueryTest, ScalarResultsConvertAndReportEmptySets) {
    // Numbers truncate toward zero; NaN, out of range and nothing found give
    // false and overwrite the output with 0.
    const struct {
        const char16_t* expr;
        bool found;
        int value;
    } ints[] = {
        {u"count(//line)", true, 3}, {u"line[1]", true, 2}, {u"-7 div 2", true, -3}, {u"'2147483647'", true, INT_MAX},
        {u"line[2]/@qty", false, 0}, {u"2147483648", false, 0}, {u"1 div 0", false, 0}, {u"//missing", false, 0},
    };
    for (const auto& c : ints) EXPECT_EQ(result(c.expr, c.found, 5), c.value) << utf8(c.expr);
    EXPECT_TRUE(result(u"//line/@id = 3", true, false));
    EXPECT_FALSE(result(u"1 > 2", true, true));
    EXPECT_FALSE(result(u"//missing", false, true));
    EXPECT_TRUE(result(u"line", true, false));

    WString text = result(u"//missing/@id", false, WString(u"old"));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_FALSE(text.isNull());
    EXPECT_EQ(utf8(result<WString>(u"1 div 4", true)), "0.25");
}

TEST_F(NodeQueryTest, FlagsLimitAppendFoldAndSilence) {
    EXPECT_EQ(nodes(u"//line", QueryFirstOnly), "line(1)");
    EXPECT_EQ(nodes(u"//LINE[@ID = 2]"), "");
    EXPECT_EQ(nodes(u"//LINE[@ID = 2]", QueryIgnoreCase), "line(2)");
    EXPECT_EQ(nodes(u"//P:NOTE", QueryIgnoreCase), "p:note");

    NodeReferenceSet set;
    EXPECT_TRUE(root_->query(u"line[2]", 0, set));
    EXPECT_TRUE(root_->query(u"//line", QueryAppend, set));
    EXPECT_EQ(describe(set), "line(2) line(1) line(3)");  // kept first, no duplicates
    EXPECT_FALSE(root_->query(u"//missing", QueryAppend, set));
    EXPECT_EQ(set.size(), 3u);

    PropertyReferenceSet props;
    EXPECT_TRUE(root_->query(u"//@id", QueryFirstOnly, props));
    EXPECT_EQ(describe(props), "id=1");

    // Bad expressions and results of the wrong kind raise, or return false under
    // QueryNoThrow; either way the set is left as it was.
    EXPECT_THROW_MSG(root_->query(u"line[", 0, set), BadParameterException,
                     "XPath syntax error at offset 5 in \"line[\": unexpected end of expression");
    EXPECT_THROW_MSG(root_->query(u"count(line)", 0, set), BadParameterException,
                     "XPath expression \"count(line)\" gives a number, not a node-set");
    EXPECT_THROW_MSG(root_->query(u"//@id", 0, set), BadParameterException,
                     "XPath expression \"//@id\" selects properties or text, not nodes");
    EXPECT_THROW_MSG(root_->query(u"line | line/@id", 0, props), BadParameterException,
                     "XPath expression \"line | line/@id\" selects nodes or text, not properties");
    EXPECT_THROW_MSG(root_->query(u"line/text()", 0, props), BadParameterException,
                     "XPath expression \"line/text()\" selects nodes or text, not properties");
    EXPECT_FALSE(root_->query(u"line[", QueryNoThrow, set));
    EXPECT_FALSE(root_->query(u"'text'", QueryNoThrow, set));
    EXPECT_FALSE(root_->query(u"line", QueryNoThrow, props));
    EXPECT_EQ(set.size(), 3u);
    EXPECT_EQ(describe(props), "id=1");
    WString text(u"kept");
    EXPECT_FALSE(root_->query(u"1 +", QueryNoThrow, text));
    EXPECT_EQ(utf8(text), "kept");
    EXPECT_THROW_MSG(root_->query(u"line", 0x100, text), BadParameterException, "Unknown query flags 0x100");
}

TEST_F(NodeQueryTest, QueriesSeeTheTreeAsItIsNow) {
    EXPECT_EQ(nodes(u"line"), "line(1) line(2)");
    NodePtr extra = node(u"line");
    extra->getProperties().define(u"id", u"9");
    root_->appendChild(extra.get());
    EXPECT_EQ(nodes(u"line"), "line(1) line(2) line(9)");
    root_->removeChildAt(0);
    EXPECT_EQ(nodes(u"line"), "line(2) line(9)");
    int n = 0;
    EXPECT_TRUE(extra->query(u"count(preceding-sibling::*)", 0, n));
    EXPECT_EQ(n, 2);
    root_->clear();  // drops the cached evaluator with the children
    EXPECT_EQ(nodes(u"//line"), "");
    WString name;
    EXPECT_TRUE(root_->query(u"name()", 0, name));
    EXPECT_EQ(utf8(name), "order");
}

TEST_F(NodeQueryTest, ThreadsQueryingAFreshNodeAtOnceShareOneLockAndEvaluator) {
    // The lock and the evaluator are made by the first query; two first queries at once
    // must not each make their own (a lost one leaks, a replaced one is freed in use).
    for (int round = 0; round < 100; ++round) {
        NodePtr fresh = node(u"order");
        child(*fresh, u"line");
        child(*fresh, u"line");
        int counts[2] = {-1, -1};
        std::thread a([&] { fresh->query(u"count(line)", 0, counts[0]); });
        std::thread b([&] { fresh->query(u"count(line)", 0, counts[1]); });
        a.join();
        b.join();
        ASSERT_EQ(counts[0], 2);
        ASSERT_EQ(counts[1], 2);
    }
}

TEST_F(NodeQueryTest, HierarchicalPropertyNamesResolveThroughPaths) {
    auto valueAt = [](iNode& n, const char16_t* path) {
        iProperty* p = n.getProperties().find(path);
        return p ? utf8(p->getValue().toString()) : "(none)";
    };
    EXPECT_EQ(valueAt(*root_, u"/p:note/lang"), "en");
    EXPECT_EQ(valueAt(line(0), u"//qty"), "3");  // qty of the first node below the root
    EXPECT_EQ(valueAt(line(1), u"/p:note/line[@id = 3]/qty"), "-7");
    EXPECT_EQ(valueAt(*root_, u"/line[5]/id"), "(none)");
}

}  // namespace
