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
