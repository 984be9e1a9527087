#pragma once

#include "kiv/data/GUID.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <cstdint>

// Items and identifiers as arguments and results of native functions; Access.h includes it.
// An Item parameter takes an object of the script class kiv.Item as it is, and makes any other value an item of that
// one value (Item::addSquirrel); it refuses only what is nested too deeply. An Item result becomes the plain script
// value: of an item of one value that value, of others an array of their values. Code in it is null. Where a script
// needs the elements themselves, return an ItemObject, which it has as a kiv.Item.

namespace kivSq {

template <class T>
struct Access;

template <>
struct Access<kiv::Item> {
    KIV_API static bool get(SQVM* v, int64_t index, kiv::Item& out);
    KIV_API static bool push(SQVM* v, const kiv::Item& value);
    static const char* name() { return "value of at most 128 levels"; }
};

// Instances of kiv.GUID; its module is brought in when the first is needed.
template <>
struct Access<kiv::GUID> {
    KIV_API static bool get(SQVM* v, int64_t index, kiv::GUID& out);
    KIV_API static bool push(SQVM* v, const kiv::GUID& value);
    static const char* name() { return "GUID"; }
};

namespace internal {

// Appends the value in a stack slot. Null, or why it can't be done; `to` is as it was then.
KIV_API const char* addValue(SQVM* v, SQInteger index, kiv::Item& to);
// Pushes the value at the iterator and advances behind it. Null, or why it can't be done; nothing is pushed then.
// Requires: there is an element.
KIV_API const char* pushValue(SQVM* v, kiv::Item::Iterator& from, kiv::Trust trust);
// The whole item, as results are.
KIV_API const char* pushValueOf(SQVM* v, const kiv::Item& item, kiv::Trust trust);

} // namespace internal
} // namespace kivSq
