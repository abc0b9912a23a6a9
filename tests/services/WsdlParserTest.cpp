// The WSDL parser on hand-made documents: services, bindings, operations and
// messages, the support matrix of schema constructs with every message, the
// namespaces, imports from files and bundles.
#include <fstream>

#include "nvk/services/CWsdlParser.h"
#include "nvk/services/WsdlReport.h"
#include "tests/support/TestSupport.h"

using nvk::CWsdlParser;
using tovan::WString;
using W = CWsdlParser;
using nvktest::failureText;

namespace {

// A WSDL with one RPC and one document operation over `types` (schema
// children of the target namespace "urn:t"), ports and bindings as given.
std::string wsdl(const std::string& types, const std::string& extraMessages = "",
                 const std::string& services =
                     "<service name='S'><port name='P' binding='tns:B'><soap:address location='http://h/s'/></port></service>",
                 const std::string& root = " targetNamespace='http://urn.example/t'") {
    return "<?xml version='1.0'?>\n"
           "<definitions xmlns='http://schemas.xmlsoap.org/wsdl/' xmlns:soap='http://schemas.xmlsoap.org/wsdl/soap/'"
           " xmlns:http='http://schemas.xmlsoap.org/wsdl/http/' xmlns:xsd='http://www.w3.org/2001/XMLSchema'"
           " xmlns:enc='http://schemas.xmlsoap.org/soap/encoding/' xmlns:wsdl='http://schemas.xmlsoap.org/wsdl/'"
           " xmlns:tns='https://urn.example/t'" +
           root +
           ">\n"
           "<types><xsd:schema targetNamespace='http://urn.example/t' elementFormDefault='qualified'>" +
           types +
           "</xsd:schema></types>\n"
           "<message name='In'><part name='a' type='xsd:int'/><part name='t' type='tns:T'/></message>\n"
           "<message name='Out'><part name='r' element='tns:R'/></message>\n" +
           extraMessages +
           "<portType name='PT'><operation name='call'><input message='tns:In'/><output message='tns:Out'/></operation>"
           "<operation name='notify'><input message='tns:In'/></operation></portType>\n"
           "<binding name='B' type='tns:PT'><soap:binding style='rpc' transport='http://schemas.xmlsoap.org/soap/http'/>"
           "<operation name='call'><soap:operation soapAction='urn:call'/><input><soap:body use='encoded'"
           " namespace='urn:ns' encodingStyle='http://schemas.xmlsoap.org/soap/encoding/'/></input></operation>"
           "<operation name='notify'><soap:operation soapAction='urn:notify' style='document'/>"
           "<input><soap:body use='literal'/></input></operation></binding>\n" +
           services + "</definitions>";
}

const std::string kTypes =
    "<xsd:complexType name='T'><xsd:annotation/><xsd:sequence><xsd:element name='id' type='xsd:int'/>"
    "<xsd:element name='tags' type='xsd:string' minOccurs='0' maxOccurs='unbounded' form='unqualified'/>"
    "<xsd:element ref='tns:R'/><xsd:choice><xsd:element name='x' type='tns:Color'/><xsd:element name='y' type='xsd:double'/>"
    "</xsd:choice><xsd:group ref='tns:G'/><xsd:any/></xsd:sequence></xsd:complexType>"
    "<xsd:group name='G'><xsd:sequence><xsd:element name='g' type='xsd:boolean'/></xsd:sequence></xsd:group>"
    "<xsd:element name='R'><xsd:complexType><xsd:sequence><xsd:element name='v' type='xsd:string'/></xsd:sequence>"
    "</xsd:complexType></xsd:element>"
    "<xsd:simpleType name='Color'><xsd:restriction base='xsd:string'><xsd:enumeration value='red'/>"
    "<xsd:enumeration value='blue'/><xsd:maxLength value='5'/><xsd:pattern value='[a-z]+'/></xsd:restriction></xsd:simpleType>"
    "<xsd:complexType name='Ints'><xsd:complexContent><xsd:restriction base='enc:Array'>"
    "<xsd:attribute ref='enc:arrayType' wsdl:arrayType='xsd:int[]'/></xsd:restriction></xsd:complexContent></xsd:complexType>";

W& load(W& p, const std::string& text) {
    p.Parse(text);
    return p;
}

// The custom type of a made-up part with this type, RPC style.
std::string typeFailure(const std::string& types, const std::string& partType = "tns:X") {
    W p;
    load(p, wsdl(types, "<message name='M'><part name='p' type='" + partType + "'/></message>"));
    W::CMsg m;
    p.GetMessageInfo(u"tns:M", m);
    W::CCustomType t;
    t.name = u"unchanged";
    std::string what = failureText([&] { p.GetCustomTypeInfoRPC(m.parts[0], t); });
    EXPECT_EQ(t.name, u"unchanged") << what;
    return what;
}

}  // namespace

