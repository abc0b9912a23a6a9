#pragma once
// The property collection of a node (or of metadata): the framework's
// iPropertyCollection over a CPropertyCollectionData.
#include <vector>

#include "nvk/data/CPropertyCollectionData.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Lock.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/iPropertyCollection.h"

namespace nvk {

/// Named, typed properties in order; names compare folding only A-Z.
/// Class tag "Norvatek.data.PropertyCollection"; pooled.
///
/// Hierarchical names. A name that starts with "/" can address a property of
/// another node of the owner's tree: it splits at its last "/" into a path
/// and a leaf; the path is evaluated from the owner node through the node's
/// query evaluator and the leaf is looked up in (or defined on) the first
/// node it selects. A path of exactly "/" means "//*" (the first node
/// anywhere); an empty path (a name "/x") means the root of the owner's tree.
/// `find` and `rename` try the name literally first; `define` resolves only
/// when its flags carry DefineHierarchical. A collection without an owner
/// node resolves nothing. A path the evaluator cannot parse finds no node, as
/// one that matches nothing: `find` answers null, and define, rename, reorder
/// and keep report the location as not found.
///
/// What is copied and what is shared:
/// - `assignFrom(source, copyValues)` replaces the content by new properties
///   with `source`'s names, flags and metadata; their values are copies when
///   `copyValues` is true and the very same value objects (shared, counted)
///   otherwise.
/// - `attachFrom(source, copyValues)` lays `source` over the content: a
///   property of the same name takes `source`'s value and flags, others are
///   appended, own properties that `source` lacks stay. Values are shared
///   unless `copyValues`.
/// - `appendFrom(source)` appends copies (values copied); a name that exists
///   already raises "Property %ls already exists\n" and nothing is appended.
///
/// Not thread-safe; a lock serialises hierarchical resolution, rename,
/// reorder and keep (all taken with the 60000 ms timeout). The locks are a
/// fixed set that collections share by address, so that a collection does
/// not carry one of its own; a collection never waits for another's lock
/// while it holds its own.
///
/// The storage (CPropertyCollectionData) is this object's base: a
/// collection, its array and the slots of its first properties are one block.
class NVK_EXPORT CPropertyCollection : public tovan::iPropertyCollection, public CPropertyCollectionData {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.PropertyCollection"
    static constexpr int COLLECTION_VERSION = 100;

    CPropertyCollection() = default;
    ~CPropertyCollection() override = default;
    CPropertyCollection(const CPropertyCollection&) = delete;
    CPropertyCollection& operator=(const CPropertyCollection&) = delete;

    static CPropertyCollection* newInstance();
    static CPropertyCollection* allocate();
    static void deallocate(CPropertyCollection* c);
    static tovan::ObjectPool<CPropertyCollection>& pool();

    const tovan::ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override;
    /// The pool's hooks (not virtual: nothing else calls them).
    void onActivate();
    void onDeactivate();
    /// A collection with copies of every property; no owner, no reference taken.
    tovan::Object* clone() const override;
    /// COLLECTION_VERSION, then the collection-data record.
    void serialize(tovan::iByteOutputStream& out) const override;
    /// Clears the collection first.
    void deserialize(tovan::iByteInputStream& in) override;
    /// The same into a collection fresh from the pool (empty), the stream's
    /// version (`streamVersion`) checked by the caller: a node reader's.
    void deserializeFresh(tovan::iByteInputStream& in, int streamVersion);

    /// True when `name` starts with "/".
    static bool IsHierarchicalProperty(const tovan::WString& name);

