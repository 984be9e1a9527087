#include "Workload.h"

#include <string>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>
#include <vector>

namespace {

// Validation by conversion in counting mode: the fastest way that the library's strict interface offers.
bool validate(const char* text, size_t size) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t units = 0;
    u_strFromUTF8(nullptr, 0, &units, text, static_cast<int32_t>(size), &status);
    return status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status);
}

// Reading one code point at a time, a refused byte as itself, and writing UTF-8 again.
std::string repair(const char* text, size_t size) {
    std::string out(3 * size, '\0');
    const auto* bytes = reinterpret_cast<const uint8_t*>(text);
    auto* put = reinterpret_cast<uint8_t*>(out.data());
    int32_t written = 0;
    const auto end = static_cast<int32_t>(size);
    for (int32_t at = 0; at < end;) {
        const int32_t from = at;
        UChar32 codePoint = 0;
        U8_NEXT(bytes, at, end, codePoint);
        if (codePoint < 0) {
            codePoint = bytes[from];
            at = from + 1;
        }
        U8_APPEND_UNSAFE(put, written, codePoint);
    }
    out.resize(static_cast<size_t>(written));
    return out;
}

[[maybe_unused]] const bool added = [] {
    workload::add("validate", "icu",
                  [](const char* text, size_t size) { benchmark::DoNotOptimize(validate(text, size)); });
    workload::add("repair", "icu", [](const char* text, size_t size) {
        const std::string out = repair(text, size);
        benchmark::DoNotOptimize(out.data());
    });
    workload::add("to-utf16", "icu", [](const char* text, size_t size) {
        std::u16string out(size, u'\0');
        UErrorCode status = U_ZERO_ERROR;
        int32_t units = 0;
        u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(size), &units, text, static_cast<int32_t>(size), 0xFFFD,
                             nullptr, &status);
        out.resize(static_cast<size_t>(units));
        benchmark::DoNotOptimize(out.data());
    });
    return true;
}();

} // namespace
