#pragma once
// WSDL 1.1 documents read into node trees and the questions a web-service
// component asks of them: services and ports, bindings, operations,
// messages and the custom types of the schemas.
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iNode.h"

namespace nvk {

/// Reads a WSDL from a file, from bytes or from a zipped bundle, with the
/// documents and schemas it imports by relative location, and answers the
/// queries below. Names come back as the document writes them (prefix
/// included); namespaces are compared without their "http://" or "https://".
///
/// Typical use:
///   CWsdlParser wsdl;
///   wsdl.Parse(u"service.wsdl");
///   WString tns, service;
///   wsdl.GetDefinitionsInfo(tns);
///   std::vector<CWsdlParser::CPort> ports;
///   wsdl.GetServiceInfo(service, ports);
///   CWsdlParser::CBinding binding;
///   wsdl.GetBindingInfo(ports[0].getBinding(), binding);
///   std::vector<CWsdlParser::COperation> operations;
///   wsdl.GetOperationInfoFromPortType(binding.getType(), operations);
///
/// Failures raise tovan::Exception (class "CWsdlParser") with the messages
/// listed at each query; a failed load leaves the parser as it was, and a
/// failed query changes no output argument. Warnings (a port skipped for a
/// shared binding, an import that is not read: a location with a scheme, a
/// WSDL given as bytes without a folder, an entry a bundle lacks) go through
/// tovan::Exception::warn; a relative import that cannot be read fails the
/// load. One thread at a time.
class NVK_EXPORT CWsdlParser {
public:
    enum Style { RPC, DOC };

    /// A namespace prefix and URL; the URL is kept without its scheme.
    class NVK_EXPORT CNamespace {
    public:
        CNamespace() = default;
        CNamespace(const tovan::WString& prefix, const tovan::WString& url) : prefix_(prefix) { setUrl(url); }
        const tovan::WString& getPrefix() const { return prefix_; }
        void setPrefix(const tovan::WString& prefix) { prefix_ = prefix; }
        /// The URL without "http://" or "https://" (other schemes stay).
        const tovan::WString& getUrl() const { return url_; }
        /// "http", "https", or empty for another or no scheme.
        const tovan::WString& getProtocol() const { return protocol_; }
        void setUrl(const tovan::WString& url);
        /// Raises "Invalid namespace comparison between '%ls' == '%ls'" when
        /// either URL is null.
        bool urlIsEqual(const CNamespace& other) const;
        bool urlIsEqual(const tovan::WString& url) const;
        bool isXmlSchemaNs() const;      // 2001
        bool isXmlSchema99Ns() const;    // 1999
        bool isWsdlNs() const;
        bool isWsdlSoap11SchemaNs() const;
        bool isWsdlSoap12SchemaNs() const;
        bool isWsdlHttpNs() const;
        bool isSoapEncodingNs() const;   // SOAP 1.1 or 1.2 encoding

        /// The text without its scheme, and the scheme ("http", "https" or "").
        static tovan::WString stripScheme(const tovan::WString& url, tovan::WString* protocol = nullptr);

    private:
        tovan::WString prefix_, url_, protocol_;
    };

    /// One schema node with its target namespace and form defaults.
    class NVK_EXPORT CSchema {
    public:
        tovan::iNode* getNode() const { return node_.get(); }
        void setNode(tovan::iNode* node) { node_ = tovan::Ptr<tovan::iNode>(node); }
        /// Without scheme; empty for a schema without one.
        const tovan::WString& getTargetNamespace() const { return targetNamespace_.getUrl(); }
        const tovan::WString& getTargetNamespaceProtocol() const { return targetNamespace_.getProtocol(); }
        void setTargetNamespace(const tovan::WString& url) { targetNamespace_.setUrl(url); }
        bool getIsElementFormQualified() const { return elementQualified_; }
        bool getIsAttributeFormQualified() const { return attributeQualified_; }
        void setIsElementFormQualified(bool q) { elementQualified_ = q; }
        void setIsAttributeFormQualified(bool q) { attributeQualified_ = q; }
        /// The file the schema came from ("" for the WSDL itself).
        const std::string& getSource() const { return source_; }
        void setSource(const std::string& source) { source_ = source; }

