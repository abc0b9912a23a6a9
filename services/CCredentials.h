#pragma once
// A user's identity as the client, the server and protocol processes pass it
// around: decoded fields plus the opaque credentials string.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/Session.h"
#include "nvk/platform/String.h"
#include "nvk/services/CAuthRoles.h"

namespace tovan {
class vcBlowFish;
}

namespace nvk {

// Client API kinds read from the body flags (GetClientAPI).
inline constexpr tovan::wchar NVK_APITag_Java[] = u"Java";
inline constexpr tovan::wchar NVK_APITag_DotNet[] = u"DotNet";
inline constexpr tovan::wchar NVK_APITag_JavaScript[] = u"JavaScript";
inline constexpr tovan::wchar NVK_APITag_C[] = u"C";

/// The credentials string is Base64 of a byte buffer: a clear 12-byte header
/// (format version, random salt, length of the enciphered section, checksum,
/// header flags), then the body (flags, addresses, login time, nine strings,
/// the role bitset, two tokens) as Base64 text enciphered with vcBlowFish.
/// 5 is written; any version is read by the version rules (a 4-byte login time
/// for 1, the role bitset from 2, the tokens from 3, three discarded strings in
/// 4 only), so versions above 5 read as 5. Bits of the role bitset are stored
/// lowest first: bit i is bit (i % 8) of byte i / 8 after the count; bits past
/// the count are padding. Bytes after the last field are ignored.
///
/// A string given in the tagged session form ("_v_1_..._data_<Base64>_...")
/// makes the object read-only: it can be read but not turned into a string.
///
/// Decoding is in two steps. Deserialize checks the outer Base64, the length
/// and the checksum and copies the header; it starts by clearing the object,
/// so a failed decode leaves it cleared, never half-filled. DecryptBody then
/// deciphers and reads the fields; when it fails, every field stays as it was.
class NVK_EXPORT CCredentials : public tovan::iSession, public tovan::PooledObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.CCredentials"
    const tovan::ClassTag& getClass() const override { return Tag; }

    static constexpr tovan::wchar idHeader[] = u"_v_1_";
    static constexpr tovan::wchar keyTag[] = u"_key_";
    static constexpr tovan::wchar dataTag[] = u"_data_";
    static constexpr tovan::wchar tagSeparator[] = u"_";
    static constexpr tovan::wchar StringTooLong[] = u"String too long";

    static constexpr uint8_t CurrentFormatVersion = 5;
    static constexpr size_t HeaderSize = 12;
    /// Longest text a string setter takes, in UTF-16 units.
    static constexpr size_t MaxStringLength = 255;
    /// Pooled objects keep string and buffer storage up to this size.
    static constexpr size_t PooledCapacityLimit = 1000;

    CCredentials();
    CCredentials(const CCredentials& other);
    /// Decodes and deciphers `text`; raises the decoding error as Exception.
    explicit CCredentials(const tovan::wchar* text);
    CCredentials& operator=(const CCredentials& other);
    ~CCredentials() override;

    // ---- pooling ----
    /// An object from the pool, with no reference taken.
    static CCredentials* newInstance();
    /// An object from the pool carrying one reference for the caller.
    static CCredentials* allocate();
    static CCredentials* allocateCopy(const CCredentials& other);
    /// Drops the reference taken by allocate().
    static void deallocate(CCredentials* credentials);
    static tovan::ObjectPool<CCredentials>& pool();
    void deleteInstance() override;
    void onActivate() override;
    /// Empties each string; storage above PooledCapacityLimit is freed.
    void onDeactivate() override;

    void Clear();

    // ---- iSession ----
    tovan::WString GetUsername() const override { return strings_[User]; }
    /// Always raises Exception "Not supported in CCredentials.".
    tovan::WString GetSessionString() const override;
    void SetCredentialsString(const tovan::WString& text, tovan::WString* error = nullptr) override;
    bool Deserialize(const tovan::WString& text, tovan::WString& error) override;
    tovan::DecryptStatusCode DecryptBody(bool throwOnError) override;
    void GenerateCredentialsString(tovan::WString& out) override;
    bool HasPermission(const tovan::WString& name) const override { return roles_.HasPermission(name); }
    std::vector<tovan::WString> GetPermissions() const override { return roles_.GetPermissions(); }
    bool IsMemberOfGroup(const tovan::WString& group) const override { return roles_.IsMemberOfGroup(group); }
    std::vector<tovan::WString> GetGroups() const override { return roles_.GetGroups(); }
    bool IsServiceAccountCredential() const override { return (bodyFlags_ & 0x20000) != 0; }

