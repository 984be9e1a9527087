#include "kiv/rpc/RpcChannel.h"

#include "kiv/rpc/RpcConnection.h"

#include <utility>

namespace kiv {

RpcChannel::RpcChannel(Send send, RpcProvider* provider)
    : m_connection(std::make_shared<internal::RpcConnection>(std::move(send), provider)) {}

RpcChannel::~RpcChannel() {
    m_connection->destroy("the channel is gone");
}

void RpcChannel::setRights(std::function<bool(const char* right)> hasRight) {
    m_connection->rights = std::move(hasRight);
}

void RpcChannel::addRight(const char* right) {
    m_connection->rightNames.insert(right);
}

void RpcChannel::requireRight(const char* method, const char* right) {
    m_connection->requiredRights[method] = right;
}

void RpcChannel::setCaller(Object* caller) {
    m_connection->caller = caller;
}

void RpcChannel::setTransferTarget(const char* kind, const char* directory) {
    m_connection->targets[kind] = directory;
}

void RpcChannel::setMaximumFileSize(uint64_t size) {
    m_connection->maximumFileSize = size;
}

uint32_t RpcChannel::call(Call call) {
    return m_connection->call(std::move(call));
}

uint32_t RpcChannel::call(const char* method, const Item& arguments, OnAnswer onAnswer) {
    Call call;
    call.method = method;
    call.arguments = arguments;
    call.onAnswer = std::move(onAnswer);
    return m_connection->call(std::move(call));
}

void RpcChannel::cancel(uint32_t number) {
    m_connection->cancel(number);
}

unsigned RpcChannel::getOpenCalls() const {
    return m_connection->getOpenCalls();
}

bool RpcChannel::onPacket(Packet* packet) {
    return m_connection->onPacket(packet);
}

void RpcChannel::tick() {
    m_connection->tick();
}

void RpcChannel::close(const char* reason) {
    m_connection->close(reason);
}

void RpcChannel::open() {
    m_connection->open();
}

bool RpcChannel::isOpen() const {
    return m_connection->isOpen();
}

void RpcChannel::end(const char* reason) {
    m_connection->destroy(reason);
}

} // namespace kiv
