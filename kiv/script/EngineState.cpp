#include "kiv/script/EngineState.h"

#include "kiv/script/Access.h"
#include "kiv/script/Object.h"

#include <atomic>
#include <cassert>
#include <mutex>
#include <thread>
#include <vector>

namespace kivSq::internal {

std::atomic<uint32_t> engineEpoch{0};

namespace {

std::atomic<SQVM*> g_engine{nullptr};
std::atomic<VM*> g_vm{nullptr};
std::atomic<std::thread::id> g_thread{};
uint32_t g_lastEpoch = 0;

struct Parked {
    std::mutex mutex;
    std::vector<HSQOBJECT> handles;
    std::atomic<bool> isEmpty{true};
};

// For good: handles are destroyed at any time.
Parked& parked() {
    static Parked* const all = new Parked;
    return *all;
}

} // namespace

void installEngine(SQVM* v, VM* vm) {
    assert(!g_engine && "there is a script VM already");
    g_thread = std::this_thread::get_id();
    g_vm = vm;
    engineEpoch = ++g_lastEpoch;
    g_engine = v;
}

void uninstallEngine() {
    Parked& all = parked();
    const std::lock_guard lock(all.mutex);
    g_engine = nullptr;
    engineEpoch = 0;
    g_vm = nullptr;
    all.handles.clear();
    all.isEmpty = true;
}

SQVM* currentEngine() {
    return g_engine.load(std::memory_order_acquire);
}

VM* currentVM() {
    return g_vm.load(std::memory_order_acquire);
}

bool isEngineThread() {
    return g_thread.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void releaseHandle(HSQOBJECT handle, uint32_t epoch) noexcept {
    SQVM* const v = currentEngine();
    if (!v || epoch != currentEpoch()) return;
    if (isEngineThread()) {
        sq_release(v, &handle);
        return;
    }
    Parked& all = parked();
    const std::lock_guard lock(all.mutex);
    if (epoch != currentEpoch()) return;
    all.handles.push_back(handle);
    all.isEmpty.store(false, std::memory_order_release);
}

void releaseParkedHandles() {
    Parked& all = parked();
    if (all.isEmpty.load(std::memory_order_acquire)) return;
    std::vector<HSQOBJECT> handles;
    {
        const std::lock_guard lock(all.mutex);
        handles.swap(all.handles);
        all.isEmpty = true;
    }
    // Outside of the lock: what goes may own handles itself.
    SQVM* const v = currentEngine();
    for (HSQOBJECT& handle : handles) sq_release(v, &handle);
}

} // namespace kivSq::internal