    private:
        tovan::Ptr<tovan::iNode> node_;
        CNamespace targetNamespace_{tovan::WString(), tovan::WString(u"")};
        bool elementQualified_ = false, attributeQualified_ = false;
        std::string source_;
    };

    /// An element of a schema: a member of a custom type.
    class NVK_EXPORT CElement {
    public:
        tovan::WString name;       // the element's name, or the referenced name for a ref
        tovan::WString type;       // as the document has it, prefix included; empty for an anonymous type
        tovan::WString ns;         // namespace URL of the type, without scheme
        tovan::WString ref;        // the "ref" as the document has it, when the element is a reference
        int minOccurs = 1;
        int maxOccurs = 1;         // -1: unbounded
        bool required = true;      // minOccurs >= 1 or absent
        bool hasForm = false;      // carries a "form" attribute
        bool global = false;       // scope: a top-level element of its schema
        bool inChoice = false;     // one of the alternatives of a choice
        bool atomic = false;       // the type is an atomic XML Schema type
        tovan::Ptr<tovan::iNode> node;  // the element (the referenced one for a ref)
        bool IsArrayType() const { return maxOccurs == -1 || maxOccurs > 1; }
        const char* getScope() const { return global ? "global" : "local"; }
    };

    /// One part of a message.
    class NVK_EXPORT CPart {
    public:
        tovan::WString name;
        tovan::WString element;  // "element" as the document has it, or empty
        tovan::WString type;     // "type" as the document has it, or empty
        tovan::Ptr<tovan::iNode> node;
    };

    class NVK_EXPORT CMsg {
    public:
        tovan::WString name;
        std::vector<CPart> parts;
    };

    /// An operation: from the port type (name, messages) and, once matched
    /// with its binding, the SOAP details.
    class NVK_EXPORT COperation {
    public:
        tovan::WString name;
        tovan::WString input, output;          // message names as the document has it; output empty for one-way
        tovan::WString inputName, outputName;  // the "name" of <input>/<output>, which tells overloads apart
        tovan::WString soapAction;
        tovan::WString encoding;               // the body's "encodingStyle", empty for literal
        tovan::WString use;                    // "literal" or "encoded"
        tovan::WString bodyNamespace;          // the body's "namespace"
        Style style = DOC;
        bool hasOutput() const { return !output.isEmpty(); }
    };

    class NVK_EXPORT CBinding {
    public:
        tovan::WString name;
        tovan::WString type;       // the port type, as the document has it
        tovan::WString transport;
        tovan::WString verb;       // HTTP bindings only
        Style style = DOC;
        bool soap12 = false;
        std::vector<COperation> operations;  // soapAction, use, namespace, style
    };

    class NVK_EXPORT CPort {
    public:
        tovan::WString service;  // the service that holds the port
        tovan::WString name;
        tovan::WString binding;  // as the document has it
        tovan::WString address;  // the SOAP address "location"
        bool soap12 = false;
    };

    /// One attribute of a custom type (the array declaration of an encoded array).
    class NVK_EXPORT CAttribute {
    public:
        tovan::WString name;  // "name", or the "ref" as the document has it
        tovan::WString type;
        tovan::WString arrayType;  // the WSDL "arrayType", as the document has it
    };

    class NVK_EXPORT CCustomType {
    public:
        enum Kind { Complex, Simple, Array };
        tovan::WString name;
        tovan::WString ns;          // without scheme
        Kind kind = Complex;
        std::vector<CElement> elements;
        tovan::WString arrayType;   // element type of an array, "[]" stripped
        tovan::WString base;        // the restriction's base
        std::vector<std::pair<tovan::WString, tovan::WString>> facets;  // other than enumeration
        std::vector<tovan::WString> enumerations;
        std::vector<CAttribute> attributes;
    };

