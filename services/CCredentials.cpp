#include "nvk/services/CCredentials.h"

#include <unistd.h>

#include <cstring>
#include <ctime>

#include "nvk/platform/Base64.h"
#include "nvk/platform/BlowFish.h"
#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/Hash.h"
#include "nvk/platform/Lock.h"
#include "nvk/platform/Random.h"
#include "nvk/services/AuthConstants.h"

using namespace tovan;

namespace nvk {

namespace {

// Replaceable through GetEncryptionSecret; clients and server must agree on it.
constexpr char BuiltInSecret[] = "nvk.credentials/7Qe2-Vt9k-Lr4w-Zb81";

const ClassRegistration registration("Norvatek.CCredentials", &CCredentials::createObject);

const DebugTarget& credentialDebug() {
    static DebugTarget target("CredentialDebug");
    return target;
}

/// Bytes reserved for the bitset's count. Counts of 0x10000 and more take a
/// fourth byte when written; the buffer grows for it.
size_t reservedCountLength(size_t bits) { return bits < 0x80 ? 1 : bits < 0x800 ? 2 : 3; }

constexpr size_t MaxBitsetBits = 0x200000;  // the largest count four bytes can carry

/// Appends to a buffer sized in advance, growing it when a field turns out longer.
struct Writer {
    std::vector<uint8_t>& buf;
    size_t pos;

    void room(size_t n) {
        if (pos + n > buf.size()) buf.resize(pos + n);
    }
    void put(uint64_t v, size_t bytes) {
        room(bytes);
        storeLE(buf.data() + pos, v, bytes);
        pos += bytes;
    }
    void bytes(const void* data, size_t n) {
        room(n);
        if (n) std::memcpy(buf.data() + pos, data, n);
        pos += n;
    }
    void string(const std::string& utf8) {
        put(utf8.size() & 0xFF, 1);  // one length byte: longer texts keep only its low byte
        bytes(utf8.data(), utf8.size());
    }
};

/// Reads the clear body, naming the field and offset that runs out.
struct Reader {
    const uint8_t* data;
    size_t size;
    size_t pos = 0;
    WString error;

    bool need(size_t n, const char* field) {
        if (n <= size - pos) return true;
        error = format(u"Credentials body ends inside the %hs: %d bytes needed at offset %d, %d left", field, n,
                       CCredentials::HeaderSize + pos, size - pos);
        return false;
    }
    bool get(uint64_t& v, size_t bytes, const char* field) {
        if (!need(bytes, field)) return false;
        v = loadLE(data + pos, bytes);
        pos += bytes;
        return true;
    }
    bool string(WString& out, const char* field) {
        uint64_t length;
        if (!get(length, 1, field) || !need(size_t(length), field)) return false;
        out = toWide(std::string_view(reinterpret_cast<const char*>(data + pos), size_t(length)));
        pos += size_t(length);
        return true;
    }
    /// The count's length follows from its lead byte's range; each further byte gives its
    /// low six bits. Bytes no writer makes (a lead of 0x80 to 0xBF or from 0xF8, a further
    /// byte without its 0x80 mark) are read by the same rules rather than refused.
    bool count(size_t& n) {
        uint64_t lead;
        if (!get(lead, 1, "role bitset count")) return false;
        size_t extra;
        if (lead < 0xC0) extra = 0, n = lead;
        else if (lead < 0xE0) extra = 1, n = lead & 0x1F;
        else if (lead < 0xF0) extra = 2, n = lead & 0x0F;
        else extra = 3, n = lead & 0x07;
        for (size_t i = 0; i < extra; ++i) {
            uint64_t b;
            if (!get(b, 1, "role bitset count")) return false;
            n = n << 6 | (b & 0x3F);
        }
        return true;
    }
};

}  // namespace

/// The fields DecryptBody reads, committed only when all of them were read.
struct CCredentials::Body {
    uint32_t bodyFlags = 0, serverIP = 0, clientIP = 0;
    int64_t loginTime = 0;
    WString strings[StringCount];
    BitsetValue bits;
    bool hasBits = false;

