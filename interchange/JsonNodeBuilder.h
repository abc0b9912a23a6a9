#pragma once
// Data nodes straight from JSON text, token by token.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nvk/data/SharedName.h"
#include "nvk/interchange/CJsonConverter.h"
#include "nvk/interchange/JsonElements.h"
#include "nvk/interchange/JsonInputStream.h"
#include "nvk/interchange/JsonScanner.h"

namespace nvk {

/// The member names a reader has met: one name block per distinct text, so
/// that the records of a document share their property names and a name's
/// text is copied and hashed into a block once, not for every member. Names
/// equal with A-Z folded form a group, which the collections hold as one
/// property; the builder tells an object's members apart by group, with a
/// mark per group instead of a set per object.
///
/// Owned by one reader and used by one builder at a time. Past kMaxNames
/// distinct texts it starts over between records, so that a source whose
/// names never repeat (keys that are data) does not grow it without end.
class MemberNames {
public:
    static constexpr size_t kMaxNames = size_t(1) << 14;
    static constexpr uint32_t kNone = ~uint32_t(0);

    MemberNames();
    ~MemberNames();
    MemberNames(const MemberNames&) = delete;
    MemberNames& operator=(const MemberNames&) = delete;

    /// The entry for `text`, made on first sight.
    uint32_t find(std::u16string_view text);
    /// The two entries that came last in one place (after a name, or first in
    /// an object held by a name), the latest first. Records repeat their
    /// names in the same order, so these are tried before the text is looked
    /// up; two, because one name often holds objects of two shapes in turn
    /// (a record's "entities" and its user's), and each would undo the other.
    struct Prediction {
        uint32_t likely = kNone;
        uint32_t other = kNone;
        /// `entry` came in this place.
        void learn(uint32_t entry) {
            if (entry == likely) return;
            other = likely;
            likely = entry;
        }
    };

    /// True when `entry` (kNone for none) has the text `text`.
    bool matches(uint32_t entry, std::u16string_view text) const {
        if (entry == kNone) return false;
        const Entry& e = entries_[entry];
        return e.size == text.size() && sameUnits(e.units, text.data(), text.size());
    }
    /// `entry`'s text, and whether it is written as it is in JSON (no quote,
    /// backslash or line feed in it), so that it can be matched against the
    /// characters themselves.
    std::u16string_view text(uint32_t entry) const { return entries_[entry].text(); }
    bool plain(uint32_t entry) const { return entries_[entry].plain; }
    /// The entries that came after `entry` in its objects.
    Prediction& follower(uint32_t entry) { return entries_[entry].follower; }
    /// The first members of objects held by a member named `entry` (for
    /// kNone, of top-level objects).
    Prediction& firstInside(uint32_t entry) { return entry == kNone ? firstAtTop_ : entries_[entry].firstInside; }
    /// How many properties the node of that object had (its members less those
    /// that became child nodes): its collection takes room for as many at
    /// once, rather than growing through every power of two of a wide record.
    uint32_t& propertiesInside(uint32_t entry) {
        return entry == kNone ? propertiesAtTop_ : entries_[entry].propertiesInside;
    }
    const SharedName& name(uint32_t entry) const { return entries_[entry].stock.name(); }
    /// A reference to `entry`'s name for a property to keep, taken without a
    /// locked instruction most of the time (see SharedName::Stock).
    SharedName take(uint32_t entry) { return entries_[entry].stock.take(); }
    uint32_t group(uint32_t entry) const { return entries_[entry].group; }
    /// The mark of a group: the serial of the innermost open object that
    /// has a member of the group, as far as the builder has kept it so.
    uint64_t& mark(uint32_t group) { return groups_[group].mark; }
    /// A number no object has had before.
    uint64_t nextSerial() { return ++serial_; }
    /// Forgets every name when there are too many; only between records.
    void trim();

private:
    // Names are short: eight bytes at a time inline, rather than a call to
    // memcmp (or the unit by unit loop of a char16_t view's compare).
    static bool sameUnits(const char16_t* a, const char16_t* b, size_t units) {
        size_t bytes = units * sizeof(char16_t);
        const char* x = reinterpret_cast<const char*>(a);
        const char* y = reinterpret_cast<const char*>(b);
        for (; bytes >= 8; x += 8, y += 8, bytes -= 8) {
            uint64_t u, v;
            std::memcpy(&u, x, 8);
            std::memcpy(&v, y, 8);
            if (u != v) return false;
        }
        for (; bytes; x += 2, y += 2, bytes -= 2) {
            uint16_t u, v;
            std::memcpy(&u, x, 2);
            std::memcpy(&v, y, 2);
            if (u != v) return false;
        }
        return true;
    }

