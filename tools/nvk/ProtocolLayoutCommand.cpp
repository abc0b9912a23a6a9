// nvk layout: lays a protocol file out and writes it back (and, if asked, a picture).
#include <iostream>

#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "nvk/protocol/CProtocolPicture.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"
#include "tools/nvk/RecordIO.h"

namespace nvk {
namespace {

int runLayout(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"layout", "lay out a protocol file automatically",
     "nvk layout IN.json [-o OUT.json] [--svg OUT.svg] [--fixed ID,ID...]\n\n"
     "Places every component of the protocol file IN.json in columns (stacks) by its distance from\n"
     "a start node, networks one below the other, and writes the protocol with its new points,\n"
     "offsets and sticky notes to OUT.json, or to standard output without -o (IN.json '-' reads\n"
     "standard input, OUT.json or OUT.svg '-' writes standard output). A component dragged\n"
     "since the last layout (moved-from mark, see 'nvk move') keeps the drag as an offset or as an\n"
     "order change. --fixed lists local IDs of components that must stay where they are.\n"
     "--svg OUT.svg also draws the result (as 'nvk svg'). A summary goes to standard error.\n"
     "An unknown ID in --fixed is reported as \"Did not find:ID\" and nothing is written.\n"
     "A file that is not a protocol is reported as 'nvk layout: FILE: FIELD: MESSAGE' (for text that\n"
     "is not JSON, 'FILE:LINE:COLUMN: MESSAGE'), exit 1; bad arguments exit 2.",
     &runLayout}};

int runLayout(const std::vector<std::string>& args) {
    const Command& self = *findCommand("layout");
    std::string in, out, svg, fixed;
    if (int status = parseProtocolArgs(self, args, in,
                                       {{"-o", &out, nullptr, "-o needs a file name"},
                                        {"--svg", &svg, nullptr, "--svg needs a file name"},
                                        {"--fixed", &fixed, nullptr, "--fixed needs a list of local IDs"}});
        status >= 0)
        return status;
    if (isStandardStream(svg) && (out.empty() || isStandardStream(out)))
        return usageError(self, "only one output can go to standard output");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    CProtocolLayoutUtils layout;
    tovan::BitsetValue changed;
    bool notesChanged = false;
    layout.LayoutProtocol(protocol.get(), tovan::toWide(fixed), changed, notesChanged);
    writeProtocol(protocol.get(), out);
    if (!svg.empty() && !writeTextFile(self, svg, CProtocolPicture::RenderSvg(protocol.get()))) return ExitBadInput;
    std::cerr << "laid out " << layout.GetNumComponents() << " components in " << layout.GetNumNetworks()
              << " networks; " << changed.count() << " changed" << (notesChanged ? ", protocol sticky notes moved" : "")
              << "\n";
    return ExitOk;
}

}  // namespace
}  // namespace nvk
