// Untrusted protocol files. Reading must give a protocol or a framework exception that names
// the file. A protocol read must write back to text that reads back to the same protocol. Its
// perception, layout, a move and a picture must end normally or in a framework exception, and
// laying out the same text twice must give the same result; the picture must be well-formed
// XML. On small protocols the fast distance walk must also give what the reference walk
// gives, in both directions.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "nvk/platform/Exception.h"
#include "nvk/platform/String.h"
#include "nvk/platform/Value.h"
#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "nvk/protocol/CProtocolPicture.h"
#include "nvk/protocol/DistanceWalk_internal.h"

namespace {

using tovan::WString;

const WString kName(u"fuzz.json");

// Layout costs grow faster than the file, and the reference walk can take exponential time,
// so both are kept to protocols that a run gets through quickly.
constexpr int kMaxLaidOut = 64;
constexpr int kMaxWalkedBothWays = 12;

[[noreturn]] void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s\n%s\n", what, detail.c_str());
    std::abort();
}

tovan::Ptr<nvk::CProtocolInfo> read(const WString& text) { return nvk::CProtocolFile::ReadText(text, kName); }

/// Whether two attribute holders hold the same keys with the same typed values.
bool sameAttributes(const tovan::iAttributeHolder& a, const tovan::iAttributeHolder& b) {
    const std::vector<WString> keys = a.getAttributeKeys();
    if (keys != b.getAttributeKeys()) return false;
    for (const WString& k : keys) {
        int32_t ia = 0, ib = 0;
        bool ba = false, bb = false;
        WString ta, tb;
        tovan::AttributePoint pa, pb;
        std::vector<WString> la, lb;
        const tovan::wchar* key = k.c_str();
        if (a.getIntAttribute(key, ia) != b.getIntAttribute(key, ib) || ia != ib) return false;
        if (a.getBoolAttribute(key, ba) != b.getBoolAttribute(key, bb) || ba != bb) return false;
        if (a.getTextAttribute(key, ta) != b.getTextAttribute(key, tb) || !(ta == tb)) return false;
        if (a.getPointAttribute(key, pa) != b.getPointAttribute(key, pb) || !(pa == pb)) return false;
        if (a.getTextArrayAttribute(key, la) != b.getTextArrayAttribute(key, lb) || la != lb) return false;
    }
    return true;
}

/// Whether a protocol read back from its written text holds everything the first one held.
bool sameProtocol(const tovan::iProtocolInfo& a, const tovan::iProtocolInfo& b) {
    if (!(a.getName() == b.getName()) || !sameAttributes(a, b)) return false;
    if (a.getNumComponents() != b.getNumComponents() || a.getNumConnections() != b.getNumConnections()) return false;
    for (int k = 0; k < a.getNumConnections(); ++k)
        if (!(a.getConnection(k) == b.getConnection(k))) return false;
    for (int i = 0; i < a.getNumComponents(); ++i) {
        const tovan::iComponentInfo& ca = *a.getComponent(i);
        const tovan::iComponentInfo& cb = *b.getComponent(i);
        if (!sameAttributes(ca, cb)) return false;
        const std::vector<WString> names = ca.getParameterNames();
        if (names != cb.getParameterNames()) return false;
        for (const WString& name : names) {
            const tovan::iParameter &pa = *ca.findParameter(name), &pb = *cb.findParameter(name);
            if (!(pa.getValue() == pb.getValue()) || !(pa.getTypeText() == pb.getTypeText())) return false;
            const tovan::iPropertyCollection *ma = pa.findMetaData(), *mb = pb.findMetaData();
            const int entries = ma ? ma->getSize() : 0;
            if (entries != (mb ? mb->getSize() : 0)) return false;
            for (int k = 0; k < entries; ++k)
                if (!(ma->get(k).getName() == mb->get(k).getName()) || !ma->get(k).getValue().equals(mb->get(k).getValue()))
                    return false;
        }
        const tovan::iProtocolInfo *sa = ca.getSubprotocol(), *sb = cb.getSubprotocol();
        if (!sa != !sb || (sa && !sameProtocol(*sa, *sb))) return false;
    }
    return true;
}

