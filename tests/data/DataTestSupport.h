#pragma once
// Tree builders and printers shared by the data tests.
#include <string>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Value.h"

namespace datatest {

using NodePtr = tovan::Ptr<nvk::CBaseNode>;

inline NodePtr node(const char16_t* name) {
    NodePtr n(nvk::CBaseNode::newInstance());
    n->setName(name);
    return n;
}

/// Appends a new child called `name` to `parent` and returns it.
inline nvk::CBaseNode* child(tovan::iNode& parent, const char16_t* name) {
    NodePtr c = node(name);
    parent.appendChild(c.get());
    return c.get();
}

/// The children's names, comma-separated: "a,b,c".
inline std::string childNames(const tovan::iNode& n) {
    std::string out;
    for (int i = 0; i < n.getNumberOfChildren(); ++i) {
        if (i) out += ",";
        out += tovan::toNarrow(n.getChildAt(i)->getName());
    }
    return out;
}

/// The property names in order: "a,b,c".
inline std::string propertyNames(const tovan::iPropertyCollection& c) {
    std::string out;
    for (int i = 0; i < c.getSize(); ++i) {
        if (i) out += ",";
        out += tovan::toNarrow(c.get(i).getName());
    }
    return out;
}

}  // namespace datatest
