#include "kiv/store/StoreFileReader.h"

#include "kiv/platform/FileStream.h"
#include "kiv/store/StoreBlob.h"
#include "kiv/store/StoreFileForm.h"

#include <crc32c/crc32c.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace kiv {

namespace {

template <class T>
T load(const uint8_t* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

} // namespace

StoreFileReader::StoreFileReader(TextArg path)
    : m_file(path.find('\0') == path.npos ? platform::openFile(std::string(path).c_str(), platform::FileMode::Read)
                                          : nullptr) {
    if (!m_file) return;
    std::setvbuf(m_file, nullptr, _IONBF, 0);
    m_length = platform::getFileLength(m_file);
}

StoreFileReader::~StoreFileReader() {
    if (m_file) std::fclose(m_file);
}

bool StoreFileReader::damage(unsigned at, std::string reason) {
    m_offset += at;
    m_reason = std::move(reason);
    m_state = State::Damaged;
    return false;
}

void StoreFileReader::consume(unsigned size) {
    m_begin += size;
    m_offset += size;
}

// Reads on until `wanted` bytes are there from m_begin on. The buffer grows with what has arrived, not with what a
// length claims.
bool StoreFileReader::fill(uint64_t wanted) {
    m_checksum = crc32c::Extend(m_checksum, m_buffer.getBytePointer() + m_summed, m_begin - m_summed);
    m_buffer.eraseFront(m_begin);
    m_begin = m_summed = 0;
    while (m_buffer.getSize() < wanted) {
        const unsigned have = m_buffer.getSize();
        const uint64_t most = wanted - have + internal::storeFileBuffer;
        const auto room = static_cast<unsigned>(std::min<uint64_t>(std::max(have, internal::storeFileBuffer), most));
        uint8_t* const to = m_buffer.append(room);
        const size_t count = std::fread(to, 1, room, m_file);
        m_buffer.resize(have + static_cast<unsigned>(count));
        if (count == 0) return false;
    }
    return true;
}

// Whether `size` bytes are there, from the one at `at` on.
bool StoreFileReader::need(unsigned at, uint64_t size) {
    const auto available = [this] { return m_buffer.getSize() - m_begin; };
    if (available() >= at + size || fill(at + size)) return true;
    return damage(available(), std::ferror(m_file) ? "the file can't be read" : "the file ends too early");
}

bool StoreFileReader::readHeader() {
    using namespace internal;
    if (!need(0, storeFileHeader)) return false;
    if (std::memcmp(bytes(0), storeFileMark.data(), storeFileMark.size()) != 0) return damage(0, "no store file");
    const unsigned at = static_cast<unsigned>(storeFileMark.size());
    if (const auto version = load<uint32_t>(bytes(at)); version != storeFileVersion)
        return damage(at, fmt::format("version {} of the format, which is unknown here", version));
    consume(storeFileHeader);
    m_state = State::Entries;
    return true;
}

bool StoreFileReader::readTrailer() {
    using namespace internal;
    constexpr unsigned sumAt = storeFileTrailer - sizeof(uint32_t);
    if (!need(0, storeFileTrailer)) return false;
    if (const auto entries = load<uint64_t>(bytes(1)); entries != m_entries)
        return damage(1, fmt::format("the file tells of {} entries, {} are there", entries, m_entries));
    const uint32_t sum = crc32c::Extend(m_checksum, m_buffer.getBytePointer() + m_summed, m_begin + sumAt - m_summed);
    if (load<uint32_t>(bytes(sumAt)) != sum) return damage(sumAt, "the checksum does not match");
    consume(storeFileTrailer);
    m_summed = m_begin;
    if (m_begin < m_buffer.getSize() || fill(1)) return damage(0, "there is more behind the end");
    if (std::ferror(m_file)) return damage(0, "the file can't be read");
    m_state = State::Whole;
    return false;
}

// The bytes of the nested item at `at`, which moves behind it.
bool StoreFileReader::readNested(unsigned& at, ConstByteSpan& nested) {
    uint32_t size;
    if (!need(at, internal::blobHeadSize)) return false;
    if (!internal::readBlobHead(bytes(at), size)) return damage(at, "no key or value begins here");
    at += internal::blobHeadSize;
    if (!need(at, size)) return false;
    nested = ConstByteSpan(bytes(at), size);
    at += size;
    return true;
}

bool StoreFileReader::readKey(unsigned& at) {
    const unsigned begin = at + internal::blobHeadSize;
    ConstByteSpan span;
    if (!readNested(at, span)) return false;
    const Item key(Item::ExternalBufferMode(), span);
    if (!key.isCleanKey()) return damage(begin, "this is no clean key");
    if (m_entries != 0 && Item::compareTotal(m_last, key) >= 0)
        return damage(begin, "this key is not behind the one before");
    m_last.setPlain(key);
    return true;
}

bool StoreFileReader::read(Item& key, Item& value) {
    if (!m_file || (m_state == State::Start && !readHeader()) || m_state != State::Entries || !need(0, 1)) return false;
    if (*bytes(0) == internal::storeFileEnd) return readTrailer();
    unsigned at = 0;
    ConstByteSpan span;
    if (!readKey(at) || !readNested(at, span)) return false;
    key = Item(Item::ExternalBufferMode(), m_last.getConstByteSpan());
    value = Item(Item::ExternalBufferMode(), span);
    consume(at);
    ++m_entries;
    return true;
}

} // namespace kiv
