#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kiv::app {

// A line on standard error that tells how far long work has come, when that is a terminal and standard output, whose
// lines it would break, is none. Nothing of it stays.
class Progress {
public:
    explicit Progress(std::string what);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    void show(uint64_t done, uint64_t total);

private:
    const std::string m_what;
    const bool m_isShown;
    size_t m_columns = 0;
    std::chrono::steady_clock::time_point m_nextTime;
};

} // namespace kiv::app
