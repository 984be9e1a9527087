#include "kiv/logging/LogBackend.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/ConsolePrinter.h"
#include "kiv/logging/LogText.h"
#include "kiv/logging/MessageStream.h"
#include <iterator>
#include <vector>

namespace kiv::logging {
namespace {

constexpr std::string_view verboseTag = "[VERBOSE]";
constexpr std::string_view supportTag = "[SUPPORT]";

// A listener that logs whenever it is told of a message is told of its own messages so many times in a row.
constexpr int deepestNesting = 4;

constexpr size_t largeSupportBuffer = 262145;
constexpr int64_t oldSupportBuffer = 1800001;
constexpr int64_t quietSupportTime = 180001;
constexpr int64_t supportFlushInterval = 3600001;

struct NestedMessage {
    int level;
    int flags;
    int nesting;
    std::string text;
};

// `text` with its tag, which level 0 is found by.
bool isShownInConsole(std::string_view text) {
    return !g_hideVerboseOutputInConsole.load(std::memory_order_relaxed) || text.find(verboseTag) == text.npos;
}

// A listener's exception is its own loss: the message still reaches whoever comes after it.
template <class... Parameters, class... Arguments>
void tellListeners(const Signal<void(Parameters...)>& signal, Arguments... arguments) {
    try {
        signal.emit(arguments...);
    } catch (...) {
    }
}

// "[%7.3f] " of the seconds, or with angle brackets. By hand, as every line on the console pays for it.
std::string_view formatStamp(int64_t milliseconds, bool alternative,
                             char (&buffer)[kiv::internal::LogText::stampRoom]) {
    constexpr std::ptrdiff_t width = 7;
    char* const end = std::end(buffer);
    char* at = end;
    *--at = ' ';
    *--at = alternative ? '>' : ']';
    const char* const numberEnd = at;
    uint64_t magnitude = static_cast<uint64_t>(milliseconds);
    if (milliseconds < 0) magnitude = 0 - magnitude;
    for (int digits = 0; digits < 5 || magnitude != 0; ++digits) {
        if (digits == 3) {
            *--at = '.';
            continue;
        }
        *--at = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    }
    if (milliseconds < 0) *--at = '-';
    while (numberEnd - at < width) *--at = ' ';
    *--at = alternative ? '<' : '[';
    return {at, static_cast<size_t>(end - at)};
}

} // namespace

// Lives on the stack of a thread while it publishes; collects what listeners log meanwhile.
struct LogBackend::Publishing {
    std::vector<NestedMessage> nested;
    int nesting = 0;

    // What this thread publishes at the moment, under the backend's mutex. A plain pointer: it needs no destruction
    // when the thread ends, so destructors that run then may still log.
    static thread_local Publishing* current;

    struct Scope {
        explicit Scope(Publishing& publishing) { current = &publishing; }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope() { current = nullptr; }
    };

