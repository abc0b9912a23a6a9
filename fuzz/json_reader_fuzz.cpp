// Untrusted JSON text: reading must end in records or a framework exception,
// never a crash or a hang, with or without ResetStream (the first byte picks),
// and every record read must turn into nodes that the writer can write.
// Reading straight into nodes must give what reading the element tree and
// converting it gives: the same records and the same failure.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "nvk/interchange/CJsonConverter.h"
#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeTreeText.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"

namespace {

using Nodes = tovan::Array<tovan::Ptr<tovan::iNode>>;

// The records as text, then the failure, then where the stream stopped.
template <class ReadOne>
std::string readAll(const std::string& bytes, bool reset, Nodes& nodes, ReadOne readOne) {
    tovan::vcFileInterface file;
    file.openBytes(bytes);
    nvk::CJsonReader reader(&file);
    std::string out;
    try {
        if (reset) reader.ResetStream();
        while (readOne(reader, nodes)) {
        }
    } catch (const tovan::Exception& e) {
        out += std::string("failure: ") + e.what() + "\n";
    }
    for (const auto& n : nodes) out += nvk::DescribeNodeTree(*n);
    cajun::json::Location at = reader.GetLocation();
    out += "at " + std::to_string(at.line) + ":" + std::to_string(at.column) + ":" + std::to_string(at.position);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    bool reset = data[0] & 1;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    Nodes nodes, viaTree;
    const std::string straight =
        readAll(bytes, reset, nodes, [](nvk::CJsonReader& r, Nodes& n) { return r.ReadNextObject(n); });
    const std::string throughTree = readAll(bytes, reset, viaTree, [](nvk::CJsonReader& r, Nodes& n) {
        cajun::json::Object object;
        if (!r.ReadNextObject(object)) return false;
        nvk::CJsonConverter converter;
        converter.ProcessElement(object);
        converter.GetNodeList(n, true);
        return true;
    });
    if (straight != throughTree) {
        std::fprintf(stderr, "straight:\n%s\nthrough the tree:\n%s\n", straight.c_str(), throughTree.c_str());
        std::abort();
    }

    nvk::JsonStringSink sink;
    nvk::CJsonWriter writer(&sink);
    writer.array();
    for (const auto& n : nodes) {
        try {
            nvk::JsonUtilities::AppendElementToArray(writer, n.get(), false, true, false);
        } catch (const tovan::Exception&) {
            return 0;  // an empty member name cannot be a key: the writer says so
        }
    }
    writer.endArray();
    return 0;
}
