#pragma once

#include "kiv/platform/Console.h"
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace support {

// Collects what the library would write to standard output while it lives, one element a write. What other threads
// write may be taken meanwhile.
class OutputCapture : public kiv::internal::OutputSink {
public:
    OutputCapture() : m_previous(kiv::internal::setStandardOutputSink(this)) {}
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture() override { kiv::internal::setStandardOutputSink(m_previous); }

    bool write(std::string_view text) override {
        const std::lock_guard lock(m_mutex);
        writes.emplace_back(text);
        return true;
    }
    // Everything written since the last call.
    std::string take() {
        std::string all;
        const std::lock_guard lock(m_mutex);
        for (const std::string& text : std::exchange(writes, {})) all += text;
        return all;
    }

    std::vector<std::string> writes;

private:
    std::mutex m_mutex;
    kiv::internal::OutputSink* m_previous;
};

} // namespace support
