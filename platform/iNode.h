#pragma once
// The data tree node: a qualified name, a property collection (which also
// holds the node's value), metadata, ordered children and a weak parent link.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iPropertyCollection.h"

namespace tovan {

class Value;
class iMetaData;
class NodeReferenceSet;
class PropertyReferenceSet;

/// Flags of `iNode::query` and `iXPathParser::evaluate`; combine with `|`.
enum QueryFlags : int {
    QueryDefault = 0,
    /// Stop at the first match: a node or property set holds at most one
    /// element; scalar results are unaffected.
    QueryFirstOnly = 0x1,
    /// Element and property names in the expression match folding A-Z to a-z
    /// (the way property names compare everywhere else).
    QueryIgnoreCase = 0x2,
    /// Add to the given node or property set instead of emptying it first.
    QueryAppend = 0x4,
    /// An expression that does not parse makes the call return false instead
    /// of raising BadParameterException.
    QueryNoThrow = 0x8,
};

/// A node of a data tree.
///
/// Ownership: a parent holds one reference on each child; the parent link is
/// weak (`setParent` only stores the pointer). Children, properties and
/// metadata are created on first use. A node is not thread-safe as a whole;
/// only the lazily created query evaluator is guarded by the node's lock.
/// Every failing call leaves the tree as it was (all checks run before the
/// first change).
class NVK_EXPORT iNode : public CountedObject, public iHaveProperties {
public:
    ~iNode() override;

    // ---- name -----------------------------------------------------------
    /// The qualified name as set ("prefix:local" or "local"); null when unset.
    virtual const WString& getName() const = 0;
    virtual void setName(const WString& name) = 0;
    /// The text before the first ":" of the name; null when there is none or
    /// the ":" comes first.
    virtual WString getNamePrefix() const = 0;
    /// Accepted for interface compatibility; it has no effect on the tree.
    virtual void addNamespaceDeclaration(const WString& prefix, const WString& uri) = 0;

    // ---- value (held as the node-value property) -------------------------
    /// The node's value; the framework's null value when it has none.
    virtual const Value& getValue() const = 0;
    virtual void setValue(const Value& value) = 0;
    /// True when there is no value or it is null.
    virtual bool hasNullValue() const = 0;

    // ---- metadata --------------------------------------------------------
    /// The node's metadata, created on first use.
    virtual iMetaData& getInfo() = 0;
    /// The metadata, or null when there is none.
    virtual iMetaData* findInfo() const = 0;
    virtual void clearInfo() = 0;

    // ---- parent and children ---------------------------------------------
    virtual iNode* findParent() const = 0;
    /// Stores the link only: no reference, no checks.
    virtual void setParent(iNode* parent) = 0;
    /// The topmost ancestor (the node itself for a root).
    virtual iNode* getRoot() const = 0;

    virtual int getNumberOfChildren() const = 0;
    virtual bool hasChildren() const = 0;
    /// Raises InvalidIndexException (index, count-1) outside the children.
    virtual iNode* getChildAt(int index) const = 0;
    /// Position of `child` by identity; raises Exception "The specified node
    /// (%ls) is not a child of this node (%ls)" when it is not a child.
    virtual int getChildIndex(const iNode* child) const = 0;

    /// Adds `child` at the end, detaching it from a previous parent first.
    virtual void appendChild(iNode* child) = 0;
    /// Inserts `newChild` at the position `refChild` has before `newChild`
    /// is detached from its previous parent.
    virtual void insertChildBefore(iNode* newChild, iNode* refChild) = 0;
    /// Puts `newChild` in the place of `oldChild` (note the order: the
    /// existing child first); `oldChild` is released and gets a null parent.
    virtual void replaceChild(iNode* oldChild, iNode* newChild) = 0;
    /// False (and no change) when `child` is not a child of this node.
    virtual bool removeChild(iNode* child) = 0;
    virtual void removeChildAt(int index) = 0;
    virtual void removeAllChildren() = 0;
    /// Empties `result`, then adds every direct child whose name equals
    /// `name` folding A-Z (a null name matches children without a name).
    virtual void findChildrenByName(const WString& name, NodeReferenceSet& result) const = 0;

    /// The zero-based child positions from the root (or from `relativeTo`,
    /// which must be this node or an ancestor) down to this node.
    virtual void getIndexPath(std::vector<int>& path, const iNode* relativeTo = nullptr) const = 0;
    /// The index path as an expression: "/*[p+1]" per position.
    virtual void getIndexPathExpression(WString& text, const iNode* relativeTo = nullptr) const = 0;

    // ---- copies ----------------------------------------------------------
    /// A new node of the same class with name, value, properties, metadata
    /// and, when `deep`, copies of all descendants; it has no parent.
    virtual Ptr<iNode> cloneNode(bool deep) const = 0;
    /// Makes this node a copy of `source` (children only when `deep`).
    virtual void assignFromNode(const iNode& source, bool deep) = 0;
    /// Drops children, properties (and the value), metadata and the cached
    /// query evaluator; keeps the name and the parent link.
    virtual void clear() = 0;

    // ---- path queries ----------------------------------------------------
    /// Evaluates `expr` with this node as the context through the evaluator
    /// of class "Norvatek.CXPathParser" (made on first use and cached until
    /// the node is cleaned out). Returns the evaluator's success flag; see
    /// iXPathParser for what success means for each result kind.
    virtual bool query(const WString& expr, int flags, NodeReferenceSet& result) = 0;
    virtual bool query(const WString& expr, int flags, PropertyReferenceSet& result) = 0;
    virtual bool query(const WString& expr, int flags, WString& result) = 0;
    virtual bool query(const WString& expr, int flags, int& result) = 0;
    virtual bool query(const WString& expr, int flags, bool& result) = 0;
};

}  // namespace tovan
