#include "kiv/script/AdapterData.h"

#include "kiv/core/Containers.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Call.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TypeInfoComparator.h"

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <unordered_map>

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
    const MemberRecord* record = nullptr; // null for closures of others
    int32_t position = 0;
};

// Of the closure that runs: its free variable is at the top.
Member ownMember(SQVM* v) {
    SQUserPointer data = nullptr;
    SQUserPointer tag = nullptr;
    Member member;
    sq_getuserdata(v, -1, &data, &tag);
    member.record = static_cast<const MemberRecord*>(tag);
    std::memcpy(&member.position, data, sizeof member.position);
    return member;
}

// The closures in the tables, by their addresses: kept alive, so that nothing else gets these.
struct MemberClosure {
    Object closure;
    Member member;
};
using MemberClosures = std::unordered_map<const void*, MemberClosure>;

MemberClosures& memberClosures() {
    static MemberClosures* const all = new MemberClosures;
    return *all;
}

// Those looked up last.
struct KnownClosure {
    const void* address = nullptr;
    Member member;
};
std::array<KnownClosure, 256> g_known;

KIV_NOINLINE Member findMember(KnownClosure& known, const void* address) {
    const auto found = memberClosures().find(address);
    if (found == memberClosures().end()) return {};
    known = {address, found->second.member};
    return known.member;
}

// Of the closure at the top.
KIV_ALWAYS_INLINE Member memberOfClosure(SQVM* v) {
    HSQOBJECT closure;
    sq_getstackobj(v, -1, &closure);
    const void* const address = closure._unVal.pNativeClosure;
    KnownClosure& known = g_known[(reinterpret_cast<uintptr_t>(address) >> 5) % g_known.size()];
    if (closure._type != OT_NATIVECLOSURE) return {};
    return known.address == address ? known.member : findMember(known, address);
}

char* objectOf(SQVM* v, const Member& member) {
    return static_cast<char*>(member.record->owner->getInstance(v, 1));
}

KIV_ALWAYS_INLINE SQInteger read(SQVM* v, const Member& member) {
    char* const object = objectOf(v, member);
    if (!object) return sq_throwerror(v, "native get on null-pointer");
    return member.record->read(v, *member.record, object + member.position) ? 1 : SQ_ERROR;
}

KIV_ALWAYS_INLINE SQInteger write(SQVM* v, const Member& member, SQInteger index) {
    char* const object = objectOf(v, member);
    if (!object) return sq_throwerror(v, "native set on null-pointer");
    // A script may have entered a getter into the table of setters.
    if (!member.record->write) return sq_throwerror(v, "the native member can only be read");
    return member.record->write(v, *member.record, object + member.position, index) ? 0 : SQ_ERROR;
}

// The closures in the tables: (instance, member) and (instance, value, member).
SQInteger getter(SQVM* v) {
    if (sq_gettop(v) != 2) return sq_throwerror(v, "invalid argument count on native get");
    return read(v, ownMember(v));
}

SQInteger setter(SQVM* v) {
    if (sq_gettop(v) != 3) return sq_throwerror(v, "invalid argument count on native set");
    return write(v, ownMember(v), 2);
}

// What the engine takes for "there is no such member".
SQInteger throwMissing(SQVM* v) {
    sq_pushnull(v);
    return sq_throwobject(v);
}

// (instance, key, table of getters)
SQInteger getMember(SQVM* v) {
    sq_push(v, 2);
    if (SQ_FAILED(sq_rawget(v, 3))) return throwMissing(v);
    const Member member = memberOfClosure(v);
    if (member.record) return read(v, member);
    sq_push(v, 1);
    return SQ_SUCCEEDED(sq_call(v, 1, SQTrue, SQTrue)) ? 1 : SQ_ERROR;
}

// (instance, key, value, table of setters)
SQInteger setMember(SQVM* v) {
    sq_push(v, 2);
    if (SQ_FAILED(sq_rawget(v, 4))) return throwMissing(v);
    const Member member = memberOfClosure(v);
    if (member.record) return write(v, member, 3);
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
    g_known = {};
    memberClosures().clear();
    for (auto& [type, adapter] : adapters()) freeObject(std::exchange(adapter->m_class, nullptr));
}

void AdapterData::initialize(SQVM* v, SQFUNCTION constructor, SQFUNCTION cloned, const char* nativeClassName,
                             const AdapterData* base) {
    const StackGuard guard(v);
    m_name = nativeClassName;
    if (base && !base->isInitialized()) {
        kiv::logging::MessageStream(4, 2) << "[SQ] the base of the native class is not bound: " << m_name;
        base = nullptr;
    }
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
    sq_setparamscheck(v, 3, nullptr);
    enterSlot(v, "_set");
    sq_push(v, scriptClass + 2);
    sq_newclosure(v, &internal::callNative<&getMember>, 1);
    sq_setparamscheck(v, 2, nullptr);
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

void AdapterData::addMember(SQVM* v, const Object& scriptClass, const char* name, int32_t position,
                            const MemberRecord& record) {
    const StackGuard guard(v);
    MemberRecord& kept = m_members.emplace_back(record);
    kept.owner = this;
    const auto enter = [&](const char* table, SQFUNCTION function) {
        scriptClass.rawget(table).push(v);
        sq_pushstring(v, name, -1);
        std::memcpy(sq_newuserdata(v, sizeof position), &position, sizeof position);
        sq_settypetag(v, -1, &kept);
        sq_newclosure(v, function, 1);
        sq_setnativeclosurename(v, -1, name);
        const Object closure(v, -1);
        memberClosures()[closure.getHandle()._unVal.pNativeClosure] = {closure, {&kept, position}};
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
