#pragma once
// The framework's XPath evaluator over data trees ("Norvatek.CXPathParser").
#include <memory>
#include <string>
#include <unordered_map>

#include "nvk/platform/Export.h"
#include "nvk/platform/XPath.h"
#include "nvk/platform/iXPathParser.h"

namespace tovan {

/// Evaluates XPath 1.0 expressions (see XPath.h for the grammar and the tree
/// model) with the bound node as the context.
///
/// A data tree as XPath sees it: a node's name is the element name, its
/// properties are its attributes (in collection order; the property that
/// holds the node's value, flag MetaDataNodeValue, is not an attribute but
/// the node's text), its value as text (Value::toString) is its text node.
///
/// Result kinds (`flags` are the QueryFlags of iNode.h; other bits raise
/// BadParameterException "Unknown query flags 0x%x"):
/// - NodeReferenceSet: the expression must give a node-set of nodes; the set
///   receives them in document order.
/// - PropertyReferenceSet: the expression must give a node-set of attributes.
///   A node-set result that holds something else, or a result that is no
///   node-set, raises BadParameterException (QueryNoThrow: returns false);
///   the given set is then left as it was.
/// - WString, int, bool: XPath's string(), number() and boolean() convert any
///   result; int truncates toward zero. An empty node-set, and for int a
///   number that is NaN, infinite or outside int, give false with "", 0 or false.
/// Parsed expressions are kept (up to kCachedExpressions) so repeated queries
/// parse once.
class NVK_EXPORT CXPathParser : public iXPathParser {
public:
    static const ClassTag Tag;  // "Norvatek.CXPathParser"
    static constexpr size_t kCachedExpressions = 32;

    CXPathParser();
    ~CXPathParser() override;
    static Object* createObject();
    const ClassTag& getClass() const override { return Tag; }

    void setContextNode(iNode* node) override { context_ = node; }
    iNode* getContextNode() const override { return context_; }

    bool evaluate(const WString& expr, int flags, NodeReferenceSet& result) override;
    bool evaluate(const WString& expr, int flags, PropertyReferenceSet& result) override;
    bool evaluate(const WString& expr, int flags, WString& result) override;
    bool evaluate(const WString& expr, int flags, int& result) override;
    bool evaluate(const WString& expr, int flags, bool& result) override;

    /// The value itself, for callers that take whatever the expression gives
    /// (a node-set may mix nodes, properties and node values): a Node item's
    /// handle is the tovan::iNode, an Attribute item's property is
    /// propertyOfItem(item), a Text item stands for its node's value. `flags`
    /// as above; an expression that does not parse raises BadParameterException
    /// whatever the flags.
    XPathValue evaluateValue(const WString& expr, int flags);
    /// The node of an item of evaluateValue's result (for an attribute or a
    /// text, the node it belongs to).
    static iNode& nodeOfItem(const XPathItem& item);
    /// The property behind an Attribute item of evaluateValue's result.
    static iProperty& propertyOfItem(const XPathItem& item);

private:
    /// The value of `expr`; false (with QueryNoThrow) when it does not parse.
    bool run(const WString& expr, int flags, const char* operation, XPathValue& value);
    const XPathExpression& compile(const WString& expr);

    iNode* context_ = nullptr;  // not owned: the node owns this evaluator
    std::unordered_map<std::u16string, std::unique_ptr<XPathExpression>> cache_;
};

}  // namespace tovan
