#pragma once
// A value that maps names to values.
#include "nvk/platform/Array.h"
#include "nvk/platform/HashMap.h"
#include "nvk/platform/Value.h"

namespace tovan {

/// Names to values, in insertion order. Names compare as names do everywhere
/// in the system (A-Z folded); a name keeps the spelling it was first put
/// with. A null name is refused (BadParameterException "A hash table key
/// cannot be null"). The table owns one reference on each value; a copy of
/// the table copies every value.
///
/// Equality: the same names (folded) with equal values, in any order.
///
/// Bytes: uint32 LE count, then per entry the name (as StringValue's text),
/// the value's type code (int32 LE) and the value's own bytes, in insertion
/// order. Strict reading rejects a name that comes twice ("Duplicate key
/// '%ls' in a hash table"); lenient reading keeps the later value.
class NVK_EXPORT HashTableValue : public Value {
    TOVAN_VALUE_CLASS(HashTableValue)
public:
    HashTableValue() = default;
    HashTableValue(const HashTableValue& other);
    HashTableValue& operator=(const HashTableValue& other);

    size_t size() const { return names_.size(); }
    /// The value under `name`, or null.
    Value* find(const WString& name) const;
    /// Like find, but a missing name raises Exception "Key '%ls' not found".
    Value& get(const WString& name) const;
    /// Stores `v` under `name`, taking a reference (no copy); replaces the
    /// value of an existing name in its place.
    void put(const WString& name, Value* v);
    /// Stores a copy of `v`.
    void putCopy(const WString& name, const Value& v) { put(name, v.clone()); }
    bool remove(const WString& name);
    void removeAll();

    /// Entry `i` in insertion order (InvalidIndexException when out of range).
    const WString& nameAt(size_t i) const { return names_.get(i); }
    Value& valueAt(size_t i) const { return *values_.get(i); }

    int getTypeCode() const override { return VT_HashTable; }
    bool equals(const Value& other) const override;
    /// "{name: value, other: value}" in insertion order.
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    void rebuildIndex();

    Array<WString> names_;
    Array<Ptr<Value>> values_;
    HashMap<WString, size_t, NameHashFoldAZ, NameEqualFoldAZ> index_{31};
};

}  // namespace tovan
