#include "Rpc.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/process/ProcessPacketReader.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "kiv/rpc/RpcProtocol.h"

namespace {

// The limit: the same packets by hand, without anything that knows of open calls.

using namespace kiv;

SmartPointer<Packet> requestOf(int64_t a, int64_t b) {
    Item arguments;
    arguments.addInteger(a);
    arguments.addInteger(b);
    auto packet = makeObject<Packet>(&RpcProtocol::Request, short{0});
    packet->set(RpcProtocol::Request.call, 1);
    packet->setString(RpcProtocol::Request.method, "add");
    packet->setItem(RpcProtocol::Request.arguments, arguments);
    return packet;
}

SmartPointer<Packet> answerTo(Packet& request) {
    request.fit(&RpcProtocol::Request);
    const Item arguments = request.getItem(RpcProtocol::Request.arguments);
    auto iterator = arguments.getIterator();
    int64_t a = 0, b = 0;
    iterator.asInteger(a);
    iterator.asInteger(b);
    auto packet = makeObject<Packet>(&RpcProtocol::Answer, short{0});
    packet->set(RpcProtocol::Answer.call, 1);
    packet->setItem(RpcProtocol::Answer.result, Item(a + b));
    return packet;
}

int64_t sumOf(Packet& answer) {
    answer.fit(&RpcProtocol::Answer);
    const Item result = answer.getItem(RpcProtocol::Answer.result);
    int64_t sum = -1;
    result.getIterator().asInteger(sum);
    return sum;
}

class InMemory {
public:
    int64_t call(int64_t a, int64_t b) {
        const auto request = bench::carried(*requestOf(a, b));
        const auto answer = bench::carried(*answerTo(*request));
        return sumOf(*answer);
    }
};

class OverPipes {
public:
    OverPipes() { bench::startChild(m_process, "limit"); }
    ~OverPipes() { m_process.terminate(true); }

    int64_t call(int64_t a, int64_t b) {
        m_process.getPacketWriter()->write(requestOf(a, b).get());
        const auto answer = m_process.getPacketReader()->readTimeout(10000, 10);
        return answer ? sumOf(*answer) : -1;
    }

private:
    Process m_process;
};

const bool g_registered =
    (bench::raceCalls<InMemory>("in-memory/limit"), bench::raceCalls<OverPipes>("pipes/limit"), true);

} // namespace

int bench::answerByHand() {
    StdInPacketReader reader;
    StdOutPacketWriter writer;
    while (const auto packet = reader.read()) writer.write(answerTo(*packet).get());
    return 0;
}
