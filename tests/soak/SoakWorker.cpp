#include "tests/soak/SoakWorker.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/process/Process.h"
#include "kiv/system/System.h"

#include <cstring>

namespace {

constexpr unsigned mostOpen = 6;
constexpr int32_t reportInterval = 20; // milliseconds

} // namespace

SoakWorker::SoakWorker(const std::string& folder) : PluginWorker((folder + "/plugins").c_str()), m_folder(folder) {}

SoakWorker::~SoakWorker() = default;

int SoakWorker::main(const std::string& folder) {
    kiv::System::initialize();
    {
        const auto worker = kiv::makeObject<SoakWorker>(folder);
        worker->run();
        const Ledger* ledger = worker->m_traffic ? &worker->m_traffic->getLedger() : nullptr;
        if (ledger && (ledger->getOpen() != 0 || ledger->getSurplus() != 0 || worker->m_traffic->getWrong() != 0))
            kiv::logging::MessageStream(3, 2)
                << "FAULT: calls of the worker open, ended twice, wrong: " << ledger->getOpen() << ' '
                << ledger->getSurplus() << ' ' << worker->m_traffic->getWrong();
        kiv::System::deinitialize();
    }
    return 0;
}

void SoakWorker::onBooted(int32_t index) {
    // Of each life: what the one before has left is half of a file.
    const std::string own = m_folder + "/worker" + std::to_string(index);
    Traffic::answerCalls(getRpcProvider(), own);
    m_traffic = std::make_unique<Traffic>(getParent().getRpc(), own, kiv::System::randomUInt());
}

void SoakWorker::onTick() {
    PluginWorker::onTick();
    if (!m_traffic) return;
    m_traffic->tick(mostOpen);
    const uint32_t now = kiv::Clock::current().getTime();
    if (m_reports != 0 && kiv::Clock::timeDifference(now, m_reportTime) < reportInterval) return;
    m_reportTime = now;
    report();
}

void SoakWorker::report() {
    const Ledger& ledger = m_traffic->getLedger();
    const Report numbers{kiv::Process::getCurrentProcessId(),
                         ++m_reports,
                         ledger.getMade(),
                         ledger.getAnswered(),
                         ledger.getFailed(),
                         m_traffic->getFiles()};
    const auto packet = kiv::makeObject<kiv::Packet>(static_cast<unsigned>(sizeof numbers));
    std::memcpy(packet->getPayloadPointer(), &numbers, sizeof numbers);
    getParent().send(packet.get());
}
