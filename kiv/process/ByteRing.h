#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kiv::internal {

// Bytes on their way through a pipe: a queue in a buffer whose size is a power of two. Both ends work on contiguous
// runs, so that systems and codecs read and write right here. The buffer is taken at the first use. One thread at a
// time.
class ByteRing {
public:
    static constexpr size_t npos = SIZE_MAX;

    // Requires: a power of two.
    explicit ByteRing(size_t capacity) : m_initialCapacity(capacity), m_capacity(capacity), m_mask(capacity - 1) {
        assert(capacity > 0 && (capacity & m_mask) == 0);
    }

    size_t size() const { return static_cast<size_t>(m_written - m_read); }
    size_t capacity() const { return m_capacity; }
    bool empty() const { return m_written == m_read; }
    bool full() const { return size() == m_capacity; }

    // The longest run of bytes from the first on; valid until the ring is changed.
    std::string_view readable() const {
        const size_t from = static_cast<size_t>(m_read) & m_mask;
        return {m_bytes.get() + from, std::min(size(), m_capacity - from)};
    }
    // Requires: count <= size().
    void consume(size_t count) {
        assert(count <= size());
        m_read += count;
        // From the start on, so that runs get long.
        if (m_read == m_written) m_read = m_written = 0;
    }

    // The longest run of free bytes; empty when the ring is full.
    std::span<char> writable() {
        allocate();
        const size_t from = static_cast<size_t>(m_written) & m_mask;
        return {m_bytes.get() + from, std::min(m_capacity - size(), m_capacity - from)};
    }
    // `count` free bytes in one run, for which the ring grows up to `limit` where needed, a power of two; null when
    // that is not enough.
    char* reserve(size_t count, size_t limit) {
        if (count > limit - std::min(size(), limit)) return nullptr;
        if (writable().size() < count) rearrange(size() + count);
        return writable().data();
    }
    // Requires: not more than writable() has, resp. was reserved.
    void commit(size_t count) {
        assert(count <= writable().size());
        m_written += count;
    }

    // How many bytes stand before the first `c` that is not among the first `from`; npos when there is none.
    size_t find(char c, size_t from) const {
        for (size_t position = from; position < size();) {
            const size_t index = static_cast<size_t>(m_read + position) & m_mask;
            const size_t length = std::min(size() - position, m_capacity - index);
            const char* const run = m_bytes.get() + index;
            if (const void* const found = std::memchr(run, c, length))
                return position + static_cast<size_t>(static_cast<const char*>(found) - run);
            position += length;
        }
        return npos;
    }
    // Moves the first bytes into `out`. Requires: count <= size().
    void take(size_t count, std::string& out) {
        out.clear();
        while (count > 0) {
            const std::string_view run = readable().substr(0, count);
            out += run;
            consume(run.size());
            count -= run.size();
        }
    }

    // Empties it and gives back what it has grown by.
    void clear() {
        m_read = m_written = 0;
        if (m_capacity == m_initialCapacity) return;
        m_bytes.reset();
        setCapacity(m_initialCapacity);
    }

private:
    void allocate() {
        if (!m_bytes) m_bytes.reset(new char[m_capacity]);
    }
    void setCapacity(size_t capacity) {
        m_capacity = capacity;
        m_mask = capacity - 1;
    }
    // Puts the contents to the start of a buffer of at least this size.
    void rearrange(size_t needed) {
        if (needed > m_capacity || readable().size() < size()) return rebuild(needed);
        std::memmove(m_bytes.get(), readable().data(), size());
        m_written = size();
        m_read = 0;
    }
    void rebuild(size_t needed) {
        size_t capacity = m_capacity;
        while (capacity < needed) capacity *= 2;
        std::unique_ptr<char[]> bytes(new char[capacity]);
        size_t count = 0;
        while (!empty()) {
            const std::string_view run = readable();
            std::memcpy(bytes.get() + count, run.data(), run.size());
            count += run.size();
            m_read += run.size();
        }
        m_bytes = std::move(bytes);
        setCapacity(capacity);
        m_read = 0;
        m_written = count;
    }

    const size_t m_initialCapacity;
    size_t m_capacity;
    size_t m_mask;
    uint64_t m_read = 0; // both count on and are masked where bytes are touched
    uint64_t m_written = 0;
    std::unique_ptr<char[]> m_bytes;
};

} // namespace kiv::internal
