#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <type_traits>
#include <utility>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Lock.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/Pool.h"
#include "nvk/platform/String.h"
#include "nvk/platform/Value.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

TEST(String, NullAndEmptyDiffer) {
    WString null, empty = WString::empty();
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty.isEmpty() && null.isEmpty());
    EXPECT_NE(null, empty);
    EXPECT_EQ(WString(static_cast<const wchar*>(nullptr)), null);
    EXPECT_EQ(null.cstrOrNull(), nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(null.c_str()), "");
    null += u'x';
    EXPECT_EQ(null, WString(u"x"));
}

TEST(String, FoldingTouchesOnlyAsciiLetters) {
    EXPECT_TRUE(equalsNoCase(u"ITEM", u"item"));
    EXPECT_FALSE(equalsNoCase(u"\u00C9", u"\u00E9"));  // É and é stay distinct
    EXPECT_FALSE(equalsNoCase(u"[", u"{"));
    EXPECT_TRUE(namesEqual(WString(), WString()));
    EXPECT_FALSE(namesEqual(WString(), WString::empty()));
    EXPECT_TRUE(namesEqual(WString(u"Ab"), WString(u"aB")));
    EXPECT_LT(compareNoCase(u"abc", u"ABD"), 0);
    EXPECT_EQ(compareNoCase(u"Abc", u"aBC"), 0);
    EXPECT_GT(compareNoCase(u"abcd", u"ABC"), 0);
}

TEST(String, HashFoldsCaseAndWrapsAt32Bits) {
    EXPECT_EQ(hashNoCase(u"Ab"), 3105u);
    EXPECT_EQ(hashNoCase(u"aB"), 3105u);
    EXPECT_EQ(hashNoCase(u""), 0u);
    EXPECT_EQ(hashNoCase(u"a long name that overflows"), 4044307176u);
    EXPECT_EQ(hashNoCase(u"A LONG NAME THAT OVERFLOWS"), 4044307176u);
}

TEST(Diagnostics, WarningsAndDebugLinesCanBeCaptured) {
    DiagnosticCapture capture;
    Exception::warn(u"Metadata category \"%ls\" has no properties thus is ignored.", WString(u"Units"));
    static DebugTarget layout("LayoutProtocol");
    setDebugTargets("layoutprotocol, Other");
    debug(layout, u"net %d moving right %d", 1, 20);
    debug("Other", u"plain %hs", "line");
    debug("Silent", u"never %d", 1);
    setDebugTargets("");
    debug(layout, u"after switching off %d", 2);
    EXPECT_EQ(capture.warnings(),
              std::vector<std::string>{"Metadata category \"Units\" has no properties thus is ignored."});
    EXPECT_EQ(capture.debugLines(),
              (std::vector<std::string>{"LayoutProtocol: net 1 moving right 20", "Other: plain line"}));
    setDebugTargets("*");
    EXPECT_TRUE(isDebugTargetActive("Anything"));
    setDebugTargets("");
}

namespace {

struct Widget : CountedObject, PooledObject {
    static const ClassTag Tag;
    static ObjectPool<Widget>& pool() {
        static ObjectPool<Widget> p("Widget");
        return p;
    }
    static Object* create() { return pool().newInstance(); }
    const ClassTag& getClass() const override { return Tag; }
    void deleteInstance() override { pool().deleteInstance(this); }
    void onActivate() override { ++activations; value = 0; }
    void onDeactivate() override {
        ++deactivations;
        if (auto hook = std::exchange(whileDeactivating, nullptr)) hook();
    }
    int value = 0, activations = 0, deactivations = 0;
    static inline void (*whileDeactivating)() = nullptr;  // runs once, from the next onDeactivate
};
const ClassTag Widget::Tag("Test.Widget");
const ClassRegistration widgetRegistration(Widget::Tag.name(), &Widget::create);

struct Plain : CountedObject {};

}  // namespace

TEST(Objects, FactoryCreatesByTag) {
    Ptr<Widget> o = ObjectFactory::createAs<Widget>("Test.Widget");
    ASSERT_TRUE(o);
    EXPECT_STREQ(o->getClassTag(), "Test.Widget");
    EXPECT_NE(o->findAs<CountedObject>(), nullptr);
    EXPECT_EQ(o->findAs<Plain>(), nullptr);
    EXPECT_EQ(ObjectFactory::findCreate("No.Such.Class"), nullptr);
    EXPECT_THROW_MSG(ObjectFactory::create("No.Such.Class"), Exception, "Unknown class tag \"No.Such.Class\"");
    EXPECT_THROW_MSG(o->getAs<Plain>(), BadParameterException,
                     "Object of class Test.Widget does not implement (anonymous namespace)::Plain");
    EXPECT_THROW_MSG(ObjectFactory::createAs<Plain>("Test.Widget"), BadParameterException,
                     "Class Test.Widget does not implement (anonymous namespace)::Plain");
    EXPECT_THROW_MSG(o->getAs<Value>(), BadParameterException, "Object of class Test.Widget does not implement tovan::Value");
    EXPECT_THROW_MSG(o->clone(), Exception, "Unable to clone Test.Widget");
}

