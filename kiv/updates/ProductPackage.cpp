#include "kiv/updates/ProductPackage.h"

#include "kiv/core/Random.h"
#include "kiv/data/FilePacketReader.h"
#include "kiv/data/PacketRecord.h"
#include "kiv/files/Directory.h"
#include "kiv/files/File.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileReplacement.h"
#include "kiv/platform/FileStream.h"
#include "kiv/platform/FileSystem.h"
#include "kiv/updates/PackageForm.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

namespace kiv {

using internal::largestPackagePiece;

const unsigned ProductPackage::maximumFileCount;
const unsigned ProductPackage::maximumNameSize;
const unsigned ProductPackage::maximumTextSize;
const unsigned ProductPackage::maximumManifestSize;

namespace {

bool report(const char* what, TextArg path, const std::string& failure) {
    if (!failure.empty())
        logging::MessageStream(3, 2) << "[PACKAGE] can't " << what << " '" << path << "': " << failure;
    return failure.empty();
}

// How far long work is; remembers what was wrong first.
class Work {
public:
    explicit Work(const ProductPackage::Progress& progress) : m_progress(progress) {}

    void setTotal(uint64_t total) { m_total = total; }
    bool advance(uint64_t bytes) {
        m_done += bytes;
        return !m_progress || m_progress(m_done, m_total) || fail("it was stopped");
    }
    bool fail(std::string failure) {
        if (m_failure.empty()) m_failure = std::move(failure);
        return false;
    }
    const std::string& getFailure() const { return m_failure; }

private:
    const ProductPackage::Progress& m_progress;
    uint64_t m_done = 0;
    uint64_t m_total = 0;
    std::string m_failure;
};

// Makes a package. Every file is read twice, for the manifest comes first.
class Packer : public Work {
public:
    Packer(TextArg path, TextArg folder, const ProductPackage::Progress& progress)
        : Work(progress), m_path(path), m_folder(folder) {}

    bool pack(TextArg product, TextArg version, const Signature::SecretKey& key);

private:
    bool list(const std::string& below);
    // `use` is called with all bytes of the file, a piece at a time.
    template <class Use>
    bool read(const ProductPackage::File& file, Use use);
    bool measure();
    bool writeManifest(const Signature::SecretKey& key);
    bool writeContents();
    bool writeRecord(Packet& packet);

    const std::string m_path;
    const std::string m_folder;
    ProductPackage::Manifest m_manifest;
    std::optional<platform::FileReplacement> m_file;
    Buffer m_piece{largestPackagePiece};
    Buffer m_record;
};

bool Packer::list(const std::string& below) {
    Vector<Directory::Entry> entries;
    const String path = Directory::join(m_folder, below);
    if (!Directory::list(path, entries)) return fail("the folder '" + path.to_std_string() + "' can't be read");
    for (const Directory::Entry& entry : entries) {
        ProductPackage::File file;
        file.name = Directory::join(below, entry.name);
        file.size = entry.size;
        const bool isFile = File::getSize(Directory::join(m_folder, file.name)).has_value();
        if (entry.isLink || !(entry.isDirectory || isFile))
            return fail("'" + file.name.to_std_string() + "' is a link or no ordinary file");
        // Deeper than names may be long is deep enough.
        if (file.name.size() > ProductPackage::maximumNameSize) return fail("a name is too long");
        if (m_manifest.files.size() >= ProductPackage::maximumFileCount) return fail("there are too many files");
        if (!entry.isDirectory)
            m_manifest.files.push_back(std::move(file));
        else if (!list(file.name))
            return false;
    }
    return true;
}

template <class Use>
bool Packer::read(const ProductPackage::File& file, Use use) {
    const String path = Directory::join(m_folder, file.name);
    const auto close = [](std::FILE* stream) { std::fclose(stream); };
    const std::unique_ptr<std::FILE, decltype(close)> stream(platform::openFile(path, platform::FileMode::Read), close);
    if (!stream) return fail("'" + path.to_std_string() + "' can't be read");
    for (uint64_t rest = file.size; rest > 0;) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(rest, m_piece.getSize()));
        if (std::fread(m_piece.getBytePointer(), 1, wanted, stream.get()) != wanted)
            return fail("'" + path.to_std_string() + "' can't be read, or has become shorter");
        if (!use(ConstByteSpan(m_piece.getBytePointer(), static_cast<unsigned>(wanted))) || !advance(wanted))
            return false;
        rest -= wanted;
    }
    return std::getc(stream.get()) == EOF || fail("'" + path.to_std_string() + "' has become longer");
}

bool Packer::measure() {
    Sha256 hash;
    return std::all_of(m_manifest.files.begin(), m_manifest.files.end(), [&](ProductPackage::File& file) {
        const auto add = [&hash](const ConstByteSpan& bytes) {
            hash.add(bytes.getBytePointer(), bytes.getSize());
            return true;
        };
        const bool isRead = read(file, add);
        file.digest = hash.finish();
        return isRead;
    });
}

