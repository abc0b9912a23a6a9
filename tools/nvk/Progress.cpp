#include "tools/nvk/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace nvk {

namespace {

constexpr int kBarWidth = 24;

std::string megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", double(bytes) / (1 << 20));
    return text;
}

std::string grouped(uint64_t n) {
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

}  // namespace

Progress::Progress(bool enabled, uint64_t total, std::FILE* out)
    : enabled_(enabled), total_(total), out_(out), start_(std::chrono::steady_clock::now()), last_(start_) {}

Progress::~Progress() { finish(); }

bool Progress::wanted(bool quiet, bool usesStdout) {
    return !quiet && isatty(STDERR_FILENO) && !(usesStdout && isatty(STDOUT_FILENO));
}

std::string Progress::line(uint64_t bytes, uint64_t total, uint64_t records, double seconds) {
    std::string text;
    if (total > 0) {
        const double done = bytes >= total ? 1.0 : double(bytes) / double(total);
        const int filled = int(done * kBarWidth);
        char percent[8];
        std::snprintf(percent, sizeof percent, "%3d%%", int(done * 100));
        text = "[" + std::string(size_t(filled), '#') + std::string(size_t(kBarWidth - filled), '-') + "] " + percent +
               " " + megabytes(bytes) + " of " + megabytes(total) + " MB";
    } else {
        text = megabytes(bytes) + " MB";
    }
    text += ", " + grouped(records) + (records == 1 ? " record" : " records");
    if (seconds > 0) text += ", " + megabytes(uint64_t(double(bytes) / seconds)) + " MB/s";
    return text;
}

void Progress::draw(uint64_t bytes, uint64_t records, bool force) {
    const auto now = std::chrono::steady_clock::now();
    if (!force && drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    drawn_ = true;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    // Carriage return and erase-to-end redraw the line in place.
    std::fprintf(out_, "\r%s\x1b[K", line(bytes, total_, records, seconds).c_str());
    std::fflush(out_);
}

void Progress::finish() {
    if (!drawn_) return;
    drawn_ = false;
    std::fputs("\r\x1b[K", out_);
    std::fflush(out_);
}

}  // namespace nvk
