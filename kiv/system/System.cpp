#include "kiv/system/System.h"

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/core/TimedReferences.h"
#include "kiv/files/Directory.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/platform/Interrupt.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/process/AsyncSupervisor.h"
#include "kiv/script/VM.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/system/Application.h"
#include "kiv/system/PluginsScript.h"
#include "kiv/tasks/HardwareConcurrency.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/ObjectRelease.h"
#include "kiv/tasks/Scheduler.h"
#include "kiv/tasks/TaskQueue.h"
#include "kiv/tasks/ThreadPool.h"

#include <exception>

namespace kiv {
namespace {

enum class State { None, Changing, Running };

std::atomic<State> g_state{State::None};
std::atomic<System*> g_system{nullptr};

bool changeState(State from, State to) {
    return g_state.compare_exchange_strong(from, to);
}

String programDirectory() {
    const std::string program = platform::programPath();
    return String(program.substr(0, program.find_last_of("/\\")));
}

String pluginsBelow(const String& base) {
    return Directory::join(base, "Plugins");
}

// Calls what the application has given; its failures are its own.
template <class Function>
void guarded(const char* what, Function function) {
    try {
        function();
    } catch (const std::exception& failure) {
        logging::MessageStream(3, 2) << "[SYSTEM] " << what << " has failed: " << failure.what();
    } catch (...) {
        logging::MessageStream(3, 2) << "[SYSTEM] " << what << " has failed";
    }
}

} // namespace

System* Object::system() {
    return g_system.load(std::memory_order_acquire);
}

System& System::instance() {
    System* system = Object::system();
    assert(system && "there is no kiv::System");
    return *system;
}

// ---- Start and stop.

System::System()
    : m_mainPool(makeObject<MainPool>()), m_threadPool(makeObject<ThreadPool>()), m_scheduler(makeObject<Scheduler>()),
      m_mainQueue(makeObject<TaskQueue>(TaskQueue::Main)),
      m_parallelQueue(makeObject<TaskQueue>(TaskQueue::GlobalParallel)),
      m_deleteIOQueue(makeObject<TaskQueue>(TaskQueue::GlobalDeleteIO)),
      m_resourceLocator(makeObject<ResourceLocator>()), m_plugins(makeObject<Plugins>()) {
    assert(MainPool::current() == m_mainPool.get() && ThreadPool::current() == m_threadPool.get() &&
           Scheduler::current() == m_scheduler.get() && "services are installed that are not the System's");
    internal::exchangeReleaseQueue(m_parallelQueue);
    m_vm = std::make_unique<kivSq::VM>();
    internal::addPluginsImports(*m_vm);
    useBaseDirectory(programDirectory());
}

System::~System() = default;

bool System::initialize() {
    if (!changeState(State::None, State::Changing)) {
        logging::MessageStream(3, 2) << "trying to reinitialize kiv::System";
        return false;
    }
    try {
        System* system = new System;
        system->increaseReferenceCount();
        g_system = system;
    } catch (...) {
        g_state = State::None;
        throw;
    }
    g_state = State::Running;
    return true;
}

bool System::deinitialize() {
    System* system = Object::system();
    if (!system || g_state != State::Running) {
        logging::MessageStream(3, 2) << "trying to deinitialize non-existant kiv::System";
        return false;
    }
    if (!isMainThread()) {
        logging::MessageStream(4, 2) << "[SYSTEM] deinitialize off the main thread";
        return false;
    }
    if (system->m_vm->isRunning()) {
        logging::MessageStream(4, 2) << "[SYSTEM] deinitialize inside a running script";
        return false;
    }
    if (system->getReferenceCount() != 1) {
        logging::MessageStream(3, 2) << "trying to deinitialize kiv::System, but there are still open references";
        return false;
    }
    g_state = State::Changing;
    system->shutDown();
    g_system = nullptr;
    system->decreaseReferenceCount();
    g_state = State::None;
    return true;
}

// From what makes work to what does it. Each may make work for those behind it, never for those before.
void System::shutDown() {
    if (Application* application = Application::current())
        guarded("the application's onShutdown", [&] { application->onShutdown(); });
    guarded("a listener of the shutdown", [&] { m_plugins->callListeners("shutdown", Item(Item::NILType())); });
    AsyncSupervisor::terminateAll();
    m_vm = nullptr;
    m_plugins = nullptr;
    m_tick.disconnectAll();
    internal::exchangeReleaseQueue(nullptr);
    releaseEverything();
    m_threadPool->close();
    AsyncSupervisor::terminateAll(); // those that were started meanwhile
    // Threads may still be busy with queues of the application's own, and use all this, until they have ended.
    m_threadPool->shutdown();
    releaseEverything();
    setGUIDDomainDB(nullptr);
    platform::releaseInterrupts();
    m_parallel = nullptr;
    m_deleteIOQueue = nullptr;
    m_parallelQueue = nullptr;
    m_mainQueue = nullptr;
    m_scheduler->uninstall();
    m_scheduler = nullptr;
    m_mainPool->uninstall();
    m_mainPool = nullptr;
    m_threadPool = nullptr;
}

// Until nothing comes after: what is dropped and released may list references, push tasks and schedule alarms.
void System::releaseEverything() {
    TaskQueue* const queues[] = {m_mainQueue.get(), m_parallelQueue.get(), m_deleteIOQueue.get()};
    bool again;
    do {
        again = m_scheduler->getNumberOfAlarms() != 0;
        m_scheduler->cancelAll();
        for (TaskQueue* queue : queues) queue->abort();
        // Looked at before the lists: what a run that has ended by then has listed is found there.
        for (TaskQueue* queue : queues) again |= !queue->empty();
        again |= internal::removeAllTimedReferences();
        again |= internal::removeAllTimedReferencesParallel();
    } while (again);
}

// ---- The main pump.

void System::processEvents() {
    // The reference refuses a deinitialisation from within.
    const SmartPointer<System> system = Object::system();
    if (!system || !isMainThread()) {
        logging::MessageStream(4, 2) << "[SYSTEM] processEvents "
                                     << (system ? "off the main thread" : "without System");
        return;
    }
    system->pump();
}

void System::pump() {
    {
        const PerfMon::Scope phase(m_perfMon, "Tick");
        if (Application* application = Application::current())
            guarded("the application's onTick", [&] { application->onTick(); });
        m_tick.emit();
        if (m_plugins && m_plugins->hasListeners("tick"))
            guarded("a listener of the pump", [&] { m_plugins->callListeners("tick", getTime64()); });
    }
    {
        const PerfMon::Scope phase(m_perfMon, "VM");
        // None any more when something pumps in the course of the end.
        if (m_vm) guarded("the scripts' pass", [&] { m_vm->processEvents(); });
        if (m_plugins && m_plugins->getNumberOfBoots() != m_toldBoots) guarded("a boot", [&] { tellPlugins(); });
    }
    {
        const PerfMon::Scope phase(m_perfMon, "Queue");
        m_mainPool->processEvents();
    }
    m_threadPool->processEvents();
    {
        const PerfMon::Scope phase(m_perfMon, "Scheduler");
        m_scheduler->tick();
    }
    internal::removeAllTimedReferences();
}

void System::tellPlugins() {
    m_toldBoots = m_plugins->getNumberOfBoots();
    Item names;
    for (const String& name : m_plugins->getBooted()) names.addString(name);
    Item argument;
    argument.addItem(names);
    m_plugins->callListeners("booted", argument);
}

Connection System::connectTick(std::function<void()> function) {
    // Else one that throws would keep those behind it from being called.
    return instance().m_tick.connect(
        [called = std::move(function)] { guarded("a listener of the pump", [&] { called(); }); });
}

// ---- Time and chance.

unsigned System::getTime() {
    return Clock::current().getTime();
}

int64_t System::getTime64() {
    return Clock::current().getMilliseconds();
}

int64_t System::getUTC() {
    return Clock::current().getUtcMicroseconds();
}

int64_t System::getUniqueUTC() {
    return Clock::current().getUniqueUtcMicroseconds();
}

String System::formatUTC(int64_t utc) {
    return utcTimeText(utc);
}

unsigned System::randomUInt() {
    return Random::current().randomUInt();
}

uint64_t System::randomUInt64() {
    return Random::current().randomUInt64();
}

GUID System::createGUID() {
    return GUIDDomainDB::createGUID();
}

void System::setGUIDDomainDB(GUIDDomainDB* db) {
    GUIDDomainDB::exchangeCurrent(db);
}

// ---- Services.

unsigned System::getHardwareConcurrency() {
    return kiv::getHardwareConcurrency();
}

bool System::isMainThread() {
    const MainPool* pool = getMainPool();
    return pool && pool->isMainThread();
}

TaskQueue& System::getGlobalMainQueue() {
    return *instance().m_mainQueue;
}

TaskQueue& System::getGlobalParallelQueue() {
    return *instance().m_parallelQueue;
}

TaskQueue& System::getGlobalDeleteIOQueue() {
    return *instance().m_deleteIOQueue;
}

MainPool* System::getMainPool() {
    const System* system = Object::system();
    return system ? system->m_mainPool.get() : nullptr;
}

ThreadPool* System::getThreadPool() {
    const System* system = Object::system();
    return system ? system->m_threadPool.get() : nullptr;
}

Scheduler* System::getScheduler() {
    const System* system = Object::system();
    return system ? system->m_scheduler.get() : nullptr;
}

kivSq::VM* System::getVM() {
    const System* system = Object::system();
    return system ? system->m_vm.get() : nullptr;
}

PerfMon* System::getPerfMon() {
    System* system = Object::system();
    return system ? &system->m_perfMon : nullptr;
}

void System::execute(Parallel::Kernel& kernel) {
    System& system = instance();
    std::call_once(system.m_parallelOnce, [&] { system.m_parallel = makeObject<Parallel>(); });
    system.m_parallel->execute(kernel);
}

// ---- Resources and interrupts.

ResourceLocator* System::getResourceLocator() {
    const System* system = Object::system();
    return system ? system->m_resourceLocator.get() : nullptr;
}

bool System::addResourceDirectory(const char* path) {
    ResourceLocator* locator = getResourceLocator();
    return locator && locator->addDirectory(path);
}

bool System::fetchResource(const char* name, Buffer& out) {
    const ResourceLocator* locator = getResourceLocator();
    return locator && locator->fetch(name, out);
}

String System::getBaseDirectory() {
    const System* system = Object::system();
    return system ? system->m_baseDirectory : programDirectory();
}

void System::setBaseDirectory(TextArg path) {
    instance().useBaseDirectory(path);
}

void System::useBaseDirectory(TextArg path) {
    m_baseDirectory = path;
    if (m_plugins) m_plugins->setPath(pluginsBelow(m_baseDirectory).c_str());
}

String System::getPluginsDirectory() {
    return pluginsBelow(getBaseDirectory());
}

Plugins* System::getPlugins() {
    const System* system = Object::system();
    return system ? system->m_plugins.get() : nullptr;
}

void System::setHitSIGINT(bool hit) {
    platform::interruptFlag() = hit;
}

bool System::getHitSIGINT() {
    return platform::interruptFlag();
}

void System::catchInterrupts() {
    static_cast<void>(instance());
    platform::catchInterrupts();
}

} // namespace kiv
