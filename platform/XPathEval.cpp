// Evaluation of parsed XPath expressions over a navigated tree, and XPath's
// conversions between its four value types.
#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/XPath_internal.h"

namespace tovan {

XPathNavigator::~XPathNavigator() = default;

const WString* XPathNavigator::nameRef(XPathHandle) const { return nullptr; }
const WString* XPathNavigator::attributeNameRef(XPathHandle, size_t) const { return nullptr; }
const WString* XPathNavigator::attributeValueRef(XPathHandle, size_t) const { return nullptr; }

size_t XPathNavigator::indexInParent(XPathHandle node) const {
    XPathHandle parent = parentOf(node);
    if (!parent) return 0;
    const size_t n = childCount(parent);
    for (size_t i = 0; i < n; ++i)
        if (childAt(parent, i) == node) return i;
    return n;
}

const char* xpathTypeName(XPathType type) {
    switch (type) {
    case XPathType::NodeSet: return "node-set";
    case XPathType::String: return "string";
    case XPathType::Number: return "number";
    case XPathType::Boolean: return "boolean";
    }
    return "?";
}

namespace {

bool isXmlSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

bool hasText(const XPathNavigator& nav, XPathHandle node) { return !nav.textOf(node).isEmpty(); }

}  // namespace

std::u16string xpathStringValue(const XPathNavigator& nav, const XPathItem& item) {
    switch (item.kind) {
    case XPathItemKind::Attribute: return nav.attributeValue(item.node, item.attribute).str();
    case XPathItemKind::Text: return nav.textOf(item.node).str();
    case XPathItemKind::Node: break;
    }
    // Own text, then the subtrees in order: an explicit stack keeps deep trees off the call stack.
    std::u16string out;
    std::vector<std::pair<XPathHandle, size_t>> stack{{item.node, 0}};
    out += nav.textOf(item.node).view();
    while (!stack.empty()) {
        auto& [node, next] = stack.back();
        if (next == nav.childCount(node)) {
            stack.pop_back();
            continue;
        }
        XPathHandle child = nav.childAt(node, next++);
        out += nav.textOf(child).view();
        stack.emplace_back(child, 0);
    }
    return out;
}

std::u16string xpathToString(const XPathNavigator& nav, const XPathValue& v) {
    switch (v.type) {
    case XPathType::NodeSet: return v.nodes.empty() ? std::u16string() : xpathStringValue(nav, v.nodes.front());
    case XPathType::String: return v.text;
    case XPathType::Number: return xpathFormatNumber(v.number);
    case XPathType::Boolean: return v.boolean ? u"true" : u"false";
    }
    return {};
}

double xpathToNumber(const XPathNavigator& nav, const XPathValue& v) {
    switch (v.type) {
    case XPathType::NodeSet: return xpathParseNumber(xpathToString(nav, v));
    case XPathType::String: return xpathParseNumber(v.text);
    case XPathType::Number: return v.number;
    case XPathType::Boolean: return v.boolean ? 1 : 0;
    }
    return 0;
}

bool xpathToBoolean(const XPathValue& v) {
    switch (v.type) {
    case XPathType::NodeSet: return !v.nodes.empty();
    case XPathType::String: return !v.text.empty();
    case XPathType::Number: return v.number != 0 && !std::isnan(v.number);
    case XPathType::Boolean: return v.boolean;
    }
    return false;
}

double xpathParseNumber(std::u16string_view text) {
    size_t b = 0, e = text.size();
    while (b < e && isXmlSpace(text[b])) ++b;
    while (e > b && isXmlSpace(text[e - 1])) --e;
    return parsePlainDecimal(text.substr(b, e - b));
}

std::u16string xpathFormatNumber(double value) { return plainDoubleText(value); }

namespace xpath {
namespace {

struct Context {
    XPathItem item;
    size_t position;
    size_t size;
};

XPathValue makeBoolean(bool b) {
    XPathValue v;
    v.type = XPathType::Boolean;
    v.boolean = b;
    return v;
}
XPathValue makeNumber(double n) {
    XPathValue v;
    v.type = XPathType::Number;
    v.number = n;
    return v;
}
XPathValue makeString(std::u16string s) {
    XPathValue v;
    v.type = XPathType::String;
    v.text = std::move(s);
    return v;
}

bool compareNumbers(ExprKind op, double a, double b) {
    switch (op) {
    case ExprKind::Equal: return a == b;
    case ExprKind::NotEqual: return a != b;
    case ExprKind::Less: return a < b;
    case ExprKind::LessOrEqual: return a <= b;
    case ExprKind::Greater: return a > b;
    case ExprKind::GreaterOrEqual: return a >= b;
    default: return false;
    }
}

ExprKind mirrored(ExprKind op) {
    switch (op) {
    case ExprKind::Less: return ExprKind::Greater;
    case ExprKind::LessOrEqual: return ExprKind::GreaterOrEqual;
    case ExprKind::Greater: return ExprKind::Less;
    case ExprKind::GreaterOrEqual: return ExprKind::LessOrEqual;
    default: return op;
    }
}

bool isEquality(ExprKind op) { return op == ExprKind::Equal || op == ExprKind::NotEqual; }

std::u16string_view localPart(std::u16string_view name) {
    size_t colon = name.find(u':');
    return colon == std::u16string_view::npos ? name : name.substr(colon + 1);
}

class Evaluator {
public:
    Evaluator(const XPathNavigator& nav, XPathHandle context, bool ignoreCase)
        : nav_(nav), root_(context), ignoreCase_(ignoreCase) {
        while (XPathHandle p = nav_.parentOf(root_)) root_ = p;
    }

