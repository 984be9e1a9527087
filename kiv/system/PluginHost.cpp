#include "kiv/system/PluginHost.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/Waker.h"
#include "kiv/plugins/ParentLink.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/script/VM.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/store/StoreKeeper.h"
#include "kiv/system/ScriptOptions.h"
#include "kiv/system/System.h"
#include "kiv/updates/UpdateMechanism.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace kiv {
namespace {

using logging::MessageStream;

constexpr unsigned mostWorkers = 64;
constexpr unsigned longestGrace = 3600000;
constexpr char workersOption[] = "host:workers";
constexpr char verboseOption[] = "host:verbose";
constexpr char scriptTimeOption[] = "host:script_time";

using Workers = Vector<SmartPointer<WorkerProcess>>;

// A worker that was asked to end, and when.
struct Leaving {
    SmartPointer<WorkerProcess> worker;
    uint32_t since;
};

Item belowStore(const Item& root, Store* store) {
    Item key(store);
    key.setPlain(root);
    return key;
}

} // namespace

class PluginHost::Impl : public WorkerProcess::Listener {
public:
    Impl(PluginHost& host, Settings theSettings);
    // Others may hold these for longer.
    ~Impl() override {
        scripts->forgetOwner();
        options->setChangeListener(nullptr);
        updates->setBackupOperation(nullptr);
    }

    bool applySettings();
    void applySetting(const char* name);
    void onOptionChanged(const char* name, const char* value);
    void requestSave();
    void save();
    // What the host's own options say.
    void obey(std::string_view name);
    SmartPointer<WorkerProcess> makeWorker(int32_t index);
    void setWorkerCount(unsigned count);
    void tick();
    void tickParent();
    void tickLeaving();
    void endLeaving(WorkerProcess& worker);
    // Of one that leaves: until it is gone no other works under that.
    bool isTaken(int32_t index) const;
    void stopWorkers();
    bool backUp();

    void onWorkerStarted(WorkerProcess& worker) override;
    void onWorkerQuit(WorkerProcess& worker) override { host.onWorkerQuit(worker); }
    void onWorkerPacket(WorkerProcess& worker, Packet& packet) override { host.onWorkerPacket(worker, packet); }

    PluginHost& host;
    const Settings settings;
    platform::Waker waker; // outlives the workers
    const SmartPointer<StoreKeeper> keeper = makeObject<StoreKeeper>();
    const SmartPointer<OptionsDB> options;
    const SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
    const SmartPointer<UpdateMechanism> updates = makeObject<UpdateMechanism>();
    const SmartPointer<internal::ScriptOptions> scripts;
    Vector<Pair<String, String>> toApply; // of the settings' options
    Item hashes;
    SmartPointer<ParentLink> parent;
    Workers workers;
    Vector<Leaving> leaving;
    uint64_t workerStarts = 0;
    End end = End::None;
    String endText;
    bool isStarted = false;
    bool isStopped = false;
    bool isChanged = false; // the store is to be saved
};

PluginHost::Impl::Impl(PluginHost& theHost, Settings theSettings)
    : host(theHost), settings(std::move(theSettings)),
      options(makeObject<OptionsDB>(belowStore(settings.optionsRoot, keeper->getStore()))),
      scripts(makeObject<internal::ScriptOptions>(options.get(), [this](const char* name) { applySetting(name); })),
      toApply(settings.options) {
    options->setChangeListener([this](const char* name, const char* value) { onOptionChanged(name, value); });
    options->registerRpcCalls(provider.get());
    updates->registerRpcCalls(provider.get());
    updates->setBackupOperation([this] { return backUp(); });
}

// ---- Options.

void PluginHost::Impl::onOptionChanged(const char* name, const char* value) {
    requestSave();
    obey(name);
    scripts->callListeners(name, value);
    host.onOptionChanged(name, value);
}

void PluginHost::Impl::obey(std::string_view name) {
    if (name == verboseOption) logging::g_hideVerboseOutputInConsole = options->getValue(verboseOption) != "1";
    if (kivSq::VM* const vm = System::getVM(); vm && name == scriptTimeOption)
        vm->setWatchdog(static_cast<unsigned>(std::max(options->getValueAsInt(scriptTimeOption), 0)));
    if (name == workersOption && isStarted)
        setWorkerCount(static_cast<unsigned>(std::max(options->getValueAsInt(workersOption), 0)));
}

void PluginHost::Impl::requestSave() {
    isChanged = true;
    if (isStopped) save(); // no pass comes any more: listeners of the shutdown may set options, too
}

