// Records through pipes: "-" for standard input and output in the record and
// protocol commands, the same bytes as with files, cut pipes reported as cut
// files, and outputs that a failed run leaves untouched; the progress bar on
// a terminal and nowhere else.
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/TestSupport.h"
#include "tests/tools/GeneratedRecords.h"

using nvktest::runTool;
using nvktest::runToolPiped;
using nvktest::ToolRun;

namespace {

std::string example(const char* name) { return (nvktest::sourceDir() / "examples" / name).string(); }

std::string feed(const std::string& path) { return "cat '" + path + "'"; }

/// Every way of running the record commands on `json` reads and writes the
/// same bytes through pipes as through files.
void expectPipesMatchFiles(const std::string& json, const nvktest::TempDir& dir) {
    SCOPED_TRACE(json);
    const std::string bin = (dir / "f.nvkb").string(), out = (dir / "f.json").string();
    ASSERT_EQ(runTool("json '" + json + "' --to-bin " + bin + " --quiet").status, 0);
    ASSERT_EQ(runTool("json '" + json + "' --to-json " + out).status, 0);
    const std::string printed = runTool("json '" + json + "'").out;
    EXPECT_EQ(runToolPiped(feed(json), "json -").out, printed);
    EXPECT_EQ(runToolPiped(feed(bin), "bin -").out, printed);
    EXPECT_EQ(runToolPiped(feed(json), "json - --to-json -").out, nvktest::readFile(out));
    EXPECT_EQ(runToolPiped(feed(json), "json - --to-bin -").out, nvktest::readFile(bin));
    EXPECT_EQ(runToolPiped(feed(bin), "bin - --to-json -").out, nvktest::readFile(out));
    for (int version : {1, 3}) {
        const std::string v = " --stream-version " + std::to_string(version);
        ASSERT_EQ(runTool("json '" + json + "' --to-bin " + bin + v).status, 0);
        EXPECT_EQ(runToolPiped(feed(json), "json - --to-bin -" + v).out, nvktest::readFile(bin));
        EXPECT_EQ(runToolPiped(feed(bin), "bin - --to-json -").out, nvktest::readFile(out));
    }
}

TEST(Pipes, GiveTheBytesFilesGiveOnExamplesCorpusAndGeneratedRecords) {
    nvktest::TempDir dir;
    for (const char* name : {"stations.json", "bare-members.json"}) expectPipesMatchFiles(example(name), dir);
    const std::string generated = (dir / "generated.json").string();
    EXPECT_GT(nvktest::writeGeneratedRecords(generated, 1 << 20), 4000u);
    expectPipesMatchFiles(generated, dir);
    const auto bench = nvktest::corpusPath("json/bench");
    SKIP_WITHOUT_CORPUS(bench);
    for (const auto& entry : std::filesystem::directory_iterator(bench)) expectPipesMatchFiles(entry.path().string(), dir);
}

TEST(Pipes, ThatStopEarlyAreReportedAsCutFiles) {
    nvktest::TempDir dir;
    const std::string bin = (dir / "s.nvkb").string(), cut = (dir / "cut.nvkb").string();
    ASSERT_EQ(runTool("json " + example("stations.json") + " --to-bin " + bin).status, 0);
    const std::string bytes = nvktest::readFile(bin);
    // Inside a record, between two records, and before the end mark.
    for (size_t at : {size_t(30), size_t(250), bytes.size() - 1}) {
        SCOPED_TRACE(at);
        std::ofstream(cut, std::ios::binary) << bytes.substr(0, at);
        ToolRun fromFile = runTool("bin " + cut), fromPipe = runToolPiped(feed(cut), "bin -");
        EXPECT_EQ(fromFile.status, 1);
        EXPECT_EQ(fromPipe.status, 1);
        std::string expected = fromFile.out;
        for (size_t p; (p = expected.find(cut)) != std::string::npos;) expected.replace(p, cut.size(), "(standard input)");
        EXPECT_EQ(fromPipe.out, expected);
    }
    ToolRun r = runToolPiped("head -c 30 " + bin, "bin -");
    EXPECT_EQ(r.out, "nvk bin: (standard input): byte 30: EOF reading int as short\n");
    // A JSON record cut short: the records before it come out, then the message.
    r = runToolPiped("head -c 390 " + example("stations.json"), "json -");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.substr(0, 20), "record 1\n  (unnamed)");
    EXPECT_NE(r.out.find("\nnvk json: (standard input):"), std::string::npos) << r.out;
    r = runToolPiped("printf '{\"a\":1}\\n{\"a\":'", "json - --to-json -");
    EXPECT_EQ(r.out, "[{\"a\":1}nvk json: (standard input):2:6: JSON parse error: Unexpected end of token stream\n");
    r = runToolPiped("printf 'nvkb'", "bin -");
    EXPECT_EQ(r.out, "nvk bin: (standard input): byte 4: EOF reading int header\n");
}

