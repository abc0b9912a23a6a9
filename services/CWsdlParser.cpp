// Loading, namespaces, tree lookups, services, bindings, port types and messages.
#include <cctype>
#include <cerrno>
#include <functional>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Value.h"
#include "nvk/services/CWsdlParser_internal.h"

namespace nvk {

using tovan::iNode;
using tovan::Ptr;
using tovan::WString;
using wsdl::attr;
namespace names = wsdl::names;
using wsdl::kClass;
using wsdl::localOf;

namespace wsdl {

namespace names {
const WString attributeFormDefault(u"attributeFormDefault");
const WString base(u"base");
const WString binding(u"binding");
const WString element(u"element");
const WString elementFormDefault(u"elementFormDefault");
const WString encodingStyle(u"encodingStyle");
const WString location(u"location");
const WString maxOccurs(u"maxOccurs");
const WString maxoccurs(u"maxoccurs");
const WString message(u"message");
const WString minOccurs(u"minOccurs");
const WString minoccurs(u"minoccurs");
const WString name(u"name");
const WString namespace_(u"namespace");
const WString ref(u"ref");
const WString schemaLocation(u"schemaLocation");
const WString soapAction(u"soapAction");
const WString style(u"style");
const WString targetNamespace(u"targetNamespace");
const WString transport(u"transport");
const WString type(u"type");
const WString use(u"use");
const WString value(u"value");
const WString verb(u"verb");
}  // namespace names

namespace {

// The attribute's value, or null when it is absent.
const tovan::Value* attrValue(const iNode& node, const WString& name) {
    const tovan::iPropertyCollection* props = node.getProperties();
    int i = props ? props->findIndex(name) : -1;
    return i < 0 ? nullptr : &props->get(i).getValue();
}

// The XML reader stores attributes as strings; anything else is read as its
// text. The class is compared rather than cast to: this runs for every
// attribute the walk reads.
const WString* asText(const tovan::Value& value) {
    return &value.getClass() == &tovan::StringValue::Tag ? &static_cast<const tovan::StringValue&>(value).get() : nullptr;
}

}  // namespace

const WString* attrRef(const iNode& node, const WString& name) {
    const tovan::Value* value = attrValue(node, name);
    return value ? asText(*value) : nullptr;
}

WString attr(const iNode& node, const WString& name) {
    const tovan::Value* value = attrValue(node, name);
    if (!value) return WString();
    const WString* text = asText(*value);
    return text ? *text : value->toString();
}

std::u16string_view attrView(const iNode& node, const WString& name, WString& spare) {
    const tovan::Value* value = attrValue(node, name);
    if (!value) return {};
    if (const WString* text = asText(*value)) return text->view();
    spare = value->toString();
    return spare.view();
}

std::u16string_view localOf(std::u16string_view qname) {
    size_t colon = qname.find(u':');
    return colon == std::u16string_view::npos ? qname : qname.substr(colon + 1);
}

std::u16string_view schemeless(std::u16string_view v) {
    for (std::u16string_view scheme : {std::u16string_view(u"http"), std::u16string_view(u"https")}) {
        if (v.size() > scheme.size() + 3 && v.substr(scheme.size(), 3) == u"://") {
            bool same = true;
            for (size_t i = 0; i < scheme.size(); ++i) {
                char16_t c = v[i];
                if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
                if (c != scheme[i]) same = false;
            }
            if (same) return v.substr(scheme.size() + 3);
        }
    }
    return v;
}

}  // namespace wsdl

namespace {

// The standard namespaces, without their scheme.
constexpr std::u16string_view kXmlSchema = u"www.w3.org/2001/XMLSchema";
constexpr std::u16string_view kXmlSchema99 = u"www.w3.org/1999/XMLSchema";
constexpr std::u16string_view kWsdl = u"schemas.xmlsoap.org/wsdl/";
constexpr std::u16string_view kSoap11 = u"schemas.xmlsoap.org/wsdl/soap/";
constexpr std::u16string_view kSoap12 = u"schemas.xmlsoap.org/wsdl/soap12/";
constexpr std::u16string_view kHttp = u"schemas.xmlsoap.org/wsdl/http/";
constexpr std::u16string_view kSoapEncoding = u"schemas.xmlsoap.org/soap/encoding/";
constexpr std::u16string_view kSoap12Encoding = u"www.w3.org/2003/05/soap-encoding";

bool nsIs(const WString& url, std::u16string_view standard) { return wsdl::schemeless(url.view()) == standard; }

// The file and the system's reason follow "Unable to open file": a WSDL is read
// from several files, and the bare text would not say which one failed, nor why.
std::string readWhole(const std::string& path) {
    // A folder opens like a file and then reads as an empty one.
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec))
        throw tovan::Exception(kClass, "Parse", u"Unable to open file \"%hs\": %hs", path, std::strerror(EISDIR));
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw tovan::Exception(kClass, "Parse", u"Unable to open file \"%hs\": %hs", path, std::strerror(errno));
    // In blocks straight into the string: a stream copy went through a
    // second buffer of the whole file.
    std::string bytes;
    const auto size = std::filesystem::file_size(path, ec);
    if (!ec) bytes.reserve(size_t(size));
    char block[64 * 1024];
    while (in.read(block, sizeof block) || in.gcount() > 0) bytes.append(block, size_t(in.gcount()));
    if (in.bad()) throw tovan::Exception(kClass, "Parse", u"Unable to open file \"%hs\": %hs", path, std::strerror(errno));
    return bytes;
}

