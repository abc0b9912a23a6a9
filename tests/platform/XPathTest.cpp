// The XPath evaluator on hand-built trees: syntax errors, functions and
// conversions at their edges, and the tree model's own choices.
#include <gtest/gtest.h>

#include <cmath>

#include "XPathTestTree.h"
#include "nvk/platform/CXPathParser.h"
#include "nvk/platform/Exception.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::TestNavigator;
using nvktest::TestNode;

namespace {

class XPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_.name = u"records";
        root_.attributes = {{u"version", u"7"}};
        root_.text = u"top ";
        TestNode& shop = root_.add(u"shop");
        shop.attributes = {{u"p:code", u"S1"}, {u"name", u"Main"}};
        TestNode& apple = shop.add(u"item", u"apple");
        apple.attributes = {{u"id", u"1"}, {u"price", u"10"}};
        apple.add(u"note", u"ripe");
        shop.add(u"item", u"pear").attributes = {{u"id", u"2"}, {u"price", u"2.5"}};
        shop.add(u"q:item").attributes = {{u"id", u"3"}, {u"price", u"x"}};
        shop.add(u"box").add(u"item", u"  plum \t cake ").attributes = {{u"id", u"4"}, {u"price", u"-1"}};
    }

    // The result as text that also shows its type: a node-set as its items in braces,
    // a string quoted, a number or a boolean as XPath prints it.
    std::string show(const std::string& expr, const TestNode* context = nullptr, bool ignoreCase = false) {
        XPathValue v = XPathExpression(utf8ToUtf16(expr)).evaluate(nav_, context ? context : &root_, ignoreCase);
        switch (v.type) {
        case XPathType::NodeSet: return "{" + nvktest::describeItems(v.nodes) + "}";
        case XPathType::String: return "'" + utf16ToUtf8(v.text) + "'";
        case XPathType::Number: return utf16ToUtf8(xpathFormatNumber(v.number));
        case XPathType::Boolean: break;
        }
        return v.boolean ? "true" : "false";
    }
    const TestNode& shop() const { return *root_.children[0]; }

    TestNode root_;
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

// The random differential run covers paths, axes, positions, comparisons and functions
// in general; these are the cases it cannot reach or where the reference differs.
TEST_F(XPathTest, CasesBeyondTheDifferentialRun) {
    const std::pair<const char*, const char*> cases[] = {
        // The root stands for the document, yet has a name, attributes and text.
        {"/", "{/}"},
        {"/@version", "{/@version}"},
        {"self::*", "{}"},
        {"self::node()", "{/}"},
        {"//text()", "{/#text item(1)#text note#text item(2)#text item(4)#text}"},
        {"//note/ancestor::*[last()]", "{shop}"},
        {"//note/ancestor::node()[last()]", "{/}"},
        {"//note/preceding::node()", "{/#text item(1)#text}"},
        {"string(/)", "'top appleripepear  plum \t cake '"},
        {"name(/)", "'records'"},
        {"string-length()", "31"},
        {"local-name(//q:item)", "'item'"},
        // The reference compares a boolean with a node-set by < and > through numbers.
        {"false() < /shop", "true"},
        {"true() >= //missing", "true"},
        {"//missing = false()", "true"},
        {"shop/@name != shop/@name", "false"},  // every string on both sides the same
        // Non-ASCII text counts characters, not UTF-16 units.
        {"string-length('\xF0\x9F\x98\x80" "a')", "2"},
        // Number texts the random run leaves out.
        {"number('')", "NaN"},
        {"number(' 12 ')", "12"},
        {"number('\t-7\n')", "-7"},
        {"number('-.5')", "-0.5"},
        {"number('1.')", "1"},
        {"number(//q:item/@price)", "NaN"},
        {"5 mod 2", "1"},
        {"-5 mod 2", "-1"},
        {"5 mod -2", "1"},
        {"5.5 mod 2", "1.5"},
        {"7 div 2 - -1 * 3", "6.5"},
        {"boolean(-0)", "false"},
        {"boolean(0 div 0)", "false"},
        {"string(1 div 0)", "'Infinity'"},
        {"string(-1 div 0)", "'-Infinity'"},
        {"string(0 div 0)", "'NaN'"},
        {"string(-0)", "'0'"},
        {"string(-2.50)", "'-2.5'"},
        {"string(0.000001)", "'0.000001'"},
        {"string(1000000000000000000000)", "'1000000000000000000000'"},
        {"string(0.1 + 0.2)", "'0.30000000000000004'"},
        {"string(1 = 1)", "'true'"},
    };
    for (auto [expr, expected] : cases) EXPECT_EQ(show(expr), expected) << expr;
    for (const char* bad : {"'+1'", "'1e3'", "'-'", "'.'", "'1.2.3'", "'- 1'", "'0x10'", "'1 2'"})
        EXPECT_EQ(show(std::string("number(") + bad + ")"), "NaN") << bad;
    EXPECT_EQ(show("name()", &shop()), "'shop'");
    EXPECT_EQ(show("normalize-space()", shop().children[3]->children[0].get()), "'plum cake'");
    EXPECT_EQ(utf16ToUtf8(xpathFormatNumber(1.5e-7)), "0.00000015");
    EXPECT_EQ(utf16ToUtf8(xpathFormatNumber(-123456.789)), "-123456.789");
    EXPECT_EQ(xpathParseNumber(u"1" + std::u16string(400, u'0')), INFINITY);
    EXPECT_EQ(xpathParseNumber(u"0." + std::u16string(400, u'0') + u"1"), 0);
}

TEST_F(XPathTest, IgnoreCaseFoldsOnlyAsciiLettersInNameTests) {
    EXPECT_EQ(show("//ITEM"), "{}");
    EXPECT_EQ(show("//ITEM/@ID", nullptr, true), "{item(1)@id item(2)@id item(4)@id}");
    EXPECT_EQ(show("//Q:*", nullptr, true), "{q:item(3)}");
    EXPECT_EQ(show("//*[@NAME]", nullptr, true), "{shop}");
    EXPECT_EQ(show("//item[@id = 'A']", nullptr, true), "{}");  // values still compare exactly
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