bool Packer::writeRecord(Packet& packet) {
    packet.disableVersioning();
    const uint32_t size = packet.getPayloadSize();
    m_record.resizeExtraReserve(internal::packetRecordHead + size);
    uint8_t* const to = m_record.getBytePointer();
    std::memcpy(to, &size, sizeof size);
    std::memcpy(to + sizeof size, &packet.rawHeader(), sizeof(Packet::RawHeader));
    packet.copyPayloadTo(to + internal::packetRecordHead);
    return m_file->write(to, m_record.getSize()) || fail("it " + m_file->getFailure());
}

bool Packer::writeManifest(const Signature::SecretKey& key) {
    const internal::PackageManifestScheme& scheme = internal::packageManifestScheme();
    const Item manifest = internal::encodeManifest(m_manifest);
    if (manifest.getPlainSize() > ProductPackage::maximumManifestSize) return fail("there are too many files");
    const Signature::Bytes signature = Signature::sign(manifest.getConstByteSpan(), key);
    Packet packet(&scheme, 0);
    packet.setBuffer(scheme.signature, signature.data(), static_cast<unsigned>(signature.size()));
    packet.setItem(scheme.manifest, manifest);
    return writeRecord(packet);
}

bool Packer::writeContents() {
    const internal::PackageContentScheme& scheme = internal::packageContentScheme();
    Sha256 hash;
    return std::all_of(m_manifest.files.begin(), m_manifest.files.end(), [&](const ProductPackage::File& file) {
        const auto write = [&](const ConstByteSpan& bytes) {
            hash.add(bytes.getBytePointer(), bytes.getSize());
            Packet packet(&scheme, 0);
            packet.setBuffer(scheme.bytes, bytes, false);
            return writeRecord(packet);
        };
        return read(file, write) &&
               (hash.finish() == file.digest || fail("'" + file.name.to_std_string() + "' has changed meanwhile"));
    });
}

bool Packer::pack(TextArg product, TextArg version, const Signature::SecretKey& key) {
    m_manifest.product = product;
    m_manifest.version = version;
    if (!list({})) return false;
    const auto isBefore = [](const auto& a, const auto& b) { return a.name < b.name; };
    std::sort(m_manifest.files.begin(), m_manifest.files.end(), isBefore);
    if (std::string failure = internal::checkManifest(m_manifest); !failure.empty()) return fail(std::move(failure));
    setTotal(2 * m_manifest.getTotalSize());
    if (!measure()) return false;
    m_file.emplace(m_path);
    return writeManifest(key) && writeContents() && (m_file->commit() || fail("it " + m_file->getFailure()));
}

// Where the files of a package go that is read; nowhere, unless overridden.
class Receiver {
public:
    virtual ~Receiver() = default;
    // Each says why it can't; empty otherwise.
    virtual std::string begin(const ProductPackage::File&) { return {}; }
    virtual std::string add(const ConstByteSpan&) { return {}; }
    virtual std::string end() { return {}; }
};

class Unpacker : public Receiver {
public:
    explicit Unpacker(String folder) : m_folder(std::move(folder)) {}

    std::string begin(const ProductPackage::File& file) override {
        const std::string path = Directory::join(m_folder, file.name);
        // Which names are one is the file system's to say in the end.
        if (platform::fileInfo(path).kind != platform::FileKind::None) return "it has a file twice";
        if (!platform::createDirectories(path.substr(0, path.rfind('/')))) return "a folder can't be made";
        m_file.emplace(path);
        return describe();
    }
    std::string add(const ConstByteSpan& bytes) override {
        m_file->write(bytes.getBytePointer(), bytes.getSize());
        return describe();
    }
    std::string end() override {
        m_file->commit();
        return describe();
    }

private:
    std::string describe() const { return m_file->getFailure().empty() ? "" : "a file " + m_file->getFailure(); }

    const String m_folder;
    std::optional<platform::FileReplacement> m_file;
};

bool isPackageHeader(const Packet::RawHeader& header) {
    return header.port == 0 && header.replyPort == -1 && header.flags == 0;
}

class PackageReader : public Work {
public:
    PackageReader(TextArg path, const ProductPackage::Progress& progress)
        : Work(progress), m_reader(std::string(path).c_str()) {}

    bool readManifest(const Signature::PublicKey& key);
    // Requires: readManifest() was good.
    bool readContents(Receiver& receiver);
    const ProductPackage::Manifest& getManifest() const { return m_manifest; }

private:
    SmartPointer<Packet> readRecord(const PacketScheme& scheme);
    bool readFile(const ProductPackage::File& file, Receiver& receiver);
    bool readPiece(uint64_t& rest, Receiver& receiver);
    bool check(std::string failure) { return failure.empty() || fail(std::move(failure)); }

