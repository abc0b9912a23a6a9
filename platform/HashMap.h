#pragma once
// The framework's chained hash map, and the chains under it.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/String.h"

namespace tovan {

/// The default hash policy: std::hash folded to 32 bits.
template <class K>
struct DefaultHash {
    uint32_t operator()(const K& key) const {
        auto h = std::hash<K>()(key);
        return uint32_t(h ^ (uint64_t(h) >> 32));
    }
};

template <class K>
struct DefaultEqual {
    bool operator()(const K& a, const K& b) const { return a == b; }
};

/// Names: the hash h * 31 + folded unit (A-Z folded only), the same for both
/// cases of a name.
struct NameHashFoldAZ {
    uint32_t operator()(const WString& key) const { return hashNoCase(key.view()); }
};
/// Names equal when they match with A-Z folded; a null name equals only null.
struct NameEqualFoldAZ {
    bool operator()(const WString& a, const WString& b) const { return namesEqual(a, b); }
};

/// Separate chaining over an explicit bucket array, holding `Item`s that
/// each carry their key's 32-bit hash. It is the storage of HashMap and of
/// indexes whose key lives elsewhere (a property collection's name index
/// keeps only slot numbers and reads the names from the slots): every lookup
/// takes the hash and a predicate that says whether an item holds the key.
///
/// The table starts with the bucket count its owner gives. grow(n) rehashes
/// every item into bucket `hash % n` and sets the growth threshold to
/// n * 0.75, truncated; insert() grows to 2n + 1 buckets when the item count
/// would pass the threshold. grow(0) raises Exception "Cannot resize a hash
/// map to 0". Lookups need at least one bucket; HashMap checks for that.
///
/// Items live in one array and chains link them by position, with removed
/// places kept for reuse, so filling a table again after clear() allocates
/// nothing. A chain lists its items newest first, and a rehash keeps that
/// order bucket by bucket, which is the order forEach visits.
template <class Item>
class HashChains {
public:
    explicit HashChains(size_t bucketCount) : buckets_(bucketCount, kNone), threshold_(thresholdFor(bucketCount)) {}

    size_t size() const { return count_; }
    size_t bucketCount() const { return buckets_.size(); }
    size_t threshold() const { return threshold_; }
    /// Items in bucket `b` (for tests and tuning).
    size_t bucketLength(size_t b) const {
        size_t n = 0;
        for (int32_t e = b < buckets_.size() ? buckets_[b] : kNone; e != kNone; e = entries_[size_t(e)].next) ++n;
        return n;
    }

    /// The item with hash `hash` for which `matches(item)` holds, or null.
    template <class Match>
    Item* find(uint32_t hash, Match&& matches) {
        for (int32_t e = buckets_[hash % buckets_.size()]; e != kNone; e = entries_[size_t(e)].next) {
            Entry& entry = entries_[size_t(e)];
            if (entry.hash == hash && matches(std::as_const(entry.item))) return &entry.item;
        }
        return nullptr;
    }
    template <class Match>
    const Item* find(uint32_t hash, Match&& matches) const {
        return const_cast<HashChains*>(this)->find(hash, std::forward<Match>(matches));
    }

    /// Adds an item whose key is not in the table yet.
    Item& insert(uint32_t hash, Item item) {
        if (count_ + 1 > threshold_) grow(buckets_.size() * 2 + 1);
        int32_t e = free_;
        if (e != kNone) {
            free_ = entries_[size_t(e)].next;
        } else {
            e = int32_t(entries_.size());
            entries_.emplace_back();
        }
        int32_t& head = buckets_[hash % buckets_.size()];
        Entry& entry = entries_[size_t(e)];
        entry = Entry{std::move(item), hash, head};
        head = e;
        ++count_;
        return entry.item;
    }

    /// Removes the item `find` would give; false when there is none.
    template <class Match>
    bool remove(uint32_t hash, Match&& matches) {
        for (int32_t* link = &buckets_[hash % buckets_.size()]; *link != kNone; link = &entries_[size_t(*link)].next) {
            Entry& entry = entries_[size_t(*link)];
            if (entry.hash == hash && matches(std::as_const(entry.item))) {
                const int32_t e = *link;
                *link = entry.next;
                entry = Entry{Item(), 0, free_};  // drops what the item held
                free_ = e;
                --count_;
                return true;
            }
        }
        return false;
    }

    /// Rehashes every item into `bucketCount` buckets.
    void grow(size_t bucketCount) {
        if (bucketCount == 0) throw Exception("HashMap", "grow", u"Cannot resize a hash map to 0");
        std::vector<int32_t> fresh(bucketCount, kNone);
        for (int32_t head : buckets_) {
            while (head != kNone) {
                Entry& entry = entries_[size_t(head)];
                const int32_t next = entry.next;
                int32_t& slot = fresh[entry.hash % bucketCount];
                entry.next = slot;
                slot = head;
                head = next;
            }
        }
        buckets_.swap(fresh);
        threshold_ = thresholdFor(bucketCount);
    }

    /// Drops every item; the bucket count stays.
    void clear() {
        std::fill(buckets_.begin(), buckets_.end(), kNone);
        entries_.clear();
        free_ = kNone;
        count_ = 0;
    }

