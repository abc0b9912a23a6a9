#include "nvk/platform/Format.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

// The checker is what turns a bad argument into a build failure; test it
// directly since a failing build cannot be a test case.
static_assert(formatMatches<int>(u"%d"));
static_assert(formatMatches<long, unsigned>(u"%ld %x"));
static_assert(formatMatches<WString, const char*>(u"%ls %hs"));
static_assert(formatMatches<std::string>(u"%s"));
static_assert(formatMatches<std::u16string>(u"%s"));
static_assert(formatMatches<>(u"100%% sure"));
static_assert(!formatMatches<int>(u"%ls"));
static_assert(!formatMatches<WString>(u"%d"));
static_assert(!formatMatches<const char*>(u"%ls"));
static_assert(!formatMatches<WString>(u"%hs"));
static_assert(!formatMatches<double>(u"%d"));
static_assert(!formatMatches<int>(u"%f"));
static_assert(!formatMatches<int, int>(u"%d"));
static_assert(!formatMatches<int>(u"%d %d"));
static_assert(!formatMatches<int>(u"%*d"));
static_assert(!formatMatches<>(u"trailing %"));

TEST(Format, IntegersAsGiven) {
    EXPECT_EQ(utf8(format(u"%d|%i|%u", -7, 42, 7u)), "-7|42|7");
    EXPECT_EQ(utf8(format(u"%ld", -9000000000LL)), "-9000000000");
    EXPECT_EQ(utf8(format(u"%d", 4000000000u)), "4000000000");
    EXPECT_EQ(utf8(format(u"%d %d", true, false)), "1 0");
}

TEST(Format, HexTakesTheArgumentsWidth) {
    EXPECT_EQ(utf8(format(u"%.4x", 0xAB)), "00ab");
    EXPECT_EQ(utf8(format(u"%.4x", 0x12345)), "12345");
    EXPECT_EQ(utf8(format(u"%x", -1)), "ffffffff");
    EXPECT_EQ(utf8(format(u"%x", int16_t(-1))), "ffff");
    EXPECT_EQ(utf8(format(u"%#x", 16)), "0x10");
}

TEST(Format, WidthFlagsAndPrecision) {
    EXPECT_EQ(utf8(format(u"[%5d]", 42)), "[   42]");
    EXPECT_EQ(utf8(format(u"[%-5d]", 42)), "[42   ]");
    EXPECT_EQ(utf8(format(u"[%05d]", -42)), "[-0042]");
    EXPECT_EQ(utf8(format(u"[%+d]", 3)), "[+3]");
    EXPECT_EQ(utf8(format(u"[%6.2f]", 3.14159)), "[  3.14]");
    EXPECT_EQ(utf8(format(u"[%g]", 0.5)), "[0.5]");
    EXPECT_EQ(utf8(format(u"[%-4ls]", u"ab")), "[ab  ]");
    EXPECT_EQ(utf8(format(u"[%.2hs]", "abcdef")), "[ab]");
}

TEST(Format, TextKinds) {
    WString wide(u"caf\u00e9");
    EXPECT_EQ(utf8(format(u"%ls/%hs/%s/%s", wide, "x", std::string("n"), std::u16string(u"w"))),
              "caf\xc3\xa9/x/n/w");
    EXPECT_EQ(utf8(format(u"%ls %hs", WString(), static_cast<const char*>(nullptr))), "(null) (null)");
    EXPECT_EQ(utf8(format(u"%ls", WString::empty())), "");
    EXPECT_EQ(utf8(format(u"%c%c", u'A', 'b')), "Ab");
}

TEST(Format, RuntimeFormatMarksMismatches) {
    EXPECT_EQ(utf8(format<int>(RuntimeFormat{u"n=%d"}, 5)), "n=5");
    EXPECT_EQ(utf8(format<int>(RuntimeFormat{u"s=%ls"}, 5)), "s=%!s");
    EXPECT_EQ(utf8(format<>(RuntimeFormat{u"%d and 50%"})), "%!d and 50%");
}

TEST(Format, HostileWidthsAreCapped) {
    WString s = format<int>(RuntimeFormat{u"%99999999999d"}, 1);
    EXPECT_EQ(s.length(), 4096u);
    EXPECT_EQ(s[4095], u'1');
    EXPECT_EQ(utf8(format<int>(RuntimeFormat{u"%.99999999999x"}, 0)), std::string(4096, '0'));
}
