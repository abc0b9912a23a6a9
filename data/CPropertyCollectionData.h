#pragma once
// The storage of a property collection: the property array with lazily
// squeezed holes and the name index built on first need.
#include <memory>
#include <span>
#include <typeinfo>
#include <utility>
#include <vector>

#include "nvk/data/CProperty.h"
#include "nvk/platform/Export.h"

namespace nvk {

class CPropertyCollection;
class SlotIndex;

/// Fresh properties taken from the pool several at a time, for a builder
/// that appends many: the pool's lock, taken for every property, was a
/// twentieth of reading a document. The builder calls Release() when its
/// record is done, so that the pool's counts stay exact between records (see
/// ObjectPool::Handouts). One thread at a time.
class PropertyBatch : public tovan::ObjectPool<CProperty>::Handouts {
public:
    PropertyBatch() : Handouts(CProperty::pool()) {}
    /// Returns the properties not taken and starts small again.
    void Release() { release(); }
};

/// Properties in order, each held by one reference: the storage half of a
/// CPropertyCollection, which it is the base of, so that a collection with
/// its storage and the slots of its first kInlineSlots properties is one
/// block. It is not an object of its own (no count, no pool, no class tag);
/// `clone` copies the collection it belongs to.
///
/// Two kinds of position: the internal index is the slot in the array, holes
/// left by removals included; the public index counts live properties only.
/// Removal is O(1): it nulls the slot and counts a hole. The holes are
/// squeezed out (`CompactPropertiesArray`) before anything that needs public
/// positions (`GetIndex`, `GetProperty(int)`, reordering), so both kinds of
/// index agree after such a call.
///
/// Lookup by name scans while the array has fewer than 10 slots. From 10
/// slots on, the first lookup builds a hash index (31 buckets, grown to the
/// slot count) that is kept up to date from then on. The index and the
/// property class, which few collections have, live in a block made on
/// first need and kept for the collection's next life in the pool.
class NVK_EXPORT CPropertyCollectionData {
public:
    /// Version number of the collection-data record.
    static constexpr int DATA_VERSION = 27390;
    /// Arrays with this many slots or more are searched through the index.
    static constexpr size_t kIndexFromSlots = 10;
    static constexpr size_t kInitialBuckets = 31;
    /// Slots held inside the collection's own block: records mostly have a
    /// handful of properties.
    static constexpr uint32_t kInlineSlots = 5;

    CPropertyCollectionData(const CPropertyCollectionData&) = delete;
    CPropertyCollectionData& operator=(const CPropertyCollectionData&) = delete;

    /// A new collection (no owner, no reference taken) with every property
    /// copied; a failing copy raises Exception "Unable to clone
    /// CPropertyCollectionData".
    tovan::Object* clone() const;

    // ---- byte stream ------------------------------------------------------------
    /// Version, property class (1 = default, or 0 and its tag), count, then
    /// each property in order (holes squeezed out first).
    void serialize(tovan::iByteOutputStream& out) const;
    /// Clears first. A name met twice is kept twice (the record is kept as it came).
    void deserialize(tovan::iByteInputStream& in);
    /// The record's content into an empty collection, the stream's version
    /// (`streamVersion`) checked by the caller.
    void readContent(tovan::iByteInputStream& in, int streamVersion);
    /// The same record holding only the named properties, in the order of
    /// `names`; an absent one raises "Unable to find property '%ls'" before
    /// anything is written.
    void serializeSubset(tovan::iByteOutputStream& out, const std::vector<tovan::WString>& names) const;

