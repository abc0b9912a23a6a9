// The WSDL parser over the shared corpus of published WSDLs (see
// WSDL_CORPUS.md): the counts of services, ports and operations of each file
// that loads, the message of each that does not, and bundles that give the
// same answers as the files.
#include <set>

#include "nvk/services/CWsdlParser.h"
#include "tests/support/TestSupport.h"

using nvk::CWsdlParser;
using tovan::WString;
using W = CWsdlParser;

namespace {

struct Expected {
    const char* file;
    int services, ports, operations;  // SOAP ports only; operations summed over ports
    int parts;                        // parts of the messages those operations use
    const char* failure;              // the message when it does not load, else null
};

// services and ports count SOAP ports; a port skipped for a shared binding does not count.
const Expected kCorpus[] = {
    {"axis1/InteropTest.wsdl", 1, 1, 31, 64, nullptr},
    {"axis1/ComprehensiveTypes.wsdl", 1, 1, 82, 343, nullptr},
    {"axis1/getPort.wsdl", 0, 0, 0, 0, "Couldn't find operation"},  // its port types declare no operation
    {"axis1/ChoiceService.wsdl", 1, 1, 1, 2, nullptr},
    {"axis1/soap12-test.wsdl", 1, 2, 20, 40, nullptr},
    {"axis1/soap12-add-test.wsdl", 1, 2, 10, 19, nullptr},
    {"axis1/MArrayTest.wsdl", 1, 1, 3, 6, nullptr},
    {"axis1/AttrGroupService.wsdl", 1, 1, 1, 2, nullptr},
    {"axis1/DataService.wsdl", 1, 1, 2, 4, nullptr},
    {"axis1/simple-rpc-encoded.wsdl", 1, 1, 7, 15, nullptr},
    {"axis1/UnionService.wsdl", 1, 1, 1, 2, nullptr},
    {"axis1/inout.wsdl", 1, 1, 28, 110, nullptr},
    {"axis1/Import3/Import3.wsdl", 2, 2, 3, 6, nullptr},
    {"axis1/Import/Import.wsdl", 1, 2, 4, 8, nullptr},
    {"axis1/AddressBook/AddressBook.wsdl", 1, 1, 2, 4, nullptr},
    {"axis1/MultiImp/MultiImpIncl/wsdl/MultiImp.wsdl", 1, 1, 1, 4, nullptr},
    {"node-soap/rpcexample.wsdl", 1, 1, 13, 22, nullptr},
    {"node-soap/getAppointmentNumber.wsdl", 1, 2, 2, 4, nullptr},
    {"node-soap/GET_DATA.wsdl", 1, 1, 2, 4, nullptr},
    {"node-soap/list_parameter.wsdl", 1, 1, 17, 34, nullptr},
    {"node-soap/CyberSourceTransaction/CyberSourceTransaction_1.26.wsdl", 1, 1, 1, 2, nullptr},
    {"node-soap/xsd_include/xsd_include.wsdl", 1, 1, 1, 2, nullptr},
    {"node-soap/registration/registration.wsdl", 0, 0, 0, 0, "Couldn't find operation"},  // one port type declares none
    {"node-soap/Netsuite/wsdl/strict/Netsuite.wsdl", 1, 1, 1, 2, nullptr},
    {"wasabi/workday.wsdl", 1, 1, 236, 472, nullptr},
    {"wasabi/economic.wsdl", 1, 2, 3022, 6044, nullptr},
    {"wasabi/tradetracker.wsdl", 1, 1, 26, 76, nullptr},
    {"wasabi/marketo.wsdl", 1, 1, 23, 46, nullptr},
    {"gowsdl/vboxweb.wsdl", 1, 1, 1158, 2316, nullptr},
    {"gowsdl/ec2.wsdl", 1, 1, 151, 302, nullptr},
    {"gowsdl/ferry.wsdl", 1, 2, 46, 92, nullptr},
    {"gowsdl/chromedata.wsdl", 1, 1, 9, 18, nullptr},
    {"gowsdl/epcis/EPCglobal-epcis-query-1_2.wsdl", 1, 1, 7, 14, nullptr},
    {"wsdl2php/paypal/PayPalSvc.wsdl", 1, 2, 57, 114, nullptr},
    {"wsdl2php/MsSequelServerNativeWebServices.wsdl", 1, 1, 1, 2, nullptr},
    {"wsdl2php/references/references.wsdl", 1, 1, 3, 7, nullptr},
    {"zeep/test_http_post.wsdl", 0, 0, 0, 0, "Unable to find soap addresses. This WSDL may not have soap methods."},
};

struct Walk {
    int services = 0, ports = 0, operations = 0, parts = 0;
    std::string answers;  // every answer of the walk, as text
};

// Every query of a caller: definitions, services, bindings, operations,
// messages, parts and their custom types (or the message for each).
Walk walk(W& p) {
    Walk w;
    tovan::DiagnosticCapture quiet;
    WString tns, service;
    p.GetDefinitionsInfo(tns);
    std::vector<W::CPort> ports;
    p.GetServiceInfo(service, ports);
    std::set<std::u16string> services;
    w.answers = nvktest::utf8(tns) + "\n";
    for (const W::CPort& port : ports) {
        services.insert(port.service.str());
        W::CBinding b;
        p.GetBindingInfo(port.binding, b);
        std::vector<W::COperation> ops;
        p.GetOperationInfoFromPortType(b.type, ops);
        W::MergeBindingDetails(b, ops);
        w.answers += nvktest::utf8(port.name) + " " + nvktest::utf8(port.address) + " " + nvktest::utf8(b.transport) + "\n";
        for (const W::COperation& op : ops) {
            w.answers += nvktest::utf8(op.name) + " " + nvktest::utf8(op.soapAction) + " " + nvktest::utf8(op.encoding) + "\n";
            for (const WString& name : {op.input, op.output}) {
                if (name.isEmpty()) continue;
                W::CMsg m;
                p.GetMessageInfo(name, m);
                for (const W::CPart& part : m.parts) {
                    ++w.parts;
                    w.answers += nvktest::utf8(part.name) + " " + nvktest::utf8(part.element) + " " + nvktest::utf8(part.type) + ": ";
                    try {
                        W::CCustomType t;
                        bool custom = part.type.isEmpty() ? p.GetCustomTypeInfoDoc(part, t) : p.GetCustomTypeInfoRPC(part, t);
                        w.answers += custom ? std::to_string(t.elements.size()) + " members " + nvktest::utf8(t.arrayType) : "atomic";
                    } catch (const tovan::Exception& e) {
                        w.answers += e.what();
                    }
                    w.answers += "\n";
                }
            }
        }
        w.operations += int(ops.size());
    }
    w.services = int(services.size());
    w.ports = int(ports.size());
    return w;
}

}  // namespace

