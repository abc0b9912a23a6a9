// The tolerant JSON reader: tolerances, every message, locations, numbers.
#include <clocale>
#include <cmath>
#include <limits>

#include "tests/interchange/JsonTestSupport.h"

namespace cajun::json {
void PrintTo(const Location& l, std::ostream* os) { *os << "line " << l.line << " column " << l.column << " position " << l.position; }
}  // namespace cajun::json

using namespace cajun::json;
using jsontest::tokensOf;
using nvk::CJsonReader;
using tovan::vcFileInterface;

namespace {

struct ReadResult {
    std::vector<Object> objects;
    std::string error;  // empty when every object was read
    Location where;
};

ReadResult readAll(const std::u16string& text, bool reset = false) {
    vcFileInterface file;
    file.openText(text);
    CJsonReader reader(&file);
    if (reset) reader.ResetStream();
    ReadResult r;
    try {
        Object o;
        while (reader.ReadNextObject(o)) r.objects.push_back(o);
    } catch (const tovan::Exception& e) {
        EXPECT_EQ(typeid(e), typeid(tovan::Exception));
        r.error = e.what();
        r.where = reader.GetLocation();
    }
    return r;
}

std::string readError(const std::u16string& text) { return readAll(text).error; }

const Element& member(const Object& o, const char16_t* name) { return o[name]; }

}  // namespace

TEST(JsonReader, ReadsObjectsOneByOneAndSkipsWhatIsBetween) {
    auto r = readAll(u"[{\"a\": 1}, {\"b\": [true, null, \"x\"]}]");
    ASSERT_EQ(r.error, "");
    ASSERT_EQ(r.objects.size(), 2u);
    EXPECT_EQ(member(r.objects[0], u"a").As<Number>().Value(), 1.0);
    const Array& b = member(r.objects[1], u"b").As<Array>();
    ASSERT_EQ(b.Size(), 3u);
    EXPECT_TRUE(b[0].As<Boolean>().Value());
    EXPECT_TRUE(b[1].Is<Null>());
    EXPECT_EQ(b[2].As<String>().Value(), u"x");

    r = readAll(u"log line one\n{\"n\":1}\nsome text, ], [\n{\"n\":2} trailing");
    ASSERT_EQ(r.error, "");
    ASSERT_EQ(r.objects.size(), 2u);

    // No object at all, and the smallest ones.
    for (auto [text, count] : {std::pair{u"", 0u}, {u"[1, 2, 3]", 0u}, {u"{}", 1u}, {u"{\"e\":[]}", 1u}})
        EXPECT_EQ(readAll(text).objects.size(), count) << nvktest::utf8(text);
}

TEST(JsonReader, SkipsAtMost1024CharactersBeforeAnObject) {
    EXPECT_EQ(readAll(std::u16string(1024, u'x') + u"{}").objects.size(), 1u);
    EXPECT_EQ(readError(std::u16string(1025, u'x') + u"{}"), "Cannot find JSON object in source");
    // The 1025th character is no error when nothing follows it.
    auto r = readAll(std::u16string(1025, u'x'));
    EXPECT_EQ(r.error, "");
    EXPECT_EQ(r.objects.size(), 0u);
    // The count starts afresh for every object.
    r = readAll(u"{}" + std::u16string(1000, u' ') + u"{}" + std::u16string(1000, u',') + u"{}");
    EXPECT_EQ(r.objects.size(), 3u);
}

TEST(JsonReader, AcceptsInfinityAndInf) {
    auto r = readAll(u"{\"a\":Infinity,\"b\":-Infinity,\"c\":Inf,\"d\":-Inf}");
    ASSERT_EQ(r.error, "");
    const double inf = std::numeric_limits<double>::infinity();
    for (auto [name, value] : {std::pair{u"a", inf}, {u"b", -inf}, {u"c", inf}, {u"d", -inf}})
        EXPECT_EQ(member(r.objects.at(0), name).As<Number>().Value(), value) << nvktest::utf8(name);
    EXPECT_EQ(readError(u"{\"a\":NaN}"), "JSON scan error: Unexpected character in stream: N");
    EXPECT_EQ(readError(u"{\"a\":+1}"), "JSON scan error: Unexpected character in stream: +");
    EXPECT_EQ(readError(u"{\"a\":Infinit}"), "JSON parse error: Unexpected character in NUMBER token: I");
}

