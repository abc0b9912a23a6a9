#include "nvk/platform/Utf.h"

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
    const auto* begin = reinterpret_cast<const unsigned char*>(first);
    const auto* end = reinterpret_cast<const unsigned char*>(last);
    const unsigned char* p = begin;
    char16_t* o = out;
    while (p < end) {
        unsigned char b = *p;
        if (b < 0x80) {
            // Runs of ASCII dominate real documents; copy them without branching
            // on the rest, sixteen bytes at a time where SSE2 is there (x86-64).
#if defined(__SSE2__)
            const __m128i zero = _mm_setzero_si128();
            while (end - p >= 16) {
                __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
                if (_mm_movemask_epi8(v) != 0) break;
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi8(v, zero));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 8), _mm_unpackhi_epi8(v, zero));
                p += 16;
                o += 16;
            }
#endif
            while (p < end && *p < 0x80) *o++ = *p++;
            continue;
        }
        // Lead byte: how many continuation bytes, and the valid range of the
        // second byte (this rules out overlong forms and surrogates up front).
        const unsigned char* start = p;
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
            *o++ = char16_t(kReplacementCharacter);
            ++p;
            continue;
        }
        ++p;
        bool ok = true;
        for (int i = 0; i < extra; ++i) {
            if (p >= end) {
                if (!final) {
                    produced = size_t(o - out);
                    return size_t(start - begin);
                }
                ok = false;
                break;
            }
            unsigned char c = *p;
            if (c < (i == 0 ? lo : 0x80) || c > (i == 0 ? hi : 0xBF)) {
                ok = false;
                break;
            }
            cp = (cp << 6) | (c & 0x3F);
            ++p;
        }
        if (!ok) {
            *o++ = char16_t(kReplacementCharacter);
        } else if (cp >= 0x10000) {
            cp -= 0x10000;
            *o++ = char16_t(0xD800 + (cp >> 10));
            *o++ = char16_t(0xDC00 + (cp & 0x3FF));
        } else {
            *o++ = char16_t(cp);
        }
    }
    produced = size_t(o - out);
    return size_t(p - begin);
}

std::u16string utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.resize(utf8.size());
    size_t produced = 0;
    decodeUtf8(utf8.data(), utf8.data() + utf8.size(), true, out.data(), produced);
    out.resize(produced);
    return out;
}

}  // namespace tovan
