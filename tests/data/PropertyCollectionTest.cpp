#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "nvk/data/CMetaData.h"
#include "nvk/data/CPropertyCollection.h"
#include "tests/data/DataTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using namespace datatest;
using nvk::CPropertyCollection;
using nvktest::utf8;

namespace {

using CollectionPtr = Ptr<CPropertyCollection>;

CollectionPtr collection(std::initializer_list<const char16_t*> names) {
    CollectionPtr c(CPropertyCollection::newInstance());
    int i = 0;
    for (const char16_t* n : names) c->define(n, IntegerValue(i++));
    return c;
}

int intValue(const iProperty& p) { return dynamic_cast<const IntegerValue&>(p.getValue()).get(); }

}  // namespace

TEST(PropertyCollection, NamesAreUniqueFoldingAToZ) {
    CollectionPtr c = collection({u"Name"});
    EXPECT_THROW_MSG(c->define(u"NAME"), Exception, "Property NAME already exists\n");
    EXPECT_THROW_MSG(c->define(u"name", u"text"), Exception, "Property name already exists\n");
    EXPECT_THROW_MSG(c->define(u"nAme", 1.5, 0), Exception, "Property nAme already exists\n");
    EXPECT_EQ(c->getSize(), 1);
    ASSERT_NE(c->find(u"nAME"), nullptr);
    EXPECT_EQ(utf8(c->find(u"nAME")->getName()), "Name");
    EXPECT_EQ(c->find(u"N\u00c1ME"), nullptr);  // only A-Z fold

    EXPECT_THROW_MSG(c->get(u"missing"), Exception, "Property 'missing' not found");
    EXPECT_THROW_MSG(c->getIndex(u"missing"), Exception, "Property missing not found");
    EXPECT_THROW_MSG(c->get(1), InvalidIndexException, "Index 1 is out of range (last valid index 0)");
    EXPECT_EQ(c->findIndex(u"missing"), -1);
    EXPECT_FALSE(c->isDefined(u"missing"));

    iProperty& flagged = c->define(u"f", 0x1FF06);  // only the low 8 bits are kept
    EXPECT_EQ(flagged.getFlags(), 0x06u);
    EXPECT_EQ(utf8(c->define(u"d", 2.5, 0).getValue().toString()), "2.5");
    EXPECT_TRUE(c->define(u"none").getValue().isNull());
}

TEST(PropertyCollection, PropertiesGuardTheirNamesAndReadOnlyValues) {
    CollectionPtr c = collection({u"a", u"b"});
    iProperty& a = c->get(u"a");
    EXPECT_THROW_MSG(a.SetName(u"B"), Exception,
                     "Cannot rename property 'a' to 'B'.  That name already exists in the parent property collection");
    a.SetName(u"A");
    EXPECT_EQ(propertyNames(*c), "A,b");

    a.setFlags(MetaDataReadOnly);
    EXPECT_THROW_MSG(a.getEditableValue(), PropertyAccessException, "Read-only property A cannot be updated");
    a.setValue(StringValue(u"replaced"));  // replacing is allowed; in-place edits are not
    EXPECT_EQ(utf8(a.getValue().toString()), "replaced");
    iProperty& none = c->define(u"none");
    EXPECT_EQ(none.getEditableValue().getTypeCode(), VT_Null);
    EXPECT_EQ(&none.getEditableValue(), &none.getValue());
    EXPECT_EQ(none.findCollection(), c.get());

    // The collection link and the metadata share a word: neither may lose the other.
    a.getMetaData().define(u"unit", StringValue(u"kg"));
    EXPECT_EQ(a.findCollection(), c.get());
    EXPECT_THROW_MSG(a.SetName(u"b"), Exception,
                     "Cannot rename property 'A' to 'b'.  That name already exists in the parent property collection");
    Ptr<iProperty> kept(&a);
    c->remove(u"A");
    EXPECT_EQ(kept->findCollection(), nullptr);
    EXPECT_EQ(utf8(kept->findMetaData()->get(u"unit").getValue().toString()), "kg");
    dynamic_cast<nvk::CProperty&>(*kept).clearMetaData();
    EXPECT_EQ(kept->findMetaData(), nullptr);
    EXPECT_EQ(none.findCollection(), c.get());
}