TEST(WsdlParser, ServicesBindingsOperationsAndMessages) {
    W p;
    EXPECT_FALSE(p.HasParsedWsdl());
    EXPECT_EQ(failureText([&] { WString t; p.GetDefinitionsInfo(t); }), "No WSDL has been parsed");
    load(p, wsdl(kTypes));
    EXPECT_TRUE(p.HasParsedWsdl());
    WString tns, service;
    p.GetDefinitionsInfo(tns);
    EXPECT_EQ(tns, u"http://urn.example/t");
    EXPECT_EQ(p.GetWsdlPrefix(), u"");  // the default namespace ("wsdl" is bound too, later)
    EXPECT_EQ(p.GetSoapPrefix(), u"soap");
    EXPECT_EQ(p.GetSoapEncodingPrefix(), u"enc");
    std::vector<W::CPort> ports;
    p.GetServiceInfo(service, ports);
    EXPECT_EQ(service, u"S");
    ASSERT_EQ(ports.size(), 1u);
    EXPECT_EQ(ports[0].name, u"P");
    EXPECT_EQ(ports[0].binding, u"tns:B");
    EXPECT_EQ(ports[0].address, u"http://h/s");

    W::CBinding b;
    p.GetBindingInfo(ports[0].binding, b);
    EXPECT_EQ(b.type, u"tns:PT");
    EXPECT_EQ(b.transport, u"http://schemas.xmlsoap.org/soap/http");
    EXPECT_EQ(b.style, W::RPC);
    EXPECT_TRUE(p.IsRPCStyle());
    EXPECT_FALSE(p.IsDOCStyle());
    ASSERT_EQ(b.operations.size(), 2u);
    std::vector<W::COperation> ops;
    p.GetOperationInfoFromPortType(b.type, ops);
    ASSERT_EQ(ops.size(), 2u);
    EXPECT_EQ(ops[0].input, u"tns:In");
    EXPECT_EQ(ops[0].output, u"tns:Out");
    EXPECT_FALSE(ops[1].hasOutput());
    W::MergeBindingDetails(b, ops);
    EXPECT_EQ(ops[0].soapAction, u"urn:call");
    EXPECT_EQ(ops[0].use, u"encoded");
    EXPECT_EQ(ops[0].bodyNamespace, u"urn:ns");
    EXPECT_EQ(ops[0].encoding, u"http://schemas.xmlsoap.org/soap/encoding/");
    EXPECT_EQ(ops[0].style, W::RPC);
    EXPECT_EQ(ops[1].style, W::DOC);  // the operation's own style wins
    EXPECT_EQ(ops[1].use, u"literal");

    W::CMsg in;
    p.GetMessageInfo(u"tns:In", in);
    ASSERT_EQ(in.parts.size(), 2u);
    EXPECT_EQ(in.parts[0].type, u"xsd:int");
    EXPECT_TRUE(p.IsOfAtomicType(in.parts[0]));
    EXPECT_EQ(p.GetLastAtomicTypeQueried(), u"int");
    EXPECT_FALSE(p.IsOfAtomicType(in.parts[1]));

    W::COperation found;
    p.FindOperation(u"", u"", u"", u"notify", found);
    EXPECT_EQ(found.soapAction, u"urn:notify");
    EXPECT_FALSE(p.OpHasOverloads(u"tns:PT", u"call"));

    // Failed lookups leave the output as it was.
    b.name = u"kept";
    EXPECT_EQ(failureText([&] { p.GetBindingInfo(u"tns:Nope", b); }), "Can't find binding tns:Nope");
    EXPECT_EQ(b.name, u"kept");
    EXPECT_EQ(failureText([&] { p.GetOperationInfoFromPortType(u"tns:Nope", ops); }), "Couldn't find portType");
    EXPECT_EQ(ops.size(), 2u);
    W withEmpty;
    load(withEmpty, wsdl(kTypes, "<portType name='Empty'><documentation>none yet</documentation></portType>"));
    EXPECT_EQ(failureText([&] { withEmpty.GetOperationInfoFromPortType(u"tns:Empty", ops); }),
              "Couldn't find operation");
    EXPECT_EQ(ops.size(), 2u);
    EXPECT_EQ(failureText([&] { p.GetMessageInfo(u"tns:Nope", in); }), "Couldn't find message");
    EXPECT_EQ(in.name, u"In");
    EXPECT_EQ(failureText([&] { p.FindOperation(u"", u"", u"", u"nope", found); }), "Couldn't find operation");
    EXPECT_EQ(found.name, u"notify");
    p.Reset();
    EXPECT_FALSE(p.HasParsedWsdl());
}

