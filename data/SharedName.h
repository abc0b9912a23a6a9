#pragma once
// Names that the records repeating them share: one counted, immutable block
// per distinct text instead of a string in every property or node.
#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// A name: a reference (8 bytes) to an immutable block holding the text and
/// its A-Z-folded hash (tovan::hashNoCase). Copies share the block; the
/// block dies with its last holder, on whichever thread that is. A
/// default-made name is the null name (text() is a null string, hash 0),
/// which holds no block; the empty name "" is a block like any other.
///
/// Where blocks come from:
/// - `SharedName(text)` makes a new block every time.
/// - `SharedName::cached(text)` looks the text up in a small table of the
///   calling thread first (the last names made there), so that code defining
///   the same few names over and over (a builder, a loop calling define)
///   shares them without keeping a dictionary of its own.
/// - `NameDictionary` hands out one block per distinct text for as long as
///   it lives: for readers of a whole document.
///
/// Leak detector "SharedName" counts the blocks outside the threads' tables:
/// a table lives until its thread ends, after a test run's last check, so
/// the blocks it keeps are not leaks. Whatever else holds a block from a
/// table (a property, a node) is counted under its own class.
class NVK_EXPORT SharedName {
public:
    SharedName() = default;  // the null name
    /// A new block with `text` (a null text gives the null name).
    explicit SharedName(const tovan::WString& text);
    explicit SharedName(std::u16string_view text);
    explicit SharedName(const char16_t* text) : SharedName(std::u16string_view(text)) {}

    SharedName(const SharedName& o) noexcept : block_(o.block_) {
        if (block_) block_->refs.fetch_add(1, std::memory_order_relaxed);
    }
    SharedName(SharedName&& o) noexcept : block_(std::exchange(o.block_, nullptr)) {}
    SharedName& operator=(SharedName o) noexcept {
        std::swap(block_, o.block_);
        return *this;
    }
    ~SharedName() {
        if (block_) drop(block_);
    }

    /// A block with `text` from this thread's table, made (and put there)
    /// when the table does not have it. Texts compare exactly: "Name" and
    /// "name" are two blocks.
    static SharedName cached(const tovan::WString& text);
    static SharedName cached(std::u16string_view text);
    static SharedName cached(const char16_t* text) { return cached(std::u16string_view(text)); }
    /// As `cached`, for a text whose every unit is an ASCII byte, given as those bytes:
    /// record readers find their names without widening them first.
    static SharedName cachedAscii(std::string_view text);

    const tovan::WString& text() const { return block_ ? block_->text : s_null; }
    uint32_t hash() const { return block_ ? block_->hash : 0; }
    bool isNull() const { return block_ == nullptr; }
    /// True when both hold the same block (or both are null): equal text
    /// without comparing it. Two blocks may still hold equal text.
    bool sameBlock(const SharedName& o) const { return block_ == o.block_; }

    /// Blocks alive outside the threads' tables.
    static long liveBlocks();

    /// Lets go of the name as assigning the null name would, but while a `Gather` lives on
    /// the calling thread the drop waits for it: a tree's teardown lets go of the same few
    /// names thousands of times.
    void dropGathered();

    class Stock;
    class Gather;

private:
    friend class NameDictionary;
    struct Block {
        Block(tovan::WString t, uint32_t h) : hash(h), text(std::move(t)) {}
        std::atomic<uint32_t> refs{1};
        uint32_t hash;
        const tovan::WString text;
    };
    static void drop(Block* b) {
        if (b->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(b);
    }
    static void destroy(Block* b);
    static Block* make(std::u16string_view text);
    template <class Text>
    static SharedName cachedIn(Text text, uint32_t hash);

    static const tovan::WString s_null;
    Block* block_ = nullptr;
};

/// One name handed out many times (by a reader: the same property name in every record)
/// without a locked instruction per hand-out: the references are taken ahead in batches that
/// grow from 1 to 64, and whatever was not handed out is given back by `reset` or the
/// destructor. Not thread-safe; the names it hands out are ordinary and go anywhere.
class NVK_EXPORT SharedName::Stock {
public:
    Stock() = default;
    explicit Stock(SharedName name) : name_(std::move(name)) {}
    Stock(Stock&& o) noexcept
        : name_(std::move(o.name_)), spare_(std::exchange(o.spare_, 0)), ahead_(std::exchange(o.ahead_, 1)) {}
    Stock& operator=(Stock&& o) noexcept {
        if (this != &o) {
            giveBack();
            name_ = std::move(o.name_);
            spare_ = std::exchange(o.spare_, 0);
            ahead_ = std::exchange(o.ahead_, 1);
        }
        return *this;
    }
    ~Stock() { giveBack(); }

