#include "Workload.h"

#include "kiv/core/Simd.h"
#include "kiv/core/Utf8.h"

#include <string>

using namespace kiv::internal;

namespace {

void addLevel(SimdLevel level, const char* contestant) {
    const auto prepare = [level] { setSimdLevel(level); };
    workload::add(
        "validate", contestant,
        [](const char* text, size_t size) { benchmark::DoNotOptimize(validateUtf8(text, size)); }, prepare);
    workload::add(
        "count", contestant, [](const char* text, size_t size) { benchmark::DoNotOptimize(countUtf8(text, size)); },
        prepare);
    workload::add(
        "repair", contestant,
        [](const char* text, size_t size) {
            std::string out;
            repairUtf8(text, size, out);
            benchmark::DoNotOptimize(out.data());
        },
        prepare);
    workload::add(
        "to-utf16", contestant,
        [](const char* text, size_t size) {
            std::u16string out;
            utf8ToUnicode(text, size, out);
            benchmark::DoNotOptimize(out.data());
        },
        prepare);
}

[[maybe_unused]] const bool added = [] {
    addLevel(supportedSimdLevel(), "kiv");
    addLevel(SimdLevel::Sse4, "kiv-sse4");
    addLevel(SimdLevel::Portable, "kiv-portable");
    return true;
}();

} // namespace
