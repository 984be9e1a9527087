#include "kiv/core/GregorianDate.h"

#include <cstdlib>

using kiv::GregorianDate;

// A text that is read is a moment within the years, and what is written of it reads the same to the millisecond.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    GregorianDate date, again;
    if (!GregorianDate::fromString(std::string_view(reinterpret_cast<const char*>(data), size), date)) return 0;
    if (!date.isValid() || GregorianDate(date.getFields()) != date) std::abort();
    if (!GregorianDate::fromString(date.toString(), again)) std::abort();
    if (date.getMicrosecondsSince(again) != date.getMicrosecond() % 1000) std::abort();
    return 0;
}
