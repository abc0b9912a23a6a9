#pragma once
// What the XPath differential tests share: random trees and random
// expressions, and the mapping of pugixml's result (the reference) back onto
// our tree. Used on the evaluator directly and on `nvk query` over records.
#include <cmath>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "XPathTestTree.h"

namespace nvktest {

using tovan::XPathItem;
using tovan::XPathItemKind;
using tovan::XPathType;

// A small deterministic generator (the standard distributions differ between libraries).
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    size_t below(size_t n) { return size_t(next() % n); }
    bool chance(int percent) { return below(100) < size_t(percent); }
    template <class T, size_t N>
    const T& pick(const T (&items)[N]) {
        return items[below(N)];
    }

private:
    uint64_t state_;
};

inline const char16_t* const kNames[] = {u"a", u"b", u"c", u"a", u"b", u"p:a", u"p:b", u"q:c"};
inline const char16_t* const kAttributes[] = {u"x", u"y", u"id", u"p:z"};
inline const char16_t* const kValues[] = {u"1", u"2", u"10", u"-3", u"1.5", u"abc", u"a b", u"", u" 7 ", u"x", u"0", u".5"};
inline const char16_t* const kTexts[] = {u"1", u"2", u"abc", u"hello world", u"  spaced  out  ", u"\t4\n", u"-0.25", u"x", u" "};

inline void growTree(Random& rnd, TestNode& node, int depth) {
    if (rnd.chance(40)) node.text = rnd.pick(kTexts);
    if (depth == 0) return;
    const size_t count = node.parent ? rnd.below(4) : 2 + rnd.below(3);
    for (size_t i = 0; i < count; ++i) {
        TestNode& child = node.add(rnd.pick(kNames));
        for (const char16_t* attr : kAttributes)
            if (rnd.chance(30)) child.attributes.emplace_back(attr, rnd.pick(kValues));
        growTree(rnd, child, depth - 1);
    }
}

class ExpressionGenerator {
public:
    explicit ExpressionGenerator(Random& rnd) : rnd_(rnd) {}

    std::string any(int depth) { return ofType(XPathType(rnd_.below(4)), depth); }

    std::string ofType(XPathType type, int depth) {
        switch (type) {
        case XPathType::NodeSet: return nodeSet(depth);
        case XPathType::Number: return number(depth);
        case XPathType::String: return string(depth);
        case XPathType::Boolean: break;
        }
        return boolean(depth);
    }

    std::string nodeSet(int depth) {
        if (depth > 0 && rnd_.chance(12)) return nodeSet(depth - 1) + " | " + nodeSet(depth - 1);
        if (depth > 0 && rnd_.chance(8)) return "(" + nodeSet(depth - 1) + ")[" + predicate(depth - 1) + "]";
        if (depth > 0 && rnd_.chance(6)) return "(" + nodeSet(depth - 1) + ")/" + step(depth - 1);
        std::string path;
        const size_t start = rnd_.below(10);
        if (start < 2)
            path = "/";
        else if (start < 6)
            path = "//";
        else if (start == 6 && rnd_.chance(20))
            return "/";
        const size_t steps = 1 + rnd_.below(rnd_.chance(50) ? 1 : 3);
        for (size_t i = 0; i < steps; ++i) {
            if (i > 0) path += rnd_.chance(75) ? "/" : "//";
            path += step(i == 0 ? depth : depth - 1);
        }
        return path;
    }

    std::string step(int depth) {
        static const char* const axes[] = {"ancestor::", "ancestor-or-self::", "child::", "descendant::",
                                           "descendant-or-self::", "following::", "following-sibling::", "parent::",
                                           "preceding::", "preceding-sibling::", "self::"};
        std::string s;
        switch (rnd_.below(12)) {
        case 0: return ".";
        case 1: return "..";
        case 2:
        case 3: s = "@" + attributeTest(); break;
        case 4:
        case 5: s = std::string(rnd_.pick(axes)) + nodeTest(); break;
        case 6: s = "attribute::" + attributeTest(); break;
        default: s = nodeTest();
        }
        const size_t predicates = depth > 0 && rnd_.chance(40) ? 1 + rnd_.below(2) : 0;
        for (size_t i = 0; i < predicates; ++i) s += "[" + predicate(depth - 1) + "]";
        return s;
    }

    std::string nodeTest() {
        static const char* const tests[] = {"a", "b", "c", "d", "p:a", "q:c", "p:*", "*", "*", "*", "node()", "node()", "text()", "a", "b"};
        return rnd_.pick(tests);
    }
    std::string attributeTest() {
        static const char* const tests[] = {"x", "y", "id", "p:z", "*", "p:*", "node()"};
        return rnd_.pick(tests);
    }

    std::string predicate(int depth) {
        static const char* const positions[] = {"1", "2", "3", "last()", "last() - 1", "position() = 2",
                                                "position() > 1", "position() mod 2 = 0"};
        if (rnd_.chance(35)) return rnd_.pick(positions);
        return rnd_.chance(20) ? nodeSet(depth) : boolean(depth);
    }

