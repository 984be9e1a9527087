#include "kiv/script/VMThreads.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/Call.h"
#include "kiv/script/HostCall.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/Watchdog.h"

#include <algorithm>

namespace kivSq {
namespace {

using kiv::logging::MessageStream;

constexpr SQInteger threadStack = 256;
constexpr unsigned endedBeforeCollection = 10'000;

// Sets a variable for a scope.
template <class T>
class Scoped {
public:
    Scoped(T& variable, T value) : m_variable(variable) { variable = value; }
    Scoped(const Scoped&) = delete;
    Scoped& operator=(const Scoped&) = delete;
    ~Scoped() { m_variable = T(); }

private:
    T& m_variable;
};

} // namespace

// ---- The list.

VM::Thread& VM::Threads::create(const Object& closure, ThreadEnd onEnd, AsyncQueue* queue) {
    const StackGuard guard(m_vm);
    const uint64_t number = ++m_lastNumber;
    Thread& thread = m_threads[number];
    thread.number = number;
    thread.engine = sq_newthread(m_vm, threadStack);
    thread.handle = Object(m_vm, -1);
    thread.queue = queue;
    thread.onEnd = std::move(onEnd);
    VM::seterrorhandlers(thread.engine);
    closure.push(thread.engine);
    sq_pushroottable(thread.engine);
    m_awake[number] = &thread;
    return thread;
}

void VM::Threads::runPass() {
    if (m_isInPass || m_threads.empty()) return;
    {
        const Scoped pass(m_isInPass, true);
        uint64_t place = 0;
        while (Thread* thread = findNext(place)) {
            place = thread->number;
            run(*thread);
        }
    }
    if (m_ended < endedBeforeCollection || isEngineGone() || getIdleTime(1) == 0) return;
    m_ended = 0;
    collectGarbage();
}

// Nothing runs meanwhile, whatever the release hooks do.
int64_t VM::Threads::collectGarbage() {
    const Scoped pass(m_isInPass, true);
    return sq_collectgarbage(m_vm);
}

// The first one behind that place.
VM::Thread* VM::Threads::findNext(uint64_t place) {
    if (isEngineGone()) return nullptr;
    // Each time, for it gets later as the pass goes on.
    releaseSleepers();
    const auto found = m_awake.upper_bound(place);
    return found == m_awake.end() ? nullptr : found->second;
}

void VM::Threads::releaseSleepers() {
    if (m_sleepers.empty()) return;
    const int64_t time = now();
    while (!m_sleepers.empty() && m_sleepers.begin()->first.first < time) {
        Thread* const thread = m_sleepers.begin()->second;
        m_sleepers.erase(m_sleepers.begin());
        m_awake[thread->number] = thread;
    }
}

unsigned VM::Threads::getIdleTime(unsigned longest) {
    int64_t time = longest;
    for (const auto& [number, thread] : m_awake) {
        if (thread->condition.getKind() != WakeCondition::Kind::Function) return 0;
        time = std::min<int64_t>(time, 1);
    }
    // Strictly after their time they wake.
    if (!m_sleepers.empty()) time = std::min(time, m_sleepers.begin()->first.first + 1 - now());
    return static_cast<unsigned>(std::max<int64_t>(time, 0));
}

void VM::Threads::wakeThreadsOf(const AsyncQueue& queue) {
    for (auto& [number, thread] : m_threads) {
        if (thread.queue != &queue || !thread.condition) continue;
        m_sleepers.erase({thread.wakeTime, number});
        m_awake[number] = &thread;
    }
}

void VM::Threads::watchAll() {
    internal::watch(m_vm);
    for (auto& [number, thread] : m_threads) internal::watch(thread.engine);
}

int64_t VM::Threads::now() {
    const uint32_t time = kiv::Clock::current().getTime();
    m_now += kiv::Clock::timeDifference(time, std::exchange(m_lastTime, time));
    return m_now;
}

// A script may have destroyed the VM, which leaves engine and list as they are.
bool VM::Threads::isEngineGone() const {
    return internal::currentEngine() != m_vm;
}

// ---- One thread.

void VM::Threads::run(Thread& thread) {
    const Scoped current(m_current, &thread);
    Answer answer = Answer::Wake;
    const bool isNew = !thread.condition;
    if (!isNew) {
        answer = ask(thread);
        if (answer == Answer::NotYet || isEngineGone()) return;
        // Before it runs: it may get a new one.
        thread.condition = {};
    }
    const bool isGood =
        isNew ? internal::callTop(thread.engine, thread.argumentCount, bool(thread.onEnd)) : resume(thread, answer);
    if (isEngineGone()) return;
    if (sq_getvmstate(thread.engine) == SQ_VMSTATE_SUSPENDED) {
        if (thread.onEnd) sq_poptop(thread.engine); // what it has suspended with
        if (!thread.condition) thread.condition = WakeCondition::nextPass();
        park(thread);
        return;
    }
    if (!isGood) MessageStream(3, 2) << "squirrel thread failed " << (isNew ? "(call)" : "(wake)");
    finish(thread, isGood && thread.onEnd ? Object(thread.engine, -1) : Object(), isGood);
}

// Leaves a value for the script on its stack, or an error.
VM::Threads::Answer VM::Threads::ask(const Thread& thread) const {
    SQVM* const v = thread.engine;
    if (thread.condition.getKind() != WakeCondition::Kind::Function) {
        sq_pushnull(v);
        return Answer::Wake;
    }
    const SQInteger top = sq_gettop(v);
    Answer answer = Answer::NotYet;
    const SQInteger result = internal::guarded(v, [&]() -> SQInteger {
        if (thread.condition.ask(v)) answer = Answer::Wake;
        return 0;
    });
    if (result != 0) answer = Answer::Throw;
    if (answer == Answer::Wake && sq_gettop(v) == top) sq_pushnull(v);
    sq_settop(v, answer == Answer::Wake ? top + 1 : top);
    return answer;
}

bool VM::Threads::resume(Thread& thread, Answer answer) const {
    const internal::WatchedGo go;
    const SQBool hasValue = answer == Answer::Wake ? SQTrue : SQFalse;
    const SQBool wantsResult = thread.onEnd ? SQTrue : SQFalse;
    return SQ_SUCCEEDED(sq_wakeupvm(thread.engine, hasValue, wantsResult, SQTrue, !hasValue));
}

// Where it stands while it waits.
void VM::Threads::park(Thread& thread) {
    const WakeCondition::Kind kind = thread.condition.getKind();
    const bool isSleep = kind == WakeCondition::Kind::Time || kind == WakeCondition::Kind::Never;
    if (!isSleep || isCurrentAborting()) return; // among those that are awake
    if (kind == WakeCondition::Kind::Time) {
        const int64_t time = now();
        thread.wakeTime = time + kiv::Clock::timeDifference(thread.condition.getTime(), m_lastTime);
        m_sleepers[{thread.wakeTime, thread.number}] = &thread;
    }
    m_awake.erase(thread.number);
}

void VM::Threads::finish(Thread& thread, const Object& result, bool isGood) {
    ++m_ended;
    m_current = nullptr;
    if (thread.queue) thread.queue->onThreadEnd();
    m_awake.erase(thread.number);
    // It goes when it is out of the list: release hooks of what it has held may come back here.
    const auto ended = m_threads.extract(thread.number);
    if (!thread.onEnd) return;
    try {
        thread.onEnd(result, isGood);
    } catch (const std::exception& failure) {
        MessageStream(3, 2) << "[SQ] the listener for a thread's end has failed: " << failure.what();
    } catch (...) {
        MessageStream(3, 2) << "[SQ] the listener for a thread's end has failed";
    }
}

// ---- For natives.

bool VM::Threads::isCurrentAborting() const {
    return m_current && m_current->queue && m_current->queue->isAborting();
}

SQInteger VM::Threads::suspend(SQVM* v, WakeCondition condition) {
    if (!m_current || m_current->engine != v) return 0;
    const SQInteger result = sq_suspendvm(v);
    // Not inside of array.map() or a metamethod.
    if (result != SQ_ERROR) m_current->condition = std::move(condition);
    return result;
}

} // namespace kivSq
