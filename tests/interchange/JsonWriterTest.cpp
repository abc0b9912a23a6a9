// The JSON writer: sequencing rules, escaping, number repair.
#include <cstring>
#include <limits>

#include "interchange/CJsonWriter.h"
#include "tests/support/TestSupport.h"

using nvk::CJsonWriter;
using nvk::JsonStringSink;

namespace {

std::string text(const JsonStringSink& sink) { return tovan::toNarrow(tovan::WString(sink.text())); }

}  // namespace

TEST(JsonWriter, WritesNestedContainersWithSeparators) {
    JsonStringSink sink;
    CJsonWriter w(&sink);
    w.object()
        .key(u"a")
        .value(1)
        .key("b")
        .array()
        .value(true)
        .array()
        .endArray()
        .object()
        .endObject()
        .value(u"s")
        .value(static_cast<const char16_t*>(nullptr), true)
        .value(5u)
        .value(-9223372036854775807L - 1)
        .endArray()
        .key(u"c")
        .object()
        .key(u"d")
        .value(u"null", false)
        .endObject()
        .endObject();
    EXPECT_EQ(text(sink), R"({"a":1,"b":[true,[],{},"s","",5,-9223372036854775808],"c":{"d":null}})");
    EXPECT_EQ(w.getMode(), CJsonWriter::ModeDone);
    EXPECT_EQ(w.getDepth(), 0u);
}

TEST(JsonWriter, RefusesCallsOutOfSequenceAndKeepsItsState) {
    JsonStringSink sink;
    EXPECT_THROW_MSG(CJsonWriter(nullptr), tovan::Exception, "Invalid null output stream");
    {
        CJsonWriter w(&sink);
        EXPECT_THROW_MSG(w.value(1.0), tovan::Exception, "JSON value out of sequence");
        EXPECT_THROW_MSG(w.key(u"k"), tovan::Exception, "Misplaced JSON key");
        EXPECT_THROW_MSG(w.endObject(), tovan::Exception, "Misplaced JSON end array");
        EXPECT_EQ(w.getMode(), CJsonWriter::ModeInit);
        w.object();
        EXPECT_THROW_MSG(w.value(true), tovan::Exception, "JSON value out of sequence");
        EXPECT_THROW_MSG(w.object(), tovan::Exception, "Misplaced JSON object");
        EXPECT_THROW_MSG(w.array(), tovan::Exception, "Misplaced JSON array");
        EXPECT_THROW_MSG(w.endArray(), tovan::Exception, "Misplaced JSON end array");
        EXPECT_THROW_MSG(w.key(u""), tovan::Exception, "Empty JSON key string");
        EXPECT_THROW_MSG(w.key(static_cast<const char*>(nullptr)), tovan::Exception, "Empty JSON key string");
        w.key(u"k");
        // An object whose last key has no value cannot be closed, and says "array".
        EXPECT_THROW_MSG(w.endObject(), tovan::Exception, "Misplaced JSON end array");
        EXPECT_THROW_MSG(w.key(u"j"), tovan::Exception, "Misplaced JSON key");
        EXPECT_EQ(w.getMode(), CJsonWriter::ModeKey);
        w.value(2).endObject();
        EXPECT_EQ(text(sink), R"({"k":2})");
        // One top-level container only.
        EXPECT_THROW_MSG(w.object(), tovan::Exception, "Misplaced JSON object");
        EXPECT_THROW_MSG(w.array(), tovan::Exception, "Misplaced JSON array");
        EXPECT_THROW_MSG(w.value(u"x"), tovan::Exception, "JSON value out of sequence");
        EXPECT_EQ(text(sink), R"({"k":2})");
    }
    sink.clear();
    CJsonWriter a(&sink);
    a.array().value(1).endArray();
    EXPECT_THROW_MSG(a.endArray(), tovan::Exception, "Misplaced JSON end array");
    EXPECT_EQ(text(sink), "[1]");
}

TEST(JsonWriter, WrapsTheTextAsAVariable) {
    JsonStringSink sink;
    CJsonWriter(&sink, u"d").object().endObject();
    EXPECT_EQ(text(sink), "var d = {};");
    sink.clear();
    CJsonWriter(&sink, u"").array().endArray();  // an empty name is no name
    EXPECT_EQ(text(sink), "[]");
}

TEST(JsonWriter, PlacesRequestedLineFeeds) {
    JsonStringSink sink;
    CJsonWriter w(&sink);
    w.array().writeNewLine().value(1).value(2).writeNewLine().object().writeNewLine().key(u"k").value(3).endObject();
    w.writeNewLine().endArray();
    // The line feed goes out with the next value, after its separator; a key
    // leaves it for its value.
    EXPECT_EQ(text(sink), "[\n1,2,\n{\"k\":\n3}\n]");
}

TEST(JsonWriter, EscapesStrings) {
    std::u16string in = u"q\" b\\ </script> a/b \b\t\n\f\r";
    in += char16_t(1);
    in += char16_t(0x7f);
    in += char16_t(0x85);
    in += char16_t(0xa0);
    in += char16_t(0x2028);
    in += char16_t(0x20ff);
    in += char16_t(0x2100);
    in += char16_t(0xD83D);
    std::u16string out;
    CJsonWriter::escape(in, out);
    std::u16string expected = u"\"q\\\" b\\\\ <\\/script> a/b \\b\\t\\n\\f\\r\\u0001";
    expected += char16_t(0x7f);
    expected += u"\\u0085";
    expected += char16_t(0xa0);
    expected += u"\\u2028\\u20ff";
    expected += char16_t(0x2100);
    expected += char16_t(0xD83D);
    expected += u'"';
    EXPECT_EQ(out, expected);

    JsonStringSink sink;
    CJsonWriter(&sink).array().value("caf\xc3\xa9", true).value(u"", false).value(u"", true).endArray();
    EXPECT_EQ(text(sink), "[\"caf\xc3\xa9\",,\"\"]");  // an unquoted empty text writes nothing
}

TEST(JsonWriter, RepairsDecimalPoints) {
    struct Case {
        const char* in;
        bool strict;
        const char* out;
    } cases[] = {
        {"1.", false, "1.0"},        {"1.e5", false, "1.0e5"},   {"1.E5", true, "1.0E5"},
        {"1.5e10", true, "1.5e10"},  {"3", false, "3"},          {"3", true, "3.0"},
        {"1e+21", true, "1e+21.0"},  {"0.25", true, "0.25"},
    };
    for (const auto& c : cases) {
        char buf[80] = {};
        std::strcpy(buf, c.in);
        CJsonWriter::fixUpDoubles(buf, sizeof buf, c.strict);
        EXPECT_STREQ(buf, c.out) << c.in;
    }
    char full[6] = "12345";
    EXPECT_THROW_MSG(CJsonWriter::fixUpDoubles(full, sizeof full, true), tovan::Exception,
                     "Malformed JSON number format, but no space in buffer to fix formatting: 12345");
    EXPECT_STREQ(full, "12345");
    char dot[6] = "1234.";
    EXPECT_THROW_MSG(CJsonWriter::fixUpDoubles(dot, sizeof dot, false), tovan::Exception,
                     "Malformed JSON number format, but no space in buffer to fix formatting: 1234.");

    JsonStringSink sink;
    CJsonWriter w(&sink);
    w.array().value(2.0).value(0.1).value(1e21).value(-1.5e-300);
    w.setDecimalPlaceStrictness(true);
    w.value(2.0).value(std::numeric_limits<double>::infinity()).endArray();
    EXPECT_EQ(text(sink), "[2.0,0.1,1.0e+21,-1.5e-300,2.0,Infinity.0]");
}
