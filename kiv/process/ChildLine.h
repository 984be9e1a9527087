#pragma once

#include "kiv/platform/Compiler.h"

#include <string_view>

namespace kiv::internal {

// What a line of a child's log says.
struct ChildLine {
    int level;             // as for MessageStream
    std::string_view text; // without time and tag
};

// Takes the line apart as MessageStream puts it together: a time in brackets, a level in brackets, and the text, where
// both may be missing. Without a level it is that of `untagged`.
KIV_API ChildLine readChildLine(std::string_view line, int untagged);

} // namespace kiv::internal
