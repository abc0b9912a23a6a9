// From JSON text to data nodes: node structure, property types, arrays.
#include "nvk/data/CBaseNode.h"
#include "nvk/interchange/CJsonConverter.h"
#include "tests/interchange/JsonTestSupport.h"

using nvk::CJsonConverter;
using tovan::Array;
using tovan::Ptr;
using tovan::iNode;

namespace {

std::string treesOf(const std::u16string& json) { return jsontest::describe(jsontest::readNodes(json)); }

// One member's property line.
std::string propertyOf(const std::u16string& memberJson) {
    std::string tree = treesOf(u"{\"p\": " + memberJson + u"}");
    size_t start = tree.find("  p: ");
    return start == std::string::npos ? tree : tree.substr(start + 5, tree.find('\n', start) - start - 5);
}

class HookCaller : public CJsonConverter {
public:
    using CJsonConverter::BeginArray;
    using CJsonConverter::BeginObject;
    using CJsonConverter::BeginValue;
    using CJsonConverter::EndArray;
    using CJsonConverter::EndObject;
    using CJsonConverter::EndValue;
};

}  // namespace

TEST(JsonConverter, ObjectsBecomeNodesAndMembersProperties) {
    EXPECT_EQ(treesOf(uR"({"id": 5, "name": "probe", "ok": true, "none": null, "x": 1.5,
                           "geometry": {"kind": "point", "at": {"x": 1}},
                           "items": [{"n": 1}, {"n": 2}], "empty": {}})"),
              "(unnamed)\n"
              "  id: Integer = 5\n"
              "  name: String = \"probe\"\n"
              "  ok: Boolean = true\n"
              "  none: Null = null\n"
              "  x: Double = 1.5\n"
              "  geometry\n"
              "    kind: String = \"point\"\n"
              "    at\n"
              "      x: Integer = 1\n"
              "  items\n"
              "    n: Integer = 1\n"
              "  items\n"
              "    n: Integer = 2\n"
              "  empty\n");
    // Names fold A-Z: a later member of the same name replaces the value in place.
    EXPECT_EQ(treesOf(uR"({"a": 1, "b": 2, "A": "x"})"), "(unnamed)\n  a: String = \"x\"\n  b: Integer = 2\n");
    EXPECT_EQ(treesOf(uR"({"a": 1, "b": true, "A": 2.5, "B": null})"), "(unnamed)\n  a: Double = 2.5\n  b: Null = null\n");
    // Names are literal, never paths to other nodes.
    EXPECT_EQ(treesOf(uR"({"/": 1, "/a/b": 2})"), "(unnamed)\n  /: Integer = 1\n  /a/b: Integer = 2\n");
    // Every object read is a node list of its own; "children" is just a name.
    EXPECT_EQ(treesOf(uR"([{"a": 1}, {"children": [{"b": 2}]}])"),
              "(unnamed)\n  a: Integer = 1\n(unnamed)\n  children\n    b: Integer = 2\n");
}

TEST(JsonConverter, ArraysBecomeArrayValuesOfTheirType) {
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"[1, 2, 3]", "IntegerArray = [1,2,3]"},
        {u"[1, 2.5]", "DoubleArray = [1.0,2.5]"},
        {u"[2.5, 1]", "DoubleArray = [2.5,1.0]"},
        {u"[\"a\", \"b\"]", "StringArray = [\"a\",\"b\"]"},
        {u"[true, false]", "BooleanArray = [true,false]"},
        {u"[null, null]", "NullArray = [null,null]"},
        {u"[]", "NullArray = []"},
        {u"[1, \"s\", null]", "ValueArray = [1,\"s\",null]"},
        {u"[[1, 2], [3, 4.5]]", "NDimArray 2x2 Double = [[1.0,2.0],[3.0,4.5]]"},
        {u"[[[1], [2]], [[3], [4]]]", "NDimArray 2x2x1 Integer = [[[1],[2]],[[3],[4]]]"},
        {u"[[\"a\"], [\"b\"]]", "NDimArray 2x1 String = [[\"a\"],[\"b\"]]"},
        {u"[[true, 1], [1, 2]]", "NDimArray 2x2 Value = [[true,1],[1,2]]"},
        // Typed integer by the deliberate asymmetry; stored with elements of any class.
        {u"[[1, 2], [true, 1]]", "NDimArray 2x2 Value = [[1,2],[true,1]]"},
        {u"[[1, 2], [3]]", "ValueArray = [[1,2],[3]]"},
        {u"[[1, 2], \"s\", [[1], [2.5, 3]]]", "ValueArray = [[1,2],\"s\",[[1],[2.5,3.0]]]"},
        {u"[1e10, 2147483647, -2147483648]", "DoubleArray = [1.0e+10,2147483647.0,-2147483648.0]"},
    };
    for (auto [json, property] : cases) EXPECT_EQ(propertyOf(json), property) << nvktest::utf8(json);

    // Objects beside scalars or arrays: the objects are child nodes, the rest
    // the property; a node whose members are all objects gets no property
    // collection at all.
    EXPECT_EQ(treesOf(uR"({"m": [1, {"a": 2}, 3]})"),
              "(unnamed)\n  m: IntegerArray = [1,3]\n  m\n    a: Integer = 2\n");
    EXPECT_EQ(treesOf(uR"({"m": [{"a": 1}, 2, "x", [3, 4]], "only": [{"b": true}]})"),
              "(unnamed)\n  m: ValueArray = [2,\"x\",[3,4]]\n  m\n    a: Integer = 1\n  only\n    b: Boolean = true\n");
    jsontest::Nodes nodes = jsontest::readNodes(u"{\"o\": {\"p\": {}}, \"q\": [{}]}");
    const iNode& root = *nodes[0];
    EXPECT_EQ(root.getProperties(), nullptr);
    EXPECT_EQ(static_cast<const iNode&>(*root.getChildAt(0)).getProperties(), nullptr);
    // Arrays of arrays of objects: every object is a child of the member's name.
    EXPECT_EQ(treesOf(uR"({"m": [[{"a": 1}], [{"a": 2}]]})"), "(unnamed)\n  m\n    a: Integer = 1\n  m\n    a: Integer = 2\n");
}

