#include <gtest/gtest.h>

#include "nvk/data/CPredefinedMetaData.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ArrayValue.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvk::CMetaDataProperty;
using nvk::CPredefinedMetaData;
using nvktest::utf8;

namespace {

struct Definitions {
    Ptr<nvk::CPropertyCollection> list{nvk::CPropertyCollection::newInstance()};
    Definitions& add(const char16_t* name, std::initializer_list<const char16_t*> values) {
        StringArrayValue v;
        for (const char16_t* s : values) v.append(WString(s));
        list->define(name, v);
        return *this;
    }
    Definitions& add(const char16_t* name, const Value& v) {
        list->define(name, v);
        return *this;
    }
};

std::vector<std::string> utf8All(const std::vector<WString>& v) {
    std::vector<std::string> out;
    for (const WString& s : v) out.push_back(utf8(s));
    return out;
}

using Strings = std::vector<std::string>;

}  // namespace

TEST(PredefinedMetaData, ReadsBothFormats) {
    Definitions d;
    d.add(u"Units_Length", {u"100", u"string", u"A length", u"m,cm, mm", u""})
        .add(u" Display_Color\t", {u" String ", u"Shown colour", u"red", u"green"})
        .add(u"display_Size", {u"100", u"LONG", u"Size", u"", u"a , b"})
        .add(u"Units_Gap", {u"100", u"string", u"Gaps", u"a,, b , ", u","});
    DiagnosticCapture capture;
    CPredefinedMetaData meta(d.list.get(), 0);
    EXPECT_TRUE(capture.warnings().empty());

    std::vector<WString> names;
    meta.GetAllCategoryNames(names);
    EXPECT_EQ(utf8All(names), (Strings{"Units", "Display"}));
    const CMetaDataProperty* length = meta.FindCategory(u"UNITS")->FindProperty(u"length");
    ASSERT_NE(length, nullptr);
    EXPECT_EQ(utf8(length->GetName()), "Length");
    EXPECT_EQ(utf8(length->GetCategoryName()), "Units");
    EXPECT_EQ(utf8(length->GetType()), "string");
    EXPECT_EQ(utf8(length->GetHelpText()), "A length");
    EXPECT_EQ(utf8All(length->GetLegalValues()), (Strings{"m", "cm", "mm"}));
    EXPECT_TRUE(length->GetOptions().empty());
    // Empty items of a list are kept; only an empty element gives an empty list.
    const CMetaDataProperty* gap = meta.FindCategory(u"Units")->FindProperty(u"Gap");
    ASSERT_NE(gap, nullptr);
    EXPECT_EQ(utf8All(gap->GetLegalValues()), (Strings{"a", "", "b", ""}));
    EXPECT_EQ(utf8All(gap->GetOptions()), (Strings{"", ""}));

    const nvk::CMetaDataCategory* display = meta.FindCategory(1);
    ASSERT_NE(display, nullptr);
    display->GetAllPropertyNames(names);
    EXPECT_EQ(utf8All(names), (Strings{"Color", "Size"}));
    EXPECT_EQ(utf8(display->FindProperty(0)->GetType()), "string");
    EXPECT_EQ(utf8All(display->FindProperty(0)->GetLegalValues()), (Strings{"red", "green"}));
    EXPECT_EQ(utf8(display->FindProperty(1)->GetType()), "long");
    EXPECT_EQ(display->FindProperty(1)->GetNumLegalValues(), 0);
    EXPECT_EQ(utf8All(display->FindProperty(1)->GetOptions()), (Strings{"a", "b"}));
    EXPECT_EQ(display->FindProperty(2), nullptr);
    EXPECT_EQ(meta.FindCategory(2), nullptr);
}

