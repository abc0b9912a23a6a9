#include "nvk/data/CNodeImplBase.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "nvk/data/CMetaData.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Prefetch.h"
#include "nvk/platform/ReferenceSet.h"

namespace nvk {

using tovan::Exception;
using tovan::iNode;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;

const tovan::NullValue CNodeImplBase::nullNodeValue;
const char16_t* const CNodeImplBase::NullNodeMsg = u"Error: attempting to add a null node.";
const char16_t* const CNodeImplBase::OwnParentErrMsg = u"Error: attempting to set a data node to be its own parent.";
const char16_t* const CNodeImplBase::DefaultValueName = u"text-content";

namespace {

constexpr const char* kClass = "CNodeImplBase";

}  // namespace

CNodeImplBase::~CNodeImplBase() {
    CleanOutNodeData(true);
    delete extras_.load(std::memory_order_relaxed);
}

// ---- the children's block ---------------------------------------------------------

CNodeImplBase::ChildArray::~ChildArray() { ::operator delete(block_); }

void CNodeImplBase::ChildArray::reserve(size_t n) {
    if (n <= (block_ ? block_->room : 0)) return;
    if (n > UINT32_MAX) throw std::bad_alloc();
    auto* grown = static_cast<Block*>(::operator new(sizeof(Block) + n * sizeof(iNode*)));
    grown->size = block_ ? block_->size : 0;
    grown->room = uint32_t(n);
    if (block_) std::memcpy(reinterpret_cast<iNode**>(grown + 1), items(), block_->size * sizeof(iNode*));
    ::operator delete(std::exchange(block_, grown));
}

void CNodeImplBase::ChildArray::reserveOneMore() {
    const size_t room = block_ ? block_->room : 0;
    if (size() == room) reserve(room < 4 ? 4 : room * 2);
}

void CNodeImplBase::ChildArray::insert(size_t at, iNode* child) {
    iNode** p = items();
    std::memmove(p + at + 1, p + at, (block_->size - at) * sizeof(iNode*));
    p[at] = child;
    ++block_->size;
}

void CNodeImplBase::ChildArray::erase(size_t at) {
    iNode** p = items();
    std::memmove(p + at, p + at + 1, (block_->size - at - 1) * sizeof(iNode*));
    --block_->size;
}

int CNodeImplBase::TreeDepth(const tovan::iNode& root, int limit) {
    std::vector<std::pair<const tovan::iNode*, int>> pending{{&root, 1}};
    int deepest = 0;
    while (!pending.empty()) {
        auto [node, depth] = pending.back();
        pending.pop_back();
        deepest = std::max(deepest, depth);
        if (deepest > limit) break;
        // Most nodes are leaves: they count where they are instead of going through the list.
        for (int i = node->getNumberOfChildren(); i-- > 0;) {
            const tovan::iNode* child = node->getChildAt(i);
            if (child->hasChildren())
                pending.emplace_back(child, depth + 1);
            else
                deepest = std::max(deepest, depth + 1);
        }
    }
    return deepest;
}

// Every node on the free list was emptied on its way there: a node handed
// out again is left alone rather than cleaned out twice.
void CNodeImplBase::OnActivateDefault() {}

void CNodeImplBase::OnDeactivateDefault() {
    CleanOutNodeData(true);
    name_.clear();
}

void CNodeImplBase::CollectionEnds::flush() {
    // Emptied here rather than by the pool's hook, so that their properties,
    // mostly one or two each, go back to their pool together too, and so that
    // each collection is emptied once.
    if (count_) CPropertyCollectionData::EndCollections(items_, std::exchange(count_, 0), names_);
}

// ---- sub-objects ------------------------------------------------------------------

tovan::iPropertyCollection& CNodeImplBase::EnsurePropCollectionExists() {
    if (!properties_) {
        properties_ = CPropertyCollection::allocate();
        properties_->_setOwner(GetINode());
    }
    return *properties_;
}

CPropertyCollection& CNodeImplBase::EnsureOwnPropCollection() {
    EnsurePropCollectionExists();
    return *properties_;
}

tovan::iPropertyCollection* CNodeImplBase::FindPropCollection() const { return properties_; }

void CNodeImplBase::DeletePropCollection() {
    if (CPropertyCollection* p = std::exchange(properties_, nullptr)) p->release();
}

CNodeImplBase::Extras& CNodeImplBase::EnsureExtras() {
    Extras* x = extras_.load(std::memory_order_acquire);
    if (x) return *x;
    auto* made = new Extras;
    if (extras_.compare_exchange_strong(x, made, std::memory_order_acq_rel, std::memory_order_acquire)) return *made;
    delete made;  // another thread's query made it first
    return *x;
}

tovan::iMetaData& CNodeImplBase::EnsureMetaDataExists() {
    Extras& x = EnsureExtras();
    if (!x.metaData) x.metaData = CMetaData::allocate();
    return *x.metaData;
}

void CNodeImplBase::DeleteMetaData() {
    if (Extras* x = FindExtras())
        if (tovan::iMetaData* m = std::exchange(x->metaData, nullptr)) m->release();
}

void CNodeImplBase::ReadMetaData(tovan::iByteInputStream& in) {
    Extras* x = FindExtras();
    tovan::iMetaData* meta = x ? std::exchange(x->metaData, nullptr) : nullptr;
    try {
        CMetaDataImpl::SetFromSerialized(meta, in);
        if (meta) EnsureExtras().metaData = meta;
    } catch (...) {
        // The record is broken and the node half read: the metadata goes with the rest.
        if (meta) meta->release();
        throw;
    }
}

// ---- value ----------------------------------------------------------------------

tovan::iProperty* CNodeImplBase::FindValueProperty() const {
    if (!properties_) return nullptr;
    const int n = properties_->getSize();
    for (int i = 0; i < n; ++i) {
        tovan::iProperty& p = properties_->get(i);
        if (p.getFlags() & tovan::MetaDataNodeValue) return &p;
    }
    return nullptr;
}

const Value& CNodeImplBase::GetValue() const {
    tovan::iProperty* p = FindValueProperty();
    return p ? p->getValue() : static_cast<const Value&>(nullNodeValue);
}

bool CNodeImplBase::HasNullValue() const {
    tovan::iProperty* p = FindValueProperty();
    return !p || p->getValue().isNull();
}

void CNodeImplBase::SetValue(const Value& value) {
    tovan::iPropertyCollection& props = EnsurePropCollectionExists();
    tovan::iProperty* p = FindValueProperty();
    if (p) {
        // The node's own value is updated even when the property is marked
        // read-only: the flag guards edits through the property.
        auto* cp = dynamic_cast<CProperty*>(p);
        Value* current = cp ? cp->findValue() : nullptr;
        if (current && current != &value && current->sameClass(value)) {
            current->assign(value);
            return;
        }
        p->setValue(value);
        return;
    }
    p = props.find(DefaultValueName);
    if (!p) p = &props.define(DefaultValueName, value);
    else p->setValue(value);
    p->setFlags(p->getFlags() | tovan::MetaDataNodeValue);
}

// ---- children -------------------------------------------------------------------

iNode* CNodeImplBase::GetChildAt(int index) const {
    const int n = GetNumberOfChildren();
    if (index < 0 || index >= n) throw tovan::InvalidIndexException(kClass, "getChildAt", index, n - 1);
    return children_[size_t(index)];
}

int CNodeImplBase::GetChildIndex(const iNode* child) const {
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i] == child) return int(i);
    throw Exception(kClass, "getChildIndex", u"The specified node (%ls) is not a child of this node (%ls)",
                    child ? child->getName() : WString(u"null"), GetINode()->getName());
}

