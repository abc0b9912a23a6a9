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
void CProperty::newInstances(CProperty** out, size_t n) { pool().newInstances(out, n); }

CProperty* CProperty::allocateCopy(const CProperty& source) {
    tovan::Ptr<CProperty> p = tovan::Ptr<CProperty>(newInstance());
    p->assignFrom(source, true);
    return p.detach();
}

void CProperty::deallocate(CProperty* p) { tovan::ObjectPool<CProperty>::deallocate(p); }

static_assert(sizeof(CProperty) <= 72, "a property is one of millions: keep it small");

CProperty::~CProperty() { reset(); }

void CProperty::deleteInstance() {
    // A value in the room that others still hold keeps this memory: its last
    // release comes back here.
    dropValue();
    if (slot_.deferHome()) return;
    pool().deleteInstance(this);
}

void CProperty::endInstances(CProperty** props, size_t n, SharedName::Gather* names) {
    size_t returned = 0;
    for (size_t i = 0; i < n; ++i) {
        CProperty* p = props[i];
        p->dropValue();
        // Emptied as the pool's hook would, each part once; one whose room's value lives on
        // keeps everything until that value's last release ends it.
        if (!p->slot_.isFree() && p->slot_.deferHome()) continue;
        if (names)
            names->drop(p->name_);
        else
            p->name_.dropGathered();
        p->resetLinks();
        props[returned++] = p;
    }
    pool().returnEmptied(props, returned);
}

// A pooled property must not keep values or metadata alive (they count as
// live); being emptied on its way to the free list, it is handed out again
// as it is rather than cleaned out twice.
void CProperty::onActivate() {}
void CProperty::onDeactivate() { reset(); }

void CProperty::reset() {
    name_.dropGathered();
    shareValue(nullptr);
    resetLinks();
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
    if (CPropertyCollectionData* c = collection())
        c->renameProperty(*this, name);
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
    if (value.get() == value_) return;
    if (value && value->getRefCount() == 1 && canCopyIn(*value)) {
        copyIn(*value);
        return;
    }
    // The caller's reference becomes the property's: a count taken here and
    // dropped by the caller's pointer would be two atomic operations for
    // every text a reader stores.
    dropValue();
    value_ = value.detach();
}

void CProperty::setMetaData(CPropertyCollection* m) {
    if (link_ & kLinksTag) {
        Links* l = links();
        CPropertyCollection* old = std::exchange(l->metaData, m);
        if (!m) {
            link_ = reinterpret_cast<uintptr_t>(l->collection);
            delete l;
        }
        if (old) old->release();
        return;
    }
    if (!m) return;
    Links* l;
    try {
        l = new Links{collection(), m};
    } catch (...) {
        m->release();
        throw;
    }
    link_ = reinterpret_cast<uintptr_t>(l) | kLinksTag;
}

tovan::iPropertyCollection& CProperty::getMetaData() {
    if (CPropertyCollection* m = metaData()) return *m;
    CPropertyCollection* m = CPropertyCollection::allocate();
    m->_setOwner(this);
    setMetaData(m);
    return *m;
}

tovan::iPropertyCollection* CProperty::findMetaData() const { return metaData(); }

void CProperty::clearMetaData() { setMetaData(nullptr); }

tovan::iPropertyCollection* CProperty::findCollection() const {
    CPropertyCollectionData* c = collection();
    return c ? c->findFront() : nullptr;
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
    if (CPropertyCollection* sourceMeta = source.metaData(); sourceMeta && sourceMeta->getSize() > 0) {
        meta = tovan::Ptr<CPropertyCollection>(CPropertyCollection::newInstance());
        meta->assignFrom(sourceMeta, true);
        meta->_setOwner(this);
    }
    if (!collection())
        setNameUnchecked(source.name_);
    else if (!name_.sameBlock(source.name_) && !(name_.text() == source.name_.text()))
        collection()->renameProperty(*this, source.name_.text());  // may refuse; nothing changed yet
    flags_ = source.flags_;
    if (inRoom)
        copyIn(*source.value_);
    else
        shareValue(value.get());
    clearMetaData();
    if (meta) {
        meta->addRef();  // the reference setMetaData takes over; `meta` keeps its own until done
        setMetaData(meta.get());
    }
}

}  // namespace nvk