    static bool refuse(const char* function) {
        if (!current) return false;
        MessageStream(3, StoredFlag) << "[LOG] " << function << " was called by a listener and is ignored";
        return true;
    }
};

thread_local LogBackend::Publishing* LogBackend::Publishing::current = nullptr;

LogBackend& LogBackend::instance() {
    // Never destroyed: threads and static objects may log until the process ends.
    static LogBackend& backend = *new LogBackend;
    return backend;
}

void LogBackend::registerBackend(bool storeMessages) {
    if (Publishing::refuse("registerBackend")) return;
    LogBackend& backend = instance();
    const std::lock_guard lock(backend.m_mutex);
    backend.m_storeMessages = storeMessages;
    if (backend.m_isRegistered) return;
    backend.m_startMilliseconds = Clock::current().getMilliseconds();
    backend.m_lastSupportFlush = 0;
    backend.m_hasWarnedOfFullQueue = false;
    backend.m_isRegistered = true;
}

void LogBackend::unregisterBackend() {
    if (Publishing::refuse("unregisterBackend")) return;
    LogBackend& backend = instance();
    Queue dropped[2];
    {
        const std::lock_guard lock(backend.m_mutex);
        backend.m_isRegistered = false;
        backend.m_storeMessages = false;
        for (unsigned i = 0; i < 2; ++i) dropped[i].swap(backend.m_queues[i]);
        backend.m_support.clear();
    }
    // Outside the mutex: what listeners hold may log as it dies.
    backend.m_newLogMessage.disconnectAll();
    backend.m_newSupportMessage.disconnectAll();
}

Signal<void(int, const char*)>& LogBackend::getSignalNewLogMessage() {
    return instance().m_newLogMessage;
}

Signal<void(const char*)>& LogBackend::getSignalNewSupportMessage() {
    return instance().m_newSupportMessage;
}

void LogBackend::setQueueLimit(size_t messages) {
    if (Publishing::refuse("setQueueLimit")) return;
    const std::lock_guard lock(instance().m_mutex);
    instance().m_queueLimit = messages;
}

bool LogBackend::isSeenByNobody(int flags) {
    if (!g_hideVerboseOutputInConsole.load(std::memory_order_relaxed)) return false;
    const LogBackend& backend = instance();
    if (!backend.m_isRegistered.load(std::memory_order_relaxed)) return true;
    if ((flags & (AlternativeFlag | StoredFlag)) && backend.m_storeMessages.load(std::memory_order_relaxed))
        return false;
    return !backend.m_newLogMessage.hasListeners() && !backend.m_newSupportMessage.hasListeners();
}

void LogBackend::publish(int level, int flags, kiv::internal::LogText& text) noexcept {
    try {
        if (Publishing* outer = Publishing::current) {
            outer->nested.push_back({level, flags, outer->nesting + 1, std::string(text.getText())});
            return;
        }
        Publishing publishing;
        instance().publishOne(level, flags, text, publishing);
        instance().publishNested(publishing);
    } catch (...) {
        // Out of memory, or a mutex that can't be locked: the caller must not notice.
    }
}

void LogBackend::publishNested(Publishing& publishing) {
    for (size_t i = 0; i < publishing.nested.size(); ++i) {
        const NestedMessage message = std::move(publishing.nested[i]);
        publishing.nesting = message.nesting;
        kiv::internal::LogText text;
        text.append(message.text);
        publishOne(message.level, message.flags, text, publishing);
    }
}

void LogBackend::publishOne(int level, int flags, kiv::internal::LogText& text, Publishing& publishing) {
    const bool isShown = isShownInConsole(text.getText());
    std::unique_lock lock(m_mutex);
    if (!m_isRegistered) {
        lock.unlock();
        if (isShown) kiv::internal::printLines(text.getLine({}));
        return;
    }
    const Publishing::Scope scope(publishing);
    if (isShown) printLine(flags, text);
    if (publishing.nesting <= deepestNesting) tellListeners(m_newLogMessage, level, text.getCText());
    if (m_storeMessages) enqueue(flags, text.getText());
    collectForSupport(flags, text.getText());
}

void LogBackend::printLine(int flags, kiv::internal::LogText& text) const {
    char buffer[kiv::internal::LogText::stampRoom];
    std::string_view stamp;
    if (!g_hideTimeInConsole.load(std::memory_order_relaxed)) {
        stamp = formatStamp(getMillisecondsSinceStart(), (flags & AlternativeFlag) != 0, buffer);
    }
    kiv::internal::printLines(text.getLine(stamp));
}

void LogBackend::enqueue(int flags, std::string_view text) {
    for (unsigned i = 0; i < 2; ++i) {
        if (!(flags & (i == 0 ? AlternativeFlag : StoredFlag))) continue;
        m_queues[i].push_back(std::make_unique<LogMessage>(Clock::current().getUtcMicroseconds(), text));
        if (m_queues[i].size() <= m_queueLimit) continue;
        while (m_queues[i].size() > m_queueLimit) m_queues[i].pop_front();
        if (std::exchange(m_hasWarnedOfFullQueue, true)) continue;
        MessageStream(2, StoredFlag) << "[LOG] the log database takes no messages, the oldest are dropped";
    }
}

std::unique_ptr<LogMessage> LogBackend::takeOldest(unsigned queue) {
    if (queue >= 2 || Publishing::refuse("flushTo")) return nullptr;
    const std::lock_guard lock(instance().m_mutex);
    Queue& messages = instance().m_queues[queue];
    if (messages.empty()) return nullptr;
    std::unique_ptr<LogMessage> oldest = std::move(messages.front());
    messages.pop_front();
    return oldest;
}

void LogBackend::putBack(unsigned queue, std::unique_ptr<LogMessage> message) noexcept {
    try {
        const std::lock_guard lock(instance().m_mutex);
        // Unregistered meanwhile: it would have been dropped with the others.
        if (instance().m_isRegistered) instance().m_queues[queue].push_front(std::move(message));
    } catch (...) {
        // Out of memory: it is lost.
    }
}

void LogBackend::collectForSupport(int flags, std::string_view text) {
    if (!m_newSupportMessage.hasListeners()) return;
    const size_t position = text.find(supportTag);
    if (!(flags & SupportFlag) && (position == 0 || position == text.npos)) return;
    const int64_t now = getMillisecondsSinceStart();
    if (m_support.empty()) m_firstSupportAppend = now;
    m_lastSupportAppend = now;
    m_support += utcTimeText(Clock::current().getUtcMicroseconds());
    m_support += ' ';
    m_support += text.substr(0, text.find('\0')); // listeners get a C string: what follows would be lost to them
    m_support += '\n';
}

bool LogBackend::isSupportDue(int64_t now) const {
    if (m_support.size() >= largeSupportBuffer || now - m_firstSupportAppend >= oldSupportBuffer) return true;
    return now - m_lastSupportAppend >= quietSupportTime && now - m_lastSupportFlush >= supportFlushInterval;
}

void LogBackend::processSupportMessages() {
    if (Publishing::refuse("processSupportMessages")) return;
    LogBackend& backend = instance();
    Publishing publishing;
    {
        const std::lock_guard lock(backend.m_mutex);
        const int64_t now = backend.getMillisecondsSinceStart();
        if (backend.m_support.empty() || !backend.isSupportDue(now)) return;
        const Publishing::Scope scope(publishing);
        tellListeners(backend.m_newSupportMessage, backend.m_support.c_str());
        backend.m_support.clear();
        backend.m_lastSupportFlush = now;
    }
    backend.publishNested(publishing);
}

int64_t LogBackend::getMillisecondsSinceStart() const {
    return Clock::current().getMilliseconds() - m_startMilliseconds;
}

} // namespace kiv::logging
