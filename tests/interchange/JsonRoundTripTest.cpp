// JSON to nodes to JSON to nodes gives equal trees: the corpus documents and
// many generated ones (seeded, so a failure repeats).
#include "nvk/data/CBaseNode.h"
#include "nvk/interchange/JsonUtilities.h"
#include "tests/interchange/JsonTestSupport.h"

using jsontest::Nodes;
using jsontest::readNodes;
using jsontest::written;
using tovan::Ptr;
using tovan::iNode;

namespace {

std::u16string writeNodes(const Nodes& nodes) {
    nvk::JsonStringSink sink;
    nvk::CJsonWriter writer(&sink);
    writer.array();
    for (const auto& n : nodes) nvk::JsonUtilities::AppendElementToArray(writer, n.get(), true, true, false);
    writer.endArray();
    return sink.text();
}

// One node with a child of that name per letter ('_' a null name, '-' an
// empty one), each child holding its position.
std::string writtenWithChildren(const char16_t* names) {
    Ptr<iNode> root(nvk::CBaseNode::newInstance());
    for (int i = 0; names[i]; ++i) {
        Ptr<iNode> child(nvk::CBaseNode::newInstance());
        if (names[i] == u'-')
            child->setName(u"");
        else if (names[i] != u'_')
            child->setName(std::u16string(1, names[i]));
        child->getProperties().define(u"v", tovan::IntegerValue(i));
        root->appendChild(child.get());
    }
    return written([&](nvk::CJsonWriter& w) {
        w.array();
        nvk::JsonUtilities::AppendElementToArray(w, root.get(), false, true, false);
    }).substr(1);  // without the array's bracket
}

// Where two trees differ, or empty.
std::string difference(const iNode& a, const iNode& b, const std::string& path) {
    if (!(a.getName() == b.getName())) return path + ": names differ";
    const auto* pa = a.getProperties();
    const auto* pb = b.getProperties();
    int na = pa ? pa->getSize() : 0, nb = pb ? pb->getSize() : 0;
    if (na != nb) return path + ": property counts differ";
    for (int i = 0; i < na; ++i) {
        const auto& x = pa->get(i);
        const auto& y = pb->get(i);
        if (!(x.getName() == y.getName())) return path + ": property names differ at " + std::to_string(i);
        if (!x.getValue().equals(y.getValue()))
            return path + "/" + tovan::toNarrow(x.getName()) + ": " + nvk::DescribeValueType(x.getValue()) + " " +
                   tovan::toNarrow(x.getValue().toString()) + " vs " + nvk::DescribeValueType(y.getValue()) + " " +
                   tovan::toNarrow(y.getValue().toString());
    }
    if (a.getNumberOfChildren() != b.getNumberOfChildren()) return path + ": child counts differ";
    for (int i = 0; i < a.getNumberOfChildren(); ++i) {
        std::string d = difference(*a.getChildAt(i), *b.getChildAt(i), path + "/" + std::to_string(i));
        if (!d.empty()) return d;
    }
    return {};
}

// The writer's rules through the node interfaces alone, one call per item:
// what the tree writer, which reads the library's own classes from their
// storage, must match byte for byte.
void writePlainly(nvk::CJsonWriter& w, const iNode& node, bool newLineAfter, bool asList) {
    w.object();
    if (const auto* properties = node.getProperties())
        for (int i = 0; i < properties->getSize(); ++i) {
            w.key(std::u16string_view(properties->get(i).getName().view()));
            nvk::JsonUtilities::WriteValue(w, properties->get(i).getValue());
        }
    if (asList && node.getNumberOfChildren() > 0) {
        w.key(u"children").array();
        for (int i = 0; i < node.getNumberOfChildren(); ++i) writePlainly(w, *node.getChildAt(i), newLineAfter, true);
        w.endArray();
    }
    std::vector<bool> done(size_t(asList ? 0 : node.getNumberOfChildren()));
    for (size_t i = 0; i < done.size(); ++i) {
        if (done[i]) continue;
        const tovan::WString& name = node.getChildAt(int(i))->getName();
        w.key(std::u16string_view(name.view())).array();
        for (size_t k = i; k < done.size(); ++k)
            if (!done[k] && node.getChildAt(int(k))->getName() == name) {
                done[k] = true;
                writePlainly(w, *node.getChildAt(int(k)), false, false);
            }
        w.endArray();
    }
    w.endObject();
    if (newLineAfter) w.writeNewLine();
}

// Every way of writing children, with and without line feeds after records.
void expectPlainText(const Nodes& nodes, const std::string& what) {
    for (bool newLineAfter : {false, true})
        for (bool asList : {false, true}) {
            const std::string how = what + (newLineAfter ? ", line feeds" : "") + (asList ? ", children as a list" : "");
            auto writeTrees = [&](nvk::CJsonWriter& w) {
                w.array();
                for (const auto& n : nodes)
                    nvk::JsonUtilities::AppendElementToArray(w, n.get(), newLineAfter, true, asList);
                w.endArray();
            };
            nvk::JsonStringSink sink, plainSink;
            nvk::CJsonWriter w(&sink), plain(&plainSink);
            writeTrees(w);
            plain.array();
            for (const auto& n : nodes) writePlainly(plain, *n, newLineAfter, asList);
            plain.endArray();
            EXPECT_EQ(sink.text(), plainSink.text()) << how;
            // A file takes the tree writer's text as UTF-8 directly: the bytes
            // it ends up with are those of the plain walk's text.
            tovan::vcFileInterface file, plainFile;
            file.openOutput();
            nvk::CJsonWriter* fw = nvk::JsonUtilities::CreateJsonWriter(&file);
            writeTrees(*fw);
            nvk::JsonUtilities::DestroyJsonWriter(fw);
            plainFile.openOutput();
            plainFile.writeText(plainSink.text());
            EXPECT_EQ(file.getOutputBytes(), plainFile.getOutputBytes()) << how << ", through a file";
        }
}

// Read, written and read again gives equal trees; on the way the tree writer
// matches the plain walk.
void expectRoundTrip(const std::u16string& json, const std::string& what) {
    Nodes first = readNodes(json);
    expectPlainText(first, what);
    std::u16string written = writeNodes(first);
    Nodes second;
    try {
        second = readNodes(written);
    } catch (const tovan::Exception& e) {
        ADD_FAILURE() << what << ": the written text does not read back: " << e.what() << "\n"
                      << tovan::utf16ToUtf8(written).substr(0, 2000);
        return;
    }
    ASSERT_EQ(first.size(), second.size()) << what;
    for (size_t i = 0; i < first.size(); ++i) {
        std::string d = difference(*first[i], *second[i], "record " + std::to_string(i));
        EXPECT_EQ(d, "") << what << "\n" << tovan::utf16ToUtf8(json).substr(0, 2000);
    }
}

}  // namespace

