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
    virtual void write(const void* data, size_t count) = 0;
    virtual int getVersion() const = 0;
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

/// Collects what is written in memory.
class NVK_EXPORT MemoryOutputStream : public iByteOutputStream {
public:
    explicit MemoryOutputStream(int version = DefaultStreamVersion) : version_(version) {}
    void write(const void* data, size_t count) override;
    int getVersion() const override { return version_; }

    const std::vector<uint8_t>& bytes() const { return bytes_; }
    size_t size() const { return bytes_.size(); }
    /// Hands the bytes over and leaves the stream empty.
    std::vector<uint8_t> takeBytes() { return std::move(bytes_); }
    void clear() { bytes_.clear(); }

private:
    std::vector<uint8_t> bytes_;
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
