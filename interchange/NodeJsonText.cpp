// Node trees written as whole texts (UTF-8 for a sink that takes it), and
// the entry points that choose between that and the writer's calls.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/interchange/JsonParser.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeJson_internal.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/NDimArrayValue.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/Prefetch.h"

namespace nvk::JsonUtilities {

using detail::forEachProperty;
using detail::GroupOrder;
using detail::sameName;

namespace {

// Integers are most of the values of many records, and all of them are
// 32-bit: the length from a few comparisons and two digits per division
// take less than the general formatter's call with its loop that measures
// the length first.
constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

inline char* putInt32(char* out, int32_t value) {
    uint32_t n = uint32_t(value);
    if (value < 0) {
        *out++ = '-';
        n = 0u - n;
    }
    const int digits = n < 10 ? 1 : n < 100 ? 2 : n < 1000 ? 3 : n < 10000 ? 4 : n < 100000 ? 5
                     : n < 1000000 ? 6 : n < 10000000 ? 7 : n < 100000000 ? 8 : n < 1000000000 ? 9 : 10;
    char* end = out + digits;
    char* p = end;
    while (n >= 100) {
        const uint32_t pair = n % 100;
        n /= 100;
        p -= 2;
        std::memcpy(p, kDigitPairs + 2 * pair, 2);
    }
    if (n >= 10) {
        p -= 2;
        std::memcpy(p, kDigitPairs + 2 * n, 2);
    } else {
        *--p = char('0' + n);
    }
    return end;
}

// UTF-8 text under construction: bytes go through a pointer into room made
// ahead, as the string's own appends are calls of their own on every byte.
class Utf8Out {
public:
    using value_type = char;
    explicit Utf8Out(std::string& text) : text_(text), at_(text.data() + text.size()), end_(at_) {}
    Utf8Out(const Utf8Out&) = delete;
    Utf8Out& operator=(const Utf8Out&) = delete;
    /// Cuts the text back to what has been written.
    ~Utf8Out() { text_.resize(size_t(at_ - text_.data())); }

    Utf8Out& operator+=(char c) {
        room(1);
        *at_++ = c;
        return *this;
    }
    Utf8Out& operator+=(std::string_view text) {
        append(text.data(), text.size());
        return *this;
    }
    void append(const char* text, size_t n) {
        room(n);
        std::memcpy(at_, text, n);
        at_ += n;
    }
    // Numbers are formatted in place: digits stored a byte at a time and
    // then copied as a block stall the copy until the stores are done.
    void integer(int32_t n) {
        room(tovan::kIntegerTextMax);
        at_ = putInt32(at_, n);
    }
    /// A finite number's text, as doubleToString's option 1 has it.
    void finite(double d) {
        room(tovan::kDoubleTextMax);
        at_ += tovan::util::doubleToString(d, at_, tovan::kDoubleTextMax, 1);
    }
    void escape(std::u16string_view text) {
        room(6 * text.size() + 2);
        at_ = CJsonWriter::escapeUtf8(text, at_);
    }

    // Records repeat a few names many times, and names are shared blocks:
    // one text's address stands for its escaped form for as long as the
    // tree being written is not changed, that is for one builder's life.
    struct KeyCache {
        struct Entry {
            const char16_t* text = nullptr;
            size_t size = 0;
            unsigned char length = 0;
            char bytes[31];  // quoted, escaped, with the ":"
        };
        Entry entries[64];
    };
    /// The quoted, escaped name and its ":".
    void key(std::u16string_view name, KeyCache& cache) {
        KeyCache::Entry& e = cache.entries[(reinterpret_cast<uintptr_t>(name.data()) >> 4) & 63];
        room(sizeof e.bytes);
        if (e.text == name.data() && e.size == name.size()) {
            std::memcpy(at_, e.bytes, sizeof e.bytes);
            at_ += e.length;
            return;
        }
        const size_t from = size_t(at_ - text_.data());
        escape(name);
        *this += ':';
        const size_t length = size_t(at_ - text_.data()) - from;
        if (length <= sizeof e.bytes) {
            std::memcpy(e.bytes, text_.data() + from, length);
            e.text = name.data();
            e.size = name.size();
            e.length = static_cast<unsigned char>(length);
        }
    }
    void number(double d, bool strict) {
        std::string text;
        CJsonWriter::AppendDouble(d, strict, text);
        append(text.data(), text.size());
    }

private:
    void room(size_t n) {
        if (size_t(end_ - at_) < n) grow(n);
    }
    [[gnu::noinline]] void grow(size_t n) {
        const size_t used = size_t(at_ - text_.data());
        text_.resize(std::max(used + n + 4096, 2 * text_.size()));
        at_ = text_.data() + used;
        end_ = text_.data() + text_.size();
    }

