#include "kiv/core/Signal.h"

#include <new>

namespace kiv {
namespace internal {

BaseConnection::~BaseConnection() = default;

// In these functions the replaced list dies after the lock: a listener's captures may disconnect others as they go.

void ConnectionList::add(std::shared_ptr<BaseConnection> connection) {
    std::shared_ptr<const BaseConnections> old;
    const std::lock_guard lock(m_mutex);
    auto connections =
        m_connections ? std::make_shared<BaseConnections>(*m_connections) : std::make_shared<BaseConnections>();
    connections->push_back(std::move(connection));
    old = std::exchange(m_connections, std::move(connections));
    m_size.store(m_connections->size(), std::memory_order_release);
}

void ConnectionList::remove(BaseConnection& connection) noexcept {
    std::shared_ptr<const BaseConnections> old;
    connection.m_isConnected.store(false, std::memory_order_release);
    try {
        const std::lock_guard lock(m_mutex);
        if (!m_connections) return;
        auto connections = std::make_shared<BaseConnections>(*m_connections);
        std::erase_if(*connections, [&](const auto& other) { return other.get() == &connection; });
        old = std::exchange(m_connections, std::move(connections));
        m_size.store(m_connections->size(), std::memory_order_release);
    } catch (const std::bad_alloc&) {
        // Connections are removed by destructors: without memory for the new list the entry stays, and is passed over.
    }
}

void ConnectionList::clear() {
    std::shared_ptr<const BaseConnections> old;
    const std::lock_guard lock(m_mutex);
    old.swap(m_connections);
    m_size.store(0, std::memory_order_release);
    if (!old) return;
    for (const auto& connection : *old) connection->m_isConnected.store(false, std::memory_order_release);
}

std::shared_ptr<const BaseConnections> ConnectionList::getSnapshot() const {
    const std::lock_guard lock(m_mutex);
    return m_connections;
}

} // namespace internal

Connection& Connection::operator=(Connection&& other) noexcept {
    if (this == &other) return *this;
    disconnect();
    m_list = std::move(other.m_list);
    m_connection = std::move(other.m_connection);
    return *this;
}

void Connection::disconnect() {
    const auto connection = std::exchange(m_connection, nullptr);
    const auto list = std::exchange(m_list, {}).lock();
    if (connection && list) list->remove(*connection);
}

} // namespace kiv
