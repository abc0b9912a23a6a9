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
    tovan::Ptr<tovan::iNode> tree;  // the document node
    tovan::iNode* root = nullptr;  // the document element
    bool isWsdl = false;           // a "definitions" root
};

/// Reads a WSDL and, breadth first, what it imports by relative location, from
/// files or from a bundle's entries; the parser takes the documents only once
/// all of them have been read.
class CWsdlParser::Loader {
public:
    /// Puts the bytes of the document at a resolved path into `bytes`; false
    /// (after a warning) skips the import, or it raises to fail the load.
    using Fetch = std::function<bool(const std::string& path, std::string& bytes)>;
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

/// Attribute names, made once.
namespace names {
extern const tovan::WString attributeFormDefault;
extern const tovan::WString base;
extern const tovan::WString binding;
extern const tovan::WString element;
extern const tovan::WString elementFormDefault;
extern const tovan::WString encodingStyle;
extern const tovan::WString location;
extern const tovan::WString maxOccurs;
extern const tovan::WString maxoccurs;
extern const tovan::WString message;
extern const tovan::WString minOccurs;
extern const tovan::WString minoccurs;
extern const tovan::WString name;
extern const tovan::WString namespace_;
extern const tovan::WString ref;
extern const tovan::WString schemaLocation;
extern const tovan::WString soapAction;
extern const tovan::WString style;
extern const tovan::WString targetNamespace;
extern const tovan::WString transport;
extern const tovan::WString type;
extern const tovan::WString use;
extern const tovan::WString value;
extern const tovan::WString verb;
}  // namespace names

/// The attribute's text, or a null string when it is absent.
tovan::WString attr(const tovan::iNode& node, const tovan::WString& name);
/// The attribute's stored text without a copy, or null when it is absent.
const tovan::WString* attrRef(const tovan::iNode& node, const tovan::WString& name);
/// The attribute's text without a copy where it is stored as text (else in
/// `spare`); empty when it is absent.
std::u16string_view attrView(const tovan::iNode& node, const tovan::WString& name, tovan::WString& spare);
/// The part after the first ":" (the whole name without one).
std::u16string_view localOf(std::u16string_view qname);
/// The URL without an "http://" or "https://" in front (CNamespace::stripScheme
/// without the copy).
std::u16string_view schemeless(std::u16string_view url);

}  // namespace wsdl
}  // namespace nvk
