#include "kiv/core/Version.h"

namespace kiv {

const char* getVersion() {
    return KIV_VERSION;
}

} // namespace kiv
