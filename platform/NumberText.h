#pragma once
// Numbers as text, both ways: std::to_chars and std::from_chars underneath
// (exact, and blind to the locale), the forms the framework writes and reads
// on top. Every conversion between a number and its text in the library
// goes through here.
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

// ---- digits ------------------------------------------------------------------

inline constexpr char kHexDigits[] = "0123456789abcdef";
inline constexpr char kHexDigitsUpper[] = "0123456789ABCDEF";

/// The value of a hexadecimal digit of either case, or -1.
constexpr int hexDigitValue(char32_t c) {
    if (c >= '0' && c <= '9') return int(c - '0');
    if (c >= 'a' && c <= 'f') return int(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return int(c - 'A' + 10);
    return -1;
}

// ---- integers to text ------------------------------------------------------------

/// Room for any 64-bit integer in any base from 8 up ("-9223372036854775808"
/// in decimal, 22 octal digits).
constexpr size_t kIntegerTextMax = 24;

/// `value` in `base` (lower-case letters) at `out`, with room for
/// kIntegerTextMax; returns the end.
template <std::integral T>
char* putInteger(char* out, T value, int base = 10) {
    return std::to_chars(out, out + kIntegerTextMax, value, base).ptr;
}
/// The same in wide units.
template <std::integral T>
char16_t* putInteger(char16_t* out, T value, int base = 10) {
    char text[kIntegerTextMax];
    const char* end = putInteger(text, value, base);
    for (const char* p = text; p < end; ++p) *out++ = char16_t(*p);
    return out;
}
/// Decimal text of an integer.
template <std::integral T>
std::string integerText(T value) {
    char text[kIntegerTextMax];
    return std::string(text, putInteger(text, value));
}
template <std::integral T>
WString integerWide(T value) {
    char16_t text[kIntegerTextMax];
    return WString(text, size_t(putInteger(text, value) - text));
}

// ---- doubles to text ----------------------------------------------------------

/// Room for any text of doubleToString and its terminator.
constexpr size_t kDoubleTextMax = 32;

namespace util {

/// The framework's text of a double: the shortest that reads back (by strtod
/// or from_chars) to exactly `value`, in plain notation or with an exponent
/// ("e", a sign and at least two digits) whichever is shorter, plain on a
/// tie. Examples: 0.1 -> "0.1", 100 -> "100", 1e21 -> "1e+21", 1e-7 ->
/// "1e-07", 5e-324 -> "5e-324", -0.0 -> "-0".
///
/// `option` 1 asks for a text that reads back as a floating-point number in
/// any language: the mantissa always has a decimal point, so "1" becomes
/// "1.0", "-0" becomes "-0.0" and "1e+21" becomes "1.0e+21" ("0.1" and
/// "1.5e+300" stay as they are). Writers that add ".0" to a text without a
/// point therefore never touch an option-1 text of a finite number.
///
/// With either option, infinities are "Infinity" and "-Infinity" and every NaN
/// is "NaN" (the JSON reader accepts the first two). Any other option raises
/// BadParameterException "Unknown doubleToString option %d".
NVK_EXPORT WString doubleToString(double value, int option = 0);

/// The same text written into `buffer` with a terminating zero; returns its
/// length. A buffer that cannot hold it raises BadParameterException
/// "Buffer of %d characters is too small for %hs" and is left as it was.
/// kDoubleTextMax characters are always enough.
NVK_EXPORT size_t doubleToString(double value, wchar* buffer, size_t capacity, int option = 0);
/// The same in bytes (the text is ASCII), for writers of UTF-8 or of
/// their own buffers.
NVK_EXPORT size_t doubleToString(double value, char* buffer, size_t capacity, int option = 0);

}  // namespace util

/// A double never in exponent form: the shortest round-trip digits placed
/// around the point ("1e21" is "1000000000000000000000", 1e-7 "0.0000001"),
/// "0" for either zero, "NaN", "Infinity", "-Infinity". XPath's string().
NVK_EXPORT std::u16string plainDoubleText(double value);

/// printf's %f, %e, %g (and capitals) of `value` with `precision` (-1 for
/// the default 6) and its "#" flag: the sign when negative, the digits, no
/// padding. "inf" and "nan" as printf writes them.
NVK_EXPORT std::string printfDoubleText(double value, char conversion, int precision, bool alternate);

// ---- text to numbers ----------------------------------------------------------

enum class NumberSigns {
    None,         ///< digits only
    Minus,        ///< an optional "-" (std::from_chars' rule)
    PlusOrMinus,  ///< an optional "+" or "-"
};

/// Reads the whole of `text` (no blanks, nothing after the digits) as an
/// integer in `base`. Values read leniently (FlexValue) drop blanks around
/// the text first and take NumberSigns::PlusOrMinus. False, with `out` untouched, when the text is no such
/// number or the value does not fit in T.
template <std::integral T>
bool parseInteger(std::string_view text, T& out, NumberSigns signs = NumberSigns::Minus, int base = 10) {
    if (signs == NumberSigns::PlusOrMinus && !text.empty() && text[0] == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text[0] == '-') return false;
    } else if (signs == NumberSigns::None && !text.empty() && text[0] == '-') {
        return false;
    }
    T value{};
    const auto r = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size() || text.empty()) return false;
    out = value;
    return true;
}
/// The same for wide text (anything but ASCII is no number).
template <std::integral T>
bool parseInteger(std::u16string_view text, T& out, NumberSigns signs = NumberSigns::Minus, int base = 10) {
    char narrow[kIntegerTextMax + 8];
    if (text.size() > sizeof narrow) {  // long runs of leading zeros, or no number
        std::string buffer;
        for (char16_t c : text) {
            if (c > 0x7F) return false;
            buffer.push_back(char(c));
        }
        return parseInteger(std::string_view(buffer), out, signs, base);
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] > 0x7F) return false;
        narrow[i] = char(text[i]);
    }
    return parseInteger(std::string_view(narrow, text.size()), out, signs, base);
}

