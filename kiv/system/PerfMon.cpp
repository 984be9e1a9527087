#include "kiv/system/PerfMon.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"

#include <algorithm>

namespace kiv {

PerfMon::PerfMon() : m_phases{{"Tick"}, {"VM"}, {"Queue"}, {"Scheduler"}} {}

void PerfMon::begin(const char* name) {
    const Phase* known = find(name);
    const size_t index = known ? static_cast<size_t>(known - m_phases.data()) : m_phases.size();
    if (!known) m_phases.push_back({name});
    m_open.push_back({index, Trace::now()});
}

void PerfMon::end() {
    if (m_open.empty()) {
        logging::MessageStream(3, 2) << "[PERFMON] no phase to end";
        return;
    }
    const Open open = m_open.back();
    m_open.pop_back();
    Phase& phase = m_phases[open.phase];
    const int64_t nanoseconds = Trace::now() - open.begin;
    phase.last = nanoseconds / 1000;
    phase.max = std::max(phase.max, phase.last);
    phase.total += phase.last;
    ++phase.count;
    Trace::span("pump", phase.name, open.begin, nanoseconds);
}

void PerfMon::endDownTo(size_t depth) {
    while (m_open.size() > depth) end();
}

const PerfMon::Phase* PerfMon::find(std::string_view name) const {
    const auto found =
        std::find_if(m_phases.begin(), m_phases.end(), [&](const Phase& each) { return each.name == name; });
    return found == m_phases.end() ? nullptr : &*found;
}

void PerfMon::reset() {
    for (Phase& phase : m_phases) phase = {phase.name};
}

} // namespace kiv
