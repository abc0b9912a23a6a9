#pragma once
// The parsed form of an XPath expression, shared by the parser and the evaluator.
#include <memory>
#include <string>
#include <vector>

#include "nvk/platform/XPath.h"

namespace tovan::xpath {

enum class Axis : uint8_t {
    Ancestor,
    AncestorOrSelf,
    Attribute,
    Child,
    Descendant,
    DescendantOrSelf,
    Following,
    FollowingSibling,
    Parent,
    Preceding,
    PrecedingSibling,
    Self,
};

/// Reverse axes number their nodes from the context outwards, so positions in
/// their predicates count backwards through document order.
constexpr bool isReverseAxis(Axis a) {
    return a == Axis::Ancestor || a == Axis::AncestorOrSelf || a == Axis::Preceding || a == Axis::PrecedingSibling;
}

enum class TestKind : uint8_t {
    Name,      // "item" or "p:item": the qualified name
    Prefix,    // "p:*": any name with that prefix
    Any,       // "*": any name
    AnyNode,   // node()
    TextNode,  // text()
};

enum class Function : uint8_t {
    Boolean,
    Contains,
    Count,
    False,
    Last,
    LocalName,
    Name,
    NormalizeSpace,
    Not,
    Number,
    Position,
    StartsWith,
    String,
    StringLength,
    True,
};

enum class ExprKind : uint8_t {
    Or,
    And,
    Equal,
    NotEqual,
    Less,
    LessOrEqual,
    Greater,
    GreaterOrEqual,
    Add,
    Subtract,
    Multiply,
    Divide,
    Modulo,
    Negate,
    Union,
    Literal,
    Number,
    Call,
    Filter,  // a primary expression with predicates
    Path,    // a location path, possibly starting from a filter expression
};

struct Expr;
using ExprPtr = std::unique_ptr<Expr>;

struct Step {
    Axis axis = Axis::Child;
    TestKind test = TestKind::AnyNode;
    std::u16string name;  // Name: the qualified name; Prefix: the prefix
    std::vector<ExprPtr> predicates;
    // How many leading predicates look at neither position nor size: the
    // axis walk tests those on each node as it passes, while it is at hand.
    size_t positionFree = 0;
};

struct Expr {
    ExprKind kind;
    XPathType type;
    ExprPtr left, right;  // operands; Negate uses left; Filter: left is the primary
    std::u16string literal;
    double number = 0;
    Function function = Function::True;
    std::vector<ExprPtr> args;  // Call: arguments; Filter: predicates
    // Path: start at the root (absolute), at `left` (a filter expression) or at the context.
    bool absolute = false;
    std::vector<Step> steps;

    Expr(ExprKind k, XPathType t) : kind(k), type(t) {}
};

ExprPtr parse(std::u16string_view text);

}  // namespace tovan::xpath
