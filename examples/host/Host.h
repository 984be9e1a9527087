#pragma once

#include "Chaos.h"
#include "Device.h"
#include "Report.h"
#include "examples/study/ProgressLine.h"
#include "examples/study/StudyFolder.h"

#include "kiv/system/Application.h"
#include "kiv/tasks/Alarm.h"

#include <optional>
#include <string>

// The application: has the device's worker acquire a study, measures each slice as soon as it is complete, and keeps
// all of it. Requires: the System is initialised; it is deinitialised between run() and finish().
class Host : public kiv::Application, private Device::Listener {
    KIV_OBJECT(Host, Application)
public:
    struct Options {
        StudyFolder::Options folder;
        std::string workerPath;
        kiv::List<kiv::String> workerArguments;
        std::string reportPath; // of the script
        unsigned kills = 0;
        uint64_t seed = 0;
    };

    explicit Host(const Options& options);

    // Returns when the study is complete, or when there is no hope for it.
    void run();
    // Checks everything that was kept, and sums up. The exit status.
    int finish();

    // The hooks of the System.
    void onTick() override;
    void onShutdown() override;

private:
    // What the device tells.
    void onWorkerStarted() override;
    void onWorkerQuit() override;
    void onHello(int64_t processId) override;
    void onStudyPacket(kiv::Packet& packet) override;
    void onMalformedPacket() override;

    void measure(uint32_t slice);
    bool checkFindings();
    void startReport();
    bool showReport(const SliceStatistics::Sums& all, uint64_t samples);
    void onEnd();
    void showProgress();
    void endIfComplete();
    void giveUp(const std::string& why);

    static kiv::SmartPointer<kiv::Alarm> makeAlarm(std::function<void()> function);

    const Options m_options;
    StudyFolder m_folder;
    const kiv::SmartPointer<Device> m_device;
    Report m_report{m_folder};
    Chaos m_chaos;
    std::optional<ProgressLine> m_line; // while it runs
    const kiv::SmartPointer<kiv::Alarm> m_progress;
    const kiv::SmartPointer<kiv::Alarm> m_patience;
    uint32_t m_measuredSlices = 0;
    unsigned m_deaths = 0;
    unsigned m_requests = 0;
    bool m_isComplete = false;
    bool m_isOver = false;
};
