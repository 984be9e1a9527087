// The script class kiv.GUID.

#include "kiv/data/GUID.h"

#include "kiv/script/Bindings.h"
#include "kiv/script/Class.h"
#include "kiv/script/VM.h"
#include "kiv/store/GUIDDomainDB.h"

#include <stdexcept>

namespace kivSq {
namespace {

using kiv::GUID;

GUID* parse(std::string_view text) {
    GUID guid;
    if (!GUID::fromString(text, guid)) throw std::runtime_error("a GUID has 64 hexadecimal digits");
    return new GUID(guid);
}

} // namespace

bool Access<GUID>::get(SQVM* v, int64_t index, GUID& out) {
    const GUID* const guid = internal::getInstance<GUID>(v, index);
    if (guid) out = *guid;
    return guid;
}

bool Access<GUID>::push(SQVM* v, const GUID& value) {
    if (!AdapterData::of<GUID>().isInitialized()) internal::bindGUID(VM::current()->getNamespace("kiv"));
    auto copy = std::make_unique<GUID>(value);
    if (!AdapterData::of<GUID>().pushInstance(v, copy.get(), &internal::releaseInstance<GUID>)) return false;
    copy.release();
    return true;
}

namespace internal {

void bindGUID(const Object& table) {
    if (AdapterData::of<GUID>().isInitialized()) return;
    Class<GUID> guid(table, "GUID", Constructor<void(), Factory<&parse>>());
    Object scriptClass = guid.getClass();
    GUID::bindSqVM(&scriptClass);
}

} // namespace internal
} // namespace kivSq

void kiv::GUID::bindSqVM(kivSq::Object* scriptClass) {
    kivSq::Class<GUID>(*scriptClass)
        .method("toString", &GUID::toString)
        .method("_tostring", &GUID::toString)
        .method("getFantasyName", &GUID::getFantasyName)
        .method("isNull", &GUID::isNull)
        .method(
            "getClassName", +[](GUID&) { return GUID::getStaticClassName(); })
        .method(
            "equals", +[](GUID& a, const GUID& b) { return a == b; })
        .method(
            "_cmp", +[](GUID& a, const GUID& b) { return a < b    ? -1
                                                         : a == b ? 0
                                                                  : 1; })
        .staticMethod(
            "create", +[] { return GUIDDomainDB::createGUID(); });
}
