// Uncollapsing a subprotocol component back into its parent, and the parameter rules it needs.
#include <algorithm>
#include <climits>
#include <set>
#include <tuple>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Format.h"
#include "nvk/platform/Value.h"
#include "nvk/protocol/CParameterUtils.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolCollapseUtils_internal.h"

using namespace tovan;

namespace nvk {
using namespace collapse_internal;

namespace {

bool isTrueSetting(const Value& v) {
    if (auto* b = dynamic_cast<const BooleanValue*>(&v)) return b->get();
    return equalsNoCase(v.toString().view(), u"true");
}

bool isTrueParameter(const ParameterValue& v) {
    if (v.kind == ParameterValue::Boolean) return v.boolean;
    return v.kind == ParameterValue::Text && equalsNoCase(v.text.view(), u"true");
}

bool holdsValue(const ParameterValue& v) {
    switch (v.kind) {
        case ParameterValue::Text: return !v.text.isEmpty();
        case ParameterValue::Array: return !v.items.empty();
        default: return true;
    }
}

bool isRunToCompletion(const WString& name) { return equalsNoCase(name.view(), NVK_RunToCompletion); }

/// Whether a parameter of `inner` links to the group's parameter `name`.
bool linksTo(const iComponentInfo& inner, const WString& name) {
    for (const WString& own : inner.getParameterNames()) {
        WString looksUp;
        if (parentLinkName(*inner.findParameter(own), looksUp) && equalsNoCase(looksUp.view(), name.view())) return true;
    }
    return false;
}

bool referencedInside(const iProtocolInfo& sub, const WString& name) {
    for (int k = 0; k < sub.getNumComponents(); ++k)
        if (linksTo(*sub.getComponent(k), name)) return true;
    return false;
}

/// Gives `p`, a link to the group's parameter `definition`, that parameter's definition.
void applyDefinition(iParameter& p, const iParameter& definition) {
    const ParamLinkType defType = CParameterUtils::getParamLinkType(definition);
    if (!CParameterUtils::isParentLinkType(defType)) p.setTypeText(definition.getTypeText());
    // One value of one value is still one value: a single link stays single.
    else if (defType == ParamLinkSingleParentParameter) p.setTypeText(WString(NVK_LinkSingleParentParameterType));
    p.setValue(definition.getValue());
}

/// Writes `definition` into the parameters of `inner` that link to it; how many.
int replaceIn(iComponentInfo& inner, const iParameter& definition) {
    int replaced = 0;
    for (const WString& own : inner.getParameterNames()) {
        iParameter& p = *inner.findParameter(own);
        WString looksUp;
        if (!parentLinkName(p, looksUp) || !equalsNoCase(looksUp.view(), definition.getName().view())) continue;
        applyDefinition(p, definition);
        ++replaced;
    }
    return replaced;
}

/// Each parameter of `inner` that links to one of the group's parameters takes its
/// definition, once: a definition that links on must not be followed again.
void replaceAllIn(iComponentInfo& inner, const iComponentInfo& group) {
    for (const WString& own : inner.getParameterNames()) {
        iParameter& p = *inner.findParameter(own);
        WString looksUp;
        if (!parentLinkName(p, looksUp) || isRunToCompletion(looksUp)) continue;
        if (const iParameter* definition = group.findParameter(looksUp)) applyDefinition(p, *definition);
    }
}

/// Inner components whose `port` is open: nothing is connected to it inside.
std::vector<int> openPorts(const CProtocolUtils& inner, Port port, int kind) {
    std::vector<int> open;
    for (int k = 0; k < inner.GetNumComponents(); ++k)
        if ((inner.GetPorts(k) & port) && inner.GetAdjacentList(k, kind).empty()) open.push_back(k);
    return open;
}

}  // namespace

bool CProtocolCollapseUtils::IsVisible(const iParameter& parameter) {
    const iPropertyCollection* md = parameter.findMetaData();
    const iProperty* never = md ? md->find(NVK_NeverShow) : nullptr;
    return !(never && isTrueSetting(never->getValue()));
}

bool CProtocolCollapseUtils::CanParamDefinitionBeReplaced(const iComponentInfo* component, const WString& name) {
    requireObject(component, "CanParamDefinitionBeReplaced");
    const iParameter* p = component->findParameter(name);
    if (!p) return false;
    const ParamLinkType type = CParameterUtils::getParamLinkType(*p);
    // An alias names another parameter of the group component, which is about to go.
    if (type == ParamLinkAliasParameter) return false;
    if (CParameterUtils::isParentLinkType(type) && p->getValue().kind != ParameterValue::Text) return false;
    return true;
}

int CProtocolCollapseUtils::ReplaceParamDefinition(iComponentInfo* component, const iParameter& definition) {
    requireObject(component, "ReplaceParamDefinition");
    iProtocolInfo* sub = component->getSubprotocol();
    if (!sub) return 0;
    int replaced = 0;
    for (int k = 0; k < sub->getNumComponents(); ++k) replaced += replaceIn(*sub->getComponent(k), definition);
    return replaced;
}

bool CProtocolCollapseUtils::CanUncollapseSubprotocol(iComponentInfo* component, WString& message) {
    return IsOKToUnCollapse(component, message);
}

bool CProtocolCollapseUtils::IsOKToUnCollapse(iComponentInfo* component, WString& message) {
    requireObject(component, "IsOKToUnCollapse");
    iProtocolInfo* sub = component->getSubprotocol();
    if (!sub) {
        message = WString(u"No protocol");
        return false;
    }
    // The graph alone, as for a collapse check (listed in DEPARTURES.md).
    layout_.LoadProtocolGraph(sub);
    const size_t inputs = openPorts(layout_, PortInput, CProtocolUtils::AdjInput).size();
    const bool takesInput = CProtocolUtils::HasInputPort(component);
    if (inputs >= 2) {
        message = WString(u"More than one start node with open input port");
        return false;
    }
    if (inputs == 1 && !takesInput) {
        message = WString(u"Found start node with input port, but protocol has no input port");
        return false;
    }
    if (inputs == 0 && takesInput) {
        message = WString(u"Found no start nodes with input ports, but protocol has an input port");
        return false;
    }

    const std::vector<WString> names = component->getParameterNames();
    for (const WString& name : names) {
        const iParameter& p = *component->findParameter(name);
        if (isRunToCompletion(name) || !IsVisible(p) || CParameterUtils::isLinkType(CParameterUtils::getParamLinkType(p)))
            continue;
        if (holdsValue(p.getValue()) && !referencedInside(*sub, name)) {
            message = format(u"Parameter %ls is defined with non-empty value", name);
            return false;
        }
    }
    for (const WString& name : names)
        if (isRunToCompletion(name) && isTrueParameter(component->findParameter(name)->getValue())) {
            message = WString(u"Subprotocol is marked Run to Completion");
            return false;
        }
    for (const WString& name : names) {
        if (isRunToCompletion(name) || !referencedInside(*sub, name)) continue;
        if (!CanParamDefinitionBeReplaced(component, name)) {
            message = format(u"Parameter definition for %ls could not be replaced", name);
            return false;
        }
    }
    return true;
}

void CProtocolCollapseUtils::UncollapseSubprotocol(iComponentInfo* component, iProtocolInfo* parent,
                                                   std::vector<int32_t>& newLocalIDs) {
    UnCollapse(component, parent, newLocalIDs);
}

void CProtocolCollapseUtils::UnCollapse(iComponentInfo* component, iProtocolInfo* parent,
                                        std::vector<int32_t>& newLocalIDs) {
    requireObject(component, "UnCollapse");
    requireObject(parent, "UnCollapse");
    newLocalIDs.clear();
    int groupIndex = -1;
    for (int k = 0; k < parent->getNumComponents() && groupIndex < 0; ++k)
        if (parent->getComponent(k) == component) groupIndex = k;
    if (groupIndex < 0)
        throw Exception(kClass, "UnCollapse", u"Did not find requested subprotocol component within parent protocol");
    Ptr<iProtocolInfo> sub(component->getSubprotocol());  // outlives the group component
    if (!sub) throw Exception(kClass, "UnCollapse", u"No protocol");
    layout_.LoadProtocolGraph(sub.get());
    if (openPorts(layout_, PortInput, CProtocolUtils::AdjInput).size() > 1)
        throw Exception(kClass, "UnCollapse", u"Cannot uncollapse with more than one input component");
    const int32_t groupID = CProtocolUtils::GetComponentLocalID(component);
    std::vector<ConnectionInfo> into, outOf;
    for (int k = 0; k < parent->getNumConnections(); ++k) {
        ConnectionInfo c = parent->getConnection(k);
        if (c.fromLocalID == groupID) outOf.push_back(c);
        else if (c.toLocalID == groupID) into.push_back(c);
    }
    if (!into.empty() && openPorts(layout_, PortInput, CProtocolUtils::AdjInput).empty())
        throw Exception(kClass, "UnCollapse", u"Found upstream components from subprotocol, but it did not contain any input nodes");
    WString message;
    if (!IsOKToUnCollapse(component, message)) throw Exception(kClass, "UnCollapse", message);

    const CProtocolUtils& inner = layout_;  // loaded with the subprotocol by the check
    const int n = inner.GetNumComponents();
    const int32_t first = firstNewLocalId(*parent, n, "UnCollapse");
    std::vector<CProtocolUtils::Point> stored;
    for (int k = 0; k < n; ++k) stored.push_back(inner.GetStoredPoint(k));
    const CProtocolUtils::Point at = CProtocolUtils::GetComponentPoint(component);
    int64_t dx = 0, dy = 0;
    if (n > 0) {
        const CProtocolUtils::Point anchor = stored[firstInExecutionOrder(stored)];
        dx = int64_t(at.x) - anchor.x, dy = int64_t(at.y) - anchor.y;
    }
    std::vector<iComponentInfo*> copies;
    for (int k = 0; k < n; ++k) {
        copies.push_back(copyComponent(*inner.GetComponent(k), *parent, first + k, dx, dy));
        replaceAllIn(*copies.back(), *component);
        newLocalIDs.push_back(first + k);
    }
    for (int k = 0; k < inner.GetNumConnections(); ++k)
        parent->addConnection({first + inner.GetConnectionFrom(k), first + inner.GetConnectionTo(k), inner.GetConnectionPort(k)});

    const std::vector<int> inputs = openPorts(inner, PortInput, CProtocolUtils::AdjInput);
    // Outputs leave only from inner components whose port is open, not from every one that
    // has the port: one that feeds the next inside would otherwise gain outside connections
    // the protocol never had (listed in DEPARTURES.md).
    const std::vector<int> passExits = openPorts(inner, PortPass, CProtocolUtils::AdjPass);
    const std::vector<int> failExits = openPorts(inner, PortFail, CProtocolUtils::AdjFail);
    for (const ConnectionInfo& c : into) parent->addConnection({c.fromLocalID, first + inputs.front(), c.port});
    for (const ConnectionInfo& c : outOf) {
        // A group that feeds itself feeds its input component.
        if (c.toLocalID == groupID && inputs.empty()) continue;
        const int32_t to = c.toLocalID == groupID ? first + inputs.front() : c.toLocalID;
        const std::vector<int>& exits = c.port == PortFail ? failExits : passExits;
        if (exits.empty())
            Exception::warn(u"Uncollapse dropped the connection from %d to %d: no open %ls port inside", groupID,
                            c.toLocalID, c.port == PortFail ? u"fail" : u"pass");
        for (int e : exits) parent->addConnection({first + e, to, c.port});
    }
    for (int k = 0; k < n; ++k) moveSubprotocol(*inner.GetComponent(k), *copies[size_t(k)]);
    parent->removeComponent(groupIndex);
}

}  // namespace nvk
