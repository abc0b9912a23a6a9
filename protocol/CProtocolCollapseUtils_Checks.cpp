// Whether a selection may be collapsed: the three rules and the check that runs them.
#include <algorithm>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Format.h"
#include "nvk/protocol/CProtocolCollapseUtils.h"

using namespace tovan;

namespace nvk {

CProtocolCollapseUtils::CProtocolCollapseUtils() = default;
CProtocolCollapseUtils::~CProtocolCollapseUtils() = default;

void CProtocolCollapseUtils::SetContext(Object* context) { layout_.SetContext(context); }

bool CProtocolCollapseUtils::CanCollapseToSubprotocol(iProtocolInfo* protocol, const std::vector<WString>& localIDs,
                                                      WString& message) {
    return IsOKToCollapse(protocol, localIDs, message);
}

bool CProtocolCollapseUtils::IsOKToCollapse(iProtocolInfo* protocol, const std::vector<WString>& localIDs,
                                            WString& message) {
    // One component can always stand alone in a subprotocol; the editor offers it unchecked.
    if (localIDs.size() == 1) return true;
    if (!protocol) throw Exception("CProtocolCollapseUtils", "IsOKToCollapse", u"Cannot dereference a NULL pointer");
    // The graph alone: the rules read ports and adjacency, never the rings, assemblies and
    // distances, whose exact walk grows faster than the graph where it has loops (listed in
    // DEPARTURES.md).
    layout_.LoadProtocolGraph(protocol);
    if (!layout_.ConvertIDsToBitset(localIDs, selected_, message)) return false;
    return HasAtMostOneInputNode(layout_, selected_, message) && WontFormALoop(layout_, selected_, message) &&
           CheckAllConnectionsToPortAreTheSame(layout_, selected_, CProtocolUtils::AdjInput, message) &&
           CheckAllConnectionsToPortAreTheSame(layout_, selected_, CProtocolUtils::AdjPass, message) &&
           CheckAllConnectionsToPortAreTheSame(layout_, selected_, CProtocolUtils::AdjFail, message);
}

bool CProtocolCollapseUtils::HasAtMostOneInputNode(const CProtocolUtils& utils, const BitsetValue& set,
                                                   WString& message) {
    bool found = false;
    bool ok = true;
    set.forEachSetBit([&](size_t m) {
        if (!ok || m >= size_t(utils.GetNumComponents())) return;
        const std::vector<int>& upstream = utils.GetAdjacentList(int(m), CProtocolUtils::AdjInput);
        size_t inside = 0;
        for (int u : upstream)
            if (set.test(size_t(u))) ++inside;
        if (upstream.empty() && !(utils.GetPorts(int(m)) & PortInput)) return;
        if (inside > 0 && inside < upstream.size()) {
            message = WString(u"You cannot collapse with a component that has both upstream components in the "
                              u"selected set, and other upstream components that are not");
            ok = false;
            return;
        }
        if (inside > 0) return;  // fed only from inside
        if (found) {
            message = WString(u"Collapsing this set would result in a subprotocol with more than one input component");
            ok = false;
            return;
        }
        found = true;
    });
    return ok;
}

bool CProtocolCollapseUtils::WontFormALoop(const CProtocolUtils& utils, const BitsetValue& set, WString& message) {
    // Every member whose outputs leave the set is asked whether anything downstream of it
    // is a member. The union of what they reach is what any of them reaches, so one walk
    // from all their successors answers for all of them at the cost of one pass over the graph.
    const size_t n = size_t(utils.GetNumComponents());
    std::vector<char> seen(n, 0);
    std::vector<int> work;
    set.forEachSetBit([&](size_t m) {
        if (m >= n) return;
        const std::vector<int>& down = utils.GetAdjacentList(int(m), CProtocolUtils::AdjPassOrFail);
        bool leaves = false;
        for (int d : down)
            if (!set.test(size_t(d))) leaves = true;
        if (!leaves) return;
        for (int d : down)
            if (!seen[size_t(d)]) {
                seen[size_t(d)] = 1;
                work.push_back(d);
            }
    });
    while (!work.empty()) {
        int c = work.back();
        work.pop_back();
        if (set.test(size_t(c))) {
            message = WString(u"Collapsing this set would result in a loop");
            return false;
        }
        for (int d : utils.GetAdjacentList(c, CProtocolUtils::AdjPassOrFail))
            if (!seen[size_t(d)]) {
                seen[size_t(d)] = 1;
                work.push_back(d);
            }
    }
    return true;
}

namespace {

Port portOfKind(int kind) {
    switch (kind) {
        case CProtocolUtils::AdjInput: return PortInput;
        case CProtocolUtils::AdjPass: return PortPass;
        case CProtocolUtils::AdjFail: return PortFail;
        default: throw Exception("CProtocolCollapseUtils", "CheckAllConnectionsToPortAreTheSame", u"Unrecognized adjacent flag");
    }
}

}  // namespace

bool CProtocolCollapseUtils::CheckAllConnectionsToPortAreTheSame(const CProtocolUtils& utils, const BitsetValue& set,
                                                                 int kind, WString& message) {
    const Port port = portOfKind(kind);
    BitsetValue withPort;
    utils.GetComponentsWithPort(set, port, withPort);
    if (withPort.count() < 2) return true;
    const std::vector<unsigned> members = CProtocolUtils::ComponentBitsetToArray(withPort);
    const wchar* kindName = CProtocolUtils::GetAdjacencyName(kind);

    bool someOpen = false, someLeave = false;
    for (unsigned m : members) {
        const std::vector<int>& adjacent = utils.GetAdjacentList(int(m), kind);
        if (adjacent.empty()) someOpen = true;
        for (int a : adjacent)
            if (!set.test(size_t(a))) someLeave = true;
    }
    if (someOpen) {
        if (!someLeave) return true;
        message = format(u"At least one member has an open %ls port, but other members connect outside the set via "
                         u"their %ls port. Such a set cannot be collapsed.",
                         kindName, kindName);
        return false;
    }

    int reference = -1;
    std::vector<int> referenceOutside;
    for (unsigned m : members) {
        std::vector<int> outside;
        for (int a : utils.GetAdjacentList(int(m), kind))
            if (!set.test(size_t(a))) outside.push_back(a);  // the lists are sorted, so equal sets compare equal
        if (outside.empty()) continue;
        if (reference < 0) {
            reference = int(m);
            referenceOutside = std::move(outside);
        } else if (outside != referenceOutside) {
            message = format(u"Components \"%ls\" and \"%ls\" have different %ls port connections outside the collapse "
                             u"set, not allowed",
                             utils.GetDisplayName(reference), utils.GetDisplayName(int(m)), kindName);
            return false;
        }
    }
    return true;
}

int32_t CProtocolCollapseUtils::GetLargestLocalId(const iProtocolInfo* protocol) {
    if (!protocol) throw Exception("CProtocolCollapseUtils", "GetLargestLocalId", u"Cannot dereference a NULL pointer");
    const int n = protocol->getNumComponents();
    if (n == 0) return 0;
    int32_t largest = CProtocolUtils::GetComponentLocalID(protocol->getComponent(0));
    for (int k = 1; k < n; ++k) largest = std::max(largest, CProtocolUtils::GetComponentLocalID(protocol->getComponent(k)));
    return largest;
}

}  // namespace nvk
