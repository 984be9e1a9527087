#pragma once

#include "kiv/platform/Compiler.h"

#include <atomic>
#include <cstdint>

namespace kiv::internal {
class InputWait;
}

namespace kiv::platform {

// Lets any thread end the waiting of one, which may wait for something else at the same time (ChildProcess::wait,
// InputWait). A call while nobody waits ends the next waiting; several calls count as one. Throws std::bad_alloc when
// the system has no room for another.
class KIV_API Waker {
public:
    Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;
    ~Waker();

    void wake() {
        if (!m_isSet.exchange(true)) signal();
    }
    // Waits at most so many milliseconds; may return early for no reason.
    void wait(unsigned milliseconds);

private:
    friend class ChildProcess;
    friend class internal::InputWait;

    // True when nobody has called wake() since the last waiting, so that there is something to wait for.
    bool beginWait();
    void endWait();
    void signal();
    void clear();

    std::atomic<bool> m_isSet{false};
    const intptr_t m_signal; // of the system; set some time after m_isSet
};

} // namespace kiv::platform
