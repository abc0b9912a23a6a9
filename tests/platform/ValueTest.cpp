#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/DateTimeValue.h"
#include "nvk/platform/HashTableValue.h"
#include "nvk/platform/NDimArrayValue.h"
#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Value.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes bytesOf(const Value& v, int version = 3) {
    MemoryOutputStream out(version);
    v.serialize(out);
    return out.bytes();
}

/// Writes `v` with its type code in front, reads it back through the factory.
Ptr<Value> roundTrip(const Value& v, int version = 3) {
    MemoryOutputStream out(version);
    writeInt32LE(out, v.getTypeCode());
    v.serialize(out);
    MemoryInputStream in(out.bytes(), version);
    Ptr<Value> back = Value::make(readInt32LE(in), version >= 3);
    back->deserialize(in);
    EXPECT_EQ(in.remaining(), 0u) << v.getClassTag();
    return back;
}

}  // namespace

TEST(ByteStream, LittleEndianFieldsAndShortReads) {
    MemoryOutputStream out(1);
    writeInt16LE(out, -2);
    writeInt32LE(out, 0x01020304);
    writeUInt64LE(out, 0x1122334455667788ull);
    writeDoubleLE(out, 1.0);
    EXPECT_EQ(out.bytes(), (Bytes{0xFE, 0xFF, 0x04, 0x03, 0x02, 0x01, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22,
                                  0x11, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    MemoryInputStream in(out.bytes(), out.getVersion());
    EXPECT_EQ(readInt16LE(in), -2);
    EXPECT_EQ(readInt32LE(in), 0x01020304);
    EXPECT_EQ(readUInt64LE(in), 0x1122334455667788ull);
    EXPECT_EQ(readDoubleLE(in), 1.0);
    EXPECT_THROW_MSG(readUInt8(in, "Probe"), Exception, "Unexpected end of stream: needed 1 bytes, got 0");

    MemoryInputStream partial(Bytes{1, 2, 3});
    EXPECT_THROW_MSG(readInt32LE(partial), Exception, "Unexpected end of stream: needed 4 bytes, got 3");
    EXPECT_EQ(partial.remaining(), 0u);
}

namespace {

/// A source that hands out one byte per call, as a pipe may.
class TrickleStream : public iByteInputStream {
public:
    explicit TrickleStream(Bytes bytes) : inner_(std::move(bytes), 3) {}
    int getVersion() const override { return inner_.getVersion(); }

protected:
    size_t readSome(void* data, size_t count) override { return inner_.read(data, count ? 1 : 0); }

private:
    MemoryInputStream inner_;
};

}  // namespace

TEST(ByteStream, ReadExactlyCollectsPartialReads) {
    TrickleStream in(Bytes{0x78, 0x56, 0x34, 0x12, 0xAA});
    EXPECT_EQ(readInt32LE(in), 0x12345678);
    uint8_t two[2];
    EXPECT_THROW_MSG(in.readExactly(two, 2), Exception, "Unexpected end of stream: needed 2 bytes, got 1");
}

TEST(Value, LayoutsAreExact) {
    EXPECT_EQ(bytesOf(IntegerValue(-2)), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(bytesOf(IntegerValue(0x12345678)), (Bytes{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(bytesOf(DoubleValue(-2.5)), (Bytes{0, 0, 0, 0, 0, 0, 0x04, 0xC0}));
    EXPECT_EQ(bytesOf(BooleanValue(true)), (Bytes{1}));
    EXPECT_EQ(bytesOf(BooleanValue(false)), (Bytes{0}));
    EXPECT_EQ(bytesOf(ByteValue(0xAB)), (Bytes{0xAB}));
    EXPECT_EQ(bytesOf(NullValue()), Bytes{});
    EXPECT_EQ(bytesOf(MissingValue()), Bytes{});
    EXPECT_EQ(bytesOf(StringValue()), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(bytesOf(StringValue(WString::empty())), (Bytes{1, 0, 0, 0}));
    EXPECT_EQ(bytesOf(StringValue(WString(u"A\u00E9\U0001F600"))),
              (Bytes{5, 0, 0, 0, 0x41, 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE}));
    EXPECT_EQ(bytesOf(FlexValue(WString(u"7"))), (Bytes{2, 0, 0, 0, 0x37, 0}));
    // The layout does not depend on the stream version.
    EXPECT_EQ(bytesOf(StringValue(WString(u"\u00E9")), 1), bytesOf(StringValue(WString(u"\u00E9")), 3));

    BitsetValue bits(70);
    bits.set(69);
    bits.set(0);  // below the words stored so far
    EXPECT_EQ(bytesOf(bits), (Bytes{70, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(bytesOf(IntegerArrayValue{1, -1}), (Bytes{2, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(bytesOf(BooleanArrayValue{true, false}), (Bytes{2, 0, 0, 0, 1, 0}));
    EXPECT_EQ(bytesOf(StringArrayValue{WString(), WString(u"a")}), (Bytes{2, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0x61, 0}));
    EXPECT_EQ(bytesOf(NullArrayValue(3)), (Bytes{3, 0, 0, 0}));
    ValueArrayValue va;
    va.append(new IntegerValue(5));
    va.append(new StringValue(WString(u"a")));
    EXPECT_EQ(bytesOf(va), (Bytes{2, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0x61, 0}));
    HashTableValue table;
    table.put(u"k", new BooleanValue(true));
    EXPECT_EQ(bytesOf(table), (Bytes{1, 0, 0, 0, 2, 0, 0, 0, 0x6B, 0, 4, 0, 0, 0, 1}));
    NDimArrayValue grid(VT_Byte, Array<unsigned>{2, 1});
    grid.setElement({1, 0}, ByteValue(9));
    EXPECT_EQ(bytesOf(grid),
              (Bytes{2, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 14, 0, 0, 0, 2, 0, 0, 0, 0, 9}));
}

namespace {

/// One or more non-trivial samples of every value class.
std::vector<Ptr<Value>> everyClass() {
    std::vector<Ptr<Value>> v;
    auto add = [&](Value* x) { v.emplace_back(x); };
    add(new StringValue());
    add(new StringValue(WString::empty()));
    add(new StringValue(WString(std::u16string(u"text\xD800"))));  // a lone surrogate survives
    std::u16string longText;  // read in chunks of 512 units
    for (int i = 0; i < 1100; ++i) longText += char16_t(i % 3 ? u'a' + i % 26 : 0xD7FF + i);
    add(new StringValue(WString(longText)));
    add(new IntegerValue(std::numeric_limits<int32_t>::min()));
    add(new DoubleValue(-0.0));
    add(new DoubleValue(std::numeric_limits<double>::quiet_NaN()));
    add(new BooleanValue(true));
    add(new ByteValue(255));
    add(new NullValue());
    add(new MissingValue());
    add(new FlexValue(WString(u" 42 ")));
    auto* bits = new BitsetValue(10000);
    for (size_t i = 3; i < 10000; i += 7) bits->set(i);
    add(bits);
    auto* sparse = new BitsetValue(10000);  // words stored only around its members
    sparse->set(9000);
    sparse->set(8100);
    add(sparse);
    add(new BitsetValue());
    add(new StringArrayValue{WString(), WString::empty(), WString(u"\u00E9")});
    add(new IntegerArrayValue{1, -1, std::numeric_limits<int32_t>::max()});
    add(new DoubleArrayValue{0.5, std::numeric_limits<double>::infinity()});
    add(new BooleanArrayValue{true, false, true});
    add(new ByteArrayValue{0, 128, 255});
    add(new ByteArrayValue());
    add(new NullArrayValue(3));
    auto* mixed = new ValueArrayValue();
    mixed->append(new IntegerValue(5));
    mixed->append(new StringValue(WString(u"a")));
    mixed->append(new IntegerArrayValue{1, 2});
    mixed->append(new NullValue());
    add(mixed);
    auto* table = new HashTableValue();
    table->put(u"Name", new StringValue(WString(u"x")));
    table->put(u"list", mixed->clone());
    add(table);
    auto* grid = new NDimArrayValue(VT_Double, Array<unsigned>{2, 3});
    grid->setElement({1, 2}, DoubleValue(6.5));
    add(grid);
    add(new NDimArrayValue(ArrayValue::AnyElementType, Array<unsigned>{2, 0, 4}));
    add(new DateTimeValue(2024, 2, 29, 13, 5, 9, 300, u"+05:30"));
    return v;
}

}  // namespace

TEST(Value, EveryClassRoundTripsThroughTheFactoryAndCopies) {
    std::set<int> codes;
    for (int version : {1, 2, 3}) {
        for (const Ptr<Value>& v : everyClass()) {
            SCOPED_TRACE(std::string(v->getClassTag()) + " at version " + std::to_string(version));
            codes.insert(v->getTypeCode());
            Ptr<Value> back = roundTrip(*v, version);
            EXPECT_TRUE(back->equals(*v));
            EXPECT_TRUE(v->equals(*back));
            EXPECT_EQ(bytesOf(*back), bytesOf(*v));
            EXPECT_EQ(back->toString(), v->toString());
            EXPECT_STREQ(Value::classTagOf(v->getTypeCode()), v->getClassTag());
            Ptr<Value> copy(v->clone()), assigned = Value::make(v->getTypeCode(), true);
            assigned->assign(*v);
            EXPECT_TRUE(copy->equals(*v) && assigned->equals(*v));
        }
    }
    EXPECT_EQ(codes.size(), 19u);
    // Arrays of fixed-width elements are read in blocks: a source that gives a byte at a time
    // must deliver them whole all the same.
    std::vector<Ptr<Value>> values = everyClass();
    auto* many = new IntegerArrayValue();  // more than one block
    for (int32_t i = 0; i < 20000; ++i) many->append(i * 7919);
    values.emplace_back(many);
    for (const Ptr<Value>& v : values) {
        TrickleStream in(bytesOf(*v));
        Ptr<Value> back = Value::make(v->getTypeCode(), true);
        back->deserialize(in);
        EXPECT_TRUE(back->equals(*v)) << v->getClassTag();
    }
    // Cut in its second block, it fails in the element the bytes end in.
    Bytes cut = bytesOf(*many);
    cut.resize(4 + 4 * 10000 + 2);
    MemoryInputStream partial(cut);
    EXPECT_THROW_MSG(Ptr<Value>(many->clone())->deserialize(partial), Exception,
                     "Unexpected end of stream: needed 4 bytes, got 2");
    EXPECT_TRUE(std::signbit(static_cast<DoubleValue&>(*roundTrip(DoubleValue(-0.0))).get()));
}

TEST(Value, ShortReadsRaiseAndLeaveTheValueAsItWas) {
    for (const Ptr<Value>& v : everyClass()) {
        Ptr<Value> before(v->clone());
        Bytes full = bytesOf(*before);
        for (size_t cut = 0; cut < full.size(); ++cut) {
            MemoryInputStream in(Bytes(full.begin(), full.begin() + ptrdiff_t(cut)));
            try {
                v->deserialize(in);
                ADD_FAILURE() << v->getClassTag() << " read " << cut << " of " << full.size() << " bytes";
            } catch (const Exception& e) {
                EXPECT_EQ(typeid(e), typeid(Exception)) << e.what();
                EXPECT_EQ(std::string(e.what()).rfind("Unexpected end of stream: needed ", 0), 0u) << e.what();
            }
            ASSERT_TRUE(v->equals(*before)) << v->getClassTag() << " changed by a read cut at " << cut;
        }
    }
    // The context names the class being read.
    MemoryInputStream in(Bytes{1, 0, 0, 0, 7});
    try {
        IntegerArrayValue().deserialize(in);
        ADD_FAILURE() << "a count of one with no element was read";
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), "Unexpected end of stream: needed 4 bytes, got 1");
        EXPECT_EQ(e.getClassName(), "IntegerArrayValue");
    }
}

TEST(Value, CopiesOfContainersAreDeep) {
    ValueArrayValue outer;
    outer.append(new IntegerArrayValue{1});
    Ptr<ValueArrayValue> copy(outer.clone());
    static_cast<IntegerArrayValue&>(copy->get(0)).append(2);
    EXPECT_EQ(outer.toString(), WString(u"[[1]]"));
    EXPECT_EQ(copy->toString(), WString(u"[[1, 2]]"));

    HashTableValue table;
    table.put(u"a", new IntegerValue(1));
    HashTableValue tableCopy(table);
    static_cast<IntegerValue&>(tableCopy.get(u"A")).set(2);
    EXPECT_EQ(table.toString(), WString(u"{a: 1}"));

    NDimArrayValue grid(VT_Integer, Array<unsigned>{1, 2});
    Ptr<NDimArrayValue> gridCopy(grid.clone());
    gridCopy->setElement({0, 1}, IntegerValue(7));
    EXPECT_EQ(grid.toString(), WString(u"[[0, 0]]"));
    EXPECT_EQ(gridCopy->toString(), WString(u"[[0, 7]]"));
    EXPECT_FALSE(grid.equals(*gridCopy));
}

// A strict reader refuses bytes that a lenient one repairs, and the refusal leaves the
// value as it was.
TEST(Value, StrictAndLenientReading) {
    struct Case {
        int code;
        Bytes bytes;
        const char* refusal;
        const char16_t* lenient;
    };
    const Case cases[] = {
        {VT_Boolean, {2}, "Invalid boolean byte 2", u"true"},
        {VT_BooleanArray, {2, 0, 0, 0, 1, 7}, "Invalid boolean byte 7", u"[true, true]"},
        // Size 3 with bit 3 set.
        {VT_Bitset, {3, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0}, "Bit 3 is set beyond the bitset's size 3", u"{0}"},
        // Two entries "a" -> 1 and "A" -> 2.
        // A null time zone label.
        {VT_DateTime, {0xE8, 0x07, 2, 29, 13, 5, 9, 0x2C, 0x01, 0, 0, 0, 0},
         "Invalid date-time in stream: null time zone label", u"2024-02-29T13:05:09.300"},
        {VT_HashTable,
         {2, 0, 0, 0, 2, 0, 0, 0, 0x61, 0, 2, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0x41, 0, 2, 0, 0, 0, 2, 0, 0, 0},
         "Duplicate key 'A' in a hash table", u"{a: 2}"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.refusal);
        Ptr<Value> lenient = Value::make(c.code, false), strict = Value::make(c.code, true);
        EXPECT_FALSE(lenient->isStrictReading());
        MemoryInputStream a(c.bytes), b(c.bytes);
        lenient->deserialize(a);
        EXPECT_EQ(lenient->toString(), WString(c.lenient));
        strict->assign(*lenient);
        EXPECT_THROW_MSG(strict->deserialize(b), Exception, c.refusal);
        EXPECT_TRUE(strict->equals(*lenient));
        if (c.code == VT_Bitset) {
            EXPECT_EQ(lenient->getAs<BitsetValue>().size(), 3u);  // the stray bit does not grow it
        }
    }
}

TEST(Value, FactoryKnowsCodesAndTags) {
    EXPECT_THROW_MSG(Value::create(999, true), Exception, "Unknown value type code 999");
    EXPECT_THROW_MSG(Value::create(-1, false), Exception, "Unknown value type code -1");
    // Small codes are looked up in a table, others in the registry's map: both
    // ends of the table, and a code registered on either side of it.
    EXPECT_THROW_MSG(Value::create(63, true), Exception, "Unknown value type code 63");
    EXPECT_THROW_MSG(Value::create(64, true), Exception, "Unknown value type code 64");
    for (int code : {41, 4241}) {
        Value::registerType(code, "Norvatek.ByteValue", []() -> Value* { return new ByteValue(7); });
        Ptr<Value> made = Value::make(code, false);
        EXPECT_EQ(&made->getClass(), &ByteValue::Tag);
        EXPECT_FALSE(made->isStrictReading());
    }
    EXPECT_STREQ(Value::classTagOf(VT_Bitset), "Norvatek.BitsetValue");
    EXPECT_EQ(Value::classTagOf(12345), nullptr);
    Ptr<Value> v = Value::makeByTag("Norvatek.IntegerValue");
    EXPECT_EQ(v->getTypeCode(), VT_Integer);
    EXPECT_THROW_MSG(Value::makeByTag("Norvatek.NoSuchValue"), Exception,
                     "Unknown class tag \"Norvatek.NoSuchValue\"");
    {
        DiagnosticCapture capture;
        Value::registerType(VT_Integer, "Norvatek.Other", []() -> Value* { return new NullValue(); });
        ASSERT_EQ(capture.warnings().size(), 1u);
        EXPECT_EQ(capture.warnings()[0],
                  "Value type code 2 is already registered for Norvatek.IntegerValue; Norvatek.Other ignored");
    }
    EXPECT_EQ(Value::make(VT_Integer, true)->getClass(), IntegerValue::Tag);
}

TEST(Value, EqualityCloneAndAssign) {
    EXPECT_FALSE(IntegerValue(1).equals(DoubleValue(1.0)));
    EXPECT_FALSE(NullValue().equals(MissingValue()));
    EXPECT_TRUE(NullValue().isNull() && MissingValue().isNull() && !StringValue().isNull());
    EXPECT_FALSE(StringValue().equals(StringValue(WString::empty())));
    EXPECT_TRUE(DoubleValue(0.0).equals(DoubleValue(-0.0)));

    StringValue s(WString(u"b"));
    EXPECT_THROW_MSG(s.assign(IntegerValue(1)), BadParameterException,
                     "Cannot assign a Norvatek.IntegerValue to a Norvatek.StringValue");
    EXPECT_EQ(s.get(), WString(u"b"));

    EXPECT_EQ(DoubleValue(std::nan("")).toString(), WString(u"NaN"));
    EXPECT_EQ(IntegerValue(-7).toString(), WString(u"-7"));
    EXPECT_EQ(ByteValue(200).toString(), WString(u"200"));
}

TEST(FlexValue, ReadsAsEachTypeOrSaysWhyNot) {
    FlexValue f(WString(u" +12 "));
    EXPECT_EQ(f.asInteger(), 12);
    EXPECT_EQ(f.asDouble(), 12.0);
    EXPECT_EQ(f.toString(), WString(u" +12 "));
    EXPECT_THROW_MSG(f.asBoolean(), BadParameterException, "Cannot read ' +12 ' as a boolean");
    EXPECT_TRUE(FlexValue(WString(u"TRUE")).asBoolean());
    EXPECT_FALSE(FlexValue(WString(u"0")).asBoolean());
    EXPECT_EQ(FlexValue(WString(u"-2.5e1")).asDouble(), -25.0);
    EXPECT_THROW_MSG(FlexValue(WString(u"2.5")).asInteger(), BadParameterException,
                     "Cannot read '2.5' as an integer");
    EXPECT_THROW_MSG(FlexValue(WString(u"3000000000")).asInteger(), BadParameterException,
                     "Cannot read '3000000000' as an integer");
    EXPECT_THROW_MSG(FlexValue(WString(u"+-1")).asDouble(), BadParameterException, "Cannot read '+-1' as a double");
    EXPECT_THROW_MSG(FlexValue().asDouble(), BadParameterException, "Cannot read '(null)' as a double");
}

TEST(ArrayValue, ElementsConversionsAndRefusals) {
    IntegerArrayValue ints{1, 2};
    EXPECT_THROW_MSG(ints.appendElement(DoubleValue(2.5)), BadParameterException,
                     "Cannot put a Norvatek.DoubleValue into a Norvatek.IntegerArrayValue");
    EXPECT_THROW_MSG(ints.setElement(5, IntegerValue(1)), InvalidIndexException,
                     "Index 5 is out of range (last valid index 1)");
    EXPECT_EQ(ints.size(), 2u);

    Ptr<ArrayValue> doubles = ints.convertTo(VT_DoubleArray);
    doubles->appendElement(DoubleValue(2.5));
    doubles->appendElement(IntegerValue(3));  // widened
    EXPECT_EQ(doubles->toString(), WString(u"[1, 2, 2.5, 3]"));
    EXPECT_EQ(doubles->getElementTypeCode(), VT_Double);

    Ptr<ArrayValue> mixed = doubles->convertTo(VT_ValueArray);
    mixed->appendElement(StringValue(WString(u"s")));
    EXPECT_EQ(mixed->getElement(4)->getTypeCode(), VT_String);
    EXPECT_EQ(mixed->getElement(0)->getTypeCode(), VT_Double);
    EXPECT_THROW_MSG(mixed->convertTo(VT_DoubleArray), BadParameterException,
                     "Cannot convert a Norvatek.ValueArrayValue to a Norvatek.DoubleArrayValue");
    EXPECT_THROW_MSG(ints.convertTo(VT_Integer), BadParameterException,
                     "Cannot convert a Norvatek.IntegerArrayValue to a Norvatek.IntegerValue");
    EXPECT_THROW_MSG(ints.convertTo(4242), BadParameterException,
                     "Cannot convert a Norvatek.IntegerArrayValue to a non-array value");

    NullArrayValue nulls;
    nulls.appendElement(NullValue());
    EXPECT_THROW_MSG(nulls.appendElement(MissingValue()), BadParameterException,
                     "Cannot put a Norvatek.MissingValue into a Norvatek.NullArrayValue");
    EXPECT_THROW_MSG(nulls.getElement(1), InvalidIndexException, "Index 1 is out of range (last valid index 0)");
    EXPECT_EQ(nulls.convertTo(VT_ValueArray)->toString(), WString(u"[]"));  // a null's text is empty

    ValueArrayValue values;
    EXPECT_THROW_MSG(values.append(nullptr), BadParameterException, "A value array cannot hold a null pointer");
    values.resize(2);
    EXPECT_TRUE(values.get(1).isNull());
}

TEST(ValueArrayValue, DeepNestingIsRefusedNotOverflowed) {
    // 250 value arrays, each holding the next; the innermost is empty.
    Bytes bytes;
    for (int i = 0; i < 250; ++i) bytes.insert(bytes.end(), {1, 0, 0, 0, VT_ValueArray, 0, 0, 0});
    bytes.insert(bytes.end(), {0, 0, 0, 0});
    MemoryInputStream in(bytes);
    ValueArrayValue v;
    EXPECT_THROW_MSG(v.deserialize(in), Exception, "Values nested deeper than 200 levels");
    EXPECT_EQ(v.size(), 0u);
    // The guard unwinds: a legal nesting still reads afterwards.
    Bytes shallow{1, 0, 0, 0, VT_ValueArray, 0, 0, 0, 0, 0, 0, 0};
    MemoryInputStream ok(shallow);
    v.deserialize(ok);
    EXPECT_EQ(v.toString(), WString(u"[[]]"));

    Bytes unknown{1, 0, 0, 0, 99, 0, 0, 0};
    MemoryInputStream bad(unknown);
    EXPECT_THROW_MSG(v.deserialize(bad), Exception, "Unknown value type code 99");
    EXPECT_EQ(v.toString(), WString(u"[[]]"));
}

TEST(HashTableValue, NamesFoldAndKeepOrder) {
    HashTableValue t;
    t.put(u"Beta", new IntegerValue(1));
    t.put(u"alpha", new IntegerValue(2));
    t.put(u"BETA", new IntegerValue(3));  // replaces in place, keeps the first spelling
    EXPECT_EQ(t.toString(), WString(u"{Beta: 3, alpha: 2}"));
    EXPECT_EQ(t.get(u"ALPHA").toString(), WString(u"2"));
    EXPECT_EQ(t.find(u"gamma"), nullptr);
    EXPECT_THROW_MSG(t.get(u"gamma"), Exception, "Key 'gamma' not found");
    EXPECT_THROW_MSG(t.put(WString(), new IntegerValue(0)), BadParameterException,
                     "A hash table key cannot be null");
    EXPECT_EQ(t.size(), 2u);

    HashTableValue reordered;
    reordered.put(u"ALPHA", new IntegerValue(2));
    reordered.put(u"beta", new IntegerValue(3));
    EXPECT_TRUE(t.equals(reordered));
    reordered.put(u"beta", new IntegerValue(4));
    EXPECT_FALSE(t.equals(reordered));

    EXPECT_TRUE(t.remove(u"beta"));
    EXPECT_FALSE(t.remove(u"beta"));
    EXPECT_EQ(t.nameAt(0), WString(u"alpha"));
    EXPECT_EQ(t.get(u"alpha").toString(), WString(u"2"));
    EXPECT_THROW_MSG(t.nameAt(1), InvalidIndexException, "Index 1 is out of range (last valid index 0)");
    t.setStrictReading(false);  // a null name is refused even so
    MemoryInputStream nullName(Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_THROW_MSG(t.deserialize(nullName), Exception, "A hash table key cannot be null");
    EXPECT_EQ(t.toString(), WString(u"{alpha: 2}"));
}

TEST(NDimArrayValue, RowMajorIndexingAndErrors) {
    NDimArrayValue cube(VT_Integer, Array<unsigned>{2, 3, 4});
    EXPECT_EQ(cube.size(), 24u);
    EXPECT_EQ(cube.flatIndex({1, 2, 3}), 23u);
    cube.setElement({1, 0, 2}, IntegerValue(42));
    EXPECT_EQ(cube.flat().findAs<IntegerArrayValue>()->get(14), 42);
    EXPECT_EQ(cube.getElement({1, 0, 2})->toString(), WString(u"42"));
    EXPECT_THROW_MSG(cube.getElement({0, 3, 0}), InvalidIndexException,
                     "Index 3 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(cube.flatIndex({0, 0}), BadParameterException, "Expected 3 indexes, got 2");
    EXPECT_THROW_MSG(cube.setElement({0, 0, 0}, StringValue(WString(u"x"))), BadParameterException,
                     "Cannot put a Norvatek.StringValue into a Norvatek.IntegerArrayValue");

    NDimArrayValue strings(VT_String, Array<unsigned>{2, 2});
    strings.setElement({0, 1}, StringValue(WString(u"b")));
    EXPECT_EQ(strings.toString(), WString(u"[[, b], [, ]]"));
    EXPECT_EQ(NDimArrayValue().toString(), WString(u"[]"));

    EXPECT_THROW_MSG(NDimArrayValue(VT_Integer, Array<unsigned>{}), BadParameterException,
                     "An n-dimensional array needs at least one dimension");
    EXPECT_THROW_MSG(NDimArrayValue(VT_Integer, (Array<unsigned>{65536, 65536})), BadParameterException,
                     "Dimensions 65536x65536 hold too many elements");
    EXPECT_THROW_MSG(NDimArrayValue(VT_Bitset, Array<unsigned>{2}), BadParameterException,
                     "Element type 9 cannot be stored in an n-dimensional array");
}

TEST(NDimArrayValue, InconsistentBytesAreRefused) {
    NDimArrayValue grid(VT_Byte, Array<unsigned>{1, 1});
    const std::string before = nvktest::utf8(grid.toString());
    auto expectRefused = [&](Bytes bytes, const char* msg) {
        MemoryInputStream in(std::move(bytes));
        EXPECT_THROW_MSG(grid.deserialize(in), Exception, msg);
        EXPECT_EQ(nvktest::utf8(grid.toString()), before);
    };
    // 2x2 declared, flat byte array of 3.
    expectRefused({2, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 14, 0, 0, 0, 3, 0, 0, 0, 1, 2, 3},
                  "The flat array holds 3 elements where the dimensions need 4");
    // Flat storage that is not an array.
    expectRefused({1, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0},
                  "Type code 2 is not an array type for an n-dimensional array");
    expectRefused({0, 0, 0, 0}, "An n-dimensional array needs at least one dimension");
}
