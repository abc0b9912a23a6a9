// The `nvk json` command on the bundled examples: output, files written,
// messages and exit statuses.
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "tests/support/TestSupport.h"

namespace {

struct ToolRun {
    int status;
    std::string out;  // standard output and error, in that order
};

std::string errFile() {
    static nvktest::TempDir dir;
    return (dir / "stderr").string();
}

ToolRun nvk(const std::string& args) {
    std::string command = std::string(NVK_TOOL_PATH) + " " + args + " 2>" + errFile();
    ToolRun r{-1, {}};
    if (FILE* p = popen(command.c_str(), "r")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
        int raw = pclose(p);
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }
    r.out += nvktest::readFile(errFile());
    return r;
}

std::string example(const char* name) { return (nvktest::sourceDir() / "examples" / name).string(); }

}  // namespace

TEST(JsonCommand, PrintsEveryRecordAsATree) {
    ToolRun r = nvk("json " + example("bare-members.json"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "record 1\n"
              "  (unnamed)\n"
              "    run: Integer = 17\n"
              "    operator: String = \"ls\"\n"
              "    limits\n"
              "      low: Double = -Infinity\n"
              "      high: Double = 40.5\n");
    r = nvk("json " + example("stations.json"));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("record 2\n  (unnamed)\n    station: String = \"lake-2\"\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("    readings: NDimArray 2x3 Double = [[1.5,2.25,3.0],[0.5,1.75,2.5]]\n"), std::string::npos);
}

TEST(JsonCommand, WritesRecordsBackAsJsonThatReadsTheSame) {
    nvktest::TempDir dir;
    std::string out = (dir / "out.json").string();
    ToolRun r = nvk("json " + example("stations.json") + " --to-json " + out);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "wrote 2 records to " + out + "\n");
    std::string text = nvktest::readFile(out);
    EXPECT_EQ(text.substr(0, 40), "[{\"station\":\"north-7\",\"active\":true,\"ele");
    EXPECT_EQ(nvk("json " + out).out, nvk("json " + example("stations.json")).out);
}

TEST(JsonCommand, ReportsWhereReadingStoppedAndBadUsage) {
    ToolRun r = nvk("json " + example("broken.json"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk json: " + example("broken.json") + ":2:28: JSON parse error: Unexpected token: ]\n");
    r = nvk("json /nonexistent/x.json");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk json: Cannot open file \"/nonexistent/x.json\" for reading: No such file or directory\n");
    EXPECT_EQ(nvk("json").status, 2);
    EXPECT_EQ(nvk("json a.json b.json").status, 2);
    EXPECT_EQ(nvk("json a.json --to-json").status, 2);
    r = nvk("json a.json --pretty");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.substr(0, 38), "nvk json: unknown option '--pretty'\nus");
}
