#include "interchange/CJsonWriter.h"

#include <cstring>

#include "platform/Exception.h"
#include "platform/Util.h"

namespace nvk {

using tovan::Exception;
using tovan::wchar;

namespace {

constexpr size_t kNumberBuffer = 80;

[[noreturn]] void fail(const char* operation, const char16_t* message) {
    throw Exception("CJsonWriter", operation, u"%ls", message);
}

}  // namespace

CJsonWriter::Writer::~Writer() = default;

CJsonWriter::CJsonWriter(Writer* sink, const wchar* variableName) : sink_(sink) {
    if (!sink) fail("CJsonWriter", u"Invalid null output stream");
    if (variableName && *variableName) {
        sink_->write(u"var ");
        sink_->write(variableName);
        sink_->write(u" = ");
        variableOpen_ = true;
    }
}

CJsonWriter::~CJsonWriter() = default;

// ---- escaping --------------------------------------------------------------

void CJsonWriter::escape(std::u16string_view text, std::u16string& out) {
    static const char16_t hex[] = u"0123456789abcdef";
    out += u'"';
    wchar previous = 0;
    size_t run = 0;  // start of the characters that go out unchanged
    for (size_t i = 0; i < text.size(); ++i) {
        wchar c = text[i];
        wchar prev = previous;
        previous = c;
        // Most characters need nothing; test the common case first.
        if (c >= 32 && c != u'"' && c != u'\\' && c != u'/' && (c < 128 || (c > 159 && (c < 0x2000 || c > 0x20FF))))
            continue;
        if (c == u'/' && prev != u'<') continue;
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
            out += hex[(c >> 12) & 15];
            out += hex[(c >> 8) & 15];
            out += hex[(c >> 4) & 15];
            out += hex[c & 15];
        }
    }
    out.append(text.data() + run, text.size() - run);
    out += u'"';
}

void CJsonWriter::writeQuoted(std::u16string_view text) {
    scratch_.clear();
    escape(text, scratch_);
    sink_->write(scratch_.c_str());
}

// ---- numbers ---------------------------------------------------------------

void CJsonWriter::fixUpDoubles(char* text, size_t capacity, bool strict) {
    size_t length = strnlen(text, capacity);
    auto insert = [&](size_t at, const char* what) {
        size_t n = std::strlen(what);
        if (length + n >= capacity)
            throw Exception("CJsonWriter", "fixUpDoubles", u"%ls formatting: %s",
                            u"Malformed JSON number format, but no space in buffer to fix", text);
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

std::u16string CJsonWriter::formatDouble(double value, bool strict) {
    wchar wide[kNumberBuffer];
    size_t length = tovan::util::doubleToString(value, wide, kNumberBuffer, 1);
    char narrow[kNumberBuffer];
    for (size_t i = 0; i <= length; ++i) {
        if (wide[i] > 255)
            throw Exception("CJsonWriter", "value(double)", u"Unable to convert character 0x%x", unsigned(wide[i]));
        narrow[i] = char(wide[i]);
    }
    fixUpDoubles(narrow, kNumberBuffer, strict);
    std::u16string text;
    for (const char* p = narrow; *p; ++p) text += wchar((unsigned char)*p);
    return text;
}

// ---- the call chain --------------------------------------------------------

void CJsonWriter::emitValue(std::u16string_view text, bool quote) {
    if (needsSeparator_ && mode_ == ModeArray) sink_->write(u',');
    if (newLinePending_) {
        sink_->write(u'\n');
        newLinePending_ = false;
    }
    if (quote) {
        writeQuoted(text);
    } else if (!text.empty()) {
        scratch_.assign(text);
        sink_->write(scratch_.c_str());
    }
    if (newLinePending_) {
        sink_->write(u'\n');
        newLinePending_ = false;
    }
    if (mode_ == ModeKey) mode_ = ModeObject;
    needsSeparator_ = true;
}

void CJsonWriter::checkValue() {
    if (mode_ != ModeArray && mode_ != ModeKey) fail("value", u"JSON value out of sequence");
}

void CJsonWriter::writeValue(const wchar* text, bool quote) {
    if (!text) fail("value", u"Empty JSON value string");
    checkValue();
    emitValue(text, quote);
}

void CJsonWriter::push(bool isObject) {
    stack_.push_back(isObject);
    mode_ = isObject ? ModeObject : ModeArray;
}

void CJsonWriter::pop(bool isObject) {
    if (stack_.empty() || stack_.back() != isObject) fail(isObject ? "endObject" : "endArray", u"JSON nesting error");
    stack_.pop_back();
    mode_ = stack_.empty() ? ModeDone : (stack_.back() ? ModeObject : ModeArray);
}

CJsonWriter& CJsonWriter::object() {
    Mode mode = mode_ == ModeInit ? ModeKey : mode_;  // a top-level object is welcome
    if (mode != ModeArray && mode != ModeKey) fail("object", u"Misplaced JSON object");
    mode_ = mode;
    emitValue(u"{", false);
    push(true);
    needsSeparator_ = false;
    return *this;
}

CJsonWriter& CJsonWriter::array() {
    if (mode_ != ModeArray && mode_ != ModeInit && mode_ != ModeKey) fail("array", u"Misplaced JSON array");
    push(false);
    emitValue(u"[", false);  // with the new mode, so "[1,[" gets its comma
    needsSeparator_ = false;
    return *this;
}

CJsonWriter& CJsonWriter::key(const wchar* name) {
    if (!name) fail("key", u"Empty JSON key string");
    return key(std::u16string_view(name));
}

CJsonWriter& CJsonWriter::key(std::u16string_view name) {
    if (name.empty()) fail("key", u"Empty JSON key string");
    if (mode_ != ModeObject) fail("key", u"Misplaced JSON key");
    stack_.back() = true;
    if (needsSeparator_) sink_->write(u',');
    writeQuoted(name);
    sink_->write(u':');
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
    std::u16string text = formatDouble(d, strict_);
    writeValue(text.c_str(), false);
    return *this;
}

CJsonWriter& CJsonWriter::value(long n) {
    char16_t buf[24];
    char16_t* p = buf + 23;
    *p = 0;
    unsigned long long m = n < 0 ? 0ULL - (unsigned long long)n : (unsigned long long)n;
    do {
        *--p = char16_t(u'0' + m % 10);
        m /= 10;
    } while (m);
    if (n < 0) *--p = u'-';
    writeValue(p, false);
    return *this;
}

CJsonWriter& CJsonWriter::value(unsigned int n) {
    char16_t buf[16];
    char16_t* p = buf + 15;
    *p = 0;
    do {
        *--p = char16_t(u'0' + n % 10);
        n /= 10;
    } while (n);
    writeValue(p, false);
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
        fail(isObject ? "endObject" : "endArray",
             required == ModeKey ? u"Misplaced JSON end object" : u"Misplaced JSON end array");
    pop(isObject);
    if (newLinePending_) {
        sink_->write(u'\n');
        newLinePending_ = false;
    }
    sink_->write(isObject ? u'}' : u']');
    if (mode_ == ModeDone && variableOpen_) {
        sink_->write(u';');
        variableOpen_ = false;
    }
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