TEST(JsonConverter, RefusesObjectsInsideNDimensionalArrays) {
    EXPECT_THROW_MSG(treesOf(uR"({"m": [[{"a": 1}, 1], [1, 2]]})"), tovan::Exception,
                     "A JSON object cannot be an element of an n-dimensional array");
    nvk::CJsonArrayConverter converter(nvk::CJsonDataTyper::TypeObject);
    EXPECT_THROW_MSG(converter.ProcessArrayElement(cajun::json::Array(), Array<unsigned>{}), tovan::Exception,
                     "A JSON object cannot be an element of an n-dimensional array");
}

TEST(JsonConverter, ConvertsATopLevelArrayOfObjectsAndGuardsItsStacks) {
    cajun::json::Array records;
    cajun::json::Object a, b;
    a.Insert(u"k", cajun::json::Number(1));
    b.Insert(u"k", cajun::json::Number(2));
    records.PushBack(a);
    records.PushBack(b);
    CJsonConverter converter;
    converter.ProcessElement(records);
    Array<Ptr<iNode>> nodes{nullptr};
    converter.GetNodeList(nodes, false);
    ASSERT_EQ(nodes.size(), 3u);  // appended after what was there
    EXPECT_EQ(nvk::DescribeNodeTree(*nodes[2]), "(unnamed)\n  k: Integer = 2\n");
    EXPECT_EQ(nodes[1]->getRefCount(), 2);  // the converter's and ours
    converter.GetNodeList(nodes, true);
    EXPECT_EQ(nodes.size(), 5u);
    converter.GetNodeList(nodes, true);
    EXPECT_EQ(nodes.size(), 5u);  // cleared

    HookCaller hooks;
    EXPECT_THROW_MSG(hooks.EndObject(), tovan::Exception, "Stack is empty");
    EXPECT_THROW_MSG(hooks.EndValue(u"x"), tovan::Exception, "Stack is empty");
    hooks.BeginArray();
    EXPECT_NO_THROW(hooks.EndArray());
    EXPECT_THROW_MSG(hooks.EndArray(), tovan::Exception, "Stack is empty");
    // A member's scalar ended through EndValue is its property too.
    hooks.BeginObject();
    hooks.BeginValue();
    hooks.ProcessElement(cajun::json::Number(7));
    hooks.EndValue(u"n");
    hooks.BeginValue();
    hooks.ProcessElement(cajun::json::Boolean(true));
    hooks.EndValue(u"N");
    hooks.EndObject();
    Array<Ptr<iNode>> built;
    hooks.GetNodeList(built, true);
    ASSERT_EQ(built.size(), 1u);
    EXPECT_EQ(nvk::DescribeNodeTree(*built[0]), "(unnamed)\n  n: Boolean = true\n");
}

TEST(JsonConverter, ConsumingATreeBuildsTheSameNodes) {
    // Long texts (past any in-place storage of short strings), names that
    // fold to one another, objects of one name and string arrays.
    std::u16string json = uR"({"a long member name": "a long string value here", "Key": 1, "key": "second",
                              "Sub": {"inner name that is long": ["one long text", "two long texts"]},
                              "sub": {"x": "y"}})";
    tovan::vcFileInterface file;
    file.openText(json);
    nvk::CJsonReader reader(&file);
    cajun::json::Object tree;
    ASSERT_TRUE(reader.ReadNextObject(tree));
    cajun::json::Object copy = tree;
    CJsonConverter processing, consuming;
    processing.ProcessElement(tree);
    consuming.ConsumeElement(copy);
    Array<Ptr<iNode>> a, b;
    processing.GetNodeList(a, true);
    consuming.GetNodeList(b, true);
    EXPECT_EQ(jsontest::describe(b), jsontest::describe(a));
    EXPECT_EQ(jsontest::describe(a), treesOf(json));
}