    // ---- strings (each setter refuses more than 255 units with
    //      BadParameterException "String too long"; null empties the field) ----
    void SetUsername(const tovan::WString& s) { setString(User, s, "SetUsername"); }
    tovan::WString GetPassword() const { return strings_[Password]; }
    void SetPassword(const tovan::WString& s) { setString(Password, s, "SetPassword"); }
    tovan::WString GetClientDescription() const { return strings_[ClientDescription]; }
    void SetClientDescription(const tovan::WString& s) { setString(ClientDescription, s, "SetClientDescription"); }
    tovan::WString GetClientMachineName() const { return strings_[ClientMachineName]; }
    void SetClientMachineName(const tovan::WString& s) { setString(ClientMachineName, s, "SetClientMachineName"); }
    tovan::WString GetClientVersion() const { return strings_[ClientVersion]; }
    void SetClientVersion(const tovan::WString& s) { setString(ClientVersion, s, "SetClientVersion"); }
    tovan::WString GetDomain() const { return strings_[Domain]; }
    void SetDomain(const tovan::WString& s) { setString(Domain, s, "SetDomain"); }
    tovan::WString GetXMLDBEndPoint() const { return strings_[XMLDBEndPoint]; }
    void SetXMLDBEndPoint(const tovan::WString& s) { setString(XMLDBEndPoint, s, "SetXMLDBEndPoint"); }
    tovan::WString GetLogEndPoint() const { return strings_[LogEndPoint]; }
    void SetLogEndPoint(const tovan::WString& s) { setString(LogEndPoint, s, "SetLogEndPoint"); }
    tovan::WString GetLocatorEndPoint() const { return strings_[LocatorEndPoint]; }
    void SetLocatorEndPoint(const tovan::WString& s) { setString(LocatorEndPoint, s, "SetLocatorEndPoint"); }
    tovan::WString GetAccessToken() const { return strings_[AccessToken]; }
    void SetAccessToken(const tovan::WString& s) { setString(AccessToken, s, "SetAccessToken"); }
    tovan::WString GetRefreshToken() const { return strings_[RefreshToken]; }
    void SetRefreshToken(const tovan::WString& s) { setString(RefreshToken, s, "SetRefreshToken"); }

    // ---- numbers ----
    int64_t GetLoginTime() const { return loginTime_; }
    void SetLoginTime(int64_t t) { loginTime_ = t; }
    /// IPv4 addresses as the 4 bytes read little-endian.
    uint32_t GetClientIP() const { return clientIP_; }
    void SetClientIP(uint32_t ip) { clientIP_ = ip; }
    uint32_t GetServerIP() const { return serverIP_; }
    void SetServerIP(uint32_t ip) { serverIP_ = ip; }
    uint32_t GetHeaderFlags() const { return headerFlags_; }
    void SetHeaderFlags(uint32_t f) { headerFlags_ = f; }
    uint32_t GetBodyFlags() const { return bodyFlags_; }
    void SetBodyFlags(uint32_t f) { bodyFlags_ = f; }
    uint8_t GetFormatVersionNumber() const { return version_; }
    void SetFormatVersionNumber(uint8_t v) { version_ = v; }
    int16_t GetEncryptedSectionLength() const { return encryptedLength_; }
    void SetEncryptedSectionLength(int16_t n) { encryptedLength_ = n; }
    uint32_t GetQuickChecksum() const { return checksum_; }
    void SetQuickChecksum(uint32_t c) { checksum_ = c; }
    /// The salt as stored (0 until drawn).
    uint8_t GetRandomNumberRaw() const { return random_; }
    void SetRandomNumber(uint8_t r) { random_ = r; }
    /// The salt, drawn first when it is still 0: under a process-wide lock, from
    /// a generator seeded once with the time XOR the process id; never 0.
    uint8_t GetRandomNumber();

