#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>

#include "tests/data/DataTestSupport.h"
#include "nvk/data/CMetaData.h"
#include "nvk/data/CObjectTransportNode.h"
#include "nvk/data/NodeStream.h"
#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/HashTableValue.h"
#include "nvk/platform/NDimArrayValue.h"
#include "nvk/platform/DateTimeValue.h"
#include "nvk/platform/FileStream.h"
#include "tests/support/TestSupport.h"

using datatest::NodePtr;
using nvk::CBaseNode;
using nvk::CObjectTransportNode;
using nvk::CProperty;
using nvk::CPropertyCollection;
using tovan::Exception;
using tovan::iNode;
using tovan::MemoryInputStream;
using tovan::MemoryOutputStream;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;
using Bytes = std::vector<uint8_t>;

namespace {

const Bytes kMetaDataTag(std::begin("Norvatek.data.MetaData"), std::end("Norvatek.data.MetaData") - 1);

Bytes bytesOf(const tovan::Object& o, int version) {
    MemoryOutputStream out(version);
    o.serialize(out);
    return out.bytes();
}

template <class T>
Ptr<T> readAs(const Bytes& b, int version) {
    Ptr<T> n(T::newInstance());
    MemoryInputStream in(b, version);
    n->deserialize(in);
    EXPECT_EQ(in.remaining(), 0u);
    return n;
}

// What was left unread.
size_t readInto(tovan::Object& o, const Bytes& b, int version = 2) {
    MemoryInputStream in(b, version);
    o.deserialize(in);
    return in.remaining();
}

void writeFile(const WString& path, const std::string& bytes) {
    tovan::FileOutputStream f(path);
    f.write(bytes.data(), bytes.size());
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

// ---- structural comparison --------------------------------------------------------

void expectSameCollection(const tovan::iPropertyCollection* a, const tovan::iPropertyCollection* b,
                          const std::string& where) {
    int na = a ? a->getSize() : 0, nb = b ? b->getSize() : 0;
    ASSERT_EQ(na, nb) << where;
    for (int i = 0; i < na; ++i) {
        const tovan::iProperty& pa = a->get(i);
        const tovan::iProperty& pb = b->get(i);
        std::string at = where + "/" + tovan::toNarrow(pa.getName());
        EXPECT_EQ(pa.getName(), pb.getName()) << at;
        EXPECT_EQ(pa.getName().isNull(), pb.getName().isNull()) << at;
        EXPECT_TRUE(pa.getValue().equals(pb.getValue()) ||
                    (pa.getValue().isNull() && pb.getValue().getTypeCode() == tovan::VT_Null))
            << at << " " << tovan::toNarrow(pa.getValue().toString()) << " vs "
            << tovan::toNarrow(pb.getValue().toString());
        EXPECT_EQ(pa.getFlags() & ~tovan::MetaDataNotSerialized, pb.getFlags()) << at;
        expectSameCollection(pa.findMetaData(), pb.findMetaData(), at + "#meta");
    }
}

void expectSameTree(const iNode& a, const iNode& b, const std::string& where = "") {
    ASSERT_STREQ(a.getClassTag(), b.getClassTag()) << where;
    EXPECT_EQ(a.getName(), b.getName()) << where;
    EXPECT_EQ(a.getName().isNull(), b.getName().isNull()) << where;
    EXPECT_EQ(a.getNamePrefix(), b.getNamePrefix()) << where;
    expectSameCollection(a.getProperties(), b.getProperties(), where);
    const tovan::iMetaData* ma = a.findInfo();
    const tovan::iMetaData* mb = b.findInfo();
    if (ma && ma->getFlags() == 0 && !ma->hasProperties()) ma = nullptr;  // written as "none"
    ASSERT_EQ(ma != nullptr, mb != nullptr) << where;
    if (ma) {
        EXPECT_EQ(ma->getFlags() & ~tovan::MetaDataHasEntries, mb->getFlags()) << where;
        expectSameCollection(ma->getProperties(), mb->getProperties(), where + "#info");
    }
    if (auto* oa = dynamic_cast<const CObjectTransportNode*>(&a)) {
        auto* ob = dynamic_cast<const CObjectTransportNode*>(&b);
        ASSERT_EQ(oa->GetObject() != nullptr, ob->GetObject() != nullptr) << where;
        if (auto* va = dynamic_cast<const Value*>(oa->GetObject()))
            EXPECT_TRUE(va->equals(*dynamic_cast<const Value*>(ob->GetObject()))) << where;
        else if (auto* na = dynamic_cast<const iNode*>(oa->GetObject()))
            expectSameTree(*na, *dynamic_cast<const iNode*>(ob->GetObject()), where + "@object");
    }
    ASSERT_EQ(a.getNumberOfChildren(), b.getNumberOfChildren()) << where;
    for (int i = 0; i < a.getNumberOfChildren(); ++i) {
        EXPECT_EQ(b.getChildAt(i)->findParent(), &b);
        expectSameTree(*a.getChildAt(i), *b.getChildAt(i), where + "/" + std::to_string(i));
    }
}

// ---- random trees ---------------------------------------------------------------------

class TreeMaker {
public:
    explicit TreeMaker(uint32_t seed) : rng_(seed) {}

    Ptr<iNode> tree(int depth) {
        Ptr<iNode> n;
        if (below(5) == 0) {
            Ptr<CObjectTransportNode> o(CObjectTransportNode::newInstance());
            const uint32_t carries = below(3);  // a value, a node (not at the leaves) or nothing
            if (carries == 0) o->SetObject(Ptr<Value>(value(0)).get());
            if (carries == 1 && depth > 0) o->SetObject(tree(0).get());
            n = o;
        } else {
            n = Ptr<iNode>(CBaseNode::newInstance());
        }
        setName(*n);
        int props = int(below(14));  // the name index is built from 10 properties on
        for (int i = 0; i < props; ++i) {
            WString pname = name(true);
            pname.append(u'_').append(char16_t(u'a' + i % 26)).append(char16_t(u'0' + i / 26));
            tovan::iProperty& p = n->getProperties().define(pname, *Ptr<Value>(value(0)));
            p.setFlags(uint32_t(below(4) == 0 ? rng_() & 0x1FFFFFFF : 0));
            if (below(5) == 0) p.getMetaData().define(u"unit", tovan::StringValue(u"cm"));
        }
        if (props > 3 && below(2) == 0) n->getProperties().remove(int(below(uint32_t(props))));  // a hole
        if (below(4) == 0) {
            tovan::iMetaData& m = n->getInfo();
            m.setFlags(uint32_t(rng_() & 0x1FFFFFFF) | 1);
            int entries = int(below(4));
            for (int i = 0; i < entries; ++i)
                m.getProperties().define(WString(u"m" + std::u16string(1, char16_t(u'0' + i))), *Ptr<Value>(value(0)));
        }
        if (depth > 0) {
            int kids = int(below(4));
            for (int i = 0; i < kids; ++i) n->appendChild(tree(depth - 1).get());
        }
        return n;
    }

private:
    uint32_t below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng_); }

