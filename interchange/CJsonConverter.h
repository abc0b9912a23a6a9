#pragma once
// Builds data nodes with typed properties from the JSON element tree.
#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollectionData.h"
#include "nvk/data/SharedName.h"
#include "nvk/interchange/CJsonDataTyper.h"
#include "nvk/interchange/JsonElements.h"
#include "nvk/platform/Array.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"

namespace tovan {
class ArrayValue;
class DoubleArrayValue;
class IntegerArrayValue;
class ValueArrayValue;
}

namespace nvk {

class CPropertyCollectionData;

/// Turns one JSON array into one array value, as its type says:
/// with dimensions (a regular array of two or more levels) an n-dimensional
/// array value of the element type; without, a one-dimensional array of the
/// element type (a value array for variant elements, whose nested arrays
/// become array values of their own).
///
/// Raises "A JSON object cannot be an element of an n-dimensional array"
/// when an object turns up among the elements.
class NVK_EXPORT CJsonArrayConverter : public cajun::json::ConstVisitor {
public:
    explicit CJsonArrayConverter(CJsonDataTyper::ValueType elementType);
    ~CJsonArrayConverter() override;

    void ProcessArrayElement(const cajun::json::Array& array, const tovan::Array<unsigned int>& dims);
    /// The value built; the caller owns the one reference it carries.
    tovan::Value* DetachArrayValue();

    /// Each element kind, appended to the array being filled.
    void ProcessElement(const cajun::json::Element& element) { element.Accept(*this); }
    void Visit(const cajun::json::Array& element) override;
    void Visit(const cajun::json::Object& element) override;
    void Visit(const cajun::json::Number& element) override;
    void Visit(const cajun::json::String& element) override;
    void Visit(const cajun::json::Boolean& element) override;
    void Visit(const cajun::json::Null& element) override;

private:
    void put(const tovan::Value& v);
    void fillFlat(const cajun::json::Array& array, size_t level, size_t levels);

    CJsonDataTyper::ValueType elementType_;
    tovan::Ptr<tovan::Value> result_;
    tovan::ArrayValue* target_ = nullptr;  // the flat array being filled (inside result_)
    // target_ as the kinds that take elements without a value each, when it is one.
    tovan::DoubleArrayValue* doubles_ = nullptr;
    tovan::IntegerArrayValue* integers_ = nullptr;
    tovan::ValueArrayValue* values_ = nullptr;
    size_t next_ = 0;                      // its next position
    bool misfit_ = false;                  // an element did not fit the element type
};

/// Walks an element tree and builds nodes:
///  - every object is a node; the value of member "m" that is an object,
///    and every object in an array that is the value of "m", is a child node
///    named "m" (the top-level node has no name);
///  - scalar members and arrays of scalars are properties named after the
///    member, in document order; a repeated name keeps the last value;
///  - arrays become array values as CJsonDataTyper types them: regular
///    arrays of two or more levels n-dimensional values (unless their
///    elements are objects), arrays of one scalar type typed arrays, other
///    arrays value arrays (arrays of arrays: value arrays of array values);
///  - a top-level array of objects gives one top-level node per object.
///
/// Names are taken literally: a member "/a/b" is a property of that name,
/// never a path to another node's property.
class NVK_EXPORT CJsonConverter : public cajun::json::ConstVisitor {
public:
    CJsonConverter();
    ~CJsonConverter() override;
    CJsonConverter(const CJsonConverter&) = delete;
    CJsonConverter& operator=(const CJsonConverter&) = delete;

    void ProcessElement(const cajun::json::Element& element) { element.Accept(*this); }
    void ProcessElement(const cajun::json::Object& element);
    /// ProcessElement for a tree that is thrown away afterwards: member
    /// names and string texts are moved out of it instead of copied, so
    /// `element` is left with those texts unspecified.
    void ConsumeElement(cajun::json::Object& element);
    void ProcessElement(const cajun::json::Array& element);
    void ProcessElement(const cajun::json::Number& element);
    void ProcessElement(const cajun::json::String& element);
    void ProcessElement(const cajun::json::Boolean& element);
    void ProcessElement(const cajun::json::Null& element);

    /// Appends the finished top-level nodes, each with its own reference;
    /// with `clear` the converter forgets them.
    void GetNodeList(tovan::Array<tovan::Ptr<tovan::iNode>>& nodes, bool clear);

    void Visit(const cajun::json::Array& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Object& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Number& element) override { ProcessElement(element); }
    void Visit(const cajun::json::String& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Boolean& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Null& element) override { ProcessElement(element); }

protected:
    friend class JsonNodeBuilder;  // drives the steps below as the text is read

    enum ElementKind { KindValue = 0, KindArray = 1, KindObject = 2 };

