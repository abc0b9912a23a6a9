#include "nvk/platform/Value.h"

#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/PerThread_internal.h"
#include "nvk/platform/Util.h"

#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>

#include <new>
#include <type_traits>

namespace tovan {

const ClassTag Value::Tag("Norvatek.Value");

namespace {

struct TypeEntry {
    const char* classTag;
    Value::Creator creator;
};

struct TypeRegistry {
    std::mutex mutex;
    std::map<int, TypeEntry> types;
    static constexpr int kDirect = 64;
};

TypeRegistry& typeRegistry() {
    static TypeRegistry r;
    return r;
}

// The creators of the small codes (every built-in one), read without the lock
// or the registry's first-use check: a reader makes a value per property, and
// the map's lock was the largest part of making a small one. Set once per
// code, under the registry's lock; constant-initialized, so registrations
// from any library's start find it ready.
constinit std::atomic<Value::Creator> directCreators[TypeRegistry::kDirect] = {};

}  // namespace

// ---- value memory ------------------------------------------------------------

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NVK_HAS_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef NVK_HAS_ADDRESS_SANITIZER
#define NVK_HAS_ADDRESS_SANITIZER 0
#endif

namespace {

// Freed blocks of the small sizes values have, one list per multiple of 16
// bytes, kept by each thread for its next values. A block freed on another
// thread than the one that made it simply joins that thread's lists: all
// blocks come from the global operator new. The lists are bounded (about
// 4 MB per size), so a thread that once held millions of values does not
// keep their memory.
// Under AddressSanitizer every block goes back at once, so that a value used
// after its release is still caught.
class ValueBlocks {
public:
    static constexpr size_t kGranule = 16;
    static constexpr size_t kClasses = 8;  // blocks up to 128 bytes
    // Up to about 4 MB of each size: as many as a tree of a few hundred thousand values frees.
    static constexpr size_t kMaxBytesPerClass = size_t(4) << 20;
    static constexpr size_t kLimits[] = {
        kMaxBytesPerClass / (1 * kGranule), kMaxBytesPerClass / (2 * kGranule), kMaxBytesPerClass / (3 * kGranule),
        kMaxBytesPerClass / (4 * kGranule), kMaxBytesPerClass / (5 * kGranule), kMaxBytesPerClass / (6 * kGranule),
        kMaxBytesPerClass / (7 * kGranule), kMaxBytesPerClass / (8 * kGranule)};
    static_assert(std::size(kLimits) == kClasses);

    ~ValueBlocks() {
        for (auto& list : free_)
            while (list.head) {
                Node* next = list.head->next;
                ::operator delete(list.head);
                list.head = next;
            }
    }

    static void* take(size_t size) {
        size_t c = classOf(size);
        ValueBlocks* blocks = c < kClasses ? mine() : nullptr;
        if (blocks) {
            List& list = blocks->free_[c];
            if (Node* n = list.head) {
                list.head = n->next;
                --list.count;
                // Freed blocks are cold when they come back: fetch the next now.
                if (list.head) __builtin_prefetch(list.head, 1);
                return n;
            }
            return ::operator new((c + 1) * kGranule);
        }
        return ::operator new(size);
    }

    static void give(void* block, size_t size) noexcept {
        size_t c = classOf(size);
        ValueBlocks* blocks = c < kClasses ? mine() : nullptr;
        if (blocks) {
            List& list = blocks->free_[c];
            if (list.count < kLimits[c]) {
                list.head = new (block) Node{list.head};
                ++list.count;
                return;
            }
        }
        ::operator delete(block);
    }

private:
    struct Node {
        Node* next;
    };
    struct List {
        Node* head = nullptr;
        size_t count = 0;
    };

    static size_t classOf(size_t size) {
#if defined(__SANITIZE_ADDRESS__) || NVK_HAS_ADDRESS_SANITIZER
        (void)size;
        return kClasses;
#else
        return (size - 1) / kGranule;
#endif
    }
    /// This thread's lists (reached for every value made or released), made on first use;
    /// null once they are gone (values released by other thread-local objects' destructors at
    /// thread exit): plain new/delete then.
    static ValueBlocks* mine();