    XPathValue eval(const Expr& e, const Context& ctx) {
        switch (e.kind) {
        case ExprKind::Or: return makeBoolean(evalBoolean(*e.left, ctx) || evalBoolean(*e.right, ctx));
        case ExprKind::And: return makeBoolean(evalBoolean(*e.left, ctx) && evalBoolean(*e.right, ctx));
        case ExprKind::Equal:
        case ExprKind::NotEqual:
            // String against string, the commonest predicate (local-name()='x'), compares views.
            if (e.left->type == XPathType::String && e.right->type == XPathType::String) {
                std::u16string a, b;
                return makeBoolean((stringView(*e.left, ctx, a) == stringView(*e.right, ctx, b)) ==
                                   (e.kind == ExprKind::Equal));
            }
            [[fallthrough]];
        case ExprKind::Less:
        case ExprKind::LessOrEqual:
        case ExprKind::Greater:
        case ExprKind::GreaterOrEqual: return makeBoolean(compare(e.kind, eval(*e.left, ctx), eval(*e.right, ctx)));
        case ExprKind::Add: return makeNumber(evalNumber(*e.left, ctx) + evalNumber(*e.right, ctx));
        case ExprKind::Subtract: return makeNumber(evalNumber(*e.left, ctx) - evalNumber(*e.right, ctx));
        case ExprKind::Multiply: return makeNumber(evalNumber(*e.left, ctx) * evalNumber(*e.right, ctx));
        case ExprKind::Divide: return makeNumber(evalNumber(*e.left, ctx) / evalNumber(*e.right, ctx));
        case ExprKind::Modulo: return makeNumber(std::fmod(evalNumber(*e.left, ctx), evalNumber(*e.right, ctx)));
        case ExprKind::Negate: return makeNumber(-evalNumber(*e.left, ctx));
        case ExprKind::Union: {
            XPathValue l = eval(*e.left, ctx);
            XPathValue r = eval(*e.right, ctx);
            l.nodes.insert(l.nodes.end(), r.nodes.begin(), r.nodes.end());
            sortUnique(l.nodes);
            return l;
        }
        case ExprKind::Literal: return makeString(e.literal);
        case ExprKind::Number: return makeNumber(e.number);
        case ExprKind::Call: return call(e, ctx);
        case ExprKind::Filter: {
            XPathValue v = eval(*e.left, ctx);
            for (const ExprPtr& p : e.args) filter(v.nodes, *p);
            return v;
        }
        case ExprKind::Path: return path(e, ctx);
        }
        return {};
    }

private:
    bool evalBoolean(const Expr& e, const Context& ctx) { return xpathToBoolean(eval(e, ctx)); }
    double evalNumber(const Expr& e, const Context& ctx) { return xpathToNumber(nav_, eval(e, ctx)); }
    std::u16string evalString(const Expr& e, const Context& ctx) { return xpathToString(nav_, eval(e, ctx)); }

