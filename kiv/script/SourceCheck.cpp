#include "kiv/script/Libraries.h"

namespace kivSq::internal {

const char* refuseSource(const char*, size_t) {
    return nullptr;
}

} // namespace kivSq::internal
