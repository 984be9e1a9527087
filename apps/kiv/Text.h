#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kiv::app {

// A place in a text as people count: lines and columns from 1, columns in code points.
struct Place {
    size_t line = 1;
    size_t column = 1;
};
Place placeOf(std::string_view text, size_t offset);

// The part of its line around `offset`, and below it a line with a caret there, both indented and with a line feed.
// Control characters are replaced.
std::string excerptOf(std::string_view text, size_t offset);

// Without control characters, so that it can neither break a line nor command a terminal. What is already there of
// them becomes an escape sequence of JSON ("\u001b") or, in any other text, of C ("\x1B", "\n").
std::string withoutControlsInJSON(std::string_view json, bool keepLineFeeds);
std::string withoutControls(std::string_view text);

// Collects standard output in large pieces, so that long listings stream without a system call a line.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { flush(); }

    void write(std::string_view text);
    // Before anything goes to standard error, so that both stay in order on a terminal.
    void flush();
    // False once a write has failed.
    bool isGood() const { return m_isGood; }

private:
    std::string m_waiting;
    bool m_isGood = true;
};

} // namespace kiv::app
