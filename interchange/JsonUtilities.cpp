#include "nvk/interchange/JsonUtilities.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/NDimArrayValue.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/Prefetch.h"

namespace nvk::JsonUtilities {

using namespace cajun::json;
using nvk::CBaseNode;
using nvk::CProperty;
using nvk::CPropertyCollection;
using nvk::CPropertyCollectionData;

namespace {

class FileSink : public CJsonWriter::Writer {
public:
    explicit FileSink(tovan::iFileInterface* file) : file_(file) {}
    void write(tovan::wchar c) override { file_->writeChar(c); }
    void write(const tovan::wchar* text) override { file_->writeText(text); }
    void write(std::u16string_view text) override { file_->writeText(text); }
    bool takesUtf8() const override { return true; }
    void writeUtf8(std::string_view text) override { file_->writeUtf8(text); }

private:
    tovan::iFileInterface* file_;
};

// The sink is a base so that it is built before the writer that uses it.
struct SinkHolder {
    explicit SinkHolder(tovan::iFileInterface* file) : sink(file) {}
    FileSink sink;
};

class FileWriter : private SinkHolder, public CJsonWriter {
public:
    FileWriter(tovan::iFileInterface* file, const tovan::wchar* variableName)
        : SinkHolder(file), CJsonWriter(&sink, variableName) {}
};

class ElementWriter : public ConstVisitor {
public:
    explicit ElementWriter(CJsonWriter& writer) : w_(writer) {}
    void Visit(const Array& a) override {
        w_.array();
        for (const Element& e : a) e.Accept(*this);
        w_.endArray();
    }
    void Visit(const Object& o) override {
        w_.object();
        for (const auto& m : o) {
            w_.key(std::u16string_view(m.name));
            m.element.Accept(*this);
        }
        w_.endObject();
    }
    void Visit(const Number& n) override { w_.value(n.Value()); }
    void Visit(const String& s) override { w_.value(std::u16string_view(s.Value()), true); }
    void Visit(const Boolean& b) override { w_.value(b.Value()); }
    void Visit(const Null&) override { w_.value(u"null", false); }

private:
    CJsonWriter& w_;
};

}  // namespace

CJsonWriter* CreateJsonWriter(tovan::vcFileInterface* file, const tovan::wchar* variableName) {
    if (!file) throw tovan::Exception("JsonUtilities", "CreateJsonWriter", u"Invalid null output stream");
    return new FileWriter(file, variableName);
}

void DestroyJsonWriter(CJsonWriter*& writer) {
    delete writer;
    writer = nullptr;
}

void WriteElement(CJsonWriter& writer, const Element& element) {
    CJsonWriter::Batch batch(writer);
    ElementWriter visitor(writer);
    element.Accept(visitor);
    batch.finish();
}

void WriteElement(CJsonWriter& writer, const Object& object) {
    CJsonWriter::Batch batch(writer);
    ElementWriter visitor(writer);
    visitor.Visit(object);
    batch.finish();
}

namespace {

void writeValue(CJsonWriter& w, const tovan::Value& value);
void appendNode(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren, bool childrenAsList);

// One element of an array value, typed access first so that large arrays do
// not make a value object per element.
void writeArrayElement(CJsonWriter& w, const tovan::ArrayValue& array, int code, size_t i) {
    switch (code) {
    case tovan::VT_DoubleArray: w.value(static_cast<const tovan::DoubleArrayValue&>(array).get(i)); return;
    case tovan::VT_IntegerArray: w.value(long(static_cast<const tovan::IntegerArrayValue&>(array).get(i))); return;
    case tovan::VT_BooleanArray: w.value(bool(static_cast<const tovan::BooleanArrayValue&>(array).get(i))); return;
    case tovan::VT_ByteArray: w.value(long(static_cast<const tovan::ByteArrayValue&>(array).get(i))); return;
    case tovan::VT_StringArray:
        w.value(std::u16string_view(static_cast<const tovan::StringArrayValue&>(array).get(i).view()), true);
        return;
    case tovan::VT_NullArray: w.value(u"null", false); return;
    case tovan::VT_ValueArray: writeValue(w, static_cast<const tovan::ValueArrayValue&>(array).get(i)); return;
    default: writeValue(w, *array.getElement(i));
    }
}

void writeDimension(CJsonWriter& w, const tovan::NDimArrayValue& nd, size_t dim, size_t& flat) {
    unsigned n = nd.getDimensions()[dim];
    if (dim + 1 == nd.getDimensionCount()) {
        const tovan::ArrayValue& elements = nd.flat();
        const int code = elements.getTypeCode();
        if (code == tovan::VT_DoubleArray && typeid(elements) == typeid(tovan::DoubleArrayValue)) {
            const auto& numbers = static_cast<const tovan::DoubleArrayValue&>(elements).items();
            // A short store goes element by element, to fail where an element is missing.
            if (flat + n <= numbers.size()) {
                w.array(numbers.data() + flat, n);
                flat += n;
                return;
            }
        }
        w.array();
        for (unsigned k = 0; k < n; ++k) writeArrayElement(w, elements, code, flat++);
    } else {
        w.array();
        for (unsigned k = 0; k < n; ++k) writeDimension(w, nd, dim + 1, flat);
    }
    w.endArray();
}

// The array classes by their codes, without a dynamic_cast for each value
// (a test of the exact class is a pointer comparison); anything else the
// slow way.
template <class A>
const tovan::ArrayValue* exactly(const tovan::Value& value) {
    return typeid(value) == typeid(A) ? static_cast<const A*>(&value) : value.findAs<tovan::ArrayValue>();
}

const tovan::ArrayValue* asArray(const tovan::Value& value) {
    switch (value.getTypeCode()) {
    case tovan::VT_StringArray: return exactly<tovan::StringArrayValue>(value);
    case tovan::VT_IntegerArray: return exactly<tovan::IntegerArrayValue>(value);
    case tovan::VT_DoubleArray: return exactly<tovan::DoubleArrayValue>(value);
    case tovan::VT_BooleanArray: return exactly<tovan::BooleanArrayValue>(value);
    case tovan::VT_ByteArray: return exactly<tovan::ByteArrayValue>(value);
    case tovan::VT_NullArray: return exactly<tovan::NullArrayValue>(value);
    case tovan::VT_ValueArray: return exactly<tovan::ValueArrayValue>(value);
    default: return value.findAs<tovan::ArrayValue>();
    }
}

void writeValue(CJsonWriter& w, const tovan::Value& value) {
    switch (value.getTypeCode()) {
    case tovan::VT_Boolean: w.value(static_cast<const tovan::BooleanValue&>(value).get()); return;
    case tovan::VT_Double: w.value(static_cast<const tovan::DoubleValue&>(value).get()); return;
    case tovan::VT_Integer: w.value(long(static_cast<const tovan::IntegerValue&>(value).get())); return;
    case tovan::VT_Null: w.value(u"null", false); return;
    // No JSON array form for a table of named values: written as null.
    case tovan::VT_HashTable: w.value(u"null", false); return;
    case tovan::VT_NDimArray: {
        const auto& nd = static_cast<const tovan::NDimArrayValue&>(value);
        size_t flat = 0;
        writeDimension(w, nd, 0, flat);
        return;
    }
    default: break;
    }
    // The text of a plain string value is at hand: no copy through toString().
    if (value.getTypeCode() == tovan::VT_String && typeid(value) == typeid(tovan::StringValue)) {
        w.value(std::u16string_view(static_cast<const tovan::StringValue&>(value).get().view()), true);
        return;
    }
    if (const auto* array = asArray(value)) {
        // The code first: comparing type identities that differ compares their names.
        if (array->getTypeCode() == tovan::VT_DoubleArray && typeid(*array) == typeid(tovan::DoubleArrayValue)) {
            const auto& numbers = static_cast<const tovan::DoubleArrayValue*>(array)->items();
            w.array(numbers.data(), numbers.size());
            return;
        }
        w.array();
        const int code = array->getTypeCode();
        const size_t n = array->size();
        for (size_t i = 0; i < n; ++i) writeArrayElement(w, *array, code, i);
        w.endArray();
        return;
    }
    tovan::WString text = value.toString();
    w.value(std::u16string_view(text.view()), true);
}

// The library's own collection and property classes (exactly those: a
// subclass may override what is read) are read from their storage: no
// virtual call and no public index per property (an index squeezes out
// holes first and checks its range). Anything else goes through the
// interfaces; both give the same text.
void writeProperties(CJsonWriter& w, const tovan::iPropertyCollection* properties) {
    if (!properties) return;
    if (typeid(*properties) != typeid(CPropertyCollection)) {
        const int n = properties->getSize();
        for (int i = 0; i < n; ++i) {
            const tovan::iProperty& p = properties->get(i);
            w.key(std::u16string_view(p.getName().view()));
            writeValue(w, p.getValue());
        }
        return;
    }
    const CPropertyCollectionData* data = static_cast<const CPropertyCollection*>(properties)->findData();
    if (!data) return;
    const std::vector<CProperty*>& slots = data->GetSlots();
    const size_t n = slots.size();
    for (size_t k = 0; k < n; ++k) {
        // Each property and each value is an object of its own wherever its
        // pool put it, so the walk mostly waits for memory: the property two
        // ahead and the value one ahead are asked for early.
        if (k + 2 < n && slots[k + 2]) __builtin_prefetch(slots[k + 2]);
        if (k + 1 < n && slots[k + 1]) __builtin_prefetch(slots[k + 1]->findValue());
        const CProperty* p = slots[k];
        if (!p) continue;  // a hole left by a removal
        if (typeid(*p) != typeid(CProperty)) {
            w.key(std::u16string_view(p->getName().view()));
            writeValue(w, p->getValue());
            continue;
        }
        w.key(std::u16string_view(p->CProperty::getName().view()));
        if (const tovan::Value* value = p->findValue())
            writeValue(w, *value);
        else
            w.value(u"null", false);  // a property without a value reads as the null value
    }
}

/// Children in group order, each group in document order: `start[g]` ..
/// `start[g + 1]` index `ordered` for group g (a counting sort on `groupOf`).
struct GroupOrder {
    std::vector<uint32_t> start;
    std::vector<int> ordered;
    GroupOrder(const std::vector<uint32_t>& groupOf, size_t groups) : start(groups + 1, 0), ordered(groupOf.size()) {
        for (uint32_t g : groupOf) ++start[g + 1];
        for (size_t g = 1; g < start.size(); ++g) start[g] += start[g - 1];
        std::vector<uint32_t> next(start.begin(), start.end() - 1);
        for (size_t i = 0; i < groupOf.size(); ++i) ordered[next[groupOf[i]]++] = int(i);
    }
};

bool sameName(const tovan::WString& a, const tovan::WString& b) {
    return a.isNull() ? b.isNull() : !b.isNull() && a == b;  // a null name is apart from the empty one
}

// The usual shape, children whose names come in a few runs that never
// return to an earlier name (one run per member of the document read), is
// already in group order: written as it stands, without building the
// grouping. False, with nothing written, for any other shape.
bool writeChildRuns(CJsonWriter& w, const tovan::iNode* node, int count) {
    constexpr int kMaxRuns = 8;
    int runStart[kMaxRuns + 1];
    const tovan::WString* runName[kMaxRuns];
    int runs = 0;
    for (int i = 0; i < count; ++i) {
        const tovan::WString& name = node->getChildAt(i)->getName();
        if (runs > 0 && sameName(*runName[runs - 1], name)) continue;
        if (runs == kMaxRuns) return false;
        for (int r = 0; r + 1 < runs; ++r)
            if (sameName(*runName[r], name)) return false;
        runStart[runs] = i;
        runName[runs++] = &name;
    }
    runStart[runs] = count;
    for (int r = 0; r < runs; ++r) {
        w.key(std::u16string_view(runName[r]->view())).array();
        for (int i = runStart[r]; i < runStart[r + 1]; ++i) appendNode(w, node->getChildAt(i), false, true, false);
        w.endArray();
    }
    return true;
}

void appendNode(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren, bool childrenAsList) {
    w.object();
    const bool own = typeid(*node) == typeid(CBaseNode);
    writeProperties(w, own ? static_cast<const CBaseNode*>(node)->CBaseNode::getProperties() : node->getProperties());
    int count = own ? static_cast<const CBaseNode*>(node)->CBaseNode::getNumberOfChildren() : node->getNumberOfChildren();
    if (withChildren && count > 0) {
        if (childrenAsList) {
            w.key(u"children").array();
            for (int i = 0; i < count; ++i) appendNode(w, node->getChildAt(i), newLineAfter, true, true);
            w.endArray();
        } else if (!writeChildRuns(w, node, count)) {
            // One member per distinct name, in the order the names first
            // appear. A few names are told apart by comparing them; past
            // that a hash finds the group (an object of records keyed by id
            // has as many names as children). Names are read in place: a
            // node's name lives as long as the node.
            constexpr size_t kScanGroups = 8;
            std::vector<const tovan::WString*> names;
            std::vector<uint32_t> groupOf(static_cast<size_t>(count));
            std::unordered_map<std::u16string_view, uint32_t> byName;
            uint32_t nullGroup = UINT32_MAX;  // a null name is a name of its own, apart from the empty one
            for (int i = 0; i < count; ++i) {
                const tovan::WString& name = node->getChildAt(i)->getName();
                uint32_t group = UINT32_MAX;
                if (name.isNull()) {
                    group = nullGroup;
                } else if (names.size() <= kScanGroups) {
                    for (size_t g = 0; g < names.size(); ++g)
                        if (*names[g] == name) {
                            group = uint32_t(g);
                            break;
                        }
                } else {
                    if (byName.empty())
                        for (size_t g = 0; g < names.size(); ++g)
                            if (!names[g]->isNull()) byName.emplace(names[g]->view(), uint32_t(g));
                    auto found = byName.find(name.view());
                    if (found != byName.end()) group = found->second;
                }
                if (group == UINT32_MAX) {
                    group = uint32_t(names.size());
                    names.push_back(&name);
                    if (name.isNull())
                        nullGroup = group;
                    else if (!byName.empty())
                        byName.emplace(name.view(), group);
                }
                groupOf[size_t(i)] = group;
            }
            const GroupOrder order(groupOf, names.size());
            for (size_t g = 0; g < names.size(); ++g) {
                w.key(std::u16string_view(names[g]->view())).array();
                for (uint32_t k = order.start[g]; k < order.start[g + 1]; ++k)
                    appendNode(w, node->getChildAt(order.ordered[k]), false, true, false);
                w.endArray();
            }
        }
    }
    w.endObject();
    if (newLineAfter) w.writeNewLine();
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
    /// Up to 24 bytes, from where 24 can be read.
    void appendShort(const char* text, size_t n) {
        room(24);
        std::memcpy(at_, text, 24);
        at_ += n;
    }
    void escape(std::u16string_view text) {
        room(6 * text.size() + 2);
        at_ = CJsonWriter::escapeUtf8(text, at_);
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
    SubtreeText(Out& out, bool strict) : out_(out), strict_(strict) {}

    /// The node as appendNode writes it inside a container, from its "{" to
    /// its "}"; false when it gave up (`out` then holds a part).
    bool node(const tovan::iNode* node, bool newLineAfter, bool withChildren, bool childrenAsList) {
        if (typeid(*node) != typeid(CBaseNode)) return false;
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
    void fetchChildren(const CBaseNode* node, int count) {
        if (count < 4) return;  // too few chains to overlap
        chain_.clear();
        for (int i = 0; i < count; ++i) {
            const tovan::iNode* child = node->ChildList()[size_t(i)];
            if (typeid(*child) != typeid(CBaseNode)) continue;
            __builtin_prefetch(static_cast<const CBaseNode*>(child)->CBaseNode::getName().view().data());
            const tovan::iPropertyCollection* c = static_cast<const CBaseNode*>(child)->CBaseNode::getProperties();
            if (!c) continue;
            __builtin_prefetch(c);
            chain_.push_back(c);
        }
        size_t kept = 0;
        for (const void* c : chain_) {
            const auto* collection = static_cast<const tovan::iPropertyCollection*>(c);
            if (typeid(*collection) != typeid(CPropertyCollection)) continue;
            if (const CPropertyCollectionData* d = static_cast<const CPropertyCollection*>(collection)->findData()) {
                __builtin_prefetch(d);
                chain_[kept++] = d;
            }
        }
        chain_.resize(kept);
        for (const void* d : chain_) __builtin_prefetch(static_cast<const CPropertyCollectionData*>(d)->GetSlots().data());
        const size_t storages = chain_.size();
        for (size_t k = 0; k < storages; ++k)
            for (const CProperty* p : static_cast<const CPropertyCollectionData*>(chain_[k])->GetSlots())
                if (p) {
                    __builtin_prefetch(p);
                    chain_.push_back(p);
                }
        for (size_t k = storages; k < chain_.size(); ++k) {
            const CProperty* p = static_cast<const CProperty*>(chain_[k]);
            __builtin_prefetch(p->CProperty::getName().view().data());
            if (const tovan::Value* v = p->findValue()) __builtin_prefetch(v);
        }
    }

    bool properties(const tovan::iPropertyCollection* properties, bool& first) {
        if (!properties) return true;
        if (typeid(*properties) != typeid(CPropertyCollection)) return false;
        const CPropertyCollectionData* data = static_cast<const CPropertyCollection*>(properties)->findData();
        if (!data) return true;
        const std::vector<CProperty*>& slots = data->GetSlots();
        const size_t n = slots.size();
        for (size_t k = 0; k < n; ++k) {
            if (k + 2 < n && slots[k + 2]) __builtin_prefetch(slots[k + 2]);
            if (k + 1 < n && slots[k + 1]) __builtin_prefetch(slots[k + 1]->findValue());
            const CProperty* p = slots[k];
            if (!p) continue;
            if (typeid(*p) != typeid(CProperty)) return false;
            if (!key(p->CProperty::getName(), first)) return false;
            if (const tovan::Value* v = p->findValue()) {
                if (!value(*v)) return false;
            } else {
                put("null");
            }
        }
        return true;
    }

    bool key(const tovan::WString& name, bool& first) {
        if (name.isEmpty()) return false;  // the writer refuses it
        if (!first) out_ += Char(',');
        first = false;
        escape(name.view());
        out_ += Char(':');
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
        char text[tovan::kDoubleTextMax];
        const size_t n = tovan::util::doubleToString(d, text, sizeof text, 1);
        if constexpr (std::is_same_v<Char, char>) {
            out_.append(text, n);
        } else {
            Char wide[tovan::kDoubleTextMax];
            for (size_t i = 0; i < n; ++i) wide[i] = Char(text[i]);
            out_.append(wide, n);
        }
    }

    // Integers are most of the values of many records.
    void digits(long n) {
        Char text[tovan::kIntegerTextMax];
        const Char* end = tovan::putInteger(text, n);
        if constexpr (std::is_same_v<Char, char>)
            out_.appendShort(text, size_t(end - text));
        else
            out_.append(text, size_t(end - text));
    }

    // As writeValue, for the kinds records hold.
    bool value(const tovan::Value& v) {
        switch (v.getTypeCode()) {
        case tovan::VT_Boolean: put(static_cast<const tovan::BooleanValue&>(v).get() ? "true" : "false"); return true;
        case tovan::VT_Double: number(static_cast<const tovan::DoubleValue&>(v).get()); return true;
        case tovan::VT_Integer: digits(long(static_cast<const tovan::IntegerValue&>(v).get())); return true;
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
        case tovan::VT_IntegerArray: return elements<tovan::IntegerArrayValue>(v, [&](int32_t x) { digits(long(x)); });
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
                    digits(long(integers.get(flat++)));
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
    tovan::MemoryAhead ahead_;
    std::vector<const void*> chain_;  // fetchChildren's links of one kind
};

}  // namespace

// The entry points batch the writer's output: a tree goes to the sink in
// large pieces, and complete when the call returns.

void WriteValue(CJsonWriter& w, const tovan::Value& value) {
    CJsonWriter::Batch batch(w);
    writeValue(w, value);
    batch.finish();
}

void AppendElementToArray(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren,
                          bool childrenAsList) {
    CJsonWriter::Batch batch(w);
    // A node inside a container whose subtree the text builder covers goes
    // out as one value (its text holds no zero unit: escaping spells those).
    if (node && (w.getMode() == CJsonWriter::ModeArray || w.getMode() == CJsonWriter::ModeKey)) {
        const bool strict = w.getDecimalPlaceStrictness();
        const bool built = w.sinkTakesUtf8() ? w.tryValueUtf8([&](std::string& out) {
            Utf8Out text(out);
            return SubtreeText<Utf8Out>(text, strict).node(node, newLineAfter, withChildren, childrenAsList);
        })
                                             : w.tryValue([&](std::u16string& out) {
                                                   return SubtreeText<std::u16string>(out, strict)
                                                       .node(node, newLineAfter, withChildren, childrenAsList);
                                               });
        if (built) {
            if (newLineAfter) w.writeNewLine();
            batch.finish();
            return;
        }
    }
    appendNode(w, node, newLineAfter, withChildren, childrenAsList);
    batch.finish();
}

void AppendRecordToArray(CJsonWriter& w, const tovan::iDataRecord& record, bool newLineAfter, bool withChildren,
                         bool childrenAsList) {
    if (const tovan::iNode* root = record.getRootNode())
        AppendElementToArray(w, root, newLineAfter, withChildren, childrenAsList);
}

}  // namespace nvk::JsonUtilities

tovan::iDataRecord::~iDataRecord() = default;
