#include "kiv/platform/SystemName.h"

namespace kiv::platform {

const char* systemName() {
    return "linux";
}

} // namespace kiv::platform
