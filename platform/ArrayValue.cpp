#include "nvk/platform/ArrayValue.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "nvk/platform/ByteOrder.h"

namespace tovan {

const ClassTag StringArrayValue::Tag("Norvatek.StringArrayValue");
const ClassTag IntegerArrayValue::Tag("Norvatek.IntegerArrayValue");
const ClassTag DoubleArrayValue::Tag("Norvatek.DoubleArrayValue");
const ClassTag BooleanArrayValue::Tag("Norvatek.BooleanArrayValue");
const ClassTag ByteArrayValue::Tag("Norvatek.ByteArrayValue");
const ClassTag NullArrayValue::Tag("Norvatek.NullArrayValue");
const ClassTag ValueArrayValue::Tag("Norvatek.ValueArrayValue");

namespace {
const ValueRegistration<StringArrayValue> regStringArray(VT_StringArray);
const ValueRegistration<IntegerArrayValue> regIntegerArray(VT_IntegerArray);
const ValueRegistration<DoubleArrayValue> regDoubleArray(VT_DoubleArray);
const ValueRegistration<BooleanArrayValue> regBooleanArray(VT_BooleanArray);
const ValueRegistration<ByteArrayValue> regByteArray(VT_ByteArray);
const ValueRegistration<NullArrayValue> regNullArray(VT_NullArray);
const ValueRegistration<ValueArrayValue> regValueArray(VT_ValueArray);

/// Elements are read one by one into a growing array, so a corrupt count
/// fails on the first missing element instead of reserving memory for it.
template <class Fn>
void readCounted(iByteInputStream& in, const char* className, Fn&& readOne) {
    uint32_t n = readUInt32LE(in, className);
    for (uint32_t i = 0; i < n; ++i) readOne();
}

thread_local int nestingDepth = 0;

struct NestingGuard {
    explicit NestingGuard(const char* className) {
        if (nestingDepth >= ValueArrayValue::MaxNestingDepth)
            throw Exception(className, "deserialize", u"Values nested deeper than %d levels",
                            ValueArrayValue::MaxNestingDepth);
        ++nestingDepth;
    }
    ~NestingGuard() { --nestingDepth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;
};

}  // namespace

// ---- ArrayValue --------------------------------------------------------------

void ArrayValue::failPut(const Value& v, const char* operation) const {
    throw BadParameterException(className(), operation, u"Cannot put a %hs into a %hs", v.getClassTag(),
                                getClassTag());
}

int ArrayValue::arrayTypeFor(int elementTypeCode) {
    switch (elementTypeCode) {
        case VT_String: return VT_StringArray;
        case VT_Integer: return VT_IntegerArray;
        case VT_Double: return VT_DoubleArray;
        case VT_Boolean: return VT_BooleanArray;
        case VT_Byte: return VT_ByteArray;
        case VT_Null: return VT_NullArray;
        case AnyElementType: return VT_ValueArray;
        default: return -1;
    }
}

Ptr<ArrayValue> ArrayValue::convertTo(int arrayTypeCode) const {
    Ptr<Value> made = isRegisteredType(arrayTypeCode) ? make(arrayTypeCode, true) : nullptr;
    Ptr<ArrayValue> target(made ? made->findAs<ArrayValue>() : nullptr);
    const char* targetTag = made ? made->getClassTag() : "non-array value";
    bool fits = bool(target);
    for (size_t i = 0; fits && i < size(); ++i) {
        Ptr<Value> e = getElement(i);
        fits = target->canHold(*e);
        if (fits) target->appendElement(*e);
    }
    if (!fits)
        throw BadParameterException(className(), "convertTo", u"Cannot convert a %hs to a %hs", getClassTag(),
                                    targetTag);
    return target;
}

WString ArrayValue::toString() const {
    std::u16string s = u"[";
    for (size_t i = 0; i < size(); ++i) {
        if (i) s += u", ";
        s += getElement(i)->toString().view();
    }
    s += u"]";
    return WString(std::move(s));
}

// ---- element traits ------------------------------------------------------------

template <>
struct ArrayElementTraits<WString> {
    using Scalar = StringValue;
    static constexpr int code = VT_String;
    static void write(iByteOutputStream& out, const WString& v) { writeValueText(out, v); }
    static WString read(iByteInputStream& in, bool, const char* cls) { return readValueText(in, cls); }
    static bool same(const WString& a, const WString& b) { return a == b; }
};

template <>
struct ArrayElementTraits<int32_t> {
    using Scalar = IntegerValue;
    static constexpr int code = VT_Integer;
    static void write(iByteOutputStream& out, int32_t v) { writeInt32LE(out, v); }
    static int32_t read(iByteInputStream& in, bool, const char* cls) { return readInt32LE(in, cls); }
    static bool same(int32_t a, int32_t b) { return a == b; }
};

template <>
struct ArrayElementTraits<double> {
    using Scalar = DoubleValue;
    static constexpr int code = VT_Double;
    static void write(iByteOutputStream& out, double v) { writeDoubleLE(out, v); }
    static double read(iByteInputStream& in, bool, const char* cls) { return readDoubleLE(in, cls); }
    static bool same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }
};

template <>
struct ArrayElementTraits<bool> {
    using Scalar = BooleanValue;
    static constexpr int code = VT_Boolean;
    static void write(iByteOutputStream& out, bool v) { writeUInt8(out, v ? 1 : 0); }
    static bool read(iByteInputStream& in, bool strict, const char* cls) {
        uint8_t b = readUInt8(in, cls);
        if (b > 1 && strict) throw Exception(cls, "deserialize", u"Invalid boolean byte %d", b);
        return b != 0;
    }
    static bool same(bool a, bool b) { return a == b; }
};

template <>
struct ArrayElementTraits<uint8_t> {
    using Scalar = ByteValue;
    static constexpr int code = VT_Byte;
    static void write(iByteOutputStream& out, uint8_t v) { writeUInt8(out, v); }
    static uint8_t read(iByteInputStream& in, bool, const char* cls) { return readUInt8(in, cls); }
    static bool same(uint8_t a, uint8_t b) { return a == b; }
};

// ---- TypedArrayValue -----------------------------------------------------------

template <class Elem>
int TypedArrayValue<Elem>::getElementTypeCode() const {
    return ArrayElementTraits<Elem>::code;
}

template <class Elem>
Ptr<Value> TypedArrayValue<Elem>::getElement(size_t i) const {
    using Scalar = typename ArrayElementTraits<Elem>::Scalar;
    return Ptr<Value>(new Scalar(items_.get(i)));
}

template <class Elem>
bool TypedArrayValue<Elem>::canHold(const Value& v) const {
    int code = v.getTypeCode();
    if constexpr (std::is_same_v<Elem, double>)
        if (code == VT_Integer) return true;
    return code == ArrayElementTraits<Elem>::code;
}

template <class Elem>
Elem TypedArrayValue<Elem>::unbox(const Value& v, const char* operation) const {
    if (!canHold(v)) failPut(v, operation);
    if constexpr (std::is_same_v<Elem, double>)
        if (v.getTypeCode() == VT_Integer) return double(static_cast<const IntegerValue&>(v).get());
    return static_cast<const typename ArrayElementTraits<Elem>::Scalar&>(v).get();
}

template <class Elem>
void TypedArrayValue<Elem>::appendElement(const Value& v) {
    items_.append(unbox(v, "appendElement"));
}

template <class Elem>
void TypedArrayValue<Elem>::setElement(size_t i, const Value& v) {
    Elem e = unbox(v, "setElement");
    items_.set(i, std::move(e));
}

template <class Elem>
bool TypedArrayValue<Elem>::equals(const Value& other) const {
    if (!sameClass(other)) return false;
    const Items& o = static_cast<const TypedArrayValue&>(other).items_;
    if (o.size() != items_.size()) return false;
    return std::equal(items_.begin(), items_.end(), o.begin(),
                      [](const auto& a, const auto& b) { return ArrayElementTraits<Elem>::same(a, b); });
}

template <class Elem>
void TypedArrayValue<Elem>::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    items_ = static_cast<const TypedArrayValue&>(other).items_;
}

