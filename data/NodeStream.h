#pragma once
// Whole data records on a byte stream, for callers that move trees between
// processes or files (the nvk tool's binary form among them).
//
// A top-level record is the node's class tag as a narrow string followed by
// the node's own record (`serialize`: for a CBaseNode the 9095 header and the
// node record), exactly as a child is written inside its parent. Carrying
// the tag lets a stream hold any node class (CObjectTransportNode too), and a
// stream is simply records back to back: nothing before the first one,
// nothing after the last. The stream's version (1, 2 or 3) is not in the
// bytes; both ends must agree on it.
//
// A node file adds what a bare stream lacks: the bytes "nvkb", the stream
// version as a compact integer, then the records, then an end mark (the byte
// 0: a null class tag, which no record starts with). Use it for files that a
// reader must open without being told the version; the end mark tells a file
// cut between two records from a whole one.
//
//   tovan::MemoryOutputStream out(2);
//   nvk::writeRecord(out, *root);
//   tovan::MemoryInputStream in(out.takeBytes(), 2);
//   while (tovan::Ptr<tovan::iNode> n = nvk::readRecord(in)) use(*n);
#include <cstdint>
#include <memory>
#include <vector>

#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/FileStream.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iNode.h"

namespace nvk {

NVK_EXPORT void writeRecord(tovan::iByteOutputStream& out, const tovan::iNode& node);
NVK_EXPORT void writeRecords(tovan::iByteOutputStream& out, const std::vector<tovan::Ptr<tovan::iNode>>& nodes);

/// The next record as a new node (one reference for the caller), or null when
/// the stream ends cleanly before a record. A record cut short, a class tag
/// that is not a node class, or bad record bytes raise the framework's
/// Exception with the record's message.
NVK_EXPORT tovan::Ptr<tovan::iNode> readRecord(tovan::iByteInputStream& in);
/// Every record up to the end of the stream.
NVK_EXPORT std::vector<tovan::Ptr<tovan::iNode>> readRecords(tovan::iByteInputStream& in);

/// The four bytes a node file starts with.
inline constexpr char kNodeFileMagic[4] = {'n', 'v', 'k', 'b'};

/// The stream versions a node file may carry.
inline constexpr int kMinNodeFileVersion = 1;
inline constexpr int kMaxNodeFileVersion = 3;

/// Writes a node file with the given stream version (1, 2 or 3).
NVK_EXPORT void writeNodeFile(const tovan::WString& path, const std::vector<tovan::Ptr<tovan::iNode>>& nodes,
                              int streamVersion);
/// Reads a node file. A file without the "nvkb" start raises Exception
/// ("NodeStream", "readNodeFile") "File \"%ls\" is not a node file"; its
/// version when it is not 1 to 3: "Unsupported stream version %d in \"%ls\"".
/// A file that ends without its end mark: "File \"%ls\" is cut short: it ends
/// without its end mark"; one with bytes after it: "File \"%ls\" goes on
/// after its end mark". `streamVersion`, when given, receives the file's
/// version.
NVK_EXPORT std::vector<tovan::Ptr<tovan::iNode>> readNodeFile(const tovan::WString& path, int* streamVersion = nullptr);

/// Reads a node file one record at a time: only the record in hand is held,
/// so a file of any size is read in the memory of its largest record
/// (readNodeFile reads it whole through this class). It also says where
/// reading stopped.
///
///   NodeFileReader file(path);            // opens it; a missing file raises here
///   while (tovan::Ptr<tovan::iNode> n = file.next()) use(*n);
///   // on an exception: file.offset() is the byte where reading stopped
///
/// Over a stream that cannot seek (standard input, a pipe) it reads the same
/// way; a pipe that stops inside a record or before the end mark raises what
/// a file cut there raises:
///   NodeFileReader in(std::make_unique<tovan::FileInputStream>(stdin, u"(standard input)"));
class NVK_EXPORT NodeFileReader {
public:
    explicit NodeFileReader(const tovan::WString& path);
    /// Reads `file` from where it stands; the file's name in messages is its getPath().
    explicit NodeFileReader(std::unique_ptr<tovan::FileInputStream> file);
    ~NodeFileReader();
    NodeFileReader(const NodeFileReader&) = delete;
    NodeFileReader& operator=(const NodeFileReader&) = delete;

    /// Checks the start of the file once and returns its stream version; the
    /// failures are readNodeFile's.
    int readHeader();
    /// The next record (the header is checked first when it was not yet), or
    /// null at the end mark (and from then on). A file that stops before the
    /// end mark, even between two records, raises readNodeFile's exception.
    tovan::Ptr<tovan::iNode> next();
    /// Bytes consumed from the start of the file, the header included.
    uint64_t offset() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// Writes a node file one record at a time, the counterpart of NodeFileReader:
/// each record goes out as it is given and can be released at once
/// (writeNodeFile writes a whole list through this class).
///
///   NodeFileWriter out(u"records.nvkb", 2);  // the start, "nvkb" and the version
///   while (...) out.write(*record);          // each record as it comes
///   out.finish();                            // the end mark; closes the file
///
/// A writer destroyed without finish() leaves the file without its end mark,
/// which readers report as cut short. Failures are the stream's (see
/// FileStream.h); an unsupported version raises BadParameterException
/// ("NodeStream", "writeNodeFile") "Unsupported stream version %d".
class NVK_EXPORT NodeFileWriter {
public:
    NodeFileWriter(const tovan::WString& path, int streamVersion);
    /// Writes to `file` (standard output, a pipe); the stream's version is
    /// the file's version.
    explicit NodeFileWriter(std::unique_ptr<tovan::FileOutputStream> file);
    ~NodeFileWriter();
    NodeFileWriter(const NodeFileWriter&) = delete;
    NodeFileWriter& operator=(const NodeFileWriter&) = delete;

    void write(const tovan::iNode& node);
    /// Writes the end mark and closes the file; later calls do nothing.
    void finish();
    /// Records written so far.
    uint64_t records() const { return records_; }

private:
    std::unique_ptr<tovan::FileOutputStream> out_;
    uint64_t records_ = 0;
    bool finished_ = false;
};

}  // namespace nvk
