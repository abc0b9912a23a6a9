#include "nvk/platform/FileInterface.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Utf_internal.h"

namespace tovan {

namespace {

constexpr size_t kBlockBytes = 64 * 1024;
// Text is decoded in small blocks: the units buffer then stays under 1 KiB,
// a size the C heap serves from its small-chunk lists. A buffer of 1 KiB or
// more, allocated right after a host has released a tree of small objects
// (the usual rhythm of reading record after record), makes the heap merge
// all those freed chunks first, and that cost more than a tenth of reading
// a document. The per-block overhead of small blocks is a few branches.
constexpr size_t kDecodeBytes = 480;
constexpr const char* kClass = "vcFileInterface";

std::string systemError(int error) { return std::strerror(error); }

/// Pairs of bytes to units; an odd byte waits for the next block, or becomes
/// U+FFFD at the very end.
size_t decodeUtf16(const unsigned char* begin, const unsigned char* end, bool bigEndian, bool final,
                   char16_t* out, size_t& produced) {
    size_t pairs = size_t(end - begin) / 2;
    for (size_t i = 0; i < pairs; ++i) {
        unsigned a = begin[2 * i], b = begin[2 * i + 1];
        out[i] = char16_t(bigEndian ? (a << 8 | b) : (b << 8 | a));
    }
    produced = pairs;
    size_t used = pairs * 2;
    if (final && used < size_t(end - begin)) {
        out[produced++] = char16_t(kReplacementCharacter);
        ++used;
    }
    return used;
}

}  // namespace

iFileInterface::~iFileInterface() = default;

void iFileInterface::writeUtf8(std::string_view text) { writeText(utf8ToUtf16(text)); }

WString iFileInterface::readAll() {
    WString all = WString::empty();
    for (auto block = readBlock(); !block.empty(); block = readBlock()) all.append(block);
    return all;
}

vcFileInterface::vcFileInterface() = default;

vcFileInterface::vcFileInterface(const WString& path, FileMode mode, TextEncoding encoding) {
    open(path, mode, encoding);
}

vcFileInterface::~vcFileInterface() {
    try {
        close();
    } catch (const Exception& e) {
        Exception::warnText(e.getMessage());
    }
}

void vcFileInterface::reset() {
    kind_ = Kind::Closed;
    file_ = nullptr;
    ownsFile_ = true;
    fetched_ = 0;
    raw_.clear();
    rawStart_ = 0;
    rawEnd_ = false;
    decoded_.clear();
    decodedPos_ = decodedLen_ = 0;
    out_.clear();
    pendingHigh_ = 0;
    encoding_ = TextEncoding::Utf8;
}

void vcFileInterface::open(const WString& path, FileMode mode, TextEncoding encoding) {
    close();
    reset();
    memoryOut_.clear();
    name_ = path;
    mode_ = mode;
    if (mode == FileMode::Read) {
        std::FILE* f = std::fopen(toNarrow(path).c_str(), "rb");
        if (!f)
            throw Exception(kClass, "open", u"Cannot open file \"%ls\" for reading: %hs", path, systemError(errno));
        std::setvbuf(f, nullptr, _IONBF, 0);  // reads go straight into our block
        file_ = f;
        kind_ = Kind::File;
        try {
            detectEncoding();
        } catch (...) {
            std::fclose(file_);
            reset();
            throw;
        }
        return;
    }
    if (encoding != TextEncoding::Utf8 && encoding != TextEncoding::Utf8Bom)
        throw BadParameterException(kClass, "open", u"Cannot write file \"%ls\": only UTF-8 output is supported",
                                    path);
    std::FILE* f = std::fopen(toNarrow(path).c_str(), mode == FileMode::Write ? "wb" : "ab");
    if (!f)
        throw Exception(kClass, "open", u"Cannot open file \"%ls\" for writing: %hs", path, systemError(errno));
    std::setvbuf(f, nullptr, _IONBF, 0);  // we buffer ourselves
    file_ = f;
    kind_ = Kind::File;
    encoding_ = encoding;
    blockBytes_ = kBlockBytes;
    bool startsEmpty = mode == FileMode::Write || (std::fseek(f, 0, SEEK_END) == 0 && std::ftell(f) == 0);
    if (encoding == TextEncoding::Utf8Bom && startsEmpty) out_ = "\xEF\xBB\xBF";
}

void vcFileInterface::openStream(std::FILE* stream, FileMode mode, const WString& name, std::string head, bool owned) {
    if (!stream) throw BadParameterException(kClass, "openStream", u"Cannot open \"%ls\": no stream", name);
    close();
    reset();
    memoryOut_.clear();
    name_ = name;
    mode_ = mode;
    file_ = stream;
    ownsFile_ = owned;
    kind_ = Kind::File;
    if (mode == FileMode::Read) {
        fetched_ = head.size();
        raw_ = std::move(head);
        detectEncoding();
        return;
    }
    blockBytes_ = kBlockBytes;
}

void vcFileInterface::openMemory(const WString& name) {
    close();
    reset();
    memoryOut_.clear();
    name_ = name;
    mode_ = FileMode::Read;
    kind_ = Kind::Memory;
}

void vcFileInterface::openText(const WString& text, const WString& name) {
    openMemory(name);
    decoded_ = text.str();
    decodedLen_ = decoded_.size();
    rawEnd_ = true;
}

void vcFileInterface::openBytes(std::string bytes, const WString& name) {
    openMemory(name);
    raw_ = std::move(bytes);
    rawEnd_ = true;
    detectEncoding();
}

void vcFileInterface::openOutput(const WString& name, TextEncoding encoding) {
    if (encoding != TextEncoding::Utf8 && encoding != TextEncoding::Utf8Bom)
        throw BadParameterException(kClass, "openOutput",
                                    u"Cannot write file \"%ls\": only UTF-8 output is supported", name);
    close();
    reset();
    memoryOut_.clear();
    name_ = name;
    mode_ = FileMode::Write;
    kind_ = Kind::MemoryOutput;
    encoding_ = encoding;
    blockBytes_ = SIZE_MAX;  // kept whole: handed over once, not copied block by block
    if (encoding == TextEncoding::Utf8Bom) out_ = "\xEF\xBB\xBF";
}

const std::string& vcFileInterface::getOutputBytes() {
    if (kind_ == Kind::MemoryOutput) flush();
    return memoryOut_;
}

WString vcFileInterface::getOutputText() {
    std::string_view bytes = getOutputBytes();
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    return toWide(bytes);
}

void vcFileInterface::requireReadable(const char* operation) const {
    if (kind_ == Kind::Closed) throw Exception(kClass, operation, u"File \"%ls\" is not open", name_);
    if (mode_ != FileMode::Read)
        throw Exception(kClass, operation, u"File \"%ls\" is open for writing, not reading", name_);
}

void vcFileInterface::requireWritable(const char* operation) const {
    if (kind_ == Kind::Closed) throw Exception(kClass, operation, u"File \"%ls\" is not open", name_);
    if (mode_ == FileMode::Read)
        throw Exception(kClass, operation, u"File \"%ls\" is open for reading, not writing", name_);
}

size_t vcFileInterface::fillRaw() {
    if (rawEnd_ || kind_ != Kind::File) {
        rawEnd_ = true;
        return 0;
    }
    if (rawStart_ > 0) {
        raw_.erase(0, rawStart_);
        rawStart_ = 0;
    }
    size_t old = raw_.size();
    raw_.resize(old + kBlockBytes);
    size_t n = std::fread(raw_.data() + old, 1, kBlockBytes, file_);
    raw_.resize(old + n);
    fetched_ += n;
    if (n < kBlockBytes) {
        if (std::ferror(file_))
            throw Exception(kClass, "read", u"Error reading file \"%ls\": %hs", name_, systemError(errno));
        rawEnd_ = true;
    }
    return n;
}

void vcFileInterface::detectEncoding() {
    while (raw_.size() - rawStart_ < 3 && !rawEnd_) fillRaw();
    std::string_view head(raw_.data() + rawStart_, raw_.size() - rawStart_);
    if (head.starts_with("\xEF\xBB\xBF")) {
        encoding_ = TextEncoding::Utf8Bom;
        rawStart_ += 3;
    } else if (head.starts_with("\xFF\xFE")) {
        encoding_ = TextEncoding::Utf16LE;
        rawStart_ += 2;
    } else if (head.starts_with("\xFE\xFF")) {
        encoding_ = TextEncoding::Utf16BE;
        rawStart_ += 2;
    } else {
        encoding_ = TextEncoding::Utf8;
    }
}

bool vcFileInterface::decodeNext() {
    decodedPos_ = decodedLen_ = 0;
    for (;;) {
        if (rawStart_ == raw_.size()) {
            if (rawEnd_) return false;
            fillRaw();
            continue;
        }
        const auto* begin = reinterpret_cast<const unsigned char*>(raw_.data()) + rawStart_;
        const auto* end = reinterpret_cast<const unsigned char*>(raw_.data()) + raw_.size();
        // A block at a time also for a source held whole in memory: the
        // buffer stays small and is reused rather than sized to the source.
        bool final = rawEnd_;
        if (size_t(end - begin) > kDecodeBytes) {
            end = begin + kDecodeBytes;
            final = false;
        }
        size_t need = size_t(end - begin) + 1;
        if (decoded_.size() < need) decoded_.resize(need);
        size_t produced = 0;
        size_t used = (encoding_ == TextEncoding::Utf8 || encoding_ == TextEncoding::Utf8Bom)
                          ? decodeUtf8Inline(reinterpret_cast<const char*>(begin), reinterpret_cast<const char*>(end),
                                       final, decoded_.data(), produced)
                          : decodeUtf16(begin, end, encoding_ == TextEncoding::Utf16BE, final, decoded_.data(),
                                        produced);
        rawStart_ += used;
        if (produced > 0) {
            decodedLen_ = produced;
            return true;
        }
        // Only the start of a sequence was left (never so at the end of the
        // source, where it decodes to U+FFFD): it needs the next block.
        fillRaw();
    }
}

std::u16string_view vcFileInterface::readBlock() {
    requireReadable("readBlock");
    if (decodedPos_ == decodedLen_ && !decodeNext()) return {};
    std::u16string_view block(decoded_.data() + decodedPos_, decodedLen_ - decodedPos_);
    decodedPos_ = decodedLen_;
    return block;
}

size_t vcFileInterface::readText(wchar* dest, size_t capacity) {
    requireReadable("readText");
    size_t copied = 0;
    while (copied < capacity) {
        if (decodedPos_ == decodedLen_ && !decodeNext()) break;
        size_t n = std::min(capacity - copied, decodedLen_ - decodedPos_);
        std::memcpy(dest + copied, decoded_.data() + decodedPos_, n * sizeof(wchar));
        decodedPos_ += n;
        copied += n;
    }
    return copied;
}

void vcFileInterface::writeChar(wchar c) {
    requireWritable("writeChar");
    if (pendingHigh_) {
        const char32_t high = pendingHigh_;
        pendingHigh_ = 0;
        if (isLowSurrogate(c)) {
            appendUtf8(out_, combineSurrogates(high, c));
            if (out_.size() >= blockBytes_) flush();
            return;
        }
        appendUtf8(out_, kReplacementCharacter);
    }
    if (isHighSurrogate(c)) pendingHigh_ = c;
    else appendUtf8(out_, isSurrogate(c) ? kReplacementCharacter : c);
    if (out_.size() >= blockBytes_) flush();
}

void vcFileInterface::writeText(std::u16string_view text) {
    requireWritable("writeText");
    while (!text.empty()) {
        if (pendingHigh_) {  // its partner, or not, comes first
            writeChar(text.front());
            text.remove_prefix(1);
            continue;
        }
        // Up to what fills the block (so a long text is flushed in blocks
        // too), converted in bulk: measured first, so that the output grows
        // by what it needs rather than by three bytes a unit.
        size_t n = std::min(text.size(), std::max<size_t>(blockBytes_ - std::min(out_.size(), blockBytes_), 1));
        size_t take = n;
        if (isHighSurrogate(text[n - 1])) {
            if (n == text.size()) --take;  // its partner may come with the next call
            else take = ++n;               // a pair stays in one piece
        }
        const std::u16string_view part = text.substr(0, take);
        const size_t old = out_.size();
        out_.resize(old + utf8Length(part));
        encodeUtf8(part, out_.data() + old);
        if (take < n) pendingHigh_ = text[take];
        text.remove_prefix(n);
        if (out_.size() >= blockBytes_) flush();
    }
}

void vcFileInterface::writeUtf8(std::string_view text) {
    requireWritable("writeUtf8");
    if (pendingHigh_) {
        appendUtf8(out_, kReplacementCharacter);
        pendingHigh_ = 0;
    }
    while (!text.empty()) {
        size_t n = std::min(text.size(), std::max<size_t>(blockBytes_ - std::min(out_.size(), blockBytes_), 1));
        out_.append(text.data(), n);
        text.remove_prefix(n);
        if (out_.size() >= blockBytes_) flush();
    }
}

void vcFileInterface::flush() {
    requireWritable("flush");
    if (kind_ == Kind::MemoryOutput) {
        if (memoryOut_.empty())
            memoryOut_.swap(out_);
        else
            memoryOut_ += out_;
        out_.clear();
        return;
    }
    if (!out_.empty()) {
        size_t n = std::fwrite(out_.data(), 1, out_.size(), file_);
        if (n != out_.size()) {
            int error = errno;
            out_.erase(0, n);
            throw Exception(kClass, "write", u"Error writing file \"%ls\": %hs", name_, systemError(error));
        }
        out_.clear();
    }
    if (std::fflush(file_) != 0)
        throw Exception(kClass, "write", u"Error writing file \"%ls\": %hs", name_, systemError(errno));
}

void vcFileInterface::close() {
    if (kind_ == Kind::Closed) return;
    std::FILE* f = file_;
    int error = 0;
    if (mode_ != FileMode::Read) {
        if (pendingHigh_) {
            appendUtf8(out_, kReplacementCharacter);
            pendingHigh_ = 0;
        }
        try {
            flush();
        } catch (...) {
            if (f && ownsFile_) std::fclose(f);
            reset();
            throw;
        }
    }
    if (f && ownsFile_ && std::fclose(f) != 0) error = errno;
    reset();
    if (error) throw Exception(kClass, "close", u"Error closing file \"%ls\": %hs", name_, systemError(error));
}

}  // namespace tovan
