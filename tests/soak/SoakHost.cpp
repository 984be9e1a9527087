#include "tests/soak/SoakHost.h"

#include "kiv/data/Packet.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/system/System.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace {

constexpr unsigned mostOpen = 6;                         // calls, to each worker
constexpr unsigned shortestLife = 1500, lifeMask = 4095; // milliseconds between kills
constexpr char ownOption[] = "soak:host";

kiv::PluginHost::Settings describe(const std::string& folder, const std::string& program) {
    kiv::PluginHost::Settings settings;
    settings.pluginsDirectory = folder + "/plugins";
    settings.storePath = folder + "/soak.store";
    settings.workerPath = program;
    settings.workerArguments = {program, "--plugins", folder};
    settings.initScript = "soak <- {started = true}";
    settings.startupScript = "while (true) { std.info(\"startup script of \" + std.worker_index); std.sleep(100) }";
    return settings;
}

kiv::Item logRoot(kiv::Store* store) {
    kiv::Item root(store);
    root.addString("log");
    return root;
}

std::string nameOf(const std::string& path) {
    const std::u8string name = std::filesystem::path(std::u8string(path.begin(), path.end())).filename().u8string();
    return {name.begin(), name.end()};
}

} // namespace

void SoakHost::writePlugin(const std::string& folder) {
    const std::string plugin = folder + "/plugins/soak";
    std::filesystem::create_directories(plugin);
    std::ofstream(plugin + "/autoexec.sq") << R"(isHost <- "host" in getroottable()
if (isHost) for (local i = 0; i < 20; ++i) host.options.declare("soak:script" + i, "0", "", "", 128)
)";
    // Garbage, threads that come and go, lines, and options.
    std::ofstream(plugin + "/main.sq") << R"(function work(n) {
    local table = {}
    for (local i = 0; i < 200; ++i) table["key" + i] <- [i, "value " + i, {n = n}]
    std.sleep(n % 20)
    std.info("worked on " + table.len() + " things, " + n)
}
for (local n = 0; ; ++n) {
    std.async(@() work(n))
    if (isHost) host.options.set("soak:script" + n % 20, n)
    std.sleep(10)
}
)";
}

SoakHost::SoakHost(const std::string& folder, const std::string& program, unsigned seed)
    : PluginHost(describe(folder, program)), m_folder(folder), m_programName(nameOf(program)), m_random(seed),
      m_log(kiv::makeObject<BoundedLog>(logRoot(&getStore()))),
      m_killing(kiv::makeObject<kiv::Alarm>(std::function<void()>([this] { killOne(); }))) {
    m_logListener = kiv::logging::LogBackend::getSignalNewLogMessage().connect([this](int, const char* text) {
        if (std::string_view(text).find("FAULT") != std::string_view::npos) ++m_faults;
    });
    Traffic::answerCalls(getRpcProvider(), folder);
}

SoakHost::~SoakHost() = default;

// ---- What it does.

void SoakHost::startTraffic() {
    m_hasTraffic = true;
    getOptions().setValue("host:workers", std::to_string(workers).c_str());
    m_killing->scheduleIn(static_cast<int>(shortestLife));
}

void SoakHost::endTraffic() {
    m_hasTraffic = false;
    m_killing->cancel();
}

void SoakHost::onTick() {
    PluginHost::onTick();
    m_counts.lines += kiv::logging::LogBackend::flushTo(1, m_log.get());
    if (!m_hasTraffic) return;
    for (auto& [index, worker] : m_workers) worker.traffic->tick(mostOpen);
    if (m_random() % 8 == 0) getOptions().setValue(ownOption, std::to_string(m_random()).c_str());
}

void SoakHost::killOne() {
    const auto index = static_cast<int32_t>(m_random() % workers);
    Worker& worker = m_workers[index];
    if (worker.report && kiv::platform::killProcess({worker.report->processId, m_programName})) {
        ++m_counts.kills;
        worker.report->processId = -1; // once is enough
    }
    m_killing->scheduleIn(static_cast<int>(shortestLife + (m_random() & lifeMask)));
}

// ---- What it is told.

void SoakHost::setUpWorker(kiv::WorkerProcess& worker) {
    m_workers[worker.getIndex()].traffic = std::make_unique<Traffic>(
        worker.getRpc(), m_folder + "/host" + std::to_string(worker.getIndex()), static_cast<unsigned>(m_random()));
}

void SoakHost::declareOptions(kiv::OptionsDB& options) {
    PluginHost::declareOptions(options);
    options.addOption(ownOption, "", "", "", "", 0);
}

void SoakHost::onOptionChanged(const char* name, const char* value) {
    ++m_counts.options;
    m_options[name] = value;
}

void SoakHost::onWorkerQuit(kiv::WorkerProcess& worker) {
    Worker& known = m_workers[worker.getIndex()];
    addReport(m_counts, known.report);
    known.report.reset();
}

void SoakHost::onWorkerPacket(kiv::WorkerProcess& worker, kiv::Packet& packet) {
    SoakWorker::Report report;
    if (packet.getPayloadSize() != sizeof report) {
        ++m_faults;
        return;
    }
    packet.copyPayloadTo(reinterpret_cast<uint8_t*>(&report));
    std::optional<SoakWorker::Report>& last = m_workers[worker.getIndex()].report;
    ++m_counts.packets;
    m_counts.lostPackets += report.reports != (last ? last->reports : 0) + 1;
    if (last && last->processId == -1) report.processId = -1;
    last = report;
}

// ---- How it went.

void SoakHost::addReport(Counts& counts, const std::optional<SoakWorker::Report>& report) {
    if (!report) return;
    counts.workerMade += report->made;
    counts.workerAnswered += report->answered;
    counts.workerFailed += report->failed;
    counts.files += report->files;
}

SoakHost::Counts SoakHost::getCounts() const {
    Counts counts = m_counts;
    counts.starts = getWorkerStarts();
    counts.faults = m_faults;
    for (const auto& [index, worker] : m_workers) {
        const Ledger& ledger = worker.traffic->getLedger();
        addReport(counts, worker.report);
        counts.made += ledger.getMade();
        counts.answered += ledger.getAnswered();
        counts.failed += ledger.getFailed();
        counts.surplus += ledger.getSurplus();
        counts.open += ledger.getOpen();
        counts.wrong += worker.traffic->getWrong();
        counts.files += worker.traffic->getFiles();
    }
    return counts;
}

std::string SoakHost::checkLog(kiv::Store* store, int64_t& lines) {
    const auto log = kiv::makeObject<BoundedLog>(logRoot(store));
    lines = log->getEnd() - log->getBegin();
    if (lines == 0) return "the log database is empty";
    if (lines > mostLines) return "the log database has " + std::to_string(lines) + " lines";
    for (int64_t i = log->getBegin(); i < log->getEnd(); ++i)
        if (!log->getLine(i)) return "the log database lacks line " + std::to_string(i);
    return {};
}