TEST(PropertyCollection, RemovalLeavesHolesThatPositionsSkip) {
    CollectionPtr c = collection({u"a", u"b", u"c", u"d", u"e"});
    auto& data = c->data();
    EXPECT_TRUE(c->remove(u"b"));
    EXPECT_FALSE(c->remove(u"b"));
    EXPECT_TRUE(c->remove(u"D"));
    EXPECT_EQ(data.GetHoleCount(), 2u);
    EXPECT_EQ(data.GetInternalIndex(u"e"), 4);  // slots keep their places
    EXPECT_EQ(c->getSize(), 3);
    EXPECT_EQ(c->getIndex(u"e"), 2);           // public index among the rest
    EXPECT_EQ(data.GetHoleCount(), 0u);
    EXPECT_EQ(propertyNames(*c), "a,c,e");

    c->remove(0);
    EXPECT_EQ(propertyNames(*c), "c,e");
    EXPECT_THROW_MSG(c->remove(2), InvalidIndexException, "Index 2 is out of range (last valid index 1)");
    EXPECT_THROW_MSG(data.RemovePropertyUsingInternalIndex(5), InvalidIndexException,
                     "Index 5 is out of range (last valid index 1)");
    c->removeAll();
    EXPECT_EQ(c->getSize(), 0);
}

TEST(PropertyCollection, IndexIsBuiltOnTheFirstLookupFromTenSlots) {
    CollectionPtr c = collection({u"p0", u"p1", u"p2", u"p3", u"p4", u"p5", u"p6", u"p7", u"p8"});
    auto& data = c->data();
    EXPECT_EQ(c->getIndex(u"P8"), 8);
    EXPECT_FALSE(data.IsIndexBuilt());
    // define looks the name up first: 9 slots, still a scan.
    c->define(u"p9", IntegerValue(9));
    EXPECT_FALSE(data.IsIndexBuilt());
    EXPECT_EQ(c->getIndex(u"P9"), 9);
    EXPECT_TRUE(data.IsIndexBuilt());
}

// The index must agree with the array through every kind of change; a plain
// list of names is the model it is checked against.
TEST(PropertyCollection, IndexStaysConsistentThroughRandomChanges) {
    std::mt19937 rng(42);
    CollectionPtr c(CPropertyCollection::newInstance());
    std::vector<std::u16string> model;
    auto name = [](int k) { return u"n" + std::u16string(1, char16_t(u'a' + k % 26)) + char16_t(u'0' + k / 26); };
    for (int step = 0; step < 4000; ++step) {
        const int op = int(rng() % 6);
        const int k = int(rng() % 60);
        const std::u16string n = name(k);
        auto it = std::find_if(model.begin(), model.end(), [&](const std::u16string& m) { return equalsNoCase(m, n); });
        if (op <= 1) {
            if (it == model.end()) {
                // Every way of adding a property must keep the index; a copy
                // goes into the property's room or, for a text, a block of its own.
                if (op == 0)
                    c->define(n.c_str());
                else if (k % 3 == 0)
                    c->data().AppendNewProperty(WString(n), Ptr<Value>(new IntegerValue(k)));
                else if (k % 3 == 1)
                    c->data().AppendNewPropertyCopy(WString(n), IntegerValue(k));
                else
                    c->data().AppendNewPropertyCopy(WString(n), StringValue(WString(n)));
                if (op == 1) {
                    EXPECT_EQ(c->get(WString(n)).getValue().toString(),
                              k % 3 == 2 ? WString(n) : WString(tovan::toWide(std::to_string(k))));
                }
                model.push_back(n);
            }
        } else if (op == 2) {
            EXPECT_EQ(c->remove(WString(n)), it != model.end());
            if (it != model.end()) model.erase(it);
        } else if (op == 3 && !model.empty()) {
            const int from = int(rng() % model.size()), to = int(rng() % model.size());
            c->reorderProperty(from, to);
            std::u16string moved = model[size_t(from)];
            model.erase(model.begin() + from);
            model.insert(model.begin() + to, moved);
        } else if (op == 4 && it != model.end()) {
            // Half the renames change case only (always allowed), half pick another name.
            std::u16string to = name(rng() % 2 ? k : (k + 7) % 60);
            for (auto& ch : to) ch = (ch >= u'a' && ch <= u'z' && rng() % 2) ? char16_t(ch - 32) : ch;
            auto clash = std::find_if(model.begin(), model.end(),
                                      [&](const std::u16string& m) { return equalsNoCase(m, to); });
            if (clash != model.end() && clash != it) {
                EXPECT_THROW_MSG(c->get(WString(*it)).SetName(to.c_str()), Exception,
                                 "Cannot rename property '" + tovan::utf16ToUtf8(*it) + "' to '" + tovan::utf16ToUtf8(to) +
                                     "'.  That name already exists in the parent property collection");
            } else {
                c->get(WString(*it)).SetName(to.c_str());
                *it = to;
            }
        } else if (op == 5) {
            const int expected = it == model.end() ? -1 : int(it - model.begin());
            ASSERT_EQ(c->findIndex(WString(n)), expected) << "step " << step;
        }
    }
    ASSERT_EQ(c->getSize(), int(model.size()));
    for (size_t i = 0; i < model.size(); ++i) {
        EXPECT_EQ(c->findIndex(WString(model[i])), int(i));
        EXPECT_EQ(c->get(int(i)).getName(), WString(model[i]));
    }
    EXPECT_TRUE(c->data().IsIndexBuilt());
}

