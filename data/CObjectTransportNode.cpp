#include "nvk/data/CObjectTransportNode.h"

namespace nvk {

const tovan::ClassTag CObjectTransportNode::Tag("Norvatek.data.ObjectTransportNode");

namespace {

const tovan::ClassRegistration s_registration(CObjectTransportNode::Tag.name(),
                                              []() -> tovan::Object* { return CObjectTransportNode::newInstance(); });

}  // namespace

tovan::ObjectPool<CObjectTransportNode>& CObjectTransportNode::pool() {
    static tovan::ObjectPool<CObjectTransportNode> p("CObjectTransportNode");
    return p;
}

CObjectTransportNode::~CObjectTransportNode() { ReleaseObject(); }

CObjectTransportNode* CObjectTransportNode::newInstance() { return pool().newInstance(); }
CObjectTransportNode* CObjectTransportNode::allocate() { return pool().allocate(); }
void CObjectTransportNode::deallocate(CObjectTransportNode* node) {
    tovan::ObjectPool<CObjectTransportNode>::deallocate(node);
}

// Ends its subtree from a loop, as the base node does: a chain of carriers of any depth ends
// without deepening the stack.
void CObjectTransportNode::deleteInstance() { EndTree(this); }

void CObjectTransportNode::onActivate() {
    OnActivateDefault();
    ReleaseObject();
}

void CObjectTransportNode::onDeactivate() {
    OnDeactivateDefault();
    ReleaseObject();
}

void CObjectTransportNode::SetObject(tovan::Object* object) {
    if (object == object_) return;
    if (auto* counted = dynamic_cast<tovan::CountedObject*>(object)) counted->addRef();
    ReleaseObject();
    object_ = object;
}

void CObjectTransportNode::ReleaseObject() {
    tovan::Object* old = std::exchange(object_, nullptr);
    if (!old) return;
    if (auto* counted = dynamic_cast<tovan::CountedObject*>(old))
        counted->release();
    else
        delete old;
}

void CObjectTransportNode::copyObjectTo(CObjectTransportNode& copy) const {
    if (!object_) return;
    if (dynamic_cast<tovan::CountedObject*>(object_))
        copy.SetObject(object_);
    else
        copy.SetObject(object_->clone());
}

tovan::Ptr<tovan::iNode> CObjectTransportNode::cloneNode(bool deep) const {
    tovan::Ptr<CObjectTransportNode> copy(Clone(deep));
    copyObjectTo(*copy);
    return copy;
}

tovan::Object* CObjectTransportNode::clone() const {
    CObjectTransportNode* copy = Clone(true);  // no reference, as clone() hands out
    try {
        copyObjectTo(*copy);
    } catch (...) {
        copy->addRef();
        copy->release();
        throw;
    }
    return copy;
}

}  // namespace nvk
