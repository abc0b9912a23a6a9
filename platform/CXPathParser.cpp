#include "nvk/platform/CXPathParser.h"

#include <climits>
#include <cmath>
#include <vector>

#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"
#include "nvk/platform/iPropertyCollection.h"

namespace tovan {

const ClassTag CXPathParser::Tag(XPathParserTag);

namespace {

const ClassRegistration registration(XPathParserTag, &CXPathParser::createObject);

constexpr int kKnownFlags = QueryFirstOnly | QueryIgnoreCase | QueryAppend | QueryNoThrow;

const iNode& nodeOf(XPathHandle h) { return *static_cast<const iNode*>(h); }

/// Whether `v` is a node-set of `kind` items only (nodes, or properties); when
/// it is not, false under QueryNoThrow and BadParameterException otherwise.
bool isSetOf(const XPathValue& v, XPathItemKind kind, const WString& expr, int flags, const char* op) {
    if (v.type != XPathType::NodeSet) {
        if (flags & QueryNoThrow) return false;
        throw BadParameterException("CXPathParser", op, u"XPath expression \"%ls\" gives a %hs, not a node-set", expr,
                                    xpathTypeName(v.type));
    }
    for (const XPathItem& item : v.nodes) {
        if (item.kind == kind) continue;
        if (flags & QueryNoThrow) return false;
        if (kind == XPathItemKind::Node)
            throw BadParameterException("CXPathParser", op,
                                        u"XPath expression \"%ls\" selects properties or text, not nodes", expr);
        throw BadParameterException("CXPathParser", op, u"XPath expression \"%ls\" selects nodes or text, not properties",
                                    expr);
    }
    return true;
}

// A data tree through the navigator's eyes. Attributes are the properties
// without the node-value flag; which property sits behind attribute i is
// remembered for the node asked about last, since the evaluator asks about
// one node's attributes in a row.
class NodeNavigator : public XPathNavigator {
public:
    XPathHandle parentOf(XPathHandle n) const override { return nodeOf(n).findParent(); }
    size_t childCount(XPathHandle n) const override { return size_t(nodeOf(n).getNumberOfChildren()); }
    XPathHandle childAt(XPathHandle n, size_t i) const override { return nodeOf(n).getChildAt(int(i)); }
    size_t indexInParent(XPathHandle n) const override {
        const iNode* parent = nodeOf(n).findParent();
        return parent ? size_t(parent->getChildIndex(&nodeOf(n))) : 0;
    }
    WString nameOf(XPathHandle n) const override { return nodeOf(n).getName(); }
    const WString* nameRef(XPathHandle n) const override { return &nodeOf(n).getName(); }
    size_t attributeCount(XPathHandle n) const override { return attributes(n).size(); }
    WString attributeName(XPathHandle n, size_t i) const override { return property(n, i).getName(); }
    WString attributeValue(XPathHandle n, size_t i) const override { return property(n, i).getValue().toString(); }
    const WString* attributeNameRef(XPathHandle n, size_t i) const override { return &property(n, i).getName(); }
    const WString* attributeValueRef(XPathHandle n, size_t i) const override {
        const Value& v = property(n, i).getValue();
        return v.getTypeCode() == VT_String ? &static_cast<const StringValue&>(v).get() : nullptr;
    }
    WString textOf(XPathHandle n) const override {
        const iNode& node = nodeOf(n);
        return node.hasNullValue() ? WString() : node.getValue().toString();
    }

    iProperty& property(XPathHandle n, size_t attribute) const {
        return nodeOf(n).getProperties()->get(attributes(n).at(attribute));
    }

private:
    const std::vector<int>& attributes(XPathHandle n) const {
        if (n != cachedNode_) {
            cachedNode_ = n;
            cachedIndexes_.clear();
            if (const iPropertyCollection* props = nodeOf(n).getProperties()) {
                const int size = props->getSize();
                for (int i = 0; i < size; ++i)
                    if (!(props->get(i).getFlags() & MetaDataNodeValue)) cachedIndexes_.push_back(i);
            }
        }
        return cachedIndexes_;
    }

