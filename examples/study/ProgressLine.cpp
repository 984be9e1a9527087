#include "ProgressLine.h"

#include <algorithm>
#include <cstdio>

using kiv::internal::StandardStream;

ProgressLine::ProgressLine() : m_isShown(kiv::internal::isTerminal(StandardStream::Error)) {
    if (m_isShown && kiv::internal::isTerminal(StandardStream::Output)) kiv::internal::setStandardOutputSink(this);
}

ProgressLine::~ProgressLine() {
    kiv::internal::setStandardOutputSink(nullptr);
    erase();
}

bool ProgressLine::isDue() const {
    return m_isShown && std::chrono::steady_clock::now() - m_lastShown >= std::chrono::milliseconds(100);
}

void ProgressLine::show(std::string_view text) {
    if (!m_isShown) return;
    const std::lock_guard lock(m_mutex);
    const unsigned width = kiv::internal::getTerminalWidth(StandardStream::Error);
    if (width != 0) text = text.substr(0, width - 1);
    const size_t rest = std::max(m_columns, text.size()) - text.size();
    kiv::internal::writeStandardError("\r" + std::string(text) + std::string(rest, ' ') + std::string(rest, '\b'));
    m_columns = text.size();
    m_lastShown = std::chrono::steady_clock::now();
}

void ProgressLine::erase() {
    if (m_columns != 0) kiv::internal::writeStandardError("\r" + std::string(m_columns, ' ') + "\r");
    m_columns = 0;
}

bool ProgressLine::write(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    erase();
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}
