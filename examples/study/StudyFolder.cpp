#include "StudyFolder.h"

#include "Picture.h"

#include "kiv/data/FilePacketReader.h"
#include "kiv/platform/Console.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace {

using kiv::internal::StandardStream;
using study::Geometry;

void print(const std::string& text) {
    kiv::internal::writeStandardOutput(text);
}

double megabytesPerSecond(uint64_t bytes, double seconds) {
    return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0;
}

} // namespace

void StudyFolder::Options::describe(CLI::App& app) {
    app.add_option("-o,--out", folder, "Where the files go; made when it is not there")
        ->type_name("FOLDER")
        ->capture_default_str();
    app.add_option("--slice", slice, "Which slice to show, from 0 (the middle one)");
    app.add_option("--columns", columns, "How wide to show it (as the terminal, at most 100)")
        ->check(CLI::Range(1, 1000));
    app.add_flag("!--no-picture", drawsSlice, "Show none");
}

StudyFolder::StudyFolder(const char* program, const Options& options)
    : m_program(program), m_options(options), m_packetPath(options.folder + "/study.packets") {}

void StudyFolder::complain(const std::string& text) const {
    kiv::internal::writeStandardError(m_program + ": " + text + '\n');
}

bool StudyFolder::open() {
    std::error_code error;
    std::filesystem::create_directories(std::u8string(m_options.folder.begin(), m_options.folder.end()), error);
    m_writer.emplace(m_packetPath.c_str());
    if (m_writer->isOpen()) return true;
    complain(m_packetPath + " can't be created");
    return false;
}

Collection::Result StudyFolder::take(kiv::Packet& packet) {
    if (!m_begin) m_begin = std::chrono::steady_clock::now();
    const Collection::Result result = m_collection.take(packet);
    switch (result) {
    case Collection::Result::Taken:
        m_writer->write(&packet);
        m_store.add(packet);
        ++m_packets;
        m_bytes += packet.getPayloadSize();
        break;
    case Collection::Result::Repeated:
        ++m_repeated;
        break;
    case Collection::Result::Refused:
        ++m_refused;
        break;
    }
    return result;
}

bool StudyFolder::finish() {
    bool isGood = closeFile();
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
    return keepStore() && isGood;
}

bool StudyFolder::closeFile() {
    if (m_begin) m_end = std::chrono::steady_clock::now();
    m_store.finish();
    if (m_writer->close()) return true;
    complain(m_packetPath + " can't be written in full");
    return false;
}

bool StudyFolder::checkCompleteness() const {
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
bool StudyFolder::checkFile() const {
    kiv::FilePacketReader reader(m_packetPath.c_str());
    uint64_t confirmed = 0;
    while (!reader.atEnd()) {
        const kiv::SmartPointer<kiv::Packet> packet = reader.read();
        if (!packet || !m_collection.confirms(*packet)) break;
        ++confirmed;
    }
    if (confirmed == m_packets && reader.atEnd()) return true;
    complain(fmt::format("{} read again: {} of {} packets are as they arrived", m_packetPath, confirmed, m_packets));
    return false;
}

// Saves the store, and checks what can be made of it: a copy, and a packet file like the one that was kept.
bool StudyFolder::keepStore() {
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

bool StudyFolder::writePictures() const {
    const Geometry& geometry = *m_collection.getGeometry();
    for (uint32_t slice = 0; slice < geometry.slices; ++slice) {
        const std::string path = fmt::format("{}/slice-{:04}.pgm", m_options.folder, slice);
        if (!writePgm(path, geometry, m_collection.getSlice(slice))) return complain(path + " can't be written"), false;
    }
    return true;
}

void StudyFolder::draw() const {
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

double StudyFolder::getSeconds() const {
    if (!m_begin) return 0;
    return std::chrono::duration<double>(m_end.value_or(std::chrono::steady_clock::now()) - *m_begin).count();
}

std::string StudyFolder::describeProgress() const {
    const Geometry* geometry = m_collection.getGeometry();
    if (!geometry) return "nothing yet";
    return fmt::format("{:3}%  {} of {} tiles, {:.1f} MB/s",
                       m_collection.getReceivedTiles() * 100 / geometry->getTiles(), m_collection.getReceivedTiles(),
                       geometry->getTiles(), megabytesPerSecond(m_bytes, getSeconds()));
}

std::string StudyFolder::summarise(const std::string& more) const {
    return fmt::format("{}: {} packets, {} bytes in {:.3f} s ({:.1f} MB/s), {}{} lost, {} refused, {} repeated\n",
                       m_program, m_packets, m_bytes, getSeconds(), megabytesPerSecond(m_bytes, getSeconds()), more,
                       m_collection.getMissingTiles() + (m_collection.hasEnd() ? 0 : 1), m_refused, m_repeated);
}
