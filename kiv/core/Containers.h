#pragma once

#include <list>
#include <map>
#include <set>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kiv {

// The house's container names are the standard containers. Sets and maps of Item use Item's own total order:
// data/Item.h specialises std::less for it.
template <class T>
using Vector = std::vector<T>;
template <class T>
using List = std::list<T>;
template <class T>
using Set = std::set<T>;
template <class T>
using UnorderedSet = std::unordered_set<T>;
template <class K, class V>
using Map = std::map<K, V>;
template <class A, class B>
using Pair = std::pair<A, B>;

} // namespace kiv
