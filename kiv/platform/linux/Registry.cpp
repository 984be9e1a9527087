#include "kiv/platform/Registry.h"

namespace kiv::platform {

bool writeRegistryValue(const std::string&, const std::string&, const void*, size_t) {
    return false;
}

bool readRegistryValue(const std::string&, const std::string&, const RegistrySpace&) {
    return false;
}

} // namespace kiv::platform