// A raw pointer never turns into a holder unseen: it may already carry the
// reference the caller meant to hand over (adopt), or none at all.
static_assert(!std::is_convertible_v<Plain*, Ptr<Plain>>);
static_assert(std::is_constructible_v<Ptr<Plain>, Plain*>);

TEST(Objects, PtrCountsReferences) {
    auto* raw = new Plain;
    {
        Ptr<Plain> a(raw);
        EXPECT_EQ(raw->getRefCount(), 1);
        Ptr<Plain> b = a;
        EXPECT_EQ(raw->getRefCount(), 2);
        Ptr<Plain> c = std::move(b);
        EXPECT_EQ(raw->getRefCount(), 2);
        EXPECT_FALSE(b);
        // reset(raw) takes its own reference and drops the one held before.
        auto* other = new Plain;
        c.reset(other);
        EXPECT_EQ(raw->getRefCount(), 1);
        EXPECT_EQ(other->getRefCount(), 1);
        c.reset(other);  // the same object again: nothing freed on the way
        EXPECT_EQ(other->getRefCount(), 1);
    }
    // The last reference deleted it; a fresh object proves the count restarts.
    Ptr<Plain> d = Ptr<Plain>::adopt([] { auto* p = new Plain; p->addRef(); return p; }());
    EXPECT_EQ(d->getRefCount(), 1);
}

TEST(Pool, RecyclesCountsAndKeepsToItsCapacity) {
    auto& pool = Widget::pool();
    pool.purge();
    int before = pool.getOutstanding();
    Widget* w = pool.allocate();
    EXPECT_EQ(pool.getOutstanding(), before + 1);
    EXPECT_EQ(pool.leakDetector().live(), 1);
    w->value = 9;
    ObjectPool<Widget>::deallocate(w);  // last reference: back on the free list
    EXPECT_EQ(pool.getOutstanding(), before);
    EXPECT_EQ(pool.getFreeCount(), 1u);
    EXPECT_EQ(w->deactivations, 1);
    Widget* again = pool.allocate();
    EXPECT_EQ(again, w);  // reused, and activated afresh
    EXPECT_EQ(again->value, 0);
    EXPECT_EQ(again->activations, 1);
    ObjectPool<Widget>::deallocate(again);

    pool.setCapacity(1);
    Widget* a = pool.allocate();
    Widget* b = pool.allocate();
    ObjectPool<Widget>::deallocate(a);
    ObjectPool<Widget>::deallocate(b);  // pool full: destroyed
    EXPECT_EQ(pool.getFreeCount(), 1u);

    // A batch goes back together: refused whole while one is still held,
    // then kept up to the capacity (the first given), the rest destroyed.
    pool.setCapacity(2);
    Widget* batch[3] = {pool.newInstance(), pool.newInstance(), pool.newInstance()};
    batch[2]->addRef();
    const int deactivated = batch[0]->deactivations + batch[1]->deactivations;
    EXPECT_THROW_MSG(pool.deleteInstances(batch, 3), Exception,
                     "Tried to deleteInstance() an object with nonzero ref count: 1\n");
    EXPECT_EQ(batch[0]->deactivations + batch[1]->deactivations, deactivated);
    EXPECT_EQ(pool.getOutstanding(), before + 3);
    EXPECT_TRUE(batch[2]->releaseKeepingEnd());
    EXPECT_EQ(batch[2]->getRefCount(), 0);
    pool.deleteInstances(batch, 3);
    EXPECT_EQ(pool.getOutstanding(), before);
    EXPECT_EQ(pool.getFreeCount(), 2u);
    EXPECT_EQ(pool.newInstance(), batch[1]);  // the last one kept comes back first
    pool.deleteInstance(batch[1]);
    pool.setCapacity(-1);
    pool.setEnabled(false);
    EXPECT_EQ(pool.getFreeCount(), 0u);
    ObjectPool<Widget>::deallocate(pool.allocate());
    EXPECT_EQ(pool.getFreeCount(), 0u);
    pool.setEnabled(true);
}

