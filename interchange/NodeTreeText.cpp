#include "nvk/interchange/NodeTreeText.h"

#include "nvk/interchange/JsonUtilities.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/NDimArrayValue.h"
#include "nvk/platform/NumberText.h"

namespace nvk {

namespace {

std::string classWord(const char* tag) {
    std::string s = tag;
    size_t dot = s.rfind('.');
    if (dot != std::string::npos) s = s.substr(dot + 1);
    if (s.size() > 5 && s.compare(s.size() - 5, 5, "Value") == 0) s.resize(s.size() - 5);
    return s;
}

void describe(const tovan::iNode& node, int indent, std::string& out) {
    out.append(size_t(indent) * 2, ' ');
    out += node.getName().isEmpty() ? std::string("(unnamed)") : tovan::toNarrow(node.getName());
    out += '\n';
    if (const tovan::iPropertyCollection* properties = node.getProperties()) {
        for (int i = 0; i < properties->getSize(); ++i) {
            const tovan::iProperty& p = properties->get(i);
            JsonStringSink sink;
            CJsonWriter writer(&sink);
            writer.array();  // a container to write a lone value into
            JsonUtilities::WriteValue(writer, p.getValue());
            writer.endArray();
            std::u16string text = sink.text().substr(1, sink.text().size() - 2);
            out.append(size_t(indent + 1) * 2, ' ');
            out += tovan::toNarrow(p.getName()) + ": " + DescribeValueType(p.getValue()) + " = " +
                   tovan::utf16ToUtf8(text) + "\n";
        }
    }
    for (int i = 0; i < node.getNumberOfChildren(); ++i) describe(*node.getChildAt(i), indent + 1, out);
}

}  // namespace

std::string DescribeValueType(const tovan::Value& value) {
    std::string word = classWord(value.getClassTag());
    if (const auto* nd = value.findAs<tovan::NDimArrayValue>()) {
        word += ' ';
        for (size_t d = 0; d < nd->getDimensionCount(); ++d) {
            if (d) word += 'x';
            word += tovan::integerText(nd->getDimensions()[d]);
        }
        int code = nd->getElementTypeCode();
        const char* tag = code == tovan::ArrayValue::AnyElementType ? "Value" : tovan::Value::classTagOf(code);
        word += ' ';
        word += tag ? classWord(tag) : std::string("?");
    }
    return word;
}

std::string DescribeNodeTree(const tovan::iNode& node, int indent) {
    std::string out;
    describe(node, indent, out);
    return out;
}

}  // namespace nvk
