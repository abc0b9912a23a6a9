// Type inference for JSON elements and arrays.
#include "nvk/interchange/CJsonDataTyper.h"
#include "tests/interchange/JsonTestSupport.h"

using nvk::CJsonDataTyper;
using namespace cajun::json;

namespace {

Element parse(const std::u16string& text) {
    Element e;
    Parser(jsontest::tokensOf(text)).ParseValue(e);
    return e;
}

std::string typeLetters(const CJsonDataTyper& typer) {
    tovan::WString text = tovan::WString::empty();
    typer.PrintValueType(text);
    return tovan::toNarrow(text);
}

}  // namespace

TEST(JsonDataTyper, TypesElementsAndMergesArrays) {
    // The type letters, and whether the array is regular with these dimensions
    // (arrays whose converted property shows the same are in the converter's test).
    const struct {
        const char16_t* json;
        const char* letters;
        bool regular;
        std::vector<unsigned> dims;
    } cases[] = {
        {u"true", "b", false, {}},
        {u"\"s\"", "s", false, {}},
        {u"null", "0", false, {}},
        {u"{}", "o", false, {}},
        {u"2147483647", "i", false, {}},
        {u"-2147483648", "i", false, {}},
        {u"3.0", "i", false, {}},
        {u"-0", "i", false, {}},
        {u"2147483648", "d", false, {}},
        {u"-2147483649", "d", false, {}},
        {u"1e10", "d", false, {}},
        {u"0.5", "d", false, {}},
        {u"Infinity", "d", false, {}},
        {u"[2.5, 1]", "a2d", false, {}},
        {u"[1, \"s\"]", "a2v", false, {}},
        {u"[null, 1]", "a2v", false, {}},
        {u"[true, 1]", "a2v", false, {}},
        {u"[1, \"s\", 2.5]", "a3v", false, {}},  // variant stays variant
        {u"[{}, {\"a\": 1}]", "a2o", false, {}},
        {u"[[1, 2], [true, 1]]", "a2a2i", true, {2, 2}},  // the deliberate asymmetry
        {u"[[true, 1], [1, 2]]", "a2a2v", true, {2, 2}},
        {u"[[1, 2, 3], [4, 5, 6]]", "a2a3i", true, {2, 3}},
        {u"[[[1], [2]], [[3], [4.5]]]", "a2v", false, {}},  // only one-dimensional arrays merge by type
        {u"[[[1], [2]], [[3], [4, 5]]]", "a2v", false, {}},
        {u"[[], []]", "a2a00", true, {2, 0}},
        {u"[[], [1]]", "a2v", false, {}},
        {u"[1, [1]]", "a2v", false, {}},
        {u"[[1], 1]", "a2v", false, {}},
        {u"[[{}], [{}]]", "a2a1o", true, {2, 1}},
    };
    for (const auto& c : cases) {
        CJsonDataTyper typer;
        typer.ProcessElement(parse(c.json));
        EXPECT_EQ(typeLetters(typer), c.letters) << nvktest::utf8(c.json);
        tovan::Array<unsigned> dims{99};
        EXPECT_EQ(typer.GetArrayDimensions(dims), c.regular) << nvktest::utf8(c.json);
        EXPECT_EQ(std::vector<unsigned>(dims.begin(), dims.end()), c.dims) << nvktest::utf8(c.json);
    }
}

TEST(JsonDataTyper, ReportsFirstAndLastEntriesAndTypesOnce) {
    CJsonDataTyper empty;
    EXPECT_EQ(empty.GetValueType(), CJsonDataTyper::TypeNone);
    EXPECT_EQ(empty.GetArrayElementType(), CJsonDataTyper::TypeNone);
    EXPECT_EQ(typeLetters(empty), "");

    CJsonDataTyper typer;
    typer.ProcessElement(parse(u"[[1, 2, 3], [4, 5, 6]]"));
    EXPECT_EQ(typer.GetValueType(), CJsonDataTyper::TypeArray);
    EXPECT_EQ(typer.GetArrayElementType(), CJsonDataTyper::TypeInteger);
    EXPECT_EQ(typer.GetTypeSequence(), (tovan::Array<CJsonDataTyper::ValueType>{
                                           CJsonDataTyper::TypeArray, CJsonDataTyper::ValueType(2),
                                           CJsonDataTyper::TypeArray, CJsonDataTyper::ValueType(3),
                                           CJsonDataTyper::TypeInteger}));
    EXPECT_THROW_MSG(typer.ProcessElement(1), tovan::Exception, "Data typer parsing error.");
    EXPECT_THROW_MSG(typer.ProcessElement(Array()), tovan::Exception, "Data typer parsing error.");
    EXPECT_EQ(typeLetters(typer), "a2a3i");  // unchanged by the refused calls

    CJsonDataTyper scalar;
    scalar.ProcessElement(2.5);
    EXPECT_EQ(scalar.GetValueType(), CJsonDataTyper::TypeDouble);
    auto detached = scalar.DetachDataType();
    ASSERT_TRUE(detached);
    EXPECT_EQ(scalar.GetValueType(), CJsonDataTyper::TypeNone);
    scalar.ProcessElement(7);  // an emptied typer takes a new element
    EXPECT_EQ(scalar.GetValueType(), CJsonDataTyper::TypeInteger);
}
