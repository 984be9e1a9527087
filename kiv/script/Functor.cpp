#include "kiv/script/Functor.h"

#include "kiv/script/VM.h"

namespace kivSq {

Functor::Functor(const Object& closure, const Object& environment) : m_closure(closure), m_environment(environment) {
    const VM* vm = VM::current();
    if (vm && environment.isNull()) m_environment = vm->getRootTable();
}

} // namespace kivSq
