#include <gtest/gtest.h>

#include <numeric>
#include <thread>

#include "nvk/platform/Base64.h"
#include "nvk/platform/BlowFish.h"
#include "nvk/platform/Hash.h"
#include "nvk/services/AuthConstants.h"
#include "nvk/services/CCredentials.h"
#include "nvk/services/ClientSession.h"
#include "nvk/services/LocatorEndpointIdentity.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace tovan;
using tovan::util::Base64;
using nvktest::utf8;

namespace {

constexpr char TestSecret[] = "test secret";

/// Credentials under a secret the tests know, so they can build and open bodies.
class KnownSecret : public CCredentials {
protected:
    std::string GetEncryptionSecret() const override { return TestSecret; }
};

/// Little-endian body bytes, built by hand.
struct Bytes {
    std::vector<uint8_t> b;
    Bytes& le(uint64_t v, int n) {
        for (int i = 0; i < n; ++i) b.push_back(uint8_t(v >> (8 * i)));
        return *this;
    }
    Bytes& str(std::string_view s) {
        b.push_back(uint8_t(s.size()));
        b.insert(b.end(), s.begin(), s.end());
        return *this;
    }
    Bytes& raw(const std::vector<uint8_t>& bytes) {
        b.insert(b.end(), bytes.begin(), bytes.end());
        return *this;
    }
};

/// A credentials string around clear text, enciphered under TestSecret.
WString sealText(uint8_t version, const std::string& text, uint32_t headerFlags = 0) {
    std::vector<uint8_t> sealed;
    vcBlowFish(TestSecret).Encrypt(reinterpret_cast<const uint8_t*>(text.data()), text.size(), sealed);
    Bytes buf;
    buf.le(version, 1).le(77, 1).le(sealed.size(), 2);
    buf.le(std::accumulate(sealed.begin(), sealed.end(), 32u), 4).le(headerFlags, 4);
    buf.b.insert(buf.b.end(), sealed.begin(), sealed.end());
    return toWide(Base64::Encode(buf.b));
}

WString seal(uint8_t version, const std::vector<uint8_t>& body, uint32_t headerFlags = 0) {
    return sealText(version, Base64::Encode(body), headerFlags);
}

/// The string that credentials or a session write.
template <class Writer>
WString generate(Writer& c) {
    WString s;
    c.GenerateCredentialsString(s);
    return s;
}

/// The clear body inside a string made under TestSecret.
std::vector<uint8_t> openBody(const WString& s) {
    std::vector<uint8_t> buf, clear, body;
    Base64::Decode(s.view(), buf);
    size_t len = buf[2] | buf[3] << 8;
    EXPECT_TRUE(vcBlowFish(TestSecret).Decrypt(buf.data() + 12, len, clear));
    Base64::Decode(std::string_view(reinterpret_cast<const char*>(clear.data()), clear.size()), body);
    return body;
}

/// The nine strings of a version 1 to 5 body, each given as "" by default.
Bytes bodyStart(int loginBytes, std::string_view user = "ann", std::string_view domain = "LAB") {
    Bytes b;
    b.le(0x4004, 4).le(0x0A000001, 4).le(0xC0A80002, 4).le(1700000000, loginBytes);
    b.str(user).str("pw").str("desc").str("host").str("1.0").str(domain).str("db").str("log").str("loc");
    return b;
}

void fill(CCredentials& c) {
    c.SetUsername(u"ann");
    c.SetPassword(u"p\u00e4ss");
    c.SetClientDescription(u"desk");
    c.SetClientMachineName(u"ws-17");
    c.SetClientVersion(u"9.1");
    c.SetDomain(u"LAB");
    c.SetXMLDBEndPoint(u"http://db:9944/xmldb");
    c.SetLogEndPoint(u"http://log:9944/");
    c.SetLocatorEndPoint(u"https://srv:9943/locator/service");
    c.SetAccessToken(u"at-\U0001F511");
    c.SetRefreshToken(u"rt");
    c.SetLoginTime(-5);  // the full 64 bits travel
    c.SetServerIP(0xC0A80001);
    c.SetClientIP(0xFFFFFFFE);
    c.SetHeaderFlags(0x80000001);
    c.SetBodyFlags(0x40004);
}

/// Every field in one text, so a mismatch shows which field differs.
std::string fieldsOf(const CCredentials& c) {
    std::string s;
    for (const WString& w : {c.GetUsername(), c.GetPassword(), c.GetClientDescription(), c.GetClientMachineName(),
                             c.GetClientVersion(), c.GetDomain(), c.GetXMLDBEndPoint(), c.GetLogEndPoint(),
                             c.GetLocatorEndPoint(), c.GetAccessToken(), c.GetRefreshToken()})
        s += (w.isNull() ? "(null)" : utf8(w)) + "|";
    for (int64_t n : {int64_t(c.GetLoginTime()), int64_t(c.GetServerIP()), int64_t(c.GetClientIP()),
                      int64_t(c.GetHeaderFlags()), int64_t(c.GetBodyFlags()), int64_t(c.GetRandomNumberRaw())})
        s += std::to_string(n) + "|";
    return s + utf8(c.GetRoles()._GetRawRoleBits().toString());
}

Ptr<CAuthRolesCache> adminTable() {
    Ptr<CAuthRolesCache> t(new CAuthRolesCache());
    t->SetRole(1, NVK_TFClientAdminRole);
    t->SetRole(4, u"Viewer");
    t->SetRole(6, u"Group:Chemists");
    return t;
}

}  // namespace

