#include "nvk/platform/Utf.h"
#include "nvk/platform/Utf_internal.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tovan {

namespace {

#if defined(__SSE2__)
// Whether eight units are all ASCII (vector instructions every x86-64 has).
inline bool asciiUnits8(__m128i v) {
    const __m128i top = _mm_set1_epi16(0x7F);
    return _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(v, top), _mm_setzero_si128())) == 0xFFFF;
}
#endif

}  // namespace

size_t utf8Length(std::u16string_view text) {
    const char16_t* p = text.data();
    const char16_t* end = p + text.size();
    size_t n = text.size();  // a byte per unit, plus what each unit adds
    while (p < end) {
#if defined(__SSE2__)
        while (end - p >= 8 && asciiUnits8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))) p += 8;
        if (p == end) break;
#endif
        const char16_t c = *p++;
        if (c < 0x80) continue;
        if (c < 0x800) {
            n += 1;
        } else if (isHighSurrogate(c) && p < end && isLowSurrogate(*p)) {
            n += 2;  // four bytes for the two units
            ++p;
        } else {
            n += 2;
        }
    }
    return n;
}

char* encodeUtf8(std::u16string_view text, char* out) {
    const char16_t* p = text.data();
    const char16_t* end = p + text.size();
    while (p < end) {
#if defined(__SSE2__)
        while (end - p >= 16) {
            __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
            if (!asciiUnits8(_mm_or_si128(a, b))) break;
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(a, b));
            p += 16;
            out += 16;
        }
#endif
        while (p < end && *p < 0x80) *out++ = char(*p++);
        // Other units below U+10000 in a tight loop; surrogates pair up.
        while (p < end && *p >= 0x80) out = putUtf8(out, p, end);
    }
    return out;
}

std::string utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.resize(utf8Length(text));
    encodeUtf8(text, out.data());
    return out;
}

size_t decodeUtf8(const char* first, const char* last, bool final, char16_t* out, size_t& produced) {
    return decodeUtf8Inline(first, last, final, out, produced);
}

std::u16string utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.resize(utf8.size());
    size_t produced = 0;
    decodeUtf8Inline(utf8.data(), utf8.data() + utf8.size(), true, out.data(), produced);
    out.resize(produced);
    return out;
}

}  // namespace tovan
