// The calls of a channel's peer, as handlers see them.

#include "kiv/logging/MessageStream.h"
#include "kiv/rpc/RpcConnection.h"

#include <algorithm>
#include <utility>

namespace kiv::internal {

RpcPeerCall::RpcPeerCall(std::shared_ptr<RpcConnection> connection, uint32_t number, const char* method, Item arguments)
    : RpcContextInternal(method, std::move(arguments)), m_connection(std::move(connection)), m_number(number) {
    ++m_connection->heldCalls;
    m_connection->heldBytes += getArguments().getPlainSize();
}

RpcPeerCall::~RpcPeerCall() {
    if (std::exchange(m_isOpen, false)) m_connection->abandon(*this);
    --m_connection->heldCalls;
    m_connection->heldBytes -= getArguments().getPlainSize();
}

void RpcPeerCall::finish() {
    if (!std::exchange(m_isOpen, false)) return;
    const SmartPointer<RpcPeerCall> self(this); // an event handler may hold the last one
    m_connection->finish(*this);
    clearEventHandlers();
}

void RpcPeerCall::end(const char* reason) {
    m_isOpen = false;
    if (m_moving != Moving::Files) return;
    m_moving = Moving::Failed;
    m_failure = reason;
}

String RpcPeerCall::getFileTransferTargetPath(const char* kind) {
    return m_connection->getTarget(kind);
}

bool RpcPeerCall::hasRight(const char* right) {
    return m_isOpen && m_connection->hasRight(right);
}

Object* RpcPeerCall::getCaller() {
    return m_isOpen ? m_connection->getCaller() : nullptr;
}

void RpcPeerCall::initiateFileTransfer(int direction, const Files& files) {
    const auto refuse = [&](const char* why) {
        logging::MessageStream(3, 2) << "[RPC:" << getMethodName() << "] no files are moved: " << why;
    };
    if (!m_isOpen) return refuse("the call is over");
    if (m_moving == Moving::Files) return refuse("others are on their way");
    if (direction != RpcContext::FetchFromCaller && direction != RpcContext::SendToCaller)
        return refuse("there is no such direction");
    m_direction = direction;
    m_files = files;
    m_index = 0;
    m_share = 0;
    m_moving = files.empty() ? Moving::Over : Moving::Files;
    if (files.empty())
        m_connection->announce(*this);
    else
        m_connection->moveNextFile(*this);
}

bool RpcPeerCall::getFileTransferStatus(int& percent, String& text) {
    if (m_moving == Moving::Nothing) return false;
    text = m_moving == Moving::Failed ? m_failure : m_files.empty() ? String() : m_files.front().second;
    percent = m_moving == Moving::Failed ? -1 : 100;
    if (m_moving == Moving::Files) {
        const double share = (static_cast<double>(m_index) + m_share) / static_cast<double>(m_files.size());
        percent = std::min(static_cast<int>(share * 100), 99);
    }
    return true;
}

void RpcPeerCall::onProgress(uint64_t size, uint64_t total) {
    m_share = total > 0 ? static_cast<double>(size) / static_cast<double>(total) : 1;
    m_connection->announce(*this);
}

void RpcPeerCall::onFileEnd(const std::string& reason) {
    m_share = 0;
    if (!reason.empty()) {
        m_moving = Moving::Failed;
        m_failure = reason;
        logging::MessageStream(3, 2) << "[RPC:" << getMethodName() << "] a file was not moved: " << reason;
    } else if (++m_index == m_files.size()) {
        m_moving = Moving::Over;
    } else {
        m_connection->moveNextFile(*this);
    }
    m_connection->announce(*this);
}

} // namespace kiv::internal
