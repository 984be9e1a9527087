#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/platform/Compiler.h"
#include "kiv/rpc/RpcChannel.h"

#include <functional>
#include <memory>

namespace kiv {

class Packet;
class Plugins;
class RpcProvider;

// A worker's end of the line to its parent, over standard input and output: boots the plug-ins that the parent names,
// runs the scripts that come with them, answers remote calls and ends when it is asked to or the parent is gone.
// Ownership: counted; destroyed before System ends. Threads: the main thread; standard input is read in the background.
class KIV_API ParentLink : public Object {
    KIV_OBJECT(ParentLink, Object)
public:
    // `plugins` (null: the parent's lists boot nothing) and `provider` (null: nothing is answered) are kept.
    ParentLink(Plugins* plugins, RpcProvider* provider);
    ParentLink(const ParentLink&) = delete;
    ParentLink& operator=(const ParentLink&) = delete;
    ~ParentLink() override;

    // Takes what has arrived and drives the remote calls; once a frame. False once the parent is gone or wants this to
    // end.
    bool tick();
    // What is neither of remote calls nor of the process protocol.
    void setPacketHandler(std::function<void(Packet&)> handler);
    // After the plug-ins of the parent's list have been booted.
    void setBootedHandler(std::function<void(int32_t index)> handler);
    void send(Packet* packet);
    RpcChannel& getRpc();

private:
    class Impl;
    const std::unique_ptr<Impl> m_impl;
};

} // namespace kiv
