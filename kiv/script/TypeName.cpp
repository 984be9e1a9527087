#include "kiv/script/TypeName.h"

#include "kiv/script/StackGuard.h"

#include <fmt/format.h>

#include <string_view>

namespace kivSq::internal {
namespace {

constexpr size_t mostText = 256;

std::string describeText(SQVM* v, SQInteger index) {
    const SQChar* text = nullptr;
    sq_getstring(v, index, &text);
    const std::string_view whole(text, static_cast<size_t>(sq_getsize(v, index)));
    return std::string(whole.substr(0, mostText));
}

} // namespace

const char* typeName(SQObjectType type) {
    switch (type) {
    case OT_NULL:
        return "null";
    case OT_INTEGER:
        return "integer";
    case OT_FLOAT:
        return "float";
    case OT_BOOL:
        return "bool";
    case OT_STRING:
        return "string";
    case OT_TABLE:
        return "table";
    case OT_ARRAY:
        return "array";
    case OT_USERDATA:
        return "userdata";
    case OT_CLOSURE:
    case OT_NATIVECLOSURE:
        return "function";
    case OT_GENERATOR:
        return "generator";
    case OT_USERPOINTER:
        return "userpointer";
    case OT_THREAD:
        return "thread";
    case OT_CLASS:
        return "class";
    case OT_INSTANCE:
        return "instance";
    case OT_WEAKREF:
        return "weakref";
    default:
        return "unknown";
    }
}

std::string typeNameAt(SQVM* v, SQInteger index) {
    const SQObjectType type = sq_gettype(v, index);
    if (type == OT_INSTANCE) {
        const StackGuard guard(v);
        const SQChar* name = nullptr;
        sq_getclass(v, index);
        sq_pushstring(v, "__kiv_nativeClassName", -1);
        if (SQ_SUCCEEDED(sq_rawget(v, -2)) && SQ_SUCCEEDED(sq_getstring(v, -1, &name))) return name;
        sq_reseterror(v);
    }
    return typeName(type);
}

std::string describeValue(SQVM* v, SQInteger index) {
    const SQObjectType type = sq_gettype(v, index);
    const HSQOBJECT handle = handleAt(v, index);
    switch (type) {
    case OT_NULL:
        return "null";
    case OT_BOOL:
        return sq_objtobool(&handle) ? "true" : "false";
    case OT_INTEGER:
        return fmt::format("{}", sq_objtointeger(&handle));
    case OT_FLOAT:
        return fmt::format("{:g}", sq_objtofloat(&handle));
    case OT_STRING:
        return describeText(v, index);
    default:
        return fmt::format("({} : {})", typeName(type), static_cast<const void*>(handle._unVal.pRefCounted));
    }
}

} // namespace kivSq::internal
