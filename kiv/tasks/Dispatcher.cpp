#include "kiv/tasks/Dispatcher.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/Trace.h"
#include "kiv/tasks/HardwareConcurrency.h"
#include "kiv/tasks/TaskQueue.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

namespace kiv::internal {
namespace {

constexpr int32_t idleLife = 30000; // milliseconds
constexpr std::chrono::microseconds spinTime(20);

thread_local const Dispatcher* t_dispatcher = nullptr;

struct Installed {
    std::mutex mutex;
    std::shared_ptr<Dispatcher> dispatcher;
};

// Never destroyed: queues of static objects may ask until the process ends.
Installed& installed() {
    static Installed& instance = *new Installed;
    return instance;
}

} // namespace

std::shared_ptr<Dispatcher> Dispatcher::current() {
    const std::lock_guard lock(installed().mutex);
    return installed().dispatcher;
}

void Dispatcher::install(const std::shared_ptr<Dispatcher>& dispatcher) {
    const std::lock_guard lock(installed().mutex);
    if (!installed().dispatcher) installed().dispatcher = dispatcher;
}

void Dispatcher::uninstall(const std::shared_ptr<Dispatcher>& dispatcher) {
    const std::lock_guard lock(installed().mutex);
    if (installed().dispatcher == dispatcher) installed().dispatcher = nullptr;
}

bool Dispatcher::isWorker() const {
    return t_dispatcher == this;
}

Dispatcher::Dispatcher()
    : m_minIdleThreads(getHardwareConcurrency() + 1), m_maxLooking(static_cast<int>(getHardwareConcurrency() / 2)),
      m_maxThreads(static_cast<int>(m_minIdleThreads)) {}

void Dispatcher::push(uint32_t runners, TaskQueue* queue, bool highPriority, bool wakesAtOnce) noexcept {
    Lock lock(m_mutex);
    if (!m_running) {
        lock.unlock();
        queue->discharge(runners);
        return;
    }
    Requests& requests = highPriority ? m_highPriority : m_normal;
    if (!requests.empty() && requests.back().queue == queue)
        requests.back().runners += runners;
    else
        requests.push_back({queue, runners});
    m_unclaimed.fetch_add(runners);
    balance(lock, wakesAtOnce);
}

// Sees to it that there are threads for what is requested. Releases the lock.
void Dispatcher::balance(Lock& lock, bool wakesAtOnce) noexcept {
    const auto wanted = static_cast<int>(std::min<uint64_t>(m_unclaimed.load(), INT32_MAX));
    const int parked = m_parked.load();
    // All requests against all idle threads: one that was woken for an earlier request has not taken it yet.
    const int started = std::clamp(wanted - m_idle - parked - m_starting, 0, std::max(0, m_maxThreads - m_threads));
    m_threads += started;
    m_starting += started;
    const int looking = m_idle - m_sleeping + parked; // these come by themselves
    int woken = std::min(wanted - looking, m_sleeping) - m_notified;
    if (!wakesAtOnce) woken = looking == 0 ? std::min(woken, 1) : 0;
    if (woken > 0) m_notified += woken;
    lock.unlock();
    for (int i = 0; i < woken; ++i) m_workCondition.notifyOne();
    for (int i = 0; i < started; ++i) startThread();
}

void Dispatcher::wakeForRequests() {
    Lock lock(m_mutex);
    balance(lock, true);
}

bool Dispatcher::park() {
    if (!startLooking()) return false;
    m_parked.fetch_add(1);
    return true;
}

void Dispatcher::unpark(bool isBusy) {
    m_parked.fetch_sub(1);
    m_looking.fetch_sub(1, std::memory_order_relaxed);
    // Requests that came meanwhile may have counted on this thread.
    if (isBusy && m_unclaimed.load() != 0) wakeForRequests();
}

bool Dispatcher::startLooking() {
    if (m_looking.fetch_add(1, std::memory_order_relaxed) < m_maxLooking) return true;
    m_looking.fetch_sub(1, std::memory_order_relaxed);
    return false;
}

bool Dispatcher::claim(const TaskQueue* queue) {
    const Lock lock(m_mutex);
    for (Requests* requests : {&m_highPriority, &m_normal}) {
        const auto request =
            std::find_if(requests->begin(), requests->end(), [&](const Request& r) { return r.queue == queue; });
        if (request == requests->end()) continue;
        m_unclaimed.fetch_sub(1, std::memory_order_relaxed);
        if (--request->runners == 0) requests->erase(request);
        return true;
    }
    return false;
}

uint32_t Dispatcher::cancel(const TaskQueue* queue) {
    const Lock lock(m_mutex);
    uint32_t runners = 0;
    for (Requests* requests : {&m_highPriority, &m_normal}) {
        std::erase_if(*requests, [&](const Request& request) {
            if (request.queue != queue) return false;
            runners += request.runners;
            return true;
        });
    }
    m_unclaimed.fetch_sub(runners, std::memory_order_relaxed);
    return runners;
}

void Dispatcher::startWorker() noexcept {
    {
        const Lock lock(m_mutex);
        if (!m_running) return;
        ++m_threads;
        ++m_starting;
    }
    startThread();
}

void Dispatcher::startThread() noexcept {
    reap();
    const std::lock_guard lock(m_workersMutex);
    if (m_isClosed) {
        const Lock accountLock(m_mutex);
        --m_threads;
        --m_starting;
        return;
    }
    Worker& worker = m_workers.emplace_back();
    worker.thread = std::thread([this, &worker] { work(worker); });
}

// Without this a thread that has retired would keep its stack until the shutdown.
void Dispatcher::reap() {
    std::list<Worker> ended;
    {
        const std::lock_guard workersLock(m_workersMutex);
        const Lock lock(m_mutex);
        for (auto worker = m_workers.begin(); worker != m_workers.end();) {
            const auto next = std::next(worker);
            if (worker->hasEnded) ended.splice(ended.end(), m_workers, worker);
            worker = next;
        }
    }
    for (Worker& worker : ended) worker.thread.join();
}

TaskQueue* Dispatcher::take() {
    Requests& requests = m_highPriority.empty() ? m_normal : m_highPriority;
    if (requests.empty()) return nullptr;
    TaskQueue* queue = requests.front().queue;
    if (--requests.front().runners == 0) requests.pop_front();
    m_unclaimed.fetch_sub(1, std::memory_order_relaxed);
    return queue;
}

void Dispatcher::work(Worker& worker) {
    t_dispatcher = this;
    static std::atomic<unsigned> g_workers{0};
    Trace::setThreadName("worker " + std::to_string(++g_workers));
    Lock lock(m_mutex);
    --m_starting;
    uint32_t lastActive = Clock::current().getTime();
    for (bool hasWorked = false; m_running;) {
        if (TaskQueue* queue = take()) {
            serve(lock, queue);
            hasWorked = true;
            continue;
        }
        const uint32_t now = Clock::current().getTime();
        if (hasWorked) lastActive = now;
        if (std::exchange(hasWorked, false) && spin(lock)) {
            hasWorked = true;
            continue;
        }
        const bool isSurplus = m_idle >= static_cast<int>(m_minIdleThreads);
        if (isSurplus && Clock::timeDifference(now, lastActive) > idleLife) break;
        ++m_idle;
        ++m_sleeping;
        m_workCondition.wait(lock);
        if (m_notified > 0) --m_notified;
        --m_sleeping;
        --m_idle;
    }
    --m_threads;
    worker.hasEnded = true;
}

void Dispatcher::serve(Lock& lock, TaskQueue* queue) {
    const int io = queue->isIOQueue(); // the queue may be gone when it has been served
    m_maxThreads += io;
    // The thread more that there may be now is also for requests beyond what the idle threads were woken for.
    const bool isShort = m_idle == 0 || m_unclaimed.load() > static_cast<uint64_t>(m_idle + m_starting);
    const bool needsThread = io != 0 && isShort && m_threads < m_maxThreads;
    m_threads += needsThread;
    m_starting += needsThread;
    lock.unlock();
    if (needsThread) startThread();
    queue->processTasks();
    lock.lock();
    m_maxThreads -= io;
}

// True when there may be work now.
bool Dispatcher::spin(Lock& lock) {
    if (!startLooking()) return false;
    ++m_idle;
    lock.unlock();
    const auto end = std::chrono::steady_clock::now() + spinTime;
    const auto isDue = [this] {
        return m_unclaimed.load(std::memory_order_relaxed) != 0 || !m_running.load(std::memory_order_relaxed);
    };
    do {
        for (int i = 0; i < 16 && !isDue(); ++i) KIV_PAUSE();
    } while (!isDue() && std::chrono::steady_clock::now() < end);
    m_looking.fetch_sub(1, std::memory_order_relaxed);
    lock.lock();
    --m_idle;
    return isDue();
}

void Dispatcher::wakeSurplus() {
    int surplus;
    {
        const Lock lock(m_mutex);
        surplus = std::min(m_sleeping - m_notified, m_idle - static_cast<int>(m_minIdleThreads));
        if (surplus > 0) m_notified += surplus;
    }
    for (int i = 0; i < surplus; ++i) m_workCondition.notifyOne();
    reap();
}

void Dispatcher::close() {
    Requests unserved[2];
    {
        const Lock lock(m_mutex);
        m_running = false;
        std::swap(unserved[0], m_highPriority);
        std::swap(unserved[1], m_normal);
        m_unclaimed = 0;
    }
    for (const Requests& requests : unserved) {
        for (const Request& request : requests) request.queue->discharge(request.runners);
    }
    m_workCondition.notifyAll();
}

void Dispatcher::shutdown() {
    assert(!isWorker() && "a thread pool is destroyed by one of its threads");
    close();
    std::list<Worker> workers;
    {
        const std::lock_guard lock(m_workersMutex);
        m_isClosed = true;
        workers.swap(m_workers);
    }
    for (Worker& worker : workers) worker.thread.join();
}

int Dispatcher::getThreadCount() {
    const Lock lock(m_mutex);
    return m_threads;
}

int Dispatcher::getIdleCount() {
    const Lock lock(m_mutex);
    return m_idle;
}

int Dispatcher::getMaxThreads() {
    const Lock lock(m_mutex);
    return m_maxThreads;
}

} // namespace kiv::internal
