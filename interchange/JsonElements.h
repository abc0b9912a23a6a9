#pragma once
// The element tree that the JSON reader builds from one top-level value, and
// the reader's error categories.
//
// An `Element` holds exactly one of Object, Array, Number, Boolean, String or
// Null, by value. Text is the library's wide text: UTF-16 code units
// (tovan::wchar), so the string element is TrivialType_T<std::u16string>.
//
//   cajun::json::Object doc;
//   doc.Insert(u"name", cajun::json::String(u"probe"));
//   const auto& n = doc[u"name"].As<cajun::json::String>().Value();
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Export.h"

namespace nvk {
class JsonNodeBuilder;
}

namespace cajun::json {

/// Where a token starts or ends: line and column from 0, and the number of
/// characters consumed before it.
///
/// The three stay 32-bit however long the source. Sources past 2^31
/// characters are ordinary (files of records are read one record at a time),
/// so the counts are kept modulo 2^32 with advanceCount: past 2^31 - 1 they
/// wrap round to negative numbers, as a 32-bit counter does, where adding in
/// int would overflow. Read as unsigned (countFromOne) they are exact up to
/// 2^32 - 1, and only the last 32 bits of a count beyond that.
struct Location {
    int line = 0;
    int column = 0;
    int position = 0;
    bool operator==(const Location&) const = default;
};

/// `counter` advanced by `n` characters (or lines), modulo 2^32.
inline int advanceCount(int counter, size_t n) { return int(uint32_t(counter) + uint32_t(n)); }

/// A line or column as editors number them: from 1, the counter's 32 bits
/// read as unsigned, so a long line past 2^31 characters does not show a
/// negative column.
inline uint64_t countFromOne(int counter) { return uint64_t(uint32_t(counter)) + 1; }

/// Any error of the reader's layers (message only). The scanner and parser
/// raise the subclasses, which also say where; CJsonReader turns all of them
/// into a plain tovan::Exception with a category prefix.
class NVK_EXPORT JsonException : public tovan::Exception {
public:
    template <class... Args>
    explicit JsonException(tovan::FormatFor<Args...> fmt, const Args&... args)
        : JsonException(tovan::format<Args...>(fmt, args...)) {}
    explicit JsonException(tovan::WString message);
};

/// The scanner stopped at `location` (the stream's counters at that moment).
class NVK_EXPORT ScanException : public JsonException {
public:
    template <class... Args>
    ScanException(const Location& location, tovan::FormatFor<Args...> fmt, const Args&... args)
        : JsonException(tovan::format<Args...>(fmt, args...)), location_(location) {}
    const Location& location() const { return location_; }

private:
    Location location_;
};

/// The parser met a token it could not use; its begin and end locations.
class NVK_EXPORT ParseException : public JsonException {
public:
    template <class... Args>
    ParseException(const Location& begin, const Location& end, tovan::FormatFor<Args...> fmt, const Args&... args)
        : JsonException(tovan::format<Args...>(fmt, args...)), begin_(begin), end_(end) {}
    const Location& begin() const { return begin_; }
    const Location& end() const { return end_; }

private:
    Location begin_;
    Location end_;
};

/// A scalar held by value.
template <class T>
class TrivialType_T {
public:
    TrivialType_T(const T& value = T()) : value_(value) {}
    TrivialType_T(T&& value) : value_(std::move(value)) {}
    T& Value() { return value_; }
    const T& Value() const { return value_; }
    operator T&() { return value_; }
    operator const T&() const { return value_; }
    bool operator==(const TrivialType_T& other) const { return value_ == other.value_; }

private:
    T value_;
};

using Number = TrivialType_T<double>;  // every JSON number, integral or not
using Boolean = TrivialType_T<bool>;
using String = TrivialType_T<std::u16string>;

class Null {
public:
    bool operator==(const Null&) const { return true; }
};

class Element;

/// Elements in document order.
class NVK_EXPORT Array {
public:
    using iterator = std::vector<Element>::iterator;
    using const_iterator = std::vector<Element>::const_iterator;

    Array();
    Array(const Array&);
    Array(Array&&) noexcept;
    Array& operator=(const Array&);
    Array& operator=(Array&&) noexcept;
    ~Array();

    // Defined below Element: the element type must be complete first.
    size_t Size() const;
    bool Empty() const;
    iterator Begin();
    iterator End();
    const_iterator Begin() const;
    const_iterator End() const;
    iterator begin();
    iterator end();
    const_iterator begin() const;
    const_iterator end() const;

    /// Raises tovan::InvalidIndexException for an index past the end.
    Element& operator[](size_t index);
    const Element& operator[](size_t index) const;
    Element& PushBack(Element element);
    void Clear();
    void Reserve(size_t n);

