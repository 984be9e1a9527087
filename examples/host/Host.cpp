#include "Host.h"

#include "kiv/files/File.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/system/System.h"

#include <fmt/format.h>

using kiv::System;
using kiv::logging::MessageStream;

namespace {

constexpr int progressOnTerminal = 100; // milliseconds
constexpr int progressInLog = 1000;

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
    return path.substr(path.find_last_of("/\\") + 1);
}

} // namespace

Host::Host(const Options& options)
    : PluginHost(options.settings), m_workerPath(options.settings.workerPath.to_std_string()),
      m_folder("host", options.folder), m_chaos(options.kills, options.seed, fileName(m_workerPath)),
      m_progress(kiv::makeObject<kiv::Alarm>(std::function<void()>([this] { showProgress(); }))) {}

bool Host::listOptions() {
    if (!start()) return false;
    const kiv::OptionsDB& options = getOptions();
    for (unsigned i = 0; i < options.getOptionCount(); ++i) {
        const kiv::Item meta = options.getMeta(static_cast<int>(i));
        kiv::Item::Iterator texts = meta.getIterator();
        const char* const name = texts.asWeakCStr();
        texts.asWeakCStr(); // the title
        const std::string value = fmt::format("{} = {}", name, options.getValue(name).view());
        kiv::internal::writeStandardOutput(fmt::format("{:<28}{}\n", value, texts.asWeakCStr()));
    }
    return stop();
}

void Host::acquire() {
    if (!kiv::File::exists(m_workerPath)) return m_folder.complain("there is no worker \"" + m_workerPath + '"');
    if (!m_folder.open()) return;
    if (!start()) return m_folder.complain("it can't begin");
    m_line.emplace();
    showProgress();
    pump(); // in which the plug-ins' mains begin
    if (!getPlugins().hasListeners("device:hello")) end("no plug-in knows the device");
    if (!run()) m_folder.complain("the options can't be kept");
    m_progress->cancel();
    m_line.reset();
    if (!m_isComplete) m_folder.complain(getEndText().to_std_string());
    raise("study:over");
}

void Host::onBoot() {
    bindScripts();
    for (const auto& [name, digest] : getPlugins().getPluginHashes())
        MessageStream(1, 2) << fmt::format("[HOST] plug-in {}, digest {:08x}", name.view(), digest);
}

// ---- What the device tells.

void Host::onWorkerQuit(kiv::WorkerProcess& worker) {
    PluginHost::onWorkerQuit(worker);
    if (getEnd() != End::None) return; // as it was asked to
    ++m_deaths;
    m_chaos.onWorkerQuit();
    raise("device:quit", {{"deaths", m_deaths}});
    endIfComplete();
}

void Host::onWorkerPacket(kiv::WorkerProcess&, kiv::Packet& packet) {
    const Collection& collection = m_folder.getCollection();
    const bool isHello = packet.getID() == m_helloScheme.getID();
    const bool isEnd = packet.getID() == collection.getEndScheme().getID();
    if (isHello && packet.fit(&m_helloScheme)) return takeHello(packet);
    if (isEnd && packet.fit(&collection.getEndScheme())) return takeEnd(packet);
    if (!isHello && !isEnd) return takeTile(packet);
    m_folder.countRefused();
}

void Host::takeHello(kiv::Packet& packet) {
    const int64_t process = packet.getInteger(m_helloScheme.processId);
    m_chaos.onHello(process);
    raise("device:hello", {{"process", process}});
}

void Host::takeTile(kiv::Packet& packet) {
    if (m_folder.take(packet) != Collection::Result::Taken) return;
    const Collection& collection = m_folder.getCollection();
    const study::Geometry& geometry = *collection.getGeometry();
    const auto index = static_cast<uint64_t>(packet.getInteger(collection.getTileScheme().index));
    const uint32_t slice = geometry.getTile(index).slice;
    if (collection.hasSlice(slice)) measure(slice);
    m_chaos.onProgress(collection.getReceivedTiles(), geometry.getTiles());
}

void Host::takeEnd(kiv::Packet& packet) {
    m_folder.take(packet);
    const Collection& collection = m_folder.getCollection();
    raise("device:end", {{"isWhole", collection.agreesWithSender()}, {"missing", collection.getMissingTiles()}});
}

void Host::complete() {
    m_isComplete = true;
    endIfComplete();
}

void Host::giveUp(const kiv::String& why) {
    end(why.c_str());
}

void Host::endIfComplete() {
    if (m_isComplete && !m_chaos.isPending()) end("the study is complete");
}

// ---- What becomes of it.

void Host::measure(uint32_t slice) {
    const kiv::TraceSpan span("host", "statistics");
    SliceStatistics statistics(*m_folder.getCollection().getGeometry(), m_folder.getCollection().getSlice(slice));
    System::execute(statistics);
    const kiv::Item findings = statistics.describe();
    m_folder.getStore().addFindings(slice, findings);
    ++m_measuredSlices;
    raise("study:slice", {{"slice", slice}, {"findings", findings}});
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
