#pragma once
// The three primitives every record of the node byte stream is built from:
// the compact integer, the wide string and the narrow string (plus the
// boolean byte).
//
// Compact integer (signed 32-bit): -16..15 is one byte holding v * 4 (low two
// bits 0); otherwise a header byte 1, 2 or 3 announces 1, 2 or 4 bytes of
// two's complement, little-endian.
//
// Wide string: the compact integer n (0 null, 1 empty, else units + 1), then
// the units. Stream version 1 carries raw UTF-16 units (2 bytes LE); version
// 2 and above carries each unit as its own UTF-8 sequence (surrogates are not
// paired up: each one is a three-byte sequence). The reader of version 2 is
// deliberately forgiving in one old way: it sizes a sequence from its header
// byte with the masks 0xE0, 0xF0, 0xF1, 0xFD, 0xFE (so every even byte from
// 0xF0 up starts a four-byte sequence and 0xFD a six-byte one), takes six
// bits from each further byte without checking it, and keeps the low 16 bits.
//
// Narrow string (class tag names): the compact integer byte length + 1 (0 for
// none), then the bytes.
//
// Failures are tovan::Exception from class "StreamPrimitives". Decisions of
// our own: a negative string length is refused ("Invalid string length %d"),
// a short narrow string raises "EOF reading byte %d in string of length %d"
// like a wide one, and a stream version of 0 or below is refused by every
// string reader and writer ("Unknown serialization version %d\n").
#include <cstdint>
#include <cstring>
#include <string>

#include "nvk/data/SharedName.h"
#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Strings up to this many units are read into a fixed buffer; longer ones
/// into a heap buffer that grows with the bytes that actually arrive.
inline constexpr int kFixedStringBuffer = 1024;

// Inline: records write several per node, most of them constants (versions) that fold to
// a fixed store.
inline void writeCompactInt(tovan::iByteOutputStream& out, int32_t v) {
    uint8_t b[5];
    size_t n;
    if (v >= -16 && v <= 15) {
        b[0] = uint8_t(uint32_t(v) << 2);
        n = 1;
    } else if (v >= -128 && v <= 127) {
        b[0] = 1;
        b[1] = uint8_t(v);
        n = 2;
    } else if (v >= -32768 && v <= 32767) {
        b[0] = 2;
        tovan::storeLE(b + 1, uint16_t(v));
        n = 3;
    } else {
        b[0] = 3;
        tovan::storeLE(b + 1, uint32_t(v));
        n = 5;
    }
    out.write(b, n);
}
/// The rest of a compact integer whose header byte was read already.
NVK_EXPORT int32_t readCompactIntAfterHeader(tovan::iByteInputStream& in, uint8_t header);
/// Raises "EOF reading int header".
[[noreturn]] NVK_EXPORT void compactIntHeaderMissing();

// Inline: most integers of a record (versions, flags, counts, type codes) are the one-byte
// form, and a record has several per node.
inline int32_t readCompactInt(tovan::iByteInputStream& in) {
    // From the window, without a call, when the longest form fits in it.
    size_t available;
    if (const uint8_t* p = in.peek(available); available >= 5) {
        const uint8_t h = p[0];
        switch (h) {
            case 1: in.skip(2); return int8_t(p[1]);
            case 2: in.skip(3); return int16_t(tovan::loadLE<uint16_t>(p + 1));
            case 3: in.skip(5); return int32_t(tovan::loadLE<uint32_t>(p + 1));
            default: in.skip(1); return int8_t(h) >> 2;  // arithmetic: 0xFC is -1
        }
    }
    uint8_t h;
    if (!in.readByte(h)) compactIntHeaderMissing();
    if (uint8_t(h - 1) >= 3) return int8_t(h) >> 2;  // arithmetic: 0xFC is -1
    return readCompactIntAfterHeader(in, h);
}

inline void writeBool(tovan::iByteOutputStream& out, bool v) {
    const uint8_t b = v ? 1 : 0;
    out.write(&b, 1);
}
/// Raises "EOF reading bool".
[[noreturn]] NVK_EXPORT void boolMissing();
/// Any non-zero byte is true.
inline bool readBool(tovan::iByteInputStream& in) {
    uint8_t b;
    if (!in.readByte(b)) boolMissing();
    return b != 0;
}

