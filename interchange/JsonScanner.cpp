#include "nvk/interchange/JsonScanner.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "nvk/platform/NumberText.h"

namespace cajun::json {

using tovan::wchar;

namespace {

inline bool isSpace(wchar c) { return isJsonSpace(c); }

// The characters a number token may hold, built once from the literal that
// defines them: the digits, ".", "e", "E", "-", "+" and the letters of
// "Infinity". Table lookups keep the hot loop branch-free.
const std::array<bool, 128>& numberCharacters() {
    static const std::array<bool, 128> table = [] {
        std::array<bool, 128> t{};
        for (const char16_t* p = u"0123456789.eE-+Infinty"; *p; ++p) t[*p] = true;
        return t;
    }();
    return table;
}

inline bool isNumberChar(const std::array<bool, 128>& table, wchar c) { return c < 128 && table[c]; }

// Consumes white space, counting it, in bulk where the buffer allows: the
// counters move once per run (a line feed starts a line, anything else is a
// column), and a run of blanks (indentation) is measured eight at a time
// where SSE2 is there, its end found from the compare's mask rather than
// unit by unit. Returns the location after it, from the values just
// computed: reading the counters back at once would make the processor wait
// for the stores.
[[gnu::always_inline]] inline Location skipSpace(JsonInputStream& in) {
    for (;;) {
        std::u16string_view buf = in.Buffered();
        if (!buf.empty()) {
            const wchar* p = buf.data();
            const size_t n = buf.size();
            size_t i = 0;
            size_t lineStart = SIZE_MAX;  // just past the run's last line feed
            size_t lines = 0;
            while (i < n) {
                const wchar c = p[i];
                if (c == u' ') {
#if defined(__SSE2__)
                    if (i + 8 <= n) {
                        const unsigned blanks = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi16(
                            _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), _mm_set1_epi16(' '))));
                        // The first unit is a blank, so at least one is taken.
                        i += blanks == 0xFFFF ? 8 : size_t(__builtin_ctz(~blanks)) / 2;
                        continue;
                    }
#endif
                    ++i;
                    continue;
                }
                if (c == u'\n') {
                    ++lines;
                    lineStart = i + 1;
                } else if (!isSpace(c)) {
                    break;
                }
                ++i;
            }
            const Location after{advanceCount(in.line, lines),
                                 lines ? advanceCount(0, i - lineStart) : advanceCount(in.column, i),
                                 advanceCount(in.position, i)};
            in.line = after.line;
            in.column = after.column;
            in.position = after.position;
            in.Skip(i);
            if (i < n) return after;
            continue;  // the block was all white space: look at the next one
        }
        if (in.EOS() || !isSpace(in.Peek())) return in.GetLocation();
        in.Consume();
    }
}

}  // namespace

void Scanner::matchWord(JsonInputStream& in, std::u16string_view word) {
    // Unit by unit: the word is cut by the end of the block, or wrong (callers
    // try takeWord first).
    for (size_t i = 0; i < word.size(); ++i) {
        if (in.EOS()) throw ScanException(in.GetLocation(), u"Expected string: %ls; found: end of input", word);
        wchar c = in.Consume();
        if (c != word[i]) {
            std::u16string found(word.substr(0, i));
            found += c;
            throw ScanException(in.GetLocation(), u"Expected string: %ls; found: %ls", word, found);
        }
    }
}

namespace {

// A literal word whole in the block, as it nearly always is: compared at
// once, its few units in one or two loads; the rest is matchWord's.
template <size_t N>
[[gnu::always_inline]] inline bool takeWord(JsonInputStream& in, const char16_t (&word)[N]) {
    constexpr size_t units = N - 1;
    const std::u16string_view buf = in.Buffered();
    if (buf.size() < units || std::memcmp(buf.data(), word, units * sizeof(char16_t)) != 0) return false;
    in.Skip(units);
    in.position = advanceCount(in.position, units);
    in.column = advanceCount(in.column, units);
    return true;
}

// How many characters from the start of `buf` a string takes over as they
// are: up to its first quote, backslash or line feed (a line feed is
// counted as a line), eight at a time where SSE2 is there.
size_t plainRun(std::u16string_view buf) {
    const wchar* p = buf.data();
    const size_t n = buf.size();
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi16('"'), backslash = _mm_set1_epi16('\\'), lineFeed = _mm_set1_epi16('\n');
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        const int hits = _mm_movemask_epi8(_mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash)), _mm_cmpeq_epi16(v, lineFeed)));
        if (hits) return i + size_t(__builtin_ctz(unsigned(hits))) / 2;
    }
#endif
    while (i < n && p[i] != u'"' && p[i] != u'\\' && p[i] != u'\n') ++i;
    return i;
}

