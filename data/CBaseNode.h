#pragma once
// The library's node class.
#include "nvk/data/NodeImpl.h"
#include "nvk/platform/Pool.h"

namespace nvk {

/// A data tree node. Class tag "Norvatek.data.BaseNode"; pooled: the last
/// release returns the node to its class's pool rather than freeing it, and
/// `newInstance` hands a recycled node out empty.
///
/// Typical use:
///   tovan::Ptr<CBaseNode> root(CBaseNode::newInstance());
///   root->setName(u"record");
///   tovan::Ptr<CBaseNode> item(CBaseNode::newInstance());
///   root->appendChild(item.get());   // the parent takes its own reference
///   item->getProperties().define(u"count", tovan::IntegerValue(3));
class NVK_EXPORT CBaseNode : public NodeImpl<CBaseNode> {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.BaseNode"
    static constexpr int BASE_NODE_VERSION = 9095;

    CBaseNode() = default;
    ~CBaseNode() override;

    /// A fresh or recycled node without a reference.
    static CBaseNode* newInstance();
    /// newInstance as the factory's creator for the class tag: readers that see this
    /// creator know the node's class without asking the object.
    static tovan::Object* createObject();
    /// As newInstance, carrying one reference for the caller.
    static CBaseNode* allocate();
    /// A deep copy of `source` carrying one reference for the caller.
    static CBaseNode* allocateCopy(const CBaseNode& source);
    static void deallocate(CBaseNode* node);
    static tovan::ObjectPool<CBaseNode>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    // The pool's hooks, called on the class itself: without the pooled
    // objects' base the node saves a vtable pointer.
    void onActivate() { OnActivateDefault(); }
    void onDeactivate() { OnDeactivateDefault(); }
    /// The hook above is the default one alone: a tree's end empties the node
    /// itself and returns it without the hook (see EndTree).
    static constexpr bool kDefaultEnd = true;

    /// BASE_NODE_VERSION, then the node record with all descendants.
    void serialize(tovan::iByteOutputStream& out) const override;
    /// Any other leading number raises "Deserialization version mismatch
    /// (%ld , %ld)" and leaves the node as it was.
    void deserialize(tovan::iByteInputStream& in) override;
    /// The same, for a reader that checked the stream's version (`streamVersion`) already.
    void deserialize(tovan::iByteInputStream& in, int streamVersion);
};

}  // namespace nvk
