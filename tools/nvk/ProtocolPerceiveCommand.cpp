// nvk perceive: what perception finds in a protocol file, as text or as one JSON object.
#include <iostream>

#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolUtils.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/ProtocolCommandArgs.h"

namespace nvk {
namespace {

int runPerceive(const std::vector<std::string>& args);

const CommandRegistration reg{
    {"perceive", "show start nodes, distances, chains, rings, assemblies and execution order",
     "nvk perceive IN.json [--json]\n\n"
     "Prints what perception finds in the protocol file IN.json, components named by local ID:\n"
     "start nodes, chain, ring and unconnected components (the ring components are all that are\n"
     "not chain components, unconnected ones included), loop connections (by index in the\n"
     "file's \"connections\", with their ends), assemblies, each component's distance from a start\n"
     "node (-1 where none reaches it) and the execution order. --json prints one JSON object\n"
     "instead, with the members \"startNodes\", \"distances\" (local ID to distance), \"chain\",\n"
     "\"ring\", \"unconnected\", \"loopConnections\", \"assemblies\" (each with \"kind\" and\n"
     "\"components\") and \"executionOrder\". IN.json '-' reads standard input.\n"
     "A file that is not a protocol is reported as 'nvk perceive: FILE: FIELD: MESSAGE' (for text that\n"
     "is not JSON, 'FILE:LINE:COLUMN: MESSAGE'), exit 1; bad arguments exit 2.",
     &runPerceive}};

const char* assemblyKind(const CProtocolUtils& u, const CProtocolUtils::Assembly& a) {
    if (a.components.count() == 1 && u.GetUnconnectedComponents().test(a.components.firstSetBit())) return "unconnected";
    return a.isChain ? "chain" : "ring";
}

std::vector<int> executionOrder(const CProtocolUtils& u) {
    std::vector<unsigned> order;
    for (int c = 0; c < u.GetNumComponents(); ++c) order.push_back(unsigned(c));
    u.SortInExecutionOrder(order);
    return std::vector<int>(order.begin(), order.end());
}

void writeIDs(CJsonWriter& w, const CProtocolUtils& u, const tovan::BitsetValue& set) {
    w.array();
    set.forEachSetBit([&](size_t c) { w.value(long(u.GetLocalID(int(c)))); });
    w.endArray();
}

std::string idList(const CProtocolUtils& u, const tovan::BitsetValue& set) {
    std::string s;
    set.forEachSetBit([&](size_t c) { s += (s.empty() ? "" : " ") + tovan::integerText(u.GetLocalID(int(c))); });
    return s.empty() ? "-" : s;
}

int runPerceive(const std::vector<std::string>& args) {
    const Command& self = *findCommand("perceive");
    std::string in;
    bool asJson = false;
    for (const std::string& a : args) {
        if (a == "--json") asJson = true;
        else if (a.size() > 1 && a[0] == '-') return usageError(self, "unknown option " + a);
        else if (in.empty()) in = a;
        else return usageError(self, "more than one input file");
    }
    if (in.empty()) return usageError(self, "no input file");
    tovan::Ptr<CProtocolInfo> protocol = readProtocol(in);
    CProtocolUtils u;
    u.LoadProtocolComponents(protocol.get());
    tovan::BitsetValue starts(size_t(u.GetNumComponents()));
    for (int s : u.GetStartNodes()) starts.set(size_t(s));
    std::vector<int> order = executionOrder(u);
    if (asJson) {
        JsonStringSink sink;
        CJsonWriter w(&sink, nullptr);
        w.object().key("startNodes");
        writeIDs(w, u, starts);
        w.key("distances").object();
        for (int c = 0; c < u.GetNumComponents(); ++c)
            w.key(tovan::integerText(u.GetLocalID(c)).c_str()).value(long(u.GetDistance(c)));
        w.endObject().key("chain");
        writeIDs(w, u, u.GetChainComponents());
        w.key("ring");
        writeIDs(w, u, u.GetRingComponents());
        w.key("unconnected");
        writeIDs(w, u, u.GetUnconnectedComponents());
        w.key("loopConnections").array();
        u.GetLoopConnections().forEachSetBit([&](size_t k) { w.value(long(k)); });
        w.endArray().key("assemblies").array();
        for (const auto& a : u.GetAssemblies()) {
            w.object().key("kind").value(assemblyKind(u, a)).key("components");
            writeIDs(w, u, a.components);
            w.endObject();
        }
        w.endArray().key("executionOrder").array();
        for (int c : order) w.value(long(u.GetLocalID(c)));
        w.endArray().endObject();
        std::cout << tovan::utf16ToUtf8(sink.text()) << "\n";
        return ExitOk;
    }
    std::cout << "protocol: " << tovan::toNarrow(protocol->getName()) << " (" << u.GetNumComponents() << " components, "
              << u.GetNumConnections() << " connections)\n"
              << "start nodes: " << idList(u, starts) << "\n"
              << "chain: " << idList(u, u.GetChainComponents()) << "\n"
              << "ring: " << idList(u, u.GetRingComponents()) << "\n"
              << "unconnected: " << idList(u, u.GetUnconnectedComponents()) << "\n"
              << "loop connections:";
    if (u.GetLoopConnections().none()) std::cout << " -";
    u.GetLoopConnections().forEachSetBit([&](size_t k) {
        std::cout << " #" << k << " (" << u.GetLocalID(u.GetConnectionFrom(int(k))) << "->"
                  << u.GetLocalID(u.GetConnectionTo(int(k))) << ")";
    });
    std::cout << "\nassemblies:\n";
    for (const auto& a : u.GetAssemblies())
        std::cout << "  " << a.index << " " << assemblyKind(u, a) << ": " << idList(u, a.components) << "\n";
    std::cout << "distances:\n";
    for (int c = 0; c < u.GetNumComponents(); ++c)
        std::cout << "  " << u.GetLocalID(c) << " \"" << tovan::toNarrow(u.GetDisplayName(c)) << "\": " << u.GetDistance(c)
                  << "\n";
    std::cout << "execution order:";
    for (int c : order) std::cout << " " << u.GetLocalID(c);
    std::cout << "\n";
    return ExitOk;
}

}  // namespace
}  // namespace nvk
