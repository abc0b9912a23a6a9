#pragma once
// A node that also carries one arbitrary framework object.
#include "nvk/data/NodeImpl.h"
#include "nvk/platform/Pool.h"

namespace nvk {

/// A data tree node with one attached object. Class tag
/// "Norvatek.data.ObjectTransportNode"; pooled like CBaseNode.
///
/// The node owns the attached object: a counted object through one
/// reference, any other object outright (it is deleted when dropped). A copy
/// of the node (`cloneNode`, `Clone`) shares a counted object and gets its
/// own `clone()` of any other.
class NVK_EXPORT CObjectTransportNode : public NodeImpl<CObjectTransportNode> {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.ObjectTransportNode"
    static constexpr int OBJECT_TRANSPORT_NODE_VERSION = 7075;
    static constexpr int OLD_OBJECT_TRANSPORT_NODE_VERSION = 7074;

    CObjectTransportNode() = default;
    ~CObjectTransportNode() override;

    static CObjectTransportNode* newInstance();
    static CObjectTransportNode* allocate();
    static void deallocate(CObjectTransportNode* node);
    static tovan::ObjectPool<CObjectTransportNode>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    void onActivate();
    void onDeactivate();

    /// Takes `object` over (null just drops the current one); a counted
    /// object gets a reference.
    void SetObject(tovan::Object* object);
    tovan::Object* GetObject() const { return object_; }
    /// Drops the attached object.
    void ReleaseObject();

    tovan::Ptr<tovan::iNode> cloneNode(bool deep) const override;
    tovan::Object* clone() const override;

    /// The additional block (version, object flag, the object's class tag and
    /// its own serialize), then the node record.
    void serialize(tovan::iByteOutputStream& out) const override;
    /// Reads OBJECT_TRANSPORT_NODE_VERSION or OLD_OBJECT_TRANSPORT_NODE_VERSION
    /// records. A record without an object keeps the object attached.
    void deserialize(tovan::iByteInputStream& in) override;
    void serializeAdditionalInfo(tovan::iByteOutputStream& out) const;
    void deserializeAdditionalInfo(tovan::iByteInputStream& in);

private:
    void copyObjectTo(CObjectTransportNode& copy) const;

    tovan::Object* object_ = nullptr;  // owned: one reference when counted
};

}  // namespace nvk
