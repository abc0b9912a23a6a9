#include <gtest/gtest.h>

#include "nvk/platform/ReferenceSet.h"
#include "tests/support/TestSupport.h"

using namespace tovan;

namespace {

struct Probe : CountedObject {
    static inline int destroyed = 0;
    ~Probe() override { ++destroyed; }
};

}  // namespace

TEST(ReferenceSet, HoldsOneReferencePerElementAndKeepsInsertionOrder) {
    Probe::destroyed = 0;
    std::vector<Ptr<Probe>> probes;
    for (int i = 0; i < 40; ++i) probes.emplace_back(new Probe);
    {
        ReferenceSet<Probe> set;
        for (int i = 39; i >= 0; --i) EXPECT_TRUE(set.add(probes[size_t(i)].get()));
        // Duplicates are refused on both sides of the switch to the hash lookup.
        EXPECT_FALSE(set.add(probes[0].get()));
        EXPECT_FALSE(set.add(probes[39].get()));
        EXPECT_FALSE(set.add(nullptr));
        EXPECT_EQ(set.getCount(), 40);
        EXPECT_EQ(set.first(), probes[39].get());
        EXPECT_EQ(set.get(39), probes[0].get());
        EXPECT_EQ(probes[5]->getRefCount(), 2);

        ReferenceSet<Probe> copy = set;
        EXPECT_EQ(probes[5]->getRefCount(), 3);
        EXPECT_TRUE(copy.remove(probes[5].get()));
        EXPECT_FALSE(copy.contains(probes[5].get()));
        EXPECT_FALSE(copy.remove(probes[5].get()));
        EXPECT_EQ(copy.indexOf(probes[4].get()), 34);  // those after it moved up
        EXPECT_EQ(probes[5]->getRefCount(), 2);
        EXPECT_TRUE(copy.add(probes[5].get()));
        EXPECT_EQ(copy.indexOf(probes[5].get()), 39);

        EXPECT_THROW_MSG(set.get(40), InvalidIndexException, "Index 40 is out of range (last valid index 39)");
        EXPECT_THROW_MSG(set.get(-1), InvalidIndexException, "Index -1 is out of range (last valid index 39)");
    }
    EXPECT_EQ(probes[5]->getRefCount(), 1);
    probes.clear();
    EXPECT_EQ(Probe::destroyed, 40);
}
