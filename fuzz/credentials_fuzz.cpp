// Credentials strings come from other processes: whatever the bytes, decoding
// must refuse or succeed without reading out of bounds. The first byte picks
// the path: even, the rest is taken as the string itself (outer Base64,
// length and checksum); odd, the rest is a clear body sealed properly under a
// known secret with format version (first byte / 2) % 8, so the field reader
// sees every shape of body. A body that reads back must write and read again,
// unless one of its strings is longer than 255 bytes once written as UTF-8
// (invalid bytes read as U+FFFD, three bytes each): the format keeps only the
// low byte of such a length, so that body cannot come back by design.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nvk/platform/Base64.h"
#include "nvk/platform/BlowFish.h"
#include "nvk/platform/Exception.h"
#include "nvk/services/CCredentials.h"

namespace {

constexpr char Secret[] = "fuzz secret";

class FuzzCredentials : public nvk::CCredentials {
protected:
    std::string GetEncryptionSecret() const override { return Secret; }
};

tovan::WString seal(uint8_t version, const uint8_t* body, size_t size) {
    static const tovan::vcBlowFish cipher(Secret);
    std::string text = tovan::util::Base64::Encode(body, size);
    std::vector<uint8_t> sealed;
    cipher.Encrypt(reinterpret_cast<const uint8_t*>(text.data()), text.size(), sealed);
    if (sealed.size() > 0x7FFF) return tovan::WString();
    std::vector<uint8_t> buf(12, 0);
    buf[0] = version;
    buf[2] = uint8_t(sealed.size());
    buf[3] = uint8_t(sealed.size() >> 8);
    uint32_t sum = 32;
    for (uint8_t b : sealed) sum += b;
    for (int i = 0; i < 4; ++i) buf[4 + i] = uint8_t(sum >> (8 * i));
    buf.insert(buf.end(), sealed.begin(), sealed.end());
    return tovan::toWide(tovan::util::Base64::Encode(buf));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    tovan::WString text = data[0] % 2 == 0
                              ? tovan::toWide(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1))
                              : seal(uint8_t((data[0] >> 1) % 8), data + 1, size - 1);
    FuzzCredentials c;
    tovan::WString error;
    if (!c.Deserialize(text, error)) return 0;
    if (c.DecryptBody(false) != tovan::DecryptSuccess) return 0;
    if (c.IsSessionKey()) return 0;
    for (const tovan::WString& s :
         {c.GetUsername(), c.GetPassword(), c.GetClientDescription(), c.GetClientMachineName(), c.GetClientVersion(),
          c.GetDomain(), c.GetXMLDBEndPoint(), c.GetLogEndPoint(), c.GetLocatorEndPoint(), c.GetAccessToken(),
          c.GetRefreshToken()})
        if (tovan::utf16ToUtf8(s.view()).size() > 255) return 0;
    tovan::WString again;
    try {
        c.GenerateCredentialsString(again);
    } catch (const tovan::Exception&) {
        return 0;  // e.g. a bitset too large to write
    }
    FuzzCredentials d;
    if (!d.Deserialize(again, error) || d.DecryptBody(false) != tovan::DecryptSuccess) __builtin_trap();
    return 0;
}
