#include "Scalar.h"

#include <vector>

namespace {

// By hand: one line and one write() a packet.
void write(size_t payloadSize, size_t count) {
    std::vector<uint8_t> payload(payloadSize);
    for (size_t i = 0; i < payloadSize; ++i) payload[i] = static_cast<uint8_t>(i * 7);
    std::vector<char> line(bench::lineBegin.size() + 2 * (bench::headerSize + payloadSize) + 2);
    for (size_t n = 0; n < count; ++n) {
        char* to = line.data() + bench::lineBegin.copy(line.data(), bench::lineBegin.size());
        to = std::fill_n(to, 2 * bench::headerSize, '0');
        for (const uint8_t byte : payload) {
            *to++ = "0123456789ABCDEF"[byte >> 4];
            *to++ = "0123456789ABCDEF"[byte & 15];
        }
        *to++ = ']';
        *to++ = '\n';
        bench::writeAll(line.data(), line.size());
    }
}

size_t read(size_t payloadSize) {
    const bench::PlainChild child("scalar", payloadSize);
    size_t count = 0;
    bench::readLines(child.output, 3 * payloadSize, [&](const char* line, const char* end) {
        count += bench::decodeScalar(line, end).size() == payloadSize;
    });
    return count;
}

const bench::Writer writer("scalar", write);
const bench::Contestant fromChild("from-child", "scalar", read);

} // namespace
