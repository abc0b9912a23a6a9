#pragma once
// Tokens, and the scanner that turns the characters of one top-level JSON
// value into them.
#include <cstdint>
#include <cwctype>
#include <new>
#include <type_traits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvk/interchange/JsonElements.h"
#include "nvk/interchange/JsonInputStream.h"
#include "nvk/platform/Export.h"

namespace cajun::json {

/// White space between JSON tokens: what the C library's iswspace says in the locale the
/// host has set (the "C" locale unless it called setlocale; a UTF-8 locale adds spaces
/// such as U+2000 and U+3000). ASCII, whose spaces no locale changes, is answered here.
inline bool isJsonSpace(char16_t c) {
    if (c < 0x80) return c == u' ' || (c >= 9 && c <= 13);
    return std::iswspace(static_cast<std::wint_t>(c)) != 0;
}

/// The numbering is part of the design: 10 means "none".
enum class TokenKind : int32_t {
    ObjectBegin = 0,   // {
    ObjectEnd = 1,     // }
    ArrayBegin = 2,    // [
    ArrayEnd = 3,      // ]
    NextElement = 4,   // ,
    MemberAssign = 5,  // :
    String = 6,        // text: the decoded content, without quotes
    Number = 7,        // text: the raw characters
    Boolean = 8,       // "true" or "false"
    Null = 9,          // "null"
    None = 10,
};

struct JsonToken {
    TokenKind kind = TokenKind::None;
    /// For an ArrayBegin token in a Tokens list: how many elements the array
    /// seems to have (counted by the scanner from the commas at its level),
    /// so that the parser can size the array once. Only a hint: malformed
    /// input may make it wrong.
    uint32_t elementHint = 0;
    /// The token's text; for tokens in a Tokens list it lives in the list.
    std::u16string_view text;
    Location begin;  // the counters before the token's first character
    Location end;    // and after its last
};

static_assert(std::is_trivially_destructible_v<JsonToken>);

/// The tokens of one top-level value, in order, together with the storage of
/// their texts. Tokens and texts are kept in blocks that never move: a
/// token's view stays valid while the list grows, and growing never copies
/// what is there. Both were the scanner's largest costs on number-heavy
/// documents (bench/json_bench.cpp, BM_Read/canada).
class NVK_EXPORT Tokens {
public:
    Tokens();
    ~Tokens();
    Tokens(Tokens&&) noexcept;
    Tokens& operator=(Tokens&&) noexcept;
    Tokens(const Tokens&) = delete;  // the copies' views would point into this list
    Tokens& operator=(const Tokens&) = delete;

    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    JsonToken& operator[](size_t i) { return chunks_[i >> kChunkShift][i & (kChunkTokens - 1)]; }
    const JsonToken& operator[](size_t i) const { return chunks_[i >> kChunkShift][i & (kChunkTokens - 1)]; }
    JsonToken& back() { return (*this)[size_ - 1]; }
    void push_back(const JsonToken& token) {
        if ((size_ & (kChunkTokens - 1)) == 0 && (size_ >> kChunkShift) == chunks_.size()) grow();
        new (&(*this)[size_]) JsonToken(token);
        ++size_;
    }

    /// Copies `text` into the list's storage; the view stays valid until
    /// clear() or the list's end.
    std::u16string_view Keep(std::u16string_view text);
    /// Drops the tokens and their texts.
    void clear();

private:
    static constexpr size_t kChunkShift = 11;
    static constexpr size_t kChunkTokens = size_t(1) << kChunkShift;
    void grow();
    void release();

    // Raw blocks from a per-thread cache (see the .cpp); tokens are
    // trivially destructible, so dropping a block needs no destructor calls.
    std::vector<JsonToken*> chunks_;
    size_t size_ = 0;
    std::vector<char16_t*> blocks_;       // texts, kBlockUnits each
    std::vector<std::unique_ptr<char16_t[]>> longTexts_;
    char16_t* free_ = nullptr;
    size_t left_ = 0;
};

/// Reads exactly one top-level value. Nesting is tracked on the kind of the
/// first token only: an object ends at the "}" that balances the "{" tokens,
/// an array likewise with brackets; a first token that is a number, boolean
/// or null lets scanning run to the end of the stream, and a first string
/// ends at the next string token (CJsonReader always starts at a brace, so
/// that rule never matters there). Brackets inside an object are left for
/// the parser to balance.
class NVK_EXPORT Scanner {
public:
    /// Appends the tokens to `tokens`. Raises ScanException with the location
    /// where scanning stopped; the stream stays there.
    void Scan(JsonInputStream& in, Tokens& tokens);

    /// The same scan one token at a time, for readers that use each token as
    /// it comes: Begin() starts a value, then each Next() gives the next token
    /// until it returns false (the value is complete, or the stream ended).
    /// A string's or number's text lives in the scanner or in the stream's
    /// block, and is valid until the next call or the next read of the
    /// stream; element hints are not counted (always 0).
    void Begin();
    bool Next(JsonInputStream& in, JsonToken& token);
    /// Takes the next token when it is the punctuation `c` ("," or ":"), as
    /// Next() would hand it out, but without making a token of it: a reader
    /// that only checks for it needs neither its text nor its location.
    /// When it is not, only the white space before the next token is gone.
    bool TakePunctuation(JsonInputStream& in, char16_t c) {
        if (done_ || first_) return false;
        const std::u16string_view buf = in.Buffered();
        if (buf.empty() || buf[0] != c) return takePunctuationAfterSpace(in, c);
        in.Skip(1);
        in.column = advanceCount(in.column, 1);
        in.position = advanceCount(in.position, 1);
        return true;
    }
    /// Takes the next token when it is the string `text` written as it is
    /// (`text` must hold no quote, backslash or line feed), as Next() would
    /// hand it out, and gives its begin and end. A record's member names
    /// mostly come again in the order they came before: the reader checks
    /// the name it expects against the characters, without scanning a token.
    /// When it is not, only the white space before the next token is gone.
    bool TakeKnownString(JsonInputStream& in, std::u16string_view text, Location& begin, Location& end);
    /// Frees the scanner's text buffer when it has grown past `bytes`, for
    /// scanners kept from one read to the next.
    void TrimScratch(size_t bytes) {
        if (scratch_.capacity() * sizeof(char16_t) > bytes) std::u16string().swap(scratch_);
    }

private:
    // The token's text, in scratch_ or in the stream's block. Returned rather
    // than kept in a member: read back at once, the member's two words would
    // wait for the stores that just wrote them.
    std::u16string_view scanString(JsonInputStream& in);
    std::u16string_view scanNumber(JsonInputStream& in);
    void matchWord(JsonInputStream& in, std::u16string_view word);
    bool takePunctuationAfterSpace(JsonInputStream& in, char16_t c);

    std::u16string scratch_;          // the text of the token being scanned, when it is not in the block
    // Open containers by token index (kObjectBit set for objects), for the
    // arrays' element hints.
    static constexpr uint32_t kObjectBit = 0x80000000u;
    std::vector<uint32_t> open_;
    // The nesting of the value being scanned: the first token's kind, the
    // kind that closes it, and how many are open.
    TokenKind opening_ = TokenKind::None;
    TokenKind closing_ = TokenKind::None;
    int depth_ = 0;
    bool first_ = true;
    bool done_ = false;
};

}  // namespace cajun::json