// How many characters from the start of `buf` are digits, points, signs or
// exponent letters, eight at a time where SSE2 is there: the bulk of a number
// token (the letters of "Infinity" are left to the caller's table).
size_t digitRun(std::u16string_view buf) {
    size_t i = 0;
#if defined(__SSE2__)
    const wchar* p = buf.data();
    const __m128i belowZero = _mm_set1_epi16('0' - 1), aboveNine = _mm_set1_epi16('9' + 1);
    const __m128i point = _mm_set1_epi16('.'), minus = _mm_set1_epi16('-'), plus = _mm_set1_epi16('+');
    const __m128i e = _mm_set1_epi16('e'), upperE = _mm_set1_epi16('E');
    for (; i + 8 <= buf.size(); i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        // Units from 0x8000 up compare as negative: never digits.
        const __m128i digit = _mm_and_si128(_mm_cmpgt_epi16(v, belowZero), _mm_cmplt_epi16(v, aboveNine));
        const __m128i sign = _mm_or_si128(_mm_cmpeq_epi16(v, minus), _mm_cmpeq_epi16(v, plus));
        const __m128i exponent = _mm_or_si128(_mm_cmpeq_epi16(v, e), _mm_cmpeq_epi16(v, upperE));
        const __m128i rest = _mm_or_si128(_mm_cmpeq_epi16(v, point), exponent);
        const unsigned taken = unsigned(_mm_movemask_epi8(_mm_or_si128(digit, _mm_or_si128(sign, rest))));
        if (taken != 0xFFFF) return i + size_t(__builtin_ctz(~taken)) / 2;
    }
#endif
    return i;
}

}  // namespace

bool Scanner::takePunctuationAfterSpace(JsonInputStream& in, char16_t c) {
    skipSpace(in);
    const std::u16string_view buf = in.Buffered();
    if (buf.empty() || buf[0] != c) return false;
    in.Skip(1);
    in.column = advanceCount(in.column, 1);
    in.position = advanceCount(in.position, 1);
    return true;
}

bool Scanner::TakeKnownString(JsonInputStream& in, std::u16string_view text, Location& begin, Location& end) {
    // A string that is the whole value ends it: left to Next(), which keeps the count.
    if (done_ || first_ || closing_ == TokenKind::String) return false;
    const Location at = skipSpace(in);
    const std::u16string_view buf = in.Buffered();
    const size_t units = text.size() + 2;
    if (buf.size() < units || buf[0] != u'"' || buf[units - 1] != u'"' ||
        std::memcmp(buf.data() + 1, text.data(), text.size() * sizeof(char16_t)) != 0)
        return false;
    in.Skip(units);
    begin = at;
    end = Location{at.line, advanceCount(at.column, units), advanceCount(at.position, units)};
    in.column = end.column;
    in.position = end.position;
    return true;
}

std::u16string_view Scanner::scanString(JsonInputStream& in) {
    // Most strings have no escape and end in the block at hand: their text is
    // that part of the block, which stays as it is until the stream reads on
    // (at the next token), and is not copied. The counters move once, over
    // both quotes. Next() has seen the opening quote: it is the block's first
    // unit whenever the block is there.
    if (const std::u16string_view buf = in.Buffered(); !buf.empty()) {
        const std::u16string_view rest = buf.substr(1);
        const size_t run = plainRun(rest);
        if (run < rest.size() && rest[run] == u'"') {
            in.Skip(run + 2);
            in.position = advanceCount(in.position, run + 2);
            in.column = advanceCount(in.column, run + 2);
            return rest.substr(0, run);
        }
    }
    in.Get();
    in.position = advanceCount(in.position, 1);
    in.column = advanceCount(in.column, 1);
    std::u16string_view buf;
    std::u16string& text = scratch_;
    text.clear();
    for (;;) {
        // Plain characters go over in runs straight from the file's block.
        buf = in.Buffered();
        if (!buf.empty()) {
            const size_t i = plainRun(buf);
            if (i) {
                text.append(buf.data(), i);
                in.Skip(i);
                in.position = advanceCount(in.position, i);
                in.column = advanceCount(in.column, i);
                if (i == buf.size()) continue;
            }
        }
        if (in.EOS() || in.Peek() == u'"') break;
        wchar c = in.Consume();
        if (c != u'\\') {
            text += c;
            continue;
        }
        if (in.EOS()) {
            text += c;  // a backslash at the very end stays as it is
            break;
        }
        wchar e = in.Consume();
        switch (e) {
        case u'"':
        case u'\\':
        case u'/': text += e; break;
        case u'b': text += wchar(8); break;
        case u'f': text += wchar(12); break;
        case u'n': text += wchar(10); break;
        case u'r': text += wchar(13); break;
        case u't': text += wchar(9); break;
        case u'u': {
            unsigned value = 0;
            int digits = 0;
            while (digits < 4 && !in.EOS()) {
                const int digit = tovan::hexDigitValue(in.Consume());
                if (digit < 0) break;  // consumed all the same
                value = value * 16 + unsigned(digit);
                ++digits;
            }
            if (digits < 4)
                throw ScanException(in.GetLocation(), u"Unrecognized unicode escape sequence found in string: \\u");
            // Surrogates are neither paired nor checked: each escape is one unit.
            text += wchar(value);
            break;
        }
        default:
            throw ScanException(in.GetLocation(), u"Unrecognized escape sequence found in string: \\%c", e);
        }
    }
    matchWord(in, u"\"");
    return scratch_;
}

