#include "WorkerCommand.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/system/PluginWorker.h"
#include "kiv/system/System.h"

namespace kiv::app {

int WorkerCommand::run() const {
    System::initialize();
    {
        const auto worker = makeObject<PluginWorker>(plugins.empty() ? nullptr : plugins.c_str());
        worker->run();
        logging::MessageStream(1, 2) << "[WORKER] ends: " << worker->getEndText();
        System::deinitialize();
    }
    return 0;
}

} // namespace kiv::app
