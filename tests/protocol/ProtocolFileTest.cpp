// Protocol files: what is read, what is written back, and how bad files are refused.
#include <gtest/gtest.h>

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Value.h"
#include "nvk/protocol/CProtocolFile.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;

namespace {

tovan::Ptr<CProtocolInfo> read(const std::string& text) {
    return CProtocolFile::ReadText(tovan::toWide(text), u"flow.json");
}

const std::string kGood = R"({"name": "Clean", "autoLayout": true,
  "stickyNotes": ["%VERSION 3%", "40 -30 220 90", "Reads the raw file", ""],
  "components": [
    {"id": 1, "name": "Read CSV", "ports": ["pass", "fail"], "point": [90, 95], "offset": [3, 4],
     "movedFrom": [80, 90], "parameters": {"Source": "raw.csv", "Columns": ["a", 2, true], "Limit": 100, "Ratio": 0.5}},
    {"id": 2, "name": "Group", "ports": ["input", "pass"], "point": [390, 95],
     "subprotocol": {"name": "inner", "components": [{"id": 1, "name": "X", "ports": [], "point": [0, 0]}], "connections": []}}
  ],
  "connections": [{"from": 1, "to": 2, "port": "pass"}]})";

}  // namespace

TEST(ProtocolFile, ReadsEveryField) {
    auto p = read(kGood);
    EXPECT_EQ(p->getName(), tovan::WString(u"Clean"));
    bool flag = false;
    EXPECT_TRUE(p->getBoolAttribute(tovan::NVK_ProtocolAutoLayout, flag) && flag);
    ASSERT_EQ(p->getNumComponents(), 2);
    tovan::iComponentInfo* c = p->getComponent(0);
    tovan::AttributePoint pt;
    EXPECT_TRUE(c->getPointAttribute(tovan::NVK_ComponentOffset, pt));
    EXPECT_EQ(pt, (tovan::AttributePoint{3, 4}));
    EXPECT_TRUE(c->getBoolAttribute(tovan::NVK_ComponentReturnsFail, flag) && flag);
    EXPECT_TRUE(c->getBoolAttribute(tovan::NVK_ComponentTakesInput, flag) && !flag);
    ASSERT_NE(c->findParameter(u"limit"), nullptr);  // parameter names fold A-Z
    EXPECT_EQ(c->findParameter(u"Limit")->getValue().kind, tovan::ParameterValue::Integer);
    EXPECT_EQ(c->findParameter(u"Ratio")->getValue().kind, tovan::ParameterValue::Real);
    EXPECT_EQ(c->findParameter(u"Columns")->getValue().items.size(), 3u);
    ASSERT_NE(p->getComponent(1)->getSubprotocol(), nullptr);
    EXPECT_EQ(p->getComponent(1)->getSubprotocol()->getParentComponent(), p->getComponent(1));
    EXPECT_EQ(p->getConnection(0), (tovan::ConnectionInfo{1, 2, tovan::PortPass}));

    tovan::WString written = CProtocolFile::WriteText(p.get());
    auto again = CProtocolFile::ReadText(written, u"again.json");
    EXPECT_EQ(CProtocolFile::WriteText(again.get()), written);
    EXPECT_NE(tovan::toNarrow(written).find("\"Limit\":100,\"Ratio\":0.5"), std::string::npos);
}

