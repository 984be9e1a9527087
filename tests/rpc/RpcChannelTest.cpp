// Hunts: callers that wait for ever or are told twice, callbacks within call(), handlers that outlive what they answer.

#include "tests/rpc/Line.h"

#include <random>
#include <stdexcept>

namespace kiv {
namespace {

using Answers = std::vector<std::string>;

TEST(RpcChannelTest, BothEndsCallAndKnowWhoCalls) {
    Line line;
    const auto somebody = makeObject<Object>();
    const auto add = [&](const RpcContext& context) {
        int a = 0, b = 0;
        context.args().asInteger(a);
        context.args().asInteger(b);
        context.result().addInteger(a + b);
        context.result().addBool(context.hasRight("adding"));
        context.result().addBool(context.hasRight("more"));
        context.result().addBool(context.getCaller() == somebody.get());
        context.result().addString(context.getFileTransferTargetPath("updates"));
        context.finish();
        context.finish();
        // Over: nothing can be done in the caller's name any more.
        EXPECT_FALSE(context.hasRight("adding") || context.getCaller());
    };
    line.a.provider->addRPC("add", add, "", "");
    line.b.provider->addRPC("add", add, "", "");
    line.b.channel->addRight("adding");
    line.a.channel->setRights([](const char* right) { return std::string_view(right) == "more"; });
    line.a.channel->setCaller(somebody.get());
    line.a.channel->setTransferTarget("updates", "/here");
    Item arguments;
    arguments.addInteger(40);
    arguments.addInteger(2);
    Line::Result there, back;
    line.a.channel->call("add", arguments, there.taker());
    line.b.channel->call("add", arguments, back.taker());
    EXPECT_EQ(line.a.channel->getOpenCalls(), 1u);
    line.run();
    ASSERT_EQ(there.text() + back.text(), "goodgood");
    EXPECT_EQ(there.answers[0].result.getJSON(false), R"([42,true,false,false,""])");
    EXPECT_EQ(back.answers[0].result.getJSON(false), R"([42,false,true,true,"/here"])");
    EXPECT_EQ(line.a.channel->getOpenCalls(), 0u);
}

TEST(RpcChannelTest, EveryCallEndsOnceAndNeverWithinCall) {
    std::vector<RpcContext> kept;
    // Makes the call, then does what is to be done while it is open.
    const auto outcome = [&](const char* method, std::function<void(Line&, uint32_t)> meanwhile,
                             const Item& arguments = Item(), bool isOpen = true) {
        LogLines ignored;
        Line line;
        Line::Result result;
        addKeeper(*line.b.provider, "keep", kept);
        line.b.provider->addRPC(
            "drop", [](const RpcContext&) {}, "", "");
        line.b.provider->addRPC(
            "throw", [](const RpcContext&) { throw std::runtime_error("no"); }, "", "");
        line.b.provider->addRPC(
            "flood",
            [](const RpcContext& context) {
                context.result().addBuffer(Buffer(1 << 24));
                context.finish();
            },
            "", "");
        if (!isOpen) line.a.channel->close("not there yet");
        const uint32_t number = line.a.channel->call(method, arguments, result.taker());
        EXPECT_NE(number, 0u);
        EXPECT_EQ(result.answers.size(), 0u) << method;
        if (meanwhile) meanwhile(line, number);
        line.run();
        const std::string text = result.text();
        // Nothing that comes later is told.
        for (const RpcContext& context : kept) context.finish();
        line.pass(100000);
        if (line.a.channel) line.a.channel->close(nullptr);
        EXPECT_EQ(result.answers.size(), 1u) << method;
        kept.clear();
        return text;
    };
    const auto ran = [](auto then) {
        return [then](Line& line, uint32_t number) {
            line.run();
            then(line, number);
        };
    };
    const Item large((std::vector<uint8_t>(1 << 24)).data(), 1 << 24);
    EXPECT_EQ(outcome("keep", ran([&](Line&, uint32_t) { kept[0].finish(); })), "good");
    EXPECT_EQ(outcome("throw", nullptr), "good");
    EXPECT_EQ(outcome("unknown", nullptr), "there is no such method");
    EXPECT_EQ(outcome(std::string(10 << 20, 'm').c_str(), nullptr), "the method's name is too long");
    EXPECT_EQ(outcome("keep", nullptr, large), "the arguments are too large");
    EXPECT_EQ(outcome("flood", nullptr), "the result is too large");
    EXPECT_EQ(outcome("drop", nullptr), "the call was not answered");
    EXPECT_EQ(outcome("keep", ran([&](Line&, uint32_t) { kept.clear(); })), "the call was not answered");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.pass(29999); })), "0 answers");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.pass(30000); })), "timeout");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t n) { line.a.channel->cancel(n); })), "cancelled");
    EXPECT_EQ(outcome("keep", [](Line& line, uint32_t n) { line.a.channel->cancel(n); }), "cancelled");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.a.channel->close(nullptr); })), "the peer is gone");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.a.channel->open(); })), "another peer has come");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.b.channel.reset(); })), "0 answers");
    EXPECT_EQ(outcome("keep", ran([](Line& line, uint32_t) { line.a.channel.reset(); })), "the channel is gone");
    EXPECT_EQ(outcome("keep", nullptr, Item(), false), "not there yet");
}

