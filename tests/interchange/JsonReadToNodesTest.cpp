// Reading records straight into nodes must give what reading the element tree
// and converting it gives: the same trees, the same failure (class, message,
// where the stream stopped), the same records before it. Compared on the
// public parsing suite, the corpus documents and thousands of generated and
// damaged documents.
#include <filesystem>
#include <random>
#include <typeinfo>

#include "nvk/interchange/CJsonConverter.h"
#include "tests/interchange/JsonTestSupport.h"

namespace {

namespace fs = std::filesystem;
using jsontest::Nodes;

// Everything a caller can observe of reading a source to its end.
struct Outcome {
    std::string records;
    std::string failure;  // class and message
    cajun::json::Location errorAt, streamAt;
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
    return os << o.records << "failure: " << o.failure << " at " << o.errorAt.position << ", stream at "
              << o.streamAt.line << ':' << o.streamAt.column << ':' << o.streamAt.position;
}

template <class ReadOne>
Outcome readAll(tovan::vcFileInterface& file, bool reset, ReadOne readOne) {
    nvk::CJsonReader reader(&file);
    if (reset) reader.ResetStream();
    Outcome o;
    // Between records, with the reader alive, every property is a record's.
    const int properties = nvk::CProperty::pool().getOutstanding();
    try {
        Nodes nodes;
        while (readOne(reader, nodes)) {
            o.records += jsontest::describe(nodes, "--\n");
            nodes.clear();
            EXPECT_EQ(nvk::CProperty::pool().getOutstanding(), properties);
        }
    } catch (const tovan::Exception& e) {
        o.failure = std::string(typeid(e).name()) + ": " + e.what();
        o.errorAt = reader.GetErrorLocation();
    }
    o.streamAt = reader.GetLocation();
    return o;
}

bool throughTheTree(nvk::CJsonReader& reader, Nodes& nodes) {
    cajun::json::Object object;
    if (!reader.ReadNextObject(object)) return false;
    nvk::CJsonConverter converter;
    converter.ProcessElement(object);
    converter.GetNodeList(nodes, true);
    return true;
}

bool straight(nvk::CJsonReader& reader, Nodes& nodes) { return reader.ReadNextObject(nodes); }

std::string readFailure(const std::u16string& text) {
    tovan::vcFileInterface file;
    file.openText(text);
    std::string failure = readAll(file, false, straight).failure;
    return failure.substr(failure.find(": ") + 2);
}

void expectSame(const std::u16string& text, bool reset, const std::string& label) {
    tovan::vcFileInterface a, b;
    a.openText(text);
    b.openText(text);
    Outcome expected = readAll(a, reset, throughTheTree);
    Outcome actual = readAll(b, reset, straight);
    EXPECT_EQ(actual, expected) << label;
}

// Damage that reaches every kind of failure: a character dropped, doubled or
// replaced by one that matters to the scanner or the parser.
std::u16string damaged(std::u16string text, std::mt19937& rng) {
    static const char16_t marks[] = u"{}[],:\"\\@x-1 ";
    size_t at = rng() % (text.size() + 1);
    switch (rng() % 3) {
    case 0:
        if (at < text.size()) text.erase(at, 1);
        break;
    case 1: text.insert(at, 1, marks[rng() % (sizeof marks / sizeof *marks - 1)]); break;
    default:
        if (at < text.size()) text[at] = marks[rng() % (sizeof marks / sizeof *marks - 1)];
    }
    return text;
}

}  // namespace

TEST(JsonReadToNodes, GeneratedAndDamagedDocumentsReadAsThroughTheTree) {
    jsontest::Generator gen(20261125, false);
    std::mt19937 rng(7);
    for (int i = 0; i < 1500; ++i) {
        std::u16string doc = gen.document();
        // Two records with text between them, then the same damaged.
        std::u16string source = doc + u" ,] " + gen.document();
        expectSame(source, false, "document " + std::to_string(i));
        expectSame(damaged(source, rng), false, "damaged document " + std::to_string(i));
        expectSame(damaged(damaged(doc, rng), rng), true, "twice damaged document " + std::to_string(i));
        if (HasFailure()) break;
    }
}

