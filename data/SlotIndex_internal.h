#pragma once
// The name index of a property collection's storage.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "nvk/data/CProperty.h"
#include "nvk/platform/String.h"

namespace nvk {

/// A chained hash map from a property name to the slot that holds it, with
/// the growth rules of the framework's hash map (start at the owner's bucket
/// count; `grow(n)` rehashes into `hash % n` and sets the threshold to
/// n * 0.75; a put that would pass the threshold grows to 2n + 1 buckets).
///
/// An entry keeps the slot and the name's hash but not the name: the
/// property in the slot has it, so comparisons read it there. Entries live in
/// one array and chains link them by position. Building, clearing and
/// filling the index again therefore allocate nothing once the arrays have
/// grown, where a map with its own copy of each name made two allocations per
/// property and was a fifth of the time of reading a JSON record.
///
/// Every entry must name a live slot of `slots` whenever the index is
/// searched: callers remove an entry before they empty its slot.
class SlotIndex {
public:
    using Slots = std::vector<CProperty*>;

    explicit SlotIndex(size_t buckets) : buckets_(buckets, kNone), threshold_(thresholdFor(buckets)) {}

    size_t bucketCount() const { return buckets_.size(); }

    /// Drops every entry; the bucket count stays.
    void clear() {
        std::fill(buckets_.begin(), buckets_.end(), kNone);
        entries_.clear();
        free_ = kNone;
        count_ = 0;
    }

    void grow(size_t bucketCount) {
        buckets_.assign(bucketCount, kNone);
        for (int32_t e = 0; e < int32_t(entries_.size()); ++e) {
            Entry& entry = entries_[size_t(e)];
            if (entry.slot < 0) continue;  // on the free list
            int32_t& head = buckets_[entry.hash % bucketCount];
            entry.next = head;
            head = e;
        }
        threshold_ = thresholdFor(bucketCount);
    }

    /// The slot of `name`, or -1.
    int find(const tovan::WString& name, uint32_t hash, const Slots& slots) const {
        int32_t e = entryOf(name, hash, slots);
        return e == kNone ? -1 : entries_[size_t(e)].slot;
    }

    /// Maps the name of the property in `slot` to `slot`, replacing the
    /// entry of an equal name.
    void put(int slot, const Slots& slots) {
        const CProperty& p = *slots[size_t(slot)];
        const uint32_t hash = p.getNameHash();
        int32_t e = entryOf(p.getName(), hash, slots);
        if (e != kNone) {
            entries_[size_t(e)].slot = slot;
            return;
        }
        if (count_ + 1 > threshold_) grow(buckets_.size() * 2 + 1);
        if (free_ != kNone) {
            e = free_;
            free_ = entries_[size_t(e)].next;
        } else {
            e = int32_t(entries_.size());
            entries_.emplace_back();
        }
        int32_t& head = buckets_[hash % buckets_.size()];
        entries_[size_t(e)] = Entry{hash, slot, head};
        head = e;
        ++count_;
    }

    /// Removes the entry of `name`; false when there is none.
    bool remove(const tovan::WString& name, uint32_t hash, const Slots& slots) {
        for (int32_t* link = &buckets_[hash % buckets_.size()]; *link != kNone; link = &entries_[size_t(*link)].next) {
            Entry& entry = entries_[size_t(*link)];
            if (entry.hash == hash && tovan::namesEqual(slots[size_t(entry.slot)]->getName(), name)) {
                const int32_t e = *link;
                *link = entry.next;
                entry.slot = -1;
                entry.next = free_;
                free_ = e;
                --count_;
                return true;
            }
        }
        return false;
    }

    /// Swaps the entries of two live slots, for a swap of the slots' contents
    /// (before it: the names are looked up where they are now).
    void swapSlots(size_t a, size_t b, const Slots& slots) {
        const CProperty& pa = *slots[a];
        const CProperty& pb = *slots[b];
        const int32_t ea = entryOf(pa.getName(), pa.getNameHash(), slots);
        const int32_t eb = entryOf(pb.getName(), pb.getNameHash(), slots);
        if (ea != kNone) entries_[size_t(ea)].slot = int32_t(b);
        if (eb != kNone) entries_[size_t(eb)].slot = int32_t(a);
    }

private:
    static constexpr int32_t kNone = -1;
    struct Entry {
        uint32_t hash = 0;
        int32_t slot = -1;  // -1 while on the free list
        int32_t next = kNone;
    };

    static size_t thresholdFor(size_t buckets) { return size_t(double(buckets) * 0.75); }

    int32_t entryOf(const tovan::WString& name, uint32_t hash, const Slots& slots) const {
        for (int32_t e = buckets_[hash % buckets_.size()]; e != kNone; e = entries_[size_t(e)].next) {
            const Entry& entry = entries_[size_t(e)];
            if (entry.hash == hash && tovan::namesEqual(slots[size_t(entry.slot)]->getName(), name)) return e;
        }
        return kNone;
    }

    std::vector<int32_t> buckets_;  // first entry of each chain
    std::vector<Entry> entries_;
    int32_t free_ = kNone;  // removed entries, for reuse
    size_t count_ = 0;
    size_t threshold_;
};

}  // namespace nvk
