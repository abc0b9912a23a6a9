#pragma once
// Byte streams over files, buffered 64 KiB.
//
// Failures raise Exception (class "FileOutputStream" / "FileInputStream")
// naming the file: "Cannot open file \"%ls\" for writing: %hs" (or reading),
// "Error writing file \"%ls\": %hs", "Error reading file \"%ls\": %hs",
// "Error closing file \"%ls\": %hs", and "File \"%ls\" is not open" for use
// after close.
//
// Both also run over a stream that is already open (standard input or output,
// a pipe): they never seek, so a stream that cannot seek reads and writes
// exactly as a file does, and a pipe that ends inside a record is reported
// as a file cut there.
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

/// Writes a file (created, or emptied when it exists; or appended to). Bytes
/// reach the file when the buffer fills, on flush(), close() or destruction;
/// the destructor can only warn about a failure, so call close() to see it.
class NVK_EXPORT FileOutputStream : public iByteOutputStream {
public:
    explicit FileOutputStream(const WString& path, int version = DefaultStreamVersion, bool append = false);
    /// Writes to `stream`, open already; `name` stands for the file in
    /// messages. With `owned`, close() closes the stream, else it only
    /// flushes it (standard output stays usable).
    FileOutputStream(std::FILE* stream, const WString& name, int version = DefaultStreamVersion, bool owned = false);
    ~FileOutputStream() override;
    FileOutputStream(const FileOutputStream&) = delete;
    FileOutputStream& operator=(const FileOutputStream&) = delete;

    int getVersion() const override { return version_; }
    void flush();
    /// Flushes and closes; closing twice does nothing.
    void close();

    const WString& getPath() const { return path_; }
    bool isOpen() const { return file_ != nullptr; }
    /// Bytes written through this stream, buffered ones included.
    uint64_t size() const { return written_ + pending(); }

protected:
    void writeSome(const void* data, size_t count) override;

private:
    /// Bytes in the buffer, not yet handed to the file.
    size_t pending() const { return file_ ? size_t(roomNext() - buffer_.data()) : 0; }
    void writeBuffer();

    WString path_;
    std::FILE* file_ = nullptr;
    std::vector<uint8_t> buffer_;  // the stream's room
    uint64_t written_ = 0;         // handed to the file
    int version_;
    bool owned_ = true;
};

/// Reads a file from its start. read() returns fewer bytes than asked only at
/// the end of the file (partial reads of the system are completed), so
/// readExactly reports a record cut short by the end of the file.
class NVK_EXPORT FileInputStream : public iByteInputStream {
public:
    explicit FileInputStream(const WString& path, int version = DefaultStreamVersion);
    /// Reads `stream`, open already; `name` stands for the file in messages.
    /// `head` holds bytes the caller took from the stream before (to tell
    /// what it holds, say): they are read first and counted in position().
    /// With `owned`, close() closes the stream.
    FileInputStream(std::FILE* stream, const WString& name, std::string_view head = {},
                    int version = DefaultStreamVersion, bool owned = false);
    ~FileInputStream() override;
    FileInputStream(const FileInputStream&) = delete;
    FileInputStream& operator=(const FileInputStream&) = delete;

    int getVersion() const override { return version_; }
    /// For a reader that learns the version from the stream's first bytes
    /// (a node file's header): what follows is read in `version`.
    void setVersion(int version) { version_ = version; }
    void close();

    const WString& getPath() const { return path_; }
    bool isOpen() const { return file_ != nullptr; }
    /// Bytes consumed so far.
    uint64_t position() const { return fetched_ - windowRemaining(); }

protected:
    /// Refills the buffer, which then serves reads as the stream's window; a
    /// request of a whole buffer or more goes to the file directly.
    size_t readSome(void* data, size_t count) override;

private:
    bool refill();

    WString path_;
    std::FILE* file_ = nullptr;
    std::vector<uint8_t> buffer_;
    bool atEnd_ = false;
    uint64_t fetched_ = 0;  // bytes taken from the file, into the buffer or directly
    int version_;
    bool owned_ = true;
};

}  // namespace tovan