TEST(Credentials, EveryFieldSurvivesTheString) {
    Ptr<CAuthRolesCache> table = adminTable();
    CCredentials a;
    fill(a);
    a.SetRolesCache(table.get());
    a.GetRoles().SetRoles({WString(u"Viewer"), WString(u"Group:Chemists")});
    CCredentials b(generate(a).c_str());
    EXPECT_NE(a.GetRandomNumberRaw(), 0);
    EXPECT_TRUE(a.VerifyChecksum());
    EXPECT_EQ(fieldsOf(a), fieldsOf(b));
    EXPECT_FALSE(b.IsSessionKey());
    b.SetRolesCache(table.get());
    EXPECT_EQ(b.GetGroups(), std::vector<WString>{WString(u"Group:Chemists")});
    EXPECT_TRUE(b.HasPermission(u"viewer"));
    EXPECT_TRUE(b.IsMemberOfGroup(u"Chemists"));

    CCredentials d(b);
    EXPECT_EQ(fieldsOf(b), fieldsOf(d));
    EXPECT_THROW_MSG(d.GetSessionString(), Exception, "Not supported in CCredentials.");
    d.Clear();
    EXPECT_EQ(fieldsOf(d), fieldsOf(CCredentials()));
}

TEST(Credentials, StringSettersTakeAt255UnitsAndLengthsKeepTheirLowByte) {
    KnownSecret c;
    c.SetUsername(u"keep");
    EXPECT_THROW_MSG(c.SetUsername(WString(std::u16string(256, u'x'))), BadParameterException, "String too long");
    EXPECT_THROW_MSG(c.SetRefreshToken(WString(std::u16string(300, u'x'))), BadParameterException,
                     "String too long");
    EXPECT_EQ(c.GetUsername(), WString(u"keep"));
    c.SetDomain(WString(std::u16string(255, u'd')));
    c.SetDomain(WString());
    EXPECT_EQ(c.GetDomain(), WString(u""));

    c.SetUsername(WString(std::u16string(150, u'\u00e9')));  // 300 UTF-8 bytes
    WString s = generate(c);
    std::vector<uint8_t> body = openBody(s);
    ASSERT_GT(body.size(), 321u);
    EXPECT_EQ(body[20], 44);  // 300 AND 255
    EXPECT_EQ(body[21], 0xC3);
    // Read back by its length byte: 44 bytes of name, then the rest of the name is read as
    // the following fields (the password takes 195 bytes) until one would run past the end.
    KnownSecret d;
    d.SetCredentialsString(s);
    EXPECT_EQ(d.DecryptBody(false), DecryptMalformedBody);
    EXPECT_THROW_FROM(d.DecryptBody(true), Exception,
                      "CCredentials::DecryptBody: Credentials body ends inside the client description: 195 bytes "
                      "needed at offset 274, 70 left");
    EXPECT_EQ(d.GetUsername(), WString(u""));
}

