// nvk uncollapse: expands a subprotocol component back into its protocol.
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolFile.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"

namespace nvk {
namespace {

int runUncollapse(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"uncollapse", "expand a subprotocol component back into its protocol",
     "nvk uncollapse IN.json --id ID [--check] [-o OUT.json]\n\n"
     "Moves the components of the subprotocol of the component with local ID ID into the protocol in\n"
     "its place, numbered above the protocol's largest local ID, placed around the component's point\n"
     "and connected as the component was; parameters the inner components took from it take its\n"
     "definitions. Writes the protocol to OUT.json, or to standard output without -o (or with\n"
     "-o -; IN.json '-' reads standard input). With --check\n"
     "nothing is written: it prints \"allowed\" (exit 0) or the refusal sentence (exit 1). A refused\n"
     "uncollapse prints 'nvk uncollapse: SENTENCE', writes nothing and exits 1, as does an unknown ID\n"
     "(\"Did not find localID ID\"). A file that is not a protocol exits 1; bad arguments exit 2.",
     &runUncollapse}};

int runUncollapse(const std::vector<std::string>& args) {
    const Command& self = *findCommand("uncollapse");
    std::string in, out, id;
    bool haveID = false, check = false;
    if (int status = parseProtocolArgs(self, args, in, {{"-o", &out}, {"--id", &id, &haveID}}, {{"--check", &check}});
        status >= 0)
        return status;
    if (!haveID) return usageError(self, "--id is required");
    int32_t localID = 0;
    if (!tovan::parseInteger(std::string_view(id), localID, tovan::NumberSigns::PlusOrMinus))
        return usageError(self, "--id needs a local ID");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    const int index = protocol->findComponentIndex(localID);
    const tovan::WString notFound = tovan::toWide("Did not find localID " + std::to_string(localID));
    if (index < 0) return reportCheck(self, false, notFound, check);
    tovan::iComponentInfo* component = protocol->getComponent(index);
    CProtocolCollapseUtils collapse;
    tovan::WString message;
    const bool allowed = collapse.CanUncollapseSubprotocol(component, message);
    if (int status = reportCheck(self, allowed, message, check); status >= 0) return status;
    std::vector<int32_t> newIDs;
    collapse.UncollapseSubprotocol(component, protocol.get(), newIDs);
    writeProtocol(protocol.get(), out);
    return ExitOk;
}

}  // namespace
}  // namespace nvk