/// Reads the whole of `text` as a double by std::from_chars (digits with an
/// optional point and exponent, "inf", "infinity", "nan", any case). False,
/// `out` untouched, for anything else and for a value out of range.
NVK_EXPORT bool parseDouble(std::string_view text, double& out, NumberSigns signs = NumberSigns::Minus);

/// Digits with at most one point and an optional leading "-", nothing else
/// (XPath's number()): the value, with a value too large for a double as an
/// infinity and one too small as a zero of its sign; NaN for any other text.
NVK_EXPORT double parsePlainDecimal(std::u16string_view text);

/// The longest start of `text` that a standard input stream's extraction of
/// a double takes in the classic locale: a sign, digits with at most one
/// point, then "e" or "E" (only after a digit) with an optional sign and
/// digits. The JSON reader's rule for its number tokens.
NVK_EXPORT size_t streamDoublePrefix(std::u16string_view text);
/// Up to nine digits after an optional "-", converted by hand: most numbers
/// in records are short integers, and the result is the general path's
/// (-0 too). False for any other text.
inline bool parseShortDecimal(std::u16string_view text, double& out) {
    const bool minus = !text.empty() && text[0] == u'-';
    const size_t digits = text.size() - (minus ? 1 : 0);
    if (digits < 1 || digits > 9) return false;
    uint32_t v = 0;
    for (size_t i = minus ? 1 : 0; i < text.size(); ++i) {
        const unsigned d = unsigned(text[i]) - u'0';
        if (d > 9) return false;
        v = v * 10 + d;
    }
    out = minus ? -double(v) : double(v);
    return true;
}
/// The value of a text streamDoublePrefix takes whole, with the stream's
/// results for the texts it cannot convert: zero for a text that is no number
/// ("-", "1e"), the largest finite magnitude for one that overflows.
NVK_EXPORT double streamDoubleValue(std::u16string_view text);

}  // namespace tovan
