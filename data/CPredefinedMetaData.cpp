#include "nvk/data/CPredefinedMetaData.h"

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"

namespace nvk {

using tovan::Exception;
using tovan::WString;

const char16_t* const NVK_StringType = u"string";
const char16_t* const NVK_LongType = u"long";
const char16_t* const NVK_DoubleType = u"double";
const char16_t* const NVK_BoolType = u"bool";

const char16_t* const CMetaDataProperty::s_MetaDataCategoryNameSeparator = u"_";

namespace {

const char16_t* const kCategoryListName = u"Metadata Category Name";
const char16_t* const kVersion100 = u"100";

bool isBlank(tovan::wchar c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == 0xA0; }

WString trimBlanks(const WString& s) {
    if (s.isNull()) return s;
    size_t b = 0, e = s.length();
    while (b < e && isBlank(s[b])) ++b;
    while (e > b && isBlank(s[e - 1])) --e;
    return s.substr(b, e - b);
}

/// Items of a comma-separated list, each trimmed. An empty text gives an empty list;
/// otherwise every item is kept, an empty one too ("a,,b" and "a, " keep theirs).
std::vector<WString> splitList(const WString& text) {
    std::vector<WString> items;
    size_t start = 0;
    const size_t n = text.length();
    while (start <= n && n > 0) {
        size_t comma = text.find(u',', start);
        if (comma == WString::std_type::npos) comma = n;
        items.push_back(trimBlanks(text.substr(start, comma - start)));
        start = comma + 1;
    }
    return items;
}

}  // namespace

// ---- CMetaDataProperty -----------------------------------------------------------------

size_t CMetaDataProperty::ExtractCategoryName(const WString& name, WString& category) {
    size_t sep = name.find(s_MetaDataCategoryNameSeparator[0]);
    if (sep == WString::std_type::npos || sep == 0) {
        category = WString::empty();
        return 0;
    }
    category = name.substr(0, sep);
    return sep + 1;
}

// ---- CMetaDataCategory -----------------------------------------------------------------

void CMetaDataCategory::GetAllPropertyNames(std::vector<WString>& names) const {
    names.clear();
    for (const CMetaDataProperty& p : metaProperties_) names.push_back(p.GetName());
}

const CMetaDataProperty* CMetaDataCategory::FindProperty(int index) const {
    return index < 0 || size_t(index) >= metaProperties_.size() ? nullptr : &metaProperties_[size_t(index)];
}

const CMetaDataProperty* CMetaDataCategory::FindProperty(const WString& name) const {
    for (const CMetaDataProperty& p : metaProperties_)
        if (tovan::namesEqual(p.GetName(), name)) return &p;
    return nullptr;
}

CMetaDataProperty& CMetaDataCategory::GetProperty(const WString& name) {
    if (const CMetaDataProperty* p = FindProperty(name)) return const_cast<CMetaDataProperty&>(*p);
    return metaProperties_.emplace_back(categoryName_, name);
}

// ---- CPredefinedMetaData ---------------------------------------------------------------

CPredefinedMetaData::CPredefinedMetaData(const tovan::iPropertyCollection* definitions, int flags)
    : dropEmptyCategories_(flags) {
    SetPredefinedMetaData(definitions);
}

std::vector<WString> CPredefinedMetaData::GetSupportedTypes() {
    return {NVK_StringType, NVK_LongType, NVK_DoubleType, NVK_BoolType};
}

bool CPredefinedMetaData::IsValidMetaDataType(const WString& type, WString& normalized) {
    const WString t = trimBlanks(type);
    for (const char16_t* supported : {NVK_StringType, NVK_LongType, NVK_DoubleType, NVK_BoolType})
        if (!t.isNull() && tovan::equalsNoCase(t.view(), supported)) {
            normalized = WString(supported);
            return true;
        }
    return false;
}

void CPredefinedMetaData::GetAllCategoryNames(std::vector<WString>& names) const {
    names.clear();
    for (const CMetaDataCategory& c : categories_) names.push_back(c.GetCategoryName());
}

const CMetaDataCategory* CPredefinedMetaData::FindCategory(int index) const {
    return index < 0 || size_t(index) >= categories_.size() ? nullptr : &categories_[size_t(index)];
}

const CMetaDataCategory* CPredefinedMetaData::FindCategory(const WString& name) const {
    for (const CMetaDataCategory& c : categories_)
        if (tovan::namesEqual(c.GetCategoryName(), name)) return &c;
    return nullptr;
}

CMetaDataCategory& CPredefinedMetaData::GetCategory(const WString& name) {
    if (const CMetaDataCategory* c = FindCategory(name)) return const_cast<CMetaDataCategory&>(*c);
    return categories_.emplace_back(name);
}

void CPredefinedMetaData::SetPredefinedMetaData(const tovan::iPropertyCollection* definitions) {
    categories_.clear();
    if (!definitions) return;
    const int n = definitions->getSize();
    for (int i = 0; i < n; ++i) {
        const tovan::iProperty& p = definitions->get(i);
        const WString name = trimBlanks(p.getName());
        if (!name.isNull() && tovan::equalsNoCase(name.view(), kCategoryListName)) {
            const tovan::Value& v = p.getValue();
            if (auto* list = dynamic_cast<const tovan::StringArrayValue*>(&v)) {
                for (size_t k = 0; k < list->size(); ++k)
                    if (!list->get(k).isEmpty()) GetCategory(list->get(k));
            } else if (WString text = v.toString(); !text.isEmpty()) {
                GetCategory(text);
            }
            continue;
        }
        AddMetaDataProperty(name, &p);
    }
    if (dropEmptyCategories_ & 1) {
        for (size_t k = categories_.size(); k-- > 0;) {
            if (categories_[k].GetNumProperties() != 0) continue;
            Exception::warn(u"Metadata category \"%ls\" has no properties thus is ignored.",
                            categories_[k].GetCategoryName());
            categories_.erase(categories_.begin() + std::ptrdiff_t(k));
        }
    }
}

void CPredefinedMetaData::AddMetaDataProperty(const WString& name, const tovan::iProperty* property) {
    if (name.isEmpty() || !property) return;
    WString categoryName;
    const size_t leafAt = CMetaDataProperty::ExtractCategoryName(name, categoryName);
    if (categoryName.isEmpty()) {
        Exception::warn(u"MetaData property \"%ls\" is ignored due to empty category name. Pre-defined MetaData "
                        u"property must follow the naming convention of: <category name>_<property name>.",
                        name);
        return;
    }
    CMetaDataCategory& category = GetCategory(categoryName);

    auto* list = dynamic_cast<const tovan::StringArrayValue*>(&property->getValue());
    if (!list) {
        Exception::warn(u"Metadata property \"%ls\" is ignored due to invalid value format. Metadata property must "
                        u"have at least two values. The first one is the data type, and the second one is the help "
                        u"text.",
                        name);
        return;
    }
    if (list->size() == 0) {
        Exception::warn(u"Metadata property \"%ls\" has no values, ignored", name);
        return;
    }
    std::vector<WString> values(list->items().begin(), list->items().end());
    const WString leaf = name.substr(leafAt);

    WString type;
    if (IsValidMetaDataType(values[0], type)) {
        if (values.size() < 2) {
            Exception::warn(u"Metadata property \"%ls\" is ignored due to insufficient values. Metadata property "
                            u"must have at least two values: the first one is the data type, and the second one is "
                            u"the help text.",
                            name);
            return;
        }
        ReadOriginalFormat(category.GetProperty(leaf), values, type);
    } else if (values[0] == kVersion100) {
        if (values.size() != 5) {
            Exception::warn(u"Invalid length for format version 100 for metadata property \"%ls\". Legal length is 5.",
                            name);
            return;
        }
        CMetaDataProperty parsed(categoryName, leaf);
        if (ReadVersion100(parsed, values, name)) category.GetProperty(leaf) = std::move(parsed);
    } else {
        Exception::warn(u"Metadata property \"%ls\" not in legal format, ignored", name);
    }
}

void CPredefinedMetaData::ReadOriginalFormat(CMetaDataProperty& target, const std::vector<WString>& values,
                                             const WString& type) {
    target.type_ = type;
    target.helpText_ = values[1];
    target.legalValues_.assign(values.begin() + 2, values.end());
    target.options_.clear();
}

bool CPredefinedMetaData::ReadVersion100(CMetaDataProperty& target, const std::vector<WString>& values,
                                         const WString& definitionName) {
    WString type;
    if (!IsValidMetaDataType(values[1], type)) {
        Exception::warn(u"Invalid data type \"%ls\" for metadata property \"%ls\". Metadata property only supports "
                        u"the following data types: %ls, %ls, %ls and %ls",
                        values[1], definitionName, WString(NVK_StringType), WString(NVK_LongType),
                        WString(NVK_DoubleType), WString(NVK_BoolType));
        return false;
    }
    target.type_ = type;
    target.helpText_ = values[2];
    target.legalValues_ = splitList(values[3]);
    target.options_ = splitList(values[4]);
    return true;
}

}  // namespace nvk