TEST(WsdlParser, ServiceEdgeCases) {
    W p;
    WString service = u"unchanged";
    std::vector<W::CPort> ports;
    load(p, wsdl(kTypes, "", "", ""));
    EXPECT_EQ(failureText([&] { WString t; p.GetDefinitionsInfo(t); }), "missing targetNamespace");
    EXPECT_EQ(failureText([&] { p.GetServiceInfo(service, ports); }), "missing service");
    // HTTP ports only.
    load(p, wsdl(kTypes, "", "<service name='S'><port name='H' binding='tns:B'><http:address location='http://h'/></port></service>"));
    EXPECT_EQ(failureText([&] { p.GetServiceInfo(service, ports); }),
              "Unable to find soap addresses. This WSDL may not have soap methods.");
    EXPECT_EQ(service, u"unchanged");
    // A shared binding: the second port is skipped with a warning, across services too.
    load(p, wsdl(kTypes, "",
                 "<service name='S'><port name='P1' binding='tns:B'><soap:address location='http://h/1'/></port>"
                 "<port name='P2' binding='tns:B'><soap:address location='https://h/2'/></port></service>"
                 "<service name='S2'><port name='P3' binding='tns:B'><soap:address location='http://h/3'/></port></service>"));
    tovan::DiagnosticCapture capture;
    p.GetServiceInfo(service, ports);
    ASSERT_EQ(ports.size(), 1u);
    EXPECT_EQ(ports[0].name, u"P1");
    EXPECT_EQ(capture.warnings(), (std::vector<std::string>{"ignoring port P2 with shared binding tns:B",
                                                            "ignoring port P3 with shared binding tns:B"}));
}

TEST(WsdlParser, NamespacesCompareWithoutScheme) {
    W::CNamespace a(u"x", u"https://www.w3.org/2001/XMLSchema");
    EXPECT_EQ(a.getUrl(), u"www.w3.org/2001/XMLSchema");
    EXPECT_EQ(a.getProtocol(), u"https");
    EXPECT_TRUE(a.isXmlSchemaNs());
    EXPECT_TRUE(a.urlIsEqual(u"http://www.w3.org/2001/XMLSchema"));
    EXPECT_FALSE(a.urlIsEqual(u"http://www.w3.org/1999/XMLSchema"));
    EXPECT_TRUE(W::CNamespace(u"", u"http://www.w3.org/1999/XMLSchema").isXmlSchema99Ns());
    EXPECT_TRUE(W::CNamespace(u"", u"http://schemas.xmlsoap.org/wsdl/soap/").isWsdlSoap11SchemaNs());
    EXPECT_TRUE(W::CNamespace(u"", u"http://schemas.xmlsoap.org/wsdl/soap12/").isWsdlSoap12SchemaNs());
    EXPECT_TRUE(W::CNamespace(u"", u"urn:x").urlIsEqual(u"urn:x"));
    EXPECT_EQ(failureText([&] { W::Equals_NS(WString(), u"urn:x"); }),
              "Invalid namespace comparison between '(null)' == 'urn:x'");
    WString prefix, local;
    W::getNamespaceName(u"tns:T", prefix, local);
    EXPECT_EQ(prefix, u"tns");
    EXPECT_EQ(local, u"T");
    EXPECT_EQ(failureText([&] { W::getNamespaceName(u"a:b:c", prefix, local); }), "Unable to parse namespaces");
    EXPECT_EQ(local, u"T");
    EXPECT_EQ(W::StripArrayFromTypeName(u"xsd:int[,][]"), u"xsd:int");
    EXPECT_EQ(W::buildExternalSchemaFilename("a/b/s.wsdl", "../c/./d.xsd"), "a/c/d.xsd");
    EXPECT_EQ(W::buildExternalSchemaFilename("s.wsdl", "../d.xsd"), "../d.xsd");
}