TEST(PropertyCollection, RenameKeepsPlaceAndRefusesClashes) {
    CollectionPtr c = collection({u"a", u"b", u"c"});
    c->rename(u"a", u"A");
    EXPECT_EQ(propertyNames(*c), "A,b,c");
    c->rename(u"b", u" \t\u00a0renamed\u3000 ");
    EXPECT_EQ(propertyNames(*c), "A,renamed,c");
    c->rename(WString(), u"x");
    c->rename(u"missing", u"missing");  // identical names: nothing to do
    EXPECT_THROW_MSG(c->rename(u"missing", u"x"), Exception, "Source property missing not found to rename");
    EXPECT_THROW_MSG(c->rename(u"A", u"C"), Exception,
                     "Destination property C already exists, cannot rename source property A");
    EXPECT_THROW_MSG(c->rename(u"A", u"  "), Exception, "Source property A cannot be renamed to empty text");
    EXPECT_EQ(propertyNames(*c), "A,renamed,c");
    EXPECT_EQ(intValue(c->get(u"renamed")), 1);
}

TEST(PropertyCollection, ReorderAndKeep) {
    CollectionPtr c = collection({u"a", u"b", u"c"});
    c->keep({u"b", u"a"}, false);
    EXPECT_EQ(propertyNames(*c), "b,a");

    c = collection({u"a", u"b", u"c"});
    c->reorder({u"x"}, true);
    EXPECT_EQ(propertyNames(*c), "x,b,c,a");  // created at the end, swapped to the front
    EXPECT_EQ(c->get(u"x").getValue().getTypeCode(), VT_Null);

    c = collection({u"a", u"b", u"c", u"d"});
    c->reorder({u"c", u"missing", u"C", u"a"}, false);  // absent and repeated names are skipped
    EXPECT_EQ(propertyNames(*c), "c,a,b,d");
    c->keep({u"d", u"y"}, true);
    EXPECT_EQ(propertyNames(*c), "d,y");
    c->keep({}, false);
    EXPECT_EQ(propertyNames(*c), "d,y");

    // Without an owner node a hierarchical name resolves nowhere.
    EXPECT_THROW_MSG(c->reorder({u"d", u"/p/y"}, false), Exception, "Cannot find hierarchical location \"/p\"");
    EXPECT_THROW_MSG(c->define(u"/p/y", DefineHierarchical), Exception, "Failed to find hierarchical location \"/p\"\n");
    EXPECT_EQ(propertyNames(*c), "d,y");
    EXPECT_EQ(c->find(u"/p/y"), nullptr);
}

