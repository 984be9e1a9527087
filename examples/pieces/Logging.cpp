#include "Pieces.h"

#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"

#include <iostream>

void showLogging() {
    using kiv::logging::LogBackend;
    using kiv::logging::MessageStream;

    kiv::logging::g_hideTimeInConsole = true;
    LogBackend::registerBackend(false);
    int problems = 0;
    const kiv::Connection listener = LogBackend::getSignalNewLogMessage().connect([&problems](int level, const char*) {
        if (level >= 2) ++problems;
    });

    MessageStream(1, 2) << "[CAMERA] " << 3 << " pictures taken";
    MessageStream(2, 2) << "[CAMERA] the battery is at " << 12.5 << " %";
    std::cout << problems << " problem\n";
    LogBackend::unregisterBackend();
}
