#pragma once

#include "kiv/script/Object.h"

// What the modules of the library bind, each into the table of its namespace ("kiv"). What needs another class binds it
// first; a second time does nothing.

namespace kivSq::internal {

void bindObject(const Object& table);
void bindSystem(const Object& table);
void bindGUID(const Object& table);
void bindItem(const Object& table);
void bindStore(const Object& table);
void bindMemoryStore(const Object& table);
void bindPacket(const Object& table);
void bindIVec2(const Object& table);
void bindIVec3(const Object& table);
void bindRect(const Object& table);
void bindGregorianDate(const Object& table);
void bindDirectory(const Object& table);
void bindFile(const Object& table);

} // namespace kivSq::internal