TEST(Credentials, BodyFlagTestsOverlapAsGiven) {
    CCredentials c;
    struct Row {
        uint32_t flags;
        const char16_t* api;
        bool deadlock, passport;
    };
    const Row rows[] = {{0x110, NVK_APITag_C, true, false},     {0x100, nullptr, false, false},
                        {0x30, NVK_APITag_Java, false, false},   {0x50, NVK_APITag_DotNet, false, false},
                        {0x90, NVK_APITag_JavaScript, false, false}, {0x40, nullptr, true, false},
                        {0x80, nullptr, true, false},            {0x410, nullptr, true, false},
                        {0x210, nullptr, true, false},           {0x20, nullptr, false, true},
                        {0x1F0, nullptr, true, false}};
    for (const Row& r : rows) {
        c.SetBodyFlags(r.flags);
        EXPECT_EQ(c.GetClientAPI(), WString(r.api)) << std::hex << r.flags;
        EXPECT_EQ(c.IsDeadlock(), r.deadlock) << std::hex << r.flags;
        EXPECT_EQ(c.IsPassport(), r.passport) << std::hex << r.flags;
    }
    c.SetBodyFlags(0x4);
    EXPECT_TRUE(c.IsSPNEGO());
    EXPECT_FALSE(c.SPNEGODelegation());
    c.SetBodyFlags(0x40004 | 0x1 | 0x2 | 0x800 | 0x1000 | 0x2000 | 0x4000 | 0x8000 | 0x20000);
    EXPECT_TRUE(c.SPNEGODelegation() && c.SkipReauth() && c.IsCustomAuth() && c.IsAnonymous() &&
                c.IsParallelSubprotocol() && c.IsPlatformSSO() && c.IsActiveAdmin() && c.IsImpersonation() &&
                c.IsServiceAccountCredential());
    c.SetBodyFlags(0x40000);
    EXPECT_FALSE(c.SPNEGODelegation() || c.SkipReauth() || c.IsActiveAdmin() || c.IsServiceAccountCredential());
}

TEST(Credentials, OlderFormatsAreRead) {
    struct Case {
        uint8_t version;
        Bytes body;
    };
    // Each version reads the fields its rules give: a version above 5 as 5, one below 1 as
    // any but 1; bytes after the last field, and bitset bits past the count, are ignored.
    Case cases[] = {
        {1, bodyStart(4)},
        {2, bodyStart(8).raw({10, 0x21, 0x02})},  // 10 bits: 0, 5 and 9
        {3, bodyStart(8).raw({10, 0x21, 0x02}).str("access").str("refresh")},
        {4, bodyStart(8).raw({10, 0x21, 0x02}).str("access").str("refresh").str("x").str("").str("zz")},
        {5, bodyStart(8).raw({10, 0x21, 0xFE}).str("access").str("refresh").raw({0, 9, 9})},
        {6, bodyStart(8).raw({10, 0x21, 0x02}).str("access").str("refresh").str("later")},
        {0, bodyStart(8).raw({7, 7})},
    };
    for (Case& k : cases) {
        SCOPED_TRACE(int(k.version));
        KnownSecret c;
        c.SetCredentialsString(seal(k.version, k.body.b, 0x99));
        EXPECT_EQ(c.GetFormatVersionNumber(), k.version);
        ASSERT_EQ(c.DecryptBody(true), DecryptSuccess);
        EXPECT_EQ(fieldsOf(c), std::string("ann|pw|desc|host|1.0|LAB|db|log|loc|") +
                                   (k.version >= 3 ? "access|refresh|" : "||") +
                                   "1700000000|167772161|3232235522|153|16388|77|" +
                                   (k.version >= 2 ? "{0, 5, 9}" : "{}"));
        EXPECT_EQ(c.GetRoles()._GetRawRoleBits().size(), k.version >= 2 ? 10u : 0u);
        EXPECT_EQ(c.GetBuffer().size(), 12 + k.body.b.size());  // the clear body is kept whole
        CCredentials cleared(c);  // clearing starts afresh, at the version that writing gives
        cleared.Clear();
        EXPECT_EQ(cleared.GetFormatVersionNumber(), 5);
        generate(c);  // writing always gives version 5
        EXPECT_EQ(c.GetFormatVersionNumber(), 5);
    }
}

