#pragma once

#include "kiv/platform/Compiler.h"
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kiv {

template <class Signature>
class Signal;

namespace internal {

// What a signal holds of each listener, whatever its signature.
class KIV_API BaseConnection {
public:
    BaseConnection() = default;
    BaseConnection(const BaseConnection&) = delete;
    BaseConnection& operator=(const BaseConnection&) = delete;
    virtual ~BaseConnection();

    bool isConnected() const { return m_isConnected.load(std::memory_order_acquire); }

private:
    friend class ConnectionList;
    std::atomic<bool> m_isConnected{true};
};

using BaseConnections = std::vector<std::shared_ptr<BaseConnection>>;

// The listeners of one signal. Emissions work on a snapshot, so that the mutex is never held while a listener runs or
// is destroyed.
class KIV_API ConnectionList {
public:
    void add(std::shared_ptr<BaseConnection> connection);
    void remove(BaseConnection& connection) noexcept;
    void clear();
    bool empty() const { return m_size.load(std::memory_order_acquire) == 0; }
    // In the order of connecting; may be null when empty.
    std::shared_ptr<const BaseConnections> getSnapshot() const;

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const BaseConnections> m_connections;
    std::atomic<size_t> m_size{0};
};

} // namespace internal

// Keeps one listener connected to a signal: it disconnects when it dies, and does nothing once the signal has died.
// After disconnect() has returned no new call of the listener starts; one that runs on another thread may still finish,
// and what the listener captured lives until then.
class KIV_API Connection {
public:
    Connection() = default;
    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection() { disconnect(); }

    void disconnect();
    bool isConnected() const { return m_connection && m_connection->isConnected(); }

private:
    template <class Signature>
    friend class Signal;
    Connection(const std::shared_ptr<internal::ConnectionList>& list,
               std::shared_ptr<internal::BaseConnection> connection)
        : m_list(list), m_connection(std::move(connection)) {}

    std::weak_ptr<internal::ConnectionList> m_list;
    std::shared_ptr<internal::BaseConnection> m_connection;
};

// Calls any number of listeners, in the order in which they connected, on the emitting thread, no lock held.
// Threads: connecting, disconnecting and emitting are allowed from any thread, also from inside a listener: who
// connects during an emission is called from the next one on, who is disconnected is not called any more. A listener's
// exception ends the emission and reaches the emitter.
template <class... Arguments>
class Signal<void(Arguments...)> {
public:
    using Function = std::function<void(Arguments...)>;

    Signal() : m_list(std::make_shared<internal::ConnectionList>()) {}
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    ~Signal() { disconnectAll(); }

    // The listener stays connected as long as the returned object lives.
    [[nodiscard]] Connection connect(Function function) {
        auto listener = std::make_shared<Listener>(std::move(function));
        m_list->add(listener);
        return Connection(m_list, std::move(listener));
    }
    void disconnectAll() { m_list->clear(); }
    bool hasListeners() const { return !m_list->empty(); }

    void emit(Arguments... arguments) const {
        if (!hasListeners()) return;
        const auto listeners = m_list->getSnapshot();
        if (!listeners) return;
        for (const auto& listener : *listeners) {
            if (listener->isConnected()) static_cast<const Listener&>(*listener).function(arguments...);
        }
    }

private:
    struct Listener : internal::BaseConnection {
        explicit Listener(Function function_) : function(std::move(function_)) {}
        const Function function;
    };

    const std::shared_ptr<internal::ConnectionList> m_list;
};

} // namespace kiv
