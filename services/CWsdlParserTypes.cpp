// Schemas, atomic types and the custom types of a WSDL.
#include <algorithm>
#include <array>
#include <charconv>

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/services/CWsdlParser_internal.h"

namespace nvk {

using tovan::iNode;
using tovan::Ptr;
using tovan::WString;
using wsdl::attr;
namespace names = wsdl::names;
using wsdl::kClass;
using wsdl::localOf;

namespace {

// Group references that lead back to themselves end here.
constexpr int kMaxGroupDepth = 64;
// Nor may groups that each nest sequences as deep as a document allows, one
// inside the next: reading recurses once per sequence. One document alone
// stays below this.
constexpr int kMaxSequenceNesting = 2 * XmlReader::kMaxDepth;

// The XML Schema built-in types that carry a single value, both of the 2001
// names and of the 1999 draft, plus anyType (any value at all).
constexpr std::array<std::u16string_view, 55> kAtomicTypes = {
    u"anySimpleType", u"anyType", u"anyURI", u"base64Binary", u"boolean", u"byte", u"date", u"dateTime",
    u"decimal", u"double", u"duration", u"ENTITIES", u"ENTITY", u"float", u"gDay", u"gMonth", u"gMonthDay",
    u"gYear", u"gYearMonth", u"hexBinary", u"ID", u"IDREF", u"IDREFS", u"int", u"integer", u"language", u"long",
    u"Name", u"NCName", u"negativeInteger", u"NMTOKEN", u"NMTOKENS", u"nonNegativeInteger", u"nonPositiveInteger",
    u"normalizedString", u"NOTATION", u"positiveInteger", u"QName", u"short", u"string", u"time", u"token",
    u"unsignedByte", u"unsignedInt", u"unsignedLong", u"unsignedShort",
    // 1999 draft names
    u"binary", u"century", u"recurringDate", u"recurringDay", u"recurringDuration", u"timeDuration",
    u"timeInstant", u"timePeriod", u"uriReference"};

constexpr std::array<std::u16string_view, 12> kFacets = {
    u"pattern",      u"length",       u"minLength",    u"maxLength",   u"minInclusive",   u"maxInclusive",
    u"minExclusive", u"maxExclusive", u"totalDigits",  u"fractionDigits", u"whiteSpace", u"enumeration"};

int occurs(const iNode& node, const WString& attribute, int absent) {
    WString spare;
    std::u16string_view text = wsdl::attrView(node, attribute, spare);
    if (text.empty()) return absent;
    if (text == u"unbounded") return -1;
    int n = absent;
    return tovan::parseInteger(text, n, tovan::NumberSigns::None) ? n : absent;
}

std::u16string& schemaKey(std::u16string& key, std::u16string_view ns, std::u16string_view kind, std::u16string_view name) {
    key.assign(ns);
    key += u'\n';
    key += kind;
    key += u'\n';
    key += name;
    return key;
}

}  // namespace

// ---- schemas ------------------------------------------------------------------------

std::string CWsdlParser::buildExternalSchemaFilename(const std::string& importingFile, const std::string& location) {
    std::string joined = location;
    if (location.empty() || location[0] != '/') {
        size_t slash = importingFile.rfind('/');
        joined = (slash == std::string::npos ? std::string() : importingFile.substr(0, slash + 1)) + location;
    }
    std::vector<std::string> parts;
    size_t start = 0;
    const bool absolute = !joined.empty() && joined[0] == '/';
    while (start <= joined.size()) {
        size_t end = joined.find('/', start);
        if (end == std::string::npos) end = joined.size();
        std::string part = joined.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..")
                parts.pop_back();
            else if (!absolute)
                parts.push_back(part);
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string out = absolute ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? "/" : "") + parts[i];
    return out;
}

void CWsdlParser::importExternalSchemaElements(iNode& document, std::vector<iNode*>& schemas) {
    iNode* root = document.getName().isNull() && document.hasChildren() ? document.getChildAt(0) : &document;
    if (getNodeType(*root) == u"schema") {
        schemas.push_back(root);
        return;
    }
    for (int i = 0; i < root->getNumberOfChildren(); ++i) {
        iNode* c = root->getChildAt(i);
        if (getNodeType(*c) != u"types") continue;
        for (int k = 0; k < c->getNumberOfChildren(); ++k)
            if (getNodeType(*c->getChildAt(k)) == u"schema") schemas.push_back(c->getChildAt(k));
    }
}

void CWsdlParser::findSchemaNodes(std::vector<iNode*>& out) {
    out.clear();
    for (const auto& d : documents_) importExternalSchemaElements(*d->tree, out);
}

void CWsdlParser::loadExternalSchemata() {
    requireParsed("loadExternalSchemata");
    if (schemasLoaded_ || !schemas_.empty()) return;
    // Included schemas without a target namespace take their includer's.
    std::unordered_map<std::string, WString> includedInto;
    for (const auto& d : documents_) {
        std::vector<iNode*> nodes;
        importExternalSchemaElements(*d->tree, nodes);
        for (iNode* node : nodes) {
            CSchema s;
            s.setNode(node);
            s.setSource(d->isWsdl ? std::string() : d->path);
            s.setTargetNamespace(findAttr(*node, names::targetNamespace) ? attr(*node, names::targetNamespace) : WString(u""));
            s.setIsElementFormQualified(attr(*node, names::elementFormDefault).view() == u"qualified");
            s.setIsAttributeFormQualified(attr(*node, names::attributeFormDefault).view() == u"qualified");
            schemas_.push_back(std::move(s));
            for (int i = 0; i < node->getNumberOfChildren(); ++i) {
                const iNode& c = *node->getChildAt(i);
                WString loc = attr(c, names::schemaLocation);
                if (getNodeType(c) == u"include" && !loc.isEmpty() && !d->path.empty())
                    includedInto.emplace(buildExternalSchemaFilename(d->path, tovan::toNarrow(loc)),
                                         attr(*node, names::targetNamespace));
            }
        }
    }
    for (CSchema& s : schemas_) {
        auto it = includedInto.find(s.getSource());
        if (it != includedInto.end() && s.getTargetNamespace().isEmpty() && !it->second.isEmpty())
            s.setTargetNamespace(it->second);
    }
    for (size_t i = 0; i < schemas_.size(); ++i) {
        const iNode& node = *schemas_[i].getNode();
        for (int k = 0; k < node.getNumberOfChildren(); ++k) {
            iNode* c = node.getChildAt(k);
            const WString* name = wsdl::attrRef(*c, names::name);
            if (name && !name->isEmpty())
                schemaChildren_.emplace(schemaKey(key_, schemas_[i].getTargetNamespace().view(), getNodeType(*c), name->view()),
                                        std::make_pair(c, i));
        }
    }
    // Occurrence of every element, by the queries exactly as the platform runs them.
    for (const auto& d : documents_) {
        tovan::NodeReferenceSet set;
        const std::pair<const char16_t*, std::vector<const iNode*>*> queries[] = {
            {u"//*[local-name()='element'][@minOccurs>=1 or not(@minOccurs)]", &required_},
            {u"//*[local-name()='element'][@minOccurs<1]", &optional_},
            {u"//*[local-name()='element'][not(@form)]", &formless_}};
        for (const auto& [query, into] : queries) {
            if (!d->tree->query(query, tovan::QueryDefault, set)) continue;
            for (size_t i = 0; i < set.size(); ++i) into->push_back(set.get(int(i)));
        }
    }
    // Documents are distinct trees, so no node comes twice.
    for (std::vector<const iNode*>* selected : {&required_, &optional_, &formless_})
        std::sort(selected->begin(), selected->end());
    schemasLoaded_ = true;
}

void CWsdlParser::GetSchemaInfo(std::vector<CSchema>& schemas) {
    requireParsed("GetSchemaInfo");
    loadExternalSchemata();
    schemas = schemas_;
}

const CWsdlParser::CSchema* CWsdlParser::GetSchemaByTargetNS(const WString& ns) {
    loadExternalSchemata();
    for (const CSchema& s : schemas_)
        if (Equals_NS(s.getTargetNamespace(), ns)) return &s;
    return nullptr;
}

iNode* CWsdlParser::findSchemaChild(const WString& ns, std::u16string_view kind, std::u16string_view localName,
                                    const CSchema** schema) {
    loadExternalSchemata();
    auto it = schemaChildren_.find(schemaKey(key_, wsdl::schemeless(ns.view()), kind, localName));
    if (it == schemaChildren_.end()) return nullptr;
    if (schema) *schema = &schemas_[it->second.second];
    return it->second.first;
}

const CWsdlParser::CSchema* CWsdlParser::FindSchemaContainingElement(const WString& ns, const WString& localName) {
    const CSchema* s = nullptr;
    return findSchemaChild(ns, u"element", localName.view(), &s) ? s : nullptr;
}

const CWsdlParser::CSchema* CWsdlParser::FindSchemaContainingCustomType(const WString& ns, const WString& localName) {
    const CSchema* s = nullptr;
    if (findSchemaChild(ns, u"complexType", localName.view(), &s) || findSchemaChild(ns, u"simpleType", localName.view(), &s))
        return s;
    return nullptr;
}

// ---- atomic types ----------------------------------------------------------------------

bool CWsdlParser::isInAtomicTypeList(std::u16string_view localName) const {
    for (std::u16string_view t : kAtomicTypes)
        if (t == localName) return true;
    return false;
}

bool CWsdlParser::isOfAtomicType(const WString& typeName, const iNode& context) {
    WString prefix, local;
    getNamespaceName(typeName, prefix, local);
    return isAtomicIn(FindDefiningNamespace(context, prefix), local);
}

bool CWsdlParser::isAtomicIn(const WString& ns, const WString& local) {
    lastAtomic_ = local;
    // The SOAP encoding namespaces give the same simple types under the same
    // names ("soapenc:string"); no schema of the WSDL defines them.
    if (ns.isNull() || !(isXmlSchemaNS(ns) || isXmlSchemaEncNS(ns))) return false;
    // The older treatment took every name of those namespaces as atomic.
    return backward70_ || isInAtomicTypeList(local.view());
}

bool CWsdlParser::IsOfAtomicType(const iNode& element, Style) {
    // An element's own "type" decides in either style.
    WString type = attr(element, names::type);
    if (!type.isEmpty()) return isOfAtomicType(type, element);
    // No type and no type of its own: anyType.
    return !findNode(element, u"complexType") && !findNode(element, u"simpleType");
}

bool CWsdlParser::IsOfAtomicType(const CPart& part) {
    requireParsed("IsOfAtomicType");
    if (!part.type.isEmpty()) return isOfAtomicType(part.type, *part.node);
    return IsOfAtomicType(*GetMatchingSchemaElementDoc(part), DOC);
}

bool CWsdlParser::IsArrayType(const iNode& element) {
    // Attribute names fold A-Z, so "maxoccurs" finds "maxOccurs" too; a
    // minimum above 1 also means several.
    int max = occurs(element, names::maxoccurs, 1);
    return max == -1 || max > 1 || occurs(element, names::minoccurs, 1) > 1;
}

WString CWsdlParser::StripArrayFromTypeName(const WString& typeName) {
    size_t bracket = typeName.view().find(u'[');
    return bracket == std::u16string_view::npos ? typeName : WString(typeName.view().substr(0, bracket));
}

// ---- custom types ---------------------------------------------------------------------------

const CWsdlParser::CSchema& CWsdlParser::GetSchemaForPartDoc(const CPart& part) {
    requireParsed("GetSchemaForPartDoc");
    WString prefix, local;
    getNamespaceName(part.element, prefix, local);
    WString ns = FindDefiningNamespace(*part.node, prefix);
    if (ns.isNull()) {
        if (!prefix.isEmpty()) throw tovan::Exception(kClass, "GetSchemaForPartDoc", u"Can't find namespace %ls\n", prefix);
        ns = WString(u"");
    }
    const CSchema* schema = nullptr;
    if (!findSchemaChild(ns, u"element", local.view(), &schema)) {
        if (!GetSchemaByTargetNS(ns))
            throw tovan::Exception(kClass, "GetSchemaForPartDoc", u"Can't find schema with targetNamespace=%ls", ns);
        throw tovan::Exception(kClass, "GetSchemaForPartDoc",
                               u"Cannot find a schema with targetNamespace = %ls and element = %ls", ns, local);
    }
    return *schema;
}

iNode* CWsdlParser::GetMatchingSchemaElementDoc(const CPart& part) {
    const CSchema& schema = GetSchemaForPartDoc(part);
    return findSchemaChild(schema.getTargetNamespace(), u"element", localOf(part.element.view()));
}

bool CWsdlParser::GetCustomTypeInfoDoc(const CPart& part, CCustomType& type) {
    requireParsed("GetCustomTypeInfoDoc");
    // A part with neither reference goes on to fail on its empty element name:
    // handing it back to the RPC reading would recurse without end.
    if (part.element.isEmpty() && !part.type.isEmpty()) return GetCustomTypeInfoRPC(part, type);
    return GetElementsCustomType(*GetMatchingSchemaElementDoc(part), type);
}

bool CWsdlParser::GetCustomTypeInfoRPC(const CPart& part, CCustomType& type) {
    requireParsed("GetCustomTypeInfoRPC");
    if (part.type.isEmpty()) return GetCustomTypeInfoDoc(part, type);
    if (isOfAtomicType(part.type, *part.node)) return false;
    loadExternalSchemata();
    if (schemas_.empty())
        throw tovan::Exception(kClass, "GetCustomTypeInfoRPC",
                               u"Can't find <schema> node in wsdl, needed for definition of type %ls", part.type);
    WString prefix, local;
    getNamespaceName(part.type, prefix, local);
    WString ns = FindDefiningNamespace(*part.node, prefix);
    if (ns.isNull()) {
        if (!prefix.isEmpty())
            throw tovan::Exception(kClass, "GetCustomTypeInfoRPC", u"Can't derive target namespace from ns-name %ls", prefix);
        ns = WString(u"");
    }
    CCustomType out;
    GetCustomType(ns, local, out);
    type = std::move(out);
    return true;
}

bool CWsdlParser::GetElementsCustomType(iNode& element, CCustomType& type) {
    WString typeName = attr(element, names::type);
    if (!typeName.isEmpty()) {
        if (isOfAtomicType(typeName, element)) return false;
        CCustomType out;
        GetCustomTypeOutOfSchema(typeName, element, out);
        type = std::move(out);
        return true;
    }
    for (int i = 0; i < element.getNumberOfChildren(); ++i) {
        iNode& c = *element.getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind != u"complexType" && kind != u"simpleType")
            throw tovan::Exception(kClass, "GetElementsCustomType", u"Can't understand custom type: \"%ls\"", attr(element, names::name));
        CCustomType out;
        out.name = attr(element, names::name);
        out.ns = CNamespace::stripScheme(findTargetNamespace(element));
        readTypeNode(c, out.ns, out);
        type = std::move(out);
        return true;
    }
    return false;  // no type at all: anyType
}

