#pragma once

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProtocol.h"
#include "kiv/rpc/RpcProvider.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace kiv {

using support::LogLines;
using support::TemporaryFolder;

// A received packet: raw bytes, as a line brings them.
inline SmartPointer<Packet> received(const Packet& packet) {
    return Packet::createFromBufferWithManifest(packet.convertToBufferWithManifest());
}

// Two channels with a line between them that tests can cut and bend. Nothing moves but in run(). The clock stands.
class Line {
public:
    struct End {
        explicit End(Line& line, int side)
            : channel(
                  new RpcChannel([&line, side](Packet* packet) { return line.take(side, *packet); }, provider.get())) {}

        SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
        SmartPointer<RpcChannel> channel;
        std::deque<SmartPointer<Packet>> inbox;
        size_t sent = 0; // packets
        size_t mostWaiting = 0;
    };

    // What a call has come to: the answers, of which there is to be one.
    struct Result {
        std::vector<RpcChannel::Answer> answers;

        RpcChannel::OnAnswer taker() {
            return [this](const RpcChannel::Answer& answer) { answers.push_back(answer); };
        }
        // The failure, "good", or how many answers there are.
        std::string text() const {
            if (answers.size() != 1) return std::to_string(answers.size()) + " answers";
            return answers[0].isGood ? "good" : answers[0].error.to_std_string();
        }
    };

    // Until nothing moves any more.
    void run() {
        do {
            for (End* end : {&a, &b}) {
                if (end->channel) end->channel->tick();
                while (!end->inbox.empty()) {
                    const auto packet = end->inbox.front();
                    end->inbox.pop_front();
                    if (end->channel) {
                        EXPECT_TRUE(end->channel->onPacket(packet.get()));
                    }
                }
                if (end->channel) end->channel->tick();
            }
        } while (!a.inbox.empty() || !b.inbox.empty());
    }
    void pass(int64_t milliseconds) {
        clock.advance(milliseconds);
        run();
    }
    std::string call(const char* method, const Item& arguments = Item()) {
        Result result;
        a.channel->call(method, arguments, result.taker());
        run();
        return result.text();
    }

    ManualClock clock{1000};
    std::function<bool(Packet&)> passes; // false: the packet is lost; may change it
    bool isCut = false;
    End a{*this, 0}, b{*this, 1};

private:
    bool take(int side, const Packet& packet) {
        End& from = side == 0 ? a : b;
        End& to = side == 0 ? b : a;
        if (isCut) return false;
        ++from.sent;
        const auto copy = received(packet);
        if (passes && !passes(*copy)) return true;
        to.inbox.push_back(copy);
        to.mostWaiting = std::max(to.mostWaiting, to.inbox.size());
        return true;
    }
};

// Keeps what it is called with.
inline void addKeeper(RpcProvider& provider, const char* name, std::vector<RpcContext>& kept) {
    provider.addRPC(
        name, [&kept](const RpcContext& context) { kept.push_back(context); }, "", "");
}

} // namespace kiv
