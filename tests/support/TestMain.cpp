// Test programs end by checking that no pooled or counted object of any class
// is still alive: a leak fails the run even when every test passed.
#include <gtest/gtest.h>

#include <iostream>

#include "nvk/platform/Pool.h"

namespace {

class NoLiveObjects : public ::testing::Environment {
public:
    void TearDown() override {
        auto live = tovan::LeakDetector::liveObjects();
        for (const auto& e : live)
            ADD_FAILURE() << "leak detector: " << e.live << " live object(s) of class " << e.className;
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new NoLiveObjects);
    return RUN_ALL_TESTS();
}
