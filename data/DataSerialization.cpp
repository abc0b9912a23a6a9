// The byte-stream records of names, metadata, properties, collections and
// nodes. Every record starts with its own version number and every reader
// checks it; the primitives are in StreamPrimitives.
#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CMetaData.h"
#include "nvk/data/CObjectTransportNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/SlotIndex_internal.h"
#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/PerThread_internal.h"

namespace nvk {

using tovan::Exception;
using tovan::iByteInputStream;
using tovan::iByteOutputStream;
using tovan::MetaDataFlags;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;

namespace {

/// Values of streams from version 3 on are read strictly (see Value.h).
bool strictReading(const iByteInputStream& in) { return in.getVersion() >= 3; }

void writeValue(iByteOutputStream& out, const Value& v) {
    writeCompactInt(out, v.getTypeCode());
    v.serialize(out);
}

/// Reads a type code and the value's bytes. `reuse` is read in place when it
/// has that type code and nobody else holds it; otherwise a new value is made.
Ptr<Value> readValue(iByteInputStream& in, Value* reuse) {
    const int32_t code = readCompactInt(in);
    const bool strict = strictReading(in);
    Ptr<Value> v;
    if (reuse && reuse->getTypeCode() == code && reuse->getRefCount() == 1) {
        v = Ptr<Value>(reuse);
        v->setStrictReading(strict);
    } else {
        v = Value::make(code, strict);
    }
    v->deserialize(in);
    return v;
}

/// Stores a metadata entry under its exact name; hierarchical-looking names
/// are plain names here.
void storeEntry(tovan::iPropertyCollection& target, const WString& name, const Value& value) {
    if (auto* c = dynamic_cast<CPropertyCollection*>(&target)) {
        CPropertyCollectionData& data = c->data();
        if (CProperty* p = data.GetProperty(name)) {
            p->setValue(value);
        } else {
            Ptr<CProperty> fresh = data.MakeNewPropertyWithCopiedValue(name, &value);
            data.AddProperty(fresh.get());
        }
        return;
    }
    if (tovan::iProperty* p = target.find(name))
        p->setValue(value);
    else
        target.define(name, value);
}

/// Reads `count` metadata entries into `target`.
void readEntries(iByteInputStream& in, tovan::iPropertyCollection& target) {
    const int32_t count = readCount(in);
    Ptr<Value> previous;  // stored entries hold copies, so this one is ours alone
    for (int32_t i = 0; i < count; ++i) {
        WString name = readWideString(in);
        if (name.isNull()) name = WString::empty();
        previous = readValue(in, previous.get());
        storeEntry(target, name, *previous);
    }
}

/// Counts nested node reads on this thread.
// Initial-exec: read twice per node, and a few bytes of static room are there for them
// (the library is linked, not loaded late).
__attribute__((tls_model("initial-exec"))) thread_local int t_readDepth = 0;

/// Objects of a pooled class handed to a node read a batch at a time, each with one reference
/// for the caller (as T::allocate).
template <class T>
class ReadBatch : public tovan::ObjectPool<T>::Handouts {
public:
    ReadBatch() : tovan::ObjectPool<T>::Handouts(T::pool()) {}
    T* take() { return tovan::ObjectPool<T>::Handouts::takeReferenced(); }
};

/// The class tag of the children read last, and its creator: siblings nearly always share one.
struct ChildTagCache {
    std::string tag, last;
    std::string lastWire;  // `last` as the record carries it: length, then the bytes
    tovan::ObjectFactory::Creator creator = nullptr;
};

/// What a node read on this thread keeps from one record to the next, emptied when the
/// outermost read ends (so that it holds nothing longer than the tree being read does):
/// - the names read at each place of the last records (see RecentName): node names by level
///   of nesting, and property names by their place in the collection, kept apart for records
///   of different names at different levels (a record's children are mostly of other kinds
///   than itself, and would otherwise take turns with it at the same places). Which entries a
///   record uses only decides how often its names are found there: a name is taken from an
///   entry only when its bytes are the entry's.
/// - batches of nodes, collections and properties from their pools;
/// - the class tag of the children read last (kept from one read to the next: it holds no
///   object).
struct ReadState {
    static constexpr size_t kPlaces = 48, kKinds = 32, kDepths = 16;
    struct Kind {
        RecentName properties[kPlaces];
    };
    RecentName nodeNames[kDepths];
    Kind kinds[kKinds];
    uint32_t kindsUsed = 0;      // one bit per entry of `kinds` holding names
    Kind* current = nullptr;     // for the collection of the node being read
    ReadBatch<CBaseNode> nodes;
    ReadBatch<CPropertyCollection> collections;
    ReadBatch<CProperty> properties;
    // Done with before a child reads its own children through it.
    ChildTagCache tags;
    bool used = false;