    WString name(bool nonNull) {
        switch (below(nonNull ? 3 : 6)) {
            case 0: return WString(u"plain");
            case 1: return WString(u"\u00E9t\u00E9\U0001F600\xDC01");  // lone low surrogate too
            case 2: return WString(u"ns:local");
            case 3: return WString::empty();
            case 4: return WString(u"a_name_longer_than_fifteen_units");
            default: return WString();
        }
    }

    void setName(iNode& n) {
        n.setName(name(false));
        if (below(2) == 0) (void)n.getNamePrefix();  // split the parts off before writing
    }

    Value* value(int depth) {
        switch (below(depth < 2 ? 17 : 11)) {
            case 0: return new tovan::NullValue();
            case 1: return new tovan::StringValue(name(false));
            case 2: return new tovan::IntegerValue(int32_t(rng_()));
            case 3: return new tovan::DoubleValue(std::uniform_real_distribution<double>(-1e9, 1e9)(rng_));
            case 4: return new tovan::BooleanValue(below(2) == 1);
            case 5: return new tovan::DateTimeValue(int(1 + below(9999)), int(1 + below(12)), int(1 + below(28)),
                                                    int(below(24)), int(below(60)), int(below(60)), int(below(1000)),
                                                    below(2) ? WString(u"UTC") : WString(u"+02:00"));
            case 6: return new tovan::ByteValue(uint8_t(rng_()));
            case 7: return new tovan::MissingValue();
            case 8: return new tovan::FlexValue(WString(u"007"));
            case 9: {
                auto* b = new tovan::BitsetValue(size_t(below(200)));
                for (int i = 0; i < 20; ++i) b->set(below(200));
                return b;
            }
            case 10: return new tovan::StringValue(WString::empty());
            case 11: return new tovan::IntegerArrayValue{int32_t(rng_()), -1, 0};
            case 12: return new tovan::StringArrayValue{name(false), name(false)};
            case 13: return new tovan::DoubleArrayValue{0.5, -1e300};
            case 14: {
                auto* h = new tovan::HashTableValue();
                h->putCopy(u"k", *Ptr<Value>(value(depth + 1)));
                h->putCopy(u"\u00E9", tovan::IntegerValue(3));
                return h;
            }
            case 15: {
                auto* a = new tovan::ValueArrayValue();
                a->appendElement(*Ptr<Value>(value(depth + 1)));
                a->appendElement(tovan::BooleanValue(true));
                return a;
            }
            default: {
                auto* nd = new tovan::NDimArrayValue(tovan::VT_Integer, tovan::Array<unsigned>{2, 3});
                nd->setElement({1, 2}, tovan::IntegerValue(int32_t(rng_())));
                return nd;
            }
        }
    }

