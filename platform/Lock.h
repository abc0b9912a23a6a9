#pragma once
#include <mutex>

#include "platform/Export.h"

namespace tovan {

/// The default wait for a lock everywhere in the library.
inline constexpr int DefaultLockTimeoutMs = 60000;

/// A recursive lock: the thread that holds it may take it again.
class NVK_EXPORT CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    bool tryLockFor(int timeoutMs);
    void unlock();

private:
    std::recursive_timed_mutex mutex_;
};

/// Holds `cs` for its lifetime. When the lock cannot be had within the
/// timeout it throws Exception "Timed out after %d ms waiting for a lock"
/// (class "AutoCriticalSection", operation "acquire"), so a deadlock shows up
/// as an error rather than a hang.
class NVK_EXPORT AutoCriticalSection {
public:
    explicit AutoCriticalSection(CriticalSection& cs, int timeoutMs = DefaultLockTimeoutMs);
    ~AutoCriticalSection();
    AutoCriticalSection(const AutoCriticalSection&) = delete;
    AutoCriticalSection& operator=(const AutoCriticalSection&) = delete;

private:
    CriticalSection& cs_;
};

}  // namespace tovan
