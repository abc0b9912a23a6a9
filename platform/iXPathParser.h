#pragma once
// The path-expression evaluator that nodes use for `iNode::query` and that
// property collections use to resolve hierarchical property names.
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iNode.h"

namespace tovan {

class NodeReferenceSet;
class PropertyReferenceSet;

/// Evaluates XPath expressions over a data tree. An implementation registers
/// under the class tag `XPathParserTag` ("Norvatek.CXPathParser"); nodes
/// create it through ObjectFactory::createAs<iXPathParser>.
///
/// The evaluator is bound to one context node and does not hold a reference
/// on it (the node owns the evaluator it caches, so a reference back would
/// keep both alive forever). Whoever binds it keeps the node alive while
/// evaluating. One evaluator is not thread-safe; nodes call theirs under the
/// node's lock.
///
/// Success, the return value of every `evaluate`:
/// - node or property set: true when at least one element was selected;
/// - string, integer, boolean: true when the expression produced a value of
///   that kind or one convertible to it (an empty node set, or a number that
///   is not finite for an integer result, gives false and leaves `result` as
///   "", 0 or false).
/// An expression that does not parse raises BadParameterException, unless
/// QueryNoThrow is given; then the call returns false. `flags` are the
/// QueryFlags of iNode.h.
class NVK_EXPORT iXPathParser : public CountedObject {
public:
    ~iXPathParser() override;

    /// Binds the context node (null unbinds).
    virtual void setContextNode(iNode* node) = 0;
    virtual iNode* getContextNode() const = 0;

    /// Node set, in document order; emptied first unless QueryAppend.
    virtual bool evaluate(const WString& expr, int flags, NodeReferenceSet& result) = 0;
    /// The properties the expression selects (attribute steps "@name" select
    /// properties), emptied first unless QueryAppend.
    virtual bool evaluate(const WString& expr, int flags, PropertyReferenceSet& result) = 0;
    virtual bool evaluate(const WString& expr, int flags, WString& result) = 0;
    /// The value converted to a number and truncated toward zero.
    virtual bool evaluate(const WString& expr, int flags, int& result) = 0;
    virtual bool evaluate(const WString& expr, int flags, bool& result) = 0;
};

/// The class tag under which the evaluator registers.
inline constexpr const char* XPathParserTag = "Norvatek.CXPathParser";

}  // namespace tovan