std::u16string_view Scanner::scanNumber(JsonInputStream& in) {
    const auto& table = numberCharacters();
    // As for strings: a number that ends inside the block is a view of it.
    std::u16string_view buf = in.Buffered();
    size_t run = digitRun(buf);
    while (run < buf.size() && isNumberChar(table, buf[run])) ++run;
    if (run < buf.size()) {
        in.Skip(run);
        in.position = advanceCount(in.position, run);
        in.column = advanceCount(in.column, run);
        return buf.substr(0, run);
    }
    std::u16string& text = scratch_;
    text.clear();
    for (;;) {
        std::u16string_view buf = in.Buffered();
        if (!buf.empty()) {
            size_t i = 0;
            while (i < buf.size() && isNumberChar(table, buf[i])) ++i;
            text.append(buf.data(), i);
            in.Skip(i);
            in.position = advanceCount(in.position, i);
            in.column = advanceCount(in.column, i);
            if (i < buf.size()) break;
            continue;
        }
        if (in.EOS() || !isNumberChar(table, in.Peek())) break;
        text += in.Consume();
    }
    return scratch_;
}

// ---- Tokens ----------------------------------------------------------------

namespace {

// Token chunks and text blocks share the cache below, so they have one size.
constexpr size_t kChunkBytes = (size_t(1) << 11) * sizeof(JsonToken);
constexpr size_t kBlockUnits = kChunkBytes / sizeof(char16_t);

// Blocks of token memory that a thread keeps for its next token lists, up to
// a few megabytes. A fresh block costs page faults and zeroing by the kernel
// on first touch, which took a fifth of the reading time of a record
// (bench/json_bench.cpp); reused blocks are already mapped and often cached.
class BlockCache {
public:
    ~BlockCache() {
        for (void* p : free_) ::operator delete(p);
    }
    void* take() {
        if (free_.empty()) return ::operator new(kChunkBytes);
        void* p = free_.back();
        free_.pop_back();
        return p;
    }
    void give(void* p) {
        if (free_.size() < kMaxBlocks)
            free_.push_back(p);
        else
            ::operator delete(p);
    }

private:
    static constexpr size_t kMaxBlocks = 64;
    std::vector<void*> free_;
};

BlockCache& blockCache() {
    thread_local BlockCache cache;
    return cache;
}

}  // namespace

Tokens::Tokens() = default;
Tokens::~Tokens() { release(); }

Tokens::Tokens(Tokens&& other) noexcept
    : chunks_(std::move(other.chunks_)),
      size_(std::exchange(other.size_, 0)),
      blocks_(std::move(other.blocks_)),
      longTexts_(std::move(other.longTexts_)),
      free_(std::exchange(other.free_, nullptr)),
      left_(std::exchange(other.left_, 0)) {
    other.chunks_.clear();
    other.blocks_.clear();
}

Tokens& Tokens::operator=(Tokens&& other) noexcept {
    if (this != &other) {
        release();
        chunks_ = std::move(other.chunks_);
        size_ = std::exchange(other.size_, 0);
        blocks_ = std::move(other.blocks_);
        longTexts_ = std::move(other.longTexts_);
        free_ = std::exchange(other.free_, nullptr);
        left_ = std::exchange(other.left_, 0);
        other.chunks_.clear();
        other.blocks_.clear();
    }
    return *this;
}

void Tokens::grow() { chunks_.push_back(static_cast<JsonToken*>(blockCache().take())); }

std::u16string_view Tokens::Keep(std::u16string_view text) {
    if (text.empty()) return std::u16string_view();
    if (text.size() > left_) {
        if (text.size() > kBlockUnits / 4) {
            // A long text gets a block of its own; the current block stays open.
            longTexts_.push_back(std::make_unique<char16_t[]>(text.size()));
            std::copy(text.begin(), text.end(), longTexts_.back().get());
            return std::u16string_view(longTexts_.back().get(), text.size());
        }
        blocks_.push_back(static_cast<char16_t*>(blockCache().take()));
        free_ = blocks_.back();
        left_ = kBlockUnits;
    }
    std::copy(text.begin(), text.end(), free_);
    std::u16string_view kept(free_, text.size());
    free_ += text.size();
    left_ -= text.size();
    return kept;
}

