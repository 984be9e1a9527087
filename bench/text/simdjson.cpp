#include "Workload.h"

#include <simdjson.h>

namespace {

[[maybe_unused]] const bool added = [] {
    workload::add("validate", "simdjson",
                  [](const char* text, size_t size) { benchmark::DoNotOptimize(simdjson::validate_utf8(text, size)); });
    return true;
}();

} // namespace
