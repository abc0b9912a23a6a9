#include "nvk/interchange/CJsonDataTyper.h"

#include <algorithm>
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

// A type known only by its sequence.
class SequenceTypeData : public CJsonDataTyper::TypeData {
public:
    explicit SequenceTypeData(Array<ValueType> sequence) : sequence_(std::move(sequence)) {}
    void AppendTypeSequence(Array<ValueType>& sequence) const override {
        for (ValueType t : sequence_) sequence.append(t);
    }

private:
    Array<ValueType> sequence_;
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

// Merges the element sequence at [next, end) of `s` into the accumulated
// one at [acc, next) and drops it; false, with the accumulated sequence
// made variant, when the elements cannot share a type and merging stops.
bool mergeTail(Array<ValueType>& s, size_t acc, size_t next) {
    ValueType* p = s.data();
    const size_t n = next - acc;
    bool merged = false;
    if (s.size() - next == n) {
        if (n == 1) {
            p[acc] = mergeScalars(p[acc], p[next]);
            merged = true;
        } else if (n == 3 && p[acc] == p[next] && p[acc + 1] == p[next + 1]) {
            p[acc + 2] = mergeScalars(p[acc + 2], p[next + 2]);
            merged = true;
        } else {
            merged = std::equal(p + acc, p + next, p + next);
        }
    }
    if (merged) {
        s.resize(next);
        return true;
    }
    s.resize(acc);
    s.append(CJsonDataTyper::TypeVariant);
    return false;
}

// Appends the sequence of an array to `s`: TypeArray, the length, then its
// elements' sequences merged in order, stopping at the first merge that gives
// up. Worked out in one array, without a type object per element: arrays of
// numbers are the bulk of many documents.
void appendSequence(const cajun::json::Array& array, Array<ValueType>& s) {
    s.append(CJsonDataTyper::TypeArray);
    s.append(ValueType(array.Size()));
    if (array.Empty()) {
        s.append(CJsonDataTyper::TypeNull);
        return;
    }
    const size_t acc = s.size();
    bool first = true;
    for (const cajun::json::Element& e : array) {
        const ValueType scalar = scalarType(e);
        if (first) {
            first = false;
            if (scalar != CJsonDataTyper::TypeNone)
                s.append(scalar);
            else
                appendSequence(e.As<cajun::json::Array>(), s);
            continue;
        }
        if (scalar != CJsonDataTyper::TypeNone && s.size() - acc == 1) {  // the common case
            s.data()[acc] = mergeScalars(s.data()[acc], scalar);
            continue;
        }
        const size_t next = s.size();
        if (scalar != CJsonDataTyper::TypeNone)
            s.append(scalar);
        else
            appendSequence(e.As<cajun::json::Array>(), s);
        if (!mergeTail(s, acc, next)) return;
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
    Array<ValueType> sequence;
    appendSequence(element, sequence);
    set(std::make_unique<SequenceTypeData>(std::move(sequence)));
}

void CJsonDataTyper::AppendSequence(const cajun::json::Array& array, Array<ValueType>& sequence) {
    appendSequence(array, sequence);
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
    return DimensionsOf(GetTypeSequence(), dims);
}

bool CJsonDataTyper::DimensionsOf(const Array<ValueType>& s, Array<unsigned int>& dims) {
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
