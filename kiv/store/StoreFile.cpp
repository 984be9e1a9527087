#include "kiv/store/StoreFile.h"

#include "kiv/core/SmartPointer.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileReplacement.h"
#include "kiv/store/EntryWalk.h"
#include "kiv/store/StoreBlob.h"
#include "kiv/store/StoreFileForm.h"
#include "kiv/store/StoreFileReader.h"

#include <crc32c/crc32c.h>
#include <fmt/format.h>

namespace kiv {

namespace {

bool refuse(const char* what, TextArg path, const std::string& reason) {
    logging::MessageStream(3, 2) << "[STORE] can't " << what << " '" << path << "': " << reason;
    return false;
}

// Calls what it is given for every entry in order, for as long as that returns true.
using Visit = std::function<bool(const Item& key, const Item& value)>;
using Walk = std::function<void(const Visit& visit)>;

class Writer {
public:
    Writer(Walk walk, TextArg path, const StoreFile::Progress& progress)
        : m_walk(std::move(walk)), m_progress(progress), m_file(std::string(path)) {}

    // The reason why the file was not written; empty when it was.
    std::string write();

private:
    uint64_t measure();
    bool writeEntry(const Item& key, const Item& value);
    void putNested(const Item& item);
    void put(const void* bytes, unsigned size);
    bool flush();

    const Walk m_walk;
    const StoreFile::Progress& m_progress;
    platform::FileReplacement m_file;
    Buffer m_waiting;
    uint32_t m_checksum = 0;
    uint64_t m_done = 0;
    uint64_t m_total = 0;
    uint64_t m_entries = 0;
    std::string m_failure;
};

// A whole walk, which only who asks for progress pays for.
uint64_t Writer::measure() {
    uint64_t size = internal::storeFileHeader + internal::storeFileTrailer;
    m_walk([&size](const Item& key, const Item& value) {
        size += uint64_t{key.getPlainSize()} + value.getPlainSize() + 2 * internal::blobHeadSize;
        return true;
    });
    return size;
}

bool Writer::flush() {
    m_checksum = crc32c::Extend(m_checksum, m_waiting.getBytePointer(), m_waiting.getSize());
    const bool isWritten = m_file.write(m_waiting.getBytePointer(), m_waiting.getSize());
    m_done += m_waiting.getSize();
    m_waiting.clear();
    if (isWritten && m_progress) m_progress(m_done, m_total);
    return isWritten;
}

void Writer::put(const void* bytes, unsigned size) {
    m_waiting.append(static_cast<const uint8_t*>(bytes), size);
}

void Writer::putNested(const Item& item) {
    internal::writeBlobHead(m_waiting.append(internal::blobHeadSize), item.getPlainSize());
    put(item.getPlainBytePointer(), item.getPlainSize());
}

bool Writer::writeEntry(const Item& key, const Item& value) {
    if (!key.isCleanKey()) {
        m_failure = "the key " + key.asString().to_std_string() + " is not clean and could not be loaded";
        return false;
    }
    putNested(key);
    putNested(value);
    ++m_entries;
    return m_waiting.getSize() < internal::storeFileBuffer || flush();
}

std::string Writer::write() {
    using namespace internal;
    if (m_progress) m_total = measure();
    put(storeFileMark.data(), static_cast<unsigned>(storeFileMark.size()));
    put(&storeFileVersion, sizeof storeFileVersion);
    if (m_file.getFailure().empty())
        m_walk([this](const Item& key, const Item& value) { return writeEntry(key, value); });
    if (!m_failure.empty()) return m_failure;
    put(&storeFileEnd, sizeof storeFileEnd);
    put(&m_entries, sizeof m_entries);
    const uint32_t checksum = crc32c::Extend(m_checksum, m_waiting.getBytePointer(), m_waiting.getSize());
    put(&checksum, sizeof checksum);
    if (flush()) m_file.commit();
    return m_file.getFailure();
}

} // namespace

bool StoreFile::save(Store* store, TextArg path, const Progress& progress) {
    if (!store) return refuse("save", path, "there is no store");
    const Walk walk = [store](const Visit& visit) { internal::visitEntries(*store, visit); };
    const std::string failure = Writer(walk, path, progress).write();
    return failure.empty() || refuse("save", path, failure);
}

bool StoreFile::saveBlob(const ConstByteSpan& blob, TextArg path) {
    const Walk walk = [&blob](const Visit& visit) {
        const Item::ExternalBufferMode view;
        ConstByteSpan rest = blob, key, value;
        while (internal::takeBlobEntry(rest, key, value) && visit(Item(view, key), Item(view, value))) {
        }
    };
    const std::string failure = Writer(walk, path, {}).write();
    return failure.empty() || refuse("save", path, failure);
}

bool StoreFile::load(MemoryStore* store, TextArg path, const Progress& progress) {
    if (!store) return refuse("load", path, "there is no store");
    if (store->getNumberOfLayers() > 1) return refuse("load", path, "the store has an open transaction");
    StoreFileReader reader(path);
    if (!reader.isOpen()) return refuse("load", path, "it can't be opened");
    const auto loaded = makeObject<MemoryStore>(store->isTransactional());
    uint64_t shown = 0;
    Item key, value;
    while (reader.read(key, value)) {
        loaded->set(key, value);
        if (progress && reader.getOffset() - shown >= internal::storeFileBuffer)
            progress(shown = reader.getOffset(), reader.getLength());
    }
    if (!reader.isWhole())
        return refuse("load", path,
                      fmt::format("damaged from offset {} on: {}", reader.getOffset(), reader.getReason()));
    if (progress) progress(reader.getOffset(), reader.getLength());
    *store = std::move(*loaded);
    return true;
}

} // namespace kiv