TEST(JsonReader, ResetStreamReadsABareMemberListAsOneObject) {
    auto r = readAll(u"  \n\"a\": 1, \"b\": {\"c\": 2}\n", true);
    ASSERT_EQ(r.error, "");
    ASSERT_EQ(r.objects.size(), 1u);
    EXPECT_EQ(r.objects[0].Size(), 2u);
    EXPECT_EQ(member(member(r.objects[0], u"b").As<Object>(), u"c").As<Number>().Value(), 2.0);
    // Sources that start with a brace or a bracket are read unchanged.
    EXPECT_EQ(readAll(u" [{}, {}]", true).objects.size(), 2u);
    EXPECT_EQ(readAll(u"{\"a\":1}{\"b\":2}", true).objects.size(), 2u);
    // A bare scalar becomes "{1}", which is no object.
    EXPECT_EQ(readAll(u"1", true).error, "JSON parse error: Unexpected token: 1");
    // An empty source becomes "{}".
    EXPECT_EQ(readAll(u"  ", true).objects.size(), 1u);
    // The injected "{" counts as one column; the skipped white space does not.
    r = readAll(u"\n\n  \"a\": x", true);
    EXPECT_EQ(r.error, "JSON scan error: Unexpected character in stream: x");
    EXPECT_EQ(r.where, (Location{0, 6, 6}));
    // Without a source there is nothing to reset.
    CJsonReader idle;
    EXPECT_NO_THROW(idle.ResetStream());
    EXPECT_FALSE(idle.FindNextObject());
}

TEST(JsonReader, ReportsEveryScanError) {
    struct Case {
        const char16_t* text;
        const char* message;
        Location where;
    } cases[] = {
        {u"{\"a\": @}", "JSON scan error: Unexpected character in stream: @", {0, 6, 6}},
        {u"{\"a\": tru}", "JSON scan error: Expected string: true; found: tru}", {0, 10, 10}},
        {u"{\"a\": fals", "JSON scan error: Expected string: false; found: end of input", {0, 10, 10}},
        {u"{\"a\": nul", "JSON scan error: Expected string: null; found: end of input", {0, 9, 9}},
        {u"{\"a\": nil}", "JSON scan error: Expected string: null; found: ni", {0, 8, 8}},
        {u"{\"a\": \"open", "JSON scan error: Expected string: \"; found: end of input", {0, 11, 11}},
        {u"{\"a\": \"\\u12\"}", "JSON scan error: Unrecognized unicode escape sequence found in string: \\u", {0, 12, 12}},
        {u"{\"a\": \"\\u12g4\"}", "JSON scan error: Unrecognized unicode escape sequence found in string: \\u", {0, 12, 12}},
        {u"{\"a\": \"\\x\"}", "JSON scan error: Unrecognized escape sequence found in string: \\x", {0, 9, 9}},
        {u"{\"a\": \"\\", "JSON scan error: Expected string: \"; found: end of input", {0, 8, 8}},
        {u"{'a': 1}", "JSON scan error: Unexpected character in stream: '", {0, 1, 1}},
    };
    for (const auto& c : cases) {
        auto r = readAll(c.text);
        EXPECT_EQ(r.error, c.message) << nvktest::utf8(c.text);
        EXPECT_EQ(r.where, c.where) << nvktest::utf8(c.text);
    }
}

