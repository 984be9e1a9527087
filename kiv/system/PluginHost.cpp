#include "kiv/system/PluginHost.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/Waker.h"
#include "kiv/plugins/ParentLink.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/rpc/UpdateMechanism.h"
#include "kiv/script/VM.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/store/StoreFile.h"
#include "kiv/store/StoreKeeper.h"
#include "kiv/system/ScriptOptions.h"
#include "kiv/system/System.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace kiv {
namespace {

using logging::MessageStream;

constexpr unsigned longestPause = 10; // milliseconds: what else the pump has to do does not wake it
constexpr int mostWorkers = 64;
constexpr char workersOption[] = "host:workers";
constexpr char verboseOption[] = "host:verbose";
constexpr char scriptTimeOption[] = "host:script_time";

using Workers = Vector<SmartPointer<WorkerProcess>>;

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
    void stopWorkers();
    bool areWorkersLeft() const;
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
    Workers leaving; // asked to end
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
    if (name == workersOption && isStarted && !isStopped)
        setWorkerCount(static_cast<unsigned>(std::clamp(options->getValueAsInt(workersOption), 0, mostWorkers)));
}

void PluginHost::Impl::requestSave() {
    isChanged = true;
    if (isStopped) save(); // no pass comes any more: listeners of the shutdown may set options, too
}

void PluginHost::Impl::save() {
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

// Beside the store, as it is now.
bool PluginHost::Impl::backUp() {
    return !settings.storePath.empty() && StoreFile::save(keeper->getStore(), settings.storePath + ".backup");
}

// ---- Workers.

SmartPointer<WorkerProcess> PluginHost::Impl::makeWorker(int32_t index) {
    auto worker = makeObject<WorkerProcess>(
        settings.workerPath.c_str(), settings.workerArguments,
        WorkerProcess::Setup{hashes, settings.initScript, settings.startupScript, index}, provider.get(), this);
    for (const String& right : settings.workerRights) worker->getRpc().addRight(right.c_str());
    worker->setWaker([this] { waker.wake(); });
    host.setUpWorker(*worker);
    worker->start();
    return worker;
}

void PluginHost::Impl::setWorkerCount(unsigned count) {
    while (workers.size() < count) workers.push_back(makeWorker(static_cast<int32_t>(workers.size())));
    for (; workers.size() > count; workers.pop_back()) {
        workers.back()->askToEnd();
        leaving.push_back(workers.back());
    }
}

void PluginHost::Impl::onWorkerStarted(WorkerProcess& worker) {
    ++workerStarts;
    host.onWorkerStarted(worker);
}

bool PluginHost::Impl::areWorkersLeft() const {
    return std::any_of(leaving.begin(), leaving.end(), [](const auto& worker) { return worker->isSupervising(); });
}

void PluginHost::Impl::stopWorkers() {
    setWorkerCount(0);
    const uint32_t begin = Clock::current().getTime();
    const auto grace = static_cast<int32_t>(std::min(settings.graceTime, 3600000u));
    while (areWorkersLeft() && Clock::timeDifference(Clock::current().getTime(), begin) < grace) {
        System::processEvents();
        waker.wait(longestPause);
    }
    for (const auto& worker : Workers(leaving)) {
        if (worker->isSupervising())
            MessageStream(2, 2) << "[HOST] worker " << worker->getIndex() << " has not ended in time, and is ended";
        worker->stop(0);
    }
    leaving.clear();
}

// ---- Each pass.

void PluginHost::Impl::tick() {
    if (System::getHitSIGINT()) host.end("interrupted", End::Interrupted);
    tickParent();
    // What is told of workers may change their number.
    for (const auto& worker : Workers(workers)) worker->processEvents();
    for (const auto& worker : Workers(leaving)) {
        const bool isOver = !worker->isSupervising();
        worker->processEvents();
        if (!isOver) continue;
        worker->stop(0);
        leaving.erase(std::remove(leaving.begin(), leaving.end(), worker), leaving.end());
    }
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
    plugins.executeBootstrapScripts(impl.hashes, true);
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
