// Lexer and parser of XPath 1.0 expressions.
#include <string>

#include "nvk/platform/Exception.h"
#include "nvk/platform/XPath_internal.h"

namespace tovan::xpath {
namespace {

// Deeper nesting than this is refused rather than risking the stack.
constexpr int kMaxNesting = 200;

enum class Tok : uint8_t {
    End,
    Slash,
    DoubleSlash,
    LBracket,
    RBracket,
    LParen,
    RParen,
    At,
    Dot,
    DotDot,
    Comma,
    ColonColon,
    Pipe,
    Plus,
    Minus,
    Equal,
    NotEqual,
    Less,
    LessOrEqual,
    Greater,
    GreaterOrEqual,
    Multiply,      // '*' read as an operator
    Literal,       // text: the string without quotes
    Number,        // number
    NameTest,      // text: "*", "p:*" or a QName
    FunctionName,  // text: the name; a '(' follows
    NodeType,      // text: "node" or "text"; a '(' follows
    AxisName,      // text: the axis; '::' follows
    OperatorName,  // text: "and", "or", "div" or "mod"
    Dollar,
};

struct Token {
    Tok kind;
    size_t pos;
    std::u16string text;
    double number = 0;
    size_t end = 0;
};

bool isSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
// Every unit above ASCII counts as a letter: names in data trees are not
// restricted to XML's name alphabet.
bool isNameStart(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_' || c >= 0x80; }
bool isNameChar(char16_t c) { return isNameStart(c) || isDigit(c) || c == u'.' || c == u'-'; }

class Parser {
public:
    explicit Parser(std::u16string_view text) : text_(text) {}

    ExprPtr run() {
        tokenize();
        if (tokens_.size() == 1)
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": empty expression", 0, text_);
        ExprPtr e = parseOr();
        if (const Token& t = peek(); t.kind != Tok::End)
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": unexpected '%ls'", t.pos, text_,
                                        tokenText(t));
        return e;
    }

private:
    std::u16string_view tokenText(const Token& t) const { return text_.substr(t.pos, t.end - t.pos); }

    // ---- lexer ------------------------------------------------------------

    // After these tokens a name is a name and '*' a name test; after anything
    // else they are operators (the disambiguation rule of XPath 1.0).
    bool operandExpected() const {
        if (tokens_.empty()) return true;
        switch (tokens_.back().kind) {
        case Tok::At:
        case Tok::Dollar:
        case Tok::ColonColon:
        case Tok::LParen:
        case Tok::LBracket:
        case Tok::Comma:
        case Tok::OperatorName:
        case Tok::Multiply:
        case Tok::Slash:
        case Tok::DoubleSlash:
        case Tok::Pipe:
        case Tok::Plus:
        case Tok::Minus:
        case Tok::Equal:
        case Tok::NotEqual:
        case Tok::Less:
        case Tok::LessOrEqual:
        case Tok::Greater:
        case Tok::GreaterOrEqual:
            return true;
        default:
            return false;
        }
    }

    size_t skipSpace(size_t i) const {
        while (i < text_.size() && isSpace(text_[i])) ++i;
        return i;
    }
    size_t scanName(size_t i) const {
        while (i < text_.size() && isNameChar(text_[i])) ++i;
        return i;
    }

    void add(Tok kind, size_t pos, std::u16string text = {}) { tokens_.push_back(Token{kind, pos, std::move(text)}); }

