#include <gtest/gtest.h>

#include "nvk/platform/Util.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

// Unreserved, reserved and non-ASCII characters are compared with libcurl's encoder on
// random texts in the launch-link tests; these are the inputs that run leaves out.
TEST(UrlEncodeComponent, LoneSurrogatesControlsAndNullText) {
    EXPECT_EQ(util::urlEncodeComponent(u"x\xD83Dy"), WString(u"x%EF%BF%BDy"));    // a lone surrogate
    EXPECT_EQ(util::urlEncodeComponent(std::u16string(u"\0\x7f", 2)), WString(u"%00%7F"));
    EXPECT_TRUE(util::urlEncodeComponent(WString()).isNull());
    EXPECT_EQ(util::urlEncodeComponent(WString::empty()), WString::empty());
}
