#pragma once
// A minimal tree for driving the XPath evaluator in tests, and its XML form
// for the reference evaluator in the differential test.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nvk/platform/XPath.h"

namespace nvktest {

struct TestNode {
    std::u16string name;
    std::vector<std::pair<std::u16string, std::u16string>> attributes;
    std::u16string text;
    std::vector<std::unique_ptr<TestNode>> children;
    TestNode* parent = nullptr;

    TestNode& add(std::u16string childName, std::u16string childText = {});
};

class TestNavigator : public tovan::XPathNavigator {
public:
    static const TestNode& of(tovan::XPathHandle h) { return *static_cast<const TestNode*>(h); }

    tovan::XPathHandle parentOf(tovan::XPathHandle n) const override { return of(n).parent; }
    size_t childCount(tovan::XPathHandle n) const override { return of(n).children.size(); }
    tovan::XPathHandle childAt(tovan::XPathHandle n, size_t i) const override { return of(n).children.at(i).get(); }
    tovan::WString nameOf(tovan::XPathHandle n) const override { return tovan::WString(of(n).name); }
    size_t attributeCount(tovan::XPathHandle n) const override { return of(n).attributes.size(); }
    tovan::WString attributeName(tovan::XPathHandle n, size_t i) const override {
        return tovan::WString(of(n).attributes.at(i).first);
    }
    tovan::WString attributeValue(tovan::XPathHandle n, size_t i) const override {
        return tovan::WString(of(n).attributes.at(i).second);
    }
    tovan::WString textOf(tovan::XPathHandle n) const override { return tovan::WString(of(n).text); }
};

/// The same tree lending its names and attribute values as strings, as the
/// data tree's navigator does, so that the evaluator's paths without copies
/// meet the reference too. Lent strings live as long as the navigator.
class LendingNavigator : public TestNavigator {
public:
    const tovan::WString* nameRef(tovan::XPathHandle n) const override { return lend(n, -1, of(n).name); }
    const tovan::WString* attributeNameRef(tovan::XPathHandle n, size_t i) const override {
        return lend(n, 2 * long(i), of(n).attributes.at(i).first);
    }
    const tovan::WString* attributeValueRef(tovan::XPathHandle n, size_t i) const override {
        return lend(n, 2 * long(i) + 1, of(n).attributes.at(i).second);
    }

private:
    const tovan::WString* lend(tovan::XPathHandle n, long key, const std::u16string& text) const {
        return &lent_.try_emplace({n, key}, text).first->second;
    }
    mutable std::map<std::pair<tovan::XPathHandle, long>, tovan::WString> lent_;
};

/// The XML fragment of the root's content: its text, then its children.
std::string treeToXml(const TestNode& root);

/// "name", "name@attr", "name#text" or "/" for an item, for readable
/// expectations; a node with an attribute id shows it: "item(2)".
std::string describeItem(const tovan::XPathItem& item);
/// The items joined by spaces.
std::string describeItems(const std::vector<tovan::XPathItem>& items);

}  // namespace nvktest