TEST(PropertyCollection, AssignAttachAndAppend) {
    CollectionPtr src = collection({u"a", u"b"});
    src->get(u"a").setFlags(MetaDataReadOnly);
    src->get(u"b").getMetaData().define(u"unit", StringValue(u"kg"));
    CollectionPtr dst = collection({u"old"});

    EXPECT_THROW_MSG(dst->assignFrom(nullptr, true), Exception, "Source collection is NULL");
    EXPECT_THROW_MSG(dst->attachFrom(nullptr, true), Exception, "Source collection is NULL");
    EXPECT_THROW_MSG(dst->appendFrom(nullptr), Exception, "Source collection is NULL");

    dst->assignFrom(src.get(), false);
    EXPECT_EQ(propertyNames(*dst), "a,b");
    EXPECT_EQ(dst->get(u"a").getFlags(), MetaDataReadOnly);
    EXPECT_EQ(&dst->get(u"a").getValue(), &src->get(u"a").getValue());  // shared
    ASSERT_NE(dst->get(u"b").findMetaData(), nullptr);
    EXPECT_EQ(utf8(dst->get(u"b").findMetaData()->get(u"unit").getValue().toString()), "kg");
    dst->assignFrom(src.get(), true);
    EXPECT_NE(&dst->get(u"a").getValue(), &src->get(u"a").getValue());  // copied

    CollectionPtr over = collection({u"z", u"B"});
    over->attachFrom(src.get(), false);
    EXPECT_EQ(propertyNames(*over), "z,B,a");
    EXPECT_EQ(&over->get(u"b").getValue(), &src->get(u"b").getValue());

    CollectionPtr more = collection({u"q", u"A"});
    EXPECT_THROW_MSG(more->appendFrom(src.get()), Exception, "Property a already exists\n");
    EXPECT_EQ(propertyNames(*more), "q,A");
    more->remove(u"A");
    more->appendFrom(src.get());
    EXPECT_EQ(propertyNames(*more), "q,a,b");
    EXPECT_NE(&more->get(u"a").getValue(), &src->get(u"a").getValue());

    // Replacing content across the slots kept inside the collection and an array of their own.
    for (int from : {0, 3, 7, 12}) {
        for (int to : {3, 7, 12}) {
            CollectionPtr a(CPropertyCollection::newInstance()), b(CPropertyCollection::newInstance());
            for (int i = 0; i < from; ++i) a->define(WString(u"s" + std::u16string(1, char16_t(u'a' + i))));
            for (int i = 0; i < to; ++i) b->define(WString(u"t" + std::u16string(1, char16_t(u'a' + i))));
            b->remove(u"tb");
            b->assignFrom(a.get(), true);
            ASSERT_EQ(b->getSize(), from);
            for (int i = 0; i < from; ++i) {
                iProperty* p = b->find(WString(u"S" + std::u16string(1, char16_t(u'A' + i))));
                ASSERT_NE(p, nullptr) << from << " into " << to;
                EXPECT_EQ(p->findCollection(), b.get());
                EXPECT_EQ(b->getIndex(p->getName()), i);
            }
            EXPECT_EQ(b->find(u"ta"), nullptr);
            EXPECT_EQ(a->getSize(), from);
        }
    }
}

TEST(MetaData, FlagsAndPropertiesCopyAndClear) {
    Ptr<nvk::CMetaData> m(nvk::CMetaData::newInstance());
    EXPECT_FALSE(m->hasProperties());
    m->setFlags(0x20000042);
    m->getProperties().define(u"unit", StringValue(u"m"));
    Ptr<nvk::CMetaData> copy(static_cast<nvk::CMetaData*>(m->clone()));
    EXPECT_EQ(copy->getFlags(), 0x20000042u);
    EXPECT_EQ(utf8(copy->getProperties().get(u"unit").getValue().toString()), "m");

    Ptr<nvk::CMetaData> extra(nvk::CMetaData::newInstance());
    extra->setFlags(0x1);
    extra->getProperties().define(u"UNIT", StringValue(u"cm"));
    extra->getProperties().define(u"scale", DoubleValue(2));
    nvk::CMetaDataImpl::AddProperties(*copy, *extra);
    EXPECT_EQ(copy->getFlags(), 0x20000043u);
    EXPECT_EQ(propertyNames(copy->getProperties()), "unit,scale");
    EXPECT_EQ(utf8(copy->getProperties().get(u"unit").getValue().toString()), "cm");

    nvk::CMetaDataImpl::AssignMetaDataFrom(*copy, nullptr);
    EXPECT_EQ(copy->getFlags(), 0u);
    EXPECT_FALSE(copy->hasProperties());
}

namespace {

/// A value that refuses to be copied, to make a collection copy fail midway.
class UncopyableValue : public Value {
public:
    int getTypeCode() const override { return 999; }
    UncopyableValue* clone() const override { throw Exception("UncopyableValue", "clone", u"no copies"); }
    bool equals(const Value& other) const override { return &other == this; }
    WString toString() const override { return u"uncopyable"; }
    void assign(const Value&) override {}
    void serialize(iByteOutputStream&) const override {}
    void deserialize(iByteInputStream&) override {}
};

}  // namespace

