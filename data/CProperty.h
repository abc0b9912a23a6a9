#pragma once
// One named, typed value of a property collection.
#include <utility>

#include "nvk/data/SharedName.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iPropertyCollection.h"

namespace nvk {

class CPropertyCollection;
class CPropertyCollectionData;

/// A property: name (with its cached A-Z-folded hash), value, flags word and
/// an optional metadata collection. Class tag "Norvatek.data.Property";
/// pooled.
///
/// The value is owned through one reference. A property without a value
/// reads as the framework's null value; `getEditableValue` puts a NullValue
/// in place first. Renaming goes through the owning collection, which
/// refuses a name another of its properties has.
///
/// A value of the small scalar classes that the property makes itself (a
/// copy, a value read from a stream, one handed over by a builder that
/// nobody else holds) lives in the property's own room (tovan::ValueSlot)
/// rather than in a block of its own. It is still an ordinary counted
/// value; when others hold it after the property let go, the property's
/// memory stays out of the pool until they release it.
///
/// Records hold millions of properties, so the object is kept to 72 bytes:
/// the flags word sits in the counted base's padding, the name is a shared
/// block, and the owning collection and the metadata share one word (a
/// property with metadata points to a small block holding both).
class NVK_EXPORT CProperty : public tovan::iProperty {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.Property"

    CProperty() : slot_(this) {}
    ~CProperty() override;
    CProperty(const CProperty&) = delete;
    CProperty& operator=(const CProperty&) = delete;

    // ---- pool ---------------------------------------------------------------
    /// A fresh or recycled property without a reference.
    static CProperty* newInstance();
    /// As newInstance, carrying one reference for the caller.
    static CProperty* allocate();
    /// `n` new instances (as newInstance) for one turn of the pool's lock.
    static void newInstances(CProperty** out, size_t n);
    /// A copy of `source` (name, flags, metadata, value copied) with one reference.
    static CProperty* allocateCopy(const CProperty& source);
    static void deallocate(CProperty* p);
    /// Ends `n` properties of this very class whose last reference went
    /// (CountedObject::releaseKeepingEnd), as deleteInstance ends each, with
    /// one turn of the pool's lock, their names' drops counted by `names`
    /// when given. `props` is used as scratch.
    static void endInstances(CProperty** props, size_t n, SharedName::Gather* names = nullptr);
    static tovan::ObjectPool<CProperty>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    /// The pool's hooks (not virtual: nothing else calls them).
    void onActivate();
    void onDeactivate();
    /// A copy with no reference taken (the framework's clone rule).
    tovan::Object* clone() const override;
    /// Name, value type code, value bytes, then the metadata block. The
    /// MetaDataNotSerialized bit is never written; reading keeps its state.
    /// A value of the same class held only by this property is read in place.
    void serialize(tovan::iByteOutputStream& out) const override;
    void deserialize(tovan::iByteInputStream& in) override;

    // ---- iProperty ------------------------------------------------------------
    const tovan::WString& getName() const override { return name_.text(); }
    /// Raises Exception "Cannot rename property '%ls' to '%ls'.  That name
    /// already exists in the parent property collection" (two blanks after
    /// the full stop: callers match the text) when another property of the
    /// owning collection has the name.
    void SetName(const tovan::WString& name) override;
    const tovan::Value& getValue() const override;
    /// Raises PropertyAccessException "Read-only property %ls cannot be
    /// updated" when the flags carry MetaDataReadOnly.
    tovan::Value& getEditableValue() override;
    void setValue(const tovan::Value& value) override;
    tovan::MetaDataFlags getFlags() const override { return flags_; }
    void setFlags(tovan::MetaDataFlags flags) override { flags_ = flags; }
    tovan::iPropertyCollection& getMetaData() override;
    tovan::iPropertyCollection* findMetaData() const override;
    tovan::iPropertyCollection* findCollection() const override;

    // ---- library-internal access ----------------------------------------------
    uint32_t getNameHash() const { return name_.hash(); }
    /// The name's shared block, for copies and readers that hand it on.
    const SharedName& getSharedName() const { return name_; }
    /// The stored value or null, bypassing the read-only guard (the node keeps
    /// its value in a property and must be able to update it).
    tovan::Value* findValue() const { return value_; }
    /// Stores `value` itself (taking a reference), not a copy; null drops it.
    void shareValue(tovan::Value* value);
    /// Stores `value`, taking over the caller's reference; a value that fits
    /// the property's room and that nobody else holds is moved there (for
    /// builders that made it for this property alone).
    void takeValue(tovan::Ptr<tovan::Value> value);
    /// Copies name, flags, metadata and the value (a copy, or the same value
    /// object when `copyValue` is false) from `source`.
    void assignFrom(const CProperty& source, bool copyValue);
    /// Drops the metadata collection.
    void clearMetaData();

private:
    friend class CPropertyCollectionData;
    void setNameUnchecked(const tovan::WString& name);
    void setNameUnchecked(SharedName name) { name_ = std::move(name); }
    void reset();
    /// What reset leaves after the name and the value: flags and links.
    void resetLinks() {
        flags_ = 0;
        // Metadata is rare: the call is spared for every property of a tree.
        if (link_ & kLinksTag) clearMetaData();
        link_ = 0;
    }
    /// True when a copy of `value` can go into the room without failing:
    /// it fits, and the room is free or holds this property's own value
    /// that nobody else holds.
    bool canCopyIn(const tovan::Value& value) const;
    /// Replaces the value by a copy of `value` made in the room (canCopyIn).
    void copyIn(const tovan::Value& value);
    /// Replaces the value by a `V` made from `args` in the free room.
    template <class V, class... Args>
    void emplaceValue(Args&&... args) {
        dropValue();
        value_ = slot_.emplace<V>(std::forward<Args>(args)...);
    }
    /// Drops the value (and the room's, if it is there).
    void dropValue();
    /// Reads a value's type code and bytes into this property (see deserialize).
    void readValue(tovan::iByteInputStream& in, int streamVersion);
    /// The rest of the property's record after its name: value, flags and metadata.
    void deserializeAfterName(tovan::iByteInputStream& in, int streamVersion);

    /// The owning collection and the metadata, when there is metadata.
    struct Links {
        CPropertyCollectionData* collection;  // weak
        CPropertyCollection* metaData;        // one reference
    };
    static constexpr uintptr_t kLinksTag = 1;
    CPropertyCollectionData* collection() const {
        return link_ & kLinksTag ? links()->collection : reinterpret_cast<CPropertyCollectionData*>(link_);
    }
    void setCollection(CPropertyCollectionData* c) {
        if (link_ & kLinksTag)
            links()->collection = c;
        else
            link_ = reinterpret_cast<uintptr_t>(c);
    }
    CPropertyCollection* metaData() const { return link_ & kLinksTag ? links()->metaData : nullptr; }
    /// Takes over the caller's reference to `m` (null drops the metadata).
    void setMetaData(CPropertyCollection* m);
    Links* links() const { return reinterpret_cast<Links*>(link_ & ~kLinksTag); }

    tovan::MetaDataFlags flags_ = 0;  // first, to fill the counted base's padding
    SharedName name_;                 // shared with the other holders of the same name
    tovan::Value* value_ = nullptr;   // one reference, or null
    uintptr_t link_ = 0;              // the collection (weak), or Links* | kLinksTag
    tovan::ValueSlot slot_;           // where value_ points for the small scalars
};

}  // namespace nvk
