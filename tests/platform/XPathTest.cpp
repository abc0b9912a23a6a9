// The XPath evaluator on hand-built trees: syntax errors, functions and
// conversions at their edges, and the tree model's own choices.
#include <gtest/gtest.h>

#include <cmath>

#include "XPathTestTree.h"
#include "platform/CXPathParser.h"
#include "platform/Exception.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::TestNavigator;
using nvktest::TestNode;

namespace {

class XPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        tree_ = nvktest::treeFromXml(
            "<shop p:code='S1' name='Main'>"
            "<item id='1' price='10'>apple<note>ripe</note></item>"
            "<item id='2' price='2.5'>pear</item>"
            "<q:item id='3' price='x'/>"
            "<box><item id='4' price='-1'>  plum \t cake </item></box>"
            "</shop>");
        tree_->name = u"records";
        tree_->attributes.emplace_back(u"version", u"7");
        tree_->text = u"top ";
    }

    XPathValue eval(const std::string& expr, const TestNode* context = nullptr, bool ignoreCase = false) {
        return XPathExpression(utf8ToUtf16(expr)).evaluate(nav_, context ? context : tree_.get(), ignoreCase);
    }
    std::string nodes(const std::string& expr, const TestNode* context = nullptr, bool ignoreCase = false) {
        XPathValue v = eval(expr, context, ignoreCase);
        EXPECT_EQ(v.type, XPathType::NodeSet) << expr;
        return nvktest::describeItems(v.nodes);
    }
    std::string str(const std::string& expr, const TestNode* context = nullptr) {
        XPathValue v = eval(expr, context);
        EXPECT_EQ(v.type, XPathType::String) << expr;
        return utf16ToUtf8(v.text);
    }
    double num(const std::string& expr) {
        XPathValue v = eval(expr);
        EXPECT_EQ(v.type, XPathType::Number) << expr;
        return v.number;
    }
    bool boolean(const std::string& expr) {
        XPathValue v = eval(expr);
        EXPECT_EQ(v.type, XPathType::Boolean) << expr;
        return v.boolean;
    }
    const TestNode& shop() const { return *tree_->children[0]; }

    std::unique_ptr<TestNode> tree_;
    TestNavigator nav_;
};