    // ---- roles ----
    CAuthRoles& GetRoles() { return roles_; }
    const CAuthRoles& GetRoles() const { return roles_; }
    void SetRoles(const CAuthRoles& roles) { roles_ = roles; }
    void SetRolesCache(CAuthRolesCache* cache) { roles_.SetRolesCache(cache); }

    // ---- body flags ----
    bool SkipReauth() const { return bodyFlags_ & 0x1; }
    bool IsCustomAuth() const { return bodyFlags_ & 0x2; }
    bool IsSPNEGO() const { return bodyFlags_ & 0x4; }
    bool SPNEGODelegation() const { return (bodyFlags_ & 0x40004) == 0x40004; }
    bool IsPassport() const { return (bodyFlags_ & 0x30) == 0x20; }
    bool IsAnonymous() const { return bodyFlags_ & 0x800; }
    bool IsParallelSubprotocol() const { return bodyFlags_ & 0x1000; }
    bool IsPlatformSSO() const { return bodyFlags_ & 0x2000; }
    bool IsActiveAdmin() const { return bodyFlags_ & 0x4000; }
    bool IsImpersonation() const { return bodyFlags_ & 0x8000; }
    /// Bits 5 to 10 mean an authentication mode when bit 4 is clear and a
    /// client API kind when it is set; the two readings overlap on purpose.
    bool IsDeadlock() const;
    /// NVK_APITag_* for the API kind, or null.
    tovan::WString GetClientAPI() const;
    /// Sets or clears bit 14, but only for a holder of the administrator role
    /// (current or legacy name); otherwise does nothing.
    void SetIsActiveAdmin(bool active);

    bool IsSessionKey() const { return readOnly_; }

    // ---- checks and derived texts ----
    /// 32 plus every byte of the enciphered section, unsigned, modulo 2^32.
    uint32_t CalcChecksum() const;
    /// False when the stored section length is negative or runs past the
    /// buffer, else whether the stored checksum matches.
    bool VerifyChecksum() const;
    /// user + domain + "|s" + server IP + "|" + client IP + "|" + ("S" ["D"])
    /// + "|" + (suffix, or the salt in decimal when the suffix is empty).
    void GetConversationKey(tovan::WString& out, const tovan::WString& suffix);
    /// SHA-256 (hash selector 3) over the user name, "\\" and the domain when
    /// there is one (UTF-8), the salt byte, both addresses and the SPNEGO bits
    /// of the body flags (little-endian); lower-case hexadecimal.
    void GetConversationHash(tovan::WString& out);

    /// The encoded bytes: after Deserialize the header and enciphered section,
    /// after DecryptBody the header and clear body.
    const std::vector<uint8_t>& GetBuffer() const { return buffer_; }

    static tovan::Object* createObject() { return newInstance(); }

protected:
    /// The built-in secret; a subclass may supply its own.
    std::string GetEncryptionSecret() const override;

private:
    enum StringSlot {
        User,
        Password,
        ClientDescription,
        ClientMachineName,
        ClientVersion,
        Domain,
        XMLDBEndPoint,
        LogEndPoint,
        LocatorEndPoint,
        AccessToken,
        RefreshToken,
        StringCount
    };
    static constexpr int BodyStringCount = 9;

    struct Body;
    void setString(StringSlot slot, const tovan::WString& value, const char* operation);
    const tovan::vcBlowFish& cipher() const;
    void assignFields(const CCredentials& other);
    /// DecryptBody without the reporting: the status, and the reason in
    /// `message` when it is not DecryptSuccess.
    tovan::DecryptStatusCode decryptBody(tovan::WString& message);

    std::vector<uint8_t> buffer_;
    uint8_t version_ = CurrentFormatVersion;
    uint8_t random_ = 0;
    int16_t encryptedLength_ = 0;
    uint32_t checksum_ = 0;
    uint32_t headerFlags_ = 0;
    uint32_t bodyFlags_ = 0;
    uint32_t serverIP_ = 0;
    uint32_t clientIP_ = 0;
    int64_t loginTime_ = 0;
    tovan::WString strings_[StringCount];
    CAuthRoles roles_;
    bool readOnly_ = false;
    std::string scratch_;
    bool pooled_ = false;
    mutable std::shared_ptr<const tovan::vcBlowFish> cipher_;
    mutable std::string cipherSecret_;
};

}  // namespace nvk