TEST(JsonRoundTrip, CorpusDocuments) {
    for (const char* name : {"canada.json", "citm_catalog.json", "twitter.json"}) {
        auto path = nvktest::corpusPath(std::string("json/bench/") + name);
        SKIP_WITHOUT_CORPUS(path);
        tovan::vcFileInterface file(tovan::toWide(path.string()), tovan::FileMode::Read);
        expectRoundTrip(file.readAll().str(), name);
    }
}

TEST(JsonRoundTrip, GeneratedDocuments) {
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        jsontest::Generator g(seed, true);
        expectRoundTrip(g.document(), "seed " + std::to_string(seed));
        if (HasFailure()) break;
    }
    // Names that come back in a record's children, escaped and long, whose text the tree writer keeps.
    expectRoundTrip(uR"({"r":[{"a\u2028</b":1,"a_name_longer_than_thirty_one_bytes":[2],"\u00e9":3},)"
                    uR"({"a\u2028</b":4,"a_name_longer_than_thirty_one_bytes":[5],"\u00e9":6}]})",
                    "repeated names");
    // Integers at each change of length, and the ends of their range, both as members and in arrays.
    expectRoundTrip(uR"({"i":[0,-1,9,10,-99,100,999,1000,99999999,-100000000,2147483647,-2147483648],"j":-7,"k":0})",
                    "integer lengths");
}

