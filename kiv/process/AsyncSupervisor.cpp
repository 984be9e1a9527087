#include "kiv/process/AsyncSupervisor.h"

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"
#include "kiv/process/ProcessPacketReader.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "kiv/tasks/LambdaTask.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace kiv {
namespace {

constexpr int32_t backOff = 2000;  // milliseconds without a worker before the next start
constexpr unsigned jitter = 2047;  // a mask
constexpr int32_t turnTime = 10;   // milliseconds between two looks, unless there is something to do
constexpr int32_t readingTime = 5; // milliseconds, after which packets to the worker get their turn
constexpr unsigned readingLimit = 256;
constexpr unsigned forGood = std::numeric_limits<unsigned>::max();
// Reads after which what still comes is not the dead worker's, of which pipe and buffer hold 1 MiB each.
constexpr unsigned leftoverLimit = 1 << 17;

constexpr char traceCategory[] = "supervisor";
constexpr char traceName[] = "worker";

uint32_t now() {
    return Clock::current().getTime();
}

int32_t timeSince(uint32_t time) {
    return Clock::timeDifference(now(), time);
}

// Why the file is not started; null when it is one to be started.
const char* refusalOf(const String& path) {
    constexpr const char* isMissing = "worker binary not found under path: ";
    try {
        const std::filesystem::path file(std::u8string(path.begin(), path.end()));
        std::error_code failure;
        if (!std::filesystem::is_regular_file(file, failure)) return isMissing;
        // It would be another file wherever the program is started, and after it has changed its folder.
        return file.is_absolute() ? nullptr : "worker binary not started, its path is not absolute: ";
    } catch (const std::system_error&) {
        return isMissing; // on Windows, where it can't be the name of a file
    }
}

void logFailure(const char* hook, const char* what) {
    logging::MessageStream(3, 2) << "[SUPERVISOR] " << hook << " has failed: " << what;
}

// All supervisors there are, and how many are at work on threads of the pool.
struct Registry {
    std::mutex mutex;
    std::condition_variable hasLeft;
    std::vector<AsyncSupervisor*> supervisors;
    unsigned atWork = 0;

    // Never destroyed: static objects may supervise until the process ends.
    static Registry& instance() {
        static Registry& registry = *new Registry;
        return registry;
    }
};

} // namespace

// One thread at work for some supervisor, which may be gone before that ends.
class AsyncSupervisor::Running {
public:
    Running() {
        const std::lock_guard lock(Registry::instance().mutex);
        ++Registry::instance().atWork;
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
        const std::lock_guard lock(Registry::instance().mutex);
        --Registry::instance().atWork;
        Registry::instance().hasLeft.notify_all();
    }
};

// A step in progress, on the stack: a hook may end the supervision, and may even destroy the supervisor.
struct AsyncSupervisor::Step {
    Step(AsyncSupervisor* owner, uint32_t inRun) : supervisor(owner), run(inRun), lock(owner->m_stepMutex) {
        supervisor->m_step = this;
        supervisor->m_stepThread = std::this_thread::get_id();
    }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() {
        if (!supervisor) return;
        supervisor->m_step = nullptr;
        supervisor->m_stepThread = std::thread::id();
        if (isOver()) supervisor->stopWorker();
    }
    bool isOver() const { return !supervisor || supervisor->isOver(run); }

    AsyncSupervisor* supervisor; // null once it was destroyed
    const uint32_t run;
    std::unique_lock<std::mutex> lock;
};

AsyncSupervisor::AsyncSupervisor(const char* workerPath) : AsyncSupervisor(workerPath, {}) {}

AsyncSupervisor::AsyncSupervisor(const char* workerPath, List<String> arguments)
    : m_queue(makeObject<TaskQueue>(TaskQueue::GlobalDeleteIO)), m_workerPath(workerPath ? workerPath : ""),
      m_arguments(std::move(arguments)), m_lastAliveTime(now() - backOff + (Random::current().randomUInt() & jitter)) {
    const std::lock_guard lock(Registry::instance().mutex);
    Registry::instance().supervisors.push_back(this);
}

