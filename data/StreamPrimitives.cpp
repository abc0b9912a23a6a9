#include "nvk/data/StreamPrimitives.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "nvk/data/StringLength_internal.h"
#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/Exception.h"

namespace nvk {

using tovan::Exception;
using tovan::iByteInputStream;
using tovan::iByteOutputStream;
using tovan::WString;

namespace {

constexpr const char* kClass = "StreamPrimitives";

/// Reads exactly `count` bytes; false when the stream ended first.
bool readAll(iByteInputStream& in, void* data, size_t count) {
    auto* p = static_cast<uint8_t*>(data);
    while (count > 0) {
        size_t got = in.read(p, count);
        if (got == 0) return false;
        p += got;
        count -= got;
    }
    return true;
}

/// Grows a heap buffer in steps so that a corrupt length cannot make us
/// allocate far ahead of the bytes that really arrive.
constexpr size_t kHeapStep = 64 * 1024;

/// Reads units `from` to `to` of a version-1 string of `len` units into `dest`.
void readUtf16Units(iByteInputStream& in, char16_t* dest, int from, int to, int len) {
    uint8_t raw[2 * 512];
    int done = from;
    while (done < to) {
        int chunk = std::min(to - done, 512);
        size_t want = size_t(chunk) * 2;
        size_t got = 0;
        while (got < want) {
            size_t n = in.read(raw + got, want - got);
            if (n == 0) break;
            got += n;
        }
        int units = int(got / 2);
        for (int i = 0; i < units; ++i) dest[done + i] = char16_t(tovan::loadLE<uint16_t>(raw + 2 * i));
        if (got < want)
            throw Exception(kClass, "readWideString", u"EOF reading byte %d in string of length %d", done + units + 1,
                            len);
        done += chunk;
    }
}

/// The rest of a unit of a version-2 string whose header byte `h` (not ASCII) was read.
char16_t readUtf8UnitAfter(iByteInputStream& in, uint8_t h) {
    int extra;
    uint32_t value;
    if ((h & 0xE0) == 0xC0) {
        extra = 1;
        value = uint32_t(h & 0x1F) << 6;
    } else if ((h & 0xF0) == 0xE0) {
        extra = 2;
        value = uint32_t(h & 0x0F) << 12;
    } else if ((h & 0xF1) == 0xF0) {
        extra = 3;
        value = uint32_t(h & 0x0F) << 18;
    } else if ((h & 0xFD) == 0xF8) {
        extra = 4;
        value = uint32_t(h & 0x03) << 24;
    } else if ((h & 0xFE) == 0xFC) {
        extra = 5;
        value = uint32_t(h & 0x01) << 30;
    } else {
        throw Exception(kClass, "readWideString", u"Found illegal UTF8 byte header char: %ld (decimal)\n", long(h));
    }
    uint8_t more[5];
    if (!readAll(in, more, size_t(extra)))
        throw Exception(kClass, "readWideString", u"EOF reading wchar_t additional bytes");
    int shift = 6 * (extra - 1);
    for (int i = 0; i < extra; ++i, shift -= 6) value |= uint32_t(more[i] & 0x3F) << shift;
    return char16_t(value & 0xFFFF);
}

}  // namespace

void refuseStreamVersion(int version, const char* className, const char* operation) {
    throw Exception(className, operation, u"Unknown serialization version %d\n", version);
}

// ---- compact integer --------------------------------------------------------

int32_t readCompactIntAfterHeader(iByteInputStream& in, uint8_t h) {
    size_t available;
    const uint8_t* p = in.peek(available);
    if (h >= 1 && h <= 3 && available >= 4) {  // the whole value is in the window
        in.skip(h == 3 ? 4 : h);
        if (h == 1) return int8_t(p[0]);
        if (h == 2) return int16_t(tovan::loadLE<uint16_t>(p));
        return int32_t(tovan::loadLE<uint32_t>(p));
    }
    uint8_t b[4];
    switch (h) {
        case 1:
            if (!readAll(in, b, 1)) throw Exception(kClass, "readInt", u"EOF reading int as byte");
            return int8_t(b[0]);
        case 2:
            if (!readAll(in, b, 2)) throw Exception(kClass, "readInt", u"EOF reading int as short");
            return int16_t(tovan::loadLE<uint16_t>(b));
        case 3:
            if (!readAll(in, b, 4)) throw Exception(kClass, "readInt", u"EOF reading int as int");
            return int32_t(tovan::loadLE<uint32_t>(b));
        default:
            return int8_t(h) >> 2;  // arithmetic: 0xFC is -1
    }
}

void compactIntHeaderMissing() { throw Exception(kClass, "readInt", u"EOF reading int header"); }

// ---- boolean ------------------------------------------------------------------

void boolMissing() { throw Exception(kClass, "readBool", u"EOF reading bool"); }

// ---- wide string -----------------------------------------------------------------

namespace {

/// `units` as a stream of `version` carries them, from `to` on; returns where they end.
uint8_t* encodeUnits(uint8_t* to, std::u16string_view units, int version) {
    for (char16_t u : units) {
        if (version == 1) {
            tovan::storeLE(to, uint16_t(u));
            to += 2;
        } else if (u < 0x80) {
            *to++ = uint8_t(u);
        } else {
            // Each unit as its own sequence: a surrogate too, unpaired.
            char* at = reinterpret_cast<char*>(to);
            to += tovan::putUtf8(at, u) - at;
        }
    }
    return to;
}

}  // namespace

int32_t stringLengthHeader(size_t size, bool narrow) {
    // The length plus one must fit the compact integer; wrapped, the record could not be read back.
    if (size >= size_t(INT32_MAX)) {
        if (narrow) throw Exception(kClass, "writeNarrowString", u"String of %d bytes is too long to write", size);
        throw Exception(kClass, "writeWideString", u"String of %d units is too long to write", size);
    }
    return int32_t(size + 1);
}

void writeWideString(iByteOutputStream& out, const WString& s) {
    const int version = out.getVersion();
    checkStreamVersion(version, kClass, "writeWideString");
    writeWideString(out, s, version);
}

void writeWideString(iByteOutputStream& out, const WString& s, int version) {
    if (s.isNull()) {
        writeCompactInt(out, 0);
        return;
    }
    writeCompactInt(out, stringLengthHeader(s.length(), false));
    const std::u16string_view units = s.view();
    const size_t perUnit = version == 1 ? 2 : 3;
    // Straight into the stream's room when the longest form fits there, else staged in a
    // small buffer so that a long text costs few calls.
    if (uint8_t* at = out.roomFor(units.size() * perUnit)) {
        out.advance(size_t(encodeUnits(at, units, version) - at));
        return;
    }
    uint8_t buf[1024];
    const size_t piece = sizeof buf / perUnit;
    for (size_t from = 0; from < units.size(); from += piece)
        out.write(buf, size_t(encodeUnits(buf, units.substr(from, piece), version) - buf));
}

namespace {

/// Units `from` to `to` of a string of `len` units, as the stream's version carries them.
void readUnits(iByteInputStream& in, int version, char16_t* dest, int from, int to, int len) {
    if (version == 1) {
        readUtf16Units(in, dest, from, to, len);
        return;
    }
    // Names and texts are mostly ASCII: a byte each, read inline.
    for (int i = from; i < to; ++i) {
        uint8_t h;
        if (!in.readByte(h))
            throw Exception(kClass, "readWideString", u"EOF reading byte %d in string of length %d", i + 1, len);
        dest[i] = h < 0x80 ? char16_t(h) : readUtf8UnitAfter(in, h);
    }
}

/// The length header: -1 for the null string, else the number of units.
int readWideLength(iByteInputStream& in, int version) {
    checkStreamVersion(version, kClass, "readWideString");
    const int32_t n = readCompactInt(in);
    // n - 1 units of a negative n would be read past any buffer.
    if (n < 0) throw Exception(kClass, "readWideString", u"Invalid string length %d", n);
    return n - 1;
}

/// `len` units into `text`, which grows with the bytes that actually arrive.
void readUnitsGrowing(iByteInputStream& in, int version, int len, std::u16string& text) {
    text.clear();
    for (int done = 0; done < len;) {
        const int chunk = int(std::min<size_t>(size_t(len - done), kHeapStep));
        text.resize(size_t(done + chunk));
        readUnits(in, version, text.data(), done, done + chunk, len);
        done += chunk;
    }
}

}  // namespace

WString readWideString(iByteInputStream& in) {
    const int version = in.getVersion();
    const int len = readWideLength(in, version);
    if (len < 0) return WString();
    if (len == 0) return WString::empty();
    if (len < kFixedStringBuffer) {
        char16_t fixed[kFixedStringBuffer];
        readUnits(in, version, fixed, 0, len, len);
        return WString(fixed, size_t(len));
    }
    std::u16string heap;
    readUnitsGrowing(in, version, len, heap);
    return WString(std::move(heap));
}

bool readWideString(iByteInputStream& in, std::u16string& text) {
    const int version = in.getVersion();
    const int len = readWideLength(in, version);
    if (len < 0) {
        text.clear();
        return false;
    }
    readUnitsGrowing(in, version, len, text);
    return true;
}

namespace {

/// A version-2 name at `p` that lies whole in the `available` bytes and is all ASCII: the
/// size of its header (`head`) and its text; false for anything else (the null name included).
bool asciiNameAt(const uint8_t* p, size_t available, size_t& head, std::string_view& text) {
    if (available == 0) return false;
    int32_t n = -1;  // the length header in its one- or two-byte form (names are short)
    head = 1;
    if (uint8_t(p[0] - 1) >= 3) {
        n = int8_t(p[0]) >> 2;
    } else if (p[0] == 1 && available > 1) {
        n = int8_t(p[1]);
        head = 2;
    }
    if (n <= 0 || head + size_t(n - 1) > available) return false;
    text = std::string_view(reinterpret_cast<const char*>(p + head), size_t(n - 1));
    // Each unit of a version-2 string is its own UTF-8 sequence: a byte below 0x80 is one unit.
    return std::all_of(text.begin(), text.end(), [](char c) { return uint8_t(c) < 0x80; });
}

}  // namespace

SharedName readSharedName(iByteInputStream& in) {
    if (in.getVersion() >= 2) {
        size_t available, head;
        const uint8_t* p = in.peek(available);
        std::string_view text;
        if (asciiNameAt(p, available, head, text)) {
            in.skip(head + text.size());
            return SharedName::cachedAscii(text);
        }
        if (available > 0 && p[0] == 0) {
            in.skip(1);
            return SharedName();
        }
    }
    thread_local std::u16string text;
    return readWideString(in, text) ? SharedName::cached(std::u16string_view(text)) : SharedName();
}


SharedName readSharedName(iByteInputStream& in, RecentName& recent, RecentName* next) {
    return readSharedName(in, recent, next, in.getVersion());
}

SharedName readOtherSharedName(iByteInputStream& in, RecentName& recent, RecentName* next, int streamVersion) {
    // Every version from 2 on carries a name in the same bytes; version 1 in others.
    if (streamVersion < 2) return readSharedName(in);
    size_t available;
    const uint8_t* p = in.peek(available);
    if (recent.startsWith(p, available)) {
        in.skip(recent.length);
        return recent.name.take();
    }
    // A record without one of its kind's optional properties: the names that follow are
    // found one place further on, and `recent` stays for the records that have it.
    if (next && next->startsWith(p, available)) {
        in.skip(next->length);
        return next->name.take();
    }
    size_t head;
    std::string_view text;
    if (!asciiNameAt(p, available, head, text) || head + text.size() > sizeof recent.bytes)
        return readSharedName(in);
    in.skip(head + text.size());
    recent.name.reset(SharedName::cachedAscii(text));
    recent.length = uint8_t(head + text.size());
    std::memcpy(recent.bytes, p, recent.length);
    return recent.name.take();
}

// ---- narrow string ------------------------------------------------------------------

namespace {

void writeNarrowBytes(iByteOutputStream& out, const char* s, size_t size) {
    writeCompactInt(out, stringLengthHeader(size, true));
    if (size) out.write(s, size);
}

}  // namespace

void writeNarrowString(iByteOutputStream& out, const char* s) {
    // Every child's class tag goes through here: written from where it is.
    if (!s) {
        writeCompactInt(out, 0);
        return;
    }
    writeNarrowBytes(out, s, std::strlen(s));
}

void writeNarrowString(iByteOutputStream& out, const std::string& s) { writeNarrowBytes(out, s.data(), s.size()); }

std::string readNarrowString(iByteInputStream& in) {
    std::string s;
    readNarrowString(in, s);
    return s;
}

void readNarrowString(iByteInputStream& in, std::string& s) {
    s.clear();
    int32_t n = readCompactInt(in);
    if (n < 0) throw Exception(kClass, "readNarrowString", u"Invalid string length %d", n);
    if (n <= 1) return;
    const size_t len = size_t(n - 1);
    while (s.size() < len) {
        size_t at = s.size();
        size_t chunk = std::min(len - at, kHeapStep);
        s.resize(at + chunk);
        size_t got = 0;
        while (got < chunk) {
            size_t r = in.read(s.data() + at + got, chunk - got);
            if (r == 0)
                throw Exception(kClass, "readNarrowString", u"EOF reading byte %d in string of length %d",
                                at + got + 1, len);
            got += r;
        }
    }
}

}  // namespace nvk