    std::string& text_;
    char* at_;
    char* end_;
};

// The text the writer's calls above give for a node whose whole subtree is
// of the library's own classes, built in one string: one writer call per
// item, each checking the writer's state, was a third of the time of writing
// records of many small objects. It covers what such records hold; for
// anything else (another class, a value kind not listed, a name the writer
// refuses, children whose names come back) it gives up, and the caller makes
// the calls, which then write or fail exactly as always. A test compares both
// byte for byte.
template <class Out>
class SubtreeText {
public:
    /// `levels`: how many levels of nodes the writer may still nest; a
    /// deeper subtree gives up, for the calls to refuse.
    SubtreeText(Out& out, bool strict, int levels) : out_(out), strict_(strict), levels_(levels) {}

    /// The node as appendNode writes it inside a container, from its "{" to
    /// its "}"; false when it gave up (`out` then holds a part).
    bool node(const tovan::iNode* node, bool newLineAfter, bool withChildren, bool childrenAsList) {
        if (typeid(*node) != typeid(CBaseNode) || depth_ == levels_) return false;
        ++depth_;
        const auto* own = static_cast<const CBaseNode*>(node);
        ahead_.visit(own);  // the nodes to come are most likely in memory after this one
        out_ += Char('{');
        bool first = true;
        if (!properties(own->CBaseNode::getProperties(), first)) return false;
        const int count = int(own->ChildList().size());
        if (withChildren && count > 0) {
            fetchChildren(own, count);
            if (childrenAsList) {
                if (!first) out_ += Char(',');
                put("\"children\":[");
                bool pendingLine = false;
                for (int i = 0; i < count; ++i) {
                    if (i) out_ += Char(',');
                    if (pendingLine) out_ += Char('\n');
                    childAhead(i);
                    if (!this->node(own->ChildList()[size_t(i)], newLineAfter, true, true)) return false;
                    pendingLine = newLineAfter;
                }
                if (pendingLine) out_ += Char('\n');
                out_ += Char(']');
            } else {
                switch (childRuns(own, count, first)) {
                case Runs::Written: break;
                case Runs::Refused: return false;
                case Runs::NotRuns:
                    if (!childGroups(own, count, first)) return false;
                }
            }
        }
        out_ += Char('}');
        --depth_;
        return true;
    }

private:
    using Char = typename Out::value_type;

    /// ASCII text, as it is in either encoding.
    void put(std::string_view ascii) {
        if constexpr (std::is_same_v<Char, char>)
            out_ += ascii;
        else
            for (char c : ascii) out_ += Char(c);
    }

    void escape(std::u16string_view text) {
        if constexpr (std::is_same_v<Char, char>)
            out_.escape(text);
        else
            CJsonWriter::escape(text, out_);
    }

