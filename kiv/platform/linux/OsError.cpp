#include "kiv/platform/OsError.h"

#include <system_error>

namespace kiv::platform {

std::string systemErrorText(int32_t error) {
    return std::error_code(error, std::system_category()).message();
}

} // namespace kiv::platform
