#include "nvk/platform/ByteStream.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/Exception.h"

namespace tovan {

iByteOutputStream::~iByteOutputStream() = default;
iByteInputStream::~iByteInputStream() = default;

void iByteInputStream::readExactly(void* data, size_t count, const char* className) {
    size_t got = 0;
    auto* p = static_cast<uint8_t*>(data);
    // A source may deliver less than asked before its end (a pipe, a socket);
    // only a read that returns nothing means the end.
    while (got < count) {
        size_t n = read(p + got, count - got);
        if (n == 0) break;
        got += n;
    }
    if (got < count)
        throw Exception(className, "read", u"Unexpected end of stream: needed %d bytes, got %d", count, got);
}

const std::vector<uint8_t>& MemoryOutputStream::bytes() const {
    const size_t used = size();
    if (bytes_.size() != used) {
        // Logically const: the room is not content. Shrinking keeps the memory, and the next
        // write lends it out again.
        bytes_.resize(used);
        auto* self = const_cast<MemoryOutputStream*>(this);
        self->setRoom(bytes_.data() + used, bytes_.data() + used);
    }
    return bytes_;
}

std::vector<uint8_t> MemoryOutputStream::takeBytes() {
    bytes();
    std::vector<uint8_t> taken = std::move(bytes_);
    bytes_.clear();
    setRoom(nullptr, nullptr);
    return taken;
}

void MemoryOutputStream::clear() {
    // The old content becomes room again, without clearing it first.
    setRoom(bytes_.data(), bytes_.data() + bytes_.size());
}

void MemoryOutputStream::writeSome(const void* data, size_t count) {
    // Room is lent a step at a time, so that a caller alternating small writes with bytes()
    // pays for filling a step, not the whole capacity, each time.
    constexpr size_t kRoomStep = 4096;
    const size_t used = size();
    const size_t want = used + count;
    if (want > bytes_.capacity()) bytes_.reserve(std::max(want, 2 * bytes_.capacity()));
    bytes_.resize(std::min(bytes_.capacity(), std::max(want, used + kRoomStep)));
    uint8_t* at = bytes_.data() + used;
    std::memcpy(at, data, count);
    setRoom(at + count, bytes_.data() + bytes_.size());
}

size_t iByteInputStream::readPastWindow(void* data, size_t count) {
    auto* p = static_cast<uint8_t*>(data);
    const size_t held = windowRemaining();
    if (held) std::memcpy(p, next_, held);
    next_ = windowEnd_;
    return held + readSome(p + held, count - held);
}

MemoryViewInputStream::MemoryViewInputStream(const void* data, size_t count, int version) : version_(version) {
    view(static_cast<const uint8_t*>(data), count);
}

void MemoryViewInputStream::view(const uint8_t* data, size_t count) {
    begin_ = data;
    setWindow(data, data + count);
}

MemoryInputStream::MemoryInputStream(std::vector<uint8_t> bytes, int version)
    : MemoryViewInputStream(nullptr, 0, version), bytes_(std::move(bytes)) {
    view(bytes_.data(), bytes_.size());
}

MemoryInputStream::MemoryInputStream(const void* data, size_t count, int version)
    : MemoryViewInputStream(nullptr, 0, version),
      bytes_(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + count) {
    view(bytes_.data(), bytes_.size());
}

namespace {

template <class U>
void putLE(iByteOutputStream& out, U v) {
    uint8_t b[sizeof(U)];
    storeLE(b, v);
    out.write(b, sizeof(U));
}

template <class U>
U getLE(iByteInputStream& in, const char* className) {
    uint8_t b[sizeof(U)];
    in.readExactly(b, sizeof(U), className);
    return loadLE<U>(b);
}

}  // namespace

void writeUInt8(iByteOutputStream& out, uint8_t v) { out.write(&v, 1); }
void writeInt16LE(iByteOutputStream& out, int16_t v) { putLE(out, uint16_t(v)); }
void writeInt32LE(iByteOutputStream& out, int32_t v) { putLE(out, uint32_t(v)); }
void writeUInt32LE(iByteOutputStream& out, uint32_t v) { putLE(out, v); }
void writeInt64LE(iByteOutputStream& out, int64_t v) { putLE(out, uint64_t(v)); }
void writeUInt64LE(iByteOutputStream& out, uint64_t v) { putLE(out, v); }
void writeDoubleLE(iByteOutputStream& out, double v) { putLE(out, std::bit_cast<uint64_t>(v)); }

uint8_t readUInt8(iByteInputStream& in, const char* className) { return getLE<uint8_t>(in, className); }
int16_t readInt16LE(iByteInputStream& in, const char* className) { return int16_t(getLE<uint16_t>(in, className)); }
int32_t readInt32LE(iByteInputStream& in, const char* className) { return int32_t(getLE<uint32_t>(in, className)); }
uint32_t readUInt32LE(iByteInputStream& in, const char* className) { return getLE<uint32_t>(in, className); }
int64_t readInt64LE(iByteInputStream& in, const char* className) { return int64_t(getLE<uint64_t>(in, className)); }
uint64_t readUInt64LE(iByteInputStream& in, const char* className) { return getLE<uint64_t>(in, className); }
double readDoubleLE(iByteInputStream& in, const char* className) {
    return std::bit_cast<double>(getLE<uint64_t>(in, className));
}

}  // namespace tovan
