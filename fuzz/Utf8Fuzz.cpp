// The UTF-8 functions at every level against the strict decoder's own definition, taken one code point at a time.
#include "kiv/core/Simd.h"
#include "kiv/core/Utf8.h"

#include <cstdlib>
#include <string>

using namespace kiv::internal;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* const text = reinterpret_cast<const char*>(data);
    const char* const end = text + size;
    bool valid = true, ended = false;
    size_t count = 0;
    std::string repaired;
    for (const char* it = text; it != end; ++count) {
        const char* strict = it;
        valid = valid && strictDecode(strict, end) != noCodePoint;
        const uint32_t codePoint = lenientDecode(it, end);
        ended = ended || codePoint == 0;
        char form[4];
        if (!ended) repaired.append(form, encodeUtf8(codePoint, form));
    }
    for (const SimdLevel level : {SimdLevel::Portable, SimdLevel::Sse4, SimdLevel::Avx2}) {
        setSimdLevel(level);
        std::string out;
        std::u16string units;
        repairUtf8(text, size, out);
        if (validateUtf8(text, size) != valid || countUtf8(text, size) != count || out != repaired) std::abort();
        utf8ToUnicode(text, size, units);
        unicodeToUtf8(units.data(), units.size(), out);
        if (countUtf8(out.data(), out.size()) != count || !validateUtf8(out.data(), out.size())) std::abort();
        if (valid && out != std::string(text, size)) std::abort();
        asciiFix(text, size, ControlCodes::Remove, out);
        if (out.size() > count) std::abort();
    }
    return 0;
}
