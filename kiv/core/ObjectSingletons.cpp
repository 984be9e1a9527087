#include "kiv/core/Object.h"

#include "kiv/core/Singletons.h"
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace kiv {
namespace {

using Singletons = std::map<std::string, SmartPointer<Object>, std::less<>>;

std::string_view nameOf(const char* name) {
    return name ? name : "";
}

struct Registry {
    std::mutex mutex;
    Singletons entries;

    Object* find(const char* name) const {
        const auto entry = entries.find(nameOf(name));
        return entry == entries.end() ? nullptr : entry->second.get();
    }
};

// Never destroyed: singletons that nobody discarded live until the process ends.
Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

} // namespace

// In all of these the old references leave the registry under its lock and are released after it: the destructors that
// run then may themselves ask for singletons.
Object* Object::setSingleton(const char* name, Object* object) {
    SmartPointer<Object> reference(object);
    Singletons::node_type erased;
    const std::lock_guard lock(registry().mutex);
    Singletons& entries = registry().entries;
    auto entry = entries.find(nameOf(name));
    if (!object) {
        if (entry != entries.end()) erased = entries.extract(entry);
    } else if (entry == entries.end()) {
        entries.emplace(nameOf(name), std::move(reference));
    } else {
        entry->second.swap(reference);
    }
    return object;
}

Object* Object::getSingletonObject(const char* name) {
    const std::lock_guard lock(registry().mutex);
    return registry().find(name);
}

void Object::discardSingletons() {
    Singletons discarded;
    const std::lock_guard lock(registry().mutex);
    discarded.swap(registry().entries);
}

SmartPointer<Object> internal::getSingleton(const char* name) {
    const std::lock_guard lock(registry().mutex);
    return registry().find(name);
}

} // namespace kiv
