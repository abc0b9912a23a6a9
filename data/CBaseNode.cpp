#include "nvk/data/CBaseNode.h"

namespace nvk {

const tovan::ClassTag CBaseNode::Tag("Norvatek.data.BaseNode");

namespace {

const tovan::ClassRegistration s_registration(CBaseNode::Tag.name(),
                                              &CBaseNode::createObject);

}  // namespace

tovan::ObjectPool<CBaseNode>& CBaseNode::pool() {
    static tovan::ObjectPool<CBaseNode> p("CBaseNode");
    return p;
}

CBaseNode::~CBaseNode() = default;

CBaseNode* CBaseNode::newInstance() { return pool().newInstance(); }
tovan::Object* CBaseNode::createObject() { return newInstance(); }
CBaseNode* CBaseNode::allocate() { return pool().allocate(); }

CBaseNode* CBaseNode::allocateCopy(const CBaseNode& source) {
    CBaseNode* copy = source.Clone(true);
    copy->addRef();
    return copy;
}

void CBaseNode::deallocate(CBaseNode* node) { tovan::ObjectPool<CBaseNode>::deallocate(node); }

void CBaseNode::deleteInstance() { EndTree(this); }

}  // namespace nvk
