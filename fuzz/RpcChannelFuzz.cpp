#include "Folder.h"
#include "Silence.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/files/File.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProtocol.h"
#include "kiv/rpc/RpcProvider.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using namespace kiv;

struct Input {
    const uint8_t* data;
    size_t size;

    uint8_t byte() { return size > 0 ? --size, *data++ : 0; }
};

const PacketScheme* const schemes[] = {&RpcProtocol::Request,  &RpcProtocol::Answer,   &RpcProtocol::Cancel,
                                       &RpcProtocol::FileOpen, &RpcProtocol::FilePull, &RpcProtocol::FilePiece,
                                       &RpcProtocol::FileEnd};

const Folder folder;
const bool isOffered = File::writeFile(folder.path("offered"), {reinterpret_cast<const uint8_t*>("four"), 4});

// A packet of the peer: any bytes, or fields of small values, which mean something more often.
SmartPointer<Packet> packetOf(Input& in, const PacketScheme& scheme) {
    const bool isRaw = in.byte() % 4 == 0;
    const std::vector<uint8_t> bytes(in.data, in.data + std::min<size_t>(in.byte() % 32, in.size));
    in.data += std::min(bytes.size(), in.size);
    in.size -= std::min(bytes.size(), in.size);
    const auto size = static_cast<unsigned>(bytes.size());
    auto packet = makeObject<Packet>(&scheme, short{0});
    const char* const names[] = {"keep", "move", "offered", "new"};
    for (const PacketElement& element : scheme.getElements()) {
        const PacketField field(&element);
        if (element.isInteger()) packet->setInteger(field, static_cast<int8_t>(in.byte()));
        if (element.kind == PacketElementKind::Text) packet->setString(field, names[in.byte() % 4]);
        if (element.isDynamic() && element.hasBytes()) packet->setBuffer(field, bytes.data(), size);
    }
    if (scheme.getID() == RpcProtocol::FilePull.getID())
        packet->set(RpcProtocol::FilePull.size, RpcProtocol::largestPiece);
    auto raw =
        isRaw ? makeObject<Packet>(size) : Packet::createFromBufferWithManifest(packet->convertToBufferWithManifest());
    if (isRaw) std::copy(bytes.begin(), bytes.end(), raw->getPayloadPointer());
    raw->setID(scheme.getID());
    raw->setFlags(Packet::VersionedFlag);
    return raw;
}

} // namespace

// A peer that sends whatever it likes to an end that answers, calls and moves files. Every call ends exactly once.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    ManualClock clock;
    const auto provider = makeObject<RpcProvider>();
    std::vector<RpcContext> kept;
    provider->addRPC(
        "keep", [&](const RpcContext& context) { kept.push_back(context); }, "", "");
    provider->addRPC(
        "move",
        [&](const RpcContext& context) {
            const String path = folder.path("moved");
            context.addEventHandler([&](const RpcContext& self) {
                int percent = 0;
                String text;
                if (self.getFileTransferStatus(percent, text) && percent == 100) self.finish();
                return true;
            });
            if (in.byte() % 2)
                context.initiateFileTransfer(RpcContext::FetchFromCaller, {{"new", path}});
            else
                context.initiateFileTransfer(RpcContext::SendToCaller, {{"x", String(folder.path("offered"))}});
        },
        "", "");
    unsigned calls = 0, answers = 0;
    auto channel = makeObject<RpcChannel>([](Packet*) { return true; }, provider.get());
    channel->setMaximumFileSize(1000);
    while (in.size > 0) {
        const uint8_t what = in.byte() % 16;
        if (what < 10) {
            channel->onPacket(packetOf(in, *schemes[what % 7]).get());
        } else if (what == 10) {
            RpcChannel::Call call;
            call.method = "any";
            call.files = {{"offered", String(folder.path("offered"))}};
            call.receivingDirectory = folder.path();
            call.onAnswer = [&](const RpcChannel::Answer&) { ++answers; };
            channel->call(std::move(call));
            ++calls;
        } else if (what == 11) {
            channel->cancel(in.byte());
        } else if (what == 12) {
            clock.advance(in.byte() * 256);
            channel->tick();
        } else if (what == 13 && !kept.empty()) {
            kept[in.byte() % kept.size()].finish();
        } else if (what == 14) {
            kept.clear();
        } else if (what == 15) {
            channel->close("");
            channel->open();
        }
    }
    channel.reset();
    kept.clear();
    if (answers != calls || !isOffered) std::abort();
    return 0;
}