bool fetchFile(const std::string& path, std::string& bytes) {
    bytes = readWhole(path);
    return true;
}

// Locations with a scheme ("http://...", "urn:...") name no file beside the WSDL.
bool isRemote(const std::string& location) {
    size_t colon = location.find(':');
    if (colon == std::string::npos || colon < 2) return false;  // "C:" is no scheme here either
    for (size_t i = 0; i < colon; ++i)
        if (!std::isalnum(static_cast<unsigned char>(location[i])) && location[i] != '+' && location[i] != '-' &&
            location[i] != '.')
            return false;
    return true;
}

}  // namespace

// ---- CNamespace ---------------------------------------------------------------

WString CWsdlParser::CNamespace::stripScheme(const WString& url, WString* protocol) {
    std::u16string_view v = url.view();
    std::u16string_view rest = wsdl::schemeless(v);
    if (rest.size() == v.size()) {
        if (protocol) *protocol = WString(u"");
        return url;
    }
    // The scheme is given back in lower case, as the comparison read it.
    if (protocol) *protocol = WString(v.size() - rest.size() == 7 ? u"http" : u"https");
    return WString(rest);
}

void CWsdlParser::CNamespace::setUrl(const WString& url) {
    if (url.isNull()) {
        url_.setNull();
        protocol_ = WString(u"");
        return;
    }
    url_ = stripScheme(url, &protocol_);
}

bool CWsdlParser::CNamespace::urlIsEqual(const WString& url) const {
    if (url_.isNull() || url.isNull())
        throw tovan::Exception(kClass, "urlIsEqual", u"Invalid namespace comparison between '%ls' == '%ls'", url_, url);
    return url_.view() == wsdl::schemeless(url.view());
}

bool CWsdlParser::CNamespace::urlIsEqual(const CNamespace& other) const { return urlIsEqual(other.url_); }
bool CWsdlParser::CNamespace::isXmlSchemaNs() const { return url_.view() == kXmlSchema; }
bool CWsdlParser::CNamespace::isXmlSchema99Ns() const { return url_.view() == kXmlSchema99; }
bool CWsdlParser::CNamespace::isWsdlNs() const { return url_.view() == kWsdl; }
bool CWsdlParser::CNamespace::isWsdlSoap11SchemaNs() const { return url_.view() == kSoap11; }
bool CWsdlParser::CNamespace::isWsdlSoap12SchemaNs() const { return url_.view() == kSoap12; }
bool CWsdlParser::CNamespace::isWsdlHttpNs() const { return url_.view() == kHttp; }
bool CWsdlParser::CNamespace::isSoapEncodingNs() const { return url_.view() == kSoapEncoding || url_.view() == kSoap12Encoding; }

bool CWsdlParser::Equals_NS(const WString& a, const WString& b) { return CNamespace(WString(), a).urlIsEqual(b); }
bool CWsdlParser::isXmlSchemaNS(const WString& url) { return nsIs(url, kXmlSchema) || nsIs(url, kXmlSchema99); }
bool CWsdlParser::isXmlSchemaEncNS(const WString& url) { return nsIs(url, kSoapEncoding) || nsIs(url, kSoap12Encoding); }

