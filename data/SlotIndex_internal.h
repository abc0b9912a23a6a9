#pragma once
// The name index of a property collection's storage.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "nvk/data/CProperty.h"
#include "nvk/platform/HashMap.h"
#include "nvk/platform/String.h"

namespace nvk {

/// A map from a property name to the slot that holds it: the framework's hash
/// chains holding slot numbers only. The name is not copied into the index:
/// the property in the slot has it, so comparisons read it there, and the
/// name's hash is the one the property keeps. Building, clearing and filling
/// the index again therefore allocate nothing once the chains have grown,
/// where a map with its own copy of each name made two allocations per
/// property and was a fifth of the time of reading a JSON record.
///
/// Every entry must name a live slot of `slots` whenever the index is
/// searched: callers remove an entry before they empty its slot.
class SlotIndex {
public:
    using Slots = CProperty* const*;

private:
    /// Whether a slot holds the property called `name`: the key read from the slot.
    struct HoldsName {
        const tovan::WString& name;
        Slots slots;
        bool operator()(int32_t slot) const { return tovan::namesEqual(slots[size_t(slot)]->getName(), name); }
    };

public:
    explicit SlotIndex(size_t buckets) : chains_(buckets) {}

    size_t bucketCount() const { return chains_.bucketCount(); }
    void clear() { chains_.clear(); }
    void grow(size_t bucketCount) { chains_.grow(bucketCount); }

    /// The slot of `name`, or -1.
    int find(const tovan::WString& name, uint32_t hash, Slots slots) const {
        const int32_t* slot = chains_.find(hash, HoldsName{name, slots});
        return slot ? *slot : -1;
    }

    /// Maps the name of the property in `slot` to `slot`, replacing the
    /// entry of an equal name.
    void put(int slot, Slots slots) {
        const CProperty& p = *slots[size_t(slot)];
        if (int32_t* entry = chains_.find(p.getNameHash(), HoldsName{p.getName(), slots}))
            *entry = slot;
        else
            chains_.insert(p.getNameHash(), slot);
    }

    /// Removes the entry of `name`; false when there is none.
    bool remove(const tovan::WString& name, uint32_t hash, Slots slots) {
        return chains_.remove(hash, HoldsName{name, slots});
    }

    /// Swaps the entries of two live slots, for a swap of the slots' contents
    /// (before it: the names are looked up where they are now).
    void swapSlots(size_t a, size_t b, Slots slots) {
        const CProperty& pa = *slots[a];
        const CProperty& pb = *slots[b];
        int32_t* ea = chains_.find(pa.getNameHash(), HoldsName{pa.getName(), slots});
        int32_t* eb = chains_.find(pb.getNameHash(), HoldsName{pb.getName(), slots});
        if (ea) *ea = int32_t(b);
        if (eb) *eb = int32_t(a);
    }

private:
    tovan::HashChains<int32_t> chains_;
};

}  // namespace nvk
