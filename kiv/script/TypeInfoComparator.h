#pragma once

#include <typeinfo>

namespace kivSq {

// Orders types, for maps that have them as keys. Two libraries may each have an object for the same type.
struct TypeInfoComparator {
    bool operator()(const std::type_info* a, const std::type_info* b) const { return a->before(*b); }
};

} // namespace kivSq
