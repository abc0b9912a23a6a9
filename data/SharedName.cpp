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

// ---- drops gathered ------------------------------------------------------------------

namespace {

/// The gather living on this thread, if any.
__attribute__((tls_model("initial-exec"))) thread_local SharedName::Gather* t_gather = nullptr;

}  // namespace

void SharedName::dropGathered() {
    if (Gather* g = t_gather)
        g->drop(*this);
    else if (Block* b = std::exchange(block_, nullptr))
        drop(b);
}

SharedName::Gather::Gather() {
    if (!t_gather) {
        t_gather = this;
        active_ = true;
    }
}

SharedName::Gather::~Gather() {
    // An inner gather has no drops from dropGathered, but may have some given to it directly.
    if (active_) t_gather = nullptr;
    for (size_t w = 0; w < kEntries / 64; ++w)
        for (uint64_t bits = used_[w]; bits; bits &= bits - 1) {
            const Entry& e = entries_[w * 64 + size_t(__builtin_ctzll(bits))];
            dropMany(e.block, e.drops);
        }
}

void SharedName::Gather::addRecent(Block* b) {
    Entry& e = add(b);
    ++e.drops;
    recent_[1] = recent_[0];
    recent_[0] = &e;
}

SharedName::Gather::Entry& SharedName::Gather::add(Block* b) {
    const size_t i = size_t((reinterpret_cast<uintptr_t>(b) * 0x9E3779B97F4A7C15ull) >> 56);
    static_assert(kEntries == 256, "the index is the product's top byte");
    Entry& e = entries_[i];
    uint64_t& word = used_[i / 64];
    const uint64_t bit = uint64_t(1) << (i % 64);
    if (!(word & bit)) {
        word |= bit;
    } else if (e.block == b) {
        return e;
    } else {
        dropMany(e.block, e.drops);
    }
    e.block = b;
    e.drops = 0;
    return e;
}

void SharedName::Gather::dropMany(Block* b, uint32_t n) {
    if (b->refs.fetch_sub(n, std::memory_order_acq_rel) == n) destroy(b);
}

// ---- dictionary ---------------------------------------------------------------

/// Open addressing over the blocks' own hashes; the table holds one
/// reference per block.
struct NameDictionary::Table {
    // A stock per name: a reader hands the same names out once per record.
    std::vector<SharedName::Stock> slots = std::vector<SharedName::Stock>(64);
    size_t used = 0;

    SharedName::Stock& find(std::u16string_view text, uint32_t hash) {
        const size_t mask = slots.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask) {
            SharedName::Stock& s = slots[i];
            const SharedName& n = s.name();
            if (n.isNull() || (n.hash() == hash && n.text().view() == text)) return s;
        }
    }
    void grow() {
        std::vector<SharedName::Stock> old(slots.size() * 2);
        old.swap(slots);
        for (SharedName::Stock& s : old) {
            if (s.name().isNull()) continue;
            SharedName::Stock& to = find(s.name().text().view(), s.name().hash());
            to = std::move(s);
        }
    }
};

NameDictionary::NameDictionary() : table_(std::make_unique<Table>()) {}
NameDictionary::~NameDictionary() = default;

SharedName NameDictionary::get(std::u16string_view text) {
    const uint32_t hash = tovan::hashNoCase(text);
    SharedName::Stock& s = table_->find(text, hash);
    if (!s.name().isNull()) return s.take();
    s.reset(SharedName(text));
    SharedName made = s.take();
    // Kept at most half full, so that a probe ends soon at a free slot.
    if (++table_->used * 2 > table_->slots.size()) table_->grow();
    return made;
}

size_t NameDictionary::size() const { return table_->used; }

void NameDictionary::clear() {
    for (SharedName::Stock& s : table_->slots) s.reset();
    table_->used = 0;
}

}  // namespace nvk
