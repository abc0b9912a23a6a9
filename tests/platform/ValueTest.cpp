#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "platform/BitsetValue.h"
#include "platform/ByteStream.h"
#include "platform/Value.h"
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
    EXPECT_EQ(in.getVersion(), 1);
    EXPECT_EQ(readInt16LE(in), -2);
    EXPECT_EQ(readInt32LE(in), 0x01020304);
    EXPECT_EQ(readUInt64LE(in), 0x1122334455667788ull);
    EXPECT_EQ(readDoubleLE(in), 1.0);
    EXPECT_THROW_MSG(readUInt8(in, "Probe"), Exception, "Unexpected end of stream: needed 1 bytes, got 0");

    MemoryInputStream partial(Bytes{1, 2, 3});
    EXPECT_THROW_MSG(readInt32LE(partial), Exception, "Unexpected end of stream: needed 4 bytes, got 3");
    EXPECT_EQ(partial.remaining(), 0u);
}

TEST(Value, ScalarLayoutsAreExact) {
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
    bits.set(0);
    bits.set(69);
    EXPECT_EQ(bytesOf(bits), (Bytes{70, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Value, ScalarsRoundTripThroughTheFactory) {
    StringValue lone(WString(std::u16string(1, u'\xD800')));  // a lone surrogate survives
    BitsetValue bits(10000);
    for (size_t i = 3; i < 10000; i += 7) bits.set(i);
    DoubleValue nan(std::numeric_limits<double>::quiet_NaN());
    const Value* samples[] = {&lone, &bits, &nan};
    StringValue s1, s2(WString::empty()), s3(WString(u"text"));
    IntegerValue i1(std::numeric_limits<int32_t>::min());
    DoubleValue d1(-0.0), d2(1e300);
    BooleanValue b1(true);
    ByteValue y1(255);
    NullValue n1;
    MissingValue m1;
    FlexValue f1(WString(u" 42 "));
    BitsetValue empty;
    const Value* more[] = {&s1, &s2, &s3, &i1, &d1, &d2, &b1, &y1, &n1, &m1, &f1, &empty};
    for (int version : {1, 2, 3}) {
        for (const Value* v : samples) EXPECT_TRUE(roundTrip(*v, version)->equals(*v)) << v->getClassTag();
        for (const Value* v : more) {
            Ptr<Value> back = roundTrip(*v, version);
            EXPECT_TRUE(back->equals(*v)) << v->getClassTag();
            EXPECT_EQ(back->getClass(), v->getClass());
            EXPECT_EQ(bytesOf(*back), bytesOf(*v));
        }
    }
    EXPECT_TRUE(std::signbit(static_cast<DoubleValue&>(*roundTrip(d1)).get()));
}

TEST(Value, ShortReadsRaiseAndLeaveTheValueAsItWas) {
    StringValue s(WString(u"hello"));
    IntegerValue i(1);
    DoubleValue d(2.0);
    BooleanValue b(true);
    ByteValue y(3);
    FlexValue f(WString(u"x"));
    BitsetValue bits(200);
    bits.set(150);
    Value* victims[] = {&s, &i, &d, &b, &y, &f, &bits};
    for (Value* v : victims) {
        Ptr<Value> before(v->clone());
        Bytes full = bytesOf(*before);
        for (size_t cut = 0; cut < full.size(); ++cut) {
            MemoryInputStream in(Bytes(full.begin(), full.begin() + ptrdiff_t(cut)));
            try {
                v->deserialize(in);
                ADD_FAILURE() << v->getClassTag() << " read " << cut << " of " << full.size() << " bytes";
            } catch (const Exception& e) {
                EXPECT_EQ(e.getClassName(), std::string(v->getClassTag()).substr(9)) << e.what();
                EXPECT_EQ(std::string(e.what()).rfind("Unexpected end of stream: needed ", 0), 0u) << e.what();
            }
            EXPECT_TRUE(v->equals(*before)) << v->getClassTag() << " changed by a failed read";
        }
    }
}

TEST(Value, StrictAndLenientReading) {
    Ptr<Value> strict = Value::make(VT_Boolean, true);
    Ptr<Value> lenient = Value::make(VT_Boolean, false);
    EXPECT_TRUE(strict->isStrictReading());
    EXPECT_FALSE(lenient->isStrictReading());
    MemoryInputStream a(Bytes{2}), b(Bytes{2});
    EXPECT_THROW_MSG(strict->deserialize(a), Exception, "Invalid boolean byte 2");
    EXPECT_TRUE(strict->equals(BooleanValue(false)));
    lenient->deserialize(b);
    EXPECT_TRUE(lenient->equals(BooleanValue(true)));

    Bytes stray{3, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0};  // size 3 with bit 3 set
    BitsetValue bs;
    MemoryInputStream c(stray), d(stray);
    EXPECT_THROW_MSG(bs.deserialize(c), Exception, "Bit 3 is set beyond the bitset's size 3");
    EXPECT_EQ(bs.size(), 0u);
    bs.setStrictReading(false);
    bs.deserialize(d);
    EXPECT_EQ(bs.toString(), WString(u"{0}"));
    EXPECT_EQ(bs.size(), 3u);
}

TEST(Value, FactoryKnowsCodesAndTags) {
    EXPECT_THROW_MSG(Value::create(999, true), Exception, "Unknown value type code 999");
    EXPECT_THROW_MSG(Value::create(-1, false), Exception, "Unknown value type code -1");
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

    StringValue s(WString(u"a"));
    Ptr<StringValue> copy(s.clone());
    copy->set(WString(u"b"));
    EXPECT_EQ(s.get(), WString(u"a"));
    s.assign(*copy);
    EXPECT_EQ(s.get(), WString(u"b"));
    EXPECT_THROW_MSG(s.assign(IntegerValue(1)), BadParameterException,
                     "Cannot assign a Norvatek.IntegerValue to a Norvatek.StringValue");
    EXPECT_EQ(s.get(), WString(u"b"));

    EXPECT_EQ(DoubleValue(0.1).toString(), WString(u"0.1"));
    EXPECT_EQ(IntegerValue(-7).toString(), WString(u"-7"));
    EXPECT_EQ(ByteValue(200).toString(), WString(u"200"));
    EXPECT_EQ(BooleanValue(true).toString(), WString(u"true"));
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
