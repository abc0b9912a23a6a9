// Untrusted zipped WSDL bundles: reading one and walking the WSDL it holds
// must end in answers or a framework exception, never a crash, a hang, a
// leak or a read outside the bundle.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "nvk/platform/Exception.h"
#include "nvk/services/CWsdlParser.h"
#include "nvk/services/WsdlReport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tovan::DiagnosticCapture quiet;
    nvk::CWsdlParser wsdl;
    try {
        wsdl.ParseZippedWsdl(std::string_view(reinterpret_cast<const char*>(data), size));
        nvk::WsdlReport::Build(wsdl);
    } catch (const tovan::Exception&) {
    }
    return 0;
}