bool CWsdlParser::IsCustomTypeInSchema(const WString& typeName, const iNode& context) {
    WString prefix, local;
    getNamespaceName(typeName, prefix, local);
    WString ns = FindDefiningNamespace(context, prefix);
    if (ns.isNull()) ns = WString(u"");
    return FindSchemaContainingCustomType(ns, local) != nullptr;
}

void CWsdlParser::GetCustomTypeOutOfSchema(const WString& typeName, const iNode& context, CCustomType& type) {
    WString prefix, local;
    getNamespaceName(typeName, prefix, local);
    WString ns = FindDefiningNamespace(context, prefix);
    if (ns.isNull()) {
        if (!prefix.isEmpty())
            throw tovan::Exception(kClass, "GetCustomTypeOutOfSchema", u"Can't find target namespace for type %ls", typeName);
        ns = WString(u"");
    }
    CCustomType out;
    GetCustomType(ns, local, out);
    out.name = typeName;
    type = std::move(out);
}

void CWsdlParser::GetCustomType(const WString& ns, const WString& localName, CCustomType& type) {
    iNode* node = findSchemaChild(ns, u"complexType", localName.view());
    if (!node) node = findSchemaChild(ns, u"simpleType", localName.view());
    // A name that the schema gives to something else (an element, a group)
    // is no type: readTypeNode says so.
    for (std::u16string_view other : {u"element", u"group", u"attributeGroup", u"attribute"})
        if (!node) node = findSchemaChild(ns, other, localName.view());
    if (!node) {
        if (!GetSchemaByTargetNS(ns))
            throw tovan::Exception(kClass, "GetCustomType", u"Can't find schema with targetNamespace=%ls", ns);
        throw tovan::Exception(kClass, "GetCustomType", u"Cannot find a schema with targetNamespace=%ls and customType=%ls",
                               ns, localName);
    }
    CCustomType out;
    out.name = localName;
    out.ns = CNamespace::stripScheme(ns);
    readTypeNode(*node, out.ns, out);
    type = std::move(out);
}

