#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/platform/Waker.h"
#include "kiv/process/AsyncSupervisor.h"
#include "kiv/rpc/RpcChannel.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

namespace kiv {

class RpcProvider;

// A supervised worker process that boots the plug-ins its parent names, answers the parent's remote calls and makes its
// own: the parent's end; ParentLink is the worker's. Each worker that is started is sent `Setup` first, and ends with
// this program, however that ends. What it sends while the owner is busy waits, at last in its pipe.
// Ownership: counted. Threads: the main thread, but for the hooks of AsyncSupervisor and the waker. Failures: logged; a
// worker that dies is replaced.
class KIV_API WorkerProcess : public AsyncSupervisor {
    KIV_OBJECT(WorkerProcess, AsyncSupervisor)
public:
    struct Setup {
        Item pluginsHashes;   // see Plugins::getPluginHashesItem()
        String initScript;    // code, run once the plug-ins' autoexec scripts have
        String startupScript; // code, a script thread of its own
        int32_t index = 0;    // of this worker among its kind
    };
    // Called by processEvents() and stop(), in the order in which things have happened. May stop and release the
    // worker.
    class KIV_API Listener {
    public:
        virtual ~Listener();
        virtual void onWorkerStarted(WorkerProcess&) {}
        virtual void onWorkerQuit(WorkerProcess&) {}
        // What is neither of remote calls nor of the process protocol.
        virtual void onWorkerPacket(WorkerProcess&, Packet&) {}
    };

    // The path and the arguments, which begin with the path again, as of AsyncSupervisor. The listener and the provider
    // may be null; the listener outlives this.
    WorkerProcess(const char* workerPath, List<String> arguments, Setup setup, RpcProvider* provider,
                  Listener* listener);
    // Ends the worker at once; the listener is not told.
    ~WorkerProcess() override;

    // Supervises from now on, until stop() or terminate(). Does nothing while it supervises, also when the worker was
    // asked to end and is still there.
    void start();
    // Passes on what has come since the last call, for at most some milliseconds, and drives the remote calls. Once a
    // frame.
    void processEvents();
    // Asks the worker to end, or not to be started: isSupervising() tells when that has happened. Never waits.
    void askToEnd();
    // The same, and waits for it up to so many milliseconds, passing on what comes; then ends the worker.
    void stop(unsigned timeout);

    // Open while there is a worker. getCaller() of its calls is this.
    RpcChannel& getRpc() { return *m_rpc; }
    // To the worker that the listener knows of; false, and the packet dropped, when there is none any more.
    bool send(Packet* packet);
    int32_t getIndex() const { return m_setup.index; }
    // Whether the listener knows of a worker.
    bool hasWorker() const { return m_knownLife != 0; }
    // Called on threads of the pool when there is something for processEvents(). Set before start().
    void setWaker(std::function<void()> waker) { m_waker = std::move(waker); }

protected:
    bool wantsPackets() override;
    void onProcessStarted() override;
    void onProcessQuit() override;
    void onPacket(Packet* packet) override;

private:
    struct Event {
        SmartPointer<Packet> packet; // null: a worker was started, or is gone
        uint32_t life = 0;           // of the one that was started
    };

    bool processNext();
    void onWorkerChanged(uint32_t life, const char* reason);
    void take(Packet& packet);
    void tell();

    std::function<void()> m_waker;
    platform::Waker m_news; // of events
    const SmartPointer<RpcProvider> m_provider;
    const SmartPointer<RpcChannel> m_rpc;
    const Setup m_setup;
    // Main thread.
    Listener* m_listener;
    uint32_t m_knownLife = 0;    // of the worker that was told of; 0 without one
    bool m_hasCommanded = false; // it has sent what only parents may; one line is enough

    mutable std::mutex m_mutex;
    // Guarded by it.
    std::deque<Event> m_events;
    uint64_t m_waitingBytes = 0; // of their packets
    uint32_t m_life = 0;         // of the worker that there is; each has one of its own, 0 is none
    uint32_t m_lastLife = 0;
    bool m_isToEnd = false;
};

} // namespace kiv
