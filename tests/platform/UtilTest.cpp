#include <gtest/gtest.h>

#include "nvk/platform/Util.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

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
