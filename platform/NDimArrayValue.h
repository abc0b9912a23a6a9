#pragma once
// Regular arrays of two or more dimensions (a JSON array of equal-length
// arrays), stored flat.
#include <initializer_list>

#include "nvk/platform/ArrayValue.h"

namespace tovan {

/// An array with dimensions d0 x d1 x ... (outermost first) whose elements
/// live in one flat array value in row-major order: element (i0, i1, ..., ik)
/// is flat element ((i0 * d1 + i1) * d2 + ...) + ik. The element type is a
/// scalar type code (VT_String, VT_Integer, VT_Double, VT_Boolean, VT_Byte,
/// VT_Null) or ArrayValue::AnyElementType for elements of any class (the
/// flat array is then a ValueArrayValue). New elements take their class's
/// default.
///
/// Errors: no dimensions, or more than 2^32 - 1 elements in all, raise
/// BadParameterException "An n-dimensional array needs at least one
/// dimension" / "Dimensions %ls hold too many elements"; an element type
/// without an array class raises "Element type %d cannot be stored in an
/// n-dimensional array"; the wrong number of indexes raises "Expected %d
/// indexes, got %d"; an index outside its dimension raises
/// InvalidIndexException("NDimArrayValue", operation, index, dimension - 1).
///
/// Bytes: uint32 LE number of dimensions, each dimension as uint32 LE, the
/// flat array's type code (int32 LE), then the flat array's own bytes (its
/// count must equal the product of the dimensions: "The flat array holds %d
/// elements where the dimensions need %d").
class NVK_EXPORT NDimArrayValue : public Value {
    TOVAN_VALUE_CLASS(NDimArrayValue)
public:
    /// An empty one-dimensional array of nulls (dimensions {0}).
    NDimArrayValue();
    NDimArrayValue(int elementTypeCode, const Array<unsigned>& dims);
    NDimArrayValue(const NDimArrayValue& other);
    NDimArrayValue& operator=(const NDimArrayValue& other);

    int getElementTypeCode() const { return flat_->getElementTypeCode(); }
    const Array<unsigned>& getDimensions() const { return dims_; }
    size_t getDimensionCount() const { return dims_.size(); }
    /// The number of elements (the product of the dimensions).
    size_t size() const { return flat_->size(); }

    /// Row-major position of `indexes`; see the class comment for errors.
    size_t flatIndex(std::initializer_list<size_t> indexes) const;
    size_t flatIndex(const Array<size_t>& indexes) const;
    /// A copy of the element at `indexes`.
    Ptr<Value> getElement(std::initializer_list<size_t> indexes) const;
    /// Replaces the element at `indexes` with a copy of `v` (as ArrayValue::setElement).
    void setElement(std::initializer_list<size_t> indexes, const Value& v);

    /// The flat storage; typed access through findAs<IntegerArrayValue>() and
    /// the like. Its size must stay the product of the dimensions.
    ArrayValue& flat() { return *flat_; }
    const ArrayValue& flat() const { return *flat_; }

    int getTypeCode() const override { return VT_NDimArray; }
    bool equals(const Value& other) const override;
    /// Nested brackets, outermost dimension first: "[[1, 2, 3], [4, 5, 6]]".
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    size_t flatIndexOf(const size_t* indexes, size_t count, const char* operation) const;
    void appendText(std::u16string& s, size_t dim, size_t& pos) const;

    Array<unsigned> dims_;
    Ptr<ArrayValue> flat_;
};

}  // namespace tovan
