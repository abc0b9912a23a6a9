// The entries: a whole layout, its phases in order, and placing a new component; also the
// spacing that follows from the settings, the fixed components and writing the results back.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::kClass;

namespace {

std::vector<WString> splitIDs(const WString& text) {
    std::vector<WString> ids;
    WString current = WString::empty();
    for (wchar ch : text.view()) {
        if (ch == u',' || ch == u' ' || ch == u'\t' || ch == u'\n' || ch == u'\r' || ch == u';') {
            if (!current.isEmpty()) ids.push_back(current);
            current = WString::empty();
        } else {
            current += ch;
        }
    }
    if (!current.isEmpty()) ids.push_back(current);
    return ids;
}

}  // namespace

CProtocolLayoutUtils::CProtocolLayoutUtils() { SetLinesOfDisplayText(3); }
CProtocolLayoutUtils::~CProtocolLayoutUtils() = default;

void CProtocolLayoutUtils::SetLinesOfDisplayText(int lines) {
    linesOfDisplayText_ = lines;
    columnWidth_ = 300;
    rowHeight_ = (lines + 3) * 60;
    minVerticalSeparation_ = rowHeight_ / 12;
    margin_ = 37;
    wideMargin_ = 120;
    mediumMargin_ = 75;
    quarterRow_ = rowHeight_ / 4;
}

void CProtocolLayoutUtils::LayoutProtocol(iProtocolInfo* protocol, const WString& fixedComponents, BitsetValue& changed,
                                          bool& stickyNotesChanged) {
    static DebugTarget t("LayoutProtocol");
    if (!protocol) throw Exception(kClass, "LayoutProtocol", u"Cannot dereference a NULL pointer");
    foundOffsetMove_ = false;
    stickyNotesChanged = false;
    debug(t, u"rule %ls wantFurthest %d", GetXPositionRuleName(xPositionRule_), int(wantFurthest_));
    debug(t, u"[LoadProtocolComponents]");
    LoadProtocolComponents(protocol);
    fixed_.assign(components_.size(), 0);
    finalOffset_ = offset_;
    if (considerStickyNotes_) MoveProtocolStickyNotesOnscreen();
    SaveMovedTo();
    debug(t, u"[DefineFixedComponents]");
    try {
        DefineFixedComponents(fixedComponents);
    } catch (...) {
        // A failed layout leaves the protocol as it was: the moved-to marks just written go.
        RestoreMovedTo();
        throw;
    }
    debug(t, u"[LoadNetworks]");
    LoadNetworks();
    debug(t, u"[CalculateComponentsMoveWith]");
    CalculateComponentsMoveWith();
    for (int n = 0; n < GetNumNetworks(); ++n) {
        debug(t, u"[InitialLayoutUsingDistanceFromStart: net %d]", n);
        InitialLayoutUsingDistanceFromStart(n);
        debug(t, u"[ProcessAllStacks: net %d]", n);
        ProcessAllStacks(n);
    }
    ProcessMovesToOffsets();
    debug(t, u"[LayoutNetworks]");
    LayoutNetworks();
    debug(t, u"[SaveComponentStickyNotes]");
    InitBitset(changed, components_.size(), false);
    if (considerStickyNotes_) {
        SaveComponentStickyNotes(changed);
        SaveProtocolStickyNotes();
    }
    debug(t, u"[SaveCoordinates]");
    BitsetValue written;
    SaveCoordinates(written);
    changed |= written;
    if (considerStickyNotes_) stickyNotesChanged = ProtocolStickyNotesChanged();
    debug(t, u"END LAYOUT");
}

void CProtocolLayoutUtils::DefineFixedComponents(const WString& fixedComponents) {
    fixed_.assign(components_.size(), 0);
    std::vector<WString> ids = splitIDs(fixedComponents);
    if (ids.empty()) return;
    BitsetValue set;
    WString error;
    if (!ConvertIDsToBitset(ids, set, error)) throw Exception(kClass, "DefineFixedComponents", u"%ls", error);
    set.forEachSetBit([&](size_t c) { fixed_[c] = 1; });
}