TEST(WsdlParser, SchemasAndOccurrence) {
    W p;
    load(p, wsdl(kTypes));
    std::vector<W::CSchema> schemas;
    p.GetSchemaInfo(schemas);
    ASSERT_EQ(schemas.size(), 1u);
    EXPECT_EQ(schemas[0].getTargetNamespace(), u"urn.example/t");
    EXPECT_EQ(schemas[0].getTargetNamespaceProtocol(), u"http");
    EXPECT_TRUE(schemas[0].getIsElementFormQualified());
    EXPECT_FALSE(schemas[0].getIsAttributeFormQualified());

    W::CMsg in;
    p.GetMessageInfo(u"In", in);
    W::CCustomType t;
    ASSERT_TRUE(p.GetCustomTypeInfoRPC(in.parts[1], t));
    EXPECT_EQ(t.kind, W::CCustomType::Complex);
    EXPECT_EQ(t.ns, u"urn.example/t");
    ASSERT_EQ(t.elements.size(), 7u);
    const W::CElement& id = t.elements[0];
    EXPECT_EQ(id.name, u"id");
    EXPECT_TRUE(id.required);  // no minOccurs
    EXPECT_FALSE(id.hasForm);
    EXPECT_FALSE(id.global);
    EXPECT_TRUE(id.atomic);
    const W::CElement& tags = t.elements[1];
    EXPECT_FALSE(tags.required);  // minOccurs 0
    EXPECT_TRUE(tags.hasForm);
    EXPECT_TRUE(tags.IsArrayType());
    EXPECT_EQ(tags.maxOccurs, -1);
    EXPECT_EQ(t.elements[2].name, u"R");  // a reference, resolved
    EXPECT_EQ(t.elements[2].ref, u"tns:R");
    EXPECT_TRUE(t.elements[2].global);
    EXPECT_TRUE(t.elements[3].inChoice);
    EXPECT_EQ(t.elements[3].type, u"tns:Color");
    EXPECT_FALSE(t.elements[3].atomic);
    EXPECT_TRUE(t.elements[4].inChoice);
    EXPECT_EQ(t.elements[5].name, u"g");  // from the group
    EXPECT_EQ(t.elements[6].name, u"*");  // the wildcard

    W::CCustomType color;
    p.GetCustomType(t.elements[3].ns, u"Color", color);
    EXPECT_EQ(color.kind, W::CCustomType::Simple);
    EXPECT_EQ(color.base, u"xsd:string");
    EXPECT_EQ(color.enumerations, (std::vector<WString>{u"red", u"blue"}));
    ASSERT_EQ(color.facets.size(), 2u);
    EXPECT_EQ(color.facets[0].first, u"maxLength");
    EXPECT_EQ(color.facets[1].second, u"[a-z]+");

    W::CCustomType ints;
    p.GetCustomType(u"urn.example/t", u"Ints", ints);
    EXPECT_EQ(ints.kind, W::CCustomType::Array);
    EXPECT_EQ(ints.arrayType, u"xsd:int");
    ASSERT_EQ(ints.attributes.size(), 1u);
    EXPECT_EQ(ints.attributes[0].arrayType, u"xsd:int[]");

    // Document style: the part's element, here with an anonymous type.
    W::CMsg out;
    p.GetMessageInfo(u"Out", out);
    EXPECT_EQ(&p.GetSchemaForPartDoc(out.parts[0]), p.GetSchemaByTargetNS(u"https://urn.example/t"));
    W::CCustomType r;
    ASSERT_TRUE(p.GetCustomTypeInfoDoc(out.parts[0], r));
    EXPECT_EQ(r.name, u"R");
    ASSERT_EQ(r.elements.size(), 1u);
    EXPECT_EQ(r.elements[0].name, u"v");
}

TEST(WsdlParser, AtomicTypesAndTheOlderTreatment) {
    W p;
    load(p, wsdl(kTypes));
    const tovan::iNode& root = *p.getRoot();
    EXPECT_TRUE(p.isOfAtomicType(u"xsd:dateTime", root));
    EXPECT_TRUE(p.isOfAtomicType(u"enc:string", root));  // SOAP encoding types too
    EXPECT_FALSE(p.isOfAtomicType(u"xsd:anyThing", root));
    EXPECT_EQ(p.GetLastAtomicTypeQueried(), u"anyThing");
    EXPECT_FALSE(p.isOfAtomicType(u"tns:string", root));
    EXPECT_FALSE(p.isOfAtomicType(u"nope:int", root));
    p.SetBackwardCompatible70(true);
    EXPECT_TRUE(p.IsBackwardCompatible70());
    EXPECT_TRUE(p.isOfAtomicType(u"xsd:anyThing", root));  // every XML Schema name
    EXPECT_FALSE(p.isOfAtomicType(u"tns:string", root));
}

