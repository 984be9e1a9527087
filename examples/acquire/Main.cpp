// A stand-in for the worker process of an imaging device: it computes a phantom, or takes a picture from a file, and
// writes it as packets on standard output, where its ordinary log lines go, too.

#include "PgmFile.h"
#include "Phantom.h"
#include "Sender.h"

#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace {

using kiv::logging::MessageStream;
using study::Geometry;
using study::TileScheme;

struct Options {
    uint32_t size = 256;
    uint32_t slices = 64;
    unsigned bits = 16;
    unsigned oversampling = 2;
    std::string image;
    uint32_t tileSize = 64;
    unsigned schemeVersion = 2;
};

void describe(CLI::App& app, Options& options) {
    const auto number = [&app](const char* name, auto& value, const char* what, unsigned least, unsigned greatest) {
        return app.add_option(name, value, what)->check(CLI::Range(least, greatest))->capture_default_str();
    };
    number("--size", options.size, "Pixels across and down the phantom", 1u, 4096u);
    number("--slices", options.slices, "Slices of the phantom", 1u, 4096u);
    app.add_option("--bits", options.bits, "Of a sample of the phantom")
        ->check(CLI::IsMember({8u, 16u}))
        ->capture_default_str();
    number("--oversampling", options.oversampling, "Points along each edge of a pixel", 1u, 8u);
    app.add_option("--image", options.image, "A binary PGM file, 8 or 16 bit, to send in place of the phantom")
        ->type_name("FILE");
    number("--tile", options.tileSize, "Pixels across and down a tile", 1u, Geometry::largestTile);
    number("--scheme-version", options.schemeVersion, "1: as the first devices did, without checksums", 1u, 2u);
}

kiv::Item aboutStudy(const char* kind) {
    kiv::Item pairs;
    pairs.add("device");
    pairs.add("acquire");
    pairs.add("kind");
    pairs.add(kind);
    pairs.add("series");
    pairs.add(1);
    kiv::Item about;
    about.addPrefix("table");
    about.addItem(pairs);
    return about;
}

bool sendPhantom(const Options& options, const Geometry& geometry, Sender& sender) {
    const Phantom phantom(options.size, options.slices, geometry.maximum, options.oversampling);
    std::vector<uint8_t> samples8(geometry.getSampleSize() == 1 ? size_t{options.size} * options.size : 0);
    std::vector<uint16_t> samples16(geometry.getSampleSize() == 2 ? size_t{options.size} * options.size : 0);
    for (uint32_t slice = 0; slice < geometry.slices; ++slice) {
        if (slice % 16 == 0)
            MessageStream(1, 2) << "[DEVICE] acquiring slice " << slice + 1 << " of " << geometry.slices;
        if (samples16.empty()) {
            phantom.drawSlice(slice, samples8.data());
            if (!sender.sendSlice(samples8.data())) return false;
        } else {
            phantom.drawSlice(slice, samples16.data());
            if (!sender.sendSlice(reinterpret_cast<const uint8_t*>(samples16.data()))) return false;
        }
    }
    return true;
}

int acquire(const Options& options) {
    PgmFile image;
    Geometry geometry;
    geometry.tileSize = options.tileSize;
    if (options.image.empty()) {
        geometry.width = geometry.height = options.size;
        geometry.slices = options.slices;
        geometry.maximum = options.bits == 8 ? 0xFF : 0xFFF; // 12 bits, as many detectors have them
    } else {
        if (const std::string why = image.read(options.image); !why.empty()) {
            MessageStream(3, 2) << "[DEVICE] " << options.image << " is not sent: " << why;
            return 1;
        }
        geometry.width = image.width;
        geometry.height = image.height;
        geometry.slices = 1;
        geometry.maximum = image.maximum;
    }
    if (!geometry.isValid()) {
        MessageStream(3, 2) << "[DEVICE] a study of this size is not sent";
        return 1;
    }

    const TileScheme scheme(options.schemeVersion == 1 ? TileScheme::Generation::First
                                                       : TileScheme::Generation::Checked);
    const auto writer = kiv::makeObject<kiv::StdOutPacketWriter>();
    const bool isPhantom = options.image.empty();
    Sender sender(scheme, geometry, aboutStudy(isPhantom ? "phantom" : "picture"), *writer);
    const bool isSent = (isPhantom ? sendPhantom(options, geometry, sender) : sender.sendSlice(image.samples.data())) &&
                        sender.sendEnd();
    MessageStream(isSent ? 1 : 3, 2) << "[DEVICE] " << sender.getSentTiles() << " tiles sent"
                                     << (isSent ? "" : ", then nobody took more");
    return isSent ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Acquires a study and writes it as packets on standard output: acquire | collect", "acquire");
    Options options;
    describe(app, options);
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    kiv::logging::LogBackend::registerBackend(false);
    return acquire(options);
}
