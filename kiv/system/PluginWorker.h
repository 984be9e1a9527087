#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/plugins/ParentLink.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/system/Application.h"

#include <cstdint>

namespace kiv {

class Packet;

// The application of a worker that a PluginHost starts: boots what its parent names, answers its remote calls, and runs
// until it is asked to end or the parent is gone. `kiv worker` is this and nothing else, others derive from it.
// Ownership: counted, as every Application. Requires: the System is initialised, and deinitialised before this goes.
// Threads: the main thread.
class KIV_API PluginWorker : public Application {
    KIV_OBJECT(PluginWorker, Application)
public:
    // Where the plug-ins are that the parent names; null: there are none.
    explicit PluginWorker(const char* pluginsDirectory);
    ~PluginWorker() override;

    // Pumps until it is to end.
    void run();
    // One pass of the pump, for those who run it themselves; then waits, at most 10 ms, for the parent when there is
    // nothing to do. False once it is to end.
    bool pump();
    // Why, as "its parent has asked it to"; for people.
    const char* getEndText() const;

    // What the parent may call.
    RpcProvider& getRpcProvider() { return *m_provider; }
    // Valid until the System ends.
    ParentLink& getParent() { return *m_parent; }

    // The hooks of the System. Who overrides one calls this one, too.
    void onTick() override;
    void onShutdown() override;

protected:
    // Before the plug-ins' scripts run: the place to bind what they use. `std.worker_index` is there.
    virtual void onBoot(int32_t index);
    virtual void onBooted(int32_t index);
    // What is neither of remote calls nor of the process protocol.
    virtual void onParentPacket(Packet& packet);

private:
    const SmartPointer<RpcProvider> m_provider = makeObject<RpcProvider>();
    SmartPointer<ParentLink> m_parent;
    ParentLink::End m_end = ParentLink::End::None;
};

} // namespace kiv