    // A string-valued expression viewed where it already exists as a string
    // (a literal, a name), else evaluated into `scratch`.
    std::u16string_view stringView(const Expr& e, const Context& ctx, std::u16string& scratch) {
        if (e.kind == ExprKind::Literal) return e.literal;
        if (e.kind == ExprKind::Call && (e.function == Function::LocalName || e.function == Function::Name)) {
            bool found;
            const XPathItem item = itemArgument(e, ctx, found);
            if (!found) return {};
            std::u16string_view name = nameView(item, scratch);
            return e.function == Function::Name ? name : localPart(name);
        }
        scratch = evalString(e, ctx);
        return scratch;
    }

    // An item's string value, viewed for attributes the navigator lends.
    std::u16string_view itemText(const XPathItem& item, std::u16string& scratch) const {
        if (item.kind == XPathItemKind::Attribute)
            if (const WString* value = nav_.attributeValueRef(item.node, item.attribute)) return value->view();
        scratch = xpathStringValue(nav_, item);
        return scratch;
    }

    // ---- comparisons ------------------------------------------------------

    bool compare(ExprKind op, const XPathValue& a, const XPathValue& b) {
        if (a.type == XPathType::NodeSet && b.type == XPathType::NodeSet) return compareSets(op, a, b);
        if (a.type == XPathType::NodeSet) return compareSetWith(op, a, b);
        if (b.type == XPathType::NodeSet) return compareSetWith(mirrored(op), b, a);
        if (!isEquality(op)) return compareNumbers(op, xpathToNumber(nav_, a), xpathToNumber(nav_, b));
        if (a.type == XPathType::Boolean || b.type == XPathType::Boolean)
            return (xpathToBoolean(a) == xpathToBoolean(b)) == (op == ExprKind::Equal);
        if (a.type == XPathType::Number || b.type == XPathType::Number)
            return compareNumbers(op, xpathToNumber(nav_, a), xpathToNumber(nav_, b));
        return (a.text == b.text) == (op == ExprKind::Equal);
    }

    // True when some node of `set` compares true with the scalar `other`.
    bool compareSetWith(ExprKind op, const XPathValue& set, const XPathValue& other) {
        if (other.type == XPathType::Boolean) return compare(op, makeBoolean(!set.nodes.empty()), other);
        std::u16string scratch;
        if (other.type == XPathType::String && isEquality(op)) {
            for (const XPathItem& item : set.nodes)
                if ((itemText(item, scratch) == other.text) == (op == ExprKind::Equal)) return true;
            return false;
        }
        const double n = xpathToNumber(nav_, other);
        for (const XPathItem& item : set.nodes)
            if (compareNumbers(op, xpathParseNumber(itemText(item, scratch)), n)) return true;
        return false;
    }

    bool compareSets(ExprKind op, const XPathValue& a, const XPathValue& b) {
        if (a.nodes.empty() || b.nodes.empty()) return false;
        if (op == ExprKind::Equal) {
            std::unordered_set<std::u16string> strings;
            for (const XPathItem& item : b.nodes) strings.insert(xpathStringValue(nav_, item));
            for (const XPathItem& item : a.nodes)
                if (strings.count(xpathStringValue(nav_, item))) return true;
            return false;
        }
        if (op == ExprKind::NotEqual) {
            // Some pair differs unless every string on both sides is the same one.
            const std::u16string first = xpathStringValue(nav_, a.nodes.front());
            for (const XPathValue* set : {&a, &b})
                for (const XPathItem& item : set->nodes)
                    if (xpathStringValue(nav_, item) != first) return true;
            return false;
        }
        // Relational: compare the extremes of the numbers on each side (NaN never compares).
        auto range = [&](const XPathValue& set, double& lo, double& hi) {
            lo = std::numeric_limits<double>::infinity();
            hi = -lo;
            bool any = false;
            for (const XPathItem& item : set.nodes) {
                double n = xpathParseNumber(xpathStringValue(nav_, item));
                if (std::isnan(n)) continue;
                any = true;
                lo = std::min(lo, n);
                hi = std::max(hi, n);
            }
            return any;
        };
        double aLo, aHi, bLo, bHi;
        if (!range(a, aLo, aHi) || !range(b, bLo, bHi)) return false;
        if (op == ExprKind::Less || op == ExprKind::LessOrEqual) return compareNumbers(op, aLo, bHi);
        return compareNumbers(op, aHi, bLo);
    }

    // ---- functions --------------------------------------------------------

