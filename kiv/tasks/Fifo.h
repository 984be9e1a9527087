#pragma once

#include <cassert>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

namespace kiv::internal {

// A queue of plain values in one ring that doubles when it is full. Adding throws std::bad_alloc, and changes nothing
// then.
template <class T>
class Fifo {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    bool empty() const { return m_size == 0; }
    size_t size() const { return m_size; }

    T& front() {
        assert(m_size != 0);
        return m_ring[m_begin];
    }
    T& back() {
        assert(m_size != 0);
        return m_ring[(m_begin + m_size - 1) & (m_capacity - 1)];
    }
    // By position from the front.
    T& operator[](size_t i) { return m_ring[(m_begin + i) & (m_capacity - 1)]; }

    void push_back(const T& value) {
        if (m_size == m_capacity) grow();
        m_ring[(m_begin + m_size) & (m_capacity - 1)] = value;
        ++m_size;
    }
    T pop_front() {
        const T value = front();
        m_begin = (m_begin + 1) & (m_capacity - 1);
        if (--m_size == 0 && m_capacity > keptCapacity) *this = Fifo();
        return value;
    }
    // Removes what `isGone` is true for; the others keep their order.
    template <class Predicate>
    void removeIf(Predicate isGone) {
        size_t kept = 0;
        for (size_t i = 0; i < m_size; ++i) {
            if (!isGone((*this)[i])) (*this)[kept++] = (*this)[i];
        }
        m_size = kept;
    }

private:
    static constexpr size_t keptCapacity = 4096; // a larger ring is freed when it has run empty

    void grow() {
        const size_t capacity = m_capacity == 0 ? 8 : 2 * m_capacity;
        std::unique_ptr<T[]> ring(new T[capacity]);
        for (size_t i = 0; i < m_size; ++i) ring[i] = (*this)[i];
        m_ring = std::move(ring);
        m_capacity = capacity;
        m_begin = 0;
    }

    std::unique_ptr<T[]> m_ring;
    size_t m_capacity = 0;
    size_t m_begin = 0;
    size_t m_size = 0;
};

} // namespace kiv::internal
