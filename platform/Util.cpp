#include "nvk/platform/Util.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "nvk/platform/Exception.h"

namespace tovan::util {

namespace {

/// The narrow text of doubleToString; returns its length (at most 31).
size_t formatDouble(double value, int option, char (&text)[32]) {
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

WString doubleToString(double value, int option) {
    char text[32];
    size_t length = formatDouble(value, option, text);
    return WString(std::u16string(text, text + length));
}

namespace {

/// Copies the text and its terminator into a caller's buffer of narrow or wide units.
template <class Unit>
size_t formatDoubleInto(double value, Unit* buffer, size_t capacity, int option) {
    char text[32];
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
    return formatDoubleInto(value, buffer, capacity, option);
}

void urlEncodeComponent(std::u16string_view text, std::u16string& out) {
    static constexpr char hex[] = "0123456789ABCDEF";
    auto put = [&out](unsigned char b) {
        bool unreserved = (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || (b >= '0' && b <= '9') || b == '-' ||
                          b == '_' || b == '.' || b == '~';
        if (unreserved) {
            out.push_back(b);
        } else {
            out.push_back(u'%');
            out.push_back(hex[b >> 4]);
            out.push_back(hex[b & 0xF]);
        }
    };
    // ASCII, most of every URL, goes straight through; a run holding anything else is
    // converted once so that surrogate pairs and lone surrogates follow utf16ToUtf8.
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] < 0x80) {
            put(static_cast<unsigned char>(text[i++]));
            continue;
        }
        size_t end = i;
        while (end < text.size() && text[end] >= 0x80) ++end;
        for (unsigned char b : utf16ToUtf8(text.substr(i, end - i))) put(b);
        i = end;
    }
}

WString urlEncodeComponent(const WString& text) {
    if (text.isNull()) return WString();
    std::u16string out;
    out.reserve(text.length() * 3);
    urlEncodeComponent(text.view(), out);
    return WString(std::move(out));
}

}  // namespace tovan::util
