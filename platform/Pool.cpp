#include "nvk/platform/Pool.h"

#include <algorithm>
#include <mutex>

namespace tovan {
namespace {

struct DetectorList {
    std::mutex mutex;
    std::vector<LeakDetector*> all;
};

DetectorList& detectors() {
    static DetectorList* list = new DetectorList;  // outlives every static detector
    return *list;
}

}  // namespace

LeakDetector::LeakDetector(const char* className) : className_(className) {
    DetectorList& d = detectors();
    std::lock_guard lock(d.mutex);
    d.all.push_back(this);
}

LeakDetector::~LeakDetector() {
    DetectorList& d = detectors();
    std::lock_guard lock(d.mutex);
    d.all.erase(std::remove(d.all.begin(), d.all.end(), this), d.all.end());
}

std::vector<LeakDetector::Entry> LeakDetector::liveObjects() {
    DetectorList& d = detectors();
    std::lock_guard lock(d.mutex);
    std::vector<Entry> out;
    for (LeakDetector* det : d.all)
        if (det->live() != 0) out.push_back({det->className(), det->live()});
    std::sort(out.begin(), out.end(), [](const Entry& a, const Entry& b) { return a.className < b.className; });
    return out;
}

long LeakDetector::totalLive() {
    long total = 0;
    for (const Entry& e : liveObjects()) total += e.live;
    return total;
}

PooledObject::~PooledObject() = default;

}  // namespace tovan
