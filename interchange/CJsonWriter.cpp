#include "nvk/interchange/CJsonWriter.h"

#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"

namespace nvk {

using tovan::Exception;
using tovan::wchar;

namespace {

constexpr size_t kNumberBuffer = 80;

}  // namespace

CJsonWriter::Writer::~Writer() = default;

void CJsonWriter::Writer::write(std::u16string_view text) {
    std::u16string terminated(text);
    write(terminated.c_str());
}

void CJsonWriter::Writer::writeUtf8(std::string_view text) { write(std::u16string_view(tovan::utf8ToUtf16(text))); }

CJsonWriter::CJsonWriter(Writer* sink, const wchar* variableName) : sink_(sink) {
    if (!sink) throw Exception("CJsonWriter", "CJsonWriter", u"Invalid null output stream");
    if (variableName && *variableName) {
        sink_->write(u"var ");
        sink_->write(variableName);
        sink_->write(u" = ");
        variableOpen_ = true;
    }
}

CJsonWriter::~CJsonWriter() = default;

// ---- escaping --------------------------------------------------------------

namespace {

// ASCII units that go out as they are; "/" is decided by what precedes it.
constexpr std::array<bool, 128> kPlainAscii = [] {
    std::array<bool, 128> t{};
    for (int c = 32; c < 128; ++c) t[c] = c != '"' && c != '\\' && c != '/';
    return t;
}();

inline bool isPlain(wchar c) { return c < 128 ? kPlainAscii[c] : (c > 159 && (c < 0x2000 || c > 0x20FF)); }

#if defined(__SSE2__)
// Of eight units, the ASCII ones that need no escape: all bits set in their
// lanes. Vector instructions every x86-64 has.
inline __m128i plainAscii8(__m128i v) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i quote = _mm_set1_epi16('"'), backslash = _mm_set1_epi16('\\'), slash = _mm_set1_epi16('/');
    const __m128i top = _mm_set1_epi16(0x7F), space = _mm_set1_epi16(0x20);
    // ASCII from the space on (saturating differences are zero inside the range)
    __m128i ascii = _mm_cmpeq_epi16(_mm_or_si128(_mm_subs_epu16(v, top), _mm_subs_epu16(space, v)), zero);
    __m128i marks = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash)),
                                 _mm_cmpeq_epi16(v, slash));
    return _mm_andnot_si128(marks, ascii);
}
#endif

// How many units from the start of `p` need no escape ("/" counts as one
// that does), eight at a time where the processor can.
size_t plainRun(const wchar* p, size_t n) {
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128(), c1End = _mm_set1_epi16(0xA0);
    const __m128i pageMask = _mm_set1_epi16(short(0xFF00)), page20 = _mm_set1_epi16(0x2000);
    while (i + 8 <= n) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        __m128i ascii = plainAscii8(v);
        // U+00A0 on, except U+2000..U+20FF
        __m128i high = _mm_cmpeq_epi16(_mm_subs_epu16(c1End, v), zero);
        high = _mm_andnot_si128(_mm_cmpeq_epi16(_mm_and_si128(v, pageMask), page20), high);
        if (_mm_movemask_epi8(_mm_or_si128(ascii, high)) != 0xFFFF) break;
        i += 8;
    }
#endif
    while (i < n && isPlain(p[i])) ++i;
    return i;
}

}  // namespace

void CJsonWriter::escape(std::u16string_view text, std::u16string& out) {
    out += u'"';
    size_t run = 0;  // start of the characters that go out unchanged
    const size_t size = text.size();
    for (size_t i = 0; i < size; ++i) {
        i += plainRun(text.data() + i, size - i);
        if (i >= size) break;
        wchar c = text[i];
        if (c == u'/' && (i == 0 || text[i - 1] != u'<')) continue;
        out.append(text.data() + run, i - run);
        run = i + 1;
        switch (c) {
        case u'"': out += u"\\\""; break;
        case u'\\': out += u"\\\\"; break;
        case u'/': out += u"\\/"; break;  // "</" would end an enclosing script element
        case 8: out += u"\\b"; break;
        case 9: out += u"\\t"; break;
        case 10: out += u"\\n"; break;
        case 12: out += u"\\f"; break;
        case 13: out += u"\\r"; break;
        default:
            // Control characters, C1 controls and U+2000..U+20FF (the line and
            // paragraph separators among them) are not safe in script text.
            out += u"\\u";
            for (int shift = 12; shift >= 0; shift -= 4) out += char16_t(tovan::kHexDigits[(c >> shift) & 15]);
        }
    }
    out.append(text.data() + run, text.size() - run);
    out += u'"';
}