TEST(Credentials, RoleBitsetCountTakesOneToFourBytes) {
    const std::pair<size_t, std::vector<uint8_t>> cases[] = {
        {100, {100}}, {128, {0xC2, 0x80}}, {2047, {0xDF, 0xBF}}, {2048, {0xE0, 0xA0, 0x80}}, {70000, {0xF0, 0x91, 0x85, 0xB0}}};
    for (const auto& [bits, count] : cases) {
        SCOPED_TRACE(bits);
        KnownSecret a;
        a.SetUsername(u"u");
        a.GetRoles()._GetRawRoleBits().resize(bits);
        a.GetRoles()._GetRawRoleBits().set(bits - 1);
        a.GetRoles()._GetRawRoleBits().set(3);
        WString s = generate(a);
        std::vector<uint8_t> body = openBody(s);
        size_t at = 20 + 1 + 1 + 8;  // flags, addresses and time; "u"; eight empty strings
        ASSERT_GE(body.size(), at + count.size());
        EXPECT_EQ(std::vector<uint8_t>(body.begin() + at, body.begin() + at + count.size()), count);
        KnownSecret b;
        b.SetCredentialsString(s);
        ASSERT_EQ(b.DecryptBody(true), DecryptSuccess);
        EXPECT_EQ(b.GetRoles()._GetRawRoleBits().size(), bits);
        EXPECT_EQ(b.GetRoles()._GetRawRoleBits(), a.GetRoles()._GetRawRoleBits());
    }
}

TEST(Credentials, TaggedSessionFormIsReadOnly) {
    KnownSecret a;
    fill(a);
    WString s = generate(a);
    for (std::u16string prefix : {u"_v_1__key_abc_data_", u"_V_1_X_data_"}) {
        KnownSecret b;
        b.SetCredentialsString(WString(prefix + s.str() + u"_trailer_ignored"));
        EXPECT_TRUE(b.IsSessionKey());
        EXPECT_EQ(b.DecryptBody(false), DecryptSuccess);
        EXPECT_EQ(b.GetUsername(), WString(u"ann"));
        WString out(u"before");
        EXPECT_THROW_MSG(b.GenerateCredentialsString(out), Exception, "client Credentials object is read only");
        EXPECT_EQ(out, WString(u"before"));
    }
    // A header without "_data_" is taken whole, which is not Base64.
    KnownSecret c;
    WString error;
    EXPECT_FALSE(c.Deserialize(u"_v_1_abc", error));
    EXPECT_EQ(error, WString(u"Error decoding: _v_1_abc..."));
}