TEST(ProtocolFile, ErrorsNameTheFileFieldAndIndex) {
    auto fails = [](const std::string& text, const char* message) {
        EXPECT_THROW_MSG(read(text), tovan::Exception, message);
    };
    fails(R"({"components": [], "connections": []})", "flow.json: name: missing required field");
    fails(R"({"name": 3, "components": [], "connections": []})", "flow.json: name: expected a text");
    fails(R"({"name": "x", "components": [{"id": 1, "name": "A", "ports": [], "point": [0, 0]},
          {"id": 2, "name": "B", "ports": [], "point": [0, "1"]}], "connections": []})",
          "flow.json: components[1].point: expected [x, y] with two 32-bit integers");
    using nvktest::protocolJson;
    fails(protocolJson({{1, "A", 0, 0, ""}, {1, "B", 0, 0, ""}}, {}),
          "flow.json: components[1].id: duplicate local ID 1 (also components[0])");
    fails(protocolJson({{1, "A", 0, 0, "p"}}, {{1, 7}}), "flow.json: connections[0].to: unknown local ID 7");
    fails(protocolJson({{1, "A", 0, 0, "p"}, {2, "B", 0, 0, "i"}}, {{1, 2}, {1, 2, "fail"}}),
          "flow.json: connections[1].port: component 1 (components[0]) has no fail port");
    fails(protocolJson({{1, "A", 0, 0, "p"}, {2, "B", 0, 0, "p"}}, {{1, 2}}),
          "flow.json: connections[0].to: component 2 (components[1]) has no input port");
    fails(R"({"name": "x", "components": [{"id": 1, "name": "G", "ports": [], "point": [0, 0],
          "subprotocol": {"name": "in", "components": [{"id": 4, "name": "A", "ports": ["side"], "point": [0, 0]}],
          "connections": []}}], "connections": []})",
          "flow.json: components[0].subprotocol.components[0].ports[0]: unknown port \"side\" (expected \"input\", "
          "\"pass\" or \"fail\")");
    fails(R"({"name": "x", "components": [{"id": 4000000000, "name": "A", "ports": [], "point": [0, 0]}], "connections": []})",
          "flow.json: components[0].id: expected a 32-bit integer");
    auto params = [](const std::string& parameters) {
        return R"({"name": "x", "components": [{"id": 1, "name": "A", "ports": [], "point": [0, 0], "parameters": )" +
               parameters + "}], \"connections\": []}";
    };
    const char* at = "flow.json: components[0].parameters.p";
    fails(params(R"({"p": null})"), (at + std::string(": expected a text, number, boolean, array of them or an object "
                                                        "with a value")).c_str());
    fails(params(R"({"p": {}})"), (at + std::string(".value: missing required field")).c_str());
    fails(params(R"({"p": {"value": 1, "type": 3}})"), (at + std::string(".type: expected a text")).c_str());
    fails(params(R"({"p": {"value": 1, "metadata": {"k": 1, "K": 2}}})"),
          (at + std::string(".metadata.K: the name is given twice")).c_str());
    fails(params(R"({"p": {"value": 1, "metadata": {"k": [1]}}})"),
          (at + std::string(".metadata.k[0]: expected a text")).c_str());
    fails(params(R"({"p": {"value": 1, "metadata": {"k": null}}})"),
          (at + std::string(".metadata.k: expected a text, number, boolean or array of texts")).c_str());
    fails(params(R"({"": 1})"), "flow.json: components[0].parameters: a parameter needs a name");
    fails("[1, 2]", "flow.json: no JSON object found");
    // Errors of the JSON reader keep its text after the file name and where it went wrong.
    fails("{\"name\": \"x\",\n  \"components\": [}", "flow.json:2:18: JSON parse error: Unexpected token: }");
    fails("{\"name\": \"x\", \"components\": [@]}", "flow.json:1:30: JSON scan error: Unexpected character in stream: @");
}

TEST(ProtocolFile, TextsWithNulCharactersSurviveWriting) {
    auto p = read(R"({"name": "a\u0000b", "components": [{"id": 1, "name": "c\u0000d", "ports": [], "point": [0, 0],
        "stickyNotes": ["e\u0000f"], "parameters": {"\u0000g": "h\u0000", "i": ["j\u0000k"]}}], "connections": []})");
    auto back = CProtocolFile::ReadText(CProtocolFile::WriteText(p.get()), u"again.json");
    EXPECT_EQ(back->getName().str(), std::u16string(u"a\0b", 3));
    tovan::iComponentInfo* c = back->getComponent(0);
    std::vector<tovan::WString> notes;
    ASSERT_TRUE(c->getTextArrayAttribute(tovan::NVK_ComponentStickyNotes, notes));
    EXPECT_EQ(notes.at(0).str(), std::u16string(u"e\0f", 3));
    EXPECT_EQ(c->getParameterNames(), p->getComponent(0)->getParameterNames());
    const tovan::iParameter* g = c->findParameter(tovan::WString(std::u16string(u"\0g", 2)));
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->getValue(), p->getComponent(0)->findParameter(tovan::WString(std::u16string(u"\0g", 2)))->getValue());
    EXPECT_EQ(c->findParameter(u"i")->getValue(), p->getComponent(0)->findParameter(u"i")->getValue());
    EXPECT_EQ(CProtocolFile::WriteText(back.get()), CProtocolFile::WriteText(p.get()));
}