void CNodeImplBase::CheckNewChild(const iNode* child, const char* operation) const {
    if (!child) throw Exception(kClass, operation, u"%ls", NullNodeMsg);
    // Only a child with children of its own is checked against the ancestors:
    // a leaf appended to itself slips through, and callers rely on the cheap path.
    if (!child->hasChildren()) return;
    for (const iNode* n = GetINode(); n; n = n->findParent())
        if (n == child) throw Exception(kClass, operation, u"%ls", OwnParentErrMsg);
}

void CNodeImplBase::DetachFromParent(iNode* child) {
    if (iNode* old = child->findParent()) old->removeChild(child);
}

void CNodeImplBase::AppendChild(iNode* child) {
    CheckNewChild(child, "appendChild");
    // A leaf passes the ancestor check, and appended to itself it would be its own parent:
    // every walk up the tree (getRoot, the next ancestor check) would then go round for ever.
    if (child == GetINode()) throw Exception(kClass, "appendChild", u"%ls", OwnParentErrMsg);
    children_.reserveOneMore();
    if (child->findParent()) {
        // The old parent may hold the only reference.
        Ptr<iNode> hold(child);
        DetachFromParent(child);
        children_.push_back(child);
        child->setParent(GetINode());
        child->addRef();  // the array's reference; `hold` drops the temporary one
        return;
    }
    children_.push_back(child);
    child->setParent(GetINode());
    child->addRef();
}

