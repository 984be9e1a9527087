#pragma once

#include "kiv/platform/Compiler.h"
#include <string_view>

namespace kiv::internal {

enum class StandardStream { Input, Output, Error };

// Writes all of `text` to standard output with one write under the C library's lock on the stream, after what the
// program has printed by other means; nothing stays buffered. False when it could not be written. Any thread. On
// Windows a console is switched to UTF-8 first, and a stream in text mode (the default) puts a CR before every LF.
KIV_API bool writeStandardOutput(std::string_view text);

// The same for standard error, which has no sink.
KIV_API bool writeStandardError(std::string_view text);

KIV_API bool isTerminal(StandardStream stream);

// Columns of the terminal behind `stream`; 0 when it is none.
KIV_API unsigned getTerminalWidth(StandardStream stream);

enum class TerminalColors { None, Palette256, Rgb };

// Which colours can be asked for by escape sequences, which a Windows console is told to obey then. None when the
// stream is no terminal, or the user wants no colours (NO_COLOR).
KIV_API TerminalColors getTerminalColors(StandardStream stream);

// Receives what would go to standard output; calls come one at a time, on the writing thread.
class KIV_API OutputSink {
public:
    virtual ~OutputSink();
    virtual bool write(std::string_view text) = 0;
};

// Redirects writeStandardOutput to `sink` until called with null, for tests and embedding programs; returns the sink
// installed before. Once this returns, no call to that one is running.
KIV_API OutputSink* setStandardOutputSink(OutputSink* sink);

} // namespace kiv::internal
