// Receives what `acquire` writes: keeps the packets in a file and in a store, puts the pictures together, checks all of
// them against each other, writes PGM files and shows one slice.

#include "Collection.h"
#include "Picture.h"
#include "ProgressLine.h"
#include "StudyStore.h"

#include "kiv/data/FilePacketReader.h"
#include "kiv/data/FilePacketWriter.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

namespace {

using kiv::internal::StandardStream;
using study::Geometry;

struct Options {
    std::string folder = "collected";
    std::optional<uint32_t> slice;
    unsigned columns = 0;
    bool drawsSlice = true;
};

struct Totals {
    uint64_t packets = 0; // that were taken and kept
    uint64_t bytes = 0;   // of their payloads
    uint64_t refused = 0;
    uint64_t repeated = 0;
    double seconds = 0; // from the first packet to the end of the stream
};

void describe(CLI::App& app, Options& options) {
    app.add_option("-o,--out", options.folder, "Where the files go; made when it is not there")
        ->type_name("FOLDER")
        ->capture_default_str();
    app.add_option("--slice", options.slice, "Which slice to show, from 0 (the middle one)");
    app.add_option("--columns", options.columns, "How wide to show it (as the terminal, at most 100)")
        ->check(CLI::Range(1, 1000));
    app.add_flag("!--no-picture", options.drawsSlice, "Show none");
}

void print(const std::string& text) {
    kiv::internal::writeStandardOutput(text);
}

void complain(const std::string& text) {
    kiv::internal::writeStandardError("collect: " + text + '\n');
}

std::filesystem::path pathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

double megabytesPerSecond(uint64_t bytes, double seconds) {
    return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0;
}

class Run {
public:
    explicit Run(const Options& options) : m_options(options), m_packetPath(options.folder + "/study.packets") {}

    // The exit status: 1 when anything was lost, refused or could not be kept.
    int collect();

private:
    bool receive();
    void takePacket(kiv::Packet& packet, kiv::FilePacketWriter& writer);
    bool checkCompleteness() const;
    bool checkFile() const;
    bool keepStore();
    bool writePictures() const;
    void draw() const;
    void summarise() const;

    const Options& m_options;
    const std::string m_packetPath;
    Collection m_collection;
    StudyStore m_store{m_collection};
    Totals m_totals;
};

void Run::takePacket(kiv::Packet& packet, kiv::FilePacketWriter& writer) {
    switch (m_collection.take(packet)) {
    case Collection::Result::Taken:
        writer.write(&packet);
        m_store.add(packet);
        ++m_totals.packets;
        m_totals.bytes += packet.getPayloadSize();
        break;
    case Collection::Result::Repeated:
        ++m_totals.repeated;
        break;
    case Collection::Result::Refused:
        ++m_totals.refused;
        break;
    }
}

bool Run::receive() {
    kiv::FilePacketWriter writer(m_packetPath.c_str());
    if (!writer.isOpen()) return complain(m_packetPath + " can't be created"), false;
    const auto reader = kiv::makeObject<kiv::StdInPacketReader>();
    std::optional<std::chrono::steady_clock::time_point> start;
    {
        ProgressLine progress;
        while (const kiv::SmartPointer<kiv::Packet> packet = reader->read()) {
            if (!start) start = std::chrono::steady_clock::now();
            takePacket(*packet, writer);
            const Geometry* geometry = m_collection.getGeometry();
            if (!geometry || !progress.isDue()) continue;
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - *start;
            progress.show(fmt::format("{:3}%  {} of {} tiles, {:.1f} MB/s",
                                      m_collection.getReceivedTiles() * 100 / geometry->getTiles(),
                                      m_collection.getReceivedTiles(), geometry->getTiles(),
                                      megabytesPerSecond(m_totals.bytes, elapsed.count())));
        }
    }
    if (start) m_totals.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - *start).count();
    m_store.finish();
    if (!writer.close()) return complain(m_packetPath + " can't be written in full"), false;
    return true;
}

bool Run::checkCompleteness() const {
    if (!m_collection.getGeometry()) return complain("no study arrived"), false;
    if (!m_collection.hasEnd())
        complain("the stream ended before the sender had finished; what arrived is kept");
    else if (m_collection.getMissingTiles() == 0 && !m_collection.agreesWithSender())
        complain("the study has not the checksum its sender gives");
    if (const uint64_t missing = m_collection.getMissingTiles())
        complain(fmt::format("{} of {} tiles are missing, black in the pictures", missing,
                             m_collection.getGeometry()->getTiles()));
    return m_collection.agreesWithSender();
}

