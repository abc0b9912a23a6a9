// Untrusted WSDL bytes: loading and the whole walk (services, bindings,
// operations, messages, parts and their custom types) must end in answers or
// a framework exception, never a crash, a hang or a leak. A document that
// loads must give the same answers again from its own bundle.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "nvk/platform/Exception.h"
#include "nvk/services/CWsdlParser.h"
#include "nvk/services/WsdlReport.h"

namespace {

std::string answers(nvk::CWsdlParser& wsdl) {
    try {
        nvk::WsdlReport r = nvk::WsdlReport::Build(wsdl);
        std::string out = tovan::toNarrow(r.targetNamespace);
        for (const auto& p : r.ports) out += " " + tovan::toNarrow(p.port.name) + ":" + std::to_string(p.operations.size());
        for (const auto& t : r.types) out += " " + t.name + "=" + std::to_string(t.type.elements.size()) + t.unsupported;
        return out;
    } catch (const tovan::Exception& e) {
        return std::string("failure: ") + e.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tovan::DiagnosticCapture quiet;
    nvk::CWsdlParser wsdl;
    try {
        wsdl.Parse(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const tovan::Exception&) {
        if (wsdl.HasParsedWsdl()) std::abort();  // a failed load keeps the parser empty
        return 0;
    }
    const std::string first = answers(wsdl);
    std::string zip;
    wsdl.GetZippedWsdl(zip);
    nvk::CWsdlParser back;
    back.ParseZippedWsdl(zip);
    const std::string again = answers(back);
    if (first != again) {
        std::fprintf(stderr, "from bytes: %s\nfrom the bundle: %s\n", first.c_str(), again.c_str());
        std::abort();
    }
    return 0;
}
