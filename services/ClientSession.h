#pragma once
// The client-side session handed to callers: the session key text and the
// credentials decoded from it.
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/Session.h"
#include "nvk/services/CCredentials.h"

namespace nvk {

class NVK_EXPORT ClientSession : public tovan::iClientSession {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.ClientSession"
    const tovan::ClassTag& getClass() const override { return Tag; }

    ClientSession();
    /// Same as SetSessionKey(key) on an empty session.
    explicit ClientSession(const tovan::WString& key);
    ClientSession(const ClientSession& other);
    ClientSession& operator=(const ClientSession& other);
    ~ClientSession() override;

    tovan::WString GetSessionKey() const override { return key_; }
    /// Stores the key, decodes it into the credentials (raising the decoding
    /// error as Exception; the key stays stored and the credentials cleared
    /// then) and deciphers the body without raising. Returns true. `error`
    /// is not used.
    bool SetSessionKey(const tovan::WString& key, tovan::WString* error = nullptr) override;
    tovan::WString GetUsername() const override { return credentials_->GetUsername(); }
    tovan::WString GetDomain() const override { return credentials_->GetDomain(); }
    tovan::WString GetXMLDBEndPoint() const override { return credentials_->GetXMLDBEndPoint(); }
    tovan::WString GetLocatorEndPoint() const override { return credentials_->GetLocatorEndPoint(); }
    std::vector<tovan::WString> GetPermissions() const override { return credentials_->GetPermissions(); }
    /// Retired: raises Exception "THIS METHOD IS DEPRECATED".
    tovan::DecryptStatusCode DecryptBody(bool throwOnError) override;
    void GenerateCredentialsString(tovan::WString& out) override { credentials_->GenerateCredentialsString(out); }
    /// `cache` must be a CAuthRolesCache (or null); another object is a
    /// BadParameterException from getAs.
    void SetRolesCache(tovan::CountedObject* cache) override;

    CCredentials& GetCredentials() { return *credentials_; }
    const CCredentials& GetCredentials() const { return *credentials_; }

    static tovan::Object* createObject() { return new ClientSession(); }

private:
    tovan::WString key_;
    tovan::Ptr<CCredentials> credentials_;
};

}  // namespace nvk
