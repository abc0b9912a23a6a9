#include "nvk/platform/iProtocolInfo.h"

namespace tovan {

iParameter::~iParameter() = default;

ParameterValue ParameterValue::ofText(WString t) {
    ParameterValue v;
    v.kind = Text;
    v.text = t.isNull() ? WString::empty() : std::move(t);
    return v;
}

ParameterValue ParameterValue::ofInteger(int64_t i) {
    ParameterValue v;
    v.kind = Integer;
    v.integer = i;
    return v;
}

ParameterValue ParameterValue::ofReal(double d) {
    ParameterValue v;
    v.kind = Real;
    v.real = d;
    return v;
}

ParameterValue ParameterValue::ofBoolean(bool b) {
    ParameterValue v;
    v.kind = Boolean;
    v.boolean = b;
    return v;
}

ParameterValue ParameterValue::ofArray(std::vector<ParameterValue> items) {
    ParameterValue v;
    v.kind = Array;
    v.items = std::move(items);
    return v;
}

bool ParameterValue::operator==(const ParameterValue& o) const {
    if (kind != o.kind) return false;
    switch (kind) {
        case Text: return text == o.text;
        case Integer: return integer == o.integer;
        case Real: return real == o.real;
        case Boolean: return boolean == o.boolean;
        case Array: return items == o.items;
    }
    return false;
}

}  // namespace tovan
