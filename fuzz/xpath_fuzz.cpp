// Query texts come from users and from hierarchical property names: whatever
// the text, parsing either succeeds or raises BadParameterException, and
// evaluating a parsed expression never crashes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/String.h"
#include "nvk/platform/XPath.h"

namespace {

struct Node {
    const char16_t* name;
    int parent;
    std::vector<int> children;
    std::vector<std::pair<const char16_t*, const char16_t*>> attributes;
    const char16_t* text;
};

// root, a(x=1) "7", b(p:y=z), a/c "t"
std::vector<Node> makeTree() {
    std::vector<Node> t{{u"", -1, {1, 2}, {}, u" top "},
                        {u"a", 0, {3}, {{u"x", u"1"}}, u"7"},
                        {u"b", 0, {}, {{u"p:y", u"z"}, {u"x", u"2"}}, nullptr},
                        {u"p:c", 1, {}, {}, u"t"}};
    return t;
}

class Navigator : public tovan::XPathNavigator {
public:
    explicit Navigator(const std::vector<Node>& tree) : tree_(tree) {}
    const Node& at(tovan::XPathHandle h) const { return *static_cast<const Node*>(h); }
    tovan::XPathHandle handle(int i) const { return i < 0 ? nullptr : &tree_[size_t(i)]; }

    tovan::XPathHandle parentOf(tovan::XPathHandle n) const override { return handle(at(n).parent); }
    size_t childCount(tovan::XPathHandle n) const override { return at(n).children.size(); }
    tovan::XPathHandle childAt(tovan::XPathHandle n, size_t i) const override { return handle(at(n).children[i]); }
    tovan::WString nameOf(tovan::XPathHandle n) const override { return at(n).name; }
    size_t attributeCount(tovan::XPathHandle n) const override { return at(n).attributes.size(); }
    tovan::WString attributeName(tovan::XPathHandle n, size_t i) const override { return at(n).attributes[i].first; }
    tovan::WString attributeValue(tovan::XPathHandle n, size_t i) const override { return at(n).attributes[i].second; }
    tovan::WString textOf(tovan::XPathHandle n) const override { return at(n).text; }

private:
    const std::vector<Node>& tree_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<Node> tree = makeTree();
    const std::u16string text = tovan::utf8ToUtf16(std::string(reinterpret_cast<const char*>(data), size));
    try {
        tovan::XPathExpression expr(text);
        // Nested predicates multiply: keep evaluation to short texts so one
        // input cannot stall the run.
        if (text.size() > 40) return 0;
        Navigator nav(tree);
        for (int context : {0, 3}) {
            tovan::XPathValue v = expr.evaluate(nav, nav.handle(context), context == 3);
            (void)tovan::xpathToString(nav, v);
            (void)tovan::xpathToNumber(nav, v);
        }
    } catch (const tovan::BadParameterException&) {
    }
    return 0;
}
