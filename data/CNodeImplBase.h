#pragma once
// The state and behaviour shared by every node class of the library.
#include <atomic>
#include <cstdint>
#include <span>
#include <typeinfo>
#include <vector>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/cppNodeQName.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Lock.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/Prefetch.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"
#include "nvk/platform/iXPathParser.h"

namespace nvk {

/// What every node holds: the name, the weak parent link, the children (one
/// reference each), the property collection, and a block of what few nodes
/// use (the lock around the cached query evaluator, the evaluator, the
/// metadata). Children array, collection and that block are made on first
/// use, so a bare node costs the framework's header, the name and four
/// pointers.
///
/// The node's value is the property whose flags carry MetaDataNodeValue
/// (named DefaultValueName, "text-content", when the node makes it).
///
/// Child handling runs every check before the first change, so a call that
/// throws leaves the tree as it was. Two rules are kept on purpose because
/// callers depend on them: the ancestor check runs only for a child that has
/// children of its own, and `InsertChildBefore` takes the reference child's
/// position before detaching the new child from its old parent.
class NVK_EXPORT CNodeImplBase : public tovan::iNode {
public:
    /// The value of a node that has none.
    static const tovan::NullValue nullNodeValue;
    static const char16_t* const NullNodeMsg;       // "Error: attempting to add a null node."
    static const char16_t* const OwnParentErrMsg;   // "Error: attempting to set a data node to be its own parent."
    static const char16_t* const DefaultValueName;  // "text-content"
    /// Node record format written; records from MIN_NODE_FORMAT_VERSION are read.
    static constexpr int NODE_FORMAT_VERSION = 127;
    static constexpr int MIN_NODE_FORMAT_VERSION = 126;
    /// Reading refuses to nest nodes deeper than this, so that a hostile
    /// stream cannot exhaust the stack ("Nodes nested deeper than %d levels").
    static constexpr int MAX_READ_DEPTH = 1000;
    /// The levels of the tree under `root` (1 for a node without children), walked
    /// without recursion so that any depth can be measured; counting stops past
    /// `limit`. Writers measure a tree with it before writing a byte.
    static int TreeDepth(const tovan::iNode& root, int limit);

    CNodeImplBase(const CNodeImplBase&) = delete;
    CNodeImplBase& operator=(const CNodeImplBase&) = delete;

protected:
    CNodeImplBase() = default;
    ~CNodeImplBase() override;

    /// The node as the framework sees it.
    tovan::iNode* GetINode() { return this; }
    const tovan::iNode* GetINode() const { return this; }
    /// Reuse from the pool: the node starts empty (no name, parent, children,
    /// properties, metadata or evaluator).
    void OnActivateDefault();
    /// Return to the pool: drops children, properties, metadata and the
    /// evaluator, so that nothing a pooled node held stays alive.
    void OnDeactivateDefault();
    /// OnDeactivateDefault for a node whose children and collection its tree's end has
    /// taken already: the rest of its state goes, the name's drop counted by `names`.
    void EndOwnState(SharedName::Gather& names) {
        if (extras_.load(std::memory_order_relaxed)) DropExtrasContent();
        parent_ = nullptr;
        name_.clear(names);
    }

    // ---- sub-objects ---------------------------------------------------------------
    tovan::iPropertyCollection& EnsurePropCollectionExists();
    /// The same collection as its own class, for library code that fills it in bulk.
    CPropertyCollection& EnsureOwnPropCollection();
    tovan::iPropertyCollection* FindPropCollection() const;
    void DeletePropCollection();
    tovan::iMetaData& EnsureMetaDataExists();
    tovan::iMetaData* FindMetaDataIfExists() const {
        const Extras* x = extras_.load(std::memory_order_acquire);
        return x ? x->metaData : nullptr;
    }
    void DeleteMetaData();

    // ---- value -------------------------------------------------------------------
    const tovan::Value& GetValue() const;
    /// Assigns in place when the value property holds a value of the same
    /// class; otherwise stores a copy. With no value property yet, a property
    /// named "text-content" (if one exists) becomes it, else one is defined.
    /// Afterwards exactly one property carries MetaDataNodeValue.
    void SetValue(const tovan::Value& value);
    bool HasNullValue() const;
    tovan::iProperty* FindValueProperty() const;