void CWsdlParser::readTypeNode(iNode& node, const WString& ns, CCustomType& type) {
    type.ns = ns;
    std::u16string_view kind = getNodeType(node);
    if (kind == u"complexType") {
        type.kind = CCustomType::Complex;
        readComplexType(node, type);
    } else if (kind == u"simpleType") {
        type.kind = CCustomType::Simple;
        readSimpleType(node, type);
    } else {
        throw tovan::Exception(kClass, "readTypeNode", u"Unknown node type defines type with name %ls", attr(node, names::name));
    }
}

void CWsdlParser::schemaElement(iNode& node, CElement& out) {
    iNode* element = &node;
    WString ref = attr(node, names::ref);
    if (!ref.isEmpty()) {
        WString prefix, local;
        getNamespaceName(ref, prefix, local);
        WString ns = FindDefiningNamespace(node, prefix);
        iNode* target = ns.isNull() && !prefix.isEmpty() ? nullptr
                                                          : findSchemaChild(ns.isNull() ? WString(u"") : ns, u"element", local.view());
        if (!target)
            throw tovan::Exception(kClass, "schemaElement",
                                   u"Cannot find reference element (%ls). Check that the (%ls) namespace is correctly defined or imported.",
                                   ref, ns.isNull() ? prefix : ns);
        out.ref = ref;
        element = target;
    }
    out.name = attr(*element, names::name);
    out.type = attr(*element, names::type);
    // Occurrence belongs to the place of use, a reference's included.
    out.minOccurs = occurs(node, names::minOccurs, 1);
    out.maxOccurs = occurs(node, names::maxOccurs, 1);
    out.required = std::binary_search(required_.begin(), required_.end(), &node);
    out.hasForm = !std::binary_search(formless_.begin(), formless_.end(), &node);
    out.global = getNodeType(*element->findParent()) == u"schema";
    out.node = Ptr<iNode>(element);
    if (!out.type.isEmpty()) {
        WString prefix, local;
        getNamespaceName(out.type, prefix, local);
        WString ns = FindDefiningNamespace(*element, prefix);
        if (ns.isNull() && !prefix.isEmpty())
            throw tovan::Exception(kClass, "schemaElement", u"Can't find target namespace for type %ls", out.type);
        out.ns = CNamespace::stripScheme(ns.isNull() ? WString(u"") : ns);
        out.atomic = isAtomicIn(ns, local);  // the type's namespace, resolved once
    }
}

