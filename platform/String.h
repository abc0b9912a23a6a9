#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "nvk/platform/Export.h"
#include "nvk/platform/Utf.h"

namespace tovan {

/// The wide character: one UTF-16 code unit, on every platform.
using wchar = char16_t;

/// Text that can also be null. A null string and an empty string are different
/// values (they travel differently in the byte-stream form), so the null state
/// is explicit rather than encoded in a pointer.
template <class C>
class BaseString {
public:
    using char_type = C;
    using view_type = std::basic_string_view<C>;
    using std_type = std::basic_string<C>;

    BaseString() = default;  // null
    BaseString(std::nullptr_t) {}
    BaseString(const C* text) : null_(text == nullptr) {
        if (text) text_ = text;
    }
    BaseString(const C* text, size_t length) : text_(text, length), null_(false) {}
    BaseString(view_type text) : text_(text), null_(false) {}
    BaseString(std_type text) : text_(std::move(text)), null_(false) {}

    static BaseString null() { return BaseString(); }
    static BaseString empty() { return BaseString(view_type()); }

    bool isNull() const { return null_; }
    /// True for a null string too: both have no characters.
    bool isEmpty() const { return text_.empty(); }
    size_t length() const { return text_.size(); }

    /// Never null: a null string gives "" (ask isNull() to tell them apart).
    const C* c_str() const { return text_.c_str(); }
    /// Null for a null string, for callers that pass the distinction on.
    const C* cstrOrNull() const { return null_ ? nullptr : text_.c_str(); }
    view_type view() const { return text_; }
    const std_type& str() const { return text_; }
    operator view_type() const { return text_; }

    C operator[](size_t i) const { return text_[i]; }

    void setNull() {
        text_.clear();
        null_ = true;
    }
    void clear() {  // makes it empty, not null
        text_.clear();
        null_ = false;
    }
    BaseString& assign(view_type text) {
        text_.assign(text);
        null_ = false;
        return *this;
    }
    BaseString& append(view_type text) {
        text_.append(text);
        null_ = false;
        return *this;
    }
    BaseString& append(C ch) {
        text_.push_back(ch);
        null_ = false;
        return *this;
    }
    BaseString& operator+=(view_type text) { return append(text); }
    BaseString& operator+=(C ch) { return append(ch); }
    void reserve(size_t n) { text_.reserve(n); }

    BaseString substr(size_t pos, size_t count = std_type::npos) const {
        return BaseString(text_.substr(pos, count));
    }
    size_t find(C ch, size_t pos = 0) const { return text_.find(ch, pos); }
    size_t find(view_type s, size_t pos = 0) const { return text_.find(s, pos); }
    size_t rfind(C ch, size_t pos = std_type::npos) const { return text_.rfind(ch, pos); }

    /// Exact comparison; a null string equals only a null string.
    friend bool operator==(const BaseString& a, const BaseString& b) {
        return a.null_ == b.null_ && a.text_ == b.text_;
    }
    friend bool operator==(const BaseString& a, const C* b) {
        return b ? (!a.null_ && a.text_ == b) : a.null_;
    }
    friend bool operator<(const BaseString& a, const BaseString& b) {
        if (a.null_ != b.null_) return a.null_;
        return a.text_ < b.text_;
    }

private:
    std_type text_;
    bool null_ = true;
};

using WString = BaseString<wchar>;
using NString = BaseString<char>;

/// A-Z folded to a-z, nothing else: names compare this way everywhere.
constexpr wchar foldUnit(wchar c) { return (c >= u'A' && c <= u'Z') ? wchar(c + 32) : c; }
constexpr char foldByte(char c) { return (c >= 'A' && c <= 'Z') ? char(c + 32) : c; }

NVK_EXPORT bool equalsNoCase(std::u16string_view a, std::u16string_view b);
/// Null equals only null; otherwise unit by unit with A-Z folded.
NVK_EXPORT bool namesEqual(const WString& a, const WString& b);
/// <0, 0, >0 comparing folded units.
NVK_EXPORT int compareNoCase(std::u16string_view a, std::u16string_view b);
/// hash = hash * 31 + folded unit, unsigned 32-bit, from 0.
NVK_EXPORT uint32_t hashNoCase(std::u16string_view s);

/// The conversions of Utf.h for null-aware strings (a null string gives "").
NVK_EXPORT WString toWide(std::string_view utf8);
NVK_EXPORT std::string toNarrow(const WString& s);

}  // namespace tovan
