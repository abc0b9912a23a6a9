// Node trees and values written through the writer's calls: every shape of
// tree, and the way back for NodeJsonText.cpp when a tree is not one it builds.
#include <algorithm>
#include <cstdint>
#include <string_view>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeJson_internal.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/NDimArrayValue.h"

namespace nvk::JsonUtilities {

using detail::appendNode;
using detail::forEachProperty;
using detail::GroupOrder;
using detail::sameName;
using detail::writeValue;

namespace {

// One element of an array value, typed access first so that large arrays do
// not make a value object per element.
void writeArrayElement(CJsonWriter& w, const tovan::ArrayValue& array, int code, size_t i) {
    switch (code) {
    case tovan::VT_DoubleArray: w.value(static_cast<const tovan::DoubleArrayValue&>(array).get(i)); return;
    case tovan::VT_IntegerArray: w.value(long(static_cast<const tovan::IntegerArrayValue&>(array).get(i))); return;
    case tovan::VT_BooleanArray: w.value(bool(static_cast<const tovan::BooleanArrayValue&>(array).get(i))); return;
    case tovan::VT_ByteArray: w.value(long(static_cast<const tovan::ByteArrayValue&>(array).get(i))); return;
    case tovan::VT_StringArray:
        w.value(std::u16string_view(static_cast<const tovan::StringArrayValue&>(array).get(i).view()), true);
        return;
    case tovan::VT_NullArray: w.value(u"null", false); return;
    case tovan::VT_ValueArray: writeValue(w, static_cast<const tovan::ValueArrayValue&>(array).get(i)); return;
    default: writeValue(w, *array.getElement(i));
    }
}

void writeDimension(CJsonWriter& w, const tovan::NDimArrayValue& nd, size_t dim, size_t& flat) {
    unsigned n = nd.getDimensions()[dim];
    if (dim + 1 == nd.getDimensionCount()) {
        const tovan::ArrayValue& elements = nd.flat();
        const int code = elements.getTypeCode();
        if (code == tovan::VT_DoubleArray && typeid(elements) == typeid(tovan::DoubleArrayValue)) {
            const auto& numbers = static_cast<const tovan::DoubleArrayValue&>(elements).items();
            // A short store goes element by element, to fail where an element is missing.
            if (flat + n <= numbers.size()) {
                w.array(numbers.data() + flat, n);
                flat += n;
                return;
            }
        }
        w.array();
        for (unsigned k = 0; k < n; ++k) writeArrayElement(w, elements, code, flat++);
    } else {
        w.array();
        for (unsigned k = 0; k < n; ++k) writeDimension(w, nd, dim + 1, flat);
    }
    w.endArray();
}

// The array classes by their codes, without a dynamic_cast for each value
// (a test of the exact class is a pointer comparison); anything else the
// slow way.
template <class A>
const tovan::ArrayValue* exactly(const tovan::Value& value) {
    return typeid(value) == typeid(A) ? static_cast<const A*>(&value) : value.findAs<tovan::ArrayValue>();
}

const tovan::ArrayValue* asArray(const tovan::Value& value) {
    switch (value.getTypeCode()) {
    case tovan::VT_StringArray: return exactly<tovan::StringArrayValue>(value);
    case tovan::VT_IntegerArray: return exactly<tovan::IntegerArrayValue>(value);
    case tovan::VT_DoubleArray: return exactly<tovan::DoubleArrayValue>(value);
    case tovan::VT_BooleanArray: return exactly<tovan::BooleanArrayValue>(value);
    case tovan::VT_ByteArray: return exactly<tovan::ByteArrayValue>(value);
    case tovan::VT_NullArray: return exactly<tovan::NullArrayValue>(value);
    case tovan::VT_ValueArray: return exactly<tovan::ValueArrayValue>(value);
    default: return value.findAs<tovan::ArrayValue>();
    }
}

}  // namespace

void detail::writeValue(CJsonWriter& w, const tovan::Value& value) {
    switch (value.getTypeCode()) {
    case tovan::VT_Boolean: w.value(static_cast<const tovan::BooleanValue&>(value).get()); return;
    case tovan::VT_Double: w.value(static_cast<const tovan::DoubleValue&>(value).get()); return;
    case tovan::VT_Integer: w.value(long(static_cast<const tovan::IntegerValue&>(value).get())); return;
    case tovan::VT_Null: w.value(u"null", false); return;
    // No JSON array form for a table of named values: written as null.
    case tovan::VT_HashTable: w.value(u"null", false); return;
    case tovan::VT_NDimArray: {
        const auto& nd = static_cast<const tovan::NDimArrayValue&>(value);
        size_t flat = 0;
        writeDimension(w, nd, 0, flat);
        return;
    }
    default: break;
    }
    // The text of a plain string value is at hand: no copy through toString().
    if (value.getTypeCode() == tovan::VT_String && typeid(value) == typeid(tovan::StringValue)) {
        w.value(std::u16string_view(static_cast<const tovan::StringValue&>(value).get().view()), true);
        return;
    }
    if (const auto* array = asArray(value)) {
        // The code first: comparing type identities that differ compares their names.
        if (array->getTypeCode() == tovan::VT_DoubleArray && typeid(*array) == typeid(tovan::DoubleArrayValue)) {
            const auto& numbers = static_cast<const tovan::DoubleArrayValue*>(array)->items();
            w.array(numbers.data(), numbers.size());
            return;
        }
        w.array();
        const int code = array->getTypeCode();
        const size_t n = array->size();
        for (size_t i = 0; i < n; ++i) writeArrayElement(w, *array, code, i);
        w.endArray();
        return;
    }
    tovan::WString text = value.toString();
    w.value(std::u16string_view(text.view()), true);
}

namespace {

// The library's own collection and property classes (exactly those: a
// subclass may override what is read) are read from their storage: no
// virtual call and no public index per property (an index squeezes out
// holes first and checks its range). Anything else goes through the
// interfaces; both give the same text.
void writeProperties(CJsonWriter& w, const tovan::iPropertyCollection* properties) {
    if (!properties) return;
    if (typeid(*properties) != typeid(CPropertyCollection)) {
        const int n = properties->getSize();
        for (int i = 0; i < n; ++i) {
            const tovan::iProperty& p = properties->get(i);
            w.key(std::u16string_view(p.getName().view()));
            writeValue(w, p.getValue());
        }
        return;
    }
    const CPropertyCollectionData* data = static_cast<const CPropertyCollection*>(properties)->findData();
    if (!data) return;
    forEachProperty(data->GetSlots(), [&](const CProperty& p) {
        if (typeid(p) != typeid(CProperty)) {
            w.key(std::u16string_view(p.getName().view()));
            writeValue(w, p.getValue());
        } else {
            w.key(std::u16string_view(p.CProperty::getName().view()));
            if (const tovan::Value* value = p.findValue())
                writeValue(w, *value);
            else
                w.value(u"null", false);  // a property without a value reads as the null value
        }
        return true;
    });
}

// The usual shape, children whose names come in a few runs that never
// return to an earlier name (one run per member of the document read), is
// already in group order: written as it stands, without building the
// grouping. False, with nothing written, for any other shape.
bool writeChildRuns(CJsonWriter& w, const tovan::iNode* node, int count) {
    constexpr int kMaxRuns = 8;
    int runStart[kMaxRuns + 1];
    const tovan::WString* runName[kMaxRuns];
    int runs = 0;
    for (int i = 0; i < count; ++i) {
        const tovan::WString& name = node->getChildAt(i)->getName();
        if (runs > 0 && sameName(*runName[runs - 1], name)) continue;
        if (runs == kMaxRuns) return false;
        for (int r = 0; r + 1 < runs; ++r)
            if (sameName(*runName[r], name)) return false;
        runStart[runs] = i;
        runName[runs++] = &name;
    }
    runStart[runs] = count;
    for (int r = 0; r < runs; ++r) {
        w.key(std::u16string_view(runName[r]->view())).array();
        for (int i = runStart[r]; i < runStart[r + 1]; ++i) appendNode(w, node->getChildAt(i), false, true, false);
        w.endArray();
    }
    return true;
}

}  // namespace

void detail::appendNode(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren,
                        bool childrenAsList) {
    w.object();
    const bool own = typeid(*node) == typeid(CBaseNode);
    writeProperties(w, own ? static_cast<const CBaseNode*>(node)->CBaseNode::getProperties() : node->getProperties());
    int count = own ? static_cast<const CBaseNode*>(node)->CBaseNode::getNumberOfChildren() : node->getNumberOfChildren();
    if (withChildren && count > 0) {
        if (childrenAsList) {
            w.key(u"children").array();
            for (int i = 0; i < count; ++i) appendNode(w, node->getChildAt(i), newLineAfter, true, true);
            w.endArray();
        } else if (!writeChildRuns(w, node, count)) {
            // One member per distinct name, in the order the names first
            // appear. A few names are told apart by comparing them; past
            // that a hash finds the group (an object of records keyed by id
            // has as many names as children). Names are read in place: a
            // node's name lives as long as the node.
            constexpr size_t kScanGroups = 8;
            std::vector<const tovan::WString*> names;
            std::vector<uint32_t> groupOf(static_cast<size_t>(count));
            std::unordered_map<std::u16string_view, uint32_t> byName;
            uint32_t nullGroup = UINT32_MAX;  // a null name is a name of its own, apart from the empty one
            for (int i = 0; i < count; ++i) {
                const tovan::WString& name = node->getChildAt(i)->getName();
                uint32_t group = UINT32_MAX;
                if (name.isNull()) {
                    group = nullGroup;
                } else if (names.size() <= kScanGroups) {
                    for (size_t g = 0; g < names.size(); ++g)
                        if (*names[g] == name) {
                            group = uint32_t(g);
                            break;
                        }
                } else {
                    if (byName.empty())
                        for (size_t g = 0; g < names.size(); ++g)
                            if (!names[g]->isNull()) byName.emplace(names[g]->view(), uint32_t(g));
                    auto found = byName.find(name.view());
                    if (found != byName.end()) group = found->second;
                }
                if (group == UINT32_MAX) {
                    group = uint32_t(names.size());
                    names.push_back(&name);
                    if (name.isNull())
                        nullGroup = group;
                    else if (!byName.empty())
                        byName.emplace(name.view(), group);
                }
                groupOf[size_t(i)] = group;
            }
            const GroupOrder order(groupOf, names.size());
            for (size_t g = 0; g < names.size(); ++g) {
                w.key(std::u16string_view(names[g]->view())).array();
                for (uint32_t k = order.start[g]; k < order.start[g + 1]; ++k)
                    appendNode(w, node->getChildAt(order.ordered[k]), false, true, false);
                w.endArray();
            }
        }
    }
    w.endObject();
    if (newLineAfter) w.writeNewLine();
}

}  // namespace nvk::JsonUtilities
