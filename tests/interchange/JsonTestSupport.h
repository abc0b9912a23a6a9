#pragma once
// Readers and writers shared by the JSON tests.
#include <string>

#include "interchange/CJsonReader.h"
#include "interchange/CJsonWriter.h"
#include "interchange/JsonParser.h"
#include "interchange/NodeTreeText.h"
#include "tests/support/TestSupport.h"

namespace jsontest {

using Nodes = tovan::Array<tovan::Ptr<tovan::iNode>>;

/// Every record of `text`, read straight into nodes.
inline Nodes readNodes(const std::u16string& text) {
    tovan::vcFileInterface file;
    file.openText(text);
    nvk::CJsonReader reader(&file);
    Nodes nodes;
    while (reader.ReadNextObject(nodes)) {
    }
    return nodes;
}

/// The trees as text, each followed by `separator`.
inline std::string describe(const Nodes& nodes, const char* separator = "") {
    std::string out;
    for (const auto& n : nodes) out += nvk::DescribeNodeTree(*n) + separator;
    return out;
}

inline cajun::json::Tokens tokensOf(const std::u16string& text) {
    tovan::vcFileInterface file;
    file.openText(text);
    cajun::json::JsonInputStream in(&file);
    cajun::json::Tokens tokens;
    cajun::json::Scanner().Scan(in, tokens);
    return tokens;
}

/// What `write` puts through a fresh writer, as UTF-8.
template <class Write>
std::string written(Write write) {
    nvk::JsonStringSink sink;
    nvk::CJsonWriter writer(&sink);
    write(writer);
    return tovan::toNarrow(tovan::WString(sink.text()));
}

}  // namespace jsontest