    const SharedName& name() const { return name_; }
    /// Hands `name` out from now on (the null name: nothing).
    void reset(SharedName name = SharedName()) {
        giveBack();
        name_ = std::move(name);
        ahead_ = 1;
    }
    /// A reference to the name; the null name when the stock holds none.
    SharedName take() {
        SharedName out;
        if (Block* b = name_.block_) {
            if (spare_ == 0) {
                b->refs.fetch_add(ahead_, std::memory_order_relaxed);
                spare_ = ahead_;
                ahead_ = ahead_ < kMostAhead ? ahead_ * 4 : kMostAhead;
            }
            --spare_;
            out.block_ = b;
        }
        return out;
    }

private:
    static constexpr uint32_t kMostAhead = 64;
    // The stock's own reference keeps the block alive, so this never ends it.
    void giveBack() {
        if (spare_) name_.block_->refs.fetch_sub(std::exchange(spare_, 0), std::memory_order_acq_rel);
    }
    SharedName name_;
    uint32_t spare_ = 0;  // references taken ahead, not handed out yet
    uint32_t ahead_ = 1;  // how many the next batch takes
};

/// While it lives, `dropGathered` on its thread counts the drops per block and drops each
/// block's count in one step when the gather ends (or when another block takes its place in
/// the gather's small table). A block thus outlives its last holder by as long as the gather
/// lasts, never shorter. A gather made while another lives on the thread leaves the work of
/// `dropGathered` to the outer one; code that has the gather at hand gives it names with
/// `drop`, without finding it through the thread. Not copyable; lives on the stack of one
/// thread.
class NVK_EXPORT SharedName::Gather {
public:
    Gather();
    ~Gather();
    Gather(const Gather&) = delete;
    Gather& operator=(const Gather&) = delete;

    /// Lets go of `name` (it becomes the null name), counted with the other drops of its block.
    void drop(SharedName& name) {
        Block* b = std::exchange(name.block_, nullptr);
        if (!b) return;
        // A tree's end lets go of a node's name and a property's name in turn, mostly the
        // same two blocks over and over: their entries are at hand without the table's hash.
        if (b == recent_[0]->block)
            ++recent_[0]->drops;
        else if (b == recent_[1]->block)
            ++recent_[1]->drops;
        else
            addRecent(b);
    }

private:
    friend class SharedName;
    struct Entry {
        Block* block;
        uint32_t drops;
    };
    /// Counts a drop of `b` in the table, and keeps its entry at hand.
    void addRecent(Block* b);
    /// The entry counting `b`'s drops (a block that had the place before gets its drops).
    Entry& add(Block* b);
    static void dropMany(Block* b, uint32_t n);

    // Records name a few hundred things at most; the entries are set up when first used.
    static constexpr size_t kEntries = 256;
    uint64_t used_[kEntries / 64] = {};
    Entry entries_[kEntries];
    Entry none_ = {nullptr, 0};  // what the recent entries are before there are any
    // Entries of the table; one that another block took since matches that block instead.
    Entry* recent_[2] = {&none_, &none_};
    bool active_ = false;
};

/// One block per distinct text (compared exactly) for the dictionary's life:
/// a reader keeps one for a document, so every record naming a property the
/// same way shares that name. Not thread-safe; the blocks it hands out are.
class NVK_EXPORT NameDictionary {
public:
    NameDictionary();
    ~NameDictionary();
    NameDictionary(const NameDictionary&) = delete;
    NameDictionary& operator=(const NameDictionary&) = delete;

    /// The block for `text`, made on first sight.
    SharedName get(std::u16string_view text);
    /// As above; a null text gives the null name.
    SharedName get(const tovan::WString& text) { return text.isNull() ? SharedName() : get(text.view()); }
    SharedName get(const char16_t* text) { return get(std::u16string_view(text)); }
    /// Distinct texts held.
    size_t size() const;
    /// Lets go of every block (those handed out live on with their holders).
    void clear();

private:
    struct Table;
    std::unique_ptr<Table> table_;
};

}  // namespace nvk
