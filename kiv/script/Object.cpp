#include "kiv/script/Object.h"

#include "kiv/core/Buffer.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/EngineState.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TypeName.h"

namespace kivSq {
namespace {

using internal::currentEngine;

// The value at the top after a look-up.
Object found(SQVM* v, SQRESULT result) {
    if (SQ_SUCCEEDED(result)) return Object(v, -1);
    sq_reseterror(v);
    return {};
}

template <class PushKey>
bool setSlot(const Object& object, PushKey pushKey, const Object& value, bool isStatic) {
    SQVM* v = currentEngine();
    if (!v) return false;
    const StackGuard guard(v);
    sq_reseterror(v);
    object.push(v);
    pushKey(v);
    value.push(v);
    const bool isNew = object.isTable() || object.isClass();
    const SQRESULT result = isNew ? sq_newslot(v, -3, isStatic ? SQTrue : SQFalse) : sq_set(v, -3);
    // A class that has instances refuses new slots by nothing but the last error.
    sq_getlasterror(v);
    const bool isGood = SQ_SUCCEEDED(result) && sq_gettype(v, -1) == OT_NULL;
    sq_reseterror(v);
    return isGood;
}

// Where a plain look-up will do, the engine need not make up the text of an error for a miss.
template <class PushKey>
Object getSlot(const Object& object, PushKey pushKey, bool isRaw) {
    SQVM* v = currentEngine();
    if (!v) return {};
    const StackGuard guard(v);
    object.push(v);
    if (isRaw || object.isTable()) {
        pushKey(v);
        const SQRESULT result = sq_rawget(v, -2);
        if (isRaw || SQ_SUCCEEDED(result)) return found(v, result);
        if (SQ_FAILED(sq_getdelegate(v, -1)) || sq_gettype(v, -1) == OT_NULL) {
            sq_getdefaultdelegate(v, OT_TABLE);
            pushKey(v);
            return found(v, sq_rawget(v, -2));
        }
        sq_poptop(v);
    }
    pushKey(v);
    return found(v, sq_get(v, -2));
}

auto pusher(const Object& key) {
    return [&key](SQVM* v) { key.push(v); };
}

auto pusher(kiv::TextArg key) {
    return [key](SQVM* v) { Access<std::string_view>::push(v, key); };
}

// Runs a function with the value at the top; false without VM.
template <class Function>
bool withPushed(const Object& object, SQObjectType type, Function function) {
    SQVM* v = currentEngine();
    if (!v || object.getType() != type) return false;
    const StackGuard guard(v);
    object.push(v);
    const bool isGood = function(v);
    if (!isGood) sq_reseterror(v);
    return isGood;
}

} // namespace

Object::Object(const HSQOBJECT& handle) : m_handle(handle) {
    if (!ISREFCOUNTED(handle._type)) return;
    if (SQVM* v = currentEngine()) {
        sq_addref(v, &m_handle);
        m_epoch = internal::currentEpoch();
    } else {
        m_handle = none();
    }
}

const HSQOBJECT& Object::nullHandle() {
    static const HSQOBJECT null = none();
    return null;
}

void Object::release() {
    internal::releaseHandle(m_handle, m_epoch);
    m_handle = none();
}

bool Object::isSame(const Object& other) const {
    if (getType() != other.getType()) return false;
    if (isFloat()) return m_handle._unVal.fFloat == other.m_handle._unVal.fFloat;
    return isNull() || m_handle._unVal.raw == other.m_handle._unVal.raw;
}

int64_t Object::getSize() const {
    SQVM* v = currentEngine();
    if (!v) return -1;
    const StackGuard guard(v);
    push(v);
    const SQInteger size = sq_getsize(v, -1);
    if (size < 0) sq_reseterror(v);
    return size;
}

const char* Object::getTypeName() const {
    return internal::typeName(getType());
}

kiv::String Object::describe() const {
    SQVM* v = currentEngine();
    if (!v) return {};
    const StackGuard guard(v);
    push(v);
    return internal::describeValue(v, -1).c_str();
}

bool Object::set(const Object& key, const Object& value, bool isStatic) const {
    return setSlot(*this, pusher(key), value, isStatic);
}

bool Object::set(kiv::TextArg key, const Object& value, bool isStatic) const {
    return setSlot(*this, pusher(key), value, isStatic);
}

Object Object::get(const Object& key) const {
    return getSlot(*this, pusher(key), false);
}

Object Object::get(kiv::TextArg key) const {
    return getSlot(*this, pusher(key), false);
}

Object Object::rawget(const Object& key) const {
    return getSlot(*this, pusher(key), true);
}

Object Object::rawget(kiv::TextArg key) const {
    return getSlot(*this, pusher(key), true);
}

Object::ArrayInterface Object::asArray() const {
    return ArrayInterface(*this);
}

Object::TableInterface Object::asTable() const {
    return TableInterface(*this);
}

Object::ClosureInterface Object::asClosure() const {
    return ClosureInterface(*this);
}

Object::InstanceInterface Object::asInstance() const {
    return InstanceInterface(*this);
}

// ---- Arrays.

bool Object::ArrayInterface::append(const Object& value) const {
    return withPushed(m_array, OT_ARRAY, [&](SQVM* v) {
        value.push(v);
        return SQ_SUCCEEDED(sq_arrayappend(v, -2));
    });
}

bool Object::ArrayInterface::insert(int64_t index, const Object& value) const {
    return index >= 0 && withPushed(m_array, OT_ARRAY, [&](SQVM* v) {
               value.push(v);
               return SQ_SUCCEEDED(sq_arrayinsert(v, -2, index));
           });
}

bool Object::ArrayInterface::remove(int64_t index) const {
    return index >= 0 &&
           withPushed(m_array, OT_ARRAY, [&](SQVM* v) { return SQ_SUCCEEDED(sq_arrayremove(v, -1, index)); });
}

bool Object::ArrayInterface::resize(int64_t size) const {
    return size >= 0 &&
           withPushed(m_array, OT_ARRAY, [&](SQVM* v) { return SQ_SUCCEEDED(sq_arrayresize(v, -1, size)); });
}

bool Object::ArrayInterface::reverse() const {
    return withPushed(m_array, OT_ARRAY, [](SQVM* v) { return SQ_SUCCEEDED(sq_arrayreverse(v, -1)); });
}

Object Object::ArrayInterface::pop() const {
    Object last;
    withPushed(m_array, OT_ARRAY, [&](SQVM* v) {
        if (SQ_FAILED(sq_arraypop(v, -1, SQTrue))) return false;
        last = Object(v, -1);
        return true;
    });
    return last;
}

kiv::Vector<Object> Object::ArrayInterface::getValues() const {
    kiv::Vector<Object> values;
    withPushed(m_array, OT_ARRAY, [&](SQVM* v) {
        const SQInteger size = sq_getsize(v, -1);
        values.reserve(static_cast<size_t>(size));
        for (SQInteger i = 0; i < size; ++i) {
            sq_pushinteger(v, i);
            if (SQ_FAILED(sq_rawget(v, -2))) return false;
            values.emplace_back(v, -1);
            sq_poptop(v);
        }
        return true;
    });
    return values;
}

// ---- Tables, closures, instances.

kiv::Vector<kiv::Pair<Object, Object>> Object::TableInterface::getKeyValuePairs() const {
    kiv::Vector<kiv::Pair<Object, Object>> pairs;
    withPushed(m_table, m_table.isClass() ? OT_CLASS : OT_TABLE, [&](SQVM* v) {
        sq_pushnull(v);
        while (SQ_SUCCEEDED(sq_next(v, -2))) {
            pairs.emplace_back(Object(v, -2), Object(v, -1));
            sq_pop(v, 2);
        }
        sq_reseterror(v);
        return true;
    });
    return pairs;
}

bool Object::ClosureInterface::getBytecode(kiv::Buffer& out) const {
    out.clear();
    const auto append = [](SQUserPointer to, SQUserPointer bytes, SQInteger size) noexcept -> SQInteger {
        try {
            static_cast<kiv::Buffer*>(to)->append(static_cast<const uint8_t*>(bytes), static_cast<unsigned>(size));
            return size;
        } catch (...) { // it is too long; the engine must not be unwound
            return -1;
        }
    };
    if (withPushed(m_closure, OT_CLOSURE, [&](SQVM* v) { return SQ_SUCCEEDED(sq_writeclosure(v, append, &out)); }))
        return true;
    out.clear();
    kiv::logging::MessageStream(2, 2) << "[SQ] cannot serialize squirrel bytecode";
    return false;
}

Object Object::InstanceInterface::getClass() const {
    Object result;
    withPushed(m_instance, OT_INSTANCE, [&](SQVM* v) {
        if (SQ_FAILED(sq_getclass(v, -1))) return false;
        result = Object(v, -1);
        return true;
    });
    return result;
}

void* Object::InstanceInterface::getNativeVoidPointer() const {
    SQUserPointer pointer = nullptr;
    withPushed(m_instance, OT_INSTANCE,
               [&](SQVM* v) { return SQ_SUCCEEDED(sq_getinstanceup(v, -1, &pointer, nullptr)); });
    return pointer;
}

} // namespace kivSq