template <class Elem>
void TypedArrayValue<Elem>::serialize(iByteOutputStream& out) const {
    if (items_.size() > UINT32_MAX) writeValueCount(out, items_.size(), className());  // raises
    writeUInt32LE(out, uint32_t(items_.size()));
    constexpr bool fixedWidth =
        std::is_same_v<Elem, int32_t> || std::is_same_v<Elem, double> || std::is_same_v<Elem, uint8_t>;
    if constexpr (fixedWidth && std::endian::native == std::endian::little)
        out.write(items_.data(), items_.size() * sizeof(Elem));  // the elements' memory is their byte form
    else
        for (const auto& e : items_) ArrayElementTraits<Elem>::write(out, e);
}

namespace {

/// `count` fixed-width little-endian elements into `items`, read in blocks straight into the
/// array's memory. The array grows a block at a time with the bytes that really arrive, so a
/// corrupt count costs no more memory than they do; a short stream fails as reading the
/// elements one by one would (the element it ends in, and the bytes of it that came).
template <class Elem, class Items>
void readFixedWidth(iByteInputStream& in, Items& items, uint32_t count, const char* className) {
    constexpr size_t kBlock = 8192;
    for (size_t done = 0; done < count;) {
        const size_t step = std::min<size_t>(count - done, kBlock);
        items.resize(done + step);
        auto* bytes = reinterpret_cast<uint8_t*>(items.data() + done);
        const size_t want = step * sizeof(Elem);
        size_t got = 0;
        while (got < want) {
            const size_t n = in.read(bytes + got, want - got);
            if (n == 0) break;
            got += n;
        }
        if (got < want)
            throw Exception(className, "read", u"Unexpected end of stream: needed %d bytes, got %d", sizeof(Elem),
                            got % sizeof(Elem));
        if constexpr (std::endian::native != std::endian::little && sizeof(Elem) > 1)
            for (size_t i = 0; i < step; ++i) items.data()[done + i] = std::bit_cast<Elem>(
                loadLE<std::conditional_t<sizeof(Elem) == 8, uint64_t, uint32_t>>(bytes + i * sizeof(Elem)));
        done += step;
    }
}

}  // namespace