TEST(WsdlParser, SupportMatrixMessages) {
    auto complex = [](const std::string& body) { return "<xsd:complexType name='X'>" + body + "</xsd:complexType>"; };
    auto unresolved = [](const std::string& kind, const std::string& ref, const std::string& ns) {
        return "Cannot find reference " + kind + " (" + ref + "). Check that the (" + ns +
               ") namespace is correctly defined or imported.";
    };
    const std::string tns = "https://urn.example/t";
    // A group reached through groups that each nest sequences nearly as deep as a document may.
    std::string deep;
    for (int g = 0; g < 64; ++g) {
        std::string inner = g < 63 ? "<xsd:group ref='tns:D" + std::to_string(g + 1) + "'/>" : "<xsd:element name='e' type='xsd:int'/>";
        std::string open, close;
        for (int i = 0; i < 990; ++i) open += "<xsd:sequence>", close += "</xsd:sequence>";
        deep += "<xsd:group name='D" + std::to_string(g) + "'>" + open + inner + close + "</xsd:group>";
    }
    const struct {
        std::string types, message, partType = "tns:X";
    } rows[] = {
        {complex("<xsd:sequence/><xsd:attribute name='a' type='xsd:int'/>"),
         "Complex types with custom attributes are not supported"},
        {complex("<xsd:all/>"), "Unknown type: <complexType><all>"},
        {complex("<xsd:simpleContent/>"), "Unknown type: <complexType><simpleContent>"},
        {complex("<xsd:sequence><xsd:element ref='tns:Nope'/></xsd:sequence>"), unresolved("element", "tns:Nope", tns)},
        {complex("<xsd:sequence><xsd:element ref='zz:E'/></xsd:sequence>"), unresolved("element", "zz:E", "zz")},
        {complex("<xsd:group ref='tns:Nope'/>"), unresolved("group", "tns:Nope", tns)},
        // A group that refers to itself, or one nested too deep, ends as an unresolved reference.
        {"<xsd:group name='L'><xsd:sequence><xsd:group ref='tns:L'/></xsd:sequence></xsd:group>" +
             complex("<xsd:group ref='tns:L'/>"),
         unresolved("group", "tns:L", tns)},
        {deep + complex("<xsd:group ref='tns:D0'/>"), unresolved("group", "tns:D3", tns)},
        {complex("<xsd:complexContent><xsd:restriction base='enc:Array'/></xsd:complexContent>"),
         "Can't have an array with no elements"},
        {complex("<xsd:complexContent><xsd:restriction base='tns:Y'/></xsd:complexContent>"),
         "Can't handle <restriction> to base type (tns:Y)"},
        {complex("<xsd:complexContent><xsd:extension base='tns:Y'/></xsd:complexContent>"),
         "<complexContent> other than an array is not supported"},
        {"<xsd:simpleType name='X'><xsd:union memberTypes='xsd:int'/></xsd:simpleType>",
         "<simpleType> with <union> types or restriction is not supported."},
        {"<xsd:simpleType name='X'><xsd:restriction base='xsd:int'><xsd:assertion/></xsd:restriction></xsd:simpleType>",
         "<simpleType> with <assertion> types or restriction is not supported."},
        {"", "Cannot find a schema with targetNamespace=" + tns + " and customType=X"},
        {"<xsd:element name='X' type='xsd:int'/>", "Unknown node type defines type with name X"},
        {"", "Can't derive target namespace from ns-name zz", "zz:X"},
        {"", "Can't find schema with targetNamespace=http://schemas.xmlsoap.org/wsdl/", "wsdl:X"},
        {"", "Unable to parse namespaces", "a:b:c"},
    };
    for (const auto& r : rows) EXPECT_EQ(typeFailure(r.types, r.partType), r.message) << r.types.substr(0, 200);

    // Restrictions of anyType read their content; of an array, the element type may come from a sequence.
    W p;
    load(p, wsdl("<xsd:complexType name='A'><xsd:complexContent><xsd:restriction base='xsd:anyType'><xsd:sequence>"
                 "<xsd:element name='e' type='xsd:int'/></xsd:sequence></xsd:restriction></xsd:complexContent></xsd:complexType>"
                 "<xsd:complexType name='Q'><xsd:complexContent><xsd:restriction base='enc:Array'><xsd:sequence>"
                 "<xsd:element name='item' type='tns:A' maxOccurs='unbounded'/></xsd:sequence></xsd:restriction>"
                 "</xsd:complexContent></xsd:complexType>"));
    W::CCustomType t;
    p.GetCustomType(u"urn.example/t", u"A", t);
    ASSERT_EQ(t.elements.size(), 1u);
    p.GetCustomType(u"urn.example/t", u"Q", t);
    EXPECT_EQ(t.arrayType, u"tns:A");
}

