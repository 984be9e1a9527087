// Receives what `acquire` writes, and keeps it in every form: acquire | collect.

#include "examples/study/CommandLine.h"
#include "examples/study/ProgressLine.h"
#include "examples/study/StudyFolder.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/logging/LogBackend.h"

#include <CLI/CLI.hpp>

namespace {

void receive(StudyFolder& folder) {
    const auto reader = kiv::makeObject<kiv::StdInPacketReader>();
    ProgressLine progress;
    while (const kiv::SmartPointer<kiv::Packet> packet = reader->read()) {
        folder.take(*packet);
        if (progress.isDue()) progress.show(folder.describeProgress());
    }
}

// The exit status: 1 when anything was lost, refused or could not be kept.
int collect(const StudyFolder::Options& options) {
    StudyFolder folder("collect", options);
    bool isGood = folder.open();
    if (isGood) {
        receive(folder);
        isGood = folder.finish();
    }
    kiv::internal::writeStandardOutput(folder.summarise());
    return isGood && !folder.hasRefused() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Receives a study as packets on standard input: acquire | collect", "collect");
    StudyFolder::Options options;
    options.describe(app);
    if (const std::optional<int> status = readCommandLine(app, argc, argv)) return *status;
    kiv::logging::LogBackend::registerBackend(true); // the log goes into the store
    return collect(options);
}
