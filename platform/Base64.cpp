#include "nvk/platform/Base64.h"

#include <array>

#include "nvk/platform/Exception.h"

namespace tovan::util {
namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t Invalid = 0xFF;
constexpr uint8_t Pad = 0xFE;

constexpr std::array<uint8_t, 256> makeTable() {
    std::array<uint8_t, 256> t{};
    for (auto& v : t) v = Invalid;
    for (int i = 0; i < 64; ++i) t[uint8_t(Alphabet[i])] = uint8_t(i);
    t[uint8_t('=')] = Pad;
    return t;
}
constexpr std::array<uint8_t, 256> Table = makeTable();

template <class Ch>
void encodeInto(const uint8_t* data, size_t length, std::basic_string<Ch>& out) {
    out.resize(Base64::EncodedLength(length));
    Ch* o = out.data();
    size_t i = 0;
    for (; i + 3 <= length; i += 3) {
        uint32_t v = uint32_t(data[i]) << 16 | uint32_t(data[i + 1]) << 8 | data[i + 2];
        *o++ = Ch(Alphabet[v >> 18]);
        *o++ = Ch(Alphabet[(v >> 12) & 63]);
        *o++ = Ch(Alphabet[(v >> 6) & 63]);
        *o++ = Ch(Alphabet[v & 63]);
    }
    if (size_t rest = length - i) {
        uint32_t v = uint32_t(data[i]) << 16 | (rest == 2 ? uint32_t(data[i + 1]) << 8 : 0);
        *o++ = Ch(Alphabet[v >> 18]);
        *o++ = Ch(Alphabet[(v >> 12) & 63]);
        *o++ = rest == 2 ? Ch(Alphabet[(v >> 6) & 63]) : Ch('=');
        *o++ = Ch('=');
    }
}

template <class Ch>
uint8_t lookup(Ch c) {
    using U = std::make_unsigned_t<Ch>;
    U u = U(c);
    return u > 0xFF ? Invalid : Table[u];
}

template <class Ch>
void decodeInto(std::basic_string_view<Ch> text, std::vector<uint8_t>& out) {
    size_t n = text.size();
    if (n % 4 != 0)
        throw Exception("Base64", "Decode", u"Base64 text length %d is not a multiple of 4", n);
    // Padding may only close the text: one "=" or two.
    size_t pad = 0;
    if (n >= 4) {
        if (lookup(text[n - 1]) == Pad) ++pad;
        if (pad && lookup(text[n - 2]) == Pad) ++pad;
    }
    size_t body = n - pad;
    std::vector<uint8_t> result;
    result.reserve(n / 4 * 3);
    uint32_t acc = 0;
    for (size_t i = 0; i < body; ++i) {
        uint8_t v = lookup(text[i]);
        if (v == Pad) throw Exception("Base64", "Decode", u"Invalid Base64 padding at position %d", i);
        if (v == Invalid) {
            // Printable characters are shown as they are, others by their code.
            const uint32_t code = uint32_t(std::make_unsigned_t<Ch>(text[i]));
            if (code >= 0x20 && code < 0x7F)
                throw Exception("Base64", "Decode", u"Invalid Base64 character '%c' at position %d", char(code), i);
            throw Exception("Base64", "Decode", u"Invalid Base64 character 0x%02X at position %d", code, i);
        }
        acc = acc << 6 | v;
        if (i % 4 == 3) {
            result.push_back(uint8_t(acc >> 16));
            result.push_back(uint8_t(acc >> 8));
            result.push_back(uint8_t(acc));
            acc = 0;
        }
    }
    if (pad == 2) {
        if (acc & 0xF)
            throw Exception("Base64", "Decode", u"Invalid Base64 padding at position %d: unused bits are not zero",
                            body - 1);
        result.push_back(uint8_t(acc >> 4));
    } else if (pad == 1) {
        if (acc & 0x3)
            throw Exception("Base64", "Decode", u"Invalid Base64 padding at position %d: unused bits are not zero",
                            body - 1);
        result.push_back(uint8_t(acc >> 10));
        result.push_back(uint8_t(acc >> 2));
    }
    out.swap(result);
}

}  // namespace

std::string Base64::Encode(const uint8_t* data, size_t length) {
    std::string out;
    encodeInto(data, length, out);
    return out;
}

std::u16string Base64::EncodeWide(const uint8_t* data, size_t length) {
    std::u16string out;
    encodeInto(data, length, out);
    return out;
}

void Base64::Decode(std::string_view text, std::vector<uint8_t>& out) { decodeInto(text, out); }

void Base64::Decode(std::u16string_view text, std::vector<uint8_t>& out) { decodeInto(text, out); }

}  // namespace tovan::util