    Body() {
        for (WString& s : strings) s.clear();  // fields a version lacks read as empty, not null
    }
};

const ClassTag CCredentials::Tag("Norvatek.CCredentials");

// ---- life cycle ---------------------------------------------------------------

CCredentials::CCredentials() { Clear(); }

CCredentials::CCredentials(const CCredentials& other) : CountedObject(), iSession(), PooledObject() {
    assignFields(other);
}

CCredentials::CCredentials(const wchar* text) {
    Clear();
    SetCredentialsString(WString(text));
    DecryptBody(true);
}

CCredentials& CCredentials::operator=(const CCredentials& other) {
    if (this != &other) assignFields(other);
    return *this;
}

CCredentials::~CCredentials() = default;

void CCredentials::assignFields(const CCredentials& o) {
    buffer_ = o.buffer_;
    version_ = o.version_;
    random_ = o.random_;
    encryptedLength_ = o.encryptedLength_;
    checksum_ = o.checksum_;
    headerFlags_ = o.headerFlags_;
    bodyFlags_ = o.bodyFlags_;
    serverIP_ = o.serverIP_;
    clientIP_ = o.clientIP_;
    loginTime_ = o.loginTime_;
    for (int i = 0; i < StringCount; ++i) strings_[i] = o.strings_[i];
    roles_ = o.roles_;
    readOnly_ = o.readOnly_;
}

ObjectPool<CCredentials>& CCredentials::pool() {
    static ObjectPool<CCredentials> p("CCredentials");
    return p;
}

CCredentials* CCredentials::newInstance() {
    CCredentials* c = pool().newInstance();
    c->pooled_ = true;
    return c;
}

CCredentials* CCredentials::allocate() {
    CCredentials* c = newInstance();
    c->addRef();
    return c;
}

CCredentials* CCredentials::allocateCopy(const CCredentials& other) {
    CCredentials* c = allocate();
    *c = other;
    return c;
}

void CCredentials::deallocate(CCredentials* credentials) {
    if (credentials) credentials->release();
}

void CCredentials::deleteInstance() {
    if (pooled_) pool().deleteInstance(this);
    else delete this;
}

void CCredentials::onActivate() { Clear(); }

void CCredentials::onDeactivate() {
    for (WString& s : strings_) {
        if (s.str().capacity() > PooledCapacityLimit) s = WString::empty();
        else s.clear();
    }
    if (scratch_.capacity() > PooledCapacityLimit) std::string().swap(scratch_);
    else scratch_.clear();
    if (buffer_.capacity() > PooledCapacityLimit) std::vector<uint8_t>().swap(buffer_);
    else buffer_.clear();
    roles_.Clear();
    roles_.SetRolesCache(nullptr);  // a pooled object must not keep a table alive
}

void CCredentials::Clear() {
    std::fill(buffer_.begin(), buffer_.end(), uint8_t(0));
    buffer_.clear();
    version_ = CurrentFormatVersion;
    random_ = 0;
    encryptedLength_ = 0;
    checksum_ = 0;
    headerFlags_ = bodyFlags_ = 0;
    serverIP_ = clientIP_ = 0;
    loginTime_ = 0;
    for (WString& s : strings_) s.clear();
    roles_.Clear();
    readOnly_ = false;
}

// ---- fields -------------------------------------------------------------------

void CCredentials::setString(StringSlot slot, const WString& value, const char* operation) {
    if (value.length() > MaxStringLength) throw BadParameterException("CCredentials", operation, u"%ls", StringTooLong);
    if (value.isNull()) strings_[slot].clear();
    else strings_[slot] = value;
}

WString CCredentials::GetSessionString() const {
    throw Exception("CCredentials", "GetSessionString", u"Not supported in CCredentials.");
}

bool CCredentials::IsDeadlock() const {
    uint32_t f = bodyFlags_;
    return (f & 0x50) == 0x40 || (f & 0x90) == 0x80 || (f & 0x410) == 0x410 || (f & 0x210) == 0x210 ||
           (f & 0x110) == 0x110;
}

WString CCredentials::GetClientAPI() const {
    if (!(bodyFlags_ & 0x10)) return WString();
    switch (bodyFlags_ & 0x1F0) {
        case 0x30: return WString(NVK_APITag_Java);
        case 0x50: return WString(NVK_APITag_DotNet);
        case 0x90: return WString(NVK_APITag_JavaScript);
        case 0x110: return WString(NVK_APITag_C);
        default: return WString();
    }
}

void CCredentials::SetIsActiveAdmin(bool active) {
    if (!HasPermission(WString(NVK_TFClientAdminRole)) && !HasPermission(WString(NVK_LegacyTFClientAdminRole)))
        return;
    if (active) bodyFlags_ |= 0x4000;
    else bodyFlags_ &= ~uint32_t(0x4000);
}

uint8_t CCredentials::GetRandomNumber() {
    if (random_ != 0) return random_;
    static CriticalSection lock;
    static vcRandom generator;
    AutoCriticalSection hold(lock);
    if (!generator.IsSeeded()) generator.Seed(uint64_t(std::time(nullptr)) ^ uint64_t(getpid()));
    uint32_t v;
    do {
        v = generator.NextBelow(256);
    } while (v == 0);
    random_ = uint8_t(v);
    return random_;
}

// ---- cipher and checksum ------------------------------------------------------

std::string CCredentials::GetEncryptionSecret() const { return BuiltInSecret; }

const vcBlowFish& CCredentials::cipher() const {
    std::string secret = GetEncryptionSecret();
    if (!cipher_ || secret != cipherSecret_) {
        // Setting the key is the costly part of Blowfish, so the built-in one is made once per process.
        static const std::shared_ptr<const vcBlowFish> builtIn = std::make_shared<const vcBlowFish>(BuiltInSecret);
        cipher_ = secret == BuiltInSecret ? builtIn : std::make_shared<const vcBlowFish>(secret);
        cipherSecret_ = std::move(secret);
    }
    return *cipher_;
}

uint32_t CCredentials::CalcChecksum() const {
    uint32_t sum = 32;
    if (encryptedLength_ < 0) return sum;
    size_t end = std::min(buffer_.size(), HeaderSize + size_t(encryptedLength_));
    for (size_t i = HeaderSize; i < end; ++i) sum += buffer_[i];
    return sum;
}

bool CCredentials::VerifyChecksum() const {
    if (encryptedLength_ < 0 || HeaderSize + size_t(encryptedLength_) > buffer_.size()) return false;
    return CalcChecksum() == checksum_;
}

// ---- generating -----------------------------------------------------------------

void CCredentials::GenerateCredentialsString(WString& out) {
    if (readOnly_) throw Exception("CCredentials", "GenerateCredentialsString", u"client Credentials object is read only");
    const uint8_t version = CurrentFormatVersion;
    const BitsetValue& bits = roles_._GetRawRoleBits();
    // A count or a section length the format cannot hold would give a string that does not
    // decode: refused before anything changes.
    if (bits.size() >= MaxBitsetBits)
        throw Exception("CCredentials", "GenerateCredentialsString",
                        u"A role bitset of %d bits is too large for a credentials string (at most %d)", bits.size(),
                        MaxBitsetBits - 1);

    size_t clearLength = 29;
    for (int i = 0; i < BodyStringCount; ++i) clearLength += utf8Length(strings_[i].view());
    const size_t bitBytes = (bits.size() + 7) / 8;
    clearLength += bitBytes + reservedCountLength(bits.size());  // version 2 and later
    clearLength += 2 + utf8Length(strings_[AccessToken].view()) + utf8Length(strings_[RefreshToken].view());

    std::vector<uint8_t> buf(clearLength + HeaderSize, 0);
    Writer w{buf, HeaderSize};
    w.put(bodyFlags_, 4);
    w.put(serverIP_, 4);
    w.put(clientIP_, 4);
    w.put(uint64_t(loginTime_), 8);
    for (int i = 0; i < BodyStringCount; ++i) {
        scratch_ = utf16ToUtf8(strings_[i].view());
        w.string(scratch_);
    }
    // The count is written as the UTF-8 form of a code point of that value.
    char count[4];
    w.bytes(count, size_t(putUtf8(count, char32_t(bits.size())) - count));
    w.room(bitBytes);
    for (size_t bit : bits.setBits()) buf[w.pos + bit / 8] |= uint8_t(1u << (bit % 8));
    w.pos += bitBytes;
    for (StringSlot token : {AccessToken, RefreshToken}) {
        scratch_ = utf16ToUtf8(strings_[token].view());
        w.string(scratch_);
    }
    buf.resize(w.pos);

    // The body travels as Base64 text under the cipher.
    std::string clearText = util::Base64::Encode(buf.data() + HeaderSize, buf.size() - HeaderSize);
    std::vector<uint8_t> sealed;
    cipher().Encrypt(reinterpret_cast<const uint8_t*>(clearText.data()), clearText.size(), sealed);
    if (sealed.size() > 0x7FFF)
        throw Exception("CCredentials", "GenerateCredentialsString",
                        u"The enciphered body of %d bytes does not fit the credentials string (at most 32767)",
                        sealed.size());

    const uint8_t random = GetRandomNumber();
    buf.resize(HeaderSize);
    buf.insert(buf.end(), sealed.begin(), sealed.end());
    uint32_t sum = 32;
    for (uint8_t b : sealed) sum += b;
    buf[0] = version;
    buf[1] = random;
    storeLE(buf.data() + 2, uint16_t(sealed.size()));
    storeLE(buf.data() + 4, uint32_t(sum));
    storeLE(buf.data() + 8, uint32_t(headerFlags_));

    out = WString(util::Base64::EncodeWide(buf.data(), buf.size()));
    version_ = version;
    encryptedLength_ = int16_t(sealed.size());
    checksum_ = sum;
    buffer_.swap(buf);
}

// ---- decoding -------------------------------------------------------------------

bool CCredentials::Deserialize(const WString& text, WString& error) {
    if (text.isEmpty()) {
        error = WString(u"Empty Credentials");
        return false;
    }
    Clear();
    std::u16string_view data = text.view();
    std::u16string_view header = idHeader;
    if (data.size() >= header.size() && equalsNoCase(data.substr(0, header.size()), header)) {
        size_t at = data.find(dataTag);
        if (at != std::u16string_view::npos) {
            data.remove_prefix(at + std::u16string_view(dataTag).size());
            data = data.substr(0, data.find(tagSeparator[0]));
            readOnly_ = true;
        }
    }
    try {
        util::Base64::Decode(data, buffer_);
    } catch (const Exception&) {
        error = format(u"Error decoding: %ls...", data);
        return false;
    }
    if (buffer_.size() >= HeaderSize) {
        version_ = buffer_[0];
        random_ = buffer_[1];
        encryptedLength_ = int16_t(loadLE<uint16_t>(&buffer_[2]));
        checksum_ = loadLE<uint32_t>(&buffer_[4]);
        headerFlags_ = loadLE<uint32_t>(&buffer_[8]);
    }
    if (!VerifyChecksum()) {
        error = format(u"Invalid checksum decoding: %ls - not a valid session string", data);
        return false;
    }
    return true;
}

void CCredentials::SetCredentialsString(const WString& text, WString* error) {
    WString local;
    WString& message = error ? *error : local;
    if (!Deserialize(text, message)) throw Exception("CCredentials", "SetCredentialsString", message);
}

DecryptStatusCode CCredentials::DecryptBody(bool throwOnError) {
    WString message;
    const DecryptStatusCode status = decryptBody(message);
    if (status != DecryptSuccess) {
        if (credentialDebug().isActive()) debugText(credentialDebug().name(), message);
        if (throwOnError) throw Exception("CCredentials", "DecryptBody", message);
    }
    return status;
}

DecryptStatusCode CCredentials::decryptBody(WString& message) {
    std::vector<uint8_t> clearText;
    bool inside = encryptedLength_ >= 0 && HeaderSize + size_t(encryptedLength_) <= buffer_.size();
    if (!inside || !cipher().Decrypt(buffer_.data() + HeaderSize, size_t(encryptedLength_), clearText)) {
        message = u"Decrypt failed";
        return DecryptCipherFailed;
    }
    std::vector<uint8_t> body;
    try {
        util::Base64::Decode(std::string_view(reinterpret_cast<const char*>(clearText.data()), clearText.size()), body);
    } catch (const Exception&) {
        message = u"Decode failed";
        return DecryptDecodeFailed;
    }

    Body fields;
    Reader r{body.data(), body.size(), 0, WString()};
    static const char* const names[BodyStringCount] = {
        "user name",      "password", "client description", "client machine name", "client version",
        "domain",         "XMLDB endpoint", "log endpoint", "locator endpoint"};
    // The version rules decide which fields there are: a version above 5 reads as 5 does,
    // and one below 1 as any version other than 1. Only a field that would run past the
    // end of the body is refused (DecryptMalformedBody); bytes after the last field are
    // not looked at, as a later version may add fields there.
    bool ok = true;
    uint64_t v = 0;
    ok = ok && r.get(v, 4, "body flags") && ((fields.bodyFlags = uint32_t(v)), true);
    ok = ok && r.get(v, 4, "server IP") && ((fields.serverIP = uint32_t(v)), true);
    ok = ok && r.get(v, 4, "client IP") && ((fields.clientIP = uint32_t(v)), true);
    ok = ok && r.get(v, version_ == 1 ? 4 : 8, "login time") && ((fields.loginTime = int64_t(v)), true);
    for (int i = 0; ok && i < BodyStringCount; ++i) ok = r.string(fields.strings[i], names[i]);
    if (ok && version_ >= 2) {
        size_t n = 0;
        ok = r.count(n) && r.need((n + 7) / 8, "role bitset");
        if (ok) {
            fields.bits.resize(n);
            // Bits past the count in the last byte are padding: the bitset has n bits.
            for (size_t i = 0; i < (n + 7) / 8; ++i) {
                uint8_t b = r.data[r.pos + i];
                for (size_t k = 0; k < 8 && b; ++k, b >>= 1)
                    if ((b & 1) && i * 8 + k < n) fields.bits.set(i * 8 + k);
            }
            r.pos += (n + 7) / 8;
            fields.hasBits = true;
        }
    }
    if (ok && version_ >= 3) {
        ok = r.string(fields.strings[AccessToken], "access token") &&
             r.string(fields.strings[RefreshToken], "refresh token");
    }
    for (int i = 1; ok && version_ == 4 && i <= 3; ++i) {
        WString discarded;
        ok = r.string(discarded, i == 1 ? "first retired string" : i == 2 ? "second retired string"
                                                                         : "third retired string");
    }
    if (!ok) {
        message = std::move(r.error);
        return DecryptMalformedBody;
    }

    buffer_.resize(HeaderSize);
    buffer_.insert(buffer_.end(), body.begin(), body.end());
    bodyFlags_ = fields.bodyFlags;
    serverIP_ = fields.serverIP;
    clientIP_ = fields.clientIP;
    loginTime_ = fields.loginTime;
    for (int i = 0; i < StringCount; ++i) strings_[i] = std::move(fields.strings[i]);
    if (fields.hasBits) roles_._GetRawRoleBits() = std::move(fields.bits);
    else roles_.Clear();
    return DecryptSuccess;
}

// ---- conversation key and hash ---------------------------------------------------

void CCredentials::GetConversationKey(WString& out, const WString& suffix) {
    WString key = strings_[User];
    key += strings_[Domain].view();
    key += format(u"|s%u|%u|", serverIP_, clientIP_).view();
    if (IsSPNEGO()) {
        key += u'S';
        if (bodyFlags_ & 0x40000) key += u'D';
    }
    key += u'|';
    if (!suffix.isEmpty()) key += suffix.view();
    else key += format(u"%u", unsigned(GetRandomNumber())).view();
    out = std::move(key);
}

void CCredentials::GetConversationHash(WString& out) {
    Object* made = ObjectFactory::findCreate(NVK_vcHashClassTag);
    iHash* hash = made ? made->findAs<iHash>() : nullptr;
    if (!hash) {
        delete made;
        throw Exception("CCredentials", "GetConversationHash", u"Cannot dereference a NULL pointer");
    }
    Ptr<iHash> holder(hash);
    hash->Init(iHash::SHA256);
    hash->Update(utf16ToUtf8(strings_[User].view()));
    if (!strings_[Domain].isEmpty()) {
        hash->Update("\\");
        hash->Update(utf16ToUtf8(strings_[Domain].view()));
    }
    uint8_t tail[13];
    tail[0] = GetRandomNumber();
    storeLE(tail + 1, uint32_t(serverIP_));
    storeLE(tail + 5, uint32_t(clientIP_));
    storeLE(tail + 9, uint32_t(bodyFlags_ & 0x40004));
    hash->Update(tail, sizeof tail);
    out = toWide(hash->FinalText());
}

}  // namespace nvk
