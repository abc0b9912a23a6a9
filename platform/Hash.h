#pragma once
// Message digests behind an interface created by class tag.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"

/// Class tag of the framework's digest object; create it with
/// ObjectFactory::createAs<tovan::iHash>(NVK_vcHashClassTag).
inline constexpr char NVK_vcHashClassTag[] = "Norvatek.vcHash";

namespace tovan {

/// A message digest. `Init` chooses the algorithm by selector:
///   1  MD5     (16 bytes; only for matching old records, not for security)
///   2  SHA-1   (20 bytes; likewise legacy)
///   3  SHA-256 (32 bytes; the one to use for anything new)
///   4  SHA-512 (64 bytes)
/// Any other selector raises BadParameterException "Unknown hash algorithm
/// selector %d (known: 1 MD5, 2 SHA-1, 3 SHA-256, 4 SHA-512)" and leaves the
/// object as it was. Feeding or finishing before Init raises Exception "Hash
/// used before Init". Finishing returns the digest and starts the same
/// algorithm afresh, so one object can hash several messages in a row.
class NVK_EXPORT iHash : public CountedObject {
public:
    enum Selector { MD5 = 1, SHA1 = 2, SHA256 = 3, SHA512 = 4 };

    virtual void Init(int selector) = 0;
    virtual int GetSelector() const = 0;  // 0 before Init
    virtual size_t GetDigestSize() const = 0;
    virtual void Update(const void* data, size_t length) = 0;
    void Update(std::string_view bytes) { Update(bytes.data(), bytes.size()); }
    /// The raw digest.
    virtual std::vector<uint8_t> Final() = 0;
    /// The digest as lower-case hexadecimal text (two digits per byte).
    std::string FinalText();
};

}  // namespace tovan
