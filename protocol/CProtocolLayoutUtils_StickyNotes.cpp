// Sticky notes during layout: protocol notes moved on screen and kept clear of the
// networks, and the notes' new geometry written back.
#include "nvk/protocol/CProtocolLayoutUtils.h"

#include <algorithm>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolLayoutUtils_internal.h"

using namespace tovan;

namespace nvk {
using layout_utils_internal::boxesOverlap;

void CProtocolLayoutUtils::MoveProtocolStickyNotesOnscreen() {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (int k : protocolNotes_) {
        StickyNote& note = notes_[size_t(k)];
        Extent& e = note.extent;
        bool moved = false;
        if (e.top < 0) {
            debug(t, u"TOP violated: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
            e.bottom -= e.top;
            e.top = 0;
            moved = true;
        }
        if (e.left < 0) {
            debug(t, u"LEFT violated: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
            e.right -= e.left;
            e.left = 0;
            moved = true;
        }
        if (moved) {
            note.changed = true;
            debug(t, u"NEW position: TBLR %d %d %d %d", e.top, e.bottom, e.left, e.right);
        }
    }
}

bool CProtocolLayoutUtils::NetworkAndRegionOverlap(int n, const Extent& region) const {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (int c : networks_[size_t(n)].members) {
        Extent ce = ComponentExtent(c);
        if (!boxesOverlap(ce, region)) continue;
        debug(t, u"OVERLAP network %d component \"%ls\" [TBLR %d %d %d %d] with region: TBLR %d %d %d %d", n,
              displayName_[size_t(c)], ce.top, ce.bottom, ce.left, ce.right, region.top, region.bottom, region.left,
              region.right);
        return true;
    }
    return false;
}

bool CProtocolLayoutUtils::NetworkAndStickyNoteOverlap(int n, const StickyNote& note) const {
    return NetworkAndRegionOverlap(n, note.extent);
}

void CProtocolLayoutUtils::AvoidProtocolStickyNotes(int n, Extent& extent) {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (size_t k = 0; k < protocolNotes_.size(); ++k) {
        if (NetworkAndStickyNoteOverlap(n, notes_[size_t(protocolNotes_[k])])) {
            debug(t, u"For network %d: OVERLAP with protocol sticky note %d", n, int(k));
            AvoidProtocolStickyNote(n, int(k), extent);
        } else {
            debug(t, u"For network %d: NO overlap with protocol sticky note %d", n, int(k));
        }
    }
}

void CProtocolLayoutUtils::AvoidProtocolStickyNote(int n, int noteIndex, Extent& extent) {
    // The smallest of the four moves that clears the note by a margin; on a tie the
    // network moves before the note, right before down.
    static DebugTarget t("LayoutProtocolStickyNotes");
    StickyNote& note = notes_[size_t(protocolNotes_[size_t(noteIndex)])];
    Extent& e = note.extent;
    const int netRight = e.right + margin_ - extent.left;
    const int netDown = e.bottom + margin_ - extent.top;
    const int noteRight = extent.right + margin_ - e.left;
    const int noteDown = extent.bottom + margin_ - e.top;
    int best = std::min({netRight, netDown, noteRight, noteDown});
    if (best == netRight) {
        debug(t, u"net %d moving right %d to avoid sticky note %d TBLR(%d %d %d %d)", n, netRight, noteIndex, e.top,
              e.bottom, e.left, e.right);
        MoveNetwork(n, netRight, 0);
        extent.left += netRight;
        extent.right += netRight;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER move RIGHT %d", n, noteIndex, netRight);
    } else if (best == netDown) {
        debug(t, u"net %d moving down %d to avoid sticky note %d TBLR(%d %d %d %d)", n, netDown, noteIndex, e.top,
              e.bottom, e.left, e.right);
        MoveNetwork(n, 0, netDown);
        extent.top += netDown;
        extent.bottom += netDown;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER move DOWN %d", n, noteIndex, netDown);
    } else if (best == noteRight) {
        debug(t, u"net %d moving STICKY NOTE right %d to avoid net: note %d TBLR(%d %d %d %d)", n, noteRight, noteIndex,
              e.top, e.bottom, e.left, e.right);
        e.left += noteRight;
        e.right += noteRight;
        note.changed = true;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER STICKY NOTE move RIGHT %d", n, noteIndex,
              noteRight);
    } else {
        debug(t, u"net %d moving STICKY NOTE down %d to avoid net: note %d TBLR(%d %d %d %d)", n, noteDown, noteIndex,
              e.top, e.bottom, e.left, e.right);
        e.top += noteDown;
        e.bottom += noteDown;
        note.changed = true;
        debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER STICKY NOTE move DOWN %d", n, noteIndex,
              noteDown);
    }
}

void CProtocolLayoutUtils::SaveComponentStickyNotes(BitsetValue& changed) {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (size_t c = 0; c < components_.size(); ++c) {
        const auto& list = componentNotes_[c];
        if (list.empty()) continue;
        bool anyChanged = !(point_[c] == storedPoint_[c]);
        for (int k : list) anyChanged = anyChanged || notes_[size_t(k)].changed;
        if (!anyChanged) continue;
        std::vector<WString> items{WString(u"%VERSION 3%")};
        for (int k : list) {
            StickyNote& note = notes_[size_t(k)];
            note.geometry = StickyNoteGeometry(note.extent, point_[c]);
            debug(t, u"LTWH %d %d %d %d", note.extent.left + point_[c].x, -note.extent.top - point_[c].y,
                  note.extent.right - note.extent.left, note.extent.bottom - note.extent.top);
            items.push_back(note.geometry);
            items.push_back(note.text2);
            items.push_back(note.text3);
        }
        components_[c]->setTextArrayAttribute(NVK_ComponentStickyNotes, items);
        changed.set(c);
    }
}

void CProtocolLayoutUtils::SaveProtocolStickyNotes() {
    static DebugTarget t("LayoutProtocolStickyNotes");
    if (!ProtocolStickyNotesChanged()) {
        debug(t, u"Protocol Sticky Notes unchanged");
        return;
    }
    std::vector<WString> items{WString(u"%VERSION 3%")};
    for (int k : protocolNotes_) {
        StickyNote& note = notes_[size_t(k)];
        note.geometry = StickyNoteGeometry(note.extent, {0, 0});
        debug(t, u"LTWH %d %d %d %d", note.extent.left, -note.extent.top, note.extent.right - note.extent.left,
              note.extent.bottom - note.extent.top);
        items.push_back(note.geometry);
        items.push_back(note.text2);
        items.push_back(note.text3);
    }
    protocol_->setTextArrayAttribute(NVK_ProtocolStickyNotes, items);
}

}  // namespace nvk
