#pragma once
// Room for one more element, growing geometrically. Reserving exactly one
// more would reallocate on every append and make building a list quadratic;
// reserving ahead lets the append that follows a check never fail halfway.
#include <cstddef>

namespace nvk {

template <class Vector>
void reserveOneMore(Vector& v) {
    if (v.size() == v.capacity()) v.reserve(v.capacity() < 4 ? 4 : v.capacity() * 2);
}

}  // namespace nvk