TEST(WsdlParser, SchemaNodeAndDocumentStyleMessages) {
    W p;
    // No schema at all.
    load(p, "<definitions xmlns:tns='urn:t' targetNamespace='urn:t'><message name='M'><part name='p' type='tns:X'/>"
            "<part name='q' element='zz:E'/><part name='r' element='tns:E'/></message></definitions>");
    W::CMsg m;
    p.GetMessageInfo(u"M", m);
    W::CCustomType t;
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoRPC(m.parts[0], t); }),
              "Can't find <schema> node in wsdl, needed for definition of type tns:X");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[1], t); }), "Can't find namespace zz\n");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[2], t); }),
              "Can't find schema with targetNamespace=urn:t");
    load(p, wsdl("<xsd:element name='E1' type='tns:Missing'/><xsd:element name='E2' type='zz:T'/>"
                 "<xsd:element name='E3'><xsd:sequence/></xsd:element><xsd:attributeGroup name='AG'/>",
                 "<message name='M'><part name='a' element='tns:Nope'/><part name='b' element='tns:E1'/>"
                 "<part name='c' element='tns:E2'/><part name='d' element='tns:E3'/></message>"));
    p.GetMessageInfo(u"M", m);
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[0], t); }),
              "Cannot find a schema with targetNamespace = https://urn.example/t and element = Nope");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[1], t); }),
              "Cannot find a schema with targetNamespace=https://urn.example/t and customType=Missing");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[2], t); }), "Can't find target namespace for type zz:T");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[3], t); }), "Can't understand custom type: \"E3\"");
    // A part with neither an element nor a type, read either way.
    load(p, wsdl(kTypes, "<message name='N'><part name='bare'/></message>"));
    p.GetMessageInfo(u"N", m);
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoDoc(m.parts[0], t); }), "Unable to parse namespaces");
    EXPECT_EQ(failureText([&] { p.GetCustomTypeInfoRPC(m.parts[0], t); }), "Unable to parse namespaces");
    EXPECT_EQ(failureText([&] { p.IsOfAtomicType(m.parts[0]); }), "Unable to parse namespaces");
    EXPECT_TRUE(t.name.isNull());
}

