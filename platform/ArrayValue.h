#pragma once
// Array values: one-dimensional arrays of scalars (one class per element
// type), arrays of nulls, and arrays of any values.
#include <cstdint>
#include <initializer_list>

#include <type_traits>

#include "nvk/platform/Array.h"
#include "nvk/platform/SmallVector.h"
#include "nvk/platform/Value.h"

namespace tovan {

/// What every array value offers, whatever it holds. Element access by
/// position raises InvalidIndexException("Array", operation, index, size - 1).
class NVK_EXPORT ArrayValue : public Value {
public:
    /// getElementTypeCode() of an array that holds values of any class.
    static constexpr int AnyElementType = -1;

    ArrayValue* clone() const override = 0;
    virtual size_t size() const = 0;
    /// The type code of the elements (VT_Integer for IntegerArrayValue), or AnyElementType.
    virtual int getElementTypeCode() const = 0;
    /// A copy of element `i` as a value of its own class.
    virtual Ptr<Value> getElement(size_t i) const = 0;
    /// Whether appendElement/setElement accept `v`: a value of the element
    /// class; a DoubleArrayValue also takes an IntegerValue (widened); a
    /// ValueArrayValue takes anything.
    virtual bool canHold(const Value& v) const = 0;
    /// Append or replace with a copy of `v`; a value the array cannot hold
    /// raises BadParameterException "Cannot put a %hs into a %hs" and changes nothing.
    virtual void appendElement(const Value& v) = 0;
    virtual void setElement(size_t i, const Value& v) = 0;
    /// New elements take their class's default (0, false, null text, NullValue).
    virtual void resize(size_t n) = 0;
    virtual void removeAll() = 0;

    /// A new array of class `arrayTypeCode` holding copies of these elements
    /// (an integer array becomes a double array, anything becomes a value
    /// array). Raises BadParameterException "Cannot convert a %hs to a %hs"
    /// when an element does not fit or the code is not an array class.
    Ptr<ArrayValue> convertTo(int arrayTypeCode) const;
    /// The array class (VT_...Array) whose elements are of `elementTypeCode`:
    /// a scalar code, VT_Null, or AnyElementType for VT_ValueArray. -1 when none.
    static int arrayTypeFor(int elementTypeCode);

    /// The element texts between brackets: "[1, 2, 3]", "[]".
    WString toString() const override;

protected:
    [[noreturn]] void failPut(const Value& v, const char* operation) const;
};

/// How each scalar element type is stored, written and compared.
template <class Elem>
struct ArrayElementTraits;

/// The arrays of one scalar type, stored unboxed in an Array<Elem> whose
/// memory comes from the value blocks (ValueBlockAllocator). Up to 16 bytes of
/// fixed-size elements (a point's two doubles, a pair of indexes) stay inside
/// the value, so that a short array is one block rather than two.
/// Bytes: uint32 LE count, then each element in its scalar value's layout.
template <class Elem>
class NVK_EXPORT TypedArrayValue : public ArrayValue {
public:
    using Items = Array<Elem, ValueBlockAllocator<Elem>,
                        std::conditional_t<std::is_trivially_copyable_v<Elem>,
                                           SmallVector<Elem, 16, ValueBlockAllocator<Elem>>,
                                           std::vector<Elem, ValueBlockAllocator<Elem>>>>;
    using const_reference = typename Items::const_reference;

    TypedArrayValue() = default;
    TypedArrayValue(std::initializer_list<Elem> items) : items_(items) {}

    size_t size() const override { return items_.size(); }
    const_reference get(size_t i) const { return items_.get(i); }
    void set(size_t i, Elem v) { items_.set(i, std::move(v)); }
    void append(Elem v) { items_.append(std::move(v)); }
    Items& items() { return items_; }
    const Items& items() const { return items_; }

    int getElementTypeCode() const override;
    Ptr<Value> getElement(size_t i) const override;
    bool canHold(const Value& v) const override;
    void appendElement(const Value& v) override;
    void setElement(size_t i, const Value& v) override;
    void resize(size_t n) override { items_.resize(n); }
    void removeAll() override { items_.removeAll(); }

