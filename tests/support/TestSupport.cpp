#include "tests/support/TestSupport.h"

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

}  // namespace nvktest
