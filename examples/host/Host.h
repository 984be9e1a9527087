#pragma once

#include "Chaos.h"
#include "Report.h"
#include "examples/study/ProgressLine.h"
#include "examples/study/StudyFolder.h"

#include "kiv/system/PluginHost.h"
#include "kiv/tasks/Alarm.h"

#include <optional>
#include <string>

// The application: receives a study from the device's worker process, measures each slice as soon as it is complete,
// and keeps all of it. What is asked of the device, and what becomes of the measurements, is decided by plug-ins:
// HostScripts.cpp has what they see. Requires: the System is initialised; it is deinitialised between acquire() and
// finish().
class Host : public kiv::PluginHost {
    KIV_OBJECT(Host, PluginHost)
public:
    struct Options {
        Settings settings;
        StudyFolder::Options folder;
        unsigned kills = 0;
        uint64_t seed = 0;
    };

    explicit Host(const Options& options);

    // Prints the options, with their present values; false when they can't be had. In place of the others.
    bool listOptions();
    // Returns when the study is complete, or when there is no hope for it.
    void acquire();
    // Checks everything that was kept, and sums up. The exit status.
    int finish();

protected:
    void onBoot() override;
    void setUpWorker(kiv::WorkerProcess& worker) override;
    void onWorkerQuit(kiv::WorkerProcess& worker) override;
    void onWorkerPacket(kiv::WorkerProcess& worker, kiv::Packet& packet) override;

private:
    // What the device sends.
    void takeHello(kiv::Packet& packet);
    void takeTile(kiv::Packet& packet);
    void takeEnd(kiv::Packet& packet);

    // For scripts.
    void bindScripts();
    void raise(const char* event, std::initializer_list<std::pair<const char*, kiv::Item>> table = {});
    int64_t getSlices() const;
    int64_t getMaximum() const;
    uint64_t getTiles() const { return m_folder.getCollection().getReceivedTiles(); }
    bool isComplete() const { return m_isComplete; }
    kivSq::Object getMissing() const;
    void request(const kivSq::Object& ranges);
    void complete();
    void giveUp(const kiv::String& why);
    void report(const kivSq::Object& table) { m_report.take(table); }

    void measure(uint32_t slice);
    bool checkFindings();
    bool showReport(const SliceStatistics::Sums& all, uint64_t samples);
    void showProgress();
    void endIfComplete();

    const std::string m_workerPath;
    StudyFolder m_folder;
    const study::HelloScheme m_helloScheme;
    const study::RequestScheme m_requestScheme;
    Report m_report;
    Chaos m_chaos;
    std::optional<ProgressLine> m_line; // while it runs
    const kiv::SmartPointer<kiv::Alarm> m_progress;
    uint32_t m_measuredSlices = 0;
    unsigned m_deaths = 0;
    bool m_isComplete = false;
};