TEST(RpcChannelTest, ALineThatTakesNothingFailsTheCall) {
    Line line;
    line.isCut = true;
    EXPECT_EQ(line.call("any"), "the line takes nothing");
}

TEST(RpcChannelTest, APeerMayHave1024CallsOpen) {
    LogLines log;
    Line line;
    std::vector<RpcContext> kept;
    addKeeper(*line.b.provider, "keep", kept);
    Line::Result good, refused;
    for (int i = 0; i < 1024; ++i) line.a.channel->call("keep", Item(), good.taker());
    line.a.channel->call("keep", Item(), refused.taker());
    line.run();
    EXPECT_EQ(refused.text(), "too many calls are open");
    kept.resize(1000);
    line.run();
    EXPECT_EQ(good.answers.size(), 24u);
    line.a.channel->call("keep", Item(), good.taker());
    line.run();
    EXPECT_EQ(kept.size(), 1001u);
    // What nobody wants any more is held, too.
    for (int i = 0; i < 23; ++i) line.a.channel->cancel(line.a.channel->call("keep", Item(), nullptr));
    EXPECT_EQ(line.call("keep"), "too many calls are open");
    for (const RpcContext& context : kept) context.finish();
    line.run();
    EXPECT_EQ(good.answers.size(), 1025u);
}

TEST(RpcChannelTest, AnswersMayBringAboutAnything) {
    LogLines ignored;
    Line line;
    std::vector<RpcContext> kept;
    Answers said;
    addKeeper(*line.b.provider, "keep", kept);
    const auto call = [&](std::function<void()> then) {
        return line.a.channel->call("keep", Item(), [&said, then = std::move(then)](const RpcChannel::Answer& answer) {
            said.push_back(answer.isGood ? "good" : answer.error.to_std_string());
            if (then) then();
        });
    };
    const auto answerAll = [&] {
        line.run();
        for (const RpcContext& context : std::exchange(kept, {})) context.finish();
        line.run();
        return std::exchange(said, {});
    };
    uint32_t second = 0;
    call([&] { call(nullptr); });
    EXPECT_EQ(answerAll(), Answers{"good"});
    EXPECT_EQ(answerAll(), Answers{"good"});
    call([&] { line.a.channel->cancel(second); });
    second = call([] { throw std::runtime_error("confused"); });
    line.run();
    kept.resize(1); // the second is not answered, and the first cancels it
    kept[0].finish();
    line.a.channel->cancel(second);
    EXPECT_EQ(answerAll(), (Answers{"cancelled", "good"}));
    call([&] { line.a.channel->close("enough"); });
    call([&] { call(nullptr); });
    EXPECT_EQ(answerAll(), (Answers{"good", "enough", "enough"}));
    line.a.channel->open();
    // A caller that never gives up on a closed line, and one that drops the channel.
    std::function<void()> again = [&] { call(again); };
    call(again);
    line.a.channel->close("once more");
    EXPECT_EQ(std::exchange(said, {}), Answers{"once more"});
    line.a.channel->open();
    again = nullptr;
    EXPECT_EQ(answerAll(), (Answers{"once more", "good"}));
    call([&] { line.a.channel.reset(); });
    call(nullptr);
    EXPECT_EQ(answerAll(), (Answers{"good", "the channel is gone"}));
}

// Others may keep the channel, or drop it while a function of its owner's is at work.
TEST(RpcChannelTest, OwnersMayGoBeforeTheChannelAndItMayGoBeforeThem) {
    Line::Result unanswered, result;
    Line line;
    std::string said;
    line.b.provider->addRPC(
        "ask",
        [&](const RpcContext& context) {
            EXPECT_FALSE(context.hasRight("any"));
            context.finish();
        },
        "", "");
    line.b.channel->setRights([&, big = std::string(100, 'x')](const char*) {
        line.b.channel.reset();
        said = big;
        return true;
    });
    line.a.channel->call("ask", Item(), unanswered.taker());
    line.run();
    EXPECT_EQ(said, std::string(100, 'x'));

    const SmartPointer<RpcChannel> channel = makeObject<RpcChannel>([](Packet*) { return ADD_FAILURE(), false; });
    channel->end("given up");
    channel->open();
    EXPECT_FALSE(channel->isOpen());
    channel->call("any", Item(), result.taker());
    channel->tick();
    EXPECT_EQ(result.text(), "given up");
}

