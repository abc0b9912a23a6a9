#pragma once
// The framework's chained hash map.
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

/// A hash map with separate chaining over an explicit bucket array.
///
/// The map starts with the bucket count its owner gives (the property
/// collection's index uses 31). grow(n) rehashes every entry into bucket
/// `hash % n` and sets the growth threshold to n * 0.75, truncated; put()
/// grows to 2n + 1 buckets when the entry count would pass the threshold.
///
/// A map made with 0 buckets is legal but unusable until grow() gives it
/// some: find, put and remove raise Exception "Tried to find in a hash map
/// with 0 buckets", "Tried to put into a hash map with 0 buckets", "Tried to
/// remove from hash map with 0 buckets"; grow(0) raises "Cannot resize a hash
/// map to 0"; findExisting of an absent key raises "find_KeyDefinitelyExists:
/// Did not find item". A failed call leaves the map unchanged.
///
/// `Hash` returns a uint32_t; the hash of each entry is computed once and kept.
template <class K, class V, class Hash = DefaultHash<K>, class Equal = DefaultEqual<K>>
class HashMap {
    struct Entry {
        K key;
        V value;
        uint32_t hash;
        Entry* next;
    };

public:
    explicit HashMap(size_t bucketCount = 31, Hash hash = Hash(), Equal equal = Equal())
        : buckets_(bucketCount, nullptr), threshold_(thresholdFor(bucketCount)), hash_(hash), equal_(equal) {}
    ~HashMap() { clear(); }
    HashMap(const HashMap& other)
        : buckets_(other.buckets_.size(), nullptr), threshold_(other.threshold_), hash_(other.hash_),
          equal_(other.equal_) {
        other.forEach([&](const K& k, const V& v) { insertNew(k, v, hashOf(k)); });
    }
    HashMap& operator=(const HashMap& other) {
        if (this != &other) {
            HashMap copy(other);
            swap(copy);
        }
        return *this;
    }
    HashMap(HashMap&& other) noexcept { swap(other); }
    HashMap& operator=(HashMap&& other) noexcept {
        swap(other);
        return *this;
    }
    void swap(HashMap& other) noexcept {
        std::swap(buckets_, other.buckets_);
        std::swap(count_, other.count_);
        std::swap(threshold_, other.threshold_);
        std::swap(hash_, other.hash_);
        std::swap(equal_, other.equal_);
    }

    size_t size() const { return count_; }
    bool isEmpty() const { return count_ == 0; }
    size_t bucketCount() const { return buckets_.size(); }
    size_t threshold() const { return threshold_; }
    /// Entries in bucket `b` (for tests and tuning).
    size_t bucketLength(size_t b) const {
        size_t n = 0;
        for (Entry* e = b < buckets_.size() ? buckets_[b] : nullptr; e; e = e->next) ++n;
        return n;
    }

    /// The value stored under `key`, or null.
    V* find(const K& key) {
        if (buckets_.empty()) throw Exception("HashMap", "find", u"Tried to find in a hash map with 0 buckets");
        Entry* e = lookup(key, hashOf(key));
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
        if (buckets_.empty()) throw Exception("HashMap", "put", u"Tried to put into a hash map with 0 buckets");
        const uint32_t h = hashOf(key);
        if (Entry* e = lookup(key, h)) {
            e->value = std::move(value);
            return false;
        }
        if (count_ + 1 > threshold_) grow(buckets_.size() * 2 + 1);
        insertNew(key, std::move(value), h);
        return true;
    }

    /// Removes `key`; false when it was not there.
    bool remove(const K& key) {
        if (buckets_.empty()) throw Exception("HashMap", "remove", u"Tried to remove from hash map with 0 buckets");
        const uint32_t h = hashOf(key);
        for (Entry** link = &buckets_[h % buckets_.size()]; *link; link = &(*link)->next) {
            Entry* e = *link;
            if (e->hash == h && equal_(e->key, key)) {
                *link = e->next;
                delete e;
                --count_;
                return true;
            }
        }
        return false;
    }

    /// Rehashes every entry into `bucketCount` buckets.
    void grow(size_t bucketCount) {
        if (bucketCount == 0) throw Exception("HashMap", "grow", u"Cannot resize a hash map to 0");
        std::vector<Entry*> fresh(bucketCount, nullptr);
        for (Entry* head : buckets_) {
            while (head) {
                Entry* next = head->next;
                Entry*& slot = fresh[head->hash % bucketCount];
                head->next = slot;
                slot = head;
                head = next;
            }
        }
        buckets_.swap(fresh);
        threshold_ = thresholdFor(bucketCount);
    }

    /// Drops every entry; the bucket count stays.
    void clear() {
        for (Entry*& head : buckets_) {
            while (head) {
                Entry* next = head->next;
                delete head;
                head = next;
            }
        }
        count_ = 0;
    }

    /// Calls f(key, value) for every entry, bucket by bucket.
    template <class F>
    void forEach(F&& f) {
        for (Entry* e : buckets_)
            for (; e; e = e->next) f(std::as_const(e->key), e->value);
    }
    template <class F>
    void forEach(F&& f) const {
        for (const Entry* e : buckets_)
            for (; e; e = e->next) f(e->key, std::as_const(e->value));
    }

private:
    static size_t thresholdFor(size_t buckets) { return size_t(double(buckets) * 0.75); }
    uint32_t hashOf(const K& key) const { return uint32_t(hash_(key)); }

    Entry* lookup(const K& key, uint32_t h) const {
        for (Entry* e = buckets_[h % buckets_.size()]; e; e = e->next)
            if (e->hash == h && equal_(e->key, key)) return e;
        return nullptr;
    }
    void insertNew(const K& key, V value, uint32_t h) {
        Entry*& slot = buckets_[h % buckets_.size()];
        slot = new Entry{key, std::move(value), h, slot};
        ++count_;
    }

    std::vector<Entry*> buckets_;
    size_t count_ = 0;
    size_t threshold_ = 0;
    Hash hash_;
    Equal equal_;
};

}  // namespace tovan
