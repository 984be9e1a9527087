#include "kiv/script/Watchdog.h"

#include <chrono>
#include <cstdio>

// The hook can't fail, so it has the engine's next instruction do it. That takes the engine's own headers, in its
// order.
// clang-format off
#include <sqpcheader.h>
#include <sqopcodes.h>
#include <sqvm.h>
#include <sqfuncproto.h>
#include <sqclosure.h>
// clang-format on

namespace kivSq::internal {

unsigned watchdogLimit = 0;

namespace {

using Time = std::chrono::steady_clock;

constexpr unsigned eventsBetweenLooks = 32; // at the clock

unsigned g_goes = 0; // one within the other
unsigned g_events = 0;
bool g_isOver = false; // then each line fails, also those that catch it
Time::time_point g_begin;
SQInstruction g_throw[2]; // never gets behind the first
SQInstruction* g_interrupted = nullptr;

bool isOver() {
    if (g_isOver) return true;
    if (++g_events % eventsBetweenLooks != 0) return false;
    return g_isOver = Time::now() - g_begin > std::chrono::milliseconds(watchdogLimit);
}

struct Message {
    Message() { std::snprintf(text, sizeof text, "the script has run for more than %u ms", watchdogLimit); }
    char text[80];
};

// The error lies in the first place behind the frame, where the engine has room for calls of native functions.
void interrupt(SQVM* v) {
    const SQInteger place = v->_top - v->_stackbase;
    if (place > 255) return;
    sq_pushstring(v, Message().text, -1);
    --v->_top;
    g_throw[0] = SQInstruction(_OP_THROW, place);
    g_interrupted = v->ci->_ip;
    v->ci->_ip = g_throw;
}

void onEvent(SQVM* v, SQInteger type, const SQChar*, SQInteger, const SQChar*) noexcept {
    if (watchdogLimit == 0 || g_goes == 0 || type == 'r' || !isOver()) return;
    // The call of a generator function makes its object, no more.
    if (type == 'c' && _closure(v->ci->_closure)->_function->_bgenerator) return;
    interrupt(v);
}

} // namespace

void WatchedGo::begin() noexcept {
    m_isCounted = true;
    if (g_goes++ > 0) return;
    g_begin = Time::now();
    g_isOver = false;
}

void WatchedGo::end() noexcept {
    if (--g_goes == 0) g_isOver = false;
}

SQInteger watchLoop(SQVM* v) {
    if (watchdogLimit != 0 && g_goes != 0 && isOver()) return sq_throwerror(v, Message().text);
    sq_pushbool(v, SQTrue);
    return 1;
}

void watch(SQVM* v) noexcept {
    sq_setnativedebughook(v, watchdogLimit != 0 ? &onEvent : nullptr);
}

void showInterruptedPlace(SQVM* v) noexcept {
    if (v->_callsstacksize < 2) return;
    SQVM::CallInfo& failed = v->_callsstack[v->_callsstacksize - 2]; // below the handler
    if (failed._ip == g_throw + 1) failed._ip = g_interrupted;
}

} // namespace kivSq::internal
