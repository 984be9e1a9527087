#include "kiv/data/PacketSchemeRegistry.h"

#include "kiv/data/PacketScheme.h"
#include "kiv/logging/MessageStream.h"

#include <map>
#include <mutex>

namespace kiv {
namespace {

struct Registry {
    std::mutex mutex;
    std::map<short, const PacketScheme*> schemes; // guarded by the mutex
};

// Never destroyed: global schemes of other modules leave it when the process ends, in whatever order.
Registry& registry() {
    static Registry* const instance = new Registry;
    return *instance;
}

} // namespace

const PacketScheme* PacketSchemeRegistry::find(short id) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.schemes.find(id);
    return found != all.schemes.end() ? found->second : nullptr;
}

const PacketScheme* PacketSchemeRegistry::find(std::string_view fullName) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    for (const auto& [id, scheme] : all.schemes) {
        if (scheme->getFullName().view() == fullName) return scheme;
    }
    return nullptr;
}

void PacketSchemeRegistry::add(const PacketScheme* scheme) {
    Registry& all = registry();
    bool isNew;
    {
        const std::lock_guard lock(all.mutex);
        isNew = all.schemes.emplace(scheme->getID(), scheme).second;
    }
    if (isNew) return;
    logging::MessageStream(3, 2) << "packet scheme not registered, id in use, id=" << scheme->getID()
                                 << ", getFullName()=" << scheme->getFullName();
}

void PacketSchemeRegistry::remove(const PacketScheme* scheme) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.schemes.find(scheme->getID());
    if (found != all.schemes.end() && found->second == scheme) all.schemes.erase(found);
}

} // namespace kiv
