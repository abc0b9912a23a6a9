#pragma once
// Static helpers of authentication: method and requirement names, user-name
// parsing, legacy permission names, job sharing and stored passwords.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/services/AuthConstants.h"

namespace tovan {
class iPropertyCollection;
}

namespace nvk {

namespace Authentication {

enum METHOD {
    METHOD_NONE = 0,
    METHOD_FILE = 1,
    METHOD_LOCAL = 2,
    METHOD_DOMAIN = 3,
    METHOD_USER = 4,
    METHOD_OTHER = 5,
    METHOD_CUSTOM = 6,
    METHOD_SAML = 7,
    METHOD_PASSPORT = 8,
};

enum CustomAuthRequirements {
    CUSTOM_AUTH_NONE = 0,
    CUSTOM_AUTH_USERNAME_PASSWORD = 1,
    CUSTOM_AUTH_HEADERS = 2,
    CUSTOM_AUTH_BODY = 3,
};

}  // namespace Authentication

class NVK_EXPORT CAuthUtils {
public:
    /// A method name, compared without regard to case (A-Z). A leading "~"
    /// sets `*negated` (which is false otherwise) and is skipped. Null, empty
    /// or unknown text gives METHOD_NONE. Two quirks are kept on purpose: the
    /// name of METHOD_OTHER is written but never read back (it gives
    /// METHOD_NONE), and NVK_Auth_TFGroup reads as METHOD_FILE.
    static Authentication::METHOD decodeMethodString(const tovan::WString& text, bool* negated = nullptr);
    /// The name of a method; a value outside 0 to 8 is a BadParameterException
    /// "Unknown authentication method %d".
    static tovan::WString convertMethodToString(Authentication::METHOD method);

    /// "UsernamePassword" 1, "Headers" 2, "Body" 3 (without regard to case);
    /// anything else 0.
    static int decodeCustomAuthRequirementsString(const tovan::WString& text);
    /// The name of a requirement kind; any other value gives "Unknown".
    static tovan::WString convertCustomAuthRequirementsToString(int requirements);

    /// "DOMAIN\\user" or "domain/user": splits at the last "/" or "\\", giving
    /// the part before it to `domain` and keeping the part after it in
    /// `username`. Returns false, changing nothing, when there is neither.
    static bool ExtractDomainFromUsername(tovan::WString& username, tovan::WString& domain);
    /// "user@example.org": when the first "@" has at least one character
    /// before it, `domain` receives the text after it, `username` is cut at it
    /// and `address` (when given) receives the whole text as it was. Returns
    /// false, changing nothing, otherwise.
    static bool UsernameIsEmail(tovan::WString& username, tovan::WString& domain, tovan::WString* address = nullptr);

    /// Maps a legacy permission name to the role that replaced it; `found` is
    /// false (and the name comes back as given) when it is not one of them.
    /// `second` tells whether the name also granted ordinary client use; it is
    /// left alone for an unmapped name.
    static tovan::WString mapPermissionName(const tovan::WString& name, bool& found, bool& second);

    /// Stores who may see a job: NVK_JobInfoAccessNames (strings),
    /// NVK_JobInfoAccessTypes (strings: NVK_Auth_User for users, NVK_Auth_File
    /// for groups) and NVK_JobInfoAccessIncludes (booleans, all true), users
    /// first. Existing properties of those names are replaced.
    static void SetJobSharingProps(const std::vector<tovan::WString>& users, const std::vector<tovan::WString>& groups,
                                   tovan::iPropertyCollection& props);
    /// Reads them back: an entry typed NVK_Auth_User (without regard to case)
    /// is a user, any other a group; an entry whose include flag is false is
    /// skipped. Missing properties give empty lists; arrays of different
    /// lengths are read up to the shortest.
    static void GetJobSharingProps(std::vector<tovan::WString>& users, std::vector<tovan::WString>& groups,
                                   tovan::iPropertyCollection& props);

    /// A password as storable text: the framework cipher under `secret` over
    /// its UTF-8 bytes, then Base64.
    static void EncryptPassword(const tovan::WString& password, tovan::WString& out, const tovan::WString& secret);
    /// The reverse; Exception "Error in Decode" when the text is not Base64,
    /// "Error in Decrypt" when the cipher refuses it. `out` is unchanged then.
    static void DecryptPassword(const tovan::WString& stored, tovan::WString& out, const tovan::WString& secret);
};

}  // namespace nvk
