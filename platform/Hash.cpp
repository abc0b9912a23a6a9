#include "nvk/platform/Hash.h"

#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>

#include "nvk/platform/NumberText.h"
#include "nvk/platform/Pool.h"

namespace tovan {

std::string iHash::FinalText() {
    std::vector<uint8_t> d = Final();
    std::string out;
    out.reserve(d.size() * 2);
    for (uint8_t b : d) {
        out.push_back(kHexDigits[b >> 4]);
        out.push_back(kHexDigits[b & 15]);
    }
    return out;
}

namespace {

/// The nettle implementation of iHash.
class vcHash final : public iHash {
public:
    static const ClassTag Tag;
    const ClassTag& getClass() const override { return Tag; }

    vcHash() { detector().AddToLeakDetector(); }
    ~vcHash() override { detector().RemoveFromLeakDetector(); }

    void Init(int selector) override {
        switch (selector) {
            case MD5: md5_init(&ctx_.md5); break;
            case SHA1: sha1_init(&ctx_.sha1); break;
            case SHA256: sha256_init(&ctx_.sha256); break;
            case SHA512: sha512_init(&ctx_.sha512); break;
            default:
                throw BadParameterException(
                    "vcHash", "Init",
                    u"Unknown hash algorithm selector %d (known: 1 MD5, 2 SHA-1, 3 SHA-256, 4 SHA-512)", selector);
        }
        selector_ = selector;
    }
    int GetSelector() const override { return selector_; }
    size_t GetDigestSize() const override {
        switch (selector_) {
            case MD5: return MD5_DIGEST_SIZE;
            case SHA1: return SHA1_DIGEST_SIZE;
            case SHA256: return SHA256_DIGEST_SIZE;
            case SHA512: return SHA512_DIGEST_SIZE;
            default: return 0;
        }
    }
    void Update(const void* data, size_t length) override {
        auto p = static_cast<const uint8_t*>(data);
        switch (selector_) {
            case MD5: md5_update(&ctx_.md5, length, p); break;
            case SHA1: sha1_update(&ctx_.sha1, length, p); break;
            case SHA256: sha256_update(&ctx_.sha256, length, p); break;
            case SHA512: sha512_update(&ctx_.sha512, length, p); break;
            default:
                throw Exception("vcHash", "Update", u"Hash used before Init");
        }
    }
    std::vector<uint8_t> Final() override {
        std::vector<uint8_t> out(GetDigestSize());
        // nettle's *_digest also resets the context for the next message.
        switch (selector_) {
            case MD5: md5_digest(&ctx_.md5, out.size(), out.data()); break;
            case SHA1: sha1_digest(&ctx_.sha1, out.size(), out.data()); break;
            case SHA256: sha256_digest(&ctx_.sha256, out.size(), out.data()); break;
            case SHA512: sha512_digest(&ctx_.sha512, out.size(), out.data()); break;
            default:
                throw Exception("vcHash", "Final", u"Hash used before Init");
        }
        return out;
    }

    static Object* create() { return new vcHash(); }

private:
    static LeakDetector& detector() {
        static LeakDetector d("vcHash");
        return d;
    }

    union Context {
        md5_ctx md5;
        sha1_ctx sha1;
        sha256_ctx sha256;
        sha512_ctx sha512;
    } ctx_{};
    int selector_ = 0;
};

const ClassTag vcHash::Tag(NVK_vcHashClassTag);
const ClassRegistration registration(NVK_vcHashClassTag, &vcHash::create);

}  // namespace
}  // namespace tovan
