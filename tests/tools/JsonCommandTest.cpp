// The `nvk json` command on the bundled examples: output, files written,
// messages and exit statuses.
#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

namespace {

std::string example(const char* name) { return (nvktest::sourceDir() / "examples" / name).string(); }

}  // namespace

TEST(JsonCommand, PrintsEveryRecordAsATree) {
    ToolRun r = runTool("json " + example("bare-members.json"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "record 1\n"
              "  (unnamed)\n"
              "    run: Integer = 17\n"
              "    operator: String = \"ls\"\n"
              "    limits\n"
              "      low: Double = -Infinity\n"
              "      high: Double = 40.5\n");
    r = runTool("json " + example("stations.json"));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("record 2\n  (unnamed)\n    station: String = \"lake-2\"\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("    readings: NDimArray 2x3 Double = [[1.5,2.25,3.0],[0.5,1.75,2.5]]\n"), std::string::npos);
}

TEST(JsonCommand, ReportsWhereReadingStoppedAndBadUsage) {
    ToolRun r = runTool("json " + example("broken.json"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk json: " + example("broken.json") + ":2:28: JSON parse error: Unexpected token: ]\n");
    r = runTool("json /nonexistent/x.json");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk json: Cannot open file \"/nonexistent/x.json\" for reading: No such file or directory\n");
    EXPECT_EQ(runTool("json").status, 2);
    EXPECT_EQ(runTool("json a.json b.json").status, 2);
    EXPECT_EQ(runTool("json a.json --to-json").status, 2);
    r = runTool("json a.json --pretty");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.substr(0, 38), "nvk json: unknown option '--pretty'\nus");
}

// json -> JSON file and json -> node file -> bin must give back the same trees
// in every stream version, and both commands must write the same JSON.
TEST(BinCommand, NodeFilesPrintAndWriteLikeTheJsonTheyCameFrom) {
    nvktest::TempDir dir;
    for (const char* name : {"stations.json", "bare-members.json"}) {
        const std::string printed = runTool("json " + example(name)).out;
        const std::string json = (dir / "json.json").string(), fromBin = (dir / "bin.json").string();
        ASSERT_EQ(runTool("json " + example(name) + " --to-json " + json).status, 0);
        EXPECT_EQ(runTool("json " + json).out, printed);  // the JSON written reads as the same trees
        for (int version : {1, 2, 3}) {
            SCOPED_TRACE(std::string(name) + " v" + std::to_string(version));
            const std::string bin = (dir / "out.bin").string();
            ToolRun r = runTool("json " + example(name) + " --to-bin " + bin + " --stream-version " +
                            std::to_string(version));
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(r.out.substr(r.out.find(" (")), " (stream version " + std::to_string(version) + ")\n");
            EXPECT_EQ(nvktest::readFile(bin).substr(0, 5), "nvkb" + std::string(1, char(version * 4)));
            EXPECT_EQ(runTool("bin " + bin).out, printed);
            EXPECT_EQ(runTool("bin " + bin + " --to-json " + fromBin).status, 0);
            EXPECT_EQ(nvktest::readFile(fromBin), nvktest::readFile(json));
        }
    }
}

TEST(BinCommand, ReportsTheByteWhereReadingStoppedAndBadUsage) {
    nvktest::TempDir dir;
    const std::string bin = (dir / "s.bin").string();
    ASSERT_EQ(runTool("json " + example("stations.json") + " --to-bin " + bin).status, 0);
    // A file cut short is reported as a pipe cut there is (the pipe tests).
    ToolRun r = runTool("bin " + example("stations.json"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk bin: " + example("stations.json") + ": byte 4: File \"" + example("stations.json") +
                         "\" is not a node file\n");
    r = runTool("bin /nonexistent/x.bin");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk bin: Cannot open file \"/nonexistent/x.bin\" for reading: No such file or directory\n");

    auto firstLine = [](const ToolRun& run) { return run.out.substr(0, run.out.find('\n') + 1); };
    const std::pair<std::string, std::string> usage[] = {
        {"bin", "nvk bin: no input file\n"},
        {"bin " + bin + " --to-bin x", "nvk bin: unknown option '--to-bin'\n"},
        {"bin " + bin + " --to-json", "nvk bin: --to-json needs an output file\n"},
        {"json a.json --to-bin", "nvk json: --to-bin needs an output file\n"},
        {"json a.json --to-bin x --stream-version", "nvk json: --stream-version needs a number\n"},
        {"json a.json --stream-version 2", "nvk json: --stream-version applies only to --to-bin\n"},
        {"json a.json --to-bin x --stream-version 0", "nvk json: unsupported stream version '0' (supported: 1 to 3)\n"},
        {"json a.json --to-bin x --stream-version 2x", "nvk json: unsupported stream version '2x' (supported: 1 to 3)\n"},
    };
    for (const auto& [args, message] : usage) {
        r = runTool(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_EQ(firstLine(r), message);
    }
    EXPECT_NE(runTool("help").out.find("\n  bin           read a node file's records"), std::string::npos);
}