TEST(JsonReader, WhiteSpaceIsWhatTheLocaleSays) {
    // In the "C" locale only the ASCII spaces separate tokens; in a UTF-8 locale the C
    // library counts U+2000 and U+3000 too, between tokens and before a bare member list.
    const std::u16string text = u"{\u2000\"a\":\u30001}";
    ASSERT_EQ(std::string(std::setlocale(LC_CTYPE, nullptr)), "C");
    {
        vcFileInterface file;
        file.openText(text);
        CJsonReader reader(&file);
        Object o;
        EXPECT_THROW_FROM(reader.ReadNextObject(o), tovan::Exception,
                          "CJsonReader::ReadNextObject: JSON scan error: Unexpected character in stream: \u2000");
    }
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    auto r = readAll(text);
    auto bare = readAll(u"\u3000\"b\": 2", true);
    std::setlocale(LC_CTYPE, "C");
    ASSERT_EQ(r.error, "");
    ASSERT_EQ(r.objects.size(), 1u);
    EXPECT_EQ(member(r.objects[0], u"a").As<Number>().Value(), 1.0);
    ASSERT_EQ(bare.error, "");
    ASSERT_EQ(bare.objects.size(), 1u);
    EXPECT_EQ(member(bare.objects[0], u"b").As<Number>().Value(), 2.0);
    EXPECT_EQ(readError(u"{\"a\":\u00a01}"), "JSON scan error: Unexpected character in stream: \u00a0");
}

TEST(JsonReader, ReportsEveryParseError) {
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"{\"a\": [1, 2,]}", "JSON parse error: Unexpected token: ]"},
        {u"{\"a\" 1}", "JSON parse error: Unexpected token: 1"},
        {u"{\"a\": 1,}", "JSON parse error: Unexpected token: }"},
        {u"{1: 2}", "JSON parse error: Unexpected token: 1"},
        {u"{\"a\": }", "JSON parse error: Unexpected token: }"},
        {u"{\"a\": [1 2]}", "JSON parse error: Unexpected token: 2"},
        {u"{\"a\": 1", "JSON parse error: Unexpected End of token stream"},
        {u"{\"a\":", "JSON parse error: Unexpected end of token stream"},
        {u"{\"a\": 1, \"a\": 2}", "JSON parse error: Duplicate object member token: a"},
        {u"{\"a\": 12tiny}", "JSON parse error: Unexpected character in NUMBER token: t"},
        {u"{\"a\": 1.5.3}", "JSON parse error: Unexpected character in NUMBER token: ."},
        {u"{\"a\": 1e5e}", "JSON parse error: Unexpected character in NUMBER token: e"},
        // Brackets inside an object do not end the scan; the parser balances them.
        {u"{\"a\": [}", "JSON parse error: Unexpected token: }"},
        {u"{\"a\": ]}", "JSON parse error: Unexpected token: ]"},
    };
    for (auto [text, message] : cases) EXPECT_EQ(readError(text), message) << nvktest::utf8(text);

    // The same name in two objects is fine.
    EXPECT_EQ(readAll(u"{\"a\": {\"a\": 1}, \"b\": {\"a\": 2}}").error, "");
}

TEST(JsonReader, ParseExceptionsCarryTheTokenLocations) {
    auto expectRaised = [](auto call, const char* message, Location begin, Location end) {
        try {
            call();
            ADD_FAILURE() << "no exception: " << message;
        } catch (const ParseException& e) {
            EXPECT_EQ(std::string(e.what()), message);
            EXPECT_EQ(e.begin(), begin);
            EXPECT_EQ(e.end(), end);
        }
    };
    Tokens tokens = tokensOf(u"{\n  \"a\": [1,\n  ]}");
    Object o;
    expectRaised([&] { Parser(tokens).ParseObject(o); }, "Unexpected token: ]", {2, 2, 15}, {2, 3, 16});
    JsonToken number{TokenKind::Number, 0, u"Infinityy", {1, 2, 3}, {1, 11, 12}};
    expectRaised([&] { Parser::ParseNumber(number); }, "Unexpected character in NUMBER token: I", {1, 2, 3},
                 {1, 11, 12});
}

