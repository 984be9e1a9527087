#pragma once

#include "kiv/script/AsyncQueue.h"
#include "kiv/script/VM.h"
#include "kiv/script/VMThread.h"

#include <list>

namespace kivSq {

// One script coroutine.
class VM::Thread {
public:
    SQVM* engine = nullptr;
    Object handle; // keeps it alive
    SQInteger argumentCount = 1;
    kiv::SmartPointer<AsyncQueue> queue;
    WakeCondition condition;
    ThreadEnd onEnd;
};

// The script threads of a VM.
class VM::Threads {
public:
    explicit Threads(SQVM* v) : m_vm(v) {}

    Thread& create(const Object& closure, ThreadEnd onEnd, AsyncQueue* queue);
    void runPass();
    bool isEmpty() const { return m_threads.empty(); }
    Thread* getCurrent() const { return m_current; }
    bool isCurrentAborting() const;
    SQInteger suspend(SQVM* v, WakeCondition condition);

private:
    SQVM* const m_vm;
    std::list<Thread> m_threads;
    Thread* m_current = nullptr;
};

} // namespace kivSq
