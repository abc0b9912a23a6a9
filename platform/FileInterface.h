#pragma once
// Text files, read as UTF-16 code units and written as UTF-8.
//
// Reading detects the encoding from the first bytes: EF BB BF is UTF-8 with a
// byte-order mark, FF FE is UTF-16 little-endian, FE FF is UTF-16 big-endian,
// and anything else is UTF-8 without a mark. The mark itself is never
// delivered. Invalid UTF-8 becomes U+FFFD by the rule of utf8ToUtf16 (one
// replacement per maximal invalid subsequence), also when a sequence straddles
// two blocks of the file. UTF-16 input is passed on unit by unit, lone
// surrogates included; an odd last byte becomes one U+FFFD.
//
// Readers take text in blocks (readBlock) rather than a unit at a time, so a
// 2 MB document costs a few dozen calls, not two million.
//
// Every failure raises Exception (class "vcFileInterface") whose message names
// the file, for example: Cannot open file "/tmp/a.json" for reading: No such file or directory
#include <cstdio>
#include <string>
#include <string_view>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

enum class FileMode {
    Read,    ///< an existing file, from its start
    Write,   ///< created, or emptied when it exists
    Append,  ///< created when missing; writing goes to its end
};

enum class TextEncoding {
    Utf8,     ///< no byte-order mark
    Utf8Bom,  ///< EF BB BF
    Utf16LE,  ///< FF FE
    Utf16BE,  ///< FE FF
};

/// A source or sink of text. The library's readers and writers use only this
/// interface; vcFileInterface is the implementation over files and memory.
class NVK_EXPORT iFileInterface {
public:
    virtual ~iFileInterface();

    /// The path given to open, or the label of an in-memory text.
    virtual const WString& getName() const = 0;
    virtual bool isOpen() const = 0;
    virtual FileMode getMode() const = 0;
    /// For reading: the encoding found at open. For writing: the one written.
    virtual TextEncoding getEncoding() const = 0;

    /// The next block of text; empty once the text is used up. The view
    /// stays valid until the next call on this object.
    virtual std::u16string_view readBlock() = 0;
    /// Copies up to `capacity` units into `dest`; returns how many (0 at the end).
    virtual size_t readText(wchar* dest, size_t capacity) = 0;
    /// The rest of the text in one string.
    WString readAll();

    /// Appends text. A surrogate pair may be split across two calls; a
    /// surrogate without its partner is written as U+FFFD.
    virtual void writeText(std::u16string_view text) = 0;
    virtual void writeChar(wchar c) = 0;
    /// Appends text that is already well-formed UTF-8, as writeText would
    /// append the same text in UTF-16 (a high surrogate left waiting by the
    /// call before becomes U+FFFD). Writers that build their output as bytes
    /// use it to skip the round trip through UTF-16. By default the text is
    /// decoded and goes to writeText.
    virtual void writeUtf8(std::string_view text);
    /// Hands buffered output to the file.
    virtual void flush() = 0;
    /// Flushes and closes; a closed interface may be opened again. Closing a
    /// closed interface does nothing.
    virtual void close() = 0;
};

/// Text files on disk and texts in memory behind iFileInterface.
///
///   vcFileInterface in(u"data.json", FileMode::Read);
///   for (auto block = in.readBlock(); !block.empty(); block = in.readBlock()) ...
///
/// Output to a file is buffered in 64 KiB and reaches the file on flush(),
/// close() or destruction (where a failure can only be reported as a
/// warning, so call close() to learn about it); an in-memory output is held
/// whole. Not copyable; one thread at a time.
class NVK_EXPORT vcFileInterface : public iFileInterface {
public:
    vcFileInterface();
    /// Opens at once (see open).
    vcFileInterface(const WString& path, FileMode mode, TextEncoding encoding = TextEncoding::Utf8);
    ~vcFileInterface() override;
    vcFileInterface(const vcFileInterface&) = delete;
    vcFileInterface& operator=(const vcFileInterface&) = delete;

    /// Opens a file; for reading, the encoding is detected and `encoding` is
    /// ignored; for writing it chooses between UTF-8 with and without a mark
    /// (a mark is written only when the file starts empty). Any file open
    /// before is closed first.
    void open(const WString& path, FileMode mode, TextEncoding encoding = TextEncoding::Utf8);
    /// Reads from, or writes to, a stream that is open already (standard
    /// input or output, a pipe); `name` stands for the file in messages.
    /// Nothing seeks, so a pipe reads as a file does. For reading, `head`
    /// holds bytes the caller took from the stream before (to tell what it
    /// holds, say): they come first, and the encoding is detected on them
    /// and what follows. With `owned`, close() closes the stream; otherwise
    /// it only flushes it.
    void openStream(std::FILE* stream, FileMode mode, const WString& name, std::string head = {}, bool owned = false);
    /// Reads `text` as it is, without any decoding.
    void openText(const WString& text, const WString& name = u"(memory)");
    /// Reads `bytes` as a file's content (encoding detected).
    void openBytes(std::string bytes, const WString& name = u"(memory)");
    /// Writes into memory; the result is getOutputBytes()/getOutputText().
    void openOutput(const WString& name = u"(memory)", TextEncoding encoding = TextEncoding::Utf8);

    /// What an in-memory output holds so far (UTF-8 bytes, mark included).
    const std::string& getOutputBytes();
    /// The same, decoded (without the mark).
    WString getOutputText();

    const WString& getName() const override { return name_; }
    bool isOpen() const override { return kind_ != Kind::Closed; }
    FileMode getMode() const override { return mode_; }
    TextEncoding getEncoding() const override { return encoding_; }
    /// Bytes taken from the file or stream so far (a block ahead of what
    /// was read: enough to show progress by), a given head included.
    uint64_t bytesFetched() const { return fetched_; }

    std::u16string_view readBlock() override;
    size_t readText(wchar* dest, size_t capacity) override;
    void writeText(std::u16string_view text) override;
    void writeChar(wchar c) override;
    void writeUtf8(std::string_view text) override;
    void flush() override;
    void close() override;

private:
    enum class Kind { Closed, File, Memory, MemoryOutput };

    void requireReadable(const char* operation) const;
    void requireWritable(const char* operation) const;
    size_t fillRaw();
    void detectEncoding();
    bool decodeNext();
    void reset();
    void openMemory(const WString& name);  // closed, emptied, reading from memory under `name`

    Kind kind_ = Kind::Closed;
    FileMode mode_ = FileMode::Read;
    TextEncoding encoding_ = TextEncoding::Utf8;
    WString name_;
    std::FILE* file_ = nullptr;
    bool ownsFile_ = true;  // false for a stream given to openStream without ownership
    uint64_t fetched_ = 0;

    // reading: raw bytes not yet decoded, then the decoded block handed out
    std::string raw_;
    size_t rawStart_ = 0;
    bool rawEnd_ = false;        // the source has no bytes left
    std::u16string decoded_;
    size_t decodedPos_ = 0;
    size_t decodedLen_ = 0;

    // writing: UTF-8 waiting for the file (or, for an in-memory output, all
    // of it until it is asked for), and a high surrogate waiting for its partner
    std::string out_;
    size_t blockBytes_ = 0;  // how much of out_ is held back before flushing
    std::string memoryOut_;
    wchar pendingHigh_ = 0;
};

}  // namespace tovan
