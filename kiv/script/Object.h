#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace kiv {
class Buffer;
}

namespace kivSq {

namespace internal {
// Which engine lives: every one has a number of its own; 0 without one. A variable, as every use of a handle looks.
KIV_API extern std::atomic<uint32_t> engineEpoch;

inline uint32_t currentEpoch() {
    return engineEpoch.load(std::memory_order_relaxed);
}
} // namespace internal

// A handle of one script value, which it keeps alive. Copies refer to the same value; a default one is null.
// Threads: script values belong to the main thread. Only the destructor may run elsewhere: it leaves its reference to
// the VM, which releases it in its next pass. A handle that outlives its VM is null, also when there is another one.
// Failures: none raises a script error or leaves something on the engine's stack; a missing slot reads as null.
class KIV_API Object {
public:
    class ArrayInterface;
    class TableInterface;
    class ClosureInterface;
    class InstanceInterface;

    Object() : m_handle(none()) {}
    // The value in a stack slot, counted as the engine does: 1 is the first, -1 the top.
    Object(SQVM* v, SQInteger index) : m_handle(none()) {
        sq_getstackobj(v, index, &m_handle);
        if (!ISREFCOUNTED(m_handle._type)) return;
        sq_addref(v, &m_handle);
        m_epoch = internal::currentEpoch();
    }
    // Of the engine that lives; null without one.
    explicit Object(const HSQOBJECT& handle);
    Object(const Object& other) : Object(other.getHandle()) {}
    Object(Object&& other) noexcept : m_handle(std::exchange(other.m_handle, Object::none())), m_epoch(other.m_epoch) {}
    ~Object() {
        if (ISREFCOUNTED(m_handle._type)) release();
    }
    Object& operator=(Object other) noexcept {
        std::swap(m_handle, other.m_handle);
        std::swap(m_epoch, other.m_epoch);
        return *this;
    }

    // Any value with an Access (see Access.h); null where it can't be converted, and a log line says why.
    template <class T>
    static Object from(const T& value);
    // False when the value is of another type; `out` is unchanged then.
    template <class T>
    bool to(T& out) const;

    SQObjectType getType() const { return isStale() ? OT_NULL : m_handle._type; }
    bool isNull() const { return m_handle._type == OT_NULL || isStale(); }
    bool isInteger() const { return m_handle._type == OT_INTEGER; }
    bool isFloat() const { return m_handle._type == OT_FLOAT; }
    bool isBool() const { return m_handle._type == OT_BOOL; }
    bool isString() const { return isAlive(OT_STRING); }
    bool isTable() const { return isAlive(OT_TABLE); }
    bool isArray() const { return isAlive(OT_ARRAY); }
    // Script functions, resp. native ones.
    bool isClosure() const { return isAlive(OT_CLOSURE); }
    bool isNativeClosure() const { return isAlive(OT_NATIVECLOSURE); }
    bool isClass() const { return isAlive(OT_CLASS); }
    bool isInstance() const { return isAlive(OT_INSTANCE); }
    explicit operator bool() const { return !isNull(); }
    // Whether both are the same value: numbers and texts by value, everything else by identity.
    bool isSame(const Object& other) const;
    const HSQOBJECT& getHandle() const { return isStale() ? nullHandle() : m_handle; }
    // Puts the value on the stack.
    void push(SQVM* v) const {
        if (isStale()) [[unlikely]] {
            sq_pushnull(v);
        } else {
            sq_pushobject(v, m_handle);
        }
    }

    // The engine's size of the value: elements, slots, bytes; -1 where it has none.
    int64_t getSize() const;
    // "integer", "table" ...; no script code runs for it.
    const char* getTypeName() const;
    // The value as a text for logs; see VMOutput.h for its form.
    kiv::String describe() const;

    // Creates the slot or assigns an existing one: of a table, a class (where the flag makes it a static member), an
    // array or an instance. False when the engine refuses, as a class that has instances does.
    bool set(const Object& key, const Object& value, bool isStatic = false) const;
    bool set(kiv::TextArg key, const Object& value, bool isStatic = false) const;
    // With delegation, that is metamethods, bases and delegates, resp. without. Null when there is no such slot.
    Object get(const Object& key) const;
    Object get(kiv::TextArg key) const;
    Object rawget(const Object& key) const;
    Object rawget(kiv::TextArg key) const;

    // Views of the value; it must outlive them. Of a value of another type they do nothing and find nothing.
    ArrayInterface asArray() const;
    TableInterface asTable() const;
    ClosureInterface asClosure() const;
    InstanceInterface asInstance() const;

private:
    static HSQOBJECT none() {
        HSQOBJECT handle;
        handle._type = OT_NULL;
        handle._unVal.pUserPointer = nullptr;
        return handle;
    }
    static const HSQOBJECT& nullHandle();
    bool isStale() const { return ISREFCOUNTED(m_handle._type) && m_epoch != internal::currentEpoch(); }
    bool isAlive(SQObjectType type) const { return m_handle._type == type && !isStale(); }
    void release();

    HSQOBJECT m_handle;
    uint32_t m_epoch = 0; // of the engine that counts this reference
};

class KIV_API Object::ArrayInterface {
public:
    explicit ArrayInterface(const Object& array) : m_array(array) {}

    // False when the value is no array, and where said so.
    bool append(const Object& value) const;
    // Before the element at `index`, which may be the size. False outside.
    bool insert(int64_t index, const Object& value) const;
    bool remove(int64_t index) const;
    // Fills up with null. False for negative sizes.
    bool resize(int64_t size) const;
    bool reverse() const;
    // The last element, which is removed; null when there is none.
    Object pop() const;
    kiv::Vector<Object> getValues() const;

private:
    const Object& m_array;
};

class KIV_API Object::TableInterface {
public:
    explicit TableInterface(const Object& table) : m_table(table) {}

    // In the engine's order, which is none. Without those of delegates. Classes have slots, too.
    kiv::Vector<kiv::Pair<Object, Object>> getKeyValuePairs() const;

private:
    const Object& m_table;
};

class KIV_API Object::ClosureInterface {
public:
    explicit ClosureInterface(const Object& closure) : m_closure(closure) {}

    // Empties the buffer and fills it with the engine's own form of a script function. False, and logged, for what is
    // none, and for one that has bound variables from outside.
    bool getBytecode(kiv::Buffer& out) const;

private:
    const Object& m_closure;
};

class KIV_API Object::InstanceInterface {
public:
    explicit InstanceInterface(const Object& instance) : m_instance(instance) {}

    Object getClass() const;
    // What a native instance stands for: the address of the value, of a counted class its kiv::Object. Null when there
    // is none.
    void* getNativeVoidPointer() const;

private:
    const Object& m_instance;
};

} // namespace kivSq
