#pragma once

// The one place that includes the engine. It takes wide characters where _UNICODE asks for them; kivCore's text is
// UTF-8 everywhere.
#pragma push_macro("_UNICODE")
#undef _UNICODE
#include <squirrel.h>
#pragma pop_macro("_UNICODE")

static_assert(sizeof(SQChar) == 1 && sizeof(SQInteger) == 8 && sizeof(SQFloat) == 8,
              "compile with the definitions that come with the target kivUtilSquirrel");
