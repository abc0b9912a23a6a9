#pragma once
#include <atomic>
#include <thread>

#include "nvk/platform/Export.h"

namespace tovan {

/// The default wait for a lock everywhere in the library.
inline constexpr int DefaultLockTimeoutMs = 60000;

/// A recursive lock: the thread that holds it may take it again.
///
/// Taking a free lock, or one the thread already holds, is a single atomic
/// operation on the holder's thread id, inline: the per-class pools take
/// their lock on every allocation and release. Only a wait for another
/// thread leaves that path; it polls (yielding first, then sleeping briefly)
/// until the lock is free or the time is up.
class NVK_EXPORT CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    bool tryLockFor(int timeoutMs) {
        const std::thread::id me = std::this_thread::get_id();
        if (owner_.load(std::memory_order_relaxed) == me) {
            ++depth_;
            return true;
        }
        std::thread::id none;
        if (owner_.compare_exchange_strong(none, me, std::memory_order_acquire, std::memory_order_relaxed)) {
            depth_ = 1;
            return true;
        }
        return waitFor(me, timeoutMs);
    }
    /// Only by the holder.
    void unlock() {
        if (--depth_ == 0) owner_.store(std::thread::id(), std::memory_order_release);
    }

private:
    bool waitFor(std::thread::id me, int timeoutMs);

    std::atomic<std::thread::id> owner_{};  // the holder, or no thread
    int depth_ = 0;                         // how often the holder took it; only the holder touches it
};

/// Holds `cs` for its lifetime. When the lock cannot be had within the
/// timeout it throws Exception "Timed out after %d ms waiting for a lock"
/// (class "AutoCriticalSection", operation "acquire"), so a deadlock shows up
/// as an error rather than a hang.
class NVK_EXPORT AutoCriticalSection {
public:
    explicit AutoCriticalSection(CriticalSection& cs, int timeoutMs = DefaultLockTimeoutMs) : cs_(cs) {
        if (!cs_.tryLockFor(timeoutMs)) timedOut(timeoutMs);
    }
    ~AutoCriticalSection() { cs_.unlock(); }
    AutoCriticalSection(const AutoCriticalSection&) = delete;
    AutoCriticalSection& operator=(const AutoCriticalSection&) = delete;

private:
    [[noreturn]] static void timedOut(int timeoutMs);

    CriticalSection& cs_;
};

}  // namespace tovan