// ---- XMLParser ------------------------------------------------------------------

Ptr<iNode> CWsdlParser::XMLParser::parse(const WString& fileName) {
    tree_ = Ptr<iNode>(XmlReader::ReadFile(fileName).get());
    return tree_;
}

Ptr<iNode> CWsdlParser::XMLParser::parse(std::string_view bytes) {
    tree_ = Ptr<iNode>(XmlReader::ReadBytes(bytes).get());
    return tree_;
}

// ---- loading ----------------------------------------------------------------------

CWsdlParser::Loader::Loader(Fetch fetch) : fetch_(std::move(fetch)) {}

std::vector<std::unique_ptr<CWsdlParser::Document>> CWsdlParser::Loader::run(const std::string& path, std::string bytes,
                                                                             bool followImports) {
    add(path, std::move(bytes));
    for (size_t i = 0; followImports && i < docs_.size(); ++i) scan(*docs_[i], *docs_[i]->root, 0);
    return std::move(docs_);
}

void CWsdlParser::Loader::add(const std::string& path, std::string bytes) {
    auto d = std::make_unique<Document>();
    d->path = path;
    try {
        d->tree = XMLParser().parse(std::string_view(bytes));
    } catch (const tovan::Exception& e) {
        // The caller named the WSDL, not what it imports: a place in an
        // imported file must say which file it is in.
        if (docs_.empty()) throw;
        throw tovan::Exception(e.getClassName().c_str(), e.getOperation().c_str(), u"%ls of %hs", e.getMessage(), path);
    }
    d->bytes = std::move(bytes);
    d->root = d->tree->getChildAt(0);
    d->isWsdl = CWsdlParser::getNodeType(*d->root) == u"definitions";
    seen_.insert(path);
    docs_.push_back(std::move(d));
}

void CWsdlParser::Loader::follow(const Document& from, const WString& location) {
    if (location.isEmpty()) return;
    std::string loc = tovan::toNarrow(location);
    if (isRemote(loc)) {
        tovan::Exception::warn(u"The import of %hs is not read: only files beside the WSDL are", loc);
        return;
    }
    if (!fetch_) {
        tovan::Exception::warn(u"The import of %hs is not read: the WSDL was given as bytes without a folder", loc);
        return;
    }
    std::string path = CWsdlParser::buildExternalSchemaFilename(from.path, loc);
    if (seen_.count(path)) return;
    std::string bytes;
    if (fetch_(path, bytes)) add(path, std::move(bytes));
}

// wsdl:import "location" at the top; schema import, include and redefine
// "schemaLocation" in every schema, of the WSDL's types or of a file.
void CWsdlParser::Loader::scan(const Document& d, const iNode& node, int depth) {
    std::u16string_view kind = CWsdlParser::getNodeType(node);
    if (kind == u"schema") {
        for (int i = 0; i < node.getNumberOfChildren(); ++i) {
            const iNode& c = *node.getChildAt(i);
            std::u16string_view k = CWsdlParser::getNodeType(c);
            if (k == u"import" || k == u"include" || k == u"redefine") follow(d, attr(c, names::schemaLocation));
        }
        return;
    }
    if (depth > 1) return;  // schemas sit at the root or in definitions/types
    for (int i = 0; i < node.getNumberOfChildren(); ++i) {
        const iNode& c = *node.getChildAt(i);
        std::u16string_view k = CWsdlParser::getNodeType(c);
        if (k == u"import" && kind == u"definitions")
            follow(d, attr(c, names::location));
        else if (k == u"types" || k == u"schema")
            scan(d, c, depth + 1);
    }
}

CWsdlParser::CWsdlParser() = default;
CWsdlParser::~CWsdlParser() = default;

void CWsdlParser::adopt(std::vector<std::unique_ptr<Document>>& documents) {
    Reset();
    documents_ = std::move(documents);
}

void CWsdlParser::Parse(const WString& fileName) {
    std::string path = tovan::toNarrow(fileName);
    Loader loader(&fetchFile);
    auto docs = loader.run(path, readWhole(path), true);
    adopt(docs);
}

