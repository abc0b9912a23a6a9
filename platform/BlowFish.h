#pragma once
// The framework's block cipher.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "nvk/platform/Export.h"

namespace tovan {

/// Blowfish (nettle) in CBC mode.
///
/// - Key: the SHA-256 digest of the secret's bytes (32 bytes), so a secret of
///   any length gives a full-strength key; an empty secret is refused with
///   BadParameterException "The cipher secret is empty".
/// - Ciphertext: an 8-byte initialisation vector drawn from
///   vcRandom::FillUnpredictable, then the CBC blocks of the message padded
///   PKCS#7-style (1 to 8 bytes, each holding the pad length). Encrypting the
///   same text twice therefore gives different ciphertexts, and the length is
///   8 + (n / 8 + 1) * 8 for n message bytes.
/// - A failed decryption is recognised by its shape only: a length below 16
///   or not a multiple of 8, or a last block whose padding is not 1 to 8
///   copies of its own length. There is no authentication tag; callers that
///   need tamper evidence check the clear text as well (the credentials
///   string does: its clear body is Base64, which garbled blocks break).
///
/// A cipher object is immutable after construction and may be shared by
/// threads.
class NVK_EXPORT vcBlowFish {
public:
    static constexpr size_t BlockSize = 8;

    explicit vcBlowFish(std::string_view secret);
    ~vcBlowFish();
    vcBlowFish(const vcBlowFish&) = delete;
    vcBlowFish& operator=(const vcBlowFish&) = delete;

    /// Replaces `out` with the ciphertext of `data`.
    void Encrypt(const uint8_t* data, size_t length, std::vector<uint8_t>& out) const;
    /// Replaces `out` with the clear text; false (and `out` untouched) when the
    /// ciphertext is malformed as described above.
    bool Decrypt(const uint8_t* data, size_t length, std::vector<uint8_t>& out) const;

    static constexpr size_t EncryptedLength(size_t length) { return BlockSize + (length / BlockSize + 1) * BlockSize; }

private:
    struct Key;
    std::unique_ptr<Key> key_;
};

}  // namespace tovan
