#include "Chaos.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"

using kiv::logging::MessageStream;

Chaos::Chaos(unsigned kills, uint64_t seed, std::string workerName)
    : m_workerName(std::move(workerName)), m_random(seed),
      m_alarm(kiv::makeObject<kiv::Alarm>(std::function<void()>([this] { kill(); }))) {
    for (unsigned i = 0; i < kills; ++i) m_moments.push_back((i + draw(1000) / 1000.0) / kills);
    if (kills != 0) MessageStream(1, 2) << "[CHAOS] the worker will be killed; seed " << seed;
}

void Chaos::onHello(int64_t processId) {
    m_worker.emplace(kiv::platform::RunningProcess{processId, m_workerName});
    schedule();
}

void Chaos::onProgress(uint64_t received, uint64_t tiles) {
    while (!m_moments.empty() && static_cast<double>(received) > m_moments.front() * static_cast<double>(tiles)) {
        m_moments.pop_front();
        ++m_due;
        schedule();
    }
}

void Chaos::schedule() {
    if (m_due != 0 && m_worker && !m_alarm->isScheduled()) m_alarm->scheduleIn(static_cast<int>(draw(40)));
}

void Chaos::kill() {
    if (!m_worker) return; // it died by itself; the next one is due
    MessageStream(2, 2) << "[CHAOS] killing the worker, process " << m_worker->id;
    kiv::Trace::instant("host", "kill");
    if (kiv::platform::killProcess(*m_worker)) --m_due;
    m_worker.reset();
}
