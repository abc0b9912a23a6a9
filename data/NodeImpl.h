#pragma once
// NodeImpl<T>: the framework's iNode over CNodeImplBase, for each concrete
// node class T (CBaseNode, CObjectTransportNode).
#include "nvk/data/CNodeImplBase.h"
#include "nvk/platform/iMetaData.h"
#include "nvk/platform/iNode.h"

namespace nvk {

/// Every iNode operation forwards to CNodeImplBase. `T` supplies
/// `T::newInstance()` (a pooled instance without a reference), which
/// `cloneNode` uses to make a copy of the same class.
template <class T>
class NodeImpl : public CNodeImplBase {
public:
    // ---- name ---------------------------------------------------------------------
    const tovan::WString& getName() const override { return name_.getQName(); }
    void setName(const tovan::WString& name) override { name_.setName(name); }
    /// Under a name block the caller already has (a reader's dictionary).
    void setName(SharedName name) { name_.setName(std::move(name)); }
    tovan::WString getNamePrefix() const override { return name_.getUriName(); }
    void addNamespaceDeclaration(const tovan::WString&, const tovan::WString&) override {}
    /// The name with its parts, for readers that need the local name.
    const cppNodeQName& getQName() const { return name_; }

    // ---- value and properties ---------------------------------------------------------
    const tovan::Value& getValue() const override { return GetValue(); }
    void setValue(const tovan::Value& value) override { SetValue(value); }
    bool hasNullValue() const override { return HasNullValue(); }
    tovan::iPropertyCollection& getProperties() override { return EnsurePropCollectionExists(); }
    const tovan::iPropertyCollection* getProperties() const override { return FindPropCollection(); }
    /// getProperties() as the library's own collection class, whose storage
    /// library code may fill directly (the JSON converter does).
    CPropertyCollection& getPropertyCollection() { return EnsureOwnPropCollection(); }
    bool hasProperties() const override {
        const tovan::iPropertyCollection* p = FindPropCollection();
        return p && p->getSize() > 0;
    }

    // ---- metadata -----------------------------------------------------------------------
    tovan::iMetaData& getInfo() override { return EnsureMetaDataExists(); }
    tovan::iMetaData* findInfo() const override { return FindMetaDataIfExists(); }
    void clearInfo() override { DeleteMetaData(); }

    // ---- tree -----------------------------------------------------------------------------
    tovan::iNode* findParent() const override { return parent_; }
    void setParent(tovan::iNode* parent) override { parent_ = parent; }
    tovan::iNode* getRoot() const override { return GetRoot(); }
    int getNumberOfChildren() const override { return GetNumberOfChildren(); }
    bool hasChildren() const override { return GetNumberOfChildren() != 0; }
    tovan::iNode* getChildAt(int index) const override { return GetChildAt(index); }
    using CNodeImplBase::ChildList;
    int getChildIndex(const tovan::iNode* child) const override { return GetChildIndex(child); }
    void appendChild(tovan::iNode* child) override { AppendChild(child); }
    void insertChildBefore(tovan::iNode* newChild, tovan::iNode* refChild) override {
        InsertChildBefore(newChild, refChild);
    }
    void replaceChild(tovan::iNode* oldChild, tovan::iNode* newChild) override { ReplaceChild(oldChild, newChild); }
    bool removeChild(tovan::iNode* child) override { return RemoveChild(child); }
    void removeChildAt(int index) override { RemoveChildAt(index); }
    void removeAllChildren() override { RemoveAllChildren(); }
    void findChildrenByName(const tovan::WString& name, tovan::NodeReferenceSet& result) const override {
        FindChildrenByName(name, result);
    }
    void getIndexPath(std::vector<int>& path, const tovan::iNode* relativeTo = nullptr) const override {
        GetIndexPath(path, relativeTo);
    }
    void getIndexPathExpression(tovan::WString& text, const tovan::iNode* relativeTo = nullptr) const override {
        GetIndexPathExpression(text, relativeTo);
    }

    // ---- copies -----------------------------------------------------------------------------
    tovan::Ptr<tovan::iNode> cloneNode(bool deep) const override {
        tovan::Ptr<tovan::iNode> copy(Clone(deep));
        return copy;
    }
    /// A copy without a reference taken (the framework's clone rule).
    T* Clone(bool deep) const {
        T* copy = T::newInstance();
        try {
            copy->CopyFrom(*this, deep);
        } catch (...) {
            copy->addRef();
            copy->release();
            throw;
        }
        return copy;
    }
    tovan::Object* clone() const override { return Clone(true); }
    void assignFromNode(const tovan::iNode& source, bool deep) override { AssignFrom(source, deep); }
    void clear() override { CleanOutNodeData(false); }

    // ---- queries -------------------------------------------------------------------------------
    bool query(const tovan::WString& expr, int flags, tovan::NodeReferenceSet& result) override {
        return Query(expr, flags, result);
    }
    bool query(const tovan::WString& expr, int flags, tovan::PropertyReferenceSet& result) override {
        return Query(expr, flags, result);
    }
    bool query(const tovan::WString& expr, int flags, tovan::WString& result) override {
        return Query(expr, flags, result);
    }
    bool query(const tovan::WString& expr, int flags, int& result) override { return Query(expr, flags, result); }
    bool query(const tovan::WString& expr, int flags, bool& result) override { return Query(expr, flags, result); }
};

}  // namespace nvk
