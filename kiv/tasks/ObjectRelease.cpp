#include "kiv/tasks/ObjectRelease.h"

#include "kiv/core/TimedReferences.h"
#include "kiv/tasks/LambdaTask.h"

#include <mutex>
#include <utility>

namespace kiv {
namespace {

struct ReleaseQueue {
    std::mutex mutex;
    SmartPointer<TaskQueue> queue;
};

// Never destroyed: static objects may release until the process ends.
ReleaseQueue& releaseQueue() {
    static ReleaseQueue& instance = *new ReleaseQueue;
    return instance;
}

} // namespace

SmartPointer<TaskQueue> internal::exchangeReleaseQueue(SmartPointer<TaskQueue> queue) {
    const std::lock_guard lock(releaseQueue().mutex);
    std::swap(releaseQueue().queue, queue);
    return queue;
}

void Object::decreaseReferenceCountAsyncOnParallel() {
    internal::appendTimedReferenceParallel(this);
    SmartPointer<TaskQueue> queue;
    {
        const std::lock_guard lock(releaseQueue().mutex);
        queue = releaseQueue().queue;
    }
    if (queue) queue->pushTask(new LambdaNoContextTask(&internal::removeAllTimedReferencesParallel), 0);
}

} // namespace kiv
