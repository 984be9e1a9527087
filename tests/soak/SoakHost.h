#pragma once

#include "tests/soak/SoakWorker.h"
#include "tests/soak/Traffic.h"

#include "kiv/core/Signal.h"
#include "kiv/platform/ProcessList.h"
#include "kiv/store/LogDB.h"
#include "kiv/system/PluginHost.h"
#include "kiv/tasks/Alarm.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

// The application of the soak: two workers that are killed at random, scripts, options that change all the time, remote
// calls both ways, and a log that flows into a bounded database in the store.
class SoakHost : public kiv::PluginHost {
    KIV_OBJECT(SoakHost, PluginHost)
public:
    static constexpr unsigned workers = 2;
    static constexpr int32_t mostLines = 5000; // of the log database

    // What has happened so far.
    struct Counts {
        uint64_t starts = 0, kills = 0;
        uint64_t made = 0, answered = 0, failed = 0, surplus = 0, wrong = 0, open = 0; // calls of the host
        uint64_t workerMade = 0, workerAnswered = 0, workerFailed = 0;                 // as far as they have told
        uint64_t files = 0, packets = 0, lostPackets = 0, options = 0, lines = 0, faults = 0;
    };

    SoakHost(const std::string& folder, const std::string& program, unsigned seed);
    ~SoakHost() override;

    // The plug-in of the soak, in the folder.
    static void writePlugin(const std::string& folder);

    void startTraffic();
    // No calls and kills any more; what is open goes on.
    void endTraffic();
    Counts getCounts() const;
    // The last value of each option that was set.
    const std::map<std::string, std::string>& getOptionValues() const { return m_options; }

    void onTick() override;

    // The log database as it is in a store; empty, or what is wrong with it.
    static std::string checkLog(kiv::Store* store, int64_t& lines);

private:
    struct Worker {
        std::unique_ptr<Traffic> traffic;         // for all its lives
        std::optional<SoakWorker::Report> report; // the last of this life
    };
    // Has a bound of its own.
    struct BoundedLog : kiv::LogDB {
        BoundedLog(const kiv::Item& root) : LogDB(root, mostLines) {}
    };

    void declareOptions(kiv::OptionsDB& options) override;
    void setUpWorker(kiv::WorkerProcess& worker) override;
    void onOptionChanged(const char* name, const char* value) override;
    void onWorkerQuit(kiv::WorkerProcess& worker) override;
    void onWorkerPacket(kiv::WorkerProcess& worker, kiv::Packet& packet) override;
    static void addReport(Counts& counts, const std::optional<SoakWorker::Report>& report);
    void killOne();

    const std::string m_folder;
    const std::string m_programName;
    std::mt19937 m_random;
    std::map<int32_t, Worker> m_workers; // by index
    kiv::SmartPointer<BoundedLog> m_log;
    kiv::SmartPointer<kiv::Alarm> m_killing;
    Counts m_counts; // of the past
    std::map<std::string, std::string> m_options;
    std::atomic<uint64_t> m_faults{0};
    kiv::Connection m_logListener;
    bool m_hasTraffic = false;
};
