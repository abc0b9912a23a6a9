#pragma once
// The character stream under the JSON scanner: text from a file interface, a
// block at a time, with up to three characters injected around it, and the
// line/column/position counters of the next character.
#include <string_view>

#include "nvk/interchange/JsonElements.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/String.h"

namespace cajun::json {

/// The characters of one iFileInterface opened for reading, in the order:
/// first injected character, second injected character, the file's text,
/// trailing injected character (each injected one only while its flag is set).
///
/// The counters describe the next character. The stream never moves them
/// itself; whoever consumes characters decides whether they count (the scanner
/// counts every character it takes, ResetStream's skipping of white space does
/// not), so they are plain fields advanced by Count().
class NVK_EXPORT JsonInputStream {
public:
    /// The file is not owned and must outlive the stream.
    explicit JsonInputStream(tovan::iFileInterface* file);
    JsonInputStream(const JsonInputStream&) = delete;
    JsonInputStream& operator=(const JsonInputStream&) = delete;

    /// True when no character is left, injected ones included.
    bool EOS() {
        if (cur_ != end_ && !injecting_) return false;
        return slowEOS();
    }
    /// The next character, not consumed. Only valid when !EOS().
    tovan::wchar Peek() {
        if (cur_ != end_ && !injecting_) return *cur_;
        return slowPeek();
    }
    /// Consumes and returns the next character. Only valid when !EOS().
    tovan::wchar Get() {
        if (cur_ != end_ && !injecting_) return *cur_++;
        return slowGet();
    }

    /// Advances the counters over one consumed character: a line feed starts
    /// a new line; anything else, a carriage return included, is a column.
    void Count(tovan::wchar c) {
        position = advanceCount(position, 1);
        if (c == u'\n') {
            line = advanceCount(line, 1);
            column = 0;
        } else {
            column = advanceCount(column, 1);
        }
    }
    /// Get() and Count() together.
    tovan::wchar Consume() {
        tovan::wchar c = Get();
        Count(c);
        return c;
    }
    /// The counters are read one by one on purpose: merged into one wide load
    /// right after the narrow stores that advanced them, the load would wait
    /// for the stores to retire (a fifth of scanning time on indented text).
    Location GetLocation() const {
        return Location{__atomic_load_n(&line, __ATOMIC_RELAXED), __atomic_load_n(&column, __ATOMIC_RELAXED),
                        __atomic_load_n(&position, __ATOMIC_RELAXED)};
    }

    /// The file's characters that can be consumed in bulk right now (none
    /// while an injected character is due). Pair with Skip().
    std::u16string_view Buffered() const {
        return injecting_ ? std::u16string_view() : std::u16string_view(cur_, size_t(end_ - cur_));
    }
    /// Drops `n` characters of Buffered() without counting them.
    void Skip(size_t n) { cur_ += n; }

    /// Injection (ResetStream). Setting a character sets its flag.
    void SetFirstInjected(tovan::wchar c);
    void SetSecondInjected(tovan::wchar c);
    void SetTrailingInjected(tovan::wchar c);
    bool HasFirstInjected() const { return firstSet_; }
    void ClearInjected();

    // 32 bits, modulo 2^32 on long sources (see Location); move them with
    // advanceCount, never with + or ++.
    int line = 0;
    int column = 0;
    int position = 0;

private:
    bool fill();
    bool slowEOS();
    tovan::wchar slowPeek();
    tovan::wchar slowGet();
    void updateInjecting() { injecting_ = firstSet_ || secondSet_; }

    tovan::iFileInterface* file_;
    const tovan::wchar* cur_ = nullptr;
    const tovan::wchar* end_ = nullptr;
    bool fileEnd_ = false;
    // True while a leading injected character is due; keeps the fast path to
    // one extra test.
    bool injecting_ = false;
    bool firstSet_ = false, secondSet_ = false, trailingSet_ = false;
    tovan::wchar first_ = 0, second_ = 0, trailing_ = 0;
};

}  // namespace cajun::json
