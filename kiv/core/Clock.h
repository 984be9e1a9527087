#pragma once

#include "kiv/platform/Compiler.h"
#include <atomic>
#include <cstdint>
#include <string>

namespace kiv {

// Where the library takes its time from. Any thread may ask; what current() returns lives as long as it is installed.
class KIV_API Clock {
public:
    // The installed clock: the system's, unless a ManualClock has taken its place.
    static Clock& current();

    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock();

    // Steady, from an arbitrary start; never wraps.
    virtual int64_t getMilliseconds() const;
    // The same as a 32-bit count, which wraps every 49.7 days: compare two of them by timeDifference() only.
    uint32_t getTime() const { return static_cast<uint32_t>(getMilliseconds()); }
    // Milliseconds from `earlier` to `later`, negative when it is the other way round; right up to 24.8 days.
    static int32_t timeDifference(uint32_t later, uint32_t earlier) { return static_cast<int32_t>(later - earlier); }
    // Microseconds since 1970-01-01T00:00:00Z.
    virtual int64_t getUtcMicroseconds() const;
    // The same, but later than every one this clock gave before: names for records.
    int64_t getUniqueUtcMicroseconds();

protected:
    // Installs `clock` and returns the one installed before.
    static Clock* exchangeCurrent(Clock* clock);

private:
    std::atomic<int64_t> m_lastUnique{INT64_MIN};
};

// A clock that stands still until it is told to move. It is the current clock while it lives; several nest like scopes.
class KIV_API ManualClock : public Clock {
public:
    explicit ManualClock(int64_t milliseconds = 0, int64_t utcMicroseconds = 0);
    ~ManualClock() override;

    // Moves both times on.
    void advance(int64_t milliseconds);
    void setUtcMicroseconds(int64_t microseconds) { m_utcMicroseconds = microseconds; }

    int64_t getMilliseconds() const override { return m_milliseconds; }
    int64_t getUtcMicroseconds() const override { return m_utcMicroseconds; }

private:
    std::atomic<int64_t> m_milliseconds;
    std::atomic<int64_t> m_utcMicroseconds;
    Clock* m_previous;
};

// "2024-02-29T13:05:09.042Z" for microseconds since 1970; rounds down to milliseconds. The year 10 BC is "-0009".
KIV_API std::string utcTimeText(int64_t utcMicroseconds);

} // namespace kiv
