#pragma once
// Ordered sets of counted objects that hold one reference on each element:
// the result containers of node and property queries.
#include <algorithm>
#include <cstddef>
#include <unordered_set>
#include <utility>
#include <vector>

#include "nvk/platform/iNode.h"
#include "nvk/platform/iPropertyCollection.h"

namespace tovan {

/// An insertion-ordered set of `T*` (T is a CountedObject) holding one
/// reference on every element for as long as it is in the set. Adding an
/// element that is already present does nothing, so a query that reaches the
/// same node along two paths lists it once, at its first position.
///
/// Membership is checked by a linear scan while the set is small and through a
/// hash set once it reaches `kHashFrom` elements, so building a large result
/// stays linear.
template <class T>
class ReferenceSet {
public:
    static constexpr size_t kHashFrom = 16;

    ReferenceSet() = default;
    ReferenceSet(const ReferenceSet& other) {
        for (T* e : other.items_) add(e);
    }
    ReferenceSet(ReferenceSet&& other) noexcept
        : items_(std::move(other.items_)), lookup_(std::move(other.lookup_)) {
        other.items_.clear();
        other.lookup_.clear();
    }
    ReferenceSet& operator=(ReferenceSet other) noexcept {
        std::swap(items_, other.items_);
        std::swap(lookup_, other.lookup_);
        return *this;
    }
    ~ReferenceSet() { clear(); }

    size_t size() const { return items_.size(); }
    /// The count as the framework's `int` (the interfaces count with int).
    int getCount() const { return int(items_.size()); }
    bool isEmpty() const { return items_.empty(); }

    /// The element at `i`; raises InvalidIndexException (index, last valid
    /// index) when `i` is outside the set.
    T* get(long long i) const {
        if (i < 0 || size_t(i) >= items_.size())
            throw InvalidIndexException("ReferenceSet", "get", i, (long long)items_.size() - 1);
        return items_[size_t(i)];
    }
    T* operator[](size_t i) const { return items_[i]; }
    /// The first element, or null when the set is empty.
    T* first() const { return items_.empty() ? nullptr : items_.front(); }

    bool contains(const T* e) const {
        if (!lookup_.empty()) return lookup_.count(e) != 0;
        return std::find(items_.begin(), items_.end(), e) != items_.end();
    }
    /// Position of `e`, or -1.
    int indexOf(const T* e) const {
        auto it = std::find(items_.begin(), items_.end(), e);
        return it == items_.end() ? -1 : int(it - items_.begin());
    }

    /// Appends `e` and takes a reference on it; false (and no change) when
    /// `e` is null or already in the set.
    bool add(T* e) {
        if (!e || contains(e)) return false;
        if (items_.size() == items_.capacity()) items_.reserve(items_.capacity() < 4 ? 4 : items_.capacity() * 2);
        if (items_.size() + 1 >= kHashFrom) {
            if (lookup_.empty()) lookup_.insert(items_.begin(), items_.end());
            lookup_.insert(e);
        }
        items_.push_back(e);
        e->addRef();
        return true;
    }
    /// Removes `e` and drops its reference; false when it is not there.
    bool remove(const T* e) {
        int i = indexOf(e);
        if (i < 0) return false;
        removeAt(size_t(i));
        return true;
    }
    void removeAt(size_t i) {
        if (i >= items_.size())
            throw InvalidIndexException("ReferenceSet", "removeAt", (long long)i, (long long)items_.size() - 1);
        T* e = items_[i];
        items_.erase(items_.begin() + std::ptrdiff_t(i));
        lookup_.erase(e);
        e->release();
    }
    /// Drops every element (and its reference).
    void clear() {
        std::vector<T*> doomed;
        doomed.swap(items_);
        lookup_.clear();
        for (T* e : doomed) e->release();
    }

    typename std::vector<T*>::const_iterator begin() const { return items_.begin(); }
    typename std::vector<T*>::const_iterator end() const { return items_.end(); }

private:
    std::vector<T*> items_;
    std::unordered_set<const T*> lookup_;  // filled once the set reaches kHashFrom
};

/// The nodes a query selected, in the order the evaluator found them.
class NodeReferenceSet : public ReferenceSet<iNode> {
public:
    using ReferenceSet::ReferenceSet;
};

/// The properties a query selected, in the order the evaluator found them.
class PropertyReferenceSet : public ReferenceSet<iProperty> {
public:
    using ReferenceSet::ReferenceSet;
};

}  // namespace tovan
