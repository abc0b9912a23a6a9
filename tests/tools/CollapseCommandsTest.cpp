// nvk collapse and nvk uncollapse on the bundled example: checks, refusals that write
// nothing, and a round trip that keeps the execution order.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

namespace {

std::string example() { return (nvktest::sourceDir() / "examples" / "clean-and-score.json").string(); }

const char* const kBoth =
    "You cannot collapse with a component that has both upstream components in the selected set, and other upstream "
    "components that are not";

}  // namespace

TEST(CollapseCommands, CheckPrintsAllowedOrTheSentence) {
    EXPECT_TOOL("collapse " + example() + " --ids 5,6 --check", 0, "allowed\n");
    EXPECT_TOOL("collapse " + example() + " --ids 3,4 --check", 1, std::string(kBoth) + "\n");
    EXPECT_TOOL("collapse " + example() + " --ids 3,99 --check", 1, "Did not find:99\n");
    // One ID alone is not checked by the rules, but it must still be there.
    EXPECT_TOOL("collapse " + example() + " --ids 99 --check", 1, "Did not find:99\n");
    EXPECT_TOOL("collapse " + example() + " --ids -1 --check", 1, "Did not find:-1\n");
    EXPECT_TOOL("collapse " + example() + " --ids 5 --check", 0, "allowed\n");
    EXPECT_TOOL("uncollapse " + example() + " --id 3 --check", 1, "No protocol\n");
    EXPECT_TOOL("uncollapse " + example() + " --id 99 --check", 1, "Did not find localID 99\n");
}

TEST(CollapseCommands, RefusedEditsWriteNothing) {
    nvktest::TempDir dir;
    const std::string out = (dir / "out.json").string();
    EXPECT_TOOL("collapse " + example() + " --ids 3,4 -o " + out, 1, "nvk collapse: " + std::string(kBoth) + "\n");
    EXPECT_TOOL("uncollapse " + example() + " --id 3 -o " + out, 1, "nvk uncollapse: No protocol\n");
    EXPECT_FALSE(std::filesystem::exists(out));
    ToolRun r = runTool("collapse " + example() + " --ids 5,x");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.rfind("nvk collapse: --ids needs local IDs separated by commas\nusage: nvk collapse IN.json", 0), 0u) << r.out;
    r = runTool("uncollapse " + example());
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.rfind("nvk uncollapse: --id is required\n", 0), 0u) << r.out;
}

TEST(CollapseCommands, RoundTripKeepsTheExecutionOrder) {
    nvktest::TempDir dir;
    const std::string collapsed = (dir / "collapsed.json").string(), back = (dir / "back.json").string();
    EXPECT_TOOL("collapse " + example() + " --ids 5,6 --name 'Join and score' -o " + collapsed, 0, "");
    ToolRun r = runTool("perceive " + collapsed + " --json");
    ASSERT_EQ(r.status, 0) << r.out;
    // Join and score (11) runs where Score (6) ran.
    EXPECT_NE(r.out.find("\"executionOrder\":[7,1,11,3,2,4,8,9,10]}"), std::string::npos) << r.out;
    const std::string text = nvktest::readFile(collapsed);
    EXPECT_NE(text.find("{\"id\":11,\"name\":\"Join and score\",\"ports\":[\"input\",\"pass\",\"fail\"],\"point\":[980,60],"), std::string::npos) << text;
    EXPECT_TOOL("uncollapse " + collapsed + " --id 11 --check", 0, "allowed\n");
    EXPECT_TOOL("uncollapse " + collapsed + " --id 11 -o " + back, 0, "");
    r = runTool("perceive " + back + " --json");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("\"executionOrder\":[7,1,13,3,12,2,4,8,9,10]}"), std::string::npos) << r.out;
    const std::string svg = (dir / "collapsed.svg").string();
    EXPECT_TOOL("svg " + collapsed + " -o " + svg, 0, "");
    EXPECT_NE(nvktest::readFile(svg).find(">subprotocol \xc2\xb7 2 components</text>"), std::string::npos);
}