TEST(JsonReadToNodes, FailuresInTheirOrder) {
    // A scan error after a parse error, a parse error after a conversion
    // error, a conversion error alone, a duplicate after a deeper error.
    const char16_t* texts[] = {
        u"{\"a\" 1, @}",
        u"{\"a\":[[1,2],[3]], \"b\":[1,[2,\"x\"],{\"c\":1}], \"d\" 1}",
        u"{\"a\":[[1,2],[true,{\"o\":1}]]}",
        u"{\"a\":1,\"a\":{\"b\" 1}}",
        u"{\"a\":1,\"a\":2}",
        u"{\"a\":{\"b\":[1,2,{\"c\":[{}]}]}",
        u"{\"a\":[",
        u"{\"a\":1e}",
        // A duplicate after a child object that used the same names, and
        // spellings of one name in an object and in its child.
        u"{\"a\":1,\"b\":{\"a\":2,\"b\":3},\"a\":4}",
        u"{\"Ab\":1,\"aB\":{\"ab\":[1],\"AB\":2},\"AB\":3,\"ab\":[4],\"x\":[{\"ab\":1}]}",
        // Commas and colons between white space and line feeds, empty arrays
        // as values, and the failures right after them (where they are reported).
        u"{\"a\" :\n [ ] ,\n \"b\"\t: [\r\n]\n,\"A\" : [],\"a\":[]}",
        u"{\"a\":[] , \"b\" :\n\n 1\n , }",
        u"{\"a\":[ @]}",
        u"{\"a\":[] \"b\":1}",
        u"{\"a\":[]",
        u"{\"a\":[[],[ ]],\"b\":[{}],\"c\":{\"d\":[]} ,\"e\"\n:\n[\n]\n, \"f\":\"x\" ,\"F\":true,\"f\":null}",
        // Records that repeat their names, which the reader expects in the
        // order it last met them: longer, escaped, empty, with a quote or a
        // line feed in them, and a duplicate among the expected ones.
        u"{\"ab\":1,\"c\":2,\"\":0} {\"ab\":1,\"c\":2,\"\":0} {\"abc\":1,\"c\":{}} {\"a\\u0062\":1,\"c\\\"\":2}"
        u" {\"ab\":1,\"c\\\"\":2} {\"ab\" :1, \"c\\\"\"\n:2,\"d\\n\":3} {\"ab\":1,\"d\\n\":3} {\"b\":1,\"a\":2}"
        u" {\"a\":1,\n \"b\":2,  \"a\":3}",
        // One name holding objects of two shapes in turn, each shape's names
        // expected after the other's, then a duplicate among them.
        u"{\"e\":{\"a\":1,\"b\":2},\"u\":{\"e\":{\"c\":3}}} {\"e\":{\"a\":1,\"b\":2},\"u\":{\"e\":{\"c\":3,\"b\":4}}}"
        u" {\"x\":{\"b\":1,\"c\":2}} {\"e\":{\"c\":1,\"b\":2,\"c\":3}}",
    };
    for (const char16_t* t : texts) expectSame(t, false, tovan::toNarrow(tovan::WString(t)));

    // Large objects are checked for duplicates through a set: a repeat far
    // back, one in another case (not a duplicate for the parser), none.
    auto large = [](const std::u16string& last, bool nested) {
        std::u16string text = u"{";
        for (int i = 0; i < 40; ++i) text += u"\"m" + tovan::toWide(std::to_string(i)).str() + u"\":1,";
        text += u"\"" + last + u"\":" + (nested ? u"{\"x\":[1,{}]}" : u"2") + u"}";
        return text;
    };
    for (bool nested : {false, true})
        for (const char16_t* last : {u"m3", u"M3", u"m40"}) {
            std::u16string object = large(last, nested);
            expectSame(object, false, "large object ending in " + tovan::toNarrow(tovan::WString(last)));
            // The same object as an element of an array held whole.
            expectSame(u"{\"a\":[[" + object + u"]]}", false, "held large object");
        }
    EXPECT_EQ(readFailure(large(u"m3", false)), "JSON parse error: Duplicate object member token: m3");
    // More distinct names than a reader keeps: it starts over between records.
    std::u16string wide = u"{";
    for (int i = 0; i < 20000; ++i) wide += u"\"n" + tovan::toWide(std::to_string(i)).str() + u"\":1,";
    wide += u"\"n\":{\"n\":2}}";
    expectSame(wide + u" {\"n5\":1,\"N5\":{\"n5\":2}} " + wide + u" {\"n7\":1,\"n7\":2}", false, "many names");
}

TEST(JsonReadToNodes, SuiteAndCorpusDocumentsReadAsThroughTheTree) {
    fs::path suite = nvktest::corpusPath("json/suite");
    fs::path bench = nvktest::corpusPath("json/bench");
    SKIP_WITHOUT_CORPUS(suite);
    SKIP_WITHOUT_CORPUS(bench);
    int files = 0;
    for (const fs::path& dir : {suite, bench})
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (entry.path().extension() != ".json") continue;
            std::string bytes = nvktest::readFile(entry.path());
            tovan::vcFileInterface a, b;
            a.openBytes(bytes);
            b.openBytes(bytes);
            Outcome expected = readAll(a, true, throughTheTree);
            Outcome actual = readAll(b, true, straight);
            EXPECT_EQ(actual, expected) << entry.path().filename();
            ++files;
        }
    EXPECT_GT(files, 300);
}
