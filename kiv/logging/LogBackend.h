#pragma once

#include "kiv/core/Signal.h"
#include "kiv/logging/LogMessage.h"
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace kiv {

class LogDB;

namespace internal {
class LogText;
}

namespace logging {

// What all messages of the process go through once it is registered: console lines with time stamps, listeners, queues
// for the log database and the support channel. Before and after, messages reach the console only, without stamp.
// Threads: any. Publishing holds one mutex, and listeners run on the logging thread while it is held: they are brief.
// What a listener logs is published after the message it was told of; calls of this class from a listener are refused.
class KIV_API LogBackend {
public:
    // Starts the clock of the console's time stamps unless registered already; decides whether messages are queued.
    static void registerBackend(bool storeMessages);
    // Drops queued messages, the support buffer and all listeners.
    static void unregisterBackend();

    // (level, text with its level tag); the text is valid during the call and ends at its first zero character.
    static Signal<void(int, const char*)>& getSignalNewLogMessage();
    // Gets several lines "2024-02-29T13:05:09.042Z text\n" at a time.
    static Signal<void(const char*)>& getSignalNewSupportMessage();

    // Hands the support buffer to the support listeners when it is large or old enough; called periodically.
    static void processSupportMessages();

    // Moves up to 512 queued messages into `db`, in one transaction, and returns how many; queue 0 holds those of flag
    // 1, queue 1 those of flag 2. What the store refuses by an exception stays queued. One thread at a time; others may
    // log meanwhile. Defined in store/LogFlush.cpp.
    static unsigned flushTo(unsigned queue, LogDB* db);

    // Messages a queue holds before it drops its oldest, 1048576 unless changed.
    static void setQueueLimit(size_t messages);

private:
    friend class MessageStream;
    friend struct LogBackendPeek; // of the tests
    struct Publishing;
    using Queue = std::deque<std::unique_ptr<LogMessage>>;

    LogBackend() = default;
    static LogBackend& instance();
    // True when a verbose message of these flags would reach neither console, listeners nor queues.
    static bool isSeenByNobody(int flags);
    // `text` begins with the level's tag.
    static void publish(int level, int flags, kiv::internal::LogText& text) noexcept;

    void publishOne(int level, int flags, kiv::internal::LogText& text, Publishing& publishing);
    void publishNested(Publishing& publishing);
    void printLine(int flags, kiv::internal::LogText& text) const;
    void enqueue(int flags, std::string_view text);
    void collectForSupport(int flags, std::string_view text);
    bool isSupportDue(int64_t now) const;
    // For flushTo(): out of the front of a queue, null when there is none, and back to it.
    static std::unique_ptr<LogMessage> takeOldest(unsigned queue);
    static void putBack(unsigned queue, std::unique_ptr<LogMessage> message) noexcept;
    int64_t getMillisecondsSinceStart() const;

    std::mutex m_mutex;
    Signal<void(int, const char*)> m_newLogMessage;
    Signal<void(const char*)> m_newSupportMessage;
    // Written under the mutex; read without it only to skip the formatting of lines that nobody would see.
    std::atomic<bool> m_isRegistered{false};
    std::atomic<bool> m_storeMessages{false};

    // All guarded by the mutex.
    int64_t m_startMilliseconds = 0;
    Queue m_queues[2];
    size_t m_queueLimit = 1048576;
    bool m_hasWarnedOfFullQueue = false;
    std::string m_support;
    int64_t m_firstSupportAppend = 0;
    int64_t m_lastSupportAppend = 0;
    int64_t m_lastSupportFlush = 0;
};

} // namespace logging
} // namespace kiv
