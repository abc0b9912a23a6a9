#pragma once
// Writes JSON text through a call chain that cannot produce malformed output.
#include <string>
#include <string_view>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Writes JSON to a character sink:
///
///   JsonStringSink sink;
///   CJsonWriter w(&sink, nullptr);
///   w.object().key(u"x").value(1.5).key(u"tags").array().value(u"a", true).endArray().endObject();
///   // sink.text() == u"{\"x\":1.5,\"tags\":[\"a\"]}"
///
/// A mode and a stack of open containers decide what may come next; a call
/// out of order raises tovan::Exception (class "CJsonWriter") and leaves the
/// writer as it was, though the sink may hold a partial text. Only one
/// top-level container is written; with a variable name the text is wrapped
/// as "var NAME = ...;". One thread per writer.
class NVK_EXPORT CJsonWriter {
public:
    /// The sink: one character, or a null-terminated text, or a run of
    /// text. The writer hands over the whole output of each call as one run
    /// (never with a zero unit in it), so a sink that can append a run in
    /// bulk should override the third; by default it goes to the second.
    class NVK_EXPORT Writer {
    public:
        virtual ~Writer();
        virtual void write(tovan::wchar c) = 0;
        virtual void write(const tovan::wchar* text) = 0;
        virtual void write(std::u16string_view text);
        /// Whether writeUtf8 reaches the sink's output without a detour
        /// through UTF-16: then writers of whole trees build their text as
        /// UTF-8 and hand it over that way.
        virtual bool takesUtf8() const { return false; }
        /// A run of well-formed UTF-8 text with no zero byte; by default
        /// decoded and handed to the third write.
        virtual void writeUtf8(std::string_view text);
    };

    /// The numbers are fixed.
    enum Mode : int32_t {
        ModeArray = 1,   // inside an array: a value, object() or array() may come
        ModeDone = 2,    // the top-level container is closed
        ModeInit = 3,    // nothing written yet
        ModeObject = 4,  // inside an object: a key or endObject()
        ModeKey = 5,     // after a key: the member's value
    };

    /// `sink` is not owned; null raises "Invalid null output stream". A
    /// non-empty `variableName` writes "var NAME = " at once.
    CJsonWriter(Writer* sink, const tovan::wchar* variableName = nullptr);
    virtual ~CJsonWriter();
    CJsonWriter(const CJsonWriter&) = delete;
    CJsonWriter& operator=(const CJsonWriter&) = delete;

    CJsonWriter& object();
    CJsonWriter& array();
    CJsonWriter& key(const tovan::wchar* name);
    CJsonWriter& key(const char* name);  // UTF-8
    CJsonWriter& value(bool b);
    CJsonWriter& value(double d);
    CJsonWriter& value(long n);
    CJsonWriter& value(int n) { return value(long(n)); }
    CJsonWriter& value(unsigned int n);
    /// Quoted and escaped, or (quote false) verbatim, for "null" and numbers
    /// already formatted. A null text is written as an empty one.
    CJsonWriter& value(const tovan::wchar* text, bool quote = true);
    CJsonWriter& value(const char* text, bool quote = true);  // UTF-8
    /// The same for texts that may hold a zero character.
    CJsonWriter& key(std::u16string_view name);
    CJsonWriter& value(std::u16string_view text, bool quote = true);
    /// A whole array of numbers: the text and the state of array(),
    /// value(d) for each and endArray(), in one call (large numeric arrays
    /// are most of some documents).
    CJsonWriter& array(const double* numbers, size_t count);
    CJsonWriter& endArray();
    CJsonWriter& endObject();
    /// Asks for a line feed with the next value (after its separator, before
    /// its text) or closing bracket; keys leave it pending. Writing records
    /// one per line is `object() ... endObject().writeNewLine()` in an array.
    CJsonWriter& writeNewLine();
    /// With strictness, a number without a decimal point gets ".0" appended.
    void setDecimalPlaceStrictness(bool strict) { strict_ = strict; }
    bool getDecimalPlaceStrictness() const { return strict_; }

    /// Holds back the output of the writer's calls while it lives and hands
    /// it to the sink in pieces of many values (one call into the sink per
    /// value is most of the cost of writing large trees). Batches nest; the
    /// outermost one hands over the rest when it finishes. Code that writes a
    /// whole tree in one go uses it, so that its caller sees the complete
    /// text in the sink when the call returns:
    ///
    ///   CJsonWriter::Batch batch(writer);
    ///   ... writer calls ...
    ///   batch.finish();   // a failing sink raises here
    ///
    /// Ended by an exception instead, it hands over what had been written before
    /// the failure and ignores a failure of the sink.
    class NVK_EXPORT Batch {
    public:
        explicit Batch(CJsonWriter& writer);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;
        void finish();

    private:
        CJsonWriter& writer_;
        bool finished_ = false;
    };

