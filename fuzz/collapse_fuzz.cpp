// Collapse and uncollapse of random selections of random protocols. The bytes build a protocol
// (components with ports, places, parent-linked parameters and a nested subprotocol now and
// then, and connections between them) and a selection. A refused collapse must throw the
// check's sentence and leave the protocol as it was; an allowed one must give a protocol file
// that reads back unchanged; when the rules were asked (more than one ID), the result must
// uncollapse to the same protocol up to the new local IDs.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/String.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolFile.h"

namespace {

using tovan::WString;

[[noreturn]] void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s\n%s\n", what, detail.c_str());
    std::abort();
}

struct Bytes {
    const uint8_t* data;
    size_t size, pos = 0;
    unsigned next() { return pos < size ? data[pos++] : 0; }
};

tovan::Ptr<nvk::CProtocolInfo> build(Bytes& in) {
    tovan::Ptr<nvk::CProtocolInfo> p(new nvk::CProtocolInfo(WString(u"fuzz")));
    const int n = 1 + int(in.next() % 24);
    std::vector<unsigned> ports;
    for (int k = 0; k < n; ++k) {
        const int32_t id = int32_t(k * 3 + 1 + in.next() % 3);
        tovan::iComponentInfo* c = p->addComponent(id, tovan::toWide("C" + std::to_string(k)));
        const unsigned flags = in.next();
        nvk::CProtocolUtils::SetInputPort(c, flags & 1);
        nvk::CProtocolUtils::SetPassPort(c, flags & 2);
        nvk::CProtocolUtils::SetFailPort(c, flags & 4);
        ports.push_back(flags & 7);
        nvk::CProtocolUtils::SetComponentPoint(c, {int32_t(in.next() * 40) - 2000, int32_t(in.next() * 30)});
        if (flags & 8) {
            c->setParameter(u"Link", tovan::ParameterValue::ofText(tovan::toWide("P" + std::to_string(flags >> 6))))
                .setTypeText(WString(tovan::NVK_LinkParentParameterType));
        }
        if (flags & 16) c->setParameter(u"Plain", tovan::ParameterValue::ofInteger(flags));
        if (flags & 32) {
            tovan::Ptr<nvk::CProtocolInfo> sub(new nvk::CProtocolInfo(WString(u"inner")));
            tovan::iComponentInfo* only = sub->addComponent(1, WString(u"Inner"));
            nvk::CProtocolUtils::SetInputPort(only, true);
            c->setSubprotocol(sub.get());
        }
    }
    const int m = int(in.next() % (3 * unsigned(n) + 1));
    std::set<std::tuple<int, int, unsigned>> made;
    for (int k = 0; k < m; ++k) {
        const int from = int(in.next() % unsigned(n)), to = int(in.next() % unsigned(n));
        const unsigned port = (in.next() & 1) ? tovan::PortFail : tovan::PortPass;
        if (!(ports[size_t(from)] & port) || !(ports[size_t(to)] & tovan::PortInput) || !made.insert({from, to, port}).second)
            continue;
        p->addConnection({nvk::CProtocolUtils::GetComponentLocalID(p->getComponent(from)),
                          nvk::CProtocolUtils::GetComponentLocalID(p->getComponent(to)), tovan::Port(port)});
    }
    return p;
}

/// Components (attributes as stored) and connections with IDs renamed, sorted.
std::vector<std::string> shape(tovan::iProtocolInfo* p, const std::map<int32_t, int32_t>& rename) {
    auto id = [&](int32_t v) {
        auto it = rename.find(v);
        return it == rename.end() ? v : it->second;
    };
    std::vector<std::string> lines;
    for (int k = 0; k < p->getNumComponents(); ++k) {
        tovan::iComponentInfo* c = p->getComponent(k);
        nvk::CProtocolUtils::Point at = nvk::CProtocolUtils::GetComponentPoint(c);
        std::string line = std::to_string(id(nvk::CProtocolUtils::GetComponentLocalID(c))) + " " +
                           tovan::toNarrow(nvk::CProtocolUtils::GetComponentDisplayName(c)) + " " +
                           std::to_string(nvk::CProtocolUtils::GetComponentPorts(c)) + " " + std::to_string(at.x) + "," +
                           std::to_string(at.y);
        for (const WString& name : c->getParameterNames())
            line += " " + tovan::toNarrow(name) + "=" + tovan::toNarrow(c->findParameter(name)->getTypeText());
        if (c->getSubprotocol()) line += " sub";
        lines.push_back(line);
    }
    for (int k = 0; k < p->getNumConnections(); ++k) {
        tovan::ConnectionInfo c = p->getConnection(k);
        lines.push_back(">" + std::to_string(id(c.fromLocalID)) + " " + std::to_string(id(c.toLocalID)) + " " +
                        std::to_string(int(c.port)));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void writesAndReadsBack(tovan::iProtocolInfo* p) {
    const WString text = nvk::CProtocolFile::WriteText(p);
    tovan::Ptr<nvk::CProtocolInfo> again = nvk::CProtocolFile::ReadText(text, WString(u"fuzz.json"));
    if (!(nvk::CProtocolFile::WriteText(again.get()) == text)) fail("result does not read back unchanged", tovan::toNarrow(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in{data, size};
    tovan::Ptr<nvk::CProtocolInfo> p = build(in);
    std::vector<WString> ids;
    std::vector<int32_t> chosen;
    for (int k = 0; k < p->getNumComponents(); ++k)
        if (in.next() & 1) chosen.push_back(nvk::CProtocolUtils::GetComponentLocalID(p->getComponent(k)));
    for (int32_t id : chosen) ids.push_back(tovan::toWide(std::to_string(id)));
    const WString before = nvk::CProtocolFile::WriteText(p.get());
    const std::vector<std::string> shapeBefore = shape(p.get(), {});

    nvk::CProtocolCollapseUtils collapse;
    WString message;
    if (!collapse.CanCollapseToSubprotocol(p.get(), ids, message)) {
        try {
            collapse.CollapseToSubprotocol(nullptr, p.get(), ids, WString(), false);
            fail("a refused collapse went through", tovan::toNarrow(message));
        } catch (const tovan::Exception& e) {
            if (std::string(e.what()) != tovan::toNarrow(message)) fail("refusal and exception differ", e.what());
        }
        if (!(nvk::CProtocolFile::WriteText(p.get()) == before)) fail("a refusal changed the protocol", tovan::toNarrow(before));
        return 0;
    }
    tovan::iProtocolInfo* sub = collapse.CollapseToSubprotocol(nullptr, p.get(), ids, WString(u"G"), false);
    writesAndReadsBack(p.get());
    tovan::iComponentInfo* group = sub->getParentComponent();
    const bool ruled = ids.size() > 1;
    if (!collapse.CanUncollapseSubprotocol(group, message)) {
        if (ruled) fail("a collapse cannot be uncollapsed", tovan::toNarrow(message));
        return 0;
    }
    std::vector<int32_t> newIDs;
    collapse.UncollapseSubprotocol(group, p.get(), newIDs);
    writesAndReadsBack(p.get());
    if (!ruled) return 0;
    std::map<int32_t, int32_t> back;
    for (size_t k = 0; k < newIDs.size(); ++k) back[newIDs[k]] = chosen[k];
    if (shape(p.get(), back) != shapeBefore) fail("the round trip changed the protocol", tovan::toNarrow(before));
    return 0;
}
