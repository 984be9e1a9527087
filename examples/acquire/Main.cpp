// A stand-in for the worker process of an imaging device: it computes a phantom, or takes a picture from a file, and
// writes it as packets on standard output, where its ordinary log lines go, too. It does so at once, for a pipe, or as
// a host asks for it.

#include "Sender.h"
#include "Volume.h"
#include "Worker.h"

#include "examples/study/CommandLine.h"

#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/system/System.h"

#include <CLI/CLI.hpp>

namespace {

using kiv::logging::MessageStream;
using study::Geometry;
using study::TileScheme;

struct Options {
    Volume::Options volume;
    unsigned schemeVersion = 2;
    bool isWorker = false;
    std::string plugins;
};

void describe(CLI::App& app, Options& options) {
    const auto number = [&app](const char* name, auto& value, const char* what, unsigned least, unsigned greatest) {
        return app.add_option(name, value, what)->check(CLI::Range(least, greatest))->capture_default_str();
    };
    number("--size", options.volume.size, "Pixels across and down the phantom", 1u, 4096u);
    number("--slices", options.volume.slices, "Slices of the phantom", 1u, 4096u);
    app.add_option("--bits", options.volume.bits, "Of a sample of the phantom")
        ->check(CLI::IsMember({8u, 16u}))
        ->capture_default_str();
    number("--oversampling", options.volume.oversampling, "Points along each edge of a pixel", 1u, 8u);
    app.add_option("--image", options.volume.image, "A binary PGM file, 8 or 16 bit, to send in place of the phantom")
        ->type_name("FILE");
    number("--tile", options.volume.tileSize, "Pixels across and down a tile", 1u, Geometry::largestTile);
    number("--pace", options.volume.pace, "Milliseconds that a slice takes at least", 0u, 10000u);
    number("--scheme-version", options.schemeVersion, "1: as the first devices did, without checksums", 1u, 2u);
    app.add_flag("--worker", options.isWorker, "Serve a host: boot the plug-ins that it names, and do what these say");
    app.add_option("--plugins", options.plugins, "Where they are (Plugins, beside this program)")->type_name("FOLDER");
}

int serve(const Options& options, Volume& volume, Sender& sender) {
    kiv::System::initialize();
    const auto worker = kiv::makeObject<Worker>(
        options.plugins.empty() ? kiv::System::getPluginsDirectory() : kiv::String(options.plugins), volume, sender);
    worker->run();
    MessageStream(1, 2) << "[DEVICE] " << sender.getSentTiles() << " tiles sent, then " << worker->getEndText();
    kiv::System::deinitialize();
    return 0;
}

int acquire(const Options& options) {
    Volume volume;
    if (const std::string why = volume.open(options.volume); !why.empty()) {
        MessageStream(3, 2) << "[DEVICE] " << why;
        return 1;
    }
    Sender sender(volume, options.schemeVersion == 1 ? TileScheme::Generation::First : TileScheme::Generation::Checked);
    if (options.isWorker) return serve(options, volume, sender);
    const bool isSent = sender.sendAll();
    MessageStream(isSent ? 1 : 3, 2) << "[DEVICE] " << sender.getSentTiles() << " tiles sent"
                                     << (isSent ? "" : ", then nobody took more");
    return isSent ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Acquires a study and writes it as packets on standard output: acquire | collect", "acquire");
    Options options;
    describe(app, options);
    if (const std::optional<int> status = readCommandLine(app, argc, argv)) return *status;
    kiv::logging::LogBackend::registerBackend(false);
    kiv::logging::g_hideTimeInConsole = options.isWorker; // the host's log has its own
    return acquire(options);
}
