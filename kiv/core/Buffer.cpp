#include "kiv/core/Buffer.h"

#include <algorithm>
#include <cassert>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

namespace kiv {

namespace {

constexpr uint64_t maximumSize = 0xFFFFFFFF;
constexpr uint64_t pageSize = 4096;

uint8_t* allocate(uint64_t size) {
    if (size > maximumSize) throw std::length_error("kiv::Buffer: more than 0xFFFFFFFF bytes");
    if (size == 0) return nullptr;
    auto* block = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(size)));
    if (!block) throw std::bad_alloc();
    return block;
}

// The standard functions must not see null pointers even for zero bytes.
void copyBytes(uint8_t* to, const uint8_t* from, size_t size) {
    if (size != 0) std::memmove(to, from, size);
}

uint64_t capacityWithSlack(uint64_t size) {
    uint64_t capacity = size + (size >> 3);
    if (capacity > pageSize) capacity = (capacity + pageSize - 1) & ~(pageSize - 1);
    return size <= maximumSize ? std::min(capacity, maximumSize) : capacity;
}

bool pointsInto(const uint8_t* pointer, const uint8_t* begin, size_t size) {
    return !std::less<>()(pointer, begin) && std::less<>()(pointer, begin + size);
}

} // namespace

Buffer::Buffer(unsigned size) : m_data(allocate(size)), m_size(size), m_reserved(size) {}

Buffer::Buffer(const uint8_t* bytes, unsigned size) : Buffer(size) {
    copyBytes(m_data, bytes, size);
}

Buffer::Buffer(const ConstByteSpan& bytes) : Buffer(bytes.getBytePointer(), bytes.getSize()) {}

Buffer::Buffer(const uint8_t* first, unsigned firstSize, const uint8_t* second, unsigned secondSize)
    : m_data(allocate(uint64_t{firstSize} + secondSize)), m_size(firstSize + secondSize), m_reserved(m_size) {
    copyBytes(m_data, first, firstSize);
    copyBytes(m_data + firstSize, second, secondSize);
}

Buffer::Buffer(const Buffer& other) : Buffer(other.m_data, other.m_size) {}

Buffer::Buffer(Buffer&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)),
      m_reserved(std::exchange(other.m_reserved, 0)) {}

Buffer::~Buffer() {
    std::free(m_data);
}

Buffer& Buffer::operator=(const Buffer& other) {
    set(other.m_data, other.m_size);
    return *this;
}

Buffer& Buffer::operator=(const ConstByteSpan& bytes) {
    set(bytes);
    return *this;
}

Buffer& Buffer::operator=(Buffer&& other) noexcept {
    swap(other);
    return *this;
}

void Buffer::swap(Buffer& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_reserved, other.m_reserved);
}

void Buffer::set(const uint8_t* bytes, unsigned size) {
    if (size > m_reserved) {
        uint8_t* block = allocate(size);
        copyBytes(block, bytes, size); // before the old block goes: the source may lie in it
        std::free(m_data);
        m_data = block;
        m_reserved = size;
    } else {
        copyBytes(m_data, bytes, size);
    }
    m_size = size;
}

void Buffer::growBlock(uint64_t capacity) {
    if (capacity > maximumSize) throw std::length_error("kiv::Buffer: more than 0xFFFFFFFF bytes");
    auto* block = static_cast<uint8_t*>(std::realloc(m_data, static_cast<size_t>(capacity)));
    if (!block) throw std::bad_alloc();
    m_data = block;
    m_reserved = static_cast<uint32_t>(capacity);
}

void Buffer::resize(unsigned size) {
    if (size > m_reserved) growBlock(size);
    m_size = size;
}

void Buffer::resizeExtraReserve(unsigned size) {
    if (size > m_reserved) growBlock(capacityWithSlack(size));
    m_size = size;
}

void Buffer::reserveTotal(unsigned capacity) {
    if (capacity > m_reserved) growBlock(capacity);
}

void Buffer::reserveAdditionally(unsigned minFree, unsigned preferred) {
    const uint64_t wanted = uint64_t{m_size} + std::max(minFree, preferred);
    if (m_reserved - m_size < minFree && m_reserved < wanted) growBlock(wanted);
}

void Buffer::free() {
    std::free(m_data);
    m_data = nullptr;
    m_size = 0;
    m_reserved = 0;
}

void Buffer::eraseBack(unsigned count) {
    m_size -= std::min(count, m_size);
}

void Buffer::eraseFront(unsigned count) {
    if (count == 0) return;
    if (count < m_size) {
        copyBytes(m_data, m_data + count, m_size - count);
        m_size -= count;
    } else {
        m_size = 0;
    }
}

uint8_t* Buffer::append(unsigned count) {
    const uint64_t size = uint64_t{m_size} + count;
    if (size > m_reserved) growBlock(capacityWithSlack(size));
    uint8_t* first = m_data + m_size;
    m_size = static_cast<uint32_t>(size);
    return first;
}

void Buffer::append(const uint8_t* bytes, unsigned size) {
    if (size == 0) return;
    if (m_size != 0 && pointsInto(bytes, m_data, m_size)) {
        const size_t offset = static_cast<size_t>(bytes - m_data);
        uint8_t* to = append(size);
        copyBytes(to, m_data + offset, size);
    } else {
        copyBytes(append(size), bytes, size);
    }
}

void Buffer::appendStringWithNull(const char* text) {
    if (!text) text = "";
    const size_t size = std::strlen(text) + 1;
    if (size > maximumSize) throw std::length_error("kiv::Buffer: more than 0xFFFFFFFF bytes");
    append(reinterpret_cast<const uint8_t*>(text), static_cast<unsigned>(size));
}

void Buffer::appendCommit(unsigned count) {
    assert(count <= getLeftReserved());
    m_size += count;
}

void Buffer::insertFront(const ConstByteSpan& bytes) {
    const unsigned count = bytes.getSize();
    if (count == 0) return;
    if (m_reserved != 0 && pointsInto(bytes.getBytePointer(), m_data, m_reserved)) {
        insertFront(Buffer(bytes).getConstByteSpan()); // moving the contents up would move the source too
        return;
    }
    const uint64_t size = uint64_t{m_size} + count;
    if (size > m_reserved) growBlock(size);
    copyBytes(m_data + count, m_data, m_size);
    copyBytes(m_data, bytes.getBytePointer(), count);
    m_size = static_cast<uint32_t>(size);
}

int Buffer::compare(const Buffer& a, const Buffer& b) {
    const uint32_t common = std::min(a.m_size, b.m_size);
    if (common != 0) {
        if (const int order = std::memcmp(a.m_data, b.m_data, common); order != 0) return order;
    }
    const int64_t difference = int64_t{a.m_size} - int64_t{b.m_size};
    return static_cast<int>(std::clamp<int64_t>(difference, INT_MIN, INT_MAX));
}

} // namespace kiv
