#include "kiv/core/Buffer.h"

#include <cstdio>
#include <cstring>

int main() {
    kiv::Buffer buffer;
    buffer.appendStringWithNull("kiv");
    buffer.appendStringWithNull("Core");
    if (buffer.getSize() != 9 || std::memcmp(buffer.getBytePointer(), "kiv\0Core", 9) != 0) return 1;
    std::puts("consumer: linked and ran");
    return 0;
}
