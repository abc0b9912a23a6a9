#pragma once
// Typed values: what properties and metadata hold, and the factory that makes
// them again from their type codes when a stream is read.
//
// Every value class has a type code (written ahead of the value's own bytes
// by the record formats above this layer) and a class tag. The codes are
// listed in ValueTypeCode and in platform/README.md with each class's bytes.
#include <atomic>
#include <cstdint>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"

namespace tovan {

/// The type codes of the value classes. They travel in streams: never renumber.
enum ValueTypeCode : int {
    VT_Null = 0,
    VT_String = 1,
    VT_Integer = 2,
    VT_Double = 3,
    VT_Boolean = 4,
    VT_DateTime = 5,  // registered by DateTimeValue's own file
    VT_Byte = 6,
    VT_Missing = 7,
    VT_Flex = 8,
    VT_Bitset = 9,
    VT_StringArray = 10,
    VT_IntegerArray = 11,
    VT_DoubleArray = 12,
    VT_BooleanArray = 13,
    VT_ByteArray = 14,
    VT_NullArray = 15,
    VT_ValueArray = 16,
    VT_HashTable = 17,
    VT_NDimArray = 18,
};

/// Base of every typed value. Values are counted objects; a new value carries
/// no reference until someone takes one (wrap it in a Ptr).
///
/// Reading mode: a value reads its bytes either strictly (the default, and
/// what the factory's `strict` argument true gives) or leniently. Strict
/// reading rejects bytes that our writers never produce (a boolean byte other
/// than 0 or 1, bits set beyond a bitset's size, a key twice in a hash table);
/// lenient reading, for streams older than version 3 whose writers were
/// less careful, takes them as they stand (non-zero is true, stray bits are
/// dropped, the later key wins). The layout of the bytes is the same in both.
///
/// A deserialize that fails leaves the value exactly as it was before the call.
class NVK_EXPORT Value : public CountedObject {
public:
    static const ClassTag Tag;  // "Norvatek.Value"

    virtual int getTypeCode() const = 0;
    Value* clone() const override = 0;
    /// Same class and same content. Values of different classes are never
    /// equal (the integer 1 does not equal the double 1.0).
    virtual bool equals(const Value& other) const = 0;
    virtual WString toString() const = 0;
    /// True for NullValue and MissingValue.
    virtual bool isNull() const { return false; }
    /// Replaces this value's content with `other`'s. `other` must be of the
    /// same class, else BadParameterException "Cannot assign a %hs to a %hs".
    virtual void assign(const Value& other) = 0;

    void serialize(iByteOutputStream& out) const override = 0;
    void deserialize(iByteInputStream& in) override = 0;

    /// Values are made and dropped by the thousand for every record read, so
    /// their memory comes from per-thread lists of freed blocks of their
    /// sizes rather than from the C library each time (see Value.cpp).
    static void* operator new(size_t size);
    static void operator delete(void* block, size_t size) noexcept;
    /// The last release of a value made in a ValueSlot goes back to the slot
    /// instead of freeing memory; any other value is deleted.
    void deleteInstance() override;

    bool isStrictReading() const { return strict_; }
    void setStrictReading(bool strict) { strict_ = strict; }

    bool sameClass(const Value& other) const;
    /// The class tag without its "Norvatek." prefix ("StringValue"): the
    /// class name in the value's exceptions.
    const char* className() const;

    // ---- the value factory ----------------------------------------------

    using Creator = Value* (*)();
    /// Makes `typeCode` known to the factory. A code registered twice keeps
    /// its first class (a warning is issued).
    static void registerType(int typeCode, const char* classTag, Creator creator);
    static bool isRegisteredType(int typeCode);
    /// The class tag registered for `typeCode`, or null.
    static const char* classTagOf(int typeCode);

