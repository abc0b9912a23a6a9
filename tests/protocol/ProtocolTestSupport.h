#pragma once
// Building small protocols for the protocol tests from their JSON form.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Object.h"
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolInfo.h"
#include "tests/support/TestSupport.h"

namespace nvktest {

/// One component: "id:name@x,y" with ports "ipf" given separately.
struct Comp {
    int id;
    const char* name;
    int x, y;
    const char* ports = "ipf";  // i input, p pass, f fail; "" for none
};
struct Conn {
    int from, to;
    const char* port = "pass";
};

inline std::string protocolJson(const std::vector<Comp>& comps, const std::vector<Conn>& conns,
                                const std::string& extra = "") {
    std::string s = "{\"name\":\"test\"" + (extra.empty() ? "" : "," + extra) + ",\"components\":[";
    for (size_t i = 0; i < comps.size(); ++i) {
        const Comp& c = comps[i];
        std::string ports;
        for (const char* p = c.ports; *p; ++p) {
            if (!ports.empty()) ports += ",";
            ports += *p == 'i' ? "\"input\"" : *p == 'p' ? "\"pass\"" : "\"fail\"";
        }
        s += (i ? "," : "") + std::string("{\"id\":") + std::to_string(c.id) + ",\"name\":\"" + c.name +
             "\",\"ports\":[" + ports + "],\"point\":[" + std::to_string(c.x) + "," + std::to_string(c.y) + "]}";
    }
    s += "],\"connections\":[";
    for (size_t k = 0; k < conns.size(); ++k)
        s += (k ? "," : "") + std::string("{\"from\":") + std::to_string(conns[k].from) + ",\"to\":" +
             std::to_string(conns[k].to) + ",\"port\":\"" + conns[k].port + "\"}";
    return s + "]}";
}

/// Debug targets switched on, and the debug lines captured, for a test's scope.
struct DebugScope {
    explicit DebugScope(const char* targets) { tovan::setDebugTargets(targets); }
    ~DebugScope() { tovan::setDebugTargets(""); }
    tovan::DiagnosticCapture capture;
};

/// The workflow protocols of the shared corpus, sorted; empty when the corpus is not there.
inline std::vector<std::filesystem::path> corpusProtocols() {
    std::vector<std::filesystem::path> files;
    std::filesystem::path dir = corpusPath("workflows/protocols");
    if (dir.empty() || !std::filesystem::exists(dir)) return files;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        if (e.path().extension() == ".json") files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

inline tovan::Ptr<nvk::CProtocolInfo> makeProtocol(const std::vector<Comp>& comps, const std::vector<Conn>& conns,
                                                   const std::string& extra = "") {
    return nvk::CProtocolFile::ReadText(tovan::toWide(protocolJson(comps, conns, extra)), u"test.json");
}

}  // namespace nvktest