void PluginHost::Impl::save() {
    // A copy of the store for every change would take longer than those are apart.
    if (!isStopped && keeper->isBusy()) return;
    if (std::exchange(isChanged, false) && keeper->isOpen()) keeper->saveSoon();
}

// What is declared by now; false, and logged, while others are left.
bool PluginHost::Impl::applySettings() {
    const Vector<Pair<String, String>> left = toApply;
    for (const auto& [name, value] : left)
        if (options->hasOption(name.c_str())) applySetting(name.c_str());
    return toApply.empty();
}

void PluginHost::Impl::applySetting(const char* name) {
    for (size_t i = 0; i < toApply.size();) {
        if (toApply[i].first != name) {
            ++i;
            continue;
        }
        const String value = toApply[i].second;
        toApply.erase(toApply.begin() + static_cast<ptrdiff_t>(i));
        if (options->getValueDirect(name) != value) options->setValue(name, value.c_str());
    }
}

// Beside the store. Others wait until it is on the disk: what follows a backup may rely on it.
bool PluginHost::Impl::backUp() {
    return keeper->isOpen() && keeper->saveCopy(settings.storePath + ".backup");
}

// ---- Workers.

SmartPointer<WorkerProcess> PluginHost::Impl::makeWorker(int32_t index) {
    auto worker = makeObject<WorkerProcess>(
        settings.workerPath.c_str(), settings.workerArguments,
        WorkerProcess::Setup{hashes, settings.initScript, settings.startupScript, index}, provider.get(), this);
    for (const String& right : settings.workerRights) worker->getRpc().addRight(right.c_str());
    worker->setWaker([this] { waker.wake(); });
    host.setUpWorker(*worker);
    if (!isTaken(index)) worker->start();
    return worker;
}

void PluginHost::Impl::setWorkerCount(unsigned count) {
    count = isStopped ? 0 : std::min(count, mostWorkers);
    while (workers.size() < count) workers.push_back(makeWorker(static_cast<int32_t>(workers.size())));
    for (; workers.size() > count; workers.pop_back()) {
        workers.back()->askToEnd();
        leaving.push_back({workers.back(), Clock::current().getTime()});
    }
}

void PluginHost::Impl::onWorkerStarted(WorkerProcess& worker) {
    ++workerStarts;
    host.onWorkerStarted(worker);
}

bool PluginHost::Impl::isTaken(int32_t index) const {
    return std::any_of(leaving.begin(), leaving.end(),
                       [index](const Leaving& each) { return each.worker->getIndex() == index; });
}

void PluginHost::Impl::tickLeaving() {
    const auto grace = static_cast<int32_t>(std::min(settings.graceTime, longestGrace));
    for (const auto& [worker, since] : Vector<Leaving>(leaving)) {
        const bool isOver = !worker->isSupervising();
        worker->processEvents();
        if (isOver || Clock::timeDifference(Clock::current().getTime(), since) >= grace) endLeaving(*worker);
    }
}

void PluginHost::Impl::endLeaving(WorkerProcess& worker) {
    const int32_t index = worker.getIndex();
    const auto place = static_cast<size_t>(index);
    if (worker.isSupervising())
        MessageStream(2, 2) << "[HOST] worker " << index << " has not ended in time, and is ended";
    worker.stop(0);
    std::erase_if(leaving, [&](const Leaving& each) { return each.worker.get() == &worker; });
    if (place < workers.size() && !isTaken(index)) workers[place]->start();
}

void PluginHost::Impl::stopWorkers() {
    setWorkerCount(0);
    while (!leaving.empty()) {
        System::processEvents();
        tickLeaving();
        if (!leaving.empty()) waker.wait(longestPause);
    }
}

// ---- Each pass.

void PluginHost::Impl::tick() {
    if (System::getHitSIGINT()) host.end("interrupted", End::Interrupted);
    tickParent();
    // What is told of workers may change their number.
    for (const auto& worker : Workers(workers)) worker->processEvents();
    tickLeaving();
    save();
}

void PluginHost::Impl::tickParent() {
    const SmartPointer<ParentLink> link = parent; // what it calls may stop this
    if (!link || link->tick()) return;
    const bool isAsked = link->getEnd() == ParentLink::End::Asked;
    host.end(isAsked ? "asked to end by its parent" : "its parent is gone", End::TerminatedByParent);
}

// ---- The host.

PluginHost::PluginHost(Settings settings) : m_impl(std::make_unique<Impl>(*this, std::move(settings))) {}

