#include "nvk/platform/NumberText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "nvk/platform/Exception.h"

namespace tovan {

// ---- doubles to text ----------------------------------------------------------

namespace {

/// The narrow text of doubleToString, terminated, at `text` (room for
/// kDoubleTextMax); returns its length.
size_t formatDouble(double value, int option, char* text) {
    if (option != 0 && option != 1)
        throw BadParameterException("util", "doubleToString", u"Unknown doubleToString option %d", option);
    if (std::isnan(value)) {
        std::memcpy(text, "NaN", 4);
        return 3;
    }
    if (std::isinf(value)) {
        const char* s = value < 0 ? "-Infinity" : "Infinity";
        std::strcpy(text, s);
        return std::strlen(s);
    }
    // Shortest round-trip needs at most 24 characters; the rest is room for ".0".
    auto result = std::to_chars(text, text + 28, value);
    size_t length = size_t(result.ptr - text);
    text[length] = 0;
    if (option == 1 && !std::memchr(text, '.', length)) {
        char* e = static_cast<char*>(std::memchr(text, 'e', length));
        size_t at = e ? size_t(e - text) : length;
        std::memmove(text + at + 2, text + at, length - at + 1);
        text[at] = '.';
        text[at + 1] = '0';
        length += 2;
    }
    return length;
}

}  // namespace

namespace util {

WString doubleToString(double value, int option) {
    char text[kDoubleTextMax];
    size_t length = formatDouble(value, option, text);
    return WString(std::u16string(text, text + length));
}

namespace {

/// Copies the text and its terminator into a caller's buffer of narrow or wide units.
template <class Unit>
size_t formatDoubleInto(double value, Unit* buffer, size_t capacity, int option) {
    char text[kDoubleTextMax];
    size_t length = formatDouble(value, option, text);
    if (capacity < length + 1)
        throw BadParameterException("util", "doubleToString", u"Buffer of %d characters is too small for %hs",
                                    capacity, text);
    for (size_t i = 0; i <= length; ++i) buffer[i] = Unit(static_cast<unsigned char>(text[i]));
    return length;
}

}  // namespace

size_t doubleToString(double value, wchar* buffer, size_t capacity, int option) {
    return formatDoubleInto(value, buffer, capacity, option);
}

size_t doubleToString(double value, char* buffer, size_t capacity, int option) {
    // Straight into a buffer that is large enough: writers of numbers call
    // this for every one.
    if (capacity >= kDoubleTextMax) return formatDouble(value, option, buffer);
    return formatDoubleInto(value, buffer, capacity, option);
}

}  // namespace util

std::u16string plainDoubleText(double value) {
    if (std::isnan(value)) return u"NaN";
    if (std::isinf(value)) return value > 0 ? u"Infinity" : u"-Infinity";
    if (value == 0) return u"0";
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific);
    std::string_view s(buf, size_t(r.ptr - buf));  // shortest round trip: [-]d[.ddd]e(+|-)xx
    const bool negative = s[0] == '-';
    if (negative) s.remove_prefix(1);
    const size_t e = s.find('e');
    int exponent = 0;
    parseInteger(s.substr(e + 1), exponent, NumberSigns::PlusOrMinus);
    std::string digits(s.substr(0, e));
    digits.erase(std::remove(digits.begin(), digits.end(), '.'), digits.end());
    const long pointAt = long(exponent) + 1;  // digits before the decimal point
    std::string out = negative ? "-" : "";
    if (pointAt <= 0)
        out += "0." + std::string(size_t(-pointAt), '0') + digits;
    else if (size_t(pointAt) >= digits.size())
        out += digits + std::string(size_t(pointAt) - digits.size(), '0');
    else
        out += digits.substr(0, size_t(pointAt)) + "." + digits.substr(size_t(pointAt));
    return std::u16string(out.begin(), out.end());
}

namespace {

std::string toChars(double value, std::chars_format format, int precision) {
    // Fixed notation of the largest double with the precision asked for.
    std::string text(size_t(330 + precision), '\0');
    auto r = std::to_chars(text.data(), text.data() + text.size(), value, format, precision);
    text.resize(size_t(r.ptr - text.data()));
    return text;
}

/// Puts a point after the mantissa's digits when it has none ("#" flag).
void keepPoint(std::string& text) {
    if (text.find('.') != std::string::npos) return;
    const size_t e = text.find('e');
    text.insert(e == std::string::npos ? text.size() : e, ".");
}

}  // namespace

