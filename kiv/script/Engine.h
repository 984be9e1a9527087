#pragma once

// The script engine's interface, for everybody who calls it. Only here is its header included: it takes the Windows
// macro _UNICODE for the wish to have wide characters, and scripts are UTF-8 on every system.

#pragma push_macro("_UNICODE")
#undef _UNICODE
#include <squirrel.h>
#pragma pop_macro("_UNICODE")

// The sizes come from definitions of the build, see cmake/KivSquirrel.cmake.
static_assert(sizeof(SQChar) == 1 && sizeof(SQInteger) == 8 && sizeof(SQFloat) == 8,
              "the engine's library has other types than this program was told");
