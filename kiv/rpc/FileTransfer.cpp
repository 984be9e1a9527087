#include "kiv/rpc/FileTransfer.h"

#include "kiv/core/String.h"
#include "kiv/platform/FileSystem.h"

#include <algorithm>

namespace kiv::internal {

std::unique_ptr<OutgoingFile> OutgoingFile::open(const std::string& path, std::string& reason) {
    // Opening a pipe might wait for its other end.
    const bool isFile = platform::fileInfo(path).kind == platform::FileKind::File;
    std::FILE* const file = isFile ? platform::openFile(path.c_str(), platform::FileMode::Read) : nullptr;
    if (!file) {
        reason = "the file can't be opened";
        return nullptr;
    }
    return std::unique_ptr<OutgoingFile>(new OutgoingFile(file, platform::getFileLength(file)));
}

OutgoingFile::~OutgoingFile() {
    std::fclose(m_file);
}

bool OutgoingFile::read(unsigned size, std::vector<uint8_t>& bytes) {
    bytes.resize(static_cast<size_t>(std::min<uint64_t>(size, m_total - m_offset)));
    if (std::fread(bytes.data(), 1, bytes.size(), m_file) != bytes.size()) return false;
    m_offset += bytes.size();
    m_hash.add(bytes.data(), bytes.size());
    return true;
}

bool IncomingFile::write(const ConstByteSpan& bytes) {
    if (!m_replacement.write(bytes.getBytePointer(), bytes.getSize())) return false;
    m_size += bytes.getSize();
    m_hash.add(bytes.getBytePointer(), bytes.getSize());
    return true;
}

bool IncomingFile::isWhole(uint64_t size, const ConstByteSpan& digest) {
    const Sha256::Digest own = m_hash.finish();
    return size == m_size && std::equal(own.begin(), own.end(), digest.begin(), digest.end());
}

// A failure stays for commit() to tell.
void IncomingFile::flush() {
    m_replacement.flush();
    m_isFlushed.store(true, std::memory_order_release);
}

bool IncomingFile::commit(std::string& reason) {
    if (m_replacement.commit()) return true;
    reason = "the file " + m_replacement.getFailure();
    return false;
}

bool isPlainFileName(std::string_view name) {
    return !name.empty() && name.size() <= 255 && String(name).utf8_escape_filepath().view() == name &&
           !isTemporaryFileName(name);
}

bool isTemporaryFileName(std::string_view name) {
    const String stem = String(name.substr(0, name.find_last_not_of("0123456789") + 1)).utf8_lowercase();
    return stem.ends_with(".new");
}

} // namespace kiv::internal
