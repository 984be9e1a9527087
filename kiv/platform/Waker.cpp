#include "kiv/platform/Waker.h"

namespace kiv::platform {

// In this order: a wake() that comes between sets what the next beginWait() looks at first, though its signal may be
// cleared here.
void Waker::endWait() {
    m_isSet = false;
    clear();
}

bool Waker::beginWait() {
    if (!m_isSet) return true;
    endWait();
    return false;
}

} // namespace kiv::platform
