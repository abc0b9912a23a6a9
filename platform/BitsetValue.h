#pragma once
// A set of small unsigned indexes (components of a protocol, role bits) as a
// value.
#include <bit>
#include <cstdint>
#include <vector>

#include "nvk/platform/Value.h"

namespace tovan {

/// Bits in 64-bit words. The bitset has a size (the number of positions it
/// spans); the positions at or beyond it are clear. set() beyond the size
/// grows it, test() and clear() beyond it see a clear bit and change nothing,
/// so callers can treat it as a set of indexes without sizing it first.
///
/// A bitset given its size (constructor, resize, setAll) stores every word, so
/// that setting bits never reallocates. One that grows by set() stores only
/// the words from the lowest member's to the highest's: a set of a few
/// neighbouring components out of a large protocol costs a few words. Layout
/// keeps one such set per assembly and per network, and a protocol can have
/// nearly as many of those as components.
///
/// Equality (operator== and equals) compares the members only: a set sized
/// 10 and one sized 100 holding the same indexes are equal. Union grows the
/// result to the larger size; intersection and difference keep this size.
///
/// Bytes: uint32 LE size in bits, then ceil(size / 64) words, each uint64 LE,
/// lowest positions first (bit i is bit i % 64 of word i / 64).
class NVK_EXPORT BitsetValue : public Value {
    TOVAN_VALUE_CLASS(BitsetValue)
public:
    static constexpr size_t npos = static_cast<size_t>(-1);
    /// The largest size, so that every bitset fits its byte form. Beyond it,
    /// resize raises BadParameterException "Bitset size %d exceeds the largest
    /// size %d" and set "Cannot set bit %d: the largest bitset size is %d";
    /// neither changes anything.
    static constexpr size_t MaxSize = UINT32_MAX;

    BitsetValue() = default;
    explicit BitsetValue(size_t size) { resize(size); }

    size_t size() const { return size_; }
    /// New positions are clear; shrinking drops the bits beyond the new size.
    /// Stores every word up to the size. Above MaxSize: BadParameterException
    /// (see MaxSize).
    void resize(size_t size);

    // The window never reaches past the size and the bits beyond the size are
    // clear, so a position outside the window, or at or beyond the size, reads
    // as clear without a separate size check.
    void set(size_t i) {
        if (i >= size_) growFor(i);
        size_t w = (i >> 6) - base_;
        if (w >= words_.size()) w = widenFor(i >> 6);
        words_[w] |= uint64_t(1) << (i & 63);
    }
    void set(size_t i, bool on) { on ? set(i) : clear(i); }
    void clear(size_t i) {
        const size_t w = (i >> 6) - base_;
        if (w < words_.size()) words_[w] &= ~(uint64_t(1) << (i & 63));
    }
    bool test(size_t i) const {
        const size_t w = (i >> 6) - base_;
        return w < words_.size() && (words_[w] >> (i & 63)) & 1;
    }
    /// Clears every bit; the size stays.
    void clearAll();
    /// Sets every position below the size.
    void setAll();

    size_t count() const;
    /// True when no bit is set.
    bool none() const;
    bool intersects(const BitsetValue& other) const;

    /// The lowest set position at or after `from`, or npos.
    size_t nextSetBit(size_t from) const {
        size_t w = from >> 6;
        uint64_t bits;
        if (w < base_) {
            if (words_.empty()) return npos;
            w = 0;
            bits = words_[0];
        } else {
            w -= base_;
            if (w >= words_.size()) return npos;
            bits = words_[w] & (~uint64_t(0) << (from & 63));
        }
        while (true) {
            if (bits) return ((base_ + w) << 6) + size_t(std::countr_zero(bits));
            if (++w == words_.size()) return npos;
            bits = words_[w];
        }
    }
    size_t firstSetBit() const { return nextSetBit(0); }

    /// Calls f(index) for every set position, in increasing order.
    template <class F>
    void forEachSetBit(F&& f) const {
        for (size_t w = 0; w < words_.size(); ++w) {
            const size_t first = (base_ + w) << 6;
            for (uint64_t bits = words_[w]; bits; bits &= bits - 1) f(first + size_t(std::countr_zero(bits)));
        }
    }

    /// Iteration over the set positions: for (size_t i : bits.setBits()).
    /// The iterator keeps the unvisited bits of its current word, so a step
    /// is a count-trailing-zeros and a clear of the lowest bit.
    class SetBitIterator {
    public:
        SetBitIterator(const uint64_t* words, size_t wordCount, size_t w, size_t base)
            : words_(words), count_(wordCount), w_(w), base_(base), bits_(w < wordCount ? words[w] : 0) {
            settle();
        }
        size_t operator*() const { return ((base_ + w_) << 6) + size_t(std::countr_zero(bits_)); }
        SetBitIterator& operator++() {
            bits_ &= bits_ - 1;
            settle();
            return *this;
        }
        bool operator==(const SetBitIterator& o) const { return w_ == o.w_ && bits_ == o.bits_; }

    private:
        void settle() {
            while (!bits_ && w_ < count_) bits_ = ++w_ < count_ ? words_[w_] : 0;
        }
        const uint64_t* words_;
        size_t count_;
        size_t w_;
        size_t base_;
        uint64_t bits_;
    };
    struct SetBitRange {
        const BitsetValue* set;
        SetBitIterator begin() const { return {set->words_.data(), set->words_.size(), 0, set->base_}; }
        SetBitIterator end() const {
            return {set->words_.data(), set->words_.size(), set->words_.size(), set->base_};
        }
    };
    SetBitRange setBits() const { return {this}; }

    /// Union; the size becomes the larger of the two.
    BitsetValue& operator|=(const BitsetValue& other);
    /// Intersection; the size stays.
    BitsetValue& operator&=(const BitsetValue& other);
    /// Difference (this minus other); the size stays.
    BitsetValue& operator-=(const BitsetValue& other);
    friend BitsetValue operator|(BitsetValue a, const BitsetValue& b) { return a |= b; }
    friend BitsetValue operator&(BitsetValue a, const BitsetValue& b) { return a &= b; }
    friend BitsetValue operator-(BitsetValue a, const BitsetValue& b) { return a -= b; }
    bool operator==(const BitsetValue& other) const;

    int getTypeCode() const override { return VT_Bitset; }
    bool equals(const Value& other) const override;
    /// The members in increasing order: "{}", "{3}", "{1, 5, 7}".
    WString toString() const override;
    void assign(const Value& other) override;
    void serialize(iByteOutputStream& out) const override;
    /// Strict reading rejects a bit set at or beyond the size ("Bit %d is set
    /// beyond the bitset's size %d"); lenient reading drops it.
    void deserialize(iByteInputStream& in) override;

private:
    size_t end() const { return base_ + words_.size(); }
    void clearTail();
    void growFor(size_t i);
    /// Widens the window to hold word `word`; returns its place in the window.
    size_t widenFor(size_t word);
    /// Widens the window to hold words [first, last).
    void cover(size_t first, size_t last);

    std::vector<uint64_t> words_;  // words base_ .. base_ + words_.size() - 1
    size_t base_ = 0;
    size_t size_ = 0;
};

}  // namespace tovan