void CWsdlParser::Parse(std::string_view bytes, const std::string& baseFolder) {
    // A WSDL given as bytes takes this name in its folder (and in bundles).
    std::string path = baseFolder.empty() ? std::string() : buildExternalSchemaFilename(baseFolder + "/", "service.wsdl");
    // Without a folder there is nothing to resolve imports against (no fetch).
    Loader loader(baseFolder.empty() ? Loader::Fetch() : Loader::Fetch(&fetchFile));
    auto docs = loader.run(baseFolder.empty() ? std::string("service.wsdl") : path, std::string(bytes), true);
    adopt(docs);
}

void CWsdlParser::Reset() {
    documents_.clear();
    schemas_.clear();
    schemasLoaded_ = false;
    indexed_ = false;
    definitions_.clear();
    schemaChildren_.clear();
    required_.clear();
    optional_.clear();
    formless_.clear();
    lastAtomic_ = WString();
    wsdlPrefix_ = soapEncPrefix_ = soapPrefix_ = WString();
    style_ = DOC;
}

void CWsdlParser::requireParsed(const char* operation) const {
    if (documents_.empty()) throw tovan::Exception(kClass, operation, u"No WSDL has been parsed");
}

std::vector<std::pair<std::string, size_t>> CWsdlParser::GetLoadedDocuments() const {
    std::vector<std::pair<std::string, size_t>> out;
    for (const auto& d : documents_) out.emplace_back(d->path, d->bytes.size());
    return out;
}

iNode* CWsdlParser::getRoot() const { return documents_.empty() ? nullptr : documents_.front()->root; }

// ---- tree lookups ---------------------------------------------------------------------

std::u16string_view CWsdlParser::getNodeType(const iNode& node) { return localOf(node.getName().view()); }

iNode* CWsdlParser::findNode(const iNode& parent, std::u16string_view localName) {
    for (int i = 0; i < parent.getNumberOfChildren(); ++i)
        if (getNodeType(*parent.getChildAt(i)) == localName) return parent.getChildAt(i);
    return nullptr;
}

void CWsdlParser::findNodes(const iNode& parent, std::u16string_view localName, std::vector<iNode*>& out) {
    out.clear();
    for (int i = 0; i < parent.getNumberOfChildren(); ++i)
        if (getNodeType(*parent.getChildAt(i)) == localName) out.push_back(parent.getChildAt(i));
}

iNode* CWsdlParser::findNodeByAttr(const iNode& parent, std::u16string_view localName, const WString& attribute,
                                   const WString& value) {
    for (int i = 0; i < parent.getNumberOfChildren(); ++i) {
        iNode* c = parent.getChildAt(i);
        if (getNodeType(*c) == localName && attr(*c, attribute) == value) return c;
    }
    return nullptr;
}

bool CWsdlParser::findAttr(const iNode& node, const WString& attribute) {
    return node.getProperties() && node.getProperties()->findIndex(attribute) >= 0;
}

WString CWsdlParser::findAttrVal(const iNode& node, const WString& attribute) { return attr(node, attribute); }

void CWsdlParser::findNodeNamespaces(const iNode& node, std::vector<CNamespace>& out) {
    out.clear();
    for (const iNode* n = &node; n; n = n->findParent()) {
        const tovan::iPropertyCollection* props = n->getProperties();
        if (!props) continue;
        for (int i = 0; i < props->getSize(); ++i) {
            const tovan::iProperty& p = props->get(i);
            std::u16string_view name = p.getName().view();
            if (name == u"xmlns")
                out.emplace_back(WString(u""), p.getValue().toString());
            else if (name.size() > 6 && name.substr(0, 6) == u"xmlns:")
                out.emplace_back(WString(name.substr(6)), p.getValue().toString());
        }
    }
}

WString CWsdlParser::FindDefiningNamespace(const iNode& node, const WString& prefix) {
    if (prefix.view() == u"xml") return WString(u"http://www.w3.org/XML/1998/namespace");
    WString key = prefix.isEmpty() ? WString(u"xmlns") : WString(u"xmlns:" + prefix.str());
    for (const iNode* n = &node; n; n = n->findParent()) {
        const tovan::iPropertyCollection* props = n->getProperties();
        int i = props ? props->findIndex(key) : -1;
        if (i >= 0) return props->get(i).getValue().toString();
    }
    return WString();
}

