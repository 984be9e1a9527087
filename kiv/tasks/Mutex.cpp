#include "kiv/tasks/Mutex.h"

namespace kiv::internal {

void Mutex::lockSlowly() {
    for (int i = 0; i < spins; ++i) {
        KIV_PAUSE();
        if (m_state.load(std::memory_order_relaxed) == Free && try_lock()) return;
    }
    while (m_state.exchange(Contended, std::memory_order_acquire) != Free) platform::waitOnAddress(m_state, Contended);
}

} // namespace kiv::internal
