// What is the same on every system.

#include "kiv/platform/ChildProcess.h"

#include "kiv/platform/Waker.h"

#include <algorithm>

namespace kiv::platform {

void ChildProcess::wait(unsigned milliseconds, bool isWriting, Waker* waker) {
    if (waker && !waker->beginWait()) return;
    waitForPipes(milliseconds, isWriting, waker);
    if (waker) waker->endWait();
}

namespace {

// As programs on Windows take an argument apart: backslashes stand for themselves, except before a double quote.
std::string enclosed(const std::string& argument) {
    std::string text = "\"";
    size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') text.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, '\\') + '"';
}

} // namespace

std::string joinArguments(const std::vector<std::string>& arguments) {
    std::string text;
    for (const std::string& argument : arguments) {
        const bool needsQuotes = argument.empty() || argument.find_first_of(" \t\"") != argument.npos;
        if (&argument != &arguments.front()) text += ' ';
        text += needsQuotes && !argument.starts_with('"') ? enclosed(argument) : argument;
    }
    return text;
}

bool ChildStart::isValid() const {
    const auto hasZero = [](const std::string& text) { return text.find('\0') != text.npos; };
    return !path.empty() && !hasZero(path) && std::none_of(arguments.begin(), arguments.end(), hasZero);
}

ChildProcess::~ChildProcess() {
    for (const Pipe pipe : {Input, Output, Error}) close(pipe);
    if (isStarted()) release();
    collectReleased();
}

} // namespace kiv::platform
