#include "kiv/script/AdapterData.h"

#include "kiv/core/Containers.h"
#include "kiv/script/Call.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TypeInfoComparator.h"

#include <cstring>
#include <map>
#include <memory>

namespace kivSq {
namespace {

using internal::MemberRecord;

constexpr const char* nameSlot = "__kiv_nativeClassName";
constexpr const char* setTableSlot = "__kiv_setTable";
constexpr const char* getTableSlot = "__kiv_getTable";

using Adapters = std::map<const std::type_info*, std::unique_ptr<AdapterData>, TypeInfoComparator>;

// For good: classes of any library have their addresses.
Adapters& adapters() {
    static Adapters* const all = new Adapters;
    return *all;
}

// ---- Members.

struct Member {
    const MemberRecord* record = nullptr; // null for a closure that is none of ours
    int32_t position = 0;
};

// Of the user data in a stack slot. Only user data of members has a type tag.
Member memberAt(SQVM* v, SQInteger index) {
    SQUserPointer data = nullptr;
    SQUserPointer tag = nullptr;
    Member member;
    if (SQ_FAILED(sq_getuserdata(v, index, &data, &tag)) || !tag) return member;
    member.record = static_cast<const MemberRecord*>(tag);
    std::memcpy(&member.position, data, sizeof member.position);
    return member;
}

// Of the closure at the top: its first free variable is pushed.
Member memberOfClosure(SQVM* v) {
    const SQObjectType type = sq_gettype(v, -1);
    if (type != OT_NATIVECLOSURE || !sq_getfreevariable(v, -1, 0)) return {};
    return memberAt(v, -1);
}

char* objectOf(SQVM* v, const Member& member) {
    return static_cast<char*>(member.record->owner->getInstance(v, 1));
}

SQInteger read(SQVM* v, const Member& member) {
    char* const object = objectOf(v, member);
    if (!object) return sq_throwerror(v, "native get on null-pointer");
    return member.record->read(v, *member.record, object + member.position) ? 1 : SQ_ERROR;
}

SQInteger write(SQVM* v, const Member& member, SQInteger index) {
    char* const object = objectOf(v, member);
    if (!object) return sq_throwerror(v, "native set on null-pointer");
    return member.record->write(v, *member.record, object + member.position, index) ? 0 : SQ_ERROR;
}

// The closures in the tables: (instance, member) and (instance, value, member).
SQInteger getter(SQVM* v) {
    const Member member = memberAt(v, -1);
    if (sq_gettop(v) != 2 || !member.record) return sq_throwerror(v, "invalid argument count on native get");
    return read(v, member);
}

SQInteger setter(SQVM* v) {
    const Member member = memberAt(v, -1);
    if (sq_gettop(v) != 3 || !member.record) return sq_throwerror(v, "invalid argument count on native set");
    return write(v, member, 2);
}

// What the engine takes for "there is no such member".
SQInteger throwMissing(SQVM* v) {
    sq_pushnull(v);
    return sq_throwobject(v);
}

// (instance, key, table of getters)
SQInteger getMember(SQVM* v) {
    if (sq_gettop(v) != 3) return sq_throwerror(v, "invalid argument count on native get");
    sq_push(v, 2);
    if (SQ_FAILED(sq_rawget(v, 3))) return throwMissing(v);
    const Member member = memberOfClosure(v);
    if (member.record) return read(v, member);
    sq_settop(v, 4); // the closure
    sq_push(v, 1);
    return SQ_SUCCEEDED(sq_call(v, 1, SQTrue, SQTrue)) ? 1 : SQ_ERROR;
}

// (instance, key, value, table of setters)
SQInteger setMember(SQVM* v) {
    if (sq_gettop(v) != 4) return sq_throwerror(v, "invalid argument count on native set");
    sq_push(v, 2);
    if (SQ_FAILED(sq_rawget(v, 4))) return throwMissing(v);
    const Member member = memberOfClosure(v);
    if (member.record) return write(v, member, 3);
    sq_settop(v, 5);
    sq_push(v, 1);
    sq_push(v, 3);
    return SQ_SUCCEEDED(sq_call(v, 2, SQFalse, SQTrue)) ? 0 : SQ_ERROR;
}

SQInteger weakref(SQVM* v) {
    sq_weakref(v, 1);
    return 1;
}

// ---- Slots of the class at the top.

// Enters what is at the top.
void enterSlot(SQVM* v, const char* name, bool isStatic = false) {
    sq_pushstring(v, name, -1);
    sq_push(v, -2);
    sq_remove(v, -3);
    sq_newslot(v, -3, isStatic ? SQTrue : SQFalse);
}

void enterFunction(SQVM* v, const char* name, SQFUNCTION function) {
    sq_newclosure(v, function, 0);
    sq_setnativeclosurename(v, -1, name);
    enterSlot(v, name);
}

// An empty table, or that of the base with what is in it; stays on the stack.
void pushTable(SQVM* v, const char* slot, const AdapterData* base) {
    if (base) {
        base->getClass().rawget(slot).push(v);
        sq_clone(v, -1);
        sq_remove(v, -2);
    } else {
        sq_newtable(v);
    }
}

} // namespace

AdapterData& AdapterData::of(const std::type_info& type) {
    std::unique_ptr<AdapterData>& adapter = adapters()[&type];
    if (!adapter) adapter = std::make_unique<AdapterData>();
    return *adapter;
}

void AdapterData::forgetAll() {
    for (auto& [type, adapter] : adapters()) freeObject(std::exchange(adapter->m_class, nullptr));
}

void AdapterData::initialize(SQVM* v, SQFUNCTION constructor, SQFUNCTION cloned, const char* nativeClassName,
                             const AdapterData* base) {
    const StackGuard guard(v);
    m_name = nativeClassName;
    if (base) base->getClass().push(v);
    sq_newclass(v, base ? SQTrue : SQFalse);
    sq_settypetag(v, -1, getTypeTag());
    const SQInteger scriptClass = sq_gettop(v);
    pushTable(v, setTableSlot, base);
    pushTable(v, getTableSlot, base);

    sq_push(v, scriptClass);
    sq_pushstring(v, nativeClassName, -1);
    enterSlot(v, nameSlot, true);
    sq_push(v, scriptClass + 1);
    enterSlot(v, setTableSlot, true);
    sq_push(v, scriptClass + 2);
    enterSlot(v, getTableSlot, true);
    sq_push(v, scriptClass + 1);
    sq_newclosure(v, &internal::callNative<&setMember>, 1);
    enterSlot(v, "_set");
    sq_push(v, scriptClass + 2);
    sq_newclosure(v, &internal::callNative<&getMember>, 1);
    enterSlot(v, "_get");
    enterFunction(v, "weakref", &weakref);
    enterFunction(v, "constructor", constructor);
    // The engine calls the first of the two.
    enterFunction(v, "_cloned", cloned);
    enterFunction(v, "cloned", cloned);
    freeObject(m_class);
    m_class = allocObject(v);
}

bool AdapterData::pushInstance(SQVM* v, void* pointer, SQRELEASEHOOK hook) const {
    if (!m_class) {
        sq_throwerror(v, ("the native class is not bound: " + m_name).c_str());
        return false;
    }
    m_class->push(v);
    if (SQ_FAILED(sq_createinstance(v, -1))) {
        sq_pop(v, 1);
        return false;
    }
    sq_remove(v, -2);
    sq_setinstanceup(v, -1, pointer);
    sq_setreleasehook(v, -1, hook);
    return true;
}

void AdapterData::addMember(SQVM* v, const char* name, int32_t position, const MemberRecord& record) {
    const StackGuard guard(v);
    MemberRecord& kept = m_members.emplace_back(record);
    kept.owner = this;
    const auto enter = [&](const char* table, SQFUNCTION function) {
        m_class->rawget(table).push(v);
        sq_pushstring(v, name, -1);
        std::memcpy(sq_newuserdata(v, sizeof position), &position, sizeof position);
        sq_settypetag(v, -1, &kept);
        sq_newclosure(v, function, 1);
        sq_setnativeclosurename(v, -1, name);
        sq_newslot(v, -3, SQFalse);
    };
    enter(getTableSlot, &internal::callNative<&getter>);
    if (record.write) enter(setTableSlot, &internal::callNative<&setter>);
}

Object* AdapterData::allocObject(SQVM* v) {
    auto* object = new Object(v, -1);
    sq_poptop(v);
    return object;
}

void AdapterData::freeObject(Object* object) {
    delete object;
}

} // namespace kivSq