    struct Entry {
        Entry(SharedName n, uint32_t g)
            : stock(std::move(n)), units(stock.name().text().view().data()), size(stock.name().text().length()),
              group(g), plain(text().find_first_of(u"\"\\\n") == std::u16string_view::npos) {}
        SharedName::Stock stock;
        // The name's text, which its block holds as long as the entry holds the name: kept
        // here, a comparison reads it straight away instead of through the block's string,
        // three loads in a row for every member of every record.
        const char16_t* units;
        size_t size;
        std::u16string_view text() const { return {units, size}; }
        uint32_t group;
        uint32_t nextInGroup = kNone;  // kNone at the end
        Prediction follower;
        Prediction firstInside;
        uint32_t propertiesInside = 0;
        bool plain;
    };
    struct Group {
        uint32_t hash;   // hashNoCase of the texts
        uint32_t first;  // entry
        uint64_t mark = 0;
    };
    static constexpr size_t kFirstBuckets = 256;
    void rehash(size_t buckets);
    // The tables' room, kept per thread for the next reader: requests of a
    // few kilobytes right after a tree was released are what makes the C
    // library merge the tree's freed chunks first.
    struct Spare;
    static Spare& spare();

    std::vector<Entry> entries_;
    std::vector<Group> groups_;
    std::vector<uint32_t> buckets_;  // group + 1; 0 for none
    uint64_t serial_ = 0;
    Prediction firstAtTop_;
    uint32_t propertiesAtTop_ = 0;
};

/// Reads one top-level object into a CJsonConverter with the outcome of the
/// reader's three steps run in turn (scan the whole value into tokens, parse
/// them into an element tree, convert the tree), but without the token list
/// and, for objects, without the tree: a record's objects are nodes as soon
/// as they are read. Those two structures and their teardown were half of
/// the time of reading a record.
///
/// The outcome is the same in every respect, failures included:
///  - a parse error is raised only after the rest of the value has been
///    scanned, so that a scan error further on wins, as it does when the
///    scan comes first; the stream then stops where the scan stopped;
///  - the converter's first exception is kept, the value is still read to
///    its end (a scan or parse error wins over it), and it is raised as it
///    was thrown by RaiseConversionFailure();
///  - an array is held as elements until it is complete, because the
///    converter types an array from all of its elements; but from its first
///    element that is an object on, the converter walks it element by
///    element anyway, so from there on it is built as it comes.
class JsonNodeBuilder {
public:
    /// The stream's next character must be the object's "{".
    JsonNodeBuilder(cajun::json::JsonInputStream& in, CJsonConverter& converter, MemberNames& names);
    ~JsonNodeBuilder();
    JsonNodeBuilder(const JsonNodeBuilder&) = delete;
    JsonNodeBuilder& operator=(const JsonNodeBuilder&) = delete;

    /// Raises ScanException and ParseException as Scanner::Scan and
    /// Parser::ParseObject do.
    void ReadObject();
    /// Raises what the converter raised first, if anything.
    void RaiseConversionFailure() const;

private:
    bool peek();
    bool nextIs(cajun::json::TokenKind kind) { return peek() && token_.kind == kind; }
    const cajun::json::JsonToken& match(cajun::json::TokenKind kind);
    /// Takes the next token when it is the punctuation `kind` (character `c`).
    bool skip(cajun::json::TokenKind kind, char16_t c);
    void enter(const cajun::json::JsonToken& token);
    void drain();

    // Members are nodes and properties as they come.
    // `holder` is the entry of the member the value belongs to (kNone at the top).
    void objectMembers(uint32_t holder);
    void value(uint32_t holder);
    // The scalar token just matched as the value of member `name`.
    // `expected` is the object's likely count of properties.
    void scalarMember(SharedName name, double number, size_t expected, bool seen);
    void arrayElements(uint32_t holder);
    // Elements, for arrays that are held whole.
    void element(cajun::json::Element& out);
    void elementObject(cajun::json::Object& out);
    void elementArray(cajun::json::Array& out);

    template <class F>
    void convert(F&& step) {
        if (failure_) return;  // the converter may be halfway through a step
        try {
            step();
        } catch (...) {
            failure_ = std::current_exception();
        }
    }

    // The scanner and the name stack are kept per thread from one read to
    // the next: both grow past a kilobyte on real records, and a request of
    // that size just after a record's tree was released makes the C library
    // merge all of the tree's freed chunks first.
    struct Workspace;
    static Workspace* takeWorkspace();

    cajun::json::JsonInputStream& in_;
    CJsonConverter& converter_;
    bool consumeBefore_;
    Workspace* workspace_;
    cajun::json::Scanner& scanner_;
    cajun::json::JsonToken token_;  // the next token, while loaded_
    bool loaded_ = false;
    bool scanned_ = false;  // the scanner has nothing more
    int depth_ = 0;
    std::exception_ptr failure_;
    MemberNames& dictionary_;
    // The members of the open objects, for the duplicate check: each
    // object's own range, with the marks their groups had before.
    struct Member {
        uint32_t entry;
        uint64_t previousMark;
    };
    std::vector<Member>& members_;
    size_t membersBefore_;
};

}  // namespace nvk
