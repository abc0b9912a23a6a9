#include "nvk/protocol/CPropertyUtils.h"

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Format.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/Value.h"

namespace nvk {

using tovan::iParameter;
using tovan::iProperty;
using tovan::NumberSigns;
using tovan::NVK_PromotedFromNew;
using tovan::StringArrayValue;
using tovan::WString;

namespace {

// Properties and parameters keep their metadata the same way; the stack code is written once
// over both.
template <class Owner>
iProperty* findEntry(const Owner& owner) {
    tovan::iPropertyCollection* md = owner.findMetaData();
    return md ? md->find(NVK_PromotedFromNew) : nullptr;
}

template <class Owner>
void push(Owner& owner, const WString& name) {
    tovan::iPropertyCollection& md = owner.getMetaData();
    iProperty* entry = md.find(NVK_PromotedFromNew);
    StringArrayValue stack;
    if (entry)
        if (auto* old = dynamic_cast<const StringArrayValue*>(&entry->getValue())) stack = *old;
    stack.append(name);
    if (entry)
        entry->setValue(stack);
    else
        md.define(NVK_PromotedFromNew, stack);
}

template <class Owner>
bool pop(Owner& owner) {
    iProperty* entry = findEntry(owner);
    if (!entry) return false;
    auto* old = dynamic_cast<const StringArrayValue*>(&entry->getValue());
    if (old && old->size() >= 2) {
        StringArrayValue stack(*old);
        stack.resize(stack.size() - 1);
        entry->setValue(stack);
    } else {
        owner.findMetaData()->remove(NVK_PromotedFromNew);
    }
    return true;
}

template <class Owner>
bool top(const Owner& owner, WString& name) {
    name = WString::empty();
    const iProperty* entry = findEntry(owner);
    if (!entry) return false;
    auto* stack = dynamic_cast<const StringArrayValue*>(&entry->getValue());
    if (!stack) {
        name = entry->getValue().toString();
        return true;
    }
    if (stack->size() == 0) return false;
    name = stack->get(stack->size() - 1);
    return true;
}

template <class Owner>
bool update(Owner& owner, int oldIndex, int newIndex) {
    WString name, prefix, suffix;
    int index = -1;
    if (!top(owner, name) || !CPropertyUtils::parseSeriesParameterName(name, prefix, index, suffix) ||
        index != oldIndex)
        return false;
    pop(owner);
    push(owner, CPropertyUtils::createSeriesParameterName(prefix, newIndex, suffix));
    return true;
}

bool isSeriesSpace(char16_t c) { return c == u'\t' || c == u'\n' || c == u'\r' || c == u' ' || c == u'\u00a0'; }
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

}  // namespace

void CPropertyUtils::pushPromotedFrom(iProperty& property, const WString& name) { push(property, name); }
void CPropertyUtils::pushPromotedFrom(iParameter& parameter, const WString& name) { push(parameter, name); }
bool CPropertyUtils::popPromotedFrom(iProperty& property) { return pop(property); }
bool CPropertyUtils::popPromotedFrom(iParameter& parameter) { return pop(parameter); }
bool CPropertyUtils::hasPromotedFrom(const iProperty& property) { return findEntry(property) != nullptr; }
bool CPropertyUtils::hasPromotedFrom(const iParameter& parameter) { return findEntry(parameter) != nullptr; }
bool CPropertyUtils::topPromotedFrom(const iProperty& property, WString& name) { return top(property, name); }
bool CPropertyUtils::topPromotedFrom(const iParameter& parameter, WString& name) { return top(parameter, name); }

bool CPropertyUtils::updatePromotionFromMetadata(iProperty& property, int oldIndex, int newIndex) {
    return update(property, oldIndex, newIndex);
}

bool CPropertyUtils::updatePromotionFromMetadata(iParameter& parameter, int oldIndex, int newIndex) {
    return update(parameter, oldIndex, newIndex);
}

void CPropertyUtils::createSeriesParameterName(const WString& prefix, int index, const WString& suffix, WString& out) {
    out = suffix.isEmpty() ? tovan::format(u"%ls %d", prefix, index) : tovan::format(u"%ls %d %ls", prefix, index, suffix);
}

WString CPropertyUtils::createSeriesParameterName(const WString& prefix, int index, const WString& suffix) {
    WString out;
    createSeriesParameterName(prefix, index, suffix, out);
    return out;
}

bool CPropertyUtils::parseSeriesParameterName(const WString& name, WString& prefix, int& index, WString& suffix) {
    if (name.isEmpty()) return false;
    prefix = WString::empty();
    suffix = WString::empty();
    index = -1;
    const std::u16string_view text = name.view();
    // Backward scan: the run of digits seen last (its start and length) and the leftmost
    // whitespace since anything else was seen. Whitespace ends the scan once a run is seen;
    // a scan that reaches the first character may end on a run with whitespace after it.
    size_t runStart = 0, runLength = 0, space = std::u16string_view::npos;
    for (size_t i = text.size(); i-- > 0;) {
        char16_t c = text[i];
        if (isDigit(c)) {
            runStart = i;
            ++runLength;
        } else if (isSeriesSpace(c)) {
            space = i;
            if (runLength > 0) break;
        } else {
            runLength = 0;
            space = std::u16string_view::npos;
        }
    }
    if (runLength == 0 || space == std::u16string_view::npos) return false;
    int value = 0;
    if (!tovan::parseInteger(text.substr(runStart, runLength), value, NumberSigns::None)) return false;
    std::u16string_view rest = text.substr(runStart + runLength);
    while (!rest.empty() && isSeriesSpace(rest.front())) rest.remove_prefix(1);
    while (!rest.empty() && isSeriesSpace(rest.back())) rest.remove_suffix(1);
    prefix = WString(text.substr(0, space));
    index = int(value);
    suffix = WString(rest);
    return true;
}

int CPropertyUtils::getSeriesParameterIndex(const WString& name) {
    WString prefix, suffix;
    int index = -1;
    return parseSeriesParameterName(name, prefix, index, suffix) ? index : -1;
}

}  // namespace nvk
