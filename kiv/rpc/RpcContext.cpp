#include "kiv/rpc/RpcContext.h"

#include "kiv/logging/MessageStream.h"

#include <exception>
#include <utility>

namespace kiv {

RpcContextInternal::RpcContextInternal(const char* method, Item arguments)
    : m_method(method), m_arguments(std::move(arguments)), m_args(m_arguments) {}

RpcContextInternal::~RpcContextInternal() = default;

// They run outside of the list: one may add others, finish the call, or bring about the next event.
void RpcContextInternal::callEventHandlers() {
    if (m_eventHandlerCount.load(std::memory_order_relaxed) == 0) return;
    const RpcContext self(this);
    List<EventHandler> handlers = std::exchange(m_eventHandlers, {});
    for (auto it = handlers.begin(); it != handlers.end() && !m_isOver;)
        it = keepsHandler(*it, self) ? std::next(it) : handlers.erase(it);
    if (!m_isOver) m_eventHandlers.splice(m_eventHandlers.begin(), handlers);
    m_eventHandlerCount.store(static_cast<int>(m_eventHandlers.size()), std::memory_order_relaxed);
}

bool RpcContextInternal::keepsHandler(const EventHandler& handler, const RpcContext& context) const {
    const auto report = [this](const char* reason) {
        logging::MessageStream(3, 2) << "[RPC:" << m_method << "] an event handler has failed: " << reason;
        return false;
    };
    try {
        return handler(context);
    } catch (const std::exception& failure) {
        return report(failure.what());
    } catch (...) {
        return report("unknown exception");
    }
}

// The handlers may hold the last handle of this call.
void RpcContextInternal::clearEventHandlers() {
    m_isOver = true;
    m_eventHandlerCount.store(0, std::memory_order_relaxed);
    const List<EventHandler> dropped = std::exchange(m_eventHandlers, {});
}

void RpcContextInternal::addEventHandler(EventHandler&& handler) {
    if (!handler || m_isOver) return;
    m_eventHandlers.push_back(std::move(handler));
    m_eventHandlerCount.fetch_add(1, std::memory_order_relaxed);
}

const String& RpcContext::getMethodName() const {
    return m_context->m_method;
}

const Item& RpcContext::getArguments() const {
    return m_context->m_arguments;
}

Item::Iterator& RpcContext::args() const {
    return m_context->m_args;
}

Item& RpcContext::result() const {
    return m_context->m_result;
}

void RpcContext::finish() const {
    if (!std::exchange(m_context->m_isFinished, true)) m_context->finish();
}

bool RpcContext::hasRight(const char* right) const {
    return m_context->hasRight(right);
}

Object* RpcContext::getCaller() const {
    return m_context->getCaller();
}

void RpcContext::initiateFileTransfer(int direction, const Vector<Pair<String, String>>& files) const {
    m_context->initiateFileTransfer(direction, files);
}

void RpcContext::setTransferLimit(uint64_t bytes) const {
    m_context->m_transferLimit = bytes;
}

bool RpcContext::getFileTransferStatus(int& percent, String& text) const {
    return m_context->getFileTransferStatus(percent, text);
}

String RpcContext::getFileTransferTargetPath(const char* kind) const {
    return m_context->getFileTransferTargetPath(kind);
}

void RpcContext::addEventHandler(std::function<bool(const RpcContext&)>&& handler) const {
    m_context->addEventHandler(std::move(handler));
}

} // namespace kiv
