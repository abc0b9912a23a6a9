// nvk move: moves components of a protocol file by a given amount, as a drag would.
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"

namespace nvk {
namespace {

int runMove(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"move", "move components of a protocol file",
     "nvk move IN.json --ids ID,... --right R --down D [-o OUT.json]\n\n"
     "Moves the components with the given local IDs by R to the right and D down (protocol units;\n"
     "negative moves left or up; --right and --down default to 0), and writes the protocol to\n"
     "OUT.json, or to standard output without -o (or with\n"
     "-o -; IN.json '-' reads standard input). When the protocol lays itself out\n"
     "(\"autoLayout\"), each moved component also gets a moved-from mark, so that the next\n"
     "'nvk layout' treats the move as the user's drag. An unknown ID is reported as\n"
     "\"Did not find localID ID\" and nothing is written.\n"
     "A file that is not a protocol is reported as 'nvk move: FILE: FIELD: MESSAGE' (for text that\n"
     "is not JSON, 'FILE:LINE:COLUMN: MESSAGE'), exit 1; bad arguments exit 2.",
     &runMove}};

bool parseInt(const std::string& text, long long lo, long long hi, long long& out) {
    long long v = 0;
    if (!tovan::parseInteger(std::string_view(text), v, tovan::NumberSigns::PlusOrMinus) || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

int runMove(const std::vector<std::string>& args) {
    const Command& self = *findCommand("move");
    std::string in, out, ids, right = "0", down = "0";
    bool haveIDs = false;
    if (int status = parseProtocolArgs(self, args, in, {{"-o", &out}, {"--ids", &ids, &haveIDs}, {"--right", &right}, {"--down", &down}});
        status >= 0)
        return status;
    if (!haveIDs) return usageError(self, "--ids is required");
    long long r = 0, d = 0;
    if (!parseInt(right, -1000000000, 1000000000, r)) return usageError(self, "--right needs an integer");
    if (!parseInt(down, -1000000000, 1000000000, d)) return usageError(self, "--down needs an integer");
    std::vector<int32_t> localIDs;
    if (!ids.empty() && !splitLocalIDs(ids, localIDs))
        return usageError(self, "--ids needs local IDs separated by commas");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    CProtocolLayoutUtils layout;
    tovan::BitsetValue changed;
    layout.MoveProtocolComponents(protocol.get(), localIDs, int(r), int(d), changed);
    writeProtocol(protocol.get(), out);
    return ExitOk;
}

}  // namespace
}  // namespace nvk
