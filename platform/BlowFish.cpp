#include "nvk/platform/BlowFish.h"

#include <nettle/blowfish.h>
#include <nettle/cbc.h>
#include <nettle/sha2.h>

#include <cstring>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Random.h"

namespace tovan {

struct vcBlowFish::Key {
    blowfish_ctx ctx;
};

namespace {

// cbc_* take a generic block function; these adapt nettle's typed ones
// without a function-pointer cast.
void encryptBlocks(const void* ctx, size_t length, uint8_t* dst, const uint8_t* src) {
    blowfish_encrypt(static_cast<const blowfish_ctx*>(ctx), length, dst, src);
}
void decryptBlocks(const void* ctx, size_t length, uint8_t* dst, const uint8_t* src) {
    blowfish_decrypt(static_cast<const blowfish_ctx*>(ctx), length, dst, src);
}

}  // namespace

vcBlowFish::vcBlowFish(std::string_view secret) : key_(std::make_unique<Key>()) {
    if (secret.empty()) throw BadParameterException("vcBlowFish", "constructor", u"The cipher secret is empty");
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_ctx sha;
    sha256_init(&sha);
    sha256_update(&sha, secret.size(), reinterpret_cast<const uint8_t*>(secret.data()));
    sha256_digest(&sha, sizeof digest, digest);
    if (!blowfish_set_key(&key_->ctx, sizeof digest, digest))
        throw BadParameterException("vcBlowFish", "constructor",
                                    u"The cipher key derived from this secret is weak; choose another secret");
}

vcBlowFish::~vcBlowFish() = default;

void vcBlowFish::Encrypt(const uint8_t* data, size_t length, std::vector<uint8_t>& out) const {
    size_t padded = (length / BlockSize + 1) * BlockSize;
    std::vector<uint8_t> result(BlockSize + padded);
    uint8_t iv[BlockSize];
    vcRandom::FillUnpredictable(iv, BlockSize);
    std::memcpy(result.data(), iv, BlockSize);
    uint8_t* body = result.data() + BlockSize;
    if (length) std::memcpy(body, data, length);
    std::memset(body + length, int(padded - length), padded - length);
    cbc_encrypt(&key_->ctx, encryptBlocks, BlockSize, iv, padded, body,
                body);
    out.swap(result);
}

bool vcBlowFish::Decrypt(const uint8_t* data, size_t length, std::vector<uint8_t>& out) const {
    if (length < 2 * BlockSize || length % BlockSize != 0) return false;
    uint8_t iv[BlockSize];
    std::memcpy(iv, data, BlockSize);
    size_t padded = length - BlockSize;
    std::vector<uint8_t> clear(padded);
    cbc_decrypt(&key_->ctx, decryptBlocks, BlockSize, iv, padded,
                clear.data(), data + BlockSize);
    uint8_t pad = clear.back();
    if (pad < 1 || pad > BlockSize) return false;
    for (size_t i = padded - pad; i < padded; ++i)
        if (clear[i] != pad) return false;
    clear.resize(padded - pad);
    out.swap(clear);
    return true;
}

}  // namespace tovan
