#include "nvk/interchange/CJsonDataTyper.h"

#include <cstdint>

#include "nvk/platform/Exception.h"

namespace nvk {

using tovan::Array;
using ValueType = CJsonDataTyper::ValueType;

namespace {

class ScalarTypeData : public CJsonDataTyper::TypeData {
public:
    explicit ScalarTypeData(ValueType type) : type_(type) {}
    void AppendTypeSequence(Array<ValueType>& sequence) const override { sequence.append(type_); }

private:
    ValueType type_;
};

ValueType mergeScalars(ValueType a, ValueType b) {
    if (a == b || a == CJsonDataTyper::TypeVariant || b == CJsonDataTyper::TypeVariant) return a;
    if ((a == CJsonDataTyper::TypeDouble && b == CJsonDataTyper::TypeInteger) ||
        (a == CJsonDataTyper::TypeInteger && b == CJsonDataTyper::TypeDouble))
        return CJsonDataTyper::TypeDouble;
    return CJsonDataTyper::TypeVariant;
}

// Merges the next element's sequence into the accumulated one; false when
// the elements cannot share a type and merging stops.
bool mergeSequences(Array<ValueType>& acc, const Array<ValueType>& next) {
    if (acc.size() == next.size()) {
        if (acc.size() == 1) {
            acc[0] = mergeScalars(acc[0], next[0]);
            return true;
        }
        if (acc.size() == 3 && acc[0] == next[0] && acc[1] == next[1]) {
            acc[2] = mergeScalars(acc[2], next[2]);
            return true;
        }
        if (acc == next) return true;
    }
    acc.clear();
    acc.append(CJsonDataTyper::TypeVariant);
    return false;
}

// The elements' types in order. Scalar elements are kept as their type
// alone rather than as TypeData objects of their own: arrays of numbers are
// the bulk of many documents, and one allocation per number showed in the
// reading benchmark.
class ArrayTypeData : public CJsonDataTyper::TypeData {
public:
    void reserve(size_t n) { elements_.reserve(n); }
    void add(ValueType scalar) { elements_.push_back(Entry{scalar, nullptr}); }
    void add(std::unique_ptr<CJsonDataTyper::TypeData> element) {
        elements_.push_back(Entry{CJsonDataTyper::TypeNone, std::move(element)});
    }

