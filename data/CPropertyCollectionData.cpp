#include "nvk/data/CPropertyCollectionData.h"

#include <algorithm>
#include <bit>
#include <new>
#include <typeinfo>
#include <utility>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/SlotIndex_internal.h"

namespace nvk {

using tovan::InvalidIndexException;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;

CPropertyCollectionData::Extra::Extra() = default;
CPropertyCollectionData::Extra::~Extra() = default;

CPropertyCollectionData::~CPropertyCollectionData() { Clear(); }

void CPropertyCollectionData::resetStorage() {
    Clear();
    if (extra_) extra_->propertyClass = nullptr;
}

CPropertyCollection* CPropertyCollectionData::findFront() const {
    return static_cast<CPropertyCollection*>(const_cast<CPropertyCollectionData*>(this));
}

CPropertyCollectionData::Extra& CPropertyCollectionData::extra() const {
    if (!extra_) extra_ = std::make_unique<Extra>();
    return *extra_;
}

void CPropertyCollectionData::SetPropertyClass(const tovan::ClassTag* propertyClass) {
    if (propertyClass || extra_) extra().propertyClass = propertyClass;
}

// A heap array of slots keeps its capacity in a word before its first slot:
// Reserve may make it larger than the next power of two of the count, and
// compaction shrinks the count, so the count alone does not say how large
// the array is.
CProperty** CPropertyCollectionData::allocateSlots(size_t capacity) {
    auto* header = static_cast<size_t*>(::operator new(sizeof(size_t) + capacity * sizeof(CProperty*)));
    *header = capacity;
    return reinterpret_cast<CProperty**>(header + 1);
}

void CPropertyCollectionData::freeSlots(CProperty** slots) {
    ::operator delete(reinterpret_cast<size_t*>(slots) - 1);
}

void CPropertyCollectionData::growTo(size_t count) {
    CProperty** grown = allocateSlots(std::bit_ceil(std::max<size_t>(count, 8)));
    std::copy(slots_, slots_ + size_, grown);
    if (slots_ != inline_) freeSlots(slots_);
    slots_ = grown;
}

void CPropertyCollectionData::Reserve(size_t count) {
    if (count > capacity()) growTo(count);
}

tovan::Object* CPropertyCollectionData::clone() const {
    // The framework's clone hands out an object without a reference; a
    // failed copy is recycled through one reference taken and dropped.
    CPropertyCollection* copy = CPropertyCollection::newInstance();
    try {
        copy->SetPropertyClass(GetPropertyClass());
        copy->Reserve(size_ - holeCount_);
        for (size_t i = 0; i < size_; ++i) {
            const CProperty* p = slots_[i];
            if (!p) continue;
            // assignFrom names it: no empty name looked up first.
            Ptr<CProperty> q = GetPropertyClass() ? MakeNewPropertyWithCopiedValue(WString(), nullptr)
                                                  : Ptr<CProperty>(CProperty::newInstance());
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
    if (index < 0 || size_t(index) >= size_)
        throw InvalidIndexException("CPropertyCollectionData", "GetProperty(int)", index,
                                    (long long)size_ - 1);
    return slots_[size_t(index)];
}

CProperty* CPropertyCollectionData::GetProperty(const WString& name) const {
    int slot = GetInternalIndex(name);
    return slot < 0 ? nullptr : slots_[size_t(slot)];
}

CProperty* CPropertyCollectionData::GetPropertyUsingInternalIndex(int slot) const {
    if (slot < 0 || size_t(slot) >= size_)
        throw InvalidIndexException("CPropertyCollectionData", "GetPropertyUsingInternalIndex", slot,
                                    (long long)size_ - 1);
    return slots_[size_t(slot)];
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
    if (size_ < kIndexFromSlots) {
        for (size_t i = 0; i < size_; ++i) {
            CProperty* p = slots_[i];
            if (p && tovan::namesEqual(p->getName(), name)) return int(i);
        }
        return -1;
    }
    if (!IsIndexBuilt()) BuildIndex();
    return extra_->index->find(name, tovan::hashNoCase(name.view()), slots_);
}

void CPropertyCollectionData::BuildIndex() const {
    Extra& x = extra();
    if (!x.index) x.index = std::make_unique<SlotIndex>(kInitialBuckets);
    x.index->clear();
    if (size_ > x.index->bucketCount()) x.index->grow(size_);
    for (size_t i = 0; i < size_; ++i)
        if (slots_[i]) x.index->put(int(i), slots_);
    x.indexBuilt = true;
}

void CPropertyCollectionData::AddProperty(CProperty* property) {
    reserveOneMore();
    property->addRef();
    property->setCollection(this);
    push(property);
    if (IsIndexBuilt()) extra_->index->put(int(size_ - 1), slots_);
}

CProperty* CPropertyCollectionData::AdoptProperty(Ptr<CProperty> property) {
    reserveOneMore();
    CProperty* p = property.detach();
    p->setCollection(this);
    push(p);
    if (IsIndexBuilt()) extra_->index->put(int(size_ - 1), slots_);
    return p;
}

CProperty* CPropertyCollectionData::AppendNewProperty(const WString& name, Ptr<Value> value) {
    return AppendNewProperty(SharedName::cached(name), std::move(value));
}

CProperty* CPropertyCollectionData::AppendNewProperty(SharedName name, Ptr<Value> value, PropertyBatch* batch) {
    Ptr<CProperty> made;
    reserveOneMore();
    if (GetPropertyClass()) {
        made = MakeNewPropertyWithCopiedValue(WString(), nullptr);
    } else if (batch) {
        made = Ptr<CProperty>::adopt(batch->takeReferenced());
    } else {
        made = Ptr<CProperty>::adopt(CProperty::allocate());
    }
    made->setNameUnchecked(std::move(name));
    // Nothing can fail from here on: the array's reference is the one the
    // property was made with, the value's the one handed over.
    CProperty* p = made.detach();
    p->takeValue(std::move(value));
    p->setCollection(this);
    push(p);
    if (IsIndexBuilt()) extra_->index->put(int(size_ - 1), slots_);
    return p;
}

CProperty* CPropertyCollectionData::AppendNewPropertyCopy(const WString& name, const Value& value) {
    return AppendNewPropertyCopy(SharedName::cached(name), value);
}

CProperty* CPropertyCollectionData::AppendNewPropertyCopy(SharedName name, const Value& value, PropertyBatch* batch) {
    // A copy that needs a block of its own is made before anything changes.
    if (!tovan::ValueSlot::fits(value)) return AppendNewProperty(std::move(name), Ptr<Value>(value.clone()), batch);
    CProperty* p = AppendNewProperty(std::move(name), nullptr, batch);
    p->copyIn(value);  // into the new property's free room: cannot fail
    return p;
}

Ptr<CProperty> CPropertyCollectionData::MakeNewPropertyWithCopiedValue(const WString& name,
                                                                       const Value* value) const {
    Ptr<CProperty> p;
    if (const tovan::ClassTag* propertyClass = GetPropertyClass()) {
        p = tovan::ObjectFactory::createAs<CProperty>(propertyClass->name());
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
    if (slot < 0 || size_t(slot) >= size_)
        throw InvalidIndexException("CPropertyCollectionData", "RemovePropertyUsingInternalIndex", slot,
                                    (long long)size_ - 1);
    CProperty* p = slots_[size_t(slot)];
    if (!p) return;
    if (IsIndexBuilt()) extra_->index->remove(p->getName(), p->getNameHash(), slots_);
    slots_[size_t(slot)] = nullptr;
    p->setCollection(nullptr);
    ++holeCount_;
    p->release();
}

void CPropertyCollectionData::CompactPropertiesArray() const {
    if (holeCount_ == 0) return;
    size_t to = 0;
    while (slots_[to]) ++to;  // the first hole
    for (size_t from = to; from < size_; ++from) {
        CProperty* p = slots_[from];
        if (!p) continue;
        slots_[to] = p;
        ++to;
    }
    size_ -= holeCount_;
    holeCount_ = 0;
    if (IsIndexBuilt()) BuildIndex();  // every slot from the first hole on has moved
}

void CPropertyCollectionData::swapSlots(size_t a, size_t b) {
    if (a == b) return;
    if (IsIndexBuilt()) extra_->index->swapSlots(a, b, slots_);
    std::swap(slots_[a], slots_[b]);
}

void CPropertyCollectionData::ReorderProperty(int from, int to) {
    CompactPropertiesArray();
    const long long last = (long long)size_ - 1;
    if (from < 0 || from > last) throw InvalidIndexException("CPropertyCollectionData", "ReorderProperty", from, last);
    if (to < 0 || to > last) throw InvalidIndexException("CPropertyCollectionData", "ReorderProperty", to, last);
    if (from == to) return;
    CProperty** first = slots_;
    if (from < to)
        std::rotate(first + from, first + from + 1, first + to + 1);
    else
        std::rotate(first + to, first + from, first + from + 1);
    if (IsIndexBuilt()) BuildIndex();
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
            slot = int(size_) - 1;
        }
        if (slot >= 0 && size_t(slot) >= pos) swapSlots(size_t(slot), pos++);
    }
    if (removeRest)
        for (size_t i = size_; i-- > pos;) RemovePropertyUsingInternalIndex(int(i));
}

void CPropertyCollectionData::SetName(int index, const WString& name) { renameProperty(*GetProperty(index), name); }

void CPropertyCollectionData::renameProperty(CProperty& property, const WString& name) {
    int other = GetInternalIndex(name);
    if (other >= 0 && slots_[size_t(other)] != &property)
        throw tovan::Exception("CProperty", "SetName",
                               u"Cannot rename property '%ls' to '%ls'.  That name already exists in the parent "
                               u"property collection",
                               property.getName(), name);
    if (IsIndexBuilt()) {
        int slot = other >= 0 ? other : GetInternalIndex(property.getName());
        extra_->index->remove(property.getName(), property.getNameHash(), slots_);
        property.setNameUnchecked(name);
        extra_->index->put(slot, slots_);
    } else {
        property.setNameUnchecked(name);
    }
}

void CPropertyCollectionData::TakeProperties(CPropertyCollectionData& source) {
    if (&source == this) return;
    Clear();
    if (source.slots_ == source.inline_) {
        std::copy(source.inline_, source.inline_ + source.size_, inline_);
        std::fill(source.inline_, source.inline_ + source.size_, nullptr);
    } else {
        slots_ = std::exchange(source.slots_, source.inline_);
    }
    size_ = std::exchange(source.size_, 0);
    holeCount_ = std::exchange(source.holeCount_, 0);
    if (source.extra_) {
        source.extra_->indexBuilt = false;
        if (source.extra_->index) source.extra_->index->clear();
    }
    for (size_t i = 0; i < size_; ++i)
        if (slots_[i]) slots_[i]->setCollection(this);
}

void CPropertyCollectionData::PropertyEnds::flush() {
    if (count_) CProperty::endInstances(items_, std::exchange(count_, 0), names_);
}

void CPropertyCollectionData::ClearSome() {
    PropertyEnds ends;
    Clear(ends);
}

void CPropertyCollectionData::Clear(PropertyEnds& ends) {
    CProperty** doomed = slots_;
    const size_t count = size_;
    slots_ = inline_;
    size_ = 0;
    holeCount_ = 0;
    if (extra_) {
        extra_->indexBuilt = false;
        if (extra_->index) extra_->index->clear();
    }
    // Back to front, as a node releases its children. The inline slots are
    // read while being released: nothing refills them until this returns.
    // Properties of the class itself that end here go back to the pool
    // together; others end as their class has them end.
    for (size_t i = count; i-- > 0;) {
        // A released tree is cold: fetch the properties a little ahead, and
        // the values of those fetched before.
        if (i >= 8 && doomed[i - 8]) __builtin_prefetch(doomed[i - 8], 1);
        if (i >= 4 && doomed[i - 4]) __builtin_prefetch(doomed[i - 4]->value_, 1);
        if (CProperty* p = doomed[i]) {
            doomed[i] = nullptr;
            releaseSlot(p, ends);
        }
    }
    if (doomed != inline_) freeSlots(doomed);
}

void CPropertyCollectionData::EndCollections(CPropertyCollection* const* items, size_t n, SharedName::Gather& names) {
    {
        PropertyEnds ends(&names);
        for (size_t i = 0; i < n; ++i) {
            CPropertyCollection* c = items[i];
            if (c->extra_ || c->slots_ != c->inline_) {
                // An index, a property class or slots of their own: the general way.
                c->Clear(ends);
                if (c->extra_) c->extra_->propertyClass = nullptr;
            } else {
                // Most collections: a few properties in the inline slots, ended here as Clear
                // ends them, without its fetches ahead, which the next slot or two would not
                // wait for.
                for (size_t k = std::exchange(c->size_, 0); k-- > 0;)
                    if (CProperty* p = std::exchange(c->inline_[k], nullptr)) releaseSlot(p, ends);
                c->holeCount_ = 0;
            }
            c->CPropertyCollection::_setOwner(nullptr);
        }
    }
    CPropertyCollection::pool().returnEmptied(items, n);
}

}  // namespace nvk
