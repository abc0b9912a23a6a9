#pragma once
// Component parameters: a named value, a type text that says whether (and how) the value is
// taken from elsewhere, and metadata such as the promotion stack.
#include <cstdint>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iPropertyCollection.h"

namespace tovan {

/// One parameter value: a text, an integer, a real number, a boolean, or an array of them.
struct NVK_EXPORT ParameterValue {
    enum Kind { Text, Integer, Real, Boolean, Array };
    Kind kind = Text;
    WString text = WString::empty();
    int64_t integer = 0;
    double real = 0;
    bool boolean = false;
    std::vector<ParameterValue> items;

    static ParameterValue ofText(WString t);
    static ParameterValue ofInteger(int64_t v);
    static ParameterValue ofReal(double v);
    static ParameterValue ofBoolean(bool v);
    static ParameterValue ofArray(std::vector<ParameterValue> items);
    bool operator==(const ParameterValue& o) const;
};

// ---- parameter type texts -----------------------------------------------------------------
// A parameter's type text is NVK_StringType for a value of its own, or one of the link types:
// the value names where the real value comes from. The stored texts are this framework's own
// and never change once released; they compare folding A-Z.

/// Not a link: the parameter holds its value.
inline constexpr wchar NVK_StringType[] = u"String";
/// The value names a parameter of the parent (group) component.
inline constexpr wchar NVK_LinkParentParameterType[] = u"LinkParentParameter";
/// The value names a global property of the job.
inline constexpr wchar NVK_LinkGlobalPropertyType[] = u"LinkGlobalProperty";
/// The value names a property of the data record passing through.
inline constexpr wchar NVK_LinkDataPropertyType[] = u"LinkDataProperty";
/// The value names another parameter of the same component.
inline constexpr wchar NVK_LinkAliasParameterType[] = u"LinkAliasParameter";
/// The value names a parameter of another component ("component: parameter").
inline constexpr wchar NVK_LinkComponentParameterType[] = u"LinkComponentParameter";
/// The value is a URL whose text is the real value.
inline constexpr wchar NVK_LinkTextURLType[] = u"LinkTextURL";
/// The value is an expression evaluated when the job runs.
inline constexpr wchar NVK_LinkExpressionType[] = u"LinkExpression";
/// As the parent link, for a parameter that takes one value of an array parent parameter.
inline constexpr wchar NVK_LinkSingleParentParameterType[] = u"LinkSingleParentParameter";

/// A parameter's link type: how it takes its value from elsewhere (0: it does not).
enum ParamLinkType : int {
    ParamStringType = 0,
    ParamLinkParentParameter = 1,
    ParamLinkGlobalProperty = 2,
    ParamLinkDataProperty = 3,
    ParamLinkAliasParameter = 4,
    ParamLinkComponentParameter = 5,
    ParamLinkTextURL = 6,
    ParamLinkExpression = 7,
    ParamLinkSingleParentParameter = 8,
};

// ---- parameter and property metadata keys ---------------------------------------------------

/// String array: the names a parameter (or property) was promoted from, the last one on top.
/// An older single text under the key counts as a one-element stack.
inline constexpr wchar NVK_PromotedFromNew[] = u"PromotedFromNew";
/// Boolean (or the text "true"/"false", folding A-Z): a single-parent link that only gives the
/// parameter its first value, which the user may then change.
inline constexpr wchar NVK_InitializeUsing[] = u"InitializeUsing";
/// Text: the name under which a parameter's default definition is found when it is reverted;
/// follows the parameter when a series parameter is renamed.
inline constexpr wchar NVK_RevertName[] = u"RevertName";
/// Boolean: a parameter that editors never show (set when the library creates one).
inline constexpr wchar NVK_NeverShow[] = u"NeverShow";

/// A component parameter. Components create them (`iComponentInfo::setParameter`) and hold
/// one reference each; names are unique within a component, folding A-Z.
class NVK_EXPORT iParameter : public CountedObject {
public:
    ~iParameter() override;

    virtual const WString& getName() const = 0;
    virtual const ParameterValue& getValue() const = 0;
    virtual void setValue(const ParameterValue& value) = 0;
    /// NVK_StringType or one of the link types; never null (a null text sets NVK_StringType).
    virtual const WString& getTypeText() const = 0;
    virtual void setTypeText(const WString& type) = 0;
    /// The parameter's metadata values, created on first use.
    virtual iPropertyCollection& getMetaData() = 0;
    /// The metadata values, or null when there are none.
    virtual iPropertyCollection* findMetaData() const = 0;
};

}  // namespace tovan
