#include "LineInput.h"

#include "kiv/platform/Console.h"
#include "kiv/platform/Interrupt.h"
#include "kiv/platform/StandardInput.h"
#include "kiv/platform/Waker.h"

#include <cstdio>

namespace kiv::app {

namespace {

using internal::StandardStream;

class PlainInput : public LineInput {
public:
    Result read(const std::string& prompt, std::string& line) override;
    void cancel() override { m_wait.cancel(); }

private:
    bool fill();
    bool isInterrupted();

    const bool m_isTerminal = internal::isTerminal(StandardStream::Input);
    internal::InputWait m_wait;
    std::string m_waiting; // read, but not yet given
    bool m_isAtEnd = false;
};

bool PlainInput::fill() {
    char bytes[4096];
    const size_t count = m_wait.wait() ? internal::readStandardInput(bytes, sizeof bytes) : 0;
    m_waiting.append(bytes, count);
    return count > 0;
}

// A console's read ends with nothing then, somewhat before the interrupt is told of.
bool PlainInput::isInterrupted() {
    if (!m_isTerminal) return false;
    constexpr int looks = 10;
    for (int i = 0; i < looks && !platform::interruptFlag(); ++i) platform::Waker().wait(10);
    return platform::interruptFlag();
}

LineInput::Result PlainInput::read(const std::string& prompt, std::string& line) {
    if (m_isTerminal) {
        std::fputs(prompt.c_str(), stdout);
        std::fflush(stdout);
    }
    bool isTooLong = false;
    size_t end;
    while ((end = m_waiting.find('\n')) == m_waiting.npos && !m_isAtEnd) {
        if (m_waiting.size() > longestLine) {
            isTooLong = true;
            m_waiting.clear();
        }
        if (fill()) continue;
        if (isInterrupted()) {
            m_waiting.clear();
            return Result::Cancelled;
        }
        m_isAtEnd = true;
    }
    if (end == m_waiting.npos && m_waiting.empty() && !isTooLong) return Result::End;
    line = m_waiting.substr(0, end);
    m_waiting.erase(0, end == m_waiting.npos ? end : end + 1);
    if (line.ends_with('\r')) line.pop_back();
    return isTooLong || line.size() > longestLine ? Result::TooLong : Result::Line;
}

} // namespace

LineInput::~LineInput() = default;

std::unique_ptr<LineInput> makePlainInput() {
    return std::make_unique<PlainInput>();
}

} // namespace kiv::app
