#include "nvk/platform/FileStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "nvk/platform/Exception.h"

namespace tovan {

namespace {
constexpr size_t kBufferBytes = 64 * 1024;
}

FileOutputStream::FileOutputStream(const WString& path, int version, bool append)
    : path_(path), version_(version) {
    file_ = std::fopen(toNarrow(path).c_str(), append ? "ab" : "wb");
    if (!file_)
        throw Exception("FileOutputStream", "open", u"Cannot open file \"%ls\" for writing: %hs", path,
                        std::strerror(errno));
    std::setvbuf(file_, nullptr, _IONBF, 0);  // the stream's own buffer is the only one
    buffer_.resize(kBufferBytes);
    setRoom(buffer_.data(), buffer_.data() + buffer_.size());
}

FileOutputStream::FileOutputStream(std::FILE* stream, const WString& name, int version, bool owned)
    : path_(name), file_(stream), version_(version), owned_(owned) {
    if (!stream) throw BadParameterException("FileOutputStream", "open", u"Cannot write \"%ls\": no stream", name);
    buffer_.resize(kBufferBytes);
    setRoom(buffer_.data(), buffer_.data() + buffer_.size());
}

FileOutputStream::~FileOutputStream() {
    try {
        close();
    } catch (const Exception& e) {
        Exception::warnText(e.getMessage());
    }
}

void FileOutputStream::writeBuffer() {
    const size_t held = pending();
    if (held == 0) return;
    size_t n = std::fwrite(buffer_.data(), 1, held, file_);
    written_ += n;
    if (n != held) {
        int error = errno;
        std::memmove(buffer_.data(), buffer_.data() + n, held - n);
        setRoom(buffer_.data() + (held - n), buffer_.data() + buffer_.size());
        throw Exception("FileOutputStream", "write", u"Error writing file \"%ls\": %hs", path_,
                        std::strerror(error));
    }
    setRoom(buffer_.data(), buffer_.data() + buffer_.size());
}

void FileOutputStream::writeSome(const void* data, size_t count) {
    if (!file_) throw Exception("FileOutputStream", "write", u"File \"%ls\" is not open", path_);
    writeBuffer();
    const auto* p = static_cast<const uint8_t*>(data);
    if (count >= buffer_.size()) {  // a large block goes out directly
        size_t n = std::fwrite(p, 1, count, file_);
        written_ += n;
        if (n != count)
            throw Exception("FileOutputStream", "write", u"Error writing file \"%ls\": %hs", path_,
                            std::strerror(errno));
        return;
    }
    std::memcpy(buffer_.data(), p, count);
    setRoom(buffer_.data() + count, buffer_.data() + buffer_.size());
}

void FileOutputStream::flush() {
    if (!file_) throw Exception("FileOutputStream", "flush", u"File \"%ls\" is not open", path_);
    writeBuffer();
}

void FileOutputStream::close() {
    if (!file_) return;
    std::FILE* f = file_;
    try {
        writeBuffer();
    } catch (...) {
        written_ += pending();  // still counted: they went through the stream, though lost
        file_ = nullptr;
        setRoom(nullptr, nullptr);
        if (owned_) std::fclose(f);
        throw;
    }
    file_ = nullptr;
    setRoom(nullptr, nullptr);
    if (owned_ ? std::fclose(f) != 0 : std::fflush(f) != 0)
        throw Exception("FileOutputStream", "close", u"Error closing file \"%ls\": %hs", path_, std::strerror(errno));
}

FileInputStream::FileInputStream(const WString& path, int version) : path_(path), version_(version) {
    file_ = std::fopen(toNarrow(path).c_str(), "rb");
    if (!file_)
        throw Exception("FileInputStream", "open", u"Cannot open file \"%ls\" for reading: %hs", path,
                        std::strerror(errno));
    std::setvbuf(file_, nullptr, _IONBF, 0);
    buffer_.resize(kBufferBytes);
}

FileInputStream::FileInputStream(std::FILE* stream, const WString& name, std::string_view head, int version,
                                 bool owned)
    : path_(name), file_(stream), version_(version), owned_(owned) {
    if (!stream) throw BadParameterException("FileInputStream", "open", u"Cannot read \"%ls\": no stream", name);
    buffer_.resize(std::max(kBufferBytes, head.size()));
    std::copy(head.begin(), head.end(), buffer_.begin());
    fetched_ = head.size();
    setWindow(buffer_.data(), buffer_.data() + head.size());
}

FileInputStream::~FileInputStream() { close(); }

void FileInputStream::close() {
    if (file_ && owned_) std::fclose(file_);
    file_ = nullptr;
    setWindow(nullptr, nullptr);
}

bool FileInputStream::refill() {
    if (atEnd_) return false;
    size_t got = std::fread(buffer_.data(), 1, buffer_.size(), file_);
    if (got < buffer_.size()) {
        if (std::ferror(file_))
            throw Exception("FileInputStream", "read", u"Error reading file \"%ls\": %hs", path_,
                            std::strerror(errno));
        atEnd_ = true;
    }
    fetched_ += got;
    setWindow(buffer_.data(), buffer_.data() + got);
    return got > 0;
}

size_t FileInputStream::readSome(void* data, size_t count) {
    if (!file_) throw Exception("FileInputStream", "read", u"File \"%ls\" is not open", path_);
    if (count >= buffer_.size()) {
        size_t got = 0;
        if (!atEnd_) {
            got = std::fread(data, 1, count, file_);
            if (got < count) {
                if (std::ferror(file_))
                    throw Exception("FileInputStream", "read", u"Error reading file \"%ls\": %hs", path_,
                                    std::strerror(errno));
                atEnd_ = true;
            }
        }
        fetched_ += got;
        return got;
    }
    if (!refill()) return 0;
    return read(data, count);
}

}  // namespace tovan
