#include "kiv/script/AsyncQueue.h"

#include "kiv/script/VMThreads.h"

namespace kivSq {

bool AsyncQueue::push(const kivSq::Object& closure) {
    if (!VM::current() || (!closure.isClosure() && !closure.isNativeClosure())) return false;
    m_waiting.push_back(closure);
    startWaiting();
    return true;
}

void AsyncQueue::abort() {
    // What goes may have release hooks that come here again.
    std::deque<kivSq::Object> dropped;
    dropped.swap(m_waiting);
    m_isAborting = m_running > 0;
    VM* vm = VM::current();
    if (vm && m_isAborting) vm->m_threads->wakeThreadsOf(*this);
}

void AsyncQueue::startWaiting() {
    while (!m_isAborting && m_running < m_max && !m_waiting.empty()) {
        VM* vm = VM::current();
        if (!vm) return;
        const kivSq::Object closure = std::move(m_waiting.front());
        m_waiting.pop_front();
        vm->m_threads->create(closure, {}, this);
        ++m_running;
    }
}

void AsyncQueue::onThreadEnd() {
    if (--m_running == 0) m_isAborting = false;
    startWaiting();
}

} // namespace kivSq
