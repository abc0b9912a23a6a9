#pragma once
// A vector that keeps its first few elements inside itself.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace tovan {

/// The storage of Array when most arrays are short: up to `InlineBytes` of
/// elements live inside the object, longer ones in a block from `Alloc`.
/// A point or a pair of indexes then costs its value one block instead of
/// two. Elements must be trivially copyable (they are moved with memcpy);
/// the count is held in 32 bits, so growing past 4,294,967,295 elements
/// raises std::length_error, as a std::vector does past its max_size().
/// Moving a short vector copies its elements: pointers into it do not
/// survive a move, unlike a std::vector's.
template <class T, size_t InlineBytes, class Alloc = std::allocator<T>>
class SmallVector {
    static_assert(std::is_trivially_copyable_v<T>, "SmallVector moves its elements with memcpy");
    static constexpr uint32_t kInline = uint32_t(InlineBytes / sizeof(T));
    static_assert(kInline > 0, "room for at least one element inside");

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;
    using reference = T&;
    using const_reference = const T&;

    SmallVector() = default;
    SmallVector(std::initializer_list<T> items) { assignFrom(items.begin(), items.size()); }
    explicit SmallVector(size_t count, const T& fill = T()) { resize(count, fill); }
    SmallVector(const SmallVector& other) { assignFrom(other.data_, other.size_); }
    SmallVector(SmallVector&& other) noexcept { take(other); }
    SmallVector& operator=(const SmallVector& other) {
        if (this != &other) {
            size_ = 0;
            assignFrom(other.data_, other.size_);
        }
        return *this;
    }
    SmallVector& operator=(SmallVector&& other) noexcept {
        if (this != &other) {
            freeBlock();
            take(other);
        }
        return *this;
    }
    ~SmallVector() { freeBlock(); }

    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    size_t capacity() const { return capacity_; }
    static constexpr size_t max_size() { return UINT32_MAX; }

    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }
    T& back() { return data_[size_ - 1]; }
    const T& back() const { return data_[size_ - 1]; }
    T* data() { return data_; }
    const T* data() const { return data_; }
    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }

    void push_back(T item) {
        if (size_ == capacity_) grow(size_t(size_) + 1);
        data_[size_++] = item;
    }
    T* insert(const T* at, T item) {
        const size_t i = size_t(at - data_);
        if (size_ == capacity_) grow(size_t(size_) + 1);
        std::memmove(data_ + i + 1, data_ + i, (size_ - i) * sizeof(T));
        data_[i] = item;
        ++size_;
        return data_ + i;
    }
    T* erase(const T* at) {
        const size_t i = size_t(at - data_);
        std::memmove(data_ + i, data_ + i + 1, (size_ - i - 1) * sizeof(T));
        --size_;
        return data_ + i;
    }
    void pop_back() { --size_; }
    void clear() { size_ = 0; }
    void reserve(size_t n) {
        if (n > capacity_) reallocate(n);
    }
    /// Replaces the elements by `n` whose bytes start at `bytes` (any alignment, not inside
    /// this vector); unchanged when the room cannot be had.
    void assignBytes(const void* bytes, size_t n) { assignBytesOf(static_cast<const unsigned char*>(bytes), n); }
    void resize(size_t n) { resize(n, T()); }
    void resize(size_t n, const T& fill) {
        if (n > capacity_) grow(n);
        std::uninitialized_fill(data_ + std::min<size_t>(size_, n), data_ + n, fill);
        size_ = uint32_t(n);
    }

    bool operator==(const SmallVector& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }

private:
    bool isInline() const { return data_ == inlinePointer(); }
    T* inlinePointer() { return reinterpret_cast<T*>(inline_); }
    const T* inlinePointer() const { return reinterpret_cast<const T*>(inline_); }

    /// Doubling, as std::vector grows, so that appending stays linear.
    void grow(size_t atLeast) {
        if (atLeast > max_size()) throw std::length_error("SmallVector: more than 4294967295 elements");
        reallocate(std::min<size_t>(std::max<size_t>(atLeast, size_t(capacity_) * 2), max_size()));
    }
    void reallocate(size_t capacity) {
        if (capacity > max_size()) throw std::length_error("SmallVector: more than 4294967295 elements");
        T* block = Alloc().allocate(capacity);  // nothing changes when this throws
        if (size_) std::memcpy(static_cast<void*>(block), data_, size_ * sizeof(T));
        freeBlock();
        data_ = block;
        capacity_ = uint32_t(capacity);
    }
    void assignFrom(const T* items, size_t n) { assignBytesOf(reinterpret_cast<const unsigned char*>(items), n); }
    void assignBytesOf(const unsigned char* bytes, size_t n) {
        reserve(n);  // nothing changes when this throws
        copyBytes(reinterpret_cast<unsigned char*>(data_), bytes, n * sizeof(T));
        size_ = uint32_t(n);
    }
    /// memcpy, without the call for the few bytes a short vector holds.
    static void copyBytes(unsigned char* to, const unsigned char* from, size_t bytes) {
        if (bytes >= 8 && bytes <= 16) {
            std::memcpy(to, from, 8);
            std::memcpy(to + bytes - 8, from + bytes - 8, 8);
        } else if (bytes) {
            std::memcpy(to, from, bytes);
        }
    }
    /// Takes `other`'s elements, leaving it empty: a block changes hands,
    /// inline elements are copied.
    void take(SmallVector& other) noexcept {
        if (other.isInline()) {
            data_ = inlinePointer();
            capacity_ = kInline;
            copyBytes(inline_, other.inline_, other.size_ * sizeof(T));
        } else {
            data_ = other.data_;
            capacity_ = other.capacity_;
            other.data_ = other.inlinePointer();
            other.capacity_ = kInline;
        }
        size_ = other.size_;
        other.size_ = 0;
    }
    void freeBlock() {
        if (!isInline()) Alloc().deallocate(data_, capacity_);
        data_ = inlinePointer();
        capacity_ = kInline;
    }

    T* data_ = inlinePointer();
    uint32_t size_ = 0;
    uint32_t capacity_ = kInline;
    alignas(T) unsigned char inline_[kInline * sizeof(T)];
};

}  // namespace tovan
