// Job sharing: who may see a job, kept as three parallel array properties.
#include <algorithm>
#include <cstdint>

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/iPropertyCollection.h"
#include "nvk/services/CAuthUtils.h"

using namespace tovan;

namespace nvk {

namespace {

void store(iPropertyCollection& props, const wchar* name, const Value& value) {
    if (iProperty* p = props.find(WString(name))) p->setValue(value);
    else props.define(WString(name), value);
}

template <class A>
const A* arrayOf(const iProperty* p) {
    return p ? p->getValue().findAs<A>() : nullptr;
}

}  // namespace

void CAuthUtils::SetJobSharingProps(const std::vector<WString>& users, const std::vector<WString>& groups,
                                    iPropertyCollection& props) {
    StringArrayValue names, types;
    BooleanArrayValue includes;
    for (const WString& user : users) {
        names.append(user);
        types.append(WString(NVK_Auth_User));
        includes.append(true);
    }
    for (const WString& group : groups) {
        names.append(group);
        types.append(WString(NVK_Auth_File));
        includes.append(true);
    }
    store(props, NVK_JobInfoAccessNames, names);
    store(props, NVK_JobInfoAccessTypes, types);
    store(props, NVK_JobInfoAccessIncludes, includes);
}

void CAuthUtils::GetJobSharingProps(std::vector<WString>& users, std::vector<WString>& groups,
                                    iPropertyCollection& props) {
    static DebugTarget target("CAuthUtils");
    iProperty* namesProp = props.find(WString(NVK_JobInfoAccessNames));
    iProperty* typesProp = props.find(WString(NVK_JobInfoAccessTypes));
    iProperty* includesProp = props.find(WString(NVK_JobInfoAccessIncludes));
    debug(target, u"CAuthUtils::GetJobSharingProps: namesProp = 0x%x, typesProp = 0x%x, includesProp = 0x%x",
          uintptr_t(namesProp), uintptr_t(typesProp), uintptr_t(includesProp));
    std::vector<WString> u, g;
    const auto* names = arrayOf<StringArrayValue>(namesProp);
    const auto* types = arrayOf<StringArrayValue>(typesProp);
    const auto* includes = arrayOf<BooleanArrayValue>(includesProp);
    if (names && types && includes) {
        size_t n = std::min({names->size(), types->size(), includes->size()});
        for (size_t i = 0; i < n; ++i) {
            if (!includes->get(i)) continue;
            (equalsNoCase(types->get(i).view(), NVK_Auth_User) ? u : g).push_back(names->get(i));
        }
    }
    users.swap(u);
    groups.swap(g);
}

}  // namespace nvk