    /// For writers of whole trees: `build(out)` appends the complete text of
    /// one value (escaped as this writer escapes, with no zero unit) to
    /// `out`, and the writer takes it as a value, with the separator and any
    /// pending line feed ahead of it. When `build` returns false the writer
    /// and its buffered text are left as they were, and so is the result.
    /// Raises what value() raises where no value may go.
    template <class Build>
    bool tryValue(Build&& build) {
        return tryText<std::u16string>(build);
    }

    /// tryValue for a sink that takes UTF-8: `build` appends the value's
    /// text in UTF-8, as escapeUtf8 and the number formatting write it.
    template <class Build>
    bool tryValueUtf8(Build&& build) {
        return tryText<std::string>(build);
    }
    /// Whether the sink takes UTF-8 as it is, so that tryValueUtf8 saves a
    /// conversion over tryValue.
    bool sinkTakesUtf8() const { return sink_->takesUtf8(); }

    Mode getMode() const { return mode_; }
    size_t getDepth() const { return stack_.size(); }

    /// The text of `value` as value(double) writes it (the decimal-point fix
    /// applied). Raises the same exceptions.
    static std::u16string formatDouble(double value, bool strict);
    /// Makes a number text end up with a decimal digit after every ".", and
    /// with strictness a ".0" when there is no "." at all, in place in a
    /// buffer of `capacity` bytes; raises "Malformed JSON number format, but
    /// no space in buffer to fix" when the insertion does not fit.
    static void fixUpDoubles(char* text, size_t capacity, bool strict);
    /// Appends `text` quoted and escaped as the writer writes strings.
    static void escape(std::u16string_view text, std::u16string& out);
    /// The same in UTF-8, as a UTF-8 file receives escape's text: a
    /// surrogate pair becomes one character, a lone surrogate U+FFFD.
    static void escapeUtf8(std::u16string_view text, std::string& out);
    /// The same into room for 6 × text.size() + 2 bytes at `out`; returns
    /// the end of what it wrote.
    static char* escapeUtf8(std::u16string_view text, char* out);
    /// Appends the text of `value` as value(double) writes it.
    static void AppendDouble(double value, bool strict, std::u16string& out) { appendDouble(value, strict, out); }
    static void AppendDouble(double value, bool strict, std::string& out);

private:
    template <class Text, class Build>
    bool tryText(Build& build) {
        checkValue();
        Text& text = spare(static_cast<Text*>(nullptr));
        text.clear();
        const bool built = build(text);
        if (built) putValue(std::basic_string_view<typename Text::value_type>(text));
        releaseSpare(text);
        return built;
    }
    // tryText's texts: kept per thread between calls, unless they grew large.
    static std::u16string& spare(std::u16string*);
    static std::string& spare(std::string*);
    static void releaseSpare(std::u16string& text);
    static void releaseSpare(std::string& text);
    void putValue(std::u16string_view text);
    void putValue(std::string_view utf8);
    void writeValue(const tovan::wchar* text, bool quote);
    void checkValue();
    // The steps every value takes are inline: a tree writer makes several
    // calls per property, and a call across the library's exported
    // interface costs as much as the step itself.
    /// What goes ahead of a value (separator, pending line feed) into scratch_.
    void beginValue() {
        if (needsSeparator_ && mode_ == ModeArray) scratch_ += u',';
        if (newLinePending_) {
            scratch_ += u'\n';
            newLinePending_ = false;
        }
    }
    /// Hands scratch_ to the sink and moves on past the value.
    void endValue() {
        deliver();
        if (mode_ == ModeKey) mode_ = ModeObject;
        needsSeparator_ = true;
    }
    /// Hands scratch_ to the sink, unless a batch holds it back (`force`
    /// ends a batch).
    void deliver(bool force = false) {
        if (scratch_.empty() || (batchDepth_ > 0 && !force && scratch_.size() < kBatchUnits)) return;
        handOver();
    }
    void handOver();
    void emitValue(std::u16string_view text, bool quote);
    void push(bool isObject);
    void pop(bool isObject);
    void close(bool isObject);
    /// Appends the text of `d` as value(double) writes it.
    static void appendDouble(double d, bool strict, std::u16string& out);

    bool needsSeparator_ = false;
    bool newLinePending_ = false;
    Mode mode_ = ModeInit;
    bool variableOpen_ = false;
    // Open containers: 1 for an object. Bytes rather than packed bits: every
    // container pushes and pops once.
    std::vector<unsigned char> stack_;
    Writer* sink_;
    bool strict_ = false;
    // Output on its way to the sink: a call's text is built here and handed
    // over in one piece, or with a batch open, many calls' texts.
    std::u16string scratch_;
    int batchDepth_ = 0;
    static constexpr size_t kBatchUnits = 16 * 1024;
};

/// A sink that collects the text in memory.
class NVK_EXPORT JsonStringSink : public CJsonWriter::Writer {
public:
    void write(tovan::wchar c) override { text_ += c; }
    void write(const tovan::wchar* text) override { text_ += text; }
    void write(std::u16string_view text) override { text_ += text; }
    const std::u16string& text() const { return text_; }
    void clear() { text_.clear(); }

private:
    std::u16string text_;
};

}  // namespace nvk
