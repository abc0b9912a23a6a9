#pragma once
// Helpers shared by the test programs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "nvk/platform/Exception.h"
#include "nvk/platform/String.h"

namespace nvktest {

/// The shared corpus folder, or an empty path when it is not there.
std::filesystem::path corpusDir();
/// A file or folder under the corpus, or an empty path when it is not there;
/// callers check it with SKIP_WITHOUT_CORPUS.
std::filesystem::path corpusPath(const std::string& relative);
/// Whether a missing corpus fails a test rather than skipping it: in CI (the
/// environment sets CI), where the corpus is always laid beside the checkout,
/// a missing one means a wrong path, and a skip would hide every corpus test.
bool corpusRequired();
std::filesystem::path sourceDir();
std::string readFile(const std::filesystem::path& path);

/// A fresh folder under the system's temporary directory, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string utf8(const tovan::WString& s) { return tovan::toNarrow(s); }

/// What a run of the nvk tool gave: its exit status (-1 when it did not exit
/// normally) and its standard output followed by its standard error.
struct ToolRun {
    int status;
    std::string out;
};

/// Runs the built nvk tool through the shell with `args` (quoted as the shell
/// reads them).
ToolRun runTool(const std::string& args);
/// Runs `feed | nvk args`: the tool reads a pipe fed by the shell command `feed`.
ToolRun runToolPiped(const std::string& feed, const std::string& args);

/// The message of what `call` throws, which must be a tovan::Exception and no subclass;
/// "no failure" when it throws nothing.
template <class Call>
std::string failureText(Call call) {
    try {
        call();
    } catch (const tovan::Exception& e) {
        EXPECT_EQ(typeid(e), typeid(tovan::Exception)) << e.what();
        return e.what();
    }
    return "no failure";
}

/// Sets the time zone (a POSIX rule, so that no zone database is needed) while it lives.
struct ZoneScope {
    explicit ZoneScope(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ZoneScope() {
        old.empty() ? unsetenv("TZ") : setenv("TZ", old.c_str(), 1);
        tzset();
    }
    const std::string old = std::getenv("TZ") ? std::getenv("TZ") : "";
};

}  // namespace nvktest

/// Runs `nvk tool_args` and expects exit status `tool_status` and exactly the
/// text `tool_out` (standard error after standard output).
#define EXPECT_TOOL(tool_args, tool_status, tool_out)                                             \
    do {                                                                                          \
        const std::string nvk_args_ = (tool_args);                                                \
        const nvktest::ToolRun nvk_run_ = nvktest::runTool(nvk_args_);                            \
        EXPECT_EQ(nvk_run_.status, (tool_status)) << nvk_args_;                                   \
        EXPECT_EQ(nvk_run_.out, (tool_out)) << nvk_args_;                                         \
    } while (0)

/// Runs `stmt`, requires it to throw exactly `cls`, and requires `seen` (an expression of
/// the caught exception `e`) to equal `expected`.
#define NVK_EXPECT_THROW_SEEN_(stmt, cls, seen, expected)                                         \
    do {                                                                                          \
        bool nvk_caught_ = false;                                                                 \
        try {                                                                                     \
            stmt;                                                                                 \
        } catch (const cls& e) {                                                                  \
            nvk_caught_ = true;                                                                   \
            EXPECT_EQ(typeid(e), typeid(cls)) << "thrown a subclass of " #cls;                    \
            EXPECT_EQ(std::string(seen), std::string(expected));                                  \
        }                                                                                         \
        EXPECT_TRUE(nvk_caught_) << #stmt " did not throw " #cls;                                 \
    } while (0)

/// Requires `stmt` to throw exactly `cls` with the message (UTF-8) `msg`.
#define EXPECT_THROW_MSG(stmt, cls, msg) NVK_EXPECT_THROW_SEEN_(stmt, cls, e.what(), msg)

/// Also requires the thrower's class and operation names, as the framework formats them
/// ("CBaseNode::serialize: message").
#define EXPECT_THROW_FROM(stmt, cls, described) NVK_EXPECT_THROW_SEEN_(stmt, cls, e.describe(), described)

/// Skips the test when `path` is empty (a corpus file that is not there), or
/// fails it where the corpus is required (see corpusRequired).
#define SKIP_WITHOUT_CORPUS(path)                                                                 \
    do {                                                                                          \
        if ((path).empty()) {                                                                     \
            if (nvktest::corpusRequired())                                                        \
                FAIL() << "shared corpus not found at " NVK_CORPUS_DIR " (required when CI is set)"; \
            GTEST_SKIP() << "shared corpus not found at " NVK_CORPUS_DIR;                          \
        }                                                                                         \
    } while (0)