    /// The layer over the library's XML reader that gives the parser its
    /// trees: the document node, whose one child is the document element.
    /// It keeps the last tree it read until reset or the next parse.
    class NVK_EXPORT XMLParser {
    public:
        /// "Unable to open file \"%ls\": %hs"; "Parse error: %hs at line %d, column %d".
        tovan::Ptr<tovan::iNode> parse(const tovan::WString& fileName);
        tovan::Ptr<tovan::iNode> parse(std::string_view bytes);
        /// The bundle's WSDL (its first entry).
        tovan::Ptr<tovan::iNode> parseZippedWsdl(std::string_view zipBytes);
        /// The last tree read, or null.
        tovan::iNode* getTree() const { return tree_.get(); }
        void reset() { tree_.reset(); }

    private:
        tovan::Ptr<tovan::iNode> tree_;
    };

    CWsdlParser();
    ~CWsdlParser();
    CWsdlParser(const CWsdlParser&) = delete;
    CWsdlParser& operator=(const CWsdlParser&) = delete;

    // ---- loading ------------------------------------------------------------
    /// Reads the WSDL at `fileName` and every document and schema it imports
    /// by a relative location (resolved against the importing file's folder).
    void Parse(const tovan::WString& fileName);
    /// Reads a WSDL given as bytes; relative imports resolve against
    /// `baseFolder` (none are read when it is empty).
    void Parse(std::string_view bytes, const std::string& baseFolder = std::string());
    /// Reads a bundle made by GetZippedWsdl: a zip whose first entry is the
    /// WSDL, the other entries the files it imports under their relative
    /// names. Messages: "Not a zipped WSDL bundle: %hs", "The zipped WSDL
    /// bundle is empty", "Unsafe entry name in the zipped WSDL bundle: %hs";
    /// an import the bundle lacks is skipped with a warning.
    void ParseZippedWsdl(std::string_view zipBytes);
    /// A bundle of what was loaded: the WSDL first, then every imported file
    /// that was read, named relative to the WSDL's folder. Raises "No WSDL
    /// has been parsed" before a load.
    void GetZippedWsdl(std::string& zipBytes) const;
    bool HasParsedWsdl() const { return !documents_.empty(); }
    /// The documents read, the WSDL first: path (or bundle entry name) and size in bytes.
    std::vector<std::pair<std::string, size_t>> GetLoadedDocuments() const;
    void Reset();

    // ---- style and the older type treatment ----------------------------------
    void SetStyle(Style style) { style_ = style; }
    Style GetStyle() const { return style_; }
    bool IsRPCStyle() const { return style_ == RPC; }
    bool IsDOCStyle() const { return style_ == DOC; }
    void SetBackwardCompatible70(bool on) { backward70_ = on; }
    bool IsBackwardCompatible70() const { return backward70_; }

    // ---- queries, in the order a caller uses them ----------------------------
    /// "missing targetNamespace". Also finds the prefixes the root binds to
    /// the WSDL, SOAP encoding and SOAP binding namespaces (null when none).
    void GetDefinitionsInfo(tovan::WString& targetNamespace);
    const tovan::WString& GetWsdlPrefix() const { return wsdlPrefix_; }
    const tovan::WString& GetSoapEncodingPrefix() const { return soapEncPrefix_; }
    const tovan::WString& GetSoapPrefix() const { return soapPrefix_; }
    void GetSchemaInfo(std::vector<CSchema>& schemas);
    /// Every service's SOAP ports, in document order; `serviceName` is the
    /// first service's. "missing service"; "Unable to find soap addresses.
    /// This WSDL may not have soap methods."
    void GetServiceInfo(tovan::WString& serviceName, std::vector<CPort>& ports);
    /// "Can't find binding %ls". The binding's style becomes the parser's (GetStyle).
    void GetBindingInfo(const tovan::WString& bindingName, CBinding& binding);
    /// "Couldn't find portType"; "Couldn't find operation" when it declares none.
    void GetOperationInfoFromPortType(const tovan::WString& portType, std::vector<COperation>& operations);
    /// "Couldn't find message".
    void GetMessageInfo(const tovan::WString& messageName, CMsg& message);
    /// The operation of the port, by name, joined with its binding's details.
    /// An overloaded operation is named "name(inputName)". An empty service or
    /// port means the first. "Couldn't find operation".
    void FindOperation(const tovan::WString& service, const tovan::WString& port, const tovan::WString& binding,
                       const tovan::WString& operation, COperation& found);
    /// Whether the port type declares `operation` more than once.
    bool OpHasOverloads(const tovan::WString& portType, const tovan::WString& operation);
    /// Fills the port type's operations with their binding's SOAP details
    /// (matched by name, and by input name among overloads); operations the
    /// binding does not list keep the binding's style and nothing else.
    static void MergeBindingDetails(const CBinding& binding, std::vector<COperation>& operations);