PluginHost::~PluginHost() = default;

bool PluginHost::start() {
    Impl& impl = *m_impl;
    System::catchInterrupts();
    if (!impl.settings.storePath.empty() && !impl.keeper->open(impl.settings.storePath)) return false;
    declareOptions(*impl.options);
    impl.applySettings();
    Plugins& plugins = getPlugins();
    plugins.setPath(impl.settings.pluginsDirectory.empty() ? nullptr : impl.settings.pluginsDirectory.c_str());
    impl.scripts->bind(*System::getVM());
    onBoot();
    impl.hashes = plugins.getPluginHashesItem();
    plugins.executeBootstrapScripts(impl.hashes, false);
    if (!impl.applySettings()) {
        for (const auto& [name, value] : impl.toApply)
            MessageStream(3, 2) << "[HOST] there is no option '" << name << "'";
        return false;
    }
    onBooted();
    if (impl.settings.isChild) {
        impl.parent = makeObject<ParentLink>(nullptr, impl.provider.get());
        impl.parent->setPacketHandler([this](Packet& packet) { onParentPacket(packet); });
    }
    impl.isStarted = true;
    impl.obey(workersOption);
    return true;
}

bool PluginHost::run() {
    while (pump()) {
    }
    return stop();
}

bool PluginHost::pump() {
    System::processEvents();
    if (m_impl->end != End::None) return false;
    if (const unsigned pause = System::getVM()->getIdleTime(longestPause)) m_impl->waker.wait(pause);
    return true;
}

void PluginHost::end(const char* why, End reason) {
    if (m_impl->end != End::None) return;
    m_impl->end = reason;
    m_impl->endText = why;
}

bool PluginHost::stop() {
    Impl& impl = *m_impl;
    if (!impl.isStarted || std::exchange(impl.isStopped, true)) return !impl.keeper->isOpen() || impl.keeper->isSaved();
    impl.stopWorkers();
    impl.parent = nullptr;
    if (!impl.keeper->isOpen()) return true;
    impl.keeper->saveSoon();
    return impl.keeper->flush();
}

PluginHost::End PluginHost::getEnd() const {
    return m_impl->end;
}

const String& PluginHost::getEndText() const {
    return m_impl->endText;
}

MemoryStore& PluginHost::getStore() {
    return *m_impl->keeper->getStore();
}

void PluginHost::saveSoon() {
    m_impl->requestSave();
}

OptionsDB& PluginHost::getOptions() {
    return *m_impl->options;
}

Plugins& PluginHost::getPlugins() {
    return *System::getPlugins();
}

RpcProvider& PluginHost::getRpcProvider() {
    return *m_impl->provider;
}

UpdateMechanism& PluginHost::getUpdateMechanism() {
    return *m_impl->updates;
}

void PluginHost::setWorkerCount(unsigned count) {
    m_impl->setWorkerCount(count);
}

unsigned PluginHost::getWorkerCount() const {
    return static_cast<unsigned>(m_impl->workers.size());
}

WorkerProcess& PluginHost::getWorker(unsigned index) {
    return *m_impl->workers[index];
}

uint64_t PluginHost::getWorkerStarts() const {
    return m_impl->workerStarts;
}

void PluginHost::wake() {
    m_impl->waker.wake();
}

// ---- Hooks.

void PluginHost::onTick() {
    if (m_impl->isStarted) m_impl->tick();
}

void PluginHost::onShutdown() {
    stop();
}

void PluginHost::declareOptions(OptionsDB& options) {
    options.addOption(workersOption, std::to_string(m_impl->settings.workers).c_str(), "", "Worker processes",
                      "How many worker processes are kept running", 0);
    options.addOption(verboseOption, "0", "", "Verbose log", "1: verbose lines are shown, too", 0);
    options.addOption(scriptTimeOption, "0", "", "Longest turn of scripts",
                      "Milliseconds after which a script that does not pause is ended; 0: never", 0);
    m_impl->obey(verboseOption);
    m_impl->obey(scriptTimeOption);
}

void PluginHost::setUpWorker(WorkerProcess&) {}

void PluginHost::onOptionChanged(const char*, const char*) {}
void PluginHost::onWorkerStarted(WorkerProcess&) {}
void PluginHost::onWorkerQuit(WorkerProcess&) {}
void PluginHost::onWorkerPacket(WorkerProcess&, Packet&) {}
void PluginHost::onParentPacket(Packet&) {}

} // namespace kiv