void CJsonWriter::escapeUtf8(std::u16string_view text, std::string& out) {
    const size_t at = out.size();
    out.resize(at + 6 * text.size() + 2);
    char* end = escapeUtf8(text, out.data() + at);
    out.resize(size_t(end - out.data()));
}

// Written through a pointer into room made by the caller: no unit takes more
// than six bytes, and checking the length at every byte would cost more
// than the rest.
char* CJsonWriter::escapeUtf8(std::u16string_view text, char* d) {
    const wchar* p = text.data();
    const size_t size = text.size();
    *d++ = '"';
    for (size_t i = 0; i < size;) {
#if defined(__SSE2__)
        // ASCII that needs no escape, eight units at a time.
        while (i + 8 <= size) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
            if (_mm_movemask_epi8(plainAscii8(v)) != 0xFFFF) break;
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(v, v));
            d += 8;
            i += 8;
        }
#endif
        if (i >= size) break;
        const wchar c = p[i];
        if (c < 128 && kPlainAscii[c]) {
            *d++ = char(c);
            ++i;
            continue;
        }
        if (c >= 128 && isPlain(c)) {
            // Surrogates are plain text to escape(); the file turns a pair
            // into one character and a lone one into U+FFFD, and so does this.
            const wchar* at = p + i;
            d = tovan::putUtf8(d, at, p + size);
            i = size_t(at - p);
            continue;
        }
        ++i;
        if (c == u'/' && (i == 1 || p[i - 2] != u'<')) {
            *d++ = '/';
        } else {
            char two = 0;
            switch (c) {
            case u'"': two = '"'; break;
            case u'\\': two = '\\'; break;
            case u'/': two = '/'; break;  // "</" would end an enclosing script element
            case 8: two = 'b'; break;
            case 9: two = 't'; break;
            case 10: two = 'n'; break;
            case 12: two = 'f'; break;
            case 13: two = 'r'; break;
            default: break;
            }
            if (two) {
                *d++ = '\\';
                *d++ = two;
                continue;
            }
            using tovan::kHexDigits;
            const char unit[] = {'\\', 'u', kHexDigits[(c >> 12) & 15], kHexDigits[(c >> 8) & 15],
                                 kHexDigits[(c >> 4) & 15], kHexDigits[c & 15]};
            std::memcpy(d, unit, sizeof unit);
            d += sizeof unit;
        }
    }
    *d++ = '"';
    return d;
}

// ---- numbers ---------------------------------------------------------------

void CJsonWriter::fixUpDoubles(char* text, size_t capacity, bool strict) {
    size_t length = strnlen(text, capacity);
    auto insert = [&](size_t at, const char* what) {
        size_t n = std::strlen(what);
        if (length + n >= capacity)
            throw Exception("CJsonWriter", "fixUpDoubles",
                            u"Malformed JSON number format, but no space in buffer to fix formatting: %s", text);
        std::memmove(text + at + n, text + at, length - at + 1);
        std::memcpy(text + at, what, n);
        length += n;
    };
    for (size_t i = 0; i < length && i + 1 < capacity; ++i) {
        if (text[i] != '.') continue;
        char next = text[i + 1];
        if (next == 'e' || next == 'E' || next == 0) insert(i + 1, "0");  // "1." and "1.e5" are not JSON
        return;
    }
    // Deliberately also for a text with an exponent and no point ("1e+21.0"
    // is what a strict reader of our own output expects to see).
    if (strict) insert(length, ".0");
}

void CJsonWriter::appendDouble(double value, bool strict, std::u16string& out) {
    // Formatted straight into `out`. A point followed by a digit (what every
    // finite number has here) is all fixUpDoubles would look for, and then it
    // would change nothing. Numbers are most of some documents, so no copy
    // on the way.
    constexpr size_t kRoom = 32;  // always enough for the formatter
    const size_t at = out.size();
    out.resize(at + kRoom);
    const char16_t* text = out.data() + at;
    const size_t length = tovan::util::doubleToString(value, out.data() + at, kRoom, 1);
    const char16_t* point = std::char_traits<char16_t>::find(text, length, u'.');
    if (point && point + 1 < text + length && point[1] >= u'0' && point[1] <= u'9') {
        out.resize(at + length);
        return;
    }
    // No point, or one at the end (integral values, "Infinity", "NaN"): repair
    // the text already made rather than format it again.
    char narrow[kNumberBuffer];
    for (size_t i = 0; i < length; ++i) narrow[i] = char(text[i]);
    narrow[length] = 0;
    out.resize(at);
    fixUpDoubles(narrow, kNumberBuffer, strict);
    for (size_t i = 0; narrow[i]; ++i) out += char16_t(static_cast<unsigned char>(narrow[i]));
}