    // ---- types ------------------------------------------------------------
    /// A part's "type" (RPC style) or its element's type (document style) is
    /// in an XML Schema namespace and in the atomic type list.
    bool IsOfAtomicType(const CPart& part);
    bool IsOfAtomicType(const tovan::iNode& element, Style style);
    /// The name as the document has it, resolved from `context`'s namespace declarations.
    bool isOfAtomicType(const tovan::WString& typeName, const tovan::iNode& context);
    const tovan::WString& GetLastAtomicTypeQueried() const { return lastAtomic_; }
    static bool IsArrayType(const tovan::iNode& element);
    /// "xsd:string[]" and "xsd:string[,][]" give "xsd:string".
    static tovan::WString StripArrayFromTypeName(const tovan::WString& typeName);
    /// False when the part's type is atomic (nothing to describe).
    bool GetCustomTypeInfoRPC(const CPart& part, CCustomType& type);
    bool GetCustomTypeInfoDoc(const CPart& part, CCustomType& type);
    /// The part's element node in its schema.
    tovan::iNode* GetMatchingSchemaElementDoc(const CPart& part);
    /// The custom type of a schema element (its named or anonymous type);
    /// false when the element's type is atomic.
    bool GetElementsCustomType(tovan::iNode& element, CCustomType& type);
    /// The type named `typeName` (as the document has it at `context`).
    void GetCustomTypeOutOfSchema(const tovan::WString& typeName, const tovan::iNode& context, CCustomType& type);
    /// The type `localName` of the namespace `ns` (scheme-less or not).
    void GetCustomType(const tovan::WString& ns, const tovan::WString& localName, CCustomType& type);
    bool IsCustomTypeInSchema(const tovan::WString& typeName, const tovan::iNode& context);
    const CSchema* GetSchemaByTargetNS(const tovan::WString& ns);
    const CSchema* FindSchemaContainingElement(const tovan::WString& ns, const tovan::WString& localName);
    const CSchema* FindSchemaContainingCustomType(const tovan::WString& ns, const tovan::WString& localName);
    /// The schema that declares the part's element; "Can't find namespace %ls\n".
    const CSchema& GetSchemaForPartDoc(const CPart& part);

    // ---- external schemas -------------------------------------------------------
    /// Reads the schemas that "import" and "include" name by "schemaLocation",
    /// recursively; called by Parse.
    void loadExternalSchemata();
    /// `location` resolved against the folder of `importingFile` (lexically:
    /// "a/b/../c" is "a/c").
    static std::string buildExternalSchemaFilename(const std::string& importingFile, const std::string& location);
    /// The top-level schema nodes of an external document.
    static void importExternalSchemaElements(tovan::iNode& document, std::vector<tovan::iNode*>& schemas);

