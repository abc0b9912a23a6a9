#include "nvk/interchange/JsonParser.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_set>

namespace cajun::json {

namespace {


// The longest prefix of `text` that a standard input stream's extraction of
// a double takes in the classic locale: a sign, digits with at most one
// decimal point, then "e" or "E" (only after a digit) with an optional sign
// and digits.
size_t extractablePrefix(std::u16string_view text) {
    size_t i = 0;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
    bool digit = false, point = false, exponent = false;
    while (i < text.size()) {
        char16_t c = text[i];
        if (c >= u'0' && c <= u'9') {
            digit = true;
        } else if (c == u'.' && !point && !exponent) {
            point = true;
        } else if ((c == u'e' || c == u'E') && !exponent && digit) {
            exponent = true;
            if (i + 1 < text.size() && (text[i + 1] == u'+' || text[i + 1] == u'-')) ++i;
        } else {
            break;
        }
        ++i;
    }
    return i;
}

// Converts what extractablePrefix accepted, with the stream's results for the
// texts it cannot take whole: zero for a text that is no number ("-", "1e"),
// the largest finite magnitude for one that overflows.
double convertExtracted(std::u16string_view text) {
    char small[64];
    std::string large;
    char* buf = small;
    if (text.size() >= sizeof small) {
        large.resize(text.size() + 1);
        buf = large.data();
    }
    size_t n = 0;
    for (char16_t c : text) buf[n++] = char(c);
    buf[n] = 0;
    const char* begin = buf;
    if (*begin == '+') ++begin;  // from_chars takes no plus sign
    double value = 0;
    auto [ptr, ec] = std::from_chars(begin, buf + n, value);
    if (ec == std::errc() && ptr == buf + n) return value;
    if (ec == std::errc::result_out_of_range) {
        char* end = nullptr;
        double v = std::strtod(buf, &end);
        if (end != buf + n) return 0;
        if (std::isinf(v)) return v > 0 ? std::numeric_limits<double>::max() : -std::numeric_limits<double>::max();
        return v;
    }
    return 0;
}

}  // namespace

double Parser::ParseNumber(const JsonToken& token) {
    std::u16string_view text = token.text;
    // Most numbers in records are short integers: up to nine digits convert
    // exactly by hand, with the same result as the general path (-0 too).
    {
        const bool minus = !text.empty() && text[0] == u'-';
        const size_t digits = text.size() - (minus ? 1 : 0);
        if (digits >= 1 && digits <= 9) {
            uint32_t v = 0;
            size_t i = minus ? 1 : 0;
            for (; i < text.size(); ++i) {
                const unsigned d = unsigned(text[i]) - u'0';
                if (d > 9) break;
                v = v * 10 + d;
            }
            if (i == text.size()) return minus ? -double(v) : double(v);
        }
    }
    std::u16string_view unsigned_ = text;
    bool negative = false;
    if (!unsigned_.empty() && (unsigned_[0] == u'+' || unsigned_[0] == u'-')) {
        negative = unsigned_[0] == u'-';
        unsigned_.remove_prefix(1);
    }
    if (unsigned_ == u"Inf" || unsigned_ == u"Infinity")
        return negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();

    size_t taken = extractablePrefix(text);
    if (taken < text.size())
        throw ParseException(token.begin, token.end, u"Unexpected character in NUMBER token: %c", text[taken]);
    return convertExtracted(text);
}

const JsonToken& Parser::match(TokenKind kind) {
    // Capital E on purpose: callers tell this case from the next one by the text.
    if (next_ >= tokens_.size()) throw ParseException(Location(), Location(), u"Unexpected End of token stream");
    const JsonToken& token = tokens_[next_];
    if (token.kind != kind) throw ParseException(token.begin, token.end, u"Unexpected token: %ls", token.text);
    ++next_;
    return token;
}

void Parser::enter(const JsonToken& token) {
    if (depth_ >= kMaxDepth) throw ParseException(token.begin, token.end, u"Nesting deeper than %d levels", kMaxDepth);
}

void Parser::ParseObject(Object& object) { parseObject(object); }

void Parser::ParseValue(Element& element) {
    if (next_ >= tokens_.size()) throw ParseException(Location(), Location(), u"Unexpected end of token stream");
    const JsonToken& token = tokens_[next_];
    switch (token.kind) {
    case TokenKind::ObjectBegin: parseObject(element.variant().emplace<Object>()); break;
    case TokenKind::ArrayBegin: parseArray(element.variant().emplace<Array>()); break;
    case TokenKind::String:
        ++next_;
        element.variant().emplace<String>(std::u16string(token.text));
        break;
    case TokenKind::Number:
        ++next_;
        element.variant().emplace<Number>(ParseNumber(token));
        break;
    case TokenKind::Boolean:
        ++next_;
        element.variant().emplace<Boolean>(token.text == u"true");
        break;
    case TokenKind::Null:
        ++next_;
        element.variant().emplace<Null>();
        break;
    default:
        throw ParseException(token.begin, token.end, u"Unexpected token: %ls", token.text);
    }
}

void Parser::parseObject(Object& object) {
    enter(match(TokenKind::ObjectBegin));
    ++depth_;
    // Past a few members the duplicate check goes through a set of the
    // names, so that an object of many members is not quadratic. The names
    // live in the object's list nodes, which never move.
    std::unordered_set<std::u16string_view> names;
    if (!nextIs(TokenKind::ObjectEnd)) {
        for (;;) {
            const JsonToken& name = match(TokenKind::String);
            match(TokenKind::MemberAssign);
            Element value;
            ParseValue(value);
            bool duplicate;
            if (object.Size() < kLinearMembers) {
                duplicate = object.Find(name.text) != object.End();
            } else {
                if (names.empty())
                    for (const auto& m : object) names.insert(m.name);
                duplicate = names.count(name.text) != 0;
            }
            if (duplicate) throw ParseException(name.begin, name.end, u"Duplicate object member token: %ls", name.text);
            object.append(std::u16string(name.text), std::move(value));
            if (!names.empty()) names.insert(std::prev(object.End())->name);
            if (!nextIs(TokenKind::NextElement)) break;
            match(TokenKind::NextElement);
        }
    }
    match(TokenKind::ObjectEnd);
    --depth_;
}

void Parser::parseArray(Array& array) {
    const JsonToken& begin = match(TokenKind::ArrayBegin);
    enter(begin);
    ++depth_;
    // Each element takes at least one token, so a hint beyond what is left
    // is wrong and would only waste memory.
    array.Reserve(std::min<size_t>(begin.elementHint, tokens_.size() - next_));
    if (!nextIs(TokenKind::ArrayEnd)) {
        for (;;) {
            ParseValue(array.PushBack(Element()));
            if (!nextIs(TokenKind::NextElement)) break;
            match(TokenKind::NextElement);
        }
    }
    match(TokenKind::ArrayEnd);
    --depth_;
}

}  // namespace cajun::json
