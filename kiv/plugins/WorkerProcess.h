#pragma once

#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/process/AsyncSupervisor.h"
#include "kiv/rpc/RpcChannel.h"

#include <functional>

namespace kiv {

class RpcProvider;

// A supervised worker process that boots the plug-ins its parent names, answers the parent's remote calls and makes its
// own: the parent's end; ParentLink is the worker's. Each worker that is started is sent `Setup` first.
// Ownership: counted; the owner calls stop() or terminate() before it goes. Threads: everything here but the hooks of
// AsyncSupervisor belongs to the main thread; what arrives is brought there by tasks of its queue.
class KIV_API WorkerProcess : public AsyncSupervisor {
    KIV_OBJECT(WorkerProcess, AsyncSupervisor)
public:
    struct Setup {
        Item pluginsHashes;   // see Plugins::getPluginHashesItem()
        String initScript;    // code, run once the plug-ins' autoexec scripts have
        String startupScript; // code, a script thread of its own
        int32_t index = 0;    // of this worker among its kind
    };
    // All on the main thread.
    class Listener {
    public:
        virtual ~Listener();
        virtual void onWorkerStarted(WorkerProcess&) {}
        virtual void onWorkerQuit(WorkerProcess&) {}
        // What is neither of remote calls nor of the process protocol.
        virtual void onWorkerPacket(WorkerProcess&, Packet&) {}
    };

    // An absolute path of a regular file; anything else is never started. The listener and the provider may be null.
    WorkerProcess(const char* workerPath, List<String> arguments, Setup setup, RpcProvider* provider,
                  Listener* listener);
    ~WorkerProcess() override;

    using AsyncSupervisor::start;
    // Asks the worker to end and waits up to `timeout` milliseconds for it, then ends it; no other is started.
    void stop(unsigned timeout);
    // For the remote calls; open while there is a worker, and ticked by the main pump.
    RpcChannel& getRpc();
    // For the workers that are started from now on.
    void setSetup(Setup setup);

protected:
    void onProcessStarted() override;
    void onProcessQuit() override;
    void onPacket(Packet* packet) override;
};

} // namespace kiv
