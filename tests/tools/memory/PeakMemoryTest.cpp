// The tool's peak memory (maximum resident size of the child process) stays
// flat from a 10 MB to a 100 MB file: records are read, written and released
// one at a time. Files are generated in a temporary folder, never stored.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"
#include "tests/tools/GeneratedRecords.h"

namespace {

struct MeasuredRun {
    int status = -1;
    long maxResidentKiB = 0;
};

/// Runs the tool with `args`, output to /dev/null, and takes its peak memory from wait4.
MeasuredRun runMeasured(const std::vector<std::string>& args) {
    std::vector<char*> argv{const_cast<char*>(NVK_TOOL_PATH)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    MeasuredRun run;
    const pid_t child = fork();
    if (child == 0) {
        if (!freopen("/dev/null", "w", stdout)) _exit(127);
        execv(NVK_TOOL_PATH, argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (child > 0 && wait4(child, &status, 0, &usage) == child) {
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.maxResidentKiB = usage.ru_maxrss;
    }
    return run;
}

TEST(ToolPeakMemory, ConversionsStayFlatFrom10To100MB) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own memory (quarantine, shadow) grows with the work done";
#endif
    nvktest::TempDir dir;
    long peak[2][2] = {};
    const uint64_t sizes[2] = {10u << 20, 100u << 20};
    for (int s = 0; s < 2; ++s) {
        const std::string json = (dir / "records.json").string(), bin = (dir / "records.nvkb").string(),
                          back = (dir / "back.json").string();
        const uint64_t count = nvktest::writeGeneratedRecords(json, sizes[s]);
        const MeasuredRun toBin = runMeasured({"json", json, "--to-bin", bin, "--quiet"});
        const MeasuredRun toJson = runMeasured({"bin", bin, "--to-json", back, "--quiet"});
        ASSERT_EQ(toBin.status, 0);
        ASSERT_EQ(toJson.status, 0);
        EXPECT_GT(std::filesystem::file_size(back), sizes[s] * 9 / 10);
        EXPECT_GT(count, sizes[s] / 400);
        peak[s][0] = toBin.maxResidentKiB;
        peak[s][1] = toJson.maxResidentKiB;
    }
    // Holding the records would take several times the file; allow a few MB of
    // noise (allocator arenas, page cache of the binary).
    for (int c = 0; c < 2; ++c) {
        SCOPED_TRACE(c == 0 ? "json --to-bin" : "bin --to-json");
        EXPECT_LT(peak[1][c], peak[0][c] + 8 * 1024) << "10 MB: " << peak[0][c] << " KiB, 100 MB: " << peak[1][c] << " KiB";
        std::cout << (c == 0 ? "json --to-bin" : "bin --to-json") << ": peak " << peak[0][c] << " KiB on 10 MB, "
                  << peak[1][c] << " KiB on 100 MB\n";
    }
}

}  // namespace
