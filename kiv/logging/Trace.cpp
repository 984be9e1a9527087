#include "kiv/logging/Trace.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileReplacement.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace kiv {
namespace {

struct Event {
    const char* category;
    const char* name;
    int64_t begin;       // nanoseconds
    uint64_t identifier; // of an asynchronous span; of others the duration in nanoseconds
    std::unique_ptr<std::string> text;
    uint32_t thread;
    char phase; // as in the file
};

// Threads spread over several, so that they seldom wait for each other.
struct Shard {
    std::mutex mutex;
    std::deque<Event> events;
};

struct Recorder {
    std::array<Shard, 16> shards;
    std::atomic<size_t> limit{0};
    std::atomic<size_t> count{0}; // those kept and those about to be
    std::atomic<size_t> dropped{0};
    std::atomic<int64_t> start{INT64_MIN};
    std::atomic<uint64_t> identifiers{0};
    std::atomic<uint32_t> threads{0};

    std::mutex mutex; // guards the names, and keeps start() and writeTo() apart; never taken within a shard's
    std::map<uint32_t, std::string> threadNames;
};

// Never destroyed: threads may record until the end of the process.
Recorder& recorder() {
    static Recorder& instance = *new Recorder;
    return instance;
}

uint32_t ownThread() {
    thread_local uint32_t number = 0;
    if (number == 0) number = ++recorder().threads;
    return number;
}

// What began before the start belongs to no recording or to an earlier one. That is asked within the lock, for start()
// sets the time before it clears the shards.
void add(Event event) {
    Recorder& r = recorder();
    if (r.count.fetch_add(1, std::memory_order_relaxed) < r.limit.load(std::memory_order_relaxed)) {
        Shard& shard = r.shards[event.thread % r.shards.size()];
        const std::lock_guard lock(shard.mutex);
        try {
            if (event.begin >= r.start) return shard.events.push_back(std::move(event)), void();
        } catch (const std::bad_alloc&) {
            ++r.dropped;
        }
    } else {
        ++r.dropped;
    }
    --r.count;
}

// The file as it grows, in pieces.
class TraceFile {
public:
    explicit TraceFile(const std::string& path) : m_file(path) {}

    template <class... Arguments>
    void print(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(m_text), format, std::forward<Arguments>(arguments)...);
        if (m_text.size() > 0x10000) flush();
    }
    // On a line of its own, behind a comma where one is due.
    void beginEvent() { print("{}", std::exchange(m_separator, ",\n")); }
    bool commit() {
        flush();
        return m_file.getFailure().empty() && m_file.commit();
    }
    const std::string& getFailure() const { return m_file.getFailure(); }

private:
    void flush() {
        m_file.write(m_text.data(), m_text.size());
        m_text.clear();
    }

    platform::FileReplacement m_file;
    std::string m_text;
    const char* m_separator = "";
};

// With its quotes; bytes that are no UTF-8 become replacement characters.
std::string jsonText(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

void writeEvent(TraceFile& file, const Event& event, int64_t start) {
    file.beginEvent();
    file.print(R"({{"ph":"{}","cat":{},"name":{},"pid":1,"tid":{},"ts":{:.3f})", event.phase, jsonText(event.category),
               jsonText(event.name), event.thread, static_cast<double>(event.begin - start) / 1000);
    if (event.phase == 'X')
        file.print(R"(,"dur":{:.3f})", static_cast<double>(event.identifier) / 1000);
    else if (event.phase == 'i')
        file.print(R"(,"s":"t")");
    else
        file.print(R"(,"id":"{:#x}")", event.identifier);
    if (event.text) file.print(R"(,"args":{{"text":{}}})", jsonText(*event.text));
    file.print("}}");
}

// In portions, so that nobody who records waits for long; elements of a deque stay where they are, but its index not.
void writeEvents(TraceFile& file, Shard& shard, int64_t start) {
    constexpr size_t portion = 256;
    for (size_t begin = 0;; begin += portion) {
        std::vector<Event*> events;
        {
            const std::lock_guard lock(shard.mutex);
            for (size_t i = begin; i < std::min(begin + portion, shard.events.size()); ++i)
                events.push_back(&shard.events[i]);
        }
        for (const Event* event : events) writeEvent(file, *event, start);
        if (events.size() < portion) return;
    }
}

} // namespace

const size_t Trace::defaultLimit = 1000000;
std::atomic<bool> Trace::s_isOn{false};

void Trace::start() {
    start(defaultLimit);
}

void Trace::start(size_t limit) {
    Recorder& r = recorder();
    const std::lock_guard lock(r.mutex);
    s_isOn = false;
    r.start = now();
    for (Shard& shard : r.shards) {
        const std::lock_guard shardLock(shard.mutex);
        r.count -= shard.events.size();
        shard.events.clear();
    }
    r.limit = limit;
    r.dropped = 0;
    s_isOn = true;
}

void Trace::stop() {
    s_isOn = false;
}

bool Trace::writeTo(const std::string& path) {
    Recorder& r = recorder();
    TraceFile file(path);
    {
        const std::lock_guard lock(r.mutex);
        file.print("{{\"displayTimeUnit\":\"ms\",\"otherData\":{{\"dropped\":{}}},\"traceEvents\":[\n",
                   r.dropped.load());
        for (const auto& [thread, name] : r.threadNames) {
            file.beginEvent();
            file.print(R"({{"ph":"M","name":"thread_name","pid":1,"tid":{},"args":{{"name":{}}}}})", thread,
                       jsonText(name));
        }
        for (Shard& shard : r.shards) writeEvents(file, shard, r.start);
        file.print("\n]}}\n");
    }
    if (file.commit()) return true;
    logging::MessageStream(3, 2) << "[TRACE] " << path << " " << file.getFailure();
    return false;
}

size_t Trace::getNumberOfEvents() {
    size_t count = 0;
    for (Shard& shard : recorder().shards) {
        const std::lock_guard lock(shard.mutex);
        count += shard.events.size();
    }
    return count;
}

size_t Trace::getNumberOfDropped() {
    return recorder().dropped;
}

void Trace::setThreadName(std::string name) {
    constexpr size_t mostNames = 10000; // those of threads that have ended stay, for their events do
    Recorder& r = recorder();
    const uint32_t thread = ownThread();
    const std::lock_guard lock(r.mutex);
    if (r.threadNames.size() >= mostNames) r.threadNames.erase(r.threadNames.begin());
    r.threadNames[thread] = std::move(name);
}

void Trace::instant(const char* category, const char* name, std::string_view text) {
    if (isOn()) add({category, name, now(), 0, copyOf(text), ownThread(), 'i'});
}

uint64_t Trace::newIdentifier() {
    return ++recorder().identifiers;
}

void Trace::beginAsync(const char* category, const char* name, uint64_t identifier, std::string_view text) {
    if (isOn()) add({category, name, now(), identifier, copyOf(text), ownThread(), 'b'});
}

void Trace::endAsync(const char* category, const char* name, uint64_t identifier) {
    if (isOn()) add({category, name, now(), identifier, nullptr, ownThread(), 'e'});
}

// Not of the Clock, which tests stop: a trace is about what really happened.
int64_t Trace::now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::unique_ptr<std::string> Trace::copyOf(std::string_view text) {
    try {
        return text.empty() ? nullptr : std::make_unique<std::string>(text.substr(0, 256));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void Trace::addSpan(const char* category, const char* name, int64_t begin, int64_t duration,
                    std::unique_ptr<std::string> text) {
    add({category, name, begin, static_cast<uint64_t>(duration), std::move(text), ownThread(), 'X'});
}

} // namespace kiv