    bool equals(const Value& other) const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    Elem unbox(const Value& v, const char* operation) const;
    Items items_;
};

extern template class NVK_EXPORT TypedArrayValue<WString>;
extern template class NVK_EXPORT TypedArrayValue<int32_t>;
extern template class NVK_EXPORT TypedArrayValue<double>;
extern template class NVK_EXPORT TypedArrayValue<bool>;
extern template class NVK_EXPORT TypedArrayValue<uint8_t>;

/// Texts; elements as StringValue's bytes (null and empty kept apart).
class NVK_EXPORT StringArrayValue : public TypedArrayValue<WString> {
    TOVAN_VALUE_CLASS(StringArrayValue)
public:
    using TypedArrayValue::TypedArrayValue;
    int getTypeCode() const override { return VT_StringArray; }
};

/// Signed 32-bit integers, int32 LE each.
class NVK_EXPORT IntegerArrayValue : public TypedArrayValue<int32_t> {
    TOVAN_VALUE_CLASS(IntegerArrayValue)
public:
    using TypedArrayValue::TypedArrayValue;
    int getTypeCode() const override { return VT_IntegerArray; }
};

/// Doubles, 8 bytes LE each; equal elements as in DoubleValue::equals.
class NVK_EXPORT DoubleArrayValue : public TypedArrayValue<double> {
    TOVAN_VALUE_CLASS(DoubleArrayValue)
public:
    using TypedArrayValue::TypedArrayValue;
    int getTypeCode() const override { return VT_DoubleArray; }
};

/// Booleans, one byte each (0 or 1; strict and lenient reading as BooleanValue).
class NVK_EXPORT BooleanArrayValue : public TypedArrayValue<bool> {
    TOVAN_VALUE_CLASS(BooleanArrayValue)
public:
    using TypedArrayValue::TypedArrayValue;
    int getTypeCode() const override { return VT_BooleanArray; }
};

/// Unsigned bytes, one each.
class NVK_EXPORT ByteArrayValue : public TypedArrayValue<uint8_t> {
    TOVAN_VALUE_CLASS(ByteArrayValue)
public:
    using TypedArrayValue::TypedArrayValue;
    int getTypeCode() const override { return VT_ByteArray; }
};

/// A run of nulls (a JSON array of nulls, or an empty one): only the count is
/// kept. Bytes: uint32 LE count.
class NVK_EXPORT NullArrayValue : public ArrayValue {
    TOVAN_VALUE_CLASS(NullArrayValue)
public:
    NullArrayValue() = default;
    explicit NullArrayValue(size_t count) : count_(count) {}

    int getTypeCode() const override { return VT_NullArray; }
    size_t size() const override { return count_; }
    int getElementTypeCode() const override { return VT_Null; }
    Ptr<Value> getElement(size_t i) const override;
    bool canHold(const Value& v) const override;
    void appendElement(const Value& v) override;
    void setElement(size_t i, const Value& v) override;
    void resize(size_t n) override { count_ = n; }
    void removeAll() override { count_ = 0; }

    bool equals(const Value& other) const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    size_t count_ = 0;
};

/// Values of any classes, arrays included (a JSON array of mixed elements or
/// of arrays). Each element is a value of its own, owned by the array (one
/// reference each); a copy of the array copies every element. Bytes: uint32
/// LE count, then per element its type code (int32 LE) and its own bytes.
/// Elements are read with this array's reading mode; values nested more than
/// MaxNestingDepth deep raise "Values nested deeper than %d levels".
class NVK_EXPORT ValueArrayValue : public ArrayValue {
    TOVAN_VALUE_CLASS(ValueArrayValue)
public:
    static constexpr int MaxNestingDepth = 200;

    ValueArrayValue() = default;
    ValueArrayValue(const ValueArrayValue& other);
    ValueArrayValue& operator=(const ValueArrayValue& other);

    int getTypeCode() const override { return VT_ValueArray; }
    size_t size() const override { return items_.size(); }
    int getElementTypeCode() const override { return AnyElementType; }
    /// The element itself (not a copy).
    Value& get(size_t i) const { return *items_.get(i); }
    /// Takes a reference on `v` (no copy); a null pointer raises
    /// BadParameterException "A value array cannot hold a null pointer".
    void append(Value* v);
    void set(size_t i, Value* v);

    Ptr<Value> getElement(size_t i) const override;
    bool canHold(const Value&) const override { return true; }
    void appendElement(const Value& v) override;
    void setElement(size_t i, const Value& v) override;
    void resize(size_t n) override;
    void removeAll() override { items_.removeAll(); }

    bool equals(const Value& other) const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    Array<Ptr<Value>> items_;
};

/// Reads one value written as its type code (int32 LE) and its bytes, made
/// by the factory with `strict` reading; guards the nesting depth. For the
/// container values' own use.
NVK_EXPORT Ptr<Value> readTypedValue(iByteInputStream& in, bool strict, const char* className);
NVK_EXPORT void writeTypedValue(iByteOutputStream& out, const Value& v);

}  // namespace tovan
