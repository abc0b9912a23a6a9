// Component and connection sets: building them from local IDs, their inputs, outputs and
// connections, whether they are connected or separable, and their text for debug lines.
#include "nvk/protocol/CProtocolUtils.h"

#include <cstdint>

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"

using namespace tovan;

namespace nvk {

void CProtocolUtils::InitBitset(BitsetValue& set, size_t size, bool value) {
    set.resize(size);
    if (value) set.setAll();
    else set.clearAll();
}

bool CProtocolUtils::ConvertIDsToBitset(const std::vector<WString>& ids, BitsetValue& set, WString& error) const {
    InitBitset(set, components_.size(), false);
    for (const WString& text : ids) {
        std::string s = toNarrow(text);
        size_t start = s.find_first_not_of(' '), end = s.find_last_not_of(' ');
        s = start == std::string::npos ? std::string() : s.substr(start, end - start + 1);
        int index = -1;
        int32_t localID;
        if (parseInteger(std::string_view(s), localID, NumberSigns::PlusOrMinus))
            index = GetComponentIndexByLocalID(localID);
        if (index < 0) {
            error = WString(u"Did not find:");
            error += text.view();
            return false;
        }
        set.set(size_t(index));
    }
    return true;
}

void CProtocolUtils::GetSubsetInputsAndOutputs(const BitsetValue& set, BitsetValue& inputs, BitsetValue& outputs) const {
    InitBitset(inputs, components_.size(), false);
    InitBitset(outputs, components_.size(), false);
    for (size_t k = 0; k < connFrom_.size(); ++k) {
        bool fromIn = set.test(size_t(connFrom_[k])), toIn = set.test(size_t(connTo_[k]));
        if (!fromIn && toIn) inputs.set(size_t(connFrom_[k]));
        if (fromIn && !toIn) outputs.set(size_t(connTo_[k]));
    }
}

bool CProtocolUtils::GetSubsetCenter(const BitsetValue& set, Point& center) const {
    int64_t sx = 0, sy = 0, count = 0;
    set.forEachSetBit([&](size_t c) {
        if (c >= point_.size()) return;
        sx += point_[c].x;
        sy += point_[c].y;
        ++count;
    });
    if (count == 0) return false;
    center = {int32_t(sx / count), int32_t(sy / count)};
    return true;
}

void CProtocolUtils::GetInternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                            std::vector<Port>& port) const {
    from.clear();
    to.clear();
    port.clear();
    for (size_t k = 0; k < connFrom_.size(); ++k)
        if (set.test(size_t(connFrom_[k])) && set.test(size_t(connTo_[k]))) {
            from.push_back(connFrom_[k]);
            to.push_back(connTo_[k]);
            port.push_back(connPort_[k]);
        }
}

void CProtocolUtils::GetExternalConnections(const BitsetValue& set, std::vector<int>& from, std::vector<int>& to,
                                            std::vector<Port>& port, std::vector<bool>& isInput) const {
    from.clear();
    to.clear();
    port.clear();
    isInput.clear();
    for (size_t k = 0; k < connFrom_.size(); ++k) {
        bool fromIn = set.test(size_t(connFrom_[k])), toIn = set.test(size_t(connTo_[k]));
        if (fromIn == toIn) continue;
        from.push_back(connFrom_[k]);
        to.push_back(connTo_[k]);
        port.push_back(connPort_[k]);
        isInput.push_back(toIn);
    }
}

bool CProtocolUtils::IsSeparableUpstream(const BitsetValue& set) const {
    // Walk downstream from the set's outputs outside the set; reaching one of its inputs
    // means some path leaves the set and comes back.
    BitsetValue inputs, outputs;
    GetSubsetInputsAndOutputs(set, inputs, outputs);
    std::vector<char> seen(components_.size(), 0);
    std::vector<int> work;
    outputs.forEachSetBit([&](size_t c) {
        seen[c] = 1;
        work.push_back(int(c));
    });
    while (!work.empty()) {
        int c = work.back();
        work.pop_back();
        if (inputs.test(size_t(c))) return false;
        for (int d : adjacency_[AdjPassOrFail][size_t(c)])
            if (!set.test(size_t(d)) && !seen[size_t(d)]) {
                seen[size_t(d)] = 1;
                work.push_back(d);
            }
    }
    return true;
}

bool CProtocolUtils::IsConnected(const BitsetValue& set) const {
    size_t first = set.firstSetBit();
    if (first == BitsetValue::npos || first >= components_.size()) return false;
    std::vector<char> seen(components_.size(), 0);
    std::vector<int> work{int(first)};
    seen[first] = 1;
    size_t reached = 1;
    while (!work.empty()) {
        int c = work.back();
        work.pop_back();
        for (int a : adjacency_[AdjAll][size_t(c)])
            if (set.test(size_t(a)) && !seen[size_t(a)]) {
                seen[size_t(a)] = 1;
                ++reached;
                work.push_back(a);
            }
    }
    return reached == set.count();
}

