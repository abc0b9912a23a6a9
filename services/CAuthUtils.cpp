#include "nvk/services/CAuthUtils.h"

#include "nvk/platform/Base64.h"
#include "nvk/platform/BlowFish.h"
#include "nvk/platform/Exception.h"

using namespace tovan;

namespace nvk {

using Authentication::METHOD;

METHOD CAuthUtils::decodeMethodString(const WString& text, bool* negated) {
    if (negated) *negated = false;
    std::u16string_view s = text.view();
    if (s.empty()) return Authentication::METHOD_NONE;
    if (s.front() == u'~') {
        if (negated) *negated = true;
        s.remove_prefix(1);
    }
    // The order matters only for readers of this table; the names are distinct.
    // METHOD_OTHER has no entry: its name is written but deliberately never read.
    static const std::pair<const wchar*, METHOD> names[] = {
        {NVK_Auth_Local, Authentication::METHOD_LOCAL},   {NVK_Auth_Domain, Authentication::METHOD_DOMAIN},
        {NVK_Auth_File, Authentication::METHOD_FILE},     {NVK_Auth_TFGroup, Authentication::METHOD_FILE},
        {NVK_Auth_User, Authentication::METHOD_USER},     {NVK_Auth_Custom, Authentication::METHOD_CUSTOM},
        {NVK_Auth_Saml, Authentication::METHOD_SAML},     {NVK_Auth_Passport, Authentication::METHOD_PASSPORT},
    };
    for (const auto& [name, method] : names)
        if (equalsNoCase(s, name)) return method;
    return Authentication::METHOD_NONE;
}

WString CAuthUtils::convertMethodToString(METHOD method) {
    static const wchar* const names[] = {NVK_Auth_None,  NVK_Auth_File,   NVK_Auth_Local,
                                         NVK_Auth_Domain, NVK_Auth_User,  NVK_Auth_Other,
                                         NVK_Auth_Custom, NVK_Auth_Saml,  NVK_Auth_Passport};
    int m = int(method);
    if (m < 0 || m >= int(std::size(names)))
        throw BadParameterException("CAuthUtils", "convertMethodToString", u"Unknown authentication method %d", m);
    return WString(names[m]);
}

int CAuthUtils::decodeCustomAuthRequirementsString(const WString& text) {
    if (equalsNoCase(text.view(), NVK_Auth_Custom_Requirements_UsernamePassword))
        return Authentication::CUSTOM_AUTH_USERNAME_PASSWORD;
    if (equalsNoCase(text.view(), NVK_Auth_Custom_Requirements_Headers)) return Authentication::CUSTOM_AUTH_HEADERS;
    if (equalsNoCase(text.view(), NVK_Auth_Custom_Requirements_Body)) return Authentication::CUSTOM_AUTH_BODY;
    return Authentication::CUSTOM_AUTH_NONE;
}

WString CAuthUtils::convertCustomAuthRequirementsToString(int requirements) {
    switch (requirements) {
        case Authentication::CUSTOM_AUTH_USERNAME_PASSWORD: return WString(NVK_Auth_Custom_Requirements_UsernamePassword);
        case Authentication::CUSTOM_AUTH_HEADERS: return WString(NVK_Auth_Custom_Requirements_Headers);
        case Authentication::CUSTOM_AUTH_BODY: return WString(NVK_Auth_Custom_Requirements_Body);
        default: return WString(NVK_Auth_Custom_Requirements_Unknown);
    }
}

bool CAuthUtils::ExtractDomainFromUsername(WString& username, WString& domain) {
    std::u16string_view s = username.view();
    size_t cut = s.find_last_of(u"/\\");
    if (cut == std::u16string_view::npos) return false;
    WString user(s.substr(cut + 1));
    domain = WString(s.substr(0, cut));
    username = std::move(user);
    return true;
}

bool CAuthUtils::UsernameIsEmail(WString& username, WString& domain, WString* address) {
    std::u16string_view s = username.view();
    size_t at = s.find(u'@');
    if (at == std::u16string_view::npos || at == 0) return false;
    if (address) *address = username;
    domain = WString(s.substr(at + 1));
    username = WString(username.view().substr(0, at));
    return true;
}

WString CAuthUtils::mapPermissionName(const WString& name, bool& found, bool& second) {
    found = true;
    if (namesEqual(name, WString(NVK_LegacyTFClientAdminRole))) {
        second = false;
        return WString(NVK_TFClientAdminRole);
    }
    if (!name.isNull()) {
        if (equalsNoCase(name.view(), u"TFClient")) {
            second = true;
            return WString(NVK_TFClientUserRole);
        }
        if (equalsNoCase(name.view(), u"Admin Portal")) {
            second = false;
            return WString(NVK_AdminPortalUserRole);
        }
        if (equalsNoCase(name.view(), u"Run Protocol")) {
            second = true;
            return WString(NVK_RunProtocolRole);
        }
        if (equalsNoCase(name.view(), u"WebForm")) {
            second = true;
            return WString(NVK_WebFormRole);
        }
    }
    found = false;
    return name;
}

void CAuthUtils::EncryptPassword(const WString& password, WString& out, const WString& secret) {
    vcBlowFish cipher(toNarrow(secret));
    std::string clear = toNarrow(password);
    std::vector<uint8_t> enc;
    cipher.Encrypt(reinterpret_cast<const uint8_t*>(clear.data()), clear.size(), enc);
    out = WString(util::Base64::EncodeWide(enc.data(), enc.size()));
}

void CAuthUtils::DecryptPassword(const WString& stored, WString& out, const WString& secret) {
    vcBlowFish cipher(toNarrow(secret));
    std::vector<uint8_t> enc, clear;
    try {
        util::Base64::Decode(stored.view(), enc);
    } catch (const Exception&) {
        throw Exception("CAuthUtils", "DecryptPassword", u"Error in Decode");
    }
    if (!cipher.Decrypt(enc.data(), enc.size(), clear))
        throw Exception("CAuthUtils", "DecryptPassword", u"Error in Decrypt");
    out = toWide(std::string_view(reinterpret_cast<const char*>(clear.data()), clear.size()));
}

}  // namespace nvk
