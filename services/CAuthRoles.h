#pragma once
// Role names and bits: the shared table (CAuthRolesCache) and one user's
// roles bound to it (CAuthRoles).
#include <cstdint>
#include <vector>

#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/HashMap.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"

namespace nvk {

/// The server's table of role bit numbers and names. Filled once, stamped
/// with its creation time, then shared (by reference count) and only read.
class NVK_EXPORT CAuthRolesCache : public tovan::CountedObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.CAuthRolesCache"
    const tovan::ClassTag& getClass() const override { return Tag; }

    using BitMap = tovan::HashMap<uint32_t, tovan::WString>;
    using NameMap = tovan::HashMap<tovan::WString, uint32_t, tovan::NameHashFoldAZ, tovan::NameEqualFoldAZ>;
    static constexpr uint32_t NoBit = 0xFFFFFFFF;

    CAuthRolesCache();
    ~CAuthRolesCache() override;
    CAuthRolesCache(const CAuthRolesCache&) = delete;
    CAuthRolesCache& operator=(const CAuthRolesCache&) = delete;

    /// Enters one pair in both maps. A bit that had another name loses it, and
    /// a name that had another bit moves, so the two maps stay each other's
    /// inverse. A bit of 0xFFFFFFFF (NoBit) is a BadParameterException
    /// "Bit 0xFFFFFFFF cannot name a role".
    void SetRole(uint32_t bit, const tovan::WString& name);
    /// The name of a bit, or null.
    tovan::WString GetRole(uint32_t bit) const;
    /// The bit of a name (A-Z compared without case); when the name is not in
    /// the table, the bit of the role a legacy permission name maps to
    /// (CAuthUtils::mapPermissionName); else NoBit.
    uint32_t GetBit(const tovan::WString& name) const;
    bool isRoleDefined(const tovan::WString& name) const { return GetBit(name) != NoBit; }
    /// The size a user's role bitset gets from CAuthRoles::SetRoles: the
    /// highest bit in the table plus one (0 for an empty table).
    size_t getSize() const { return size_; }
    void Clear();

    /// A copy of the bit-to-name map.
    BitMap GetRoleBitValues() const { return bits_; }
    /// Replaces the table; a map holding NoBit is refused as by SetRole, and
    /// nothing changes then.
    void SetRoleBitValues(const BitMap& bits);

    int64_t GetCreationTime() const { return creationTime_; }
    void SetCreationTime(int64_t time) { creationTime_ = time; }

    static tovan::Object* createObject() { return new CAuthRolesCache(); }

protected:
    /// The name under which `name` is known to the table: itself, or the role
    /// it maps to. False (substitute untouched) when neither is defined.
    bool FindSubstituteRole(const tovan::WString& name, tovan::WString& substitute) const;

private:
    void rebuildIndex();

    BitMap bits_;
    NameMap names_;
    size_t size_ = 0;
    int64_t creationTime_ = 0;
};

/// One user's roles: a bitset whose bit n means "holds the role with bit n",
/// read through a shared CAuthRolesCache. Every query needs the cache; without
/// one it raises Exception "The authorization role lookup cache has not been
/// initialized". Failed calls leave the roles unchanged.
class NVK_EXPORT CAuthRoles : public tovan::CountedObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.data.AuthRoles"
    const tovan::ClassTag& getClass() const override { return Tag; }

    /// Names that begin with this are group memberships, not permissions.
    static constexpr tovan::wchar GroupRoleTag[] = u"Group:";

    CAuthRoles();
    explicit CAuthRoles(CAuthRolesCache* cache);
    CAuthRoles(const CAuthRoles& other);
    CAuthRoles& operator=(const CAuthRoles& other);
    ~CAuthRoles() override;

    void SetRolesCache(CAuthRolesCache* cache);
    CAuthRolesCache* GetRolesCache() const { return cache_.get(); }

    /// The names of every set bit, in increasing bit order (bits the table
    /// does not name are left out).
    std::vector<tovan::WString> GetRoles() const;
    /// Sizes the bitset to the table's getSize(), clears it and sets the bit
    /// of each name; an unknown name raises Exception "Role %ls not found in
    /// Tessaflow configuration.  Please have your administrator check that
    /// all packages are installed correctly." and changes nothing.
    void SetRoles(const std::vector<tovan::WString>& names);
    void AddToRole(const tovan::WString& name);
    void RemoveFromRole(const tovan::WString& name);

    /// False for unknown names and for bits beyond the bitset, never a throw
    /// (except for the missing cache).
    bool HasPermission(const tovan::WString& name) const;
    /// Set roles not beginning with "Group:" (compared without case).
    std::vector<tovan::WString> GetPermissions() const;
    bool IsMemberOfGroup(const tovan::WString& group) const;
    /// Set roles beginning with "Group:" (compared without case), as stored.
    std::vector<tovan::WString> GetGroups() const;

    /// Drops every role; the cache stays bound.
    void Clear() { bits_.resize(0); }
    /// Binds to the other's cache and copies its bits.
    void AssignRoles(const CAuthRoles& other);

    tovan::BitsetValue& _GetRawRoleBits() { return bits_; }
    const tovan::BitsetValue& _GetRawRoleBits() const { return bits_; }

    static tovan::Object* createObject() { return new CAuthRoles(); }

    /// The leak detector counts role objects made on the heap: one embedded
    /// in another object (the credentials) lives and dies with its owner.
    static void* operator new(size_t size);
    static void operator delete(void* p);

private:
    const CAuthRolesCache& cache(const char* operation) const;
    uint32_t requireBit(const tovan::WString& name, const char* operation) const;
    template <class Keep>
    std::vector<tovan::WString> namesWhere(const char* operation, Keep keep) const;

    tovan::BitsetValue bits_;
    tovan::Ptr<CAuthRolesCache> cache_;
};

}  // namespace nvk
