#pragma once

#include "kiv/script/Engine.h"

// Ends scripts that run for too long, see VM::setWatchdog(). It is asked by the engine's debug hook, with each call of
// a script function and most lines, and by a function that is compiled into each loop, for a loop may have no line to
// itself. Main thread; nothing here throws.

namespace kivSq::internal {

extern unsigned watchdogLimit; // milliseconds; 0 while it is off

// A go of scripts: from where native code enters them until they come back. Another within it is part of it.
class WatchedGo {
public:
    WatchedGo() {
        if (watchdogLimit != 0) [[unlikely]]
            begin();
    }
    WatchedGo(const WatchedGo&) = delete;
    WatchedGo& operator=(const WatchedGo&) = delete;
    ~WatchedGo() {
        if (m_isCounted) [[unlikely]]
            end();
    }

private:
    void begin() noexcept;
    static void end() noexcept;

    bool m_isCounted = false;
};

// The function of loops, and its name in the root table.
inline constexpr char watchedLoop[] = "__kiv_watchLoop";
SQInteger watchLoop(SQVM* v);
// Has the engine VM or thread, and those that are made from it, called its hook, or no more, as the limit says.
void watch(SQVM* v) noexcept;
// For the error handler: what it is called for stands again at the place where it was interrupted.
void showInterruptedPlace(SQVM* v) noexcept;

} // namespace kivSq::internal
