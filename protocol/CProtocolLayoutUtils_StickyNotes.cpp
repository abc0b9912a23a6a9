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
    const int best = std::min({netRight, netDown, noteRight, noteDown});
    const bool moveNetwork = best == netRight || best == netDown;
    const bool right = moveNetwork ? best == netRight : best == noteRight;
    const int dx = right ? best : 0, dy = right ? 0 : best;
    Extent& moved = moveNetwork ? extent : e;
    if (moveNetwork) {
        debug(t, u"net %d moving %ls %d to avoid sticky note %d TBLR(%d %d %d %d)", n, right ? u"right" : u"down", best,
              noteIndex, e.top, e.bottom, e.left, e.right);
        MoveNetwork(n, dx, dy);
    } else {
        debug(t, u"net %d moving STICKY NOTE %ls %d to avoid net: note %d TBLR(%d %d %d %d)", n,
              right ? u"right" : u"down", best, noteIndex, e.top, e.bottom, e.left, e.right);
        note.changed = true;
    }
    moved.left += dx;
    moved.right += dx;
    moved.top += dy;
    moved.bottom += dy;
    debug(t, u"For network %d: NO overlap with protocol sticky note %d AFTER %lsmove %ls %d", n, noteIndex,
          moveNetwork ? u"" : u"STICKY NOTE ", right ? u"RIGHT" : u"DOWN", best);
}

void CProtocolLayoutUtils::SaveComponentStickyNotes(BitsetValue& changed) {
    static DebugTarget t("LayoutProtocolStickyNotes");
    for (size_t c = 0; c < components_.size(); ++c) {
        const auto& list = componentNotes_[c];
        if (list.empty()) continue;
        bool anyChanged = !(point_[c] == storedPoint_[c]);
        for (int k : list) anyChanged = anyChanged || notes_[size_t(k)].changed;
        if (!anyChanged) continue;
        // Read against the point without its offset, so written back against the same.
        const Point owner{point_[c].x - finalOffset_[c].x, point_[c].y - finalOffset_[c].y};
        std::vector<WString> items{WString(u"%VERSION 3%")};
        for (int k : list) {
            StickyNote& note = notes_[size_t(k)];
            note.geometry = StickyNoteGeometry(note.extent, owner);
            debug(t, u"LTWH %d %d %d %d", note.extent.left + owner.x, -note.extent.top - owner.y,
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