void Tokens::release() {
    for (JsonToken* c : chunks_) blockCache().give(c);
    for (char16_t* b : blocks_) blockCache().give(b);
    chunks_.clear();
    blocks_.clear();
    longTexts_.clear();
    size_ = 0;
    free_ = nullptr;
    left_ = 0;
}

void Tokens::clear() { release(); }

// ---- Scanner ---------------------------------------------------------------

void Scanner::Begin() {
    opening_ = TokenKind::None;
    closing_ = TokenKind::None;
    depth_ = 0;
    first_ = true;
    done_ = false;
}

bool Scanner::Next(JsonInputStream& in, JsonToken& token) {
    if (done_) return false;
    token.begin = skipSpace(in);
    if (in.EOS()) {
        done_ = true;
        return false;
    }
    token.elementHint = 0;
    wchar c = in.Peek();
    switch (c) {
    case u'{': token.kind = TokenKind::ObjectBegin; break;
    case u'}': token.kind = TokenKind::ObjectEnd; break;
    case u'[': token.kind = TokenKind::ArrayBegin; break;
    case u']': token.kind = TokenKind::ArrayEnd; break;
    case u',': token.kind = TokenKind::NextElement; break;
    case u':': token.kind = TokenKind::MemberAssign; break;
    case u'"':
        token.kind = TokenKind::String;
        token.text = scanString(in);
        break;
    case u'-':
    case u'0':
    case u'1':
    case u'2':
    case u'3':
    case u'4':
    case u'5':
    case u'6':
    case u'7':
    case u'8':
    case u'9':
    case u'I':
        token.kind = TokenKind::Number;
        token.text = scanNumber(in);
        break;
    case u't':
        token.kind = TokenKind::Boolean;
        if (!takeWord(in, u"true")) matchWord(in, u"true");
        token.text = u"true";
        break;
    case u'f':
        token.kind = TokenKind::Boolean;
        if (!takeWord(in, u"false")) matchWord(in, u"false");
        token.text = u"false";
        break;
    case u'n':
        token.kind = TokenKind::Null;
        if (!takeWord(in, u"null")) matchWord(in, u"null");
        token.text = u"null";
        break;
    default:
        throw ScanException(in.GetLocation(), u"Unexpected character in stream: %c", c);
    }
    if (int(token.kind) <= int(TokenKind::MemberAssign)) {
        static const char16_t punctuation[] = u"{}[],:";
        in.Get();
        // One character, never a line feed: counted from the begin, which is
        // in registers, rather than read back from the stream.
        token.end =
            Location{token.begin.line, advanceCount(token.begin.column, 1), advanceCount(token.begin.position, 1)};
        in.column = token.end.column;
        in.position = token.end.position;
        token.text = std::u16string_view(punctuation + int(token.kind), 1);
    } else {
        token.end = in.GetLocation();
    }

    const TokenKind kind = token.kind;
    if (first_) {
        first_ = false;
        opening_ = kind;
        closing_ = kind == TokenKind::ObjectBegin  ? TokenKind::ObjectEnd
                   : kind == TokenKind::ArrayBegin ? TokenKind::ArrayEnd
                   : kind == TokenKind::String     ? TokenKind::String
                                                   : TokenKind::None;
        depth_ = 1;
    } else if (kind == closing_) {
        if (--depth_ == 0) done_ = true;  // this token is still handed out
    } else if (kind == opening_) {
        ++depth_;
    }
    return true;
}

void Scanner::Scan(JsonInputStream& in, Tokens& tokens) {
    open_.clear();
    Begin();
    JsonToken token;
    while (Next(in, token)) {
        if (token.kind == TokenKind::String || token.kind == TokenKind::Number) token.text = tokens.Keep(token.text);
        tokens.push_back(token);

        // Element counts for the parser: the commas at an array's own level,
        // plus one for a non-empty array. Mismatched brackets only spoil
        // the hints; the parser reports them.
        uint32_t index = uint32_t(tokens.size() - 1);
        switch (token.kind) {
        case TokenKind::ObjectBegin: open_.push_back(index | kObjectBit); break;
        case TokenKind::ArrayBegin: open_.push_back(index); break;
        case TokenKind::ObjectEnd:
            if (!open_.empty()) open_.pop_back();
            break;
        case TokenKind::ArrayEnd:
            if (!open_.empty()) {
                uint32_t top = open_.back();
                open_.pop_back();
                if (!(top & kObjectBit) && index > top + 1) ++tokens[top].elementHint;
            }
            break;
        case TokenKind::NextElement:
            if (!open_.empty() && !(open_.back() & kObjectBit)) ++tokens[open_.back()].elementHint;
            break;
        default: break;
        }
    }
}

}  // namespace cajun::json