#define EXPECT_SYNTAX_ERROR(expr, offset, detail)                                                          \
    EXPECT_THROW_MSG(XPathExpression(utf8ToUtf16(expr)), BadParameterException,                            \
                     std::string("XPath syntax error at offset ") + #offset + " in \"" + (expr) + "\": " + (detail))

TEST(XPathSyntaxTest, EveryErrorNamesExpressionOffsetAndCause) {
    EXPECT_SYNTAX_ERROR("", 0, "empty expression");
    EXPECT_SYNTAX_ERROR("   ", 0, "empty expression");
    EXPECT_SYNTAX_ERROR("a = 'open", 4, "unterminated string literal");
    EXPECT_SYNTAX_ERROR("a ! b", 2, "unexpected character '!'");
    EXPECT_SYNTAX_ERROR("a # b", 2, "unexpected character '#'");
    EXPECT_SYNTAX_ERROR("p:", 1, "unexpected character ':'");
    EXPECT_SYNTAX_ERROR("p:1", 1, "unexpected character ':'");
    EXPECT_SYNTAX_ERROR("a/", 2, "unexpected end of expression");
    EXPECT_SYNTAX_ERROR("1 +", 3, "unexpected end of expression");
    EXPECT_SYNTAX_ERROR("child::", 7, "unexpected end of expression");
    EXPECT_SYNTAX_ERROR("item price", 5, "unexpected 'price'");
    EXPECT_SYNTAX_ERROR("a]", 1, "unexpected ']'");
    EXPECT_SYNTAX_ERROR("a , b", 2, "unexpected ','");
    EXPECT_SYNTAX_ERROR("(1", 2, "expected ')'");
    EXPECT_SYNTAX_ERROR("text(1)", 5, "expected ')'");
    EXPECT_SYNTAX_ERROR("a[1", 3, "expected ']'");
    EXPECT_SYNTAX_ERROR("a[]", 2, "empty predicate");
    EXPECT_SYNTAX_ERROR("count(a b)", 8, "unexpected 'b'");
    EXPECT_SYNTAX_ERROR("contains('a' 'b')", 13, "expected ',' or ')'");
    EXPECT_SYNTAX_ERROR("@1", 1, "expected a node test");
    EXPECT_SYNTAX_ERROR("()", 1, "expected a node test");
    EXPECT_SYNTAX_ERROR("sideways::a", 0, "unknown axis 'sideways'");
    EXPECT_SYNTAX_ERROR("a[upper(.)]", 2, "unknown function 'upper()'");
    EXPECT_SYNTAX_ERROR("$price > 1", 0, "variables are not supported");
    EXPECT_SYNTAX_ERROR("count()", 0, "count() takes 1 argument, 0 given");
    EXPECT_SYNTAX_ERROR("name(a, b)", 0, "name() takes 0 or 1 argument, 2 given");
    EXPECT_SYNTAX_ERROR("true(1)", 0, "true() takes 0 arguments, 1 given");
    EXPECT_SYNTAX_ERROR("x = contains('a')", 4, "contains() takes 2 arguments, 1 given");
    EXPECT_SYNTAX_ERROR("count('a')", 6, "count() needs a node-set argument");
    EXPECT_SYNTAX_ERROR("local-name(1 + 1)", 11, "local-name() needs a node-set argument");
    EXPECT_SYNTAX_ERROR("a | 'b'", 2, "'|' needs node-sets on both sides");
    EXPECT_SYNTAX_ERROR("'a'[1]", 3, "a predicate needs a node-set");
    EXPECT_SYNTAX_ERROR("string(a)/b", 9, "'/' needs a node-set on its left");
    EXPECT_SYNTAX_ERROR(std::string(201, '(') + "1" + std::string(201, ')'), 200, "expression nested too deeply");
    EXPECT_SYNTAX_ERROR(std::string(201, '-') + "1", 200, "expression nested too deeply");
}

TEST(XPathSyntaxTest, NamesAreOperatorsOnlyAfterAnOperand) {
    TestNode root;
    TestNode& a = root.add(u"and");
    a.add(u"div", u"3");
    a.add(u"mod", u"4");
    TestNavigator nav;
    auto eval = [&](const char16_t* e) { return XPathExpression(e).evaluate(nav, &root); };
    EXPECT_EQ(eval(u"and/div * and/mod").number, 12);
    EXPECT_EQ(eval(u"and/mod mod and/div").number, 1);
    EXPECT_EQ(eval(u"count(and/*)").number, 2);
    EXPECT_EQ(XPathExpression(u"a and b or c").type(), XPathType::Boolean);
    EXPECT_EQ(XPathExpression(u"child :: *").type(), XPathType::NodeSet);
    EXPECT_EQ(XPathExpression(u"- - 1").evaluate(nav, &root).number, 1);
}

TEST_F(XPathTest, PathsWalkTheTreeWithTheRootAsDocumentNode) {
    EXPECT_EQ(nodes("/"), "/");
    EXPECT_EQ(nodes("/@version"), "/@version");
    EXPECT_EQ(nodes("self::*"), "");
    EXPECT_EQ(nodes("self::node()"), "/");
    EXPECT_EQ(nodes("/shop/item"), "item(1) item(2)");
    EXPECT_EQ(nodes("//item"), "item(1) item(2) item(4)");
    EXPECT_EQ(nodes("//*[@id]"), "item(1) item(2) q:item(3) item(4)");
    EXPECT_EQ(nodes("shop/@*"), "shop@p:code shop@name");
    EXPECT_EQ(nodes("//q:*"), "q:item(3)");
    EXPECT_EQ(nodes("shop/item | //box/item | shop/item[1]"), "item(1) item(2) item(4)");
    EXPECT_EQ(nodes("//text()"), "/#text item(1)#text note#text item(2)#text item(4)#text");
    EXPECT_EQ(nodes("shop/item[1]/node()"), "item(1)#text note");
    EXPECT_EQ(nodes("//item[string() = 'pear']"), "item(2)");
}

TEST_F(XPathTest, PositionsCountAlongTheAxisAndResultsComeInDocumentOrder) {
    EXPECT_EQ(nodes("//item[1]"), "item(1) item(4)");
    EXPECT_EQ(nodes("(//item)[last()]"), "item(4)");
    EXPECT_EQ(nodes("//item[position() = last()]"), "item(2) item(4)");
    EXPECT_EQ(nodes("//note/ancestor::*[1]"), "item(1)");
    EXPECT_EQ(nodes("//note/ancestor::*[last()]"), "shop");
    EXPECT_EQ(nodes("//note/ancestor::node()[last()]"), "/");
    EXPECT_EQ(nodes("//note/ancestor-or-self::*[position() < 3]"), "item(1) note");
    EXPECT_EQ(nodes("//box/preceding-sibling::*[1]"), "q:item(3)");
    EXPECT_EQ(nodes("//note/preceding-sibling::node()"), "item(1)#text");
    EXPECT_EQ(nodes("//note/preceding::node()"), "/#text item(1)#text");
    EXPECT_EQ(nodes("shop/item[1]/text()/following-sibling::*"), "note");
    EXPECT_EQ(nodes("//@price/following::text()[1]"), "item(1)#text item(2)#text item(4)#text");
    EXPECT_EQ(nodes("//item[2][@id = 2]"), "item(2)");
    EXPECT_EQ(nodes("//item[@id = 2][1]"), "item(2)");
}

TEST_F(XPathTest, ComparisonsFollowTheConversionRules) {
    EXPECT_TRUE(boolean("//item/@price = 2.5"));
    EXPECT_TRUE(boolean("//item/@price != 10"));
    EXPECT_TRUE(boolean("//@price < 0"));
    EXPECT_FALSE(boolean("//@price > 10"));
    EXPECT_FALSE(boolean("//item/@id = //q:item/@id"));
    EXPECT_FALSE(boolean("shop/@name != shop/@name"));
    EXPECT_TRUE(boolean("not(//missing)"));
    EXPECT_FALSE(boolean("//missing = ''"));
    EXPECT_FALSE(boolean("//missing != ''"));
    EXPECT_TRUE(boolean("//missing = false()"));
    // A boolean meets a node-set through boolean(), also for < and >.
    EXPECT_TRUE(boolean("false() < /shop"));
    EXPECT_TRUE(boolean("true() >= //missing"));
    EXPECT_TRUE(boolean("true() = 'x'"));
    EXPECT_TRUE(boolean("1 = '1.0'"));
    EXPECT_FALSE(boolean("'1' = '1.0'"));
    EXPECT_FALSE(boolean("'abc' < 'abd'"));
    EXPECT_TRUE(boolean("'2' < '10'"));
    EXPECT_FALSE(boolean("0 div 0 = 0 div 0"));
    EXPECT_TRUE(boolean("0 div 0 != 0 div 0"));
}

TEST_F(XPathTest, NamesAndStringValues) {
    EXPECT_EQ(str("string(/)"), "top appleripepear  plum \t cake ");
    EXPECT_EQ(str("string(//item)"), "appleripe");
    EXPECT_EQ(str("string(//item/@price)"), "10");
    EXPECT_EQ(str("name(//@p:code)"), "p:code");
    EXPECT_EQ(str("local-name(//@p:code)"), "code");
    EXPECT_EQ(str("name(/)"), "records");
    EXPECT_EQ(str("local-name(//q:item)"), "item");
    EXPECT_EQ(str("name(//text())"), "");
    EXPECT_EQ(str("name(//missing)"), "");
    EXPECT_EQ(str("name()", &shop()), "shop");
    EXPECT_EQ(str("normalize-space(//box/item)"), "plum cake");
    EXPECT_EQ(str("normalize-space()", shop().children[3]->children[0].get()), "plum cake");
    EXPECT_EQ(str("normalize-space('   ')"), "");
    EXPECT_EQ(num("string-length(//box/item)"), 14);
    EXPECT_EQ(num("string-length('\xF0\x9F\x98\x80" "a')"), 2);  // a surrogate pair is one character
    EXPECT_EQ(num("string-length()"), 31);
    EXPECT_EQ(num("count(//item[@price > 0])"), 2);
}

TEST_F(XPathTest, StringFunctionsAtTheirEdges) {
    EXPECT_TRUE(boolean("contains('abc', '')"));
    EXPECT_TRUE(boolean("contains('', '')"));
    EXPECT_TRUE(boolean("starts-with('abc', '')"));
    EXPECT_FALSE(boolean("starts-with('', 'a')"));
    EXPECT_TRUE(boolean("contains(//box/item, 'plum')"));
    EXPECT_FALSE(boolean("starts-with(//item, 'pear')"));  // the first item only
    EXPECT_FALSE(boolean("boolean(0 div 0)"));
    EXPECT_TRUE(boolean("boolean('0')"));
    EXPECT_FALSE(boolean("boolean('')"));
    EXPECT_FALSE(boolean("boolean(-0)"));
}

TEST_F(XPathTest, NumbersReadAndPrintTheXPathWay) {
    EXPECT_TRUE(std::isnan(num("number('')")));
    EXPECT_EQ(num("number(' 12 ')"), 12);
    EXPECT_EQ(num("number('\t-7\n')"), -7);
    EXPECT_EQ(num("number('-.5')"), -0.5);
    EXPECT_EQ(num("number('1.')"), 1);
    for (const char* bad : {"'+1'", "'1e3'", "'-'", "'.'", "'1.2.3'", "'- 1'", "'0x10'", "'1 2'"})
        EXPECT_TRUE(std::isnan(num(std::string("number(") + bad + ")"))) << bad;
    EXPECT_EQ(num("number(true())"), 1);
    EXPECT_EQ(num("number(//item/@price)"), 10);
    EXPECT_TRUE(std::isnan(num("number(//q:item/@price)")));
    EXPECT_EQ(num("5 mod 2"), 1);
    EXPECT_EQ(num("-5 mod 2"), -1);
    EXPECT_EQ(num("5 mod -2"), 1);
    EXPECT_EQ(num("5.5 mod 2"), 1.5);
    EXPECT_EQ(num("7 div 2 - -1 * 3"), 6.5);

    EXPECT_EQ(str("string(1 div 0)"), "Infinity");
    EXPECT_EQ(str("string(-1 div 0)"), "-Infinity");
    EXPECT_EQ(str("string(0 div 0)"), "NaN");
    EXPECT_EQ(str("string(-0)"), "0");
    EXPECT_EQ(str("string(0.1)"), "0.1");
    EXPECT_EQ(str("string(-2.50)"), "-2.5");
    EXPECT_EQ(str("string(0.000001)"), "0.000001");
    EXPECT_EQ(str("string(1000000000000000000000)"), "1000000000000000000000");
    EXPECT_EQ(str("string(0.1 + 0.2)"), "0.30000000000000004");
    EXPECT_EQ(str("string(1 = 1)"), "true");
    EXPECT_EQ(utf16ToUtf8(xpathFormatNumber(1.5e-7)), "0.00000015");
    EXPECT_EQ(utf16ToUtf8(xpathFormatNumber(-123456.789)), "-123456.789");
    EXPECT_EQ(xpathParseNumber(u"1" + std::u16string(400, u'0')), INFINITY);
    EXPECT_EQ(xpathParseNumber(u"0." + std::u16string(400, u'0') + u"1"), 0);
}

TEST_F(XPathTest, IgnoreCaseFoldsOnlyAsciiLettersInNameTests) {
    EXPECT_EQ(nodes("//ITEM"), "");
    EXPECT_EQ(nodes("//ITEM/@ID", nullptr, true), "item(1)@id item(2)@id item(4)@id");
    EXPECT_EQ(nodes("//Q:*", nullptr, true), "q:item(3)");
    EXPECT_EQ(nodes("//*[@NAME]", nullptr, true), "shop");
    EXPECT_EQ(nodes("//item[@id = 'A']", nullptr, true), "");  // values still compare exactly
}

TEST(XPathDeepTreeTest, DeepTreesDoNotExhaustTheStack) {
    constexpr int kDepth = 20000;
    TestNode root;
    std::vector<TestNode*> chain{&root};
    for (int i = 0; i < kDepth; ++i) chain.push_back(&chain.back()->add(u"n", u"x"));
    TestNavigator nav;
    auto eval = [&](const char16_t* e, const TestNode* at) { return XPathExpression(e).evaluate(nav, at); };
    EXPECT_EQ(eval(u"count(//n)", &root).number, kDepth);
    EXPECT_EQ(eval(u"count(//n/..)", &root).number, kDepth);
    EXPECT_EQ(eval(u"string-length(string(/))", &root).number, kDepth);
    EXPECT_EQ(eval(u"count(ancestor::n)", chain.back()).number, kDepth - 1);
    EXPECT_EQ(eval(u"count(preceding::node())", chain.back()).number, kDepth - 1);  // the ancestors' texts
    // Tear the chain down from the bottom so the destructors do not recurse.
    for (size_t i = chain.size() - 1; i > 0; --i) chain[i - 1]->children.clear();
}

}  // namespace

namespace {

TEST(CXPathParserTest, RegisteredByTagAndRefusesCallsItCannotServe) {
    Ptr<iXPathParser> parser = ObjectFactory::createAs<iXPathParser>(XPathParserTag);
    EXPECT_STREQ(parser->getClassTag(), "Norvatek.CXPathParser");
    EXPECT_EQ(parser->getContextNode(), nullptr);
    WString text(u"kept");
    EXPECT_THROW_MSG(parser->evaluate(u"a", 0, text), Exception, "No context node is bound to the XPath evaluator");
    EXPECT_THROW_MSG(parser->evaluate(u"a", 0x30 | QueryNoThrow, text), BadParameterException,
                     "Unknown query flags 0x30");
    EXPECT_EQ(text, u"kept");
}

}  // namespace
