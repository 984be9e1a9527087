#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

// The work: a child process sends packets of one size through its standard output, each as a line of "PKTB16[", header
// and payload in hexadecimal digits, and "]"; the parent takes the payloads out again. Starting the child counts, too.
namespace bench {

constexpr size_t bytesARun = size_t{256} << 20;
constexpr size_t headerSize = 8;
constexpr std::string_view lineBegin = "PKTB16[";

// What a child does, which is this program called with the writer's name and the payload's size.
struct Writer {
    Writer(const char* name, void (*write)(size_t payloadSize, size_t count));
};

// A contestant in one direction, "from-child" or "to-child": starts the child and returns how many packets have
// arrived.
struct Contestant {
    Contestant(const char* direction, const char* name, size_t (*run)(size_t payloadSize));
};

const std::string& thisProgram();

// A child with its standard output as a pipe of 1 MiB if possible, for contestants that have no class for that.
class PlainChild {
public:
    PlainChild(const char* writer, size_t payloadSize);
    PlainChild(const PlainChild&) = delete;
    PlainChild& operator=(const PlainChild&) = delete;
    ~PlainChild();

    int output = -1;

private:
    int m_process = -1;
};

// Calls take(begin, end) for each line that comes from the descriptor.
template <class Take>
void readLines(int input, size_t longest, Take take) {
    std::vector<char> buffer(std::max<size_t>(longest, 1 << 20) * 2);
    size_t size = 0;
    for (;;) {
        const ssize_t count = read(input, buffer.data() + size, buffer.size() - size);
        if (count <= 0) return;
        const char* line = buffer.data();
        const char* scan = line + size;
        size += static_cast<size_t>(count);
        const char* const end = line + size;
        while (const void* found = memchr(scan, '\n', static_cast<size_t>(end - scan))) {
            const auto* lineEnd = static_cast<const char*>(found);
            take(line, lineEnd);
            line = scan = lineEnd + 1;
        }
        size = static_cast<size_t>(end - line);
        std::memmove(buffer.data(), line, size);
    }
}

inline void writeAll(const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t count = write(STDOUT_FILENO, bytes, size);
        if (count <= 0) return;
        bytes += count;
        size -= static_cast<size_t>(count);
    }
}

} // namespace bench