    XPathItem itemArgument(const Expr& e, const Context& ctx, bool& found) {
        found = true;
        if (e.args.empty()) return ctx.item;
        XPathValue v = eval(*e.args[0], ctx);
        found = !v.nodes.empty();
        return found ? v.nodes.front() : XPathItem{};
    }

    // The item's name, viewed where the navigator lends it, else copied into `scratch`.
    std::u16string_view nameView(const XPathItem& item, std::u16string& scratch) const {
        if (item.kind == XPathItemKind::Node)
            if (const WString* name = nav_.nameRef(item.node)) return name->view();
        if (item.kind == XPathItemKind::Attribute)
            if (const WString* name = nav_.attributeNameRef(item.node, item.attribute)) return name->view();
        scratch = nameOf(item);
        return scratch;
    }

    std::u16string nameOf(const XPathItem& item) const {
        switch (item.kind) {
        case XPathItemKind::Node: return nav_.nameOf(item.node).str();
        case XPathItemKind::Attribute: return nav_.attributeName(item.node, item.attribute).str();
        case XPathItemKind::Text: break;
        }
        return {};
    }

    std::u16string stringArgument(const Expr& e, const Context& ctx, size_t index = 0) {
        if (index < e.args.size()) return evalString(*e.args[index], ctx);
        return xpathStringValue(nav_, ctx.item);
    }

    XPathValue call(const Expr& e, const Context& ctx) {
        switch (e.function) {
        case Function::True: return makeBoolean(true);
        case Function::False: return makeBoolean(false);
        case Function::Not: return makeBoolean(!evalBoolean(*e.args[0], ctx));
        case Function::Boolean: return makeBoolean(evalBoolean(*e.args[0], ctx));
        case Function::Position: return makeNumber(double(ctx.position));
        case Function::Last: return makeNumber(double(ctx.size));
        case Function::Count: return makeNumber(double(eval(*e.args[0], ctx).nodes.size()));
        case Function::Name:
        case Function::LocalName: {
            bool found;
            XPathItem item = itemArgument(e, ctx, found);
            if (!found) return makeString({});
            std::u16string scratch;
            std::u16string_view name = nameView(item, scratch);
            return makeString(std::u16string(e.function == Function::Name ? name : localPart(name)));
        }
        case Function::String: return makeString(stringArgument(e, ctx));
        case Function::Number:
            return makeNumber(e.args.empty() ? xpathParseNumber(xpathStringValue(nav_, ctx.item))
                                             : evalNumber(*e.args[0], ctx));
        case Function::StringLength: {
            // Characters, not UTF-16 units: a surrogate pair counts once.
            std::u16string s = stringArgument(e, ctx);
            size_t n = 0;
            for (char16_t c : s) n += (c < 0xDC00 || c > 0xDFFF) ? 1 : 0;
            return makeNumber(double(n));
        }
        case Function::NormalizeSpace: {
            std::u16string s = stringArgument(e, ctx), out;
            bool pendingSpace = false;
            for (char16_t c : s) {
                if (isXmlSpace(c)) {
                    pendingSpace = !out.empty();
                    continue;
                }
                if (pendingSpace) out += u' ';
                pendingSpace = false;
                out += c;
            }
            return makeString(std::move(out));
        }
        case Function::Contains:
            return makeBoolean(evalString(*e.args[0], ctx).find(evalString(*e.args[1], ctx)) != std::u16string::npos);
        case Function::StartsWith: return makeBoolean(evalString(*e.args[0], ctx).starts_with(evalString(*e.args[1], ctx)));
        }
        return {};
    }

    // ---- location paths ---------------------------------------------------

    XPathHandle root() const { return root_; }

    XPathValue path(const Expr& e, const Context& ctx) {
        XPathValue v;
        // One plain step from the context (@name in a predicate, evaluated per
        // node of a walk) is that step's axis alone, without working sets.
        if (!e.left && !e.absolute && e.steps.size() == 1 && e.steps[0].predicates.empty()) {
            const Step& step = e.steps[0];
            bool nested = false;
            collect(step, ctx.item, v.nodes, nested);
            if (isReverseAxis(step.axis)) std::reverse(v.nodes.begin(), v.nodes.end());
            return v;
        }
        if (e.left)
            v = eval(*e.left, ctx);
        else if (e.absolute)
            v.nodes.push_back(XPathItem{root()});
        else
            v.nodes.push_back(ctx.item);
        // "Flat": no item is an ancestor of another. The child axis keeps a
        // flat, ordered set flat and ordered, so chains of child steps never sort.
        bool flat = v.nodes.size() <= 1;
        std::vector<XPathItem> next;
        for (const Step& step : e.steps) {
            next.clear();
            const bool nested = applyStep(step, v.nodes, flat, next);
            v.nodes.swap(next);
            const bool down = step.axis == Axis::Descendant || step.axis == Axis::DescendantOrSelf;
            flat = v.nodes.size() <= 1 || step.axis == Axis::Attribute ||
                   (flat && (step.axis == Axis::Child || step.axis == Axis::Self || (down && !nested)));
        }
        return v;
    }

