// Index-checked access to what perception read and derived, and the X-position rule.
#include "nvk/protocol/CProtocolUtils.h"

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;

namespace {

BitsetValue listToSet(const std::vector<int>& list, size_t size) {
    BitsetValue set(size);
    for (int i : list) set.set(size_t(i));
    return set;
}

}  // namespace

void CProtocolUtils::CheckIndex(int index, const char* operation) const {
    if (index < 0 || index >= GetNumComponents())
        throw InvalidIndexException(kClass, operation, index, GetNumComponents() - 1);
}

iComponentInfo* CProtocolUtils::GetComponent(int index) const {
    CheckIndex(index, "GetComponent");
    return components_[size_t(index)];
}

iComponentInfo* CProtocolUtils::GetComponent(const WString& name) const { return GetComponentByDisplayName(name); }

WString CProtocolUtils::GetDisplayName(int index) const {
    CheckIndex(index, "GetDisplayName");
    return displayName_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetPoint(int index) const {
    CheckIndex(index, "GetPoint");
    return point_[size_t(index)];
}

void CProtocolUtils::SetPoint(int index, Point p) {
    CheckIndex(index, "SetPoint");
    point_[size_t(index)] = p;
}

CProtocolUtils::Point CProtocolUtils::GetStoredPoint(int index) const {
    CheckIndex(index, "GetStoredPoint");
    return storedPoint_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetInitialPoint(int index) const {
    CheckIndex(index, "GetInitialPoint");
    return initialPoint_[size_t(index)];
}

CProtocolUtils::Point CProtocolUtils::GetOffset(int index) const {
    CheckIndex(index, "GetOffset");
    return offset_[size_t(index)];
}

int32_t CProtocolUtils::GetLocalID(int index) const {
    CheckIndex(index, "GetLocalID");
    return localID_[size_t(index)];
}

unsigned CProtocolUtils::GetPorts(int index) const {
    CheckIndex(index, "GetPorts");
    return ports_[size_t(index)];
}

int CProtocolUtils::GetComponentIndex(const WString& name) const { return GetComponentIndexByDisplayName(name); }

int CProtocolUtils::GetComponentIndex(const iComponentInfo* component) const {
    if (!component) throw Exception(kClass, "GetComponentIndex", u"Cannot dereference a NULL pointer");
    for (size_t i = 0; i < components_.size(); ++i)
        if (components_[i] == component) return int(i);
    return -1;
}

int CProtocolUtils::GetComponentIndexByLocalID(int32_t localID) const {
    auto it = localIDMap_.find(localID);
    return it == localIDMap_.end() ? -1 : it->second;
}

int CProtocolUtils::GetComponentIndexByDisplayName(const WString& name) const {
    for (size_t i = 0; i < displayName_.size(); ++i)
        if (displayName_[i] == name) return int(i);
    return -1;
}

iComponentInfo* CProtocolUtils::GetComponentByDisplayName(const WString& name) const {
    int i = GetComponentIndexByDisplayName(name);
    return i < 0 ? nullptr : components_[size_t(i)];
}

iComponentInfo* CProtocolUtils::GetComponentByLocalID(int32_t localID) const {
    int i = GetComponentIndexByLocalID(localID);
    return i < 0 ? nullptr : components_[size_t(i)];
}

int CProtocolUtils::GetIndexFromLocalID(int32_t localID) const {
    int i = GetComponentIndexByLocalID(localID);
    if (i < 0) throw Exception(kClass, "GetIndexFromLocalID", u"Did not find localID %d", localID);
    return i;
}

const std::vector<int>& CProtocolUtils::GetAdjacentList(int index, int kind) const {
    if (kind < 0 || kind >= NumAdjacencyKinds) throw Exception(kClass, "GetAdjacent", u"Unrecognized adjacent flag");
    CheckIndex(index, "GetAdjacent");
    return adjacency_[kind][size_t(index)];
}

BitsetValue CProtocolUtils::GetAdjacent(int index, int kind) const {
    return listToSet(GetAdjacentList(index, kind), components_.size());
}

const wchar* CProtocolUtils::GetAdjacencyName(int kind) {
    switch (kind) {
        case AdjAll: return u"All";
        case AdjInput: return u"Input";
        case AdjPassOrFail: return u"Pass or Fail";
        case AdjInputFromPass: return u"Input from Pass";
        case AdjInputFromFail: return u"Input from Fail";
        case AdjPass: return u"Pass";
        case AdjFail: return u"Fail";
        default: return u"???";
    }
}

bool CProtocolUtils::IsStartNode(int index) const {
    CheckIndex(index, "IsStartNode");
    return adjacency_[AdjInput][size_t(index)].empty();
}

int CProtocolUtils::GetConnectionFrom(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionFrom", c, GetNumConnections() - 1);
    return connFrom_[size_t(c)];
}

int CProtocolUtils::GetConnectionTo(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionTo", c, GetNumConnections() - 1);
    return connTo_[size_t(c)];
}

Port CProtocolUtils::GetConnectionPort(int c) const {
    if (c < 0 || c >= GetNumConnections()) throw InvalidIndexException(kClass, "GetConnectionPort", c, GetNumConnections() - 1);
    return connPort_[size_t(c)];
}

int64_t CProtocolUtils::GetConnectionKey(int from, int to, Port port) {
    return (int64_t(uint32_t(from)) << 35) | (int64_t(uint32_t(to)) << 3) | int64_t(port & 7);
}

BitsetValue CProtocolUtils::GetConnectionsOf(int index) const {
    return listToSet(GetConnectionListOf(index), connFrom_.size());
}

const std::vector<int>& CProtocolUtils::GetConnectionListOf(int index) const {
    CheckIndex(index, "GetConnectionsOf");
    return connectionsOf_[size_t(index)];
}

int CProtocolUtils::GetDistance(int index) const {
    CheckIndex(index, "GetDistance");
    return distance_[size_t(index)];
}

BitsetValue CProtocolUtils::GetMustBeAbove(int index) const {
    return listToSet(GetMustBeAboveList(index), components_.size());
}
BitsetValue CProtocolUtils::GetMustBeBelow(int index) const {
    return listToSet(GetMustBeBelowList(index), components_.size());
}
const std::vector<int>& CProtocolUtils::GetMustBeAboveList(int index) const {
    CheckIndex(index, "GetMustBeAbove");
    return mustBeAbove_[size_t(index)];
}
const std::vector<int>& CProtocolUtils::GetMustBeBelowList(int index) const {
    CheckIndex(index, "GetMustBeBelow");
    return mustBeBelow_[size_t(index)];
}

void CProtocolUtils::SetXPositionAlgorithm(int rule, bool wantFurthest) {
    xPositionRule_ = rule;
    wantFurthest_ = wantFurthest;
}

void CProtocolUtils::GetXPositionAlgorithm(int& rule, bool& wantFurthest) const {
    rule = xPositionRule_;
    wantFurthest = wantFurthest_;
}

const wchar* CProtocolUtils::GetXPositionRuleName(int rule) {
    return rule == DistanceFromStartNode ? u"DistanceFromStartNode" : u"RelativeDistanceBetweenNodes";
}

}  // namespace nvk
