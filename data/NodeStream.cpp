#include "nvk/data/NodeStream.h"

#include <algorithm>
#include <cstring>

#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileStream.h"

namespace nvk {

using tovan::iByteInputStream;
using tovan::iByteOutputStream;
using tovan::iNode;
using tovan::Ptr;

void writeRecord(iByteOutputStream& out, const iNode& node) {
    writeNarrowString(out, node.getClassTag());
    node.serialize(out);
}

void writeRecords(iByteOutputStream& out, const std::vector<Ptr<iNode>>& nodes) {
    for (const Ptr<iNode>& n : nodes) writeRecord(out, *n);
}

namespace {

/// A record whose class tag's first byte was read already; the rest mirrors
/// readNarrowString.
Ptr<iNode> recordAfterHeader(iByteInputStream& in, uint8_t header) {
    const int32_t n = readCompactIntAfterHeader(in, header);
    if (n < 0) throw tovan::Exception("NodeStream", "readRecord", u"Invalid string length %d", n);
    // The length comes from the stream: the tag grows with the bytes that
    // really arrive, so a corrupt length costs no more memory than they do.
    constexpr size_t kStep = 4096;
    const size_t length = n > 1 ? size_t(n - 1) : 0;
    std::string tag;
    while (tag.size() < length) {
        const size_t at = tag.size(), step = std::min(length - at, kStep);
        tag.resize(at + step);
        in.readExactly(tag.data() + at, step, "NodeStream");
    }
    Ptr<iNode> node = tovan::ObjectFactory::createAs<iNode>(tag);
    node->deserialize(in);
    return node;
}

/// What ends a node file: a null class tag, which no record starts with.
constexpr uint8_t kEndMark = 0;

}  // namespace

Ptr<iNode> readRecord(iByteInputStream& in) {
    uint8_t header;
    if (in.read(&header, 1) != 1) return nullptr;
    return recordAfterHeader(in, header);
}

std::vector<Ptr<iNode>> readRecords(iByteInputStream& in) {
    std::vector<Ptr<iNode>> nodes;
    while (Ptr<iNode> n = readRecord(in)) nodes.push_back(std::move(n));
    return nodes;
}

namespace {

std::unique_ptr<tovan::FileOutputStream> openNodeFile(const tovan::WString& path, int streamVersion) {
    if (streamVersion < kMinNodeFileVersion || streamVersion > kMaxNodeFileVersion)
        throw tovan::BadParameterException("NodeStream", "writeNodeFile", u"Unsupported stream version %d",
                                           streamVersion);
    return std::make_unique<tovan::FileOutputStream>(path, streamVersion);
}

}  // namespace

NodeFileWriter::NodeFileWriter(const tovan::WString& path, int streamVersion)
    : NodeFileWriter(openNodeFile(path, streamVersion)) {}

NodeFileWriter::NodeFileWriter(std::unique_ptr<tovan::FileOutputStream> file) : out_(std::move(file)) {
    const int version = out_->getVersion();
    if (version < kMinNodeFileVersion || version > kMaxNodeFileVersion)
        throw tovan::BadParameterException("NodeStream", "writeNodeFile", u"Unsupported stream version %d", version);
    out_->write(kNodeFileMagic, sizeof kNodeFileMagic);
    writeCompactInt(*out_, version);
}

NodeFileWriter::~NodeFileWriter() = default;

void NodeFileWriter::write(const iNode& node) {
    writeRecord(*out_, node);
    ++records_;
}

void NodeFileWriter::finish() {
    if (finished_) return;
    finished_ = true;
    out_->write(&kEndMark, 1);
    out_->close();
}

void writeNodeFile(const tovan::WString& path, const std::vector<Ptr<iNode>>& nodes, int streamVersion) {
    NodeFileWriter out(path, streamVersion);
    for (const Ptr<iNode>& n : nodes) out.write(*n);
    out.finish();
}

struct NodeFileReader::Impl {
    explicit Impl(std::unique_ptr<tovan::FileInputStream> f) : path(f->getPath()), owned(std::move(f)), file(*owned) {}
    tovan::WString path;
    std::unique_ptr<tovan::FileInputStream> owned;
    tovan::FileInputStream& file;
    bool headerRead = false;
    bool ended = false;                       // the end mark was read
};

NodeFileReader::NodeFileReader(const tovan::WString& path)
    : NodeFileReader(std::make_unique<tovan::FileInputStream>(path)) {}

NodeFileReader::NodeFileReader(std::unique_ptr<tovan::FileInputStream> file)
    : impl_(std::make_unique<Impl>(std::move(file))) {}

NodeFileReader::~NodeFileReader() = default;

int NodeFileReader::readHeader() {
    if (impl_->headerRead) return impl_->file.getVersion();
    char magic[sizeof kNodeFileMagic] = {};
    const size_t got = impl_->file.read(magic, sizeof magic);
    if (got != sizeof magic || std::memcmp(magic, kNodeFileMagic, sizeof magic) != 0)
        throw tovan::Exception("NodeStream", "readNodeFile", u"File \"%ls\" is not a node file", impl_->path);
    const int32_t version = readCompactInt(impl_->file);
    if (version < kMinNodeFileVersion || version > kMaxNodeFileVersion)
        throw tovan::Exception("NodeStream", "readNodeFile", u"Unsupported stream version %d in \"%ls\"", version,
                               impl_->path);
    // The records are read straight from the file's buffer, in the version it names.
    impl_->file.setVersion(version);
    impl_->headerRead = true;
    return version;
}

Ptr<iNode> NodeFileReader::next() {
    readHeader();
    if (impl_->ended) return nullptr;
    uint8_t header;
    if (impl_->file.read(&header, 1) != 1)
        throw tovan::Exception("NodeStream", "readNodeFile", u"File \"%ls\" is cut short: it ends without its end mark",
                               impl_->path);
    if (header != kEndMark) return recordAfterHeader(impl_->file, header);
    if (impl_->file.read(&header, 1) != 0)
        throw tovan::Exception("NodeStream", "readNodeFile", u"File \"%ls\" goes on after its end mark", impl_->path);
    impl_->ended = true;
    return nullptr;
}

uint64_t NodeFileReader::offset() const { return impl_->file.position(); }

std::vector<Ptr<iNode>> readNodeFile(const tovan::WString& path, int* streamVersion) {
    NodeFileReader file(path);
    const int version = file.readHeader();
    if (streamVersion) *streamVersion = version;
    std::vector<Ptr<iNode>> nodes;
    while (Ptr<iNode> n = file.next()) nodes.push_back(std::move(n));
    return nodes;
}

}  // namespace nvk
