#pragma once

#include "kiv/core/Object.h"

namespace kiv {

// What a program adds to the turns and to the end of the System: derive from it. The first one made becomes the
// current one until it dies; the System does not own it.
// Threads: the main thread. What a hook throws is logged, and the System goes on.
class KIV_API Application : public Object {
    KIV_OBJECT(Application, Object)
public:
    // Null when there is none.
    static Application* current();

    Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() override;

    // In each System::processEvents(), first of all.
    virtual void onTick();
    // In System::deinitialize(), while every service still works: the time to stop one's own queues and workers.
    virtual void onShutdown();

protected:
    // Milliseconds for those who pump: what else the pump has to do does not wake it.
    static const unsigned longestPause = 10;
};

} // namespace kiv
