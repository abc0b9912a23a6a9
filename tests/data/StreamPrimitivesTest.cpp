#include <climits>

#include "nvk/data/StreamPrimitives.h"
#include "nvk/data/StringLength_internal.h"
#include "tests/support/TestSupport.h"

using tovan::Exception;
using tovan::MemoryInputStream;
using tovan::MemoryOutputStream;
using tovan::WString;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes intBytes(int32_t v) {
    MemoryOutputStream out;
    nvk::writeCompactInt(out, v);
    return out.bytes();
}

Bytes wideBytes(const WString& s, int version) {
    MemoryOutputStream out(version);
    nvk::writeWideString(out, s);
    return out.bytes();
}

// Reads with both readers, which must agree on the text, on null and on the
// failure; the buffer starts out holding text of an earlier read.
WString readWide(const Bytes& b, int version) {
    MemoryInputStream in(b, version), again(b, version);
    std::u16string buffer = u"earlier text";
    std::string bufferFailure;
    bool present = false;
    try {
        present = nvk::readWideString(again, buffer);
    } catch (const Exception& e) {
        bufferFailure = e.what();
    }
    try {
        WString s = nvk::readWideString(in);
        EXPECT_EQ(bufferFailure, "");
        EXPECT_EQ(present, !s.isNull());
        EXPECT_EQ(std::u16string_view(buffer), s.view());
        EXPECT_EQ(again.remaining(), in.remaining());
        return s;
    } catch (const Exception& e) {
        EXPECT_EQ(bufferFailure, e.what());
        throw;
    }
}

}  // namespace

TEST(StreamPrimitives, CompactIntegerEncodingsAndBoundaries) {
    const std::pair<int32_t, Bytes> encodings[] = {
        {0, {0x00}},         {-1, {0xFC}},       {15, {0x3C}},       {-16, {0xC0}},
        {16, {0x01, 0x10}},  {-17, {0x01, 0xEF}}, {-129, {0x02, 0x7F, 0xFF}}, {9095, {0x02, 0x87, 0x23}},
        {40000, {0x03, 0x40, 0x9C, 0x00, 0x00}},
    };
    for (const auto& [value, bytes] : encodings) EXPECT_EQ(intBytes(value), bytes) << value;
    for (int32_t v : {0, -1, 15, -16, 16, -17, 127, -128, 128, -129, 32767, -32768, 32768, -32769, INT_MAX, INT_MIN}) {
        MemoryInputStream in(intBytes(v));
        EXPECT_EQ(nvk::readCompactInt(in), v);
        EXPECT_EQ(in.remaining(), 0u);
    }
    // A one-byte form whose low bits are not 0 still shifts arithmetically.
    MemoryInputStream odd(Bytes{0xFF});
    EXPECT_EQ(nvk::readCompactInt(odd), -1);
}

TEST(StreamPrimitives, ShortReadsRaiseTheirOwnMessages) {
    auto readInt = [](Bytes b) {
        MemoryInputStream in(std::move(b));
        return nvk::readCompactInt(in);
    };
    EXPECT_THROW_MSG(readInt({}), Exception, "EOF reading int header");
    EXPECT_THROW_MSG(readInt({0x01}), Exception, "EOF reading int as byte");
    EXPECT_THROW_MSG(readInt({0x02, 0x01}), Exception, "EOF reading int as short");
    EXPECT_THROW_MSG(readInt({0x03, 0x01, 0x02, 0x03}), Exception, "EOF reading int as int");

    MemoryInputStream noBool(Bytes{});
    EXPECT_THROW_MSG(nvk::readBool(noBool), Exception, "EOF reading bool");
    MemoryInputStream bools(Bytes{0x00, 0x01, 0x07});
    EXPECT_FALSE(nvk::readBool(bools));
    EXPECT_TRUE(nvk::readBool(bools));
    EXPECT_TRUE(nvk::readBool(bools));

    // n = 4: three units announced, one present.
    EXPECT_THROW_MSG(readWide({0x10, 'a'}, 2), Exception, "EOF reading byte 2 in string of length 3");
    EXPECT_THROW_MSG(readWide({0x10, 'a', 0x00, 'b'}, 1), Exception, "EOF reading byte 2 in string of length 3");
    EXPECT_THROW_MSG(readWide({0x08, 0xC3}, 2), Exception, "EOF reading wchar_t additional bytes");
    EXPECT_THROW_MSG(readWide({0x08, 0xE2, 0x82}, 2), Exception, "EOF reading wchar_t additional bytes");
    EXPECT_THROW_MSG(readWide({0xFC}, 2), Exception, "Invalid string length -1");

    MemoryInputStream shortNarrow(Bytes{0x10, 'N', 'o'});
    EXPECT_THROW_MSG(nvk::readNarrowString(shortNarrow), Exception, "EOF reading byte 3 in string of length 3");
}

