// Hunts: listeners called after their connection died, lost or doubled when the list changes during an emission, kept
// alive or destroyed at the wrong time, deadlocks of listeners that connect, disconnect or emit.
#include "kiv/core/Signal.h"

#include "kiv/core/Delegate.h"
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <thread>

namespace kiv {
namespace {

TEST(Signal, CallsListenersInTheOrderOfConnecting) {
    Signal<void(int, const char*)> signal;
    std::string calls;
    EXPECT_FALSE(signal.hasListeners());
    signal.emit(0, "nobody");
    const Connection a = signal.connect([&](int n, const char* text) { calls += "a" + std::to_string(n) + text; });
    Connection b = signal.connect([&](int, const char*) { calls += "b"; });
    {
        const Connection c = signal.connect([&](int, const char*) { calls += "c"; });
        signal.emit(1, "x");
    }
    b.disconnect();
    EXPECT_FALSE(b.isConnected());
    signal.emit(2, "y");
    EXPECT_EQ(calls, "a1xbca2y");
    signal.disconnectAll();
    EXPECT_FALSE(a.isConnected() || signal.hasListeners());
}

TEST(Signal, ListenersMayChangeTheListDuringAnEmission) {
    Signal<void()> signal;
    std::string calls;
    std::optional<Connection> self, other, late;
    self = signal.connect([&] {
        calls += "s";
        self.reset();
        other.reset();
        if (!late) late = signal.connect([&] { calls += "l"; });
    });
    other = signal.connect([&] { calls += "o"; });
    signal.emit();
    EXPECT_EQ(calls, "s");
    signal.emit();
    EXPECT_EQ(calls, "sl");
}

TEST(Signal, ListenersMayEmitAndThrow) {
    Signal<void(int)> signal;
    int calls = 0;
    const Connection nested = signal.connect([&](int depth) {
        ++calls;
        if (depth > 0) signal.emit(depth - 1);
        if (depth == 3) throw std::runtime_error("listener");
    });
    EXPECT_THROW(signal.emit(3), std::runtime_error);
    signal.emit(1);
    EXPECT_EQ(calls, 6);
}

TEST(Signal, ConnectionsMoveAndMayOutliveTheirSignal) {
    auto signal = std::make_unique<Signal<void()>>();
    int a = 0, b = 0;
    auto captured = std::make_shared<int>(0);
    Connection first = signal->connect([&a, captured] { ++a; }), second = signal->connect([&b] { ++b; });
    first = std::move(second);
    EXPECT_EQ(captured.use_count(), 1);
    signal->emit();
    EXPECT_TRUE(a == 0 && b == 1);
    signal.reset();
    EXPECT_FALSE(first.isConnected());
    first.disconnect();
}

TEST(Signal, WhatAListenerHoldsMayDisconnectOthersAsItDies) {
    Signal<void()> signal;
    auto other = std::make_shared<Connection>(signal.connect([] {}));
    Connection holder = signal.connect([other] {});
    other.reset();
    holder.disconnect();
    EXPECT_FALSE(signal.hasListeners());
}

TEST(Signal, ThreadsMayConnectAndDisconnectDuringEmissions) {
    // Two threads emit while two others connect and disconnect. A listener must be called while it is connected and
    // must never see its captures gone; the permanent one must not miss an emission.
    constexpr int emissions = 2000;
    Signal<void(int)> signal;
    std::atomic<int> permanentCalls = 0, wrong = 0;
    const Connection permanent = signal.connect([&](int) { ++permanentCalls; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < emissions; ++n) signal.emit(n);
        });
        threads.emplace_back([&] {
            for (int n = 0; n < emissions; ++n) {
                auto canary = std::make_shared<std::atomic<int>>(42);
                signal.connect([&wrong, canary](int) { wrong += *canary != 42; }).disconnect();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(permanentCalls, 2 * emissions);
    EXPECT_EQ(wrong, 0);
}

TEST(Delegate, IsOneCallbackOrNone) {
    Delegate<int(int)> delegate;
    EXPECT_TRUE(!delegate && delegate(7) == 0);
    delegate = Delegate<int(int)>([&delegate, keep = std::string(100, 'x')](int n) {
        delegate.clear();
        return static_cast<int>(keep.size()) + n;
    });
    EXPECT_TRUE(delegate(1) == 101 && !delegate);
    Delegate<void()>()();
}

} // namespace
} // namespace kiv
