#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "nvk/platform/Utf.h"

using namespace tovan;

// The file interface's reader and writer are checked against these on random
// runs of valid and invalid text; the rule itself is pinned here.
TEST(Utf, EachMaximalInvalidSubsequenceIsOneReplacement) {
    struct Case {
        const char* desc;
        std::string bytes;
        std::u16string text;
    };
    const Case cases[] = {
        {"every plane", "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z", u"a\u00e9\u20ac\U0001F600z"},
        {"limits", "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf",
         u"\x7f\u0080\u07ff\u0800\uffff\U00010000\U0010FFFF"},
        {"overlong two bytes", "\xc0\xaf\xc1\xbf", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"overlong three bytes", "\xe0\x80\xaf", u"\uFFFD\uFFFD\uFFFD"},
        {"overlong four bytes", "\xf0\x80\x80\xaf", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"encoded surrogate", "\xed\xa0\x80\xed\xbf\xbf", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"either side of the surrogates", "\xed\x9f\xbf\xee\x80\x80", u"\ud7ff\ue000"},
        {"above U+10FFFF", "\xf4\x90\x80\x80\xf5\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"lone continuation bytes", "a\x80\xbf" "b", u"a\uFFFD\uFFFDb"},
        {"cut short by the next character", "\xe2\x82z\xf0\x9f\x98z", u"\uFFFDz\uFFFDz"},
        {"cut short by the end", "\xf0\x9f\x98", u"\uFFFD"},
        {"bytes never used", "\xfe\xff", u"\uFFFD\uFFFD"},
    };
    // Alone, and inside ASCII runs long enough for the bulk paths, three times
    // over (runs of three-byte forms are taken apart from the rest).
    const std::string ascii = "0123456789abcdefghij";
    const std::u16string wide(ascii.begin(), ascii.end());
    for (const Case& c : cases)
        for (const auto& [bytes, text] : {std::pair(c.bytes, c.text),
                                          std::pair(ascii + c.bytes + c.bytes + ascii + c.bytes + ascii,
                                                    wide + c.text + c.text + wide + c.text + wide)}) {
            EXPECT_EQ(utf8ToUtf16(bytes), text) << c.desc;
            size_t produced = 0;
            std::u16string out(bytes.size(), u'\0');
            EXPECT_EQ(decodeUtf8(bytes.data(), bytes.data() + bytes.size(), true, out.data(), produced), bytes.size())
                << c.desc;
            EXPECT_EQ(out.substr(0, produced), text) << c.desc;
        }
}

TEST(Utf, ABlockLeavesASequenceCutByItsEndForTheNext) {
    const std::string bytes = "ab\xf0\x9f\x98";
    std::u16string out(bytes.size(), u'\0');
    size_t produced = 0;
    EXPECT_EQ(decodeUtf8(bytes.data(), bytes.data() + bytes.size(), false, out.data(), produced), 2u);
    EXPECT_EQ(out.substr(0, produced), u"ab");
    // Invalid already without the rest: replaced, not left waiting.
    const std::string bad = "a\xe0\x80";
    EXPECT_EQ(decodeUtf8(bad.data(), bad.data() + bad.size(), false, out.data(), produced), 3u);
    EXPECT_EQ(out.substr(0, produced), u"a\uFFFD\uFFFD");
}

TEST(Utf, SurrogatesPairUpOrBecomeReplacements) {
    struct Case {
        const char* desc;
        std::u16string text;
        std::string bytes;
    };
    const Case cases[] = {
        {"pair", u"\xD83D\xDE00", "\xf0\x9f\x98\x80"},
        {"lone high at the end", u"a\xD83D", "a\xef\xbf\xbd"},
        {"lone high before text", u"\xD83Dz", "\xef\xbf\xbdz"},
        {"lone low", u"\xDE00\xD83D\xD83D\xDE00", "\xef\xbf\xbd\xef\xbf\xbd\xf0\x9f\x98\x80"},
        {"low before high", u"\xDC00\xD800", "\xef\xbf\xbd\xef\xbf\xbd"},
        {"after a long ASCII run", u"0123456789abcdefghij\xD800", "0123456789abcdefghij\xef\xbf\xbd"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(utf16ToUtf8(c.text), c.bytes) << c.desc;
        EXPECT_EQ(utf8Length(c.text), c.bytes.size()) << c.desc;
        std::string out(3 * c.text.size(), '\0');
        out.resize(size_t(encodeUtf8(c.text, out.data()) - out.data()));
        EXPECT_EQ(out, c.bytes) << c.desc;
    }
    // Every code point but the surrogates survives the round trip.
    std::u16string all;
    for (char32_t cp = 1; cp <= 0x10FFFF; cp += cp < 0x800 ? 1 : 37) {
        if (isSurrogate(cp)) continue;
        if (cp < 0x10000) all += char16_t(cp);
        else all += {char16_t(0xD800 + ((cp - 0x10000) >> 10)), char16_t(0xDC00 + ((cp - 0x10000) & 0x3FF))};
    }
    const std::string bytes = utf16ToUtf8(all);
    EXPECT_EQ(bytes.size(), utf8Length(all));
    EXPECT_EQ(utf8ToUtf16(bytes), all);
}
