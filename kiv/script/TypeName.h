#pragma once

#include "kiv/script/Engine.h"

#include <string>

namespace kivSq::internal {

const char* typeName(SQObjectType type);
// Of the value in a stack slot; of a native instance the name of its class.
std::string typeNameAt(SQVM* v, SQInteger index);
// null, true and false, numbers, texts (the first 256 bytes), otherwise "(type : 0xaddress)". No script code runs for
// it.
std::string describeValue(SQVM* v, SQInteger index);

} // namespace kivSq::internal