    // The members of each child hang from a chain (collection, storage,
    // slots, properties, values) that the walk would follow one cold link at
    // a time. Following it a link at a time across all the children instead
    // has the fetches of one link overlap; on a tree built from objects other
    // trees released, which lie anywhere, memory past the node (ahead_)
    // finds little of them.
    //
    // The last link, from each property to its value, is followed while the
    // children are written, a child or two ahead of the one being written
    // (childAhead): following it for all children at once waited for every
    // property before the first child could start, a fifth of the time of
    // writing records of many small objects, while values outside the
    // property (texts, arrays) are most of what records of long texts wait for.
    struct Chain {
        std::vector<const void*> links;
        size_t properties = 0;  // where the properties start in links
        size_t fetched = 0;     // properties whose value was asked for
        int children = 0;
    };

    void fetchChildren(const CBaseNode* node, int count) {
        if (chains_.size() < size_t(depth_)) chains_.resize(size_t(depth_));
        Chain& chain = chains_[size_t(depth_ - 1)];
        std::vector<const void*>& links = chain.links;
        links.clear();
        chain.properties = chain.fetched = 0;
        chain.children = count;
        if (count < 4) return;  // too few chains to overlap
        for (int i = 0; i < count; ++i) {
            const tovan::iNode* child = node->ChildList()[size_t(i)];
            if (typeid(*child) != typeid(CBaseNode)) continue;
            __builtin_prefetch(static_cast<const CBaseNode*>(child)->CBaseNode::getName().view().data());
            const tovan::iPropertyCollection* c = static_cast<const CBaseNode*>(child)->CBaseNode::getProperties();
            if (!c) continue;
            __builtin_prefetch(c);
            links.push_back(c);
        }
        size_t kept = 0;
        for (const void* c : links) {
            const auto* collection = static_cast<const tovan::iPropertyCollection*>(c);
            if (typeid(*collection) != typeid(CPropertyCollection)) continue;
            if (const CPropertyCollectionData* d = static_cast<const CPropertyCollection*>(collection)->findData()) {
                __builtin_prefetch(d);
                links[kept++] = d;
            }
        }
        links.resize(kept);
        for (const void* d : links) __builtin_prefetch(static_cast<const CPropertyCollectionData*>(d)->GetSlots().data());
        const size_t storages = links.size();
        for (size_t k = 0; k < storages; ++k)
            for (const CProperty* p : static_cast<const CPropertyCollectionData*>(links[k])->GetSlots())
                if (p) {
                    __builtin_prefetch(p);
                    links.push_back(p);
                }
        chain.properties = chain.fetched = storages;
    }

    /// Before the `written`-th child of the node at this depth goes out: the
    /// values of the properties up to about two children further on.
    void childAhead(int written) {
        Chain& chain = chains_[size_t(depth_ - 1)];
        const size_t total = chain.links.size() - chain.properties;
        if (total == 0) return;
        const size_t upTo =
            chain.properties + std::min(total, total * size_t(written + 2) / size_t(chain.children) + 1);
        for (; chain.fetched < upTo; ++chain.fetched) {
            const auto* p = static_cast<const CProperty*>(chain.links[chain.fetched]);
            if (const tovan::Value* v = p->findValue()) __builtin_prefetch(v);
        }
    }

    bool properties(const tovan::iPropertyCollection* properties, bool& first) {
        if (!properties) return true;
        if (typeid(*properties) != typeid(CPropertyCollection)) return false;
        const CPropertyCollectionData* data = static_cast<const CPropertyCollection*>(properties)->findData();
        if (!data) return true;
        return forEachProperty(data->GetSlots(), [&](const CProperty& p) {
            if (typeid(p) != typeid(CProperty) || !key(p.CProperty::getName(), first)) return false;
            if (const tovan::Value* v = p.findValue()) return value(*v);
            put("null");
            return true;
        });
    }

    bool key(const tovan::WString& name, bool& first) {
        if (name.isEmpty()) return false;  // the writer refuses it
        if (!first) out_ += Char(',');
        first = false;
        if constexpr (std::is_same_v<Char, char>) {
            out_.key(name.view(), keys_);
        } else {
            escape(name.view());
            out_ += Char(':');
        }
        return true;
    }

    enum class Runs { Written, NotRuns, Refused };

