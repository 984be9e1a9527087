#pragma once

#include "kiv/script/Engine.h"

#include <string>

namespace kivSq::internal {

// The value in a stack slot; takes no reference.
inline HSQOBJECT handleAt(SQVM* v, SQInteger index) {
    HSQOBJECT handle;
    sq_getstackobj(v, index, &handle);
    return handle;
}

const char* typeName(SQObjectType type);
// Of the value in a stack slot; of a native instance the name of its class.
std::string typeNameAt(SQVM* v, SQInteger index);
// null, true and false, numbers, texts (the first 256 bytes), otherwise "(type : 0xaddress)". No script code runs for
// it.
std::string describeValue(SQVM* v, SQInteger index);

} // namespace kivSq::internal
