#include "kiv/platform/Console.h"

#include "kiv/platform/StandardStreams.h"
#include <atomic>
#include <mutex>

namespace kiv::internal {
namespace {

// Changed under the mutex, which also keeps the sink's calls apart; read without it only to pass by when there is none.
std::atomic<OutputSink*> g_sink{nullptr};

// Never destroyed: static objects may print until the process ends.
std::mutex& sinkMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

} // namespace

OutputSink::~OutputSink() = default;

bool writeStandardOutput(std::string_view text) {
    if (g_sink.load(std::memory_order_acquire)) {
        const std::lock_guard lock(sinkMutex());
        if (OutputSink* sink = g_sink.load(std::memory_order_relaxed)) return sink->write(text);
    }
    return writeToStandardOutput(text);
}

OutputSink* setStandardOutputSink(OutputSink* sink) {
    const std::lock_guard lock(sinkMutex());
    return g_sink.exchange(sink);
}

} // namespace kiv::internal
