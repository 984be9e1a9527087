#include "kiv/script/Call.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/script/TypeName.h"

#include <fmt/format.h>

#include <cmath>

namespace kivSq {
namespace internal {

SQInteger throwMismatch(SQVM* v, int number, const char* expected, SQInteger index) {
    const std::string what = number > 0 ? fmt::format("argument {}", number) : "value";
    return sq_throwerror(v, fmt::format("{}: expected {}, got {}", what, expected, typeNameAt(v, index)).c_str());
}

bool fitsInteger(SQVM* v, SQInteger index) {
    SQFloat number = 0;
    return sq_gettype(v, index) == OT_INTEGER ||
           (SQ_SUCCEEDED(sq_getfloat(v, index, &number)) && number >= -0x1p63 && number < 0x1p63);
}

void logFailedConversion(SQVM* v) {
    sq_getlasterror(v);
    const SQChar* text = nullptr;
    if (SQ_FAILED(sq_getstring(v, -1, &text))) text = "unknown";
    kiv::logging::MessageStream(2, 2) << "[SQ] cannot make a script value: " << text;
    sq_poptop(v);
    sq_reseterror(v);
}

SQInteger throwException(SQVM* v, const std::exception* failure) noexcept {
    return sq_throwerror(v, failure ? failure->what() : "native exception");
}

void pushClosure(SQVM* v, SQFUNCTION trampoline, const void* function, size_t size, const char* name) {
    std::memcpy(sq_newuserdata(v, size), function, size);
    sq_newclosure(v, trampoline, 1);
    sq_setnativeclosurename(v, -1, name);
}

} // namespace internal

bool InitializeCharArrayAccess(SQVM* v, int64_t index, char* buffer, int size) {
    std::string_view text;
    if (size <= 0 || !Access<std::string_view>::get(v, index, text)) return false;
    text = text.substr(0, static_cast<size_t>(size - 1));
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = 0;
    return true;
}

} // namespace kivSq
