#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/script/AsyncQueue.h"
#include "kiv/script/VM.h"

#include <functional>
#include <utility>

namespace kivSq {

// What a script thread waits for. Those that wait for a time or for ever cost nothing until then; a function is asked
// once a pass.
class WakeCondition {
public:
    enum class Kind { None, NextPass, Time, Never, Function };

    WakeCondition() = default;
    static WakeCondition nextPass() { return WakeCondition(Kind::NextPass); }
    // Strictly after that time of the millisecond clock; at once when the thread's queue is aborted.
    static WakeCondition after(uint32_t time) {
        WakeCondition condition(Kind::Time);
        condition.m_time = time;
        return condition;
    }
    // Until the thread's queue is aborted; without a queue for good.
    static WakeCondition never() { return WakeCondition(Kind::Never); }
    // Until it returns true. Then it has pushed one value on the engine VM it is given, what the script gets, or none
    // for null. What it throws is a script error in the thread. It is destroyed before the thread goes on.
    explicit WakeCondition(std::function<bool(SQVM*)> function)
        : m_kind(Kind::Function), m_function(std::move(function)) {}

    explicit operator bool() const { return m_kind != Kind::None; }
    Kind getKind() const { return m_kind; }
    uint32_t getTime() const { return m_time; }
    bool ask(SQVM* v) const { return m_function(v); }

private:
    explicit WakeCondition(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::None;
    uint32_t m_time = 0;
    std::function<bool(SQVM*)> m_function;
};

} // namespace kivSq
