// nvk wsdl: what a WSDL offers (services, ports, operations, messages, the
// custom types its parts use), and zipped bundles of a WSDL with its imports.
#include <fstream>
#include <iostream>
#include <iterator>

#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/Exception.h"
#include "nvk/services/CWsdlParser.h"
#include "nvk/services/WsdlReport.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

using tovan::WString;
using W = CWsdlParser;

int runWsdl(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"wsdl", "show the services, operations, messages and types of a WSDL, or bundle it with its imports",
     "nvk wsdl FILE [--json]\n"
     "       nvk wsdl bundle FILE -o OUT.zip\n"
     "  FILE is a WSDL (its imports and includes with a relative location are read from beside it) or a\n"
     "  zipped bundle made by 'nvk wsdl bundle' (recognised by its first bytes).\n"
     "  Prints the target namespace; each service's SOAP ports with binding, address, style and\n"
     "  transport; each port's operations with soapAction, encoding, and input and output messages with\n"
     "  their parts (element or type); the custom types those parts use, their members (type and\n"
     "  occurrence), array element types, facets and enumerations, and each type the parser does not\n"
     "  support with its message; then the warnings (ports skipped for a shared binding, imports not\n"
     "  read). With --json it prints one object: {\"targetNamespace\", \"services\": [{\"name\", \"ports\":\n"
     "  [{\"name\", \"binding\", \"address\", \"style\", \"transport\", \"operations\": [{\"name\", \"soapAction\",\n"
     "  \"encoding\", \"input\": {\"message\", \"parts\": [{\"name\", \"element\", \"type\"}]}, \"output\"}]}]}],\n"
     "  \"types\": {NAME: {\"namespace\", \"kind\", \"members\", \"arrayType\", \"base\", \"facets\",\n"
     "  \"enumerations\"} or {\"unsupported\": MESSAGE}}, \"warnings\": [...]}; names are as the document\n"
     "  writes them. --json may come before or after FILE.\n"
     "  bundle writes OUT.zip: the WSDL first, then every file it imports, under their relative names.\n"
     "  Exit status 0 when the document loads, 1 with the message when it does not.",
     &runWsdl}};

const Command& self() { return *findCommand("wsdl"); }

std::string narrow(const WString& s) { return tovan::toNarrow(s); }

void load(W& wsdl, const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    char head[4] = {};
    in.read(head, 4);
    if (in.gcount() == 4 && std::string_view(head, 4) == std::string_view("PK\x03\x04", 4)) {
        in.seekg(0);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        wsdl.ParseZippedWsdl(bytes);
    } else {
        wsdl.Parse(tovan::toWide(file));
    }
}

const char* styleText(W::Style s) { return s == W::RPC ? "rpc" : "document"; }
const char* kindText(W::CCustomType::Kind k) {
    return k == W::CCustomType::Array ? "array" : k == W::CCustomType::Simple ? "simple" : "complex";
}
std::string occursText(int n) { return n < 0 ? "unbounded" : std::to_string(n); }

void printText(const WsdlReport& r, const std::vector<std::string>& warnings) {
    std::ostream& o = std::cout;
    o << "targetNamespace: " << narrow(r.targetNamespace) << "\n";
    WString service;
    for (const WsdlReport::Port& p : r.ports) {
        if (service.isNull() || p.port.service != service) o << "service " << narrow(p.port.service) << "\n";
        service = p.port.service;
        o << "  port " << narrow(p.port.name) << "\n    binding: " << narrow(p.port.binding) << "\n    address: "
          << narrow(p.port.address) << "\n    style: " << styleText(p.binding.style) << "\n    transport: "
          << narrow(p.binding.transport) << "\n";
        for (const WsdlReport::Operation& op : p.operations) {
            o << "    operation " << narrow(op.op.name) << "\n      soapAction: " << narrow(op.op.soapAction) << "\n";
            if (!op.op.encoding.isEmpty()) o << "      encoding: " << narrow(op.op.encoding) << "\n";
            const std::pair<const char*, const WsdlReport::Message*> messages[] = {{"input", &op.input}, {"output", &op.output}};
            for (const auto& [label, m] : messages) {
                if (!m->present) continue;
                o << "      " << label << ": " << narrow(m->msg.name) << "\n";
                for (const W::CPart& part : m->msg.parts)
                    o << "        part " << narrow(part.name)
                      << (part.element.isEmpty() ? ": type " + narrow(part.type) : ": element " + narrow(part.element)) << "\n";
            }
        }
    }
    if (!r.types.empty()) o << "types\n";
    for (const WsdlReport::Type& t : r.types) {
        if (!t.unsupported.empty()) {
            o << "  " << t.name << ": unsupported: " << t.unsupported << "\n";
            continue;
        }
        o << "  " << t.name << " (" << kindText(t.type.kind) << ", {" << narrow(t.type.ns) << "})\n";
        if (!t.type.arrayType.isEmpty()) o << "    array of " << narrow(t.type.arrayType) << "\n";
        if (!t.type.base.isEmpty()) o << "    base: " << narrow(t.type.base) << "\n";
        for (const W::CElement& e : t.type.elements)
            o << "    member " << narrow(e.name) << ": " << (e.type.isEmpty() ? (e.name.view() == u"*" ? "(any element)" : "(anonymous)") : narrow(e.type)) << " ["
              << e.minOccurs << ".." << occursText(e.maxOccurs) << "]" << (e.inChoice ? " choice" : "") << "\n";
        for (const auto& [facet, value] : t.type.facets) o << "    " << narrow(facet) << ": " << narrow(value) << "\n";
        if (!t.type.enumerations.empty()) {
            o << "    enumeration:";
            for (const WString& v : t.type.enumerations) o << " " << narrow(v);
            o << "\n";
        }
    }
    for (const std::string& w : warnings) o << "warning: " << w << "\n";
}

