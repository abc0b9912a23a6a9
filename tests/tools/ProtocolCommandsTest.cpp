// The protocol commands on the bundled example: output, files written, exit statuses.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

namespace {

std::string example() { return (nvktest::sourceDir() / "examples" / "clean-and-score.json").string(); }

}  // namespace

TEST(ProtocolCommands, PerceiveAsJson) {
    ToolRun r = runTool("perceive " + example() + " --json");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out.rfind("{\"startNodes\":[1,2,10],\"distances\":{\"1\":0,\"2\":0,\"3\":1,", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\"unconnected\":[10],\"loopConnections\":[4],"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("{\"kind\":\"ring\",\"components\":[3,4,5,6,8]}"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"executionOrder\":[7,1,6,3,5,2,4,8,9,10]}"), std::string::npos) << r.out;
}

TEST(ProtocolCommands, LayoutMoveAndSvgWriteFiles) {
    nvktest::TempDir dir;
    std::string out = (dir / "out.json").string(), svg = (dir / "out.svg").string();
    ToolRun r = runTool("layout " + example() + " -o " + out + " --svg " + svg + " --fixed 10");
    ASSERT_EQ(r.status, 0) << r.out;
    std::string laid = nvktest::readFile(out);
    EXPECT_NE(laid.find("{\"id\":1,\"name\":\"Read CSV\",\"ports\":[\"pass\",\"fail\"],\"point\":[90,"),
              std::string::npos)
        << laid;
    size_t score = laid.find("\"name\":\"Score\"");
    ASSERT_NE(score, std::string::npos);
    size_t at = laid.find("\"point\":", score) + 8;
    std::string scorePoint = laid.substr(at, laid.find(']', at) + 1 - at);
    EXPECT_NE(laid.find("\"point\":[1500,900]"), std::string::npos);  // fixed
    std::string picture = nvktest::readFile(svg);
    EXPECT_NE(picture.find("<svg"), std::string::npos);
    EXPECT_NE(picture.find(">Validate rows</text>"), std::string::npos);
    EXPECT_NE(picture.find("stroke-dasharray"), std::string::npos);  // fail arrows
    EXPECT_NE(picture.find("Weights from the 2024"), std::string::npos);

    ToolRun moved = runTool("move " + out + " --ids 6,7 --right 40 --down 20");
    ASSERT_EQ(moved.status, 0) << moved.out;
    // Auto-layout is on, so the move is recorded as a drag from the laid-out place.
    EXPECT_NE(moved.out.find("\"movedFrom\":" + scorePoint), std::string::npos) << scorePoint << moved.out;
}

TEST(ProtocolCommands, BadUsageAndBadInput) {
    EXPECT_EQ(runTool("layout").status, 2);
    EXPECT_EQ(runTool("move " + example() + " --right 4").status, 2);
    EXPECT_EQ(runTool("svg " + example()).status, 2);
    EXPECT_TOOL("perceive /nonexistent/flow.json", 1,
                "nvk perceive: Cannot open file \"/nonexistent/flow.json\" for reading: No such file or directory\n");
    ToolRun unknown = runTool("move " + example() + " --ids 77 --right 1 --down 1");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.out.find("nvk move: Did not find localID 77"), std::string::npos) << unknown.out;
    const std::string broken = (nvktest::sourceDir() / "examples" / "broken.json").string();
    ToolRun notJson = runTool("perceive " + broken);
    EXPECT_EQ(notJson.status, 1);
    EXPECT_NE(notJson.out.find("nvk perceive: " + broken + ":2:28: JSON parse error: Unexpected token: ]"), std::string::npos)
        << notJson.out;
}