template <class Elem>
void TypedArrayValue<Elem>::deserialize(iByteInputStream& in) {
    Items read;
    constexpr bool fixedWidth =
        std::is_same_v<Elem, int32_t> || std::is_same_v<Elem, double> || std::is_same_v<Elem, uint8_t>;
    if constexpr (fixedWidth && std::endian::native == std::endian::little) {
        // An array lying whole in the stream's window is copied from there in one step.
        size_t available = 0;
        const uint8_t* window = in.peek(available);
        if (available >= 4) {
            const uint32_t count = loadLE<uint32_t>(window);
            if (count <= (available - 4) / sizeof(Elem)) {
                // The elements' memory is their byte form (little-endian); nothing can fail
                // once the room is had, and assign changes nothing when it cannot have it.
                items_.assignBytes(window + 4, count);
                in.skip(4 + count * sizeof(Elem));
                return;
            }
        }
    }
    const char* cls = className();
    if constexpr (fixedWidth)
        readFixedWidth<Elem>(in, read, readUInt32LE(in, cls), cls);
    else
        readCounted(in, cls, [&] { read.append(ArrayElementTraits<Elem>::read(in, isStrictReading(), cls)); });
    items_ = std::move(read);
}

template class TypedArrayValue<WString>;
template class TypedArrayValue<int32_t>;
template class TypedArrayValue<double>;
template class TypedArrayValue<bool>;
template class TypedArrayValue<uint8_t>;

// ---- NullArrayValue ------------------------------------------------------------