    RecentName& nodeName(int depth) { return nodeNames[size_t(depth) % kDepths]; }
    Kind& kind(int depth, uint32_t nameHash) {
        const size_t k = (nameHash ^ (nameHash >> 11) ^ uint32_t(depth) * 0x9E3779B1u) % kKinds;
        kindsUsed |= 1u << k;
        return kinds[k];
    }
    void clear() {
        for (RecentName& r : nodeNames) r = RecentName();
        for (size_t k = 0; k < kKinds; ++k)
            if (kindsUsed & (1u << k)) kinds[k] = Kind();
        kindsUsed = 0;
        current = nullptr;
        nodes.release();
        collections.release();
        properties.release();
        used = false;
    }
};

/// Reached once or twice per node. Not null: a read does not run while its thread ends.
ReadState& readState() { return *tovan::PerThread<ReadState>::get(); }

struct ReadDepthGuard {
    ReadDepthGuard(const char* className) {
        if (t_readDepth >= CNodeImplBase::MAX_READ_DEPTH)
            throw Exception(className, "deserialize", u"Nodes nested deeper than %d levels", CNodeImplBase::MAX_READ_DEPTH);
        ++t_readDepth;
    }
    ~ReadDepthGuard() {
        if (--t_readDepth == 0)
            if (ReadState* state = tovan::PerThread<ReadState>::find(); state && state->used) state->clear();
    }
    ReadDepthGuard(const ReadDepthGuard&) = delete;
    ReadDepthGuard& operator=(const ReadDepthGuard&) = delete;
};

/// Counts nested node writes on this thread.
__attribute__((tls_model("initial-exec"))) thread_local int t_writeDepth = 0;

/// A tree is written only when a reader takes it back: the outermost write measures the
/// tree first, so a tree too deep is refused before anything is written; a node written
/// inside another's attached object counts on from its writer's depth.
struct WriteDepthGuard {
    WriteDepthGuard(const char* className, const tovan::iNode& node) {
        const int limit = CNodeImplBase::MAX_READ_DEPTH;
        if (t_writeDepth >= limit || (t_writeDepth == 0 && CNodeImplBase::TreeDepth(node, limit) > limit))
            throw Exception(className, "serialize",
                            u"Nodes nested deeper than %d levels cannot be read back; nothing of this node was written",
                            limit);
        ++t_writeDepth;
    }
    ~WriteDepthGuard() { --t_writeDepth; }
    WriteDepthGuard(const WriteDepthGuard&) = delete;
    WriteDepthGuard& operator=(const WriteDepthGuard&) = delete;
};

}  // namespace

// ---- name block -------------------------------------------------------------------

void cppNodeQName::serialize(iByteOutputStream& out) const {
    const int version = out.getVersion();
    checkStreamVersion(version, "StreamPrimitives", "writeWideString");
    writeWideString(out, qname_.text(), version);
    if (parts_) {
        writeWideString(out, parts_->localName, version);
        writeWideString(out, parts_->uriName, version);
    } else {
        writeCompactInt(out, 0);  // two null strings
        writeCompactInt(out, 0);
    }
}

void cppNodeQName::deserialize(iByteInputStream& in) {
    RecentName none;
    deserialize(in, none);
}

void cppNodeQName::deserialize(iByteInputStream& in, RecentName& recent) { deserialize(in, recent, in.getVersion()); }

void cppNodeQName::deserialize(iByteInputStream& in, RecentName& recent, int streamVersion) {
    SharedName qname = readSharedName(in, recent, nullptr, streamVersion);
    // Nearly every node has no split parts: two null strings, a zero byte each from version 2 on.
    size_t available;
    const uint8_t* p = in.peek(available);
    if (available >= 2 && p[0] == 0 && p[1] == 0 && streamVersion >= 2) {
        in.skip(2);
        qname_ = std::move(qname);
        parts_.reset();
        return;
    }
    tovan::WString localName = readWideString(in);
    tovan::WString uriName = readWideString(in);
    qname_ = std::move(qname);
    if (localName.isNull() && uriName.isNull()) {
        parts_.reset();
    } else {
        parts().localName = std::move(localName);
        parts_->uriName = std::move(uriName);
    }
}

// ---- metadata block ---------------------------------------------------------------

void CMetaDataImpl::Serialize(const tovan::iMetaData* metaData, iByteOutputStream& out) {
    if (!metaData) {
        writeCompactInt(out, 0);
        return;
    }
    Serialize(metaData->getFlags(), metaData->getProperties(), out);
}

void CMetaDataImpl::Serialize(MetaDataFlags flags, const tovan::iPropertyCollection* properties,
                              iByteOutputStream& out) {
    const int count = properties ? properties->getSize() : 0;
    if (count == 0) {
        writeCompactInt(out, int32_t(flags & ~tovan::MetaDataHasEntries));
        return;
    }
    writeCompactInt(out, int32_t(flags | tovan::MetaDataHasEntries));
    writeCompactInt(out, count);
    for (int i = 0; i < count; ++i) {
        const tovan::iProperty& p = properties->get(i);
        writeWideString(out, p.getName());
        writeValue(out, p.getValue());
    }
}

void CMetaDataImpl::SetFromSerialized(tovan::iMetaData*& metaData, iByteInputStream& in) {
    const auto flags = MetaDataFlags(readCompactInt(in));
    if (flags == 0) {
        if (tovan::iMetaData* m = std::exchange(metaData, nullptr)) m->release();
        return;
    }
    if (!metaData) metaData = CMetaData::allocate();
    metaData->clear();
    metaData->setFlags(flags & ~tovan::MetaDataHasEntries);
    if (flags & tovan::MetaDataHasEntries) readEntries(in, metaData->getProperties());
}

void CMetaDataImpl::SetFromSerialized(MetaDataFlags& flags, CPropertyCollection*& properties,
                                      iByteInputStream& in) {
    const auto word = MetaDataFlags(readCompactInt(in));
    flags = word & ~tovan::MetaDataHasEntries;
    if (!(word & tovan::MetaDataHasEntries)) {
        if (CPropertyCollection* c = std::exchange(properties, nullptr)) c->release();
        return;
    }
    if (!properties) properties = CPropertyCollection::allocate();
    properties->removeAll();
    readEntries(in, *properties);
}

// ---- property ---------------------------------------------------------------------

void CProperty::serialize(iByteOutputStream& out) const {
    const int version = out.getVersion();
    checkStreamVersion(version, "CProperty", "serialize");
    writeWideString(out, name_.text(), version);
    writeValue(out, getValue());
    CMetaDataImpl::Serialize(flags_ & ~tovan::MetaDataNotSerialized, metaData(), out);
}

void CProperty::deserialize(iByteInputStream& in) {
    const int streamVersion = in.getVersion();
    checkStreamVersion(streamVersion, "CProperty", "deserialize");
    // A property that belongs to a collection is renamed through it (the index follows); one
    // being read into a collection's storage belongs to none yet and takes this thread's block.
    if (collection())
        SetName(readWideString(in));
    else
        setNameUnchecked(readSharedName(in));
    deserializeAfterName(in, streamVersion);
}

void CProperty::deserializeAfterName(iByteInputStream& in, int streamVersion) {
    readValue(in, streamVersion);
    // Nearly every property has no metadata, and its flags word then fits the compact
    // integer's one-byte form: taken from the window when there is none to let go of.
    if (!(link_ & kLinksTag)) {
        size_t available;
        const uint8_t* p = in.peek(available);
        if (available && uint8_t(p[0] - 1) >= 3) {
            const auto word = MetaDataFlags(int8_t(p[0]) >> 2);
            if (!(word & tovan::MetaDataHasEntries)) {
                in.skip(1);
                flags_ = (word & ~tovan::MetaDataNotSerialized) | (flags_ & tovan::MetaDataNotSerialized);
                return;
            }
        }
    }
    MetaDataFlags flags = 0;
    CPropertyCollection* meta = metaData();
    if (meta) meta->addRef();  // the reference setMetaData takes back, whatever the read does
    try {
        CMetaDataImpl::SetFromSerialized(flags, meta, in);
    } catch (...) {
        setMetaData(meta);
        throw;
    }
    setMetaData(meta);
    flags_ = (flags & ~tovan::MetaDataNotSerialized) | (flags_ & tovan::MetaDataNotSerialized);
}

void CProperty::readValue(iByteInputStream& in, int streamVersion) {
    const int32_t code = readCompactInt(in);
    const bool strict = streamVersion >= 3;  // as strictReading
    if (value_ && value_->getTypeCode() == code && value_->getRefCount() == 1) {
        value_->setStrictReading(strict);
        value_->deserialize(in);
        return;
    }
    if (slot_.isFree() && tovan::ValueSlot::fitsCode(code)) {
        Value* v = slot_.makeIn(code, strict);
        try {
            v->deserialize(in);
        } catch (...) {
            slot_.vacate();
            throw;
        }
        // The room was free, so the value it replaces lives elsewhere.
        if (Value* old = std::exchange(value_, v)) old->release();
        return;
    }
    Ptr<Value> v = Value::make(code, strict);
    v->deserialize(in);
    takeValue(std::move(v));  // the reference it was made with becomes the property's
}

// ---- property collection ------------------------------------------------------------

namespace {

void writeCollectionHeader(iByteOutputStream& out, const tovan::ClassTag* propertyClass, int count) {
    writeCompactInt(out, CPropertyCollectionData::DATA_VERSION);
    writeBool(out, propertyClass == nullptr);
    if (propertyClass) writeNarrowString(out, propertyClass->name());
    writeCompactInt(out, count);
}

}  // namespace

void CPropertyCollectionData::serialize(iByteOutputStream& out) const {
    checkStreamVersion(out.getVersion(), "CPropertyCollectionData", "serialize");
    CompactPropertiesArray();
    writeCollectionHeader(out, GetPropertyClass(), int(GetSlotCount()));
    for (const CProperty* p : GetSlots()) p->serialize(out);
}

void CPropertyCollectionData::serializeSubset(iByteOutputStream& out, const std::vector<WString>& names) const {
    checkStreamVersion(out.getVersion(), "CPropertyCollectionData", "serializeSubset");
    std::vector<const CProperty*> chosen;
    chosen.reserve(names.size());
    for (const WString& name : names) {
        const CProperty* p = GetProperty(name);
        if (!p)
            throw Exception("CPropertyCollectionData", "serializeSubset", u"Unable to find property '%ls'", name);
        chosen.push_back(p);
    }
    CompactPropertiesArray();
    writeCollectionHeader(out, GetPropertyClass(), int(chosen.size()));
    for (const CProperty* p : chosen) p->serialize(out);
}

void CPropertyCollectionData::deserialize(iByteInputStream& in) {
    const int streamVersion = in.getVersion();
    checkStreamVersion(streamVersion, "CPropertyCollectionData", "deserialize");
    Clear();
    readContent(in, streamVersion);
}

void CPropertyCollectionData::readContent(iByteInputStream& in, int streamVersion) {
    const int32_t version = readCompactInt(in);
    if (version != DATA_VERSION)
        throw Exception("CPropertyCollectionData", "deserialize", u"Deserialization version mismatch (%ld , %ld)",
                        long(version), long(DATA_VERSION));
    if (readBool(in)) {
        SetPropertyClass(nullptr);
    } else {
        std::string tag = readNarrowString(in);
        Ptr<CProperty> probe = tovan::ObjectFactory::createAs<CProperty>(tag);
        SetPropertyClass(&probe->getClass());
    }
    const int32_t count = readCount(in);
    const bool ownClass = GetPropertyClass() == nullptr;
    const bool inNodeRead = t_readDepth > 0;
    // Inside a node read, records of one kind name their properties alike, place by place.
    RecentName* recent = nullptr;
    ReadState* state = inNodeRead ? &readState() : nullptr;
    if (state) {
        state->used = true;
        if (state->current) recent = std::exchange(state->current, nullptr)->properties;
    }
    for (int32_t i = 0; i < count; ++i) {
        Ptr<CProperty> p = !ownClass   ? MakeNewPropertyWithCopiedValue(WString(), nullptr)
                           : state      ? Ptr<CProperty>::adopt(state->properties.take())
                                        : Ptr<CProperty>::adopt(CProperty::allocate());
        if (ownClass && recent && size_t(i) < ReadState::kPlaces) {
            // The class is known (no virtual call) and the version was checked above.
            p->setNameUnchecked(readSharedName(in, recent[i], size_t(i) + 1 < ReadState::kPlaces ? &recent[i + 1] : nullptr,
                                               streamVersion));
            p->deserializeAfterName(in, streamVersion);
        } else if (ownClass) {
            p->CProperty::deserialize(in);
        } else {
            p->deserialize(in);
        }
        // Appended as read, even under a name read before: the record is taken as it was
        // written. Lookups by name then give one of the two (the first in a short list).
        reserveOneMore();
        p->setCollection(this);
        push(p.detach());  // the reference it was made with is the slot's
        if (IsIndexBuilt()) extra_->index->put(int(size_ - 1), slots_);
    }
}

void CPropertyCollection::serialize(iByteOutputStream& out) const {
    checkStreamVersion(out.getVersion(), "CPropertyCollection", "serialize");
    writeCompactInt(out, COLLECTION_VERSION);
    CPropertyCollectionData::serialize(out);
}

void CPropertyCollection::deserialize(iByteInputStream& in) {
    const int streamVersion = in.getVersion();
    checkStreamVersion(streamVersion, "CPropertyCollection", "deserialize");
    Clear();
    deserializeFresh(in, streamVersion);
}

void CPropertyCollection::deserializeFresh(iByteInputStream& in, int streamVersion) {
    const int32_t version = readCompactInt(in);
    if (version != COLLECTION_VERSION)
        throw Exception("CPropertyCollection", "deserialize", u"Deserialization version mismatch (%ld , %ld)",
                        long(version), long(COLLECTION_VERSION));
    // The stream's version is the one checked above: the content follows at once.
    readContent(in, streamVersion);
}

// ---- nodes ------------------------------------------------------------------------------

void CNodeImplBase::SerializeNode(iByteOutputStream& out, bool withChildren) const {
    writeCompactInt(out, NODE_FORMAT_VERSION);
    name_.serialize(out);
    writeBool(out, properties_ != nullptr);
    if (properties_) properties_->serialize(out);
    if (withChildren) {
        const int n = GetNumberOfChildren();
        writeCompactInt(out, n);
        for (int i = 0; i < n; ++i) {
            const tovan::iNode* child = children_[size_t(i)];
            writeNarrowString(out, child->getClassTag());
            child->serialize(out);
        }
    }
    CMetaDataImpl::Serialize(FindMetaDataIfExists(), out);
}

namespace {


/// Reads a child's class tag and leaves its creator in `tags` (null for an unknown tag).
/// When the tag's bytes are in the window and equal the last tag's, they are only stepped
/// over; otherwise the tag is read into a buffer that keeps its room, and the factory is
/// asked again only when it differs from the last.
void readChildTag(iByteInputStream& in, ChildTagCache& tags) {
    size_t available;
    const uint8_t* p = in.peek(available);
    const std::string& wire = tags.lastWire;
    if (tags.creator && available >= wire.size() && std::memcmp(p, wire.data(), wire.size()) == 0) {
        in.skip(wire.size());
        return;
    }
    readNarrowString(in, tags.tag);
    if (tags.creator && tags.tag == tags.last) return;
    tags.creator = tovan::ObjectFactory::findCreator(tags.tag);
    tags.last = tags.tag;
    tovan::MemoryOutputStream form;
    writeNarrowString(form, tags.last);
    tags.lastWire.assign(form.bytes().begin(), form.bytes().end());
}

}  // namespace

void CNodeImplBase::DeserializeNode(iByteInputStream& in, bool withChildren) {
    DeserializeNode(in, withChildren, in.getVersion());
}

// Inline in the loop over a node's children, where nearly every node of a tree is read.
[[gnu::always_inline]] inline void CNodeImplBase::ReadBaseNodeRecord(CNodeImplBase& node, iByteInputStream& in,
                                                                     int streamVersion) {
    ReadDepthGuard depth("CBaseNode");
    const int32_t version = readCompactInt(in);
    if (version != CBaseNode::BASE_NODE_VERSION)
        throw Exception("CBaseNode", "deserialize", u"Deserialization version mismatch (%ld , %ld)", long(version),
                        long(CBaseNode::BASE_NODE_VERSION));
    node.DeserializeNode(in, true, streamVersion);
}

void CNodeImplBase::DeserializeNode(iByteInputStream& in, bool withChildren, int streamVersion) {
    // A node fresh from the pool, as every child read here is, was emptied on its way there.
    if (!children_.empty() || properties_ || FindExtras()) CleanOutNodeData(false);
    const int32_t version = readCompactInt(in);
    if (version < MIN_NODE_FORMAT_VERSION)
        throw Exception("CNodeImplBase", "DeserializeNode", u"Deserialization version mismatch (%ld < %ld)",
                        long(version), long(MIN_NODE_FORMAT_VERSION));
    ReadState& state = readState();
    state.used = true;
    name_.deserialize(in, state.nodeName(t_readDepth), streamVersion);
    if (readBool(in)) {
        // Cleaned out above: the collection comes fresh (empty) from the pool.
        properties_ = state.collections.take();
        properties_->_setOwner(GetINode());
        state.current = &state.kind(t_readDepth, name_.hash());
        properties_->deserializeFresh(in, streamVersion);
    }
    if (withChildren && version >= 104) {
        const int32_t n = readCount(in);
        tovan::iNode* self = GetINode();
        ChildTagCache& tags = state.tags;
        for (int32_t i = 0; i < n; ++i) {
            readChildTag(in, tags);
            if (tags.creator == &CBaseNode::createObject) {
                // The library's own node, as nearly every child is: its class is known, so it
                // needs neither the factory's type check nor a virtual call to be read.
                children_.reserveOneMore();
                CBaseNode* child = state.nodes.take();  // the array's reference
                children_.push_back(child);
                child->parent_ = self;
                ReadBaseNodeRecord(*child, in, streamVersion);  // the same stream, its version checked
                continue;
            }
            Ptr<tovan::iNode> child = tags.creator
                                          ? tovan::ObjectFactory::createAs<tovan::iNode>(tags.creator, tags.tag)
                                          : tovan::ObjectFactory::createAs<tovan::iNode>(tags.tag);
            AppendChild(child.get());
            child->setParent(self);
            child->deserialize(in);
            child->setParent(self);  // reading may have reset it
        }
    }
    if (version == NODE_FORMAT_VERSION) {
        // Nearly every node has no metadata: a zero byte.
        size_t available;
        const uint8_t* p = in.peek(available);
        if (available && p[0] == 0) {
            in.skip(1);
            DeleteMetaData();
        } else {
            ReadMetaData(in);
        }
    } else
        DeleteMetaData();  // 126 carries none; from 128 on it is not understood and dropped
}

void CBaseNode::serialize(iByteOutputStream& out) const {
    checkStreamVersion(out.getVersion(), "CBaseNode", "serialize");
    WriteDepthGuard depth("CBaseNode", *this);
    writeCompactInt(out, BASE_NODE_VERSION);
    SerializeNode(out, true);
}

void CBaseNode::deserialize(iByteInputStream& in) {
    const int streamVersion = in.getVersion();
    checkStreamVersion(streamVersion, "CBaseNode", "deserialize");
    deserialize(in, streamVersion);
}

void CBaseNode::deserialize(iByteInputStream& in, int streamVersion) { ReadBaseNodeRecord(*this, in, streamVersion); }

void CObjectTransportNode::serializeAdditionalInfo(iByteOutputStream& out) const {
    writeCompactInt(out, OBJECT_TRANSPORT_NODE_VERSION);
    writeBool(out, object_ != nullptr);
    if (object_) {
        writeNarrowString(out, object_->getClassTag());
        object_->serialize(out);
    }
}

void CObjectTransportNode::deserializeAdditionalInfo(iByteInputStream& in) {
    const int32_t version = readCompactInt(in);
    if (version != OBJECT_TRANSPORT_NODE_VERSION && version != OLD_OBJECT_TRANSPORT_NODE_VERSION)
        throw Exception("CObjectTransportNode", "deserialize", u"Deserialization version mismatch (%ld , %ld)",
                        long(version), long(OBJECT_TRANSPORT_NODE_VERSION));
    bool hasObject = readBool(in);
    if (version == OLD_OBJECT_TRANSPORT_NODE_VERSION) {
        readBool(in);
        hasObject = readBool(in);
    }
    // A record without an object leaves the attached one in place.
    if (!hasObject) return;
    std::string tag = readNarrowString(in);
    tovan::Object* object = tovan::ObjectFactory::create(tag);
    // Until it is attached, the new object belongs to this frame.
    auto* counted = dynamic_cast<tovan::CountedObject*>(object);
    Ptr<tovan::CountedObject> countedHolder(counted);
    std::unique_ptr<tovan::Object> plainHolder(counted ? nullptr : object);
    object->deserialize(in);
    SetObject(object);
    plainHolder.release();  // now owned by the node
}

void CObjectTransportNode::serialize(iByteOutputStream& out) const {
    checkStreamVersion(out.getVersion(), "CObjectTransportNode", "serialize");
    WriteDepthGuard depth("CObjectTransportNode", *this);
    serializeAdditionalInfo(out);
    SerializeNode(out, true);
}

void CObjectTransportNode::deserialize(iByteInputStream& in) {
    checkStreamVersion(in.getVersion(), "CObjectTransportNode", "deserialize");
    ReadDepthGuard depth("CObjectTransportNode");
    deserializeAdditionalInfo(in);
    DeserializeNode(in, true);
}

}  // namespace nvk
