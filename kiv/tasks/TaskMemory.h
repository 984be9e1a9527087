#pragma once

#include <cstddef>

namespace kiv::internal {

// Memory of tasks. They are mostly small, made on one thread and destroyed on another, which general allocators find
// hard: here freed blocks come back in batches, without a lock for each. What is kept for reuse is bounded.
void* allocateTask(size_t size);
void freeTask(void* block, size_t size) noexcept;

} // namespace kiv::internal
