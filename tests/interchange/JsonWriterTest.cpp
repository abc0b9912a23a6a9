// The JSON writer: sequencing rules, escaping, number repair.
#include <cstring>
#include <iterator>
#include <limits>
#include <random>

#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/FileInterface.h"
#include "tests/support/TestSupport.h"

using nvk::CJsonWriter;
using nvk::JsonStringSink;

namespace {

std::string text(const JsonStringSink& sink) { return tovan::toNarrow(tovan::WString(sink.text())); }

}  // namespace

TEST(JsonWriter, WritesNestedContainersWithSeparators) {
    JsonStringSink sink;
    CJsonWriter w(&sink, u"");  // an empty variable name is no name
    w.object().key(u"a").value(1).key("b").array().value(true).array().endArray().object().endObject();
    w.value(u"s").value(static_cast<const char16_t*>(nullptr), true).value(5u).value(-9223372036854775807L - 1);
    w.endArray().key(u"c").object().key(u"d").value(u"null", false).endObject().endObject();
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
    const std::u16string lone(1, char16_t(0xD83D));
    std::u16string out;
    CJsonWriter::escape(u"q\" b\\ </script> a/b \b\t\n\f\r\x01\x7f\x85\xa0\u2028\u20ff\u2100" + lone, out);
    EXPECT_EQ(out, u"\"q\\\" b\\\\ <\\/script> a/b \\b\\t\\n\\f\\r\\u0001\x7f\\u0085\xa0\\u2028\\u20ff\u2100" + lone + u"\"");

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

TEST(JsonWriter, EscapesEveryCharacterWhereverItStands) {
    // Each kind of character at every place of a longer text (runs of plain
    // ones are skipped in blocks): escaped exactly as it is alone.
    const std::u16string kinds[] = {u"\"", u"\\", u"/", u"</", u"\x1f", u"\x7f", u"\x85", u"\xa0",
                                    u"\u2028", u"\u20ff", u"\xd83d", u"\u00e9", u"\u3042"};
    for (const std::u16string& kind : kinds) {
        std::u16string alone;
        CJsonWriter::escape(kind, alone);
        alone = alone.substr(1, alone.size() - 2);
        for (size_t at = 0; at < 20; ++at) {
            std::u16string in = std::u16string(at, u'a') + kind + std::u16string(20 - at, u'b');
            std::u16string out;
            CJsonWriter::escape(in, out);
            EXPECT_EQ(out, u"\"" + std::u16string(at, u'a') + alone + std::u16string(20 - at, u'b') + u"\"")
                << tovan::toNarrow(tovan::WString(kind)) << " at " << at;
        }
    }
}

TEST(JsonWriter, EscapesToUtf8AsAUtf8FileReceivesTheEscapedText) {
    // Pieces of every kind (runs of plain ASCII of every length around the
    // eight-unit blocks, escapes of two and six bytes, two- and three-byte
    // characters, pairs, lone surrogates at every place, "/" after "<" and
    // after anything else) in random order: the bytes are those a UTF-8 file
    // makes of escape()'s text.
    const std::u16string pieces[] = {u"\"", u"\\", u"/", u"</", u"\x01", u"\x1f", u"\x7f", u"\x85", u"\xa0",
                                     u"\u2028", u"\u20ff", u"\u00e9", u"\u07ff", u"\u0800", u"\u3042",
                                     u"\xd83d\xde00", u"\xd83d", u"\xde00", u"\xdbff\xdfff", u"\t\n\r\b\f"};
    std::mt19937 rng(11);
    for (int round = 0; round < 3000; ++round) {
        std::u16string in;
        for (int k = int(rng() % 8); k > 0; --k) {
            if (rng() % 2) in.append(rng() % 40, char16_t(u' ' + rng() % 95));
            in += pieces[rng() % std::size(pieces)];
        }
        std::u16string escaped;
        CJsonWriter::escape(in, escaped);
        tovan::vcFileInterface file;
        file.openOutput();
        file.writeText(escaped);
        std::string bytes = "prefix";
        CJsonWriter::escapeUtf8(in, bytes);
        ASSERT_EQ(bytes, "prefix" + file.getOutputBytes()) << "round " << round;
    }
    // Nothing but six-byte escapes fills the room the caller makes.
    std::string controls;
    CJsonWriter::escapeUtf8(std::u16string(50, u'\x01'), controls);
    std::string expected = "\"";
    for (int i = 0; i < 50; ++i) expected += "\\u0001";
    EXPECT_EQ(controls, expected + "\"");
}

TEST(JsonWriter, TakesUtf8ValuesIntoAnySink) {
    // A sink without a UTF-8 way gets the value decoded, in order with the
    // rest; a refused value leaves the writer and its sink as they were.
    JsonStringSink sink;
    CJsonWriter w(&sink);
    EXPECT_FALSE(w.sinkTakesUtf8());
    w.array().value(1);
    EXPECT_FALSE(w.tryValueUtf8([](std::string& out) {
        out = "\"partial";
        return false;
    }));
    EXPECT_EQ(text(sink), "[1");
    EXPECT_TRUE(w.tryValueUtf8([](std::string& out) {
        out = "\"caf\xc3\xa9 \xf0\x9f\x98\x80\"";
        return true;
    }));
    w.value(2).endArray();
    EXPECT_EQ(sink.text(), u"[1,\"caf\u00e9 \U0001F600\",2]");
    CJsonWriter done(&sink);
    EXPECT_THROW_MSG(done.tryValueUtf8([](std::string&) { return true; }), tovan::Exception,
                     "JSON value out of sequence");
}

namespace {

// Records how the writer hands text over; only the two required calls.
class CountingSink : public CJsonWriter::Writer {
public:
    void write(tovan::wchar c) override { text += c; }
    void write(const tovan::wchar* t) override {
        text += t;
        ++calls;
    }
    std::u16string text;
    int calls = 0;
};

}  // namespace

TEST(JsonWriter, HandsEachCallOverInOnePieceOrABatchAtItsEnd) {
    CountingSink sink;
    CJsonWriter w(&sink);
    w.array().value(1.5).value(u"a\"b");
    EXPECT_EQ(sink.text, u"[1.5,\"a\\\"b\"");
    EXPECT_EQ(sink.calls, 3);
    {
        CJsonWriter::Batch outer(w);
        {
            CJsonWriter::Batch inner(w);
            w.object().key(u"k").value(true).endObject();
            inner.finish();
        }
        EXPECT_EQ(sink.calls, 3);  // held until the outermost batch finishes
        w.value(7);
        outer.finish();
        outer.finish();  // once only
    }
    EXPECT_EQ(sink.text, u"[1.5,\"a\\\"b\",{\"k\":true},7");
    EXPECT_EQ(sink.calls, 4);
    // A batch left by an exception still hands over what had been written.
    try {
        CJsonWriter::Batch batch(w);
        w.value(8);
        w.key(u"x");
        FAIL() << "a key in an array was accepted";
    } catch (const tovan::Exception& e) {
        EXPECT_EQ(tovan::toNarrow(e.getMessage()), "Misplaced JSON key");
    }
    EXPECT_EQ(sink.text, u"[1.5,\"a\\\"b\",{\"k\":true},7,8");
    w.endArray();
    EXPECT_EQ(sink.text, u"[1.5,\"a\\\"b\",{\"k\":true},7,8]");
}

TEST(JsonWriter, ANumberArrayInOneCallWritesWhatTheCallsWould) {
    const double numbers[] = {1, -2.5, 1e300, std::numeric_limits<double>::quiet_NaN(), 0.1};
    for (bool strict : {false, true})
        for (size_t count : {size_t(0), size_t(1), std::size(numbers)}) {
            auto write = [&](bool inOneCall) {
                JsonStringSink sink;
                CJsonWriter w(&sink, u"v");
                w.setDecimalPlaceStrictness(strict);
                w.array().value(7).writeNewLine();
                if (inOneCall) {
                    w.array(numbers, count);
                } else {
                    w.array();
                    for (size_t i = 0; i < count; ++i) w.value(numbers[i]);
                    w.endArray();
                }
                w.array(numbers, count);  // a second one after a container
                EXPECT_EQ(w.getMode(), CJsonWriter::ModeArray);
                EXPECT_EQ(w.getDepth(), 1u);
                w.endArray();
                return text(sink);
            };
            EXPECT_EQ(write(true), write(false)) << strict << " " << count;
        }
    JsonStringSink sink;
    CJsonWriter w(&sink);
    w.object();
    EXPECT_THROW_MSG(w.array(numbers, 2), tovan::Exception, "Misplaced JSON array");
    EXPECT_EQ(text(sink), "{");
    w.key(u"n").array(numbers, 2).endObject();
    EXPECT_EQ(text(sink), R"({"n":[1.0,-2.5]})");
}
