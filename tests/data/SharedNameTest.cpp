#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/SharedName.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvk::CProperty;
using nvk::CPropertyCollection;
using nvk::NameDictionary;
using nvk::SharedName;
using nvktest::utf8;

namespace {

const CProperty& prop(const iPropertyCollection& c, const char16_t* name) {
    return dynamic_cast<const CProperty&>(c.get(name));
}

}  // namespace

TEST(SharedName, NullEmptyAndCaseStayDistinct) {
    SharedName null;
    SharedName empty = SharedName::cached(u"");
    EXPECT_TRUE(null.isNull());
    EXPECT_TRUE(null.text().isNull());
    EXPECT_TRUE(SharedName::cached(WString()).isNull());
    EXPECT_FALSE(empty.isNull());
    EXPECT_FALSE(empty.text().isNull());
    EXPECT_EQ(null.hash(), 0u);
    EXPECT_FALSE(null.sameBlock(empty));

    SharedName upper = SharedName::cached(u"Name");
    SharedName lower = SharedName::cached(u"name");
    EXPECT_FALSE(upper.sameBlock(lower));
    EXPECT_EQ(utf8(upper.text()), "Name");
    EXPECT_EQ(upper.hash(), hashNoCase(u"nAME"));
    EXPECT_EQ(upper.hash(), lower.hash());
    EXPECT_TRUE(SharedName::cached(u"name").sameBlock(lower));
    EXPECT_FALSE(SharedName(u"Name").sameBlock(upper));  // made outside the table
}

TEST(SharedName, PropertiesShareNamesAndLetGoOfThem) {
    const long before = SharedName::liveBlocks();
    {
        Ptr<CPropertyCollection> a(CPropertyCollection::newInstance());
        Ptr<CPropertyCollection> b(CPropertyCollection::newInstance());
        a->define(u"weight", IntegerValue(1));
        b->define(u"weight", IntegerValue(2));
        b->define(u"long property name", IntegerValue(3));
        EXPECT_TRUE(prop(*a, u"weight").getSharedName().sameBlock(prop(*b, u"weight").getSharedName()));

        // A clone and a stream round trip keep the text; renaming gives the property another block.
        Ptr<CPropertyCollection> copy(static_cast<CPropertyCollection*>(b->clone()));
        EXPECT_TRUE(prop(*copy, u"weight").getSharedName().sameBlock(prop(*b, u"weight").getSharedName()));
        copy->rename(u"weight", u"mass");
        EXPECT_EQ(utf8(copy->get(0).getName()), "mass");
        EXPECT_EQ(utf8(b->get(0).getName()), "weight");
        EXPECT_EQ(copy->find(u"weight"), nullptr);

        // Hundreds of other names push "weight" out of the table; the properties keep theirs.
        Ptr<CPropertyCollection> many(CPropertyCollection::newInstance());
        for (int i = 0; i < 2000; ++i) many->define(WString(u"p" + std::u16string(1, char16_t(u'a' + i % 26)) +
                                                          std::u16string(1, char16_t(0x100 + i))));
        EXPECT_EQ(many->getSize(), 2000);
        EXPECT_EQ(utf8(a->get(0).getName()), "weight");
        EXPECT_NE(a->find(u"WEIGHT"), nullptr);
        EXPECT_GT(SharedName::liveBlocks(), before);
    }
    EXPECT_EQ(SharedName::liveBlocks(), before);
}

TEST(SharedName, BlocksCrossThreads) {
    const long before = SharedName::liveBlocks();
    SharedName kept;
    std::thread t([&] {
        kept = SharedName::cached(u"made elsewhere");
        SharedName::cached(u"left in the table");
    });
    t.join();
    // The other thread's table is gone; only the copy it handed out lives.
    EXPECT_EQ(SharedName::liveBlocks(), before + 1);
    EXPECT_EQ(utf8(kept.text()), "made elsewhere");
    kept = SharedName();
    EXPECT_EQ(SharedName::liveBlocks(), before);
}

TEST(NameDictionary, OneBlockPerTextUntilCleared) {
    const long before = SharedName::liveBlocks();
    SharedName first;
    {
        NameDictionary d;
        first = d.get(u"id");
        EXPECT_TRUE(d.get(WString(u"id")).sameBlock(first));
        EXPECT_FALSE(d.get(u"ID").sameBlock(first));
        EXPECT_TRUE(d.get(WString()).isNull());
        for (int i = 0; i < 500; ++i) d.get(std::u16string_view(std::u16string(1, char16_t(0x400 + i))));
        EXPECT_EQ(d.size(), 502u);
        EXPECT_TRUE(d.get(u"id").sameBlock(first));  // found again after the table grew
        EXPECT_EQ(utf8(d.get(u"\u05f3").text()), utf8(WString(u"\u05f3")));
        d.clear();
        EXPECT_EQ(d.size(), 0u);
        EXPECT_FALSE(d.get(u"id").sameBlock(first));
        EXPECT_EQ(SharedName::liveBlocks(), before + 2);  // "first" and the dictionary's new "id"
    }
    EXPECT_EQ(utf8(first.text()), "id");
    first = SharedName();
    EXPECT_EQ(SharedName::liveBlocks(), before);
}

TEST(SharedName, StockAndGatherKeepCountsExact) {
    const long before = SharedName::liveBlocks();
    std::vector<SharedName> handed;
    {
        // Enough hand-outs to take references ahead several times over.
        SharedName::Stock stock(SharedName(u"stocked"));
        for (int i = 0; i < 200; ++i) handed.push_back(stock.take());
        SharedName::Stock moved(std::move(stock));
        EXPECT_TRUE(stock.take().isNull());
        handed.push_back(moved.take());
        for (const SharedName& n : handed) ASSERT_TRUE(n.sameBlock(handed.front()));
        moved.reset(SharedName(u"next"));
        EXPECT_EQ(SharedName::liveBlocks(), before + 2);
    }
    // The spares went back with the stocks; each hand-out still holds its own reference.
    handed.resize(1);
    EXPECT_EQ(SharedName::liveBlocks(), before + 1);
    EXPECT_EQ(utf8(handed[0].text()), "stocked");
    handed.clear();
    EXPECT_EQ(SharedName::liveBlocks(), before);

    // More blocks than a gather has entries, each held twice.
    std::vector<SharedName> names, copies;
    for (int i = 0; i < 600; ++i) names.emplace_back(WString(u"gathered " + std::u16string(1, char16_t(0x100 + i))));
    copies = names;
    {
        SharedName::Gather outer;
        {
            // Leaves the thread's drops to the outer one; those given to it directly it ends itself.
            SharedName::Gather inner;
            for (size_t i = 0; i < copies.size(); ++i)
                if (i % 3 == 0)
                    inner.drop(copies[i]);
                else
                    copies[i].dropGathered();
        }
        for (SharedName& n : names) n.dropGathered();
        for (const SharedName& n : copies) ASSERT_TRUE(n.isNull());
        // The last drops of the blocks still in the gather wait for its end.
        EXPECT_GT(SharedName::liveBlocks(), before);
    }
    EXPECT_EQ(SharedName::liveBlocks(), before);
}
