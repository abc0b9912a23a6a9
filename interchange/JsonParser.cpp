#include "nvk/interchange/JsonParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_set>

#include "nvk/platform/NumberText.h"

namespace cajun::json {

double Parser::ParseNumber(const JsonToken& token) {
    std::u16string_view text = token.text;
    double value;
    if (tovan::parseShortDecimal(text, value)) return value;
    std::u16string_view unsigned_ = text;
    bool negative = false;
    if (!unsigned_.empty() && (unsigned_[0] == u'+' || unsigned_[0] == u'-')) {
        negative = unsigned_[0] == u'-';
        unsigned_.remove_prefix(1);
    }
    if (unsigned_ == u"Inf" || unsigned_ == u"Infinity")
        return negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();

    // The usual numbers are read here, narrowed once: what from_chars takes
    // whole, starting with a digit or a point after at most one sign, the
    // stream's rule takes whole too, with the same value. Anything else goes
    // the general way, which checks the rule first and narrows again.
    char narrow[64];
    if (!text.empty() && text.size() < sizeof narrow) {
        char16_t units = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            units |= text[i];
            narrow[i] = char(text[i]);
        }
        const char* end = narrow + text.size();
        const size_t sign = (narrow[0] == '+' || narrow[0] == '-') ? 1 : 0;
        if (units < 0x80 && sign < text.size() &&
            ((narrow[sign] >= '0' && narrow[sign] <= '9') || narrow[sign] == '.')) {
            auto [ptr, ec] = std::from_chars(narrow + (narrow[0] == '+' ? 1 : 0), end, value);
            if (ec == std::errc() && ptr == end) return value;
        }
    }
    const size_t taken = tovan::streamDoublePrefix(text);
    if (taken < text.size())
        throw ParseException(token.begin, token.end, u"Unexpected character in NUMBER token: %c", text[taken]);
    return tovan::streamDoubleValue(text);
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