void CJsonWriter::AppendDouble(double value, bool strict, std::string& out) {
    std::u16string text;
    appendDouble(value, strict, text);
    for (char16_t c : text) out += char(c);  // a number's text is ASCII
}

std::u16string CJsonWriter::formatDouble(double value, bool strict) {
    std::u16string text;
    appendDouble(value, strict, text);
    return text;
}

// ---- the call chain --------------------------------------------------------

void CJsonWriter::handOver() {
    try {
        sink_->write(std::u16string_view(scratch_));
    } catch (...) {
        scratch_.clear();  // never handed over twice
        throw;
    }
    scratch_.clear();
}

CJsonWriter::Batch::Batch(CJsonWriter& writer) : writer_(writer) { ++writer_.batchDepth_; }

CJsonWriter::Batch::~Batch() {
    if (finished_) return;
    try {
        finish();
    } catch (...) {
        // Only reached when finish() was skipped, that is while an exception
        // is already on its way: the sink's own failure cannot go anywhere.
    }
}

void CJsonWriter::Batch::finish() {
    if (finished_) return;
    finished_ = true;
    if (--writer_.batchDepth_ == 0) writer_.deliver(true);
}

void CJsonWriter::emitValue(std::u16string_view text, bool quote) {
    beginValue();
    if (quote)
        escape(text, scratch_);
    else
        scratch_ += text.substr(0, text.find(u'\0'));  // verbatim text ends at a zero, as a C string would
    endValue();
}

namespace {

template <class Text>
void shrinkSpare(Text& text) {
    if (text.capacity() * sizeof(typename Text::value_type) > (size_t(1) << 23)) Text().swap(text);  // 8 MB
}

}  // namespace

std::u16string& CJsonWriter::spare(std::u16string*) {
    thread_local std::u16string text;
    return text;
}

std::string& CJsonWriter::spare(std::string*) {
    thread_local std::string text;
    return text;
}

void CJsonWriter::releaseSpare(std::u16string& text) { shrinkSpare(text); }
void CJsonWriter::releaseSpare(std::string& text) { shrinkSpare(text); }

void CJsonWriter::putValue(std::u16string_view text) {
    beginValue();
    if (scratch_.size() + text.size() <= kBatchUnits) {
        scratch_ += text;
    } else {
        // A large text goes to the sink as it is, after what is held back.
        deliver(true);
        sink_->write(text);
    }
    endValue();
}

void CJsonWriter::putValue(std::string_view text) {
    if (!sink_->takesUtf8()) {
        putValue(std::u16string_view(tovan::utf8ToUtf16(text)));
        return;
    }
    beginValue();
    // What is held back goes first, then the value as it is.
    deliver(true);
    sink_->writeUtf8(text);
    endValue();
}

void CJsonWriter::checkValue() {
    if (mode_ != ModeArray && mode_ != ModeKey) throw Exception("CJsonWriter", "value", u"JSON value out of sequence");
}

void CJsonWriter::writeValue(const wchar* text, bool quote) {
    if (!text) throw Exception("CJsonWriter", "value", u"Empty JSON value string");
    checkValue();
    emitValue(text, quote);
}

void CJsonWriter::push(bool isObject) {
    stack_.push_back(isObject ? 1 : 0);
    mode_ = isObject ? ModeObject : ModeArray;
}

void CJsonWriter::pop(bool isObject) {
    if (stack_.empty() || (stack_.back() != 0) != isObject)
        throw Exception("CJsonWriter", isObject ? "endObject" : "endArray", u"JSON nesting error");
    stack_.pop_back();
    mode_ = stack_.empty() ? ModeDone : (stack_.back() ? ModeObject : ModeArray);
}

