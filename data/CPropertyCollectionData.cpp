#include "nvk/data/CPropertyCollectionData.h"

#include <algorithm>

#include "nvk/data/Growth_internal.h"
#include "nvk/data/SlotIndex_internal.h"

namespace nvk {

using tovan::InvalidIndexException;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;

const tovan::ClassTag CPropertyCollectionData::Tag("Norvatek.data.PropertyCollectionData");

namespace {

const tovan::ClassRegistration s_registration(
    CPropertyCollectionData::Tag.name(), []() -> tovan::Object* { return CPropertyCollectionData::newInstance(); });

}  // namespace

tovan::ObjectPool<CPropertyCollectionData>& CPropertyCollectionData::pool() {
    static tovan::ObjectPool<CPropertyCollectionData> p("CPropertyCollectionData");
    return p;
}

CPropertyCollectionData* CPropertyCollectionData::newInstance() { return pool().newInstance(); }
CPropertyCollectionData* CPropertyCollectionData::allocate() { return pool().allocate(); }
void CPropertyCollectionData::deallocate(CPropertyCollectionData* d) {
    tovan::ObjectPool<CPropertyCollectionData>::deallocate(d);
}

CPropertyCollectionData::~CPropertyCollectionData() { Clear(); }

void CPropertyCollectionData::deleteInstance() { pool().deleteInstance(this); }

void CPropertyCollectionData::onActivate() {
    Clear();
    propertyClass_ = nullptr;
    front_ = nullptr;
}

void CPropertyCollectionData::onDeactivate() {
    Clear();
    propertyClass_ = nullptr;
    front_ = nullptr;
}

tovan::Object* CPropertyCollectionData::clone() const {
    // The framework's clone hands out an object without a reference; a
    // failed copy is recycled through one reference taken and dropped.
    CPropertyCollectionData* copy = newInstance();
    try {
        copy->propertyClass_ = propertyClass_;
        copy->properties_.reserve(properties_.size() - holeCount_);
        for (CProperty* p : properties_) {
            if (!p) continue;
            Ptr<CProperty> q = MakeNewPropertyWithCopiedValue(p->getName(), nullptr);
            q->assignFrom(*p, true);
            copy->AddProperty(q.get());
        }
    } catch (const tovan::Exception&) {
        copy->addRef();
        copy->release();
        throw tovan::Exception("CPropertyCollectionData", "clone", u"Unable to clone CPropertyCollectionData");
    }
    return copy;
}

CProperty* CPropertyCollectionData::GetProperty(int index) const {
    if (holeCount_ != 0) CompactPropertiesArray();
    if (index < 0 || size_t(index) >= properties_.size())
        throw InvalidIndexException("CPropertyCollectionData", "GetProperty(int)", index,
                                    (long long)properties_.size() - 1);
    return properties_[size_t(index)];
}

CProperty* CPropertyCollectionData::GetProperty(const WString& name) const {
    int slot = GetInternalIndex(name);
    return slot < 0 ? nullptr : properties_[size_t(slot)];
}

CProperty* CPropertyCollectionData::GetPropertyUsingInternalIndex(int slot) const {
    if (slot < 0 || size_t(slot) >= properties_.size())
        throw InvalidIndexException("CPropertyCollectionData", "GetPropertyUsingInternalIndex", slot,
                                    (long long)properties_.size() - 1);
    return properties_[size_t(slot)];
}

const Value* CPropertyCollectionData::GetValue(const WString& name) const {
    CProperty* p = GetProperty(name);
    return p ? &p->getValue() : nullptr;
}

int CPropertyCollectionData::GetIndex(const WString& name) const {
    if (holeCount_ != 0) CompactPropertiesArray();
    return GetInternalIndex(name);
}

int CPropertyCollectionData::GetInternalIndex(const WString& name) const {
    if (properties_.size() < kIndexFromSlots) {
        for (size_t i = 0; i < properties_.size(); ++i) {
            CProperty* p = properties_[i];
            if (p && tovan::namesEqual(p->getName(), name)) return int(i);
        }
        return -1;
    }
    if (!indexBuilt_) BuildIndex();
    return index_->find(name, tovan::hashNoCase(name.view()), properties_);
}

void CPropertyCollectionData::BuildIndex() const {
    if (!index_) index_ = std::make_unique<SlotIndex>(kInitialBuckets);
    index_->clear();
    if (properties_.size() > index_->bucketCount()) index_->grow(properties_.size());
    for (size_t i = 0; i < properties_.size(); ++i)
        if (properties_[i]) index_->put(int(i), properties_);
    indexBuilt_ = true;
}

void CPropertyCollectionData::AddProperty(CProperty* property) {
    reserveOneMore(properties_);
    property->addRef();
    property->setCollection(this);
    properties_.push_back(property);
    if (indexBuilt_) index_->put(int(properties_.size() - 1), properties_);
}

CProperty* CPropertyCollectionData::AppendNewProperty(const WString& name, Ptr<Value> value) {
    return AppendNewProperty(SharedName::cached(name), std::move(value));
}

CProperty* CPropertyCollectionData::AppendNewProperty(SharedName name, Ptr<Value> value) {
    Ptr<CProperty> made;
    reserveOneMore(properties_);
    if (propertyClass_) {
        made = MakeNewPropertyWithCopiedValue(WString(), nullptr);
    } else {
        made = Ptr<CProperty>::adopt(CProperty::allocate());
    }
    made->setNameUnchecked(std::move(name));
    // Nothing can fail from here on: the array's reference is the one the
    // property was made with, the value's the one handed over.
    CProperty* p = made.detach();
    p->takeValue(std::move(value));
    p->setCollection(this);
    properties_.push_back(p);
    if (indexBuilt_) index_->put(int(properties_.size() - 1), properties_);
    return p;
}

Ptr<CProperty> CPropertyCollectionData::MakeNewPropertyWithCopiedValue(const WString& name,
                                                                       const Value* value) const {
    Ptr<CProperty> p;
    if (propertyClass_) {
        p = tovan::ObjectFactory::createAs<CProperty>(propertyClass_->name());
    } else {
        p = Ptr<CProperty>(CProperty::newInstance());
    }
    p->setNameUnchecked(name);
    if (value) p->setValue(*value);
    return p;
}

bool CPropertyCollectionData::RemoveProperty(const WString& name) {
    int slot = GetInternalIndex(name);
    if (slot < 0) return false;
    RemovePropertyUsingInternalIndex(slot);
    return true;
}

void CPropertyCollectionData::RemovePropertyUsingInternalIndex(int slot) {
    if (slot < 0 || size_t(slot) >= properties_.size())
        throw InvalidIndexException("CPropertyCollectionData", "RemovePropertyUsingInternalIndex", slot,
                                    (long long)properties_.size() - 1);
    CProperty* p = properties_[size_t(slot)];
    if (!p) return;
    if (indexBuilt_) index_->remove(p->getName(), p->getNameHash(), properties_);
    properties_[size_t(slot)] = nullptr;
    p->setCollection(nullptr);
    if (++holeCount_ == 1 || uint32_t(slot) < firstHole_) firstHole_ = uint32_t(slot);
    p->release();
}

void CPropertyCollectionData::CompactPropertiesArray() const {
    if (holeCount_ == 0) return;
    size_t to = firstHole_;
    for (size_t from = firstHole_; from < properties_.size(); ++from) {
        CProperty* p = properties_[from];
        if (!p) continue;
        properties_[to] = p;
        ++to;
    }
    properties_.resize(properties_.size() - holeCount_);
    holeCount_ = 0;
    firstHole_ = 0;
    if (indexBuilt_) BuildIndex();  // every slot from the first hole on has moved
}

void CPropertyCollectionData::swapSlots(size_t a, size_t b) {
    if (a == b) return;
    if (indexBuilt_) index_->swapSlots(a, b, properties_);
    std::swap(properties_[a], properties_[b]);
}

void CPropertyCollectionData::ReorderProperty(int from, int to) {
    CompactPropertiesArray();
    const long long last = (long long)properties_.size() - 1;
    if (from < 0 || from > last) throw InvalidIndexException("CPropertyCollectionData", "ReorderProperty", from, last);
    if (to < 0 || to > last) throw InvalidIndexException("CPropertyCollectionData", "ReorderProperty", to, last);
    if (from == to) return;
    auto first = properties_.begin();
    if (from < to)
        std::rotate(first + from, first + from + 1, first + to + 1);
    else
        std::rotate(first + to, first + from, first + from + 1);
    if (indexBuilt_) BuildIndex();
}

void CPropertyCollectionData::ReorderProperties(const std::vector<WString>& names, bool createMissing,
                                                bool removeRest) {
    if (names.empty()) return;
    CompactPropertiesArray();
    size_t pos = 0;
    for (const WString& name : names) {
        int slot = GetInternalIndex(name);
        if (slot < 0 && createMissing) {
            tovan::NullValue null;
            Ptr<CProperty> p = MakeNewPropertyWithCopiedValue(name, &null);
            AddProperty(p.get());
            slot = int(properties_.size()) - 1;
        }
        if (slot >= 0 && size_t(slot) >= pos) swapSlots(size_t(slot), pos++);
    }
    if (removeRest)
        for (size_t i = properties_.size(); i-- > pos;) RemovePropertyUsingInternalIndex(int(i));
}

void CPropertyCollectionData::SetName(int index, const WString& name) { renameProperty(*GetProperty(index), name); }

void CPropertyCollectionData::renameProperty(CProperty& property, const WString& name) {
    int other = GetInternalIndex(name);
    if (other >= 0 && properties_[size_t(other)] != &property)
        throw tovan::Exception("CProperty", "SetName",
                               u"Cannot rename property '%ls' to '%ls'.  That name already exists in the parent "
                               u"property collection",
                               property.getName(), name);
    if (indexBuilt_) {
        int slot = other >= 0 ? other : GetInternalIndex(property.getName());
        index_->remove(property.getName(), property.getNameHash(), properties_);
        property.setNameUnchecked(name);
        index_->put(slot, properties_);
    } else {
        property.setNameUnchecked(name);
    }
}

void CPropertyCollectionData::Clear() {
    std::vector<CProperty*> doomed;
    doomed.swap(properties_);
    holeCount_ = 0;
    firstHole_ = 0;
    indexBuilt_ = false;
    if (index_) index_->clear();
    // Back to front, as a node releases its children.
    for (size_t i = doomed.size(); i-- > 0;) {
        // A released tree is cold: fetch the properties a little ahead, and
        // the values of those fetched before.
        if (i >= 8 && doomed[i - 8]) __builtin_prefetch(doomed[i - 8], 1);
        if (i >= 4 && doomed[i - 4]) __builtin_prefetch(doomed[i - 4]->value_, 1);
        if (CProperty* p = doomed[i]) {
            p->setCollection(nullptr);
            p->release();
        }
    }
    // The emptied array goes back for reuse (pooled storage fills again).
    doomed.clear();
    if (properties_.empty()) properties_.swap(doomed);
}

}  // namespace nvk