    void BeginArray();
    void EndArray();
    void BeginObject();
    /// Ends the object of the member named by the top of the name stack.
    void EndObject() { EndObject(names_.isEmpty() ? nullptr : &names_.last()); }
    /// Ends an object held by the member `name` (null at the top): the
    /// builder knows the name without the stack.
    void EndObject(const SharedName* name);
    void BeginValue();
    void EndValue(const tovan::BaseString<tovan::wchar>& name);
    bool IsArrayElement() const;
    bool IsObjectElement() const;
    bool IsValueElement() const;

private:
    /// ProcessElement for an array of scalars only (no arrays, no objects)
    /// whose elements' types merge to `merged`, the way the typer merges
    /// them: what the typer would decide, without typing the array again.
    void ProcessScalarArray(const cajun::json::Array& element, CJsonDataTyper::ValueType merged);
    void ProcessArrayElement(const cajun::json::Array& element);
    void ProcessNDimensionalArrayElement(const cajun::json::Array& element, const tovan::Array<unsigned int>& dims);
    void ProcessIntegerElement(int value);
    void ProcessDoubleElement(double value);
    void ProcessBooleanElement(bool value);
    void ProcessNullElement();
    /// A scalar for the member being read is kept in `scratch` (one of the
    /// converter's own) and copied into its property's room at the member's
    /// end; anywhere else it becomes a value of its own.
    template <class V, class... T>
    void deliverScalar(V& scratch, T... value);
    void ProcessTypedArray(const cajun::json::Array& element, CJsonDataTyper::ValueType elementType,
                           const tovan::Array<unsigned int>& dims);
    /// A scalar or a finished array: the member's value, or the next element
    /// of the array being built.
    void deliver(tovan::Ptr<tovan::Value> value);
    /// Appends to the array value on top of the value stack, making it more
    /// general first when `value` does not fit.
    void appendToTop(const tovan::Ptr<tovan::Value>& value);
    int popKind();
    tovan::Ptr<tovan::Value> popValue();
    SharedName popName();
    /// EndValue for a member (of an object of `members` members, as far as
    /// the caller knows: a reader going token by token gives the properties
    /// of the last object in the same place) met in the walk: the property goes
    /// straight into the node's storage, which takes room for `members` once
    /// its inside slots are full. `lookup` false says that no earlier member
    /// of the object has a name equal to this one with A-Z folded, so the
    /// collection need not be searched.
    void endMember(SharedName name, size_t members, bool lookup);
    /// endMember's storing, for the member's value (`value`, or `scalar`,
    /// to be copied, when that is not null).
    void storeMember(SharedName name, tovan::Ptr<tovan::Value> value, const tovan::Value* scalar,
                     size_t members, bool lookup);
    /// storeMember for a scalar of one of the property room's classes, `V`
    /// made from `args` in the new property itself.
    template <class V, class... Args>
    void storeScalar(SharedName name, size_t members, bool lookup, Args&&... args) {
        if (lookup) {
            const V value(std::forward<Args>(args)...);
            storeMember(std::move(name), nullptr, &value, members, true);
        } else if (CPropertyCollectionData* storage = memberStorage(members)) {
            storage->AppendNewScalar<V>(std::move(name), &batch_, std::forward<Args>(args)...);
        }
    }
    /// current_'s storage, with room for `members` once its inside slots are
    /// full; null between top-level objects.
    CPropertyCollectionData* memberStorage(size_t members);
    /// How many properties current_ holds (0 between top-level objects).
    size_t storedProperties() const;
    /// A text of the tree: moved out when consuming, else copied.
    tovan::WString take(const std::u16string& text) const;

    CBaseNode* current_ = nullptr;  // not owned; null between top-level objects
    CPropertyCollectionData* storage_ = nullptr;  // current_'s, once asked for
    tovan::Array<SharedName> names_;  // of the members holding objects, for the child nodes
    tovan::Array<tovan::Ptr<tovan::iNode>> nodes_;
    tovan::iNode* root_ = nullptr;  // not owned (nodes_ holds it)
    tovan::Array<int> kinds_;
    tovan::Array<tovan::Ptr<tovan::Value>> values_;
    // The element type the typer found for the array handed to
    // ProcessNDimensionalArrayElement.
    CJsonDataTyper::ValueType ndElementType_ = CJsonDataTyper::TypeNone;
    bool consume_ = false;  // inside ConsumeElement
    // Scalar members' values before they are copied into their properties:
    // a member's value is done with before the next member starts.
    tovan::IntegerValue integer_;
    tovan::DoubleValue double_;
    tovan::BooleanValue boolean_;
    tovan::NullValue null_;
    const tovan::Value* scalar_ = nullptr;  // one of the four, for the member being read
    // The walk's properties and nodes, a batch per turn of their pools'
    // locks; what is left goes back after each record.
    PropertyBatch batch_;
    tovan::ObjectPool<CBaseNode>::Handouts nodeBatch_;
    void releaseBatches() {
        batch_.Release();
        nodeBatch_.release();
    }
};

}  // namespace nvk
