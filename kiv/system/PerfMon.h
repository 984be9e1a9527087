#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kiv {

// How long the phases of the main pump take: "Tick", "VM", "Queue" and "Scheduler", and any others that are begun.
// Phases may nest. While Trace is on, each is a span there.
// Threads: the main thread alone.
class KIV_API PerfMon {
public:
    struct Phase {
        const char* name;
        uint64_t count = 0; // of those that have ended
        int64_t last = 0;   // microseconds, as are the following
        int64_t max = 0;
        int64_t total = 0;
    };
    class Scope;

    PerfMon();
    PerfMon(const PerfMon&) = delete;
    PerfMon& operator=(const PerfMon&) = delete;

    // The name is a string literal.
    void begin(const char* name);
    // Ends the phase begun last; without one it logs an error.
    void end();

    // Those of the pump first, in their order there.
    const std::vector<Phase>& getPhases() const { return m_phases; }
    // Null when it was never begun. Valid until another phase is begun for the first time.
    const Phase* find(std::string_view name) const;
    // All numbers start from 0 again; what is open goes on.
    void reset();

private:
    struct Open {
        size_t phase;
        int64_t begin; // nanoseconds
    };

    void endDownTo(size_t depth);

    std::vector<Phase> m_phases;
    std::vector<Open> m_open;
};

// A phase as long as a block of code. It also ends what was begun in there and not ended.
class KIV_API PerfMon::Scope {
public:
    Scope(PerfMon& perfMon, const char* name) : m_perfMon(perfMon), m_depth(perfMon.m_open.size()) {
        m_perfMon.begin(name);
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { m_perfMon.endDownTo(m_depth); }

private:
    PerfMon& m_perfMon;
    const size_t m_depth;
};

} // namespace kiv