Ptr<Value> NullArrayValue::getElement(size_t i) const {
    if (i >= count_) throw InvalidIndexException("Array", "get", (long long)i, (long long)count_ - 1);
    return Ptr<Value>(new NullValue());
}
bool NullArrayValue::canHold(const Value& v) const { return v.getTypeCode() == VT_Null; }
void NullArrayValue::appendElement(const Value& v) {
    if (!canHold(v)) failPut(v, "appendElement");
    ++count_;
}
void NullArrayValue::setElement(size_t i, const Value& v) {
    if (i >= count_) throw InvalidIndexException("Array", "set", (long long)i, (long long)count_ - 1);
    if (!canHold(v)) failPut(v, "setElement");
}
bool NullArrayValue::equals(const Value& other) const {
    return sameClass(other) && static_cast<const NullArrayValue&>(other).count_ == count_;
}
void NullArrayValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    count_ = static_cast<const NullArrayValue&>(other).count_;
}
void NullArrayValue::serialize(iByteOutputStream& out) const { writeValueCount(out, count_, "NullArrayValue"); }
void NullArrayValue::deserialize(iByteInputStream& in) { count_ = readUInt32LE(in, "NullArrayValue"); }

// ---- ValueArrayValue -----------------------------------------------------------

ValueArrayValue::ValueArrayValue(const ValueArrayValue& other) : ArrayValue(other) {
    items_.reserve(other.items_.size());
    for (const Ptr<Value>& e : other.items_) items_.append(Ptr<Value>(e->clone()));
}

ValueArrayValue& ValueArrayValue::operator=(const ValueArrayValue& other) {
    if (this != &other) assign(other);
    return *this;
}

void ValueArrayValue::append(Value* v) {
    if (!v) throw BadParameterException("ValueArrayValue", "append", u"A value array cannot hold a null pointer");
    items_.append(Ptr<Value>(v));
}

void ValueArrayValue::set(size_t i, Value* v) {
    if (!v) throw BadParameterException("ValueArrayValue", "set", u"A value array cannot hold a null pointer");
    items_.set(i, Ptr<Value>(v));
}

Ptr<Value> ValueArrayValue::getElement(size_t i) const { return Ptr<Value>(items_.get(i)->clone()); }
void ValueArrayValue::appendElement(const Value& v) { items_.append(Ptr<Value>(v.clone())); }
void ValueArrayValue::setElement(size_t i, const Value& v) {
    Ptr<Value> copy(v.clone());
    items_.set(i, std::move(copy));
}

void ValueArrayValue::resize(size_t n) {
    if (n < items_.size()) items_.resize(n);
    while (items_.size() < n) items_.append(Ptr<Value>(new NullValue()));
}

bool ValueArrayValue::equals(const Value& other) const {
    if (!sameClass(other)) return false;
    const auto& o = static_cast<const ValueArrayValue&>(other).items_;
    if (o.size() != items_.size()) return false;
    for (size_t i = 0; i < o.size(); ++i)
        if (!items_.data()[i]->equals(*o.data()[i])) return false;
    return true;
}

void ValueArrayValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    ValueArrayValue copy(static_cast<const ValueArrayValue&>(other));
    std::swap(items_, copy.items_);
}

void ValueArrayValue::serialize(iByteOutputStream& out) const {
    writeValueCount(out, items_.size(), "ValueArrayValue");
    for (const Ptr<Value>& e : items_) writeTypedValue(out, *e);
}

void ValueArrayValue::deserialize(iByteInputStream& in) {
    Array<Ptr<Value>> read;
    readCounted(in, "ValueArrayValue",
                [&] { read.append(readTypedValue(in, isStrictReading(), "ValueArrayValue")); });
    std::swap(items_, read);
}

void writeTypedValue(iByteOutputStream& out, const Value& v) {
    writeInt32LE(out, v.getTypeCode());
    v.serialize(out);
}

Ptr<Value> readTypedValue(iByteInputStream& in, bool strict, const char* className) {
    NestingGuard guard(className);
    Ptr<Value> v = Value::make(readInt32LE(in, className), strict);
    v->deserialize(in);
    return v;
}

}  // namespace tovan