TEST(JsonReader, CountsLinesAndColumnsFromZero) {
    Tokens tokens = tokensOf(u"{\"a\":\r\n [1,\n\"x\ny\"]}");
    ASSERT_EQ(tokens.size(), 9u);
    EXPECT_EQ(tokens[3].begin, (Location{1, 1, 8}));  // the carriage return was a column of line 0
    EXPECT_EQ(tokens[6].text, u"x\ny");
    EXPECT_EQ(tokens[6].begin, (Location{2, 0, 12}));
    EXPECT_EQ(tokens[6].end, (Location{3, 2, 17}));  // a line feed inside a string counts too
    EXPECT_EQ(tokens[8].end, (Location{3, 4, 19}));

    // Runs of white space of every length and kind (indentation is skipped in
    // blocks): each token where counting one character at a time puts it.
    std::u16string text = u"[";
    std::vector<Location> expected;
    Location at{0, 1, 1};
    const std::u16string gaps[] = {u" ", u"\n", u"\t", u"\r\n", u"\v\f"};
    for (int k = 0; k < 40; ++k) {
        for (int j = 0; j <= k; ++j) {
            const std::u16string& gap = j % 7 == 3 ? gaps[k % 5] : gaps[0];
            for (char16_t c : gap) at = {c == u'\n' ? at.line + 1 : at.line, c == u'\n' ? 0 : at.column + 1, at.position + 1};
            text += gap;
        }
        expected.push_back(at);
        text += u"1,";
        at.position += 2;
        at.column += 2;
    }
    text += u"2]";
    Tokens spacedTokens = tokensOf(text);
    ASSERT_EQ(spacedTokens.size(), 83u);
    for (size_t k = 0; k < expected.size(); ++k) EXPECT_EQ(spacedTokens[1 + 2 * k].begin, expected[k]) << k;
}

// A source past 2^31 characters (a file of records read one by one) takes
// the 32-bit counters past their largest value: they go on round to the
// negative numbers, every way of counting alike, and are shown unsigned.
TEST(JsonReader, CountersWrapRoundPastThirtyOneBits) {
    constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();
    auto scanFrom = [](const std::u16string& text, Location start) {
        vcFileInterface file;
        file.openText(text);
        JsonInputStream in(&file);
        in.line = start.line;
        in.column = start.column;
        in.position = start.position;
        Tokens tokens;
        Scanner().Scan(in, tokens);
        EXPECT_EQ(in.GetLocation(), tokens[tokens.size() - 1].end);
        return tokens;
    };
    const Location edge{kMax, kMax, kMax};
    struct Case {
        const char16_t* text;
        Location begin, end;  // of the last token
    };
    const Case cases[] = {
        {u"{}", {kMax, kMin, kMin}, {kMax, kMin + 1, kMin + 1}},                    // single characters
        {u"\"ab\" \"c\"", {kMax, kMin + 4, kMin + 4}, {kMax, kMin + 7, kMin + 7}},  // a run of text, then a blank
        {u"\"\\u0041\\n\"", edge, {kMax, kMin + 9, kMin + 9}},                      // escapes, one by one
        {u"-12.5e3", edge, {kMax, kMin + 6, kMin + 6}},                             // a run of number characters
        {u"true", edge, {kMax, kMin + 3, kMin + 3}},                                // a fixed word
        {u"\"a\nb\"", edge, {kMin, 2, kMin + 4}},                                   // a line feed in a string
        {u"[ \n\t  ]", {kMin, 3, kMin + 5}, {kMin, 4, kMin + 6}},                   // a run of white space
    };
    for (const Case& c : cases) {
        Tokens tokens = scanFrom(c.text, edge);
        const JsonToken& last = tokens[tokens.size() - 1];
        EXPECT_EQ(last.begin, c.begin) << nvktest::utf8(c.text);
        EXPECT_EQ(last.end, c.end) << nvktest::utf8(c.text);
    }
    // Round the whole circle: 2^32 characters on from 0 is 0 again.
    Tokens tokens = scanFrom(u"  [1]", {-1, -1, -3});
    EXPECT_EQ(tokens[0].begin, (Location{-1, 1, -1}));
    EXPECT_EQ(tokens[2].end, (Location{-1, 4, 2}));

    // Shown as editors count, the column where a long line goes wrong is
    // never negative.
    EXPECT_EQ(countFromOne(0), 1u);
    EXPECT_EQ(countFromOne(kMax), 2147483648u);
    EXPECT_EQ(countFromOne(kMin), 2147483649u);
    EXPECT_EQ(countFromOne(-1), 4294967296u);
}

