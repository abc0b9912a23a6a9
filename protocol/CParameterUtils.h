#pragma once
// Component parameters by their link type (how a parameter takes its value from elsewhere),
// and the renames of series parameters.
//
// Link type texts compare folding A-Z. Choices the library makes where the link model leaves
// room:
// - A single-parent link "initializes using" its parent when the parameter's metadata holds
//   NVK_InitializeUsing as a true boolean or the text "true" (folding A-Z): the parent gives
//   only the first value, which the user may change.
// - A parameter's revert info is its NVK_RevertName metadata text, the name its default
//   definition is found under; renameRevertInfo makes it follow a rename.
// - The ancestors of a parameter are found up the group chain: a parent or single-parent
//   link's value (as text) names a parameter of the group component that holds the
//   parameter's protocol; that parameter may link further up. getAncestors lists those
//   names, nearest first, and stops at a parameter that is not a parent link, at a name the
//   group does not have, or at the top protocol.
// - setNevershowParameter creates a missing parameter with type NVK_StringType and the
//   metadata NVK_NeverShow true, so that editors hide it; an existing one only gets the value.
//
// All operations are static.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iParameter.h"
#include "nvk/platform/iProtocolInfo.h"

namespace nvk {

class NVK_EXPORT CParameterUtils {
public:
    /// The link type a type text names: 0 for null, for a text that does not start with "L"
    /// or "l", and for one that is none of the link texts.
    static tovan::ParamLinkType getParamLinkType(const tovan::WString& text);
    /// The same for the parameter's type text.
    static tovan::ParamLinkType getParamLinkType(const tovan::iParameter& parameter);
    /// The type's text; NVK_StringType for 0 and for any value outside the table.
    static const tovan::wchar* getParamLinkTypeText(int type);
    static bool isLinkType(int type) { return type != tovan::ParamStringType; }
    static bool isParentLinkType(int type) {
        return type == tovan::ParamLinkParentParameter || type == tovan::ParamLinkSingleParentParameter;
    }
    /// A single-parent link whose NVK_InitializeUsing setting is true.
    static bool isInitializeUsingParentParameterType(const tovan::iParameter& parameter);
    /// Sets the parameter's NVK_RevertName to `newName` when it has one; false when it had none.
    static bool renameRevertInfo(tovan::iParameter& parameter, const tovan::WString& newName);
    /// Renames the component's parameter (raising as iComponentInfo::renameParameter, with
    /// nothing changed), moves the top of its promotion stack from the old name's series
    /// index to the new one's, and then its revert info.
    static void renameSeriesParameter(tovan::iComponentInfo& component, const tovan::WString& oldName,
                                      const tovan::WString& newName);
    /// The names the parameter's parent links lead to, nearest first (`names` is replaced).
    static void getAncestors(const tovan::iComponentInfo& component, const tovan::iParameter& parameter,
                             std::vector<tovan::WString>& names);
    /// Gives the component's parameter `name` the value, creating it hidden when missing.
    static tovan::iParameter& setNevershowParameter(tovan::iComponentInfo& component, const tovan::WString& name,
                                                    const tovan::ParameterValue& value);
};

}  // namespace nvk
