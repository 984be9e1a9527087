// The script class kiv.Object, the base of those of counted classes.

#include "kiv/core/Object.h"

#include "kiv/script/Bindings.h"
#include "kiv/script/Class.h"

namespace kivSq::internal {

void bindObject(const Object& table) {
    if (AdapterData::of<kiv::Object>().isInitialized()) return;
    Class<kiv::Object> object(table, "Object");
    Object scriptClass = object.getClass();
    kiv::Object::bindSqVM(&scriptClass);
}

} // namespace kivSq::internal

void kiv::Object::bindSqVM(kivSq::Object* scriptClass) {
    kivSq::Class<Object>(*scriptClass)
        .method("getClassName", &Object::getDynamicClassName)
        .method("getReferenceCount", &Object::getReferenceCount);
}