TEST(Pipes, AFailedRunLeavesTheOutputFileAsItWas) {
    nvktest::TempDir dir;
    const std::string out = (dir / "out.json").string(), bin = (dir / "out.nvkb").string();
    std::ofstream(out) << "old\n";
    ToolRun r = runTool("json " + example("broken.json") + " --to-json " + out + " --to-bin " + bin);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(nvktest::readFile(out), "old\n");
    EXPECT_FALSE(std::filesystem::exists(bin));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
    // A whole run replaces it, and writing into a device goes straight there.
    EXPECT_TOOL("json " + example("bare-members.json") + " --to-json " + out, 0, "wrote 1 record to " + out + "\n");
    EXPECT_EQ(nvktest::readFile(out).substr(0, 10), "[{\"run\":17");
    // Through a link, the file it names is replaced and the link stays.
    const std::string link = (dir / "link.json").string();
    std::filesystem::create_symlink(out, link);
    EXPECT_TOOL("json " + example("stations.json") + " --to-json " + link, 0, "wrote 2 records to " + link + "\n");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(nvktest::readFile(out).substr(0, 14), "[{\"station\":\"n");
    std::filesystem::remove(link);
    EXPECT_TOOL("json " + example("bare-members.json") + " --to-bin /dev/null", 0,
                "wrote 1 record to /dev/null (stream version 2)\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
    EXPECT_TOOL("json " + example("bare-members.json") + " --to-json /nonexistent/o.json", 1,
                "nvk json: Cannot open file \"/nonexistent/o.json\" for writing: No such file or directory\n");
    r = runTool("json a.json --to-json - --to-bin -");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.substr(0, 52), "nvk json: only one output can go to standard output\n");
}

TEST(Pipes, ProtocolCommandsReadAndWriteThem) {
    const std::string protocol = example("clean-and-score.json");
    for (const char* args : {"perceive", "perceive --json", "layout", "svg -o -", "move --ids 6 --right 5 -o -"}) {
        SCOPED_TRACE(args);
        std::string command = args, rest;
        const size_t space = command.find(' ');
        if (space != std::string::npos) rest = command.substr(space), command.resize(space);
        const ToolRun fromFile = runTool(command + " " + protocol + rest),
                      fromPipe = runToolPiped(feed(protocol), command + " -" + rest);
        EXPECT_EQ(fromPipe.status, 0);
        EXPECT_EQ(fromPipe.out, fromFile.out);
        EXPECT_GT(fromPipe.out.size(), 100u);
    }
    ToolRun r = runTool("layout " + protocol + " --svg -");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), "nvk layout: only one output can go to standard output\n");
    r = runToolPiped("printf '{\"name\": 5}'", "perceive -");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "nvk perceive: (standard input): name: expected a text\n");
}

/// Runs the tool with standard error on a terminal (a pseudo-terminal read
/// here) and standard output to /dev/null, or to the terminal too; returns
/// what the terminal got.
std::string runOnTerminal(const std::vector<std::string>& args, bool outputToo = false) {
    int master = -1, slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) return "openpty failed";
    std::vector<char*> argv{const_cast<char*>(NVK_TOOL_PATH)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(slave, STDERR_FILENO);
        if (outputToo) dup2(slave, STDOUT_FILENO);
        close(master);
        close(slave);
        if (!outputToo && !freopen("/dev/null", "w", stdout)) _exit(127);
        execv(NVK_TOOL_PATH, argv.data());
        _exit(127);
    }
    close(slave);
    std::string got;
    char block[4096];
    for (ssize_t n; (n = read(master, block, sizeof block)) > 0;) got.append(block, size_t(n));
    close(master);
    int status = 0;
    waitpid(child, &status, 0);
    return got;
}

TEST(Progress, ShowsOnATerminalOnlyAndNotWithQuiet) {
    nvktest::TempDir dir;
    const std::string json = (dir / "big.json").string(), bin = (dir / "big.nvkb").string();
    const uint64_t records = nvktest::writeGeneratedRecords(json, 5 << 20);
    const std::string shown = runOnTerminal({"json", json, "--to-bin", bin});
    // How often the bar is redrawn depends on the machine's speed (every 100 ms): only its
    // first drawing is sure to be there.
    EXPECT_NE(shown.find("\r["), std::string::npos) << shown;
    EXPECT_NE(shown.find(" of 5.0 MB, "), std::string::npos) << shown;
    EXPECT_NE(shown.find(" record"), std::string::npos) << shown;
    EXPECT_NE(shown.find(" MB/s"), std::string::npos) << shown;
    EXPECT_EQ(shown.substr(shown.size() - 4), "\r\x1b[K") << "the bar is erased at the end";
    EXPECT_NE(runOnTerminal({"query", "@id", bin}).find(" of "), std::string::npos);
    // Results printed to the same terminal get no bar running into them.
    const std::string results = runOnTerminal({"query", "count(place)", bin}, true);
    EXPECT_EQ(results.find(" of "), std::string::npos);
    EXPECT_EQ(results.substr(0, 6), "1\r\n1\r\n");
    EXPECT_EQ(runOnTerminal({"json", json, "--to-bin", bin, "--quiet"}), "");
    EXPECT_EQ(runOnTerminal({"json", example("stations.json"), "--to-bin", bin}), "") << "small files show none";
    // Standard error that is no terminal gets no bar, only what it always gets.
    EXPECT_TOOL("json " + json + " --to-bin " + bin, 0,
                "wrote " + std::to_string(records) + " records to " + bin + " (stream version 2)\n");
}

}  // namespace