void CWsdlParser::readComplexType(iNode& node, CCustomType& type) {
    for (int i = 0; i < node.getNumberOfChildren(); ++i) {
        iNode& c = *node.getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind == u"sequence")
            readSequence(c, type, false, 0);
        else if (kind == u"choice")
            processChoice(c, type, 0);
        else if (kind == u"group")
            processGroupRef(c, type, false, 0);
        else if (kind == u"attribute")
            throw tovan::Exception(kClass, "readComplexType", u"Complex types with custom attributes are not supported");
        else if (kind == u"complexContent")
            processComplexContent(c, type);
        else
            throw tovan::Exception(kClass, "readComplexType", u"Unknown type: <complexType><%ls>", WString(kind));
    }
}

void CWsdlParser::readSequence(iNode& node, CCustomType& type, bool inChoice, int depth) {
    struct Level {
        int& n;
        explicit Level(int& nesting) : n(nesting) { ++n; }
        ~Level() { --n; }
    } level(sequenceNesting_);
    for (int i = 0; i < node.getNumberOfChildren(); ++i) {
        iNode& c = *node.getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind == u"element") {
            CElement e;
            schemaElement(c, e);
            e.inChoice = inChoice;
            type.elements.push_back(std::move(e));
        } else if (kind == u"sequence") {
            readSequence(c, type, inChoice, depth);
        } else if (kind == u"choice") {
            processChoice(c, type, depth);
        } else if (kind == u"group") {
            processGroupRef(c, type, inChoice, depth);
        } else if (kind == u"any") {
            // A wildcard: any element may stand here.
            CElement e;
            e.name = WString(u"*");
            e.minOccurs = occurs(c, names::minOccurs, 1);
            e.maxOccurs = occurs(c, names::maxOccurs, 1);
            e.required = e.minOccurs >= 1;
            e.inChoice = inChoice;
            type.elements.push_back(std::move(e));
        } else {
            throw tovan::Exception(kClass, "readSequence", u"Unknown type: <complexType><%ls>", WString(kind));
        }
    }
}

