#pragma once

#include "kiv/script/AsyncQueue.h"
#include "kiv/script/VM.h"
#include "kiv/script/VMThread.h"

#include <map>

namespace kivSq {

// One script coroutine. Without a condition it was not started yet.
class VM::Thread {
public:
    SQVM* engine = nullptr;
    Object handle; // keeps it alive
    SQInteger argumentCount = 1;
    kiv::SmartPointer<AsyncQueue> queue;
    WakeCondition condition;
    ThreadEnd onEnd;
    uint64_t number = 0;  // its place in the order of creation
    int64_t wakeTime = 0; // while it waits for a time, on the clock of the list
};

// The script threads of a VM.
// A pass looks at them in the order in which they were made, and each when the ones before it have had their turn. It
// gets there without looking at those that sleep: they stand in an order of their own, by the time at which they wake,
// and come to the ones to be looked at when it is over.
class VM::Threads {
public:
    explicit Threads(SQVM* v) : m_vm(v) {}
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    Thread& create(const Object& closure, ThreadEnd onEnd, AsyncQueue* queue);
    void runPass();
    // Those that sleep are due from now on.
    void wakeThreadsOf(const AsyncQueue& queue);
    unsigned getIdleTime(unsigned longest);
    // As the watchdog's limit says.
    void watchAll();
    // Requires: no script runs.
    int64_t collectGarbage();
    bool isEmpty() const { return m_threads.empty(); }
    bool isInPass() const { return m_isInPass; }
    Thread* getCurrent() const { return m_current; }
    bool isCurrentAborting() const;
    SQInteger suspend(SQVM* v, WakeCondition condition);

private:
    enum class Answer { NotYet, Wake, Throw };

    Thread* findNext(uint64_t place);
    void run(Thread& thread);
    Answer ask(const Thread& thread) const;
    bool resume(Thread& thread, Answer answer) const;
    void park(Thread& thread);
    void finish(Thread& thread, const Object& result, bool isGood);
    void releaseSleepers();
    int64_t now();
    bool isEngineGone() const;

    SQVM* const m_vm;
    std::map<uint64_t, Thread> m_threads;
    std::map<uint64_t, Thread*> m_awake; // to be looked at
    std::map<std::pair<int64_t, uint64_t>, Thread*> m_sleepers;
    Thread* m_current = nullptr;
    bool m_isInPass = false;
    uint64_t m_lastNumber = 0;
    uint32_t m_lastTime = 0;
    int64_t m_now = 0; // m_lastTime without wrapping
    unsigned m_ended = 0;
};

} // namespace kivSq