void CNodeImplBase::InsertChildBefore(iNode* newChild, iNode* refChild) {
    CheckNewChild(newChild, "insertChildBefore");
    if (GetNumberOfChildren() == 0) throw Exception(kClass, "insertChildBefore", u"Node has no child nodes");
    // Taken before the detach below on purpose: a child that moves forward
    // within this node lands one place right of refChild.
    const int index = GetChildIndex(refChild);
    if (newChild == refChild) return;
    if (newChild == GetINode()) throw Exception(kClass, "insertChildBefore", u"%ls", OwnParentErrMsg);
    children_.reserveOneMore();
    Ptr<iNode> hold(newChild);
    DetachFromParent(newChild);
    const size_t at = std::min(size_t(index), children_.size());
    children_.insert(at, newChild);
    newChild->setParent(GetINode());
    newChild->addRef();
}

void CNodeImplBase::ReplaceChild(iNode* oldChild, iNode* newChild) {
    CheckNewChild(newChild, "replaceChild");
    if (GetNumberOfChildren() == 0) throw Exception(kClass, "replaceChild", u"Node has no child nodes");
    const int index = GetChildIndex(oldChild);
    if (newChild == oldChild) return;
    if (newChild->findParent() == GetINode())
        throw Exception(kClass, "replaceChild", u"Error detected: trying to replace a node with a sibling node");
    newChild->addRef();  // becomes the array's reference
    DetachFromParent(newChild);
    children_[size_t(index)] = newChild;
    newChild->setParent(GetINode());
    oldChild->setParent(nullptr);
    oldChild->release();
}

bool CNodeImplBase::RemoveChild(iNode* child) {
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i] == child) {
            RemoveChildNode(int(i));
            return true;
        }
    return false;
}

void CNodeImplBase::RemoveChildAt(int index) {
    const int n = GetNumberOfChildren();
    // Only positions past the end are refused here; the count itself reaches
    // RemoveChildNode, which refuses it with the same error.
    if (index > n || index < 0) throw tovan::InvalidIndexException(kClass, "removeChildAt", index, n - 1);
    RemoveChildNode(index);
}

void CNodeImplBase::RemoveChildNode(int index) {
    const int n = GetNumberOfChildren();
    if (index < 0 || index >= n) throw tovan::InvalidIndexException(kClass, "RemoveChildNode", index, n - 1);
    iNode* child = children_[size_t(index)];
    children_.erase(size_t(index));
    child->setParent(nullptr);
    child->release();
}

void CNodeImplBase::RemoveAllChildren() {
    if (children_.empty()) return;
    ChildArray doomed;
    doomed.swap(children_);
    // Last child first: the pools hand out the most recently freed object
    // first, so a tree released back to front comes back to the next tree
    // built in the order it is built, and that tree's walks run forward
    // through memory.
    for (size_t i = doomed.size(); i-- > 0;) {
        // A released tree is cold: fetch the children a little ahead.
        if (i >= 2) __builtin_prefetch(doomed[i - 2], 1);
        iNode* child = doomed[i];
        child->setParent(nullptr);
        child->release();
    }
    // The emptied array goes back for reuse (pooled nodes fill again).
    doomed.clear();
    if (children_.empty()) children_.swap(doomed);
}

void CNodeImplBase::FindChildrenByName(const WString& name, tovan::NodeReferenceSet& result) const {
    result.clear();
    for (iNode* child : children_.view())
        if (tovan::namesEqual(child->getName(), name)) result.add(child);
}

iNode* CNodeImplBase::GetRoot() const {
    const iNode* n = GetINode();
    while (iNode* p = n->findParent()) n = p;
    return const_cast<iNode*>(n);
}

