#include "platform/Lock.h"

#include <chrono>

#include "platform/Exception.h"

namespace tovan {

bool CriticalSection::tryLockFor(int timeoutMs) {
    // An uncontended lock is taken without reading the clock: the per-class
    // pools take one on every allocation and release (bench/tree_bench).
    if (mutex_.try_lock()) return true;
    return mutex_.try_lock_for(std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs));
}

void CriticalSection::unlock() { mutex_.unlock(); }

AutoCriticalSection::AutoCriticalSection(CriticalSection& cs, int timeoutMs) : cs_(cs) {
    if (!cs_.tryLockFor(timeoutMs))
        throw Exception("AutoCriticalSection", "acquire", u"Timed out after %d ms waiting for a lock", timeoutMs);
}

AutoCriticalSection::~AutoCriticalSection() { cs_.unlock(); }

}  // namespace tovan