const std::vector<int>& CProtocolUtils::ShorterConnectionList(int from, int to) const {
    // Both ends list every connection between them, in connection order.
    const auto& a = connectionsOf_[size_t(from)];
    if (to < 0 || to >= GetNumComponents()) return a;
    const auto& b = connectionsOf_[size_t(to)];
    return b.size() < a.size() ? b : a;
}

bool CProtocolUtils::FindConnections(int from, int to, std::vector<int>& out) const {
    out.clear();
    if (from < 0 || from >= GetNumComponents()) return false;
    for (int k : ShorterConnectionList(from, to))
        if (connFrom_[size_t(k)] == from && connTo_[size_t(k)] == to) out.push_back(k);
    return !out.empty();
}

int CProtocolUtils::FindConnection(int from, int to, Port port) const {
    if (from < 0 || from >= GetNumComponents()) return -1;
    for (int k : ShorterConnectionList(from, to))
        if (connFrom_[size_t(k)] == from && connTo_[size_t(k)] == to && connPort_[size_t(k)] == port) return k;
    return -1;
}

void CProtocolUtils::GetComponentsWithPort(const BitsetValue& set, Port port, BitsetValue& out) const {
    InitBitset(out, components_.size(), false);
    set.forEachSetBit([&](size_t c) {
        if (c < ports_.size() && (ports_[c] & port) == unsigned(port)) out.set(c);
    });
}

void CProtocolUtils::GetInputComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortInput, out);
}
void CProtocolUtils::GetOutputPassComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortPass, out);
}
void CProtocolUtils::GetOutputFailComponents(const BitsetValue& set, BitsetValue& out) const {
    GetComponentsWithPort(set, PortFail, out);
}

int CProtocolUtils::FindNearestComponent(const Extent& e) const {
    int cx = int((int64_t(e.left) + e.right) / 2), cy = int((int64_t(e.top) + e.bottom) / 2);
    int best = -1;
    int64_t bestDistance = 0;
    for (size_t c = 0; c < point_.size(); ++c) {
        int64_t dx = int64_t(point_[c].x) - cx, dy = int64_t(point_[c].y) - cy;
        int64_t d = dx * dx + dy * dy;
        if (best < 0 || d < bestDistance) {
            best = int(c);
            bestDistance = d;
        }
    }
    return best;
}

std::vector<unsigned> CProtocolUtils::ComponentBitsetToArray(const BitsetValue& set) {
    std::vector<unsigned> out;
    set.forEachSetBit([&](size_t c) { out.push_back(unsigned(c)); });
    return out;
}

// ---- debug text -----------------------------------------------------------------------------

namespace {

/// Writes the members of `set` below `count` with `item`, joined by ", ", or
/// "Empty" when there are none.
template <class Item>
void setText(const BitsetValue& set, size_t count, WString& out, Item&& item) {
    out = WString::empty();
    bool any = false;
    set.forEachSetBit([&](size_t i) {
        if (i >= count) return;
        if (any) out += u", ";
        item(i);
        any = true;
    });
    if (!any) out = WString(u"Empty");
}

}  // namespace

void CProtocolUtils::ComponentSetText(const BitsetValue& set, WString& out) const {
    setText(set, displayName_.size(), out, [&](size_t c) {
        out += u'"';
        out += displayName_[c].view();
        out += u'"';
    });
}

void CProtocolUtils::ConnectionSetText(const BitsetValue& set, WString& out) const {
    setText(set, connFrom_.size(), out, [&](size_t k) {
        out += format(u"\"%ls\"->\"%ls\" (%ls)", displayName_[size_t(connFrom_[k])], displayName_[size_t(connTo_[k])],
                      connPort_[k] == PortFail ? u"fail" : u"pass")
                   .view();
    });
}

void CProtocolUtils::DebugComponentSet(const DebugTarget& target, const WString& label, const BitsetValue& set) const {
    if (!target) return;
    set.forEachSetBit([&](size_t c) {
        if (c >= displayName_.size()) return;
        debug(target, u"%ls: XY %d %d (%d %d): \"%ls\"", label, point_[c].x, point_[c].y, initialPoint_[c].x,
              initialPoint_[c].y, displayName_[c]);
    });
}

void CProtocolUtils::DebugConnectionSet(const DebugTarget& target, const WString& label, const BitsetValue& set) const {
    if (!target) return;
    set.forEachSetBit([&](size_t k) {
        if (k >= connFrom_.size()) return;
        debug(target, u"%ls: Connection from \"%ls\" to \"%ls\" port %d", label, displayName_[size_t(connFrom_[k])],
              displayName_[size_t(connTo_[k])], int(connPort_[k]));
    });
}

}  // namespace nvk
