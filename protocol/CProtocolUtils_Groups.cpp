// Opening groups: up from a component, and down to components with invalid parameters.
#include "nvk/protocol/CProtocolUtils.h"

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::requireComponent;

int CProtocolUtils::OpenGroupAndParents(iComponentInfo* component, const WString& why) {
    requireComponent(component, "OpenGroupAndParents");
    int opened = 0;
    for (iProtocolInfo* p = component->getProtocol(); p; ) {
        iComponentInfo* group = p->getParentComponent();
        if (!group) break;
        bool open = false;
        group->getBoolAttribute(NVK_ComponentGroupOpen, open);
        if (!open) {
            group->setBoolAttribute(NVK_ComponentGroupOpen, true);
            group->setTextAttribute(NVK_ComponentGroupOpenReason, why);
            ++opened;
        }
        p = group->getProtocol();
    }
    return opened;
}

int CProtocolUtils::OpenGroupsWithInvalidParameters(iComponentInfo* component) {
    requireComponent(component, "OpenGroupsWithInvalidParameters");
    int opened = 0;
    std::vector<iProtocolInfo*> work;
    if (component->getSubprotocol()) work.push_back(component->getSubprotocol());
    while (!work.empty()) {
        iProtocolInfo* p = work.back();
        work.pop_back();
        for (int i = 0; i < p->getNumComponents(); ++i) {
            iComponentInfo* c = p->getComponent(i);
            bool invalid = false;
            if (c->getBoolAttribute(NVK_ComponentInvalidParameters, invalid) && invalid)
                opened += OpenGroupAndParents(c, format(u"Component \"%ls\" has invalid parameters", GetComponentDisplayName(c)));
            if (c->getSubprotocol()) work.push_back(c->getSubprotocol());
        }
    }
    return opened;
}

}  // namespace nvk
