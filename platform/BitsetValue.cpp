#include "nvk/platform/BitsetValue.h"

#include <algorithm>
#include <string>

#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/NumberText.h"

namespace tovan {

const ClassTag BitsetValue::Tag("Norvatek.BitsetValue");

namespace {
const ValueRegistration<BitsetValue> regBitset(VT_Bitset);

size_t wordsFor(size_t bits) { return (bits + 63) >> 6; }
}  // namespace

void BitsetValue::clearTail() {
    if ((size_ & 63) && !words_.empty() && end() == wordsFor(size_))
        words_.back() &= (uint64_t(1) << (size_ & 63)) - 1;
}

void BitsetValue::growFor(size_t i) {
    if (i >= MaxSize)
        throw BadParameterException("BitsetValue", "set", u"Cannot set bit %d: the largest bitset size is %d", i,
                                    MaxSize);
    size_ = i + 1;  // the window grows with the bit, not with the size
}

size_t BitsetValue::widenFor(size_t word) {
    if (words_.empty()) {
        base_ = word;
        words_.assign(1, 0);
        return 0;
    }
    if (word >= base_) {
        words_.resize(word - base_ + 1, 0);
        return word - base_;
    }
    // Downwards the window grows by at least its own length, so that setting bits from
    // the top down costs what setting them from the bottom up does.
    const size_t extra = std::max(base_ - word, std::min(base_, words_.size()));
    words_.insert(words_.begin(), extra, 0);
    base_ -= extra;
    return word - base_;
}

void BitsetValue::cover(size_t first, size_t last) {
    if (first >= last) return;
    if (words_.empty()) {
        base_ = first;
        words_.assign(last - first, 0);
        return;
    }
    if (first < base_) {
        words_.insert(words_.begin(), base_ - first, 0);
        base_ = first;
    }
    if (last > end()) words_.resize(last - base_, 0);
}

void BitsetValue::resize(size_t size) {
    if (size > MaxSize)
        throw BadParameterException("BitsetValue", "resize", u"Bitset size %d exceeds the largest size %d", size,
                                    MaxSize);
    const size_t last = wordsFor(size);
    if (end() > last) words_.resize(last > base_ ? last - base_ : 0);
    cover(0, last);
    size_ = size;
    clearTail();
}

void BitsetValue::clearAll() { std::fill(words_.begin(), words_.end(), 0); }

void BitsetValue::setAll() {
    base_ = 0;
    words_.assign(wordsFor(size_), ~uint64_t(0));
    clearTail();
}

size_t BitsetValue::count() const {
    size_t n = 0;
    for (uint64_t w : words_) n += size_t(std::popcount(w));
    return n;
}

bool BitsetValue::none() const {
    return std::all_of(words_.begin(), words_.end(), [](uint64_t w) { return w == 0; });
}

bool BitsetValue::intersects(const BitsetValue& other) const {
    const size_t first = std::max(base_, other.base_), last = std::min(end(), other.end());
    for (size_t k = first; k < last; ++k)
        if (words_[k - base_] & other.words_[k - other.base_]) return true;
    return false;
}

BitsetValue& BitsetValue::operator|=(const BitsetValue& other) {
    if (other.size_ > size_) size_ = other.size_;
    if (other.words_.empty()) return *this;
    cover(other.base_, other.end());
    uint64_t* w = words_.data() + (other.base_ - base_);
    const uint64_t* o = other.words_.data();
    for (size_t i = 0; i < other.words_.size(); ++i) w[i] |= o[i];
    return *this;
}

BitsetValue& BitsetValue::operator&=(const BitsetValue& other) {
    for (size_t k = base_; k < end(); ++k) {
        uint64_t& w = words_[k - base_];
        w = k >= other.base_ && k < other.end() ? w & other.words_[k - other.base_] : 0;
    }
    return *this;
}

BitsetValue& BitsetValue::operator-=(const BitsetValue& other) {
    const size_t first = std::max(base_, other.base_), last = std::min(end(), other.end());
    for (size_t k = first; k < last; ++k) words_[k - base_] &= ~other.words_[k - other.base_];
    return *this;
}

bool BitsetValue::operator==(const BitsetValue& other) const {
    auto zeroOutside = [](const BitsetValue& a, size_t first, size_t last) {
        for (size_t k = a.base_; k < a.end(); ++k)
            if ((k < first || k >= last) && a.words_[k - a.base_]) return false;
        return true;
    };
    const size_t first = std::max(base_, other.base_), last = std::min(end(), other.end());
    for (size_t k = first; k < last; ++k)
        if (words_[k - base_] != other.words_[k - other.base_]) return false;
    return zeroOutside(*this, first, last) && zeroOutside(other, first, last);
}

bool BitsetValue::equals(const Value& other) const {
    return sameClass(other) && *this == static_cast<const BitsetValue&>(other);
}

WString BitsetValue::toString() const {
    std::u16string s = u"{";
    bool first = true;
    forEachSetBit([&](size_t i) {
        if (!first) s += u", ";
        first = false;
        s += integerWide(i).view();
    });
    s += u"}";
    return WString(std::move(s));
}

void BitsetValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    const auto& o = static_cast<const BitsetValue&>(other);
    words_ = o.words_;
    base_ = o.base_;
    size_ = o.size_;
}

void BitsetValue::serialize(iByteOutputStream& out) const {
    writeValueCount(out, size_, "BitsetValue");
    uint8_t buf[512];
    size_t pos = 0;
    for (size_t k = 0, total = wordsFor(size_); k < total; ++k) {
        const uint64_t w = k >= base_ && k < end() ? words_[k - base_] : 0;
        storeLE(buf + pos, w);
        pos += 8;
        if (pos == sizeof buf) {
            out.write(buf, pos);
            pos = 0;
        }
    }
    if (pos) out.write(buf, pos);
}

void BitsetValue::deserialize(iByteInputStream& in) {
    const size_t size = readUInt32LE(in, "BitsetValue");
    const size_t nwords = wordsFor(size);
    std::vector<uint64_t> words;
    uint8_t buf[512];
    // Words arrive in bounded chunks so that a corrupt size costs no more
    // memory than the bytes really present.
    while (words.size() < nwords) {
        size_t chunk = std::min(nwords - words.size(), sizeof buf / 8);
        in.readExactly(buf, chunk * 8, "BitsetValue");
        for (size_t i = 0; i < chunk; ++i) {
            words.push_back(loadLE<uint64_t>(buf + 8 * i));
        }
    }
    if (size & 63) {
        uint64_t stray = words.back() & ~((uint64_t(1) << (size & 63)) - 1);
        if (stray && isStrictReading())
            throw Exception("BitsetValue", "deserialize", u"Bit %d is set beyond the bitset's size %d",
                            (nwords - 1) * 64 + size_t(std::countr_zero(stray)), size);
    }
    size_ = size;
    if (size & 63) words.back() &= (uint64_t(1) << (size & 63)) - 1;
    // Keep only the words from the first to the last that hold a member.
    auto first = std::find_if(words.begin(), words.end(), [](uint64_t w) { return w != 0; });
    auto last = std::find_if(words.rbegin(), words.rend(), [](uint64_t w) { return w != 0; }).base();
    if (first == words.end()) {
        words_.clear();
        base_ = 0;
        return;
    }
    base_ = size_t(first - words.begin());
    words_.assign(first, last);
}

}  // namespace tovan
