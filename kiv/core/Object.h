#pragma once

#include "kiv/core/ClassChain.h"
#include "kiv/platform/Compiler.h"
#include <atomic>
#include <cassert>
#include <cstdint>

namespace kivSq {
class Object;
}

namespace kiv {

class Application;
class Object;
class String;
class System;
class WeakPointerExtension;

namespace internal {
struct QueueReferences;
struct TimedReferenceAccess;
} // namespace internal

// Root of the class tree: an intrusive reference count, a run-time class name, and the weak pointers that watch it.
// Ownership: the count starts at 0, SmartPointers own, and the release that brings it from 1 to 0 deletes the object.
// Threads: references may be taken and released anywhere, so a destructor may run on any thread; weak pointers belong
// to the thread that controls the object's lifetime.
// Never form a SmartPointer to `this` in a constructor (it would delete the object) or in a destructor.
class KIV_API Object {
public:
    Object() = default;
    // Copies nothing: a copy starts with count 0 and nobody watching it, an assignment leaves both as they are.
    Object(const Object&) {}
    Object& operator=(const Object&) { return *this; }

    // The first virtual slots of every class of the tree, in this order.
    virtual const char* getDynamicClassName() const;
    virtual ClassChain getDynamicClassChain();
    virtual ~Object();

    static const char* getStaticClassName() { return "Object"; }
    static ClassChain getStaticClassChain();

    void increaseReferenceCount() {
        [[maybe_unused]] const int32_t before = m_referenceCount.fetch_add(1);
        assert(before < dyingBias / 2 && "a reference was taken to an object that is being deleted");
    }
    // Requires: n <= 0x7FFFFFFF.
    void increaseReferenceCountBy(unsigned n) {
        assert(n <= INT32_MAX);
        [[maybe_unused]] const int32_t before = m_referenceCount.fetch_add(static_cast<int32_t>(n));
        assert(before < dyingBias / 2 && "a reference was taken to an object that is being deleted");
    }
    void decreaseReferenceCount() {
        if (m_referenceCount.fetch_sub(1) == 1) deleteSelf();
    }
    // Releasing none does nothing, whatever the count. Requires: n <= 0x7FFFFFFF.
    void decreaseReferenceCountBy(unsigned n) {
        assert(n <= INT32_MAX);
        const int32_t count = static_cast<int32_t>(n);
        if (count != 0 && m_referenceCount.fetch_sub(count) == count) deleteSelf();
    }
    // For diagnostics: other threads may have changed the count by the time it is looked at.
    int getReferenceCount() const {
        const int32_t count = m_referenceCount.load(std::memory_order_relaxed);
        return count < dyingBias / 2 ? count : count - dyingBias;
    }
    // Takes one reference for good, for objects that are owned by other means.
    void disableSmartPointers() { increaseReferenceCount(); }

    // Keeps the object alive until the next drain of the main release list.
    void takeTimedReference();
    // Hands the caller's reference to the main release list; System::processEvents drains it on the main thread.
    void decreaseReferenceCountAsyncOnMain();
    // Hands the caller's reference to the parallel release list and pushes a task that drains it on a worker.
    // Requires: no weak pointer watches the object. Defined in tasks/ObjectRelease.cpp.
    void decreaseReferenceCountAsyncOnParallel();

    // Clears every weak pointer to this object now, the latest first, and tells their owners. Only on the thread that
    // controls the object's lifetime.
    void removeWeakPointers();

    // Keeps a reference to `object` under `name` in the process-wide registry and returns `object`; null erases the
    // entry. The reference held before is released after the registry's lock is. A null name is the empty name.
    static Object* setSingleton(const char* name, Object* object);
    // Null when nothing is registered. Takes no reference: a setSingleton on another thread may delete the object.
    static Object* getSingletonObject(const char* name);
    static void discardSingletons();

    // Defined in system/System.cpp: null before the first is created and after System::deinitialize.
    static System* system();
    static Application* application();
    // Binds getClassName and getReferenceCount to the script class. Defined in script/ObjectScript.cpp.
    static void bindSqVM(kivSq::Object* scriptClass);

    // The translation of `text`, or `text` itself where there is none; valid until clearTrCache(). Null arguments count
    // as empty texts. See Translation.h for where translations come from.
    static const char* tr(const char* text);
    static const char* tr(const char* context, const char* text);
    // True when the translation source knows `text` in the empty context.
    static bool isTrValid(const char* text);
    // Forgets all translations, also the remembered absence of one.
    static void clearTrCache();
    // The translation, or else a copy of `fallback`.
    static String tr_l(const char* context, const char* text, const char* fallback);
    static String tr_l(const char* context, const char* text);

protected:
    static constexpr int classDepth = 1;
    // Writes the class chain into `chain` from `index` on and returns the next free index.
    static int fillClassChain(ClassChain& chain, int index) {
        return internal::addClassName(chain, index, getStaticClassName());
    }

private:
    friend class WeakPointerBase;
    friend struct internal::TimedReferenceAccess;
    friend struct internal::QueueReferences;

    // Added to the count before the destructor runs, so that references taken and dropped by a destructor can't bring
    // the count to zero a second time.
    static constexpr int32_t dyingBias = 0x40000000;

    void deleteSelf();
    WeakPointerExtension* createWeakPointerExtension();

    std::atomic<WeakPointerExtension*> m_weakPointers{nullptr};
    std::atomic<int32_t> m_referenceCount{0};
};

} // namespace kiv
