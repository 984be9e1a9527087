#include "tests/process/child/RpcCommand.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProvider.h"
#include "tests/support/ProgramState.h"

namespace {

using namespace kiv;

void add(const RpcContext& context) {
    int64_t sum = 0;
    for (int64_t value = 0; context.args().asInteger(value);) sum += value;
    context.result().addInteger(sum);
    context.finish();
}

RpcProvider::Handler mover(int direction) {
    return [direction](const RpcContext& context) {
        String name, path;
        context.args().asString(name);
        context.args().asString(path);
        context.addEventHandler([](const RpcContext& self) {
            int percent = 0;
            String text;
            self.getFileTransferStatus(percent, text);
            if (percent >= 0 && percent < 100) return true;
            self.result().addInteger(percent);
            self.finish();
            return false;
        });
        context.initiateFileTransfer(direction, {{name, path}});
    };
}

} // namespace

int answerRemoteCalls() {
    StdInPacketReader reader;
    StdOutPacketWriter writer;
    const auto provider = makeObject<RpcProvider>();
    RpcChannel* line = nullptr;
    provider->addRPC("add", add, "", "");
    provider->addRPC("fetch", mover(RpcContext::FetchFromCaller), "", "");
    provider->addRPC("give", mover(RpcContext::SendToCaller), "", "");
    provider->addRPC(
        "die", [](const RpcContext&) { support::die(); }, "", "");
    provider->addRPC(
        "ask",
        [&](const RpcContext& context) {
            line->call("double", context.getArguments(), [context](const RpcChannel::Answer& answer) {
                context.result() = answer.result;
                context.finish();
            });
        },
        "", "");
    const auto channel =
        makeObject<RpcChannel>([&](Packet* packet) { return writer.write(packet), true; }, provider.get());
    line = channel.get();
    while (reader.valid()) {
        if (const auto packet = reader.readTimeout(10, 10)) channel->onPacket(packet.get());
        channel->tick();
    }
    return 0;
}