TEST(WsdlParser, ImportsFromFilesAndBundles) {
    nvktest::TempDir dir;
    std::filesystem::create_directories(dir / "wsdl");
    std::filesystem::create_directories(dir / "xsd");
    std::ofstream(dir / "wsdl/main.wsdl")
        << "<definitions xmlns='http://schemas.xmlsoap.org/wsdl/' xmlns:soap='http://schemas.xmlsoap.org/wsdl/soap/'"
           " xmlns:xsd='http://www.w3.org/2001/XMLSchema' xmlns:a='urn:a' targetNamespace='urn:a'>"
           "<import namespace='urn:a' location='parts.wsdl'/>"
           "<types><xsd:schema targetNamespace='urn:a'><xsd:import namespace='urn:b' schemaLocation='../xsd/b.xsd'/>"
           "<xsd:import namespace='urn:w' schemaLocation='http://example.com/remote.xsd'/>"
           "<xsd:include schemaLocation='../xsd/same.xsd'/></xsd:schema></types>"
           "<service name='S'><port name='P' binding='a:B'><soap:address location='http://h'/></port></service></definitions>";
    std::ofstream(dir / "wsdl/parts.wsdl")
        << "<definitions xmlns='http://schemas.xmlsoap.org/wsdl/' xmlns:a='urn:a' targetNamespace='urn:a'>"
           "<message name='M'><part name='p' type='a:Same'/></message><binding name='B' type='a:PT'/></definitions>";
    std::ofstream(dir / "xsd/b.xsd") << "<schema xmlns='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:b'>"
                                        "<include schemaLocation='b2.xsd'/><simpleType name='B'><restriction base='string'/></simpleType></schema>";
    std::ofstream(dir / "xsd/b2.xsd") << "<schema xmlns='http://www.w3.org/2001/XMLSchema'/>";
    std::ofstream(dir / "xsd/same.xsd") << "<schema xmlns='http://www.w3.org/2001/XMLSchema' xmlns:b='urn:b'>"
                                           "<complexType name='Same'><sequence><element name='b' type='b:B'/></sequence></complexType></schema>";
    W p;
    tovan::DiagnosticCapture capture;
    p.Parse(tovan::toWide((dir / "wsdl/main.wsdl").string()));
    EXPECT_EQ(capture.warnings(),
              std::vector<std::string>{"The import of http://example.com/remote.xsd is not read: only files beside the WSDL are"});
    auto check = [](W& q) {
        std::vector<W::CSchema> schemas;
        q.GetSchemaInfo(schemas);
        ASSERT_EQ(schemas.size(), 4u);
        // Included without a namespace of their own: the includer's.
        EXPECT_EQ(schemas[2].getTargetNamespace(), u"urn:a");
        EXPECT_EQ(schemas[3].getTargetNamespace(), u"urn:b");
        W::CMsg m;
        q.GetMessageInfo(u"a:M", m);  // from the imported WSDL
        W::CCustomType t;
        ASSERT_TRUE(q.GetCustomTypeInfoRPC(m.parts[0], t));
        ASSERT_EQ(t.elements.size(), 1u);
        EXPECT_EQ(t.elements[0].ns, u"urn:b");
        W::CCustomType b;
        q.GetCustomType(t.elements[0].ns, u"B", b);
        EXPECT_EQ(b.base, u"string");
        W::CBinding binding;
        q.GetBindingInfo(u"a:B", binding);
        EXPECT_EQ(binding.type, u"a:PT");
    };
    check(p);

    std::string zip;
    p.GetZippedWsdl(zip);
    W back;
    back.ParseZippedWsdl(zip);
    check(back);
    std::string again;
    back.GetZippedWsdl(again);
    EXPECT_EQ(again, zip);  // the same documents make the same bundle
    {
        // Named from its own folder, the bundle still holds the imports above that folder.
        struct Cwd {
            std::filesystem::path was = std::filesystem::current_path();
            ~Cwd() { std::filesystem::current_path(was); }
        } restore;
        std::filesystem::current_path(dir / "wsdl");
        W relative;
        relative.Parse(u"main.wsdl");
        relative.GetZippedWsdl(zip);
        W fromRelative;
        fromRelative.ParseZippedWsdl(zip);
        check(fromRelative);
    }

    // A missing import fails the load and leaves the parser as it was.
    std::filesystem::remove(dir / "xsd/b2.xsd");
    const std::string missing = (dir / "xsd/b2.xsd").string();
    EXPECT_EQ(failureText([&] { p.Parse(tovan::toWide((dir / "wsdl/main.wsdl").string())); }),
              "Unable to open file \"" + missing + "\": No such file or directory");
    check(p);
    // So does a folder in its place.
    std::filesystem::remove(dir / "xsd/b2.xsd");
    std::filesystem::create_directories(dir / "xsd/b2.xsd");
    EXPECT_EQ(failureText([&] { p.Parse(tovan::toWide((dir / "wsdl/main.wsdl").string())); }),
              "Unable to open file \"" + missing + "\": Is a directory");
    check(p);
    std::filesystem::remove(dir / "xsd/b2.xsd");
    // So does one that is not XML, and the message says which file the place is in.
    std::ofstream(dir / "xsd/b2.xsd") << "<schema\n  xmlns='http://www.w3.org/2001/XMLSchema'";
    EXPECT_EQ(failureText([&] { p.Parse(tovan::toWide((dir / "wsdl/main.wsdl").string())); }),
              "Parse error: unclosed token at line 1, column 1 of " + missing);
    check(p);
    // Given as bytes without a folder, the imports are not read; its bundle holds only the WSDL.
    W fromBytes;
    capture.clear();
    fromBytes.Parse(nvktest::readFile(dir / "wsdl/main.wsdl"));
    fromBytes.GetZippedWsdl(zip);
    W fromItsBundle;
    fromItsBundle.ParseZippedWsdl(zip);
    std::vector<W::CSchema> one;
    fromItsBundle.GetSchemaInfo(one);
    EXPECT_EQ(one.size(), 1u);
    EXPECT_EQ(capture.warnings(),
              (std::vector<std::string>{"The import of parts.wsdl is not read: the WSDL was given as bytes without a folder",
                                        "The import of ../xsd/b.xsd is not read: the WSDL was given as bytes without a folder",
                                        "The import of http://example.com/remote.xsd is not read: only files beside the WSDL are",
                                        "The import of ../xsd/same.xsd is not read: the WSDL was given as bytes without a folder",
                                        "The import of parts.wsdl is not read: the zipped WSDL bundle has no entry for it",
                                        "The import of ../xsd/b.xsd is not read: the zipped WSDL bundle has no entry for it",
                                        "The import of http://example.com/remote.xsd is not read: only files beside the WSDL are",
                                        "The import of ../xsd/same.xsd is not read: the zipped WSDL bundle has no entry for it"}));
    W::XMLParser xml;
    EXPECT_EQ(xml.parseZippedWsdl(zip)->getChildAt(0)->getName(), u"definitions");
    EXPECT_EQ(xml.getTree()->getChildAt(0)->getNumberOfChildren(), 3);
    xml.reset();
    EXPECT_EQ(xml.getTree(), nullptr);
    EXPECT_EQ(xml.parse(tovan::toWide((dir / "xsd/b.xsd").string()))->getChildAt(0)->getName(), u"schema");
    const std::string none = (dir / "none.xsd").string();
    EXPECT_EQ(failureText([&] { xml.parse(tovan::toWide(none)); }),
              "Unable to open file \"" + none + "\": No such file or directory");
    EXPECT_EQ(xml.getTree()->getChildAt(0)->getName(), u"schema");  // a failed parse keeps the last tree
    W bytes;
    EXPECT_EQ(failureText([&] { bytes.ParseZippedWsdl("PK\x03\x04 not really"); }),
              "Not a zipped WSDL bundle: Not a zip archive");
    EXPECT_EQ(failureText([&] { bytes.ParseZippedWsdl(""); }), "The zipped WSDL bundle is empty");
    EXPECT_FALSE(bytes.HasParsedWsdl());
    EXPECT_EQ(failureText([&] { bytes.GetZippedWsdl(zip); }), "No WSDL has been parsed");
    EXPECT_EQ(failureText([&] { bytes.Parse("<a"); }), "Parse error: unclosed token at line 1, column 1");
}

