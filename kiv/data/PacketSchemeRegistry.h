#pragma once

#include "kiv/platform/Compiler.h"

#include <string_view>

namespace kiv {

class PacketScheme;

// The process's schemes by their id. Schemes enter themselves when they are made and leave when they go; of two with
// one id the first stays, the second is logged and can only be used directly. Any thread; what is found lives as long
// as its owner says.
class KIV_API PacketSchemeRegistry {
public:
    // Null when there is none.
    static const PacketScheme* find(short id);
    // By the full name; of several the one with the smallest id. Looks at all of them.
    static const PacketScheme* find(std::string_view fullName);

private:
    friend class PacketScheme;

    static void add(const PacketScheme* scheme);
    static void remove(const PacketScheme* scheme);
};

} // namespace kiv
