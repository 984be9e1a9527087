#pragma once

#include <cstdint>
#include <string>

// What tests ask of the operating system to see the library fail, or behind the library's back.
namespace support {

// Where the machine-wide registry is one to write to.
bool hasRegistry();
// A value that is a text, not bytes.
bool writeRegistryText(const char* keyPath, const char* valueName);
bool deleteRegistryKey(const char* keyPath);

// While it lives, files of this process end at `size` bytes: what is written beyond fails. Does nothing, and is not in
// force, on systems without such limits.
class FileSizeLimit {
public:
    explicit FileSizeLimit(uint64_t size);
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit();

    bool isInForce() const { return m_isInForce; }

private:
    bool m_isInForce = false;
    uint64_t m_before = 0;
};

// While it lives, the process gets no more memory from the system. Does nothing, and is not in force, on systems
// without such limits and under sanitizers, which want memory themselves.
class MemoryLimit {
public:
    MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
    ~MemoryLimit();

    bool isInForce() const { return m_isInForce; }

private:
    bool m_isInForce = false;
    uint64_t m_before = 0;
};

} // namespace support
