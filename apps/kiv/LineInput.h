#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace kiv::app {

// Lines from the user, or from a file or pipe. Threads: one reads; cancel() is for any.
class LineInput {
public:
    enum class Result { Line, TooLong, Cancelled, End };
    static constexpr size_t longestLine = 65536;

    virtual ~LineInput();
    // Waits for a line, which it gives without its end. A prompt is shown only to a user.
    virtual Result read(const std::string& prompt, std::string& line) = 0;
    // Ends a read() in progress, where that is possible, for good.
    virtual void cancel() {}
};

// Lines as the terminal or the console edits them.
std::unique_ptr<LineInput> makePlainInput();
// With editing, and with a history that is kept in a file of the user's. Null where the library for that is missing,
// or standard input or output is no terminal.
std::unique_ptr<LineInput> makeEditedInput();

} // namespace kiv::app
