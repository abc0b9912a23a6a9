#include <gtest/gtest.h>

#include "nvk/platform/Exception.h"
#include "nvk/services/CAuthRoles.h"
#include "nvk/services/CAuthUtils.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace tovan;
using Authentication::METHOD;
using nvktest::utf8;

namespace {

const char* const NoCache = "The authorization role lookup cache has not been initialized";

std::string notFound(const char* role) {
    return std::string("Role ") + role +
           " not found in Tessaflow configuration.  Please have your administrator check that all packages are "
           "installed correctly.";
}

// Bits: 0 Client User, 2 Protocol Runner, 3 Group:Chemists, 5 Viewer, 9 Group:Biologists.
Ptr<CAuthRolesCache> makeTable() {
    Ptr<CAuthRolesCache> t(new CAuthRolesCache());
    t->SetRole(0, NVK_TFClientUserRole);
    t->SetRole(2, NVK_RunProtocolRole);
    t->SetRole(3, u"Group:Chemists");
    t->SetRole(5, u"Viewer");
    t->SetRole(9, u"Group:Biologists");
    return t;
}

std::vector<WString> names(std::initializer_list<const char16_t*> list) {
    std::vector<WString> out;
    for (auto n : list) out.emplace_back(n);
    return out;
}

}  // namespace

TEST(AuthRolesCache, LooksUpNamesWithoutCaseAndThroughLegacyNames) {
    Ptr<CAuthRolesCache> t = makeTable();
    EXPECT_EQ(t->GetBit(u"viewer"), 5u);
    EXPECT_EQ(t->GetBit(u"Editor"), CAuthRolesCache::NoBit);
    EXPECT_EQ(t->GetBit(u"run protocol"), 2u);  // legacy permission name
    EXPECT_EQ(t->GetBit(u"TFClient"), 0u);
    EXPECT_TRUE(t->isRoleDefined(u"webform") == false);
    EXPECT_EQ(t->GetRole(9), WString(u"Group:Biologists"));
    EXPECT_TRUE(t->GetRole(1).isNull());
    EXPECT_EQ(t->getSize(), 10u);

    // Renaming a bit and moving a name keep both maps each other's inverse.
    t->SetRole(5, u"Reader");
    EXPECT_EQ(t->GetBit(u"Viewer"), CAuthRolesCache::NoBit);
    t->SetRole(1, u"Group:Biologists");
    EXPECT_TRUE(t->GetRole(9).isNull());
    EXPECT_EQ(t->getSize(), 6u);
    EXPECT_THROW_MSG(t->SetRole(0xFFFFFFFF, u"x"), BadParameterException, "Bit 0xFFFFFFFF cannot name a role");

    CAuthRolesCache::BitMap copy = t->GetRoleBitValues();
    Ptr<CAuthRolesCache> other(new CAuthRolesCache());
    other->SetRoleBitValues(copy);
    EXPECT_EQ(other->GetBit(u"reader"), 5u);
    EXPECT_EQ(other->getSize(), 6u);
    copy.put(CAuthRolesCache::NoBit, WString(u"bad"));
    EXPECT_THROW_MSG(other->SetRoleBitValues(copy), BadParameterException, "Bit 0xFFFFFFFF cannot name a role");
    EXPECT_EQ(other->getSize(), 6u);
    other->Clear();
    EXPECT_EQ(other->getSize(), 0u);
    EXPECT_EQ(other->GetBit(u"reader"), CAuthRolesCache::NoBit);
}

TEST(AuthRoles, WithoutCacheOnlyClearAndBindingWork) {
    CAuthRoles roles;
    EXPECT_THROW_MSG(roles.HasPermission(u"Viewer"), Exception, NoCache);
    EXPECT_THROW_MSG(roles.GetRoles(), Exception, NoCache);
    EXPECT_THROW_MSG(roles.GetGroups(), Exception, NoCache);
    EXPECT_THROW_MSG(roles.IsMemberOfGroup(u"Chemists"), Exception, NoCache);
    EXPECT_THROW_MSG(roles.SetRoles(names({u"Viewer"})), Exception, NoCache);
    EXPECT_THROW_MSG(roles.AddToRole(u"Viewer"), Exception, NoCache);
    roles.Clear();
    roles.SetRolesCache(makeTable().get());
    roles.AddToRole(u"viewer");
    EXPECT_TRUE(roles.HasPermission(u"Viewer"));
}

