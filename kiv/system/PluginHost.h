#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/plugins/WorkerProcess.h"
#include "kiv/system/Application.h"

#include <cstdint>
#include <memory>

namespace kiv {

class MemoryStore;
class OptionsDB;
class Packet;
class Plugins;
class RpcProvider;
class UpdateMechanism;

// An application of a store in a file, options in it, plug-ins, remote calls and worker processes: `kiv host` is this
// and nothing else, others derive from it. All it holds is there from the constructor on.
// Ownership: counted, as every Application. Requires: the System is initialised, and deinitialised before this goes.
// Threads: the main thread. Failures: logged; start(), stop() and run() say whether there were any.
class KIV_API PluginHost : public Application {
    KIV_OBJECT(PluginHost, Application)
public:
    struct Settings {
        String pluginsDirectory;     // empty: there are no plug-ins
        String storePath;            // the file is made when it is not there; empty: the store is in memory only
        Item optionsRoot{"options"}; // the key that options are below

        String workerPath;            // absolute
        List<String> workerArguments; // the path first
        unsigned workers = 0;
        String initScript; // of workers, see WorkerProcess::Setup
        String startupScript;
        // What workers may ask of this.
        Vector<String> workerRights{"rpc:advanced_option_get"};

        Vector<Pair<String, String>> options; // values that options are given, stored like any other
        unsigned graceTime = 5000;            // milliseconds that workers have to end when they are asked to
        bool isChild = false;                 // standard input is the pipe of a parent that may ask this to end
    };

    // Why it ends, or has.
    enum class End { None, Requested, Interrupted, TerminatedByParent };

    explicit PluginHost(Settings settings);
    ~PluginHost() override;

    // Reads the store, declares the options, boots the plug-ins, and starts the workers. False when the store can't be
    // read, or there is no option of a name in the settings: nothing has been written then, and no worker started.
    bool start();
    // Pumps until it is to end, and stops. False when something has failed.
    bool run();
    // One pass of the pump, for those who run it themselves; then waits, at most 10 ms, when there is nothing to do.
    // False once it is to end: then stop() is to be called.
    bool pump();
    // Lets run() end; the first reason counts. `why` is for people, as "the study is complete".
    void end(const char* why, End reason = End::Requested);
    // Asks the workers to end, gives them their time, ends them, and writes the store. Also called by the System's end.
    // False when the store could not be written.
    bool stop();

    End getEnd() const;
    // "interrupted", "asked to end by its parent", or what end() was told; empty until then.
    const String& getEndText() const;

    MemoryStore& getStore();
    // Has the store written to its file in the background, as soon as the write before that has ended; changes of
    // options do that themselves.
    void saveSoon();
    OptionsDB& getOptions();
    Plugins& getPlugins(); // the System's
    // What workers, and other transports of the application, may call.
    RpcProvider& getRpcProvider();
    // Its backup is a copy of the store in the file's name with ".backup" behind; the pump waits until it is written.
    UpdateMechanism& getUpdateMechanism();

    // More workers are started, at most 64 in all, those too many asked to end, and ended after the grace time. One
    // starts when the one before it of the same index is gone. None does once stop() was called.
    void setWorkerCount(unsigned count);
    unsigned getWorkerCount() const;
    // Requires: index < getWorkerCount().
    WorkerProcess& getWorker(unsigned index);
    // Since start(), of all workers.
    uint64_t getWorkerStarts() const;
    // Lets a pump() that waits go on. Any thread.
    void wake();

    // The hooks of the System. Who overrides one calls this one, too.
    void onTick() override;
    void onShutdown() override;

protected:
    // In start(), in this order. Options of one's own are declared here; overriders call this one first.
    virtual void declareOptions(OptionsDB& options);
    // Before the plug-ins' scripts run: the place to bind what they use.
    virtual void onBoot() {}
    virtual void onBooted() {}
    // Of each worker that is made: the place for rights and file transfers.
    virtual void setUpWorker(WorkerProcess& worker);

    virtual void onOptionChanged(const char* name, const char* value);
    virtual void onWorkerStarted(WorkerProcess& worker);
    virtual void onWorkerQuit(WorkerProcess& worker);
    // What is neither of remote calls nor of the process protocol.
    virtual void onWorkerPacket(WorkerProcess& worker, Packet& packet);
    // The same of the parent, if there is one.
    virtual void onParentPacket(Packet& packet);

private:
    class Impl;
    friend class Impl;
    const std::unique_ptr<Impl> m_impl;
};

} // namespace kiv
