#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

TEST(CredentialsCommand, NewThenShowWithThePasswordMasked) {
    ToolRun made = runTool("credentials new --user alice --domain LAB --password hunter2 --role Viewer --role Group:X "
                   "--flags 0x4004");
    ASSERT_EQ(made.status, 0) << made.out;
    ASSERT_FALSE(made.out.empty());
    std::string s = made.out.substr(0, made.out.size() - 1);
    ToolRun shown = runTool("credentials show '" + s + "'");
    ASSERT_EQ(shown.status, 0) << shown.out;
    EXPECT_NE(shown.out.find("\nuser: alice\n"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("\ndomain: LAB\n"), std::string::npos);
    EXPECT_NE(shown.out.find("\npassword: ********\n"), std::string::npos);
    EXPECT_EQ(shown.out.find("hunter2"), std::string::npos);
    EXPECT_NE(shown.out.find("\nbody flags: 0x00004004\n"), std::string::npos);
    EXPECT_NE(shown.out.find("\nrole bits: {0, 1}\n"), std::string::npos);
    EXPECT_NE(shown.out.find("session key form: no\n"), std::string::npos);
}

TEST(CredentialsCommand, ErrorsAreExactAndStatusesDiffer) {
    EXPECT_TOOL("credentials show abc", 1, "nvk credentials: Error decoding: abc...\n");
    EXPECT_TOOL("credentials show ''", 1, "nvk credentials: Empty Credentials\n");
    EXPECT_EQ(runTool("credentials new --domain LAB").status, 2);
    EXPECT_EQ(runTool("credentials new --user a --flags 12x").status, 2);
    EXPECT_EQ(runTool("credentials frobnicate").status, 2);
    EXPECT_TOOL("credentials new --user " + std::string(256, 'u'), 1, "nvk credentials: String too long\n");
}
