// The script class kiv.Object, the base of those of counted classes.

#include "kiv/core/Object.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/script/Class.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/classes/Bindings.h"

namespace kivSq::internal {

void bindObject(const Object& table) {
    if (AdapterData::of<kiv::Object>().isInitialized()) return;
    Class<kiv::Object> object(table, "Object");
    Object scriptClass = object.getClass();
    kiv::Object::bindSqVM(&scriptClass);
}

const AdapterData& baseOfCounted() {
    const AdapterData& adapter = AdapterData::of<kiv::Object>();
    if (!adapter.isInitialized()) bindObject(requireVM().getNamespace("kiv"));
    return adapter;
}

void logRefusedBase(const char* name) {
    kiv::logging::MessageStream(4, 2) << "[SQ] the native class does not begin with its base: " << name;
}

} // namespace kivSq::internal

void kiv::Object::bindSqVM(kivSq::Object* scriptClass) {
    kivSq::Class<Object>(*scriptClass)
        .method("getClassName", &Object::getDynamicClassName)
        .method("getReferenceCount", &Object::getReferenceCount);
}
