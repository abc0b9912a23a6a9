#include "nvk/interchange/CJsonConverter.h"

#include <utility>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CProperty.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/NDimArrayValue.h"

namespace nvk {

using tovan::Array;
using tovan::ArrayValue;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;
using ValueType = CJsonDataTyper::ValueType;

namespace {

// The framework type code of the values a JSON element type becomes.
int valueCodeOf(ValueType t) {
    switch (t) {
    case CJsonDataTyper::TypeBoolean: return tovan::VT_Boolean;
    case CJsonDataTyper::TypeDouble: return tovan::VT_Double;
    case CJsonDataTyper::TypeInteger: return tovan::VT_Integer;
    case CJsonDataTyper::TypeString: return tovan::VT_String;
    case CJsonDataTyper::TypeNull: return tovan::VT_Null;
    default: return ArrayValue::AnyElementType;
    }
}

bool isScalarType(ValueType t) {
    return t == CJsonDataTyper::TypeBoolean || t == CJsonDataTyper::TypeDouble || t == CJsonDataTyper::TypeInteger ||
           t == CJsonDataTyper::TypeString || t == CJsonDataTyper::TypeNull;
}

Ptr<Value> numberValue(double d) {
    if (CJsonDataTyper::IsInteger(d)) return Ptr<Value>(new tovan::IntegerValue(int32_t(d)));
    return Ptr<Value>(new tovan::DoubleValue(d));
}

// How an array element turns into a value of its own (inside a value array):
// typed and n-dimensional arrays as CJsonDataTyper says, anything else as a
// value array of its elements.
Ptr<Value> arrayValueOf(const cajun::json::Array& array) {
    Array<ValueType> sequence;
    CJsonDataTyper::AppendSequence(array, sequence);
    Array<unsigned int> dims;
    ValueType element = sequence.last();
    bool regular = CJsonDataTyper::DimensionsOf(sequence, dims);
    if (!regular || element == CJsonDataTyper::TypeObject) dims.clear();
    if (!regular && !(sequence.size() == 3 && isScalarType(element)))
        element = CJsonDataTyper::TypeVariant;
    CJsonArrayConverter converter(element);
    converter.ProcessArrayElement(array, dims);
    return Ptr<Value>::adopt(converter.DetachArrayValue());
}

}  // namespace

// ---- CJsonArrayConverter --------------------------------------------------------

CJsonArrayConverter::CJsonArrayConverter(ValueType elementType) : elementType_(elementType) {}
CJsonArrayConverter::~CJsonArrayConverter() = default;

void CJsonArrayConverter::ProcessArrayElement(const cajun::json::Array& array, const Array<unsigned int>& dims) {
    if (elementType_ == CJsonDataTyper::TypeObject)
        throw tovan::Exception("CJsonArrayConverter", "ProcessElement",
                               u"A JSON object cannot be an element of an n-dimensional array");
    int code = valueCodeOf(elementType_);
    if (!dims.isEmpty()) {
        auto* nd = new tovan::NDimArrayValue(code, dims);
        result_ = Ptr<Value>(nd);
        target_ = &nd->flat();
        doubles_ = dynamic_cast<tovan::DoubleArrayValue*>(target_);
        integers_ = dynamic_cast<tovan::IntegerArrayValue*>(target_);
        values_ = dynamic_cast<tovan::ValueArrayValue*>(target_);
        next_ = 0;
        misfit_ = false;
        fillFlat(array, 0, dims.size());
        if (misfit_) {
            // The typer lets a variant row keep the type of the rows before
            // it ([[1, 2], [true, 1]] is typed integer), so an element may not
            // fit: such an array holds elements of any class instead.
            elementType_ = CJsonDataTyper::TypeVariant;
            ProcessArrayElement(array, dims);
        }
        return;
    }
    // Made here rather than through the factory, so that the kind of the
    // target is known without a cast: arrays are made by the thousand.
    doubles_ = nullptr;
    integers_ = nullptr;
    values_ = nullptr;
    switch (code) {
    case tovan::VT_Double: target_ = doubles_ = new tovan::DoubleArrayValue(); break;
    case tovan::VT_Integer: target_ = integers_ = new tovan::IntegerArrayValue(); break;
    case tovan::VT_String: target_ = new tovan::StringArrayValue(); break;
    case tovan::VT_Boolean: target_ = new tovan::BooleanArrayValue(); break;
    case tovan::VT_Null: target_ = new tovan::NullArrayValue(); break;
    default: target_ = values_ = new tovan::ValueArrayValue(); break;
    }
    result_ = Ptr<Value>(target_);
    next_ = 0;
    for (const cajun::json::Element& e : array) e.Accept(*this);
}

void CJsonArrayConverter::fillFlat(const cajun::json::Array& array, size_t level, size_t levels) {
    if (level + 1 == levels) {
        for (const cajun::json::Element& e : array) e.Accept(*this);
        return;
    }
    for (const cajun::json::Element& e : array) fillFlat(e.As<cajun::json::Array>(), level + 1, levels);
}

Value* CJsonArrayConverter::DetachArrayValue() {
    target_ = nullptr;
    doubles_ = nullptr;
    integers_ = nullptr;
    values_ = nullptr;
    return result_.detach();
}

void CJsonArrayConverter::put(const Value& v) {
    if (!target_->canHold(v)) {
        misfit_ = true;
        ++next_;
        return;
    }
    if (next_ < target_->size())
        target_->setElement(next_, v);
    else
        target_->appendElement(v);
    ++next_;
}

void CJsonArrayConverter::Visit(const cajun::json::Array& element) {
    Ptr<Value> nested = arrayValueOf(element);
    if (auto* values = values_) {
        // Stored as it is: a value array takes a reference, no copy.
        if (next_ < values->size())
            values->set(next_, nested.get());
        else
            values->append(nested.get());
        ++next_;
        return;
    }
    put(*nested);
}

void CJsonArrayConverter::Visit(const cajun::json::Object&) {
    throw tovan::Exception("CJsonArrayConverter", "ProcessElement",
                           u"A JSON object cannot be an element of an n-dimensional array");
}

void CJsonArrayConverter::Visit(const cajun::json::Number& element) {
    double d = element.Value();
    // Arrays of numbers are most of the numbers in large documents: straight
    // into the typed storage, without a value per element.
    if (auto* doubles = doubles_) {
        if (next_ < doubles->size())
            doubles->set(next_, d);
        else
            doubles->append(d);
        ++next_;
        return;
    }
    if (CJsonDataTyper::IsInteger(d)) {
        if (auto* ints = integers_) {
            if (next_ < ints->size())
                ints->set(next_, int32_t(d));
            else
                ints->append(int32_t(d));
            ++next_;
            return;
        }
    }
    put(*numberValue(d));
}

void CJsonArrayConverter::Visit(const cajun::json::String& element) {
    put(tovan::StringValue(WString(element.Value())));
}

void CJsonArrayConverter::Visit(const cajun::json::Boolean& element) { put(tovan::BooleanValue(element.Value())); }

void CJsonArrayConverter::Visit(const cajun::json::Null&) { put(tovan::NullValue()); }

// ---- CJsonConverter -------------------------------------------------------------

CJsonConverter::CJsonConverter() : nodeBatch_(CBaseNode::pool()) {}
CJsonConverter::~CJsonConverter() = default;

int CJsonConverter::popKind() {
    if (kinds_.isEmpty()) throw tovan::Exception("CJsonConverter", "pop", u"Stack is empty");
    return kinds_.removeLast();
}

Ptr<Value> CJsonConverter::popValue() {
    if (values_.isEmpty()) throw tovan::Exception("CJsonConverter", "pop", u"Stack is empty");
    return values_.removeLast();
}

SharedName CJsonConverter::popName() {
    if (names_.isEmpty()) throw tovan::Exception("CJsonConverter", "pop", u"Stack is empty");
    return names_.removeLast();
}

bool CJsonConverter::IsValueElement() const { return !kinds_.isEmpty() && kinds_.last() == KindValue; }
bool CJsonConverter::IsArrayElement() const { return !kinds_.isEmpty() && kinds_.last() == KindArray; }
bool CJsonConverter::IsObjectElement() const { return !kinds_.isEmpty() && kinds_.last() == KindObject; }

WString CJsonConverter::take(const std::u16string& text) const {
    // Only reached through ConsumeElement, whose tree is not const.
    if (consume_) return WString(std::move(const_cast<std::u16string&>(text)));
    return WString(text);
}

void CJsonConverter::ConsumeElement(cajun::json::Object& element) {
    struct Consuming {
        bool& flag;
        bool before;
        ~Consuming() { flag = before; }
    } consuming{consume_, consume_};
    consume_ = true;
    ProcessElement(static_cast<const cajun::json::Object&>(element));
}

void CJsonConverter::ProcessElement(const cajun::json::Object& element) {
    BeginObject();
    for (const auto& member : element) {
        BeginValue();
        names_.append(SharedName::cached(std::u16string_view(member.name)));
        member.element.Accept(*this);
        endMember(popName(), element.Size(), true);
    }
    EndObject();
}

void CJsonConverter::ProcessElement(const cajun::json::Array& element) {
    // An object among the elements types the array as objects or as a mix,
    // which goes through the walk whatever else is in it: no typing needed.
    for (const cajun::json::Element& e : element)
        if (e.Is<cajun::json::Object>()) {
            ProcessArrayElement(element);
            return;
        }
    Array<ValueType> sequence;
    CJsonDataTyper::AppendSequence(element, sequence);
    Array<unsigned int> dims;
    ValueType type = sequence.last();
    // Objects always go through the walk: they become nodes.
    if (type != CJsonDataTyper::TypeObject) {
        if (CJsonDataTyper::DimensionsOf(sequence, dims)) {
            ndElementType_ = type;
            ProcessNDimensionalArrayElement(element, dims);
            return;
        }
        if (sequence.size() == 3 && isScalarType(type)) {
            ProcessTypedArray(element, type, dims);
            return;
        }
    }
    ProcessArrayElement(element);
}

void CJsonConverter::ProcessScalarArray(const cajun::json::Array& element, ValueType merged) {
    // The typer's sequence for such an array is TypeArray, its size and the
    // merged type (TypeNull when empty): a typed array when that is a scalar
    // type, the walk otherwise.
    if (element.Empty()) merged = CJsonDataTyper::TypeNull;
    if (isScalarType(merged)) {
        ProcessTypedArray(element, merged, Array<unsigned int>());
        return;
    }
    ProcessArrayElement(element);
}

void CJsonConverter::ProcessArrayElement(const cajun::json::Array& element) {
    BeginArray();
    for (const cajun::json::Element& e : element) e.Accept(*this);
    EndArray();
}

void CJsonConverter::ProcessNDimensionalArrayElement(const cajun::json::Array& element,
                                                     const Array<unsigned int>& dims) {
    // Regular arrays of scalars (or of mixed scalars) are n-dimensional
    // values of their common element type, so that a matrix stays a matrix.
    ProcessTypedArray(element, ndElementType_, dims);
}

void CJsonConverter::ProcessTypedArray(const cajun::json::Array& element, ValueType elementType,
                                       const Array<unsigned int>& dims) {
    CJsonArrayConverter converter(elementType);
    converter.ProcessArrayElement(element, dims);
    deliver(Ptr<Value>::adopt(converter.DetachArrayValue()));
}

void CJsonConverter::ProcessElement(const cajun::json::Number& element) {
    double d = element.Value();
    if (CJsonDataTyper::IsInteger(d))
        ProcessIntegerElement(int(d));
    else
        ProcessDoubleElement(d);
}

template <class V, class... T>
void CJsonConverter::deliverScalar(V& scratch, T... value) {
    if (IsValueElement()) {
        if constexpr (sizeof...(T) != 0) scratch.set(value...);
        scalar_ = &scratch;
        return;
    }
    deliver(Ptr<Value>(new V(value...)));
}

void CJsonConverter::ProcessIntegerElement(int value) { deliverScalar(integer_, int32_t(value)); }
void CJsonConverter::ProcessDoubleElement(double value) { deliverScalar(double_, value); }
void CJsonConverter::ProcessBooleanElement(bool value) { deliverScalar(boolean_, value); }
void CJsonConverter::ProcessNullElement() { deliverScalar(null_); }

void CJsonConverter::ProcessElement(const cajun::json::String& element) {
    deliver(Ptr<Value>(new tovan::StringValue(take(element.Value()))));
}

void CJsonConverter::ProcessElement(const cajun::json::Boolean& element) { ProcessBooleanElement(element.Value()); }

void CJsonConverter::ProcessElement(const cajun::json::Null&) { ProcessNullElement(); }

void CJsonConverter::deliver(Ptr<Value> value) {
    if (IsArrayElement())
        appendToTop(value);
    else if (IsValueElement())
        values_.last() = std::move(value);  // the member's entry, pushed by BeginValue
    else
        values_.append(std::move(value));  // a value outside any object: kept, never used
}

void CJsonConverter::appendToTop(const Ptr<Value>& value) {
    Ptr<Value>& top = values_.last();
    bool container = value->findAs<ArrayValue>() || value->findAs<tovan::NDimArrayValue>();
    if (!top) {
        if (container) {
            auto* values = new tovan::ValueArrayValue();
            top = Ptr<Value>(values);
            values->append(value.get());
        } else {
            top = Value::make(ArrayValue::arrayTypeFor(value->getTypeCode()), true);
            top->findAs<ArrayValue>()->appendElement(*value);
        }
        return;
    }
    ArrayValue* array = top->findAs<ArrayValue>();
    if (array && array->canHold(*value)) {
        if (auto* values = dynamic_cast<tovan::ValueArrayValue*>(array))
            values->append(value.get());
        else
            array->appendElement(*value);
        return;
    }
    // The element does not fit: integers widen to doubles, anything else
    // makes the array a value array.
    int general = (array && array->getTypeCode() == tovan::VT_IntegerArray && value->getTypeCode() == tovan::VT_Double)
                      ? int(tovan::VT_DoubleArray)
                      : int(tovan::VT_ValueArray);
    Ptr<ArrayValue> converted;
    try {
        if (array) converted = array->convertTo(general);
    } catch (const tovan::Exception&) {
        converted = nullptr;
    }
    if (!converted)
        throw tovan::Exception("CJsonConverter", "ProcessElement",
                               u"Unable to convert array property to value array property");
    if (auto* values = dynamic_cast<tovan::ValueArrayValue*>(converted.get()))
        values->append(value.get());
    else
        converted->appendElement(*value);
    top = Ptr<Value>(converted.get());
}

void CJsonConverter::BeginObject() {
    CBaseNode* node = nodeBatch_.take();
    if (!root_) {
        nodes_.append(Ptr<tovan::iNode>(node));
        root_ = node;
    } else {
        // The parent's reference is the node's first: no temporary one to
        // take and drop for every object of a record.
        tovan::iNode* parent = current_ ? static_cast<tovan::iNode*>(current_) : root_;
        try {
            parent->appendChild(node);
        } catch (...) {
            Ptr<CBaseNode> unowned(node);  // back to the pool
            throw;
        }
    }
    current_ = node;
    storage_ = nullptr;
    kinds_.append(KindObject);
}

void CJsonConverter::EndObject(const SharedName* name) {
    popKind();
    storage_ = nullptr;
    if (current_ == root_) {
        root_ = nullptr;
        current_ = nullptr;
        releaseBatches();
        return;
    }
    if (name) current_->setName(*name);
    // Every node of the walk is made in BeginObject, its parent too.
    current_ = static_cast<CBaseNode*>(current_->findParent());
}

void CJsonConverter::BeginValue() {
    kinds_.append(KindValue);
    values_.append(nullptr);
}

void CJsonConverter::EndValue(const tovan::BaseString<tovan::wchar>& name) {
    popKind();
    Ptr<Value> value = popValue();
    if (const Value* scalar = std::exchange(scalar_, nullptr)) value = Ptr<Value>(scalar->clone());
    if (!value || !current_) return;  // the member held objects: they are child nodes already
    tovan::iPropertyCollection& properties = current_->getProperties();
    // By position, not find(): find() would read a name starting with "/"
    // as a path to another node's property.
    int index = properties.findIndex(name);
    tovan::iProperty& property = index >= 0 ? properties.get(index) : properties.define(name);
    if (auto* own = dynamic_cast<CProperty*>(&property))
        own->shareValue(value.get());
    else
        property.setValue(*value);
}

void CJsonConverter::endMember(SharedName name, size_t members, bool lookup) {
    popKind();
    Ptr<Value> value = popValue();
    const Value* scalar = std::exchange(scalar_, nullptr);
    if ((!value && !scalar) || !current_) return;  // the member held objects: they are child nodes already
    storeMember(std::move(name), std::move(value), scalar, members, lookup);
}

CPropertyCollectionData* CJsonConverter::memberStorage(size_t members) {
    if (!current_) return nullptr;
    if (!storage_) storage_ = &current_->getPropertyCollection().data();
    // Room for every member once the slots inside the collection are full,
    // rather than growing through every power of two. Members that hold
    // objects take none, so this may be a little too much; a count from an
    // earlier object may be more, but only an object that outgrew the
    // inside slots pays for that, in pointers.
    if (storage_->GetSlotCount() == CPropertyCollectionData::kInlineSlots) storage_->Reserve(members);
    return storage_;
}

size_t CJsonConverter::storedProperties() const {
    const tovan::iPropertyCollection* properties =
        current_ ? static_cast<const CBaseNode*>(current_)->getProperties() : nullptr;
    return properties ? size_t(properties->getSize()) : 0;
}

void CJsonConverter::storeMember(SharedName name, Ptr<Value> value, const Value* scalar, size_t members,
                                 bool lookup) {
    // What EndValue does through the interfaces: by slot, not find() (which
    // would read a name starting with "/" as a path), a repeated name taking
    // the last value, the value itself stored rather than a copy.
    CPropertyCollectionData* storage = memberStorage(members);
    if (!storage) return;
    if (CProperty* own = lookup ? storage->GetProperty(name.text()) : nullptr) {
        if (scalar)
            own->setValue(*scalar);
        else
            own->shareValue(value.get());
        return;
    }
    if (scalar)
        storage->AppendNewPropertyCopy(std::move(name), *scalar, &batch_);
    else
        storage->AppendNewProperty(std::move(name), std::move(value), &batch_);
}

void CJsonConverter::BeginArray() {
    if (!IsValueElement()) values_.append(nullptr);
    kinds_.append(KindArray);
}

void CJsonConverter::EndArray() {
    popKind();
    if (!IsArrayElement()) return;
    Ptr<Value> finished = popValue();
    if (finished) appendToTop(finished);
}

void CJsonConverter::GetNodeList(Array<Ptr<tovan::iNode>>& nodes, bool clear) {
    for (const auto& n : nodes_) nodes.append(n);
    if (clear) nodes_.clear();
}

}  // namespace nvk