    /// A new value of the class registered for `typeCode`, without a reference.
    /// `strict` sets its reading mode (see above): readers pass false for
    /// streams below version 3 and true otherwise. An unknown code raises
    /// Exception "Unknown value type code %d".
    static Value* create(int typeCode, bool strict);
    /// Like create, holding one reference.
    static Ptr<Value> make(int typeCode, bool strict) {
        Value* v = create(typeCode, strict);
        v->takeFirstRef();  // nobody else has it yet
        return Ptr<Value>::adopt(v);
    }
    /// A new value by class tag through ObjectFactory; raises when the tag is
    /// unknown or does not name a value class.
    static Ptr<Value> makeByTag(const std::string& classTag);

protected:
    Value() = default;
    // Where a value lives is not part of it: a copy of a value in a slot is
    // an ordinary one.
    Value(const Value& other) : CountedObject(other), strict_(other.strict_) {}
    Value& operator=(const Value& other) {
        strict_ = other.strict_;
        return *this;
    }
    [[noreturn]] void failAssign(const Value& other) const;

private:
    friend class ValueSlot;
    bool strict_ = true;
    bool slotted_ = false;  // made in a ValueSlot's room
};

/// Registers a value class with both factories while the library loads:
///   static const ValueRegistration<DateTimeValue> reg(VT_DateTime);
/// The class tag is V::Tag.
template <class V>
struct ValueRegistration {
    explicit ValueRegistration(int typeCode) {
        Value::registerType(typeCode, V::Tag.name(), []() -> Value* { return new V(); });
        ObjectFactory::registerClass(V::Tag.name(), []() -> Object* { return new V(); });
    }
};

/// Declares the class-identity members every value class overrides.
#define TOVAN_VALUE_CLASS(Cls)                                      \
public:                                                             \
    static const ClassTag Tag;                                      \
    const ClassTag& getClass() const override { return Tag; }       \
    Cls* clone() const override { return new Cls(*this); }         \
                                                                    \
private:

// ---- scalars ---------------------------------------------------------------

/// Text (null and empty are different values). Bytes: the text as UTF-16.
class NVK_EXPORT StringValue : public Value {
    TOVAN_VALUE_CLASS(StringValue)
public:
    StringValue() = default;  // null text
    explicit StringValue(WString text) : text_(std::move(text)) {}
    const WString& get() const { return text_; }
    void set(WString text) { text_ = std::move(text); }

    int getTypeCode() const override { return VT_String; }
    bool equals(const Value& other) const override;
    /// The text itself; a null text gives a null string.
    WString toString() const override { return text_; }
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    WString text_;
};

/// A signed 32-bit integer, the width of every integer the system exchanges
/// (compact stream integers, JSON integers).
class NVK_EXPORT IntegerValue : public Value {
    TOVAN_VALUE_CLASS(IntegerValue)
public:
    IntegerValue() = default;
    explicit IntegerValue(int32_t v) : value_(v) {}
    int32_t get() const { return value_; }
    void set(int32_t v) { value_ = v; }

    int getTypeCode() const override { return VT_Integer; }
    bool equals(const Value& other) const override;
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    int32_t value_ = 0;
};

/// A double. equals() treats every NaN as equal to every NaN (so a copy
/// equals its original) and 0.0 as equal to -0.0.
class NVK_EXPORT DoubleValue : public Value {
    TOVAN_VALUE_CLASS(DoubleValue)
public:
    DoubleValue() = default;
    explicit DoubleValue(double v) : value_(v) {}
    double get() const { return value_; }
    void set(double v) { value_ = v; }

    int getTypeCode() const override { return VT_Double; }
    bool equals(const Value& other) const override;
    /// The shortest text that reads back as the same double ("0.1", "1e+300",
    /// "nan", "inf", "-inf").
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    double value_ = 0.0;
};

class NVK_EXPORT BooleanValue : public Value {
    TOVAN_VALUE_CLASS(BooleanValue)
public:
    BooleanValue() = default;
    explicit BooleanValue(bool v) : value_(v) {}
    bool get() const { return value_; }
    void set(bool v) { value_ = v; }