TEST(JsonReader, ScansOneTopLevelValueByItsFirstToken) {
    auto scan = [](const std::u16string& text) { return tokensOf(text).size(); };
    EXPECT_EQ(scan(u"{\"a\":{}} {}"), 6u);
    EXPECT_EQ(scan(u"[[1],2] [3]"), 7u);
    EXPECT_EQ(scan(u"\"a\" \"b\" \"c\""), 2u);  // a string is closed by the next string
    EXPECT_EQ(scan(u"1 2 true null"), 4u);       // a scalar runs to the end
    EXPECT_EQ(scan(u"{\"a\": [}"), 5u);          // only braces count inside an object
}

TEST(JsonReader, DecodesEscapes) {
    auto r = readAll(uR"({"s": "q\" b\\ s\/ \b\f\n\r\t \u00e9\uD83D\ude00 \u0000 raw	tab"})");
    ASSERT_EQ(r.error, "");
    const std::u16string expected = u"q\" b\\ s/ \b\f\n\r\t \u00e9\U0001F600 " + std::u16string(1, 0) + u" raw\ttab";
    EXPECT_EQ(member(r.objects.at(0), u"s").As<String>().Value(), expected);
    // Lone and reversed surrogates pass as they are: one unit per escape.
    r = readAll(uR"({"s": "\uDE00\uD83D"})");
    EXPECT_EQ(member(r.objects.at(0), u"s").As<String>().Value(), (std::u16string{char16_t(0xDE00), char16_t(0xD83D)}));
}

TEST(JsonReader, ReadsNumbersAsAStreamWould) {
    const std::pair<const char16_t*, double> cases[] = {
        {u"0", 0},
        {u"-0", -0.0},
        {u"3.0", 3},
        {u"-12.5e-1", -1.25},
        {u"1E+2", 100},
        {u"0123", 123},  // leading zeros are read, not refused
        {u"-999999999", -999999999},
        {u"2147483648", 2147483648.0},
        {u"1.", 1},
        {u"2.e3", 2000},
        {u"-", 0},   // consumed to its end but no number: zero
        {u"1e", 0},  // likewise
        {u"1e400", std::numeric_limits<double>::max()},
        {u"-1e400", -std::numeric_limits<double>::max()},
        {u"1e-400", 0},
        {u"+Inf", std::numeric_limits<double>::infinity()},
        {u"123456789012345678901234567890", 1.2345678901234568e29},
        {u"+1.5", 1.5},
        {u"-.5e1", -5},
        {u"-65.613616999999977", -65.613616999999977},
    };
    for (auto [text, value] : cases) {
        const double v = Parser::ParseNumber(JsonToken{TokenKind::Number, 0, text, {}, {}});
        EXPECT_EQ(v, value) << nvktest::utf8(text);
        EXPECT_EQ(std::signbit(v), std::signbit(value)) << nvktest::utf8(text);
    }
    // Texts a general conversion would take but the stream's rule refuses.
    for (const char16_t* text : {u"-inf", u"+-1", u"1\u0131", u"1e5.5"})
        EXPECT_THROW(Parser::ParseNumber(JsonToken{TokenKind::Number, 0, text, {}, {}}), ParseException)
            << nvktest::utf8(text);
}

TEST(JsonReader, RefusesNestingDeeperThanTheLimit) {
    auto nested = [](int depth) {
        std::u16string text = u"{\"a\":";
        text += std::u16string(depth, u'[');
        text += std::u16string(depth, u']');
        return text + u"}";
    };
    EXPECT_EQ(readAll(nested(Parser::kMaxDepth - 1)).error, "");
    EXPECT_EQ(readAll(nested(Parser::kMaxDepth)).error, "JSON parse error: Nesting deeper than 1000 levels");
    EXPECT_EQ(readAll(nested(100000)).error, "JSON parse error: Nesting deeper than 1000 levels");
}

