#include "nvk/platform/HashTableValue.h"

#include "nvk/platform/ArrayValue.h"

namespace tovan {

const ClassTag HashTableValue::Tag("Norvatek.HashTableValue");

namespace {
const ValueRegistration<HashTableValue> regHashTable(VT_HashTable);
}

HashTableValue::HashTableValue(const HashTableValue& other) : Value(other), names_(other.names_), index_(other.index_) {
    values_.reserve(other.values_.size());
    for (const Ptr<Value>& v : other.values_) values_.append(Ptr<Value>(v->clone()));
}

HashTableValue& HashTableValue::operator=(const HashTableValue& other) {
    if (this != &other) assign(other);
    return *this;
}

Value* HashTableValue::find(const WString& name) const {
    const size_t* i = index_.find(name);
    return i ? values_.get(*i).get() : nullptr;
}

Value& HashTableValue::get(const WString& name) const {
    if (Value* v = find(name)) return *v;
    throw Exception("HashTableValue", "get", u"Key '%ls' not found", name);
}

void HashTableValue::put(const WString& name, Value* v) {
    Ptr<Value> held(v);  // released on a refusal below when the caller passed a fresh value
    if (name.isNull())
        throw BadParameterException("HashTableValue", "put", u"A hash table key cannot be null");
    if (!v) throw BadParameterException("HashTableValue", "put", u"A hash table cannot hold a null pointer");
    if (const size_t* i = index_.find(name)) {
        values_.set(*i, std::move(held));
        return;
    }
    names_.append(name);
    values_.append(std::move(held));
    index_.put(name, names_.size() - 1);
}

bool HashTableValue::remove(const WString& name) {
    const size_t* found = index_.find(name);
    if (!found) return false;
    size_t i = *found;
    names_.removeAt(i);
    values_.removeAt(i);
    rebuildIndex();
    return true;
}

void HashTableValue::removeAll() {
    names_.removeAll();
    values_.removeAll();
    index_.clear();
}

void HashTableValue::rebuildIndex() {
    index_.clear();
    for (size_t i = 0; i < names_.size(); ++i) index_.put(names_.get(i), i);
}

bool HashTableValue::equals(const Value& other) const {
    if (!sameClass(other)) return false;
    const auto& o = static_cast<const HashTableValue&>(other);
    if (o.size() != size()) return false;
    for (size_t i = 0; i < names_.size(); ++i) {
        const Value* theirs = o.find(names_.get(i));
        if (!theirs || !values_.get(i)->equals(*theirs)) return false;
    }
    return true;
}

WString HashTableValue::toString() const {
    std::u16string s = u"{";
    for (size_t i = 0; i < names_.size(); ++i) {
        if (i) s += u", ";
        s += names_.get(i).view();
        s += u": ";
        s += values_.get(i)->toString().view();
    }
    s += u"}";
    return WString(std::move(s));
}

void HashTableValue::assign(const Value& other) {
    if (!sameClass(other)) failAssign(other);
    HashTableValue copy(static_cast<const HashTableValue&>(other));
    std::swap(names_, copy.names_);
    std::swap(values_, copy.values_);
    index_.swap(copy.index_);
}

void HashTableValue::serialize(iByteOutputStream& out) const {
    writeValueCount(out, names_.size(), "HashTableValue");
    for (size_t i = 0; i < names_.size(); ++i) {
        writeValueText(out, names_.get(i));
        writeTypedValue(out, *values_.get(i));
    }
}

void HashTableValue::deserialize(iByteInputStream& in) {
    HashTableValue read;
    uint32_t n = readUInt32LE(in, "HashTableValue");
    for (uint32_t i = 0; i < n; ++i) {
        WString name = readValueText(in, "HashTableValue");
        if (name.isNull())
            throw Exception("HashTableValue", "deserialize", u"A hash table key cannot be null");
        Ptr<Value> v = readTypedValue(in, isStrictReading(), "HashTableValue");
        if (isStrictReading() && read.find(name))
            throw Exception("HashTableValue", "deserialize", u"Duplicate key '%ls' in a hash table", name);
        read.put(name, v.get());
    }
    std::swap(names_, read.names_);
    std::swap(values_, read.values_);
    index_.swap(read.index_);
}

}  // namespace tovan