    // ---- children ------------------------------------------------------------------
    int GetNumberOfChildren() const { return int(children_.size()); }
    tovan::iNode* GetChildAt(int index) const;
    /// The children as they stand, for walkers that read them all without a
    /// checked call per child.
    std::span<tovan::iNode* const> ChildList() const { return children_.view(); }
    int GetChildIndex(const tovan::iNode* child) const;
    void AppendChild(tovan::iNode* child);
    void InsertChildBefore(tovan::iNode* newChild, tovan::iNode* refChild);
    void ReplaceChild(tovan::iNode* oldChild, tovan::iNode* newChild);
    bool RemoveChild(tovan::iNode* child);
    void RemoveChildAt(int index);
    void RemoveChildNode(int index);
    void RemoveAllChildren();
    void FindChildrenByName(const tovan::WString& name, tovan::NodeReferenceSet& result) const;
    void GetIndexPath(std::vector<int>& path, const tovan::iNode* relativeTo) const;
    void GetIndexPathExpression(tovan::WString& text, const tovan::iNode* relativeTo) const;
    tovan::iNode* GetRoot() const;

    // ---- copies and clean-out ------------------------------------------------------
    /// Name, value, properties, metadata and (deep) children copied from
    /// `source`; the own collection and metadata are refilled, not replaced.
    /// From itself: nothing changes.
    void AssignFrom(const tovan::iNode& source, bool deep);
    /// AssignFrom for a source of the library's own node classes (a clone's):
    /// its collection is copied slot by slot, with no cast per node or property.
    void CopyFrom(const CNodeImplBase& source, bool deep) { AssignFrom(source, &source, deep); }
    /// Drops children, properties, the evaluator and metadata; the parent link
    /// only when `resetParent`. The name stays.
    void CleanOutNodeData(bool resetParent);

    /// The end of `root`, a node of class T whose last reference went: it and
    /// every descendant of class T whose last reference goes with it return
    /// to T's pool, last child first as a recursive release would, but from
    /// a loop (a tree of any depth), with one turn of the pool's lock per
    /// batch and no atomic read-modify-write where a node has one holder.
    /// Children of other classes, or held elsewhere, are released as usual.
    template <class T>
    static void EndTree(T* root);

    /// Runs `expr` through the cached evaluator (made on first use) under the
    /// node's lock.
    template <class Result>
    bool Query(const tovan::WString& expr, int flags, Result& result) {
        Extras& x = EnsureExtras();
        tovan::AutoCriticalSection lock(x.lock);
        return EnsureXPathParser(x).evaluate(expr, flags, result);
    }
    void DropXPathParser();

    // ---- byte stream -----------------------------------------------------------------
    /// The node record (format 127): name block, properties, children (each
    /// as its class tag and its own record) when `withChildren`, metadata.
    void SerializeNode(tovan::iByteOutputStream& out, bool withChildren) const;
    /// Cleans the node out (the parent link stays), then reads a record of
    /// format 126 (no metadata), 127, or 128 and above (metadata dropped).
    void DeserializeNode(tovan::iByteInputStream& in, bool withChildren);
    /// The same, the stream's version (`streamVersion`) checked by the caller.
    void DeserializeNode(tovan::iByteInputStream& in, bool withChildren, int streamVersion);
    /// CBaseNode's record into `node`, the stream's version checked by the caller.
    static void ReadBaseNodeRecord(CNodeImplBase& node, tovan::iByteInputStream& in, int streamVersion);

    cppNodeQName name_;
    tovan::iNode* parent_ = nullptr;  // weak: a child never owns its parent

private:
    void AssignFrom(const tovan::iNode& source, const CNodeImplBase* own, bool deep);

    /// The collections of ending nodes, emptied and returned to their pool
    /// together; the names of their properties go to `names`.
    class CollectionEnds {
    public:
        explicit CollectionEnds(SharedName::Gather& names) : names_(names) {}
        ~CollectionEnds() { flush(); }
        CollectionEnds(const CollectionEnds&) = delete;
        CollectionEnds& operator=(const CollectionEnds&) = delete;
        /// Takes `node`'s collection out, to end it with the next batch when
        /// this was its last reference.
        void take(CNodeImplBase& node) {
            CPropertyCollection* c = std::exchange(node.properties_, nullptr);
            if (!c || !c->releaseKeepingEnd()) return;
            if (typeid(*c) != typeid(CPropertyCollection)) {
                c->deleteInstance();  // a class with an end of its own
                return;
            }
            items_[count_++] = c;
            if (count_ == kBatch) flush();
        }
        void flush();

    private:
        static constexpr size_t kBatch = 64;
        SharedName::Gather& names_;
        CPropertyCollection* items_[kBatch];
        size_t count_ = 0;
    };

