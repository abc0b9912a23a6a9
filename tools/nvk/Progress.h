#pragma once
// The progress bar of long conversions and queries, on standard error.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace nvk {

/// Shows bytes done of the total, records and rate, redrawn in place at most
/// ten times a second, once the input is larger than kShowFrom bytes (or,
/// when its size is unknown, once that much has been read). Nothing is shown
/// unless `enabled`; the commands enable it through wanted(), so that a log
/// or a pipe never receives it.
class Progress {
public:
    static constexpr uint64_t kShowFrom = 4u << 20;

    /// `total` 0: unknown (a pipe).
    Progress(bool enabled, uint64_t total, std::FILE* out = stderr);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Called after each record; cheap when nothing is drawn.
    void update(uint64_t bytes, uint64_t records) {
        if (enabled_ && (bytes >= kShowFrom || total_ >= kShowFrom)) draw(bytes, records, false);
    }
    /// Erases the bar, before a message or at the end.
    void finish();

    /// The bar's text for the given state (for the tests): "[####------]  40%
    /// 1.6 of 4.0 MB, 1,200 records, 8.0 MB/s", without the total when it is unknown.
    static std::string line(uint64_t bytes, uint64_t total, uint64_t records, double seconds);

    /// Whether the bar may be drawn: not `quiet`, standard error a terminal,
    /// and, when the command writes its results to standard output
    /// (`usesStdout`), that not a terminal, where the bar would run into them.
    static bool wanted(bool quiet, bool usesStdout);

private:
    void draw(uint64_t bytes, uint64_t records, bool force);

    bool enabled_;
    bool drawn_ = false;
    uint64_t total_;
    std::FILE* out_;
    std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace nvk
