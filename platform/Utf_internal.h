#pragma once
// The UTF-8 decoder's body, for the library's own hot callers: the file
// reader calls it for every block of a few hundred bytes, and a call into the
// exported decodeUtf8 (through the symbol table) costs a tenth of reading a
// file of ASCII. Everything else calls decodeUtf8 (Utf.h), whose body this is.
#include <cstddef>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "nvk/platform/Utf.h"

namespace tovan {

inline size_t decodeUtf8Inline(const char* first, const char* last, bool final, char16_t* out, size_t& produced) {
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
            // A block with a byte from 0x80 up is widened all the same and its
            // ASCII start kept: the units past it are written over next. The
            // room is there, as output never runs ahead of input.
            bool mixed = false;
            while (end - p >= 16) {
                __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi8(v, zero));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 8), _mm_unpackhi_epi8(v, zero));
                if (const unsigned high = unsigned(_mm_movemask_epi8(v)); high != 0) {
                    const unsigned ascii = unsigned(__builtin_ctz(high));
                    p += ascii;
                    o += ascii;
                    mixed = true;
                    break;
                }
                p += 16;
                o += 16;
            }
            if (mixed) continue;
#endif
            while (p < end && *p < 0x80) *o++ = *p++;
            continue;
        }
        // Two- and three-byte forms whole in the block, which is all of most
        // non-Latin text, are taken in one step; whatever they might be
        // wrong about (overlong forms, surrogates, a cut sequence) goes the
        // long way below.
        if (b >= 0xC2 && b <= 0xDF && end - p >= 2 && (p[1] & 0xC0) == 0x80) {
            *o++ = char16_t(((b & 0x1F) << 6) | (p[1] & 0x3F));
            p += 2;
            continue;
        }
        if ((b & 0xF0) == 0xE0) {
            // Three-byte forms come in runs (Chinese, Japanese and Korean
            // text): taken in a loop of their own, which asks nothing else.
            const unsigned char* const run = p;
            // One test per form: the lead's and the continuations' marks,
            // overlong forms and surrogates together.
            for (; end - p >= 3; p += 3) {
                const unsigned b0 = p[0], b1 = p[1], b2 = p[2];
                const unsigned unit = ((b0 & 0x0Fu) << 12) | ((b1 & 0x3Fu) << 6) | (b2 & 0x3Fu);
                const unsigned marks = ((b0 & 0xF0u) ^ 0xE0u) | ((b1 & 0xC0u) ^ 0x80u) | ((b2 & 0xC0u) ^ 0x80u);
                if ((marks | unsigned(unit < 0x800) | unsigned(unit - 0xD800u < 0x800u)) != 0) break;
                *o++ = char16_t(unit);
            }
            if (p != run) continue;
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

}  // namespace tovan