TEST(Credentials, DecodingFailuresNameTheirCause) {
    CCredentials c;
    fill(c);
    auto refused = [&c](const WString& s) {
        WString error(u"none");
        EXPECT_FALSE(c.Deserialize(s, error)) << utf8(s);
        return utf8(error);
    };
    auto badChecksum = [](const WString& s) {
        return "Invalid checksum decoding: " + utf8(s) + " - not a valid session string";
    };
    EXPECT_EQ(refused(WString()), "Empty Credentials");
    EXPECT_EQ(c.GetUsername(), WString(u"ann"));  // nothing was cleared yet
    EXPECT_EQ(refused(u"abc!"), "Error decoding: abc!...");
    EXPECT_EQ(c.GetUsername(), WString(u""));  // decoding starts by clearing
    EXPECT_EQ(refused(u"AAAA"), badChecksum(u"AAAA"));  // shorter than the header

    std::vector<uint8_t> buf(12 + 16, 0);
    buf[0] = 5;
    buf[2] = 16;
    // A checksum of 33 where 32 is due; then, summed right, a length longer than the buffer,
    // and a negative one.
    using Edits = std::vector<std::pair<size_t, uint8_t>>;
    for (const Edits& edits : {Edits{{4, 33}}, Edits{{4, 32}, {2, 17}}, Edits{{3, 0x80}}}) {
        for (auto [at, value] : edits) buf[at] = value;
        const WString bad = toWide(Base64::Encode(buf));
        EXPECT_EQ(refused(bad), badChecksum(bad));
    }

    WString given;
    EXPECT_THROW_MSG(c.SetCredentialsString(u"", &given), Exception, "Empty Credentials");
    EXPECT_EQ(given, WString(u"Empty Credentials"));
    EXPECT_THROW_MSG(CCredentials(u"Zm9"), Exception, "Error decoding: Zm9...");
}

TEST(Credentials, DecryptBodyStatusesLeaveFieldsAlone) {
    DiagnosticCapture capture;
    setDebugTargets("CredentialDebug");
    auto expectRefused = [&](const WString& s, DecryptStatusCode status, const std::string& message) {
        KnownSecret c;
        c.SetCredentialsString(s);
        c.SetUsername(u"before");
        std::vector<uint8_t> buffer = c.GetBuffer();
        EXPECT_EQ(c.DecryptBody(false), status) << message;
        EXPECT_THROW_MSG(c.DecryptBody(true), Exception, message);
        EXPECT_EQ(c.GetUsername(), WString(u"before"));
        EXPECT_EQ(c.GetBuffer(), buffer);
        ASSERT_FALSE(capture.debugLines().empty());
        EXPECT_EQ(capture.debugLines().back(), "CredentialDebug: " + message);
    };
    // A section too short for the cipher, with a valid checksum.
    std::vector<uint8_t> shortBuf(12 + 8, 0);
    shortBuf[0] = 5;
    shortBuf[2] = 8;
    shortBuf[4] = 32;
    expectRefused(toWide(Base64::Encode(shortBuf)), DecryptCipherFailed, "Decrypt failed");

    // Deciphers fine, but the clear text is not Base64.
    expectRefused(sealText(5, "not*base64"), DecryptDecodeFailed, "Decode failed");

    // Bodies whose fields would run past their end: the format version and the bytes after
    // the nine strings. Counts no writer makes are read by their lead byte's range.
    const std::tuple<uint8_t, std::vector<uint8_t>, const char*> malformed[] = {
        {5, {}, "Credentials body ends inside the role bitset count: 1 bytes needed at offset 68, 0 left"},
        {6, {}, "Credentials body ends inside the role bitset count: 1 bytes needed at offset 68, 0 left"},
        {2, {0xC2, 0x80, 1}, "Credentials body ends inside the role bitset: 16 bytes needed at offset 70, 1 left"},
        {2, {0xC2, 0x41}, "Credentials body ends inside the role bitset: 17 bytes needed at offset 70, 0 left"},
        {2, {0x80}, "Credentials body ends inside the role bitset: 16 bytes needed at offset 69, 0 left"},
        {2, {0xF8, 0x80}, "Credentials body ends inside the role bitset count: 1 bytes needed at offset 70, 0 left"},
        {3, {0, 6, 'a'}, "Credentials body ends inside the access token: 6 bytes needed at offset 70, 1 left"},
    };
    for (const auto& [version, tail, message] : malformed)
        expectRefused(seal(version, bodyStart(8).raw(tail).b), DecryptMalformedBody, message);
    Bytes longUser = bodyStart(8);
    longUser.b[20] = 200;  // the user name claims more than the body holds
    expectRefused(seal(5, longUser.b), DecryptMalformedBody,
                  "Credentials body ends inside the user name: 200 bytes needed at offset 33, 35 left");
    setDebugTargets("");
}

