// `nvk query`: what it prints for each kind of result, in text and --json,
// over JSON and node files told apart by content; its failures; and its
// results on random records against pugixml's XPath on the same trees
// written as XML.
#include <cstdlib>
#include <fstream>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/NodeStream.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeTreeText.h"
#include "tests/platform/XPathRandom.h"
#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::runToolPiped;
using nvktest::ToolRun;

namespace {

std::string example(const char* name) { return (nvktest::sourceDir() / "examples" / name).string(); }

TEST(QueryCommand, PrintsNodesValuesAndResultsRecordAfterRecord) {
    const std::string stations = example("stations.json");
    EXPECT_TOOL("query @station " + stations, 0, "north-7\nlake-2\n");
    EXPECT_TOOL("query 'location | maintenance[2]' " + stations, 0,
                "location\n  lat: Double = 46.52\n  lon: Double = 7.96\n"
                "maintenance\n  date: String = \"2025-01-14\"\n  by: String = \"ls\"\n");
    // One line per record for a scalar, also where nothing matches.
    EXPECT_TOOL("query 'count(maintenance)' " + stations, 0, "2\n0\n");
    EXPECT_TOOL("query 'string(maintenance/@by)' " + stations, 0, "kr\n\n");
    EXPECT_TOOL("query '@elevation > 400' " + stations, 0, "false\ntrue\n");
    EXPECT_TOOL("query '@elevation div 2' " + stations, 0, "156.25\n215.5\n");
    EXPECT_TOOL("query //@nothing " + stations, 0, "");

    EXPECT_TOOL("query --json '@tags | @active | @notes | @elevation' " + stations, 0,
                "true\n312.5\n[\"alpine\",\"wind\"]\nfalse\n431\n[]\nnull\n");
    EXPECT_TOOL("query 'maintenance[1]' --json " + stations, 0, "{\"date\":\"2024-05-02\",\"by\":\"kr\"}\n");
    const std::string said = "\"say \\\"<\\/hi>\\\"\"\n";  // quotes and "</" escaped
    EXPECT_TOOL("query --json \"'say \\\"</hi>\\\"'\" " + stations, 0, said + said);
    // Numbers as the JSON writer writes them everywhere.
    EXPECT_TOOL("query --json 'count(*) div 2' " + stations, 0, "1.5\n0.0\n");
    EXPECT_TOOL("query --json 'boolean(location)' " + stations, 0, "true\nfalse\n");
    // The whole record through '/', as `nvk json` prints it without its "record N" line.
    const std::string printed = runTool("json " + example("bare-members.json")).out;
    // The root's lines one level out; "record 1" and its first indent gone.
    std::string tree = printed.substr(printed.find('\n') + 1), unindented;
    for (size_t at = 0; at < tree.size();) {
        const size_t end = tree.find('\n', at) + 1;
        unindented += tree.substr(at + 2, end - at - 2);
        at = end;
    }
    EXPECT_TOOL("query / " + example("bare-members.json"), 0, unindented);
}

TEST(QueryCommand, TellsNodeFilesFromJsonByContentAlsoOnStandardInput) {
    nvktest::TempDir dir;
    const std::string bin = (dir / "stations.json").string();  // a node file, whatever its name says
    ASSERT_EQ(runTool("json " + example("stations.json") + " --to-bin " + bin).status, 0);
    const std::string expected = "north-7\nlake-2\n";
    EXPECT_TOOL("query @station " + bin, 0, expected);
    EXPECT_EQ(runToolPiped("cat " + bin, "query @station -").out, expected);
    EXPECT_EQ(runToolPiped("cat " + example("stations.json"), "query @station -").out, expected);
    // Several files in turn; a short file is JSON (and here no record at all).
    std::ofstream(dir / "tiny") << "{}";
    EXPECT_TOOL("query @station " + bin + " " + (dir / "tiny").string() + " " + example("stations.json"), 0,
                expected + expected);
}

TEST(QueryCommand, ReportsBadExpressionsFilesAndUsage) {
    const std::string stations = example("stations.json");
    EXPECT_TOOL("query 'maintenance[' " + stations, 1,
                "nvk query: XPath syntax error at offset 12 in \"maintenance[\": unexpected end of expression\n");
    EXPECT_TOOL("query '@a !! 2' " + stations, 1,
                "nvk query: XPath syntax error at offset 3 in \"@a !! 2\": unexpected character '!'\n");
    // An unreadable file is reported as the record commands report it; the others are still
    // read (standard error comes after standard output here).
    EXPECT_TOOL("query @station /nonexistent.json " + example("broken.json") + " " + stations, 1,
                "north-7\nlake-2\n"
                "nvk query: Cannot open file \"/nonexistent.json\" for reading: No such file or directory\n"
                "nvk query: " + example("broken.json") + ":2:28: JSON parse error: Unexpected token: ]\n");
    EXPECT_TOOL("query -- -1 " + stations, 0, "-1\n-1\n");
    auto firstLine = [](const ToolRun& run) { return run.out.substr(0, run.out.find('\n') + 1); };
    EXPECT_EQ(firstLine(runTool("query")), "nvk query: no expression\n");
    EXPECT_EQ(firstLine(runTool("query @a")), "nvk query: no input file\n");
    EXPECT_EQ(firstLine(runTool("query @a f --pretty")), "nvk query: unknown option '--pretty'\n");
    EXPECT_EQ(runTool("query @a").status, 2);
    EXPECT_NE(runTool("help").out.find("\n  query         run a path expression"), std::string::npos);
}

// ---- against the reference ---------------------------------------------------

using nvktest::TestNode;

/// The record a test tree stands for: names, attributes as string properties
/// in order, the text as the node's value.
tovan::Ptr<tovan::iNode> toRecord(const TestNode& t, std::map<const TestNode*, const tovan::iNode*>& map) {
    tovan::Ptr<nvk::CBaseNode> n(nvk::CBaseNode::newInstance());
    if (t.parent) n->setName(tovan::WString(t.name));
    for (const auto& [name, value] : t.attributes)
        n->getProperties().define(tovan::WString(name), tovan::StringValue(tovan::WString(value)));
    if (!t.text.empty()) n->setValue(tovan::StringValue(tovan::WString(t.text)));
    for (const auto& c : t.children) n->appendChild(toRecord(*c, map).get());
    map[&t] = n.get();
    return n;
}

std::string jsonLine(const std::function<void(nvk::CJsonWriter&)>& write) {
    tovan::vcFileInterface text;
    text.openOutput();
    nvk::CJsonWriter* writer = nvk::JsonUtilities::CreateJsonWriter(&text);
    writer->array();
    write(*writer);
    writer->endArray();
    nvk::JsonUtilities::DestroyJsonWriter(writer);
    const std::string& bytes = text.getOutputBytes();
    return bytes.substr(1, bytes.size() - 2) + "\n";
}

/// A JSON string line back to its text (the escapes the writer uses).
std::u16string unquote(const std::string& line) {
    std::u16string out;
    const std::u16string s = tovan::utf8ToUtf16(line);
    for (size_t i = 1; i + 1 < s.size(); ++i) {
        if (s[i] != u'\\') {
            out += s[i];
            continue;
        }
        const char16_t e = s[++i];
        switch (e) {
        case u'b': out += u'\b'; break;
        case u't': out += u'\t'; break;
        case u'n': out += u'\n'; break;
        case u'f': out += u'\f'; break;
        case u'r': out += u'\r'; break;
        case u'u': out += char16_t(std::stoi(tovan::utf16ToUtf8(s.substr(i + 1, 4)), nullptr, 16)), i += 4; break;
        default: out += e;
        }
    }
    return out;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        out.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

TEST(QueryDifferentialTest, RandomRecordsAgreeWithReference) {
    constexpr int kRecords = 25, kExpressions = 70;
    nvktest::Random rnd(20261126);
    nvktest::TempDir dir;
    std::vector<std::unique_ptr<TestNode>> trees;
    std::vector<tovan::Ptr<tovan::iNode>> records;
    std::map<const TestNode*, const tovan::iNode*> recordOf;
    std::vector<std::unique_ptr<pugi::xml_document>> docs;
    std::vector<nvktest::ItemMap> maps(kRecords);
    for (int r = 0; r < kRecords; ++r) {
        trees.push_back(std::make_unique<TestNode>());
        nvktest::growTree(rnd, *trees.back(), 3);
        records.push_back(toRecord(*trees.back(), recordOf));
        docs.push_back(std::make_unique<pugi::xml_document>());
        const std::string xml = nvktest::treeToXml(*trees.back());
        ASSERT_TRUE(docs.back()->load_string(xml.c_str(), pugi::parse_default | pugi::parse_fragment | pugi::parse_ws_pcdata));
        maps[size_t(r)].build(*trees.back(), *docs.back());
    }
    const std::string file = (dir / "records.nvkb").string();
    nvk::writeNodeFile(tovan::toWide(file), records, 2);

    nvktest::ExpressionGenerator gen(rnd);
    int sets = 0;
    for (int e = 0; e < kExpressions; ++e) {
        const std::string expr = gen.any(3);
        SCOPED_TRACE("expression " + expr);
        pugi::xpath_query reference(expr.c_str());
        ASSERT_TRUE(reference.result()) << reference.result().description();
        std::string quoted;  // the expression as the shell reads it
        for (char c : expr) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        const ToolRun asJson = runTool("query --json -- '" + quoted + "' " + file);
        ASSERT_EQ(asJson.status, 0) << asJson.out;
        if (reference.return_type() == pugi::xpath_type_node_set) {
            ++sets;
            std::string text, json;
            for (int r = 0; r < kRecords; ++r) {
                pugi::xpath_node_set set = reference.evaluate_node_set(pugi::xpath_node(*docs[size_t(r)]));
                set.sort();
                for (const tovan::XPathItem& item : maps[size_t(r)].translate(set)) {
                    const TestNode& t = nvktest::TestNavigator::of(item.node);
                    const tovan::iNode& ours = *recordOf.at(&t);
                    const std::u16string value =
                        item.kind == tovan::XPathItemKind::Attribute ? t.attributes.at(item.attribute).second : t.text;
                    if (item.kind == tovan::XPathItemKind::Node) {
                        text += nvk::DescribeNodeTree(ours, 0);
                        json += jsonLine([&](nvk::CJsonWriter& w) {
                            nvk::JsonUtilities::AppendElementToArray(w, &ours, false, true, false);
                        });
                    } else {
                        text += tovan::utf16ToUtf8(value) + "\n";
                        json += jsonLine([&](nvk::CJsonWriter& w) { w.value(std::u16string_view(value), true); });
                    }
                }
            }
            EXPECT_EQ(runTool("query -- '" + quoted + "' " + file).out, text);
            EXPECT_EQ(asJson.out, json);
            continue;
        }
        const std::vector<std::string> got = lines(asJson.out);
        ASSERT_EQ(got.size(), size_t(kRecords)) << asJson.out;
        for (int r = 0; r < kRecords; ++r) {
            const pugi::xpath_node context(*docs[size_t(r)]);
            const std::string& line = got[size_t(r)];
            switch (reference.return_type()) {
            case pugi::xpath_type_number:
                EXPECT_PRED2(nvktest::sameNumber, std::strtod(line.c_str(), nullptr), reference.evaluate_number(context))
                    << line;
                break;
            case pugi::xpath_type_string:
                EXPECT_PRED2(nvktest::sameString, unquote(line), tovan::utf8ToUtf16(reference.evaluate_string(context)));
                break;
            default: EXPECT_EQ(line, reference.evaluate_boolean(context) ? "true" : "false");
            }
        }
    }
    EXPECT_GT(sets, kExpressions / 5);
}

}  // namespace
