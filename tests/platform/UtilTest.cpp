#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include "nvk/platform/Util.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

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

TEST(UrlEncodeComponent, KeepsUnreservedAndEncodesUtf8Bytes) {
    EXPECT_EQ(util::urlEncodeComponent(u"AZaz09-_.~"), WString(u"AZaz09-_.~"));
    EXPECT_EQ(util::urlEncodeComponent(u"a b+c&d=e/f?g%h"), WString(u"a%20b%2Bc%26d%3De%2Ff%3Fg%25h"));
    EXPECT_EQ(util::urlEncodeComponent(u"\u00e9\u20ac"), WString(u"%C3%A9%E2%82%AC"));
    EXPECT_EQ(util::urlEncodeComponent(u"\U0001F600"), WString(u"%F0%9F%98%80"));  // a surrogate pair
    EXPECT_EQ(util::urlEncodeComponent(u"x\xD83Dy"), WString(u"x%EF%BF%BDy"));    // a lone surrogate
    EXPECT_EQ(util::urlEncodeComponent(std::u16string(u"\0\x7f", 2)), WString(u"%00%7F"));
    EXPECT_TRUE(util::urlEncodeComponent(WString()).isNull());
    EXPECT_EQ(util::urlEncodeComponent(WString::empty()), WString::empty());
}
