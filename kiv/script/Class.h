#pragma once

#include "kiv/script/Construction.h"
#include "kiv/script/Members.h"

#include <cstring>
#include <type_traits>

namespace kivSq {

// Which constructors scripts may call: signatures `void(arguments)`, or `Factory<function>` of a function that returns
// a new object, with different numbers of arguments. A class with none of them can't be constructed by scripts; without
// `void()` it can't be cloned either.
template <class... Overloads>
struct Constructor {};

namespace internal {

template <class T>
constexpr bool isVoidSignature = std::is_same_v<T, void()>;

template <class Base, class T>
concept DirectlyDerived = requires(Base* base) {
    static_cast<T*>(base);
};

// Instances of T have a pointer to it, which methods of Base take for one to Base.
template <class T, class Base>
bool startsWith() {
    auto* object = reinterpret_cast<T*>(uintptr_t{1} << 16);
    return isCounted<T> || static_cast<void*>(static_cast<Base*>(object)) == static_cast<void*>(object);
}

// The base of all counted classes, which is bound when the first of them is.
KIV_API const AdapterData& baseOfCounted();
KIV_API void logRefusedBase(const char* name);

} // namespace internal

// Binds the native class T to a script class: a table of its members, a line each.
//     kivSq::Class<Volume>(vm.getNamespace("app"), "Volume", kivSq::Constructor<void(), void(int, int)>())
//         .method("render", &Volume::render)
//         .method("sum", +[](Volume& volume, int from) { return sum(volume, from); })
//         .member("depth", &Volume::depth)
//         .property("name", &Volume::getName, &Volume::setName)
//         .staticMethod("unit", &Volume::unit)
//         .constant("limit", 4096);
// Counted classes are held by reference, others by value. Base is a class bound before, at the start of T if it is not
// counted; kiv::Object is that of counted classes that name none. All answer getClassName(). Main thread, with a VM.
template <class T, class Base = void>
class Class {
public:
    // Makes the script class and enters it into a table.
    template <class... Overloads>
    Class(const Object& table, const char* name, Constructor<Overloads...> = {}) : m_vm(internal::currentEngine()) {
        const AdapterData* base = nullptr;
        if constexpr (!std::is_void_v<Base>) {
            static_assert(std::is_base_of_v<Base, T> && internal::isCounted<Base> == internal::isCounted<T>);
            static_assert(internal::DirectlyDerived<Base, T>, "a base has to be the only one of its type, not virtual");
            base = &AdapterData::of<Base>();
            if (!internal::startsWith<T, Base>()) {
                internal::logRefusedBase(name);
                base = nullptr;
            }
        } else if constexpr (internal::isCounted<T> && !std::is_same_v<T, kiv::Object>) {
            base = &internal::baseOfCounted();
        }
        SQFUNCTION constructor = &internal::throwNoConstructor;
        if constexpr (sizeof...(Overloads) > 0) constructor = &internal::construct<T, Overloads...>;
        SQFUNCTION clone = &internal::throwNoConstructorClone;
        if constexpr ((internal::isVoidSignature<Overloads> || ...)) {
            clone = &internal::throwNoCopyClone;
            if constexpr (std::is_copy_constructible_v<T>) clone = &internal::cloneInstance<T>;
        }
        m_adapter.initialize(m_vm, constructor, clone, name, base);
        m_class = m_adapter.getClass();
        table.set(name, m_class);
        if constexpr (!internal::isCounted<T>)
            method(
                "getClassName", +[](const T&) { return AdapterData::of<T>().getName(); });
    }
    // Adds members to a class made before.
    explicit Class(const Object& scriptClass) : m_vm(internal::currentEngine()), m_class(scriptClass) {}