    // ---- tree lookups -----------------------------------------------------------
    /// The first child of `parent` whose local name is `localName`.
    static tovan::iNode* findNode(const tovan::iNode& parent, std::u16string_view localName);
    static void findNodes(const tovan::iNode& parent, std::u16string_view localName, std::vector<tovan::iNode*>& out);
    /// The first child with that local name whose attribute has that value.
    static tovan::iNode* findNodeByAttr(const tovan::iNode& parent, std::u16string_view localName,
                                        const tovan::WString& attribute, const tovan::WString& value);
    static bool findAttr(const tovan::iNode& node, const tovan::WString& attribute);
    /// The attribute's text, or null.
    static tovan::WString findAttrVal(const tovan::iNode& node, const tovan::WString& attribute);
    void findSchemaNodes(std::vector<tovan::iNode*>& out);
    /// The namespace declarations in scope at `node`, nearest first.
    static void findNodeNamespaces(const tovan::iNode& node, std::vector<CNamespace>& out);
    /// The URL (with scheme) bound to `prefix` at `node` ("" for the default
    /// namespace); null when none is.
    static tovan::WString FindDefiningNamespace(const tovan::iNode& node, const tovan::WString& prefix);
    /// The URL bound to `prefix` on the root definitions element.
    tovan::WString FindNamespaceInDefinitions(const tovan::WString& prefix);
    /// The "targetNamespace" of the nearest ancestor (or node) carrying one.
    static tovan::WString findTargetNamespace(const tovan::iNode& node);
    /// Splits "p:local" ("Unable to parse namespaces" for more than one ":"
    /// or an empty part).
    static void getNamespaceName(const tovan::WString& qname, tovan::WString& prefix, tovan::WString& localName);
    /// The local name of a node ("xsd:complexType" gives "complexType").
    static std::u16string_view getNodeType(const tovan::iNode& node);
    static bool Equals_NS(const tovan::WString& a, const tovan::WString& b);
    static bool isXmlSchemaNS(const tovan::WString& url);
    static bool isXmlSchemaEncNS(const tovan::WString& url);
    bool isInAtomicTypeList(std::u16string_view localName) const;

    /// The document element of the WSDL (null before a load).
    tovan::iNode* getRoot() const;

private:
    struct Document;
    class Loader;
    friend class Loader;

    void requireParsed(const char* operation) const;
    void collectPorts(tovan::WString& serviceName, std::vector<CPort>& ports, bool warn);
    void adopt(std::vector<std::unique_ptr<Document>>& documents);
    tovan::iNode* findDefinitionsChild(std::u16string_view kind, const tovan::WString& qname) const;
    void schemaElement(tovan::iNode& node, CElement& out);
    /// isOfAtomicType for a type name already split and its prefix resolved.
    bool isAtomicIn(const tovan::WString& ns, const tovan::WString& local);
    void readTypeNode(tovan::iNode& node, const tovan::WString& ns, CCustomType& type);
    void readComplexType(tovan::iNode& node, CCustomType& type);
    void readSequence(tovan::iNode& node, CCustomType& type, bool inChoice, int depth);
    void processChoice(tovan::iNode& node, CCustomType& type, int depth);
    void processGroupRef(tovan::iNode& node, CCustomType& type, bool inChoice, int depth);
    void processComplexContent(tovan::iNode& node, CCustomType& type);
    void readSimpleType(tovan::iNode& node, CCustomType& type);
    tovan::iNode* findSchemaChild(const tovan::WString& ns, std::u16string_view kind, std::u16string_view localName,
                                  const CSchema** schema = nullptr);

    void buildIndexes();

    std::vector<std::unique_ptr<Document>> documents_;  // the WSDL first
    std::vector<CSchema> schemas_;
    bool schemasLoaded_ = false;  // also when there are none: the loading runs the occurrence queries
    bool indexed_ = false;
    // Definitions children by kind and local name ("message\nName"), the
    // first in document order; schema children by namespace, kind and name.
    std::unordered_map<std::u16string, tovan::iNode*> definitions_;
    std::unordered_map<std::u16string, std::pair<tovan::iNode*, size_t>> schemaChildren_;
    // The lookup key of the last search, kept so that lookups do not allocate.
    mutable std::u16string key_;
    // Element nodes the occurrence queries select, per query, sorted: made
    // once per load and searched, never changed.
    std::vector<const tovan::iNode*> required_, optional_, formless_;
    Style style_ = DOC;
    bool backward70_ = false;
    int sequenceNesting_ = 0;  // sequences and choices being read, across group references
    tovan::WString lastAtomic_;
    tovan::WString wsdlPrefix_, soapEncPrefix_, soapPrefix_;
};

}  // namespace nvk