TEST(PredefinedMetaData, FaultyDefinitionsAreSkippedWithWarnings) {
    Definitions d;
    d.add(u"NoCategory", {u"string", u"help"})
        .add(u"_Leading", {u"string", u"help"})
        .add(u"Units_Short", {u"100", u"string", u"help", u"m"})
        .add(u"Units_Type", {u"100", u"float", u"help", u"", u""})
        .add(u"Units_Number", IntegerValue(3))
        .add(u"Units_Empty", std::initializer_list<const char16_t*>{})
        .add(u"Units_Alone", {u"double"})
        .add(u"Units_Odd", {u"7", u"x"})
        .add(u"Units_Good", {u"bool", u"help"});
    DiagnosticCapture capture;
    CPredefinedMetaData meta(d.list.get(), 0);
    EXPECT_EQ(capture.warnings(),
              (Strings{
                  "MetaData property \"NoCategory\" is ignored due to empty category name. Pre-defined MetaData "
                  "property must follow the naming convention of: <category name>_<property name>.",
                  "MetaData property \"_Leading\" is ignored due to empty category name. Pre-defined MetaData "
                  "property must follow the naming convention of: <category name>_<property name>.",
                  "Invalid length for format version 100 for metadata property \"Units_Short\". Legal length is 5.",
                  "Invalid data type \"float\" for metadata property \"Units_Type\". Metadata property only supports "
                  "the following data types: string, long, double and bool",
                  "Metadata property \"Units_Number\" is ignored due to invalid value format. Metadata property must "
                  "have at least two values. The first one is the data type, and the second one is the help text.",
                  "Metadata property \"Units_Empty\" has no values, ignored",
                  "Metadata property \"Units_Alone\" is ignored due to insufficient values. Metadata property must "
                  "have at least two values: the first one is the data type, and the second one is the help text.",
                  "Metadata property \"Units_Odd\" not in legal format, ignored",
              }));
    ASSERT_EQ(meta.GetNumCategories(), 1);
    std::vector<WString> names;
    meta.FindCategory(0)->GetAllPropertyNames(names);
    EXPECT_EQ(utf8All(names), (Strings{"Good"}));
}

TEST(PredefinedMetaData, CategoryListAndDroppingEmptyCategories) {
    Definitions d;
    d.add(u"metadata category name", {u"Empty", u"", u"Units", u"Later"})
        .add(u"Units_Length", {u"string", u"help"})
        .add(u"Later_Bad", {u"100"});
    {
        DiagnosticCapture capture;
        CPredefinedMetaData keepAll(d.list.get(), 0);
        EXPECT_EQ(keepAll.GetNumCategories(), 3);
    }
    DiagnosticCapture capture;
    CPredefinedMetaData meta(d.list.get(), 1);
    EXPECT_EQ(capture.warnings(),
              (Strings{"Invalid length for format version 100 for metadata property \"Later_Bad\". Legal length is 5.",
                       "Metadata category \"Later\" has no properties thus is ignored.",
                       "Metadata category \"Empty\" has no properties thus is ignored."}));
    std::vector<WString> names;
    meta.GetAllCategoryNames(names);
    EXPECT_EQ(utf8All(names), (Strings{"Units"}));

    // One category named by a plain text; reloading starts from scratch.
    Definitions single;
    single.add(u"Metadata Category Name", StringValue(u"Solo"));
    meta = CPredefinedMetaData(0);
    meta.SetPredefinedMetaData(single.list.get());
    meta.GetAllCategoryNames(names);
    EXPECT_EQ(utf8All(names), (Strings{"Solo"}));
    meta.SetPredefinedMetaData(nullptr);
    EXPECT_EQ(meta.GetNumCategories(), 0);
    const nvk::CMetaDataCategory* added = &meta.GetCategory(u"new");
    EXPECT_EQ(meta.FindCategory(u"NEW"), added);
    EXPECT_EQ(&meta.GetCategory(u"New"), added);

    WString category;
    EXPECT_EQ(CMetaDataProperty::ExtractCategoryName(u"a_b_c", category), 2u);
    EXPECT_EQ(utf8(category), "a");
}
