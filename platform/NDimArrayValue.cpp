#include "nvk/platform/NDimArrayValue.h"

#include <string>

#include "nvk/platform/NumberText.h"
namespace tovan {

const ClassTag NDimArrayValue::Tag("Norvatek.NDimArrayValue");

namespace {

const ValueRegistration<NDimArrayValue> regNDimArray(VT_NDimArray);

WString dimsText(const Array<unsigned>& dims) {
    std::u16string s;
    for (size_t i = 0; i < dims.size(); ++i) {
        if (i) s += u'x';
        s += integerWide(dims.get(i)).view();
    }
    return WString(std::move(s));
}

/// The element count of `dims`, checked against the uint32 limit of the byte
/// form. Bad dimensions from a caller are a BadParameterException; from a
/// stream, a plain Exception like every other reading failure.
template <class Raised>
size_t elementCount(const Array<unsigned>& dims, const char* operation) {
    if (dims.isEmpty())
        throw Raised("NDimArrayValue", operation, u"An n-dimensional array needs at least one dimension");
    uint64_t n = 1;
    for (unsigned d : dims) {
        n *= d;
        if (n > UINT32_MAX) n = uint64_t(UINT32_MAX) + 1;  // saturate: stays too large
    }
    if (n > UINT32_MAX)
        throw Raised("NDimArrayValue", operation, u"Dimensions %ls hold too many elements", dimsText(dims));
    return size_t(n);
}

Ptr<ArrayValue> makeFlat(int elementTypeCode, size_t count, const char* operation) {
    int arrayCode = ArrayValue::arrayTypeFor(elementTypeCode);
    if (arrayCode < 0)
        throw BadParameterException("NDimArrayValue", operation,
                                    u"Element type %d cannot be stored in an n-dimensional array", elementTypeCode);
    Ptr<Value> made = Value::make(arrayCode, true);
    Ptr<ArrayValue> flat(&made->getAs<ArrayValue>());
    flat->resize(count);
    return flat;
}

}  // namespace

NDimArrayValue::NDimArrayValue() : dims_{0u}, flat_(new NullArrayValue()) {}

NDimArrayValue::NDimArrayValue(int elementTypeCode, const Array<unsigned>& dims) : dims_(dims) {
    flat_ = makeFlat(elementTypeCode, elementCount<BadParameterException>(dims, "NDimArrayValue"), "NDimArrayValue");
}

NDimArrayValue::NDimArrayValue(const NDimArrayValue& other)
    : Value(other), dims_(other.dims_), flat_(other.flat_->clone()) {}

NDimArrayValue& NDimArrayValue::operator=(const NDimArrayValue& other) {
    if (this != &other) assign(other);
    return *this;
}

size_t NDimArrayValue::flatIndexOf(const size_t* indexes, size_t count, const char* operation) const {
    if (count != dims_.size())
        throw BadParameterException("NDimArrayValue", operation, u"Expected %d indexes, got %d", dims_.size(), count);
    size_t pos = 0;
    for (size_t k = 0; k < count; ++k) {
        const unsigned d = dims_.get(k);
        if (indexes[k] >= d)
            throw InvalidIndexException("NDimArrayValue", operation, (long long)indexes[k], (long long)d - 1);
        pos = pos * d + indexes[k];
    }
    return pos;
}

size_t NDimArrayValue::flatIndex(std::initializer_list<size_t> indexes) const {
    return flatIndexOf(indexes.begin(), indexes.size(), "flatIndex");
}

size_t NDimArrayValue::flatIndex(const Array<size_t>& indexes) const {
    return flatIndexOf(indexes.data(), indexes.size(), "flatIndex");
}

Ptr<Value> NDimArrayValue::getElement(std::initializer_list<size_t> indexes) const {
    return flat_->getElement(flatIndexOf(indexes.begin(), indexes.size(), "getElement"));
}

void NDimArrayValue::setElement(std::initializer_list<size_t> indexes, const Value& v) {
    flat_->setElement(flatIndexOf(indexes.begin(), indexes.size(), "setElement"), v);
}

bool NDimArrayValue::equals(const Value& other) const {
    if (!sameClass(other)) return false;
    const auto& o = static_cast<const NDimArrayValue&>(other);
    return o.dims_ == dims_ && flat_->equals(*o.flat_);
}

void NDimArrayValue::appendText(std::u16string& s, size_t dim, size_t& pos) const {
    s += u'[';
    for (unsigned i = 0; i < dims_.get(dim); ++i) {
        if (i) s += u", ";
        if (dim + 1 < dims_.size())
            appendText(s, dim + 1, pos);
        else
            s += flat_->getElement(pos++)->toString().view();
    }
    s += u']';
}

WString NDimArrayValue::toString() const {
    std::u16string s;
    size_t pos = 0;
    appendText(s, 0, pos);
    return WString(std::move(s));
}

void NDimArrayValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    const auto& o = static_cast<const NDimArrayValue&>(other);
    Ptr<ArrayValue> flat(o.flat_->clone());
    dims_ = o.dims_;
    flat_ = std::move(flat);
}

void NDimArrayValue::serialize(iByteOutputStream& out) const {
    writeValueCount(out, dims_.size(), "NDimArrayValue");
    for (unsigned d : dims_) writeUInt32LE(out, d);
    writeTypedValue(out, *flat_);
}

void NDimArrayValue::deserialize(iByteInputStream& in) {
    const uint32_t ndims = readUInt32LE(in, "NDimArrayValue");
    Array<unsigned> dims;
    for (uint32_t k = 0; k < ndims; ++k) dims.append(readUInt32LE(in, "NDimArrayValue"));
    const size_t expected = elementCount<Exception>(dims, "deserialize");
    Ptr<Value> flat = readTypedValue(in, isStrictReading(), "NDimArrayValue");
    auto* array = flat->findAs<ArrayValue>();
    if (!array || ArrayValue::arrayTypeFor(array->getElementTypeCode()) != array->getTypeCode())
        throw Exception("NDimArrayValue", "deserialize",
                        u"Type code %d is not an array type for an n-dimensional array", flat->getTypeCode());
    if (array->size() != expected)
        throw Exception("NDimArrayValue", "deserialize", u"The flat array holds %d elements where the dimensions need %d",
                        array->size(), expected);
    dims_ = std::move(dims);
    flat_ = Ptr<ArrayValue>(array);
}

}  // namespace tovan
