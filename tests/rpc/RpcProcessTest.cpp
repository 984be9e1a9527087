// Hunts: what only a real line shows: both directions at once, files larger than pipes, and a peer that dies.

#include "kiv/process/ProcessPacketReader.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProtocol.h"
#include "kiv/rpc/RpcProvider.h"
#include "tests/process/Children.h"
#include "tests/support/TemporaryFolder.h"

namespace kiv {
namespace {

class RpcProcessTest : public testing::Test {
protected:
    RpcProcessTest() {
        provider->addRPC(
            "double",
            [](const RpcContext& context) {
                int64_t value = 0;
                context.args().asInteger(value);
                context.result().addInteger(2 * value);
                context.finish();
            },
            "", "");
        const auto send = [this](Packet* packet) {
            child.getPacketWriter()->write(packet);
            return child.getPacketWriter()->valid();
        };
        channel = makeObject<RpcChannel>(send, provider.get());
        EXPECT_TRUE(child.start({"rpc"}));
    }

    void exchange() {
        while (const auto packet = child.getPacketReader()->read()) EXPECT_TRUE(channel->onPacket(packet.get()));
        if (!child.getPacketReader()->valid()) channel->close("the worker has died");
        channel->tick();
    }
    // What is answered, as JSON, or the failure.
    std::string call(RpcChannel::Call call) {
        std::string answered;
        call.onAnswer = [&](const RpcChannel::Answer& answer) {
            answered = (answer.isGood ? answer.result.getJSON(false) : answer.error).to_std_string();
        };
        channel->call(std::move(call));
        EXPECT_TRUE(child.tickUntil([&] { return exchange(), !answered.empty(); }));
        return answered;
    }
    std::string call(const char* method, const Item& arguments) {
        RpcChannel::Call made;
        made.method = method;
        made.arguments = arguments;
        return call(std::move(made));
    }

    const SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
    support::Child child;
    SmartPointer<RpcChannel> channel;
};

TEST_F(RpcProcessTest, CallsGoBothWays) {
    Item numbers;
    for (int i = 1; i <= 4; ++i) numbers.addInteger(i);
    EXPECT_EQ(call("add", numbers), "10");
    EXPECT_EQ(call("ask", Item(21)), "42");
    EXPECT_EQ(call("none", Item()), "there is no such method");
}

TEST_F(RpcProcessTest, FilesGoBothWays) {
    const support::TemporaryFolder folder;
    std::string bytes(3 * size_t{RpcProtocol::largestPiece} + 5, 0);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i >> 3);
    folder.write("up", bytes);
    RpcChannel::Call fetch, give;
    fetch.method = "fetch";
    fetch.arguments = Item("up");
    fetch.arguments.addString(folder.utf8("there"));
    fetch.files = {{"up", folder.utf8("up").c_str()}};
    EXPECT_EQ(call(std::move(fetch)), "100");
    EXPECT_EQ(folder.read("there"), bytes);
    give.method = "give";
    give.arguments = Item("down");
    give.arguments.addString(folder.utf8("there"));
    give.receivingDirectory = folder.utf8("");
    EXPECT_EQ(call(std::move(give)), "100");
    EXPECT_EQ(folder.read("down"), bytes);
    EXPECT_EQ(folder.names(), (std::set<std::string>{"down", "there", "up"}));
}

TEST_F(RpcProcessTest, APeerThatDiesAnswersEveryCall) {
    std::vector<std::string> answers;
    const auto take = [&](const RpcChannel::Answer& answer) { answers.push_back(answer.error.to_std_string()); };
    for (int i = 0; i < 3; ++i) channel->call("die", Item(), take);
    EXPECT_TRUE(child.tickUntil([&] { return exchange(), answers.size() >= 3; }));
    EXPECT_EQ(answers, std::vector<std::string>(3, "the worker has died"));
    // Another one has come.
    EXPECT_TRUE(child.start({"rpc"}));
    channel->open();
    EXPECT_EQ(call("add", Item(5)), "5");
}

} // namespace
} // namespace kiv