TEST(WsdlReport, TypesInTheOrderFirstMetThroughAChainLongerThanTheStackWouldTake) {
    // T has members of A and B; A leads into a chain C0 -> C1 -> ... -> Cn.
    constexpr int n = 50000;
    std::string types =
        "<xsd:complexType name='T'><xsd:sequence><xsd:element name='a' type='tns:A'/><xsd:element name='b' type='tns:B'/>"
        "</xsd:sequence></xsd:complexType><xsd:complexType name='A'><xsd:sequence><xsd:element name='c' type='tns:C0'/>"
        "</xsd:sequence></xsd:complexType><xsd:complexType name='B'><xsd:sequence/></xsd:complexType>"
        "<xsd:element name='R'><xsd:complexType><xsd:sequence/></xsd:complexType></xsd:element>";
    for (int i = 0; i < n; ++i)
        types += "<xsd:complexType name='C" + std::to_string(i) + "'><xsd:sequence><xsd:element name='e' type='tns:C" +
                 std::to_string(i + 1) + "'/></xsd:sequence></xsd:complexType>";
    types += "<xsd:complexType name='C" + std::to_string(n) + "'><xsd:sequence/></xsd:complexType>";
    W p;
    load(p, wsdl(types));
    nvk::WsdlReport r = nvk::WsdlReport::Build(p);
    ASSERT_EQ(r.types.size(), size_t(n) + 5);
    EXPECT_EQ(r.types[0].name, "tns:T");
    EXPECT_EQ(r.types[1].name, "tns:A");
    EXPECT_EQ(r.types[2].name, "tns:C0");
    EXPECT_EQ(r.types[n + 2].name, "tns:C" + std::to_string(n));
    EXPECT_EQ(r.types[n + 3].name, "tns:B");  // after A's whole chain
    EXPECT_EQ(r.types[n + 4].name, "tns:R");
    for (const nvk::WsdlReport::Type& t : r.types) EXPECT_EQ(t.unsupported, "") << t.name;
}
