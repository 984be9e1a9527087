#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/platform/Compiler.h"
#include "kiv/rpc/RpcChannel.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kiv {

class Packet;
class Plugins;
class RpcProvider;

// A worker's end of the line to its parent, over standard input and output: boots the plug-ins that the parent names,
// runs the scripts that come with them, answers remote calls, and says when the worker is to end. The parent's scripts
// are code, and so this is for programs that a parent has started, on the pipe of that parent.
// Ownership: counted; destroyed before System ends, which waits for it. Requires: a ThreadPool, and a VM to boot.
// Threads: the main thread; standard input is read in the background. Failures: logged.
class KIV_API ParentLink : public Object {
    KIV_OBJECT(ParentLink, Object)
public:
    enum class End { None, Asked, ParentGone };

    // `plugins` (null: the parent's lists boot nothing) and `provider` (null: nothing is answered) are kept. The parent
    // has all rights.
    ParentLink(Plugins* plugins, RpcProvider* provider);
    ParentLink(const ParentLink&) = delete;
    ParentLink& operator=(const ParentLink&) = delete;
    ~ParentLink() override;

    // Takes what has arrived, for at most some milliseconds, and drives the remote calls; once a frame. False once the
    // parent is gone or wants this to end, and then for good: nothing more is taken.
    bool tick();
    // Waits until something arrives, at most so many milliseconds.
    void wait(unsigned milliseconds);
    End getEnd() const;

    // What is neither of remote calls nor of the process protocol.
    void setPacketHandler(std::function<void(Packet&)> handler);
    // Before the parent's plug-ins are booted, when `std.worker_index` is set already.
    void setBootHandler(std::function<void(int32_t index)> handler);
    // After they were, and the script that is run with them.
    void setBootedHandler(std::function<void(int32_t index)> handler);
    // False when the parent takes nothing any more.
    bool send(Packet* packet);
    RpcChannel& getRpc();

private:
    class Impl;
    const std::unique_ptr<Impl> m_impl;
};

} // namespace kiv
