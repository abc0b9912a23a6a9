#pragma once
// Base64 in the standard alphabet (A-Z a-z 0-9 + /) with "=" padding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nvk/platform/Export.h"

namespace tovan::util {

/// Encoding always pads to a multiple of four characters. Decoding is strict,
/// so that every byte sequence has exactly one accepted text: it refuses a
/// length that is not a multiple of four, any character outside the alphabet
/// (white space included), "=" anywhere but in the last two places, and a last
/// group whose unused low bits are not zero. Every refusal is an Exception
/// (class "Base64", operation "Decode") naming the position; the output is
/// not touched then.
class NVK_EXPORT Base64 {
public:
    static std::string Encode(const uint8_t* data, size_t length);
    static std::string Encode(const std::vector<uint8_t>& data) { return Encode(data.data(), data.size()); }
    static std::string Encode(std::string_view data) {
        return Encode(reinterpret_cast<const uint8_t*>(data.data()), data.size());
    }
    static std::u16string EncodeWide(const uint8_t* data, size_t length);

    /// Decodes `text` into `out` (replacing its contents).
    static void Decode(std::string_view text, std::vector<uint8_t>& out);
    /// The same for wide text; a unit above 0x7F is a bad character.
    static void Decode(std::u16string_view text, std::vector<uint8_t>& out);
    static std::vector<uint8_t> Decode(std::string_view text) {
        std::vector<uint8_t> out;
        Decode(text, out);
        return out;
    }

    /// Bytes that `length` input bytes encode to.
    static constexpr size_t EncodedLength(size_t length) { return (length + 2) / 3 * 4; }
};

}  // namespace tovan::util
