#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/platform/StandardInput.h"
#include "kiv/tasks/TaskQueue.h"

#include <condition_variable>
#include <mutex>
#include <string>

namespace kiv::internal {

// Standard input, read ahead by a thread of the pool. It stops reading while a megabyte waits to be taken.
// Threads: one at a time. Requires: a current ThreadPool, which outlives this.
class BackgroundInput {
public:
    BackgroundInput();
    BackgroundInput(const BackgroundInput&) = delete;
    BackgroundInput& operator=(const BackgroundInput&) = delete;
    // Ends the waiting for input and waits for the thread.
    ~BackgroundInput();

    // Replaces the bytes by those that have come since the last call. False when that is nothing and the input has
    // ended.
    bool take(std::string& bytes);
    // Waits until take() has bytes or the end to tell, at most so many milliseconds; 0xFFFFFFFF is no limit.
    void wait(unsigned milliseconds);

private:
    void readAhead();
    bool waitForRoom();
    void add(const char* bytes, size_t size);
    void end();

    InputWait m_input;
    SmartPointer<TaskQueue> m_queue;

    std::mutex m_mutex;
    // Guarded by it.
    std::condition_variable m_roomCondition;
    std::condition_variable m_newsCondition;
    std::string m_bytes;
    bool m_hasEnded = false;
    bool m_isStopping = false;
};

} // namespace kiv::internal