    // Children in runs of one name that never comes back, as writeChildRuns;
    // NotRuns, with nothing written, for any other shape.
    Runs childRuns(const CBaseNode* node, int count, bool& first) {
        constexpr int kMaxRuns = 8;
        int runStart[kMaxRuns + 1];
        const tovan::WString* runName[kMaxRuns];
        int runs = 0;
        for (int i = 0; i < count; ++i) {
            const tovan::WString& name = node->ChildList()[size_t(i)]->getName();
            if (runs > 0 && sameName(*runName[runs - 1], name)) continue;
            if (runs == kMaxRuns) return Runs::NotRuns;
            for (int r = 0; r + 1 < runs; ++r)
                if (sameName(*runName[r], name)) return Runs::NotRuns;
            runStart[runs] = i;
            runName[runs++] = &name;
        }
        runStart[runs] = count;
        for (int r = 0; r < runs; ++r) {
            if (!key(*runName[r], first)) return Runs::Refused;
            out_ += Char('[');
            for (int i = runStart[r]; i < runStart[r + 1]; ++i) {
                if (i != runStart[r]) out_ += Char(',');
                childAhead(i);
                if (!this->node(node->ChildList()[size_t(i)], false, true, false)) return Runs::Refused;
            }
            out_ += Char(']');
        }
        return Runs::Written;
    }

    // One member per distinct name in the order the names first appear, as
    // appendNode groups them. A name the writer refuses (empty, or null)
    // gives up before anything is grouped.
    bool childGroups(const CBaseNode* node, int count, bool& first) {
        std::vector<const tovan::WString*> names;
        std::vector<uint32_t> groupOf(static_cast<size_t>(count));
        std::unordered_map<std::u16string_view, uint32_t> byName;
        for (int i = 0; i < count; ++i) {
            const tovan::WString& name = node->ChildList()[size_t(i)]->getName();
            if (name.isEmpty()) return false;
            auto [at, fresh] = byName.emplace(name.view(), uint32_t(names.size()));
            if (fresh) names.push_back(&name);
            groupOf[size_t(i)] = at->second;
        }
        const GroupOrder order(groupOf, names.size());
        for (size_t g = 0; g < names.size(); ++g) {
            if (!key(*names[g], first)) return false;
            out_ += Char('[');
            for (uint32_t k = order.start[g]; k < order.start[g + 1]; ++k) {
                if (k != order.start[g]) out_ += Char(',');
                childAhead(int(k));
                if (!this->node(node->ChildList()[order.ordered[k]], false, true, false)) return false;
            }
            out_ += Char(']');
        }
        return true;
    }

    // A double as value(double) writes it: for a finite number that is the
    // text of doubleToString's option 1, which always has a point followed
    // by a digit, so the writer's repairs would change nothing.
    void number(double d) {
        if (!std::isfinite(d)) {
            if constexpr (std::is_same_v<Char, char>)
                out_.number(d, strict_);
            else
                CJsonWriter::AppendDouble(d, strict_, out_);
            return;
        }
        if constexpr (std::is_same_v<Char, char>) {
            out_.finite(d);
        } else {
            Char text[tovan::kDoubleTextMax];
            out_.append(text, tovan::util::doubleToString(d, text, tovan::kDoubleTextMax, 1));
        }
    }

    // Integers are most of the values of many records.
    void digits(int32_t n) {
        if constexpr (std::is_same_v<Char, char>) {
            out_.integer(n);
        } else {
            Char text[tovan::kIntegerTextMax];
            out_.append(text, size_t(tovan::putInteger(text, n) - text));
        }
    }

