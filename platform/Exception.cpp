#include "nvk/platform/Exception.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>

namespace tovan {

Exception::Exception(const char* className, const char* operation, WString message)
    : message_(std::move(message)),
      utf8_(toNarrow(message_)),
      className_(className ? className : ""),
      operation_(operation ? operation : "") {}

Exception::~Exception() = default;

std::string Exception::describe() const { return className_ + "::" + operation_ + ": " + utf8_; }

InvalidIndexException::InvalidIndexException(const char* className, const char* operation, long long index,
                                             long long bound)
    : Exception(className, operation, u"Index %ld is out of range (last valid index %ld)", index, bound),
      index_(index),
      bound_(bound) {}

// ---- sinks ---------------------------------------------------------------

namespace {

class StderrSink : public DiagnosticSink {
public:
    void warning(const WString& text) override { std::fprintf(stderr, "warning: %s\n", toNarrow(text).c_str()); }
    void debugLine(const char* target, const WString& text) override {
        std::fprintf(stderr, "[%s] %s\n", target, toNarrow(text).c_str());
    }
};

std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
StderrSink& defaultSink() {
    static StderrSink s;
    return s;
}
DiagnosticSink* currentSink = nullptr;

}  // namespace

DiagnosticSink::~DiagnosticSink() = default;

DiagnosticSink* setDiagnosticSink(DiagnosticSink* sink) {
    std::lock_guard lock(sinkMutex());
    DiagnosticSink* old = currentSink;
    currentSink = sink;
    return old;
}

void Exception::warnText(const WString& message) {
    std::lock_guard lock(sinkMutex());
    (currentSink ? *currentSink : static_cast<DiagnosticSink&>(defaultSink())).warning(message);
}

void debugText(const char* target, const WString& line) {
    std::lock_guard lock(sinkMutex());
    (currentSink ? *currentSink : static_cast<DiagnosticSink&>(defaultSink())).debugLine(target, line);
}

struct DiagnosticCapture::State {
    std::vector<std::string> warnings;
    std::vector<std::string> debug;
};

DiagnosticCapture::DiagnosticCapture() : state_(new State), previous_(setDiagnosticSink(this)) {}
DiagnosticCapture::~DiagnosticCapture() {
    setDiagnosticSink(previous_);
    delete state_;
}
// Called with the sink mutex held.
void DiagnosticCapture::warning(const WString& text) { state_->warnings.push_back(toNarrow(text)); }
void DiagnosticCapture::debugLine(const char* target, const WString& text) {
    state_->debug.push_back(std::string(target) + ": " + toNarrow(text));
}
std::vector<std::string> DiagnosticCapture::warnings() const {
    std::lock_guard lock(sinkMutex());
    return state_->warnings;
}
std::vector<std::string> DiagnosticCapture::debugLines() const {
    std::lock_guard lock(sinkMutex());
    return state_->debug;
}
void DiagnosticCapture::clear() {
    std::lock_guard lock(sinkMutex());
    state_->warnings.clear();
    state_->debug.clear();
}

// ---- debug targets -------------------------------------------------------

namespace {

struct Targets {
    std::mutex mutex;
    bool loaded = false;
    bool all = false;
    std::set<std::string> names;  // folded
    std::atomic<uint32_t> generation{1};

    void parse(const std::string& list) {
        names.clear();
        all = false;
        size_t start = 0;
        while (start <= list.size()) {
            size_t comma = list.find(',', start);
            if (comma == std::string::npos) comma = list.size();
            std::string name = list.substr(start, comma - start);
            while (!name.empty() && name.front() == ' ') name.erase(0, 1);
            while (!name.empty() && name.back() == ' ') name.pop_back();
            for (char& c : name) c = foldByte(c);
            if (name == "*") all = true;
            else if (!name.empty()) names.insert(name);
            start = comma + 1;
        }
    }
};

Targets& targets() {
    static Targets t;
    return t;
}

}  // namespace

bool isDebugTargetActive(const char* target) {
    Targets& t = targets();
    std::lock_guard lock(t.mutex);
    if (!t.loaded) {
        const char* env = std::getenv("NVK_DEBUG");
        t.parse(env ? env : "");
        t.loaded = true;
    }
    if (t.all) return true;
    std::string name(target ? target : "");
    for (char& c : name) c = foldByte(c);
    return t.names.count(name) != 0;
}

void setDebugTargets(const std::string& list) {
    Targets& t = targets();
    std::lock_guard lock(t.mutex);
    t.parse(list);
    t.loaded = true;
    t.generation.fetch_add(1);
}

bool DebugTarget::isActive() const {
    uint32_t current = targets().generation.load(std::memory_order_acquire);
    if (generation_.load(std::memory_order_acquire) != current) {
        active_.store(isDebugTargetActive(name_), std::memory_order_relaxed);
        generation_.store(current, std::memory_order_release);
    }
    return active_.load(std::memory_order_relaxed);
}

}  // namespace tovan
