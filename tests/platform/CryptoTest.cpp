#include <gtest/gtest.h>

#include <set>

#include "nvk/platform/Base64.h"
#include "nvk/platform/BlowFish.h"
#include "nvk/platform/Hash.h"
#include "nvk/platform/Random.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using tovan::util::Base64;

namespace {
std::vector<uint8_t> bytes(std::string_view s) { return {s.begin(), s.end()}; }
}  // namespace

TEST(Base64, KnownVectorsBothWays) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (auto [clear, encoded] : vectors) {
        EXPECT_EQ(Base64::Encode(std::string_view(clear)), encoded);
        EXPECT_EQ(Base64::Decode(encoded), bytes(clear));
        std::vector<uint8_t> out;
        Base64::Decode(toWide(encoded).view(), out);
        EXPECT_EQ(out, bytes(clear));
    }
    std::vector<uint8_t> all(256);
    for (int i = 0; i < 256; ++i) all[i] = uint8_t(i);
    std::string text = Base64::Encode(all);
    EXPECT_NE(text.find('+'), std::string::npos);
    EXPECT_NE(text.find('/'), std::string::npos);
    EXPECT_EQ(Base64::Decode(text), all);
    EXPECT_EQ(Base64::EncodeWide(all.data(), all.size()), toWide(text).str());
}

TEST(Base64, BadInputIsRefusedAndLeavesOutputAlone) {
    std::vector<uint8_t> out{1, 2, 3};
    EXPECT_THROW_MSG(Base64::Decode("Zm9", out), Exception, "Base64 text length 3 is not a multiple of 4");
    EXPECT_THROW_MSG(Base64::Decode("Zm9v\nZm8=", out), Exception, "Base64 text length 9 is not a multiple of 4");
    EXPECT_THROW_MSG(Base64::Decode("Zm-v", out), Exception, "Invalid Base64 character '-' at position 2");
    EXPECT_THROW_MSG(Base64::Decode("Zm v", out), Exception, "Invalid Base64 character ' ' at position 2");
    EXPECT_THROW_MSG(Base64::Decode(std::string_view("Zm\0v", 4), out), Exception,
                     "Invalid Base64 character 0x00 at position 2");
    EXPECT_THROW_MSG(Base64::Decode(std::u16string_view(u"Zm\u00e9v"), out), Exception,
                     "Invalid Base64 character 0xE9 at position 2");
    EXPECT_THROW_MSG(Base64::Decode(std::u16string_view(u"Zm\u0141v"), out), Exception,
                     "Invalid Base64 character 0x141 at position 2");
    EXPECT_THROW_MSG(Base64::Decode("Zg=a", out), Exception, "Invalid Base64 padding at position 2");
    EXPECT_THROW_MSG(Base64::Decode("Z===", out), Exception, "Invalid Base64 padding at position 1");
    EXPECT_THROW_MSG(Base64::Decode("====", out), Exception, "Invalid Base64 padding at position 0");
    EXPECT_THROW_MSG(Base64::Decode("Zg==Zm9v", out), Exception, "Invalid Base64 padding at position 2");
    // "Zh==" and "Zm9=" carry bits that no byte uses: a second spelling of the same bytes.
    EXPECT_THROW_MSG(Base64::Decode("Zh==", out), Exception,
                     "Invalid Base64 padding at position 1: unused bits are not zero");
    EXPECT_THROW_MSG(Base64::Decode("Zm9=", out), Exception,
                     "Invalid Base64 padding at position 2: unused bits are not zero");
    EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3}));
}

