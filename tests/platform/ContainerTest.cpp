#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "nvk/platform/Array.h"
#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/HashMap.h"
#include "nvk/platform/SmallVector.h"
#include "tests/support/TestSupport.h"

using namespace tovan;

// ---- Array -------------------------------------------------------------------

TEST(Array, OutOfRangeAccessNamesIndexAndLastValidIndex) {
    Array<int> a{10, 20, 30};
    EXPECT_EQ(a[2], 30);
    EXPECT_THROW_MSG(a[3], InvalidIndexException, "Index 3 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(a.set(7, 1), InvalidIndexException, "Index 7 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(a.removeAt(3), InvalidIndexException, "Index 3 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(a.get(size_t(-1)), InvalidIndexException, "Index -1 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(a.insertAt(4, 0), InvalidIndexException, "Index 4 is out of range (last valid index 3)");
    EXPECT_EQ(a, (Array<int>{10, 20, 30}));  // failed calls changed nothing

    Array<int> empty;
    EXPECT_THROW_MSG(empty.get(0), InvalidIndexException, "Index 0 is out of range (last valid index -1)");
    EXPECT_THROW_MSG(empty.last(), InvalidIndexException, "Index -1 is out of range (last valid index -1)");
    EXPECT_THROW_MSG(empty.removeLast(), InvalidIndexException, "Index -1 is out of range (last valid index -1)");
    try {
        empty.removeAt(5);
    } catch (const InvalidIndexException& e) {
        EXPECT_EQ(e.getClassName(), "Array");
        EXPECT_EQ(e.getOperation(), "removeAt");
        EXPECT_EQ(e.getIndex(), 5);
        EXPECT_EQ(e.getBound(), -1);
    }
}

TEST(Array, InsertRemoveAndSearch) {
    Array<std::string> a;
    a.append("b");
    a.insertAt(0, "a");
    a.insertAt(2, "d");
    a.insertAt(2, "c");
    EXPECT_EQ(a, (Array<std::string>{"a", "b", "c", "d"}));
    EXPECT_EQ(a.indexOf("c"), 2);
    EXPECT_EQ(a.indexOf("x"), -1);
    a.removeAt(0);
    EXPECT_EQ(a.removeLast(), "d");
    EXPECT_EQ(a, (Array<std::string>{"b", "c"}));
}

// ---- SmallVector ----------------------------------------------------------------

// Random edits against std::vector, with copies and moves taken along the way,
// so that every step crosses between the elements inside and a block.
TEST(SmallVector, FollowsAVectorAcrossTheInlineBoundary) {
    using Small = SmallVector<int32_t, 16>;  // four inside
    std::mt19937 rng(7);
    for (int round = 0; round < 200; ++round) {
        Small v;
        std::vector<int32_t> model;
        for (int step = 0; step < 40; ++step) {
            const int32_t x = int32_t(rng() % 1000);
            switch (rng() % 9) {
                case 0:
                case 1: v.push_back(x), model.push_back(x); break;
                case 2: {
                    const size_t at = rng() % (model.size() + 1);
                    v.insert(v.begin() + at, x);
                    model.insert(model.begin() + ptrdiff_t(at), x);
                    break;
                }
                case 3:
                    if (!model.empty()) {
                        const size_t at = rng() % model.size();
                        v.erase(v.begin() + at);
                        model.erase(model.begin() + ptrdiff_t(at));
                    }
                    break;
                case 4: {
                    const size_t n = rng() % 9;
                    v.resize(n, x);
                    model.resize(n, x);
                    break;
                }
                case 5: {
                    Small copy(v);  // the copy is independent of its source
                    if (!copy.empty()) copy[0] = -1;
                    v = copy;
                    if (!model.empty()) model[0] = -1;
                    break;
                }
                case 6: {  // there and back, over elements that must not show through
                    Small moved{-5, -5, -5, -5};
                    moved = std::move(v);
                    EXPECT_TRUE(v.empty());
                    Small back(std::move(moved));
                    v = Small();
                    v.resize(4, -6);
                    v = std::move(back);
                    break;
                }
                case 7: v.reserve(rng() % 12); break;
                case 8:
                    if (!model.empty()) v.pop_back(), model.pop_back();
                    break;
            }
            ASSERT_EQ(std::vector<int32_t>(v.begin(), v.end()), model) << "round " << round << " step " << step;
        }
    }
}

TEST(SmallVector, ShortArraysStayInsideAndLongOnesMoveTheirBlock) {
    SmallVector<double, 16> pair{1.5, 2.5};
    EXPECT_EQ(pair.capacity(), 2u);  // no block of its own
    const double* inside = pair.data();
    EXPECT_GE(reinterpret_cast<const char*>(inside), reinterpret_cast<const char*>(&pair));
    EXPECT_LT(reinterpret_cast<const char*>(inside), reinterpret_cast<const char*>(&pair + 1));

    SmallVector<double, 16> longer(100, 0.5);
    const double* block = longer.data();
    SmallVector<double, 16> taken(std::move(longer));
    EXPECT_EQ(taken.data(), block);  // the block changed hands, nothing was copied
    EXPECT_EQ(longer.size(), 0u);
    longer.push_back(3.0);  // the emptied one is usable again, inside
    EXPECT_EQ(longer.capacity(), 2u);
    EXPECT_TRUE((taken == SmallVector<double, 16>(100, 0.5)));
}

// ---- HashMap -------------------------------------------------------------------

TEST(HashMap, GrowRehashesIntoHashModuloBucketsAndSetsThreshold) {
    HashMap<WString, int, NameHashFoldAZ, NameEqualFoldAZ> map(31);
    EXPECT_EQ(map.bucketCount(), 31u);
    EXPECT_EQ(map.threshold(), 23u);  // 31 * 0.75 = 23.25
    std::vector<WString> names;
    for (int i = 0; i < 20; ++i) names.push_back(toWide("Prop" + std::to_string(i)));
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(map.put(names[size_t(i)], i));
    EXPECT_EQ(map.bucketCount(), 31u);

    map.grow(7);
    EXPECT_EQ(map.threshold(), 5u);  // 5.25 truncated
    // Where the folded hashes of Prop0 to Prop19 fall among 7 buckets (the
    // unfolded ones would give 3, 3, 4, 3, 3, 2, 2).
    const size_t expected[7] = {2, 3, 4, 4, 3, 2, 2};
    for (size_t b = 0; b < 7; ++b) EXPECT_EQ(map.bucketLength(b), expected[b]) << "bucket " << b;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(*map.find(names[size_t(i)]), i);

    // Names are found in either case; a put of another case replaces the value.
    EXPECT_EQ(*map.find(u"PROP3"), 3);
    EXPECT_FALSE(map.put(u"prop3", 33));
    EXPECT_EQ(map.size(), 20u);
    EXPECT_EQ(map.find_KeyDefinitelyExists(u"Prop3"), 33);
    EXPECT_TRUE(map.remove(u"PROP3"));
    EXPECT_FALSE(map.remove(u"PROP3"));
    EXPECT_EQ(map.find(u"prop3"), nullptr);
}

TEST(HashMap, PutGrowsPastThreshold) {
    HashMap<int, int> map(4);  // threshold 3
    for (int i = 0; i < 3; ++i) map.put(i, i);
    EXPECT_EQ(map.bucketCount(), 4u);
    map.put(3, 3);
    EXPECT_EQ(map.bucketCount(), 9u);
    EXPECT_EQ(map.threshold(), 6u);
    for (int i = 4; i < 100; ++i) map.put(i, i * 2);
    EXPECT_EQ(map.size(), 100u);
    EXPECT_LE(map.size(), map.threshold());
    for (int i = 4; i < 100; ++i) ASSERT_EQ(*map.find(i), i * 2);
    HashMap<int, int> copy(map);
    map.clear();
    EXPECT_EQ(copy.size(), 100u);
    EXPECT_EQ(*copy.find(99), 198);
    EXPECT_EQ(map.find(99), nullptr);
}

TEST(HashMap, BrokenInvariantsRaiseTheirMessages) {
    HashMap<int, int> map(0);
    EXPECT_THROW_MSG(map.find(1), Exception, "Tried to find in a hash map with 0 buckets");
    EXPECT_THROW_MSG(map.put(1, 1), Exception, "Tried to put into a hash map with 0 buckets");
    EXPECT_THROW_MSG(map.remove(1), Exception, "Tried to remove from hash map with 0 buckets");
    EXPECT_THROW_MSG(map.grow(0), Exception, "Cannot resize a hash map to 0");
    EXPECT_EQ(map.bucketCount(), 0u);
    map.grow(5);
    map.put(1, 10);
    EXPECT_THROW_MSG(map.grow(0), Exception, "Cannot resize a hash map to 0");
    EXPECT_EQ(map.bucketCount(), 5u);
    EXPECT_THROW_MSG(map.find_KeyDefinitelyExists(2), Exception, "find_KeyDefinitelyExists: Did not find item");
    EXPECT_EQ(map.find_KeyDefinitelyExists(1), 10);
}

// ---- BitsetValue -----------------------------------------------------------------

namespace {

/// Members at `percent` density; when `clustered`, only within a random stretch, ending at
/// the last member, as in a set grown member by member (see fromModel).
std::vector<bool> randomModel(std::mt19937& rng, size_t size, int percent, bool clustered) {
    std::vector<bool> m(size);
    size_t first = 0, last = size;
    if (clustered && size > 0) {
        first = rng() % size;
        last = first + rng() % (size - first + 1);
    }
    for (size_t i = first; i < last; ++i) m[i] = int(rng() % 100) < percent;
    if (clustered)
        while (!m.empty() && !m.back()) m.pop_back();
    return m;
}

std::vector<size_t> membersOf(const std::vector<bool>& m) {
    std::vector<size_t> members;
    for (size_t i = 0; i < m.size(); ++i)
        if (m[i]) members.push_back(i);
    return members;
}

/// Sized up front, or (half the time, when the model ends at a member) grown by its
/// members alone, which keeps only the words around them. Members are set in a random
/// order, so that the stored words also grow downwards.
BitsetValue fromModel(const std::vector<bool>& m, std::mt19937& rng) {
    std::vector<size_t> members = membersOf(m);
    std::shuffle(members.begin(), members.end(), rng);
    BitsetValue b;
    if (m.empty() || !m.back() || rng() % 2) b.resize(m.size());
    for (size_t i : members) b.set(i);
    return b;
}

void expectMatches(const BitsetValue& b, const std::vector<bool>& m) {
    std::vector<size_t> got, each, want = membersOf(m);
    for (size_t i : b.setBits()) got.push_back(i);
    b.forEachSetBit([&](size_t i) { each.push_back(i); });
    ASSERT_EQ(got, want);
    ASSERT_EQ(each, want);
    EXPECT_EQ(b.count(), want.size());
    EXPECT_EQ(b.none(), want.empty());
    for (size_t i = 0; i < m.size() + 70; i += 1 + i % 7) ASSERT_EQ(b.test(i), i < m.size() && m[i]) << i;
}

}  // namespace

TEST(BitsetValue, SetOperationsMatchModelOnRandomData) {
    std::mt19937 rng(20261122);
    const size_t sizes[] = {0, 1, 63, 64, 65, 127, 1000, 10007};
    const int densities[] = {0, 2, 50, 100};
    for (size_t size : sizes) {
        for (int da : densities) {
            auto ma = randomModel(rng, size, da, rng() % 2);
            auto mb = randomModel(rng, sizes[rng() % std::size(sizes)], densities[rng() % 4], rng() % 2);
            const size_t sa = ma.size(), sb = mb.size();
            BitsetValue a = fromModel(ma, rng), b = fromModel(mb, rng);
            SCOPED_TRACE("sizes " + std::to_string(sa) + "/" + std::to_string(sb));
            expectMatches(a, ma);

            std::vector<bool> mu(std::max(sa, sb)), mi(sa), md(sa);
            bool overlap = false;
            for (size_t i = 0; i < mu.size(); ++i) {
                bool x = i < sa && ma[i], y = i < sb && mb[i];
                mu[i] = x || y;
                if (i < sa) mi[i] = x && y, md[i] = x && !y;
                overlap |= x && y;
            }
            BitsetValue u = a | b;
            EXPECT_EQ(u.size(), mu.size());
            expectMatches(u, mu);
            expectMatches(a & b, mi);
            expectMatches(a - b, md);
            // Equality sees members only, whatever words each side happens to keep.
            EXPECT_TRUE((a - b) == fromModel(md, rng));
            EXPECT_EQ(u == a, membersOf(mu) == membersOf(ma));
            EXPECT_EQ((a & b).size(), sa);
            EXPECT_EQ(a.intersects(b), overlap);

            // nextSetBit from every start agrees with the model.
            for (size_t from = 0; from < sa + 2; from += 1 + rng() % 37) {
                size_t want = BitsetValue::npos;
                for (size_t i = from; i < sa; ++i)
                    if (ma[i]) {
                        want = i;
                        break;
                    }
                ASSERT_EQ(a.nextSetBit(from), want) << "from " << from;
            }
        }
    }
}

TEST(BitsetValue, SizeGrowthShrinkAndMemberEquality) {
    BitsetValue b;
    EXPECT_FALSE(b.test(1000));
    b.clear(1000);  // beyond the size: nothing happens
    EXPECT_EQ(b.size(), 0u);
    b.set(130);
    EXPECT_EQ(b.size(), 131u);
    b.set(5);
    b.resize(100);  // drops 130
    EXPECT_EQ(b.toString(), WString(u"{5}"));
    b.resize(200);  // the dropped bit does not come back
    EXPECT_FALSE(b.test(130));

    BitsetValue small(10), big(1000);
    small.set(3);
    big.set(3);
    EXPECT_TRUE(small == big);
    EXPECT_TRUE(small.equals(big));
    big.set(999);
    EXPECT_FALSE(big == small);
    EXPECT_FALSE(small == big);
    big.setAll();
    EXPECT_EQ(big.count(), 1000u);
    big.clearAll();
    EXPECT_TRUE(big.none());
    EXPECT_EQ(big.size(), 1000u);
}

TEST(BitsetValue, RefusesToGrowBeyondItsByteForm) {
    BitsetValue b(10);
    b.set(2);
    EXPECT_THROW_MSG(b.set(BitsetValue::npos), BadParameterException,
                     "Cannot set bit 18446744073709551615: the largest bitset size is 4294967295");
    EXPECT_THROW_MSG(b.set(BitsetValue::MaxSize), BadParameterException,
                     "Cannot set bit 4294967295: the largest bitset size is 4294967295");
    EXPECT_THROW_MSG(b.resize(BitsetValue::MaxSize + 1), BadParameterException,
                     "Bitset size 4294967296 exceeds the largest size 4294967295");
    EXPECT_EQ(b.size(), 10u);
    EXPECT_EQ(b.toString(), WString(u"{2}"));
}

TEST(HashMap, CollidingKeysShareAChainAndStayReachable) {
    struct OneBucket {
        uint32_t operator()(int) const { return 7; }
    };
    HashMap<int, int, OneBucket> map(5);
    for (int i = 0; i < 3; ++i) map.put(i, i * 10);
    EXPECT_EQ(map.bucketLength(2), 3u);  // 7 % 5
    EXPECT_TRUE(map.remove(1));          // from the middle of the chain
    EXPECT_EQ(*map.find(0), 0);
    EXPECT_EQ(*map.find(2), 20);
    EXPECT_EQ(map.find(1), nullptr);
    map.grow(3);
    EXPECT_EQ(map.bucketLength(1), 2u);  // 7 % 3
    int visited = 0;
    map.forEach([&](int k, int& v) { visited += k + v; });
    EXPECT_EQ(visited, 22);
    // A third entry passes the threshold of 2 and takes the removed entry's place.
    EXPECT_TRUE(map.put(5, 50));
    EXPECT_EQ(map.bucketCount(), 7u);
    EXPECT_EQ(map.bucketLength(0), 3u);  // 7 % 7
    EXPECT_EQ(*map.find(5), 50);
    EXPECT_EQ(*map.find(0), 0);
    EXPECT_EQ(*map.find(2), 20);
}