TEST(AuthRoles, SetAddRemoveAndFailuresChangeNothing) {
    CAuthRoles roles(makeTable().get());
    roles.SetRoles(names({u"viewer", u"Group:Chemists"}));
    EXPECT_EQ(roles._GetRawRoleBits().size(), 10u);
    EXPECT_EQ(roles.GetRoles(), names({u"Group:Chemists", u"Viewer"}));  // in bit order, names as stored
    EXPECT_THROW_MSG(roles.SetRoles(names({u"Viewer", u"Editor"})), Exception, notFound("Editor"));
    EXPECT_THROW_MSG(roles.AddToRole(u"Editor"), Exception, notFound("Editor"));
    EXPECT_THROW_MSG(roles.RemoveFromRole(u"Editor"), Exception, notFound("Editor"));
    EXPECT_EQ(roles.GetRoles(), names({u"Group:Chemists", u"Viewer"}));

    roles.RemoveFromRole(u"VIEWER");
    EXPECT_FALSE(roles.HasPermission(u"Viewer"));
    roles._GetRawRoleBits().resize(3);
    roles.AddToRole(u"Group:Biologists");  // grows to bit + 1
    EXPECT_EQ(roles._GetRawRoleBits().size(), 10u);
    EXPECT_EQ(roles.GetGroups(), names({u"Group:Biologists"}));
}

TEST(AuthRoles, PermissionsGroupsAndLegacyNames) {
    Ptr<CAuthRolesCache> table = makeTable();
    CAuthRoles roles(table.get());
    roles.SetRoles(names({NVK_RunProtocolRole, u"Viewer", u"Group:Chemists", u"Group:Biologists"}));
    EXPECT_TRUE(roles.HasPermission(u"run protocol"));  // answered by the bit of NVK_RunProtocolRole
    EXPECT_FALSE(roles.HasPermission(u"TFClient"));     // maps to bit 0, not held
    EXPECT_FALSE(roles.HasPermission(u"Editor"));
    EXPECT_EQ(roles.GetPermissions(), names({NVK_RunProtocolRole, u"Viewer"}));
    EXPECT_EQ(roles.GetGroups(), names({u"Group:Chemists", u"Group:Biologists"}));
    EXPECT_TRUE(roles.IsMemberOfGroup(u"chemists"));
    EXPECT_FALSE(roles.IsMemberOfGroup(u"Physicists"));
    // The prefix folds like the rest of a role name: a table that spells it "GROUP:" or
    // "group:" still names groups, listed as stored and found through IsMemberOfGroup.
    table->SetRole(11, u"GROUP:Physicists");
    table->SetRole(12, u"group:Geologists");
    table->SetRole(13, u"Groups");  // no colon: a permission
    roles.AddToRole(u"group:physicists");
    roles.AddToRole(u"Group:Geologists");
    roles.AddToRole(u"groups");
    EXPECT_EQ(roles.GetGroups(),
              names({u"Group:Chemists", u"Group:Biologists", u"GROUP:Physicists", u"group:Geologists"}));
    EXPECT_EQ(roles.GetPermissions(), names({NVK_RunProtocolRole, u"Viewer", u"Groups"}));
    EXPECT_TRUE(roles.IsMemberOfGroup(u"Physicists"));
    for (const char16_t* role : {u"GROUP:Physicists", u"group:Geologists", u"Groups"}) roles.RemoveFromRole(role);

    // A bit beyond the bitset's size reads as not held.
    table->SetRole(40, u"Late");
    EXPECT_FALSE(roles.HasPermission(u"Late"));
    roles._GetRawRoleBits().resize(4);
    EXPECT_FALSE(roles.HasPermission(u"Viewer"));
    EXPECT_FALSE(roles.IsMemberOfGroup(u"Biologists"));

    CAuthRoles copy;
    copy = roles;
    EXPECT_EQ(copy.GetRolesCache(), table.get());
    EXPECT_EQ(table->getRefCount(), 3);
    EXPECT_TRUE(copy.HasPermission(NVK_RunProtocolRole));
    CAuthRoles other(makeTable().get());
    copy.AssignRoles(other);
    EXPECT_EQ(table->getRefCount(), 2);
    EXPECT_TRUE(copy.GetRoles().empty());
}

TEST(AuthUtils, MethodTextsBothWaysWithTheKeptQuirks) {
    bool negated = true;
    EXPECT_EQ(CAuthUtils::decodeMethodString(WString(), &negated), Authentication::METHOD_NONE);
    EXPECT_FALSE(negated);
    EXPECT_EQ(CAuthUtils::decodeMethodString(u"", &negated), Authentication::METHOD_NONE);
    EXPECT_EQ(CAuthUtils::decodeMethodString(u"~local", &negated), Authentication::METHOD_LOCAL);
    EXPECT_TRUE(negated);
    EXPECT_EQ(CAuthUtils::decodeMethodString(u"DOMAIN", &negated), Authentication::METHOD_DOMAIN);
    EXPECT_FALSE(negated);
    EXPECT_EQ(CAuthUtils::decodeMethodString(NVK_Auth_TFGroup), Authentication::METHOD_FILE);
    EXPECT_EQ(CAuthUtils::decodeMethodString(u"~"), Authentication::METHOD_NONE);
    for (int m = 0; m <= 8; ++m) {
        WString text = CAuthUtils::convertMethodToString(METHOD(m));
        int back = CAuthUtils::decodeMethodString(text);
        EXPECT_EQ(back, m == Authentication::METHOD_OTHER ? 0 : m) << utf8(text);
    }
    EXPECT_THROW_MSG(CAuthUtils::convertMethodToString(METHOD(9)), BadParameterException,
                     "Unknown authentication method 9");

    EXPECT_EQ(CAuthUtils::decodeCustomAuthRequirementsString(u"headers"), 2);
    EXPECT_EQ(CAuthUtils::decodeCustomAuthRequirementsString(u"Cookies"), 0);
    EXPECT_EQ(CAuthUtils::convertCustomAuthRequirementsToString(1), WString(u"UsernamePassword"));
    EXPECT_EQ(CAuthUtils::convertCustomAuthRequirementsToString(3), WString(u"Body"));
    EXPECT_EQ(CAuthUtils::convertCustomAuthRequirementsToString(0), WString(u"Unknown"));
}

