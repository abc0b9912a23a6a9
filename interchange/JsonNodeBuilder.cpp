#include "nvk/interchange/JsonNodeBuilder.h"

#include <memory>
#include <string_view>
#include <unordered_set>

#include "nvk/interchange/JsonParser.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Value.h"

namespace nvk {

using cajun::json::JsonToken;
using cajun::json::Location;
using cajun::json::ParseException;
using cajun::json::TokenKind;

namespace {

// A token's location, read field by field: the scanner has just stored
// them, and one wide load over narrow stores would wait for them to retire.
Location copyOf(const Location& l) {
    return Location{__atomic_load_n(&l.line, __ATOMIC_RELAXED), __atomic_load_n(&l.column, __ATOMIC_RELAXED),
                    __atomic_load_n(&l.position, __ATOMIC_RELAXED)};
}


}  // namespace

// ---- MemberNames ----------------------------------------------------------

struct MemberNames::Spare {
    std::vector<Entry> entries;
    std::vector<Group> groups;
    std::vector<uint32_t> buckets;
    bool held = false;
};

MemberNames::Spare& MemberNames::spare() {
    thread_local Spare tables;
    return tables;
}

MemberNames::MemberNames() {
    if (Spare& s = spare(); s.held) {
        s.held = false;
        entries_.swap(s.entries);
        groups_.swap(s.groups);
        buckets_.swap(s.buckets);
    } else {
        // A document's names, mostly: readers are often made for one document.
        entries_.reserve(kFirstBuckets / 2);
        groups_.reserve(kFirstBuckets / 2);
    }
    buckets_.assign(kFirstBuckets, 0);
}

MemberNames::~MemberNames() {
    constexpr size_t kKeptBytes = size_t(1) << 16;
    Spare& s = spare();
    if (s.held || entries_.capacity() * sizeof(Entry) + groups_.capacity() * sizeof(Group) +
                          buckets_.capacity() * sizeof(uint32_t) >
                      kKeptBytes)
        return;
    entries_.clear();  // the name blocks go now, not with the thread
    groups_.clear();
    entries_.swap(s.entries);
    groups_.swap(s.groups);
    buckets_.swap(s.buckets);
    s.held = true;
}

uint32_t MemberNames::find(std::u16string_view text) {
    const uint32_t hash = tovan::hashNoCase(text);
    const size_t mask = buckets_.size() - 1;
    size_t b = hash & mask;
    for (; buckets_[b] != 0; b = (b + 1) & mask) {
        Group& g = groups_[buckets_[b] - 1];
        if (g.hash != hash || !tovan::equalsNoCase(entries_[g.first].text(), text)) continue;
        uint32_t e = g.first;
        for (;;) {
            if (matches(e, text)) return e;
            if (entries_[e].nextInGroup == kNone) break;
            e = entries_[e].nextInGroup;
        }
        // Another spelling of the group's name, which is rare: kept last.
        entries_[e].nextInGroup = uint32_t(entries_.size());
        entries_.emplace_back(SharedName(text), buckets_[b] - 1);
        return entries_[e].nextInGroup;
    }
    const auto entry = uint32_t(entries_.size());
    const auto group = uint32_t(groups_.size());
    entries_.emplace_back(SharedName(text), group);
    groups_.push_back(Group{hash, entry});
    buckets_[b] = group + 1;
    if (groups_.size() * 2 > buckets_.size()) rehash(buckets_.size() * 2);
    return entry;
}

void MemberNames::rehash(size_t buckets) {
    buckets_.assign(buckets, 0);
    const size_t mask = buckets - 1;
    for (size_t g = 0; g < groups_.size(); ++g) {
        size_t b = groups_[g].hash & mask;
        while (buckets_[b] != 0) b = (b + 1) & mask;
        buckets_[b] = uint32_t(g + 1);
    }
}

void MemberNames::trim() {
    if (entries_.size() < kMaxNames) return;
    entries_.clear();
    groups_.clear();
    firstAtTop_ = Prediction();
    propertiesAtTop_ = 0;
    buckets_.assign(kFirstBuckets, 0);
}

// ---- JsonNodeBuilder -------------------------------------------------------

struct JsonNodeBuilder::Workspace {
    cajun::json::Scanner scanner;
    std::vector<Member> members;
    std::vector<cajun::json::Element> elements;  // of the held arrays being read
    bool busy = false;
    bool owned = false;  // made for one builder, because the thread's own was busy
};

JsonNodeBuilder::Workspace* JsonNodeBuilder::takeWorkspace() {
    thread_local Workspace mine;
    if (!mine.busy) {
        mine.busy = true;
        return &mine;
    }
    auto* extra = new Workspace;
    extra->owned = true;
    return extra;
}

JsonNodeBuilder::JsonNodeBuilder(cajun::json::JsonInputStream& in, CJsonConverter& converter, MemberNames& names)
    : in_(in),
      converter_(converter),
      consumeBefore_(converter.consume_),
      workspace_(takeWorkspace()),
      scanner_(workspace_->scanner),
      dictionary_(names),
      members_(workspace_->members),
      membersBefore_(members_.size()) {
    dictionary_.trim();
    // Held elements belong to this builder alone: their texts can move.
    converter_.consume_ = true;
}

JsonNodeBuilder::~JsonNodeBuilder() {
    converter_.consume_ = consumeBefore_;
    converter_.releaseBatches();
    if (workspace_->owned) {
        delete workspace_;
        return;
    }
    // What is kept for the next read stays small, whatever this one held.
    constexpr size_t kKeptBytes = size_t(1) << 16;
    scanner_.TrimScratch(kKeptBytes);
    // A failed read leaves its open objects' members and arrays' elements behind.
    members_.resize(membersBefore_);
    workspace_->elements.clear();
    if (workspace_->elements.capacity() * sizeof(cajun::json::Element) > kKeptBytes)
        std::vector<cajun::json::Element>().swap(workspace_->elements);
    if (members_.capacity() * sizeof(Member) > kKeptBytes) std::vector<Member>().swap(members_);
    workspace_->busy = false;
}

bool JsonNodeBuilder::peek() {
    if (!loaded_ && !scanned_) {
        loaded_ = scanner_.Next(in_, token_);
        scanned_ = !loaded_;
    }
    return loaded_;
}

const JsonToken& JsonNodeBuilder::match(TokenKind kind) {
    // The parser's two texts for running out differ in the case of one letter.
    if (!peek()) throw ParseException(Location(), Location(), u"Unexpected End of token stream");
    if (token_.kind != kind) throw ParseException(token_.begin, token_.end, u"Unexpected token: %ls", token_.text);
    loaded_ = false;
    return token_;
}

bool JsonNodeBuilder::skip(TokenKind kind, char16_t c) {
    if (!loaded_ && !scanned_ && scanner_.TakePunctuation(in_, c)) return true;
    if (!nextIs(kind)) return false;
    loaded_ = false;
    return true;
}

void JsonNodeBuilder::enter(const JsonToken& token) {
    if (depth_ >= cajun::json::Parser::kMaxDepth)
        throw ParseException(token.begin, token.end, u"Nesting deeper than %d levels", cajun::json::Parser::kMaxDepth);
    ++depth_;
}

void JsonNodeBuilder::drain() {
    JsonToken rest;
    while (!scanned_ && scanner_.Next(in_, rest)) {
    }
    scanned_ = true;
}

void JsonNodeBuilder::ReadObject() {
    scanner_.Begin();
    try {
        enter(match(TokenKind::ObjectBegin));
        convert([&] { converter_.BeginObject(); });
        objectMembers(MemberNames::kNone);
    } catch (const ParseException&) {
        drain();  // a scan error further on is raised instead
        throw;
    }
}

void JsonNodeBuilder::RaiseConversionFailure() const {
    if (failure_) std::rethrow_exception(failure_);
}

void JsonNodeBuilder::objectMembers(uint32_t holder) {
    const size_t first = members_.size();
    const uint64_t serial = dictionary_.nextSerial();
    uint32_t previous = MemberNames::kNone;
    MemberNames::Prediction predicted = dictionary_.firstInside(holder);
    const size_t expected = dictionary_.propertiesInside(holder);
    if (!nextIs(TokenKind::ObjectEnd)) {
        for (;;) {
            Location begin, end;
            uint32_t entry = MemberNames::kNone;
            if (!loaded_ && !scanned_)
                for (const uint32_t candidate : {predicted.likely, predicted.other})
                    if (candidate != MemberNames::kNone && dictionary_.plain(candidate) &&
                        scanner_.TakeKnownString(in_, dictionary_.text(candidate), begin, end)) {
                        entry = candidate;
                        break;
                    }
            if (entry == MemberNames::kNone) {
                const JsonToken& name = match(TokenKind::String);
                begin = copyOf(name.begin);
                end = copyOf(name.end);
                // The name's text is the scanner's until the next token: its entry stays.
                entry = dictionary_.matches(predicted.likely, name.text)  ? predicted.likely
                        : dictionary_.matches(predicted.other, name.text) ? predicted.other
                                                                          : dictionary_.find(name.text);
            }
            // Asked for only now: find() may have moved the entries.
            if (entry != predicted.likely)
                (previous == MemberNames::kNone ? dictionary_.firstInside(holder) : dictionary_.follower(previous))
                    .learn(entry);
            previous = entry;
            predicted = dictionary_.follower(entry);
            if (!skip(TokenKind::MemberAssign, u':')) match(TokenKind::MemberAssign);
            // A scalar goes straight into its property below, without a turn
            // through the converter's stacks; it is read here, as value()
            // would, before the duplicate check.
            const bool scalar = peek() && int(token_.kind) >= int(TokenKind::String);
            bool emptyArray = false;  // as common as that is in records ("ids": [])
            double number = 0;
            if (scalar) {
                loaded_ = false;
                if (token_.kind == TokenKind::Number) number = cajun::json::Parser::ParseNumber(token_);
            } else if (loaded_ && token_.kind == TokenKind::ArrayBegin) {
                enter(match(TokenKind::ArrayBegin));
                if (nextIs(TokenKind::ArrayEnd)) {
                    match(TokenKind::ArrayEnd);
                    --depth_;
                    emptyArray = true;
                } else {
                    convert([&] { converter_.BeginValue(); });
                    arrayElements(entry);
                }
            } else {
                convert([&] { converter_.BeginValue(); });
                value(entry);
            }
            // A member of a group already marked by this object is either the
            // same text again, which is an error, or another spelling, which
            // the collection finds as the same property.
            uint64_t& mark = dictionary_.mark(dictionary_.group(entry));
            const bool seen = mark == serial;
            if (seen)
                for (size_t i = first; i < members_.size(); ++i)
                    if (members_[i].entry == entry)
                        throw ParseException(begin, end, u"Duplicate object member token: %ls",
                                             dictionary_.name(entry).text().view());
            members_.push_back(Member{entry, mark});
            mark = serial;
            if (scalar)
                // The token's text is still the scanner's: no token was read since.
                convert([&] { scalarMember(dictionary_.take(entry), number, expected, seen); });
            else if (emptyArray)
                // What the converter makes of an empty array: a null array.
                convert([&] {
                    converter_.storeMember(dictionary_.take(entry),
                                           tovan::Ptr<tovan::Value>(new tovan::NullArrayValue()), nullptr, expected,
                                           seen);
                });
            else
                convert([&] { converter_.endMember(dictionary_.take(entry), expected, seen); });
            if (!skip(TokenKind::NextElement, u',')) break;
        }
    }
    match(TokenKind::ObjectEnd);
    --depth_;
    dictionary_.propertiesInside(holder) = uint32_t(converter_.storedProperties());
    // The enclosing object's marks back, newest first (a group may be on the
    // stack twice, through two spellings).
    for (size_t i = members_.size(); i-- > first;)
        dictionary_.mark(dictionary_.group(members_[i].entry)) = members_[i].previousMark;
    members_.resize(first);
    // Looked up only now: the dictionary may have grown while the members were read.
    convert([&] { converter_.EndObject(holder == MemberNames::kNone ? nullptr : &dictionary_.name(holder)); });
}

void JsonNodeBuilder::scalarMember(SharedName name, double number, size_t expected, bool seen) {
    // What value() delivers for the token, and endMember then stores.
    CJsonConverter& c = converter_;
    switch (token_.kind) {
    case TokenKind::String:
        c.storeMember(std::move(name), tovan::Ptr<tovan::Value>(new tovan::StringValue(tovan::WString(token_.text))),
                      nullptr, expected, seen);
        return;
    case TokenKind::Number:
        if (CJsonDataTyper::IsInteger(number))
            c.storeScalar<tovan::IntegerValue>(std::move(name), expected, seen, int32_t(number));
        else
            c.storeScalar<tovan::DoubleValue>(std::move(name), expected, seen, number);
        return;
    case TokenKind::Boolean:
        c.storeScalar<tovan::BooleanValue>(std::move(name), expected, seen, token_.text == u"true");
        return;
    default: c.storeScalar<tovan::NullValue>(std::move(name), expected, seen); return;
    }
}

void JsonNodeBuilder::value(uint32_t holder) {
    if (!peek()) throw ParseException(Location(), Location(), u"Unexpected end of token stream");
    switch (token_.kind) {
    case TokenKind::ObjectBegin:
        enter(match(TokenKind::ObjectBegin));
        convert([&] { converter_.BeginObject(); });
        objectMembers(holder);
        return;
    case TokenKind::ArrayBegin:
        enter(match(TokenKind::ArrayBegin));
        arrayElements(holder);
        return;
    case TokenKind::String:
        loaded_ = false;
        convert([&] {
            converter_.deliver(tovan::Ptr<tovan::Value>(new tovan::StringValue(tovan::WString(token_.text))));
        });
        return;
    case TokenKind::Number: {
        loaded_ = false;
        const double d = cajun::json::Parser::ParseNumber(token_);
        convert([&] {
            if (CJsonDataTyper::IsInteger(d))
                converter_.ProcessIntegerElement(int(d));
            else
                converter_.ProcessDoubleElement(d);
        });
        return;
    }
    case TokenKind::Boolean: {
        loaded_ = false;
        const bool b = token_.text == u"true";
        convert([&] { converter_.ProcessBooleanElement(b); });
        return;
    }
    case TokenKind::Null:
        loaded_ = false;
        convert([&] { converter_.ProcessNullElement(); });
        return;
    default:
        throw ParseException(token_.begin, token_.end, u"Unexpected token: %ls", token_.text);
    }
}

namespace {

// The typer's type of a scalar element; TypeNone for an array.
CJsonDataTyper::ValueType scalarType(const cajun::json::Element& e) {
    switch (e.variant().index()) {
    case 0: return CJsonDataTyper::TypeNull;
    case 3:
        return CJsonDataTyper::IsInteger(e.As<cajun::json::Number>().Value()) ? CJsonDataTyper::TypeInteger
                                                                             : CJsonDataTyper::TypeDouble;
    case 4: return CJsonDataTyper::TypeBoolean;
    case 5: return CJsonDataTyper::TypeString;
    default: return CJsonDataTyper::TypeNone;
    }
}

}  // namespace

void JsonNodeBuilder::arrayElements(uint32_t holder) {
    cajun::json::Array held;
    bool walking = false;
    // While the held elements are all scalars, their types merged as the
    // typer merges them, so that such an array needs no typing afterwards.
    bool scalars = true;
    CJsonDataTyper::ValueType merged = CJsonDataTyper::TypeNone;
    if (!nextIs(TokenKind::ArrayEnd)) {
        for (;;) {
            if (!walking && nextIs(TokenKind::ObjectBegin)) {
                // The converter walks an array with an object in it element by
                // element: the elements held so far first, the rest as they come.
                walking = true;
                convert([&] {
                    converter_.BeginArray();
                    // Objects inside held elements are converted from the
                    // element tree, which names their nodes from the stack.
                    converter_.names_.append(dictionary_.name(holder));
                    for (const cajun::json::Element& e : held) e.Accept(converter_);
                    converter_.names_.removeLast();
                });
                held.Clear();
            }
            if (walking)
                value(holder);
            else {
                cajun::json::Element& e = held.PushBack(cajun::json::Element());
                element(e);
                if (scalars) {
                    CJsonDataTyper::ValueType t = scalarType(e);
                    if (t == CJsonDataTyper::TypeNone)
                        scalars = false;
                    else
                        merged = held.Size() == 1 ? t : CJsonDataTyper::MergeScalars(merged, t);
                }
            }
            if (!skip(TokenKind::NextElement, u',')) break;
        }
    }
    match(TokenKind::ArrayEnd);
    --depth_;
    if (walking)
        convert([&] { converter_.EndArray(); });
    else
        convert([&] {
            if (scalars) {
                converter_.ProcessScalarArray(held, merged);
            } else {
                converter_.names_.append(dictionary_.name(holder));
                converter_.ProcessElement(held);
                converter_.names_.removeLast();
            }
        });
}

void JsonNodeBuilder::element(cajun::json::Element& out) {
    if (!peek()) throw ParseException(Location(), Location(), u"Unexpected end of token stream");
    switch (token_.kind) {
    case TokenKind::ObjectBegin:
        enter(match(TokenKind::ObjectBegin));
        elementObject(out.variant().emplace<cajun::json::Object>());
        return;
    case TokenKind::ArrayBegin:
        enter(match(TokenKind::ArrayBegin));
        elementArray(out.variant().emplace<cajun::json::Array>());
        return;
    case TokenKind::String:
        loaded_ = false;
        out.variant().emplace<cajun::json::String>(std::u16string(token_.text));
        return;
    case TokenKind::Number:
        loaded_ = false;
        out.variant().emplace<cajun::json::Number>(cajun::json::Parser::ParseNumber(token_));
        return;
    case TokenKind::Boolean:
        loaded_ = false;
        out.variant().emplace<cajun::json::Boolean>(token_.text == u"true");
        return;
    case TokenKind::Null:
        loaded_ = false;
        out.variant().emplace<cajun::json::Null>();
        return;
    default:
        throw ParseException(token_.begin, token_.end, u"Unexpected token: %ls", token_.text);
    }
}

void JsonNodeBuilder::elementObject(cajun::json::Object& out) {
    std::unordered_set<std::u16string_view> names;  // as in the parser
    if (!nextIs(TokenKind::ObjectEnd)) {
        for (;;) {
            const JsonToken& name = match(TokenKind::String);
            const Location begin = copyOf(name.begin), end = copyOf(name.end);
            std::u16string text(name.text);
            match(TokenKind::MemberAssign);
            cajun::json::Element member;
            element(member);
            bool duplicate;
            if (out.Size() < cajun::json::Parser::kLinearMembers) {
                duplicate = out.Find(text) != out.End();
            } else {
                if (names.empty())
                    for (const auto& m : out) names.insert(m.name);
                duplicate = names.count(text) != 0;
            }
            if (duplicate) throw ParseException(begin, end, u"Duplicate object member token: %ls", text);
            out.append(std::move(text), std::move(member));
            if (!names.empty()) names.insert(std::prev(out.End())->name);
            if (!skip(TokenKind::NextElement, u',')) break;
        }
    }
    match(TokenKind::ObjectEnd);
    --depth_;
}

void JsonNodeBuilder::elementArray(cajun::json::Array& out) {
    // The elements wait on the workspace's stack and move over once their
    // number is known: growing each small array step by step was most of
    // the allocations on coordinate arrays.
    std::vector<cajun::json::Element>& pending = workspace_->elements;
    const size_t start = pending.size();
    if (!nextIs(TokenKind::ArrayEnd)) {
        for (;;) {
            cajun::json::Element e;
            element(e);
            pending.push_back(std::move(e));
            if (!skip(TokenKind::NextElement, u',')) break;
        }
    }
    match(TokenKind::ArrayEnd);
    --depth_;
    out.Reserve(pending.size() - start);
    for (size_t i = start; i < pending.size(); ++i) out.PushBack(std::move(pending[i]));
    pending.erase(pending.begin() + std::ptrdiff_t(start), pending.end());
}

}  // namespace nvk