TEST(Credentials, TamperingIsCaughtByTheLayeredChecks) {
    enum { Refused, Cipher, ClearBase64, Fields, Undetected, NoEffect, Kinds };
    auto classify = [](const std::vector<uint8_t>& buf, const CCredentials& original) {
        KnownSecret c;
        WString error;
        if (!c.Deserialize(toWide(Base64::Encode(buf)), error)) return Refused;
        switch (c.DecryptBody(false)) {
            case DecryptCipherFailed: return Cipher;
            case DecryptDecodeFailed: return ClearBase64;
            case DecryptMalformedBody: return Fields;
            default: return fieldsOf(c) == fieldsOf(original) ? NoEffect : Undetected;
        }
    };
    for (int sample = 0; sample < 3; ++sample) {
        SCOPED_TRACE(sample);
        KnownSecret a;
        fill(a);
        a.GetRoles()._GetRawRoleBits().set(size_t(sample * 40 + 3));
        if (sample == 2) a.SetPassword(WString());
        WString s = generate(a);
        // Every byte of the buffer flipped, with the checksum left alone and fixed up.
        int bytes[Kinds] = {}, resealed[Kinds] = {};
        std::vector<uint8_t> buf;
        Base64::Decode(s.view(), buf);
        for (size_t i = 0; i < buf.size(); ++i) {
            std::vector<uint8_t> t = buf;
            t[i] ^= 0x01;
            ++bytes[classify(t, a)];
            if (i >= 12) {
                uint32_t sum = std::accumulate(t.begin() + 12, t.end(), 32u);
                for (int k = 0; k < 4; ++k) t[4 + k] = uint8_t(sum >> (8 * k));
                ++resealed[classify(t, a)];
            }
        }
        // The checksum sees any single changed byte of the enciphered section; the header
        // flags and the salt are clear, and a change to them shows in the fields.
        EXPECT_EQ(bytes[Undetected], 4 + 1);
        EXPECT_EQ(bytes[NoEffect], 0);
        // With the checksum fixed, the cipher and the clear-text checks catch almost everything.
        EXPECT_GT(resealed[Cipher] + resealed[ClearBase64], int(buf.size() - 12) * 3 / 4);
    }
}