    // As writeValue, for the kinds records hold.
    bool value(const tovan::Value& v) {
        switch (v.getTypeCode()) {
        case tovan::VT_Boolean: put(static_cast<const tovan::BooleanValue&>(v).get() ? "true" : "false"); return true;
        case tovan::VT_Double: number(static_cast<const tovan::DoubleValue&>(v).get()); return true;
        case tovan::VT_Integer: digits(static_cast<const tovan::IntegerValue&>(v).get()); return true;
        case tovan::VT_Null:
        case tovan::VT_HashTable: put("null"); return true;
        case tovan::VT_String:
            if (typeid(v) != typeid(tovan::StringValue)) return false;
            escape(static_cast<const tovan::StringValue&>(v).get().view());
            return true;
        case tovan::VT_DoubleArray: {
            if (typeid(v) != typeid(tovan::DoubleArrayValue)) return false;
            const auto& numbers = static_cast<const tovan::DoubleArrayValue&>(v).items();
            out_ += Char('[');
            for (size_t i = 0; i < numbers.size(); ++i) {
                if (i) out_ += Char(',');
                number(numbers[i]);
            }
            out_ += Char(']');
            return true;
        }
        case tovan::VT_IntegerArray: return elements<tovan::IntegerArrayValue>(v, [&](int32_t x) { digits(x); });
        case tovan::VT_BooleanArray:
            return elements<tovan::BooleanArrayValue>(v, [&](bool b) { put(b ? "true" : "false"); });
        case tovan::VT_StringArray:
            return elements<tovan::StringArrayValue>(
                v, [&](const tovan::WString& t) { escape(t.view()); });
        case tovan::VT_ValueArray: {
            if (typeid(v) != typeid(tovan::ValueArrayValue)) return false;
            const auto& values = static_cast<const tovan::ValueArrayValue&>(v);
            out_ += Char('[');
            for (size_t i = 0; i < values.size(); ++i) {
                if (i) out_ += Char(',');
                if (!value(values.get(i))) return false;
            }
            out_ += Char(']');
            return true;
        }
        case tovan::VT_NDimArray: {
            if (typeid(v) != typeid(tovan::NDimArrayValue)) return false;
            const auto& nd = static_cast<const tovan::NDimArrayValue&>(v);
            size_t flat = 0;
            return dimension(nd, 0, flat);
        }
        case tovan::VT_NullArray: {
            if (typeid(v) != typeid(tovan::NullArrayValue)) return false;
            const size_t n = static_cast<const tovan::NullArrayValue&>(v).size();
            out_ += Char('[');
            for (size_t i = 0; i < n; ++i) put(i ? ",null" : "null");
            out_ += Char(']');
            return true;
        }
        default: return false;
        }
    }

    // As writeDimension, for flat stores of doubles and integers that hold
    // every element (a short store makes the calls fail where it ends).
    bool dimension(const tovan::NDimArrayValue& nd, size_t dim, size_t& flat) {
        const unsigned n = nd.getDimensions()[dim];
        out_ += Char('[');
        if (dim + 1 < nd.getDimensionCount()) {
            for (unsigned k = 0; k < n; ++k) {
                if (k) out_ += Char(',');
                if (!dimension(nd, dim + 1, flat)) return false;
            }
        } else {
            const tovan::ArrayValue& elements = nd.flat();
            if (flat + n > elements.size()) return false;
            if (typeid(elements) == typeid(tovan::DoubleArrayValue)) {
                const auto& numbers = static_cast<const tovan::DoubleArrayValue&>(elements).items();
                for (unsigned k = 0; k < n; ++k) {
                    if (k) out_ += Char(',');
                    number(numbers[flat++]);
                }
            } else if (typeid(elements) == typeid(tovan::IntegerArrayValue)) {
                const auto& integers = static_cast<const tovan::IntegerArrayValue&>(elements);
                for (unsigned k = 0; k < n; ++k) {
                    if (k) out_ += Char(',');
                    digits(integers.get(flat++));
                }
            } else {
                return false;
            }
        }
        out_ += Char(']');
        return true;
    }

