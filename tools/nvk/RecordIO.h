#pragma once
// What `nvk json`, `nvk bin` and `nvk query` share: their arguments, reading
// records from a JSON file or a node file one at a time, printing them and
// writing them out as they come.
//
// A record is one top-level data node. The JSON reader turns each top-level
// object into exactly one root node (nested objects become its children), so
// a JSON file's records and the node file written from it correspond one to
// one: record N of `nvk json F` is record N of `nvk bin F.bin`, and both
// commands print and write them the same way.
//
// Records pass one at a time: each is read, printed or written, and released
// before the next is read, so the tool needs the memory of the largest record
// whatever the size of the file. "-" names standard input or output; nothing
// seeks, so either may be a pipe.
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nvk/platform/String.h"
#include "nvk/platform/iNode.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/Progress.h"

namespace tovan {
class vcFileInterface;
}

namespace nvk {

class CJsonReader;
class NodeFileReader;

/// "-": standard input or output.
bool isStandardStream(const std::string& path);
/// The name that stands for `path` in messages: "(standard input)" or
/// "(standard output)" for "-", else the path.
std::string displayName(const std::string& path, bool output);

struct RecordArgs {
    std::string input;
    std::string toJson;  // empty: not asked for
    std::string toBin;
    int streamVersion = 0;  // 0: not given (the default stream version is written)
    bool quiet = false;
};

/// The options a command accepts, beside its one input file (and --quiet).
enum RecordOptions { AllowToJson = 1, AllowToBin = 2 };

/// Parses FILE and the allowed options (--to-json OUT; --to-bin OUT with
/// --stream-version N; --quiet). Bad usage is reported through usageError;
/// the return value is then its exit status, else -1.
int parseRecordArgs(const Command& self, const std::vector<std::string>& args, int allowed, RecordArgs& out);

/// The records of one file, in turn.
class RecordReader {
public:
    enum class Format { Json, Nodes, ByContent };

    /// Opens `path` ("-": standard input). ByContent reads a node file when
    /// the first bytes are a node file's start, else JSON. A file that
    /// cannot be opened raises "Cannot open file \"PATH\" for reading: REASON".
    RecordReader(const std::string& path, Format format);
    ~RecordReader();
    RecordReader(const RecordReader&) = delete;
    RecordReader& operator=(const RecordReader&) = delete;

    /// The next record, or null after the last. A record that cannot be read
    /// raises the reader's exception; where() then says where it stopped.
    tovan::Ptr<tovan::iNode> next();
    /// For JSON "NAME:LINE:COLUMN" (counted from 1), for a node file
    /// "NAME: byte OFFSET" (bytes consumed when reading stopped).
    std::string where() const;
    /// Bytes taken from the input so far.
    uint64_t bytesRead() const;
    /// The input's size when it is a regular file, else 0.
    uint64_t totalBytes() const { return total_; }

private:
    std::string name_;
    uint64_t total_ = 0;
    std::unique_ptr<tovan::vcFileInterface> text_;  // JSON
    std::unique_ptr<CJsonReader> json_;
    std::unique_ptr<NodeFileReader> nodes_;  // a node file
};

/// Hands every record of `in` to `use` and releases it, with a progress bar
/// when Progress::wanted(quiet, usesStdout). A record that cannot be read is
/// reported as "nvk NAME: WHERE: MESSAGE"; false then.
bool forEachRecord(const Command& self, RecordReader& in, bool quiet, bool usesStdout,
                   const std::function<void(tovan::iNode&)>& use);

/// Where a command's output goes: standard output for "-"; else the file,
/// which is written under a temporary name beside it and takes its place
/// only on commit(), so that a conversion that fails halfway leaves an
/// existing file as it was and creates none. A target that exists and is
/// no regular file (a device, a named pipe) is written directly; through a
/// symbolic link, the file it names is replaced.
class OutputFile {
public:
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The open stream; whoever writes it takes it over (ownsStream()).
    std::FILE* stream() const { return stream_; }
    /// Whether the writer must close the stream (not standard output).
    bool ownsStream() const { return !isStandardStream(path_); }
    const std::string& path() const { return path_; }
    tovan::WString name() const { return tovan::toWide(displayName(path_, true)); }
    /// Puts the written file in place; the stream must be closed already.
    void commit();

private:
    std::string path_;
    std::string target_;  // the file replaced: `path_`, or the file a link there names
    std::string temp_;    // empty when written directly
    std::FILE* stream_ = nullptr;
    bool committed_ = false;
};

/// Where records go: printed, or written as JSON or as a node file.
class RecordSink {
public:
    virtual ~RecordSink();
    virtual void put(const tovan::iNode& node) = 0;
    /// Ends the output after the last record.
    virtual void finish() = 0;
};

/// The sinks that `args` asks for: the printed trees when no output is
/// given, else one per output.
std::vector<std::unique_ptr<RecordSink>> makeSinks(const RecordArgs& args);

/// Reads the input of `args` in `format` into the sinks it asks for.
int convertRecords(const Command& self, const RecordArgs& args, RecordReader::Format format);

}  // namespace nvk
