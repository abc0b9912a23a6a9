#include "nvk/platform/Lock.h"

#include <chrono>

#include "nvk/platform/Exception.h"

namespace tovan {

bool CriticalSection::waitFor(std::thread::id me, int timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    for (int round = 0;; ++round) {
        std::thread::id none;
        if (owner_.load(std::memory_order_relaxed) == none &&
            owner_.compare_exchange_strong(none, me, std::memory_order_acquire, std::memory_order_relaxed)) {
            depth_ = 1;
            return true;
        }
        if (Clock::now() >= deadline) return false;
        // Short holds are the rule: give the holder the processor first,
        // then poll at a pace that costs little while a long hold lasts.
        if (round < 100)
            std::this_thread::yield();
        else
            std::this_thread::sleep_for(std::chrono::microseconds(round < 1000 ? 50 : 500));
    }
}

void AutoCriticalSection::timedOut(int timeoutMs) {
    throw Exception("AutoCriticalSection", "acquire", u"Timed out after %d ms waiting for a lock", timeoutMs);
}

}  // namespace tovan
