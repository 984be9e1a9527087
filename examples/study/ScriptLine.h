#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/script/Functor.h"

// Remote calls for scripts: the line to the other process, an object in the root table.
//     local info = worker.call("device_info")                // waits for the answer; a call that fails is an error
//     worker.answer("time", @(arguments) kiv.System.getUTC()) // what the other end may call
// Ownership: counted; keeps channel and provider. Threads: the main thread.
class ScriptLine : public kiv::Object {
    KIV_OBJECT(ScriptLine, Object)
public:
    ScriptLine(kiv::RpcChannel& channel, kiv::RpcProvider& provider) : m_channel(&channel), m_provider(&provider) {}

    // Makes such an object and enters it into the root table.
    static void bind(const char* name, kiv::RpcChannel& channel, kiv::RpcProvider& provider);

private:
    // The function on the engine's stack: outside of script threads its result is null.
    static SQInteger call(SQVM* v);
    void answer(const kiv::String& method, const kivSq::Functor& function);

    const kiv::SmartPointer<kiv::RpcChannel> m_channel;
    const kiv::SmartPointer<kiv::RpcProvider> m_provider;
};
