// The script class kiv.GUID.

#include "kiv/data/GUID.h"

#include "kiv/script/classes/ValueClass.h"
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
    return internal::getCopy(v, index, out);
}

bool Access<GUID>::push(SQVM* v, const GUID& value) {
    return internal::pushBound<&internal::bindGUID>(v, value);
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
    kivSq::Class<GUID> guid(*scriptClass);
    kivSq::internal::addValueMethods(guid);
    guid.method("getFantasyName", &GUID::getFantasyName)
        .method("isNull", &GUID::isNull)
        .method("_cmp", &kivSq::internal::compareValues<GUID>)
        .staticMethod(
            "create", +[] { return GUIDDomainDB::createGUID(); });
}
