#pragma once

#include "kiv/platform/Console.h"

#include <string>
#include <utility>

namespace kiv::app {

// Keeps what is logged while it lives from standard output: the library's messages go where ours go.
class LogCatcher : public internal::OutputSink {
public:
    LogCatcher() : m_before(internal::setStandardOutputSink(this)) {}
    LogCatcher(const LogCatcher&) = delete;
    LogCatcher& operator=(const LogCatcher&) = delete;
    ~LogCatcher() override { internal::setStandardOutputSink(m_before); }
    bool write(std::string_view text) override { return m_text += text, true; }
    std::string takeText() { return std::exchange(m_text, {}); }

private:
    internal::OutputSink* m_before;
    std::string m_text;
};

} // namespace kiv::app
