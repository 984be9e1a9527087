#include "PacketsCommand.h"

#include "LogCatcher.h"
#include "Text.h"

#include "kiv/data/FilePacketReader.h"
#include "kiv/platform/Console.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>

namespace kiv::app {

namespace {

struct Damage {
    uint64_t offset;
    std::string reason;
};

std::string previewOf(const uint8_t* bytes, size_t size, size_t limit) {
    const size_t count = std::min(size, limit);
    std::string hex, characters;
    for (size_t i = 0; i < count; ++i) {
        hex += fmt::format("{:02X} ", bytes[i]);
        characters += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    return fmt::format("{:{}}|{}|{}", hex, 3 * limit, characters, count < size ? "..." : "");
}

class Listing {
public:
    explicit Listing(const PacketsCommand& command) : m_command(command), m_reader(command.file.c_str()) {}

    bool isOpen() const { return m_reader.isOpen(); }
    void list();
    int finish();

private:
    SmartPointer<Packet> read();
    // What holds for every packet of every scheme: a version suffix that fits its payload. Empty without one.
    std::string versionOf(const Packet& packet);
    void listPacket(const Packet& packet);
    void damage(uint64_t offset, std::string reason);

    const PacketsCommand& m_command;
    FilePacketReader m_reader;
    Output m_output;
    std::optional<Damage> m_damage;
    uint64_t m_records = 0;
    uint64_t m_payload = 0;
};

// The first damage counts: what follows may be its consequence.
void Listing::damage(uint64_t offset, std::string reason) {
    if (!m_damage) m_damage = {offset, std::move(reason)};
}

SmartPointer<Packet> Listing::read() {
    LogCatcher catcher;
    SmartPointer<Packet> packet = m_reader.read();
    if (!packet) {
        std::string reason = catcher.takeText();
        reason.erase(reason.find_last_not_of("\r\n") + 1);
        damage(m_reader.getOffset(),
               fmt::format("{} (of the record at offset {})", withoutControls(reason), m_reader.getRecordOffset()));
    }
    return packet;
}

std::string Listing::versionOf(const Packet& packet) {
    if (!packet.hasFlag(Packet::VersionedFlag)) return "-";
    const uint64_t payloadOffset = m_reader.getOffset() - packet.getPayloadSize();
    uint32_t suffix;
    if (packet.getPayloadSize() < sizeof suffix) {
        damage(payloadOffset,
               fmt::format("a payload of {} bytes is too small for its version suffix", packet.getPayloadSize()));
        return "?";
    }
    const unsigned usable = packet.getPayloadSize() - static_cast<unsigned>(sizeof suffix);
    std::memcpy(&suffix, packet.getPayloadPointer() + usable, sizeof suffix);
    if (const uint32_t staticSize = suffix & 0xFFFFFF; staticSize > usable)
        damage(payloadOffset + usable,
               fmt::format("a version suffix tells of {} bytes of static part, {} are there", staticSize, usable));
    return std::to_string(suffix >> 24);
}

void Listing::listPacket(const Packet& packet) {
    const std::string preview =
        m_command.preview ? previewOf(packet.getPayloadPointer(), packet.getPayloadSize(), m_command.preview) : "";
    m_output.write(fmt::format("{:>12} {:>9} {:>6} {:>6} {:>6}  {:04X} {:>7}  {}\n", m_reader.getRecordOffset(),
                               packet.getPayloadSize(), packet.getPort(), packet.getReplyPort(), packet.getID(),
                               static_cast<uint16_t>(packet.getFlags()), versionOf(packet), preview));
    ++m_records;
    m_payload += packet.getPayloadSize();
}

void Listing::list() {
    m_output.write(fmt::format("{:>12} {:>9} {:>6} {:>6} {:>6} {:>5} {:>7}  {}\n", "offset", "payload", "port", "reply",
                               "id", "flags", "version", m_command.preview ? "preview" : ""));
    while (m_output.isGood() && !m_reader.atEnd()) {
        const SmartPointer<Packet> packet = read();
        if (!packet) break;
        listPacket(*packet);
    }
}

int Listing::finish() {
    m_output.flush();
    if (m_damage)
        internal::writeStandardError(fmt::format("kiv packets: {}: damaged from offset {} on: {}\n",
                                                 withoutControls(m_command.file), m_damage->offset, m_damage->reason));
    if (!m_output.isGood()) internal::writeStandardError("kiv packets: standard output can't be written\n");
    internal::writeStandardError(fmt::format("kiv packets: {} records, {} bytes of payload, {}\n", m_records, m_payload,
                                             m_damage ? "DAMAGED" : "undamaged"));
    return m_damage || !m_output.isGood() ? 1 : 0;
}

} // namespace

void PacketsCommand::describe(CLI::App& app) {
    app.add_option("file", file, "The packet file")->type_name("FILE")->required();
    app.add_option("-p,--preview", preview, "Bytes of each payload to show")
        ->type_name("BYTES")
        ->check(CLI::Range(0, 4096).description(""))
        ->capture_default_str();
    app.footer(
        "One line for each record: its offset in the file, the size of its payload, the fields of its header, the\n"
        "version of its scheme, and the first bytes. Of a damaged file (exit status 1) all records before the\n"
        "damage are listed, and a message gives the offset of the first damaged byte.");
}

int PacketsCommand::run() const {
    Listing listing(*this);
    if (!listing.isOpen()) {
        internal::writeStandardError(fmt::format("kiv packets: {}: can't be read\n", withoutControls(file)));
        return 1;
    }
    listing.list();
    return listing.finish();
}

} // namespace kiv::app
