#include "tools/nvk/RecordIO.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "nvk/data/NodeStream.h"
#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeTreeText.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/FileStream.h"
#include "nvk/platform/NumberText.h"

namespace nvk {

namespace {

std::string supportedVersions() {
    return tovan::integerText(kMinNodeFileVersion) + " to " + tovan::integerText(kMaxNodeFileVersion);
}

std::string recordCount(uint64_t n) { return tovan::integerText(n) + (n == 1 ? " record" : " records"); }

/// The size of an open regular file, else 0.
uint64_t regularSize(std::FILE* f) {
    struct stat st;
    return fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode) ? uint64_t(st.st_size) : 0;
}

std::FILE* openInput(const std::string& path) {
    if (isStandardStream(path)) return stdin;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        throw tovan::Exception("nvk", "open", u"Cannot open file \"%hs\" for reading: %hs", path,
                               std::strerror(errno));
    return f;
}

}  // namespace

bool isStandardStream(const std::string& path) { return path == "-"; }

std::string displayName(const std::string& path, bool output) {
    if (!isStandardStream(path)) return path;
    return output ? "(standard output)" : "(standard input)";
}

int parseRecordArgs(const Command& self, const std::vector<std::string>& args, int allowed, RecordArgs& out) {
    std::string version;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool known = (a == "--to-json" && (allowed & AllowToJson)) ||
                           ((a == "--to-bin" || a == "--stream-version") && (allowed & AllowToBin));
        if (known) {
            if (i + 1 >= args.size())
                return usageError(self, a + (a == "--stream-version" ? " needs a number" : " needs an output file"));
            const std::string& value = args[++i];
            (a == "--to-json" ? out.toJson : a == "--to-bin" ? out.toBin : version) = value;
        } else if (a == "--quiet") {
            out.quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError(self, "unknown option '" + a + "'");
        } else if (out.input.empty()) {
            out.input = a;
        } else {
            return usageError(self, "only one input file");
        }
    }
    if (out.input.empty()) return usageError(self, "no input file");
    if (isStandardStream(out.toJson) && isStandardStream(out.toBin))
        return usageError(self, "only one output can go to standard output");
    if (!version.empty()) {
        if (out.toBin.empty()) return usageError(self, "--stream-version applies only to --to-bin");
        int v = 0;
        if (!tovan::parseInteger(std::string_view(version), v, tovan::NumberSigns::None) || v < kMinNodeFileVersion ||
            v > kMaxNodeFileVersion)
            return usageError(self, "unsupported stream version '" + version + "' (supported: " +
                                        supportedVersions() + ")");
        out.streamVersion = v;
    }
    return -1;
}

// ---- reading ---------------------------------------------------------------

RecordReader::RecordReader(const std::string& path, Format format) : name_(displayName(path, false)) {
    std::FILE* f = openInput(path);
    const bool owned = f != stdin;
    total_ = regularSize(f);
    std::string head;
    if (format == Format::ByContent) {
        // The start tells a node file from JSON; what was read is handed on,
        // so that a pipe needs no going back.
        head.resize(sizeof kNodeFileMagic);
        head.resize(std::fread(head.data(), 1, head.size(), f));
        format = head == std::string_view(kNodeFileMagic, sizeof kNodeFileMagic) ? Format::Nodes : Format::Json;
    }
    const tovan::WString name = tovan::toWide(name_);
    if (format == Format::Nodes) {
        nodes_ = std::make_unique<NodeFileReader>(
            std::make_unique<tovan::FileInputStream>(f, name, head, tovan::DefaultStreamVersion, owned));
        return;
    }
    text_ = std::make_unique<tovan::vcFileInterface>();
    try {
        text_->openStream(f, tovan::FileMode::Read, name, std::move(head), owned);
    } catch (...) {
        if (owned && !text_->isOpen()) std::fclose(f);
        throw;
    }
    json_ = std::make_unique<CJsonReader>(text_.get());
    json_->ResetStream();
}

RecordReader::~RecordReader() = default;

tovan::Ptr<tovan::iNode> RecordReader::next() {
    if (nodes_) return nodes_->next();
    // The reader makes one root node of each top-level object.
    tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
    while (json_->ReadNextObject(nodes))
        if (!nodes.isEmpty()) return std::move(nodes[0]);
    return nullptr;
}

std::string RecordReader::where() const {
    if (nodes_) return name_ + ": byte " + tovan::integerText(nodes_->offset());
    const cajun::json::Location at = json_->GetErrorLocation();
    return name_ + ":" + tovan::integerText(cajun::json::countFromOne(at.line)) + ":" +
           tovan::integerText(cajun::json::countFromOne(at.column));
}

uint64_t RecordReader::bytesRead() const { return nodes_ ? nodes_->offset() : text_->bytesFetched(); }

bool forEachRecord(const Command& self, RecordReader& in, bool quiet, bool usesStdout,
                   const std::function<void(tovan::iNode&)>& use) {
    Progress progress(Progress::wanted(quiet, usesStdout), in.totalBytes());
    uint64_t records = 0;
    for (;;) {
        tovan::Ptr<tovan::iNode> node;
        try {
            node = in.next();
        } catch (const tovan::Exception& e) {
            progress.finish();
            std::cout.flush();
            std::cerr << "nvk " << self.name << ": " << in.where() << ": " << e.what() << "\n";
            return false;
        }
        if (!node) break;
        use(*node);
        progress.update(in.bytesRead(), ++records);
    }
    progress.finish();
    return true;
}

// ---- writing ---------------------------------------------------------------