TEST(ProtocolFile, ParameterTypesAndMetadataSurvive) {
    using namespace tovan;
    auto p = read(R"({"name": "x", "components": [{"id": 1, "name": "A", "ports": [], "point": [0, 0],
        "parameters": {"Plain": 1, "Leaf": {"value": "Mid", "type": "LinkSingleParentParameter", "metadata":
        {"PromotedFromNew": ["Item 2", "Item 3"], "InitializeUsing": true, "Count": 4, "Ratio": 0.5, "RevertName": "L"}},
        "Hidden": {"value": [1, "a"], "metadata": {"NeverShow": true}}}}], "connections": []})");
    iComponentInfo* c = p->getComponent(0);
    const iParameter& leaf = *c->findParameter(u"leaf");
    EXPECT_EQ(leaf.getValue(), ParameterValue::ofText(u"Mid"));
    EXPECT_EQ(leaf.getTypeText(), WString(NVK_LinkSingleParentParameterType));
    const iPropertyCollection& md = *leaf.findMetaData();
    ASSERT_EQ(md.getSize(), 5);
    EXPECT_TRUE(md.get(NVK_PromotedFromNew).getValue().equals(StringArrayValue{u"Item 2", u"Item 3"}));
    EXPECT_TRUE(md.get(NVK_InitializeUsing).getValue().equals(BooleanValue(true)));
    EXPECT_TRUE(md.get(u"Count").getValue().equals(IntegerValue(4)));
    EXPECT_TRUE(md.get(u"Ratio").getValue().equals(DoubleValue(0.5)));
    EXPECT_EQ(c->findParameter(u"Hidden")->getTypeText(), WString(NVK_StringType));
    EXPECT_EQ(c->findParameter(u"Plain")->findMetaData(), nullptr);

    // A name given twice (folded) is one parameter; the later entries win.
    auto twice = read(R"({"name": "x", "components": [{"id": 1, "name": "A", "ports": [], "point": [0, 0], "parameters":
        {"p": {"value": 1, "metadata": {"k": 1}}, "P": {"value": 2, "metadata": {"K": 2}}}}], "connections": []})");
    EXPECT_TRUE(twice->getComponent(0)->findParameter(u"p")->findMetaData()->get(u"k").getValue().equals(IntegerValue(2)));

    // Written back as read; a plain parameter stays a bare value.
    const WString text = CProtocolFile::WriteText(p.get());
    EXPECT_EQ(CProtocolFile::WriteText(CProtocolFile::ReadText(text, u"again.json").get()), text);
    EXPECT_NE(text.view().find(u"\"Plain\":1,"), std::u16string::npos) << toNarrow(text);

    // A value the file cannot hold is kept as its text, an entry without a name is left out,
    // and the caller is told of both.
    c->findParameter(u"Plain")->getMetaData().define(u"Code", ByteValue(7));
    c->findParameter(u"Plain")->getMetaData().define(u"", WString(u"/x"));
    c->findParameter(u"Plain")->getMetaData().define(u"/x", WString(u""));
    DiagnosticCapture capture;
    auto back = CProtocolFile::ReadText(CProtocolFile::WriteText(p.get()), u"again.json");
    EXPECT_EQ(capture.warnings(), (std::vector<std::string>{"Metadata 'Code' of parameter 'Plain' is written as its text",
                                                            "Metadata without a name of parameter 'Plain' is left out"}));
    const iPropertyCollection& kept = *back->getComponent(0)->findParameter(u"Plain")->findMetaData();
    ASSERT_EQ(kept.getSize(), 2);
    EXPECT_TRUE(kept.get(u"Code").getValue().equals(StringValue(u"7")));
    EXPECT_TRUE(kept.get(u"/x").getValue().equals(StringValue(u"")));
}