// Reads the packet file as any other program would, and compares what it says with the pictures.
bool Run::checkFile() const {
    kiv::FilePacketReader reader(m_packetPath.c_str());
    uint64_t confirmed = 0;
    while (!reader.atEnd()) {
        const kiv::SmartPointer<kiv::Packet> packet = reader.read();
        if (!packet || !m_collection.confirms(*packet)) break;
        ++confirmed;
    }
    if (confirmed == m_totals.packets && reader.atEnd()) return true;
    complain(
        fmt::format("{} read again: {} of {} packets are as they arrived", m_packetPath, confirmed, m_totals.packets));
    return false;
}

// Saves the store, and checks what can be made of it: a copy, and a packet file like the one that was kept.
bool Run::keepStore() {
    const std::string storePath = m_options.folder + "/study.store", tablePath = m_options.folder + "/table.packets";
    if (m_collection.getGeometry()) print(m_store.describe());
    const std::optional<uint64_t> copied = m_store.copyWithoutLog();
    if (!copied) complain("a copy of the store is not what it was copied from");
    const bool isWritten = m_store.writeTable(tablePath);
    if (!isWritten) complain(tablePath + " can't be written in full");
    const bool isSame = isWritten && m_store.confirmsTable(tablePath);
    if (isWritten && !isSame) complain(tablePath + " is not what arrived");
    m_store.takeLog();
    const bool isSaved = m_store.save(storePath);
    if (!isSaved) complain(storePath + " can't be written");
    if (!copied || !isSame || !isSaved) return false;
    print(fmt::format("{}: {} entries without the log; its table, written again to {}, is record for record what "
                      "arrived\n",
                      storePath, *copied, tablePath));
    return true;
}

bool Run::writePictures() const {
    const Geometry& geometry = *m_collection.getGeometry();
    for (uint32_t slice = 0; slice < geometry.slices; ++slice) {
        const std::string path = fmt::format("{}/slice-{:04}.pgm", m_options.folder, slice);
        if (!writePgm(path, geometry, m_collection.getSlice(slice))) return complain(path + " can't be written"), false;
    }
    return true;
}

void Run::draw() const {
    const Geometry& geometry = *m_collection.getGeometry();
    const uint32_t slice = std::min(m_options.slice.value_or(geometry.slices / 2), geometry.slices - 1);
    const auto colors = kiv::internal::getTerminalColors(StandardStream::Output);
    const DrawingStyle style = colors == kiv::internal::TerminalColors::Rgb          ? DrawingStyle::Rgb
                               : colors == kiv::internal::TerminalColors::Palette256 ? DrawingStyle::Greys
                                                                                     : DrawingStyle::Characters;
    const unsigned width = kiv::internal::getTerminalWidth(StandardStream::Output);
    const unsigned columns = m_options.columns ? m_options.columns : std::min(width ? width : 72, 100u);
    print(drawSlice(geometry, m_collection.getSlice(slice), columns, style));
    print(fmt::format("slice {} of 0 to {}, {} x {} pixels of {} bit; about: {}\n", slice, geometry.slices - 1,
                      geometry.width, geometry.height, geometry.getSampleSize() * 8,
                      m_collection.getAbout().getJSON(false).view()));
}

void Run::summarise() const {
    print(fmt::format(
        "collect: {} packets, {} bytes in {:.3f} s ({:.1f} MB/s), {} lost, {} refused, {} repeated\n", m_totals.packets,
        m_totals.bytes, m_totals.seconds, megabytesPerSecond(m_totals.bytes, m_totals.seconds),
        m_collection.getMissingTiles() + (m_collection.hasEnd() ? 0 : 1), m_totals.refused, m_totals.repeated));
}

int Run::collect() {
    std::error_code error;
    std::filesystem::create_directories(pathOf(m_options.folder), error);
    bool isGood = receive();
    isGood = checkCompleteness() && isGood;
    if (const Geometry* geometry = m_collection.getGeometry()) {
        const bool isKept = checkFile(), isWritten = writePictures();
        if (m_options.drawsSlice) draw();
        if (isGood && isKept)
            print(fmt::format("all {} tiles arrived; {} read again gives the same pictures bit for bit, and they have "
                              "the sender's checksum{}\n",
                              geometry->getTiles(), m_packetPath,
                              m_collection.getUncheckedTiles() ? ", though single tiles came without" : ""));
        if (isWritten) print(fmt::format("pictures: {} in {}/slice-*.pgm\n", geometry->slices, m_options.folder));
        isGood = isGood && isKept && isWritten;
    }
    isGood = keepStore() && isGood;
    summarise();
    return isGood && m_totals.refused == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Receives a study as packets on standard input: acquire | collect", "collect");
    Options options;
    describe(app, options);
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    kiv::logging::LogBackend::registerBackend(true); // the log goes into the store
    return Run(options).collect();
}
