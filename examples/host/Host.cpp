#include "Host.h"

#include "SliceStatistics.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"
#include "kiv/system/System.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <thread>

using kiv::System;
using kiv::logging::MessageStream;

namespace {

constexpr std::chrono::milliseconds frame(5);
constexpr int patience = 30000;         // milliseconds without a worker that speaks
constexpr unsigned mostRepairs = 10;    // requests for what is missing though the worker has sent it all
constexpr int progressOnTerminal = 100; // milliseconds
constexpr int progressInLog = 1000;

std::filesystem::path pathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

std::string countDeaths(unsigned deaths) {
    return fmt::format("{} death{}", deaths, deaths == 1 ? "" : "s");
}

std::string drawBar(const Collection& collection) {
    constexpr uint64_t width = 24;
    const study::Geometry* geometry = collection.getGeometry();
    const uint64_t filled = geometry ? collection.getReceivedTiles() * width / geometry->getTiles() : 0;
    return '[' + std::string(filled, '#') + std::string(width - filled, '.') + "] ";
}

std::string fileName(const std::string& path) {
    const std::u8string name = pathOf(path).filename().u8string();
    return {name.begin(), name.end()};
}

} // namespace

kiv::SmartPointer<kiv::Alarm> Host::makeAlarm(std::function<void()> function) {
    return kiv::makeObject<kiv::Alarm>(std::move(function));
}

Host::Host(const Options& options)
    : m_options(options), m_folder("host", options.folder),
      m_device(kiv::makeObject<Device>(options.workerPath.c_str(), options.workerArguments, m_folder.getCollection(),
                                       static_cast<Device::Listener&>(*this))),
      m_chaos(options.kills, options.seed, fileName(options.workerPath)),
      m_progress(makeAlarm([this] { showProgress(); })),
      m_patience(makeAlarm([this] { giveUp(fmt::format("no worker has said a word for {} s", patience / 1000)); })) {}

void Host::run() {
    std::error_code error;
    if (!std::filesystem::is_regular_file(pathOf(m_options.workerPath), error))
        return giveUp("there is no worker \"" + m_options.workerPath + '"');
    if (!m_folder.open()) return;
    System::catchInterrupts();
    m_line.emplace();
    startReport();
    m_device->start();
    m_patience->scheduleIn(patience);
    showProgress();
    while (!m_isOver || m_report.isRunning()) {
        if (m_isOver) m_report.setOver();
        System::processEvents();
        std::this_thread::sleep_for(frame);
    }
    m_line.reset();
}

void Host::onTick() {
    if (!m_isOver && System::getHitSIGINT()) giveUp("interrupted");
}

void Host::onShutdown() {
    m_device->terminate();
}

void Host::giveUp(const std::string& why) {
    m_progress->cancel();
    m_line.reset();
    m_folder.complain(why);
    m_isOver = true;
}

// ---- What the device tells.

// Behind all packets of the worker before: only what has not come is wanted.
void Host::onWorkerStarted() {
    if (!m_isComplete) m_device->request(m_folder.getCollection().getMissingRanges());
}

void Host::onWorkerQuit() {
    ++m_deaths;
    if (!m_patience->isScheduled()) m_patience->scheduleIn(patience);
    m_chaos.onWorkerQuit();
    endIfComplete();
}

void Host::onHello(int64_t processId) {
    m_patience->cancel();
    m_chaos.onHello(processId);
}

void Host::onStudyPacket(kiv::Packet& packet) {
    const Collection& collection = m_folder.getCollection();
    const Collection::Result result = m_folder.take(packet);
    if (packet.getID() == collection.getEndScheme().getID()) return onEnd();
    if (result != Collection::Result::Taken) return;
    const study::Geometry& geometry = *collection.getGeometry();
    const auto index = static_cast<uint64_t>(packet.getInteger(collection.getTileScheme().index));
    const uint32_t slice = geometry.getTile(index).slice;
    if (collection.hasSlice(slice)) measure(slice);
    m_chaos.onProgress(collection.getReceivedTiles(), geometry.getTiles());
}

void Host::onMalformedPacket() {
    m_folder.countRefused();
}

void Host::onEnd() {
    const Collection& collection = m_folder.getCollection();
    m_isComplete = collection.agreesWithSender();
    if (m_isComplete) return endIfComplete();
    if (collection.getMissingTiles() == 0 || ++m_requests > mostRepairs)
        giveUp("what has come is not what the worker has sent");
    else
        m_device->request(collection.getMissingRanges());
}

void Host::endIfComplete() {
    if (m_isComplete && !m_chaos.isPending()) m_isOver = true;
}

// ---- What becomes of it.

void Host::measure(uint32_t slice) {
    const kiv::TraceSpan span("host", "statistics");
    SliceStatistics statistics(*m_folder.getCollection().getGeometry(), m_folder.getCollection().getSlice(slice));
    System::execute(statistics);
    m_folder.getStore().addFindings(slice, statistics.describe());
    ++m_measuredSlices;
}

void Host::showProgress() {
    const std::string text =
        fmt::format("{}, {} slices measured, {}", m_folder.describeProgress(), m_measuredSlices, countDeaths(m_deaths));
    if (m_line->isShown())
        m_line->show(drawBar(m_folder.getCollection()) + text);
    else
        MessageStream(1, 2) << "[HOST] " << text;
    m_progress->scheduleIn(m_line->isShown() ? progressOnTerminal : progressInLog);
}

void Host::startReport() {
    if (!m_report.start(m_options.reportPath)) m_folder.complain("no report from \"" + m_options.reportPath + '"');
}

// Counts all slices again, on one thread.
bool Host::checkFindings() {
    const Collection& collection = m_folder.getCollection();
    const uint32_t slices = collection.getGeometry() ? collection.getGeometry()->slices : 0;
    uint32_t confirmed = 0;
    uint64_t samples = 0;
    SliceStatistics::Sums all;
    for (uint32_t slice = 0; slice < slices; ++slice) {
        const kiv::Item* findings = m_folder.getStore().getFindings(slice);
        SliceStatistics statistics(*collection.getGeometry(), collection.getSlice(slice));
        statistics.executeAlone();
        if (!findings || *findings != statistics.describe()) continue;
        ++confirmed;
        all.add(statistics.getTotal());
        samples += statistics.getCount();
    }
    if (confirmed != slices)
        m_folder.complain(
            fmt::format("the statistics of {} of {} slices are missing or wrong", slices - confirmed, slices));
    return showReport(all, samples) && confirmed == slices;
}

bool Host::showReport(const SliceStatistics::Sums& all, uint64_t samples) {
    kiv::internal::writeStandardOutput(m_report.getText());
    if (samples == 0 || m_report.agreesWith(all, samples)) return true;
    m_folder.complain("the report is missing or wrong");
    return false;
}

int Host::finish() {
    bool isGood = m_folder.isOpen() && m_folder.finish();
    isGood = checkFindings() && isGood;
    kiv::internal::writeStandardOutput(
        m_folder.summarise(fmt::format("{} slices measured, {} survived, ", m_measuredSlices, countDeaths(m_deaths))));
    return isGood && !m_folder.hasRefused() ? 0 : 1;
}