    std::string number(int depth) {
        // Inside string() only numbers with few digits: for values such as 3 div 7 the
        // reference prints fewer digits than the shortest text that reads back.
        static const char* const literals[] = {"0", "1", "2", "3", "1.5", "-0", "10", "7", "0.1"};
        static const char* const ops[] = {" + ", " - ", " * ", " mod ", " div "};
        if (depth <= 0 || rnd_.chance(20)) return literals[rnd_.below(inString_ ? 8 : 9)];
        switch (rnd_.below(10)) {
        case 0: return "count(" + nodeSet(depth - 1) + ")";
        case 1: return rnd_.chance(50) ? "position()" : "last()";
        case 2: return "string-length(" + optional(string(depth - 1)) + ")";
        case 3: return "number(" + optional(any(depth - 1)) + ")";
        case 4: return "-" + number(depth - 1);
        case 5: return "(" + nodeSet(depth - 1) + ")" + std::string(ops[rnd_.below(inString_ ? 4 : 5)]) + number(depth - 1);
        default: return "(" + number(depth - 1) + ops[rnd_.below(inString_ ? 4 : 5)] + number(depth - 1) + ")";
        }
    }

    std::string string(int depth) {
        ++inString_;
        std::string s = stringExpression(depth);
        --inString_;
        return s;
    }

    std::string stringExpression(int depth) {
        static const char* const literals[] = {"'1'", "'abc'", "\"a b\"", "''", "' 7 '", "'x'", "'hello world'",
                                               "'1.5'", "'.5'", "'p:a'", "'a'"};
        if (depth <= 0 || rnd_.chance(20)) return rnd_.pick(literals);
        switch (rnd_.below(7)) {
        case 0: return "string(" + optional(any(depth - 1)) + ")";
        case 1: return "name(" + optional(nodeSet(depth - 1)) + ")";
        case 2: return "local-name(" + optional(nodeSet(depth - 1)) + ")";
        case 3: return "normalize-space(" + optional(string(depth - 1)) + ")";
        case 4: return "string(" + number(depth - 1) + ")";
        default: return "string(" + nodeSet(depth - 1) + ")";
        }
    }

    std::string boolean(int depth) {
        if (depth <= 0) return rnd_.chance(50) ? "true()" : "false()";
        static const char* const comparisons[] = {" = ", " != ", " < ", " <= ", " > ", " >= "};
        switch (rnd_.below(9)) {
        case 0: return boolean(depth - 1) + (rnd_.chance(50) ? " and " : " or ") + boolean(depth - 1);
        case 1: return "not(" + any(depth - 1) + ")";
        case 2: return "boolean(" + any(depth - 1) + ")";
        case 3: return std::string(rnd_.chance(50) ? "contains(" : "starts-with(") + string(depth - 1) + ", " +
                       string(depth - 1) + ")";
        default: {
            // The reference compares a boolean with a node-set by < <= > >= through
            // numbers, not through boolean() as XPath 1.0 says; such pairs get = or !=.
            const XPathType left = XPathType(rnd_.below(4)), right = XPathType(rnd_.below(4));
            const bool mixed = (left == XPathType::Boolean && right == XPathType::NodeSet) ||
                               (left == XPathType::NodeSet && right == XPathType::Boolean);
            const char* op = mixed ? comparisons[rnd_.below(2)] : rnd_.pick(comparisons);
            return "(" + ofType(left, depth - 1) + op + ofType(right, depth - 1) + ")";
        }
        }
    }

private:
    std::string optional(const std::string& arg) { return rnd_.chance(25) ? "" : arg; }
    Random& rnd_;
    int inString_ = 0;
};

// Where each pugixml node and attribute sits in our tree.
struct ItemMap {
    std::map<const void*, XPathItem> items;
    std::map<const TestNode*, pugi::xml_node> nodeOf;

    void build(const TestNode& ours, const pugi::xml_node& theirs) {
        items[theirs.internal_object()] = XPathItem{&ours};
        nodeOf[&ours] = theirs;
        size_t a = 0;
        for (const pugi::xml_attribute& attr : theirs.attributes())
            items[attr.internal_object()] = XPathItem{&ours, XPathItemKind::Attribute, uint32_t(a++)};
        size_t c = 0;
        for (const pugi::xml_node& child : theirs.children()) {
            if (child.type() == pugi::node_pcdata)
                items[child.internal_object()] = XPathItem{&ours, XPathItemKind::Text};
            else
                build(*ours.children.at(c++), child);
        }
    }

    std::vector<XPathItem> translate(const pugi::xpath_node_set& set) const {
        std::vector<XPathItem> out;
        for (const pugi::xpath_node& n : set)
            out.push_back(items.at(n.attribute() ? static_cast<const void*>(n.attribute().internal_object())
                                                  : static_cast<const void*>(n.node().internal_object())));
        return out;
    }
};

inline void collectNodes(const TestNode& n, std::vector<const TestNode*>& out) {
    out.push_back(&n);
    for (const auto& c : n.children) collectNodes(*c, out);
}

// Numbers print the same except for digits beyond what reads back exactly,
// where the reference may round differently; compare those by value.
inline bool sameString(const std::u16string& ours, const std::u16string& theirs) {
    if (ours == theirs) return true;
    double a = tovan::xpathParseNumber(ours), b = tovan::xpathParseNumber(theirs);
    return !std::isnan(a) && !std::isnan(b) && std::fabs(a - b) <= 1e-12 * std::max(1.0, std::fabs(a));
}

inline bool sameNumber(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

}  // namespace nvktest
