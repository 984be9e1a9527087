// Hunts: handlers that change the registry under their own feet, exceptions that get out, and lost or doubled finishes.

#include "kiv/rpc/RpcProvider.h"

#include "tests/support/LogLines.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace kiv {
namespace {

using support::LogLines;

// A call without transport.
class TestCall : public RpcContextInternal {
    KIV_OBJECT(TestCall, RpcContextInternal)
public:
    explicit TestCall(const char* method, Item arguments = Item()) : RpcContextInternal(method, std::move(arguments)) {}

    void finish() override { ++finished; }
    String getFileTransferTargetPath(const char* kind) override { return kind; }
    void initiateFileTransfer(int, const Files&) override {}
    bool getFileTransferStatus(int&, String&) override { return false; }
    bool hasRight(const char*) override { return false; }
    Object* getCaller() override { return this; }

    int finished = 0;
};

TEST(RpcProviderTest, HandlersMayReplaceRemoveAndThrow) {
    LogLines log;
    auto provider = makeObject<RpcProvider>();
    std::string said;
    const auto call = [&](const char* method) {
        const auto context = makeObject<TestCall>(method);
        said.clear();
        const bool isCalled = provider->call(RpcContext(context.get()));
        EXPECT_EQ(isCalled, !said.empty()) << method;
        return said + "/" + std::to_string(context->finished);
    };
    const auto add = [&](const char* name, RpcProvider::Handler handler) {
        provider->addRPC(name, std::move(handler), nullptr, nullptr);
    };
    add("once", [&, big = std::string(100, 'x')](const RpcContext& context) {
        provider->removeRPC("once");
        said = big.substr(99) + context.getMethodName().to_std_string();
    });
    add("next", [&, big = std::string(100, 'y')](const RpcContext& context) {
        provider->addRPC(
            "next", [&](const RpcContext&) { said = "replaced"; }, nullptr, nullptr);
        said = big.substr(99);
        context.finish();
    });
    add("throws", [&](const RpcContext& context) {
        said = "thrown";
        context.finish();
        throw std::runtime_error("no paper");
    });
    EXPECT_EQ(call("once"), "xonce/0");
    EXPECT_FALSE(provider->hasRPC("once"));
    EXPECT_EQ(call("once"), "/0");
    EXPECT_EQ(call("next"), "y/1");
    EXPECT_EQ(call("next"), "replaced/0");
    EXPECT_EQ(call("throws"), "thrown/1");
    EXPECT_EQ(log.takeOne(), "[RPC:throws] no paper");

    add("odd", [&](const RpcContext&) {
        said = "odd";
        throw 1;
    });
    add(nullptr, [](const RpcContext&) {});
    add("empty", nullptr);
    EXPECT_EQ(call("odd"), "odd/1");
    EXPECT_FALSE(provider->hasRPC("empty"));
    EXPECT_EQ(log.take(), (std::vector<std::string>{"[RPC:] a call needs a name and a handler",
                                                    "[RPC:empty] a call needs a name and a handler",
                                                    "[RPC:odd] unknown exception"}));
    // One that ends the provider itself.
    add("last", [&, big = std::string(100, 'z')](const RpcContext&) {
        provider.reset();
        said = big;
    });
    const auto last = makeObject<TestCall>("last");
    EXPECT_TRUE(provider->call(RpcContext(last.get())));
    EXPECT_EQ(said, std::string(100, 'z'));
}

TEST(RpcProviderTest, ListsByCategoryThenName) {
    RpcProvider provider;
    const auto ignore = [](const RpcContext&) {};
    std::string text = "text";
    provider.addRPC("z", ignore, text.c_str(), nullptr);
    provider.setCategory("Later");
    provider.addRPC("b", ignore, nullptr, "file");
    provider.addRPC("a", ignore, nullptr, nullptr);
    text = "gone";
    String all;
    for (const auto& call : provider.getCalls())
        all += call.category + "|" + call.name + "|" + call.description + "|" + call.parameters + "\n";
    EXPECT_EQ(all, "|z|text|\nLater|a||\nLater|b||file\n");
}

TEST(RpcProviderTest, EveryCopyOfAContextReadsOnWithOneIterator) {
    Item arguments;
    arguments.addInteger(1);
    arguments.addInteger(2);
    const auto call = makeObject<TestCall>("m", arguments);
    const RpcContext one(call.get()), other = one;
    int value = 0;
    EXPECT_TRUE(one.args().asInteger(value) && other.args().asInteger(value));
    EXPECT_EQ(value, 2);
    EXPECT_FALSE(one.args().hasNextElement());
    other.result().addBool(true);
    EXPECT_EQ(call->getResult(), Item(true));
}

TEST(RpcProviderTest, EventHandlersStayAsLongAsTheyWant) {
    LogLines log;
    std::string said;
    auto call = makeObject<TestCall>("m");
    const RpcContext context(call.get());
    const auto hear = [&] {
        said.clear();
        call->callEventHandlers();
        return said;
    };
    context.addEventHandler([&, n = 0](const RpcContext&) mutable { return said += "a", ++n < 2; });
    context.addEventHandler([&](const RpcContext& self) {
        self.addEventHandler([&](const RpcContext&) { return said += "c", true; });
        said += "b";
        call->callEventHandlers(); // an event within an event is for the others
        return false;
    });
    context.addEventHandler([&](const RpcContext&) -> bool { throw std::runtime_error("tired"); });
    context.addEventHandler(nullptr);
    EXPECT_EQ(hear(), "abc");
    EXPECT_EQ(log.takeOne(), "[RPC:m] an event handler has failed: tired");
    EXPECT_EQ(hear(), "ac");
    EXPECT_EQ(hear(), "c");
    // What is cleared while it runs is not called again, and may hold the last handle.
    const int before = call->getReferenceCount();
    context.addEventHandler([held = context, internal = call.get()](const RpcContext&) {
        internal->clearEventHandlers();
        return true;
    });
    EXPECT_EQ(hear(), "c");
    context.addEventHandler([held = context](const RpcContext&) { return true; });
    EXPECT_EQ(hear(), "");
    EXPECT_EQ(call->getReferenceCount(), before);
}

} // namespace
} // namespace kiv
