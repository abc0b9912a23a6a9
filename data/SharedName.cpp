#include "nvk/data/SharedName.h"

#include <vector>

#include "nvk/platform/PerThread_internal.h"
#include "nvk/platform/Pool.h"

namespace nvk {

using tovan::WString;

const WString SharedName::s_null;

namespace {

// Never destroyed: blocks may die during exit, after static detectors would.
tovan::LeakDetector& detector() {
    static tovan::LeakDetector* d = new tovan::LeakDetector("SharedName");
    return *d;
}

/// The last names made on one thread, by hash: a name defined again finds its
/// block here. The table's own references are taken off the detector's count.
struct ThreadTable {
    static constexpr size_t kSize = 256;
    SharedName entries[kSize];
    ~ThreadTable();
};

ThreadTable::~ThreadTable() {
    for (SharedName& e : entries)
        if (!e.isNull()) detector().AddToLeakDetector();
}

/// This thread's table; null once the thread is ending.
ThreadTable* threadTable() { return tovan::PerThread<ThreadTable>::get(); }

}  // namespace

SharedName::Block* SharedName::make(std::u16string_view text) {
    auto* b = new Block(WString(text), tovan::hashNoCase(text));
    detector().AddToLeakDetector();
    return b;
}

void SharedName::destroy(Block* b) {
    detector().RemoveFromLeakDetector();
    delete b;
}

SharedName::SharedName(std::u16string_view text) : block_(make(text)) {}

SharedName::SharedName(const WString& text) : block_(text.isNull() ? nullptr : make(text.view())) {}

SharedName SharedName::cached(const WString& text) { return text.isNull() ? SharedName() : cached(text.view()); }

namespace {

bool sameText(const WString& held, std::u16string_view text) { return held.view() == text; }

bool sameText(const WString& held, std::string_view ascii) {
    const std::u16string_view units = held.view();
    if (units.size() != ascii.size()) return false;
    for (size_t i = 0; i < units.size(); ++i)
        if (units[i] != char16_t(uint8_t(ascii[i]))) return false;
    return true;
}

WString widen(std::u16string_view text) { return WString(text); }

WString widen(std::string_view ascii) {
    std::u16string units(ascii.size(), u'\0');
    for (size_t i = 0; i < ascii.size(); ++i) units[i] = char16_t(uint8_t(ascii[i]));
    return WString(std::move(units));
}

}  // namespace

template <class Text>
SharedName SharedName::cachedIn(Text text, uint32_t hash) {
    ThreadTable* table = threadTable();
    if (!table) return SharedName(widen(text));
    // Mixed so that names differing only in their last unit spread out.
    SharedName& entry = table->entries[(hash ^ (hash >> 8) ^ (hash >> 16)) % ThreadTable::kSize];
    if (entry.block_ && entry.block_->hash == hash && sameText(entry.block_->text, text)) return entry;
    SharedName fresh;
    fresh.block_ = new Block(widen(text), hash);
    // Counted while something besides the table holds it: the copy handed
    // out now; the table's reference is not.
    if (!entry.isNull()) detector().AddToLeakDetector();
    entry = fresh;
    return fresh;
}

SharedName SharedName::cached(std::u16string_view text) { return cachedIn(text, tovan::hashNoCase(text)); }

SharedName SharedName::cachedAscii(std::string_view text) {
    uint32_t hash = 0;  // tovan::hashNoCase of the widened text
    for (char c : text) hash = hash * 31u + uint8_t(tovan::foldByte(c));
    return cachedIn(text, hash);
}

long SharedName::liveBlocks() { return detector().live(); }

// ---- dictionary ---------------------------------------------------------------

/// Open addressing over the blocks' own hashes; the table holds one
/// reference per block.
struct NameDictionary::Table {
    std::vector<SharedName> slots = std::vector<SharedName>(64);
    size_t used = 0;

    SharedName& find(std::u16string_view text, uint32_t hash) {
        const size_t mask = slots.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask) {
            SharedName& s = slots[i];
            if (s.isNull() || (s.hash() == hash && s.text().view() == text)) return s;
        }
    }
    void grow() {
        std::vector<SharedName> old(slots.size() * 2);
        old.swap(slots);
        for (SharedName& s : old) {
            if (s.isNull()) continue;
            SharedName& to = find(s.text().view(), s.hash());
            to = std::move(s);
        }
    }
};

NameDictionary::NameDictionary() : table_(std::make_unique<Table>()) {}
NameDictionary::~NameDictionary() = default;

SharedName NameDictionary::get(std::u16string_view text) {
    const uint32_t hash = tovan::hashNoCase(text);
    SharedName& s = table_->find(text, hash);
    if (!s.isNull()) return s;
    s = SharedName(text);
    // Kept at most half full, so that a probe ends soon at a free slot.
    if (++table_->used * 2 > table_->slots.size()) {
        SharedName made = s;
        table_->grow();
        return made;
    }
    return s;
}

size_t NameDictionary::size() const { return table_->used; }

void NameDictionary::clear() {
    for (SharedName& s : table_->slots) s = SharedName();
    table_->used = 0;
}

}  // namespace nvk
