// Reading and writing the attributes of framework components and protocols.
#include "nvk/protocol/CProtocolUtils.h"

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;
using protocol_utils_internal::requireComponent;

namespace {

CProtocolUtils::Point readPoint(const iAttributeHolder* c, const wchar* key, const char* operation) {
    requireComponent(c, operation);
    AttributePoint p;
    c->getPointAttribute(key, p);
    return {p.x, p.y};
}
bool readBool(const iAttributeHolder* c, const wchar* key, const char* operation) {
    requireComponent(c, operation);
    bool on = false;
    c->getBoolAttribute(key, on);
    return on;
}

}  // namespace

int32_t CProtocolUtils::GetComponentLocalID(const iComponentInfo* c) {
    requireComponent(c, "GetComponentLocalID");
    int32_t id = 0;
    if (!c->getIntAttribute(NVK_ComponentLocalID, id))
        throw Exception(kClass, "GetComponentLocalID", u"Component has no local ID");
    return id;
}
WString CProtocolUtils::GetComponentDisplayName(const iComponentInfo* c) {
    requireComponent(c, "GetComponentDisplayName");
    WString name = WString::empty();
    c->getTextAttribute(NVK_ComponentDisplayName, name);
    return name;
}
void CProtocolUtils::SetComponentDisplayName(iComponentInfo* c, const WString& name) {
    requireComponent(c, "SetComponentDisplayName");
    c->setTextAttribute(NVK_ComponentDisplayName, name);
}
CProtocolUtils::Point CProtocolUtils::GetComponentPoint(const iComponentInfo* c) {
    return readPoint(c, NVK_ComponentPoint, "GetComponentPoint");
}
void CProtocolUtils::SetComponentPoint(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentPoint");
    c->setPointAttribute(NVK_ComponentPoint, {p.x, p.y});
}
CProtocolUtils::Point CProtocolUtils::GetComponentOffset(const iComponentInfo* c) {
    return readPoint(c, NVK_ComponentOffset, "GetComponentOffset");
}
void CProtocolUtils::SetComponentOffset(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentOffset");
    c->setPointAttribute(NVK_ComponentOffset, {p.x, p.y});
}
void CProtocolUtils::RemoveComponentOffset(iComponentInfo* c) {
    requireComponent(c, "RemoveComponentOffset");
    c->removeAttribute(NVK_ComponentOffset);
}
bool CProtocolUtils::HasComponentOffset(const iComponentInfo* c) {
    requireComponent(c, "HasComponentOffset");
    return c->hasAttribute(NVK_ComponentOffset);
}
void CProtocolUtils::ClearComponentOffsets(iProtocolInfo* protocol) {
    requireComponent(protocol, "ClearComponentOffsets");
    for (int i = 0; i < protocol->getNumComponents(); ++i) protocol->getComponent(i)->removeAttribute(NVK_ComponentOffset);
}
bool CProtocolUtils::GetComponentMovedFrom(const iComponentInfo* c, Point& p) {
    requireComponent(c, "GetComponentMovedFrom");
    AttributePoint a;
    if (!c->getPointAttribute(NVK_ComponentMovedFrom, a)) return false;
    p = {a.x, a.y};
    return true;
}
void CProtocolUtils::SetComponentMovedFrom(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentMovedFrom");
    c->setPointAttribute(NVK_ComponentMovedFrom, {p.x, p.y});
}
void CProtocolUtils::RemoveComponentMovedFrom(iComponentInfo* c) {
    requireComponent(c, "RemoveComponentMovedFrom");
    c->removeAttribute(NVK_ComponentMovedFrom);
}
bool CProtocolUtils::GetComponentMovedTo(const iComponentInfo* c, Point& p) {
    requireComponent(c, "GetComponentMovedTo");
    AttributePoint a;
    if (!c->getPointAttribute(NVK_ComponentMovedTo, a)) return false;
    p = {a.x, a.y};
    return true;
}
void CProtocolUtils::SetComponentMovedTo(iComponentInfo* c, Point p) {
    requireComponent(c, "SetComponentMovedTo");
    c->setPointAttribute(NVK_ComponentMovedTo, {p.x, p.y});
}
bool CProtocolUtils::HasInputPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentTakesInput, "HasInputPort"); }
bool CProtocolUtils::HasPassPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentReturnsPass, "HasPassPort"); }
bool CProtocolUtils::HasFailPort(const iComponentInfo* c) { return readBool(c, NVK_ComponentReturnsFail, "HasFailPort"); }
void CProtocolUtils::SetInputPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetInputPort");
    c->setBoolAttribute(NVK_ComponentTakesInput, on);
}
void CProtocolUtils::SetPassPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetPassPort");
    c->setBoolAttribute(NVK_ComponentReturnsPass, on);
}
void CProtocolUtils::SetFailPort(iComponentInfo* c, bool on) {
    requireComponent(c, "SetFailPort");
    c->setBoolAttribute(NVK_ComponentReturnsFail, on);
}
unsigned CProtocolUtils::GetComponentPorts(const iComponentInfo* c) {
    return (HasInputPort(c) ? PortInput : 0u) | (HasPassPort(c) ? PortPass : 0u) | (HasFailPort(c) ? PortFail : 0u);
}
bool CProtocolUtils::GetProtocolAutoLayout(const iProtocolInfo* p) {
    return readBool(p, NVK_ProtocolAutoLayout, "GetProtocolAutoLayout");
}
void CProtocolUtils::SetProtocolAutoLayout(iProtocolInfo* p, bool on) {
    requireComponent(p, "SetProtocolAutoLayout");
    p->setBoolAttribute(NVK_ProtocolAutoLayout, on);
}
CProtocolUtils::Point CProtocolUtils::GetComponentPointWithoutOffset(const iComponentInfo* c) {
    Point p = GetComponentPoint(c), o = GetComponentOffset(c);
    return {p.x - o.x, p.y - o.y};
}

}  // namespace nvk