TEST(Credentials, RandomNumberIsNeverZeroAcrossThreads) {
    std::atomic<int> zeros{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                Ptr<CCredentials> c(CCredentials::newInstance());
                if (c->GetRandomNumber() == 0) ++zeros;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(zeros.load(), 0);
}

TEST(Credentials, ConversationKeyAndHash) {
    CCredentials c;
    c.SetUsername(u"ann");
    c.SetDomain(u"LAB");
    c.SetServerIP(0xC0A80001);
    c.SetClientIP(7);
    c.SetRandomNumber(42);
    for (auto [flags, job, expected] : {std::tuple{0u, u"", u"annLAB|s3232235521|7||42"},
                                        {0x40004u, u"job-9", u"annLAB|s3232235521|7|SD|job-9"},
                                        {0x4u, u"", u"annLAB|s3232235521|7|S|42"}}) {
        WString key;
        c.SetBodyFlags(flags);
        c.GetConversationKey(key, *job ? WString(job) : WString());
        EXPECT_EQ(key, WString(expected));
    }

    WString hash;
    c.SetBodyFlags(0x40004 | 0x10);
    c.GetConversationHash(hash);
    Ptr<iHash> h = ObjectFactory::createAs<iHash>(NVK_vcHashClassTag);
    h->Init(iHash::SHA256);
    h->Update(std::string_view("ann\\LAB\x2a\x01\x00\xa8\xc0\x07\x00\x00\x00\x04\x00\x04\x00", 20));
    EXPECT_EQ(utf8(hash), h->FinalText());
    c.SetDomain(WString());  // no domain, and no separator either
    c.GetConversationHash(hash);
    h->Init(iHash::SHA256);
    h->Update(std::string_view("ann\x2a\x01\x00\xa8\xc0\x07\x00\x00\x00\x04\x00\x04\x00", 16));
    EXPECT_EQ(utf8(hash), h->FinalText());
}

TEST(Credentials, ActiveAdministratorNeedsTheRole) {
    Ptr<CAuthRolesCache> table = adminTable();
    table->SetRole(2, NVK_LegacyTFClientAdminRole);
    CCredentials c;
    EXPECT_THROW_MSG(c.SetIsActiveAdmin(true), Exception,
                     "The authorization role lookup cache has not been initialized");
    c.SetRolesCache(table.get());
    c.SetIsActiveAdmin(true);
    EXPECT_FALSE(c.IsActiveAdmin());
    c.GetRoles().AddToRole(NVK_LegacyTFClientAdminRole);
    c.SetIsActiveAdmin(true);
    EXPECT_TRUE(c.IsActiveAdmin());
    c.GetRoles().Clear();
    c.GetRoles().AddToRole(NVK_TFClientAdminRole);
    c.SetBodyFlags(0x4001);
    c.SetIsActiveAdmin(false);
    EXPECT_EQ(c.GetBodyFlags(), 0x1u);
}

TEST(Credentials, PoolReusesClearedObjectsAndTrimsLargeStorage) {
    ObjectPool<CCredentials>& pool = CCredentials::pool();
    pool.purge();
    CCredentials* a = CCredentials::allocate();
    fill(*a);
    a->GetRoles()._GetRawRoleBits().set(20000);  // a buffer well above the kept size
    WString s = generate(*a);
    ASSERT_GT(a->GetBuffer().capacity(), CCredentials::PooledCapacityLimit);
    CCredentials::deallocate(a);
    EXPECT_EQ(pool.getFreeCount(), 1u);
    EXPECT_EQ(a->GetBuffer().capacity(), 0u);
    EXPECT_EQ(a->GetRoles().GetRolesCache(), nullptr);

    CCredentials* b = CCredentials::allocateCopy(CCredentials(s.c_str()));
    EXPECT_EQ(b, a);  // the same object, reused
    EXPECT_EQ(b->GetUsername(), WString(u"ann"));
    CCredentials::deallocate(b);
    CCredentials* c = CCredentials::allocate();
    EXPECT_EQ(c->GetUsername(), WString(u""));
    EXPECT_EQ(c->GetRoles()._GetRawRoleBits().size(), 0u);
    EXPECT_EQ(pool.getOutstanding(), 1);
    CCredentials::deallocate(c);
    Ptr<CCredentials> made = ObjectFactory::createAs<CCredentials>("Norvatek.CCredentials");
    EXPECT_STREQ(made->getClassTag(), "Norvatek.CCredentials");
}

TEST(ClientSession, FollowsItsKey) {
    Ptr<CAuthRolesCache> table = adminTable();
    CCredentials a;
    fill(a);
    a.SetRolesCache(table.get());
    a.GetRoles().AddToRole(u"Viewer");
    WString key = generate(a);

    Ptr<ClientSession> session(new ClientSession());
    EXPECT_TRUE(session->SetSessionKey(key));
    EXPECT_EQ(session->GetSessionKey(), key);
    EXPECT_EQ(session->GetUsername(), WString(u"ann"));
    EXPECT_THROW_MSG(session->GetPermissions(), Exception,
                     "The authorization role lookup cache has not been initialized");
    session->SetRolesCache(table.get());
    EXPECT_EQ(session->GetPermissions(), std::vector<WString>{WString(u"Viewer")});
    EXPECT_THROW_MSG(session->DecryptBody(true), Exception, "THIS METHOD IS DEPRECATED");
    Ptr<CAuthRoles> notATable(new CAuthRoles());
    EXPECT_THROW_MSG(session->SetRolesCache(notATable.get()), BadParameterException,
                     "Object of class Norvatek.data.AuthRoles does not implement nvk::CAuthRolesCache");

    ClientSession copy(*session);
    EXPECT_EQ(copy.GetUsername(), WString(u"ann"));
    EXPECT_EQ(ClientSession(generate(copy)).GetUsername(), WString(u"ann"));

    EXPECT_THROW_MSG(session->SetSessionKey(u"@@@@"), Exception, "Error decoding: @@@@...");
    EXPECT_EQ(session->GetSessionKey(), WString(u"@@@@"));
    EXPECT_EQ(session->GetUsername(), WString(u""));
}

TEST(LocatorEndpoint, HostPortAndUrlBothWays) {
    using namespace LocatorEndpointIdentity;
    WString out;
    HostAndPortToEndPoint(WString(u"srv"), 9943, true, out);
    EXPECT_EQ(out, WString(u"https://srv:9943/locator/service"));
    std::string narrow;
    HostAndPortToEndPoint(std::string("srv"), 80, false, narrow);
    EXPECT_EQ(narrow, "http://srv:80/locator/service");
    int port = 0;
    HostAndPortToEndPoint(WString(u"srv:443"), out, port);
    EXPECT_EQ(port, 443);
    EXPECT_EQ(out, WString(u"https://srv:443/locator/service"));
    HostAndPortToEndPoint(WString(u"[::1]:8080"), out, port);
    EXPECT_EQ(out, WString(u"http://[::1]:8080/locator/service"));
    for (const char16_t* bad : {u"srv", u"srv:", u"srv:http", u"srv:0", u"srv:65536", u"srv:123456"}) {
        EXPECT_THROW_MSG(HostAndPortToEndPoint(WString(bad), out, port), BadParameterException,
                         "Host and port \"" + utf8(bad) + "\" has no valid port");
    }
    EXPECT_EQ(port, 8080);

    for (auto [url, hostPort] : {std::pair{u"https://srv:9943/locator/service", u"srv:9943"},
                                 {u"https://srv/locator/service", u"srv:443"}, {u"http://srv/locator/service", u"srv"},
                                 {u"ftp://srv/locator/service", u"ftp://srv/locator/service"}}) {
        EndPointToHostAndPort(url, out);
        EXPECT_EQ(out, WString(hostPort));
    }
}

TEST(Credentials, OversizedBodiesAreRefusedWithoutChange) {
    CCredentials c;
    c.SetUsername(u"u");
    c.GetRoles()._GetRawRoleBits().set(199999);
    WString out(u"before");
    EXPECT_THROW_MSG(c.GenerateCredentialsString(out), Exception,
                     "The enciphered body of 33400 bytes does not fit the credentials string (at most 32767)");
    c.GetRoles()._GetRawRoleBits().set(0x1FFFFF);
    EXPECT_THROW_MSG(c.GenerateCredentialsString(out), Exception,
                     "A role bitset of 2097152 bits is too large for a credentials string (at most 2097151)");
    EXPECT_EQ(out, WString(u"before"));
    EXPECT_EQ(c.GetRandomNumberRaw(), 0);
    EXPECT_TRUE(c.GetBuffer().empty());
}
