#include "kiv/platform/Interrupt.h"

#include <csignal>

namespace kiv::platform {
namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "what a signal handler may touch");

std::atomic<bool> g_flag{false};
struct sigaction g_before;
bool g_isCatching = false;

void onInterrupt(int signal) {
    if (!g_flag.exchange(true)) return;
    // Delivered when this handler has returned.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

std::atomic<bool>& interruptFlag() {
    return g_flag;
}

void catchInterrupts() {
    if (g_isCatching || ::sigaction(SIGINT, nullptr, &g_before) != 0 || g_before.sa_handler == SIG_IGN) return;
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    action.sa_flags = SA_RESTART;
    g_isCatching = ::sigaction(SIGINT, &action, nullptr) == 0;
}

void releaseInterrupts() {
    if (g_isCatching) ::sigaction(SIGINT, &g_before, nullptr);
    g_isCatching = false;
}

} // namespace kiv::platform
