#pragma once
// printf-style formatting of the system's messages, checked at compile time.
//
// Every exception, warning and debug line is built from a wide format string.
// The conversions are checked against the argument types while compiling, so
// a %ls given an int (or a missing argument) fails the build instead of
// printing garbage for a user:
//   %d %i %ld %u %x %X %o : any integer, bool, character or enum (the value as given;
//                           %x/%X/%o of a negative value show its two's complement
//                           at the argument's own width)
//   %ls                   : wide text (WString, const wchar*, std::u16string[_view])
//   %hs                   : narrow text, UTF-8 (NString, const char*, std::string[_view])
//   %s                    : either kind of text
//   %c                    : a character (wide or narrow) or an integer code
//   %f %e %g (with F E G) : float or double
//   %%                    : a percent sign
// Flags - + space # 0, a width and a precision are honoured as in C (both
// capped at 4096); '*' is not supported. A null string argument prints as "(null)".
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

enum class ArgKind : uint8_t { Signed, Unsigned, Character, Real, Wide, Narrow };

template <class T>
constexpr ArgKind argKindOf() {
    using D = std::remove_cvref_t<std::decay_t<T>>;
    if constexpr (std::is_same_v<D, char16_t> || std::is_same_v<D, char> || std::is_same_v<D, wchar_t> ||
                  std::is_same_v<D, char32_t>)
        return ArgKind::Character;
    else if constexpr (std::is_same_v<D, bool>)
        return ArgKind::Unsigned;
    else if constexpr (std::is_enum_v<D>)
        return std::is_signed_v<std::underlying_type_t<D>> ? ArgKind::Signed : ArgKind::Unsigned;
    else if constexpr (std::is_integral_v<D>)
        return std::is_signed_v<D> ? ArgKind::Signed : ArgKind::Unsigned;
    else if constexpr (std::is_floating_point_v<D>)
        return ArgKind::Real;
    else if constexpr (std::is_convertible_v<const D&, std::u16string_view> || std::is_same_v<D, const char16_t*> ||
                       std::is_same_v<D, char16_t*>)
        return ArgKind::Wide;
    else if constexpr (std::is_convertible_v<const D&, std::string_view> || std::is_same_v<D, const char*> ||
                       std::is_same_v<D, char*>)
        return ArgKind::Narrow;
    else
        static_assert(sizeof(D) == 0, "type cannot be formatted");
}

namespace detail {

struct ConversionSpec {
    bool left = false, plus = false, space = false, alt = false, zero = false;
    int width = -1, precision = -1;
    char lengthMod = 0;  // 'h', 'l' or 0
    char16_t conv = 0;
};

/// Parses the conversion that starts after a '%' at `pos`; returns the index
/// after it, or npos for a malformed one.
/// Widths and precisions are capped here so that a hostile run-time format
/// cannot ask for gigabytes of padding.
inline constexpr int MaxFieldWidth = 4096;

constexpr size_t parseConversion(std::u16string_view f, size_t pos, ConversionSpec& s) {
    for (; pos < f.size(); ++pos) {
        char16_t c = f[pos];
        if (c == u'-') s.left = true;
        else if (c == u'+') s.plus = true;
        else if (c == u' ') s.space = true;
        else if (c == u'#') s.alt = true;
        else if (c == u'0') s.zero = true;
        else break;
    }
    while (pos < f.size() && f[pos] >= u'0' && f[pos] <= u'9') {
        int w = (s.width < 0 ? 0 : s.width) * 10 + (f[pos] - u'0');
        s.width = w > MaxFieldWidth ? MaxFieldWidth : w;
        ++pos;
    }
    if (pos < f.size() && f[pos] == u'.') {
        ++pos;
        s.precision = 0;
        while (pos < f.size() && f[pos] >= u'0' && f[pos] <= u'9') {
            int p = s.precision * 10 + (f[pos++] - u'0');
            s.precision = p > MaxFieldWidth ? MaxFieldWidth : p;
        }
    }
    while (pos < f.size() && (f[pos] == u'h' || f[pos] == u'l' || f[pos] == u'L' || f[pos] == u'z' ||
                              f[pos] == u'j' || f[pos] == u't')) {
        if (f[pos] == u'h' || f[pos] == u'l') s.lengthMod = char(f[pos]);
        ++pos;
    }
    if (pos >= f.size()) return std::u16string_view::npos;
    s.conv = f[pos];
    return pos + 1;
}

constexpr bool conversionAccepts(const ConversionSpec& s, ArgKind k) {
    switch (s.conv) {
        case u'd': case u'i': case u'u': case u'x': case u'X': case u'o':
            return k == ArgKind::Signed || k == ArgKind::Unsigned || k == ArgKind::Character;
        case u'c':
            return k == ArgKind::Character || k == ArgKind::Signed || k == ArgKind::Unsigned;
        case u'f': case u'F': case u'e': case u'E': case u'g': case u'G':
            return k == ArgKind::Real;
        case u's':
            if (s.lengthMod == 'l') return k == ArgKind::Wide;
            if (s.lengthMod == 'h') return k == ArgKind::Narrow;
            return k == ArgKind::Wide || k == ArgKind::Narrow;
        default:
            return false;
    }
}

}  // namespace detail