void CWsdlParser::processChoice(iNode& node, CCustomType& type, int depth) { readSequence(node, type, true, depth); }

void CWsdlParser::processGroupRef(iNode& node, CCustomType& type, bool inChoice, int depth) {
    WString ref = attr(node, names::ref);
    WString prefix, local;
    getNamespaceName(ref, prefix, local);
    WString ns = FindDefiningNamespace(node, prefix);
    iNode* group = ns.isNull() && !prefix.isEmpty() ? nullptr
                                                     : findSchemaChild(ns.isNull() ? WString(u"") : ns, u"group", local.view());
    // A group that contains itself stops here as unresolved, not at the stack's end.
    if (!group || depth >= kMaxGroupDepth || sequenceNesting_ >= kMaxSequenceNesting)
        throw tovan::Exception(kClass, "processGroupRef",
                               u"Cannot find reference group (%ls). Check that the (%ls) namespace is correctly defined or imported.",
                               ref, ns.isNull() ? prefix : ns);
    for (int i = 0; i < group->getNumberOfChildren(); ++i) {
        iNode& c = *group->getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind == u"sequence")
            readSequence(c, type, inChoice, depth + 1);
        else if (kind == u"choice")
            readSequence(c, type, true, depth + 1);
        else
            throw tovan::Exception(kClass, "processGroupRef", u"Unknown type: <complexType><%ls>", WString(kind));
    }
}

