#pragma once
// The framework's growable array.
#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "nvk/platform/Exception.h"

namespace tovan {

/// A growable array whose every positional access is checked: an index
/// outside the array raises InvalidIndexException("Array", operation, index,
/// size - 1), and the array is left unchanged. Iteration, size and the
/// unchecked data() pointer work as with std::vector.
///
/// Indexes are size_t; a negative int passed in shows up in the message as
/// the negative number it was. `Alloc` is the storage's allocator (array
/// values keep their elements in the per-thread value blocks); `Storage` the
/// container behind it (SmallVector keeps short arrays inside the object).
template <class T, class Alloc = std::allocator<T>, class Storage = std::vector<T, Alloc>>
class Array {

public:
    using value_type = T;
    using iterator = typename Storage::iterator;
    using const_iterator = typename Storage::const_iterator;
    using reference = typename Storage::reference;
    using const_reference = typename Storage::const_reference;

    Array() = default;
    Array(std::initializer_list<T> items) : items_(items) {}
    explicit Array(size_t count, const T& fill = T()) : items_(count, fill) {}

    size_t size() const { return items_.size(); }
    /// The size as an int, for code that counts with ints.
    int getSize() const { return int(items_.size()); }
    bool isEmpty() const { return items_.empty(); }

    reference operator[](size_t i) {
        check(i, "operator[]");
        return items_[i];
    }
    const_reference operator[](size_t i) const {
        check(i, "operator[]");
        return items_[i];
    }
    reference get(size_t i) {
        check(i, "get");
        return items_[i];
    }
    const_reference get(size_t i) const {
        check(i, "get");
        return items_[i];
    }
    void set(size_t i, T item) {
        check(i, "set");
        items_[i] = std::move(item);
    }
    reference last() {
        check(items_.size() - 1, "last");
        return items_.back();
    }
    const_reference last() const {
        check(items_.size() - 1, "last");
        return items_.back();
    }

    void append(T item) { items_.push_back(std::move(item)); }
    void push_back(T item) { items_.push_back(std::move(item)); }
    /// Inserts before position `i`; `i` may be the size (append). Beyond it:
    /// InvalidIndexException with the size as the last valid index.
    void insertAt(size_t i, T item) {
        if (i > items_.size()) outOfRange(i, items_.size() + 1, "insertAt");
        items_.insert(items_.begin() + std::ptrdiff_t(i), std::move(item));
    }
    void removeAt(size_t i) {
        check(i, "removeAt");
        items_.erase(items_.begin() + std::ptrdiff_t(i));
    }
    /// Removes and returns the last item.
    T removeLast() {
        check(items_.size() - 1, "removeLast");
        T item = std::move(items_.back());
        items_.pop_back();
        return item;
    }
    void removeAll() { items_.clear(); }
    void clear() { items_.clear(); }
    void reserve(size_t n) { items_.reserve(n); }
    /// Replaces the items by `n` whose bytes start at `bytes`, at any alignment (a stream's
    /// window), not inside this array; left as it was when the room cannot be had. For a
    /// storage that takes bytes (SmallVector).
    void assignBytes(const void* bytes, size_t n) { items_.assignBytes(bytes, n); }
    void resize(size_t n) { items_.resize(n); }
    void resize(size_t n, const T& fill) { items_.resize(n, fill); }

    /// Position of the first item equal to `item`, or -1.
    long long indexOf(const T& item) const {
        auto it = std::find(items_.begin(), items_.end(), item);
        return it == items_.end() ? -1 : (long long)(it - items_.begin());
    }
    bool contains(const T& item) const { return indexOf(item) >= 0; }

    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }
    const_iterator begin() const { return items_.begin(); }
    const_iterator end() const { return items_.end(); }
    auto data() { return items_.data(); }
    auto data() const { return items_.data(); }

    bool operator==(const Array& other) const { return items_ == other.items_; }

private:
    void check(size_t i, const char* operation) const {
        if (i >= items_.size()) [[unlikely]]
            outOfRange(i, items_.size(), operation);
    }
    [[noreturn, gnu::cold, gnu::noinline]] static void outOfRange(size_t i, size_t size, const char* operation) {
        throw InvalidIndexException("Array", operation, (long long)i, (long long)size - 1);
    }

    Storage items_;
};

}  // namespace tovan