void writeMessage(CJsonWriter& w, const WsdlReport::Message& m) {
    if (!m.present) {
        w.value("null", false);
        return;
    }
    w.object().key("message").value(m.msg.name.view()).key("parts").array();
    for (const W::CPart& part : m.msg.parts) {
        w.object().key("name").value(part.name.view()).key("element");
        part.element.isEmpty() ? w.value("null", false) : w.value(part.element.view());
        w.key("type");
        part.type.isEmpty() ? w.value("null", false) : w.value(part.type.view());
        w.endObject();
    }
    w.endArray().endObject();
}

void printJson(const WsdlReport& r, const std::vector<std::string>& warnings) {
    JsonStringSink sink;
    CJsonWriter w(&sink);
    w.object().key("targetNamespace").value(r.targetNamespace.view()).key("services").array();
    for (size_t i = 0; i < r.ports.size();) {
        const WString& service = r.ports[i].port.service;
        w.object().key("name").value(service.view()).key("ports").array();
        for (; i < r.ports.size() && r.ports[i].port.service == service; ++i) {
            const WsdlReport::Port& p = r.ports[i];
            w.object().key("name").value(p.port.name.view()).key("binding").value(p.port.binding.view());
            w.key("address").value(p.port.address.view()).key("style").value(styleText(p.binding.style));
            w.key("transport").value(p.binding.transport.view()).key("operations").array();
            for (const WsdlReport::Operation& op : p.operations) {
                w.object().key("name").value(op.op.name.view()).key("soapAction").value(op.op.soapAction.view());
                w.key("encoding").value(op.op.encoding.view()).key("input");
                writeMessage(w, op.input);
                w.key("output");
                writeMessage(w, op.output);
                w.endObject();
            }
            w.endArray().endObject();
        }
        w.endArray().endObject();
    }
    w.endArray().key("types").object();
    for (const WsdlReport::Type& t : r.types) {
        w.key(t.name.c_str()).object();
        if (!t.unsupported.empty()) {
            w.key("unsupported").value(t.unsupported.c_str()).endObject();
            continue;
        }
        w.key("namespace").value(t.type.ns.view()).key("kind").value(kindText(t.type.kind));
        w.key("members").array();
        for (const W::CElement& e : t.type.elements) {
            w.object().key("name").value(e.name.view()).key("type");
            e.type.isEmpty() ? w.value("null", false) : w.value(e.type.view());
            w.key("minOccurs").value(e.minOccurs).key("maxOccurs");
            e.maxOccurs < 0 ? w.value("unbounded") : w.value(e.maxOccurs);
            w.key("choice").value(e.inChoice).endObject();
        }
        w.endArray().key("arrayType");
        t.type.arrayType.isEmpty() ? w.value("null", false) : w.value(t.type.arrayType.view());
        w.key("base");
        t.type.base.isEmpty() ? w.value("null", false) : w.value(t.type.base.view());
        w.key("facets").object();
        for (const auto& [facet, value] : t.type.facets) w.key(facet.view()).value(value.view());
        w.endObject().key("enumerations").array();
        for (const WString& v : t.type.enumerations) w.value(v.view());
        w.endArray().endObject();
    }
    w.endObject().key("warnings").array();
    for (const std::string& warning : warnings) w.value(warning.c_str());
    w.endArray().endObject();
    std::cout << tovan::toNarrow(WString(sink.text())) << "\n";
}

int runShow(const std::vector<std::string>& args) {
    bool json = false;
    std::vector<std::string> files;
    for (const std::string& a : args) a == "--json" ? void(json = true) : files.push_back(a);
    if (files.size() != 1) return usageError(self(), "expected FILE and optionally --json");
    W wsdl;
    WsdlReport r;
    std::vector<std::string> warnings;
    try {
        tovan::DiagnosticCapture capture;
        load(wsdl, files[0]);
        r = WsdlReport::Build(wsdl);
        warnings = capture.warnings();
    } catch (const tovan::Exception& e) {
        std::cerr << "nvk wsdl: " << files[0] << ": " << e.what() << "\n";
        return ExitBadInput;
    }
    json ? printJson(r, warnings) : printText(r, warnings);
    return ExitOk;
}

int runBundle(const std::vector<std::string>& args) {
    if (args.size() != 4 || args[2] != "-o") return usageError(self(), "bundle takes FILE -o OUT.zip");
    W wsdl;
    std::string zip;
    try {
        tovan::DiagnosticCapture capture;
        load(wsdl, args[1]);
        wsdl.GetZippedWsdl(zip);
        for (const std::string& w : capture.warnings()) std::cerr << "warning: " << w << "\n";
    } catch (const tovan::Exception& e) {
        std::cerr << "nvk wsdl: " << args[1] << ": " << e.what() << "\n";
        return ExitBadInput;
    }
    std::ofstream out(args[3], std::ios::binary);
    out << zip;
    out.close();
    if (!out) {
        std::cerr << "nvk wsdl: cannot write " << args[3] << "\n";
        return ExitBadInput;
    }
    return ExitOk;
}

int runWsdl(const std::vector<std::string>& args) {
    if (!args.empty() && args[0] == "bundle") return runBundle(args);
    if (args.empty()) return usageError(self(), "expected FILE");
    return runShow(args);
}

}  // namespace
}  // namespace nvk
