#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/platform/Waker.h"

#include <atomic>
#include <cstddef>

namespace kiv::internal {

// Waits until there is something on standard input and reads it, at most `size` bytes, as they are: no line ends are
// converted. 0 at the end. What the program has read by std::cin or stdin is not seen here any more. One thread at a
// time.
KIV_API size_t readStandardInput(char* to, size_t size);

// Lets one thread wait for standard input until another one ends the waiting.
class KIV_API InputWait {
public:
    InputWait() = default;
    InputWait(const InputWait&) = delete;
    InputWait& operator=(const InputWait&) = delete;

    // Waits until readStandardInput() finds something, or the end; false once cancel() was called. An InputSource
    // counts as ready at any time.
    bool wait();
    // For good. What is read from a Windows console stays until the line is complete.
    void cancel();

private:
    bool waitForSystem();

    std::atomic<bool> m_isCancelled{false};
    platform::Waker m_waker;
};

// What stands in for standard input; like readStandardInput.
class KIV_API InputSource {
public:
    virtual ~InputSource();
    virtual size_t read(char* to, size_t size) = 0;
};

// Makes readStandardInput read from `source` until called with null, for tests and embedding programs; returns the
// source installed before. Not while a read is running.
KIV_API InputSource* setStandardInputSource(InputSource* source);

} // namespace kiv::internal
