#include "kiv/script/Construction.h"

namespace kivSq::internal {
namespace {

// The native class of an instance is the first bound one from its own class on: those of scripts have no tag.
bool isNativelyOf(SQVM* v, SQInteger index, SQUserPointer wanted) {
    SQUserPointer tag = nullptr;
    if (SQ_FAILED(sq_gettypetag(v, index, &tag))) return false;
    if (tag || sq_gettype(v, index) != OT_INSTANCE) return tag == wanted;
    const StackGuard guard(v);
    for (sq_getclass(v, index); !tag && sq_gettype(v, -1) == OT_CLASS; sq_remove(v, -2)) {
        sq_gettypetag(v, -1, &tag);
        sq_getbase(v, -1);
    }
    return tag == wanted;
}

} // namespace

// A constructor may be called on anything: by hand, twice, by a class derived in a script.
SQInteger checkConstruction(SQVM* v, const AdapterData& adapter) {
    SQUserPointer pointer = nullptr;
    if (!isNativelyOf(v, 1, adapter.getTypeTag()) || SQ_FAILED(sq_getinstanceup(v, 1, &pointer, nullptr)))
        return sq_throwerror(v, "native constructor called on an object of another class");
    return pointer ? sq_throwerror(v, "native constructor called on a constructed object") : 0;
}

SQInteger throwNoConstructor(SQVM* v) noexcept {
    return sq_throwerror(v, "the native class has no constructor for scripts");
}

SQInteger throwNoConstructorClone(SQVM* v) noexcept {
    return sq_throwerror(v, "clone called on native noconstructor kiv class");
}

SQInteger throwNoCopyClone(SQVM* v) noexcept {
    return sq_throwerror(v, "clone called on native nocopy kiv class");
}

void* cloneSource(SQVM* v, const AdapterData& adapter) {
    void* source = sq_gettop(v) >= 2 ? adapter.getInstance(v, 2) : nullptr;
    if (!source) {
        sq_throwerror(v, "clone of native class with null-pointer");
        return nullptr;
    }
    return checkConstruction(v, adapter) == 0 ? source : nullptr;
}

} // namespace kivSq::internal