    /// What few nodes use, in one block made on first use.
    struct Extras {
        tovan::CriticalSection lock;              // guards xpathParser
        tovan::iXPathParser* xpathParser = nullptr;  // one reference, or null
        tovan::iMetaData* metaData = nullptr;        // one reference, or null
    };
    /// The children as one pointer to a block of count, room and the pointers,
    /// so that a node without children pays 8 bytes for them. The block stays
    /// when the children go: a pooled node fills it again.
    class ChildArray {
    public:
        ChildArray() = default;
        ~ChildArray();
        ChildArray(const ChildArray&) = delete;
        ChildArray& operator=(const ChildArray&) = delete;

        size_t size() const { return block_ ? block_->size : 0; }
        bool empty() const { return size() == 0; }
        tovan::iNode* operator[](size_t i) const { return items()[i]; }
        tovan::iNode*& operator[](size_t i) { return items()[i]; }
        std::span<tovan::iNode* const> view() const {
            return block_ ? std::span<tovan::iNode* const>(items(), block_->size) : std::span<tovan::iNode* const>();
        }
        /// Room for one more, grown geometrically; the only call that allocates,
        /// so that the change that follows cannot fail halfway.
        void reserveOneMore();
        void reserve(size_t n);
        /// Within the room reserved.
        void push_back(tovan::iNode* child) { items()[block_->size++] = child; }
        void insert(size_t at, tovan::iNode* child);
        void erase(size_t at);
        /// Swaps contents with `other` (release hands the children out this way).
        void swap(ChildArray& other) { std::swap(block_, other.block_); }
        void clear() {
            if (block_) block_->size = 0;
        }

    private:
        struct Block {
            uint32_t size;
            uint32_t room;
        };
        tovan::iNode** items() const { return reinterpret_cast<tovan::iNode**>(block_ + 1); }
        Block* block_ = nullptr;
    };

    Extras& EnsureExtras();
    /// Drops the evaluator and the metadata (the block stays for the node's next use).
    void DropExtrasContent();
    /// The metadata block of a node record, into the node.
    void ReadMetaData(tovan::iByteInputStream& in);
    Extras* FindExtras() const { return extras_.load(std::memory_order_acquire); }
    tovan::iXPathParser& EnsureXPathParser(Extras& extras);
    /// The ancestor check of AppendChild, InsertChildBefore and ReplaceChild.
    void CheckNewChild(const tovan::iNode* child, const char* operation) const;
    /// Detaches `child` from its current parent, if any.
    static void DetachFromParent(tovan::iNode* child);

    ChildArray children_;                        // one reference per child
    CPropertyCollection* properties_ = nullptr;  // one reference, or null
    // Atomic only for its making: two threads may query one node at once, and
    // the lock they would share is in the block.
    std::atomic<Extras*> extras_{nullptr};
};

template <class T>
void CNodeImplBase::EndTree(T* root) {
    // A class whose pool hook is OnDeactivateDefault alone says so (kDefaultEnd): its nodes
    // are emptied here and go back without the hook. Others are emptied here as well, and
    // their hook runs for what the class adds.
    constexpr bool emptiedHere = requires { requires T::kDefaultEnd; };
    if (root->children_.empty() && !root->properties_) {
        T::pool().deleteInstance(root);
        return;
    }
    struct Level {
        CNodeImplBase* node;
        size_t next;  // children still to release, from the last
    };
    std::vector<Level> pending;
    pending.reserve(16);
    pending.push_back({root, root->children_.size()});
    // Declared first, so that it ends last: the names of every node and property below
    // are dropped once per block.
    SharedName::Gather names;
    typename tovan::ObjectPool<T>::Returns back(T::pool(), emptiedHere);
    CollectionEnds collections(names);
    // A released tree is cold and is met backwards through the memory it
    // was built in.
    tovan::MemoryAhead ahead;
    while (!pending.empty()) {
        Level& level = pending.back();
        CNodeImplBase* ending;
        if (level.next == 0) {
            ending = level.node;
            ending->children_.clear();  // released here: its own clean-out finds none
            pending.pop_back();
        } else {
            const size_t i = --level.next;
            const ChildArray& children = level.node->children_;
            if (i >= 2) __builtin_prefetch(children[i - 2], 1);
            tovan::iNode* child = children[i];
            if (typeid(*child) != typeid(T)) {
                // A class with an end of its own.
                child->setParent(nullptr);
                child->release();
                continue;
            }
            T* node = static_cast<T*>(child);
            node->parent_ = nullptr;
            if (!node->releaseKeepingEnd()) continue;
            ahead.visit(node);
            if (!node->children_.empty()) {
                pending.push_back({node, node->children_.size()});
                continue;
            }
            ending = node;
        }
        // One place for every node's end, so that it is inlined once.
        collections.take(*ending);
        ending->EndOwnState(names);
        back.add(static_cast<T*>(ending));
    }
}

}  // namespace nvk