    // ---- reading --------------------------------------------------------------
    int GetNumProperties() const { return int(size_ - holeCount_); }
    /// By public index; raises InvalidIndexException (index, count-1).
    CProperty* GetProperty(int index) const;
    CProperty* GetProperty(const tovan::WString& name) const;
    /// By slot: null for a hole; raises InvalidIndexException outside the array.
    CProperty* GetPropertyUsingInternalIndex(int slot) const;
    /// The value of the named property, or null when there is no such property.
    const tovan::Value* GetValue(const tovan::WString& name) const;
    /// Public index of the name, or -1 (squeezes holes out first).
    int GetIndex(const tovan::WString& name) const;
    /// Slot of the name, or -1 (holes stay).
    int GetInternalIndex(const tovan::WString& name) const;
    size_t GetSlotCount() const { return size_; }
    /// The slots in order, null for a hole: for writers that walk every
    /// property without a public index (which would squeeze holes first).
    std::span<CProperty* const> GetSlots() const { return {slots_, size_}; }
    uint32_t GetHoleCount() const { return holeCount_; }
    bool IsIndexBuilt() const { return extra_ && extra_->indexBuilt; }

    // ---- changing -------------------------------------------------------------
    /// Appends `property` and takes a reference on it. The caller has checked
    /// that the name is free.
    void AddProperty(CProperty* property);
    /// The same, taking over the caller's reference instead of adding one;
    /// when the room cannot be had, `property` is released.
    CProperty* AdoptProperty(tovan::Ptr<CProperty> property);
    /// Appends a new property (of the property class, if one is set) named
    /// `name` and holding `value` (null for none), whose reference it takes
    /// over. For builders that have checked that the name is not there;
    /// spares the reference counting that making and adding take apart.
    CProperty* AppendNewProperty(const tovan::WString& name, tovan::Ptr<tovan::Value> value);
    /// As above, under a name block the caller already has (a reader's
    /// dictionary), which the property shares.
    /// With `batch`, the property comes from it (unless a property class is set).
    CProperty* AppendNewProperty(SharedName name, tovan::Ptr<tovan::Value> value, PropertyBatch* batch = nullptr);
    /// The same with a copy of `value`, made in the new property's own room
    /// when it fits there: a builder can keep one value of each scalar class
    /// for all its members instead of making one per property.
    CProperty* AppendNewPropertyCopy(const tovan::WString& name, const tovan::Value& value);
    CProperty* AppendNewPropertyCopy(SharedName name, const tovan::Value& value, PropertyBatch* batch = nullptr);
    /// The same for a value of one of the room's classes (`tovan::ValueSlot`)
    /// made from `args`, for a builder that knows the class it makes.
    template <class V, class... Args>
    CProperty* AppendNewScalar(SharedName name, PropertyBatch* batch, Args&&... args) {
        CProperty* p = AppendNewProperty(std::move(name), nullptr, batch);
        p->emplaceValue<V>(std::forward<Args>(args)...);  // into the new property's free room: cannot fail
        return p;
    }
    /// Room for `count` slots in all, so that filling a collection whose
    /// size is known does not grow the array step by step.
    void Reserve(size_t count);
    /// Creates a property of the collection's property class with a copy of
    /// `value` (none when null); not added. One reference for the caller.
    tovan::Ptr<CProperty> MakeNewPropertyWithCopiedValue(const tovan::WString& name, const tovan::Value* value) const;
    /// False when there is no such property.
    bool RemoveProperty(const tovan::WString& name);
    /// Leaves a hole; a slot that is already a hole is left alone; raises
    /// InvalidIndexException outside the array.
    void RemovePropertyUsingInternalIndex(int slot);
    /// Moves the property at public index `from` to `to`; raises
    /// InvalidIndexException for either.
    void ReorderProperty(int from, int to);
    /// Puts the named properties first, in the given order; `createMissing`
    /// appends absent ones with a null value first; `removeRest` then drops
    /// every property after the ones placed. Names already placed, and absent
    /// names not created, are skipped.
    void ReorderProperties(const std::vector<tovan::WString>& names, bool createMissing, bool removeRest);
    /// Renames the property at public index `index` (see renameProperty).
    void SetName(int index, const tovan::WString& name);
    /// Renames `property` (which this collection holds), refusing a name that
    /// another of its properties has.
    void renameProperty(CProperty& property, const tovan::WString& name);
    /// Properties of the library's class whose last reference went, returned
    /// to their pool a batch at a time (CProperty::endInstances), also across
    /// the collections of a tree's end, where most hold one or two; with a
    /// gather, their names' drops are counted there.
    class PropertyEnds {
    public:
        explicit PropertyEnds(SharedName::Gather* names = nullptr) : names_(names) {}
        ~PropertyEnds() { flush(); }
        PropertyEnds(const PropertyEnds&) = delete;
        PropertyEnds& operator=(const PropertyEnds&) = delete;
        void add(CProperty* property) {
            items_[count_++] = property;
            if (count_ == kBatch) flush();
        }
        void flush();