/// The protocol laid out, moved and written, or the failure.
std::string layOut(const WString& text) {
    tovan::Ptr<nvk::CProtocolInfo> p = read(text);
    nvk::CProtocolLayoutUtils layout;
    tovan::BitsetValue changed;
    bool notesChanged = false;
    std::string out;
    try {
        layout.LayoutProtocol(p.get(), WString(u""), changed, notesChanged);
        out = tovan::utf16ToUtf8(nvk::CProtocolFile::WriteText(p.get()).str());
        if (layout.GetNumComponents() > 0) {
            layout.MoveProtocolComponents(p.get(), {layout.GetLocalID(0)}, 37, -12, changed);
            out += tovan::utf16ToUtf8(nvk::CProtocolFile::WriteText(p.get()).str());
        }
        const std::string svg = nvk::CProtocolPicture::RenderSvg(p.get());
        pugi::xml_document doc;
        const pugi::xml_parse_result parsed = doc.load_buffer(svg.data(), svg.size());
        if (!parsed) fail("the picture is not well-formed XML", parsed.description() + ("\n" + svg));
        out += svg;
    } catch (const tovan::Exception& e) {
        out += std::string("failure: ") + e.what();
    }
    return out;
}

/// Both walks over the perceived protocol's own graph, in both directions.
void compareWalks(const nvk::CProtocolUtils& u, const nvk::CProtocolInfo& p) {
    const size_t n = size_t(u.GetNumComponents());
    std::vector<std::vector<int>> down(n), up(n);
    std::vector<std::vector<std::pair<int, int>>> outgoing(n);
    std::vector<int> x(n, 0);
    for (int k = 0; k < p.getNumConnections(); ++k) {
        const tovan::ConnectionInfo c = p.getConnection(k);
        const int a = u.GetComponentIndexByLocalID(c.fromLocalID), b = u.GetComponentIndexByLocalID(c.toLocalID);
        if (a < 0 || b < 0) continue;
        down[size_t(a)].push_back(b);
        up[size_t(b)].push_back(a);
        outgoing[size_t(a)].emplace_back(b, k);
    }
    for (auto* lists : {&down, &up})
        for (auto& l : *lists) {
            std::sort(l.begin(), l.end());
            l.erase(std::unique(l.begin(), l.end()), l.end());
        }
    for (size_t i = 0; i < n; ++i) {
        tovan::AttributePoint at;
        if (p.getComponent(int(i))->getPointAttribute(tovan::NVK_ComponentPoint, at)) x[i] = at.x;
    }
    const nvk::DistanceWalkGraph g{&down, &up, &x, &outgoing};
    tovan::BitsetValue set(n);
    set.setAll();
    for (bool furthest : {true, false}) {
        std::vector<int> slow(n, 7), fast(n, 7);
        tovan::BitsetValue slowLoops, fastLoops;
        bool slowHas = false, fastHas = false;
        nvk::ReferenceDistanceWalk(g, set, furthest, slow, slowLoops, slowHas);
        nvk::FastDistanceWalk(g, set, furthest, fast, fastLoops, fastHas);
        if (slow != fast || !(slowLoops == fastLoops) || slowHas != fastHas)
            fail("the fast walk differs from the reference walk", furthest ? "furthest" : "nearest");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const WString text = tovan::toWide(std::string_view(reinterpret_cast<const char*>(data), size));
    tovan::Ptr<nvk::CProtocolInfo> p;
    try {
        p = read(text);
    } catch (const tovan::Exception& e) {
        if (std::string_view(e.what()).find("fuzz.json") == std::string_view::npos)
            fail("a refused file's message does not name it", e.what());
        return 0;
    }
    const WString written = nvk::CProtocolFile::WriteText(p.get());
    try {
        if (!sameProtocol(*p, *read(written)))
            fail("written text reads back differently", tovan::utf16ToUtf8(written.str()));
    } catch (const tovan::Exception& e) {
        fail("written text does not read back", std::string(e.what()) + "\n" + tovan::utf16ToUtf8(written.str()));
    }
    if (p->getNumComponents() > kMaxLaidOut) return 0;
    nvk::CProtocolUtils u;
    try {
        u.LoadProtocolComponents(p.get());
    } catch (const tovan::Exception&) {
        return 0;
    }
    if (u.GetNumComponents() <= kMaxWalkedBothWays) compareWalks(u, *p);
    const std::string first = layOut(written);
    if (layOut(written) != first) fail("two layouts of the same text differ", first);
    return 0;
}
