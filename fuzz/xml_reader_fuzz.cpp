// Untrusted XML bytes: reading must end in a tree or a framework exception,
// never a crash, a hang or a leak. A tree read must hold exactly the elements
// that the path evaluator finds in it, each named and within the depth bound.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/ReferenceSet.h"

namespace {

int countElements(const tovan::iNode& node, int depth) {
    if (depth > nvk::XmlReader::kMaxDepth || node.getName().isEmpty()) {
        std::fprintf(stderr, "element at depth %d is unnamed or too deep\n", depth);
        std::abort();
    }
    int n = 1;
    for (int i = 0; i < node.getNumberOfChildren(); ++i) n += countElements(*node.getChildAt(i), depth + 1);
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tovan::DiagnosticCapture quiet;  // case-twin attributes warn
    tovan::Ptr<nvk::CBaseNode> doc;
    try {
        doc = nvk::XmlReader::ReadBytes(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const tovan::Exception&) {
        return 0;
    }
    if (doc->getNumberOfChildren() != 1 || !doc->getName().isNull()) std::abort();
    const int elements = countElements(*doc->getChildAt(0), 1);
    tovan::NodeReferenceSet all;
    doc->query(u"//*", tovan::QueryDefault, all);
    if (all.size() != size_t(elements)) {
        std::fprintf(stderr, "walk found %d elements, //* %d\n", elements, int(all.size()));
        std::abort();
    }
    return 0;
}