TEST(AuthUtils, UserNamesSplitAtTheRightSeparator) {
    struct Case {
        const char16_t *given, *user, *domain;
    };
    WString user, domain(u"old");
    // A backslash splits, a slash does not; without a split the domain is left as it was.
    for (const Case& c : {Case{u"LAB\\alice", u"alice", u"LAB"}, Case{u"a/b\\carol", u"carol", u"a/b"},
                          Case{u"plain", u"plain", u"a/b"}}) {
        user = c.given;
        EXPECT_EQ(CAuthUtils::ExtractDomainFromUsername(user, domain), c.user != std::u16string_view(c.given));
        EXPECT_EQ(user, WString(c.user));
        EXPECT_EQ(domain, WString(c.domain));
    }
    WString address;
    user = u"bob@example.org";
    EXPECT_TRUE(CAuthUtils::UsernameIsEmail(user, domain, &address));
    EXPECT_EQ(user, WString(u"bob"));
    EXPECT_EQ(domain, WString(u"example.org"));
    EXPECT_EQ(address, WString(u"bob@example.org"));
    user = u"@example.org";
    EXPECT_FALSE(CAuthUtils::UsernameIsEmail(user, domain));
    EXPECT_EQ(user, WString(u"@example.org"));
}

TEST(AuthUtils, PermissionNameTable) {
    struct Row {
        const char16_t* given;
        const char16_t* result;
        bool found, second;
    };
    const Row rows[] = {
        {NVK_LegacyTFClientAdminRole, NVK_TFClientAdminRole, true, false},
        {u"administrator", NVK_TFClientAdminRole, true, false},
        {u"tfclient", NVK_TFClientUserRole, true, true},
        {u"ADMIN PORTAL", NVK_AdminPortalUserRole, true, false},
        {u"Run Protocol", NVK_RunProtocolRole, true, true},
        {u"webform", NVK_WebFormRole, true, true},
        {u"Viewer", u"Viewer", false, true},  // second flag left as it was
    };
    for (const Row& r : rows) {
        bool found = false, second = true;
        EXPECT_EQ(CAuthUtils::mapPermissionName(r.given, found, second), WString(r.result)) << utf8(r.given);
        EXPECT_EQ(found, r.found);
        EXPECT_EQ(second, r.second);
    }
    bool found = true, second = false;
    EXPECT_TRUE(CAuthUtils::mapPermissionName(WString(), found, second).isNull());
    EXPECT_FALSE(found);
}

TEST(AuthUtils, PasswordsRoundTripAndBadTextIsNamed) {
    WString stored, back(u"unchanged");
    CAuthUtils::EncryptPassword(u"s\u00e9cret \U0001F511", stored, u"site secret");
    CAuthUtils::DecryptPassword(stored, back, u"site secret");
    EXPECT_EQ(back, WString(u"s\u00e9cret \U0001F511"));
    back = u"unchanged";
    EXPECT_THROW_MSG(CAuthUtils::DecryptPassword(u"not base64!", back, u"site secret"), Exception, "Error in Decode");
    EXPECT_THROW_MSG(CAuthUtils::DecryptPassword(u"QUJDRA==", back, u"site secret"), Exception, "Error in Decrypt");
    EXPECT_EQ(back, WString(u"unchanged"));
}

namespace {
struct SubstituteProbe : CAuthRolesCache {
    using CAuthRolesCache::FindSubstituteRole;
};
}  // namespace

TEST(AuthRolesCache, SubstituteIsTheNameOrItsMappedRole) {
    Ptr<SubstituteProbe> t(new SubstituteProbe());
    t->SetRole(0, NVK_WebFormRole);
    t->SetRole(1, u"Viewer");
    WString sub(u"untouched");
    EXPECT_TRUE(t->FindSubstituteRole(u"viewer", sub));
    EXPECT_EQ(sub, WString(u"viewer"));
    EXPECT_TRUE(t->FindSubstituteRole(u"WEBFORM", sub));
    EXPECT_EQ(sub, WString(NVK_WebFormRole));
    sub = u"untouched";
    EXPECT_FALSE(t->FindSubstituteRole(u"Run Protocol", sub));  // maps, but the role is not in the table
    EXPECT_FALSE(t->FindSubstituteRole(u"Editor", sub));
    EXPECT_EQ(sub, WString(u"untouched"));
}
