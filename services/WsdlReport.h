#pragma once
// A WSDL's whole offer walked once: what `nvk wsdl` prints and the benchmark times.
#include <string>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/services/CWsdlParser.h"

namespace nvk {

/// Every service's SOAP ports with their binding, each port's operations
/// joined with the binding's details, the messages of each operation, and
/// the custom types their parts use, followed through the members' types
/// (each type once, in the order first met).
///
/// The structural queries raise as the parser does (a missing binding,
/// message or port type stops the walk); a type the parser cannot read is
/// listed with its message instead. Warnings of the walk (ports skipped for a
/// shared binding) go through the warning channel as the parser gives them.
struct NVK_EXPORT WsdlReport {
    struct Message {
        CWsdlParser::CMsg msg;  // its name as the operation writes it
        bool present = false;
    };
    struct Operation {
        CWsdlParser::COperation op;
        Message input, output;
    };
    struct Port {
        CWsdlParser::CPort port;
        CWsdlParser::CBinding binding;
        std::vector<Operation> operations;
    };
    struct Type {
        std::string name;  // as the document has it where first used (a part's type or element, a member's type)
        CWsdlParser::CCustomType type;
        std::string unsupported;  // the parser's message when it cannot read the type
    };

    tovan::WString targetNamespace;
    std::vector<Port> ports;
    std::vector<Type> types;

    /// Walks a parser that has loaded a WSDL.
    static WsdlReport Build(CWsdlParser& wsdl);
};

}  // namespace nvk