    List free_[kClasses];
};

ValueBlocks* ValueBlocks::mine() { return PerThread<ValueBlocks>::get(); }

}  // namespace

void* Value::operator new(size_t size) { return ValueBlocks::take(size); }

void* takeValueBlock(size_t size) { return ValueBlocks::take(size); }

void giveValueBlock(void* block, size_t size) noexcept { ValueBlocks::give(block, size); }

void Value::operator delete(void* block, size_t size) noexcept { ValueBlocks::give(block, size); }

void Value::deleteInstance() {
    if (slotted_)
        reinterpret_cast<ValueSlot*>(this)->released(this);
    else
        delete this;
}

// ---- ValueSlot -------------------------------------------------------------

namespace {

/// Calls `f` with a pointer of the exact class `v` has, when it is one of the
/// classes a slot takes; false otherwise.
template <class F>
bool withSlotClass(int typeCode, F&& f) {
    switch (typeCode) {
        case VT_Integer: return f(static_cast<IntegerValue*>(nullptr));
        case VT_Double: return f(static_cast<DoubleValue*>(nullptr));
        case VT_Boolean: return f(static_cast<BooleanValue*>(nullptr));
        case VT_Byte: return f(static_cast<ByteValue*>(nullptr));
        case VT_Null: return f(static_cast<NullValue*>(nullptr));
        case VT_Missing: return f(static_cast<MissingValue*>(nullptr));
        default: return false;
    }
}

}  // namespace

bool ValueSlot::fits(const Value& v) {
    // The class itself, not one derived from it: a derived class may be
    // larger, and its copy would lose what it adds.
    return withSlotClass(v.getTypeCode(), [&](auto* type) {
        using V = std::remove_pointer_t<decltype(type)>;
        static_assert(sizeof(V) <= kRoom && alignof(V) <= 8);
        return &v.getClass() == &V::Tag;
    });
}

bool ValueSlot::fitsCode(int typeCode) {
    return withSlotClass(typeCode, [](auto*) { return true; });
}

Value* ValueSlot::copyIn(const Value& v) {
    Value* made = nullptr;
    withSlotClass(v.getTypeCode(), [&](auto* type) {
        using V = std::remove_pointer_t<decltype(type)>;
        made = emplace<V>(static_cast<const V&>(v));
        return true;
    });
    return made;
}

Value* ValueSlot::makeIn(int typeCode, bool strict) {
    Value* made = nullptr;
    withSlotClass(typeCode, [&](auto* type) {
        made = emplace<std::remove_pointer_t<decltype(type)>>();
        return true;
    });
    made->setStrictReading(strict);
    return made;
}

void ValueSlot::vacate() {
    Value* v = reinterpret_cast<Value*>(room_);
    // The holder's reference is the only one: no other thread can take or drop one
    // meanwhile, so the value ends here without a locked instruction.
    if (v->getRefCount() == 1) {
        v->~Value();
        setState(Free);
        return;
    }
    // Orphan before the release: if it is the last one, released() finds
    // the room orphaned and frees it.
    setState(Orphan);
    v->release();
}

bool ValueSlot::deferHome() {
    uintptr_t w = word_.load(std::memory_order_acquire);
    while ((w & StateMask) == Orphan)
        if (word_.compare_exchange_weak(w, (w & ~uintptr_t(StateMask)) | HomeWaiting, std::memory_order_acq_rel))
            return true;
    return false;
}

void ValueSlot::released(Value* v) {
    v->~Value();
    uintptr_t w = word_.load(std::memory_order_acquire);
    while (!word_.compare_exchange_weak(w, w & ~uintptr_t(StateMask), std::memory_order_acq_rel)) {
    }
    // The holder finished its own release while the value lived on: finish it now.
    if ((w & StateMask) == HomeWaiting) reinterpret_cast<CountedObject*>(w & ~uintptr_t(StateMask))->deleteInstance();
}

void Value::registerType(int typeCode, const char* classTag, Creator creator) {
    TypeRegistry& r = typeRegistry();
    const char* existing = nullptr;
    {
        std::lock_guard lock(r.mutex);
        auto [it, added] = r.types.emplace(typeCode, TypeEntry{classTag, creator});
        if (!added)
            existing = it->second.classTag;
        else if (typeCode >= 0 && typeCode < TypeRegistry::kDirect)
            directCreators[typeCode].store(creator, std::memory_order_release);
    }
    if (existing)
        Exception::warn(u"Value type code %d is already registered for %hs; %hs ignored", typeCode, existing,
                        classTag);
}

bool Value::isRegisteredType(int typeCode) { return classTagOf(typeCode) != nullptr; }

const char* Value::classTagOf(int typeCode) {
    TypeRegistry& r = typeRegistry();
    std::lock_guard lock(r.mutex);
    auto it = r.types.find(typeCode);
    return it == r.types.end() ? nullptr : it->second.classTag;
}

Value* Value::create(int typeCode, bool strict) {
    Creator creator = typeCode >= 0 && typeCode < TypeRegistry::kDirect
                          ? directCreators[typeCode].load(std::memory_order_acquire)
                          : nullptr;
    if (!creator) {
        TypeRegistry& r = typeRegistry();
        std::lock_guard lock(r.mutex);
        auto it = r.types.find(typeCode);
        if (it != r.types.end()) creator = it->second.creator;
    }
    if (!creator) throw Exception("Value", "create", u"Unknown value type code %d", typeCode);
    Value* v = creator();
    v->setStrictReading(strict);
    return v;
}

Ptr<Value> Value::makeByTag(const std::string& classTag) { return ObjectFactory::createAs<Value>(classTag); }

const char* Value::className() const {
    const char* tag = getClassTag();
    return std::strncmp(tag, "Norvatek.", 9) == 0 ? tag + 9 : tag;
}

bool Value::sameClass(const Value& other) const { return getClass() == other.getClass(); }

void Value::failAssign(const Value& other) const {
    throw BadParameterException(className(), "assign", u"Cannot assign a %hs to a %hs", other.getClassTag(),
                                getClassTag());
}

// ---- byte-form helpers -----------------------------------------------------

void writeValueCount(iByteOutputStream& out, size_t count, const char* className) {
    if (count > UINT32_MAX) throw Exception(className, "serialize", u"Too many elements to write: %d", count);
    writeUInt32LE(out, uint32_t(count));
}

void writeValueText(iByteOutputStream& out, const WString& text) {
    if (text.isNull()) {
        writeUInt32LE(out, 0);
        return;
    }
    if (text.length() >= UINT32_MAX)
        throw Exception("Value", "serialize", u"Text too long to write: %d units", text.length());
    writeUInt32LE(out, uint32_t(text.length() + 1));
    if constexpr (std::endian::native == std::endian::little) {
        // The units in memory are the bytes of the stream already.
        if (!text.isEmpty()) out.write(text.view().data(), text.length() * 2);
        return;
    }
    // Bounded chunks: the text may be long and the stream has no scratch space.
    uint8_t buf[1024];
    size_t pos = 0;
    for (wchar c : text.view()) {
        storeLE(buf + pos, uint16_t(c));
        pos += 2;
        if (pos == sizeof buf) {
            out.write(buf, pos);
            pos = 0;
        }
    }
    if (pos) out.write(buf, pos);
}

WString readValueText(iByteInputStream& in, const char* className) {
    uint32_t n = readUInt32LE(in, className);
    if (n == 0) return WString();
    std::u16string text;
    // The length comes from the stream: grow with what actually arrives rather
    // than trusting it with one allocation. The units go straight into the
    // text's own room, a kilobyte at a time (a short stream's message names
    // that chunk).
    size_t left = size_t(n) - 1;
    constexpr size_t kChunkUnits = 512;
    while (left) {
        const size_t units = std::min(left, kChunkUnits);
        const size_t at = text.size();
        text.resize(at + units);
        auto* bytes = reinterpret_cast<uint8_t*>(text.data() + at);
        in.readExactly(bytes, units * 2, className);
        if constexpr (std::endian::native != std::endian::little)
            for (size_t i = 0; i < units; ++i) text[at + i] = wchar(loadLE<uint16_t>(bytes + 2 * i));
        left -= units;
    }
    return WString(std::move(text));
}

// ---- scalars ---------------------------------------------------------------

const ClassTag StringValue::Tag("Norvatek.StringValue");
const ClassTag IntegerValue::Tag("Norvatek.IntegerValue");
const ClassTag DoubleValue::Tag("Norvatek.DoubleValue");
const ClassTag BooleanValue::Tag("Norvatek.BooleanValue");
const ClassTag ByteValue::Tag("Norvatek.ByteValue");
const ClassTag NullValue::Tag("Norvatek.NullValue");
const ClassTag MissingValue::Tag("Norvatek.MissingValue");
const ClassTag FlexValue::Tag("Norvatek.FlexValue");

namespace {
const ValueRegistration<StringValue> regString(VT_String);
const ValueRegistration<IntegerValue> regInteger(VT_Integer);
const ValueRegistration<DoubleValue> regDouble(VT_Double);
const ValueRegistration<BooleanValue> regBoolean(VT_Boolean);
const ValueRegistration<ByteValue> regByte(VT_Byte);
const ValueRegistration<NullValue> regNull(VT_Null);
const ValueRegistration<MissingValue> regMissing(VT_Missing);
const ValueRegistration<FlexValue> regFlex(VT_Flex);

template <class V>
const V* asSame(const Value& self, const Value& other) {
    return self.sameClass(other) ? static_cast<const V*>(&other) : nullptr;
}
}  // namespace

bool StringValue::equals(const Value& other) const {
    const auto* o = asSame<StringValue>(*this, other);
    return o && o->text_ == text_;
}
void StringValue::assign(const Value& other) {
    const auto* o = asSame<StringValue>(*this, other);
    if (!o) failAssign(other);
    text_ = o->text_;
}
void StringValue::serialize(iByteOutputStream& out) const { writeValueText(out, text_); }
void StringValue::deserialize(iByteInputStream& in) { text_ = readValueText(in, "StringValue"); }

bool IntegerValue::equals(const Value& other) const {
    const auto* o = asSame<IntegerValue>(*this, other);
    return o && o->value_ == value_;
}
WString IntegerValue::toString() const { return integerWide(value_); }
void IntegerValue::assign(const Value& other) {
    const auto* o = asSame<IntegerValue>(*this, other);
    if (!o) failAssign(other);
    value_ = o->value_;
}
void IntegerValue::serialize(iByteOutputStream& out) const { writeInt32LE(out, value_); }
void IntegerValue::deserialize(iByteInputStream& in) { value_ = readInt32LE(in, "IntegerValue"); }

bool DoubleValue::equals(const Value& other) const {
    const auto* o = asSame<DoubleValue>(*this, other);
    if (!o) return false;
    return o->value_ == value_ || (std::isnan(o->value_) && std::isnan(value_));
}
// The same text the JSON writer and the path evaluator give, so a value reads the same
// whichever way it is shown ("NaN" and "Infinity" included).
WString DoubleValue::toString() const { return util::doubleToString(value_); }
void DoubleValue::assign(const Value& other) {
    const auto* o = asSame<DoubleValue>(*this, other);
    if (!o) failAssign(other);
    value_ = o->value_;
}
void DoubleValue::serialize(iByteOutputStream& out) const { writeDoubleLE(out, value_); }
void DoubleValue::deserialize(iByteInputStream& in) { value_ = readDoubleLE(in, "DoubleValue"); }

bool BooleanValue::equals(const Value& other) const {
    const auto* o = asSame<BooleanValue>(*this, other);
    return o && o->value_ == value_;
}
WString BooleanValue::toString() const { return WString(value_ ? u"true" : u"false"); }
void BooleanValue::assign(const Value& other) {
    const auto* o = asSame<BooleanValue>(*this, other);
    if (!o) failAssign(other);
    value_ = o->value_;
}
void BooleanValue::serialize(iByteOutputStream& out) const { writeUInt8(out, value_ ? 1 : 0); }
void BooleanValue::deserialize(iByteInputStream& in) {
    uint8_t b = readUInt8(in, "BooleanValue");
    if (b > 1 && isStrictReading())
        throw Exception("BooleanValue", "deserialize", u"Invalid boolean byte %d", b);
    value_ = b != 0;
}

bool ByteValue::equals(const Value& other) const {
    const auto* o = asSame<ByteValue>(*this, other);
    return o && o->value_ == value_;
}
WString ByteValue::toString() const { return integerWide(value_); }
void ByteValue::assign(const Value& other) {
    const auto* o = asSame<ByteValue>(*this, other);
    if (!o) failAssign(other);
    value_ = o->value_;
}
void ByteValue::serialize(iByteOutputStream& out) const { writeUInt8(out, value_); }
void ByteValue::deserialize(iByteInputStream& in) { value_ = readUInt8(in, "ByteValue"); }

bool NullValue::equals(const Value& other) const { return sameClass(other); }
WString NullValue::toString() const { return WString::empty(); }
void NullValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
}
void NullValue::serialize(iByteOutputStream&) const {}
void NullValue::deserialize(iByteInputStream&) {}