TEST(WsdlCorpus, EveryFileLoadsWithItsCountsOrFailsWithItsMessage) {
    for (const Expected& e : kCorpus) {
        SCOPED_TRACE(e.file);
        auto path = nvktest::corpusPath(std::string("wsdl/") + e.file);
        SKIP_WITHOUT_CORPUS(path);
        W p;
        p.Parse(tovan::toWide(path.string()));
        if (e.failure) {
            try {
                walk(p);
                ADD_FAILURE() << "loaded";
            } catch (const tovan::Exception& x) {
                EXPECT_EQ(std::string(x.what()), e.failure);
            }
            continue;
        }
        Walk w = walk(p);
        EXPECT_EQ(w.services, e.services);
        EXPECT_EQ(w.ports, e.ports);
        EXPECT_EQ(w.operations, e.operations);
        EXPECT_EQ(w.parts, e.parts);
    }
}

TEST(WsdlCorpus, BundlesOfFilesWithImportsGiveTheSameAnswers) {
    int bundled = 0;
    for (const Expected& e : kCorpus) {
        if (e.failure) continue;
        SCOPED_TRACE(e.file);
        auto path = nvktest::corpusPath(std::string("wsdl/") + e.file);
        SKIP_WITHOUT_CORPUS(path);
        W p;
        p.Parse(tovan::toWide(path.string()));
        std::string zip;
        p.GetZippedWsdl(zip);
        W back;
        back.ParseZippedWsdl(zip);
        std::vector<W::CSchema> a, b;
        p.GetSchemaInfo(a);
        back.GetSchemaInfo(b);
        if (a.size() == b.size() && std::any_of(a.begin(), a.end(), [](const W::CSchema& s) { return !s.getSource().empty(); }))
            ++bundled;
        EXPECT_EQ(a.size(), b.size());
        EXPECT_EQ(walk(back).answers, walk(p).answers);
    }
    EXPECT_EQ(bundled, 10);  // the files that import schemas
}
