// The XML reader: the tree it builds, what it keeps of text, queries over
// prefixed names, encodings, and every failure with its message.
#include <fstream>
#include <string>

#include "nvk/interchange/NodeTreeText.h"
#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/ReferenceSet.h"
#include "tests/support/TestSupport.h"

using nvk::XmlReader;
using tovan::Exception;
using tovan::Ptr;
using tovan::WString;

namespace {

std::string treeOf(std::string_view xml) { return nvk::DescribeNodeTree(*XmlReader::ReadBytes(xml)); }

std::string parseError(std::string_view xml) {
    try {
        XmlReader::ReadBytes(xml);
    } catch (const Exception& e) {
        EXPECT_EQ(typeid(e), typeid(Exception));
        EXPECT_EQ(e.getClassName(), "XmlReader");
        return e.what();
    }
    return "no error";
}

std::string names(tovan::NodeReferenceSet& set) {
    std::string out;
    for (size_t i = 0; i < set.size(); ++i) {
        const tovan::iNode& n = *set.get(i);
        out += (out.empty() ? "" : " ") + nvktest::utf8(n.getName());
        if (n.getProperties()->isDefined(u"id")) out += "#" + nvktest::utf8(n.getProperties()->get(u"id").getValue().toString());
    }
    return out;
}

}  // namespace

TEST(XmlReader, ElementsBecomeNodesAttributesPropertiesAndTextTheValue) {
    EXPECT_EQ(treeOf("<?xml version=\"1.0\"?>\n"
                     "<!-- a comment --><tf:list xmlns:tf=\"urn:tasks\" count=\"2\">\n"
                     "  <tf:item id=\"a\" name=\"first\">x &amp; y</tf:item>\n"
                     "  <tf:item id='b'><![CDATA[<raw>]]></tf:item>\n"
                     "  <empty/>\n"
                     "</tf:list>"),
              "(unnamed)\n"
              "  tf:list\n"
              "    xmlns:tf: String = \"urn:tasks\"\n"
              "    count: String = \"2\"\n"
              "    tf:item\n"
              "      id: String = \"a\"\n"
              "      name: String = \"first\"\n"
              "      text-content: String = \"x & y\"\n"
              "    tf:item\n"
              "      id: String = \"b\"\n"
              "      text-content: String = \"<raw>\"\n"
              "    empty\n");
}

TEST(XmlReader, TextIsTheElementsOwnAndIndentationIsDropped) {
    // Mixed content: the element's text joins its runs around the children.
    EXPECT_EQ(treeOf("<p>one <b>two</b> three<br/></p>"),
              "(unnamed)\n  p\n    text-content: String = \"one  three\"\n    b\n      text-content: String = \"two\"\n    br\n");
    // A leaf keeps white space; a parent with only white space has no value.
    EXPECT_EQ(treeOf("<a>\n\t<b>  </b>\r\n</a>"), "(unnamed)\n  a\n    b\n      text-content: String = \"  \"\n");
    // Character references, entities declared inside the document, line ends normalised.
    EXPECT_EQ(treeOf("<!DOCTYPE a [<!ENTITY who \"world\">]><a t=\"&#x263A;\">hi &who;&#10;x\r\ny</a>"),
              "(unnamed)\n  a\n    t: String = \"\xE2\x98\xBA\"\n    text-content: String = \"hi world\\nx\\ny\"\n");
    // The text is the node's value, also where an attribute already holds the value's name.
    for (auto [xml, properties] : {std::pair<std::string_view, int>{"<a n=\"1\">t</a>", 2}, {"<a text-content=\"attr\">t</a>", 1}}) {
        Ptr<nvk::CBaseNode> doc = XmlReader::ReadBytes(xml);
        EXPECT_EQ(doc->getChildAt(0)->getValue().toString(), u"t") << xml;
        EXPECT_EQ(doc->getChildAt(0)->getProperties().getSize(), properties) << xml;
    }
}

TEST(XmlReader, PrefixedNamesWorkInPathQueries) {
    Ptr<nvk::CBaseNode> doc = XmlReader::ReadBytes(
        "<tf:list xmlns:tf=\"urn:t\"><tf:item id=\"1\"><tf:item id=\"1.1\"/></tf:item><other/><tf:item id=\"2\"/>"
        "<xs:element id=\"3\" minOccurs=\"0\"/></tf:list>");
    tovan::NodeReferenceSet found;
    ASSERT_TRUE(doc->query(u"/tf:list/tf:item", tovan::QueryDefault, found));
    EXPECT_EQ(names(found), "tf:item#1 tf:item#2");
    tovan::iNode* list = doc->getChildAt(0);
    ASSERT_TRUE(list->query(u"tf:item", tovan::QueryDefault, found));
    EXPECT_EQ(names(found), "tf:item#1 tf:item#2");
    ASSERT_TRUE(doc->query(u"//tf:item", tovan::QueryDefault, found));
    EXPECT_EQ(names(found), "tf:item#1 tf:item#1.1 tf:item#2");
    ASSERT_TRUE(doc->query(u"//tf:*[@id > 1]", tovan::QueryDefault, found));
    EXPECT_EQ(names(found), "tf:item#1.1 tf:item#2");
    ASSERT_TRUE(doc->query(u"//*[local-name()='element'][@minOccurs<1]", tovan::QueryDefault, found));
    EXPECT_EQ(names(found), "xs:element#3");
    WString text;
    ASSERT_TRUE(doc->query(u"string(/tf:list/@xmlns:tf)", tovan::QueryDefault, text));
    EXPECT_EQ(text, u"urn:t");
}

