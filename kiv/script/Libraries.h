#pragma once

#include "kiv/script/Object.h"

// What fills the root tables.

namespace kivSq::internal {

// The functions of "std" resp. "string", but for those of the engine's own libraries.
void addStdFunctions(SQVM* v, const Object& table);
void addLogFunctions(SQVM* v, const Object& table);
void addJSONFunctions(SQVM* v, const Object& table);
void addProcessFunctions(SQVM* v, const Object& table);
void addThreadFunctions(SQVM* v, const Object& table);
void addStringFunctions(SQVM* v, const Object& table);

// Replaces the functions of the engine that corrupt memory when they are misused.
void installGuards(SQVM* v);

} // namespace kivSq::internal