AsyncSupervisor::~AsyncSupervisor() {
    {
        const std::lock_guard lock(Registry::instance().mutex);
        std::erase(Registry::instance().supervisors, this);
    }
    if (m_run % 2 != 0) logging::MessageStream(4, 2) << "[SUPERVISOR] destroyed without terminate()";
    terminate();
    if (m_step) {
        m_step->supervisor = nullptr;
        m_step->lock.unlock();
        stopWorker();
    }
}

// ---- From outside.

void AsyncSupervisor::start() {
    uint32_t run = m_run;
    if (run % 2 != 0) return;
    m_isQuitExpected = false;
    if (!m_run.compare_exchange_strong(run, run + 1)) return;
    // A hook may destroy this before the push returns. A run that is about to end comes first: the queue is serial.
    const SmartPointer<TaskQueue> queue = m_queue;
    queue->pushTask(makeTask([this, next = run + 1] { supervise(next); }));
}

void AsyncSupervisor::requestStop() {
    uint32_t run = m_run;
    do {
        if (run % 2 == 0 && run != 0) return;
    } while (!m_run.compare_exchange_weak(run, run % 2 != 0 ? run + 1 : 2));
    m_waker.wake();
}

void AsyncSupervisor::expectQuit() {
    m_isQuitExpected = true;
    m_waker.wake();
}

void AsyncSupervisor::terminate() {
    requestStop();
    // In a hook: the end of the step does the rest.
    if (m_stepThread.load() == std::this_thread::get_id()) return;
    m_queue->abort();
    const std::lock_guard lock(m_stepMutex);
    stopWorker();
}

void AsyncSupervisor::terminateAll() {
    std::vector<SmartPointer<Process>> workers;
    {
        Registry& registry = Registry::instance();
        std::unique_lock lock(registry.mutex);
        for (AsyncSupervisor* supervisor : registry.supervisors) supervisor->requestStop();
        registry.hasLeft.wait(lock, [&] { return registry.atWork == 0; });
        // The loops have ended their workers. Others are driven by hand, where the end of a step in progress does so.
        for (AsyncSupervisor* supervisor : registry.supervisors) {
            const std::unique_lock stepLock(supervisor->m_stepMutex, std::try_to_lock);
            if (stepLock && supervisor->m_process) workers.push_back(supervisor->detachWorker());
        }
    }
    for (const SmartPointer<Process>& worker : workers) worker->terminate(false);
}

void AsyncSupervisor::enqueuePacket(Packet* packet) {
    if (!packet) return;
    {
        const std::lock_guard lock(m_outboxMutex);
        m_outbox.emplace_back(packet);
    }
    m_waker.wake();
}

AsyncSupervisor::Packets AsyncSupervisor::takeOutbox() {
    Packets packets;
    const std::lock_guard lock(m_outboxMutex);
    packets.swap(m_outbox);
    return packets;
}

// ---- On the supervising thread.

void AsyncSupervisor::supervise(uint32_t run) {
    const Running running;
    for (;;) {
        const uint32_t begin = now();
        Outcome outcome = Outcome::Idle;
        try {
            outcome = step(run);
        } catch (const std::exception& failure) {
            logFailure("a step", failure.what());
        }
        if (outcome == Outcome::Over) return; // the supervisor may be gone
        if (outcome == Outcome::Idle) waitForWork(begin);
    }
}

void AsyncSupervisor::waitForWork(uint32_t begin) {
    const auto rest = static_cast<unsigned>(std::clamp(turnTime - timeSince(begin), 0, turnTime));
    if (m_process && !m_isHeldBack)
        m_process->waitForBytes(rest, &m_waker);
    else
        m_waker.wait(m_workerPath.empty() && !m_process ? forGood : rest);
}

void AsyncSupervisor::tick() {
    const uint32_t run = m_run;
    const bool isInHook = m_stepThread.load() == std::this_thread::get_id();
    if (!isInHook && (run % 2 != 0 || run == 0)) step(run);
}

