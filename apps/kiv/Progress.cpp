#include "Progress.h"

#include "kiv/platform/Console.h"

#include <fmt/format.h>

#include <algorithm>

namespace kiv::app {

namespace {

using internal::StandardStream;

// What takes no longer needs no line.
constexpr std::chrono::milliseconds untilFirst(300), between(100);

} // namespace

Progress::Progress(std::string what)
    : m_what(std::move(what)),
      m_isShown(internal::isTerminal(StandardStream::Error) && !internal::isTerminal(StandardStream::Output)),
      m_nextTime(std::chrono::steady_clock::now() + untilFirst) {}

Progress::~Progress() {
    if (m_columns != 0) internal::writeStandardError("\r" + std::string(m_columns, ' ') + "\r");
}

void Progress::show(uint64_t done, uint64_t total) {
    const auto now = std::chrono::steady_clock::now();
    if (!m_isShown || now < m_nextTime) return;
    m_nextTime = now + between;
    std::string line = fmt::format("{} {:.1f} MB", m_what, static_cast<double>(done) / 1e6);
    if (total != 0) line += fmt::format(" of {:.1f} MB ({} %)", static_cast<double>(total) / 1e6, done * 100 / total);
    const unsigned width = internal::getTerminalWidth(StandardStream::Error);
    if (width != 0) line.resize(std::min<size_t>(line.size(), width - 1));
    const size_t rest = std::max(m_columns, line.size()) - line.size();
    m_columns = line.size();
    internal::writeStandardError("\r" + line + std::string(rest, ' ') + std::string(rest, '\b'));
}

} // namespace kiv::app
