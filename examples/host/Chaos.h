#pragma once

#include "kiv/platform/ProcessList.h"
#include "kiv/tasks/Alarm.h"

#include "kiv/core/SmartPointer.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>

// Kills the worker process a few times at random moments, spread over the study. The same seed draws the same moments
// in the study, and the same delays there; what the worker is doing then is up to the machine. Threads: the main
// thread.
class Chaos {
public:
    // The name is that of the worker's file.
    Chaos(unsigned kills, uint64_t seed, std::string workerName);

    void onHello(int64_t processId);
    void onWorkerQuit() { m_worker.reset(); }
    void onProgress(uint64_t received, uint64_t tiles);
    // Whether the moment of a kill has come that is still to be done.
    bool isPending() const { return m_due != 0; }

private:
    unsigned draw(unsigned below) { return static_cast<unsigned>(m_random() % below); }
    void schedule();
    void kill();

    const std::string m_workerName;
    std::mt19937_64 m_random;     // the same everywhere
    std::deque<double> m_moments; // to come, as parts of the study
    unsigned m_due = 0;
    std::optional<kiv::platform::RunningProcess> m_worker; // none while there is none, or it was killed
    const kiv::SmartPointer<kiv::Alarm> m_alarm;
};
