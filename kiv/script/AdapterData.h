#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"
#include "kiv/script/Object.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <typeinfo>

namespace kivSq {

class AdapterData;

namespace internal {

// What a native data member needs besides its position: the type tag of the user data that its getter and its setter
// have as their free variable. So the type of a member is known without calling one of them.
struct MemberRecord {
    // Pushes the member's value, resp. takes it from a stack slot. False, with the script error set, when it can't.
    using Read = bool (*)(SQVM* v, const MemberRecord& record, char* member);
    using Write = bool (*)(SQVM* v, const MemberRecord& record, char* member, SQInteger index);

    const AdapterData* owner = nullptr;
    Read read = nullptr;
    Write write = nullptr;                            // null for what can only be read
    alignas(std::max_align_t) std::byte getter[16]{}; // the accessor functions of what is no plain data
    alignas(std::max_align_t) std::byte setter[16]{};
};

} // namespace internal

// The record behind one script class: which native type it stands for, its base, its members. There is one for each
// native type, for good; binding gives it a script class, the end of the VM takes that away.
// Its address is the type tag of the class, so that no method reaches an object of another class. Main thread.
class KIV_API AdapterData {
public:
    // Made when it is asked for the first time.
    static AdapterData& of(const std::type_info& type);
    template <class T>
    static AdapterData& of() {
        static AdapterData& data = of(typeid(T));
        return data;
    }
    // Takes all script classes away; the VM does that at its end.
    static void forgetAll();

    AdapterData() = default;
    AdapterData(const AdapterData&) = delete;
    AdapterData& operator=(const AdapterData&) = delete;

    // Builds the script class with its eight slots, derived from that of `base` unless that is null. A base that is not
    // initialized is left out, which is logged.
    void initialize(SQVM* v, SQFUNCTION constructor, SQFUNCTION cloned, const char* nativeClassName,
                    const AdapterData* base = nullptr);
    bool isInitialized() const { return m_class != nullptr; }
    // Null when it is not initialized.
    Object getClass() const { return m_class ? *m_class : Object(); }
    // As it was bound, resp. "unbound class".
    const char* getName() const { return m_name.c_str(); }

    SQUserPointer getTypeTag() const { return const_cast<AdapterData*>(this); }

    // What the instance in a stack slot stands for; null for an instance of another class, for one without a native
    // object, and for what is no instance.
    void* getInstance(SQVM* v, SQInteger index) const {
        SQUserPointer pointer = nullptr;
        if (SQ_FAILED(sq_getinstanceup(v, index, &pointer, getTypeTag()))) return nullptr;
        return pointer;
    }
    // Pushes a new instance that stands for `pointer`, for which `hook` is called at its end; the constructor does not
    // run. False, with the script error set, when the class is not bound; the pointer is the caller's then.
    bool pushInstance(SQVM* v, void* pointer, SQRELEASEHOOK hook) const;

    // Enters a data member into the get table of one of its script classes, and the set table where it can be written.
    // Classes derived from it before don't get it.
    void addMember(SQVM* v, const Object& scriptClass, const char* name, int32_t position,
                   const internal::MemberRecord& record);

    // Pops the top of the stack into a new handle. freeObject() takes null, too.
    static Object* allocObject(SQVM* v);
    static void freeObject(Object* object);

private:
    std::string m_name = "unbound class";
    Object* m_class = nullptr;
    std::deque<internal::MemberRecord> m_members; // for good: type tags point to them
};

} // namespace kivSq
