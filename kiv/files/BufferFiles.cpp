#include "kiv/core/Buffer.h"
#include "kiv/files/File.h"

namespace kiv {

bool Buffer::loadFromFile(const char* path, bool quiet) {
    clear();
    const bool isRead = File::readFile(path, quiet, [this](uint64_t size) {
        resize(static_cast<unsigned>(size));
        return getBytePointer();
    });
    if (!isRead) clear();
    return isRead;
}

bool Buffer::saveToFile(const char* path) const {
    return File::writeFile(path, getConstByteSpan());
}

} // namespace kiv
