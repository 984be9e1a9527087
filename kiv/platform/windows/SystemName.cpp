#include "kiv/platform/SystemName.h"

namespace kiv::platform {

const char* systemName() {
    return "windows";
}

} // namespace kiv::platform