WString CWsdlParser::FindNamespaceInDefinitions(const WString& prefix) {
    requireParsed("FindNamespaceInDefinitions");
    WString key = prefix.isEmpty() ? WString(u"xmlns") : WString(u"xmlns:" + prefix.str());
    return attr(*getRoot(), key);
}

WString CWsdlParser::findTargetNamespace(const iNode& node) {
    for (const iNode* n = &node; n; n = n->findParent())
        if (findAttr(*n, names::targetNamespace)) return attr(*n, names::targetNamespace);
    return WString();
}

void CWsdlParser::getNamespaceName(const WString& qname, WString& prefix, WString& localName) {
    std::u16string_view v = qname.view();
    size_t colon = v.find(u':');
    if (v.empty() || (colon != std::u16string_view::npos &&
                      (colon == 0 || colon + 1 == v.size() || v.find(u':', colon + 1) != std::u16string_view::npos)))
        throw tovan::Exception(kClass, "getNamespaceName", u"Unable to parse namespaces");
    if (colon == std::u16string_view::npos) {
        prefix = WString(u"");
        localName = qname;
    } else {
        prefix = WString(v.substr(0, colon));
        localName = WString(v.substr(colon + 1));
    }
}

void CWsdlParser::buildIndexes() {
    if (indexed_) return;
    for (const auto& d : documents_) {
        if (!d->isWsdl) continue;
        for (int i = 0; i < d->root->getNumberOfChildren(); ++i) {
            iNode* c = d->root->getChildAt(i);
            const WString* name = wsdl::attrRef(*c, names::name);
            if (!name) continue;
            std::u16string key(getNodeType(*c));
            key += u'\n';
            key += name->view();
            definitions_.emplace(std::move(key), c);  // the first keeps the name
        }
    }
    indexed_ = true;
}

iNode* CWsdlParser::findDefinitionsChild(std::u16string_view kind, const WString& qname) const {
    key_.assign(kind);
    key_ += u'\n';
    key_ += localOf(qname.view());
    auto it = definitions_.find(key_);
    return it == definitions_.end() ? nullptr : it->second;
}

// ---- definitions and services ------------------------------------------------------------

void CWsdlParser::GetDefinitionsInfo(WString& targetNamespace) {
    requireParsed("GetDefinitionsInfo");
    const iNode& root = *getRoot();
    if (!findAttr(root, names::targetNamespace))
        throw tovan::Exception(kClass, "GetDefinitionsInfo", u"missing targetNamespace");
    std::vector<CNamespace> declared;
    findNodeNamespaces(root, declared);
    WString wsdl, enc, soap;
    for (const CNamespace& ns : declared) {
        if (ns.isWsdlNs() && wsdl.isNull()) wsdl = ns.getPrefix();
        if (ns.isSoapEncodingNs() && enc.isNull()) enc = ns.getPrefix();
        if ((ns.isWsdlSoap11SchemaNs() || ns.isWsdlSoap12SchemaNs()) && soap.isNull()) soap = ns.getPrefix();
    }
    wsdlPrefix_ = wsdl;
    soapEncPrefix_ = enc;
    soapPrefix_ = soap;
    targetNamespace = attr(root, names::targetNamespace);
}

void CWsdlParser::GetServiceInfo(WString& serviceName, std::vector<CPort>& ports) {
    requireParsed("GetServiceInfo");
    collectPorts(serviceName, ports, true);
}