    // Returns whether some selected item lies inside another (descendant axes only).
    bool applyStep(const Step& step, const std::vector<XPathItem>& input, bool flat, std::vector<XPathItem>& output) {
        std::vector<XPathItem> found;
        bool nested = false;
        for (const XPathItem& item : input) {
            found.clear();
            collect(step, item, found, nested);
            for (size_t p = step.positionFree; p < step.predicates.size(); ++p) filter(found, *step.predicates[p]);
            if (isReverseAxis(step.axis)) std::reverse(found.begin(), found.end());
            output.insert(output.end(), found.begin(), found.end());
        }
        // One context item yields its axis in document order without repeats.
        // So do several ordered items on the self and attribute axes, and
        // several ordered flat ones on the axes that stay inside their subtrees.
        const bool ordered = step.axis == Axis::Self || step.axis == Axis::Attribute ||
                             (flat && (step.axis == Axis::Child || step.axis == Axis::Descendant ||
                                       step.axis == Axis::DescendantOrSelf));
        if (input.size() > 1 && !ordered) sortUnique(output);
        return nested;
    }

    // Keeps the items for which the predicate holds; positions follow the
    // order of `items` (axis order inside steps, document order in filters).
    // The kept items move down in place: a predicate sees only its own item.
    void filter(std::vector<XPathItem>& items, const Expr& predicate) {
        const size_t size = items.size();
        size_t kept = 0;
        for (size_t i = 0; i < size; ++i) {
            const Context c{items[i], i + 1, size};
            const bool keep = predicate.type == XPathType::Boolean ? evalBoolean(predicate, c) : [&] {
                const XPathValue v = eval(predicate, c);
                return v.type == XPathType::Number ? v.number == double(i + 1) : xpathToBoolean(v);
            }();
            if (keep) items[kept++] = items[i];
        }
        items.resize(kept);
    }

    bool namesMatch(std::u16string_view a, std::u16string_view b) const {
        return ignoreCase_ ? equalsNoCase(a, b) : a == b;
    }

    bool matches(const Step& step, const XPathItem& item) const {
        switch (step.test) {
        case TestKind::AnyNode: return true;
        case TestKind::TextNode: return item.kind == XPathItemKind::Text;
        default: break;
        }
        const XPathItemKind principal = step.axis == Axis::Attribute ? XPathItemKind::Attribute : XPathItemKind::Node;
        if (item.kind != principal) return false;
        if (principal == XPathItemKind::Node && item.node == root_) return false;  // the root is no element
        if (step.test == TestKind::Any) return true;
        std::u16string scratch;
        std::u16string_view name = nameView(item, scratch);
        if (step.test == TestKind::Name) return namesMatch(name, step.name);
        return name.size() > step.name.size() && name[step.name.size()] == u':' &&
               namesMatch(name.substr(0, step.name.size()), step.name);
    }

    // The node test and the predicates that ignore positions, which hold or
    // not whatever the item's place in the step's list.
    bool accepts(const Step& step, const XPathItem& item) {
        if (!matches(step, item)) return false;
        for (size_t p = 0; p < step.positionFree; ++p) {
            const Expr& predicate = *step.predicates[p];
            if (!xpathToBoolean(eval(predicate, Context{item, 1, 1}))) return false;
        }
        return true;
    }

    void push(const Step& step, const XPathItem& item, std::vector<XPathItem>& out) {
        if (accepts(step, item)) out.push_back(item);
    }

    // Name tests never match text, so their walks skip reading node values.
    static bool mayMatchText(const Step& step) {
        return step.test == TestKind::AnyNode || step.test == TestKind::TextNode;
    }