    int getTypeCode() const override { return VT_Boolean; }
    bool equals(const Value& other) const override;
    WString toString() const override;  // "true" / "false"
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    bool value_ = false;
};

/// One unsigned byte.
class NVK_EXPORT ByteValue : public Value {
    TOVAN_VALUE_CLASS(ByteValue)
public:
    ByteValue() = default;
    explicit ByteValue(uint8_t v) : value_(v) {}
    uint8_t get() const { return value_; }
    void set(uint8_t v) { value_ = v; }

    int getTypeCode() const override { return VT_Byte; }
    bool equals(const Value& other) const override;
    WString toString() const override;  // decimal, 0 to 255
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    uint8_t value_ = 0;
};

/// No value. Its byte form is empty; toString() gives an empty string.
class NVK_EXPORT NullValue : public Value {
    TOVAN_VALUE_CLASS(NullValue)
public:
    NullValue() = default;
    int getTypeCode() const override { return VT_Null; }
    bool isNull() const override { return true; }
    bool equals(const Value& other) const override;
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;
};

/// A value that was expected and not supplied (a missing cell of a record),
/// as opposed to NullValue, a value known to be empty. Also null; never equal
/// to a NullValue.
class NVK_EXPORT MissingValue : public Value {
    TOVAN_VALUE_CLASS(MissingValue)
public:
    MissingValue() = default;
    int getTypeCode() const override { return VT_Missing; }
    bool isNull() const override { return true; }
    bool equals(const Value& other) const override;
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;
};

/// Text whose type is decided by the reader: the same characters read as an
/// integer, a double or a boolean on request. It keeps the text exactly as
/// given (so "007" stays "007"); the conversions parse it each time and raise
/// BadParameterException "Cannot read '%ls' as %hs" when it does not fit.
/// Leading and trailing blanks (space, tab, CR, LF) are ignored by the
/// conversions; booleans are "true"/"false"/"1"/"0", case folded A-Z.
/// Bytes: as StringValue.
class NVK_EXPORT FlexValue : public Value {
    TOVAN_VALUE_CLASS(FlexValue)
public:
    FlexValue() = default;  // null text
    explicit FlexValue(WString text) : text_(std::move(text)) {}
    const WString& get() const { return text_; }
    void set(WString text) { text_ = std::move(text); }

    int32_t asInteger() const;
    double asDouble() const;
    bool asBoolean() const;

    int getTypeCode() const override { return VT_Flex; }
    bool equals(const Value& other) const override;
    WString toString() const override { return text_; }
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    WString text_;
};

// ---- room for a value inside its holder -------------------------------------

/// Room for one value of the small scalar classes (IntegerValue, DoubleValue,
/// BooleanValue, ByteValue, NullValue, MissingValue: the classes themselves,
/// not classes derived from them) inside the object that holds it, so that
/// such a value costs no allocation and no pointer to a block of its own.
///
/// A value in the room is an ordinary counted value: other holders may take
/// references to it, and it lives until the last one goes, even when its
/// holder lets go of it first. The holder's memory must then outlive the
/// value: the holder's last release asks `deferHome()`, and when that says
/// the room is still taken, the holder keeps its memory and the value's last
/// release calls the holder's `deleteInstance()` again. Until then the room
/// cannot take another value. The room's state is one atomic word, so the
/// value's last release may come from any thread.
class NVK_EXPORT ValueSlot {
public:
    /// `home` is the object the slot is a member of.
    explicit ValueSlot(CountedObject* home) : word_(reinterpret_cast<uintptr_t>(home)) {}
    ValueSlot(const ValueSlot&) = delete;
    ValueSlot& operator=(const ValueSlot&) = delete;

    /// True when a value of `v`'s class fits the room.
    static bool fits(const Value& v);
    /// True when the value made for `typeCode` fits the room.
    static bool fitsCode(int typeCode);

