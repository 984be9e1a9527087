#pragma once

#include "tests/soak/Traffic.h"

#include "kiv/system/PluginWorker.h"

#include <memory>
#include <string>

// A worker of the soak: answers calls, makes calls of its own, and says by packets how it fares, until it is asked to
// end or killed.
class SoakWorker : public kiv::PluginWorker {
    KIV_OBJECT(SoakWorker, PluginWorker)
public:
    // A worker's report is a raw packet of these numbers.
    struct Report {
        int64_t processId;
        uint64_t reports; // of this worker, with this one
        uint64_t made;
        uint64_t answered;
        uint64_t failed;
        uint64_t files;
    };

    explicit SoakWorker(const std::string& folder);
    ~SoakWorker() override;

    // Runs it to the end; the exit status.
    static int main(const std::string& folder);

    void onTick() override;

private:
    void onBooted(int32_t index) override;
    void report();

    const std::string m_folder;
    std::unique_ptr<Traffic> m_traffic; // once it is booted
    uint64_t m_reports = 0;
    uint32_t m_reportTime = 0;
};