void CWsdlParser::collectPorts(WString& serviceName, std::vector<CPort>& ports, bool warn) {
    WString firstService;
    std::vector<CPort> found;
    std::unordered_set<std::u16string> bindings;  // IsNewBinding
    bool anyService = false;
    for (const auto& d : documents_) {
        if (!d->isWsdl) continue;
        for (int s = 0; s < d->root->getNumberOfChildren(); ++s) {
            const iNode& service = *d->root->getChildAt(s);
            if (getNodeType(service) != u"service") continue;
            WString name = attr(service, names::name);
            if (!anyService) firstService = name;
            anyService = true;
            for (int p = 0; p < service.getNumberOfChildren(); ++p) {
                const iNode& port = *service.getChildAt(p);
                if (getNodeType(port) != u"port") continue;
                const iNode* address = findNode(port, u"address");
                if (!address) continue;
                WString prefix = WString(u""), local;
                std::u16string_view qn = address->getName().view();
                size_t colon = qn.find(u':');
                if (colon != std::u16string_view::npos) prefix = WString(qn.substr(0, colon));
                CNamespace ns(prefix, FindDefiningNamespace(*address, prefix));
                if (ns.getUrl().isNull() || !(ns.isWsdlSoap11SchemaNs() || ns.isWsdlSoap12SchemaNs()))
                    continue;  // HTTP and other bindings are not SOAP methods
                CPort out;
                out.service = name;
                out.name = attr(port, names::name);
                out.binding = attr(port, names::binding);
                out.address = attr(*address, names::location);
                out.soap12 = ns.isWsdlSoap12SchemaNs();
                if (!bindings.insert(std::u16string(localOf(out.binding.view()))).second) {
                    if (warn) tovan::Exception::warn(u"ignoring port %ls with shared binding %ls", out.name, out.binding);
                    continue;
                }
                found.push_back(std::move(out));
            }
        }
    }
    if (!anyService) throw tovan::Exception(kClass, "GetServiceInfo", u"missing service");
    if (found.empty())
        throw tovan::Exception(kClass, "GetServiceInfo", u"Unable to find soap addresses. This WSDL may not have soap methods.");
    serviceName = firstService;
    ports = std::move(found);
}

// ---- bindings, port types, messages ---------------------------------------------------------

void CWsdlParser::GetBindingInfo(const WString& bindingName, CBinding& binding) {
    requireParsed("GetBindingInfo");
    buildIndexes();
    const iNode* node = findDefinitionsChild(u"binding", bindingName);
    if (!node) throw tovan::Exception(kClass, "GetBindingInfo", u"Can't find binding %ls", bindingName);
    CBinding out;
    out.name = attr(*node, names::name);
    out.type = attr(*node, names::type);
    out.style = DOC;  // the default of a SOAP binding
    for (int i = 0; i < node->getNumberOfChildren(); ++i) {
        const iNode& c = *node->getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"binding") {
            out.transport = attr(c, names::transport);
            out.verb = attr(c, names::verb);
            if (attr(c, names::style).view() == u"rpc") out.style = RPC;
            WString prefix(u"");
            size_t colon = c.getName().view().find(u':');
            if (colon != std::u16string_view::npos) prefix = WString(c.getName().view().substr(0, colon));
            out.soap12 = CNamespace(prefix, FindDefiningNamespace(c, prefix)).isWsdlSoap12SchemaNs();
        } else if (kind == u"operation") {
            COperation op;
            op.name = attr(c, names::name);
            op.style = out.style;
            for (int k = 0; k < c.getNumberOfChildren(); ++k) {
                const iNode& part = *c.getChildAt(k);
                std::u16string_view pk = getNodeType(part);
                if (pk == u"operation") {
                    op.soapAction = attr(part, names::soapAction);
                    WString style = attr(part, names::style);
                    if (!style.isEmpty()) op.style = style.view() == u"rpc" ? RPC : DOC;
                } else if (pk == u"input") {
                    op.inputName = attr(part, names::name);
                    if (const iNode* body = findNode(part, u"body")) {
                        op.use = attr(*body, names::use);
                        op.bodyNamespace = attr(*body, names::namespace_);
                        op.encoding = attr(*body, names::encodingStyle);
                    }
                } else if (pk == u"output") {
                    op.outputName = attr(part, names::name);
                }
            }
            out.operations.push_back(std::move(op));
        }
    }
    style_ = out.style;
    binding = std::move(out);
}

void CWsdlParser::GetOperationInfoFromPortType(const WString& portType, std::vector<COperation>& operations) {
    requireParsed("GetOperationInfoFromPortType");
    buildIndexes();
    const iNode* node = findDefinitionsChild(u"portType", portType);
    if (!node) throw tovan::Exception(kClass, "GetOperationInfoFromPortType", u"Couldn't find portType");
    std::vector<COperation> out;
    for (int i = 0; i < node->getNumberOfChildren(); ++i) {
        const iNode& c = *node->getChildAt(i);
        if (getNodeType(c) != u"operation") continue;
        COperation op;
        op.name = attr(c, names::name);
        if (const iNode* in = findNode(c, u"input")) {
            op.input = attr(*in, names::message);
            op.inputName = attr(*in, names::name);
        }
        if (const iNode* o = findNode(c, u"output")) {
            op.output = attr(*o, names::message);
            op.outputName = attr(*o, names::name);
        }
        out.push_back(std::move(op));
    }
    if (out.empty()) throw tovan::Exception(kClass, "GetOperationInfoFromPortType", u"Couldn't find operation");
    operations = std::move(out);
}

