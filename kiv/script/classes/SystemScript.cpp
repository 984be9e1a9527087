// The script class kiv.System: services of the process.

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/core/Version.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/platform/SystemName.h"
#include "kiv/script/classes/Bindings.h"
#include "kiv/script/classes/FileArguments.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/tasks/HardwareConcurrency.h"

namespace kivSq {
namespace {

using kiv::Clock;
using kiv::ResourceLocator;

struct Services {};

bool addResourceDirectory(internal::Path path) {
    ResourceLocator* const locator = ResourceLocator::current();
    return locator && locator->addDirectory(path);
}

std::optional<internal::Blob> fetchResource(internal::Path name) {
    const ResourceLocator* const locator = ResourceLocator::current();
    internal::Blob blob;
    if (!locator || !locator->fetch(name, blob.bytes)) return {};
    return blob;
}

} // namespace

void internal::bindSystem(const Object& table) {
    if (AdapterData::of<Services>().isInitialized()) return;
    Class<Services>(table, "System")
        .staticMethod(
            "getTime", +[] { return Clock::current().getTime(); })
        .staticMethod(
            "getTime64", +[] { return Clock::current().getMilliseconds(); })
        .staticMethod(
            "getUTC", +[] { return Clock::current().getUtcMicroseconds(); })
        .staticMethod(
            "getUniqueUTC", +[] { return Clock::current().getUniqueUtcMicroseconds(); })
        .staticMethod("formatUTC", &kiv::utcTimeText)
        .staticMethod(
            "randomUInt", +[] { return kiv::Random::current().randomUInt(); })
        .staticMethod("createGUID", &kiv::GUIDDomainDB::createGUID)
        .staticMethod("getHardwareConcurrency", &kiv::getHardwareConcurrency)
        .staticMethod("addResourceDirectory", &addResourceDirectory)
        .staticMethod("fetchResource", &fetchResource)
        .staticMethod("getVersion", &kiv::getVersion)
        .staticMethod("getPlatform", &kiv::platform::systemName);
}

} // namespace kivSq
