#include "Device.h"

#include "kiv/system/System.h"
#include "kiv/tasks/LambdaTask.h"

namespace {

template <class Function>
void onMainThread(Function function) {
    kiv::System::getGlobalMainQueue().pushTask(kiv::makeTask(std::move(function)));
}

} // namespace

Device::Device(const char* workerPath, const kiv::List<kiv::String>& arguments, const Collection& collection,
               Listener& listener)
    : AsyncSupervisor(workerPath, arguments), m_tileScheme(collection.getTileScheme()),
      m_endScheme(collection.getEndScheme()), m_listener(listener) {}

void Device::request(const std::vector<study::TileRange>& ranges) {
    std::vector<uint32_t> numbers;
    for (const study::TileRange& range : ranges) {
        numbers.push_back(range.first);
        numbers.push_back(range.count);
    }
    const auto packet = kiv::makeObject<kiv::Packet>(&m_requestScheme, short{0});
    packet->setArray(m_requestScheme.ranges, numbers.data(), numbers.size());
    enqueuePacket(packet.get());
}

void Device::onProcessStarted() {
    onMainThread([this] { m_listener.onWorkerStarted(); });
}

void Device::onProcessQuit() {
    onMainThread([this] { m_listener.onWorkerQuit(); });
}

void Device::onPacket(kiv::Packet* packet) {
    if (packet->getID() == m_helloScheme.getID() && packet->fit(&m_helloScheme)) {
        const int64_t processId = packet->getInteger(m_helloScheme.processId);
        return onMainThread([this, processId] { m_listener.onHello(processId); });
    }
    const bool isEnd = packet->getID() == m_endScheme.getID();
    if (isEnd ? packet->fit(&m_endScheme) : packet->fit(&m_tileScheme))
        onMainThread([this, kept = kiv::SmartPointer<kiv::Packet>(packet)] { m_listener.onStudyPacket(*kept); });
    else
        onMainThread([this] { m_listener.onMalformedPacket(); });
}