AsyncSupervisor::Outcome AsyncSupervisor::step(uint32_t run) {
    Step step(this, run);
    bool isBusy = false;
    if (!m_process && m_isQuitExpected) requestStop();
    if (!step.isOver() && (m_process || startWorker(step))) isBusy = serveWorker(step);
    if (step.isOver()) return Outcome::Over;
    if (!m_process) takeOutbox(); // lest it grows while no worker can be started
    return isBusy ? Outcome::Busy : Outcome::Idle;
}

// What a hook throws ends there. Behind it nothing may be touched but the step, until that says what is left.
template <class Hook>
void AsyncSupervisor::call(const Step& step, const char* name, Hook hook) {
    if (step.isOver()) return;
    try {
        hook();
    } catch (const std::exception& failure) {
        logFailure(name, failure.what());
    } catch (...) {
        logFailure(name, "unknown exception");
    }
}

// True when there is a worker then.
bool AsyncSupervisor::startWorker(const Step& step) {
    if (m_workerPath.empty() || timeSince(m_lastAliveTime) < backOff) return false;
    if (const char* const refusal = refusalOf(m_workerPath)) {
        logging::MessageStream(3, 2) << refusal << m_workerPath;
        m_workerPath.clear();
        return false;
    }
    m_lastAliveTime = now();
    const auto process = makeObject<Process>();
    if (!process->spawn(m_workerPath, m_arguments, nullptr, m_isKilledWithParent)) return false;
    m_process = process;
    m_readsAfterDeath = 0;
    if (Trace::isOn()) {
        m_lifeId = Trace::newIdentifier();
        Trace::beginAsync(traceCategory, traceName, m_lifeId, std::string_view(m_workerPath));
    }
    takeOutbox();
    call(step, "onProcessStarted", [this] { onProcessStarted(); });
    return !step.isOver();
}

// True when something was moved or is left to be moved at once.
bool AsyncSupervisor::serveWorker(const Step& step) {
    const bool isAlive = m_process->tick();
    const bool hasRead = readPackets(step, isAlive);
    if (step.isOver()) return false;
    if (isAlive) return writePackets() || hasRead;
    if (m_process->getPacketReader()->valid() && m_readsAfterDeath < leftoverLimit) return !m_isHeldBack;
    if (!m_isQuitExpected) logging::MessageStream(2, 2) << "subprocess quit unexpectedly, restarting";
    call(step, "onProcessQuit", [this] { onProcessQuit(); });
    if (step.isOver()) return false;
    detachWorker();
    if (m_isQuitExpected) requestStop();
    return false;
}

// Of a worker that has died everything is read, though perhaps not in one step.
bool AsyncSupervisor::readPackets(const Step& step, bool isAlive) {
    const uint32_t begin = now();
    for (unsigned count = 0; count < readingLimit && timeSince(begin) <= readingTime; ++count) {
        if (step.isOver()) return false;
        m_isHeldBack = !wantsPackets();
        if (m_isHeldBack) return false;
        const SmartPointer<Packet> packet = m_process->getPacketReader()->read();
        m_readsAfterDeath += !isAlive;
        if (!packet && (isAlive || !m_process->getPacketReader()->valid())) return count > 0;
        if (packet) call(step, "onPacket", [&] { onPacket(packet.get()); });
    }
    return true;
}

bool AsyncSupervisor::writePackets() {
    const Packets packets = takeOutbox();
    for (const SmartPointer<Packet>& packet : packets) m_process->getPacketWriter()->write(packet.get());
    m_lastAliveTime = now();
    return !packets.empty();
}

SmartPointer<Process> AsyncSupervisor::detachWorker() {
    if (m_lifeId != 0) Trace::endAsync(traceCategory, traceName, std::exchange(m_lifeId, 0));
    return std::exchange(m_process, nullptr);
}

void AsyncSupervisor::stopWorker() {
    if (const SmartPointer<Process> worker = detachWorker()) worker->terminate(false);
}

} // namespace kiv