TEST(JsonRoundTrip, ThroughAFileWithTheSameText) {
    // Through the file interface the text travels as UTF-8; well-formed text
    // comes back unchanged.
    nvktest::TempDir dir;
    std::u16string json = uR"({"s": "caf\u00e9 \ud83d\ude00 \u2028", "n": [1, 2.5], "o": {"k": null}})";
    Nodes first = readNodes(json);
    tovan::vcFileInterface out(tovan::toWide((dir / "x.json").string()), tovan::FileMode::Write);
    nvk::CJsonWriter* w = nvk::JsonUtilities::CreateJsonWriter(&out, u"data");
    w->array();
    nvk::JsonUtilities::AppendElementToArray(*w, first[0].get(), false, true, true);
    w->endArray();
    nvk::JsonUtilities::DestroyJsonWriter(w);
    EXPECT_EQ(w, nullptr);
    nvk::JsonUtilities::DestroyJsonWriter(w);  // null is ignored
    out.close();
    std::string text = nvktest::readFile(dir / "x.json");
    EXPECT_EQ(text, "var data = [{\"s\":\"caf\xc3\xa9 \xf0\x9f\x98\x80 \\u2028\",\"n\":[1.0,2.5],"
                    "\"children\":[{\"k\":null}]}];");
    for (const tovan::wchar* variable : {static_cast<const tovan::wchar*>(nullptr), u"data"})
        EXPECT_THROW_FROM(nvk::JsonUtilities::CreateJsonWriter(nullptr, variable), tovan::Exception,
                          "JsonUtilities::CreateJsonWriter: Invalid null output stream");
}


TEST(JsonRoundTrip, RemovedPropertiesLeaveNoTrace) {
    // Removal leaves holes in the collection's storage until something needs
    // public positions; the writer walks the storage as it is.
    Ptr<iNode> node(nvk::CBaseNode::newInstance());
    auto& properties = node->getProperties();
    for (const char16_t* name : {u"a", u"b", u"c", u"d"}) properties.define(name, tovan::IntegerValue(1));
    properties.define(u"n");
    properties.remove(u"b");
    properties.remove(u"d");
    properties.define(u"e", tovan::DoubleValue(2.5));
    auto write = [&](nvk::CJsonWriter& w) { nvk::JsonUtilities::AppendElementToArray(w, node.get(), false, true, false); };
    EXPECT_EQ(written(write), R"({"a":1,"c":1,"n":null,"e":2.5})");
}

TEST(JsonRoundTrip, ChildrenInRunsOrReturningNamesGroupAlike) {
    // Runs in order are written as they stand; a name that comes back after
    // another (among few names, or more than are told apart by comparing them
    // one by one) still joins its first group, and an empty name is refused
    // where its group would start.
    EXPECT_EQ(writtenWithChildren(u"aabc"), R"({"a":[{"v":0},{"v":1}],"b":[{"v":2}],"c":[{"v":3}]})");
    EXPECT_EQ(writtenWithChildren(u"aba"), R"({"a":[{"v":0},{"v":2}],"b":[{"v":1}]})");
    EXPECT_EQ(writtenWithChildren(u"abcdefgh"), R"({"a":[{"v":0}],"b":[{"v":1}],"c":[{"v":2}],"d":[{"v":3}],)"
                                                R"("e":[{"v":4}],"f":[{"v":5}],"g":[{"v":6}],"h":[{"v":7}]})");
    EXPECT_EQ(writtenWithChildren(u"abcdefghijaj"),
              R"({"a":[{"v":0},{"v":10}],"b":[{"v":1}],"c":[{"v":2}],"d":[{"v":3}],"e":[{"v":4}],"f":[{"v":5}],)"
              R"("g":[{"v":6}],"h":[{"v":7}],"i":[{"v":8}],"j":[{"v":9},{"v":11}]})");
    EXPECT_THROW_MSG(writtenWithChildren(u"a_"), tovan::Exception, "Empty JSON key string");
    EXPECT_THROW_MSG(writtenWithChildren(u"a-"), tovan::Exception, "Empty JSON key string");
    EXPECT_THROW_MSG(writtenWithChildren(u"abcdefghi-"), tovan::Exception, "Empty JSON key string");
}

