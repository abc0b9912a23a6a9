// Sticky notes: reading them during perception, their stored geometry, and access to the
// notes stored on a component or protocol.
#include "nvk/protocol/CProtocolUtils.h"

#include <cstdint>

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolUtils_internal.h"

using namespace tovan;

namespace nvk {
using protocol_utils_internal::kClass;
using protocol_utils_internal::requireComponent;

namespace {

/// Parses "a b w h": four integers separated by single spaces.
bool parseGeometry(const WString& text, int32_t out[4]) {
    std::u16string_view s = text.view();
    for (int k = 0; k < 4; ++k) {
        const size_t end = k < 3 ? s.find(u' ') : s.size();
        if (end == std::u16string_view::npos || !parseInteger(s.substr(0, end), out[k])) return false;
        s.remove_prefix(k < 3 ? end + 1 : end);
    }
    return true;
}

std::vector<WString> readNoteArray(const iAttributeHolder* owner, const wchar* key) {
    std::vector<WString> items;
    if (owner) owner->getTextArrayAttribute(key, items);
    return items;
}

const wchar* noteKey(const iAttributeHolder* owner) {
    return dynamic_cast<const iComponentInfo*>(owner) ? NVK_ComponentStickyNotes : NVK_ProtocolStickyNotes;
}

int noteCount(const std::vector<WString>& items) {
    if (items.empty() || (items.size() == 1 && items[0].isEmpty())) return 0;
    return int((items.size() - 1) / 3);
}

int countNotes(const iAttributeHolder* owner) {
    requireComponent(owner, "GetNumStickyNotes");
    return noteCount(readNoteArray(owner, noteKey(owner)));
}
void ithNote(const iAttributeHolder* owner, int i, WString& t1, WString& t2, WString& t3) {
    requireComponent(owner, "GetIthStickyNote");
    std::vector<WString> items = readNoteArray(owner, noteKey(owner));
    int count = noteCount(items);
    if (i < 0 || i >= count) throw InvalidIndexException(kClass, "GetIthStickyNote", i, count - 1);
    t1 = items[size_t(1 + 3 * i)];
    t2 = items[size_t(2 + 3 * i)];
    t3 = items[size_t(3 + 3 * i)];
}
void deleteNote(iAttributeHolder* owner, int i) {
    requireComponent(owner, "DeleteIthStickyNote");
    std::vector<WString> items = readNoteArray(owner, noteKey(owner));
    int count = noteCount(items);
    if (i < 0 || i >= count) throw InvalidIndexException(kClass, "DeleteIthStickyNote", i, count - 1);
    items.erase(items.begin() + 1 + 3 * i, items.begin() + 4 + 3 * i);
    items.resize(size_t(1 + 3 * (count - 1)));  // a trailing partial triple goes too
    owner->setTextArrayAttribute(noteKey(owner), items);
}

}  // namespace

void CProtocolUtils::PerceiveProtocolStickyNotes() { GetStickyNotes(protocol_.get(), -1); }

void CProtocolUtils::GetStickyNotes(const iAttributeHolder* owner, int ownerIndex) {
    std::vector<int>& list = ownerIndex < 0 ? protocolNotes_ : componentNotes_[size_t(ownerIndex)];
    list.clear();
    std::vector<WString> items = readNoteArray(owner, ownerIndex < 0 ? NVK_ProtocolStickyNotes : NVK_ComponentStickyNotes);
    if (noteCount(items) == 0 && (items.empty() || (items.size() == 1 && items[0].isEmpty()))) return;
    if (!(items[0] == u"%VERSION 3%"))
        throw Exception(kClass, "GetStickyNotes", u"Cannot handle older-version sticky notes yet :(");
    // The owner's point is its laid-out place, the offset taken off, as perception sees it.
    Point owner0 = ownerIndex < 0 ? Point{} : point_[size_t(ownerIndex)];
    for (int i = 0; i < noteCount(items); ++i) {
        StickyNote note;
        note.geometry = items[size_t(1 + 3 * i)];
        note.text2 = items[size_t(2 + 3 * i)];
        note.text3 = items[size_t(3 + 3 * i)];
        int32_t g[4];
        if (!parseGeometry(note.geometry, g))
            throw Exception(kClass, "GetStickyNotes", u"Sticky note %d has unreadable geometry \"%ls\"", i,
                            note.geometry);
        // The stored vertical term is negated and carries the owner's Y, the horizontal one
        // is relative to the owner's X: the stored format's asymmetry, kept exactly.
        note.extent.top = -(owner0.y + g[1]);
        note.extent.bottom = note.extent.top + g[3];
        note.extent.left = g[0] - owner0.x;
        note.extent.right = note.extent.left + g[2];
        note.owner = ownerIndex;
        note.isProtocolNote = ownerIndex < 0;
        note.changed = false;
        notes_.push_back(std::move(note));
        list.push_back(int(notes_.size()) - 1);
    }
}

WString CProtocolUtils::StickyNoteGeometry(const Extent& e, Point ownerPoint) {
    return format(u"%d %d %d %d", e.left + ownerPoint.x, -e.top - ownerPoint.y, e.right - e.left, e.bottom - e.top);
}

const std::vector<int>& CProtocolUtils::GetComponentStickyNotes(int index) const {
    CheckIndex(index, "GetComponentStickyNotes");
    return componentNotes_[size_t(index)];
}

int CProtocolUtils::GetNumStickyNotes(const iComponentInfo* owner) { return countNotes(owner); }
int CProtocolUtils::GetNumStickyNotes(const iProtocolInfo* owner) { return countNotes(owner); }
void CProtocolUtils::GetIthStickyNote(const iComponentInfo* owner, int i, WString& t1, WString& t2, WString& t3) {
    ithNote(owner, i, t1, t2, t3);
}
void CProtocolUtils::GetIthStickyNote(const iProtocolInfo* owner, int i, WString& t1, WString& t2, WString& t3) {
    ithNote(owner, i, t1, t2, t3);
}
void CProtocolUtils::DeleteIthStickyNote(iComponentInfo* owner, int i) { deleteNote(owner, i); }
void CProtocolUtils::DeleteIthStickyNote(iProtocolInfo* owner, int i) { deleteNote(owner, i); }

bool CProtocolUtils::ProtocolStickyNotesChanged() const {
    for (int k : protocolNotes_)
        if (notes_[size_t(k)].changed) return true;
    return false;
}

}  // namespace nvk
