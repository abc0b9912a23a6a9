// nvk collapse: replaces components of a protocol file by one subprotocol component.
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolFile.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"

namespace nvk {
namespace {

int runCollapse(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"collapse", "collapse components of a protocol file into a subprotocol",
     "nvk collapse IN.json --ids ID,... [--name NAME] [--check] [-o OUT.json]\n\n"
     "Replaces the components with the given local IDs by one subprotocol component that holds\n"
     "them and the connections among them, named NAME (\"Subprotocol\" without --name), and writes\n"
     "the protocol to OUT.json, or to standard output without -o (or with\n"
     "-o -; IN.json '-' reads standard input). Outside connections are rewired\n"
     "to the new component by port; parameters the components take from their parent are promoted\n"
     "onto it. The selection must have at most one input component, must not form a loop through\n"
     "the rest of the protocol, and its members must leave each port to the same components; a\n"
     "single component of the protocol is always allowed. With --check nothing is written: it prints\n"
     "\"allowed\" (exit 0) or the refusal sentence (exit 1). A refused collapse prints\n"
     "'nvk collapse: SENTENCE', writes nothing and exits 1; an unknown ID, even alone, is refused\n"
     "as \"Did not find:ID\". A file that is not a protocol exits 1; bad arguments exit 2.",
     &runCollapse}};

int runCollapse(const std::vector<std::string>& args) {
    const Command& self = *findCommand("collapse");
    std::string in, out, ids, name;
    bool haveIDs = false, check = false;
    if (int status = parseProtocolArgs(self, args, in, {{"-o", &out}, {"--ids", &ids, &haveIDs}, {"--name", &name}},
                                   {{"--check", &check}});
        status >= 0)
        return status;
    if (!haveIDs) return usageError(self, "--ids is required");
    std::vector<int32_t> numbers;
    if (!splitLocalIDs(ids, numbers)) return usageError(self, "--ids needs local IDs separated by commas");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    std::vector<tovan::WString> localIDs;
    for (int32_t id : numbers) {
        localIDs.push_back(tovan::toWide(std::to_string(id)));
        // The library lets one ID through unchecked, as the editor only offers IDs it has;
        // a user types them, and --check must not answer "allowed" for one that is not there.
        if (protocol->findComponentIndex(id) < 0) {
            tovan::WString notFound(u"Did not find:");
            notFound += localIDs.back().view();
            return reportCheck(self, false, notFound, check);
        }
    }
    CProtocolCollapseUtils collapse;
    tovan::WString message;
    const bool allowed = collapse.CanCollapseToSubprotocol(protocol.get(), localIDs, message);
    if (int status = reportCheck(self, allowed, message, check); status >= 0) return status;
    collapse.CollapseToSubprotocol(nullptr, protocol.get(), localIDs, tovan::toWide(name), false);
    writeProtocol(protocol.get(), out);
    return ExitOk;
}

}  // namespace
}  // namespace nvk
