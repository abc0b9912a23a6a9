#include "nvk/platform/String.h"

namespace tovan {

bool equalsNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (foldUnit(a[i]) != foldUnit(b[i])) return false;
    return true;
}

bool namesEqual(const WString& a, const WString& b) {
    if (a.isNull() || b.isNull()) return a.isNull() && b.isNull();
    return equalsNoCase(a.view(), b.view());
}

int compareNoCase(std::u16string_view a, std::u16string_view b) {
    size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        wchar x = foldUnit(a[i]), y = foldUnit(b[i]);
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

uint32_t hashNoCase(std::u16string_view s) {
    uint32_t h = 0;
    for (wchar c : s) h = h * 31u + foldUnit(c);
    return h;
}

std::u16string utf8ToUtf16(std::string_view in) {
    std::u16string out;
    out.reserve(in.size());
    const auto* p = reinterpret_cast<const unsigned char*>(in.data());
    const auto* end = p + in.size();
    while (p < end) {
        unsigned char b = *p;
        if (b < 0x80) {
            out.push_back(b);
            ++p;
            continue;
        }
        // Lead byte: how many continuation bytes, and the valid range of the
        // second byte (this rules out overlong forms and surrogates up front).
        int extra;
        unsigned char lo = 0x80, hi = 0xBF;
        char32_t cp;
        if (b >= 0xC2 && b <= 0xDF) { extra = 1; cp = b & 0x1F; }
        else if (b == 0xE0) { extra = 2; cp = b & 0x0F; lo = 0xA0; }
        else if (b == 0xED) { extra = 2; cp = b & 0x0F; hi = 0x9F; }
        else if (b >= 0xE1 && b <= 0xEF) { extra = 2; cp = b & 0x0F; }
        else if (b == 0xF0) { extra = 3; cp = b & 0x07; lo = 0x90; }
        else if (b >= 0xF1 && b <= 0xF3) { extra = 3; cp = b & 0x07; }
        else if (b == 0xF4) { extra = 3; cp = b & 0x07; hi = 0x8F; }
        else {
            out.push_back(0xFFFD);
            ++p;
            continue;
        }
        ++p;
        bool ok = true;
        for (int i = 0; i < extra; ++i) {
            unsigned char c = p < end ? *p : 0;
            unsigned char min = i == 0 ? lo : 0x80, max = i == 0 ? hi : 0xBF;
            if (p >= end || c < min || c > max) {
                ok = false;
                break;
            }
            cp = (cp << 6) | (c & 0x3F);
            ++p;
        }
        if (!ok) {
            out.push_back(0xFFFD);
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(char16_t(0xD800 + (cp >> 10)));
            out.push_back(char16_t(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(char16_t(cp));
        }
    }
    return out;
}

std::string utf16ToUtf8(std::u16string_view in) {
    std::string out;
    out.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        char32_t cp = in[i];
        if (cp >= 0xD800 && cp <= 0xDFFF) {
            if (cp <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
                cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00);
                ++i;
            } else {
                cp = 0xFFFD;
            }
        }
        appendUtf8(out, cp);
    }
    return out;
}

WString toWide(std::string_view utf8) { return WString(utf8ToUtf16(utf8)); }
std::string toNarrow(const WString& s) { return utf16ToUtf8(s.view()); }

}  // namespace tovan
