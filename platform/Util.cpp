#include "nvk/platform/Util.h"

#include "nvk/platform/NumberText.h"

namespace tovan::util {

void urlEncodeComponent(std::u16string_view text, std::u16string& out) {
    auto put = [&out](unsigned char b) {
        bool unreserved = (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || (b >= '0' && b <= '9') || b == '-' ||
                          b == '_' || b == '.' || b == '~';
        if (unreserved) {
            out.push_back(b);
        } else {
            out.push_back(u'%');
            out.push_back(kHexDigitsUpper[b >> 4]);
            out.push_back(kHexDigitsUpper[b & 0xF]);
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