std::string printfDoubleText(double value, char conversion, int precision, bool alternate) {
    const char lower = char(conversion | 0x20);
    if (precision < 0) precision = 6;
    std::string text;
    if (!std::isfinite(value)) {
        text = std::isnan(value) ? "nan" : "inf";
        if (std::signbit(value)) text.insert(0, "-");
    } else if (lower == 'f') {
        text = toChars(value, std::chars_format::fixed, precision);
        if (alternate) keepPoint(text);
    } else if (lower == 'e') {
        text = toChars(value, std::chars_format::scientific, precision);
        if (alternate) keepPoint(text);
    } else if (!alternate) {
        text = toChars(value, std::chars_format::general, precision);
    } else {
        // %#g: the style %g would choose, but trailing zeros kept.
        const int p = precision == 0 ? 1 : precision;
        std::string scientific = toChars(value, std::chars_format::scientific, p - 1);
        int exponent = 0;
        parseInteger(std::string_view(scientific).substr(scientific.find('e') + 1), exponent,
                     NumberSigns::PlusOrMinus);
        text = p > exponent && exponent >= -4 ? toChars(value, std::chars_format::fixed, p - 1 - exponent)
                                              : std::move(scientific);
        keepPoint(text);
    }
    if (conversion != lower)
        for (char& c : text) c = char(c >= 'a' && c <= 'z' ? c - 32 : c);
    return text;
}

// ---- text to numbers ----------------------------------------------------------

bool parseDouble(std::string_view text, double& out, NumberSigns signs) {
    if (signs == NumberSigns::PlusOrMinus && !text.empty() && text[0] == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text[0] == '-') return false;
    } else if (signs == NumberSigns::None && !text.empty() && text[0] == '-') {
        return false;
    }
    double value = 0;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), value);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size() || text.empty()) return false;
    out = value;
    return true;
}

double parsePlainDecimal(std::u16string_view text) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    std::string ascii;
    ascii.reserve(text.size());
    size_t digits = 0, dots = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c >= u'0' && c <= u'9')
            ++digits;
        else if (c == u'.')
            ++dots;
        else if (!(c == u'-' && i == 0))
            return nan;
        ascii.push_back(char(c));
    }
    if (digits == 0 || dots > 1) return nan;
    double value = 0;
    auto r = std::from_chars(ascii.data(), ascii.data() + ascii.size(), value, std::chars_format::fixed);
    // Out of range is the one failure left: the digits were checked above.
    if (r.ec == std::errc::result_out_of_range) {
        bool negative = ascii[0] == '-';
        bool tiny = ascii.find_first_not_of("-0.") != std::string::npos &&
                    ascii.find_first_of("123456789") > ascii.find('.');
        if (tiny) return negative ? -0.0 : 0.0;
        return negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    }
    return r.ptr == ascii.data() + ascii.size() ? value : nan;
}

size_t streamDoublePrefix(std::u16string_view text) {
    size_t i = 0;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
    bool digit = false, point = false, exponent = false;
    while (i < text.size()) {
        char16_t c = text[i];
        if (c >= u'0' && c <= u'9') {
            digit = true;
        } else if (c == u'.' && !point && !exponent) {
            point = true;
        } else if ((c == u'e' || c == u'E') && !exponent && digit) {
            exponent = true;
            if (i + 1 < text.size() && (text[i + 1] == u'+' || text[i + 1] == u'-')) ++i;
        } else {
            break;
        }
        ++i;
    }
    return i;
}

double streamDoubleValue(std::u16string_view text) {
    double value = 0;
    if (parseShortDecimal(text, value)) return value;
    char small[64];
    std::string large;
    char* buf = small;
    if (text.size() >= sizeof small) {
        large.resize(text.size() + 1);
        buf = large.data();
    }
    size_t n = 0;
    for (char16_t c : text) buf[n++] = char(c);
    buf[n] = 0;
    const char* begin = buf;
    if (*begin == '+') ++begin;  // from_chars takes no plus sign
    auto [ptr, ec] = std::from_chars(begin, buf + n, value);
    if (ec == std::errc() && ptr == buf + n) return value;
    if (ec == std::errc::result_out_of_range) {
        // The stream's answer for overflow is the largest finite magnitude,
        // for underflow the nearest double: strtod gives both, from_chars
        // neither.
        char* end = nullptr;
        double v = std::strtod(buf, &end);
        if (end != buf + n) return 0;
        if (std::isinf(v)) return v > 0 ? std::numeric_limits<double>::max() : -std::numeric_limits<double>::max();
        return v;
    }
    return 0;
}

}  // namespace tovan