void CProtocolLayoutUtils::SaveCoordinates(BitsetValue& written) {
    InitBitset(written, components_.size(), false);
    for (size_t c = 0; c < components_.size(); ++c) {
        if (!(point_[c] == storedPoint_[c])) {
            SetComponentPoint(components_[c], point_[c]);
            written.set(c);
        }
        if (!(finalOffset_[c] == offset_[c])) {
            SetComponentOffset(components_[c], finalOffset_[c]);
            written.set(c);
        }
    }
    // A drag is consumed by the layout that saw it. Left in place, the moved-from mark would
    // have every further layout see the same drag: a dragged start node, whose drag is always
    // kept, would get it added to its offset once more each time and creep away.
    for (int c : dragged_) RemoveComponentMovedFrom(components_[size_t(c)]);
}

void CProtocolLayoutUtils::PositionNewComponent(iProtocolInfo* protocol, iComponentInfo* component) {
    static DebugTarget t("PositionNewComponent");
    if (!protocol || !component) throw Exception(kClass, "PositionNewComponent", u"Cannot dereference a NULL pointer");
    LoadProtocolComponents(protocol);
    int c = GetComponentIndex(component);
    if (c < 0)
        throw Exception(kClass, "PositionNewComponent", u"Component \"%ls\" is not in protocol %ls",
                        GetComponentDisplayName(component), protocol->getName());
    std::vector<int> up, down;
    for (int u : adjacency_[AdjInput][size_t(c)])
        if (u != c) up.push_back(u);
    for (int d : adjacency_[AdjPassOrFail][size_t(c)])
        if (d != c) down.push_back(d);
    int64_t upX = 0, upY = 0, offX = 0, offY = 0;
    for (int u : up) {
        Point p = GetComponentPointWithoutOffset(components_[size_t(u)]), o = GetComponentOffset(components_[size_t(u)]);
        upX += p.x;
        upY += p.y;
        offX += o.x;
        offY += o.y;
    }
    const int upCount = int(up.size());
    Point avgOff{upCount ? int32_t(offX / upCount) : 0, upCount ? int32_t(offY / upCount) : 0};
    debug(t, u"PNC: upXSum, upYSum, upcount: %d %d %d avgUpOff %d %d", int(upX), int(upY), upCount, avgOff.x, avgOff.y);
    Point result;
    if (up.empty() && !down.empty()) {
        int64_t dx = 0, dy = 0;
        for (int d : down) {
            Point p = GetComponentPointWithoutOffset(components_[size_t(d)]);
            dx += p.x;
            dy += p.y;
        }
        result = {int32_t(dx / int64_t(down.size())) - columnWidth_, int32_t(dy / int64_t(down.size()))};
    } else if (!up.empty() && down.empty()) {
        // After its upstream, below the siblings that run before it.
        int first = up.front();
        const auto& siblings = adjacency_[AdjPassOrFail][size_t(first)];
        int before = int(std::find(siblings.begin(), siblings.end(), c) - siblings.begin());
        result = {int32_t(upX / upCount) + columnWidth_, int32_t(upY / upCount) + before * rowHeight_};
    } else if (!up.empty() && !down.empty()) {
        // Inserted into a pipe: after its upstream, at their height.
        result = {int32_t(upX / upCount) + columnWidth_, int32_t(upY / upCount)};
    } else {
        throw Exception(kClass, "PositionNewComponent", u"Unexpected pipe configuration - please contact Orvenda Support");
    }
    // The point is written without the offset added, unlike a layout's: the next load
    // takes the offset off, so the component is seen displaced by it against its
    // neighbours until a layout places it. Kept as the reference does it.
    debug(t, u"PNC: setting point %ls", format(u"%d %d", result.x, result.y));
    SetComponentPoint(component, result);
    debug(t, u"PNC: setting offset %ls", format(u"%d %d", avgOff.x, avgOff.y));
    SetComponentOffset(component, avgOff);
}

}  // namespace nvk
