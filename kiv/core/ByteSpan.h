#pragma once

#include <cstdint>

namespace kiv {

// A view of constant bytes. Never owns; the bytes must outlive the view.
class ConstByteSpan {
public:
    constexpr ConstByteSpan() = default;
    constexpr ConstByteSpan(const uint8_t* data, unsigned size) : m_data(data), m_size(size) {}

    constexpr const uint8_t* getBytePointer() const { return m_data; }
    constexpr unsigned getSize() const { return m_size; }
    constexpr bool empty() const { return m_size == 0; }
    // Requires: index < getSize(); not checked.
    constexpr const uint8_t& operator[](unsigned index) const { return m_data[index]; }
    constexpr const uint8_t* begin() const { return m_data; }
    constexpr const uint8_t* end() const { return m_data + m_size; }

private:
    const uint8_t* m_data = nullptr;
    uint32_t m_size = 0;
};

// A view of mutable bytes. Never owns; the bytes must outlive the view.
class ByteSpan {
public:
    constexpr ByteSpan() = default;
    constexpr ByteSpan(uint8_t* data, unsigned size) : m_data(data), m_size(size) {}

    constexpr uint8_t* getBytePointer() const { return m_data; }
    constexpr unsigned getSize() const { return m_size; }
    constexpr bool empty() const { return m_size == 0; }
    // Requires: index < getSize(); not checked.
    constexpr uint8_t& operator[](unsigned index) const { return m_data[index]; }
    constexpr uint8_t* begin() const { return m_data; }
    constexpr uint8_t* end() const { return m_data + m_size; }
    constexpr operator ConstByteSpan() const { return {m_data, m_size}; }

private:
    uint8_t* m_data = nullptr;
    uint32_t m_size = 0;
};

} // namespace kiv
