// Editing the framework protocol: removing connections and deleting components.
#include "nvk/protocol/CProtocolUtils.h"

#include <algorithm>
#include <unordered_set>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;
using protocol_utils_internal::requireComponent;

int CProtocolUtils::disconnectComponents(iProtocolInfo* protocol, int32_t fromLocalID, int32_t toLocalID, Port port) {
    requireComponent(protocol, "disconnectComponents");
    int removed = 0;
    for (int k = protocol->getNumConnections() - 1; k >= 0; --k) {
        ConnectionInfo c = protocol->getConnection(k);
        if (c.fromLocalID == fromLocalID && c.toLocalID == toLocalID && c.port == port) {
            protocol->removeConnection(k);
            ++removed;
        }
    }
    return removed;
}

void CProtocolUtils::removeConnection(iProtocolInfo* protocol, int index) {
    requireComponent(protocol, "removeConnection");
    protocol->removeConnection(index);
}

void CProtocolUtils::clearConnections(iProtocolInfo* protocol) {
    requireComponent(protocol, "clearConnections");
    protocol->clearConnections();
}

void CProtocolUtils::deleteComponents(iProtocolInfo* protocol, const std::vector<int32_t>& localIDs,
                                      std::vector<int32_t>& componentList, std::vector<ConnectionInfo>& connectionList) {
    requireComponent(protocol, "deleteComponents");
    componentList.clear();
    connectionList.clear();
    // Sets, not lists: deleting a thousand components of a large protocol (a collapse) would
    // otherwise compare every ID with every component and every connection end.
    std::unordered_set<int32_t> existing;
    for (int i = 0; i < protocol->getNumComponents(); ++i) existing.insert(GetComponentLocalID(protocol->getComponent(i)));
    for (int32_t id : localIDs)
        if (!existing.count(id)) throw Exception(kClass, "deleteComponents", u"Did not find localID %d", id);
    const std::unordered_set<int32_t> doomedIDs(localIDs.begin(), localIDs.end());
    auto doomed = [&](int32_t id) { return doomedIDs.count(id) != 0; };
    for (int k = protocol->getNumConnections() - 1; k >= 0; --k) {
        ConnectionInfo c = protocol->getConnection(k);
        if (doomed(c.fromLocalID) || doomed(c.toLocalID)) {
            connectionList.push_back(c);
            protocol->removeConnection(k);
        }
    }
    for (int i = protocol->getNumComponents() - 1; i >= 0; --i) {
        int32_t id = GetComponentLocalID(protocol->getComponent(i));
        if (doomed(id)) {
            componentList.push_back(id);
            protocol->removeComponent(i);
        }
    }
    // Collected from the back; the lists are in protocol order.
    std::reverse(connectionList.begin(), connectionList.end());
    std::reverse(componentList.begin(), componentList.end());
}

}  // namespace nvk
