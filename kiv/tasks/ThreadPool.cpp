#include "kiv/tasks/ThreadPool.h"

#include "kiv/core/Clock.h"
#include "kiv/tasks/Dispatcher.h"

namespace kiv {
namespace {

constexpr int32_t housekeepingInterval = 3000; // milliseconds

std::atomic<ThreadPool*> g_current{nullptr};

} // namespace

ThreadPool::ThreadPool()
    : m_dispatcher(std::make_shared<internal::Dispatcher>()), m_lastHousekeeping(Clock::current().getTime()) {
    ThreadPool* none = nullptr;
    if (g_current.compare_exchange_strong(none, this)) internal::Dispatcher::install(m_dispatcher);
}

ThreadPool::~ThreadPool() {
    shutdown();
}

void ThreadPool::close() {
    m_dispatcher->close();
}

void ThreadPool::shutdown() {
    ThreadPool* self = this;
    if (g_current.compare_exchange_strong(self, nullptr)) internal::Dispatcher::uninstall(m_dispatcher);
    m_dispatcher->shutdown();
}

ThreadPool* ThreadPool::current() {
    return g_current.load(std::memory_order_acquire);
}

void ThreadPool::pushQueue(unsigned count, TaskQueue* queue, bool highPriority) {
    if (count != 0) m_dispatcher->push(count, queue, highPriority);
}

void ThreadPool::startWorker() {
    m_dispatcher->startWorker();
}

void ThreadPool::processEvents() {
    const uint32_t now = Clock::current().getTime();
    if (Clock::timeDifference(now, m_lastHousekeeping) < housekeepingInterval) return;
    m_lastHousekeeping = now;
    m_dispatcher->wakeSurplus();
}

int ThreadPool::getThreadCount() const {
    return m_dispatcher->getThreadCount();
}

int ThreadPool::getIdleCount() const {
    return m_dispatcher->getIdleCount();
}

int ThreadPool::getMaxThreads() const {
    return m_dispatcher->getMaxThreads();
}

} // namespace kiv