    void tokenize() {
        size_t i = skipSpace(0);
        while (i < text_.size()) {
            const size_t start = i;
            const char16_t c = text_[i];
            const char16_t next = i + 1 < text_.size() ? text_[i + 1] : 0;
            if (c == u'"' || c == u'\'') {
                size_t close = text_.find(c, i + 1);
                if (close == std::u16string_view::npos)
                    throw BadParameterException(
                        "CXPathParser", "parse",
                        u"XPath syntax error at offset %d in \"%ls\": unterminated string literal", start, text_);
                add(Tok::Literal, start, std::u16string(text_.substr(i + 1, close - i - 1)));
                i = close + 1;
            } else if (isDigit(c) || (c == u'.' && isDigit(next))) {
                while (i < text_.size() && isDigit(text_[i])) ++i;
                if (i < text_.size() && text_[i] == u'.') {
                    ++i;
                    while (i < text_.size() && isDigit(text_[i])) ++i;
                }
                add(Tok::Number, start);
                tokens_.back().number = xpathParseNumber(text_.substr(start, i - start));
            } else if (c == u'.') {
                add(next == u'.' ? Tok::DotDot : Tok::Dot, start);
                i += next == u'.' ? 2 : 1;
            } else if (c == u'*') {
                if (operandExpected())
                    add(Tok::NameTest, start, u"*");
                else
                    add(Tok::Multiply, start);
                ++i;
            } else if (isNameStart(c)) {
                i = lexName(start);
            } else {
                Tok kind;
                size_t len = 1;
                switch (c) {
                case u'/':
                    kind = next == u'/' ? Tok::DoubleSlash : Tok::Slash;
                    len = next == u'/' ? 2 : 1;
                    break;
                case u'[': kind = Tok::LBracket; break;
                case u']': kind = Tok::RBracket; break;
                case u'(': kind = Tok::LParen; break;
                case u')': kind = Tok::RParen; break;
                case u'@': kind = Tok::At; break;
                case u',': kind = Tok::Comma; break;
                case u'|': kind = Tok::Pipe; break;
                case u'+': kind = Tok::Plus; break;
                case u'-': kind = Tok::Minus; break;
                case u'=': kind = Tok::Equal; break;
                case u'$': kind = Tok::Dollar; break;
                case u':':
                    if (next != u':')
                        throw BadParameterException(
                            "CXPathParser", "parse",
                            u"XPath syntax error at offset %d in \"%ls\": unexpected character ':'", start, text_);
                    kind = Tok::ColonColon;
                    len = 2;
                    break;
                case u'!':
                    if (next != u'=')
                        throw BadParameterException(
                            "CXPathParser", "parse",
                            u"XPath syntax error at offset %d in \"%ls\": unexpected character '!'", start, text_);
                    kind = Tok::NotEqual;
                    len = 2;
                    break;
                case u'<':
                    kind = next == u'=' ? Tok::LessOrEqual : Tok::Less;
                    len = next == u'=' ? 2 : 1;
                    break;
                case u'>':
                    kind = next == u'=' ? Tok::GreaterOrEqual : Tok::Greater;
                    len = next == u'=' ? 2 : 1;
                    break;
                default:
                    throw BadParameterException(
                        "CXPathParser", "parse",
                        u"XPath syntax error at offset %d in \"%ls\": unexpected character '%c'", start, text_, c);
                }
                add(kind, start);
                i += len;
            }
            tokens_.back().end = i;
            i = skipSpace(i);
        }
        add(Tok::End, text_.size());
    }

    // A name: an operator name, a function name, a node type, an axis name or
    // a name test, depending on what precedes and follows it.
    size_t lexName(size_t start) {
        size_t i = scanName(start);
        std::u16string name(text_.substr(start, i - start));
        if (!operandExpected()) {
            if (name == u"and" || name == u"or" || name == u"div" || name == u"mod") {
                add(Tok::OperatorName, start, std::move(name));
                return i;
            }
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": unexpected '%ls'", start, text_,
                                        name);
        }
        // "p:*" and "p:local"; a following "::" belongs to an axis.
        if (i + 1 < text_.size() && text_[i] == u':' && text_[i + 1] != u':') {
            if (text_[i + 1] == u'*') {
                add(Tok::NameTest, start, name + u":*");
                return i + 2;
            }
            if (!isNameStart(text_[i + 1]))
                throw BadParameterException("CXPathParser", "parse",
                                            u"XPath syntax error at offset %d in \"%ls\": unexpected character ':'", i,
                                            text_);
            i = scanName(i + 1);
            add(Tok::NameTest, start, std::u16string(text_.substr(start, i - start)));
            return i;
        }
        size_t after = skipSpace(i);
        if (after < text_.size() && text_[after] == u'(') {
            const Tok kind = name == u"node" || name == u"text" ? Tok::NodeType : Tok::FunctionName;
            add(kind, start, std::move(name));
        } else if (after + 1 < text_.size() && text_[after] == u':' && text_[after + 1] == u':') {
            add(Tok::AxisName, start, std::move(name));
        } else {
            add(Tok::NameTest, start, std::move(name));
        }
        return i;
    }