    void AppendTypeSequence(Array<ValueType>& sequence) const override {
        sequence.append(CJsonDataTyper::TypeArray);
        sequence.append(ValueType(elements_.size()));
        if (elements_.empty()) {
            sequence.append(CJsonDataTyper::TypeNull);
            return;
        }
        // Elements that are all scalars (objects count as such) merge without
        // any sequence: most arrays are of that kind.
        bool scalars = true;
        for (const Entry& e : elements_) scalars = scalars && !e.data;
        if (scalars) {
            ValueType merged = elements_[0].scalar;
            for (size_t i = 1; i < elements_.size(); ++i) merged = mergeScalars(merged, elements_[i].scalar);
            sequence.append(merged);
            return;
        }
        Array<ValueType> acc, next;
        elements_[0].append(acc);
        for (size_t i = 1; i < elements_.size(); ++i) {
            const Entry& e = elements_[i];
            if (!e.data && acc.size() == 1) {  // the common case, without a sequence
                acc[0] = mergeScalars(acc[0], e.scalar);
                continue;
            }
            next.clear();
            e.append(next);
            if (!mergeSequences(acc, next)) break;
        }
        for (ValueType t : acc) sequence.append(t);
    }

private:
    struct Entry {
        ValueType scalar;                               // when data is null
        std::unique_ptr<CJsonDataTyper::TypeData> data;  // an array element
        void append(Array<ValueType>& out) const {
            if (data)
                data->AppendTypeSequence(out);
            else
                out.append(scalar);
        }
    };
    std::vector<Entry> elements_;
};

// The type of a scalar element, without a typer; TypeNone for containers.
ValueType scalarType(const cajun::json::Element& e) {
    switch (e.variant().index()) {
    case 0: return CJsonDataTyper::TypeNull;
    case 1: return CJsonDataTyper::TypeObject;
    case 3: return CJsonDataTyper::IsInteger(e.As<cajun::json::Number>().Value()) ? CJsonDataTyper::TypeInteger
                                                                                   : CJsonDataTyper::TypeDouble;
    case 4: return CJsonDataTyper::TypeBoolean;
    case 5: return CJsonDataTyper::TypeString;
    default: return CJsonDataTyper::TypeNone;
    }
}

}  // namespace

CJsonDataTyper::TypeData::~TypeData() = default;

CJsonDataTyper::CJsonDataTyper() = default;
CJsonDataTyper::~CJsonDataTyper() = default;

ValueType CJsonDataTyper::MergeScalars(ValueType a, ValueType b) { return mergeScalars(a, b); }

bool CJsonDataTyper::IsInteger(double value) {
    // The range test first: converting a double outside it to int is undefined.
    if (!(value >= -2147483648.0 && value <= 2147483647.0)) return false;
    return double(int32_t(value)) == value;
}

void CJsonDataTyper::set(std::unique_ptr<TypeData> data) {
    if (data_) throw tovan::Exception("CJsonDataTyper", "ProcessElement", u"Data typer parsing error.");
    data_ = std::move(data);
    calculated_ = false;
}

void CJsonDataTyper::setScalar(ValueType type) { set(std::make_unique<ScalarTypeData>(type)); }

void CJsonDataTyper::ProcessElement(const cajun::json::Element& element) { element.Accept(*this); }
void CJsonDataTyper::ProcessElement(const cajun::json::Boolean&) { setScalar(TypeBoolean); }
void CJsonDataTyper::ProcessElement(const cajun::json::Number& element) {
    setScalar(IsInteger(element.Value()) ? TypeInteger : TypeDouble);
}
void CJsonDataTyper::ProcessElement(int) { setScalar(TypeInteger); }
void CJsonDataTyper::ProcessElement(double) { setScalar(TypeDouble); }
void CJsonDataTyper::ProcessElement(const cajun::json::Null&) { setScalar(TypeNull); }
void CJsonDataTyper::ProcessElement(const cajun::json::String&) { setScalar(TypeString); }
void CJsonDataTyper::ProcessElement(const cajun::json::Object&) { setScalar(TypeObject); }

void CJsonDataTyper::ProcessElement(const cajun::json::Array& element) {
    if (data_) throw tovan::Exception("CJsonDataTyper", "ProcessElement", u"Data typer parsing error.");
    auto data = std::make_unique<ArrayTypeData>();
    data->reserve(element.Size());
    for (const cajun::json::Element& e : element) {
        ValueType scalar = scalarType(e);
        if (scalar != TypeNone) {
            data->add(scalar);
            continue;
        }
        CJsonDataTyper typer;  // a fresh typer per array element
        e.Accept(typer);
        data->add(typer.DetachDataType());
    }
    set(std::move(data));
}

std::unique_ptr<CJsonDataTyper::TypeData> CJsonDataTyper::DetachDataType() {
    calculated_ = false;
    sequence_.clear();
    return std::move(data_);
}

const Array<ValueType>& CJsonDataTyper::GetTypeSequence() const {
    if (!calculated_) {
        sequence_.clear();
        if (data_) data_->AppendTypeSequence(sequence_);
        calculated_ = true;
    }
    return sequence_;
}

ValueType CJsonDataTyper::GetValueType() const {
    const auto& s = GetTypeSequence();
    return s.isEmpty() ? TypeNone : s[0];
}

ValueType CJsonDataTyper::GetArrayElementType() const {
    const auto& s = GetTypeSequence();
    return s.isEmpty() ? TypeNone : s[s.size() - 1];
}

bool CJsonDataTyper::GetArrayDimensions(Array<unsigned int>& dims) const {
    const auto& s = GetTypeSequence();
    dims.clear();
    if (s.size() < 5) return false;
    for (size_t i = 0; i + 1 < s.size(); i += 2) {
        if (s[i] != TypeArray) {
            dims.clear();
            return false;
        }
        dims.append(unsigned(s[i + 1]));
    }
    return true;
}

void CJsonDataTyper::PrintValueType(tovan::BaseString<tovan::wchar>& text) const {
    static const char16_t letters[] = {0, u'a', u'b', u'd', u'i', u'n', u'0', u'o', u's', u'v'};
    const auto& s = GetTypeSequence();
    for (size_t i = 0; i < s.size(); ++i) {
        ValueType t = s[i];
        if (t <= TypeNone || t > TypeVariant) continue;
        text.append(letters[t]);
        if (t == TypeArray && i + 1 < s.size()) {
            ++i;
            text.append(tovan::format(u"%u", unsigned(s[i])).view());
        }
    }
}

}  // namespace nvk