TEST(StreamPrimitives, NullEmptyAndNonAsciiNamesOnTheWire) {
    for (int version : {1, 2, 3}) {
        EXPECT_EQ(wideBytes(WString(), version), (Bytes{0x00}));
        EXPECT_EQ(wideBytes(WString::empty(), version), (Bytes{0x04}));
        EXPECT_TRUE(readWide({0x00}, version).isNull());
        WString empty = readWide({0x04}, version);
        EXPECT_FALSE(empty.isNull());
        EXPECT_TRUE(empty.isEmpty());
    }
    EXPECT_EQ(wideBytes(u"\u00E9", 2), (Bytes{0x08, 0xC3, 0xA9}));
    EXPECT_EQ(wideBytes(u"\u00E9", 1), (Bytes{0x08, 0xE9, 0x00}));
    EXPECT_EQ(wideBytes(u"a\u20AC", 3), (Bytes{0x0C, 'a', 0xE2, 0x82, 0xAC}));
    // A pair is written as two separate three-byte sequences and read back unit by unit.
    const WString pair(u"\U0001F600");
    EXPECT_EQ(wideBytes(pair, 2), (Bytes{0x0C, 0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80}));
    EXPECT_EQ(readWide(wideBytes(pair, 2), 2), pair);
    const WString lone(u"\xDC00x\xD800");
    for (int version : {1, 2}) EXPECT_EQ(readWide(wideBytes(lone, version), version), lone);
}

TEST(StreamPrimitives, Utf8HeadersFollowTheOldMasks) {
    // 0xF8 passes the 0xF1 test: four bytes, payload (h & 0x0F) << 18, kept to 16 bits.
    EXPECT_EQ(readWide({0x08, 0xF8, 0x80, 0x81, 0x82}, 2), WString(u"\u0042"));
    EXPECT_EQ(readWide({0x08, 0xF0, 0x9F, 0x98, 0x80}, 2), WString(u"\uF600"));
    EXPECT_EQ(readWide({0x08, 0xFC, 0x80, 0x81, 0x81}, 2), WString(u"\u0041"));
    // 0xFD is a six-byte sequence.
    EXPECT_EQ(readWide({0x0C, 0xFD, 0x80, 0x80, 0x80, 0x81, 0x82, 'z'}, 2), WString(u"\u0042z"));
    // Continuation bytes are not checked: only their low six bits count.
    EXPECT_EQ(readWide({0x08, 0xC3, 0x29}, 2), WString(u"\u00E9"));
    for (int h : {0x80, 0xBF, 0xF1, 0xF3, 0xF9, 0xFB, 0xFF}) {
        std::string msg = "Found illegal UTF8 byte header char: " + std::to_string(h) + " (decimal)\n";
        EXPECT_THROW_MSG(readWide({0x08, uint8_t(h), 0x80, 0x80, 0x80, 0x80, 0x80}, 2), Exception, msg);
    }
}

TEST(StreamPrimitives, LongStringsLeaveTheFixedBuffer) {
    for (size_t len : {size_t(1023), size_t(1024), size_t(70000)}) {
        std::u16string text;
        for (size_t i = 0; i < len; ++i) text.push_back(char16_t(i % 3 == 0 ? 'a' + i % 26 : 0x100 + i % 0xD000));
        for (int version : {1, 2}) EXPECT_EQ(readWide(wideBytes(WString(text), version), version), WString(text));
    }
    // A huge announced length with few bytes behind it fails at the end of the bytes.
    EXPECT_THROW_MSG(readWide({0x03, 0x00, 0x00, 0x00, 0x40, 'a'}, 2), Exception,
                     "EOF reading byte 2 in string of length 1073741823");
}

TEST(StreamPrimitives, NarrowStrings) {
    MemoryOutputStream out;
    nvk::writeNarrowString(out, "Norvatek.data.BaseNode");
    nvk::writeNarrowString(out, nullptr);
    nvk::writeNarrowString(out, std::string());
    EXPECT_EQ(out.bytes()[0], 0x01);
    EXPECT_EQ(out.bytes()[1], 23);
    MemoryInputStream in(out.bytes());
    EXPECT_EQ(nvk::readNarrowString(in), "Norvatek.data.BaseNode");
    EXPECT_EQ(nvk::readNarrowString(in), "");
    EXPECT_EQ(nvk::readNarrowString(in), "");
    EXPECT_EQ(in.remaining(), 0u);
}

// A length whose header would wrap negative is refused before anything is written (a string
// that long takes 4 GiB, so the writers' common check is exercised at its bounds directly).
TEST(StreamPrimitives, LengthsThatWouldWrapAreRefused) {
    EXPECT_EQ(nvk::stringLengthHeader(0, false), 1);
    EXPECT_EQ(nvk::stringLengthHeader(size_t(INT32_MAX) - 1, true), INT32_MAX);
    EXPECT_THROW_FROM(nvk::stringLengthHeader(size_t(INT32_MAX), false), Exception,
                     "StreamPrimitives::writeWideString: String of 2147483647 units is too long to write");
    EXPECT_THROW_FROM(nvk::stringLengthHeader(size_t(UINT32_MAX) + 5, true), Exception,
                     "StreamPrimitives::writeNarrowString: String of 4294967300 bytes is too long to write");
}