TEST(BlowFish, RoundTripsEveryLengthAroundTheBlockSize) {
    vcBlowFish cipher("a secret"), other("another secret");
    for (size_t n = 0; n <= 33; ++n) {
        SCOPED_TRACE(n);
        std::vector<uint8_t> clear(n), enc, again, dec;
        for (size_t i = 0; i < n; ++i) clear[i] = uint8_t(i * 7 + 1);
        cipher.Encrypt(clear.data(), n, enc);
        cipher.Encrypt(clear.data(), n, again);
        EXPECT_NE(enc, again);  // a fresh vector each time
        EXPECT_EQ(enc.size(), vcBlowFish::EncryptedLength(n));
        EXPECT_EQ(enc.size() % 8, 0u);
        ASSERT_TRUE(cipher.Decrypt(enc.data(), enc.size(), dec));
        EXPECT_EQ(dec, clear);
        // A wrong secret mostly fails on the padding; when it passes, the text differs.
        EXPECT_FALSE(other.Decrypt(enc.data(), enc.size(), dec) && dec == clear);
    }
}

TEST(BlowFish, MalformedCiphertextIsRecognised) {
    vcBlowFish cipher("k");
    std::vector<uint8_t> enc, out{9};
    cipher.Encrypt(reinterpret_cast<const uint8_t*>("abc"), 3, enc);
    EXPECT_FALSE(cipher.Decrypt(enc.data(), 8, out));               // vector only
    EXPECT_FALSE(cipher.Decrypt(enc.data(), enc.size() - 1, out));  // not whole blocks
    EXPECT_FALSE(cipher.Decrypt(enc.data(), 0, out));
    // Flipping bits of the vector changes the clear pad bytes (CBC), which breaks the padding.
    std::vector<uint8_t> bad = enc;
    bad[7] ^= 0x10;
    EXPECT_FALSE(cipher.Decrypt(bad.data(), bad.size(), out));
    EXPECT_EQ(out, std::vector<uint8_t>{9});
    EXPECT_THROW_MSG(vcBlowFish(""), BadParameterException, "The cipher secret is empty");
}

TEST(Hash, SelectorsGiveTheirDigests) {
    Ptr<iHash> h = ObjectFactory::createAs<iHash>(NVK_vcHashClassTag);
    EXPECT_THROW_MSG(h->Update("abc"), Exception, "Hash used before Init");
    EXPECT_THROW_MSG(h->Init(5), BadParameterException,
                     "Unknown hash algorithm selector 5 (known: 1 MD5, 2 SHA-1, 3 SHA-256, 4 SHA-512)");
    EXPECT_EQ(h->GetSelector(), 0);
    h->Init(iHash::MD5);
    h->Update("abc");
    EXPECT_EQ(h->FinalText(), "900150983cd24fb0d6963f7d28e17f72");
    h->Init(iHash::SHA1);
    h->Update("abc");
    EXPECT_EQ(h->FinalText(), "a9993e364706816aba3e25717850c26c9cd0d89d");
    h->Init(3);
    h->Update("a");
    h->Update("bc");
    EXPECT_EQ(h->FinalText(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // Finishing starts the same algorithm afresh.
    EXPECT_EQ(h->FinalText(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    h->Init(iHash::SHA512);
    EXPECT_EQ(h->GetDigestSize(), 64u);
    EXPECT_EQ(h->FinalText().substr(0, 16), "cf83e1357eefb8bd");
}

TEST(Random, SeededSequenceRepeatsAndStaysInRange) {
    vcRandom a(42), b(42), c(43);
    std::vector<uint32_t> sa, sb, sc;
    for (int i = 0; i < 8; ++i) sa.push_back(a.Next()), sb.push_back(b.Next()), sc.push_back(c.Next());
    EXPECT_EQ(sa, sb);
    EXPECT_NE(sa, sc);
    std::set<uint32_t> seen;
    for (int i = 0; i < 4000; ++i) {
        uint32_t v = a.NextBelow(256);
        ASSERT_LT(v, 256u);
        seen.insert(v);
    }
    EXPECT_EQ(seen.size(), 256u);
    EXPECT_EQ(a.NextBelow(0), 0u);
    vcRandom unseeded;
    EXPECT_FALSE(unseeded.IsSeeded());
    unseeded.Next();
    EXPECT_TRUE(unseeded.IsSeeded());
}
