// nvk layout: lays a protocol file out and writes it back (and, if asked, a picture).
#include <fstream>
#include <iostream>

#include "protocol/CProtocolFile.h"
#include "protocol/CProtocolLayoutUtils.h"
#include "protocol/CProtocolPicture.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

int runLayout(const std::vector<std::string>& args);

const CommandRegistration reg{{"layout", "lay out a protocol file automatically",
                               "nvk layout IN.json [-o OUT.json] [--svg OUT.svg] [--fixed ID,ID...]", &runLayout}};

int runLayout(const std::vector<std::string>& args) {
    const Command& self = *findCommand("layout");
    std::string in, out, svg, fixed;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto next = [&](std::string& into) {
            if (i + 1 >= args.size()) return false;
            into = args[++i];
            return true;
        };
        if (a == "-o") {
            if (!next(out)) return usageError(self, "-o needs a file name");
        } else if (a == "--svg") {
            if (!next(svg)) return usageError(self, "--svg needs a file name");
        } else if (a == "--fixed") {
            if (!next(fixed)) return usageError(self, "--fixed needs a list of local IDs");
        } else if (!a.empty() && a[0] == '-') {
            return usageError(self, "unknown option " + a);
        } else if (in.empty()) {
            in = a;
        } else {
            return usageError(self, "more than one input file");
        }
    }
    if (in.empty()) return usageError(self, "no input file");
    tovan::Ptr<CProtocolInfo> protocol = CProtocolFile::Read(tovan::toWide(in));
    CProtocolLayoutUtils layout;
    tovan::BitsetValue changed;
    bool notesChanged = false;
    layout.LayoutProtocol(protocol.get(), tovan::toWide(fixed), changed, notesChanged);
    if (out.empty()) std::cout << tovan::toNarrow(CProtocolFile::WriteText(protocol.get()));
    else CProtocolFile::Write(protocol.get(), tovan::toWide(out));
    if (!svg.empty()) {
        std::ofstream file(svg, std::ios::binary);
        file << CProtocolPicture::RenderSvg(protocol.get());
        if (!file) {
            std::cerr << "nvk layout: cannot write " << svg << "\n";
            return ExitBadInput;
        }
    }
    std::cerr << "laid out " << layout.GetNumComponents() << " components in " << layout.GetNumNetworks()
              << " networks; " << changed.count() << " changed" << (notesChanged ? ", protocol sticky notes moved" : "")
              << "\n";
    return ExitOk;
}

}  // namespace
}  // namespace nvk
