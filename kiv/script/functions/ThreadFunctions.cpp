#include "kiv/core/Clock.h"
#include "kiv/script/AsyncQueue.h"
#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VMThreads.h"

#include <algorithm>

namespace kivSq::internal {
namespace {

AsyncQueue* currentQueue() {
    const VM::Thread* thread = requireVM().getCurrentThread();
    return thread ? thread->queue.get() : nullptr;
}

SQInteger sleep(SQVM* v) {
    int64_t milliseconds = 0;
    if (!getInteger(v, 2, INT64_MIN, INT64_MAX, milliseconds)) return throwMismatch(v, 1, "integer", 2);
    milliseconds = std::clamp<int64_t>(milliseconds, 0, INT32_MAX);
    const uint32_t end = kiv::Clock::current().getTime() + static_cast<uint32_t>(milliseconds);
    return requireVM(v).suspend(v, WakeCondition::after(end));
}

SQInteger sleepForever(SQVM* v) {
    return requireVM(v).suspend(v, WakeCondition::never());
}

SQInteger yield(SQVM* v) {
    return requireVM(v).suspend(v, WakeCondition::nextPass());
}

// (closure [, queue])
SQInteger async(SQVM* v) {
    Functor functor;
    if (!Access<Functor>::get(v, 2, functor)) return throwMismatch(v, 1, Access<Functor>::name(), 2);
    if (sq_gettop(v) > 3) return sq_throwerror(v, "wrong number of parameters");
    AsyncQueue* queue = currentQueue();
    if (sq_gettop(v) == 3) {
        queue = getInstance<AsyncQueue>(v, 3);
        if (!queue) return throwMismatch(v, 2, Access<AsyncQueue>::name(), 3);
    }
    if (queue) {
        queue->push(functor.getClosure());
    } else {
        requireVM(v).createThread(functor.getClosure());
    }
    return 0;
}

// ([max])
SQInteger makeQueue(SQVM* v) {
    int64_t max = 1;
    if (sq_gettop(v) > 2) return sq_throwerror(v, "wrong number of parameters");
    if (sq_gettop(v) == 2 && !getInteger(v, 2, 1, INT64_MAX, max)) return throwMismatch(v, 1, "positive integer", 2);
    const auto queue = kiv::makeObject<AsyncQueue>(max);
    return Access<AsyncQueue*>::push(v, queue.get()) ? 1 : SQ_ERROR;
}

bool isCurrentQueueAborting() {
    return requireVM().isCurrentThreadsAsyncQueueAborting();
}

// In place of the engine's, which in the main VM would end what runs there without a word. In a script thread it is
// another yield.
SQInteger suspend(SQVM* v) {
    const VM& vm = requireVM(v);
    if (v == vm.getSquirrelVM()) return sq_throwerror(v, "suspend called outside of a coroutine");
    const VM::Thread* thread = vm.getCurrentThread();
    return thread && thread->engine == v ? yield(v) : sq_suspendvm(v);
}

} // namespace

void addThreadFunctions(SQVM* v, const Object& table) {
    NativeTable(v, table)
        .plain<&sleep>("sleep", 2)
        .plain<&sleepForever>("sleep_forever", 1)
        .plain<&yield>("yield", 1)
        .plain<&async>("async", -2)
        .carried("queue", &makeQueue, -1)
        .plain<&currentQueue>("get_current_queue")
        .carried("current_queue_is_aborting", &isCurrentQueueAborting);
    NativeTable(v, requireVM(v).getRootTable()).plain<&suspend>("suspend", -1);
    Class<AsyncQueue>(table, "AsyncQueue")
        .method(
            "push", +[](AsyncQueue& queue, const Functor& functor) { queue.push(functor.getClosure()); })
        .method("abort", &AsyncQueue::abort)
        .method("size", &AsyncQueue::size)
        .method("running", &AsyncQueue::running);
}

} // namespace kivSq::internal
