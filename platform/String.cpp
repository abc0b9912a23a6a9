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

WString toWide(std::string_view utf8) { return WString(utf8ToUtf16(utf8)); }
std::string toNarrow(const WString& s) { return utf16ToUtf8(s.view()); }

}  // namespace tovan