OutputFile::OutputFile(const std::string& path) : path_(path), target_(path) {
    if (isStandardStream(path)) {
        stream_ = stdout;
        return;
    }
    struct stat st;
    const bool exists = ::stat(path.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) {
        stream_ = std::fopen(path.c_str(), "wb");
    } else {
        // Through a symbolic link the file it names is replaced, not the link.
        if (exists) {
            if (char* real = realpath(path.c_str(), nullptr)) {
                target_ = real;
                std::free(real);
            }
        }
        std::string temp = target_ + ".nvk-XXXXXX";
        const int fd = mkstemp(temp.data());
        if (fd >= 0) {
            // A new file gets the mode that creating it directly would give;
            // a replaced one keeps its own.
            mode_t mode = st.st_mode & 07777;
            if (!exists) {
                const mode_t mask = umask(0);
                umask(mask);
                mode = 0666 & ~mask;
            }
            fchmod(fd, mode);
            stream_ = fdopen(fd, "wb");
            if (stream_) temp_ = temp;
            else {
                const int error = errno;
                ::close(fd);
                std::remove(temp.c_str());
                errno = error;
            }
        }
    }
    if (!stream_)
        throw tovan::Exception("nvk", "open", u"Cannot open file \"%hs\" for writing: %hs", path,
                               std::strerror(errno));
}

OutputFile::~OutputFile() {
    if (!temp_.empty() && !committed_) std::remove(temp_.c_str());
}

void OutputFile::commit() {
    committed_ = true;
    if (!temp_.empty() && std::rename(temp_.c_str(), target_.c_str()) != 0) {
        const int error = errno;
        std::remove(temp_.c_str());
        throw tovan::Exception("nvk", "commit", u"Cannot write file \"%hs\": %hs", path_, std::strerror(error));
    }
}

RecordSink::~RecordSink() = default;

namespace {

/// "record N" lines, each followed by the record's tree.
class TreePrinter : public RecordSink {
public:
    void put(const tovan::iNode& node) override {
        std::cout << "record " << ++records_ << "\n" << DescribeNodeTree(node, 1);
    }
    void finish() override { std::cout.flush(); }

private:
    uint64_t records_ = 0;
};

/// "wrote N records to OUT", unless OUT is standard output, where it would
/// be mixed into the records.
void reportWritten(const OutputFile& target, uint64_t records, const std::string& extra) {
    if (!isStandardStream(target.path()))
        std::cout << "wrote " << recordCount(records) << " to " << target.path() << extra << "\n";
}

/// One JSON array of objects, one record a line.
class JsonRecordWriter : public RecordSink {
public:
    explicit JsonRecordWriter(const std::string& path) : target_(path) {
        file_.openStream(target_.stream(), tovan::FileMode::Write, target_.name(), {}, target_.ownsStream());
        writer_ = JsonUtilities::CreateJsonWriter(&file_);
        writer_->array();
    }
    ~JsonRecordWriter() override { JsonUtilities::DestroyJsonWriter(writer_); }

    void put(const tovan::iNode& node) override {
        JsonUtilities::AppendElementToArray(*writer_, &node, true, true, false);
        ++records_;
    }
    void finish() override {
        writer_->endArray();
        JsonUtilities::DestroyJsonWriter(writer_);
        file_.writeChar(u'\n');
        file_.close();
        target_.commit();
        reportWritten(target_, records_, "");
    }

private:
    OutputFile target_;
    tovan::vcFileInterface file_;
    CJsonWriter* writer_ = nullptr;
    uint64_t records_ = 0;
};

/// A node file.
class NodeRecordWriter : public RecordSink {
public:
    NodeRecordWriter(const std::string& path, int version)
        : target_(path),
          version_(version),
          out_(std::make_unique<tovan::FileOutputStream>(target_.stream(), target_.name(), version,
                                                         target_.ownsStream())) {}

    void put(const tovan::iNode& node) override { out_.write(node); }
    void finish() override {
        out_.finish();
        target_.commit();
        reportWritten(target_, out_.records(), " (stream version " + tovan::integerText(version_) + ")");
    }

private:
    OutputFile target_;
    int version_;
    NodeFileWriter out_;
};

}  // namespace

std::vector<std::unique_ptr<RecordSink>> makeSinks(const RecordArgs& args) {
    std::vector<std::unique_ptr<RecordSink>> sinks;
    if (args.toJson.empty() && args.toBin.empty()) sinks.push_back(std::make_unique<TreePrinter>());
    if (!args.toJson.empty()) sinks.push_back(std::make_unique<JsonRecordWriter>(args.toJson));
    if (!args.toBin.empty())
        sinks.push_back(std::make_unique<NodeRecordWriter>(
            args.toBin, args.streamVersion ? args.streamVersion : tovan::DefaultStreamVersion));
    return sinks;
}

int convertRecords(const Command& self, const RecordArgs& args, RecordReader::Format format) {
    RecordReader in(args.input, format);
    std::vector<std::unique_ptr<RecordSink>> sinks = makeSinks(args);
    const bool printed = args.toJson.empty() && args.toBin.empty();
    const bool usesStdout = printed || isStandardStream(args.toJson) || isStandardStream(args.toBin);
    const bool read = forEachRecord(self, in, args.quiet, usesStdout, [&](tovan::iNode& node) {
        for (auto& sink : sinks) sink->put(node);
    });
    if (!read) return ExitBadInput;
    for (auto& sink : sinks) sink->finish();
    return ExitOk;
}

}  // namespace nvk
