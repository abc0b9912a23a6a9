#pragma once
// What the WSDL parser's files share: the loaded documents and the text helpers.
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "nvk/services/CWsdlParser.h"

namespace nvk {

/// One loaded XML document: the WSDL, a WSDL it imports, or an external schema.
struct CWsdlParser::Document {
    std::string path;   // as resolved: a file path, or an entry name of a bundle
    std::string bytes;  // kept for bundles
    tovan::Ptr<CBaseNode> tree;
    tovan::iNode* root = nullptr;  // the document element
    bool isWsdl = false;           // a "definitions" root
};

/// Reads a WSDL and, breadth first, what it imports by relative location, from
/// files or from a bundle's entries; the parser takes the documents only once
/// all of them have been read.
class CWsdlParser::Loader {
public:
    /// The bytes of the document at a resolved path; raises when there is none.
    using Fetch = std::function<std::string(const std::string& path)>;
    explicit Loader(Fetch fetch);
    std::vector<std::unique_ptr<Document>> run(const std::string& path, std::string bytes, bool followImports);

private:
    void add(const std::string& path, std::string bytes);
    void follow(const Document& from, const tovan::WString& location);
    void scan(const Document& d, const tovan::iNode& node, int depth);

    Fetch fetch_;
    std::vector<std::unique_ptr<Document>> docs_;
    std::unordered_set<std::string> seen_;
};

namespace wsdl {

inline constexpr const char* kClass = "CWsdlParser";

/// The attribute's text, or an empty view when it is absent.
tovan::WString attr(const tovan::iNode& node, const tovan::WString& name);
/// The part after the first ":" (the whole name without one).
std::u16string_view localOf(std::u16string_view qname);

}  // namespace wsdl
}  // namespace nvk
