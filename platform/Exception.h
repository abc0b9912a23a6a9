#pragma once
// The framework's exceptions and its two diagnostic channels (warnings that do
// not stop an operation, and debug lines keyed by target names).
#include <atomic>
#include <exception>
#include <string>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Format.h"
#include "nvk/platform/String.h"

namespace tovan {

/// Base of every failure the library raises. Carries the formatted message and
/// the names of the throwing class and operation ("CPropertyCollection",
/// "define(string)"); what() is the message alone, in UTF-8.
class NVK_EXPORT Exception : public std::exception {
public:
    template <class... Args>
    Exception(const char* className, const char* operation, FormatFor<Args...> fmt, const Args&... args)
        : Exception(className, operation, format<Args...>(fmt, args...)) {}
    Exception(const char* className, const char* operation, WString message);
    ~Exception() override;

    const WString& getMessage() const { return message_; }
    const std::string& getClassName() const { return className_; }
    const std::string& getOperation() const { return operation_; }
    const char* what() const noexcept override { return utf8_.c_str(); }
    /// "Class::operation: message", for logs.
    std::string describe() const;

    /// Reports a warning through the warning channel; never throws.
    template <class... Args>
    static void warn(FormatFor<Args...> fmt, const Args&... args) {
        warnText(format<Args...>(fmt, args...));
    }
    static void warnText(const WString& message);

private:
    WString message_;
    std::string utf8_;
    std::string className_;
    std::string operation_;
};

/// A position outside [0, bound]; `bound` is the last valid index (so -1 for
/// an empty container). Message: "Index %d is out of range (last valid index %d)".
class NVK_EXPORT InvalidIndexException : public Exception {
public:
    InvalidIndexException(const char* className, const char* operation, long long index, long long bound);
    long long getIndex() const { return index_; }
    long long getBound() const { return bound_; }

private:
    long long index_;
    long long bound_;
};

class NVK_EXPORT BadParameterException : public Exception {
public:
    using Exception::Exception;
};

class NVK_EXPORT PropertyAccessException : public Exception {
public:
    using Exception::Exception;
};

class NVK_EXPORT MemoryException : public Exception {
public:
    using Exception::Exception;
};

// ---- debug channel -------------------------------------------------------

/// Targets come from the NVK_DEBUG environment variable: a comma-separated
/// list of names compared without regard to case ("*" turns on every target),
/// read the first time any target is asked about.
NVK_EXPORT bool isDebugTargetActive(const char* target);
/// Replaces the active targets (tests, and hosts that configure tracing
/// themselves). Targets cached by DebugTarget pick the change up.
NVK_EXPORT void setDebugTargets(const std::string& commaSeparated);
NVK_EXPORT void debugText(const char* target, const WString& line);

/// A target asked about once and then remembered, so tracing costs one load
/// and a compare when it is off. Declare it `static` in the function that traces.
class NVK_EXPORT DebugTarget {
public:
    explicit DebugTarget(const char* name) : name_(name) {}
    bool isActive() const;
    explicit operator bool() const { return isActive(); }
    const char* name() const { return name_; }

private:
    const char* name_;
    mutable std::atomic<uint32_t> generation_{0};
    mutable std::atomic<bool> active_{false};
};

template <class... Args>
void debug(const DebugTarget& target, FormatFor<Args...> fmt, const Args&... args) {
    if (target.isActive()) debugText(target.name(), format<Args...>(fmt, args...));
}

template <class... Args>
void debug(const char* target, FormatFor<Args...> fmt, const Args&... args) {
    if (isDebugTargetActive(target)) debugText(target, format<Args...>(fmt, args...));
}

// ---- where diagnostics go ------------------------------------------------

/// Receives warnings and debug lines. The default sink writes them to
/// standard error as "warning: <text>" and "[<target>] <text>".
class NVK_EXPORT DiagnosticSink {
public:
    virtual ~DiagnosticSink();
    virtual void warning(const WString& text) = 0;
    virtual void debugLine(const char* target, const WString& text) = 0;
};

/// Installs `sink` (null restores the default); returns the previous one.
NVK_EXPORT DiagnosticSink* setDiagnosticSink(DiagnosticSink* sink);

/// Collects warnings and debug lines (as UTF-8) while it lives.
class NVK_EXPORT DiagnosticCapture : public DiagnosticSink {
public:
    DiagnosticCapture();
    ~DiagnosticCapture() override;
    DiagnosticCapture(const DiagnosticCapture&) = delete;
    DiagnosticCapture& operator=(const DiagnosticCapture&) = delete;

    void warning(const WString& text) override;
    void debugLine(const char* target, const WString& text) override;

    std::vector<std::string> warnings() const;
    /// Each line as "<target>: <text>".
    std::vector<std::string> debugLines() const;
    void clear();

private:
    struct State;
    State* state_;
    DiagnosticSink* previous_;
};

}  // namespace tovan
