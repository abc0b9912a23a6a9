#pragma once
// Tokens, and the scanner that turns the characters of one top-level JSON
// value into them.
#include <cstdint>
#include <string>
#include <vector>

#include "interchange/JsonElements.h"
#include "interchange/JsonInputStream.h"
#include "platform/Export.h"

namespace cajun::json {

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
    std::u16string text;
    Location begin;  // the counters before the token's first character
    Location end;    // and after its last
};

using Tokens = std::vector<JsonToken>;

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

private:
    void scanString(JsonInputStream& in, std::u16string& text);
    void scanNumber(JsonInputStream& in, std::u16string& text);
    void matchWord(JsonInputStream& in, std::u16string_view word);
};

}  // namespace cajun::json
