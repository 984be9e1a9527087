#pragma once

#include "kiv/core/SmartPointer.h"

namespace kiv {

class TaskQueue;

namespace internal {

// The queue on which decreaseReferenceCountAsyncOnParallel releases; returns the one before. With none, which is so at
// first, references are only listed. Any thread.
KIV_API SmartPointer<TaskQueue> exchangeReleaseQueue(SmartPointer<TaskQueue> queue);

} // namespace internal
} // namespace kiv