TEST(Pool, CarvesObjectsOutOfSlabsAndFreesASlabWithItsLastObject) {
    auto& pool = Widget::pool();
    pool.purge();
    ASSERT_EQ(pool.getSlabCount(), 0u);
    const size_t perSlab = ObjectPool<Widget>::SlabBytes / sizeof(Widget);
    std::vector<Widget*> made;
    for (size_t i = 0; i < perSlab + 2; ++i) made.push_back(pool.allocate());
    EXPECT_EQ(pool.getSlabCount(), 2u);
    // Made one after another, side by side: an object costs its size.
    EXPECT_EQ(reinterpret_cast<char*>(made[1]) - reinterpret_cast<char*>(made[0]), std::ptrdiff_t(sizeof(Widget)));

    for (size_t i = 1; i < made.size(); ++i) ObjectPool<Widget>::deallocate(made[i]);
    pool.purge();
    EXPECT_EQ(pool.getSlabCount(), 1u);  // the first slab still holds made[0]
    ObjectPool<Widget>::deallocate(made[0]);
    EXPECT_EQ(pool.getSlabCount(), 1u);  // on the free list, still an object of its slab
    pool.purge();
    EXPECT_EQ(pool.getSlabCount(), 0u);
    EXPECT_EQ(pool.getOutstanding(), 0);

    // A batch takes the free objects first, activated afresh, then carves the rest after them.
    ObjectPool<Widget>::deallocate(pool.allocate());
    Widget* batch[3];
    pool.newInstances(batch, 3);
    EXPECT_EQ(pool.getOutstanding(), 3);
    EXPECT_EQ(pool.getFreeCount(), 0u);
    EXPECT_EQ(batch[0]->activations, 1);
    EXPECT_EQ(batch[2]->activations, 0);
    EXPECT_EQ(batch[2] - batch[0], 2);
    for (Widget* w : batch) Ptr<Widget>{w};  // one reference taken and dropped: back to the pool
    pool.purge();
    EXPECT_EQ(pool.getSlabCount(), 0u);
    EXPECT_EQ(pool.getOutstanding(), 0);

    // Pooling off: each object is destroyed at once, and its slab with it.
    pool.setEnabled(false);
    ObjectPool<Widget>::deallocate(pool.allocate());
    EXPECT_EQ(pool.getSlabCount(), 0u);
    pool.setEnabled(true);
}

TEST(Pool, HooksRunWithoutThePoolsLock) {
    // Returning a node releases its collection, the collection its storage, the storage its
    // properties: with each pool's lock held through its hook, two threads tearing down trees
    // took the locks in different orders. Another thread must be able to use the pool while
    // an object returned to it is being cleaned out.
    static std::atomic<bool> otherFinished;
    otherFinished = false;
    Widget::whileDeactivating = [] {
        std::thread other([] {
            try {
                ObjectPool<Widget>::deallocate(Widget::pool().allocate());
                otherFinished = true;
            } catch (const Exception&) {
            }
        });
        for (int i = 0; i < 5000 && !otherFinished; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        other.join();
    };
    ObjectPool<Widget>::deallocate(Widget::pool().allocate());
    EXPECT_TRUE(otherFinished);
    EXPECT_EQ(Widget::pool().getOutstanding(), 0);

    // Not kept (pooling off): cleaned out all the same, then deleted.
    auto& pool = Widget::pool();
    pool.setEnabled(false);
    static int deactivatedBeforeDelete;
    deactivatedBeforeDelete = 0;
    Widget::whileDeactivating = [] { ++deactivatedBeforeDelete; };
    ObjectPool<Widget>::deallocate(pool.allocate());
    pool.setEnabled(true);
    EXPECT_EQ(deactivatedBeforeDelete, 1);
    EXPECT_EQ(pool.getOutstanding(), 0);
}

TEST(Pool, RefusesBrokenBookkeeping) {
    auto& pool = Widget::pool();
    Widget* w = pool.allocate();
    EXPECT_THROW_MSG(pool.deleteInstance(w), Exception,
                     "Tried to deleteInstance() an object with nonzero ref count: 1\n");
    ObjectPool<Widget>::deallocate(w);
    // A second return of the same object finds nothing outstanding.
    int outstanding = pool.getOutstanding();
    ASSERT_EQ(outstanding, 0);
    Widget stray;
    pool.leakDetector().AddToLeakDetector();  // balance the detector for the stray return
    EXPECT_THROW_MSG(pool.deleteInstance(&stray), Exception,
                     "Object leak, object being returned to pool when none were outstanding...");
    pool.leakDetector().RemoveFromLeakDetector();
    EXPECT_EQ(pool.getOutstanding(), 0);
}

TEST(Lock, TimesOutWithAnException) {
    CriticalSection cs;
    std::atomic<bool> held{false}, done{false};
    std::thread holder([&] {
        AutoCriticalSection lock(cs);
        held = true;
        while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    while (!held) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_THROW_MSG(AutoCriticalSection(cs, 20), Exception, "Timed out after 20 ms waiting for a lock");
    done = true;
    holder.join();
    AutoCriticalSection again(cs, 20);  // free now
    AutoCriticalSection nested(cs, 0);  // and re-entrant
}

TEST(Lock, ExcludesOtherThreadsAndWaitsForThem) {
    // Threads that take the lock, take it again inside, and update shared
    // state that only exclusion keeps consistent; every wait ends in a turn.
    CriticalSection cs;
    long counter = 0, shadow = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            AutoCriticalSection outer(cs);
            AutoCriticalSection inner(cs, 0);
            long seen = counter;
            shadow = seen + 1;
            counter = shadow;
        }
    };
    std::thread a(work), b(work), c(work);
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(counter, 60000);
    AutoCriticalSection free(cs, 0);
}
