#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "nvk/platform/Format.h"
#include "nvk/platform/NumberText.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

namespace {
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
}  // namespace

TEST(DoubleToString, KnownTexts) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double value;
        const char* plain;
        const char* floating;  // option 1
    };
    const Case cases[] = {
        {0.1, "0.1", "0.1"},
        {1.0, "1", "1.0"},
        {-0.0, "-0", "-0.0"},
        {100, "100", "100.0"},
        {1e21, "1e+21", "1.0e+21"},
        {1e-7, "1e-07", "1.0e-07"},
        {5e-324, "5e-324", "5.0e-324"},
        {1.5e300, "1.5e+300", "1.5e+300"},
        {-123.456, "-123.456", "-123.456"},
        {std::numeric_limits<double>::max(), "1.7976931348623157e+308", "1.7976931348623157e+308"},
        {inf, "Infinity", "Infinity"},
        {-inf, "-Infinity", "-Infinity"},
        {-std::numeric_limits<double>::quiet_NaN(), "NaN", "NaN"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(utf8(util::doubleToString(c.value)), c.plain);
        EXPECT_EQ(utf8(util::doubleToString(c.value, 1)), c.floating);
    }
    EXPECT_THROW_MSG(util::doubleToString(1.0, 2), BadParameterException, "Unknown doubleToString option 2");
}

// Random bit patterns cover subnormals, huge exponents and 17-digit values.
TEST(DoubleToString, EveryTextReadsBackToTheSameBits) {
    std::mt19937_64 rng(20240229);
    for (int i = 0; i < 200000; ++i) {
        double value = std::bit_cast<double>(rng());
        if (!std::isfinite(value)) continue;
        for (int option : {0, 1}) {
            std::string text = utf8(util::doubleToString(value, option));
            double back = std::strtod(text.c_str(), nullptr);
            ASSERT_EQ(std::bit_cast<uint64_t>(back), std::bit_cast<uint64_t>(value)) << text;
            ASSERT_TRUE(option == 0 || text.find('.') != std::string::npos) << text;
        }
    }
}

TEST(DoubleToString, IntoABuffer) {
    wchar buffer[8] = {u'#', u'#', u'#', u'#', u'#', u'#', u'#', u'#'};
    EXPECT_EQ(util::doubleToString(1e21, buffer, 8, 1), 7u);
    EXPECT_EQ(std::u16string(buffer), u"1.0e+21");
    EXPECT_THROW_MSG(util::doubleToString(0.125, buffer, 5), BadParameterException,
                     "Buffer of 5 characters is too small for 0.125");
    EXPECT_EQ(std::u16string(buffer), u"1.0e+21");  // untouched
}

