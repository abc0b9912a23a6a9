// nvk svg: draws a protocol file as an SVG picture.
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolPicture.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"

namespace nvk {
namespace {

int runSvg(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"svg", "draw a protocol file as an SVG picture",
     "nvk svg IN.json -o OUT.svg\n\n"
     "Draws the protocol file IN.json where its points put it: components as labelled boxes with\n"
     "their ports, pass connections as solid green arrows, fail connections as dashed red ones\n"
     "(loop connections fainter; one that runs backwards bends around below), sticky notes with\n"
     "their text. Subprotocols are not drawn inside their components. IN.json '-' reads standard\n"
     "input, OUT.svg '-' writes standard output.\n"
     "A file that is not a protocol is reported as 'nvk svg: FILE: FIELD: MESSAGE' (for text that\n"
     "is not JSON, 'FILE:LINE:COLUMN: MESSAGE'), exit 1; bad arguments exit 2.",
     &runSvg}};

int runSvg(const std::vector<std::string>& args) {
    const Command& self = *findCommand("svg");
    std::string in, out;
    if (int status = parseProtocolArgs(self, args, in, {{"-o", &out, nullptr, "-o needs a file name"}}); status >= 0)
        return status;
    if (out.empty()) return usageError(self, "-o OUT.svg is required");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    return writeTextFile(self, out, CProtocolPicture::RenderSvg(protocol.get())) ? ExitOk : ExitBadInput;
}

}  // namespace
}  // namespace nvk