void CNodeImplBase::GetIndexPath(std::vector<int>& path, const iNode* relativeTo) const {
    const iNode* self = GetINode();
    if (!parent_) {
        if (relativeTo && relativeTo != self)
            throw Exception(kClass, "getIndexPath", u"Relative ancestor node not found.");
        path.clear();
        return;
    }
    if (relativeTo == self) {
        path.clear();
        return;
    }
    std::vector<int> above;
    parent_->getIndexPath(above, relativeTo);
    above.push_back(parent_->getChildIndex(self));
    path.swap(above);
}

void CNodeImplBase::GetIndexPathExpression(WString& text, const iNode* relativeTo) const {
    std::vector<int> path;
    GetIndexPath(path, relativeTo);
    text.clear();
    for (int p : path) text.append(tovan::format(u"/*[%d]", p + 1).view());
}

// ---- copies and clean-out --------------------------------------------------------

void CNodeImplBase::AssignFrom(const iNode& source, bool deep) {
    AssignFrom(source, dynamic_cast<const CNodeImplBase*>(&source), deep);
}

void CNodeImplBase::AssignFrom(const iNode& source, const CNodeImplBase* own, bool deep) {
    iNode* self = GetINode();
    // Assigning a node from itself would empty it: its properties and children go before
    // the (same) source's are copied. It is left as it is.
    if (&source == self) return;
    // Copies first, so a failure leaves this node as it was, and so a source that is one of
    // this node's descendants is copied before removing the children frees it.
    std::vector<Ptr<iNode>> copies;
    if (deep) {
        if (own) {
            copies.reserve(own->children_.size());
            for (iNode* child : own->children_.view()) copies.push_back(child->cloneNode(true));
        } else {
            const int n = source.getNumberOfChildren();
            copies.reserve(size_t(n));
            for (int i = 0; i < n; ++i) copies.push_back(source.getChildAt(i)->cloneNode(true));
        }
    }
    Ptr<CMetaData> meta;
    if (tovan::iMetaData* sm = source.findInfo()) {
        meta = Ptr<CMetaData>(CMetaData::newInstance());
        meta->assignFrom(*sm);
    }

    // The node's own collection and metadata are refilled, not replaced: a caller holding
    // them sees the new content. The collection's assignFrom changes nothing when it fails.
    // The value is a property, so it travels with the properties.
    if (own && own->properties_ && own->properties_->getSize() > 0)
        EnsureOwnPropCollection().assignFrom(*own->properties_, true);
    else if (const tovan::iPropertyCollection* sp = own ? nullptr : source.getProperties(); sp && sp->getSize() > 0)
        EnsurePropCollectionExists().assignFrom(sp, true);
    else if (properties_)
        properties_->removeAll();
    if (own)
        name_.shareName(own->name_);
    else
        name_.setName(source.getName());
    if (deep) {
        RemoveAllChildren();
        children_.reserve(copies.size());
        for (Ptr<iNode>& c : copies) {
            c->setParent(self);
            children_.push_back(c.detach());
        }
    }
    if (meta) EnsureMetaDataExists().assignFrom(*meta);
    else DeleteMetaData();
}

void CNodeImplBase::DropExtrasContent() {
    DropXPathParser();
    DeleteMetaData();
}

void CNodeImplBase::DropXPathParser() {
    Extras* x = FindExtras();
    if (!x) return;
    tovan::iXPathParser* parser;
    {
        tovan::AutoCriticalSection lock(x->lock);
        parser = std::exchange(x->xpathParser, nullptr);
    }
    if (parser) {
        parser->setContextNode(nullptr);
        parser->release();
    }
}

tovan::iXPathParser& CNodeImplBase::EnsureXPathParser(Extras& x) {
    if (!x.xpathParser) {
        Ptr<tovan::iXPathParser> parser = tovan::ObjectFactory::createAs<tovan::iXPathParser>(tovan::XPathParserTag);
        parser->setContextNode(GetINode());
        x.xpathParser = parser.detach();
    }
    return *x.xpathParser;
}

void CNodeImplBase::CleanOutNodeData(bool resetParent) {
    RemoveAllChildren();  // keeps the emptied array: a pooled node fills it again
    DeletePropCollection();
    DropXPathParser();
    if (resetParent) parent_ = nullptr;
    DeleteMetaData();
}

}  // namespace nvk
