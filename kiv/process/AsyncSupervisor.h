#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/Waker.h"
#include "kiv/process/Process.h"
#include "kiv/tasks/TaskQueue.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace kiv {

class Packet;

// Keeps a worker process alive on a thread of the pool: starts it, passes packets in both directions, and starts it
// again two seconds after it has died. Derive from it; the destructor of the derived class calls terminate(). Workers
// have absolute paths and are not searched for; one that is not found is never looked for again.
// Ownership: counted; the supervisor is not kept alive by its own work. Threads: any may enqueue packets and terminate;
// start() and tick() from one at a time, which does not race with terminate(). The hooks are called on the supervising
// thread; one that waits for a thread which is in terminate() waits for ever. What it throws is logged, and the work
// goes on.
class KIV_API AsyncSupervisor : public Object {
    KIV_OBJECT(AsyncSupervisor, Object)
public:
    // The program is started without arguments; null is the empty path, which is never started. The first start is
    // delayed at random, up to 2047 ms.
    explicit AsyncSupervisor(const char* workerPath);
    // With arguments, as Process::spawn() takes them.
    AsyncSupervisor(const char* workerPath, List<String> arguments);
    AsyncSupervisor(const AsyncSupervisor&) = delete;
    AsyncSupervisor& operator=(const AsyncSupervisor&) = delete;
    ~AsyncSupervisor() override;

    // Ends the supervision, then the worker, at once. Returns when both has happened, but from a hook before that:
    // there the worker is ended after the hook has returned. Packets not yet written are kept, and discarded by the
    // next start of a worker.
    void terminate();
    // For the worker, in this order. What is enqueued before a worker starts is discarded: onProcessStarted() is the
    // first opportunity, and what a worker has not answered when it dies is to be sent again there.
    void enqueuePacket(Packet* packet);

    // Has every supervisor of the process do what terminate() does, but leaves them to their owners. Not from a hook.
    static void terminateAll();
    // From start() until terminate(), or until a worker that expectQuit() was said of has gone.
    bool isSupervising() const { return m_run % 2 != 0; }

protected:
    // Begins to supervise on a thread of the pool that was current when this was made; does nothing while it does
    // already. After terminate() it may be called again.
    void start();
    // One step of the supervision, for those who drive it themselves instead of calling start(). Never waits.
    void tick();
    // The worker was asked to end: that it does is not told in the log, no other is started, and with onProcessQuit()
    // the supervision ends. Any thread.
    void expectQuit();
    // The system ends the workers that are started from now on when this program ends, however it does. Not while it
    // supervises.
    void setKilledWithParent(bool isKilled) { m_isKilledWithParent = isKilled; }

    // Asked before each packet. While it is false what the worker says waits in its pipe, at last the worker with it.
    virtual bool wantsPackets() { return true; }
    // A worker was started.
    virtual void onProcessStarted() = 0;
    // It has ended by itself, and all its packets were passed on.
    virtual void onProcessQuit() = 0;
    // Held for the time of the call only, unless a SmartPointer is made of it.
    virtual void onPacket(Packet* packet) = 0;

private:
    class Running;
    struct Step;
    enum class Outcome { Over, Busy, Idle };
    using Packets = std::vector<SmartPointer<Packet>>;

    void supervise(uint32_t run);
    void waitForWork(uint32_t begin);
    Outcome step(uint32_t run);
    bool startWorker(const Step& step);
    bool serveWorker(const Step& step);
    bool readPackets(const Step& step, bool isAlive);
    bool writePackets();
    SmartPointer<Process> detachWorker();
    void stopWorker();
    template <class Hook>
    static void call(const Step& step, const char* name, Hook hook);
    bool isOver(uint32_t run) const { return m_run.load(std::memory_order_acquire) != run; }
    void requestStop();
    Packets takeOutbox();

    const SmartPointer<TaskQueue> m_queue;
    platform::Waker m_waker; // on new packets and on terminate()
    // Odd while supervision is wanted, one more after each start() and terminate(); 0 only before the first of these.
    std::atomic<uint32_t> m_run{0};
    std::atomic<std::thread::id> m_stepThread{}; // where a step is in progress
    std::atomic<bool> m_isQuitExpected{false};

    std::mutex m_outboxMutex;
    Packets m_outbox; // guarded by the mutex

    // Held in each step, also while hooks are called, and by terminate() to end a worker.
    std::mutex m_stepMutex;
    // Guarded by it; a loop in progress needs no lock to read them.
    String m_workerPath; // empty once it was not found
    const List<String> m_arguments;
    SmartPointer<Process> m_process;
    uint32_t m_lastAliveTime; // also of attempts to start one
    unsigned m_readsAfterDeath = 0;
    bool m_isHeldBack = false; // packets that are there are not wanted
    bool m_isKilledWithParent = false;
    uint64_t m_lifeId = 0; // in traces; 0 outside of them
    Step* m_step = nullptr;
};

} // namespace kiv