bool MissingValue::equals(const Value& other) const { return sameClass(other); }
WString MissingValue::toString() const { return WString::empty(); }
void MissingValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
}
void MissingValue::serialize(iByteOutputStream&) const {}
void MissingValue::deserialize(iByteInputStream&) {}

// ---- FlexValue -------------------------------------------------------------

namespace {

bool isBlank(wchar c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

/// The trimmed text as ASCII, or false when it holds anything else.
bool trimmedAscii(const WString& text, std::string& out) {
    std::u16string_view v = text.view();
    while (!v.empty() && isBlank(v.front())) v.remove_prefix(1);
    while (!v.empty() && isBlank(v.back())) v.remove_suffix(1);
    out.clear();
    for (wchar c : v) {
        if (c > 0x7F) return false;
        out.push_back(char(c));
    }
    return true;
}

}  // namespace

int32_t FlexValue::asInteger() const {
    std::string s;
    int32_t v = 0;
    if (!text_.isNull() && trimmedAscii(text_, s) && parseInteger(std::string_view(s), v, NumberSigns::PlusOrMinus))
        return v;
    throw BadParameterException("FlexValue", "asInteger", u"Cannot read '%ls' as %hs", text_, "an integer");
}

double FlexValue::asDouble() const {
    std::string s;
    double v = 0;
    if (!text_.isNull() && trimmedAscii(text_, s) && parseDouble(s, v, NumberSigns::PlusOrMinus)) return v;
    throw BadParameterException("FlexValue", "asDouble", u"Cannot read '%ls' as %hs", text_, "a double");
}

bool FlexValue::asBoolean() const {
    std::string s;
    if (!text_.isNull() && trimmedAscii(text_, s)) {
        for (char& c : s) c = foldByte(c);
        if (s == "true" || s == "1") return true;
        if (s == "false" || s == "0") return false;
    }
    throw BadParameterException("FlexValue", "asBoolean", u"Cannot read '%ls' as %hs", text_, "a boolean");
}

bool FlexValue::equals(const Value& other) const {
    const auto* o = asSame<FlexValue>(*this, other);
    return o && o->text_ == text_;
}
void FlexValue::assign(const Value& other) {
    const auto* o = asSame<FlexValue>(*this, other);
    if (!o) failAssign(other);
    text_ = o->text_;
}
void FlexValue::serialize(iByteOutputStream& out) const { writeValueText(out, text_); }
void FlexValue::deserialize(iByteInputStream& in) { text_ = readValueText(in, "FlexValue"); }

}  // namespace tovan
