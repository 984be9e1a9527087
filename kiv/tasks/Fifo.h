#pragma once

#include "kiv/platform/Compiler.h"

#include <cassert>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace kiv::internal {

// A queue of plain values in a chain of blocks. Adding takes the same short time however long the queue is; it throws
// std::bad_alloc, and changes nothing then. One block more than needed is kept.
template <class T>
class Fifo {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    Fifo() = default;
    Fifo(const Fifo&) = delete;
    Fifo& operator=(const Fifo&) = delete;
    ~Fifo() {
        while (m_first) m_first = std::move(m_first->next); // not as deep as the chain is long
    }

    bool empty() const { return m_size == 0; }
    size_t size() const { return m_size; }

    T& front() {
        assert(m_size != 0);
        return m_first->values[m_begin];
    }
    T& back() {
        assert(m_size != 0);
        return m_last->values[m_end - 1];
    }

    void push_back(const T& value) {
        if (!m_last || m_end == valuesInBlock) addBlock();
        if (m_end + 16 < valuesInBlock) KIV_PREFETCH_TO_WRITE(&m_last->values[m_end + 16]);
        m_last->values[m_end++] = value;
        ++m_size;
    }
    void pop_front() {
        assert(m_size != 0);
        --m_size;
        if (++m_begin == valuesInBlock)
            removeBlock();
        else if (m_size == 0)
            m_begin = m_end = 0; // the only block
    }
    void swap(Fifo& other) noexcept {
        std::swap(m_first, other.m_first);
        std::swap(m_last, other.m_last);
        std::swap(m_spare, other.m_spare);
        std::swap(m_begin, other.m_begin);
        std::swap(m_end, other.m_end);
        std::swap(m_size, other.m_size);
    }

private:
    static constexpr size_t valuesInBlock = 4080 / sizeof(T);

    struct Block {
        std::unique_ptr<Block> next;
        T values[valuesInBlock];
    };

    void addBlock() {
        std::unique_ptr<Block> block = m_spare ? std::move(m_spare) : std::unique_ptr<Block>(new Block);
        Block* const added = block.get();
        (m_last ? m_last->next : m_first) = std::move(block);
        m_last = added;
        m_end = 0;
    }
    void removeBlock() {
        m_spare = std::exchange(m_first, std::move(m_first->next));
        m_begin = 0;
        if (!m_first) m_last = nullptr;
    }

    std::unique_ptr<Block> m_first;
    std::unique_ptr<Block> m_spare;
    Block* m_last = nullptr;
    size_t m_begin = 0; // in the first block
    size_t m_end = 0;   // in the last
    size_t m_size = 0;
};

} // namespace kiv::internal
