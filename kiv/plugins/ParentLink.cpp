#include "kiv/plugins/ParentLink.h"

#include "kiv/core/Clock.h"
#include "kiv/data/Packet.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/script/Access.h"
#include "kiv/script/VM.h"

#include <cstring>
#include <utility>

namespace kiv {
namespace {

constexpr int32_t takingTime = 5; // milliseconds of a frame

kivSq::Object compile(const char* source, const char* name) {
    return kivSq::VM::current()->newClosure(source, static_cast<unsigned>(std::strlen(source)), name);
}

} // namespace

class ParentLink::Impl {
public:
    Impl(Plugins* plugins, RpcProvider* provider);

    bool tick();
    void wait(unsigned milliseconds);
    bool send(Packet* packet);
    void take(Packet& packet);
    void boot(Packet& packet);
    void runScripts(const Packet& packet);

    const SmartPointer<Plugins> plugins;
    const SmartPointer<RpcProvider> provider;
    const SmartPointer<StdInPacketReader> reader = makeObject<StdInPacketReader>();
    const SmartPointer<StdOutPacketWriter> writer = makeObject<StdOutPacketWriter>();
    const SmartPointer<RpcChannel> rpc;
    std::function<void(Packet&)> packetHandler;
    std::function<void(int32_t)> bootHandler;
    std::function<void(int32_t)> bootedHandler;
    SmartPointer<Packet> next; // came while it was waited for
    bool isBooted = false;
    End end = End::None;
};

ParentLink::Impl::Impl(Plugins* thePlugins, RpcProvider* theProvider)
    : plugins(thePlugins), provider(theProvider),
      rpc(makeObject<RpcChannel>([this](Packet* packet) { return send(packet); }, theProvider)) {
    reader->disableBlocking();
    // It could just as well send the code that does what it wants.
    rpc->setRights([](const char*) { return true; });
}

bool ParentLink::Impl::tick() {
    const uint32_t begin = Clock::current().getTime();
    while (end == End::None && Clock::timeDifference(Clock::current().getTime(), begin) < takingTime) {
        const SmartPointer<Packet> packet = next ? std::exchange(next, nullptr) : reader->read();
        if (!packet) break;
        take(*packet);
    }
    if (end == End::None && !next && !reader->valid()) end = End::ParentGone;
    if (end == End::None) rpc->tick();
    if (end != End::None) rpc->close("the worker ends");
    return end == End::None;
}

void ParentLink::Impl::wait(unsigned milliseconds) {
    if (!next && end == End::None) next = reader->readTimeout(milliseconds, milliseconds);
}

bool ParentLink::Impl::send(Packet* packet) {
    writer->write(packet);
    return writer->valid();
}

void ParentLink::Impl::take(Packet& packet) {
    if (packet.getID() == ProcessProtocol::Terminate.getID())
        end = End::Asked;
    else if (packet.getID() == ProcessProtocol::PluginsHashes.getID())
        boot(packet);
    else if (!rpc->onPacket(&packet) && packetHandler)
        packetHandler(packet);
}

void ParentLink::Impl::boot(Packet& packet) {
    const ProcessProtocol::PluginsHashesScheme& scheme = ProcessProtocol::PluginsHashes;
    kivSq::VM* const vm = kivSq::VM::current();
    if (!packet.fit(&scheme)) return;
    if (!plugins || !vm || std::exchange(isBooted, true)) {
        logging::MessageStream(2, 2) << "[WORKER] a list of plug-ins is ignored: "
                                     << (isBooted ? "there was one already" : "this program boots none");
        return;
    }
    const int32_t index = packet.get(scheme.index);
    vm->getNamespace("std").set("worker_index", kivSq::Object::from(index));
    if (bootHandler) bootHandler(index);
    // Exactly those whose contents the parent has seen.
    plugins->executeBootstrapScripts(packet.getItem(scheme.pluginsHashes), true);
    runScripts(packet);
    if (bootedHandler) bootedHandler(index);
}

void ParentLink::Impl::runScripts(const Packet& packet) {
    const ProcessProtocol::PluginsHashesScheme& scheme = ProcessProtocol::PluginsHashes;
    kivSq::VM* const vm = kivSq::VM::current();
    if (!vm) return; // a script may have ended it
    const char* const initScript = packet.getString(scheme.initScript);
    const char* const startupScript = packet.getString(scheme.startupScript);
    if (*initScript) vm->executeString(initScript, "initScript");
    if (!*startupScript || kivSq::VM::current() != vm) return;
    if (const kivSq::Object closure = compile(startupScript, "startupScript")) vm->createThread(closure);
}

ParentLink::ParentLink(Plugins* plugins, RpcProvider* provider) : m_impl(std::make_unique<Impl>(plugins, provider)) {}

ParentLink::~ParentLink() {
    m_impl->rpc->end("the worker ends"); // others may keep the channel, which sends by this
}

bool ParentLink::tick() {
    const SmartPointer<ParentLink> keeper(this); // a handler may release it
    return m_impl->tick();
}

void ParentLink::wait(unsigned milliseconds) {
    m_impl->wait(milliseconds);
}

ParentLink::End ParentLink::getEnd() const {
    return m_impl->end;
}

void ParentLink::setPacketHandler(std::function<void(Packet&)> handler) {
    m_impl->packetHandler = std::move(handler);
}

void ParentLink::setBootHandler(std::function<void(int32_t index)> handler) {
    m_impl->bootHandler = std::move(handler);
}

void ParentLink::setBootedHandler(std::function<void(int32_t index)> handler) {
    m_impl->bootedHandler = std::move(handler);
}

bool ParentLink::send(Packet* packet) {
    return m_impl->send(packet);
}

RpcChannel& ParentLink::getRpc() {
    return *m_impl->rpc;
}

} // namespace kiv