NVK_EXPORT void writeWideString(tovan::iByteOutputStream& out, const tovan::WString& s);
/// As above, in the form of stream version `version` (the stream's, checked by the caller):
/// for writers of several strings that ask the stream once.
NVK_EXPORT void writeWideString(tovan::iByteOutputStream& out, const tovan::WString& s, int version);
NVK_EXPORT tovan::WString readWideString(tovan::iByteInputStream& in);
/// The same into `text`, whose room is kept from one call to the next; false
/// (and `text` empty) for the null string.
NVK_EXPORT bool readWideString(tovan::iByteInputStream& in, std::u16string& text);

/// A wide string as a name from this thread's table of recent names (SharedName::cached);
/// the null string gives the null name. Names that are ASCII and lie whole in the stream's
/// window are looked up from the bytes, without a wide copy.
NVK_EXPORT SharedName readSharedName(tovan::iByteInputStream& in);

/// The name read last at one place of a record, as its bytes and its block: sibling records
/// repeat their names in the same places, so the block's references are taken ahead.
struct RecentName {
    uint8_t length = 0;  // of `bytes`; 0 when there is none
    uint8_t bytes[39];
    SharedName::Stock name;

    /// Whether the `available` bytes at `p` start with `bytes`.
    bool startsWith(const uint8_t* p, size_t available) const {
        const size_t n = length;
        if (!n || available < n) return false;
        // Most names are a few letters: one masked word compare when the window has the word.
        if (n <= 8 && available >= 8) {
            const uint64_t mask = n == 8 ? ~uint64_t(0) : (uint64_t(1) << (8 * n)) - 1;  // the first n bytes
            return ((tovan::loadLE<uint64_t>(p) ^ tovan::loadLE<uint64_t>(bytes)) & mask) == 0;
        }
        return std::memcmp(p, bytes, n) == 0;
    }
};
/// As readSharedName; a name whose bytes are `recent`'s (or else `next`'s, when given) is
/// taken from it without a look-up, and a short ASCII name read from the window is remembered
/// in `recent` (streams of version 2 and above; version 1 carries names in other bytes and
/// reads as readSharedName).
NVK_EXPORT SharedName readSharedName(tovan::iByteInputStream& in, RecentName& recent, RecentName* next = nullptr);
/// The same, the stream's version (`streamVersion`) asked by the caller; readOtherSharedName
/// is its part for a name other than `recent`'s.
NVK_EXPORT SharedName readOtherSharedName(tovan::iByteInputStream& in, RecentName& recent, RecentName* next,
                                          int streamVersion);
inline SharedName readSharedName(tovan::iByteInputStream& in, RecentName& recent, RecentName* next,
                                 int streamVersion) {
    // Inline for the name read at the same place last, as a record's names nearly always are.
    size_t available;
    const uint8_t* p = in.peek(available);
    if (streamVersion >= 2 && recent.startsWith(p, available)) {
        in.skip(recent.length);
        return recent.name.take();
    }
    return readOtherSharedName(in, recent, next, streamVersion);
}

/// `s` null writes "none" (0).
NVK_EXPORT void writeNarrowString(tovan::iByteOutputStream& out, const char* s);
NVK_EXPORT void writeNarrowString(tovan::iByteOutputStream& out, const std::string& s);
/// "none" reads as an empty string.
NVK_EXPORT std::string readNarrowString(tovan::iByteInputStream& in);
/// The same into `s`, whose room is kept from one call to the next.
NVK_EXPORT void readNarrowString(tovan::iByteInputStream& in, std::string& s);

/// Raises "Unknown serialization version %d\n" (as `className`::`operation`).
[[noreturn]] NVK_EXPORT void refuseStreamVersion(int version, const char* className, const char* operation);
/// Raises as refuseStreamVersion for a version of 0 or below.
inline void checkStreamVersion(int version, const char* className, const char* operation) {
    if (version <= 0) refuseStreamVersion(version, className, operation);
}

/// An element count read from a stream; a negative count reads as no elements.
inline int32_t readCount(tovan::iByteInputStream& in) {
    // A list of -n elements has none: the loop over it does not run, and reading goes on
    // with what follows the list.
    const int32_t n = readCompactInt(in);
    return n < 0 ? 0 : n;
}

}  // namespace nvk