    private:
        static constexpr size_t kBatch = 64;
        SharedName::Gather* names_;
        CProperty* items_[kBatch];
        size_t count_ = 0;
    };
    /// Drops every property. A collection already empty returns at once: a
    /// read clears the collection it fills, mostly one fresh from the pool.
    void Clear() {
        if (size_ != 0 || slots_ != inline_ || IsIndexBuilt()) ClearSome();
    }
    /// Clear, handing the properties that end to `ends`.
    void Clear(PropertyEnds& ends);
    /// Ends `n` collections of the library's class whose last reference went
    /// (a tree's end gathers them): each is emptied as the pool's hook would,
    /// their properties that end go back to their pool together, their
    /// names' drops counted by `names`, and the collections to theirs
    /// without the hook.
    static void EndCollections(CPropertyCollection* const* items, size_t n, SharedName::Gather& names);
    /// Replaces the content by `source`'s properties, leaving `source` empty;
    /// the property class stays this collection's. Cannot fail.
    void TakeProperties(CPropertyCollectionData& source);
    void CompactPropertiesArray() const;

    /// Class of new properties: a tag registered with the factory whose
    /// objects are CProperty; null for CProperty itself.
    void SetPropertyClass(const tovan::ClassTag* propertyClass);
    const tovan::ClassTag* GetPropertyClass() const { return extra_ ? extra_->propertyClass : nullptr; }

    /// The collection this storage is part of, for CProperty::findCollection.
    CPropertyCollection* findFront() const;

protected:
    CPropertyCollectionData() = default;
    ~CPropertyCollectionData();
    /// Clear, and forget the property class: for the collection's pool.
    void resetStorage();

private:
    struct Extra {
        Extra();
        ~Extra();  // where SlotIndex is complete
        std::unique_ptr<SlotIndex> index;  // name -> slot; kept (emptied) while pooled
        bool indexBuilt = false;
        const tovan::ClassTag* propertyClass = nullptr;
    };
    Extra& extra() const;
    void ClearSome();
    /// The collection's reference on `p` goes; a property of the class itself
    /// that ends with it joins `ends`.
    static void releaseSlot(CProperty* p, PropertyEnds& ends) {
        p->setCollection(nullptr);
        if (!p->releaseKeepingEnd()) return;
        if (typeid(*p) != typeid(CProperty)) {
            p->deleteInstance();  // a class with an end of its own
            return;
        }
        ends.add(p);
    }
    void BuildIndex() const;
    void swapSlots(size_t a, size_t b);
    /// Room for one more slot, grown geometrically; may throw, changing nothing.
    void reserveOneMore() {
        if (size_ >= capacity()) growTo(size_t(size_) + 1);
    }
    uint32_t capacity() const {
        return slots_ == inline_ ? kInlineSlots : uint32_t(reinterpret_cast<const size_t*>(slots_)[-1]);
    }
    /// Moves the slots to an array of their own with room for `count` at least.
    void growTo(size_t count);
    static CProperty** allocateSlots(size_t capacity);
    static void freeSlots(CProperty** slots);
    void push(CProperty* p) { slots_[size_++] = p; }

    // Compaction and index building are invisible to readers, hence mutable.
    mutable CProperty** slots_ = inline_;  // one reference per live slot; null for a hole
    mutable uint32_t size_ = 0;
    mutable uint32_t holeCount_ = 0;
    mutable std::unique_ptr<Extra> extra_;
    CProperty* inline_[kInlineSlots] = {};
};

}  // namespace nvk
