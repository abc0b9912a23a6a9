#pragma once
// Byte streams: the sink and source of every object's byte form.
//
// A stream carries one number that is not part of the bytes: its serialization
// version, chosen by whoever created the stream. Writers and readers of a
// record consult it to pick the form of the record (string encodings, value
// layouts), so both ends of a transfer must agree on it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "nvk/platform/Export.h"

namespace tovan {

class NVK_EXPORT iByteOutputStream {
public:
    virtual ~iByteOutputStream();
    /// Appends `count` bytes; raises the framework Exception when they cannot be stored.
    /// Bytes that fit the room the sink lent the stream are copied there without a virtual
    /// call, which is what keeps the record writers' many small writes cheap.
    void write(const void* data, size_t count) {
        if (count <= size_t(roomEnd_ - next_)) {
            if (count) std::memcpy(next_, data, count);
            next_ += count;
            return;
        }
        writeSome(data, count);
    }
    virtual int getVersion() const = 0;

    /// Where `count` bytes can be written straight into the room, or null when less is left
    /// there; `advance` then takes those of them that were written.
    uint8_t* roomFor(size_t count) const { return count <= size_t(roomEnd_ - next_) ? next_ : nullptr; }
    void advance(size_t count) { next_ += count; }

protected:
    iByteOutputStream() = default;
    iByteOutputStream(const iByteOutputStream&) = delete;
    iByteOutputStream& operator=(const iByteOutputStream&) = delete;

    /// Takes bytes that do not fit what is left of the room (all `count` of them: none were
    /// copied); the bytes written into the room so far end at `roomNext()`. The sink stores
    /// them, or raises, and may lend a new room.
    virtual void writeSome(const void* data, size_t count) = 0;
    /// Lends the stream memory to write into until it is full; the sink keeps it alive and
    /// reads the bytes from `begin` up to `roomNext()`.
    void setRoom(uint8_t* begin, uint8_t* end) {
        next_ = begin;
        roomEnd_ = end;
    }
    uint8_t* roomNext() const { return next_; }

private:
    uint8_t* next_ = nullptr;
    uint8_t* roomEnd_ = nullptr;
};

class NVK_EXPORT iByteInputStream {
public:
    virtual ~iByteInputStream();
    /// Reads up to `count` bytes and returns how many it got; fewer than asked
    /// means the stream has ended. Bytes already in the source's window are
    /// copied here without a virtual call, which is what keeps the record
    /// readers' many small reads (a byte, a compact integer) cheap.
    size_t read(void* data, size_t count) {
        if (count <= size_t(windowEnd_ - next_)) {
            if (count) std::memcpy(data, next_, count);
            next_ += count;
            return count;
        }
        return readPastWindow(data, count);
    }
    /// One byte, or false at the end of the stream.
    bool readByte(uint8_t& byte) {
        if (next_ != windowEnd_) {
            byte = *next_++;
            return true;
        }
        return readPastWindow(&byte, 1) == 1;
    }
    virtual int getVersion() const = 0;

    /// The bytes already in the window, for readers that look before they take (and then
    /// `skip` what they used): `available` of them, possibly none. Nothing is read from
    /// the source.
    const uint8_t* peek(size_t& available) const {
        available = size_t(windowEnd_ - next_);
        return next_;
    }
    /// Takes `count` bytes of those `peek` showed.
    void skip(size_t count) { next_ += count; }

    /// Reads exactly `count` bytes. A short read raises Exception(className,
    /// "read", "Unexpected end of stream: needed %d bytes, got %d"); the bytes
    /// that did arrive are consumed.
    void readExactly(void* data, size_t count, const char* className = "iByteInputStream");

protected:
    /// Delivers bytes from the source itself; called only once the window is
    /// empty. Returns fewer than `count` only at the end, or when the source
    /// gives less per call (readExactly asks again until it gets nothing).
    virtual size_t readSome(void* data, size_t count) = 0;
    /// Lends the stream a block of bytes to serve reads from until it is used
    /// up; the source keeps the block alive and unchanged meanwhile.
    void setWindow(const uint8_t* begin, const uint8_t* end) {
        next_ = begin;
        windowEnd_ = end;
    }
    size_t windowRemaining() const { return size_t(windowEnd_ - next_); }
    const uint8_t* windowNext() const { return next_; }

private:
    size_t readPastWindow(void* data, size_t count);

