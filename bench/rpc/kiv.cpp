#include "Rpc.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/process/ProcessPacketReader.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProvider.h"

#include <deque>

namespace {

using namespace kiv;

SmartPointer<RpcProvider> adder() {
    auto provider = makeObject<RpcProvider>();
    provider->addRPC(
        "add",
        [](const RpcContext& context) {
            int64_t a = 0, b = 0;
            context.args().asInteger(a);
            context.args().asInteger(b);
            context.result().addInteger(a + b);
            context.finish();
        },
        "", "");
    return provider;
}

// Calls and moves packets by `exchange` until the answer is there.
template <class Exchange>
int64_t callOver(RpcChannel& channel, int64_t a, int64_t b, Exchange exchange) {
    Item arguments;
    arguments.addInteger(a);
    arguments.addInteger(b);
    int64_t sum = -1;
    bool isAnswered = false;
    channel.call("add", arguments, [&](const RpcChannel::Answer& answer) {
        isAnswered = true;
        answer.result.getIterator().asInteger(sum);
    });
    while (!isAnswered) exchange();
    return sum;
}

class InMemory {
public:
    int64_t call(int64_t a, int64_t b) {
        return callOver(*m_caller, a, b, [this] {
            pass(m_there, *m_answerer);
            pass(m_back, *m_caller);
        });
    }

private:
    using Queue = std::deque<SmartPointer<Packet>>;

    static RpcChannel::Send into(Queue& queue) {
        return [&queue](Packet* packet) { return queue.push_back(bench::carried(*packet)), true; };
    }
    static void pass(Queue& queue, RpcChannel& to) {
        while (!queue.empty()) {
            const auto packet = std::move(queue.front());
            queue.pop_front();
            to.onPacket(packet.get());
        }
        to.tick();
    }

    Queue m_there, m_back;
    const SmartPointer<RpcChannel> m_caller = makeObject<RpcChannel>(into(m_there));
    const SmartPointer<RpcChannel> m_answerer = makeObject<RpcChannel>(into(m_back), adder().get());
};

class OverPipes {
public:
    OverPipes() { bench::startChild(m_process, "kiv"); }
    ~OverPipes() { m_process.terminate(true); }

    int64_t call(int64_t a, int64_t b) {
        return callOver(*m_caller, a, b, [this] {
            const auto packet = m_process.getPacketReader()->readTimeout(10000, 10);
            if (packet) m_caller->onPacket(packet.get());
            m_caller->tick();
        });
    }

private:
    Process m_process;
    const SmartPointer<RpcChannel> m_caller =
        makeObject<RpcChannel>([this](Packet* packet) { return m_process.getPacketWriter()->write(packet), true; });
};

const bool g_registered = (bench::raceCalls<InMemory>("in-memory/kiv"), bench::raceCalls<OverPipes>("pipes/kiv"), true);

} // namespace

int bench::answerAsChannel() {
    StdInPacketReader reader;
    StdOutPacketWriter writer;
    RpcChannel channel([&](Packet* packet) { return writer.write(packet), true; }, adder().get());
    while (const auto packet = reader.read()) {
        channel.onPacket(packet.get());
        channel.tick();
    }
    return 0;
}