/// True when `format` is well formed and its conversions take exactly `kinds`.
constexpr bool formatMatches(std::u16string_view format, const ArgKind* kinds, size_t count) {
    size_t used = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != u'%') continue;
        if (i + 1 < format.size() && format[i + 1] == u'%') {
            ++i;
            continue;
        }
        detail::ConversionSpec s;
        size_t next = detail::parseConversion(format, i + 1, s);
        if (next == std::u16string_view::npos) return false;
        if (used >= count || !detail::conversionAccepts(s, kinds[used])) return false;
        ++used;
        i = next - 1;
    }
    return used == count;
}

template <class... Args>
constexpr bool formatMatches(std::u16string_view format) {
    if constexpr (sizeof...(Args) == 0) {
        return formatMatches(format, nullptr, 0);
    } else {
        constexpr ArgKind kinds[] = {argKindOf<Args>()...};
        return formatMatches(format, kinds, sizeof...(Args));
    }
}

/// A format whose text is only known at run time (a message table, say). It
/// is checked while formatting instead: a conversion that does not fit its
/// argument prints as "%!" followed by the conversion letter.
struct RuntimeFormat {
    std::u16string_view text;
};

void formatMismatch();  // never defined: calling it in a constant expression fails the build

template <class... Args>
class FormatString {
public:
    template <class S>
        requires std::convertible_to<const S&, std::u16string_view>
    consteval FormatString(const S& text) : text_(text) {
        if (!formatMatches<Args...>(text_)) formatMismatch();
    }
    constexpr FormatString(RuntimeFormat f) : text_(f.text) {}
    constexpr std::u16string_view text() const { return text_; }

private:
    std::u16string_view text_;
};

template <class... Args>
using FormatFor = std::type_identity_t<FormatString<std::decay_t<Args>...>>;

/// One argument as the formatter sees it.
struct FormatArg {
    ArgKind kind;
    bool isNull = false;
    uint8_t bytes = 0;  // width of an integer argument
    union {
        int64_t i;
        uint64_t u;
        double d;
    };
    std::u16string_view wide;
    std::string_view narrow;

    template <class T>
    static FormatArg of(const T& v) {
        FormatArg a;
        using D = std::remove_cvref_t<std::decay_t<T>>;
        a.kind = argKindOf<T>();
        if constexpr (std::is_enum_v<D>) {
            using U = std::underlying_type_t<D>;
            a.bytes = sizeof(U);
            if constexpr (std::is_signed_v<U>) a.i = int64_t(U(v));
            else a.u = uint64_t(U(v));
        } else if constexpr (std::is_integral_v<D>) {
            a.bytes = sizeof(D);
            if constexpr (std::is_signed_v<D> && !std::is_same_v<D, char>) a.i = int64_t(v);
            else if constexpr (std::is_same_v<D, char>) a.u = uint64_t(static_cast<unsigned char>(v));
            else a.u = uint64_t(v);
        } else if constexpr (std::is_floating_point_v<D>) {
            a.d = double(v);
        } else if constexpr (std::is_same_v<D, WString> || std::is_same_v<D, NString>) {
            a.isNull = v.isNull();
            if constexpr (std::is_same_v<D, WString>) a.wide = v.view();
            else a.narrow = v.view();
        } else if constexpr (std::is_pointer_v<D> && !std::is_array_v<std::remove_cvref_t<T>>) {
            a.isNull = v == nullptr;
            if constexpr (argKindOf<T>() == ArgKind::Wide) a.wide = v ? std::u16string_view(v) : std::u16string_view();
            else a.narrow = v ? std::string_view(v) : std::string_view();
        } else if constexpr (argKindOf<T>() == ArgKind::Wide) {
            a.wide = std::u16string_view(v);
        } else {
            a.narrow = std::string_view(v);
        }
        return a;
    }

private:
    FormatArg() : i(0) {}
};

/// Appends the formatted text to `out`.
NVK_EXPORT void formatInto(std::u16string& out, std::u16string_view format, const FormatArg* args, size_t count);

template <class... Args>
WString format(FormatFor<Args...> fmt, const Args&... args) {
    std::u16string out;
    if constexpr (sizeof...(Args) == 0) {
        formatInto(out, fmt.text(), nullptr, 0);
    } else {
        const FormatArg list[] = {FormatArg::of(args)...};
        formatInto(out, fmt.text(), list, sizeof...(Args));
    }
    return WString(std::move(out));
}

}  // namespace tovan