    // ---- parser -----------------------------------------------------------

    const Token& peek() const { return tokens_[index_]; }
    const Token& next() { return tokens_[index_++]; }
    bool accept(Tok kind) {
        if (peek().kind != kind) return false;
        ++index_;
        return true;
    }
    void expect(Tok kind, std::u16string_view detail) {
        if (!accept(kind))
            throw BadParameterException("CXPathParser", "parse", u"XPath syntax error at offset %d in \"%ls\": %ls",
                                        peek().pos, text_, detail);
    }
    bool acceptOperator(std::u16string_view name) {
        if (peek().kind != Tok::OperatorName || peek().text != name) return false;
        ++index_;
        return true;
    }

    struct DepthGuard {
        Parser& p;
        DepthGuard(Parser& parser, size_t pos) : p(parser) {
            if (++p.depth_ > kMaxNesting)
                throw BadParameterException("CXPathParser", "parse",
                                            u"XPath syntax error at offset %d in \"%ls\": expression nested too deeply",
                                            pos, p.text_);
        }
        ~DepthGuard() { --p.depth_; }
    };

    static ExprPtr binary(ExprKind kind, XPathType type, ExprPtr l, ExprPtr r) {
        auto e = std::make_unique<Expr>(kind, type);
        e->left = std::move(l);
        e->right = std::move(r);
        return e;
    }

    ExprPtr parseOr() {
        ExprPtr e = parseAnd();
        while (acceptOperator(u"or")) e = binary(ExprKind::Or, XPathType::Boolean, std::move(e), parseAnd());
        return e;
    }
    ExprPtr parseAnd() {
        ExprPtr e = parseEquality();
        while (acceptOperator(u"and")) e = binary(ExprKind::And, XPathType::Boolean, std::move(e), parseEquality());
        return e;
    }
    ExprPtr parseEquality() {
        ExprPtr e = parseRelational();
        for (;;) {
            if (accept(Tok::Equal))
                e = binary(ExprKind::Equal, XPathType::Boolean, std::move(e), parseRelational());
            else if (accept(Tok::NotEqual))
                e = binary(ExprKind::NotEqual, XPathType::Boolean, std::move(e), parseRelational());
            else
                return e;
        }
    }
    ExprPtr parseRelational() {
        ExprPtr e = parseAdditive();
        for (;;) {
            ExprKind kind;
            switch (peek().kind) {
            case Tok::Less: kind = ExprKind::Less; break;
            case Tok::LessOrEqual: kind = ExprKind::LessOrEqual; break;
            case Tok::Greater: kind = ExprKind::Greater; break;
            case Tok::GreaterOrEqual: kind = ExprKind::GreaterOrEqual; break;
            default: return e;
            }
            ++index_;
            e = binary(kind, XPathType::Boolean, std::move(e), parseAdditive());
        }
    }
    ExprPtr parseAdditive() {
        ExprPtr e = parseMultiplicative();
        for (;;) {
            if (accept(Tok::Plus))
                e = binary(ExprKind::Add, XPathType::Number, std::move(e), parseMultiplicative());
            else if (accept(Tok::Minus))
                e = binary(ExprKind::Subtract, XPathType::Number, std::move(e), parseMultiplicative());
            else
                return e;
        }
    }
    ExprPtr parseMultiplicative() {
        ExprPtr e = parseUnary();
        for (;;) {
            ExprKind kind;
            if (accept(Tok::Multiply))
                kind = ExprKind::Multiply;
            else if (acceptOperator(u"div"))
                kind = ExprKind::Divide;
            else if (acceptOperator(u"mod"))
                kind = ExprKind::Modulo;
            else
                return e;
            e = binary(kind, XPathType::Number, std::move(e), parseUnary());
        }
    }
    ExprPtr parseUnary() {
        if (peek().kind != Tok::Minus) return parseUnion();
        DepthGuard guard(*this, peek().pos);
        ++index_;
        return binary(ExprKind::Negate, XPathType::Number, parseUnary(), nullptr);
    }
    ExprPtr parseUnion() {
        ExprPtr e = parsePathExpr();
        while (peek().kind == Tok::Pipe) {
            const size_t pos = next().pos;
            ExprPtr r = parsePathExpr();
            if (e->type != XPathType::NodeSet || r->type != XPathType::NodeSet)
                throw BadParameterException(
                    "CXPathParser", "parse",
                    u"XPath syntax error at offset %d in \"%ls\": '|' needs node-sets on both sides", pos, text_);
            e = binary(ExprKind::Union, XPathType::NodeSet, std::move(e), std::move(r));
        }
        return e;
    }