void CWsdlParser::processComplexContent(iNode& node, CCustomType& type) {
    for (int i = 0; i < node.getNumberOfChildren(); ++i) {
        iNode& c = *node.getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind != u"restriction")
            throw tovan::Exception(kClass, "processComplexContent", u"<complexContent> other than an array is not supported");
        WString base = attr(c, names::base);
        WString prefix, local;
        getNamespaceName(base, prefix, local);
        WString ns = FindDefiningNamespace(c, prefix);
        type.base = base;
        if (!ns.isNull() && isXmlSchemaEncNS(ns) && local.view() == u"Array") {
            type.kind = CCustomType::Array;
            for (int k = 0; k < c.getNumberOfChildren(); ++k) {
                iNode& a = *c.getChildAt(k);
                std::u16string_view ak = getNodeType(a);
                if (ak == u"attribute") {
                    CAttribute at;
                    at.name = findAttr(a, names::ref) ? attr(a, names::ref) : attr(a, names::name);
                    at.type = attr(a, names::type);
                    const tovan::iPropertyCollection* props = static_cast<const iNode&>(a).getProperties();
                    for (int p = 0; props && p < props->getSize(); ++p)
                        if (localOf(props->get(p).getName().view()) == u"arrayType" && props->get(p).getName().view() != u"ref")
                            at.arrayType = props->get(p).getValue().toString();
                    if (!at.arrayType.isEmpty() && type.arrayType.isEmpty()) type.arrayType = StripArrayFromTypeName(at.arrayType);
                    type.attributes.push_back(std::move(at));
                } else if (ak == u"sequence") {
                    // The element type given by an element of the restriction.
                    CCustomType inner;
                    readSequence(a, inner, false, 0);
                    for (CElement& e : inner.elements) {
                        if (type.arrayType.isEmpty()) type.arrayType = e.type;
                        type.elements.push_back(std::move(e));
                    }
                }
            }
            if (type.arrayType.isEmpty())
                throw tovan::Exception(kClass, "processComplexContent", u"Can't have an array with no elements");
        } else if (!ns.isNull() && isXmlSchemaNS(ns) && local.view() == u"anyType") {
            // A restriction of anything: its content model as a complex type's.
            readComplexType(c, type);
        } else if (!ns.isNull() && isXmlSchemaNS(ns) && local.view() == u"string") {
            readSimpleType(node, type);
        } else {
            throw tovan::Exception(kClass, "processComplexContent", u"Can't handle <restriction> to base type (%ls)", base);
        }
    }
}

void CWsdlParser::readSimpleType(iNode& node, CCustomType& type) {
    for (int i = 0; i < node.getNumberOfChildren(); ++i) {
        iNode& c = *node.getChildAt(i);
        std::u16string_view kind = getNodeType(c);
        if (kind == u"annotation") continue;
        if (kind != u"restriction")
            throw tovan::Exception(kClass, "readSimpleType", u"<simpleType> with <%ls> types or restriction is not supported.",
                                   WString(kind));
        type.base = attr(c, names::base);
        for (int k = 0; k < c.getNumberOfChildren(); ++k) {
            iNode& f = *c.getChildAt(k);
            std::u16string_view fk = getNodeType(f);
            if (fk == u"annotation") continue;
            bool known = false;
            for (std::u16string_view facet : kFacets) known = known || facet == fk;
            if (!known)
                throw tovan::Exception(kClass, "readSimpleType",
                                       u"<simpleType> with <%ls> types or restriction is not supported.", WString(fk));
            if (fk == u"enumeration")
                type.enumerations.push_back(attr(f, names::value));
            else
                type.facets.emplace_back(WString(fk), attr(f, names::value));
        }
    }
}

}  // namespace nvk