TEST(JsonRoundTrip, TreesTooDeepToReadBackAreRefusedBeforeWriting) {
    // Each node below the first nests two JSON levels deeper (its member's
    // array and its object): 500 levels of nodes are 999 levels of JSON.
    Ptr<iNode> root(nvk::CBaseNode::newInstance());
    iNode* deepest = root.get();
    for (int i = 1; i < 500; ++i) {
        Ptr<iNode> child(nvk::CBaseNode::newInstance());
        child->setName(u"n");
        deepest->appendChild(child.get());
        deepest = child.get();
    }
    auto append = [&](nvk::CJsonWriter& w) { nvk::JsonUtilities::AppendElementToArray(w, root.get(), false, true, false); };
    nvk::JsonStringSink sink;
    nvk::CJsonWriter top(&sink);
    append(top);
    Nodes back = readNodes(sink.text());
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(nvk::CNodeImplBase::TreeDepth(*back[0], 1000), 500);
    // One level more is what the reader refuses.
    EXPECT_THROW_FROM(readNodes(u"{\"n\":[" + sink.text() + u"]}"), tovan::Exception,
                      "CJsonReader::ReadNextObject: JSON parse error: Nesting deeper than 1000 levels");

    // In one open array the text takes the last level; in two it would take one more.
    EXPECT_EQ(written([&](nvk::CJsonWriter& w) { append(w.array()); }).size(), 1 + sink.text().size());
    const std::string tooDeep = "JsonUtilities::AppendElementToArray: Nodes nested deeper than %d levels here would "
                                "make JSON nested deeper than 1000 levels, which cannot be read back; nothing of this "
                                "node was written";
    auto refusal = [&](int levels) {
        std::string text = tooDeep;
        return text.replace(text.find("%d"), 2, std::to_string(levels));
    };
    nvk::JsonStringSink nested;
    nvk::CJsonWriter w(&nested);
    w.array().array();
    EXPECT_THROW_FROM(append(w), tovan::Exception, refusal(499));
    EXPECT_EQ(nested.text(), u"[[");
    EXPECT_EQ(w.getMode(), nvk::CJsonWriter::ModeArray);
    EXPECT_EQ(w.getDepth(), 2u);
    w.endArray().endArray();
    EXPECT_EQ(nested.text(), u"[[]]");

    // A node added at the bottom makes the tree too deep at the top level too,
    // while the node alone, without its children, is one level wherever it stands.
    Ptr<iNode> extra(nvk::CBaseNode::newInstance());
    extra->setName(u"n");
    deepest->appendChild(extra.get());
    nvk::JsonStringSink refused;
    nvk::CJsonWriter fresh(&refused);
    EXPECT_THROW_FROM(append(fresh), tovan::Exception, refusal(500));
    EXPECT_EQ(refused.text(), u"");
    EXPECT_EQ(fresh.getMode(), nvk::CJsonWriter::ModeInit);
    nvk::JsonUtilities::AppendElementToArray(fresh, root.get(), false, false, false);
    EXPECT_EQ(refused.text(), u"{}");
}