TEST(JsonReader, LifecycleAndCopying) {
    EXPECT_THROW_MSG(CJsonReader(static_cast<vcFileInterface*>(nullptr)), tovan::Exception,
                     "Cannot read JSON data using a null input file");
    vcFileInterface first, second;
    first.openText(u"{\"a\":1}");
    second.openText(u"{\"b\":2} {\"c\":3}");
    CJsonReader reader(&first);
    EXPECT_THROW_MSG(CJsonReader copy(reader), tovan::Exception, "Unable to clone CJsonReader");
    CJsonReader other(&second);
    EXPECT_THROW_MSG(other = reader, tovan::Exception, "Unable to assign CJsonReader");
    EXPECT_THROW_MSG(reader.clone(), tovan::Exception, "Unable to clone CJsonReader");
    EXPECT_THROW_MSG(reader.setFileInterface(nullptr), tovan::Exception,
                     "Cannot read JSON data using a null input file");

    Object o;
    ASSERT_TRUE(reader.ReadNextObject(o));
    EXPECT_NE(o.Find(u"a"), o.End());
    reader.setFileInterface(&second);  // starts over, counters and all
    EXPECT_EQ(reader.GetLocation(), Location());
    ASSERT_TRUE(reader.ReadNextObject(o));
    EXPECT_NE(o.Find(u"b"), o.End());
    ASSERT_TRUE(reader.ReadNextObject(o));
    Object before = o;
    EXPECT_FALSE(reader.ReadNextObject(o));
    EXPECT_EQ(o, before);  // untouched at the end

    // Made by class tag from the pool.
    tovan::Ptr<CJsonReader> pooled = tovan::ObjectFactory::createAs<CJsonReader>("Norvatek.class.JsonReader");
    EXPECT_STREQ(pooled->getClassTag(), "Norvatek.class.JsonReader");
    EXPECT_FALSE(pooled->FindNextObject());
}

TEST(JsonElements, ObjectsKeepOrderAndRefuseDuplicates) {
    Object o;
    o.Insert(u"z", Number(1));
    o.Insert(u"a", String(u"s"));
    o[u"m"] = Element(Array());
    std::vector<std::u16string> names;
    for (const auto& m : o) names.push_back(m.name);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"z", u"a", u"m"}));
    EXPECT_THROW_MSG(o.Insert(u"a", Null()), JsonException, "Object member already exists: a");
    EXPECT_EQ(o.Size(), 3u);
    const Object& c = o;
    EXPECT_THROW_MSG(c[u"nope"], JsonException, "Object member not found: nope");
    EXPECT_THROW_MSG(o[u"z"].As<String>(), JsonException, "Bad element cast");
    Array a;
    EXPECT_THROW_MSG(a[0], tovan::InvalidIndexException, "Index 0 is out of range (last valid index -1)");
}

TEST(JsonReader, AReaderWithoutASourceHasNothingToRead) {
    CJsonReader* reader = CJsonReader::newInstance();
    jsontest::Nodes nodes;
    cajun::json::Object object;
    reader->ResetStream();
    EXPECT_FALSE(reader->FindNextObject());
    EXPECT_FALSE(reader->ReadNextObject(nodes));
    EXPECT_FALSE(reader->ReadNextObject(object));
    EXPECT_TRUE(nodes.isEmpty());
    // Given a source later, it reads as any other.
    vcFileInterface file;
    file.openText(u"{\"a\":1}");
    reader->setFileInterface(&file);
    EXPECT_TRUE(reader->ReadNextObject(nodes));
    EXPECT_EQ(jsontest::describe(nodes), jsontest::describe(jsontest::readNodes(u"{\"a\":1}")));
    reader->deleteInstance();
}