    // The node's XPath children: its text first, then its child nodes.
    void pushChildren(const Step& step, XPathHandle node, std::vector<XPathItem>& out) {
        if (mayMatchText(step) && hasText(nav_, node)) push(step, XPathItem{node, XPathItemKind::Text}, out);
        const size_t n = nav_.childCount(node);
        for (size_t i = 0; i < n; ++i) push(step, XPathItem{nav_.childAt(node, i)}, out);
    }

    // The subtree of `node` (itself included, attributes excluded) in document
    // order. Sets `nested` when a match lies inside another match.
    void pushSubtree(const Step& step, XPathHandle node, std::vector<XPathItem>& out, bool& nested) {
        struct Frame {
            XPathHandle node;
            size_t next, count;
            bool matched;
        };
        const bool texts = mayMatchText(step);
        std::vector<Frame> stack;
        size_t matchedOnStack = 0;
        auto visit = [&](XPathHandle n) {
            const bool matched = accepts(step, XPathItem{n});
            if (matched) {
                nested = nested || matchedOnStack > 0;
                out.push_back(XPathItem{n});
            }
            const XPathItem text{n, XPathItemKind::Text};
            if (texts && hasText(nav_, n) && accepts(step, text)) {
                nested = nested || matched || matchedOnStack > 0;
                out.push_back(text);
            }
            stack.push_back(Frame{n, 0, nav_.childCount(n), matched});
            matchedOnStack += matched ? 1 : 0;
        };
        visit(node);
        while (!stack.empty()) {
            Frame& top = stack.back();
            if (top.next == top.count) {
                matchedOnStack -= top.matched ? 1 : 0;
                stack.pop_back();
                continue;
            }
            visit(nav_.childAt(top.node, top.next++));
        }
    }

    // The same subtree in reverse document order.
    void pushSubtreeReversed(const Step& step, XPathHandle node, std::vector<XPathItem>& out) {
        std::vector<XPathItem> forward;
        Step all;
        all.test = mayMatchText(step) ? TestKind::AnyNode : TestKind::Any;
        bool nested = false;
        pushSubtree(all, node, forward, nested);
        for (auto it = forward.rbegin(); it != forward.rend(); ++it) push(step, *it, out);
    }

    // Sets `nested` as pushSubtree does.
    void collect(const Step& step, const XPathItem& item, std::vector<XPathItem>& out, bool& nested) {
        const bool isNode = item.kind == XPathItemKind::Node;
        // The node an attribute or text belongs to is its parent.
        auto parentOf = [&] { return isNode ? nav_.parentOf(item.node) : item.node; };
        switch (step.axis) {
        case Axis::Self: push(step, item, out); break;
        case Axis::Child:
            if (isNode) pushChildren(step, item.node, out);
            break;
        case Axis::Attribute:
            if (isNode) {
                const size_t n = nav_.attributeCount(item.node);
                for (size_t i = 0; i < n; ++i) push(step, XPathItem{item.node, XPathItemKind::Attribute, uint32_t(i)}, out);
            }
            break;
        case Axis::DescendantOrSelf:
            if (!isNode) {
                push(step, item, out);
                break;
            }
            pushSubtree(step, item.node, out, nested);
            break;
        case Axis::Descendant:
            if (isNode) {
                if (mayMatchText(step) && hasText(nav_, item.node)) push(step, XPathItem{item.node, XPathItemKind::Text}, out);
                const size_t n = nav_.childCount(item.node);
                for (size_t i = 0; i < n; ++i) pushSubtree(step, nav_.childAt(item.node, i), out, nested);
            }
            break;
        case Axis::Parent:
            if (const XPathHandle parent = parentOf()) push(step, XPathItem{parent}, out);
            break;
        case Axis::AncestorOrSelf: push(step, item, out); [[fallthrough]];
        case Axis::Ancestor:
            for (XPathHandle a = parentOf(); a; a = nav_.parentOf(a)) push(step, XPathItem{a}, out);
            break;
        case Axis::FollowingSibling:
            if (item.kind == XPathItemKind::Text) {
                const size_t n = nav_.childCount(item.node);
                for (size_t i = 0; i < n; ++i) push(step, XPathItem{nav_.childAt(item.node, i)}, out);
            } else if (const XPathHandle parent = isNode ? parentOf() : nullptr) {
                const size_t n = nav_.childCount(parent);
                for (size_t i = nav_.indexInParent(item.node) + 1; i < n; ++i)
                    push(step, XPathItem{nav_.childAt(parent, i)}, out);
            }
            break;
        case Axis::PrecedingSibling:
            if (const XPathHandle parent = isNode ? parentOf() : nullptr) {
                for (size_t i = nav_.indexInParent(item.node); i-- > 0;) push(step, XPathItem{nav_.childAt(parent, i)}, out);
                if (hasText(nav_, parent)) push(step, XPathItem{parent, XPathItemKind::Text}, out);
            }
            break;
        case Axis::Following: {
            // An attribute's or a text's following nodes start inside its node.
            XPathHandle from = item.node;
            if (item.kind == XPathItemKind::Attribute && hasText(nav_, from))
                push(step, XPathItem{from, XPathItemKind::Text}, out);
            if (!isNode) {
                const size_t n = nav_.childCount(from);
                for (size_t i = 0; i < n; ++i) pushSubtree(step, nav_.childAt(from, i), out, nested);
            }
            for (XPathHandle a = from, p = nav_.parentOf(a); p; a = p, p = nav_.parentOf(a)) {
                const size_t n = nav_.childCount(p);
                for (size_t i = nav_.indexInParent(a) + 1; i < n; ++i) pushSubtree(step, nav_.childAt(p, i), out, nested);
            }
            break;
        }
        case Axis::Preceding:
            for (XPathHandle a = item.node, p = nav_.parentOf(a); p; a = p, p = nav_.parentOf(a)) {
                for (size_t i = nav_.indexInParent(a); i-- > 0;) pushSubtreeReversed(step, nav_.childAt(p, i), out);
                if (hasText(nav_, p)) push(step, XPathItem{p, XPathItemKind::Text}, out);
            }
            break;
        }
    }