void CWsdlParser::MergeBindingDetails(const CBinding& binding, std::vector<COperation>& operations) {
    std::unordered_map<std::u16string, const COperation*> byName, byInput;
    for (const COperation& b : binding.operations) {
        byName.emplace(b.name.str(), &b);
        if (!b.inputName.isEmpty()) byInput.emplace(b.name.str() + u'(' + b.inputName.str() + u')', &b);
    }
    for (COperation& op : operations) {
        const COperation* b = nullptr;
        if (!op.inputName.isEmpty()) {
            auto it = byInput.find(op.name.str() + u'(' + op.inputName.str() + u')');
            if (it != byInput.end()) b = it->second;
        }
        if (!b) {
            auto it = byName.find(op.name.str());
            if (it != byName.end()) b = it->second;
        }
        op.style = binding.style;
        if (!b) continue;
        op.soapAction = b->soapAction;
        op.use = b->use;
        op.bodyNamespace = b->bodyNamespace;
        op.encoding = b->encoding;
        op.style = b->style;
    }
}

void CWsdlParser::GetMessageInfo(const WString& messageName, CMsg& message) {
    requireParsed("GetMessageInfo");
    buildIndexes();
    const iNode* node = findDefinitionsChild(u"message", messageName);
    if (!node) throw tovan::Exception(kClass, "GetMessageInfo", u"Couldn't find message");
    CMsg out;
    out.name = attr(*node, names::name);
    for (int i = 0; i < node->getNumberOfChildren(); ++i) {
        iNode* c = node->getChildAt(i);
        if (getNodeType(*c) != u"part") continue;
        CPart part;
        part.name = attr(*c, names::name);
        part.element = attr(*c, names::element);
        part.type = attr(*c, names::type);
        part.node = Ptr<iNode>(c);
        out.parts.push_back(std::move(part));
    }
    message = std::move(out);
}

bool CWsdlParser::OpHasOverloads(const WString& portType, const WString& operation) {
    std::vector<COperation> ops;
    GetOperationInfoFromPortType(portType, ops);
    int n = 0;
    for (const COperation& op : ops) n += op.name == operation;
    return n > 1;
}

void CWsdlParser::FindOperation(const WString& service, const WString& port, const WString& binding,
                                const WString& operation, COperation& found) {
    requireParsed("FindOperation");
    WString bindingName = binding;
    if (bindingName.isEmpty()) {
        WString first;
        std::vector<CPort> ports;
        collectPorts(first, ports, false);  // GetServiceInfo has told of shared bindings
        for (const CPort& p : ports)
            if ((service.isEmpty() || p.service == service) && (port.isEmpty() || p.name == port)) {
                bindingName = p.binding;
                break;
            }
        if (bindingName.isEmpty()) throw tovan::Exception(kClass, "FindOperation", u"Couldn't find operation");
    }
    CBinding b;
    GetBindingInfo(bindingName, b);
    std::vector<COperation> ops;
    GetOperationInfoFromPortType(b.type, ops);
    // "name(inputName)" picks one of overloaded operations.
    std::u16string_view want = operation.view();
    std::u16string_view inputName;
    if (!want.empty() && want.back() == u')') {
        size_t open = want.find(u'(');
        if (open != std::u16string_view::npos) {
            inputName = want.substr(open + 1, want.size() - open - 2);
            want = want.substr(0, open);
        }
    }
    for (COperation& op : ops) {
        if (op.name.view() != want || (!inputName.empty() && op.inputName.view() != inputName)) continue;
        std::vector<COperation> one{op};
        MergeBindingDetails(b, one);
        found = std::move(one.front());
        return;
    }
    throw tovan::Exception(kClass, "FindOperation", u"Couldn't find operation");
}

}  // namespace nvk
