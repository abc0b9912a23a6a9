#include "XPathTestTree.h"

#include "nvk/platform/String.h"

namespace nvktest {

TestNode& TestNode::add(std::u16string childName, std::u16string childText) {
    children.push_back(std::make_unique<TestNode>());
    TestNode& c = *children.back();
    c.name = std::move(childName);
    c.text = std::move(childText);
    c.parent = this;
    return c;
}

namespace {

void escape(const std::u16string& text, bool attribute, std::string& out) {
    for (char ch : tovan::utf16ToUtf8(text)) {
        switch (ch) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += attribute ? "&quot;" : "\""; break;
        default: out += ch;
        }
    }
}

void writeContent(const TestNode& n, std::string& out) {
    escape(n.text, false, out);
    for (const auto& c : n.children) {
        std::string name = tovan::utf16ToUtf8(c->name);
        out += "<" + name;
        for (const auto& [k, v] : c->attributes) {
            out += " " + tovan::utf16ToUtf8(k) + "=\"";
            escape(v, true, out);
            out += "\"";
        }
        out += ">";
        writeContent(*c, out);
        out += "</" + name + ">";
    }
}

}  // namespace

std::string treeToXml(const TestNode& root) {
    std::string out;
    writeContent(root, out);
    return out;
}

std::string describeItem(const tovan::XPathItem& item) {
    const TestNode& n = TestNavigator::of(item.node);
    std::string name = n.parent ? tovan::utf16ToUtf8(n.name) : "/";
    for (const auto& [key, value] : n.attributes)
        if (key == u"id") name += "(" + tovan::utf16ToUtf8(value) + ")";
    switch (item.kind) {
    case tovan::XPathItemKind::Node: return name;
    case tovan::XPathItemKind::Attribute: return name + "@" + tovan::utf16ToUtf8(n.attributes.at(item.attribute).first);
    case tovan::XPathItemKind::Text: return name + "#text";
    }
    return "?";
}

std::string describeItems(const std::vector<tovan::XPathItem>& items) {
    std::string out;
    for (const auto& i : items) out += (out.empty() ? "" : " ") + describeItem(i);
    return out;
}

}  // namespace nvktest