    // ---- document order ---------------------------------------------------

    // Ordinals of every node in document order, numbered on first need for
    // the whole tree; attributes and the text sort right after their node.
    uint64_t ordinal(XPathHandle node) {
        if (order_.empty()) {
            size_t n = 0;
            order_.emplace(root(), n++);
            std::vector<std::pair<XPathHandle, size_t>> stack{{root(), 0}};
            while (!stack.empty()) {
                auto& [parent, next] = stack.back();
                if (next == nav_.childCount(parent)) {
                    stack.pop_back();
                    continue;
                }
                XPathHandle child = nav_.childAt(parent, next++);
                order_.emplace(child, n++);
                stack.emplace_back(child, 0);
            }
        }
        auto it = order_.find(node);
        return it == order_.end() ? 0 : it->second;
    }

    void sortUnique(std::vector<XPathItem>& items) {
        if (items.size() < 2) return;
        std::vector<std::pair<std::pair<uint64_t, uint64_t>, XPathItem>> keyed;
        keyed.reserve(items.size());
        for (const XPathItem& item : items) {
            uint64_t sub = item.kind == XPathItemKind::Node        ? 0
                           : item.kind == XPathItemKind::Attribute ? uint64_t(item.attribute) + 1
                                                                   : uint64_t(1) << 33;
            keyed.push_back({{ordinal(item.node), sub}, item});
        }
        std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        items.clear();
        for (size_t i = 0; i < keyed.size(); ++i)
            if (i == 0 || keyed[i].first != keyed[i - 1].first) items.push_back(keyed[i].second);
    }

    const XPathNavigator& nav_;
    XPathHandle root_;
    bool ignoreCase_;
    std::unordered_map<XPathHandle, uint64_t> order_;
};

}  // namespace
}  // namespace xpath

struct XPathExpression::Impl {
    std::u16string text;
    xpath::ExprPtr root;
};

XPathExpression::XPathExpression(std::u16string_view text) : impl_(std::make_unique<Impl>()) {
    impl_->text = text;
    impl_->root = xpath::parse(text);
}
XPathExpression::~XPathExpression() = default;
XPathExpression::XPathExpression(XPathExpression&&) noexcept = default;
XPathExpression& XPathExpression::operator=(XPathExpression&&) noexcept = default;

const std::u16string& XPathExpression::text() const { return impl_->text; }
XPathType XPathExpression::type() const { return impl_->root->type; }

XPathValue XPathExpression::evaluate(const XPathNavigator& navigator, XPathHandle context, bool ignoreCase) const {
    xpath::Evaluator evaluator(navigator, context, ignoreCase);
    return evaluator.eval(*impl_->root, xpath::Context{XPathItem{context}, 1, 1});
}

}  // namespace tovan