    FilePacketReader m_reader;
    ProductPackage::Manifest m_manifest;
    Sha256 m_hash;
};

SmartPointer<Packet> PackageReader::readRecord(const PacketScheme& scheme) {
    SmartPointer<Packet> packet = m_reader.read();
    // No byte of a package may be changed, not even one that nobody reads.
    if (packet && isPackageHeader(packet->rawHeader()) && packet->fit(&scheme)) return packet;
    fail(fmt::format("there is no record of a package at offset {}", m_reader.getRecordOffset()));
    return nullptr;
}

bool PackageReader::readManifest(const Signature::PublicKey& key) {
    if (!m_reader.isOpen()) return fail("it can't be opened");
    const internal::PackageManifestScheme& scheme = internal::packageManifestScheme();
    const SmartPointer<Packet> packet = readRecord(scheme);
    if (!packet) return false;
    const Item encoded = packet->getItem(scheme.manifest);
    Signature::Bytes signature;
    std::copy_n(packet->getBuffer(scheme.signature), signature.size(), signature.begin());
    if (!Signature::verify(signature, encoded.getConstByteSpan(), key)) return fail("it is not signed with this key");
    if (!check(internal::decodeManifest(encoded, m_manifest))) return false;
    setTotal(m_manifest.getTotalSize());
    return true;
}

bool PackageReader::readPiece(uint64_t& rest, Receiver& receiver) {
    const internal::PackageContentScheme& scheme = internal::packageContentScheme();
    const SmartPointer<Packet> packet = readRecord(scheme);
    if (!packet) return false;
    const ConstByteSpan bytes = packet->getByteSpan(scheme.bytes);
    if (bytes.empty() || bytes.getSize() > rest)
        return fail(fmt::format("the record at offset {} is not of the size that is left", m_reader.getRecordOffset()));
    rest -= bytes.getSize();
    m_hash.add(bytes.getBytePointer(), bytes.getSize());
    return check(receiver.add(bytes)) && advance(bytes.getSize());
}

bool PackageReader::readFile(const ProductPackage::File& file, Receiver& receiver) {
    if (!check(receiver.begin(file))) return false;
    for (uint64_t rest = file.size; rest > 0;)
        if (!readPiece(rest, receiver)) return false;
    if (m_hash.finish() != file.digest) return fail("'" + file.name.to_std_string() + "' is damaged");
    return check(receiver.end());
}

bool PackageReader::readContents(Receiver& receiver) {
    for (const ProductPackage::File& file : m_manifest.files)
        if (!readFile(file, receiver)) return false;
    return m_reader.atEnd() || fail(fmt::format("there is more behind its end at offset {}", m_reader.getOffset()));
}

std::string unpackInto(const String& folder, TextArg directory, PackageReader& reader) {
    if (!Directory::create(folder)) return "the folder can't be made";
    Unpacker unpacker(folder);
    if (reader.readContents(unpacker) && !Directory::rename(folder, directory)) return "the folder can't be renamed";
    return reader.getFailure();
}

} // namespace

uint64_t ProductPackage::Manifest::getTotalSize() const {
    uint64_t total = 0;
    for (const File& file : files) total += file.size;
    return total;
}

bool ProductPackage::create(TextArg path, TextArg folder, TextArg product, TextArg version,
                            const Signature::SecretKey& key, const Progress& progress) {
    Packer packer(path, folder, progress);
    packer.pack(product, version, key);
    return report("create", path, packer.getFailure());
}

bool ProductPackage::readManifest(TextArg path, const Signature::PublicKey& key, Manifest& out) {
    const Progress none;
    PackageReader reader(path, none);
    if (reader.readManifest(key)) out = reader.getManifest();
    return report("read", path, reader.getFailure());
}

bool ProductPackage::verify(TextArg path, const Signature::PublicKey& key, const Progress& progress) {
    PackageReader reader(path, progress);
    Receiver nobody;
    if (reader.readManifest(key)) reader.readContents(nobody);
    return report("verify", path, reader.getFailure());
}

bool ProductPackage::unpack(TextArg path, TextArg directory, const Signature::PublicKey& key,
                            const Progress& progress) {
    PackageReader reader(path, progress);
    if (!reader.readManifest(key)) return report("unpack", path, reader.getFailure());
    std::string target(directory);
    while (target.size() > 1 && target.back() == '/') target.pop_back();
    if (target.empty() || platform::fileInfo(target).kind != platform::FileKind::None ||
        platform::fileInfo(target).isLink)
        return report("unpack", path, "there is something of the name '" + target + "'");
    // Nobody can have foreseen this name and put a link there.
    const String folder(fmt::format("{}.{:016x}.new", target, Random::current().randomUInt64()));
    const std::string failure = unpackInto(folder, target, reader);
    if (!failure.empty()) Directory::removeTree(folder);
    return report("unpack", path, failure);
}

} // namespace kiv
