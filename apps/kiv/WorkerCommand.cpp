#include "WorkerCommand.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/system/PluginWorker.h"
#include "kiv/system/System.h"

#include <CLI/CLI.hpp>

namespace kiv::app {

void WorkerCommand::describe(CLI::App& app) {
    app.add_option("-p,--plugins", plugins, "The directory that the plug-ins are directories of")->type_name("DIR");
    app.footer("Started by kiv host: boots what that names, and ends when it is asked to, or when standard input\n"
               "ends. The exit status is 0.");
}

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
