#include "kiv/script/VMThreads.h"

#include "kiv/script/StackGuard.h"

namespace kivSq {

VM::Thread& VM::Threads::create(const Object& closure, ThreadEnd onEnd, AsyncQueue* queue) {
    Thread& thread = m_threads.emplace_back();
    const StackGuard guard(m_vm);
    thread.engine = sq_newthread(m_vm, 256);
    thread.handle = Object(m_vm, -1);
    thread.queue = queue;
    thread.onEnd = std::move(onEnd);
    VM::seterrorhandlers(thread.engine);
    closure.push(thread.engine);
    sq_pushroottable(thread.engine);
    return thread;
}

void VM::Threads::runPass() {
    for (auto i = m_threads.begin(); i != m_threads.end();) {
        m_current = &*i;
        sq_call(i->engine, i->argumentCount, SQFalse, SQTrue);
        i = m_threads.erase(i);
    }
    m_current = nullptr;
}

bool VM::Threads::isCurrentAborting() const {
    return m_current && m_current->queue && m_current->queue->isAborting();
}

SQInteger VM::Threads::suspend(SQVM*, WakeCondition) {
    return 0;
}

} // namespace kivSq
