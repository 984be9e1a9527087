#pragma once

#include "kiv/platform/Compiler.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kiv {

// Records what the threads of the process did when, for viewers of Chrome trace events; doc/formats/trace.md has the
// form. While it is off, recording costs one relaxed load. What is recorded stays in memory until the next start();
// beyond the limit events are only counted. Names and categories are string literals: they are kept as pointers. Texts
// are copied, up to 256 bytes of them.
// Threads: any. Recording never fails: an event for which there is no memory is counted as dropped.
class KIV_API Trace {
public:
    // The most events kept, unless start() is told otherwise; without texts about 64 bytes each.
    static const size_t defaultLimit;

    // Forgets what was recorded before and begins at time 0.
    static void start();
    static void start(size_t limit);
    static void stop();
    static bool isOn() { return s_isOn.load(std::memory_order_relaxed); }

    // Puts all there is so far into the file at this UTF-8 path, in place of an old one; may be called while it is on.
    // False on failure, which is logged.
    static bool writeTo(const std::string& path);
    static size_t getNumberOfEvents();
    static size_t getNumberOfDropped();

    // Names the calling thread, also in traces to come.
    static void setThreadName(std::string name);

    static void instant(const char* category, const char* name, std::string_view text = {});
    // A span that begins and ends anywhere, on the same thread or not. What belongs together has the same category,
    // name and identifier.
    static uint64_t newIdentifier();
    static void beginAsync(const char* category, const char* name, uint64_t identifier, std::string_view text = {});
    static void endAsync(const char* category, const char* name, uint64_t identifier);

    // For those who measure anyway: nanoseconds of the clock of traces, and a span that began at such a time.
    static int64_t now();
    static void span(const char* category, const char* name, int64_t begin, int64_t duration) {
        if (isOn()) addSpan(category, name, begin, duration, nullptr);
    }

private:
    friend class TraceSpan;

    static std::unique_ptr<std::string> copyOf(std::string_view text);
    static void addSpan(const char* category, const char* name, int64_t begin, int64_t duration,
                        std::unique_ptr<std::string> text);

    static std::atomic<bool> s_isOn;
};

// The time in which a block of code ran. Spans of one thread nest. One that began before start() is left out.
//     TraceSpan span("pump", "Tick");
class TraceSpan {
public:
    TraceSpan(const char* category, const char* name) : m_category(category), m_name(name) {
        if (Trace::isOn()) m_begin = Trace::now();
    }
    TraceSpan(const char* category, const char* name, std::string_view text) : TraceSpan(category, name) {
        if (isRecorded()) setText(text);
    }
    TraceSpan(const TraceSpan&) = delete;
    TraceSpan& operator=(const TraceSpan&) = delete;
    ~TraceSpan() {
        if (isRecorded() && Trace::isOn())
            Trace::addSpan(m_category, m_name, m_begin, Trace::now() - m_begin, std::move(m_text));
    }

    // To spare the making of a text that goes nowhere.
    bool isRecorded() const { return m_begin != notRecorded; }
    void setText(std::string_view text) {
        if (isRecorded()) m_text = Trace::copyOf(text);
    }

private:
    static constexpr int64_t notRecorded = INT64_MIN;

    const char* const m_category;
    const char* const m_name;
    int64_t m_begin = notRecorded; // nanoseconds
    std::unique_ptr<std::string> m_text;
};

} // namespace kiv
