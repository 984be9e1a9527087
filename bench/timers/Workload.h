#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <vector>

// The work of the race: 100,000 timers at random times within ten minutes, all cancelled in another order, or all
// fired.
namespace bench {

constexpr size_t timerCount = 100000;
constexpr uint32_t longestDelay = 600000;

struct TimerWorkload {
    std::vector<uint32_t> delays;   // from 1 to longestDelay milliseconds
    std::vector<uint32_t> shuffled; // the order in which they are cancelled

    static const TimerWorkload& get() {
        static const TimerWorkload workload;
        return workload;
    }

private:
    TimerWorkload() : delays(timerCount), shuffled(timerCount) {
        std::mt19937 random(4711);
        for (uint32_t& delay : delays) delay = 1 + static_cast<uint32_t>(random() % longestDelay);
        std::iota(shuffled.begin(), shuffled.end(), 0u);
        for (size_t i = timerCount - 1; i > 0; --i) std::swap(shuffled[i], shuffled[random() % (i + 1)]);
    }
};

inline void check(bool isRight, const char* contestant) {
    if (isRight) return;
    std::fprintf(stderr, "%s has lost or invented timers\n", contestant);
    std::abort();
}

} // namespace bench
