#pragma once
// The XPath 1.0 evaluator behind node queries and hierarchical property names.
//
// The evaluator walks any tree through an XPathNavigator, so it knows nothing
// of the concrete node classes: the binding to tovan::iNode lives in
// CXPathParser, tests drive it with trees of their own.
//
// Tree model (the navigator's view):
//   - a node has a qualified name ("p:item"), an ordered list of child nodes,
//     named attributes (the node's properties) and an optional text (its value);
//   - the text is the node's first XPath child: a text node that comes before
//     the element children in document order (a null or empty text is no text node);
//   - the root of the tree (the node without a parent) plays XPath's root node:
//     "/" selects it, absolute paths start at it, and name tests ("*", "item")
//     never match it, only node() does. Its name, attributes and text stay
//     readable (name(/), /@id, /text()).
// Document order: a node, then its attributes in their order, then its text,
// then its children's subtrees.
//
// Syntax errors raise BadParameterException (class "CXPathParser", operation
// "parse") with the message
//   XPath syntax error at offset <n> in "<expression>": <detail>
// where <n> is the zero-based offset, in UTF-16 code units, of the token
// that is wrong (the expression's length when it ended too early).
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

/// One node of a navigated tree; what it points to is the navigator's business.
using XPathHandle = const void*;

/// Read access to a tree, as the evaluator needs it. Handles stay valid while
/// an evaluation runs; the evaluator never changes the tree.
class NVK_EXPORT XPathNavigator {
public:
    virtual ~XPathNavigator();

    /// Null for the root.
    virtual XPathHandle parentOf(XPathHandle node) const = 0;
    virtual size_t childCount(XPathHandle node) const = 0;
    virtual XPathHandle childAt(XPathHandle node, size_t index) const = 0;
    /// Position of `node` among its parent's children. The default scans the
    /// parent's children; navigators that know it faster override it.
    virtual size_t indexInParent(XPathHandle node) const;
    /// The qualified name ("prefix:local" or "local"); null reads as empty.
    virtual WString nameOf(XPathHandle node) const = 0;
    /// The same name without a copy, for navigators that keep it as a string
    /// (name tests look at every node of a walk); null, the default, makes
    /// the evaluator call nameOf.
    virtual const WString* nameRef(XPathHandle node) const;
    virtual size_t attributeCount(XPathHandle node) const = 0;
    virtual WString attributeName(XPathHandle node, size_t index) const = 0;
    virtual WString attributeValue(XPathHandle node, size_t index) const = 0;
    /// The attribute's name and value without a copy, where the navigator
    /// keeps them as strings (predicates read them for every node of a
    /// walk); null, the default, makes the evaluator call the copying form.
    virtual const WString* attributeNameRef(XPathHandle node, size_t index) const;
    virtual const WString* attributeValueRef(XPathHandle node, size_t index) const;
    /// The node's own text; null or empty when it has none.
    virtual WString textOf(XPathHandle node) const = 0;
};

enum class XPathItemKind : uint8_t { Node, Attribute, Text };

/// One member of a node-set: a node, one of its attributes, or its text.
struct XPathItem {
    XPathHandle node = nullptr;
    XPathItemKind kind = XPathItemKind::Node;
    uint32_t attribute = 0;  // index among the node's attributes (kind Attribute only)

    bool operator==(const XPathItem& o) const {
        return node == o.node && kind == o.kind && (kind != XPathItemKind::Attribute || attribute == o.attribute);
    }
};

/// The four value types of XPath 1.0. Every expression has one static type
/// (there are no variables), known once it is parsed.
enum class XPathType : uint8_t { NodeSet, String, Number, Boolean };

NVK_EXPORT const char* xpathTypeName(XPathType type);  // "node-set", "string", "number", "boolean"

/// The result of an evaluation. Node-sets are free of duplicates and in
/// document order.
struct XPathValue {
    XPathType type = XPathType::NodeSet;
    std::vector<XPathItem> nodes;
    std::u16string text;
    double number = 0;
    bool boolean = false;
};

/// A parsed expression; evaluate it as often as needed, on any tree.
class NVK_EXPORT XPathExpression {
public:
    /// Parses `text`; a syntax error raises BadParameterException (see the top of this file).
    explicit XPathExpression(std::u16string_view text);
    ~XPathExpression();
    XPathExpression(XPathExpression&&) noexcept;
    XPathExpression& operator=(XPathExpression&&) noexcept;

    const std::u16string& text() const;
    XPathType type() const;

    /// Evaluates with `context` as the context node (position 1 of 1).
    /// `ignoreCase`: name tests and @name compare with A-Z folded to a-z, the
    /// way the rest of the system compares names; without it they compare
    /// exactly, as XPath does.
    XPathValue evaluate(const XPathNavigator& navigator, XPathHandle context, bool ignoreCase = false) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// ---- XPath's conversions --------------------------------------------------

/// The string-value of one item: an attribute's value, a text's text, or for
/// a node the concatenation of its own and all descendants' texts in document order.
NVK_EXPORT std::u16string xpathStringValue(const XPathNavigator& navigator, const XPathItem& item);
/// string(): a node-set gives the string-value of its first item ("" when empty).
NVK_EXPORT std::u16string xpathToString(const XPathNavigator& navigator, const XPathValue& value);
/// number(): strings are read by xpathParseNumber, true is 1, false 0.
NVK_EXPORT double xpathToNumber(const XPathNavigator& navigator, const XPathValue& value);
/// boolean(): a non-empty node-set or string, a number other than 0 and NaN.
NVK_EXPORT bool xpathToBoolean(const XPathValue& value);
/// XPath's reading of a string as a number: optional white space, an optional
/// '-', digits with an optional '.' and fraction (or '.' and digits), optional
/// white space; anything else is NaN.
NVK_EXPORT double xpathParseNumber(std::u16string_view text);
/// XPath's writing of a number: "NaN", "Infinity", "-Infinity", integers
/// without a decimal point, other values in plain decimal notation (never an
/// exponent) with the fewest digits that read back to the same double.
NVK_EXPORT std::u16string xpathFormatNumber(double value);

}  // namespace tovan
