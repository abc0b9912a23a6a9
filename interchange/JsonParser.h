#pragma once
// Recursive descent from a token list to the element tree.
#include <cstddef>

#include "nvk/interchange/JsonElements.h"
#include "nvk/interchange/JsonScanner.h"
#include "nvk/platform/Export.h"

namespace cajun::json {

/// Parses tokens from the front of a list.
///
/// Every failure is a ParseException carrying the offending token's begin and
/// end (a default Location when the list ran out). Objects and arrays nested
/// deeper than kMaxDepth levels are refused, so that hostile input cannot
/// exhaust the stack here or in the recursive code that walks the tree later.
class NVK_EXPORT Parser {
public:
    static constexpr int kMaxDepth = 1000;
    /// Objects up to this many members are checked for duplicates by a scan.
    static constexpr size_t kLinearMembers = 16;

    explicit Parser(const Tokens& tokens) : tokens_(tokens) {}

    /// Expects an ObjectBegin token first.
    void ParseObject(Object& object);
    /// Any value.
    void ParseValue(Element& element);

    /// The value of a Number token's text: an optional sign followed by "Inf"
    /// or "Infinity" is an infinity; anything else is read the way a standard
    /// input stream extracts a double (see the .cpp) and must be read to its end.
    static double ParseNumber(const JsonToken& token);

    /// Tokens not used yet.
    size_t Remaining() const { return tokens_.size() - next_; }

private:
    const JsonToken& match(TokenKind kind);
    bool nextIs(TokenKind kind) const { return next_ < tokens_.size() && tokens_[next_].kind == kind; }
    void parseObject(Object& object);
    void parseArray(Array& array);
    void enter(const JsonToken& token);

    const Tokens& tokens_;
    size_t next_ = 0;
    int depth_ = 0;
};

}  // namespace cajun::json