    ExprPtr parsePathExpr() {
        switch (peek().kind) {
        case Tok::Literal:
        case Tok::Number:
        case Tok::LParen:
        case Tok::FunctionName:
        case Tok::Dollar: break;
        default: return parseLocationPath();
        }
        ExprPtr e = parsePrimary();
        if (peek().kind == Tok::LBracket) {
            if (e->type != XPathType::NodeSet)
                throw BadParameterException("CXPathParser", "parse",
                                            u"XPath syntax error at offset %d in \"%ls\": a predicate needs a node-set",
                                            peek().pos, text_);
            auto filter = std::make_unique<Expr>(ExprKind::Filter, XPathType::NodeSet);
            filter->left = std::move(e);
            while (peek().kind == Tok::LBracket) filter->args.push_back(parsePredicate());
            e = std::move(filter);
        }
        if (peek().kind != Tok::Slash && peek().kind != Tok::DoubleSlash) return e;
        if (e->type != XPathType::NodeSet)
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": '/' needs a node-set on its left",
                                        peek().pos, text_);
        auto path = std::make_unique<Expr>(ExprKind::Path, XPathType::NodeSet);
        path->left = std::move(e);
        while (peek().kind == Tok::Slash || peek().kind == Tok::DoubleSlash) {
            if (next().kind == Tok::DoubleSlash) path->steps.push_back(descendantOrSelfStep());
            path->steps.push_back(parseStep());
        }
        foldDescendantSteps(path->steps);
        return path;
    }

    static Step descendantOrSelfStep() {
        Step s;
        s.axis = Axis::DescendantOrSelf;
        s.test = TestKind::AnyNode;
        return s;
    }

    bool stepFollows() const {
        switch (peek().kind) {
        case Tok::NameTest:
        case Tok::NodeType:
        case Tok::AxisName:
        case Tok::At:
        case Tok::Dot:
        case Tok::DotDot: return true;
        default: return false;
        }
    }

    ExprPtr parseLocationPath() {
        auto path = std::make_unique<Expr>(ExprKind::Path, XPathType::NodeSet);
        if (accept(Tok::Slash)) {
            path->absolute = true;
            if (!stepFollows()) return path;  // "/" alone: the root
        } else if (accept(Tok::DoubleSlash)) {
            path->absolute = true;
            path->steps.push_back(descendantOrSelfStep());
        }
        path->steps.push_back(parseStep());
        while (peek().kind == Tok::Slash || peek().kind == Tok::DoubleSlash) {
            if (next().kind == Tok::DoubleSlash) path->steps.push_back(descendantOrSelfStep());
            path->steps.push_back(parseStep());
        }
        foldDescendantSteps(path->steps);
        return path;
    }

    static bool usesPosition(const Expr& e) {
        if (e.kind == ExprKind::Call && (e.function == Function::Position || e.function == Function::Last)) return true;
        if ((e.left && usesPosition(*e.left)) || (e.right && usesPosition(*e.right))) return true;
        for (const ExprPtr& a : e.args)
            if (usesPosition(*a)) return true;
        for (const Step& s : e.steps)
            for (const ExprPtr& p : s.predicates)
                if (usesPosition(*p)) return true;
        return false;
    }

    static bool isPositional(const Expr& predicate) {
        return predicate.type == XPathType::Number || usesPosition(predicate);
    }

    // "//name" means descendant-or-self::node()/child::name; when the child
    // step's predicates do not look at positions, descendant::name selects
    // the same nodes without visiting every node's children separately.
    static void foldDescendantSteps(std::vector<Step>& steps) {
        for (size_t i = 0; i + 1 < steps.size(); ++i) {
            const Step& any = steps[i];
            Step& next = steps[i + 1];
            if (any.axis != Axis::DescendantOrSelf || any.test != TestKind::AnyNode || !any.predicates.empty() ||
                next.axis != Axis::Child)
                continue;
            if (next.positionFree < next.predicates.size()) continue;
            next.axis = Axis::Descendant;
            steps.erase(steps.begin() + long(i));
        }
    }

    static bool axisFromName(std::u16string_view name, Axis& axis) {
        static const struct {
            std::u16string_view name;
            Axis axis;
        } axes[] = {
            {u"ancestor", Axis::Ancestor},
            {u"ancestor-or-self", Axis::AncestorOrSelf},
            {u"attribute", Axis::Attribute},
            {u"child", Axis::Child},
            {u"descendant", Axis::Descendant},
            {u"descendant-or-self", Axis::DescendantOrSelf},
            {u"following", Axis::Following},
            {u"following-sibling", Axis::FollowingSibling},
            {u"parent", Axis::Parent},
            {u"preceding", Axis::Preceding},
            {u"preceding-sibling", Axis::PrecedingSibling},
            {u"self", Axis::Self},
        };
        for (const auto& a : axes)
            if (a.name == name) {
                axis = a.axis;
                return true;
            }
        return false;
    }

    Step parseStep() {
        Step step;
        if (accept(Tok::Dot)) {
            step.axis = Axis::Self;
            return step;
        }
        if (accept(Tok::DotDot)) {
            step.axis = Axis::Parent;
            return step;
        }
        if (peek().kind == Tok::AxisName) {
            const Token& t = next();
            if (!axisFromName(t.text, step.axis))
                throw BadParameterException("CXPathParser", "parse",
                                            u"XPath syntax error at offset %d in \"%ls\": unknown axis '%ls'", t.pos,
                                            text_, t.text);
            next();  // the "::" the lexer saw
        } else if (accept(Tok::At)) {
            step.axis = Axis::Attribute;
        }
        const Token& t = peek();
        if (t.kind == Tok::NameTest) {
            ++index_;
            if (t.text == u"*") {
                step.test = TestKind::Any;
            } else if (t.text.size() > 2 && t.text.ends_with(u":*")) {
                step.test = TestKind::Prefix;
                step.name = t.text.substr(0, t.text.size() - 2);
            } else {
                step.test = TestKind::Name;
                step.name = t.text;
            }
        } else if (t.kind == Tok::NodeType) {
            ++index_;
            step.test = t.text == u"node" ? TestKind::AnyNode : TestKind::TextNode;
            expect(Tok::LParen, u"expected '('");
            expect(Tok::RParen, u"expected ')'");
        } else if (t.kind == Tok::End) {
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": unexpected end of expression",
                                        t.pos, text_);
        } else {
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": expected a node test", t.pos,
                                        text_);
        }
        while (peek().kind == Tok::LBracket) step.predicates.push_back(parsePredicate());
        while (step.positionFree < step.predicates.size() && !isPositional(*step.predicates[step.positionFree]))
            ++step.positionFree;
        return step;
    }

    ExprPtr parsePredicate() {
        const size_t pos = next().pos;  // '['
        DepthGuard guard(*this, pos);
        if (peek().kind == Tok::RBracket)
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": empty predicate", peek().pos,
                                        text_);
        ExprPtr e = parseOr();
        expect(Tok::RBracket, u"expected ']'");
        return e;
    }

    ExprPtr parsePrimary() {
        const Token& t = next();
        switch (t.kind) {
        case Tok::Literal: {
            auto e = std::make_unique<Expr>(ExprKind::Literal, XPathType::String);
            e->literal = t.text;
            return e;
        }
        case Tok::Number: {
            auto e = std::make_unique<Expr>(ExprKind::Number, XPathType::Number);
            e->number = t.number;
            return e;
        }
        case Tok::LParen: {
            DepthGuard guard(*this, t.pos);
            ExprPtr e = parseOr();
            expect(Tok::RParen, u"expected ')'");
            return e;
        }
        case Tok::Dollar:
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": variables are not supported",
                                        t.pos, text_);
        default: return parseCall(t);
        }
    }

    struct FunctionInfo {
        std::u16string_view name;
        Function function;
        XPathType result;
        int minArgs, maxArgs;
        bool nodeSetArg;  // its argument, when given, must be a node-set
    };

    ExprPtr parseCall(const Token& nameToken) {
        static const FunctionInfo functions[] = {
            {u"boolean", Function::Boolean, XPathType::Boolean, 1, 1, false},
            {u"contains", Function::Contains, XPathType::Boolean, 2, 2, false},
            {u"count", Function::Count, XPathType::Number, 1, 1, true},
            {u"false", Function::False, XPathType::Boolean, 0, 0, false},
            {u"last", Function::Last, XPathType::Number, 0, 0, false},
            {u"local-name", Function::LocalName, XPathType::String, 0, 1, true},
            {u"name", Function::Name, XPathType::String, 0, 1, true},
            {u"normalize-space", Function::NormalizeSpace, XPathType::String, 0, 1, false},
            {u"not", Function::Not, XPathType::Boolean, 1, 1, false},
            {u"number", Function::Number, XPathType::Number, 0, 1, false},
            {u"position", Function::Position, XPathType::Number, 0, 0, false},
            {u"starts-with", Function::StartsWith, XPathType::Boolean, 2, 2, false},
            {u"string", Function::String, XPathType::String, 0, 1, false},
            {u"string-length", Function::StringLength, XPathType::Number, 0, 1, false},
            {u"true", Function::True, XPathType::Boolean, 0, 0, false},
        };
        const FunctionInfo* info = nullptr;
        for (const auto& f : functions)
            if (f.name == nameToken.text) info = &f;
        if (!info)
            throw BadParameterException("CXPathParser", "parse",
                                        u"XPath syntax error at offset %d in \"%ls\": unknown function '%ls()'",
                                        nameToken.pos, text_, nameToken.text);

        auto call = std::make_unique<Expr>(ExprKind::Call, info->result);
        call->function = info->function;
        DepthGuard guard(*this, nameToken.pos);
        next();  // '('
        if (!accept(Tok::RParen)) {
            for (;;) {
                const size_t argPos = peek().pos;
                call->args.push_back(parseOr());
                if (info->nodeSetArg && call->args.back()->type != XPathType::NodeSet)
                    throw BadParameterException(
                        "CXPathParser", "parse",
                        u"XPath syntax error at offset %d in \"%ls\": %ls() needs a node-set argument", argPos, text_,
                        info->name);
                if (accept(Tok::RParen)) break;
                expect(Tok::Comma, u"expected ',' or ')'");
            }
        }
        const int given = int(call->args.size());
        if (given < info->minArgs || given > info->maxArgs) {
            std::u16string expected = info->minArgs == info->maxArgs
                                          ? format(u"%d", info->minArgs).str()
                                          : format(u"%d or %d", info->minArgs, info->maxArgs).str();
            throw BadParameterException(
                "CXPathParser", "parse",
                u"XPath syntax error at offset %d in \"%ls\": %ls() takes %ls argument%ls, %d given", nameToken.pos,
                text_, info->name, expected, info->maxArgs == 1 ? u"" : u"s", given);
        }
        return call;
    }

    std::u16string_view text_;
    std::vector<Token> tokens_;
    size_t index_ = 0;
    int depth_ = 0;
};

}  // namespace

ExprPtr parse(std::u16string_view text) { return Parser(text).run(); }

}  // namespace tovan::xpath
