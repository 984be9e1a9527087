#pragma once

#include "kiv/platform/Console.h"

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

// One line on standard error that is rewritten as work goes on, when that is a terminal. What the program prints
// meanwhile on standard output takes its place, and the line comes back below. Threads: any may print, one shows.
class ProgressLine : public kiv::internal::OutputSink {
public:
    ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() override;

    // Whether there is a terminal; without one nothing is shown.
    bool isShown() const { return m_isShown; }
    // Whether it is time for a new text; there are ten a second.
    bool isDue() const;
    void show(std::string_view text);

    bool write(std::string_view text) override;

private:
    void erase();

    const bool m_isShown;
    std::mutex m_mutex;
    size_t m_columns = 0; // used at present; guarded by the mutex
    std::chrono::steady_clock::time_point m_lastShown;
};
