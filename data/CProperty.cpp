#include "nvk/data/CProperty.h"

#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/CPropertyCollectionData.h"

namespace nvk {

using tovan::Value;
using tovan::WString;

const tovan::ClassTag CProperty::Tag("Norvatek.data.Property");

namespace {

const tovan::NullValue s_nullValue;

const tovan::ClassRegistration s_registration(CProperty::Tag.name(),
                                              []() -> tovan::Object* { return CProperty::newInstance(); });

}  // namespace

tovan::ObjectPool<CProperty>& CProperty::pool() {
    static tovan::ObjectPool<CProperty> p("CProperty");
    return p;
}

CProperty* CProperty::newInstance() { return pool().newInstance(); }
CProperty* CProperty::allocate() { return pool().allocate(); }

CProperty* CProperty::allocateCopy(const CProperty& source) {
    tovan::Ptr<CProperty> p = tovan::Ptr<CProperty>(newInstance());
    p->assignFrom(source, true);
    return p.detach();
}

void CProperty::deallocate(CProperty* p) { tovan::ObjectPool<CProperty>::deallocate(p); }

CProperty::~CProperty() { reset(); }

void CProperty::deleteInstance() {
    // A value in the room that others still hold keeps this memory: its last
    // release comes back here.
    dropValue();
    if (slot_.deferHome()) return;
    pool().deleteInstance(this);
}

// A recycled property must not carry anything from its previous life, and a
// pooled one must not keep values or metadata alive (they count as live).
void CProperty::onActivate() { reset(); }
void CProperty::onDeactivate() { reset(); }

void CProperty::reset() {
    name_ = SharedName();
    flags_ = 0;
    collection_ = nullptr;
    shareValue(nullptr);
    clearMetaData();
}

tovan::Object* CProperty::clone() const {
    CProperty* copy = newInstance();
    try {
        copy->assignFrom(*this, true);
    } catch (...) {
        copy->addRef();
        copy->release();
        throw;
    }
    return copy;
}

void CProperty::setNameUnchecked(const WString& name) {
    name_ = SharedName::cached(name);
}

void CProperty::SetName(const WString& name) {
    if (collection_)
        collection_->renameProperty(*this, name);
    else
        setNameUnchecked(name);
}

const Value& CProperty::getValue() const { return value_ ? *value_ : static_cast<const Value&>(s_nullValue); }

Value& CProperty::getEditableValue() {
    if (flags_ & tovan::MetaDataReadOnly)
        throw tovan::PropertyAccessException("CProperty", "getEditableValue",
                                             u"Read-only property %ls cannot be updated", name_.text());
    if (!value_) {
        if (slot_.isFree())
            value_ = slot_.makeIn(tovan::VT_Null, true);
        else
            shareValue(new tovan::NullValue());
    }
    return *value_;
}

bool CProperty::canCopyIn(const Value& value) const {
    if (!tovan::ValueSlot::fits(value)) return false;
    return slot_.isFree() || (slot_.holds(value_) && value_->getRefCount() == 1);
}

void CProperty::copyIn(const Value& value) {
    dropValue();
    value_ = slot_.copyIn(value);
}

void CProperty::setValue(const Value& value) {
    if (&value == value_) return;
    if (canCopyIn(value)) {
        copyIn(value);
        return;
    }
    tovan::Ptr<Value> copy(value.clone());
    shareValue(copy.get());
}

void CProperty::dropValue() {
    Value* old = std::exchange(value_, nullptr);
    if (!old) return;
    if (slot_.holds(old))
        slot_.vacate();
    else
        old->release();
}

void CProperty::shareValue(Value* value) {
    if (value == value_) return;
    if (value) value->addRef();
    dropValue();
    value_ = value;
}

void CProperty::takeValue(tovan::Ptr<Value> value) {
    if (value && value.get() != value_ && value->getRefCount() == 1 && canCopyIn(*value)) {
        copyIn(*value);
        return;
    }
    shareValue(value.get());
}

tovan::iPropertyCollection& CProperty::getMetaData() {
    if (!metaData_) {
        metaData_ = CPropertyCollection::allocate();
        metaData_->_setOwner(this);
    }
    return *metaData_;
}

tovan::iPropertyCollection* CProperty::findMetaData() const { return metaData_; }

void CProperty::clearMetaData() {
    if (CPropertyCollection* m = std::exchange(metaData_, nullptr)) m->release();
}

tovan::iPropertyCollection* CProperty::findCollection() const {
    return collection_ ? collection_->findFront() : nullptr;
}

void CProperty::assignFrom(const CProperty& source, bool copyValue) {
    if (&source == this) return;
    // Everything that can fail (copies) happens before this property changes;
    // a copy into the room cannot fail, so it is made last.
    const bool inRoom = copyValue && source.value_ && canCopyIn(*source.value_);
    tovan::Ptr<Value> value;
    if (source.value_ && !inRoom)
        value = copyValue ? tovan::Ptr<Value>(source.value_->clone()) : tovan::Ptr<Value>(source.value_);
    tovan::Ptr<CPropertyCollection> meta;
    if (source.metaData_ && source.metaData_->getSize() > 0) {
        meta = tovan::Ptr<CPropertyCollection>(CPropertyCollection::newInstance());
        meta->assignFrom(source.metaData_, true);
        meta->_setOwner(this);
    }
    if (!collection_)
        setNameUnchecked(source.name_);
    else if (!name_.sameBlock(source.name_) && !(name_.text() == source.name_.text()))
        collection_->renameProperty(*this, source.name_.text());  // may refuse; nothing changed yet
    flags_ = source.flags_;
    if (inRoom)
        copyIn(*source.value_);
    else
        shareValue(value.get());
    clearMetaData();
    metaData_ = meta.detach();
}

}  // namespace nvk