    // ---- iPropertyCollection ----------------------------------------------------
    tovan::iProperty& get(const tovan::WString& name) const override;
    tovan::iProperty& get(int index) const override;
    tovan::iProperty* find(const tovan::WString& name) const override;
    /// With DefineHierarchical and a name starting with "/", a path that
    /// selects no node raises "Failed to find hierarchical location \"%ls\"\n".
    tovan::iProperty& define(const tovan::WString& name, uint32_t flags = 0) override;
    tovan::iProperty& define(const tovan::WString& name, const tovan::Value& value, uint32_t flags = 0) override;
    tovan::iProperty& define(const tovan::WString& name, const tovan::WString& text, uint32_t flags = 0) override;
    tovan::iProperty& define(const tovan::WString& name, double number, uint32_t flags) override;
    bool isDefined(const tovan::WString& name) const override;
    int findIndex(const tovan::WString& name) const override;
    int getIndex(const tovan::WString& name) const override;
    int getSize() const override;
    bool remove(const tovan::WString& name) override;
    void remove(int index) override;
    void removeAll() override;
    /// Trims white space (0x09-0x0D, space, U+0085, U+00A0, U+1680,
    /// U+2000-U+200A, U+2028, U+2029, U+202F, U+205F, U+3000, U+FEFF) off the
    /// new name. Messages: "Source property %ls not found to rename",
    /// "Destination property %ls already exists, cannot rename source property
    /// %ls", "Source property %ls cannot be renamed to empty text". A change
    /// of case alone is allowed; within one collection the property keeps its
    /// place, across collections it is defined anew with the source's value.
    void rename(const tovan::WString& oldName, const tovan::WString& newName) override;
    /// Names may be hierarchical; all must resolve to one collection ("All
    /// properties for reorder must be on the same property list"; a path that
    /// selects nothing: "Cannot find hierarchical location \"%ls\"").
    void reorder(const std::vector<tovan::WString>& names, bool createMissing) override;
    void keep(const std::vector<tovan::WString>& names, bool createMissing) override;
    void reorderProperty(int from, int to) override;
    void assignFrom(const tovan::iPropertyCollection* source, bool copyValues) override;
    /// The same from a collection of this class, read slot by slot.
    void assignFrom(const CPropertyCollection& source, bool copyValues);
    void attachFrom(const tovan::iPropertyCollection* source, bool copyValues) override;
    void appendFrom(const tovan::iPropertyCollection* source) override;
    void _setOwner(tovan::Object* owner) override { owner_ = owner; }
    tovan::Object* findOwner() const override { return owner_; }

    // ---- library-internal access ------------------------------------------------
    /// The storage (this collection itself).
    CPropertyCollectionData& data() { return *this; }
    /// The storage, or null when it holds no slot.
    CPropertyCollectionData* findData() const {
        return GetSlotCount() ? const_cast<CPropertyCollection*>(this) : nullptr;
    }

private:
    tovan::iProperty& defineValue(const tovan::WString& name, const tovan::Value* value, uint32_t flags,
                                  const char* operation);
    /// Splits a hierarchical name and finds its collection. False when the
    /// path selects no node (`target` then stays null). With `create` false a
    /// node without a collection gives true and a null `target`.
    bool resolve(const tovan::WString& name, bool create, tovan::iPropertyCollection*& target, tovan::WString& path,
                 tovan::WString& leaf) const;
    tovan::iProperty* findFlat(const tovan::WString& name) const;
    void reorderOrKeep(const std::vector<tovan::WString>& names, bool createMissing, bool removeRest);
    /// A new property copying `source` (through the interface when it is
    /// not a CProperty); the value is shared unless `copyValue`.
    tovan::Ptr<CProperty> copyOf(const tovan::iProperty& source, bool copyValue) const;
    /// Makes the unnamed, empty property `p` a copy of `source`.
    static void copyInto(CProperty& p, const tovan::iProperty& source, bool copyValue);
    static void copyInto(CProperty& p, const CProperty& source, bool copyValue);
    /// Replaces the content by copies of the `n` properties `at(i)` gives.
    template <class At>
    void assignEach(int n, At at, bool copyValues);
    /// The shared lock that stands for this collection's.
    tovan::CriticalSection& lock() const;

    tovan::Object* owner_ = nullptr;  // weak
};

}  // namespace nvk
