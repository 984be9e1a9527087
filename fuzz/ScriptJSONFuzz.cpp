#include "kiv/script/StackGuard.h"
#include "kiv/script/VM.h"

#include <cstdlib>

// JSON that is accepted makes a value whose JSON, compact or indented, makes a value with the same JSON. What is
// refused is a script error, and nothing of it stays behind.

namespace {

// Null for what is refused, else whether it holds.
constexpr const char* roundTrip = R"(
function roundTrip(text) {
    local value
    try { value = std.decode_json(text) } catch (e) {
        if (e.find("invalid json: ") != 0) throw e
        return null
    }
    local json = std.encode_json(value)
    return std.encode_json(std.decode_json(json)) == json &&
        std.encode_json(std.decode_json(std.encode_json_pretty(value))) == json
})";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kivSq::VM vm;
    static const bool isReady = vm.executeString(roundTrip, "fuzz");
    if (!isReady) std::abort();
    SQVM* const v = vm.getSquirrelVM();
    const SQInteger top = sq_gettop(v);
    const kivSq::StackGuard guard(v);
    vm.getRootTable().get("roundTrip").push(v);
    sq_pushroottable(v);
    sq_pushstring(v, reinterpret_cast<const char*>(data), static_cast<SQInteger>(size));
    if (SQ_FAILED(sq_call(v, 2, SQTrue, SQTrue))) std::abort();
    if (sq_gettop(v) != top + 2) std::abort();
    SQBool holds = SQTrue;
    if (sq_gettype(v, -1) == OT_BOOL) sq_getbool(v, -1, &holds);
    if (!holds) std::abort();
    return 0;
}