TEST(PropertyCollection, AFailedCopyLeavesTheTargetAlone) {
    CollectionPtr src = collection({u"a", u"b"});
    Ptr<Value> odd(new UncopyableValue);
    dynamic_cast<nvk::CProperty&>(src->get(u"b")).shareValue(odd.get());

    EXPECT_THROW_MSG(src->data().clone(), Exception, "Unable to clone CPropertyCollectionData");
    CollectionPtr dst = collection({u"keep"});
    EXPECT_THROW_MSG(dst->assignFrom(src.get(), true), Exception, "no copies");
    EXPECT_THROW_MSG(dst->attachFrom(src.get(), true), Exception, "no copies");
    EXPECT_THROW_MSG(dst->appendFrom(src.get()), Exception, "no copies");
    EXPECT_EQ(propertyNames(*dst), "keep");
    CollectionPtr empty(CPropertyCollection::newInstance());  // filled in place, so emptied again
    EXPECT_THROW_MSG(empty->assignFrom(src.get(), true), Exception, "no copies");
    EXPECT_EQ(empty->getSize(), 0);
    EXPECT_EQ(empty->find(u"a"), nullptr);
    dst->assignFrom(src.get(), false);  // sharing needs no copy
    EXPECT_EQ(&dst->get(u"b").getValue(), odd.get());
}

// Small scalars live in their property's own room; these check that the room
// behaves as a separate counted value would when others hold it.
TEST(PropertyValueRoom, ASharedValueOutlivesItsPropertyAndThenReturnsIt) {
    auto& pool = nvk::CProperty::pool();
    const int before = pool.getOutstanding();
    CollectionPtr src = collection({u"a", u"b"});
    CollectionPtr dst(CPropertyCollection::newInstance());
    dst->assignFrom(src.get(), false);
    const Value* shared = &src->get(u"a").getValue();
    ASSERT_EQ(&dst->get(u"a").getValue(), shared);

    // The holder goes first: its memory stays out of the pool while the
    // value lives, so the value stays readable and editable through dst.
    src->removeAll();
    EXPECT_EQ(pool.getOutstanding(), before + 4);  // dst's two and src's two that wait
    EXPECT_EQ(intValue(dst->get(u"a")), 0);
    dynamic_cast<IntegerValue&>(dst->get(u"a").getEditableValue()).set(41);
    EXPECT_EQ(intValue(dst->get(u"a")), 41);

    // Re-entering a property and building more reuses nothing of the waiting one.
    CollectionPtr busy = collection({u"x", u"y", u"z"});
    EXPECT_EQ(intValue(busy->get(u"z")), 2);
    EXPECT_EQ(intValue(dst->get(u"a")), 41);

    dst->removeAll();  // the values' last releases hand the waiting properties back
    EXPECT_EQ(pool.getOutstanding(), before + 3);
    busy = nullptr;
    EXPECT_EQ(pool.getOutstanding(), before);
}

TEST(PropertyValueRoom, ReplacingAValueOthersHoldLeavesTheirsAlone) {
    CollectionPtr c = collection({u"n"});
    iProperty& p = c->get(u"n");
    Ptr<Value> held(const_cast<Value*>(&p.getValue()));
    p.setValue(IntegerValue(6));  // the room is taken: this one goes elsewhere
    p.setValue(DoubleValue(2.5));
    EXPECT_EQ(held->toString(), u"0");
    EXPECT_EQ(p.getValue().toString(), u"2.5");
    held = nullptr;  // frees the room while the property lives
    p.setValue(BooleanValue(true));
    EXPECT_EQ(p.getValue().toString(), u"true");

    // The node's value is assigned in place, wherever it lives.
    NodePtr n = node(u"n");
    n->setValue(IntegerValue(1));
    const Value* first = &n->getValue();
    n->setValue(IntegerValue(2));
    EXPECT_EQ(&n->getValue(), first);
    EXPECT_EQ(n->getValue().toString(), u"2");

    // A copy of a value in a room is an ordinary value of its own.
    Ptr<Value> copy(p.getValue().clone());
    EXPECT_TRUE(copy->equals(p.getValue()));
    EXPECT_NE(copy.get(), &p.getValue());
}

TEST(PropertyValueRoom, LastReleasesOnOtherThreads) {
    auto& pool = nvk::CProperty::pool();
    const int before = pool.getOutstanding();
    for (int round = 0; round < 200; ++round) {
        CollectionPtr src = collection({u"a", u"b", u"c"});
        std::vector<Ptr<Value>> held;
        for (int i = 0; i < 3; ++i) held.emplace_back(const_cast<Value*>(&src->get(i).getValue()));
        // Whichever side lets go last returns the property to the pool.
        std::thread other([&] { held.clear(); });
        src = nullptr;
        other.join();
        ASSERT_EQ(pool.getOutstanding(), before);
    }
}
