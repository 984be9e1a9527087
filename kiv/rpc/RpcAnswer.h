#pragma once

#include "kiv/logging/MessageStream.h"
#include "kiv/rpc/RpcContext.h"

namespace kiv::internal {

// Finishes a call when it goes, also when that is by an exception: with an empty result unless one was accepted.
class RpcAnswer {
public:
    // The name is for the log, where nothing stands that a caller has sent.
    RpcAnswer(const RpcContext& context, const char* call) : m_context(context), m_call(call) {}
    RpcAnswer(const RpcAnswer&) = delete;
    RpcAnswer& operator=(const RpcAnswer&) = delete;
    ~RpcAnswer() {
        if (m_isPostponed) return;
        if (!m_isGood) m_context.result().clear();
        m_context.finish();
    }

    void refuse(const char* message) const { logging::MessageStream(3, 2) << "[RPC:" << m_call << "] " << message; }
    void accept(const Item& result) {
        m_context.result().clear();
        m_context.result().concatItem(result);
        m_isGood = true;
    }
    // Somebody else will finish the call.
    void postpone() { m_isPostponed = true; }

private:
    const RpcContext m_context;
    const char* const m_call;
    bool m_isGood = false;
    bool m_isPostponed = false;
};

} // namespace kiv::internal
