#include "kiv/system/PluginWorker.h"

#include "kiv/plugins/Plugins.h"
#include "kiv/script/VM.h"
#include "kiv/system/System.h"

namespace kiv {

PluginWorker::PluginWorker(const char* pluginsDirectory) {
    Plugins* const plugins = System::getPlugins();
    plugins->setPath(pluginsDirectory);
    m_parent = makeObject<ParentLink>(plugins, m_provider.get());
    m_parent->setBootHandler([this](int32_t index) { onBoot(index); });
    m_parent->setBootedHandler([this](int32_t index) { onBooted(index); });
    m_parent->setPacketHandler([this](Packet& packet) { onParentPacket(packet); });
}

PluginWorker::~PluginWorker() = default;

void PluginWorker::run() {
    while (pump()) {
    }
}

bool PluginWorker::pump() {
    System::processEvents();
    if (m_end != ParentLink::End::None) return false;
    if (const unsigned pause = System::getVM()->getIdleTime(longestPause)) m_parent->wait(pause);
    return true;
}

const char* PluginWorker::getEndText() const {
    switch (m_end) {
    case ParentLink::End::Asked:
        return "its parent has asked it to";
    case ParentLink::End::ParentGone:
        return "its parent is gone";
    default:
        return "";
    }
}

void PluginWorker::onTick() {
    if (m_parent && !m_parent->tick()) m_end = m_parent->getEnd();
}

void PluginWorker::onShutdown() {
    // Those whose calls end by it, and who call again, still find the parent.
    if (m_parent) m_parent->getRpc().end("the worker ends");
    // Else the thread that waits for standard input would be waited for.
    m_parent = nullptr;
}

void PluginWorker::onBoot(int32_t) {}
void PluginWorker::onBooted(int32_t) {}
void PluginWorker::onParentPacket(Packet&) {}

} // namespace kiv
