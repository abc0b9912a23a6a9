#pragma once
// The framework's session interfaces: a user's decoded identity (iSession)
// and the client-side session handed to callers (iClientSession).
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"

namespace tovan {

/// Outcome of deciphering a credentials body.
enum DecryptStatusCode {
    DecryptSuccess = 0,
    DecryptCipherFailed = 1,    // the cipher refused the enciphered section
    DecryptDecodeFailed = 2,    // the deciphered text was not Base64
    DecryptMalformedBody = 3,   // a field of the clear body would run past its end
};

class NVK_EXPORT iSession : public virtual CountedObject {
public:
    ~iSession() override;

    virtual WString GetUsername() const = 0;
    virtual WString GetSessionString() const = 0;
    /// Decodes `text`; on failure raises Exception with the error message,
    /// which is also left in `*error` when given.
    virtual void SetCredentialsString(const WString& text, WString* error = nullptr) = 0;
    virtual bool Deserialize(const WString& text, WString& error) = 0;
    virtual DecryptStatusCode DecryptBody(bool throwOnError) = 0;
    virtual void GenerateCredentialsString(WString& out) = 0;
    virtual bool HasPermission(const WString& name) const = 0;
    virtual std::vector<WString> GetPermissions() const = 0;
    virtual bool IsMemberOfGroup(const WString& group) const = 0;
    virtual std::vector<WString> GetGroups() const = 0;
    virtual bool IsServiceAccountCredential() const = 0;

protected:
    /// The secret of the credentials cipher, as UTF-8 bytes.
    virtual std::string GetEncryptionSecret() const = 0;
};

class NVK_EXPORT iClientSession : public virtual CountedObject {
public:
    ~iClientSession() override;

    virtual WString GetSessionKey() const = 0;
    virtual bool SetSessionKey(const WString& key, WString* error = nullptr) = 0;
    virtual WString GetUsername() const = 0;
    virtual WString GetDomain() const = 0;
    virtual WString GetXMLDBEndPoint() const = 0;
    virtual WString GetLocatorEndPoint() const = 0;
    virtual std::vector<WString> GetPermissions() const = 0;
    virtual DecryptStatusCode DecryptBody(bool throwOnError) = 0;
    virtual void GenerateCredentialsString(WString& out) = 0;
    /// `cache` is the role table the session's roles are read through (a
    /// services-layer object, hence only its framework base here).
    virtual void SetRolesCache(CountedObject* cache) = 0;
};

}  // namespace tovan