TEST(RpcChannelTest, HandlersMayAnswerLateOrNobody) {
    LogLines log;
    Line line;
    std::vector<RpcContext> kept;
    Answers events;
    const auto hear = [&](const RpcContext& context) { return events.push_back(context.getMethodName()), true; };
    addKeeper(*line.b.provider, "keep", kept);
    const auto finishAll = [&] {
        for (const RpcContext& context : kept) {
            context.result().addString("late");
            context.finish();
            context.finish();
            context.initiateFileTransfer(RpcContext::FetchFromCaller, {{"a", "b"}});
        }
        kept.clear();
        line.run();
        return log.take().size();
    };
    const auto begin = [&] {
        const uint32_t number = line.a.channel->call("keep", Item(), nullptr);
        line.run();
        // What it holds is let go when the call is over, else this would be for ever.
        kept.at(0).addEventHandler([&, held = kept[0]](const RpcContext& context) { return hear(context); });
        return number;
    };
    line.a.channel->cancel(begin());
    line.run();
    EXPECT_EQ(std::exchange(events, {}), Answers{"keep"});
    EXPECT_EQ(finishAll(), 1u); // about the file
    begin();
    line.b.channel->close("bye");
    EXPECT_EQ(std::exchange(events, {}), Answers{"keep"});
    finishAll();
    line.b.channel->open();
    line.a.channel->open();
    begin();
    line.b.channel.reset();
    EXPECT_EQ(std::exchange(events, {}), Answers{"keep"});
    EXPECT_EQ(finishAll(), 1u);
    EXPECT_TRUE(line.a.inbox.empty());
}

// A line that hands packets over at once: everything arrives while the other end is still sending.
TEST(RpcChannelTest, ALineMayBeAsShortAsACall) {
    ManualClock clock;
    SmartPointer<RpcChannel> a, b;
    const auto provider = makeObject<RpcProvider>();
    provider->addRPC(
        "there", [](const RpcContext& context) { context.finish(); }, "", "");
    const auto to = [](SmartPointer<RpcChannel>& peer) {
        return [&peer](Packet* packet) { return peer && peer->onPacket(received(*packet).get()); };
    };
    a = makeObject<RpcChannel>(to(b), provider.get());
    b = makeObject<RpcChannel>(to(a), provider.get());
    int answers = 0;
    bool isCalling = true;
    const auto call = [&](auto& again) -> void {
        isCalling = true;
        a->call("there", Item(), [&](const RpcChannel::Answer& answer) {
            EXPECT_TRUE(answer.isGood);
            EXPECT_FALSE(isCalling);
            if (++answers < 100) again(again);
        });
        isCalling = false;
    };
    call(call);
    for (int i = 0; i < 1000 && answers < 100; ++i) a->tick();
    EXPECT_EQ(answers, 100);
    // The line turns out to be dead while something is sent, and takes the channel with it.
    Line::Result result;
    SmartPointer<RpcChannel> c;
    c = makeObject<RpcChannel>([&](Packet*) { return c.reset(), false; });
    RpcChannel* const last = c.get();
    last->call("there", Item(), result.taker());
    EXPECT_EQ(result.text(), "the channel is gone");
}

// The last words of those who call again, which may lead to the owner of the channel, come before it goes.
TEST(RpcChannelTest, AnEndTellsAlsoThoseWhoCallAgain) {
    auto channel = makeObject<RpcChannel>([](Packet*) { return true; });
    int told = 0;
    const auto call = [&](auto& again) -> void {
        channel->call("there", Item(), [&](const RpcChannel::Answer& answer) {
            EXPECT_EQ(answer.error, "it ends");
            if (++told < 5) again(again);
        });
    };
    call(call);
    channel->end("it ends");
    EXPECT_EQ(told, 5);
    channel->open();
    EXPECT_FALSE(channel->isOpen());
    channel = nullptr;
    EXPECT_EQ(told, 5);
}

// Whatever is lost, every call comes to its end, and nothing is left open.
TEST(RpcChannelTest, LostPacketsLoseNoCaller) {
    LogLines ignored;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Line line;
    line.passes = [&](Packet&) { return random() % 4 != 0; };
    std::vector<RpcContext> kept;
    addKeeper(*line.a.provider, "keep", kept);
    addKeeper(*line.b.provider, "keep", kept);
    std::vector<int> answers(400);
    for (size_t i = 0; i < answers.size(); ++i) {
        RpcChannel* const caller = (random() % 2 ? line.a : line.b).channel.get();
        const uint32_t number =
            caller->call("keep", Item(), [&answers, i](const RpcChannel::Answer&) { ++answers[i]; });
        if (random() % 8 == 0) caller->cancel(number);
        if (random() % 4 == 0) line.pass(random() % 1000);
        if (random() % 4 == 0) {
            for (const RpcContext& context : std::exchange(kept, {})) context.finish();
        }
    }
    line.run();
    line.pass(31000);
    EXPECT_EQ(answers, std::vector<int>(answers.size(), 1));
    EXPECT_EQ(line.a.channel->getOpenCalls() + line.b.channel->getOpenCalls(), 0u);
}

} // namespace
} // namespace kiv
