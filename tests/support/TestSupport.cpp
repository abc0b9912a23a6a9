#include "tests/support/TestSupport.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string_view>

namespace nvktest {

std::filesystem::path corpusDir() {
    std::filesystem::path p(NVK_CORPUS_DIR);
    return std::filesystem::is_directory(p) ? p : std::filesystem::path();
}

std::filesystem::path corpusPath(const std::string& relative) {
    auto dir = corpusDir();
    if (dir.empty()) return {};
    auto p = dir / relative;
    return std::filesystem::exists(p) ? p : std::filesystem::path();
}

bool corpusRequired() {
    const char* ci = std::getenv("CI");
    return ci && *ci && std::string_view(ci) != "false" && std::string_view(ci) != "0";
}

std::filesystem::path sourceDir() { return std::filesystem::path(NVK_SOURCE_DIR); }

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

TempDir::TempDir() {
    std::random_device rd;
    path_ = std::filesystem::temp_directory_path() / ("nvk-test-" + std::to_string(rd()) + std::to_string(rd()));
    std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

namespace {

ToolRun runShell(const std::string& before, const std::string& args) {
    // Standard error goes to a file, not into the pipe, so that a message the
    // tool writes on failure always follows its output instead of interleaving
    // with whatever standard output had buffered.
    static TempDir dir;
    const std::string errPath = (dir / "stderr").string();
    std::string command = before + std::string(NVK_TOOL_PATH) + " " + args + " 2>" + errPath;
    ToolRun r{-1, {}};
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char chunk[4096];
        size_t n;
        while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) r.out.append(chunk, n);
        int status = pclose(pipe);
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    r.out += readFile(errPath);
    return r;
}

}  // namespace

ToolRun runTool(const std::string& args) { return runShell("", args); }

ToolRun runToolPiped(const std::string& feed, const std::string& args) { return runShell(feed + " | ", args); }

}  // namespace nvktest