TEST(IntegerText, LimitsInEveryWidthAndBase) {
    EXPECT_EQ(integerText(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(integerText(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(integerText(uint8_t(255)), "255");  // a byte is a number, not a character
    EXPECT_EQ(integerWide(int32_t(-2147483647 - 1)), WString(u"-2147483648"));
    char16_t wide[kIntegerTextMax];
    EXPECT_EQ(std::u16string(wide, putInteger(wide, std::numeric_limits<uint64_t>::max(), 8)),
              u"1777777777777777777777");
    char narrow[kIntegerTextMax];
    EXPECT_EQ(std::string(narrow, putInteger(narrow, 0xBEEFu, 16)), "beef");
    EXPECT_EQ(hexDigitValue(u'F'), 15);
    EXPECT_EQ(hexDigitValue('a'), 10);
    EXPECT_EQ(hexDigitValue('g'), -1);
    EXPECT_EQ(kHexDigitsUpper[hexDigitValue('c')], 'C');
}

TEST(ParseInteger, WholeTextOnlyAndUntouchedOnFailure) {
    struct Case {
        const char* text;
        NumberSigns signs;
        bool ok;
        int32_t value;
    };
    const Case cases[] = {
        {"2147483647", NumberSigns::Minus, true, 2147483647},
        {"-2147483648", NumberSigns::Minus, true, -2147483647 - 1},
        {"2147483648", NumberSigns::Minus, false, 0},   // overflow
        {"-2147483649", NumberSigns::Minus, false, 0},  // and underflow
        {"007", NumberSigns::None, true, 7},
        {"-0", NumberSigns::Minus, true, 0},
        {"-1", NumberSigns::None, false, 0},
        {"+1", NumberSigns::Minus, false, 0},
        {"+1", NumberSigns::PlusOrMinus, true, 1},
        {"+-1", NumberSigns::PlusOrMinus, false, 0},
        {"+", NumberSigns::PlusOrMinus, false, 0},
        {"", NumberSigns::Minus, false, 0},
        {" 1", NumberSigns::Minus, false, 0},
        {"1 ", NumberSigns::Minus, false, 0},
        {"2x", NumberSigns::Minus, false, 0},
        {"1.0", NumberSigns::Minus, false, 0},
    };
    for (const Case& c : cases) {
        int32_t v = 99;
        EXPECT_EQ(parseInteger(std::string_view(c.text), v, c.signs), c.ok) << c.text;
        EXPECT_EQ(v, c.ok ? c.value : 99) << c.text;
        int32_t w = 99;
        EXPECT_EQ(parseInteger(toWide(c.text).view(), w, c.signs), c.ok) << c.text;
        EXPECT_EQ(w, v) << c.text;
    }
    uint32_t flags = 0;
    EXPECT_TRUE(parseInteger(std::string_view("ffffFFFF"), flags, NumberSigns::None, 16));
    EXPECT_EQ(flags, 0xFFFFFFFFu);
    EXPECT_FALSE(parseInteger(std::string_view("100000000"), flags, NumberSigns::None, 16));
    int w = 5;
    EXPECT_FALSE(parseInteger(std::u16string_view(u"１"), w));  // a full-width digit is no digit
    EXPECT_TRUE(parseInteger(std::u16string_view(u"00000000000000000000000000000000042"), w));
    EXPECT_EQ(w, 42);
}

TEST(ParseDouble, FromCharsRulesOverTheWholeText) {
    double v = 7;
    EXPECT_TRUE(parseDouble("-1.5e3", v));
    EXPECT_EQ(v, -1500);
    EXPECT_TRUE(parseDouble("+inf", v, NumberSigns::PlusOrMinus));
    EXPECT_EQ(v, inf);
    EXPECT_TRUE(parseDouble("NaN", v));
    EXPECT_TRUE(std::isnan(v));
    v = 7;
    for (const char* bad : {"+1", "1e400", "1.5x", "", ".", "0x10", " 1"}) EXPECT_FALSE(parseDouble(bad, v)) << bad;
    EXPECT_FALSE(parseDouble("+-1", v, NumberSigns::PlusOrMinus));
    EXPECT_FALSE(parseDouble("-1", v, NumberSigns::None));
    EXPECT_EQ(v, 7);
}

// XPath's number() and string() of a number: no exponent either way.
TEST(PlainDecimal, ReadsAndWritesWithoutExponent) {
    EXPECT_EQ(parsePlainDecimal(u"-.5"), -0.5);
    EXPECT_EQ(parsePlainDecimal(u"12."), 12);
    EXPECT_EQ(parsePlainDecimal(u"1" + std::u16string(400, u'0')), inf);
    EXPECT_EQ(parsePlainDecimal(u"-1" + std::u16string(400, u'0')), -inf);
    const double tiny = parsePlainDecimal(u"-0." + std::u16string(400, u'0') + u"1");
    EXPECT_EQ(tiny, 0);
    EXPECT_TRUE(std::signbit(tiny));
    for (const char16_t* bad : {u"1e5", u"+1", u"--1", u"1.2.3", u".", u"-", u"", u"1-"})
        EXPECT_TRUE(std::isnan(parsePlainDecimal(bad))) << utf8(WString(bad));

    EXPECT_EQ(plainDoubleText(1e21), u"1000000000000000000000");
    EXPECT_EQ(plainDoubleText(1e-7), u"0.0000001");
    EXPECT_EQ(plainDoubleText(-123.456), u"-123.456");
    EXPECT_EQ(plainDoubleText(-0.0), u"0");
    EXPECT_EQ(plainDoubleText(-inf), u"-Infinity");
    EXPECT_EQ(plainDoubleText(kNaN), u"NaN");
    std::mt19937_64 rng(11);
    for (int i = 0; i < 20000; ++i) {
        const double value = std::ldexp(double(rng() >> 11), int(rng() % 200) - 150);
        EXPECT_EQ(parsePlainDecimal(plainDoubleText(value)), value);
    }
}

// What a standard stream's extraction makes of a number token.
TEST(StreamDouble, PrefixAndValue) {
    struct Case {
        const char16_t* text;
        size_t prefix;
        double value;
    };
    const double max = std::numeric_limits<double>::max();
    const Case cases[] = {
        {u"12", 2, 12},
        {u"-0", 2, -0.0},
        {u"+1.5e+2", 7, 150},
        {u"1e", 2, 0},
        {u"-", 1, 0},
        {u"1.2.3", 3, 1.2},
        {u"1e5e5", 3, 1e5},
        {u".e1", 1, 0},
        {u"1e999", 5, max},
        {u"-1e999", 6, -max},
        {u"1e-999", 6, 0},
        {u"123456789012", 12, 123456789012.0},
    };
    for (const Case& c : cases) {
        const std::u16string_view text(c.text);
        EXPECT_EQ(streamDoublePrefix(text), c.prefix) << utf8(WString(c.text));
        const double v = streamDoubleValue(text.substr(0, c.prefix));
        EXPECT_EQ(v, c.value) << utf8(WString(c.text));
        EXPECT_EQ(std::signbit(v), std::signbit(c.value)) << utf8(WString(c.text));
    }
    double v = 0;
    EXPECT_TRUE(parseShortDecimal(u"-123456789", v));
    EXPECT_EQ(v, -123456789);
    EXPECT_FALSE(parseShortDecimal(u"1234567890", v));
    EXPECT_FALSE(parseShortDecimal(u"-", v));
}

// format's %f, %e and %g print what C's printf prints, flags and all.
TEST(PrintfDoubleText, MatchesPrintf) {
    std::mt19937_64 rng(5);
    std::vector<double> values = {0.0, -0.0, 0.5, 1.0, 9.9999995, 123456789.0, 1e-5, 1e-4, 1e21, 5e-324,
                                  std::numeric_limits<double>::max(), inf, -inf, kNaN, -kNaN};
    for (int i = 0; i < 300; ++i) values.push_back(std::bit_cast<double>(rng()));
    for (int i = 0; i < 300; ++i) values.push_back(std::ldexp(double(rng() >> 40), int(rng() % 80) - 60));
    const char* specs[] = {"%f", "%e", "%g", "%E", "%G", "%F", "%.0f", "%.0e", "%.0g", "%#.0f", "%#.0e", "%#g",
                           "%#.3g", "%#.0g", "%+.3e", "% .2f", "%012.3f", "%-12.3g", "%+012g", "%.17g", "%10.4f"};
    for (const char* spec : specs) {
        for (double v : values) {
            char expected[512];
            std::snprintf(expected, sizeof expected, spec, v);
            ASSERT_EQ(utf8(format<double>(RuntimeFormat{toWide(spec).view()}, v)), expected) << spec << " " << v;
        }
    }
}