    bool operator==(const Array& other) const;

private:
    std::vector<Element> elements_;
};

/// Members in insertion order, names unique. Lookup is a linear search on
/// the name (objects in records are small; the order must be kept anyway).
class NVK_EXPORT Object {
public:
    struct Member;
    using iterator = std::list<Member>::iterator;
    using const_iterator = std::list<Member>::const_iterator;

    Object();
    Object(const Object&);
    Object(Object&&) noexcept;
    Object& operator=(const Object&);
    Object& operator=(Object&&) noexcept;
    ~Object();

    // Defined below Element: the element type must be complete first.
    size_t Size() const;
    bool Empty() const;
    iterator Begin();
    iterator End();
    const_iterator Begin() const;
    const_iterator End() const;
    iterator begin();
    iterator end();
    const_iterator begin() const;
    const_iterator end() const;

    iterator Find(std::u16string_view name);
    const_iterator Find(std::u16string_view name) const;

    /// Appends a member; a name already present raises JsonException
    /// "Object member already exists: " followed by the name, and the object
    /// is left as it was.
    iterator Insert(std::u16string name, Element element);
    /// The member's element, created as Null at the end when missing.
    Element& operator[](std::u16string_view name);
    /// Raises JsonException "Object member not found: " + name when missing.
    const Element& operator[](std::u16string_view name) const;
    void Clear();

    bool operator==(const Object& other) const;

private:
    // Both check for duplicates themselves, with their own message.
    friend class Parser;
    friend class nvk::JsonNodeBuilder;
    void append(std::u16string name, Element element);

    std::list<Member> members_;
};

class ConstVisitor;

/// Exactly one of the six element kinds, by value.
class NVK_EXPORT Element {
public:
    using Variant = std::variant<Null, Object, Array, Number, Boolean, String>;

    Element() = default;  // Null
    Element(Null v) : value_(v) {}
    Element(Object v) : value_(std::move(v)) {}
    Element(Array v) : value_(std::move(v)) {}
    Element(Number v) : value_(v) {}
    Element(Boolean v) : value_(v) {}
    Element(String v) : value_(std::move(v)) {}

    template <class T>
    bool Is() const {
        return std::holds_alternative<T>(value_);
    }
    /// The held element; asking for another kind raises JsonException
    /// "Bad element cast".
    template <class T>
    T& As() {
        if (T* p = std::get_if<T>(&value_)) return *p;
        badCast();
    }
    template <class T>
    const T& As() const {
        if (const T* p = std::get_if<T>(&value_)) return *p;
        badCast();
    }

    /// Calls the visitor's Visit for the held kind.
    void Accept(ConstVisitor& visitor) const;

    const Variant& variant() const { return value_; }
    Variant& variant() { return value_; }
    bool operator==(const Element& other) const { return value_ == other.value_; }

private:
    [[noreturn]] static void badCast();
    Variant value_;
};

struct Object::Member {
    std::u16string name;
    Element element;
    bool operator==(const Member& other) const = default;
};

inline size_t Array::Size() const { return elements_.size(); }
inline bool Array::Empty() const { return elements_.empty(); }
inline Array::iterator Array::Begin() { return elements_.begin(); }
inline Array::iterator Array::End() { return elements_.end(); }
inline Array::const_iterator Array::Begin() const { return elements_.begin(); }
inline Array::const_iterator Array::End() const { return elements_.end(); }
inline Array::iterator Array::begin() { return elements_.begin(); }
inline Array::iterator Array::end() { return elements_.end(); }
inline Array::const_iterator Array::begin() const { return elements_.begin(); }
inline Array::const_iterator Array::end() const { return elements_.end(); }

inline size_t Object::Size() const { return members_.size(); }
inline bool Object::Empty() const { return members_.empty(); }
inline Object::iterator Object::Begin() { return members_.begin(); }
inline Object::iterator Object::End() { return members_.end(); }
inline Object::const_iterator Object::Begin() const { return members_.begin(); }
inline Object::const_iterator Object::End() const { return members_.end(); }
inline Object::iterator Object::begin() { return members_.begin(); }
inline Object::iterator Object::end() { return members_.end(); }
inline Object::const_iterator Object::begin() const { return members_.begin(); }
inline Object::const_iterator Object::end() const { return members_.end(); }

/// Double dispatch over the element kinds.
class NVK_EXPORT ConstVisitor {
public:
    virtual ~ConstVisitor();
    virtual void Visit(const Array& element) = 0;
    virtual void Visit(const Object& element) = 0;
    virtual void Visit(const Number& element) = 0;
    virtual void Visit(const String& element) = 0;
    virtual void Visit(const Boolean& element) = 0;
    virtual void Visit(const Null& element) = 0;
};

}  // namespace cajun::json