    std::mt19937 rng_;
};

}  // namespace

TEST(NodeStream, EmptyNodeBytesAndNames) {
    NodePtr n(CBaseNode::newInstance());
    EXPECT_EQ(bytesOf(*n, 2), (Bytes{0x02, 0x87, 0x23, 0x01, 0x7F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    n->setName(u"a:b");
    EXPECT_EQ(bytesOf(*n, 2), (Bytes{0x02, 0x87, 0x23, 0x01, 0x7F, 0x10, 'a', ':', 'b', 0x00, 0x00, 0x00, 0x00, 0x00}));
    (void)n->getNamePrefix();  // the parts are split off and written as stored
    Bytes split = bytesOf(*n, 1);
    EXPECT_EQ(split, (Bytes{0x02, 0x87, 0x23, 0x01, 0x7F, 0x10, 'a', 0, ':', 0, 'b', 0, 0x08, 'b', 0, 0x08, 'a', 0,
                            0x00, 0x00, 0x00}));
    NodePtr back = readAs<CBaseNode>(split, 1);
    EXPECT_EQ(back->getName(), WString(u"a:b"));
    EXPECT_EQ(back->getNamePrefix(), WString(u"a"));
}

TEST(NodeStream, NodeFormatVersions) {
    const Bytes meta = {0x01, 0x20};  // flags 32, no entries
    const Bytes head = {0x02, 0x87, 0x23};
    const Bytes body = {0x00, 0x00, 0x00, 0x00, 0x00};  // name, no properties, no children
    NodePtr n = readAs<CBaseNode>(concat({head, {0x01, 0x7F}, body, meta}), 2);
    ASSERT_NE(n->findInfo(), nullptr);
    EXPECT_EQ(n->findInfo()->getFlags(), 32u);

    // 128 and above: the metadata is dropped, even the node's own from before.
    EXPECT_EQ(readInto(*n, concat({head, {0x02, 0x80, 0x00}, body})), 0u);
    EXPECT_EQ(n->findInfo(), nullptr);
    // 126 carries no metadata.
    n->getInfo().setFlags(4);
    readInto(*n, concat({head, {0x01, 0x7E}, body}));
    EXPECT_EQ(n->findInfo(), nullptr);
    // A node that is not fresh loses its children and properties to the record.
    n->appendChild(NodePtr(CBaseNode::newInstance()).get());
    n->getProperties().define(u"old", tovan::IntegerValue(1));
    EXPECT_EQ(readInto(*n, concat({head, {0x01, 0x7E}, body})), 0u);
    EXPECT_EQ(n->getNumberOfChildren(), 0);
    EXPECT_EQ(n->getProperties().getSize(), 0);

    n->setName(u"kept");
    n->getProperties().define(u"p", tovan::IntegerValue(1));
    EXPECT_THROW_MSG(readInto(*n, {0x02, 0x86, 0x23}), Exception, "Deserialization version mismatch (9094 , 9095)");
    EXPECT_EQ(n->getName(), WString(u"kept"));
    EXPECT_EQ(n->getProperties().getSize(), 1);
    EXPECT_THROW_MSG(readInto(*n, concat({head, {0x01, 0x7D}})), Exception, "Deserialization version mismatch (125 < 126)");

    // Stream versions 0 and below, for nodes and for the string primitives alike.
    for (int version : {0, -1}) {
        std::string msg = "Unknown serialization version " + std::to_string(version) + "\n";
        MemoryOutputStream out(version);
        EXPECT_THROW_MSG(n->serialize(out), Exception, msg);
        EXPECT_THROW_MSG(nvk::writeWideString(out, u"x"), Exception, msg);
        EXPECT_EQ(out.size(), 0u);
        EXPECT_THROW_MSG(readInto(*n, {0x02, 0x87, 0x23}, version), Exception, msg);
        EXPECT_EQ(n->getName(), WString(u"kept"));
        MemoryInputStream in(Bytes{0x08, 'x', 0x00}, version);
        EXPECT_THROW_MSG(nvk::readWideString(in), Exception, msg);
    }
}

TEST(NodeStream, CollectionRecordsAndSubsets) {
    Ptr<CPropertyCollection> c(CPropertyCollection::newInstance());
    c->define(u"a", tovan::IntegerValue(1));
    c->define(u"b", tovan::StringValue(u"x"));
    c->define(u"c", tovan::BooleanValue(true));
    c->remove(u"a");
    // 100, 27390, default class, two properties.
    const Bytes b = bytesOf(*c, 2);
    EXPECT_EQ(Bytes(b.begin(), b.begin() + 7), (Bytes{0x01, 0x64, 0x02, 0xFE, 0x6A, 0x01, 0x08}));
    Ptr<CPropertyCollection> back = readAs<CPropertyCollection>(b, 2);
    EXPECT_EQ(datatest::propertyNames(*back), "b,c");

    MemoryOutputStream subset(2);
    c->data().serializeSubset(subset, {u"C", u"b"});
    Ptr<CPropertyCollection> d(CPropertyCollection::newInstance());
    MemoryInputStream subsetIn(subset.bytes(), 2);
    d->data().deserialize(subsetIn);
    EXPECT_EQ(subsetIn.remaining(), 0u);
    ASSERT_EQ(d->GetNumProperties(), 2);
    EXPECT_EQ(d->GetProperty(0)->getName(), WString(u"c"));

    MemoryOutputStream none(2);
    EXPECT_THROW_MSG(c->data().serializeSubset(none, {u"b", u"zz"}), Exception, "Unable to find property 'zz'");
    EXPECT_EQ(none.size(), 0u);

    EXPECT_THROW_MSG(readInto(*back, {0x01, 0x65}), Exception, "Deserialization version mismatch (101 , 100)");
    EXPECT_THROW_MSG(readInto(*back, {0x01, 0x64, 0x02, 0xFF, 0x6A}), Exception,
                     "Deserialization version mismatch (27391 , 27390)");
    EXPECT_EQ(back->getSize(), 0);  // cleared before reading

    // Property class by tag, and a name given twice.
    EXPECT_THROW_MSG(readInto(*back, {0x01, 0x64, 0x02, 0xFE, 0x6A, 0x00, 0x10, 'x', 'y', 'z'}), Exception,
                     "Unknown class tag \"xyz\"");
    Bytes twice = {0x01, 0x64, 0x02, 0xFE, 0x6A, 0x01, 0x08};
    for (int i = 0; i < 2; ++i) twice.insert(twice.end(), {0x08, 'P', 0x08, 0x00, 0x00, 0x00, 0x00, 0x00});
    // A name given twice is read as two properties, in stream order.
    readInto(*back, twice);
    ASSERT_EQ(back->getSize(), 2);
    EXPECT_EQ(datatest::propertyNames(*back), "P,P");
    EXPECT_EQ(back->find(u"p"), &back->get(0));
    EXPECT_TRUE(back->remove(u"P"));
    ASSERT_EQ(back->getSize(), 1);
    EXPECT_EQ(back->find(u"P"), &back->get(0));
}

TEST(NodeStream, PropertyFlagsAndMetadataBlocks) {
    Ptr<CProperty> p(CProperty::newInstance());
    p->SetName(u"n");
    p->setValue(tovan::IntegerValue(7));
    p->setFlags(tovan::MetaDataNotSerialized | 0x8);
    // Name, type code 2, int32 7, flags 8 without the local bit.
    EXPECT_EQ(bytesOf(*p, 2), (Bytes{0x08, 'n', 0x08, 0x07, 0x00, 0x00, 0x00, 0x20}));
    EXPECT_EQ(p->getFlags(), tovan::MetaDataNotSerialized | 0x8);

    Ptr<CProperty> q(CProperty::newInstance());
    q->setFlags(tovan::MetaDataNotSerialized | 0x2);
    q->setValue(tovan::IntegerValue(1));
    tovan::Value* before = q->findValue();
    readInto(*q, bytesOf(*p, 2));
    EXPECT_EQ(q->getFlags(), tovan::MetaDataNotSerialized | 0x8);  // the local bit keeps its state
    EXPECT_EQ(q->findValue(), before);                              // same class: read in place
    EXPECT_TRUE(q->getValue().equals(tovan::IntegerValue(7)));

    // Metadata entries: bit 29 announces them, a null name reads as empty,
    // and the value object of an entry may be reused by the next one.
    MemoryOutputStream out(2);
    Ptr<CPropertyCollection> entries(CPropertyCollection::newInstance());
    entries->define(u"u", tovan::StringValue(u"cm"));
    entries->define(u"v", tovan::StringValue(u"m"));
    nvk::CMetaDataImpl::Serialize(0x4, entries.get(), out);
    EXPECT_EQ(Bytes(out.bytes().begin(), out.bytes().begin() + 6), (Bytes{0x03, 0x04, 0x00, 0x00, 0x20, 0x08}));
    Bytes nullName = {0x03, 0x04, 0x00, 0x00, 0x20, 0x04, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00};
    tovan::iMetaData* meta = nullptr;
    MemoryInputStream nullNameIn(nullName, 2);
    nvk::CMetaDataImpl::SetFromSerialized(meta, nullNameIn);
    ASSERT_NE(meta, nullptr);
    EXPECT_EQ(meta->getFlags(), 0x4u);
    ASSERT_EQ(meta->getProperties().getSize(), 1);
    EXPECT_TRUE(meta->getProperties().get(0).getName().isEmpty());
    EXPECT_FALSE(meta->getProperties().get(0).getName().isNull());
    MemoryInputStream both(out.bytes(), 2);
    nvk::CMetaDataImpl::SetFromSerialized(meta, both);
    EXPECT_EQ(datatest::propertyNames(meta->getProperties()), "u,v");
    EXPECT_EQ(meta->getProperties().get(1).getValue().toString(), WString(u"m"));
    MemoryInputStream zero(Bytes{0x00}, 2);
    nvk::CMetaDataImpl::SetFromSerialized(meta, zero);
    EXPECT_EQ(meta, nullptr);
}

TEST(NodeStream, ObjectTransportNodes) {
    Ptr<CObjectTransportNode> o(CObjectTransportNode::newInstance());
    o->setName(u"t");
    Ptr<Value> v(new tovan::StringValue(u"payload"));
    o->SetObject(v.get());
    const Bytes b = bytesOf(*o, 2);
    EXPECT_EQ(Bytes(b.begin(), b.begin() + 5), (Bytes{0x02, 0xA3, 0x1B, 0x01, 0x01}));

    // The old header has two more bytes; the last one says whether an object follows.
    Bytes old = {0x02, 0xA2, 0x1B, 0x01, 0x01, 0x00};
    Bytes node = {0x01, 0x7F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    Ptr<CObjectTransportNode> oldBack = readAs<CObjectTransportNode>(concat({old, node}), 2);
    EXPECT_EQ(oldBack->GetObject(), nullptr);
    // A record without an object keeps the one attached; the node itself is read anew.
    Ptr<CObjectTransportNode> keeps(CObjectTransportNode::newInstance());
    keeps->SetObject(v.get());
    keeps->setName(u"before");
    readInto(*keeps, concat({{0x02, 0xA3, 0x1B, 0x00}, node}));
    EXPECT_EQ(keeps->GetObject(), v.get());
    EXPECT_TRUE(keeps->getName().isNull());
    readInto(*keeps, concat({old, node}));
    EXPECT_EQ(keeps->GetObject(), v.get());
    EXPECT_THROW_MSG(readInto(*o, {0x02, 0xA4, 0x1B}), Exception, "Deserialization version mismatch (7076 , 7075)");
    EXPECT_EQ(o->GetObject(), v.get());
    // An object class that cannot be read leaves the old object attached.
    EXPECT_THROW_MSG(readInto(*o, concat({{0x02, 0xA3, 0x1B, 0x01, 0x01, 0x17}, kMetaDataTag})), Exception,
                     "Objects of class Norvatek.data.MetaData cannot be serialized");
    EXPECT_EQ(o->GetObject(), v.get());
}

/// Lends its bytes `chunk` at a time, so that every field of a record meets the window's edge
/// somewhere: readers that decode straight from the window must fall back there.
class ChunkedStream : public tovan::iByteInputStream {
public:
    ChunkedStream(const Bytes& bytes, size_t chunk, int version) : bytes_(bytes), chunk_(chunk), version_(version) {}
    int getVersion() const override { return version_; }

protected:
    size_t readSome(void* data, size_t count) override {
        if (at_ == bytes_.size()) return 0;
        const size_t n = std::min(chunk_, bytes_.size() - at_);
        setWindow(bytes_.data() + at_, bytes_.data() + at_ + n);
        at_ += n;
        return read(data, count);
    }

private:
    const Bytes& bytes_;
    size_t chunk_, at_ = 0;
    int version_;
};

TEST(NodeStream, RandomTreesRoundTrip) {
    for (int version : {1, 2, 3}) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            TreeMaker maker(seed * 7919 + uint32_t(version));
            Ptr<iNode> root = maker.tree(3);
            MemoryOutputStream out(version);
            nvk::writeRecord(out, *root);
            MemoryInputStream in(out.bytes(), version);
            Ptr<iNode> back = nvk::readRecord(in);
            ASSERT_TRUE(back);
            EXPECT_EQ(in.remaining(), 0u);
            expectSameTree(*root, *back, "v" + std::to_string(version) + "#" + std::to_string(seed));
            EXPECT_EQ(bytesOf(*back, version), bytesOf(*root, version));
            EXPECT_FALSE(nvk::readRecord(in));
            for (size_t chunk : {1, 7, 64}) {
                ChunkedStream pieces(out.bytes(), chunk, version);
                Ptr<iNode> again = nvk::readRecord(pieces);
                ASSERT_TRUE(again);
                MemoryOutputStream rewritten(version);
                nvk::writeRecord(rewritten, *again);
                EXPECT_EQ(rewritten.bytes(), out.bytes()) << "window of " << chunk;
            }
        }
    }
}

// Children's classes are looked up once per run of one tag: a tag that changes, even in its
// last byte only, is looked up again, and an unknown one is refused as before.
TEST(NodeStream, ChildClassesChangingBetweenSiblings) {
    Ptr<iNode> root(CBaseNode::newInstance());
    const char* kinds = "bbtbt";
    for (const char* k = kinds; *k; ++k) {
        Ptr<iNode> child = *k == 'b' ? Ptr<iNode>(CBaseNode::newInstance())
                                     : Ptr<iNode>(CObjectTransportNode::newInstance());
        root->appendChild(child.get());
    }
    const Bytes b = bytesOf(*root, 2);
    Ptr<CBaseNode> back = readAs<CBaseNode>(b, 2);
    ASSERT_EQ(back->getNumberOfChildren(), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_STREQ(back->getChildAt(i)->getClassTag(),
                     kinds[i] == 'b' ? CBaseNode::Tag.name() : CObjectTransportNode::Tag.name());

    const std::string tag = CBaseNode::Tag.name();
    Bytes bad = b;
    auto second = std::search(bad.begin(), bad.end(), tag.begin(), tag.end());
    second = std::search(second + 1, bad.end(), tag.begin(), tag.end());
    ASSERT_NE(second, bad.end());
    second[tag.size() - 1] = 'X';
    Ptr<CBaseNode> target(CBaseNode::newInstance());
    MemoryInputStream in(bad, 2);
    EXPECT_THROW_MSG(target->deserialize(in), Exception,
                     "Unknown class tag \"" + tag.substr(0, tag.size() - 1) + "X\"");
    readInto(*target, b);  // the cache still knows the real tag
    EXPECT_EQ(target->getNumberOfChildren(), 5);
}

TEST(NodeStream, RecordsAndNodeFiles) {
    std::vector<Ptr<iNode>> nodes;
    for (uint32_t seed = 0; seed < 3; ++seed) nodes.push_back(TreeMaker(seed).tree(2));
    nvktest::TempDir dir;
    WString path = WString(tovan::utf8ToUtf16((dir / "records.nvkb").string()));
    nvk::writeNodeFile(path, nodes, 1);
    int version = 0;
    std::vector<Ptr<iNode>> back = nvk::readNodeFile(path, &version);
    EXPECT_EQ(version, 1);
    ASSERT_EQ(back.size(), nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) expectSameTree(*nodes[i], *back[i]);

    MemoryInputStream notANode(concat({{0x01, 0x17}, kMetaDataTag}), 2);
    EXPECT_THROW_MSG(nvk::readRecord(notANode), tovan::BadParameterException,
                     "Class Norvatek.data.MetaData does not implement tovan::iNode");
    MemoryInputStream cut(Bytes{0x01, 0x17, 'N'}, 2);
    EXPECT_THROW_MSG(nvk::readRecord(cut), Exception, "Unexpected end of stream: needed 22 bytes, got 1");
    // A tag claiming 2 GB is read as far as its bytes go, not reserved whole first.
    MemoryInputStream huge(Bytes{0x03, 0xFF, 0xFF, 0xFF, 0x7F, 'N', 'o', 'r'}, 2);
    EXPECT_THROW_MSG(nvk::readRecord(huge), Exception, "Unexpected end of stream: needed 4096 bytes, got 3");

    const std::string otherName = (dir / "other").string();
    const WString other = WString(tovan::utf8ToUtf16(otherName));
    writeFile(other, "nvkx");
    EXPECT_THROW_MSG(nvk::readNodeFile(other), Exception, "File \"" + otherName + "\" is not a node file");

    // Record by record, the reader knows how far it got, also when a record is cut short
    // (here its last byte, with the end mark after it).
    const std::string full = nvktest::readFile(dir / "records.nvkb");
    writeFile(other, full.substr(0, full.size() - 2));
    nvk::NodeFileReader reader(other);
    EXPECT_EQ(reader.offset(), 0u);
    EXPECT_EQ(reader.readHeader(), 1);
    EXPECT_EQ(reader.offset(), 5u);
    ASSERT_TRUE(reader.next());
    ASSERT_TRUE(reader.next());
    const uint64_t third = reader.offset();
    EXPECT_THROW_MSG(reader.next(), Exception, "EOF reading int header");
    EXPECT_GT(reader.offset(), third);
    EXPECT_EQ(reader.offset(), full.size() - 2);

    // Only the end mark tells a whole file from one cut between records, or one that goes on.
    writeFile(other, full.substr(0, full.size() - 1));
    EXPECT_THROW_MSG(nvk::readNodeFile(other), Exception,
                     "File \"" + otherName + "\" is cut short: it ends without its end mark");
    writeFile(other, full + "x");
    EXPECT_THROW_MSG(nvk::readNodeFile(other), Exception, "File \"" + otherName + "\" goes on after its end mark");
    nvk::NodeFileReader whole(path);
    for (size_t i = 0; i < nodes.size(); ++i) ASSERT_TRUE(whole.next());
    EXPECT_FALSE(whole.next());
    EXPECT_FALSE(whole.next());
    EXPECT_EQ(whole.offset(), full.size());
    writeFile(other, "nvkb\x10");
    EXPECT_THROW_MSG(nvk::NodeFileReader(other).next(), Exception,
                     "Unsupported stream version 4 in \"" + otherName + "\"");
}

// Record by record through a pipe (no seeking): the writer's bytes are the
// whole-file writer's, the reader gets them back after a head the caller
// took to look at, and a pipe that stops early fails as a cut file does.
TEST(NodeStream, NodeFilesRecordByRecordThroughPipes) {
    std::vector<Ptr<iNode>> nodes;
    for (uint32_t seed = 0; seed < 3; ++seed) nodes.push_back(TreeMaker(seed).tree(2));
    nvktest::TempDir dir;
    const WString path = WString(tovan::utf8ToUtf16((dir / "whole.nvkb").string()));
    nvk::writeNodeFile(path, nodes, 3);
    const std::string whole = nvktest::readFile(dir / "whole.nvkb");

    auto throughPipe = [&](const std::string& bytes, size_t headSize, std::vector<Ptr<iNode>>& back) {
        int fds[2];
        EXPECT_EQ(pipe(fds), 0);
        // Written by a second thread, as a pipe would be fed, since it holds less than a file.
        std::thread feeder([&] {
            FILE* w = fdopen(fds[1], "wb");
            std::fwrite(bytes.data(), 1, bytes.size(), w);
            std::fclose(w);
        });
        FILE* r = fdopen(fds[0], "rb");
        std::string head(headSize, '\0');
        EXPECT_EQ(std::fread(head.data(), 1, headSize, r), headSize);
        nvk::NodeFileReader reader(std::make_unique<tovan::FileInputStream>(r, u"(pipe)", head, 2, true));
        try {
            while (Ptr<iNode> n = reader.next()) back.push_back(std::move(n));
        } catch (...) {
            feeder.join();
            throw;
        }
        feeder.join();
        return reader.offset();
    };
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::thread drain([&] {
        FILE* r = fdopen(fds[0], "rb");
        char block[4096];
        std::string got;
        for (size_t n; (n = std::fread(block, 1, sizeof block, r)) > 0;) got.append(block, n);
        std::fclose(r);
        EXPECT_EQ(got, whole);
    });
    {
        FILE* w = fdopen(fds[1], "wb");
        nvk::NodeFileWriter writer(std::make_unique<tovan::FileOutputStream>(w, u"(pipe)", 3, true));
        for (const auto& n : nodes) writer.write(*n);
        EXPECT_EQ(writer.records(), 3u);
        writer.finish();
        writer.finish();
    }
    drain.join();

    std::vector<Ptr<iNode>> back;
    EXPECT_EQ(throughPipe(whole, 4, back), whole.size());
    ASSERT_EQ(back.size(), nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) expectSameTree(*nodes[i], *back[i]);
    back.clear();
    EXPECT_THROW_MSG(throughPipe(whole.substr(0, whole.size() - 1), 0, back), Exception,
                     "File \"(pipe)\" is cut short: it ends without its end mark");
    EXPECT_EQ(back.size(), 3u);
    EXPECT_THROW_MSG(nvk::NodeFileWriter(path, 4), tovan::BadParameterException, "Unsupported stream version 4");
}

// Sibling records of one kind name their properties place by place; records that lack an
// optional property, have an extra one, or more than the places remembered still read back
// under their own names.
TEST(NodeStream, SiblingsWithOptionalAndManyProperties) {
    const std::vector<std::vector<std::u16string>> rows = {
        {u"a", u"b", u"c", u"d"}, {u"b", u"c", u"d"}, {u"a", u"b", u"c", u"d"}, {u"a", u"x", u"b", u"c", u"d"},
        {u"a", u"c"},             {u"d", u"c", u"b", u"a"}};
    Ptr<iNode> root(CBaseNode::newInstance());
    for (const auto& names : rows) {
        NodePtr row(CBaseNode::newInstance());
        row->setName(u"row");
        for (size_t i = 0; i < names.size(); ++i) row->getProperties().define(WString(names[i]), tovan::IntegerValue(int(i)));
        root->appendChild(row.get());
    }
    NodePtr wide(CBaseNode::newInstance());
    wide->setName(u"row");
    for (int i = 0; i < 70; ++i) wide->getProperties().define(tovan::toWide("p" + std::to_string(i)), tovan::IntegerValue(i));
    root->appendChild(wide.get());
    root->appendChild(wide->cloneNode(true).get());
    Ptr<CBaseNode> back = readAs<CBaseNode>(bytesOf(*root, 2), 2);
    expectSameTree(*root, *back, "root");
}

// A read takes nodes, collections and properties from their pools a batch at a time: what it
// did not use goes back when the read ends, whole or failed, and the tree holds the rest.
TEST(NodeStream, ReadsGiveBackWhatTheyDidNotTake) {
    const int nodes = CBaseNode::pool().getOutstanding(), collections = CPropertyCollection::pool().getOutstanding(),
              properties = CProperty::pool().getOutstanding();
    Ptr<iNode> root = TreeMaker(5).tree(3);
    MemoryOutputStream out(2);
    nvk::writeRecord(out, *root);
    root = nullptr;
    for (size_t cut : {out.size(), out.size() / 2}) {
        {
            MemoryInputStream in(Bytes(out.bytes().begin(), out.bytes().begin() + ptrdiff_t(cut)), 2);
            try {
                Ptr<iNode> back = nvk::readRecord(in);
                EXPECT_EQ(cut, out.size());
            } catch (const Exception&) {
                EXPECT_LT(cut, out.size());
            }
        }
        EXPECT_EQ(CBaseNode::pool().getOutstanding(), nodes) << "cut at " << cut;
        EXPECT_EQ(CPropertyCollection::pool().getOutstanding(), collections);
        EXPECT_EQ(CProperty::pool().getOutstanding(), properties);
    }
}

TEST(NodeStream, NegativeCountsReadAsNoElements) {
    // A child count of -1, then the metadata block: no children, and reading goes on.
    NodePtr n = readAs<CBaseNode>({0x02, 0x87, 0x23, 0x01, 0x7F, 0x00, 0x00, 0x00, 0x00, 0xFC, 0x04}, 2);
    EXPECT_FALSE(n->hasChildren());
    ASSERT_NE(n->findInfo(), nullptr);
    EXPECT_EQ(n->findInfo()->getFlags(), 1u);
    // A property count of -2.
    Ptr<CPropertyCollection> c = readAs<CPropertyCollection>({0x01, 0x64, 0x02, 0xFE, 0x6A, 0x01, 0xF8}, 2);
    EXPECT_EQ(c->getSize(), 0);
}

TEST(NodeStream, DeepNestingIsRefused) {
    // 1001 nested nodes, each the last child of the one before.
    Bytes b;
    const std::string tag = "Norvatek.data.BaseNode";
    for (int i = 0; i <= nvk::CNodeImplBase::MAX_READ_DEPTH; ++i) {
        b.insert(b.end(), {0x02, 0x87, 0x23, 0x01, 0x7F, 0x00, 0x00, 0x00, 0x00, 0x04});  // one child
        b.insert(b.end(), {0x01, uint8_t(tag.size() + 1)});
        b.insert(b.end(), tag.begin(), tag.end());
    }
    NodePtr n(CBaseNode::newInstance());
    MemoryInputStream in(b, 2);
    EXPECT_THROW_FROM(n->deserialize(in), Exception, "CBaseNode::deserialize: Nodes nested deeper than 1000 levels");

    // The writer refuses what the reader would: 1000 levels are written and read back, a
    // thousand and first is refused before a byte is written, at any node of the chain.
    NodePtr root = datatest::node(u"0");
    tovan::iNode* deepest = root.get();
    for (int i = 1; i < nvk::CNodeImplBase::MAX_READ_DEPTH; ++i) deepest = datatest::child(*deepest, u"n");
    NodePtr back = readAs<CBaseNode>(bytesOf(*root, 2), 2);
    EXPECT_EQ(back->getNumberOfChildren(), 1);
    datatest::child(*deepest, u"one too many");
    MemoryOutputStream refused(2);
    EXPECT_THROW_FROM(root->serialize(refused), Exception,
                      "CBaseNode::serialize: Nodes nested deeper than 1000 levels cannot be read back; nothing of "
                      "this node was written");
    EXPECT_EQ(refused.size(), 0u);
    Ptr<CObjectTransportNode> top(CObjectTransportNode::newInstance());
    top->appendChild(root.get());
    EXPECT_THROW_FROM(top->serialize(refused), Exception,
                      "CObjectTransportNode::serialize: Nodes nested deeper than 1000 levels cannot be read back; "
                      "nothing of this node was written");
    EXPECT_EQ(refused.size(), 0u);
    MemoryOutputStream fine(2);
    root->getChildAt(0)->serialize(fine);  // 1000 levels below the root
    EXPECT_GT(fine.size(), 0u);
}