    mutable XPathHandle cachedNode_ = nullptr;
    mutable std::vector<int> cachedIndexes_;
};

bool isEmptyNodeSet(const XPathValue& v) { return v.type == XPathType::NodeSet && v.nodes.empty(); }


}  // namespace

CXPathParser::CXPathParser() = default;
CXPathParser::~CXPathParser() = default;

Object* CXPathParser::createObject() { return new CXPathParser(); }

const XPathExpression& CXPathParser::compile(const WString& expr) {
    auto it = cache_.find(expr.str());
    if (it != cache_.end()) return *it->second;
    auto parsed = std::make_unique<XPathExpression>(expr.view());
    if (cache_.size() >= kCachedExpressions) cache_.clear();
    return *cache_.emplace(expr.str(), std::move(parsed)).first->second;
}

bool CXPathParser::run(const WString& expr, int flags, const char* operation, XPathValue& value) {
    if (flags & ~kKnownFlags)
        throw BadParameterException("CXPathParser", operation, u"Unknown query flags 0x%x", flags & ~kKnownFlags);
    if (!context_) throw Exception("CXPathParser", operation, u"No context node is bound to the XPath evaluator");
    const XPathExpression* parsed;
    try {
        parsed = &compile(expr);
    } catch (const BadParameterException&) {
        if (flags & QueryNoThrow) return false;
        throw;
    }
    NodeNavigator navigator;
    value = parsed->evaluate(navigator, context_, (flags & QueryIgnoreCase) != 0);
    return true;
}

bool CXPathParser::evaluate(const WString& expr, int flags, NodeReferenceSet& result) {
    static const char* const op = "evaluate(NodeReferenceSet)";
    XPathValue v;
    if (!run(expr, flags, op, v) || !isSetOf(v, XPathItemKind::Node, expr, flags, op)) return false;
    if (!(flags & QueryAppend)) result.clear();
    for (const XPathItem& item : v.nodes) {
        result.add(const_cast<iNode*>(&nodeOf(item.node)));
        if (flags & QueryFirstOnly) break;
    }
    return !v.nodes.empty();
}

bool CXPathParser::evaluate(const WString& expr, int flags, PropertyReferenceSet& result) {
    static const char* const op = "evaluate(PropertyReferenceSet)";
    XPathValue v;
    if (!run(expr, flags, op, v) || !isSetOf(v, XPathItemKind::Attribute, expr, flags, op)) return false;
    NodeNavigator navigator;
    std::vector<iProperty*> found;
    for (const XPathItem& item : v.nodes) found.push_back(&navigator.property(item.node, item.attribute));
    if (!(flags & QueryAppend)) result.clear();
    for (iProperty* p : found) {
        result.add(p);
        if (flags & QueryFirstOnly) break;
    }
    return !found.empty();
}

bool CXPathParser::evaluate(const WString& expr, int flags, WString& result) {
    XPathValue v;
    if (!run(expr, flags, "evaluate(WString)", v)) return false;
    NodeNavigator navigator;
    result = WString(xpathToString(navigator, v));
    return !isEmptyNodeSet(v);
}

bool CXPathParser::evaluate(const WString& expr, int flags, int& result) {
    XPathValue v;
    if (!run(expr, flags, "evaluate(int)", v)) return false;
    NodeNavigator navigator;
    const double n = std::trunc(xpathToNumber(navigator, v));
    if (!std::isfinite(n) || n < double(INT_MIN) || n > double(INT_MAX)) {
        result = 0;
        return false;
    }
    result = int(n);
    return true;
}

XPathValue CXPathParser::evaluateValue(const WString& expr, int flags) {
    XPathValue v;
    run(expr, flags & ~QueryNoThrow, "evaluateValue", v);
    return v;
}

iNode& CXPathParser::nodeOfItem(const XPathItem& item) { return const_cast<iNode&>(nodeOf(item.node)); }

iProperty& CXPathParser::propertyOfItem(const XPathItem& item) {
    if (item.kind != XPathItemKind::Attribute)
        throw BadParameterException("CXPathParser", "propertyOfItem", u"The item is not a property");
    return NodeNavigator().property(item.node, item.attribute);
}

bool CXPathParser::evaluate(const WString& expr, int flags, bool& result) {
    XPathValue v;
    if (!run(expr, flags, "evaluate(bool)", v)) return false;
    result = xpathToBoolean(v);
    return !isEmptyNodeSet(v);
}

}  // namespace tovan