TEST(XmlReader, ReadsTheEncodingsExpatKnows) {
    const std::string expected = "(unnamed)\n  a\n    n: String = \"\xC3\xA9t\xC3\xA9\"\n    text-content: String = \"\xC3\xA0\"\n";
    EXPECT_EQ(treeOf("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a n=\"\xE9t\xE9\">\xE0</a>"), expected);
    EXPECT_EQ(treeOf("\xEF\xBB\xBF<a n=\"\xC3\xA9t\xC3\xA9\">\xC3\xA0</a>"), expected);
    std::string utf16 = "\xFF\xFE";
    for (char16_t c : std::u16string(u"<a n=\"\u00E9t\u00E9\">\u00E0</a>")) {
        utf16 += char(c & 0xFF);
        utf16 += char(c >> 8);
    }
    EXPECT_EQ(treeOf(utf16), expected);
}

TEST(XmlReader, AttributesDifferingOnlyInCaseKeepTheFirstWithAWarning) {
    tovan::DiagnosticCapture capture;
    EXPECT_EQ(treeOf("<a\n Name=\"1\" name=\"2\" other=\"3\"/>"),
              "(unnamed)\n  a\n    Name: String = \"1\"\n    other: String = \"3\"\n");
    EXPECT_EQ(capture.warnings(),
              std::vector<std::string>{"XML attribute name of <a> at line 1 repeats an earlier one but for case; its value is dropped"});
}

TEST(XmlReader, MalformedDocumentsFailWithExpatsMessageAndPlace) {
    EXPECT_EQ(parseError(""), "Parse error: no element found at line 1, column 1");
    EXPECT_EQ(parseError("<a>\n  <b></a>"), "Parse error: mismatched tag at line 2, column 8");
    EXPECT_EQ(parseError("<a x=\"1\" x=\"2\"/>"), "Parse error: duplicate attribute at line 1, column 10");
    EXPECT_EQ(parseError("<a/><b/>"), "Parse error: junk after document element at line 1, column 5");
    EXPECT_EQ(parseError("<a>&nope;</a>"), "Parse error: undefined entity at line 1, column 4");
    EXPECT_EQ(parseError("<?xml version=\"1.0\" encoding=\"EBCDIC-X\"?><a/>"), "Parse error: unknown encoding at line 1, column 31");
    // An external entity is never fetched, so its reference is undefined.
    EXPECT_EQ(parseError("<!DOCTYPE a [<!ENTITY e SYSTEM \"/etc/passwd\">]><a>&e;</a>"), "no error");
    EXPECT_EQ(treeOf("<!DOCTYPE a [<!ENTITY e SYSTEM \"/etc/passwd\">]><a>&e;</a>"), "(unnamed)\n  a\n");
    // Entity expansion blow-up is refused by expat's guard.
    std::string laughs = "<!DOCTYPE a [<!ENTITY l0 \"lollollollollollollollollollol\">";
    for (int i = 1; i < 10; ++i)
        laughs += "<!ENTITY l" + std::to_string(i) + " \"" + [&] {
            std::string refs;
            for (int k = 0; k < 10; ++k) refs += "&l" + std::to_string(i - 1) + ";";
            return refs;
        }() + "\">";
    laughs += "]><a>&l9;</a>";
    EXPECT_EQ(parseError(laughs).substr(0, 13), "Parse error: ");
}

TEST(XmlReader, NestingIsBoundedAtTheLimit) {
    std::string deep;
    for (int i = 0; i < XmlReader::kMaxDepth; ++i) deep += "<e>";
    for (int i = 0; i < XmlReader::kMaxDepth; ++i) deep += "</e>";
    Ptr<nvk::CBaseNode> doc = XmlReader::ReadBytes(deep);
    int depth = 0;
    for (tovan::iNode* n = doc.get(); n->hasChildren(); n = n->getChildAt(0)) ++depth;
    EXPECT_EQ(depth, XmlReader::kMaxDepth);
    EXPECT_EQ(parseError("\n<e>" + deep + "</e>"),
              "Parse error: elements nested deeper than 1000 levels at line 2, column 3001");
}

TEST(XmlReader, FilesAreReadInBlocksLikeTheirBytes) {
    nvktest::TempDir dir;
    // Past several 64 KiB blocks, with a multi-byte character on a block edge.
    std::string xml = "<list>";
    while (xml.size() < 3 * 65536) xml += "<i v=\"\xE2\x82\xAC\">t</i>";
    xml += "</list>";
    std::ofstream(dir / "big.xml", std::ios::binary) << xml;
    Ptr<nvk::CBaseNode> fromFile = XmlReader::ReadFile(tovan::toWide((dir / "big.xml").string()));
    EXPECT_EQ(nvk::DescribeNodeTree(*fromFile), treeOf(xml));
    EXPECT_GT(fromFile->getChildAt(0)->getNumberOfChildren(), 10000);

    std::ofstream(dir / "bad.xml", std::ios::binary) << xml.substr(0, 70000);
    EXPECT_THROW_MSG(XmlReader::ReadFile(tovan::toWide((dir / "bad.xml").string())), Exception,
                     "Parse error: unclosed token at line 1, column 61243");
    const std::string missing = (dir / "missing.xml").string();
    EXPECT_THROW_MSG(XmlReader::ReadFile(tovan::toWide(missing)), Exception,
                     "Unable to open file \"" + missing + "\": No such file or directory");
    EXPECT_THROW_MSG(XmlReader::ReadFile(tovan::toWide(dir.path().string())), Exception,
                     "Error reading file \"" + dir.path().string() + "\": Is a directory");
}