    bool isFree() const { return state() == Free; }
    bool holds(const Value* v) const { return static_cast<const void*>(v) == room_; }
    /// A copy of `v` made in the free room, carrying one reference (the
    /// holder's). The room must be free and `v` must fit.
    Value* copyIn(const Value& v);
    /// A new value for `typeCode` (as Value::create makes it) in the free
    /// room, carrying one reference. The room must be free and the code fit.
    Value* makeIn(int typeCode, bool strict);
    /// A new `V`, one of the room's classes, made from `args` in the free
    /// room, carrying one reference: copyIn for a caller that knows the
    /// class, without asking a value for it.
    template <class V, class... Args>
    V* emplace(Args&&... args) {
        static_assert(std::is_same_v<V, IntegerValue> || std::is_same_v<V, DoubleValue> ||
                          std::is_same_v<V, BooleanValue> || std::is_same_v<V, ByteValue> ||
                          std::is_same_v<V, NullValue> || std::is_same_v<V, MissingValue>,
                      "only the room's own classes");
        static_assert(sizeof(V) <= kRoom && alignof(V) <= 8);
        // Value has a class operator new, which hides the placement form.
        V* made = ::new (room_) V(std::forward<Args>(args)...);
        made->slotted_ = true;
        made->takeFirstRef();
        setState(Held);
        return made;
    }
    /// The holder drops its reference on the value in the room; the value is
    /// destroyed now, or by its last release when others still hold it.
    void vacate();
    /// For the holder's last release, after it vacated the room: true when
    /// the value still lives because others hold it. The holder must then
    /// leave its memory as it is; the value's last release calls the holder's
    /// deleteInstance() once more, with the room free.
    bool deferHome();

private:
    friend class Value;
    enum State : uintptr_t { Free = 0, Held = 1, Orphan = 2, HomeWaiting = 3, StateMask = 3 };
    State state() const { return State(word_.load(std::memory_order_acquire) & StateMask); }
    void setState(State s) {
        uintptr_t w = word_.load(std::memory_order_relaxed);
        word_.store((w & ~uintptr_t(StateMask)) | s, std::memory_order_release);
    }
    /// The last release of the value in the room.
    void released(Value* v);

    static constexpr size_t kRoom = 24;
    // First, so that the slot starts where its value does.
    alignas(8) unsigned char room_[kRoom];
    std::atomic<uintptr_t> word_;  // the home object's address, state in the low two bits
};

// ---- blocks for a value's own parts ----------------------------------------

/// A block from the calling thread's lists of value memory (the lists value
/// objects come from; blocks over 128 bytes come from the heap), returned
/// with the same size, on any thread. An array of a few elements then costs
/// its value no trip through the C allocator, to make or to free.
NVK_EXPORT void* takeValueBlock(size_t size);
NVK_EXPORT void giveValueBlock(void* block, size_t size) noexcept;

/// The allocator of array values' element storage: value blocks.
template <class T>
struct ValueBlockAllocator {
    using value_type = T;
    ValueBlockAllocator() = default;
    template <class U>
    ValueBlockAllocator(const ValueBlockAllocator<U>&) noexcept {}
    T* allocate(size_t n) {
        if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(takeValueBlock(n * sizeof(T)));
    }
    void deallocate(T* p, size_t n) noexcept { giveValueBlock(p, n * sizeof(T)); }
    template <class U>
    bool operator==(const ValueBlockAllocator<U>&) const noexcept {
        return true;
    }
};

// ---- byte-form helpers shared by the value classes -------------------------

/// A nullable UTF-16 text: uint32 LE `n` (0 for null, else units + 1), then
/// `n - 1` units, 2 bytes each, little-endian.
NVK_EXPORT void writeValueText(iByteOutputStream& out, const WString& text);
NVK_EXPORT WString readValueText(iByteInputStream& in, const char* className);
/// A count of elements, uint32 LE. Raises Exception(className, "serialize",
/// "Too many elements to write: %d") above 4294967295.
NVK_EXPORT void writeValueCount(iByteOutputStream& out, size_t count, const char* className);

}  // namespace tovan
