// Collapsing a selection into a new subprotocol component, and the copying both directions share.
#include <algorithm>
#include <climits>
#include <map>
#include <tuple>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Format.h"
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CParameterUtils.h"
#include "nvk/protocol/CPropertyUtils.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolCollapseUtils_internal.h"
#include "nvk/protocol/CProtocolInfo.h"

using namespace tovan;

namespace nvk {
namespace collapse_internal {

void requireObject(const void* p, const char* operation) {
    if (!p) throw Exception(kClass, operation, u"Cannot dereference a NULL pointer");
}

namespace {

int32_t clamp32(int64_t v) { return int32_t(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); }

/// Attributes that hold a place in protocol coordinates; an offset is a displacement and stays.
bool isPlace(const WString& key) {
    return key.view() == NVK_ComponentPoint || key.view() == NVK_ComponentMovedFrom ||
           key.view() == NVK_ComponentMovedTo;
}

/// A component's notes are stored against its absolute point ("a b w h": left = a - x,
/// top = -(y + b)), so moving the component by (dx, dy) rewrites a and b to keep each note
/// where it was beside it. A geometry that does not read as four integers stays as it was.
std::vector<WString> movedNotes(std::vector<WString> notes, int64_t dx, int64_t dy) {
    for (size_t k = 1; k + 2 < notes.size(); k += 3) {
        const std::string text = toNarrow(notes[k]);
        int64_t v[4];
        size_t pos = 0;
        bool ok = true;
        for (int i = 0; i < 4 && ok; ++i) {
            size_t end = i < 3 ? text.find(' ', pos) : text.size();
            ok = end != std::string::npos &&
                 parseInteger(std::string_view(text).substr(pos, end - pos), v[i], NumberSigns::PlusOrMinus);
            pos = end + 1;
        }
        if (ok)
            notes[k] = toWide(std::to_string(clamp32(v[0] + dx)) + " " + std::to_string(clamp32(v[1] - dy)) + " " +
                              std::to_string(v[2]) + " " + std::to_string(v[3]));
    }
    return notes;
}

void copyAttribute(const iComponentInfo& from, iComponentInfo& to, const WString& key, int64_t dx, int64_t dy) {
    const wchar* k = key.c_str();
    int32_t i;
    bool b;
    WString text;
    AttributePoint p;
    std::vector<WString> texts;
    if (from.getIntAttribute(k, i)) to.setIntAttribute(k, i);
    else if (from.getBoolAttribute(k, b)) to.setBoolAttribute(k, b);
    else if (from.getTextAttribute(k, text)) to.setTextAttribute(k, text);
    else if (from.getPointAttribute(k, p)) {
        if (isPlace(key)) p = {clamp32(p.x + dx), clamp32(p.y + dy)};
        to.setPointAttribute(k, p);
    } else if (from.getTextArrayAttribute(k, texts)) {
        to.setTextArrayAttribute(k, key.view() == NVK_ComponentStickyNotes ? movedNotes(texts, dx, dy) : texts);
    }
}

}  // namespace

iComponentInfo* copyComponent(const iComponentInfo& from, iProtocolInfo& into, int32_t localID, int64_t dx,
                              int64_t dy) {
    iComponentInfo* to = into.addComponent(localID, CProtocolUtils::GetComponentDisplayName(&from));
    for (const WString& key : from.getAttributeKeys())
        if (key.view() != NVK_ComponentLocalID) copyAttribute(from, *to, key, dx, dy);
    for (const WString& name : from.getParameterNames()) {
        const iParameter* p = from.findParameter(name);
        iParameter& q = to->setParameter(name, p->getValue());
        q.setTypeText(p->getTypeText());
        if (const iPropertyCollection* md = p->findMetaData(); md && md->getSize() > 0)
            q.getMetaData().assignFrom(md, true);
    }
    return to;
}

void moveSubprotocol(iComponentInfo& from, iComponentInfo& to) {
    Ptr<iProtocolInfo> sub(from.getSubprotocol());
    if (!sub) return;
    from.setSubprotocol(nullptr);
    to.setSubprotocol(sub.get());
}

size_t firstInExecutionOrder(const std::vector<CProtocolUtils::Point>& points) {
    size_t first = 0;
    for (size_t k = 1; k < points.size(); ++k)
        if (CProtocolUtils::getLocationMetric(points[k]) < CProtocolUtils::getLocationMetric(points[first])) first = k;
    return first;
}

int32_t firstNewLocalId(const iProtocolInfo& protocol, int64_t count, const char* operation) {
    const int32_t largest = CProtocolCollapseUtils::GetLargestLocalId(&protocol);
    if (int64_t(largest) + count > INT32_MAX) throw Exception(kClass, operation, u"No local IDs left above %d", largest);
    return largest + 1;
}

bool parentLinkName(const iParameter& parameter, WString& name) {
    if (!CParameterUtils::isParentLinkType(CParameterUtils::getParamLinkType(parameter))) return false;
    if (parameter.getValue().kind != ParameterValue::Text) return false;
    name = parameter.getValue().text;
    return true;
}

}  // namespace collapse_internal

using namespace collapse_internal;

iProtocolInfo* CProtocolCollapseUtils::CollapseToSubprotocol(Object* serverConfig, iProtocolInfo* protocol,
                                                             const std::vector<WString>& localIDs, const WString& name,
                                                             bool runToCompletion) {
    serverConfig_ = serverConfig;
    return Collapse(protocol, localIDs, name, runToCompletion);
}

namespace {

using Connection = std::tuple<int32_t, int32_t, unsigned>;

/// Every parent-linked parameter of the members, promoted once per name onto `group`.
void promoteParentLinks(const std::vector<iComponentInfo*>& members, iComponentInfo& group) {
    for (iComponentInfo* m : members)
        for (const WString& name : m->getParameterNames()) {
            WString looksUp;
            if (!parentLinkName(*m->findParameter(name), looksUp) || looksUp.isEmpty()) continue;
            if (group.findParameter(looksUp)) continue;
            iParameter& promoted = group.setParameter(looksUp, ParameterValue::ofText(looksUp));
            promoted.setTypeText(WString(NVK_LinkParentParameterType));
            CPropertyUtils::pushPromotedFrom(promoted, name);
        }
}

}  // namespace

iProtocolInfo* CProtocolCollapseUtils::Collapse(iProtocolInfo* protocol, const std::vector<WString>& localIDs,
                                                const WString& name, bool runToCompletion) {
    WString message;
    if (!IsOKToCollapse(protocol, localIDs, message)) throw Exception(kClass, "Collapse", message);
    requireObject(protocol, "Collapse");
    if (localIDs.size() == 1) {  // allowed unchecked, so not loaded yet
        layout_.LoadProtocolGraph(protocol);
        if (!layout_.ConvertIDsToBitset(localIDs, selected_, message)) throw Exception(kClass, "Collapse", message);
    }
    const CProtocolUtils& u = layout_;
    const int32_t groupID = firstNewLocalId(*protocol, 1, "Collapse");
    const std::vector<unsigned> members = CProtocolUtils::ComponentBitsetToArray(selected_);

    // Inside, the selection starts where layout starts a protocol, unless that leaves 32 bits.
    std::vector<CProtocolUtils::Point> stored;
    int64_t minX = INT64_MAX, minY = INT64_MAX, maxX = INT64_MIN, maxY = INT64_MIN;
    for (unsigned m : members) {
        CProtocolUtils::Point p = u.GetStoredPoint(int(m));
        stored.push_back(p);
        minX = std::min<int64_t>(minX, p.x), maxX = std::max<int64_t>(maxX, p.x);
        minY = std::min<int64_t>(minY, p.y), maxY = std::max<int64_t>(maxY, p.y);
    }
    int64_t dx = 0, dy = 0;
    if (!members.empty() && maxX - minX + CProtocolLayoutUtils::FirstStackX <= INT32_MAX &&
        maxY - minY + CProtocolLayoutUtils::FirstRowY <= INT32_MAX)
        dx = CProtocolLayoutUtils::FirstStackX - minX, dy = CProtocolLayoutUtils::FirstRowY - minY;

    // The subprotocol is built whole before the parent is touched.
    Ptr<CProtocolInfo> sub(new CProtocolInfo(name.isEmpty() ? WString(u"Subprotocol") : name));
    std::vector<iComponentInfo*> originals, copies;
    for (unsigned m : members) {
        originals.push_back(u.GetComponent(int(m)));
        copies.push_back(copyComponent(*originals.back(), *sub, u.GetLocalID(int(m)), dx, dy));
    }
    // Incoming connections all enter the one input node and map one to one. Outgoing ones
    // from several members to the same component become one; a connection a member gives
    // more than once is kept as often (the most any member gives), since uncollapsing
    // repeats each for every member that leaves through that port.
    std::vector<ConnectionInfo> incoming, outgoing;
    std::map<Connection, int> perMember, most;
    bool exitsPass = false, exitsFail = false, hasInputNode = false;
    for (int k = 0; k < u.GetNumConnections(); ++k) {
        const int f = u.GetConnectionFrom(k), t = u.GetConnectionTo(k);
        const Port port = u.GetConnectionPort(k);
        const bool fromIn = selected_.test(size_t(f)), toIn = selected_.test(size_t(t));
        ConnectionInfo c{u.GetLocalID(f), u.GetLocalID(t), port};
        if (fromIn && toIn) sub->addConnection(c);
        else if (toIn) incoming.push_back({c.fromLocalID, groupID, port});
        else if (fromIn) {
            const int given = ++perMember[{c.fromLocalID, c.toLocalID, unsigned(port)}];
            int& kept = most[{groupID, c.toLocalID, unsigned(port)}];
            if (given > kept) {
                ++kept;
                outgoing.push_back({groupID, c.toLocalID, port});
            }
        }
    }
    for (unsigned m : members) {
        const unsigned ports = u.GetPorts(int(m));
        auto leadsOnlyOut = [&](int kind) {
            for (int d : u.GetAdjacentList(int(m), kind))
                if (selected_.test(size_t(d))) return false;
            return true;
        };
        if ((ports & PortInput) && leadsOnlyOut(CProtocolUtils::AdjInput)) hasInputNode = true;
        if ((ports & PortPass) && leadsOnlyOut(CProtocolUtils::AdjPass)) exitsPass = true;
        if ((ports & PortFail) && leadsOnlyOut(CProtocolUtils::AdjFail)) exitsFail = true;
    }
    for (const ConnectionInfo& c : outgoing) (c.port == PortFail ? exitsFail : exitsPass) = true;

    iComponentInfo* group = protocol->addComponent(groupID, sub->getName());
    CProtocolUtils::SetComponentPoint(group, members.empty() ? CProtocolUtils::Point{CProtocolLayoutUtils::FirstStackX,
                                                                                     CProtocolLayoutUtils::FirstRowY}
                                                             : stored[firstInExecutionOrder(stored)]);
    CProtocolUtils::SetInputPort(group, hasInputNode || !incoming.empty());
    CProtocolUtils::SetPassPort(group, exitsPass);
    CProtocolUtils::SetFailPort(group, exitsFail);
    promoteParentLinks(copies, *group);
    if (runToCompletion) group->setParameter(WString(NVK_RunToCompletion), ParameterValue::ofBoolean(true));
    for (const ConnectionInfo& c : incoming) protocol->addConnection(c);
    for (const ConnectionInfo& c : outgoing) protocol->addConnection(c);
    std::vector<int32_t> ids, removedIDs;
    std::vector<ConnectionInfo> removedConnections;
    for (size_t k = 0; k < members.size(); ++k) {
        moveSubprotocol(*originals[k], *copies[k]);
        ids.push_back(u.GetLocalID(int(members[k])));
    }
    group->setSubprotocol(sub.get());
    CProtocolUtils::deleteComponents(protocol, ids, removedIDs, removedConnections);
    return sub.get();
}

}  // namespace nvk
