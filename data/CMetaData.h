#pragma once
// Node metadata: a flags word and a property collection made on demand.
#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/iMetaData.h"

namespace nvk {

class CPropertyCollection;

/// Helpers shared by everything that carries metadata as a flags word plus an
/// optional collection (nodes through CMetaData, properties inline).
class NVK_EXPORT CMetaDataImpl {
public:
    /// Makes `target` a copy of `source`: flags, and properties with copied
    /// values (the previous properties of `target` are dropped). A null
    /// `source` clears `target`.
    static void AssignMetaDataFrom(tovan::iMetaData& target, const tovan::iMetaData* source);
    /// Adds copies of `source`'s properties to `target`'s collection, replacing
    /// values of properties that exist already, and ORs the flags in.
    static void AddProperties(tovan::iMetaData& target, const tovan::iMetaData& source);

    // ---- the metadata block of the byte stream ----------------------------------
    /// A node's block; an absent metadata object is the single integer 0.
    static void Serialize(const tovan::iMetaData* metaData, tovan::iByteOutputStream& out);
    /// The flags (MetaDataHasEntries set exactly when entries follow), then
    /// the count and per entry its name, value type code and value bytes.
    static void Serialize(tovan::MetaDataFlags flags, const tovan::iPropertyCollection* properties,
                          tovan::iByteOutputStream& out);
    /// Reads a node's block into `metaData` (one reference, or null): flags 0
    /// drops it, otherwise it is made if needed, cleared and filled.
    static void SetFromSerialized(tovan::iMetaData*& metaData, tovan::iByteInputStream& in);
    /// Reads a property's block: `flags` gets the word without
    /// MetaDataHasEntries; `properties` (one reference, or null) holds the
    /// entries, or is dropped when there are none.
    static void SetFromSerialized(tovan::MetaDataFlags& flags, CPropertyCollection*& properties,
                                  tovan::iByteInputStream& in);
};

/// The framework's iMetaData for nodes. Class tag "Norvatek.data.MetaData";
/// pooled. Every flag bit is kept as given, except that the byte stream
/// reserves MetaDataHasEntries for itself.
class NVK_EXPORT CMetaData : public tovan::iMetaData, public tovan::PooledObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.MetaData"

    CMetaData() = default;
    ~CMetaData() override;
    CMetaData(const CMetaData&) = delete;
    CMetaData& operator=(const CMetaData&) = delete;

    static CMetaData* newInstance();
    static CMetaData* allocate();
    static void deallocate(CMetaData* m);
    static tovan::ObjectPool<CMetaData>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    void onActivate() override { clear(); }
    void onDeactivate() override { clear(); }
    /// A copy (flags and copied properties) with no reference taken.
    tovan::Object* clone() const override;

    tovan::MetaDataFlags getFlags() const override { return flags_; }
    void setFlags(tovan::MetaDataFlags flags) override { flags_ = flags; }
    tovan::iPropertyCollection& getProperties() override;
    const tovan::iPropertyCollection* getProperties() const override;
    bool hasProperties() const override;
    void clear() override;
    void assignFrom(const tovan::iMetaData& source) override;

private:
    tovan::MetaDataFlags flags_ = 0;
    CPropertyCollection* properties_ = nullptr;  // one reference, or null
};

}  // namespace nvk
