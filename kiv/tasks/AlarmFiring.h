#pragma once

#include "kiv/tasks/Alarm.h"

namespace kiv {

// A call of an alarm's callback in progress, on the stack of the caller, who learns by it that the alarm has died.
struct Alarm::Firing {
    Firing* const outer; // of the same alarm
    bool isAlarmGone = false;
};

} // namespace kiv
