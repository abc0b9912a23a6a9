#pragma once
// Decides which value type a JSON element maps to before any value is built.
#include <memory>
#include <vector>

#include "nvk/interchange/JsonElements.h"
#include "nvk/platform/Array.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Types exactly one element (a second ProcessElement raises "Data typer
/// parsing error.").
///
/// The result is a type sequence: a scalar is one entry; an array of n
/// elements is TypeArray, n, then the merged sequence of its elements (an
/// empty array: TypeArray, 0, TypeNull). So a 2 by 3 array of integers is
/// 1, 2, 1, 3, 4 and prints as "a2a3i".
///
/// Merging the elements' sequences, in document order, stopping at the
/// first merge that gives up:
///  - sequences of different lengths: variant, give up;
///  - two scalars a, b: a when equal or when either is variant; double for a
///    double and an integer; otherwise variant (null, booleans and strings
///    never promote);
///  - two one-dimensional arrays of the same length: their element types by
///    the scalar rule. The order matters on purpose: a variant element type
///    in the next array keeps the accumulated type, a variant accumulated
///    type stays variant, so [[1,2],[true,1]] is 2x2 integers while
///    [[true,1],[1,2]] is 2x2 variants;
///  - anything else: equal sequences go on, different ones give variant.
class NVK_EXPORT CJsonDataTyper : public cajun::json::ConstVisitor {
public:
    /// The numbers and their letters (PrintValueType) are fixed.
    enum ValueType : int32_t {
        TypeNone = 0,      // nothing typed yet; no letter
        TypeArray = 1,     // "a" and the length
        TypeBoolean = 2,   // "b"
        TypeDouble = 3,    // "d"
        TypeInteger = 4,   // "i"
        TypeReserved = 5,  // "n", never produced
        TypeNull = 6,      // "0"
        TypeObject = 7,    // "o"
        TypeString = 8,    // "s"
        TypeVariant = 9,   // "v": the elements share no type
    };

    /// The type of one element: appends its sequence.
    class NVK_EXPORT TypeData {
    public:
        virtual ~TypeData();
        virtual void AppendTypeSequence(tovan::Array<ValueType>& sequence) const = 0;
    };

    CJsonDataTyper();
    ~CJsonDataTyper() override;
    CJsonDataTyper(const CJsonDataTyper&) = delete;
    CJsonDataTyper& operator=(const CJsonDataTyper&) = delete;

    void ProcessElement(const cajun::json::Element& element);
    void ProcessElement(const cajun::json::Boolean& element);
    /// Integer when the number survives truncation to a 32-bit signed
    /// integer unchanged, else double.
    void ProcessElement(const cajun::json::Number& element);
    void ProcessElement(int value);
    void ProcessElement(double value);
    void ProcessElement(const cajun::json::Null& element);
    void ProcessElement(const cajun::json::String& element);
    void ProcessElement(const cajun::json::Object& element);
    /// Types the elements and merges their sequences as it goes.
    void ProcessElement(const cajun::json::Array& element);

    /// Hands the type over to the caller; the typer is empty afterwards.
    std::unique_ptr<TypeData> DetachDataType();

    /// The whole sequence (calculated once, on the first query).
    const tovan::Array<ValueType>& GetTypeSequence() const;
    /// First entry, or TypeNone.
    ValueType GetValueType() const;
    /// Last entry (an array's common element type), or TypeNone.
    ValueType GetArrayElementType() const;
    /// True, with the lengths from outermost to innermost in `dims`, for a
    /// regular array of two or more dimensions; false (and `dims` empty)
    /// otherwise.
    bool GetArrayDimensions(tovan::Array<unsigned int>& dims) const;
    /// Appends the letters of the sequence, each "a" followed by its length.
    void PrintValueType(tovan::BaseString<tovan::wchar>& text) const;

    /// The sequence a typer would give `array`, appended to `sequence`,
    /// without a typer: for callers that want nothing else.
    static void AppendSequence(const cajun::json::Array& array, tovan::Array<ValueType>& sequence);
    /// GetArrayDimensions for a sequence.
    static bool DimensionsOf(const tovan::Array<ValueType>& sequence, tovan::Array<unsigned int>& dims);

    /// True for a number that is an integer by the rule above.
    static bool IsInteger(double value);
    /// The merge of two scalar types by the rule above.
    static ValueType MergeScalars(ValueType a, ValueType b);

    void Visit(const cajun::json::Array& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Object& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Number& element) override { ProcessElement(element); }
    void Visit(const cajun::json::String& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Boolean& element) override { ProcessElement(element); }
    void Visit(const cajun::json::Null& element) override { ProcessElement(element); }

private:
    void setScalar(ValueType type);
    void set(std::unique_ptr<TypeData> data);

    std::unique_ptr<TypeData> data_;
    mutable tovan::Array<ValueType> sequence_;
    mutable bool calculated_ = false;
};

}  // namespace nvk
