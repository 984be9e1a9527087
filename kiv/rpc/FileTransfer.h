#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/Sha256.h"
#include "kiv/platform/FileReplacement.h"
#include "kiv/platform/FileStream.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::internal {

// The two ends of a file that is moved between programs: pieces in order, then the digest of them all. What fails is
// told as a reason; the object is of no use then. Threads: one at a time.

class OutgoingFile {
public:
    // Its length is taken now and stays. Null with a reason when there is no such file, or one that is no file.
    static std::unique_ptr<OutgoingFile> open(const std::string& path, std::string& reason);
    OutgoingFile(const OutgoingFile&) = delete;
    OutgoingFile& operator=(const OutgoingFile&) = delete;
    ~OutgoingFile();

    uint64_t getTotal() const { return m_total; }
    uint64_t getOffset() const { return m_offset; }
    // The next `size` bytes, fewer at the end. False when they can't be read, or are not there any more.
    bool read(unsigned size, std::vector<uint8_t>& bytes);
    // Of all that was read. Once.
    Sha256::Digest finish() { return m_hash.finish(); }

private:
    OutgoingFile(std::FILE* file, uint64_t total) : m_file(file), m_total(total) {}

    std::FILE* const m_file;
    const uint64_t m_total;
    uint64_t m_offset = 0;
    Sha256 m_hash;
};

// In a temporary file until it is whole.
class IncomingFile {
public:
    explicit IncomingFile(const std::string& path) : m_replacement(path) {}

    uint64_t getSize() const { return m_size; }
    const std::string& getFailure() const { return m_replacement.getFailure(); }
    bool write(const ConstByteSpan& bytes);
    // Whether that is what was written. Once, at the end.
    bool isWhole(uint64_t size, const ConstByteSpan& digest);
    // Waits for the disk, for the thread that then calls commit(). Until isFlushed() only getSize() may be called.
    void flush();
    bool isFlushed() const { return m_isFlushed.load(std::memory_order_acquire); }
    // Puts the file into its place. False with a reason when it can't be put there. Once.
    bool commit(std::string& reason);

private:
    platform::FileReplacement m_replacement;
    uint64_t m_size = 0;
    Sha256 m_hash;
    std::atomic<bool> m_isFlushed{false};
};

// Whether a name that comes from elsewhere is one of a file, on every system: no path, no device, and none of those
// that files have before they are whole.
bool isPlainFileName(std::string_view name);
// Whether it is one of those: of FileReplacement.
bool isTemporaryFileName(std::string_view name);

} // namespace kiv::internal
