#pragma once
// The storage of a property collection: the property array with lazily
// squeezed holes and the name index built on first need.
#include <memory>
#include <vector>

#include "nvk/data/CProperty.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Pool.h"

namespace nvk {

class CPropertyCollection;
class SlotIndex;

/// Properties in order, each held by one reference. Class tag
/// "Norvatek.data.PropertyCollectionData"; pooled.
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
/// slot count) that is kept up to date from then on.
class NVK_EXPORT CPropertyCollectionData : public tovan::CountedObject, public tovan::PooledObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.PropertyCollectionData"
    /// Version number of the collection-data record.
    static constexpr int DATA_VERSION = 27390;
    /// Arrays with this many slots or more are searched through the index.
    static constexpr size_t kIndexFromSlots = 10;
    static constexpr size_t kInitialBuckets = 31;

    CPropertyCollectionData() = default;
    ~CPropertyCollectionData() override;
    CPropertyCollectionData(const CPropertyCollectionData&) = delete;
    CPropertyCollectionData& operator=(const CPropertyCollectionData&) = delete;

    static CPropertyCollectionData* newInstance();
    static CPropertyCollectionData* allocate();
    static void deallocate(CPropertyCollectionData* d);
    static tovan::ObjectPool<CPropertyCollectionData>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    void onActivate() override;
    void onDeactivate() override;
    /// A copy with every property copied; a failing copy raises Exception
    /// "Unable to clone CPropertyCollectionData".
    tovan::Object* clone() const override;

    // ---- byte stream ------------------------------------------------------------
    /// Version, property class (1 = default, or 0 and its tag), count, then
    /// each property in order (holes squeezed out first).
    void serialize(tovan::iByteOutputStream& out) const override;
    /// Clears first. A name met twice raises "Property %ls already exists\n".
    void deserialize(tovan::iByteInputStream& in) override;
    /// The same record holding only the named properties, in the order of
    /// `names`; an absent one raises "Unable to find property '%ls'" before
    /// anything is written.
    void serializeSubset(tovan::iByteOutputStream& out, const std::vector<tovan::WString>& names) const;

    // ---- reading --------------------------------------------------------------
    int GetNumProperties() const { return int(properties_.size() - holeCount_); }
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
    size_t GetSlotCount() const { return properties_.size(); }
    /// The slots in order, null for a hole: for writers that walk every
    /// property without a public index (which would squeeze holes first).
    const std::vector<CProperty*>& GetSlots() const { return properties_; }
    uint32_t GetHoleCount() const { return holeCount_; }
    bool IsIndexBuilt() const { return indexBuilt_; }

    // ---- changing -------------------------------------------------------------
    /// Appends `property` and takes a reference on it. The caller has checked
    /// that the name is free.
    void AddProperty(CProperty* property);
    /// Appends a new property (of the property class, if one is set) named
    /// `name` and holding `value` (null for none), whose reference it takes
    /// over. For builders that have checked that the name is not there;
    /// spares the reference counting that making and adding take apart.
    CProperty* AppendNewProperty(const tovan::WString& name, tovan::Ptr<tovan::Value> value);
    /// As above, under a name block the caller already has (a reader's
    /// dictionary), which the property shares.
    CProperty* AppendNewProperty(SharedName name, tovan::Ptr<tovan::Value> value);
    /// Room for `count` slots in all, so that filling a collection whose
    /// size is known does not grow the array step by step.
    void Reserve(size_t count) { properties_.reserve(count); }
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
    void Clear();
    void CompactPropertiesArray() const;

    /// Class of new properties: a tag registered with the factory whose
    /// objects are CProperty; null for CProperty itself.
    void SetPropertyClass(const tovan::ClassTag* propertyClass) { propertyClass_ = propertyClass; }
    const tovan::ClassTag* GetPropertyClass() const { return propertyClass_; }

    /// The collection this storage belongs to (weak), for CProperty::findCollection.
    void setFront(CPropertyCollection* front) { front_ = front; }
    CPropertyCollection* findFront() const { return front_; }

private:

    void BuildIndex() const;
    void swapSlots(size_t a, size_t b);

    // Compaction and index building are invisible to readers, hence mutable.
    mutable std::vector<CProperty*> properties_;  // one reference per live slot; null for a hole
    mutable uint32_t holeCount_ = 0;
    mutable uint32_t firstHole_ = 0;              // valid while holeCount_ != 0
    mutable std::unique_ptr<SlotIndex> index_;    // name -> slot; kept (emptied) while pooled
    mutable bool indexBuilt_ = false;
    const tovan::ClassTag* propertyClass_ = nullptr;
    CPropertyCollection* front_ = nullptr;        // weak
};

}  // namespace nvk
