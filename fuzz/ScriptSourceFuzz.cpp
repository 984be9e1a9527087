#include "fuzz/Silence.h"
#include "kiv/script/VM.h"

#include <cstddef>
#include <cstdint>

// Errors of the engine's compiler jump over what its frames own, which leaks a few bytes now and then.
extern "C" int __lsan_is_turned_off() {
    return 1;
}

// Sources of any bytes: refused, or compiled, or an error of the compiler. Nothing is run.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kivSq::VM vm;
    vm.newClosure(reinterpret_cast<const char*>(data), static_cast<unsigned>(size), "fuzz");
    return 0;
}