    /// Calls f(item) for every item, bucket by bucket.
    template <class F>
    void forEach(F&& f) {
        for (int32_t e : buckets_)
            for (; e != kNone; e = entries_[size_t(e)].next) f(entries_[size_t(e)].item);
    }
    template <class F>
    void forEach(F&& f) const {
        for (int32_t e : buckets_)
            for (; e != kNone; e = entries_[size_t(e)].next) f(std::as_const(entries_[size_t(e)].item));
    }

private:
    static constexpr int32_t kNone = -1;
    struct Entry {
        Item item{};
        uint32_t hash = 0;
        int32_t next = kNone;  // the next item of the chain, or of the free list
    };

    static size_t thresholdFor(size_t buckets) { return size_t(double(buckets) * 0.75); }

    std::vector<int32_t> buckets_;  // first item of each chain
    std::vector<Entry> entries_;
    int32_t free_ = kNone;  // removed places, for reuse
    size_t count_ = 0;
    size_t threshold_;
};

/// The framework's hash map: keys and values held in HashChains.
///
/// The map starts with the bucket count its owner gives and grows by the
/// chains' rule. A map made with 0 buckets is legal but unusable until
/// grow() gives it some: find, put and remove raise Exception "Tried to find
/// in a hash map with 0 buckets", "Tried to put into a hash map with 0
/// buckets", "Tried to remove from hash map with 0 buckets"; grow(0) raises
/// "Cannot resize a hash map to 0"; find_KeyDefinitelyExists of an absent key
/// raises "find_KeyDefinitelyExists: Did not find item". A failed call leaves
/// the map unchanged.
///
/// `Hash` returns a uint32_t; the hash of each entry is computed once and kept.
template <class K, class V, class Hash = DefaultHash<K>, class Equal = DefaultEqual<K>>
class HashMap {
    struct Entry {
        K key;
        V value;
    };

public:
    explicit HashMap(size_t bucketCount = 31, Hash hash = Hash(), Equal equal = Equal())
        : chains_(bucketCount), hash_(hash), equal_(equal) {}
    void swap(HashMap& other) noexcept {
        std::swap(chains_, other.chains_);
        std::swap(hash_, other.hash_);
        std::swap(equal_, other.equal_);
    }

    size_t size() const { return chains_.size(); }
    bool isEmpty() const { return chains_.size() == 0; }
    size_t bucketCount() const { return chains_.bucketCount(); }
    size_t threshold() const { return chains_.threshold(); }
    /// Entries in bucket `b` (for tests and tuning).
    size_t bucketLength(size_t b) const { return chains_.bucketLength(b); }

    /// The value stored under `key`, or null.
    V* find(const K& key) {
        if (chains_.bucketCount() == 0)
            throw Exception("HashMap", "find", u"Tried to find in a hash map with 0 buckets");
        Entry* e = lookup(key, uint32_t(hash_(key)));
        return e ? &e->value : nullptr;
    }
    const V* find(const K& key) const { return const_cast<HashMap*>(this)->find(key); }
    bool contains(const K& key) const { return find(key) != nullptr; }

    /// The value under a key the caller knows is present.
    V& find_KeyDefinitelyExists(const K& key) {
        V* v = find(key);
        if (!v) throw Exception("HashMap", "find_KeyDefinitelyExists", u"find_KeyDefinitelyExists: Did not find item");
        return *v;
    }

    /// Stores `value` under `key`, replacing an existing value. Returns true
    /// when the key was new.
    bool put(const K& key, V value) {
        if (chains_.bucketCount() == 0)
            throw Exception("HashMap", "put", u"Tried to put into a hash map with 0 buckets");
        const uint32_t h = uint32_t(hash_(key));
        if (Entry* e = lookup(key, h)) {
            e->value = std::move(value);
            return false;
        }
        chains_.insert(h, Entry{key, std::move(value)});
        return true;
    }

    /// Removes `key`; false when it was not there.
    bool remove(const K& key) {
        if (chains_.bucketCount() == 0)
            throw Exception("HashMap", "remove", u"Tried to remove from hash map with 0 buckets");
        return chains_.remove(uint32_t(hash_(key)), [&](const Entry& e) { return equal_(e.key, key); });
    }

    /// Rehashes every entry into `bucketCount` buckets.
    void grow(size_t bucketCount) { chains_.grow(bucketCount); }

    /// Drops every entry; the bucket count stays.
    void clear() { chains_.clear(); }

    /// Calls f(key, value) for every entry, bucket by bucket.
    template <class F>
    void forEach(F&& f) {
        chains_.forEach([&](Entry& e) { f(std::as_const(e.key), e.value); });
    }
    template <class F>
    void forEach(F&& f) const {
        chains_.forEach([&](const Entry& e) { f(e.key, e.value); });
    }

private:
    Entry* lookup(const K& key, uint32_t h) {
        return chains_.find(h, [&](const Entry& e) { return equal_(e.key, key); });
    }

    HashChains<Entry> chains_;
    Hash hash_;
    Equal equal_;
};

}  // namespace tovan
