#include "nvk/services/CAuthRoles.h"

#include "nvk/platform/Exception.h"
#include "nvk/platform/Pool.h"
#include "nvk/services/CAuthUtils.h"

using namespace tovan;

namespace nvk {

namespace {

LeakDetector& cacheDetector() {
    static LeakDetector d("CAuthRolesCache");
    return d;
}
LeakDetector& rolesDetector() {
    static LeakDetector d("CAuthRoles");
    return d;
}

const ClassRegistration cacheRegistration("Norvatek.data.CAuthRolesCache", &CAuthRolesCache::createObject);
const ClassRegistration rolesRegistration("Norvatek.data.AuthRoles", &CAuthRoles::createObject);

/// Whether a role names a group: it begins with "Group:", folded like every role name.
bool isGroup(const WString& name) {
    std::u16string_view prefix = CAuthRoles::GroupRoleTag;
    if (name.length() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (foldUnit(name.view()[i]) != foldUnit(prefix[i])) return false;
    return true;
}

}  // namespace

// ---- CAuthRolesCache --------------------------------------------------------

const ClassTag CAuthRolesCache::Tag("Norvatek.data.CAuthRolesCache");

CAuthRolesCache::CAuthRolesCache() { cacheDetector().AddToLeakDetector(); }
CAuthRolesCache::~CAuthRolesCache() { cacheDetector().RemoveFromLeakDetector(); }

void CAuthRolesCache::SetRole(uint32_t bit, const WString& name) {
    if (bit == NoBit) throw BadParameterException("CAuthRolesCache", "SetRole", u"Bit 0x%X cannot name a role", bit);
    bool moved = false;
    if (const WString* old = bits_.find(bit)) {
        const uint32_t* oldBit = names_.find(*old);
        if (oldBit && *oldBit == bit) names_.remove(WString(*old));
    }
    if (const uint32_t* oldBit = names_.find(name)) {
        moved = *oldBit != bit;
        bits_.remove(*oldBit);
    }
    bits_.put(bit, name);
    names_.put(name, bit);
    if (moved) {
        rebuildIndex();  // the old bit may have been the highest
    } else if (bit >= size_) {
        size_ = size_t(bit) + 1;
    }
}

WString CAuthRolesCache::GetRole(uint32_t bit) const {
    const WString* name = bits_.find(bit);
    return name ? *name : WString();
}

uint32_t CAuthRolesCache::GetBit(const WString& name) const {
    if (const uint32_t* bit = names_.find(name)) return *bit;
    bool found = false, second = false;
    WString mapped = CAuthUtils::mapPermissionName(name, found, second);
    if (found)
        if (const uint32_t* bit = names_.find(mapped)) return *bit;
    return NoBit;
}

bool CAuthRolesCache::FindSubstituteRole(const WString& name, WString& substitute) const {
    if (names_.contains(name)) {
        substitute = name;
        return true;
    }
    bool found = false, second = false;
    WString mapped = CAuthUtils::mapPermissionName(name, found, second);
    if (!found || !names_.contains(mapped)) return false;
    substitute = mapped;
    return true;
}

void CAuthRolesCache::Clear() {
    bits_.clear();
    names_.clear();
    size_ = 0;
}

void CAuthRolesCache::SetRoleBitValues(const BitMap& bits) {
    if (bits.contains(NoBit))
        throw BadParameterException("CAuthRolesCache", "SetRoleBitValues", u"Bit 0x%X cannot name a role", NoBit);
    BitMap copy(bits);
    bits_.swap(copy);
    rebuildIndex();
}

void CAuthRolesCache::rebuildIndex() {
    NameMap names;
    size_t size = 0;
    bits_.forEach([&](uint32_t bit, const WString& name) {
        names.put(name, bit);
        if (bit >= size) size = size_t(bit) + 1;
    });
    names_.swap(names);
    size_ = size;
}

// ---- CAuthRoles -------------------------------------------------------------

const ClassTag CAuthRoles::Tag("Norvatek.data.AuthRoles");

CAuthRoles::CAuthRoles() = default;
CAuthRoles::CAuthRoles(CAuthRolesCache* cache) : cache_(cache) {}
CAuthRoles::CAuthRoles(const CAuthRoles& other) : CountedObject(other), bits_(other.bits_), cache_(other.cache_) {}
CAuthRoles::~CAuthRoles() = default;

void* CAuthRoles::operator new(size_t size) {
    void* p = ::operator new(size);
    rolesDetector().AddToLeakDetector();
    return p;
}

void CAuthRoles::operator delete(void* p) {
    rolesDetector().RemoveFromLeakDetector();
    ::operator delete(p);
}

CAuthRoles& CAuthRoles::operator=(const CAuthRoles& other) {
    AssignRoles(other);
    return *this;
}

void CAuthRoles::AssignRoles(const CAuthRoles& other) {
    if (this == &other) return;
    Ptr<CAuthRolesCache> cache = other.cache_;  // take the new reference before dropping ours
    bits_ = other.bits_;
    cache_ = std::move(cache);
}

void CAuthRoles::SetRolesCache(CAuthRolesCache* cache) { cache_ = Ptr<CAuthRolesCache>(cache); }

const CAuthRolesCache& CAuthRoles::cache(const char* operation) const {
    if (!cache_)
        throw Exception("CAuthRoles", operation, u"The authorization role lookup cache has not been initialized");
    return *cache_;
}

uint32_t CAuthRoles::requireBit(const WString& name, const char* operation) const {
    uint32_t bit = cache(operation).GetBit(name);
    if (bit == CAuthRolesCache::NoBit)
        throw Exception("CAuthRoles", operation,
                        u"Role %ls not found in Tessaflow configuration.  Please have your administrator check that "
                        u"all packages are installed correctly.",
                        name);
    return bit;
}

template <class Keep>
std::vector<WString> CAuthRoles::namesWhere(const char* operation, Keep keep) const {
    const CAuthRolesCache& table = cache(operation);
    std::vector<WString> out;
    for (size_t bit : bits_.setBits()) {
        WString name = table.GetRole(uint32_t(bit));
        if (!name.isNull() && keep(name)) out.push_back(std::move(name));
    }
    return out;
}

std::vector<WString> CAuthRoles::GetRoles() const {
    return namesWhere("GetRoles", [](const WString&) { return true; });
}

std::vector<WString> CAuthRoles::GetPermissions() const {
    return namesWhere("GetPermissions", [](const WString& n) { return !isGroup(n); });
}

std::vector<WString> CAuthRoles::GetGroups() const {
    return namesWhere("GetGroups", [](const WString& n) { return isGroup(n); });
}

void CAuthRoles::SetRoles(const std::vector<WString>& names) {
    BitsetValue bits(cache("SetRoles").getSize());
    for (const WString& name : names) bits.set(requireBit(name, "SetRoles"));
    bits_ = std::move(bits);
}

void CAuthRoles::AddToRole(const WString& name) { bits_.set(requireBit(name, "AddToRole")); }

void CAuthRoles::RemoveFromRole(const WString& name) { bits_.clear(requireBit(name, "RemoveFromRole")); }

bool CAuthRoles::HasPermission(const WString& name) const {
    const CAuthRolesCache& table = cache("HasPermission");
    uint32_t bit = table.GetBit(name);
    if (bit == CAuthRolesCache::NoBit || bit >= bits_.size()) {
        bool found = false, second = false;
        WString mapped = CAuthUtils::mapPermissionName(name, found, second);
        if (!found) return false;
        bit = table.GetBit(mapped);
        if (bit == CAuthRolesCache::NoBit || bit >= bits_.size()) return false;
    }
    return bits_.test(bit);
}

bool CAuthRoles::IsMemberOfGroup(const WString& group) const {
    const CAuthRolesCache& table = cache("IsMemberOfGroup");
    WString name(GroupRoleTag);
    name += group.view();
    uint32_t bit = table.GetBit(name);
    return bit != CAuthRolesCache::NoBit && bits_.test(bit);
}

}  // namespace nvk
