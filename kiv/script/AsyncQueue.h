#pragma once

#include "kiv/core/Object.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Object.h"

#include <cstdint>
#include <deque>

namespace kivSq {

class VM;

// A queue of script threads, of which at most so many run at a time; the others wait in their order. Scripts make one
// by std.queue() and know it as the class "std.AsyncQueue". Main thread.
// A queue works for the VM that lives when it is first used; its threads end with that.
class KIV_API AsyncQueue : public kiv::Object {
    KIV_OBJECT(AsyncQueue, kiv::Object)
public:
    // Fewer than one is one.
    explicit AsyncQueue(int64_t max = 1) : m_max(max < 1 ? 1 : max) {}
    AsyncQueue(const AsyncQueue&) = delete;
    AsyncQueue& operator=(const AsyncQueue&) = delete;

    // Makes a script thread of a function, as soon as fewer than max run. False for what is none, and without a VM.
    bool push(const kivSq::Object& closure);
    // Drops what waits and wakes those that sleep, also when they sleep again. Aborting lasts until the last thread
    // that runs has ended; what is pushed meanwhile waits until then. With none running it is over at once.
    void abort();
    // How many wait, resp. were made threads and have not ended.
    int64_t size() const { return static_cast<int64_t>(m_waiting.size()); }
    int64_t running() const { return m_running; }
    bool isAborting() const { return m_isAborting; }

private:
    friend class VM; // its list of threads

    void startWaiting();
    void onThreadEnd();

    const int64_t m_max;
    std::deque<kivSq::Object> m_waiting;
    int64_t m_running = 0;
    bool m_isAborting = false;
};

} // namespace kivSq
