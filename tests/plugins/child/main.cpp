// The worker that the tests of plug-ins start: its first argument says how it behaves, if it is not "--plugins".

#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/process/Process.h"
#include "kiv/rpc/RpcProtocol.h"
#include "kiv/script/VM.h"
#include "kiv/system/PluginHost.h"
#include "kiv/system/PluginWorker.h"
#include "kiv/system/System.h"
#include "tests/support/ProgramState.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kiv;

// Answers the parent's calls, by calls of its own where they say so.
class Worker : public PluginWorker {
public:
    explicit Worker(const char* plugins) : PluginWorker(plugins) {
        RpcProvider& provider = getRpcProvider();
        const auto add = [&](const char* name, RpcProvider::Handler handler) {
            provider.addRPC(name, std::move(handler), nullptr, nullptr);
        };
        add("echo", [](const RpcContext& call) {
            call.result().concatItem(call.getArguments());
            call.finish();
        });
        add("die", [](const RpcContext&) { support::die(); });
        add("never", [this](const RpcContext& call) { m_kept.push_back(call); });
        // What the parent answers to the call that the argument names.
        add("ask", [this](const RpcContext& call) {
            getParent().getRpc().call(call.args().convertAsString().c_str(), Item(),
                                      [call](const RpcChannel::Answer& answer) {
                                          call.result().addBool(answer.isGood);
                                          call.result().addString(answer.error);
                                          call.result().addItem(answer.result);
                                          call.finish();
                                      });
        });
    }

private:
    void onBoot(int32_t) override {
        logging::MessageStream(1, 2) << "worker process " << Process::getCurrentProcessId();
    }
    // So many packets of numbers, and the end.
    void onParentPacket(Packet& packet) override {
        for (uint8_t i = 0; i < packet.getPayloadPointer()[0]; ++i) {
            const auto answer = makeObject<Packet>(1u << 20);
            answer->getPayloadPointer()[0] = i;
            getParent().send(answer.get());
        }
        if (packet.getPayloadPointer()[1] != 0) support::die();
    }

    std::vector<RpcContext> m_kept;
};

int work(const std::string& plugins) {
    System::initialize();
    {
        const auto worker = makeObject<Worker>(plugins.c_str());
        worker->run();
        logging::MessageStream(1, 2) << "the worker ends: " << worker->getEndText();
        System::deinitialize();
    }
    return 0;
}

// Says what it must not, and waits for its end.
int attack() {
    StdOutPacketWriter writer;
    for (const PacketScheme* scheme : {static_cast<const PacketScheme*>(&ProcessProtocol::Terminate),
                                       static_cast<const PacketScheme*>(&ProcessProtocol::PluginsHashes)})
        writer.write(makeObject<Packet>(scheme, short{0}).get());
    for (const short id : {ProcessProtocol::Terminate.getID(), RpcProtocol::Request.getID(),
                           RpcProtocol::Answer.getID(), RpcProtocol::FilePiece.getID()})
        for (unsigned size = 0; size < 40; ++size) {
            const auto packet = makeObject<Packet>(size);
            std::fill_n(packet->getPayloadPointer(), size, uint8_t{0xFF});
            packet->setID(id);
            writer.write(packet.get());
        }
    const auto last = makeObject<Packet>(2u);
    writer.write(last.get());
    while (std::getchar() != EOF) {
    }
    return 0;
}

int host(const std::string& plugins, const std::string& store, const std::string& self) {
    System::initialize();
    int status = 1;
    {
        PluginHost::Settings settings;
        settings.pluginsDirectory = plugins;
        settings.storePath = store;
        settings.workerPath = self;
        settings.workerArguments = {self, "--plugins", plugins};
        settings.workers = 1;
        settings.isChild = true;
        const auto application = makeObject<PluginHost>(settings);
        if (application->start() && application->run()) status = 0;
        System::deinitialize();
        logging::MessageStream(1, 2) << "the host ends: " << application->getEndText();
    }
    return status;
}

} // namespace

int main(int count, char** values) {
    support::useBinaryStreams();
    const std::vector<std::string> arguments = platform::commandLineArguments(count, values);
    const std::string mode = arguments.empty() ? "" : arguments[0];
    if (mode == "--plugins") return work(arguments.at(1));
    if (mode == "attack") return attack();
    if (mode == "host") return host(arguments.at(1), arguments.at(2), platform::programPath());
    if (mode == "deaf") return std::this_thread::sleep_for(std::chrono::minutes(2)), 1;
    return 99;
}
