#include "kiv/files/File.h"

#include "kiv/logging/MessageStream.h"

namespace kiv {

bool File::writeFile(TextArg path, const ConstByteSpan& bytes) {
    return platform::writeWholeFile(std::string(path), bytes.getBytePointer(), bytes.getSize());
}

bool File::readFile(TextArg path, bool quiet, const platform::FileSpace& space) {
    const auto [status, length] = platform::readWholeFile(std::string(path), 0xFFFFFFFF, space);
    if (status == platform::FileStatus::CantOpen && !quiet)
        logging::MessageStream(3, 2) << "cant open file '" << path << "'";
    if (status == platform::FileStatus::CantRead)
        logging::MessageStream(3, 2) << "cant read file '" << path << "' of " << length << " bytes";
    return status == platform::FileStatus::Ok;
}

} // namespace kiv
