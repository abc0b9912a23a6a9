#pragma once
// Texts shared with the server: names of its configuration objects, of the
// authentication methods and requirement kinds, of the built-in roles and of
// the job-sharing properties.
#include "nvk/platform/String.h"

namespace nvk {

// Server configuration objects.
inline constexpr tovan::wchar NVK_AuthConfig[] = u"AuthConfig";
inline constexpr tovan::wchar NVK_AuthUsers[] = u"AuthUsers";
inline constexpr tovan::wchar NVK_AuthAdmins[] = u"AuthAdmins";
inline constexpr tovan::wchar NVK_AuthLites[] = u"AuthLites";
inline constexpr tovan::wchar NVK_AuthzRegistryObjectName[] = u"AuthzRegistry";
inline constexpr tovan::wchar NVK_AuthzLookup[] = u"DeprecatedAuthzLookup";
inline constexpr tovan::wchar NVK_AuthRoles[] = u"AuthzAssignments";

// Requirement kinds of custom authentication.
inline constexpr tovan::wchar NVK_Auth_Custom_Requirements_UsernamePassword[] = u"UsernamePassword";
inline constexpr tovan::wchar NVK_Auth_Custom_Requirements_Headers[] = u"Headers";
inline constexpr tovan::wchar NVK_Auth_Custom_Requirements_Body[] = u"Body";
inline constexpr tovan::wchar NVK_Auth_Custom_Requirements_Unknown[] = u"Unknown";

// Authentication method names, as the server's configuration spells them.
// They are compared without regard to case when read back.
inline constexpr tovan::wchar NVK_Auth_None[] = u"None";
inline constexpr tovan::wchar NVK_Auth_File[] = u"File";
inline constexpr tovan::wchar NVK_Auth_Local[] = u"Local";
inline constexpr tovan::wchar NVK_Auth_Domain[] = u"Domain";
inline constexpr tovan::wchar NVK_Auth_User[] = u"User";
inline constexpr tovan::wchar NVK_Auth_Other[] = u"Other";
inline constexpr tovan::wchar NVK_Auth_Custom[] = u"Custom";
inline constexpr tovan::wchar NVK_Auth_Saml[] = u"SAML";
inline constexpr tovan::wchar NVK_Auth_Passport[] = u"Passport";
/// Groups kept in the server's own user file: read back as the file method.
inline constexpr tovan::wchar NVK_Auth_TFGroup[] = u"Group";

// Built-in roles.
inline constexpr tovan::wchar NVK_TFClientAdminRole[] = u"Client Administrator";
/// The administrator role's name before it was renamed; still accepted.
inline constexpr tovan::wchar NVK_LegacyTFClientAdminRole[] = u"Administrator";
inline constexpr tovan::wchar NVK_TFClientUserRole[] = u"Client User";
inline constexpr tovan::wchar NVK_AdminPortalUserRole[] = u"Admin Portal User";
inline constexpr tovan::wchar NVK_RunProtocolRole[] = u"Protocol Runner";
inline constexpr tovan::wchar NVK_WebFormRole[] = u"Web Form User";

// Job-sharing properties on a job's property collection: parallel arrays of
// names, entry types (NVK_Auth_User or NVK_Auth_File) and include flags.
inline constexpr tovan::wchar NVK_JobInfoAccessNames[] = u"JobAccessNames";
inline constexpr tovan::wchar NVK_JobInfoAccessTypes[] = u"JobAccessTypes";
inline constexpr tovan::wchar NVK_JobInfoAccessIncludes[] = u"JobAccessIncludes";

}  // namespace nvk
