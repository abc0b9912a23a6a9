#include "nvk/data/CMetaData.h"

#include "nvk/data/CPropertyCollection.h"

namespace nvk {

using tovan::Ptr;

const tovan::ClassTag CMetaData::Tag("Norvatek.data.MetaData");

namespace {

const tovan::ClassRegistration s_registration(CMetaData::Tag.name(),
                                              []() -> tovan::Object* { return CMetaData::newInstance(); });

}  // namespace

void CMetaDataImpl::AssignMetaDataFrom(tovan::iMetaData& target, const tovan::iMetaData* source) {
    if (!source) {
        target.clear();
        return;
    }
    if (source == &target) return;
    const tovan::iPropertyCollection* props = source->getProperties();
    if (props && props->getSize() > 0)
        target.getProperties().assignFrom(props, true);
    else if (static_cast<const tovan::iMetaData&>(target).getProperties())
        target.getProperties().removeAll();
    target.setFlags(source->getFlags());
}

void CMetaDataImpl::AddProperties(tovan::iMetaData& target, const tovan::iMetaData& source) {
    if (&source == &target) return;
    if (const tovan::iPropertyCollection* props = source.getProperties(); props && props->getSize() > 0)
        target.getProperties().attachFrom(props, true);
    target.setFlags(target.getFlags() | source.getFlags());
}

tovan::ObjectPool<CMetaData>& CMetaData::pool() {
    static tovan::ObjectPool<CMetaData> p("CMetaData");
    return p;
}

CMetaData* CMetaData::newInstance() { return pool().newInstance(); }
CMetaData* CMetaData::allocate() { return pool().allocate(); }
void CMetaData::deallocate(CMetaData* m) { tovan::ObjectPool<CMetaData>::deallocate(m); }

CMetaData::~CMetaData() { clear(); }

void CMetaData::deleteInstance() { pool().deleteInstance(this); }

tovan::Object* CMetaData::clone() const {
    CMetaData* copy = newInstance();
    try {
        copy->assignFrom(*this);
    } catch (...) {
        copy->addRef();
        copy->release();
        throw;
    }
    return copy;
}

tovan::iPropertyCollection& CMetaData::getProperties() {
    if (!properties_) {
        properties_ = CPropertyCollection::allocate();
        properties_->_setOwner(this);
    }
    return *properties_;
}

const tovan::iPropertyCollection* CMetaData::getProperties() const { return properties_; }

bool CMetaData::hasProperties() const { return properties_ && properties_->getSize() > 0; }

void CMetaData::clear() {
    flags_ = 0;
    if (CPropertyCollection* p = std::exchange(properties_, nullptr)) p->release();
}

void CMetaData::assignFrom(const tovan::iMetaData& source) { CMetaDataImpl::AssignMetaDataFrom(*this, &source); }

}  // namespace nvk
