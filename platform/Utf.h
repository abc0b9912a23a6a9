#pragma once
// The one place where text changes between UTF-8 and UTF-16. Everything that
// converts text (strings, files, the JSON writer, credentials, the byte
// streams) goes through these, so the replacement rules are the same
// everywhere: each maximal invalid UTF-8 subsequence becomes one U+FFFD, and
// so does each UTF-16 surrogate without its partner.
#include <cstddef>
#include <string>
#include <string_view>

#include "nvk/platform/Export.h"

namespace tovan {

constexpr char32_t kReplacementCharacter = 0xFFFD;

constexpr bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
constexpr bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
/// The code point of a high surrogate followed by a low one.
constexpr char32_t combineSurrogates(char32_t high, char32_t low) {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

/// The UTF-8 bytes of one code point written at `out` (room for four);
/// returns the end. Surrogates are the caller's to pair (or replace) first.
inline char* putUtf8(char* out, char32_t cp) {
    if (cp < 0x80) {
        *out++ = char(cp);
        return out;
    }
    if (cp < 0x800) {
        *out++ = char(0xC0 | (cp >> 6));
    } else {
        if (cp < 0x10000) {
            *out++ = char(0xE0 | (cp >> 12));
        } else {
            *out++ = char(0xF0 | (cp >> 18));
            *out++ = char(0x80 | ((cp >> 12) & 0x3F));
        }
        *out++ = char(0x80 | ((cp >> 6) & 0x3F));
    }
    *out++ = char(0x80 | (cp & 0x3F));
    return out;
}

/// The same, appended to `out`.
inline void appendUtf8(std::string& out, char32_t cp) {
    char bytes[4];
    out.append(bytes, size_t(putUtf8(bytes, cp) - bytes));
}

/// The UTF-8 bytes of the character that starts at `p` (before `end`): a
/// surrogate pair is one character, a lone surrogate U+FFFD. Advances `p`
/// past it; returns the end of the bytes written at `out` (room for four).
inline char* putUtf8(char* out, const char16_t*& p, const char16_t* end) {
    char32_t c = *p++;
    if (isSurrogate(c)) {
        if (isHighSurrogate(c) && p < end && isLowSurrogate(*p))
            c = combineSurrogates(c, *p++);
        else
            c = kReplacementCharacter;
    }
    return putUtf8(out, c);
}

/// The number of bytes utf16ToUtf8 makes of `text`.
NVK_EXPORT size_t utf8Length(std::u16string_view text);
/// UTF-16 to UTF-8 at `out`, which has room for utf8Length(text) bytes (three
/// per unit always suffice); returns the end. Runs of ASCII go sixteen units
/// at a time where SSE2 is there.
NVK_EXPORT char* encodeUtf8(std::u16string_view text, char* out);
/// UTF-16 to UTF-8. A surrogate pair becomes one 4-byte sequence; a lone
/// surrogate becomes U+FFFD (EF BF BD).
NVK_EXPORT std::string utf16ToUtf8(std::u16string_view text);

/// Decodes UTF-8 at `out` (room for one unit per byte is enough). Invalid
/// input (a bad lead byte, a missing or bad continuation byte, an overlong
/// form, a surrogate code point or a value above U+10FFFF) gives one U+FFFD
/// per maximal invalid subsequence, as the Unicode standard recommends.
/// Unless `final`, a sequence cut off by the end of the input is left
/// unconsumed, for a reader in blocks to complete with the next block.
/// Returns the bytes consumed; `produced` receives the units written.
/// ASCII is widened sixteen bytes at a time where SSE2 is there.
NVK_EXPORT size_t decodeUtf8(const char* begin, const char* end, bool final, char16_t* out, size_t& produced);
/// UTF-8 to UTF-16 by the rule of decodeUtf8; never fails.
NVK_EXPORT std::u16string utf8ToUtf16(std::string_view utf8);

}  // namespace tovan
