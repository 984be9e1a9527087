#include "kiv/tasks/MainPool.h"

#include "kiv/tasks/TaskQueue.h"

#include <atomic>

namespace kiv {
namespace {

std::atomic<MainPool*> g_current{nullptr};

} // namespace

MainPool::MainPool() {
    MainPool* none = nullptr;
    g_current.compare_exchange_strong(none, this);
}

MainPool::~MainPool() {
    uninstall();
}

void MainPool::uninstall() {
    MainPool* self = this;
    g_current.compare_exchange_strong(self, nullptr);
}

MainPool* MainPool::current() {
    return g_current.load(std::memory_order_acquire);
}

void MainPool::pushMainQueue(TaskQueue* queue) noexcept {
    const std::lock_guard lock(m_mutex);
    m_incoming.push_back(queue);
}

void MainPool::processEvents() {
    assert(isMainThread());
    std::unique_lock lock(m_mutex);
    // Behind what an outer call of this function has still to run.
    m_working.insert(m_working.end(), m_incoming.begin(), m_incoming.end());
    m_incoming.clear();
    while (!m_working.empty()) {
        TaskQueue* queue = m_working.front();
        m_working.pop_front();
        lock.unlock();
        queue->processTasks();
        lock.lock();
    }
}

unsigned MainPool::removeMainQueue(TaskQueue* queue) {
    const std::lock_guard lock(m_mutex);
    return static_cast<unsigned>(std::erase(m_incoming, queue) + std::erase(m_working, queue));
}

} // namespace kiv
