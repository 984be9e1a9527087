#include "kiv/plugins/WorkerProcess.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/rpc/RpcProvider.h"

#include <algorithm>
#include <utility>

namespace kiv {
namespace {

constexpr char stopped[] = "the worker was stopped";
constexpr int32_t passingTime = 5;                 // milliseconds of a frame
constexpr size_t mostWaiting = 65536;              // packets
constexpr uint64_t mostBytes = uint64_t{64} << 20; // of them
constexpr unsigned turnTime = 10;                  // milliseconds between two looks for the end

SmartPointer<Packet> describeSetup(const WorkerProcess::Setup& setup) {
    const ProcessProtocol::PluginsHashesScheme& scheme = ProcessProtocol::PluginsHashes;
    auto packet = makeObject<Packet>(&scheme, short{0});
    packet->setItem(scheme.pluginsHashes, setup.pluginsHashes);
    packet->setString(scheme.initScript, setup.initScript);
    packet->setString(scheme.startupScript, setup.startupScript);
    packet->set(scheme.index, setup.index);
    return packet;
}

} // namespace

WorkerProcess::Listener::~Listener() = default;

WorkerProcess::WorkerProcess(const char* workerPath, List<String> arguments, Setup setup, RpcProvider* provider,
                             Listener* listener)
    : AsyncSupervisor(workerPath, std::move(arguments)), m_provider(provider),
      m_rpc(makeObject<RpcChannel>([this](Packet* packet) { return send(packet); }, provider)),
      m_setup(std::move(setup)), m_listener(listener) {
    setKilledWithParent(true);
    m_rpc->setCaller(this);
    m_rpc->close("there is no worker yet");
}

WorkerProcess::~WorkerProcess() {
    m_listener = nullptr;
    terminate();
    m_rpc->end("the worker was given up");
    m_rpc->setCaller(nullptr);
}

// ---- Main thread.

void WorkerProcess::start() {
    if (isSupervising()) return;
    {
        const std::lock_guard lock(m_mutex);
        m_isToEnd = false;
    }
    AsyncSupervisor::start();
}

void WorkerProcess::processEvents() {
    const SmartPointer<WorkerProcess> keeper(this); // the listener may release it
    const uint32_t begin = Clock::current().getTime();
    while (processNext() && Clock::timeDifference(Clock::current().getTime(), begin) < passingTime) {
    }
    m_rpc->tick();
}

bool WorkerProcess::processNext() {
    Event event;
    bool isAskedToEnd = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_events.empty()) return false;
        isAskedToEnd = m_isToEnd;
        event = std::move(m_events.front());
        m_events.pop_front();
        if (event.packet) m_waitingBytes -= event.packet->getPayloadSize();
    }
    if (event.packet)
        take(*event.packet);
    else
        onWorkerChanged(event.life, isAskedToEnd ? stopped : "the worker has died");
    return true;
}

void WorkerProcess::onWorkerChanged(uint32_t life, const char* reason) {
    if (std::exchange(m_knownLife, life) == life) return;
    m_hasCommanded = false;
    if (life == 0)
        m_rpc->close(reason);
    else
        m_rpc->open();
    if (m_listener) life == 0 ? m_listener->onWorkerQuit(*this) : m_listener->onWorkerStarted(*this);
}

void WorkerProcess::take(Packet& packet) {
    if (m_rpc->onPacket(&packet)) return;
    const short id = packet.getID();
    if (id != ProcessProtocol::PluginsHashes.getID() && id != ProcessProtocol::Terminate.getID()) {
        if (m_listener) m_listener->onWorkerPacket(*this, packet);
    } else if (!std::exchange(m_hasCommanded, true)) {
        logging::MessageStream(2, 2) << "[WORKER " << getIndex() << "] what only a parent may send is ignored";
    }
}

bool WorkerProcess::send(Packet* packet) {
    // Nothing for a dead worker may reach the next one.
    const std::lock_guard lock(m_mutex);
    if (m_life == 0 || m_life != m_knownLife) return false;
    enqueuePacket(packet);
    return true;
}

void WorkerProcess::askToEnd() {
    if (!isSupervising()) return;
    const std::lock_guard lock(m_mutex);
    expectQuit();
    if (!std::exchange(m_isToEnd, true) && m_life != 0)
        enqueuePacket(makeObject<Packet>(&ProcessProtocol::Terminate, short{0}).get());
}

void WorkerProcess::stop(unsigned timeout) {
    const SmartPointer<WorkerProcess> keeper(this);
    askToEnd();
    const uint32_t begin = Clock::current().getTime();
    while (isSupervising()) {
        processEvents();
        const int32_t passed = Clock::timeDifference(Clock::current().getTime(), begin);
        if (passed < 0 || static_cast<unsigned>(passed) >= timeout) break;
        m_news.wait(std::min(turnTime, timeout - static_cast<unsigned>(passed)));
    }
    terminate();
    while (processNext()) {
    }
    {
        const std::lock_guard lock(m_mutex);
        m_life = 0;
    }
    onWorkerChanged(0, stopped);
}

// ---- The supervising thread.

bool WorkerProcess::wantsPackets() {
    const std::lock_guard lock(m_mutex);
    return m_events.size() < mostWaiting && m_waitingBytes < mostBytes;
}

void WorkerProcess::onProcessStarted() {
    {
        const std::lock_guard lock(m_mutex);
        // Before anybody knows of this worker, and sends it something.
        enqueuePacket(describeSetup(m_setup).get());
        if (m_isToEnd) enqueuePacket(makeObject<Packet>(&ProcessProtocol::Terminate, short{0}).get());
        if (++m_lastLife == 0) ++m_lastLife;
        m_life = m_lastLife;
        m_events.push_back({nullptr, m_life});
    }
    tell();
}

void WorkerProcess::onProcessQuit() {
    {
        const std::lock_guard lock(m_mutex);
        m_life = 0;
        m_events.push_back({});
    }
    tell();
}

void WorkerProcess::onPacket(Packet* packet) {
    {
        const std::lock_guard lock(m_mutex);
        m_waitingBytes += packet->getPayloadSize();
        m_events.push_back({packet});
    }
    tell();
}

void WorkerProcess::tell() {
    m_news.wake();
    if (m_waker) m_waker();
}

} // namespace kiv
