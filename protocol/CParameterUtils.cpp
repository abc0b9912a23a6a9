#include "nvk/protocol/CParameterUtils.h"

#include "nvk/platform/Value.h"
#include "nvk/protocol/CPropertyUtils.h"

namespace nvk {

using namespace tovan;

namespace {

struct LinkText {
    ParamLinkType type;
    const wchar* text;
};

// The order the texts are tried in.
constexpr LinkText kLinkTexts[] = {
    {ParamLinkParentParameter, NVK_LinkParentParameterType},
    {ParamLinkSingleParentParameter, NVK_LinkSingleParentParameterType},
    {ParamLinkGlobalProperty, NVK_LinkGlobalPropertyType},
    {ParamLinkDataProperty, NVK_LinkDataPropertyType},
    {ParamLinkAliasParameter, NVK_LinkAliasParameterType},
    {ParamLinkExpression, NVK_LinkExpressionType},
    {ParamLinkTextURL, NVK_LinkTextURLType},
    {ParamLinkComponentParameter, NVK_LinkComponentParameterType},
};

const iProperty* findSetting(const iParameter& parameter, const wchar* key) {
    const iPropertyCollection* md = parameter.findMetaData();
    return md ? md->find(key) : nullptr;
}

}  // namespace

ParamLinkType CParameterUtils::getParamLinkType(const WString& text) {
    if (text.isEmpty() || (text[0] != u'L' && text[0] != u'l')) return ParamStringType;
    for (const LinkText& link : kLinkTexts)
        if (equalsNoCase(text.view(), link.text)) return link.type;
    return ParamStringType;
}

ParamLinkType CParameterUtils::getParamLinkType(const iParameter& parameter) {
    return getParamLinkType(parameter.getTypeText());
}

const wchar* CParameterUtils::getParamLinkTypeText(int type) {
    for (const LinkText& link : kLinkTexts)
        if (link.type == type) return link.text;
    return NVK_StringType;
}

bool CParameterUtils::isInitializeUsingParentParameterType(const iParameter& parameter) {
    if (!equalsNoCase(parameter.getTypeText().view(), NVK_LinkSingleParentParameterType)) return false;
    const iProperty* setting = findSetting(parameter, NVK_InitializeUsing);
    if (!setting) return false;
    if (auto* b = dynamic_cast<const BooleanValue*>(&setting->getValue())) return b->get();
    return equalsNoCase(setting->getValue().toString().view(), u"true");
}

bool CParameterUtils::renameRevertInfo(iParameter& parameter, const WString& newName) {
    iPropertyCollection* md = parameter.findMetaData();
    iProperty* revert = md ? md->find(NVK_RevertName) : nullptr;
    if (!revert) return false;
    revert->setValue(StringValue(newName));
    return true;
}

void CParameterUtils::renameSeriesParameter(iComponentInfo& component, const WString& oldName, const WString& newName) {
    component.renameParameter(oldName, newName);
    iParameter& parameter = *component.findParameter(newName);
    CPropertyUtils::updatePromotionFromMetadata(parameter, CPropertyUtils::getSeriesParameterIndex(oldName),
                                                CPropertyUtils::getSeriesParameterIndex(newName));
    renameRevertInfo(parameter, newName);
}

void CParameterUtils::getAncestors(const iComponentInfo& component, const iParameter& parameter,
                                   std::vector<WString>& names) {
    names.clear();
    const iComponentInfo* holder = &component;
    const iParameter* current = &parameter;
    while (isParentLinkType(getParamLinkType(*current))) {
        const iProtocolInfo* protocol = holder->getProtocol();
        holder = protocol ? protocol->getParentComponent() : nullptr;
        if (!holder) break;
        const WString& parentName = current->getValue().text;
        current = holder->findParameter(parentName);
        if (!current) break;
        names.push_back(current->getName());
    }
}

iParameter& CParameterUtils::setNevershowParameter(iComponentInfo& component, const WString& name,
                                                   const ParameterValue& value) {
    if (iParameter* existing = component.findParameter(name)) {
        existing->setValue(value);
        return *existing;
    }
    iParameter& created = component.setParameter(name, value);
    created.getMetaData().define(NVK_NeverShow, BooleanValue(true));
    return created;
}

}  // namespace nvk
