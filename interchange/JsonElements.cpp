#include "nvk/interchange/JsonElements.h"

namespace cajun::json {

JsonException::JsonException(tovan::WString message) : tovan::Exception("cajun::json", "", std::move(message)) {}

// ---- Array ---------------------------------------------------------------

Array::Array() = default;
Array::Array(const Array&) = default;
Array::Array(Array&&) noexcept = default;
Array& Array::operator=(const Array&) = default;
Array& Array::operator=(Array&&) noexcept = default;
Array::~Array() = default;

Element& Array::operator[](size_t index) {
    if (index >= elements_.size())
        throw tovan::InvalidIndexException("cajun::json::Array", "operator[]", (long long)index,
                                           (long long)elements_.size() - 1);
    return elements_[index];
}

const Element& Array::operator[](size_t index) const { return const_cast<Array&>(*this)[index]; }

Element& Array::PushBack(Element element) { return elements_.emplace_back(std::move(element)); }

void Array::Clear() { elements_.clear(); }

void Array::Reserve(size_t n) { elements_.reserve(n); }

bool Array::operator==(const Array& other) const { return elements_ == other.elements_; }

// ---- Object --------------------------------------------------------------

Object::Object() = default;
Object::Object(const Object&) = default;
Object::Object(Object&&) noexcept = default;
Object& Object::operator=(const Object&) = default;
Object& Object::operator=(Object&&) noexcept = default;
Object::~Object() = default;

Object::iterator Object::Find(std::u16string_view name) {
    for (auto it = members_.begin(); it != members_.end(); ++it)
        if (it->name == name) return it;
    return members_.end();
}

Object::const_iterator Object::Find(std::u16string_view name) const { return const_cast<Object&>(*this).Find(name); }

Object::iterator Object::Insert(std::u16string name, Element element) {
    if (Find(name) != members_.end()) throw JsonException(u"Object member already exists: %ls", name);
    members_.push_back(Member{std::move(name), std::move(element)});
    return std::prev(members_.end());
}

void Object::append(std::u16string name, Element element) {
    members_.push_back(Member{std::move(name), std::move(element)});
}

Element& Object::operator[](std::u16string_view name) {
    auto it = Find(name);
    if (it == members_.end()) it = Insert(std::u16string(name), Element());
    return it->element;
}

const Element& Object::operator[](std::u16string_view name) const {
    auto it = Find(name);
    if (it == members_.end()) throw JsonException(u"Object member not found: %ls", name);
    return it->element;
}

void Object::Clear() { members_.clear(); }

bool Object::operator==(const Object& other) const { return members_ == other.members_; }

// ---- Element -------------------------------------------------------------

void Element::badCast() { throw JsonException(u"Bad element cast"); }

void Element::Accept(ConstVisitor& visitor) const {
    std::visit([&visitor](const auto& v) { visitor.Visit(v); }, value_);
}

ConstVisitor::~ConstVisitor() = default;

}  // namespace cajun::json
