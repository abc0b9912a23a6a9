#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ReferenceSet.h"
#include "tests/data/DataTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using namespace datatest;
using nvk::CBaseNode;
using nvktest::utf8;

namespace {

/// root { a { b }, c }; every node gets a property "id" naming it.
struct SmallTree {
    NodePtr root = node(u"root");
    CBaseNode* a = child(*root, u"a");
    CBaseNode* b = child(*a, u"b");
    CBaseNode* c = child(*root, u"c");
    SmallTree() {
        for (CBaseNode* n : {root.get(), a, b, c}) n->getProperties().define(u"id", StringValue(n->getName()));
    }
};

}  // namespace

TEST(HierarchicalNames, DefineAndFindThroughPaths) {
    SmallTree t;
    iPropertyCollection& fromB = t.b->getProperties();

    iProperty& x = fromB.define(u"/a/x", IntegerValue(7), DefineHierarchical | MetaDataReadOnly);
    EXPECT_EQ(propertyNames(t.a->getProperties()), "id,x");
    EXPECT_EQ(x.getFlags(), MetaDataReadOnly);
    EXPECT_EQ(fromB.find(u"/a/x"), &x);
    EXPECT_EQ(fromB.find(u"//x"), &x);  // "//" alone: the first node anywhere
    EXPECT_EQ(utf8(fromB.get(u"/id").getValue().toString()), "root");  // an empty path is the root
    EXPECT_EQ(fromB.find(u"/c/x"), nullptr);
    EXPECT_EQ(fromB.find(u"/nowhere/x"), nullptr);
    EXPECT_THROW_MSG(fromB.get(u"/c/x"), Exception, "Property '/c/x' not found");
    // A path that does not parse finds no node: a lookup gives null, the rest say so.
    EXPECT_EQ(fromB.find(u"/a[/x"), nullptr);
    EXPECT_EQ(fromB.findIndex(u"/a[/x"), -1);
    EXPECT_THROW_FROM(fromB.get(u"/a[/x"), Exception, "CPropertyCollection::get(string): Property '/a[/x' not found");
    EXPECT_THROW_FROM(fromB.define(u"/a[/y", DefineHierarchical), Exception,
                      "CPropertyCollection::define(string): Failed to find hierarchical location \"/a[\"\n");

    EXPECT_THROW_MSG(fromB.define(u"/nowhere/y", DefineHierarchical), Exception,
                     "Failed to find hierarchical location \"/nowhere\"\n");
    EXPECT_EQ(propertyNames(t.a->getProperties()), "id,x");
    EXPECT_THROW_MSG(fromB.define(u"/a/x", DefineHierarchical), Exception, "Property x already exists\n");
    // Without the flag the name is taken literally, and a literal name wins lookups.
    iProperty& literal = fromB.define(u"/a/x", 0);
    EXPECT_EQ(fromB.find(u"/a/x"), &literal);
    EXPECT_EQ(propertyNames(fromB), "id,/a/x");
}

TEST(HierarchicalNames, RenameMovesBetweenCollections) {
    SmallTree t;
    iPropertyCollection& fromB = t.b->getProperties();
    t.a->getProperties().define(u"p", IntegerValue(1));

    fromB.rename(u"/a/p", u"moved");  // found through the path, renamed into b
    EXPECT_EQ(propertyNames(t.a->getProperties()), "id");
    EXPECT_EQ(propertyNames(fromB), "id,moved");
    fromB.rename(u"moved", u"/c/there");
    EXPECT_EQ(propertyNames(fromB), "id");
    EXPECT_EQ(propertyNames(t.c->getProperties()), "id,there");
    EXPECT_EQ(utf8(t.c->getProperties().get(u"there").getValue().toString()), "1");

    EXPECT_THROW_MSG(fromB.rename(u"/c/there", u"/c/ID"), Exception,
                     "Destination property /c/ID already exists, cannot rename source property /c/there");
    EXPECT_THROW_MSG(fromB.rename(u"/nowhere/p", u"q"), Exception, "Source property /nowhere/p not found to rename");
    fromB.rename(u"/c/there", u"/c/THERE");  // same collection: renamed in place
    EXPECT_EQ(propertyNames(t.c->getProperties()), "id,THERE");
}

TEST(HierarchicalNames, ReorderAndKeepNeedOneCollection) {
    SmallTree t;
    iPropertyCollection& props = t.a->getProperties();
    props.define(u"p1");
    props.define(u"p2");
    iPropertyCollection& fromB = t.b->getProperties();

    fromB.reorder({u"/a/p2", u"/a/p1"}, false);
    EXPECT_EQ(propertyNames(props), "p2,p1,id");
    fromB.keep({u"/a/p1", u"/a/new"}, true);
    EXPECT_EQ(propertyNames(props), "p1,new");

    EXPECT_THROW_MSG(fromB.reorder({u"/a/p1", u"id"}, false), Exception,
                     "All properties for reorder must be on the same property list");
    EXPECT_THROW_MSG(fromB.keep({u"id", u"/a/p1"}, false), Exception,
                     "All properties for keep must be on the same property list");
    EXPECT_THROW_MSG(fromB.keep({u"/zz/p1"}, false), Exception, "Cannot find hierarchical location \"/zz\"");
    EXPECT_EQ(propertyNames(props), "p1,new");
    EXPECT_EQ(propertyNames(fromB), "id");
}

// Pools and the per-node evaluator from several threads at once: each
// thread builds, queries, clones and drops its own trees, and all of them
// also query one shared tree.
TEST(DataThreads, FourThreadsBuildQueryAndRelease) {
    SmallTree shared;
    const int outstanding = CBaseNode::pool().getOutstanding();
    std::atomic<int> failures{0};
    auto work = [&](int seed) {
        for (int round = 0; round < 400; ++round) {
            NodePtr root = node(u"root");
            for (int i = 0; i < 10; ++i) {
                CBaseNode* c = child(*root, u"item");
                c->getProperties().define(u"n", IntegerValue(seed * 1000 + i));
            }
            int count = 0;
            if (!root->query(u"count(item)", QueryDefault, count) || count != 10) ++failures;
            iPropertyCollection& last = root->getChildAt(9)->getProperties();
            if (!last.find(u"/item/n")) ++failures;
            Ptr<iNode> copy = root->cloneNode(true);
            if (copy->getNumberOfChildren() != 10) ++failures;
            NodeReferenceSet hit;
            if (!shared.c->query(u"/a/b", QueryDefault, hit) || hit.first() != shared.b) ++failures;
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(work, t);
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(CBaseNode::pool().getOutstanding(), outstanding);
}