CJsonWriter& CJsonWriter::object() {
    Mode mode = mode_ == ModeInit ? ModeKey : mode_;  // a top-level object is welcome
    if (mode != ModeArray && mode != ModeKey) throw Exception("CJsonWriter", "object", u"Misplaced JSON object");
    mode_ = mode;
    emitValue(u"{", false);
    push(true);
    needsSeparator_ = false;
    return *this;
}

CJsonWriter& CJsonWriter::array() {
    if (mode_ != ModeArray && mode_ != ModeInit && mode_ != ModeKey)
        throw Exception("CJsonWriter", "array", u"Misplaced JSON array");
    push(false);
    emitValue(u"[", false);  // with the new mode, so "[1,[" gets its comma
    needsSeparator_ = false;
    return *this;
}

CJsonWriter& CJsonWriter::array(const double* numbers, size_t count) {
    array();
    for (size_t i = 0; i < count; ++i) {
        if (needsSeparator_) scratch_ += u',';
        appendDouble(numbers[i], strict_, scratch_);
        needsSeparator_ = true;
    }
    return endArray();
}

CJsonWriter& CJsonWriter::key(const wchar* name) {
    if (!name) throw Exception("CJsonWriter", "key", u"Empty JSON key string");
    return key(std::u16string_view(name));
}

CJsonWriter& CJsonWriter::key(std::u16string_view name) {
    if (name.empty()) throw Exception("CJsonWriter", "key", u"Empty JSON key string");
    if (mode_ != ModeObject) throw Exception("CJsonWriter", "key", u"Misplaced JSON key");
    stack_.back() = 1;
    if (needsSeparator_) scratch_ += u',';
    escape(name, scratch_);
    scratch_ += u':';
    deliver();
    needsSeparator_ = false;
    mode_ = ModeKey;
    return *this;
}

CJsonWriter& CJsonWriter::key(const char* name) {
    if (!name) return key(static_cast<const wchar*>(nullptr));
    return key(tovan::toWide(name).c_str());
}

CJsonWriter& CJsonWriter::value(bool b) {
    writeValue(b ? u"true" : u"false", false);
    return *this;
}

CJsonWriter& CJsonWriter::value(double d) {
    checkValue();
    beginValue();
    appendDouble(d, strict_, scratch_);
    endValue();
    return *this;
}

namespace {

template <std::integral T>
void appendDigits(T n, std::u16string& out) {
    char16_t text[tovan::kIntegerTextMax];
    out.append(text, tovan::putInteger(text, n));
}

}  // namespace

CJsonWriter& CJsonWriter::value(long n) {
    checkValue();
    beginValue();
    appendDigits(n, scratch_);
    endValue();
    return *this;
}

CJsonWriter& CJsonWriter::value(unsigned int n) {
    checkValue();
    beginValue();
    appendDigits(n, scratch_);
    endValue();
    return *this;
}

CJsonWriter& CJsonWriter::value(const wchar* text, bool quote) {
    writeValue(text ? text : u"", quote);
    return *this;
}

CJsonWriter& CJsonWriter::value(std::u16string_view text, bool quote) {
    checkValue();
    emitValue(text, quote);
    return *this;
}

CJsonWriter& CJsonWriter::value(const char* text, bool quote) {
    if (!text) return value(static_cast<const wchar*>(nullptr), quote);
    return value(tovan::toWide(text).c_str(), quote);
}

void CJsonWriter::close(bool isObject) {
    // Both closers report "Misplaced JSON end array": the text for objects is
    // chosen only for a required mode of 5, which no closer has. Callers match
    // the text, so it stays.
    Mode required = isObject ? ModeObject : ModeArray;
    if (mode_ != required)
        throw Exception("CJsonWriter", isObject ? "endObject" : "endArray", u"%ls",
                        required == ModeKey ? u"Misplaced JSON end object" : u"Misplaced JSON end array");
    pop(isObject);
    if (newLinePending_) {
        scratch_ += u'\n';
        newLinePending_ = false;
    }
    scratch_ += isObject ? u'}' : u']';
    if (mode_ == ModeDone && variableOpen_) {
        scratch_ += u';';
        variableOpen_ = false;
    }
    deliver();
    needsSeparator_ = true;
}

CJsonWriter& CJsonWriter::endArray() {
    close(false);
    return *this;
}

CJsonWriter& CJsonWriter::endObject() {
    close(true);
    return *this;
}

CJsonWriter& CJsonWriter::writeNewLine() {
    newLinePending_ = true;
    return *this;
}

}  // namespace nvk