    template <class C, class Result, class... Arguments>
    Class& method(const char* name, Result (C::*function)(Arguments...)) {
        return addMethod<Result (T::*)(Arguments...), Result, Arguments...>(name, function);
    }
    template <class C, class Result, class... Arguments>
    Class& method(const char* name, Result (C::*function)(Arguments...) const) {
        return addMethod<Result (T::*)(Arguments...) const, Result, Arguments...>(name, function);
    }
    // A function that takes the object first.
    template <class C, class Result, class... Arguments>
    Class& method(const char* name, Result (*function)(C&, Arguments...)) {
        static_assert(std::is_base_of_v<std::remove_const_t<C>, T>);
        return addMethod<Result (*)(C&, Arguments...), Result, Arguments...>(name, function);
    }
    template <class Result, class... Arguments>
    Class& staticMethod(const char* name, Result (*function)(Arguments...)) {
        const StackGuard guard(m_vm);
        internal::pushFunction(m_vm, name, function);
        m_class.set(name, Object(m_vm, -1), true);
        return *this;
    }
    // A function that works on the engine's stack: the object is in slot 1, the arguments follow it.
    template <SQInteger (*function)(SQVM*)>
    Class& native(const char* name, bool isStatic = false) {
        const StackGuard guard(m_vm);
        sq_newclosure(m_vm, &internal::callNative<function>, 0);
        sq_setnativeclosurename(m_vm, -1, name);
        m_class.set(name, Object(m_vm, -1), isStatic);
        return *this;
    }

    // Data members, read and written in place. Classes derived from this one before get neither these nor properties.
    template <class C, class M>
    Class& member(const char* name, M C::*data) {
        return addMember(name, data, std::is_const_v<M>);
    }
    template <class C, class M>
    Class& readonlyMember(const char* name, M C::*data) {
        return addMember(name, data, true);
    }
    // What looks like a data member; the functions are as for method().
    template <class Getter>
    Class& property(const char* name, Getter getter) {
        addProperty(name, getter, nullptr, nullptr);
        return *this;
    }
    template <class Getter, class C, class Result, class Value>
    Class& property(const char* name, Getter getter, Result (C::*setter)(Value)) {
        Result (T::*own)(Value) = setter;
        addProperty(name, getter, &internal::writeProperty<T, decltype(own), Value>, own);
        return *this;
    }
    template <class Getter, class C, class Result, class Value>
    Class& property(const char* name, Getter getter, Result (*setter)(C&, Value)) {
        addProperty(name, getter, &internal::writeProperty<T, decltype(setter), Value>, setter);
        return *this;
    }

    // A static value.
    template <class Value>
    Class& constant(const char* name, const Value& value) {
        m_class.set(name, Object::from(value), true);
        return *this;
    }

    const Object& getClass() const { return m_class; }

private:
    template <class Function, class Result, class... Arguments>
    Class& addMethod(const char* name, Function function) {
        const StackGuard guard(m_vm);
        internal::pushClosure(m_vm, &internal::callMethod<T, Function, Result, Arguments...>, &function,
                              sizeof function, name);
        m_class.set(name, Object(m_vm, -1));
        return *this;
    }
    template <class C, class M>
    Class& addMember(const char* name, M C::*data, bool isReadonly) {
        using Value = std::remove_const_t<M>;
        internal::MemberRecord record;
        record.read = &internal::readMember<Value>;
        if (!isReadonly) record.write = &internal::writeMember<Value>;
        m_adapter.addMember(m_vm, m_class, name, internal::positionOf(static_cast<M T::*>(data)), record);
        return *this;
    }
    template <class Getter, class Setter>
    void addProperty(const char* name, Getter getter, internal::MemberRecord::Write write, Setter setter) {
        static_assert(sizeof getter <= sizeof(internal::MemberRecord::getter));
        static_assert(sizeof setter <= sizeof(internal::MemberRecord::setter));
        internal::MemberRecord record;
        record.read = &internal::readProperty<T, Getter>;
        record.write = write;
        std::memcpy(record.getter, &getter, sizeof getter);
        std::memcpy(record.setter, &setter, sizeof setter);
        m_adapter.addMember(m_vm, m_class, name, 0, record);
    }

    SQVM* const m_vm;
    AdapterData& m_adapter = AdapterData::of<T>();
    Object m_class;
};

} // namespace kivSq
