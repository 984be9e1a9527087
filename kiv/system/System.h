#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/Signal.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/data/GUID.h"
#include "kiv/system/PerfMon.h"
#include "kiv/tasks/Parallel.h"

#include <functional>
#include <memory>
#include <mutex>

namespace kivSq {
class VM;
}

namespace kiv {

class Buffer;
class GUIDDomainDB;
class MainPool;
class Plugins;
class ResourceLocator;
class Scheduler;
class ThreadPool;

// The process-wide services, put together: it makes each, installs it with its room, drives those of the main thread,
// and takes all down in the right order. There is one between initialize() and deinitialize(); Object::system() is that
// one. Main thread is the one that calls initialize().
// Ownership: the library's; a reference held elsewhere keeps it from being deinitialised. Threads: any, unless a
// function says otherwise. The services are references where they always exist and null pointers without a System.
class KIV_API System : public Object {
    KIV_OBJECT(System, Object)
public:
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    ~System() override;

    // False, and logged, when there is one already.
    static bool initialize();
    // Stops supervisors of worker processes, drops what the global queues still hold, waits until the other queues that
    // have a thread are empty, and releases all deferred references. What other threads do with the System must be over
    // by then. Scripts end first of all, and handles of their values release nothing from then on. False, and logged,
    // when there is no System, when something else holds a reference to it (as a pump in progress does), inside a
    // running script or off the main thread; nothing has changed then.
    static bool deinitialize();

    // The main pump, once a frame: the phases "Tick", "VM", "Queue", housekeeping of the threads, "Scheduler"; then the
    // deferred references of the main thread are released. A task may call it again, in a loop of its own; that is a
    // pass like any other, with its releases. Main thread.
    static void processEvents();
    // Calls the function in the phase "Tick" of each pump, after the application's onTick(), as long as the connection
    // lives. Requires: initialised.
    [[nodiscard]] static Connection connectTick(std::function<void()> function);

    // Time and chance. Milliseconds from an arbitrary start; the short count wraps, see Clock::timeDifference().
    static unsigned getTime();
    static int64_t getTime64();
    // Microseconds since 1970; the unique ones are all different and grow.
    static int64_t getUTC();
    static int64_t getUniqueUTC();
    // "2024-02-29T13:05:09.042Z".
    static String formatUTC(int64_t utc);
    static String getUTCText(int64_t utc) { return formatUTC(utc); }
    static unsigned randomUInt();
    static uint64_t randomUInt64();
    // Of the domain that is set; then on its thread only. Without one 256 random bits.
    static GUID createGUID();
    // Not owned: it is forgotten when it dies, and by deinitialize(). Null for none.
    static void setGUIDDomainDB(GUIDDomainDB* db);

    static unsigned getHardwareConcurrency();
    static bool isMainThread();

    // Requires: initialised.
    static TaskQueue& getGlobalMainQueue();
    static TaskQueue& getGlobalParallelQueue();
    static TaskQueue& getGlobalDeleteIOQueue();
    static MainPool* getMainPool();
    static ThreadPool* getThreadPool();
    static Scheduler* getScheduler();
    // The scripts, whose threads run in the phase "VM" of the pump. For the main thread.
    static kivSq::VM* getVM();
    // Microseconds of each phase of the pump. For the main thread.
    static PerfMon* getPerfMon();
    // Runs a kernel on the threads of the pool, see Parallel. Requires: initialised.
    static void execute(Parallel::Kernel& kernel);

    static ResourceLocator* getResourceLocator();
    // Its operations; false without a System.
    static bool addResourceDirectory(const char* path);
    static bool fetchResource(const char* name, Buffer& out);

    // Where the program's own files are: the directory of its executable unless it is set. Main thread; setting it
    // requires: initialised.
    static String getBaseDirectory();
    static void setBaseDirectory(TextArg path);
    // The base directory's "Plugins".
    static String getPluginsDirectory();
    // Those of that directory; nothing boots them by itself. Their listeners are called here: for "booted" behind the
    // first pass of the VM after a boot, with an array of the names; for "tick" in the phase "Tick", with the
    // milliseconds of getTime64(); for "shutdown" at the beginning of deinitialize(), with null. Main thread.
    static Plugins* getPlugins();

    // Whether an interrupt (Ctrl-C) has come, for the application to look at and to end in good order. It outlives the
    // System.
    static void setHitSIGINT(bool hit);
    static bool getHitSIGINT();
    // From now on until deinitialize() an interrupt sets that instead of ending the process. One that comes while it is
    // still set ends the process, so that a program that does not look can be stopped. Requires: initialised.
    static void catchInterrupts();

private:
    System();

    static System& instance();
    void pump();
    void tellPlugins();
    void useBaseDirectory(TextArg path);
    void shutDown();
    void releaseEverything();

    SmartPointer<MainPool> m_mainPool;
    SmartPointer<ThreadPool> m_threadPool;
    SmartPointer<Scheduler> m_scheduler;
    SmartPointer<TaskQueue> m_mainQueue;
    SmartPointer<TaskQueue> m_parallelQueue;
    SmartPointer<TaskQueue> m_deleteIOQueue;
    std::unique_ptr<kivSq::VM> m_vm;
    const SmartPointer<ResourceLocator> m_resourceLocator;
    SmartPointer<Plugins> m_plugins;
    String m_baseDirectory;
    uint64_t m_toldBoots = 0; // those whose listeners were called
    std::once_flag m_parallelOnce;
    SmartPointer<Parallel> m_parallel; // made at the first use
    Signal<void()> m_tick;
    PerfMon m_perfMon;
};

} // namespace kiv
