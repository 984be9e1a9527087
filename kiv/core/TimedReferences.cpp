#include "kiv/core/TimedReferences.h"

#include "kiv/core/Object.h"
#include <mutex>
#include <vector>

namespace kiv {
namespace internal {
namespace {

class ReleaseList {
public:
    void append(Object* object) {
        const std::lock_guard lock(m_mutex);
        m_objects.push_back(object);
    }
    bool drain() {
        unsigned released = 0;
        while (Object* object = takeLast()) {
            object->decreaseReferenceCount();
            ++released;
#ifndef NDEBUG
            if (released == longDrain) warnOfLongDrain();
#endif
        }
        return released != 0;
    }

private:
    Object* takeLast() {
        const std::lock_guard lock(m_mutex);
        if (m_objects.empty()) return nullptr;
        Object* object = m_objects.back();
        m_objects.pop_back();
        return object;
    }

    std::mutex m_mutex;
    std::vector<Object*> m_objects;
};

// Never destroyed: static objects of other modules may queue releases until the process ends.
ReleaseList& mainList() {
    static ReleaseList& list = *new ReleaseList;
    return list;
}

ReleaseList& parallelList() {
    static ReleaseList& list = *new ReleaseList;
    return list;
}

} // namespace

// A struct, because compilers for Windows refuse to befriend a function that is exported.
struct TimedReferenceAccess {
    static bool isWatched(const Object* object) { return object->m_weakPointers.load(std::memory_order_acquire); }
};

void appendTimedReference(Object* object) {
    mainList().append(object);
}

void appendTimedReferenceParallel(Object* object) {
    // The main thread would read the weak pointer's target while a worker deletes it.
    assert(!TimedReferenceAccess::isWatched(object) && "a watched object is released on another thread");
    parallelList().append(object);
}

bool removeAllTimedReferences() {
    return mainList().drain();
}

bool removeAllTimedReferencesParallel() {
    return parallelList().drain();
}

} // namespace internal

void Object::takeTimedReference() {
    increaseReferenceCount();
    decreaseReferenceCountAsyncOnMain();
}

void Object::decreaseReferenceCountAsyncOnMain() {
    internal::appendTimedReference(this);
}

} // namespace kiv