    template <class A, class Write>
    bool elements(const tovan::Value& v, Write write) {
        if (typeid(v) != typeid(A)) return false;
        const auto& array = static_cast<const A&>(v);
        out_ += Char('[');
        for (size_t i = 0; i < array.size(); ++i) {
            if (i) out_ += Char(',');
            write(array.get(i));
        }
        out_ += Char(']');
        return true;
    }

    Out& out_;
    bool strict_;
    const int levels_;
    int depth_ = 0;
    struct NoKeys {};
    [[no_unique_address]] std::conditional_t<std::is_same_v<Char, char>, typename Utf8Out::KeyCache, NoKeys> keys_;
    tovan::MemoryAhead ahead_;
    std::vector<Chain> chains_;  // fetchChildren's links, one chain per depth
};

}  // namespace

// The entry points batch the writer's output: a tree goes to the sink in
// large pieces, and complete when the call returns.

void WriteValue(CJsonWriter& w, const tovan::Value& value) {
    CJsonWriter::Batch batch(w);
    detail::writeValue(w, value);
    batch.finish();
}

namespace {

// Writing recurses once per level of nodes, and the reader refuses JSON nested
// deeper than its limit: a tree whose text would nest deeper, counting the
// writer's open containers, is refused whole before a byte is written. Each
// node below the first takes two levels, the member's array and its object.
int nestingLevels(const CJsonWriter& w, bool withChildren) {
    const int room = cajun::json::Parser::kMaxDepth - int(w.getDepth());
    if (room < 1) return 0;
    return withChildren ? (room + 1) / 2 : 1;
}

void checkNesting(const CJsonWriter& w, const tovan::iNode* node, bool withChildren) {
    if (!node) return;
    const int limit = cajun::json::Parser::kMaxDepth;
    const int room = limit - int(w.getDepth());
    const int levels = withChildren ? std::max(room + 1, 0) / 2 : 1;
    if (room < 1 || (withChildren && CNodeImplBase::TreeDepth(*node, levels) > levels))
        throw tovan::Exception("JsonUtilities", "AppendElementToArray",
                               u"Nodes nested deeper than %d levels here would make JSON nested deeper than %d "
                               u"levels, which cannot be read back; nothing of this node was written",
                               levels, limit);
}

}  // namespace

void AppendElementToArray(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren,
                          bool childrenAsList) {
    // A node inside a container whose subtree the text builder covers goes
    // out as one value (its text holds no zero unit: escaping spells those).
    // The builder keeps to the nesting limit itself, which spares a walk of
    // the whole tree ahead of it; a tree too deep falls to the check below.
    const int levels = nestingLevels(w, withChildren);
    if (node && levels > 0 && (w.getMode() == CJsonWriter::ModeArray || w.getMode() == CJsonWriter::ModeKey)) {
        CJsonWriter::Batch batch(w);
        const bool strict = w.getDecimalPlaceStrictness();
        const bool built = w.sinkTakesUtf8() ? w.tryValueUtf8([&](std::string& out) {
            Utf8Out text(out);
            return SubtreeText<Utf8Out>(text, strict, levels).node(node, newLineAfter, withChildren, childrenAsList);
        })
                                             : w.tryValue([&](std::u16string& out) {
                                                   return SubtreeText<std::u16string>(out, strict, levels)
                                                       .node(node, newLineAfter, withChildren, childrenAsList);
                                               });
        if (built) {
            if (newLineAfter) w.writeNewLine();
            batch.finish();
            return;
        }
    }
    checkNesting(w, node, withChildren);
    CJsonWriter::Batch batch(w);
    detail::appendNode(w, node, newLineAfter, withChildren, childrenAsList);
    batch.finish();
}

void AppendRecordToArray(CJsonWriter& w, const tovan::iDataRecord& record, bool newLineAfter, bool withChildren,
                         bool childrenAsList) {
    if (const tovan::iNode* root = record.getRootNode())
        AppendElementToArray(w, root, newLineAfter, withChildren, childrenAsList);
}

}  // namespace nvk::JsonUtilities

tovan::iDataRecord::~iDataRecord() = default;
