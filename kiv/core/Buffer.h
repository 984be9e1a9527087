#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/platform/Compiler.h"

#include <compare>
#include <concepts>
#include <cstdint>

namespace kiv {

// The one owning, growable byte array: a plain value with 32-bit sizes, at most 0xFFFFFFFF bytes.
// Bytes between the size and the capacity are unspecified and never zeroed. Sources of copying operations may lie
// inside the buffer itself. Growth past the largest size throws std::length_error, a failed allocation std::bad_alloc;
// both leave the buffer as it was. Pointers and spans into it are valid until the next operation that grows, frees or
// moves it. Threads: as for any value, one at a time.
class KIV_API Buffer {
public:
    static const char* getStaticClassName() { return "Buffer"; }

    Buffer() = default;
    // `size` bytes of unspecified content.
    explicit Buffer(unsigned size);
    Buffer(const uint8_t* bytes, unsigned size);
    Buffer(const ConstByteSpan& bytes);
    // The two ranges one after the other.
    Buffer(const uint8_t* first, unsigned firstSize, const uint8_t* second, unsigned secondSize);
    Buffer(const Buffer& other);
    Buffer(Buffer&& other) noexcept;
    ~Buffer();

    Buffer& operator=(const Buffer& other);
    Buffer& operator=(const ConstByteSpan& bytes);
    // Exchanges the two buffers: the old block goes to `other` and is freed with it.
    Buffer& operator=(Buffer&& other) noexcept;
    void swap(Buffer& other) noexcept;

    // Replaces the contents; a larger block than `size` is kept.
    void set(const uint8_t* bytes, unsigned size);
    void set(const ConstByteSpan& bytes) { set(bytes.getBytePointer(), bytes.getSize()); }

    unsigned getSize() const { return m_size; }
    unsigned getReservedSize() const { return m_reserved; }
    unsigned getLeftReserved() const { return m_reserved - m_size; }
    bool empty() const { return m_size == 0; }
    // True when there are bytes. Implicit on purpose: `bool b = buffer` would otherwise test the pointer.
    operator bool() const { return m_size != 0; }

    // Null until something was reserved.
    uint8_t* getBytePointer() const { return m_data; }
    operator uint8_t*() const { return m_data; }
    // Requires: index < getSize(); not checked. A template, so that no index type competes with the pointer conversion.
    template <std::integral Index>
    uint8_t& operator[](Index index) {
        return m_data[index];
    }
    template <std::integral Index>
    const uint8_t& operator[](Index index) const {
        return m_data[index];
    }
    ByteSpan getByteSpan() { return {m_data, m_size}; }
    ConstByteSpan getConstByteSpan() const { return {m_data, m_size}; }
    operator ConstByteSpan() const { return getConstByteSpan(); }

    // Exact growth: a new block has room for exactly `size` bytes. Shrinking keeps the block and the bytes behind the
    // end.
    void resize(unsigned size);
    // Growth for appenders: a new block has an eighth more, in whole pages of 4096 bytes once it is larger than one.
    void resizeExtraReserve(unsigned size);
    // Makes the capacity at least `capacity` bytes, exactly that when the block has to grow.
    void reserveTotal(unsigned capacity);
    // Makes room for `minFree` more bytes; when the block has to grow, for max(minFree, preferred) more.
    void reserveAdditionally(unsigned minFree, unsigned preferred);
    // Empties the buffer and keeps the block.
    void clear() { m_size = 0; }
    // Empties the buffer and gives the block back.
    void free();
    // Drops `count` bytes from the end or the front, all of them when there are fewer.
    void eraseBack(unsigned count);
    void eraseFront(unsigned count);

    // Grows by `count` unspecified bytes and returns the first of them.
    uint8_t* append(unsigned count);
    void append(const uint8_t* bytes, unsigned size);
    void append(const ConstByteSpan& bytes) { append(bytes.getBytePointer(), bytes.getSize()); }
    void append(const Buffer& other) { append(other.m_data, other.m_size); }
    // Appends the text and its terminating zero byte; null is the empty text.
    void appendStringWithNull(const char* text);
    // The free tail, for a producer that writes in place and then calls appendCommit().
    ByteSpan appendReserve() { return {m_data + m_size, m_reserved - m_size}; }
    // Takes `count` bytes written into appendReserve(). Requires: count <= getLeftReserved(); asserted in debug builds.
    void appendCommit(unsigned count);
    // Puts the bytes in front of the contents; grows exactly.
    void insertFront(const ConstByteSpan& bytes);

    // Negative, 0 or positive: the first different byte decides, else the sizes (a shorter prefix sorts first).
    static int compare(const Buffer& a, const Buffer& b);
    friend bool operator==(const Buffer& a, const Buffer& b) { return a.m_size == b.m_size && compare(a, b) == 0; }
    friend std::strong_ordering operator<=>(const Buffer& a, const Buffer& b) { return compare(a, b) <=> 0; }
    // Written out: where `<=>` stands alone, std::less<> and the ranges take buffers, which convert to pointers, for
    // pointers and order them by address.
    friend bool operator<(const Buffer& a, const Buffer& b) { return compare(a, b) < 0; }
    friend bool operator<=(const Buffer& a, const Buffer& b) { return compare(a, b) <= 0; }
    friend bool operator>(const Buffer& a, const Buffer& b) { return compare(a, b) > 0; }
    friend bool operator>=(const Buffer& a, const Buffer& b) { return compare(a, b) >= 0; }

    // Replaces the contents by those of the file at the UTF-8 path; on failure the buffer is empty and the result
    // false. A file that can't be opened is logged unless `quiet`, one that can't be read always. Defined in files/.
    bool loadFromFile(const char* path, bool quiet);
    // The same through the application's resource locator. Defined in system/.
    bool loadFromResource(const char* name, bool quiet);
    // Creates or truncates the file and writes everything; true only if every byte was written. Defined in files/.
    bool saveToFile(const char* path) const;

private:
    void growBlock(uint64_t capacity);

    uint8_t* m_data = nullptr;
    uint32_t m_size = 0;
    uint32_t m_reserved = 0;
};

} // namespace kiv
