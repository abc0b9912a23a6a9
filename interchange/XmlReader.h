#pragma once
// XML documents as node trees: the library's one XML reader (on expat).
#include <string_view>

#include "nvk/data/CBaseNode.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Reads a whole XML document into a node tree:
///  - the result is an unnamed document node whose one child is the document
///    element, so that paths read as in XPath ("/definitions/service" from
///    the document node, "//tf:item" from any node of the tree);
///  - every element becomes a node named by its qualified name as it stands in the document
///    ("wsdl:port"): prefixes are kept, not resolved, and the "xmlns" and
///    "xmlns:p" declarations are properties like any other attribute, so a
///    caller resolves a prefix by reading them up the tree;
///  - every attribute becomes a string property, in document order;
///  - the element's own character data (entities and character references
///    replaced, CDATA included; the text of its children is theirs) becomes
///    the node's value as a string. An element that has child elements and
///    only white space between them gets no value: that is the document's
///    indentation. A leaf element keeps its text as it is, white space too;
///    an empty one gets no value.
///
/// Property names compare with A-Z folded, XML attribute names exactly: of
/// two attributes of one element whose names differ only in case, the first
/// is kept and the second dropped with a warning.
///
/// Input is UTF-8, UTF-16 (with its mark), ISO-8859-1 or US-ASCII, as the
/// document declares. Entity declarations are expanded within the document
/// only (external entities are never fetched), and expat's guard against
/// entity expansion blow-up stays on.
///
/// Failures raise tovan::Exception (class "XmlReader"):
///  - "Unable to open file \"%ls\": %hs" / "Error reading file \"%ls\": %hs"
///    with the system's reason;
///  - "Parse error: %hs at line %d, column %d" with expat's message and the
///    place it stopped (line and column from 1);
///  - "Parse error: elements nested deeper than %d levels at line %d, column
///    %d": deeper documents are refused so that a hostile one cannot exhaust
///    the stack of the callers that walk trees recursively.
/// No partial tree is returned.
class NVK_EXPORT XmlReader {
public:
    static constexpr int kMaxDepth = 1000;

    /// The document in the file at `path`, read in blocks.
    static tovan::Ptr<CBaseNode> ReadFile(const tovan::WString& path);
    /// The document in `bytes`.
    static tovan::Ptr<CBaseNode> ReadBytes(std::string_view bytes);
};

}  // namespace nvk
