#pragma once
// Declarations of the metadata a deployment offers: categories of metadata
// properties, each with a data type, a help text, legal values and options.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iPropertyCollection.h"

namespace nvk {

/// The four data types a metadata property can declare, in this order. The
/// texts are what a declaration names (compared folding A-Z, blanks around
/// them ignored) and what GetType() returns.
extern NVK_EXPORT const char16_t* const NVK_StringType;  // "string"
extern NVK_EXPORT const char16_t* const NVK_LongType;    // "long"
extern NVK_EXPORT const char16_t* const NVK_DoubleType;  // "double"
extern NVK_EXPORT const char16_t* const NVK_BoolType;    // "bool"

/// One declared metadata property. Its name is the part of the declaration's
/// name after the category separator ("Units_Length" gives category "Units"
/// and name "Length").
class NVK_EXPORT CMetaDataProperty {
public:
    static const char16_t* const s_MetaDataCategoryNameSeparator;  // "_"

    CMetaDataProperty() = default;
    CMetaDataProperty(tovan::WString categoryName, tovan::WString name)
        : categoryName_(std::move(categoryName)), name_(std::move(name)) {}

    const tovan::WString& GetCategoryName() const { return categoryName_; }
    const tovan::WString& GetName() const { return name_; }
    /// One of the four type texts (NVK_StringType ...).
    const tovan::WString& GetType() const { return type_; }
    const tovan::WString& GetHelpText() const { return helpText_; }
    int GetNumLegalValues() const { return int(legalValues_.size()); }
    /// Empty: any value is allowed.
    const std::vector<tovan::WString>& GetLegalValues() const { return legalValues_; }
    const std::vector<tovan::WString>& GetOptions() const { return options_; }

    /// The text before the first separator of `name`, in `category`; empty
    /// when there is no separator or it comes first. Returns the position
    /// after the separator (0 when the category is empty).
    static size_t ExtractCategoryName(const tovan::WString& name, tovan::WString& category);

private:
    friend class CPredefinedMetaData;

    tovan::WString categoryName_;
    tovan::WString name_;
    tovan::WString type_;
    tovan::WString helpText_;
    std::vector<tovan::WString> legalValues_;
    std::vector<tovan::WString> options_;
};

/// A named group of metadata properties, in declaration order. Property
/// names compare folding A-Z. Adding a property may move the others, so
/// pointers from FindProperty hold only until the next GetProperty.
class NVK_EXPORT CMetaDataCategory {
public:
    CMetaDataCategory() = default;
    explicit CMetaDataCategory(tovan::WString name) : categoryName_(std::move(name)) {}

    const tovan::WString& GetCategoryName() const { return categoryName_; }
    int GetNumProperties() const { return int(metaProperties_.size()); }
    void GetAllPropertyNames(std::vector<tovan::WString>& names) const;
    /// Null outside the category.
    const CMetaDataProperty* FindProperty(int index) const;
    /// Null when absent.
    const CMetaDataProperty* FindProperty(const tovan::WString& name) const;
    /// The property, added (empty) when absent.
    CMetaDataProperty& GetProperty(const tovan::WString& name);

private:
    tovan::WString categoryName_;
    std::vector<CMetaDataProperty> metaProperties_;
};

/// The metadata declarations read from a property collection.
///
/// Each property of the collection is one declaration. The one named
/// "Metadata Category Name" lists categories (a string array, or one text).
/// Every other one is named "<category>_<property>" and holds a string
/// array in one of two forms:
///   original:   type, help text, legal value, legal value, ...
///   version 100: "100", type, help text, "legal,values", "option,list"
///                (items trimmed; empty items kept, an empty text is no list)
/// Faulty declarations are skipped with a warning (Exception::warn) and the
/// rest is still read. Category names compare folding A-Z; pointers from
/// FindCategory hold only until the next GetCategory or load.
class NVK_EXPORT CPredefinedMetaData {
public:
    /// Bit 0 of `flags`: drop categories left without properties after loading.
    explicit CPredefinedMetaData(int flags = 0) : dropEmptyCategories_(flags) {}
    CPredefinedMetaData(const tovan::iPropertyCollection* definitions, int flags);

    /// Clears, then loads `definitions` (null or empty loads nothing).
    void SetPredefinedMetaData(const tovan::iPropertyCollection* definitions);
    /// Adds one declaration; a null or empty name or a null property is skipped.
    void AddMetaDataProperty(const tovan::WString& name, const tovan::iProperty* property);

    int GetNumCategories() const { return int(categories_.size()); }
    void GetAllCategoryNames(std::vector<tovan::WString>& names) const;
    const CMetaDataCategory* FindCategory(int index) const;
    const CMetaDataCategory* FindCategory(const tovan::WString& name) const;
    /// The category, added when absent.
    CMetaDataCategory& GetCategory(const tovan::WString& name);

    /// The four type texts in their order.
    static std::vector<tovan::WString> GetSupportedTypes();
    /// True when `type` names a supported type (blanks around it ignored,
    /// A-Z folded); `normalized` then receives the type's own text.
    static bool IsValidMetaDataType(const tovan::WString& type, tovan::WString& normalized);

private:
    void ReadOriginalFormat(CMetaDataProperty& target, const std::vector<tovan::WString>& values,
                            const tovan::WString& type);
    bool ReadVersion100(CMetaDataProperty& target, const std::vector<tovan::WString>& values,
                        const tovan::WString& definitionName);

    std::vector<CMetaDataCategory> categories_;
    int dropEmptyCategories_;
};

}  // namespace nvk
