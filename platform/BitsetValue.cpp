#include "platform/BitsetValue.h"

#include <algorithm>
#include <string>

namespace tovan {

const ClassTag BitsetValue::Tag("Norvatek.BitsetValue");

namespace {
const ValueRegistration<BitsetValue> regBitset(VT_Bitset);

size_t wordsFor(size_t bits) { return (bits + 63) >> 6; }
}  // namespace

void BitsetValue::clearTail() {
    if (size_ & 63) words_.back() &= (uint64_t(1) << (size_ & 63)) - 1;
}

void BitsetValue::growFor(size_t i) {
    if (i >= MaxSize)
        throw BadParameterException("BitsetValue", "set", u"Cannot set bit %d: the largest bitset size is %d", i,
                                    MaxSize);
    resize(i + 1);
}

void BitsetValue::resize(size_t size) {
    if (size > MaxSize)
        throw BadParameterException("BitsetValue", "resize", u"Bitset size %d exceeds the largest size %d", size,
                                    MaxSize);
    words_.resize(wordsFor(size), 0);
    size_ = size;
    clearTail();
}

void BitsetValue::clearAll() { std::fill(words_.begin(), words_.end(), 0); }

void BitsetValue::setAll() {
    std::fill(words_.begin(), words_.end(), ~uint64_t(0));
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
    size_t n = std::min(words_.size(), other.words_.size());
    for (size_t i = 0; i < n; ++i)
        if (words_[i] & other.words_[i]) return true;
    return false;
}

BitsetValue& BitsetValue::operator|=(const BitsetValue& other) {
    if (other.size_ > size_) resize(other.size_);
    const size_t n = other.words_.size();
    uint64_t* w = words_.data();
    const uint64_t* o = other.words_.data();
    for (size_t i = 0; i < n; ++i) w[i] |= o[i];
    return *this;
}

BitsetValue& BitsetValue::operator&=(const BitsetValue& other) {
    const size_t n = std::min(words_.size(), other.words_.size());
    uint64_t* w = words_.data();
    const uint64_t* o = other.words_.data();
    for (size_t i = 0; i < n; ++i) w[i] &= o[i];
    std::fill(words_.begin() + ptrdiff_t(n), words_.end(), 0);
    return *this;
}

BitsetValue& BitsetValue::operator-=(const BitsetValue& other) {
    const size_t n = std::min(words_.size(), other.words_.size());
    uint64_t* w = words_.data();
    const uint64_t* o = other.words_.data();
    for (size_t i = 0; i < n; ++i) w[i] &= ~o[i];
    return *this;
}

bool BitsetValue::operator==(const BitsetValue& other) const {
    const auto& a = words_.size() >= other.words_.size() ? words_ : other.words_;
    const auto& b = words_.size() >= other.words_.size() ? other.words_ : words_;
    if (!std::equal(b.begin(), b.end(), a.begin())) return false;
    return std::all_of(a.begin() + ptrdiff_t(b.size()), a.end(), [](uint64_t w) { return w == 0; });
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
        for (char c : std::to_string(i)) s.push_back(wchar(c));
    });
    s += u"}";
    return WString(std::move(s));
}

void BitsetValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    const auto& o = static_cast<const BitsetValue&>(other);
    words_ = o.words_;
    size_ = o.size_;
}

void BitsetValue::serialize(iByteOutputStream& out) const {
    writeValueCount(out, size_, "BitsetValue");
    uint8_t buf[512];
    size_t pos = 0;
    for (uint64_t w : words_) {
        for (int b = 0; b < 8; ++b) buf[pos++] = uint8_t(w >> (8 * b));
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
            uint64_t w = 0;
            for (int b = 0; b < 8; ++b) w |= uint64_t(buf[8 * i + size_t(b)]) << (8 * b);
            words.push_back(w);
        }
    }
    if (size & 63) {
        uint64_t stray = words.back() & ~((uint64_t(1) << (size & 63)) - 1);
        if (stray && isStrictReading())
            throw Exception("BitsetValue", "deserialize", u"Bit %d is set beyond the bitset's size %d",
                            (nwords - 1) * 64 + size_t(std::countr_zero(stray)), size);
    }
    words_ = std::move(words);
    size_ = size;
    clearTail();
}

}  // namespace tovan