    const uint8_t* next_ = nullptr;
    const uint8_t* windowEnd_ = nullptr;
};

/// The version a stream gets when its creator does not choose one.
inline constexpr int DefaultStreamVersion = 2;

/// Collects what is written in memory. The vector's elements past the content are the
/// stream's room; `bytes()` trims them off first.
class NVK_EXPORT MemoryOutputStream : public iByteOutputStream {
public:
    explicit MemoryOutputStream(int version = DefaultStreamVersion) : version_(version) {}
    int getVersion() const override { return version_; }

    /// The content. Not to be called from two threads at once: it trims the room.
    const std::vector<uint8_t>& bytes() const;
    size_t size() const { return roomNext() ? size_t(roomNext() - bytes_.data()) : 0; }
    /// Hands the bytes over and leaves the stream empty.
    std::vector<uint8_t> takeBytes();
    /// Empties the stream; the memory stays, as room for what is written next.
    void clear();

protected:
    void writeSome(const void* data, size_t count) override;

private:
    mutable std::vector<uint8_t> bytes_;
    int version_;
};

/// Reads bytes it does not own: the caller keeps them alive and unchanged
/// while the stream is read. Every read is served from the window.
class NVK_EXPORT MemoryViewInputStream : public iByteInputStream {
public:
    MemoryViewInputStream(const void* data, size_t count, int version = DefaultStreamVersion);
    MemoryViewInputStream(const MemoryViewInputStream&) = delete;
    MemoryViewInputStream& operator=(const MemoryViewInputStream&) = delete;
    int getVersion() const override { return version_; }

    size_t position() const { return size_t(windowNext() - begin_); }
    size_t remaining() const { return windowRemaining(); }

protected:
    size_t readSome(void*, size_t) override { return 0; }
    void view(const uint8_t* data, size_t count);

private:
    const uint8_t* begin_ = nullptr;
    int version_;
};

/// Reads a byte buffer it owns (a copy of what it was given, or the vector
/// handed over).
class NVK_EXPORT MemoryInputStream : public MemoryViewInputStream {
public:
    explicit MemoryInputStream(std::vector<uint8_t> bytes, int version = DefaultStreamVersion);
    MemoryInputStream(const void* data, size_t count, int version = DefaultStreamVersion);

private:
    std::vector<uint8_t> bytes_;
};

// ---- little-endian fixed-width fields ------------------------------------
// The readers raise the readExactly exception (with `className` as context)
// when the stream ends inside the field.

NVK_EXPORT void writeUInt8(iByteOutputStream& out, uint8_t v);
NVK_EXPORT void writeInt16LE(iByteOutputStream& out, int16_t v);
NVK_EXPORT void writeInt32LE(iByteOutputStream& out, int32_t v);
NVK_EXPORT void writeUInt32LE(iByteOutputStream& out, uint32_t v);
NVK_EXPORT void writeInt64LE(iByteOutputStream& out, int64_t v);
NVK_EXPORT void writeUInt64LE(iByteOutputStream& out, uint64_t v);
/// The IEEE 754 bit pattern, little-endian (NaN payloads kept).
NVK_EXPORT void writeDoubleLE(iByteOutputStream& out, double v);

NVK_EXPORT uint8_t readUInt8(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT int16_t readInt16LE(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT int32_t readInt32LE(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT uint32_t readUInt32LE(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT int64_t readInt64LE(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT uint64_t readUInt64LE(iByteInputStream& in, const char* className = "iByteInputStream");
NVK_EXPORT double readDoubleLE(iByteInputStream& in, const char* className = "iByteInputStream");

}  // namespace tovan
